#include "Signals.h"

#include <signal.h>
#include <unistd.h>

namespace zuc::cli {
namespace {

constexpr unsigned kGraceSeconds = 10;
constexpr int kSignalBase = 128;  // how shells tell a process that a signal ended

std::atomic<bool> isJobRunning{false};
std::atomic<int> interruption{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler may not wait");

extern "C" void OnSignal(int signal) {
    const int first = interruption.load();
    if (first != 0) ::_exit(kSignalBase + first);  // the second one, or SIGALRM
    if (!isJobRunning.load()) ::_exit(kSignalBase + signal);
    interruption.store(signal);
    ::alarm(kGraceSeconds);
}

}  // namespace

void WatchSignals() {
    struct sigaction action {};
    action.sa_handler = OnSignal;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(SIGALRM, &action, nullptr);
    for (const int signal : {SIGINT, SIGTERM}) {
        // A parent that ignores a signal, as nohup does, keeps it ignored.
        struct sigaction inherited {};
        ::sigaction(signal, nullptr, &inherited);
        if (inherited.sa_handler != SIG_IGN) ::sigaction(signal, &action, nullptr);
    }
}

InterruptibleJob::InterruptibleJob() { isJobRunning.store(true); }
InterruptibleJob::~InterruptibleJob() { isJobRunning.store(false); }

const std::atomic<int>& GetInterruption() { return interruption; }

}  // namespace zuc::cli
