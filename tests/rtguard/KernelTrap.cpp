// Stops every kernel entry of a watched thread, by Linux's syscall user dispatch (since 5.11): while
// the thread's selector says so, an entry raises SIGSYS instead, unless the instruction lies in the
// one range of code that was named when the thread was armed.
#include "rtguard/Findings.h"

#if defined(__linux__) && defined(__x86_64__)

#include <cerrno>
#include <csignal>

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

// The range that may enter the kernel: one system call with six arguments, and the return from the
// handler. The latter is spelt as unwinders expect it.
asm(R"(
    .pushsection .text.rtguard, "ax", @progbits
rtguardUntrappedBegin:
    .type rtguardEnterKernel, @function
rtguardEnterKernel:
    mov %rdi, %rax
    mov %rsi, %rdi
    mov %rdx, %rsi
    mov %rcx, %rdx
    mov %r8, %r10
    mov %r9, %r8
    mov 8(%rsp), %r9
    syscall
    ret
    .type rtguardReturnFromHandler, @function
rtguardReturnFromHandler:
    mov $15, %rax
    syscall
    ud2
rtguardUntrappedEnd:
    .popsection
)");

// NOLINTBEGIN(readability-identifier-naming): the assembler's names
extern "C" {
[[gnu::visibility("hidden")]] extern const char rtguardUntrappedBegin[];
[[gnu::visibility("hidden")]] extern const char rtguardUntrappedEnd[];
[[gnu::visibility("hidden")]] long rtguardEnterKernel(
    long number, long a, long b, long c, long d, long e, long f);
[[gnu::visibility("hidden")]] void rtguardReturnFromHandler();
}
// NOLINTEND(readability-identifier-naming)

namespace rtguard::detail {
namespace {

constexpr char kPass = 0;  // values of the selector, fixed by the kernel
constexpr char kStop = 1;
[[gnu::tls_model("initial-exec")]] thread_local volatile char selector = kPass;
[[gnu::tls_model("initial-exec")]] thread_local bool hasTrap = false;

/// Calls that work on the caller's stack, signal mask or existence: made from within the handler they
/// would act on the handler instead.
bool MustRunInPlace(long number) {
    switch (number) {
        case SYS_rt_sigreturn:
        case SYS_rt_sigprocmask:
        case SYS_sigaltstack:
        case SYS_clone:
        case SYS_clone3:
        case SYS_fork:
        case SYS_vfork:
            return true;
        default:
            return false;
    }
}

void OnTrap(int, siginfo_t* info, void* context) {
    constexpr int kSyscallBytes = 2;
    auto& registers = static_cast<ucontext_t*>(context)->uc_mcontext.gregs;
    const long number = info->si_syscall;
    // A return from some other signal's handler is nothing that the code asked for.
    if (number != SYS_rt_sigreturn) ReportKernelEntry(number);
    if (MustRunInPlace(number)) {
        selector = kPass;
        registers[REG_RIP] -= kSyscallBytes;
        registers[REG_RAX] = number;
        return;  // the trap stays off until the thread's next Enter, Leave or Allow
    }
    registers[REG_RAX] =
        rtguardEnterKernel(number, registers[REG_RDI], registers[REG_RSI], registers[REG_RDX],
                           registers[REG_R10], registers[REG_R8], registers[REG_R9]);
}

/// As the kernel takes it: the C library's sigaction puts a return of its own.
struct KernelSignalAction {
    void (*handler)(int, siginfo_t*, void*);
    unsigned long flags;
    void (*restorer)();
    unsigned long mask;
};

bool SetDispatch(unsigned long mode) {
    constexpr int kSyscallUserDispatch = 59;  // PR_SET_SYSCALL_USER_DISPATCH
    const bool on = mode != 0;
    return prctl(kSyscallUserDispatch, mode, on ? rtguardUntrappedBegin : nullptr,
                 on ? rtguardUntrappedEnd - rtguardUntrappedBegin : 0,
                 on ? &selector : nullptr) == 0;
}

/// The kernel reads the selector at every entry, so the trap must end before the thread's storage does.
struct Disarm {
    ~Disarm() {
        if (hasTrap) SetDispatch(0);
        hasTrap = false;
    }
};

}  // namespace

bool ArmTrap() {
    constexpr unsigned long kHasRestorer = 0x04000000;  // SA_RESTORER
    const KernelSignalAction action{OnTrap, SA_SIGINFO | SA_NODEFER | kHasRestorer,
                                    rtguardReturnFromHandler, 0};
    if (syscall(SYS_rt_sigaction, SIGSYS, &action, nullptr, sizeof action.mask) != 0) return false;
    static thread_local Disarm disarm;
    (void)disarm;
    selector = kPass;
    return hasTrap = SetDispatch(1);
}

void SetTrap(bool stop) { selector = hasTrap && stop ? kStop : kPass; }

}  // namespace rtguard::detail

#else

namespace rtguard::detail {

bool ArmTrap() { return false; }
void SetTrap(bool) {}

}  // namespace rtguard::detail

#endif
