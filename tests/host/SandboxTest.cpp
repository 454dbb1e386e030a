#include "host/Sandbox.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <functional>
#include <thread>

#include "host/Error.h"
#include "host/TemporaryFile.h"
#include "tests/host/AudioFileTools.h"

namespace zuc::host {
namespace {

namespace fs = std::filesystem;

/// What `action` answers in a process of its own that confined itself to `files`.
int AnswerConfined(const FileAccess& files, const std::function<int()>& action) {
    const pid_t child = fork();
    if (child == 0) {
        Confine(files);
        _exit(action());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int ErrorOf(int result) { return result < 0 ? errno : 0; }

int TryOpen(const std::string& path, int flags) {
    return ErrorOf(open(path.c_str(), flags | O_CLOEXEC, 0600));
}

int TryReplace(const std::string& path) {
    try {
        WriteFileAtomically(path, "new");
        return 0;
    } catch (const Error&) {
        return EACCES;
    }
}

int TryConnect() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(9);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    return ErrorOf(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address));
}

class SandboxTest : public testing::Test {
public:
    ~SandboxTest() override { unsetenv("TMPDIR"); }  // NOLINT(concurrency-mt-unsafe)

protected:
    SandboxTest() {
        for (const char* folder : {"in", "out", "other", "temporary", "links"})
            fs::create_directory(root_ / folder);
        for (const char* file : {"in/a.wav", "in/b.wav", "out/a.wav", "other/a.wav"})
            WriteBytes(root_ / file, "old");
        fs::create_symlink("../out/new.wav", root_ / "links/dangling.wav");
        setenv("TMPDIR", (root_ / "temporary").c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
        files_.inputs = {root_ / "in/a.wav", "-", "", root_ / "in/none.wav"};
        files_.outputs = {root_ / "links/dangling.wav", "-", "", "/dev/full"};
        files_.folders = {root_ / "made/below"};
        fs::create_directory(root_ / "made");
    }
    TestFolder root_;
    FileAccess files_;
};

TEST_F(SandboxTest, AllowsWhatTheCommandNeedsAndNoMore) {
    const int version = GetSandboxState().version;
    if (version == 0) GTEST_SKIP() << "this kernel has no Landlock";
    const std::string program = root_ / "in/a.wav";  // may be run, but for the sandbox
    chmod(program.c_str(), 0700);
    const int kept = open((root_ / "other/a.wav").c_str(), O_RDWR | O_CLOEXEC);
    const struct {
        const char* name;
        int error;
        std::function<int()> action;
        int sinceVersion = 1;
    } rows[] = {
        {"read an input", 0, [&] { return TryOpen(root_ / "in/a.wav", O_RDONLY); }},
        {"read beside it", EACCES, [&] { return TryOpen(root_ / "in/b.wav", O_RDONLY); }},
        {"names beside it", 0, [&] { return TryOpen(root_ / "in", O_RDONLY | O_DIRECTORY); }},
        {"write an input", EACCES, [&] { return TryOpen(root_ / "in/a.wav", O_WRONLY); }},
        {"cut an input", EACCES, [&] { return ErrorOf(truncate((root_ / "in/a.wav").c_str(), 0)); },
         3},
        {"remove an input", EACCES, [&] { return ErrorOf(unlink((root_ / "in/a.wav").c_str())); }},
        {"write behind a link", 0, [&] { return TryReplace(root_ / "links/dangling.wav"); }},
        {"replace beside the output", 0, [&] { return TryReplace(root_ / "out/a.wav"); }},
        {"write elsewhere", EACCES,
         [&] { return TryOpen(root_ / "other/b.wav", O_WRONLY | O_CREAT); }},
        {"write to a device", 0, [&] { return TryOpen("/dev/full", O_WRONLY); }},
        {"make a folder", 0, [&] { return ErrorOf(mkdir((root_ / "made/below").c_str(), 0700)); }},
        {"make one elsewhere", EACCES,
         [&] { return ErrorOf(mkdir((root_ / "other/x").c_str(), 0700)); }},
        {"move out", EXDEV,
         [&] {
             return ErrorOf(
                 rename((root_ / "out/a.wav").c_str(), (root_ / "made/below/a").c_str()));
         }},
        {"a temporary", 0, [] { return OpenUnlinkedTemporary().IsOpen() ? 0 : errno; }},
        {"what was open", 0, [&] { return ErrorOf(static_cast<int>(write(kept, "new", 3))); }},
        {"a library", 0, [&] { return TryOpen("/etc/ld.so.cache", O_RDONLY); }},
        {"run a program", EACCES,
         [&] { return ErrorOf(execl(program.c_str(), program.c_str(), nullptr)); }},
        {"other processes", EACCES,
         [] { return TryOpen("/proc/" + std::to_string(getppid()) + "/environ", O_RDONLY); }},
        {"connect", EACCES, TryConnect, 4},
        {"from another thread", EACCES,
         [&] {
             int error = 0;
             std::thread([&] { error = TryOpen(root_ / "in/b.wav", O_RDONLY); }).join();
             return error;
         }},
        {"new privileges", 1, [] { return prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0); }},
        {"tell", 1, [] { return GetSandboxState().isActive ? 1 : 0; }},
    };
    for (const auto& row : rows)
        EXPECT_TRUE(version < row.sinceVersion || AnswerConfined(files_, row.action) == row.error)
            << row.name;
    close(kept);
    EXPECT_FALSE(GetSandboxState().isActive) << "only the children are confined";
    FileAccess sound = files_;
    sound.playsSound = true;
    EXPECT_NE(AnswerConfined(sound, TryConnect), EACCES);
}

}  // namespace
}  // namespace zuc::host
