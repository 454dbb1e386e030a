#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <future>
#include <random>

#include "RunZuc.h"
#include "host/AudioReader.h"
#include "tests/host/RemixSong.h"

namespace zuc::test {
namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kOld[] = "what was there before";

void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

/// A command that replaces a file.
struct Writing {
    const char* name;
    std::vector<std::string> arguments;
    std::string target;
};

class FaultTest : public testing::Test {
public:
    ~FaultTest() override { ::unsetenv("XDG_CACHE_HOME"); }  // NOLINT(concurrency-mt-unsafe)

protected:
    FaultTest() {
        WriteNoise(in_, 200'000);
        host::WriteSong(song_, 12.0);
        fs::create_directories(out_);
        ::setenv("XDG_CACHE_HOME", cache_.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    }

    Outcome Run(const Writing& row, const std::function<void(int)>& whileRunning = {}) const {
        return RunZuc(row.arguments, "", config_, whileRunning);
    }
    /// A row of each kind of output. What they write is the same every time.
    std::vector<Writing> MakeRows() const {
        const std::string wav = out_ + "/a.wav", flac = out_ + "/a.flac", svg = out_ + "/a.svg",
                          plan = out_ + "/plan.json", chain = out_ + "/chain.json",
                          png = out_ + "/a.png",
                          preset = config_ + "/zuc/presets/amplify/Mine.json";
        return {
            {"wav", {"process", in_, wav, "-y", "-e", "amplify:gain=-6dB"}, wav},
            {"flac", {"process", in_, flac, "-y", "-e", "echo", "--tail", "none"}, flac},
            {"chain", {"process", in_, wav, "-y", "-e", "echo", "--save-chain", chain}, chain},
            {"preset", {"preset", "save", "amplify", "Mine", "gain=-6dB", "-y"}, preset},
            {"plan", {"remix", song_, "--to", "8", "--plan-out", plan, "-y"}, plan},
            {"svg", {"plot", "waveform", in_, "-o", svg}, svg},
            {"png", {"plot", "waveform", in_, "-o", png}, png},
        };
    }
    /// Names beside the target that are neither it nor hidden and marked as a temporary.
    static std::vector<std::string> FindStrays(const Writing& row) {
        std::vector<std::string> strays;
        for (const auto& entry : fs::directory_iterator(fs::path(row.target).parent_path())) {
            const std::string name = entry.path().filename();
            const bool isTemporary = name.starts_with('.') && name.ends_with(".tmp");
            if (!isTemporary && entry.path() != row.target) strays.push_back(name);
        }
        return strays;
    }
    void Clear(const Writing& row) const {
        fs::remove_all(out_);
        fs::create_directories(out_);
        fs::remove_all(fs::path(row.target).parent_path());
        fs::create_directories(fs::path(row.target).parent_path());
    }

    TemporaryFolder folder_;
    std::string in_ = folder_ / "in.wav";
    std::string song_ = folder_ / "song.wav";
    std::string out_ = folder_ / "out";
    std::string config_ = folder_ / "config";
    std::string cache_ = folder_ / "cache";
};

/// ZUC_KILLS says how many altogether; 210 without it.
TEST_F(FaultTest, NoKillTearsAFile) {
    const char* const wanted = std::getenv("ZUC_KILLS");  // NOLINT(concurrency-mt-unsafe)
    const auto rows = MakeRows();
    const std::size_t rounds =
        static_cast<std::size_t>(wanted ? std::atoi(wanted) : 210) / rows.size();
    std::minstd_rand random(11);
    for (const Writing& row : rows) {
        SCOPED_TRACE(row.name);
        Clear(row);
        ASSERT_EQ(Run(row).exitCode, 0);
        const auto start = steady_clock::now();
        ASSERT_EQ(Run(row).exitCode, 0);
        const auto whole =
            std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - start);
        const std::string result = ReadBytes(row.target);
        std::size_t killed = 0;
        for (std::size_t i = 0; i < rounds; ++i) {
            WriteBytes(row.target, kOld);
            const auto wait = std::uniform_int_distribution<long>(0, whole.count())(random);
            const Outcome outcome = Run(row, [&](int process) {
                ::usleep(static_cast<useconds_t>(wait));
                ::kill(process, SIGKILL);
            });
            killed += outcome.exitCode == 128 + SIGKILL ? 1 : 0;
            const std::string found = ReadBytes(row.target);
            EXPECT_TRUE(found == kOld || found == result)
                << found.size() << " bytes after " << wait << " us";
            EXPECT_TRUE(outcome.exitCode != 0 || found == result);
        }
        EXPECT_GE(killed, rounds / 4) << "too few kills came in time";
        ASSERT_EQ(Run(row).exitCode, 0) << "what was left is in nobody's way";
        EXPECT_TRUE(ReadBytes(row.target) == result);
    }
    // The next one to write there has removed what the killed left.
    for (const Writing& row : {rows.front(), rows[3]}) {
        Clear(row);
        Run(row, [](int process) { ::usleep(10'000), ::kill(process, SIGKILL); });
        ASSERT_EQ(Run(row).exitCode, 0);
        const fs::path folder = fs::path(row.target).parent_path();
        EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1) << row.name;
    }
}

/// Limits what files may grow to, for this process and those it starts.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { ::setrlimit(RLIMIT_FSIZE, &before_); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit before_{};
};

/// Every write that the device refuses, at whatever byte, is one error, and the old file stays.
TEST_F(FaultTest, AFullDiskKeepsTheOldFile) {
    for (const Writing& row : MakeRows()) {
        Clear(row);
        ASSERT_EQ(Run(row).exitCode, 0) << row.name;
        const auto bytes = fs::file_size(row.target);
        for (const std::uintmax_t limit : {bytes / 2, bytes - 1}) {
            if (limit < 1000) continue;  // what the command says has to fit too
            SCOPED_TRACE(std::string(row.name) + " of " + std::to_string(limit) + " bytes");
            WriteBytes(row.target, kOld);
            const FileSizeLimit full(limit);
            const Outcome outcome = Run(row);
            EXPECT_EQ(outcome.exitCode, 4) << outcome.err;
            EXPECT_THAT(outcome.err, HasSubstr("limit"));
            EXPECT_EQ(ReadBytes(row.target), kOld);
            EXPECT_THAT(FindStrays(row), ElementsAre());
        }
    }
    // The place for what is decoded is full, not the output's.
    host::WriteSong(folder_ / "song.flac", 12.0);
    const FileSizeLimit full(1'500'000);
    const Outcome outcome = RunZuc({"remix", folder_ / "song.flac", out_ + "/b.wav", "--to", "8"});
    EXPECT_EQ(outcome.exitCode, 4);
    EXPECT_THAT(outcome.err, HasSubstr("temporary"));
}

TEST_F(FaultTest, AFullFileSystemKeepsTheOldFile) {
    if (::mount("none", out_.c_str(), "tmpfs", 0, "size=100k") != 0)
        GTEST_SKIP() << "this user cannot mount a small disk";
    for (const Writing& row : MakeRows()) {
        if (std::string(row.name) != "wav" && std::string(row.name) != "flac") continue;
        WriteBytes(row.target, kOld);
        const Outcome outcome = Run(row);
        EXPECT_EQ(outcome.exitCode, 4) << row.name;
        EXPECT_THAT(outcome.err, HasSubstr("free some space")) << row.name;
        EXPECT_EQ(ReadBytes(row.target), kOld) << row.name;
        fs::remove(row.target);
        EXPECT_TRUE(fs::is_empty(out_)) << row.name;
    }
    EXPECT_EQ(::mount("none", out_.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, "size=100k"), 0);
    EXPECT_THAT(Run(MakeRows().front()).err, HasSubstr("choose a folder you may write to"));
    ::umount(out_.c_str());
}

/// Takes root's rights from this process and those it starts, where it has them.
class PlainUser {
public:
    PlainUser() : isRoot_(::geteuid() == 0) {
        if (isRoot_) std::ignore = ::setresuid(65534, 65534, 0);
    }
    ~PlainUser() {
        if (isRoot_) std::ignore = ::setresuid(0, 0, 0);
    }
    PlainUser(const PlainUser&) = delete;
    PlainUser& operator=(const PlainUser&) = delete;

private:
    bool isRoot_;
};

TEST_F(FaultTest, AReadOnlyFolderIsAnError) {
    const auto rows = MakeRows();
    for (const Writing& row : rows) {
        Clear(row);
        WriteBytes(row.target, kOld);
    }
    fs::permissions(fs::path(in_).parent_path(), fs::perms(0755));
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(in_).parent_path()))
        fs::permissions(entry.path(), entry.is_directory() ? fs::perms(0555) : fs::perms(0444));
    {
        const PlainUser nobody;
        if (!std::ifstream(ZUC_BINARY)) GTEST_SKIP() << "another user cannot run the command";
        for (const Writing& row : rows) {
            const Outcome outcome = Run(row);
            EXPECT_EQ(outcome.exitCode, 4) << row.name << outcome.err;
            EXPECT_THAT(outcome.err, HasSubstr("may write to")) << row.name;
        }
    }
    for (const auto& entry : fs::recursive_directory_iterator(fs::path(in_).parent_path()))
        fs::permissions(entry.path(), entry.is_directory() ? fs::perms(0755) : fs::perms(0644));
}

/// Both results are whole ones, and one of them is there at the end.
TEST_F(FaultTest, TwoWritersOfOneFileDoNotMix) {
    const std::string target = out_ + "/a.wav";
    const auto write = [&](const char* effect) {
        return RunZuc({"process", in_, target, "-y", "-e", effect}).exitCode;
    };
    std::vector<std::string> results;
    for (const char* effect : {"amplify:gain=-6dB", "echo"}) {
        ASSERT_EQ(write(effect), 0);
        results.push_back(ReadBytes(target));
    }
    for (int i = 0; i < 20; ++i) {
        auto other = std::async(std::launch::async, write, "echo");
        EXPECT_EQ(write("amplify:gain=-6dB"), 0);
        EXPECT_EQ(other.get(), 0);
        EXPECT_THAT(results, testing::Contains(ReadBytes(target)));
        EXPECT_EQ(std::distance(fs::directory_iterator(out_), {}), 1);
    }
}

/// An input that loses its name is still read to its end; one that loses its end gives what there was,
/// with a warning.
TEST_F(FaultTest, AnInputMayVanishWhileItIsRead) {
    for (const bool isCut : {false, true}) {
        WriteNoise(in_, 3'000'000);
        const std::string target = out_ + (isCut ? "/cut.wav" : "/removed.wav");
        const Outcome outcome =
            RunZuc({"process", in_, target, "-e", "amplify:gain=-6dB"}, "", "", [&](int) {
                // The temporary shows that it has begun.
                for (int i = 0; i < 10'000 && fs::is_empty(out_); ++i) ::usleep(500);
                if (isCut)
                    fs::resize_file(in_, 1'000'000);
                else
                    fs::remove(in_);
            });
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
        const auto frames = host::AudioReader::Open(target)->GetInfo().frames;
        if (isCut)
            EXPECT_LT(frames, 3'000'000);
        else
            EXPECT_EQ(frames, 3'000'000);
        EXPECT_EQ(outcome.err.find("warning") != std::string::npos, isCut) << outcome.err;
        fs::remove(target);
    }
}

}  // namespace
}  // namespace zuc::test
