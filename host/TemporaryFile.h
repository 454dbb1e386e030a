#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace zuc::host {

/// Owns a file descriptor.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.Release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    ~FileDescriptor();

    int Get() const { return fd_; }
    bool IsOpen() const { return fd_ >= 0; }
    int Release();
    /// Closes it; false, with errno set, when the system reports a late write error.
    bool Close();

private:
    int fd_ = -1;
};

/// An open, empty file below $TMPDIR (or /tmp) that has no name and vanishes with its descriptor.
/// Throws Error(kOutput). [host]
FileDescriptor OpenUnlinkedTemporary();

/// Copies everything left in a stream to an unlinked temporary file, positioned at its start. Throws
/// Error(kInput) when reading fails, Error(kOutput) when storing does. `name` is for messages. [host]
FileDescriptor SpoolToTemporary(int stream, const std::string& name);

/// A file being written that appears whole or not at all.
///
/// The bytes go to `.<name>.zuc-<pid>-<random>.tmp` beside the target. Commit makes them durable and
/// renames the temporary over the target; until then, and after any error, an existing target is as it
/// was. Its permissions are kept; a new file follows the umask. A symbolic link stays one: the file it
/// names is replaced. Temporaries of processes that no longer live are removed from the target's
/// folder. "-", descriptors such as /dev/stdout, devices and FIFOs are written directly.
///
/// Every failure throws Error(kOutput), also a full disk, a file size limit and a reader that went
/// away: opening the first output makes the process ignore SIGPIPE and SIGXFSZ where they would end it.
class OutputFile {
public:
    enum class Access {
        kSequential,  // Append only; WriteAt where IsSeekable
        kRandom,      // both always: a stream is stored below $TMPDIR and copied by Commit
    };

    explicit OutputFile(const std::string& path, Access access = Access::kSequential);  // [host]
    ~OutputFile();  // discards what was not committed [host]
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Whether WriteAt works. [any]
    bool IsSeekable() const { return isSeekable_; }
    std::int64_t GetSize() const { return size_; }  // bytes so far [worker]

    void Append(const void* bytes, std::size_t count);  // buffered [worker]
    /// Appends `count` bytes, at most kMostInPlaceBytes, for the caller to fill in place before the next
    /// call. While only multiples of 4 are added this way after Flush, they are aligned to 4. [worker]
    std::byte* AppendInPlace(std::size_t count);
    void Flush();  // hands what is buffered to the system [worker]
    static constexpr std::size_t kMostInPlaceBytes = std::size_t{64} << 10;
    /// Replaces bytes from `offset` on; may reach beyond the end. [worker]
    void WriteAt(std::int64_t offset, const void* bytes, std::size_t count);
    void Commit();  // once [worker]

private:
    /// Removes its file, also when the constructor throws halfway.
    struct NamedFile {
        std::string path;  // empty when there is none on the disk
        ~NamedFile();
    };
    void OpenDirect(int fd);
    void OpenTemporary(const std::string& path);
    void Reserve();
    void CopyToStream();
    [[noreturn]] void Fail(int error);

    std::string path_;    // as the user wrote it
    std::string target_;  // with symbolic links followed; empty when written directly
    NamedFile temporary_;
    FileDescriptor fd_;      // what is written to
    FileDescriptor stream_;  // where CopyToStream goes
    int failed_ = 0;         // the first error; nothing is committed after one
    bool isSeekable_ = false;
    std::int64_t base_ = 0;  // where the file starts on the descriptor
    std::int64_t size_ = 0;
    std::int64_t reserved_ = 0;      // bytes asked for, see Reserve
    std::vector<std::byte> buffer_;  // the end of the file, as far as buffered_
    std::size_t buffered_ = 0;       // bytes not yet handed to the system
};

/// Writes a whole file the same way. Throws Error(kOutput). [host]
void WriteFileAtomically(const std::string& path, std::string_view bytes);

}  // namespace zuc::host
