#pragma once

#include <cstdint>

/// Tells a test that code meant for an audio thread allocated, locked, waited, did I/O or entered the
/// kernel.
///
///     const std::uint64_t before = rtguard::CountFindings();
///     {
///         const rtguard::Scope scope;
///         effect.Process(in, out, frames, {}, outFlags);
///     }
///     EXPECT_EQ(rtguard::CountFindings(), before) << rtguard::DescribeLast();
///
/// Programs that link the target `rtguard` (or librtguard.so) have the calls in question replaced by
/// ones that report. On Linux for x86-64 every kernel entry of the thread is trapped as well, however
/// it is made. In builds with a sanitizer the functions here do nothing, but for FailNewAfter with that of
/// addresses.
///
/// Environment: RTGUARD_TRACE=1 prints a backtrace for every finding, RTGUARD_ABORT=1 stops at the
/// first one, RTGUARD_REPORT=1 prints a summary at the end, RTGUARD_FAIL_AFTER=n calls
/// FailAllocationAfter(n) at start.
namespace rtguard {

enum class Kind {
    kAllocate,
    kFree,
    kLock,  // a lock that can wait, also one that was free
    kWait,
    kIo,
    kKernel  // an entry that no named call explains, or a call that may enter
};
inline constexpr int kKindCount = 6;

#ifdef ZUC_RTGUARD_LINKED

/// Whether this program is watched at all. [any]
constexpr bool IsActive() { return true; }
/// Prepares the calling thread; true when its kernel entries are trapped. The thread's first Enter does
/// the same. Not within a scope. [any]
bool ArmThread();

/// From Enter to Leave the calling thread is watched; pairs may be nested. [audio]
void Enter();
void Leave();
/// Between these two what the thread does within a scope is no finding; pairs may be nested. [audio]
void PushAllow();
void PopAllow();

/// Findings of all threads since the start or the last Reset. [any]
std::uint64_t GetCount(Kind kind);
std::uint64_t CountFindings();
void Reset();
/// The last finding: the name of the call ("malloc"), or "system call 202" for a kernel entry; empty
/// without one. Valid until the thread asks again. [any]
const char* DescribeLast();

/// Makes the n-th allocation from now on fail, whichever thread asks for it; 0 stops that. [any]
void FailAllocationAfter(long n);

#else

constexpr bool IsActive() { return false; }
inline bool ArmThread() { return false; }
inline void Enter() {}
inline void Leave() {}
inline void PushAllow() {}
inline void PopAllow() {}
inline std::uint64_t GetCount(Kind) { return 0; }
inline std::uint64_t CountFindings() { return 0; }
inline void Reset() {}
inline const char* DescribeLast() { return ""; }
inline void FailAllocationAfter(long) {}

#endif

#if defined(ZUC_RTGUARD_LINKED) || defined(ZUC_RTGUARD_FAILS_NEW)
/// Makes the n-th operator new from now on fail, whichever thread calls it; 0 stops that. Libraries in C,
/// of which some do not expect it, go on. Returns what the last such call had left: 0 when it has failed. [any]
long FailNewAfter(long n);
constexpr bool CanFailNew() { return true; }
#else
inline long FailNewAfter(long) { return 0; }
constexpr bool CanFailNew() { return false; }
#endif

/// Watches the calling thread for as long as it lives.
class [[nodiscard]] Scope {
public:
    Scope() { Enter(); }
    ~Scope() { Leave(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
};

/// A reviewed exception within a scope, such as waiting for another thread on purpose.
class [[nodiscard]] Allow {
public:
    Allow() { PushAllow(); }
    ~Allow() { PopAllow(); }
    Allow(const Allow&) = delete;
    Allow& operator=(const Allow&) = delete;
};

}  // namespace rtguard
