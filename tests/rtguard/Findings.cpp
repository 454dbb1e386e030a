#include "rtguard/Findings.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <execinfo.h>
#include <unistd.h>

namespace rtguard {
namespace {

// The model makes access to these free of calls and of allocation, even before main and in a library.
[[gnu::tls_model("initial-exec")]] thread_local int scopeDepth = 0;
[[gnu::tls_model("initial-exec")]] thread_local int allowDepth = 0;
[[gnu::tls_model("initial-exec")]] thread_local bool isArmed = false;
[[gnu::tls_model("initial-exec")]] thread_local bool isTrapped = false;

std::atomic<std::uint64_t> counts[kKindCount];
std::atomic<const char*> lastName{""};
std::atomic<long> lastKernelEntry{0};  // where lastName is null
std::atomic<long> allocationsUntilFailure{0};
std::atomic<std::uint64_t> scopeCount{0};

bool traceFindings = false;
bool abortOnFinding = false;
bool reportAtExit = false;

[[gnu::constructor]] void ReadEnvironment() {
    // NOLINTBEGIN(concurrency-mt-unsafe): there is one thread yet
    traceFindings = std::getenv("RTGUARD_TRACE") != nullptr;
    abortOnFinding = std::getenv("RTGUARD_ABORT") != nullptr;
    reportAtExit = std::getenv("RTGUARD_REPORT") != nullptr;
    if (const char* text = std::getenv("RTGUARD_FAIL_AFTER"))
        FailAllocationAfter(std::strtol(text, nullptr, 10));
    // NOLINTEND(concurrency-mt-unsafe)
}

[[gnu::destructor]] void ReportAtExit() {
    if (!reportAtExit) return;
    std::fprintf(stderr, "rtguard: %llu scopes, %llu findings%s%s\n",
                 static_cast<unsigned long long>(scopeCount.load()),
                 static_cast<unsigned long long>(CountFindings()),
                 CountFindings() > 0 ? ", the last " : "", DescribeLast());
}

void UpdateTrap() { detail::SetTrap(detail::IsWatching()); }

void Print(const char* text) {
    if (write(STDERR_FILENO, text, std::strlen(text)) < 0) std::abort();
}

void Trace() {
    Print("rtguard: ");
    Print(DescribeLast());
    Print(" on an audio thread\n");
    void* frames[48];
    backtrace_symbols_fd(frames, backtrace(frames, 48), STDERR_FILENO);
}

void CountAndTrace(Kind kind) {
    counts[static_cast<int>(kind)].fetch_add(1, std::memory_order_relaxed);
    if (!traceFindings && !abortOnFinding) return;
    const int savedErrno = errno;
    const Allow allow;
    Trace();
    if (abortOnFinding) std::abort();
    errno = savedErrno;
}

}  // namespace

bool ArmThread() {
    if (!isArmed) {
        void* frame = nullptr;
        backtrace(&frame, 1);  // its first call loads the unwinder
        isArmed = true;
        isTrapped = detail::ArmTrap();
    }
    return isTrapped;
}

void Enter() {
    ArmThread();
    if (scopeDepth++ == 0) scopeCount.fetch_add(1, std::memory_order_relaxed);
    UpdateTrap();
}

void Leave() {
    --scopeDepth;
    UpdateTrap();
}

void PushAllow() {
    ++allowDepth;
    UpdateTrap();
}

void PopAllow() {
    --allowDepth;
    UpdateTrap();
}

std::uint64_t GetCount(Kind kind) {
    return counts[static_cast<int>(kind)].load(std::memory_order_relaxed);
}

std::uint64_t CountFindings() {
    std::uint64_t total = 0;
    for (const auto& count : counts) total += count.load(std::memory_order_relaxed);
    return total;
}

void Reset() {
    for (auto& count : counts) count.store(0, std::memory_order_relaxed);
    lastName.store("", std::memory_order_relaxed);
}

const char* DescribeLast() {
    if (const char* name = lastName.load(std::memory_order_relaxed)) return name;
    [[gnu::tls_model("initial-exec")]] static thread_local char text[32];
    std::snprintf(text, sizeof text, "system call %ld",
                  lastKernelEntry.load(std::memory_order_relaxed));
    return text;
}

void FailAllocationAfter(long n) { allocationsUntilFailure.store(n, std::memory_order_relaxed); }

namespace detail {

bool IsWatching() { return scopeDepth > 0 && allowDepth == 0; }

void Report(Kind kind, const char* name) {
    lastName.store(name, std::memory_order_relaxed);
    CountAndTrace(kind);
}

void ReportKernelEntry(long number) {
    lastKernelEntry.store(number, std::memory_order_relaxed);
    lastName.store(nullptr, std::memory_order_relaxed);
    CountAndTrace(Kind::kKernel);
}

bool TakeAllocationFailure() {
    return allocationsUntilFailure.load(std::memory_order_relaxed) > 0 &&
           allocationsUntilFailure.fetch_sub(1, std::memory_order_relaxed) == 1;
}

}  // namespace detail
}  // namespace rtguard

// For those who find the guard only when it is there.
// NOLINTBEGIN(readability-identifier-naming)
extern "C" void rtguard_enter() { rtguard::Enter(); }
extern "C" void rtguard_leave() { rtguard::Leave(); }
extern "C" unsigned long rtguard_count_findings() { return rtguard::CountFindings(); }
extern "C" const char* rtguard_describe_last() { return rtguard::DescribeLast(); }
// NOLINTEND(readability-identifier-naming)
