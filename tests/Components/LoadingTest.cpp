#include <gmock/gmock.h>

#include <dlfcn.h>
#include <fenv.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <locale>
#include <map>
#include <new>
#include <string>
#include <thread>
#include <vector>

#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

#include "tests/rtguard/RealTimeGuard.h"

// Every test has a process with one thread.
// NOLINTBEGIN(concurrency-mt-unsafe)

namespace zuc {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;

template <class T>
std::string BytesOf(const T& value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

/// One line of /proc/self/status.
std::string Status(const std::string& name) {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);)
        if (line.starts_with(name + ":")) return line;
    return {};
}

std::string GetFloatingPoint() {
    std::string text = std::to_string(fegetround());
#if defined(__x86_64__)
    std::uint16_t control = 0;
    asm volatile("fnstcw %0" : "=m"(control));
    text += " " + std::to_string(control) + " " + std::to_string(_mm_getcsr() & ~0x3fu);
#endif
    return text;
}

std::string GetSignals() {
    std::string bytes = Status("SigBlk") + Status("SigIgn") + Status("SigCgt");
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action {};
        sigaction(number, nullptr, &action);
        bytes += BytesOf(action.sa_handler) + BytesOf(action.sa_flags);
    }
    stack_t stack{};
    sigaltstack(nullptr, &stack);
    return bytes + BytesOf(stack.ss_sp);
}

std::string GetLimits() {
    std::string bytes;
    for (int resource = 0; resource < RLIMIT_NLIMITS; ++resource) {
        rlimit limit{};
        getrlimit(static_cast<__rlimit_resource>(resource), &limit);
        bytes += BytesOf(limit);
    }
    return bytes + std::to_string(getpriority(PRIO_PROCESS, 0));
}

std::string GetEnvironment() {
    std::string text;
    for (char** entry = environ; entry && *entry; ++entry) text += std::string(*entry) + '\n';
    return text;
}

/// What a process has once for all that is in it, by name.
std::map<std::string, std::string> TakeState() {
    cpu_set_t processors{};
    sched_getaffinity(0, sizeof processors, &processors);
    return {{"floating point", GetFloatingPoint()},
            {"locale", std::string(std::setlocale(LC_ALL, nullptr)) + std::locale().name()},
            {"signals", GetSignals()},
            {"folder", fs::current_path()},
            {"environment", GetEnvironment()},
            {"umask", Status("Umask")},
            {"limits", GetLimits()},
            {"threads", Status("Threads")},
            {"processors", BytesOf(processors)},
            {"privileges", Status("NoNewPrivs") + Status("Seccomp") + Status("CapEff")},
            {"dumps", std::to_string(prctl(PR_GET_DUMPABLE))},
            {"files", std::to_string(std::distance(fs::directory_iterator("/proc/self/fd"), {}))},
            {"handlers", BytesOf(std::get_terminate()) + BytesOf(std::get_new_handler())}};
}

/// Names of what differs.
std::vector<std::string> Compare(const std::map<std::string, std::string>& before) {
    std::vector<std::string> changed;
    for (const auto& [name, value] : TakeState())
        if (value != before.at(name)) changed.push_back(name);
    return changed;
}

TEST(Loading, ChangesNothingOfTheProcess) {
    const auto before = TakeState();
    void* const library = dlopen(ZUC_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_TRUE(library) << dlerror();
    EXPECT_THAT(Compare(before), IsEmpty()) << "after loading";
    const auto call = [&](const char* name) {
        const auto function = reinterpret_cast<void (*)()>(dlsym(library, name));
        ASSERT_TRUE(function) << name;
        function();
    };
    call("_ZN3zuc10InitializeEv");
    EXPECT_THAT(Compare(before), IsEmpty()) << "after starting";
    call("_ZN3zuc9TerminateEv");
    EXPECT_THAT(Compare(before), IsEmpty()) << "after ending";
    // A sanitizer would report what the library keeps to the end of the process on purpose.
    if (!rtguard::IsActive()) return;
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_THAT(Compare(before), IsEmpty()) << "after unloading";
}

/// The test above can fail, whatever a library did.
TEST(Loading, EveryChangeIsSeen) {
    const struct {
        const char* name;
        std::function<void()> change;
        std::function<void()> undo;
    } rows[] = {
        {"floating point", [] { fesetround(FE_UPWARD); }, [] { fesetround(FE_TONEAREST); }},
#if defined(__x86_64__)
        {"floating point", [] { _mm_setcsr(_mm_getcsr() | 0x8040); },
         [] { _mm_setcsr(_mm_getcsr() & ~0x8040u); }},
#endif
        {"locale", [] { std::setlocale(LC_ALL, "C.UTF-8"); }, [] { std::setlocale(LC_ALL, "C"); }},
        {"signals", [] { signal(SIGUSR2, SIG_IGN); }, [] { signal(SIGUSR2, SIG_DFL); }},
        {"environment", [] { setenv("ZUC_TEST", "1", 1); }, [] { unsetenv("ZUC_TEST"); }},
        {"umask", [] { umask(umask(0) ^ 1); }, [] { umask(umask(0) ^ 1); }},
        {"files", [] { dup2(0, 99); }, [] { close(99); }},
    };
    for (const auto& row : rows) {
        const auto before = TakeState();
        row.change();
        const auto changed = Compare(before);
        row.undo();
        EXPECT_THAT(changed, ElementsAre(row.name));
    }
    const auto before = TakeState();
    std::thread([&] { EXPECT_NE(TakeState().at("threads"), before.at("threads")); }).join();
}

}  // namespace
}  // namespace zuc

// NOLINTEND(concurrency-mt-unsafe)
