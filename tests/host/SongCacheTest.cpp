#include "host/SongCache.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <limits>
#include <utility>

#include "host/BeatAnalysis.h"

namespace zuc::host {
namespace {

namespace fs = std::filesystem;

components::SongAnalysis ExampleSong() {
    components::SongAnalysis song;
    song.durationSeconds = 2.5;
    song.analysisRateHz = 22050;
    song.beatTimes = {0.25, 0.75, 1.25};
    song.beatPeriodSeconds = 0.5;
    song.gridStepSeconds = 0.6;
    song.confidence = 0.75;
    song.timbre = {2, {1, 2, 3, 4, 5, 6}, 0.8f};
    song.chroma = {1, {7, 8, 9}, 0.8f};
    song.onsets = {0, 1, 2};
    song.onsetRateHz = 86;
    return song;
}

struct Folder {
    Folder() : path(fs::temp_directory_path() / ("zuc-cache-" + std::to_string(::getpid()))) {
        fs::create_directories(path);
    }
    ~Folder() { fs::remove_all(path); }
    void Write(const std::string& name, const std::string& bytes) const {
        std::ofstream(path / name, std::ios::binary) << bytes;
    }
    fs::path path;
};

TEST(SongCache, GivesBackWhatWasStoredAndNothingBroken) {
    const Folder folder;
    const SongCache cache((folder.path / "songs").string());
    EXPECT_FALSE(cache.Find("key"));
    cache.Store("key", ExampleSong());
    const auto found = cache.Find("key");
    ASSERT_TRUE(found);
    EXPECT_EQ(BeatsToJson(*found), BeatsToJson(ExampleSong()));
    EXPECT_EQ(found->timbre.values, ExampleSong().timbre.values);
    EXPECT_EQ(found->onsets, ExampleSong().onsets);
    EXPECT_FALSE(cache.Find("other"));
    EXPECT_FALSE(SongCache("").Find("key"));
    // Every truncation, and every file that is no song.
    fs::path file;
    for (const auto& entry : fs::directory_iterator(folder.path / "songs")) file = entry.path();
    std::ifstream stream(file, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes.substr(0, size);
        ASSERT_FALSE(cache.Find("key")) << size;
    }
    std::ofstream(file, std::ios::binary | std::ios::trunc) << bytes + "x";
    EXPECT_FALSE(cache.Find("key"));
}

TEST(SongCache, WhatNoAnalysisGivesIsNotFound) {
    const Folder folder;
    const SongCache cache(folder.path.string());
    using Song = components::SongAnalysis;
    constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
    const struct {
        const char* name;
        void (*change)(Song& song);
    } rows[] = {
        {"duration", [](Song& song) { song.durationSeconds = kNaN; }},
        {"endless", [](Song& song) { song.durationSeconds = 1e9; }},
        {"beat before the start", [](Song& song) { song.beatTimes[0] = -1; }},
        {"beat behind the end", [](Song& song) { song.beatTimes[2] = 3; }},
        {"beats out of order", [](Song& song) { std::swap(song.beatTimes[0], song.beatTimes[1]); }},
        {"no period", [](Song& song) { song.beatPeriodSeconds = 1e-300; }},
        {"no step", [](Song& song) { song.gridStepSeconds = -0.5; }},
        {"a feature",
         [](Song& song) { song.chroma.values[1] = std::numeric_limits<float>::infinity(); }},
        {"a row too few", [](Song& song) { song.timbre.values.resize(4); }},
    };
    for (const auto& row : rows) {
        Song song = ExampleSong();
        row.change(song);
        cache.Store("key", song);
        EXPECT_FALSE(cache.Find("key")) << row.name;
    }
    cache.Store("key", ExampleSong());
    EXPECT_TRUE(cache.Find("key"));
}

TEST(SongCache, KeepsTheSongsUsedLast) {
    const Folder folder;
    const SongCache cache(folder.path.string());
    const auto write = [&](const char* name, std::uintmax_t bytes, int hoursAgo) {
        folder.Write(name, "");
        fs::resize_file(folder.path / name, bytes);  // takes no room on the disk
        fs::last_write_time(folder.path / name,
                            fs::file_time_type::clock::now() - std::chrono::hours(hoursAgo));
    };
    write("oldest.song", 100u << 20, 3);
    write("older.song", 100u << 20, 2);
    write("recent.song", 100u << 20, 1);
    write("notes.txt", 300u << 20, 9);
    cache.Store("key", ExampleSong());
    EXPECT_TRUE(cache.Find("key"));
    for (const auto& [name, isKept] : {std::pair{"oldest.song", false},
                                       {"older.song", true},
                                       {"recent.song", true},
                                       {"notes.txt", true}})
        EXPECT_EQ(fs::exists(folder.path / name), isKept) << name;
}

TEST(SongCache, KeysFollowTheContentOnly) {
    const Folder folder;
    const auto key = [&](const std::string& name) {
        return SongCache::MakeKey((folder.path / name).string());
    };
    folder.Write("a", "some bytes of a song");
    folder.Write("b", "some bytes of a song");
    folder.Write("c", "some bytes of a sonh");
    folder.Write("d", std::string("some bytes of a song\0", 21));
    EXPECT_EQ(key("a"), key("b"));
    EXPECT_NE(key("a"), key("c"));
    EXPECT_NE(key("a"), key("d"));
    EXPECT_EQ(key("none"), "");
    EXPECT_EQ(SongCache::MakeKey(folder.path.string()), "");
    EXPECT_EQ(SongCache::MakeKey("-"), "");
}

TEST(BeatTexts, AreJsonAndLabels) {
    EXPECT_EQ(BeatsToJson(ExampleSong()),
              "{\"duration\":2.5,\"bpm\":120.0,\"beat_period\":0.5,\"beats\":[0.25,0.75,1.25],"
              "\"confidence\":0.75}\n");
    EXPECT_EQ(BeatsToLabels(ExampleSong()),
              "0.250000\t0.250000\t1\n0.750000\t0.750000\t2\n1.250000\t1.250000\t3\n");
}

}  // namespace
}  // namespace zuc::host
