#include "host/TemporaryFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <random>
#include <system_error>
#include <utility>

#include "host/Error.h"
#include "host/Folder.h"

namespace zuc::host {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBufferBytes = std::size_t{64} << 10;
constexpr std::int64_t kReserveBytes = std::int64_t{32} << 20;  // see Reserve
constexpr std::size_t kLongestNameBytes =
    180;  // leaves room for the rest of a temporary's name in 255
constexpr std::string_view kMark = ".zuc-";
constexpr std::string_view kSuffix = ".tmp";

std::string Describe(int error) { return std::generic_category().message(error); }

/// What to do about an error of the system, where that is not plain from its text.
std::string HintFor(int error) {
    switch (error) {
        case ENOSPC:
        case EDQUOT:
            return "free some space, or write to another disk; nothing at the target was changed";
        case EFBIG:
            return "the file size limit of this process or disk was reached; nothing at the target "
                   "was "
                   "changed";
        case EPIPE:
            return "the program that reads the output ended early";
        case EACCES:
        case EPERM:
        case EROFS:
            return "choose a folder you may write to";
        default:
            return {};
    }
}

/// Hands all bytes to the system; 0 or the error. `offset` below 0 appends at the current position.
int WriteAll(int fd, const void* bytes, std::size_t count, std::int64_t offset = -1) {
    const char* next = static_cast<const char*>(bytes);
    while (count > 0) {
        const ssize_t written =
            offset < 0 ? write(fd, next, count) : pwrite(fd, next, count, offset);
        if (written < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        next += written;
        count -= static_cast<std::size_t>(written);
        if (offset >= 0) offset += written;
    }
    return 0;
}

/// Writing past a limit or to a closed pipe should be an error that is reported, not a signal that
/// ends the process and leaves its temporaries behind. A handler that was installed is kept.
void IgnoreWriteSignals() {
    for (const int number : {SIGPIPE, SIGXFSZ}) {
        struct sigaction action {};
        if (sigaction(number, nullptr, &action) == 0 && (action.sa_flags & SA_SIGINFO) == 0 &&
            action.sa_handler == SIG_DFL) {
            action.sa_handler = SIG_IGN;
            sigaction(number, &action, nullptr);
        }
    }
}

/// The descriptor that "-", "/dev/stdout", "/dev/fd/3" and the like stand for, or -1.
int DescriptorNamed(const std::string& path) {
    if (path == "-" || path == "/dev/stdout") return STDOUT_FILENO;
    if (path == "/dev/stderr") return STDERR_FILENO;
    for (const std::string_view folder : {"/dev/fd/", "/proc/self/fd/"}) {
        if (!path.starts_with(folder)) continue;
        int fd = -1;
        const char* end = path.data() + path.size();
        const auto result = std::from_chars(path.data() + folder.size(), end, fd);
        if (result.ec == std::errc{} && result.ptr == end) return fd;
    }
    return -1;
}

fs::path FolderOf(const fs::path& file) {
    return file.has_parent_path() ? file.parent_path() : fs::path(".");
}

/// The process that made a temporary of this name, or -1 when it is none of ours.
pid_t MakerOf(std::string_view name) {
    const std::size_t mark = name.rfind(kMark);
    if (!name.starts_with('.') || !name.ends_with(kSuffix) || mark == std::string_view::npos)
        return -1;
    pid_t maker = -1;
    const char* begin = name.data() + mark + kMark.size();
    const auto result = std::from_chars(begin, name.data() + name.size(), maker);
    return result.ec == std::errc{} && *result.ptr == '-' && maker > 0 ? maker : -1;
}

/// Removes temporaries whose process is gone. A lock tells those of other machines, whose process
/// numbers mean nothing here.
void RemoveStaleTemporaries(const fs::path& folder) {
    std::error_code error;
    for (const std::string& name : ListFolder(folder.native(), error)) {
        const pid_t maker = MakerOf(name);
        if (maker < 0 || kill(maker, 0) == 0 || errno != ESRCH) continue;
        const std::string path = (folder / name).native();
        const FileDescriptor file(open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
        if (file.IsOpen() && flock(file.Get(), LOCK_EX | LOCK_NB) == 0) unlink(path.c_str());
    }
}

}  // namespace

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
        Close();
        fd_ = other.Release();
    }
    return *this;
}

FileDescriptor::~FileDescriptor() { Close(); }

int FileDescriptor::Release() { return std::exchange(fd_, -1); }

bool FileDescriptor::Close() {
    const int fd = Release();
    return fd < 0 || close(fd) == 0 || errno == EINTR;
}

FileDescriptor OpenUnlinkedTemporary() {
    std::error_code error;
    fs::path folder = fs::temp_directory_path(error);
    if (error) folder = "/tmp";
    std::string name = (folder / "zuc-XXXXXX").native();
    FileDescriptor file(mkostemp(name.data(), O_CLOEXEC));
    if (!file.IsOpen())
        throw Error(ExitCode::kOutput,
                    fmt::format("cannot make a temporary file in '{}': {}", folder.native(),
                                Describe(errno)),
                    {}, "set TMPDIR to a folder with space");
    unlink(name.c_str());
    return file;
}

FileDescriptor SpoolToTemporary(int stream, const std::string& name) {
    IgnoreWriteSignals();
    FileDescriptor file = OpenUnlinkedTemporary();
    std::vector<std::byte> block(kBufferBytes);
    for (;;) {
        const ssize_t count = read(stream, block.data(), block.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0)
            throw Error(ExitCode::kInput, fmt::format("cannot read {}: {}", name, Describe(errno)));
        if (count == 0) break;
        if (const int error = WriteAll(file.Get(), block.data(), static_cast<std::size_t>(count)))
            throw Error(
                ExitCode::kOutput,
                fmt::format("cannot store {} in the temporary folder: {}", name, Describe(error)),
                {}, "set TMPDIR to a folder with space");
    }
    lseek(file.Get(), 0, SEEK_SET);
    return file;
}

OutputFile::OutputFile(const std::string& path, Access access)
    : path_(path), buffer_(kMostInPlaceBytes) {
    IgnoreWriteSignals();
    struct stat status {};
    if (const int named = DescriptorNamed(path); named >= 0) {
        OpenDirect(fcntl(named, F_DUPFD_CLOEXEC, 0));
    } else if (path.empty()) {
        throw Error(ExitCode::kUsage, "the output file has no name");
    } else if (stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode)) {
        OpenTemporary(path);
    } else if (S_ISDIR(status.st_mode)) {
        throw Error(ExitCode::kOutput, fmt::format("cannot write '{}': it is a folder", path),
                    "a file name, or - for standard output");
    } else {
        OpenDirect(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    }
    if (access == Access::kRandom && !isSeekable_) {
        stream_ = std::move(fd_);
        fd_ = OpenUnlinkedTemporary();
        isSeekable_ = true;
    }
}

void OutputFile::OpenDirect(int fd) {
    fd_ = FileDescriptor(fd);
    if (!fd_.IsOpen()) Fail(errno);
    base_ = lseek(fd, 0, SEEK_CUR);
    isSeekable_ = base_ >= 0 && (fcntl(fd, F_GETFL) & O_APPEND) == 0;
    if (!isSeekable_) base_ = 0;
}

void OutputFile::OpenTemporary(const std::string& path) {
    const fs::path target = FollowLinks(path);
    const fs::path folder = FolderOf(target);
    std::error_code ignored;
    if (!fs::is_directory(folder, ignored))
        throw Error(
            ExitCode::kOutput,
            fmt::format("cannot write '{}': there is no folder '{}'", path, folder.native()), {},
            "make the folder first");
    struct stat old {};
    const bool exists = stat(target.c_str(), &old) == 0;
    if (exists && access(target.c_str(), W_OK) != 0) Fail(errno);
    RemoveStaleTemporaries(folder);

    std::random_device random;
    const std::string name = target.filename().native().substr(0, kLongestNameBytes);
    for (int attempt = 0; attempt < 16 && !fd_.IsOpen(); ++attempt) {
        const std::string unique = fmt::format("{}{}-{:08x}", kMark, getpid(), random());
        std::string hidden = (folder / fmt::format(".{}{}{}", name, unique, kSuffix)).native();
        const mode_t mode = exists ? old.st_mode & 0777 : 0666;
        fd_ = FileDescriptor(open(hidden.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode));
        if (fd_.IsOpen())
            temporary_.path = std::move(hidden);
        else if (errno != EEXIST)
            break;
    }
    if (!fd_.IsOpen()) Fail(errno);
    flock(fd_.Get(), LOCK_EX | LOCK_NB);  // tells RemoveStaleTemporaries that it is in use
    if (exists) {
        // Only root may give files away; for others the owner is already the right one, or stays new.
        if (old.st_uid != geteuid() || old.st_gid != getegid())
            std::ignore = fchown(fd_.Get(), old.st_uid, old.st_gid);
        fchmod(fd_.Get(), old.st_mode & 07777);
    }
    target_ = target.native();
    isSeekable_ = true;
}

OutputFile::NamedFile::~NamedFile() {
    if (!path.empty()) unlink(path.c_str());
}

OutputFile::~OutputFile() = default;

void OutputFile::Append(const void* bytes, std::size_t count) {
    const auto* next = static_cast<const std::byte*>(bytes);
    while (count > 0) {
        const std::size_t part = std::min(count, kMostInPlaceBytes);
        std::memcpy(AppendInPlace(part), next, part);
        next += part;
        count -= part;
    }
}

std::byte* OutputFile::AppendInPlace(std::size_t count) {
    if (buffered_ + count > buffer_.size()) Flush();
    std::byte* const place = &buffer_[buffered_];
    buffered_ += count;
    size_ += static_cast<std::int64_t>(count);
    return place;
}

void OutputFile::WriteAt(std::int64_t offset, const void* bytes, std::size_t count) {
    Flush();
    if (!isSeekable_) Fail(ESPIPE);
    if (const int error = WriteAll(fd_.Get(), bytes, count, base_ + offset)) Fail(error);
    size_ = std::max(size_, offset + static_cast<std::int64_t>(count));
}

void OutputFile::Flush() {
    if (buffered_ == 0) return;
    Reserve();
    const std::size_t count = std::exchange(buffered_, 0);
    const std::int64_t start = base_ + size_ - static_cast<std::int64_t>(count);
    if (const int error = WriteAll(fd_.Get(), buffer_.data(), count, isSeekable_ ? start : -1))
        Fail(error);
}

/// Asks the file system for the next stretch of a large file at once: a quarter less work for it than
/// block by block. What it cannot do, writing will tell.
void OutputFile::Reserve() {
    if (target_.empty() || size_ < reserved_ || size_ < kReserveBytes / 4) return;
    fallocate(fd_.Get(), FALLOC_FL_KEEP_SIZE, size_, kReserveBytes);
    reserved_ = size_ + kReserveBytes;
}

void OutputFile::CopyToStream() {
    std::vector<std::byte> block(kBufferBytes);
    for (std::int64_t offset = 0; offset < size_;) {
        const ssize_t count = pread(fd_.Get(), block.data(), block.size(), offset);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) Fail(count < 0 ? errno : EIO);
        if (const int error =
                WriteAll(stream_.Get(), block.data(), static_cast<std::size_t>(count)))
            Fail(error);
        offset += count;
    }
    fd_ = std::move(stream_);
}

void OutputFile::Commit() {
    if (failed_ != 0) Fail(failed_);
    Flush();
    if (stream_.IsOpen()) CopyToStream();
    if (target_.empty()) {
        // Pipes and devices have nothing to make durable and say so.
        if (fsync(fd_.Get()) != 0 && errno != EINVAL && errno != EROFS && errno != ENOTSUP)
            Fail(errno);
        // The shared position follows what was written at offsets, for whoever writes next.
        if (isSeekable_) lseek(fd_.Get(), base_ + size_, SEEK_SET);
        if (!fd_.Close()) Fail(errno);
        return;
    }
    if (reserved_ > size_ && ftruncate(fd_.Get(), size_) != 0) Fail(errno);
    if (fsync(fd_.Get()) != 0) Fail(errno);
    if (rename(temporary_.path.c_str(), target_.c_str()) != 0) Fail(errno);
    temporary_.path.clear();
    if (!fd_.Close()) Fail(errno);
    const FileDescriptor folder(
        open(FolderOf(target_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.IsOpen()) fsync(folder.Get());
}

void OutputFile::Fail(int error) {
    failed_ = error;
    const std::string name = path_ == "-" ? "standard output" : fmt::format("'{}'", path_);
    throw Error(ExitCode::kOutput, fmt::format("cannot write {}: {}", name, Describe(error)), {},
                HintFor(error));
}

void WriteFileAtomically(const std::string& path, std::string_view bytes) {
    OutputFile file(path);
    file.Append(bytes.data(), bytes.size());
    file.Commit();
}

}  // namespace zuc::host
