#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <span>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "rtguard/RealTimeGuard.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZUC_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZUC_SANITIZED 1
#endif
#endif

namespace rtguard {
namespace {

using testing::ElementsAre;
using testing::IsNull;
using testing::NotNull;

#ifdef ZUC_SANITIZED

TEST(RealTimeGuard, LeavesTheFieldToASanitizer) {
    EXPECT_FALSE(IsActive());
    EXPECT_FALSE(ArmThread());
    const Scope scope;
    std::vector<float> frames(512);
    EXPECT_EQ(CountFindings(), 0U);
}

#else

/// Keeps the compiler from leaving out what nobody uses.
template <class T>
void Keep(const T& value) {
    asm volatile("" : : "g"(&value) : "memory");
}

/// What the cases work on, made outside of any scope.
struct Bench {
    std::mutex mutex;
    std::recursive_mutex recursiveMutex;
    std::shared_mutex sharedMutex;
    std::timed_mutex timedMutex;
    std::once_flag once;
    std::condition_variable condition;
    std::atomic<int> word{2};
    sem_t semaphore{};
    void* block = std::malloc(8);
    void* page = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    void* aligned = nullptr;
    std::vector<float> frames;
    std::function<double()> function;
    int descriptor = ::open("/dev/null", O_WRONLY);
    int spare = ::open("/dev/null", O_WRONLY);
    std::FILE* file = std::fopen("/dev/null", "w");
    std::thread finished{[] {}};

    Bench() { sem_init(&semaphore, 0, 1); }
    ~Bench() {
        if (finished.joinable()) finished.join();
        sem_destroy(&semaphore);
        std::fclose(file);
        ::close(descriptor);
    }
};

struct Case {
    const char* name;
    Kind kind;
    const char* last;  // what DescribeLast says
    void (*run)(Bench&);
};

void RunCases(std::span<const Case> cases) {
    Bench bench;
    for (const Case& row : cases) {
        Reset();
        {
            const Scope scope;
            row.run(bench);
        }
        EXPECT_EQ(GetCount(row.kind), 1U) << row.name;
        EXPECT_EQ(CountFindings(), 1U) << row.name;
        EXPECT_STREQ(DescribeLast(), row.last) << row.name;
    }
    Reset();
}

// clang-format off
constexpr Case kNamedCalls[] = {
    {"malloc",          Kind::kAllocate, "malloc",         [](Bench&) { Keep(std::malloc(8)); }},
    {"large malloc",    Kind::kAllocate, "malloc",         [](Bench&) { Keep(std::malloc(64 << 20)); }},
    {"calloc",          Kind::kAllocate, "calloc",         [](Bench&) { Keep(std::calloc(2, 8)); }},
    {"realloc",         Kind::kAllocate, "realloc",        [](Bench& b) { b.block = std::realloc(b.block, 1 << 20); }},
    {"new",             Kind::kAllocate, "malloc",         [](Bench&) { Keep(::operator new(8)); }},
    {"aligned new",     Kind::kAllocate, "aligned_alloc",  [](Bench&) { Keep(::operator new(64, std::align_val_t(64))); }},
    {"posix_memalign",  Kind::kAllocate, "posix_memalign", [](Bench& b) { Keep(posix_memalign(&b.aligned, 64, 64)); }},
    {"vector",          Kind::kAllocate, "malloc",         [](Bench& b) { b.frames.resize(512); }},
    {"function object", Kind::kAllocate, "malloc",         [](Bench& b) { b.function = [a = std::array<double, 16>{}] { return a[3]; }; }},
    {"mmap",            Kind::kAllocate, "mmap",           [](Bench&) { Keep(mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)); }},
    {"munmap",          Kind::kFree,     "munmap",         [](Bench& b) { munmap(b.page, 4096); }},
    {"free",            Kind::kFree,     "free",           [](Bench& b) { std::free(b.block); }},
    {"delete",          Kind::kFree,     "free",           [](Bench& b) { std::vector<float>().swap(b.frames); }},

    // All of these locks are free, so nothing waits and no kernel is entered.
    {"mutex",           Kind::kLock, "pthread_mutex_lock",      [](Bench& b) { std::lock_guard lock(b.mutex); }},
    {"recursive mutex", Kind::kLock, "pthread_mutex_lock",      [](Bench& b) { std::lock_guard lock(b.recursiveMutex); }},
    {"shared lock",     Kind::kLock, "pthread_rwlock_rdlock",   [](Bench& b) { std::shared_lock lock(b.sharedMutex); }},
    {"exclusive lock",  Kind::kLock, "pthread_rwlock_wrlock",   [](Bench& b) { std::unique_lock lock(b.sharedMutex); }},
    {"timed lock",      Kind::kLock, "pthread_mutex_clocklock", [](Bench& b) { Keep(b.timedMutex.try_lock_for(std::chrono::seconds(1))); }},
    {"first call_once", Kind::kLock, "pthread_once",            [](Bench& b) { std::call_once(b.once, [] {}); }},
    {"first use of a local static", Kind::kLock, "__cxa_guard_acquire",
     [](Bench& b) { static const double root = std::sqrt(b.word.load()); Keep(root); }},

    {"condition",       Kind::kWait, "pthread_cond_clockwait",
     [](Bench& b) {
         std::unique_lock lock(b.mutex, std::try_to_lock);
         b.condition.wait_for(lock, std::chrono::microseconds(1));
         const Allow allow;
         lock.unlock();  // enters the kernel, as after every wait
     }},
    {"open semaphore",  Kind::kWait, "sem_wait",     [](Bench& b) { sem_wait(&b.semaphore); }},
    {"sleep",           Kind::kWait, "nanosleep",    [](Bench&) { std::this_thread::sleep_for(std::chrono::microseconds(1)); }},
    {"yield",           Kind::kWait, "sched_yield",  [](Bench&) { std::this_thread::yield(); }},
    {"join",            Kind::kWait, "pthread_join", [](Bench& b) { b.finished.join(); }},

    {"open",            Kind::kIo, "open",     [](Bench& b) { b.spare = ::open("/dev/null", O_WRONLY); }},
    {"write",           Kind::kIo, "write",    [](Bench& b) { Keep(::write(b.descriptor, "x", 1)); }},
    {"close",           Kind::kIo, "close",    [](Bench& b) { ::close(b.spare); }},
    {"fprintf",         Kind::kIo, "vfprintf", [](Bench& b) { std::fprintf(b.file, "%d", b.word.load()); }},
    {"fwrite",          Kind::kIo, "fwrite",   [](Bench& b) { Keep(std::fwrite("xy", 1, 2, b.file)); }},
    {"fflush",          Kind::kIo, "fflush",   [](Bench& b) { std::fflush(b.file); }},
    {"stream",          Kind::kIo, "fwrite",   [](Bench&) { std::cout << "a line on an audio thread\n"; }},

    {"notify",          Kind::kKernel, "pthread_cond_broadcast", [](Bench& b) { b.condition.notify_all(); }},
    {"post",            Kind::kKernel, "sem_post",               [](Bench& b) { sem_post(&b.semaphore); }},
};

#if defined(__x86_64__)
long GetProcessByAssembly() {
    long result = SYS_getpid;
    asm volatile("syscall" : "+a"(result) : : "rcx", "r11", "memory");
    return result;
}

// What has no name among the watched calls; numbers as in the kernel's table for x86-64.
constexpr Case kKernelEntries[] = {
    {"inline assembly", Kind::kKernel, "system call 39",  [](Bench&) { Keep(GetProcessByAssembly()); }},
    {"syscall",         Kind::kKernel, "system call 186", [](Bench&) { syscall(SYS_gettid); }},
    {"umask",           Kind::kKernel, "system call 95",  [](Bench&) { umask(022); }},
    {"truncate",        Kind::kKernel, "system call 77",  [](Bench& b) { Keep(ftruncate(b.descriptor, 0)); }},
};
#endif
// clang-format on

TEST(RealTimeGuard, CatchesNamedCalls) { RunCases(kNamedCalls); }

TEST(RealTimeGuard, PassesWhatAnAudioThreadMayDo) {
    Bench bench;
    bench.frames.reserve(64);
    std::array<char, 64> text{};
    Reset();
    {
        const Scope scope;
        for (int i = 0; i < 64; ++i) bench.frames.push_back(std::sin(static_cast<float>(i)));
        std::memmove(bench.frames.data(), bench.frames.data() + 1, 63 * sizeof(float));
        if (bench.mutex.try_lock()) bench.mutex.unlock();
        bench.word.fetch_add(1);
        bench.word.notify_all();  // nobody waits
        Keep(std::chrono::steady_clock::now());
        std::snprintf(text.data(), text.size(), "%d", bench.word.load());
        std::free(nullptr);
    }
    EXPECT_EQ(CountFindings(), 0U) << DescribeLast();
    EXPECT_STREQ(DescribeLast(), "");
}

void AllocateOnce() {
    void* block = std::malloc(8);
    Keep(block);
    const Allow allow;
    std::free(block);
}

TEST(RealTimeGuard, WatchesOnlyThreadsInAScopeAndNotWhatIsAllowed) {
    Reset();
    AllocateOnce();
    EXPECT_EQ(CountFindings(), 0U) << "outside";
    {
        const Scope scope;
        {
            const Allow allow;
            const Scope inner;
            AllocateOnce();
            std::thread([] { AllocateOnce(); }).join();
        }
        EXPECT_EQ(CountFindings(), 0U) << "allowed, and on a thread without a scope";
        { const Scope inner; }
        AllocateOnce();
        EXPECT_EQ(CountFindings(), 1U) << "still in the outer scope";
    }
    std::thread([] {
        const Scope scope;
        AllocateOnce();
    }).join();
    EXPECT_EQ(GetCount(Kind::kAllocate), 2U) << "a second thread's scope";
    Reset();
    EXPECT_EQ(CountFindings(), 0U);
}

#if defined(__x86_64__)
TEST(RealTimeGuard, CatchesEveryKernelEntryAndMakesItAllTheSame) {
    if (!ArmThread()) GTEST_SKIP() << "this kernel has no syscall user dispatch";
    RunCases(kKernelEntries);

    const long process = getpid();
    long raw = 0;
    long failed = 0;
    int failure = 0;
    long page = 0;  // its address
    {
        const Scope scope;
        raw = GetProcessByAssembly();
        failed = syscall(SYS_close, -1);
        failure = errno;
        page = syscall(SYS_mmap, nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    }
    EXPECT_EQ(GetCount(Kind::kKernel), 3U);
    EXPECT_EQ(raw, process);
    EXPECT_EQ(failed, -1);
    EXPECT_EQ(failure, EBADF);
    EXPECT_EQ(syscall(SYS_munmap, page, 4096), 0) << "all six arguments arrived";
    Reset();
}

volatile std::sig_atomic_t signalsSeen = 0;

TEST(RealTimeGuard, LeavesSignalsAlone) {
    if (!ArmThread()) GTEST_SKIP() << "this kernel has no syscall user dispatch";
    const auto previous = std::signal(SIGUSR1, [](int) { signalsSeen = signalsSeen + 1; });
    sigset_t blocked;
    sigset_t now;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    Reset();
    {
        const Scope scope;
        std::raise(SIGUSR1);
        pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    }
    pthread_sigmask(SIG_UNBLOCK, &blocked, &now);
    EXPECT_EQ(signalsSeen, 1);
    EXPECT_EQ(sigismember(&now, SIGUSR1), 1) << "the mask set within the scope holds after it";
    EXPECT_GE(GetCount(Kind::kKernel), 2U);
    std::signal(SIGUSR1, previous);
    Reset();
}
#endif

TEST(RealTimeGuard, FailsTheChosenAllocationOnly) {
    std::array<void*, 3> blocks{};
    FailAllocationAfter(2);
    for (void*& block : blocks) {
        block = std::malloc(8);
        Keep(block);
    }
    EXPECT_THAT(blocks, ElementsAre(NotNull(), IsNull(), NotNull()));
    for (void* block : blocks) std::free(block);

    const auto failNext = [](auto&& body) {
        FailAllocationAfter(1);
        body();
        FailAllocationAfter(0);
    };
    std::vector<float> frames;
    void* aligned = nullptr;
    failNext([&] { EXPECT_THROW(frames.resize(512), std::bad_alloc); });
    failNext([&] { EXPECT_EQ(posix_memalign(&aligned, 64, 64), ENOMEM); });
    failNext([&] { EXPECT_EQ(aligned_alloc(64, 64), nullptr); });
}

#endif

}  // namespace
}  // namespace rtguard
