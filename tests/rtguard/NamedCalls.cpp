// The C library's calls that have no place on an audio thread, each replaced by one that reports and
// then does what it always did. The names, parameters and noexcept marks are the library's.
//
// NOLINTBEGIN(readability-identifier-naming, bugprone-reserved-identifier): the library's names
// NOLINTBEGIN(clang-analyzer-valist.Uninitialized): clang-tidy 14 does not see va_start

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>
#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <time.h>
#include <unistd.h>

#include "rtguard/Findings.h"

namespace rtguard::detail {
namespace {

/// A call's name as a template argument, so that each call keeps the address of the original.
template <std::size_t kLength>
struct Name {
    constexpr Name(const char (&literal)[kLength]) {  // NOLINT(google-explicit-constructor)
        std::copy_n(literal, kLength, text);
    }
    char text[kLength]{};
};
template <Name kName>
constexpr Name kStored = kName;

void ReportIfWatching(Kind kind, const char* name) {
    if (IsWatching()) Report(kind, name);
}

/// Reports the call and makes the original one; what that does further down is no finding of its own.
template <Name kName, class Result, class... Arguments>
Result Forward(Kind kind, Arguments... arguments) {
    static std::atomic<void*> original;
    ReportIfWatching(kind, kStored<kName>.text);
    const Allow allow;
    void* function = original.load(std::memory_order_relaxed);
    if (function == nullptr) {
        function = dlsym(RTLD_NEXT, kStored<kName>.text);
        original.store(function, std::memory_order_relaxed);
    }
    return reinterpret_cast<Result (*)(Arguments...)>(function)(arguments...);
}

/// The same for what returns memory, or null when it was chosen to fail.
template <Name kName, class... Arguments>
void* ForwardAllocation(Arguments... arguments) {
    if (TakeAllocationFailure()) {
        ReportIfWatching(Kind::kAllocate, kStored<kName>.text);
        errno = ENOMEM;
        return nullptr;
    }
    return Forward<kName, void*>(Kind::kAllocate, arguments...);
}

}  // namespace
}  // namespace rtguard::detail

using namespace rtguard::detail;
using rtguard::Kind;

extern "C" {

// ---- Memory. The originals of these four have names of their own; looking them up would allocate. ----
void* __libc_malloc(std::size_t bytes);
void* __libc_calloc(std::size_t count, std::size_t bytes);
void* __libc_realloc(void* block, std::size_t bytes);
void __libc_free(void* block);

void* malloc(std::size_t bytes) noexcept {
    ReportIfWatching(Kind::kAllocate, "malloc");
    const rtguard::Allow allow;
    if (!TakeAllocationFailure()) return __libc_malloc(bytes);
    errno = ENOMEM;
    return nullptr;
}
void* calloc(std::size_t count, std::size_t bytes) noexcept {
    ReportIfWatching(Kind::kAllocate, "calloc");
    const rtguard::Allow allow;
    if (!TakeAllocationFailure()) return __libc_calloc(count, bytes);
    errno = ENOMEM;
    return nullptr;
}
void* realloc(void* block, std::size_t bytes) noexcept {
    ReportIfWatching(Kind::kAllocate, "realloc");
    const rtguard::Allow allow;
    if (!TakeAllocationFailure()) return __libc_realloc(block, bytes);
    errno = ENOMEM;
    return nullptr;
}
void free(void* block) noexcept {
    if (block == nullptr) return;
    ReportIfWatching(Kind::kFree, "free");
    const rtguard::Allow allow;
    __libc_free(block);
}
void* memalign(std::size_t alignment, std::size_t bytes) noexcept {
    return ForwardAllocation<"memalign">(alignment, bytes);
}
void* aligned_alloc(std::size_t alignment, std::size_t bytes) noexcept {
    return ForwardAllocation<"aligned_alloc">(alignment, bytes);
}
int posix_memalign(void** block, std::size_t alignment, std::size_t bytes) noexcept {
    if (TakeAllocationFailure()) {
        ReportIfWatching(Kind::kAllocate, "posix_memalign");
        return ENOMEM;
    }
    return Forward<"posix_memalign", int>(Kind::kAllocate, block, alignment, bytes);
}
void* mmap(void* where, std::size_t bytes, int access, int flags, int file, off_t offset) noexcept {
    return Forward<"mmap", void*>(Kind::kAllocate, where, bytes, access, flags, file, offset);
}
int munmap(void* where, std::size_t bytes) noexcept {
    return Forward<"munmap", int>(Kind::kFree, where, bytes);
}

// ---- Locks that can wait. ----
int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    return Forward<"pthread_mutex_lock", int>(Kind::kLock, mutex);
}
int pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec* until) noexcept {
    return Forward<"pthread_mutex_timedlock", int>(Kind::kLock, mutex, until);
}
int pthread_mutex_clocklock(pthread_mutex_t* mutex,
                            clockid_t clock,
                            const timespec* until) noexcept {
    return Forward<"pthread_mutex_clocklock", int>(Kind::kLock, mutex, clock, until);
}
int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept {
    return Forward<"pthread_rwlock_rdlock", int>(Kind::kLock, lock);
}
int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept {
    return Forward<"pthread_rwlock_wrlock", int>(Kind::kLock, lock);
}
int pthread_spin_lock(pthread_spinlock_t* lock) noexcept {
    return Forward<"pthread_spin_lock", int>(Kind::kLock, lock);
}
int pthread_once(pthread_once_t* once, void (*function)()) {
    return Forward<"pthread_once", int>(Kind::kLock, once, function);
}
int __cxa_guard_acquire(long long* guard) {  // the first use of a local static
    return Forward<"__cxa_guard_acquire", int>(Kind::kLock, guard);
}

// ---- Waits. ----
int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    return Forward<"pthread_cond_wait", int>(Kind::kWait, condition, mutex);
}
int pthread_cond_timedwait(pthread_cond_t* condition,
                           pthread_mutex_t* mutex,
                           const timespec* until) {
    return Forward<"pthread_cond_timedwait", int>(Kind::kWait, condition, mutex, until);
}
int pthread_cond_clockwait(pthread_cond_t* condition,
                           pthread_mutex_t* mutex,
                           clockid_t clock,
                           const timespec* until) {
    return Forward<"pthread_cond_clockwait", int>(Kind::kWait, condition, mutex, clock, until);
}
int pthread_barrier_wait(pthread_barrier_t* barrier) noexcept {
    return Forward<"pthread_barrier_wait", int>(Kind::kWait, barrier);
}
int pthread_join(pthread_t thread, void** result) {
    return Forward<"pthread_join", int>(Kind::kWait, thread, result);
}
int sem_wait(sem_t* semaphore) { return Forward<"sem_wait", int>(Kind::kWait, semaphore); }
int sem_timedwait(sem_t* semaphore, const timespec* until) {
    return Forward<"sem_timedwait", int>(Kind::kWait, semaphore, until);
}
int sched_yield() noexcept { return Forward<"sched_yield", int>(Kind::kWait); }
int nanosleep(const timespec* time, timespec* rest) {
    return Forward<"nanosleep", int>(Kind::kWait, time, rest);
}
int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec* rest) {
    return Forward<"clock_nanosleep", int>(Kind::kWait, clock, flags, time, rest);
}
int usleep(useconds_t time) { return Forward<"usleep", int>(Kind::kWait, time); }
unsigned sleep(unsigned seconds) { return Forward<"sleep", unsigned>(Kind::kWait, seconds); }
int poll(pollfd* files, nfds_t count, int timeout) {
    return Forward<"poll", int>(Kind::kWait, files, count, timeout);
}
int select(int count, fd_set* in, fd_set* out, fd_set* other, timeval* timeout) {
    return Forward<"select", int>(Kind::kWait, count, in, out, other, timeout);
}

// ---- Calls that enter the kernel when another thread waits, or always. ----
int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    return Forward<"pthread_cond_signal", int>(Kind::kKernel, condition);
}
int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
    return Forward<"pthread_cond_broadcast", int>(Kind::kKernel, condition);
}
int sem_post(sem_t* semaphore) noexcept {
    return Forward<"sem_post", int>(Kind::kKernel, semaphore);
}
int pthread_create(pthread_t* thread,
                   const pthread_attr_t* attributes,
                   void* (*function)(void*),
                   void* argument) noexcept {
    return Forward<"pthread_create", int>(Kind::kKernel, thread, attributes, function, argument);
}

// ---- Files and streams. ----
static mode_t ModeOf(int flags, va_list arguments) {
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}
int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return Forward<"open", int>(Kind::kIo, path, flags, mode);
}
int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = ModeOf(flags, arguments);
    va_end(arguments);
    return Forward<"open64", int>(Kind::kIo, path, flags, mode);
}
int close(int file) { return Forward<"close", int>(Kind::kIo, file); }
ssize_t read(int file, void* target, std::size_t bytes) {
    return Forward<"read", ssize_t>(Kind::kIo, file, target, bytes);
}
ssize_t write(int file, const void* source, std::size_t bytes) {
    return Forward<"write", ssize_t>(Kind::kIo, file, source, bytes);
}
FILE* fopen(const char* path, const char* mode) {
    return Forward<"fopen", FILE*>(Kind::kIo, path, mode);
}
FILE* fopen64(const char* path, const char* mode) {
    return Forward<"fopen64", FILE*>(Kind::kIo, path, mode);
}
int fclose(FILE* file) { return Forward<"fclose", int>(Kind::kIo, file); }
int fflush(FILE* file) { return Forward<"fflush", int>(Kind::kIo, file); }
std::size_t fread(void* target, std::size_t bytes, std::size_t count, FILE* file) {
    return Forward<"fread", std::size_t>(Kind::kIo, target, bytes, count, file);
}
std::size_t fwrite(const void* source, std::size_t bytes, std::size_t count, FILE* file) {
    return Forward<"fwrite", std::size_t>(Kind::kIo, source, bytes, count, file);
}
int fputs(const char* text, FILE* file) { return Forward<"fputs", int>(Kind::kIo, text, file); }
int fputc(int character, FILE* file) { return Forward<"fputc", int>(Kind::kIo, character, file); }
int putc(int character, FILE* file) { return Forward<"putc", int>(Kind::kIo, character, file); }
int puts(const char* text) { return Forward<"puts", int>(Kind::kIo, text); }
int vfprintf(FILE* file, const char* format, va_list arguments) {
    return Forward<"vfprintf", int>(Kind::kIo, file, format, arguments);
}
int fprintf(FILE* file, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int printed = vfprintf(file, format, arguments);
    va_end(arguments);
    return printed;
}
int printf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int printed = vfprintf(stdout, format, arguments);
    va_end(arguments);
    return printed;
}
// Headers may have these two in line, under their own names.
int GuardedPutchar(int character) asm("putchar");
int GuardedPutchar(int character) { return Forward<"putchar", int>(Kind::kIo, character); }
int GuardedVprintf(const char* format, va_list arguments) asm("vprintf");
int GuardedVprintf(const char* format, va_list arguments) {
    return Forward<"vprintf", int>(Kind::kIo, format, arguments);
}

// ---- What fortified code calls instead (_FORTIFY_SOURCE); reported under the plain names. ----
ssize_t __read_chk(int file, void* target, std::size_t bytes, std::size_t) {
    return Forward<"read", ssize_t>(Kind::kIo, file, target, bytes);
}
std::size_t __fread_chk(
    void* target, std::size_t, std::size_t bytes, std::size_t count, FILE* file) {
    return Forward<"fread", std::size_t>(Kind::kIo, target, bytes, count, file);
}
int __poll_chk(pollfd* files, nfds_t count, int timeout, std::size_t) {
    return Forward<"poll", int>(Kind::kWait, files, count, timeout);
}
int __vfprintf_chk(FILE* file, int, const char* format, va_list arguments) {
    return Forward<"vfprintf", int>(Kind::kIo, file, format, arguments);
}
int __vprintf_chk(int, const char* format, va_list arguments) {
    return Forward<"vprintf", int>(Kind::kIo, format, arguments);
}
int __fprintf_chk(FILE* file, int flag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int printed = __vfprintf_chk(file, flag, format, arguments);
    va_end(arguments);
    return printed;
}
int __printf_chk(int flag, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int printed = __vfprintf_chk(stdout, flag, format, arguments);
    va_end(arguments);
    return printed;
}

void* dlopen(const char* path, int flags) noexcept {
    return Forward<"dlopen", void*>(Kind::kIo, path, flags);
}

}  // extern "C"

// NOLINTEND(clang-analyzer-valist.Uninitialized)
// NOLINTEND(readability-identifier-naming, bugprone-reserved-identifier)
