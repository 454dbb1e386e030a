#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <future>

#include "host/Error.h"
#include "host/FileFormats.h"
#include "host/TemporaryFile.h"
#include "tests/host/AudioFileTools.h"

namespace zuc::host {
namespace {

using testing::ElementsAre;

template <typename Action>
ExitCode CodeOf(const Action& action) {
    try {
        action();
    } catch (const Error& error) {
        return error.GetCode();
    }
    return ExitCode::kDone;
}

/// While it lives no file of this process grows beyond so many bytes.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &before_); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit before_{};
};

TEST(OutputFile, AppearsWholeOrNotAtAll) {
    const TestFolder folder;
    const std::string path = folder / "a.txt";
    WriteFileAtomically(path, "old");
    {
        OutputFile file(path);
        file.Append("new, but not committed", 22);
    }
    EXPECT_EQ(ReadBytes(path), "old");
    EXPECT_THAT(folder.List(), ElementsAre("a.txt"));
    {
        OutputFile file(path);
        file.Append("new", 3);
        file.WriteAt(1, "E", 1);
        EXPECT_EQ(ReadBytes(path), "old");
        file.Append("!", 1);
        file.Commit();
    }
    EXPECT_EQ(ReadBytes(path), "nEw!");
    const std::string longName(250, 'n');  // a temporary's name is longer, but must fit the disk
    WriteFileAtomically(folder / longName, "x");
    EXPECT_THAT(folder.List(), ElementsAre("a.txt", longName));
}

TEST(OutputFile, KeepsTheOldFileWhenTheDiskIsFull) {
    const TestFolder folder;
    const std::vector<std::pair<std::string, std::size_t>> cases{
        {"a.wav", 1000}, {"a.wav", 1 << 20}, {"a.flac", 1000}, {"a.aiff", 1000}, {"a.ogg", 1000}};
    for (const auto& [name, blockFrames] : cases) {
        SCOPED_TRACE(name);
        const std::string path = folder / name;
        WriteBytes(path, "old");
        {
            const FileSizeLimit limit(200'000);
            EXPECT_EQ(CodeOf([&, block = blockFrames] {
                          WriteAudio(MakeOptions(path, 2, SampleFormat::kLikeSource),
                                     MakeNoise(2, 1 << 20, 16), {}, block);
                      }),
                      ExitCode::kOutput);
        }
        EXPECT_EQ(ReadBytes(path), "old");
        EXPECT_THAT(folder.List(), ElementsAre(name));
        std::filesystem::remove(path);
    }
    for (const std::string format : {"wav", "flac"}) {
        AudioWriterOptions options = MakeOptions("/dev/full", 1, SampleFormat::kInt16);
        options.format = format;
        EXPECT_EQ(CodeOf([&] { WriteAudio(options, MakeNoise(1, 50, 16)); }), ExitCode::kOutput);
    }
}

TEST(OutputFile, MayBeItsOwnInput) {
    const TestFolder folder;
    const std::string path = folder / "a.wav";
    const Channels samples = MakeNoise(2, 100000, 16);
    AudioWriterOptions options = MakeOptions(path, 2, SampleFormat::kInt16);
    options.exact = true;
    WriteAudio(options, samples);
    const auto reader = AudioReader::Open(path);
    AudioWriter writer(options, reader->GetMetadata());
    Channels block(2, std::vector<float>(500));
    while (const int frames = reader->Read(Pointers(block).data(), 500))
        writer.Write(Pointers(std::as_const(block)).data(), frames);
    writer.Commit();
    EXPECT_EQ(ReadAudio(path), samples);
}

TEST(OutputFile, RemovesTemporariesOfTheDead) {
    const TestFolder folder;
    const pid_t dead = fork();
    if (dead == 0) _exit(0);
    waitpid(dead, nullptr, 0);
    const std::string alive = fmt::format(".a.wav.zuc-{}-00000001.tmp", getppid());
    WriteBytes(folder / fmt::format(".a.wav.zuc-{}-0123abcd.tmp", dead), "left");
    WriteBytes(folder / alive, "in use");
    // What looks like it but is not, and one that another machine writes.
    const std::string locked = fmt::format(".b.wav.zuc-{}-0123abcd.tmp", dead);
    const std::vector<std::string> others{fmt::format("a.zuc-{}-1.tmp", dead),
                                          fmt::format(".a.zuc-{}-1", dead),
                                          fmt::format(".a.zuc-{}x1.tmp", dead),
                                          ".a.zuc--1.tmp",
                                          ".a.zuc-0-1.tmp",
                                          ".a.tmp",
                                          locked};
    for (const std::string& name : others) WriteBytes(folder / name, "not ours");
    const FileDescriptor lock(open((folder / locked).c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_EQ(flock(lock.Get(), LOCK_EX | LOCK_NB), 0);
    WriteFileAtomically(folder / "b.wav", "new");
    std::vector<std::string> expected = others;
    expected.insert(expected.end(), {alive, "b.wav"});
    EXPECT_THAT(folder.List(), testing::UnorderedElementsAreArray(expected));
}

TEST(OutputFile, KeepsPermissionsAndLinks) {
    const TestFolder folder;
    const auto modeOf = [&](const std::string& name) {
        struct stat status {};
        stat((folder / name).c_str(), &status);
        return status.st_mode & 0777;
    };
    const mode_t umaskBefore = umask(027);
    WriteFileAtomically(folder / "new", "1");
    EXPECT_EQ(modeOf("new"), 0640u);
    chmod((folder / "new").c_str(), 0606);
    WriteFileAtomically(folder / "new", "2");
    EXPECT_EQ(modeOf("new"), 0606u);
    umask(umaskBefore);

    std::filesystem::create_directory(folder / "sub");
    std::filesystem::create_symlink("sub/first", folder / "link");
    std::filesystem::create_symlink("link", folder / "chain");
    for (const std::string text : {"made", "replaced"}) {
        WriteFileAtomically(folder / "chain", text);
        EXPECT_TRUE(std::filesystem::is_symlink(folder / "link"));
        EXPECT_EQ(ReadBytes(folder / "sub/first"), text);
    }
    EXPECT_EQ(CodeOf([&] { WriteFileAtomically(folder / "none/a", "x"); }), ExitCode::kOutput);
    EXPECT_EQ(CodeOf([&] { WriteFileAtomically(folder / "sub", "x"); }), ExitCode::kOutput);
}

TEST(OutputFile, SaysWhyItCannotWriteAndWhatToDo) {
    const TestFolder folder;
    int pipe[2];
    ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
    close(pipe[0]);
    const struct {
        std::string path;
        const char* message;
        const char* hint;
    } rows[] = {
        {"", "has no name", ""},
        {folder / "", "it is a folder", ""},
        {folder / "none/a", "there is no folder", "make the folder first"},
        {"/dev/fd/987654", "Bad file descriptor", ""},
        {"/proc/self/fd/1x", "cannot write '/proc/self/fd/1x'", ""},
        {"/dev/full", "No space left", "free some space"},
        {fmt::format("/dev/fd/{}", pipe[1]), "Broken pipe", "ended early"},
        {folder / "long", "File too large", "limit"},
    };
    for (const auto& row : rows) {
        try {
            const FileSizeLimit limit(100);
            WriteFileAtomically(row.path, std::string(101, 'x'));
            ADD_FAILURE() << row.path;
        } catch (const Error& error) {
            EXPECT_THAT(error.GetMessage(), testing::HasSubstr(row.message));
            EXPECT_THAT(error.GetHint(), testing::HasSubstr(row.hint));
        }
    }
    EXPECT_THAT(folder.List(), ElementsAre());
    OutputFile stored(fmt::format("/dev/fd/{}", pipe[1]), OutputFile::Access::kRandom);
    stored.Append(std::string(200'000, 'x').data(), 200'000);
    stored.WriteAt(0, "y", 1);  // goes to the store
    EXPECT_EQ(CodeOf([&] { stored.Commit(); }), ExitCode::kOutput) << "nobody reads";
    OutputFile file(fmt::format("/dev/fd/{}", pipe[1]));
    EXPECT_EQ(CodeOf([&] { file.WriteAt(0, "x", 1); }), ExitCode::kOutput) << "has no way back";
    EXPECT_EQ(CodeOf([&] { file.Commit(); }), ExitCode::kOutput) << "after an error";
    close(pipe[1]);
}

TEST(OutputFile, StoresStreamsOrSaysWhyNot) {
    const FileDescriptor folder(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    EXPECT_EQ(CodeOf([&] { SpoolToTemporary(folder.Get(), "folder"); }), ExitCode::kInput);
    for (const bool fits : {true, false}) {
        int pipe[2];
        ASSERT_EQ(pipe2(pipe, O_CLOEXEC), 0);
        const FileDescriptor in(pipe[0]);
        EXPECT_EQ(write(pipe[1], "0123456789", 10), 10);
        close(pipe[1]);
        const FileSizeLimit limit(fits ? 10 : 5);
        const auto spool = [&] {
            const FileDescriptor file = SpoolToTemporary(in.Get(), "pipe");
            char bytes[11] = {};
            EXPECT_EQ(read(file.Get(), bytes, 11), 10);
            EXPECT_STREQ(bytes, "0123456789");
        };
        EXPECT_EQ(CodeOf(spool), fits ? ExitCode::kDone : ExitCode::kOutput);
    }
}

/// A pipe, read to its end in the background.
class Drain {
public:
    Drain() {
        if (pipe2(ends_, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        bytes_ = std::async(std::launch::async, [fd = ends_[0]] {
            std::string bytes;
            char block[4096];
            for (ssize_t count = 0; (count = read(fd, block, sizeof block)) > 0;)
                bytes.append(block, static_cast<std::size_t>(count));
            close(fd);
            return bytes;
        });
    }
    int GetInput() const { return ends_[1]; }
    std::string GetBytes() {
        close(ends_[1]);
        return bytes_.get();
    }

private:
    int ends_[2]{};
    std::future<std::string> bytes_;
};

/// Makes a descriptor another file for a while.
class Redirection {
public:
    Redirection(int fd, int file) : fd_(fd), saved_(dup(fd)) { dup2(file, fd); }
    ~Redirection() {
        dup2(saved_, fd_);
        close(saved_);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

private:
    int fd_;
    int saved_;
};

TEST(Pipe, EveryFormatGoesOutAndComesBackIn) {
    const Channels samples = MakeNoise(2, 150001, 16);
    for (const FormatRow& row : GetFormatTable()) {
        for (const SampleFormat depth : {SampleFormat::kInt16, SampleFormat::kFloat32}) {
            const bool isLossy = row.lossySubtype != 0;
            if (depth == SampleFormat::kFloat32 && !row.hasFloat) continue;
            SCOPED_TRACE(row.name);
            AudioWriterOptions options =
                MakeOptions("-", 2, isLossy ? SampleFormat::kLikeSource : depth);
            options.format = row.name;
            options.exact = true;
            Drain out;
            {
                const Redirection toPipe(STDOUT_FILENO, out.GetInput());
                WriteAudio(options, samples);
            }
            const std::string bytes = out.GetBytes();

            int in[2];
            ASSERT_EQ(pipe2(in, O_CLOEXEC), 0);
            const auto feed = std::async(std::launch::async, [&bytes, fd = in[1]] {
                for (std::size_t at = 0; at < bytes.size();) {
                    const ssize_t count = write(fd, bytes.data() + at, bytes.size() - at);
                    if (count < 0) break;
                    at += static_cast<std::size_t>(count);
                }
                close(fd);
            });
            const Redirection fromPipe(STDIN_FILENO, in[0]);
            const auto reader = AudioReader::Open("-");
            close(in[0]);
            EXPECT_EQ(reader->GetInfo().frames, 150001);
            const Channels read = ReadAll(*reader);
            EXPECT_FALSE(reader->IsTruncated());
            if (!isLossy) {
                EXPECT_EQ(read, samples);
            }
        }
    }
}

TEST(Pipe, ARedirectedFileHasItsSizes) {
    const TestFolder folder;
    const std::string path = folder / "a.wav";
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    {
        const Redirection toFile(STDOUT_FILENO, file);
        AudioWriterOptions options = MakeOptions("-", 1, SampleFormat::kInt16);
        WriteAudio(options, MakeNoise(1, 1000, 16));
        EXPECT_EQ(write(STDOUT_FILENO, "rest", 4), 4);  // what follows does not overwrite it
    }
    close(file);
    EXPECT_EQ(AudioReader::Open(path)->GetInfo().frames, 1000);
    EXPECT_TRUE(ReadBytes(path).ends_with("rest"));
}

TEST(Pipe, AReaderThatGoesAwayIsAnError) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const std::string path = fmt::format("/dev/fd/{}", ends[1]);
    EXPECT_EQ(CodeOf([&] {
                  WriteAudio(MakeOptions(path, 2, SampleFormat::kInt16), MakeNoise(2, 100000, 16));
              }),
              ExitCode::kOutput);
    close(ends[1]);
}

}  // namespace
}  // namespace zuc::host
