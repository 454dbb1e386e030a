#include "host/SongCache.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <fstream>

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
