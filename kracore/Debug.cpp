#include "kracore/Debug.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace kracore::debug {
namespace {

/// What the process reports to. Never destroyed, so that the last static object may still report.
struct Receivers {
    std::mutex mutex;
    AssertionHandler assertion;
    TraceHandler trace;
};

Receivers& GetReceivers() {
    static auto* const receivers = new Receivers;
    return *receivers;
}

template <class Handler>
Handler Exchange(Handler Receivers::*member, Handler handler) {
    Receivers& receivers = GetReceivers();
    const std::lock_guard lock(receivers.mutex);
    return std::exchange(receivers.*member, std::move(handler));
}

/// A copy, so that the handler runs without the lock and may install another one.
template <class Handler>
Handler Copy(Handler Receivers::*member) {
    Receivers& receivers = GetReceivers();
    const std::lock_guard lock(receivers.mutex);
    return receivers.*member;
}

void PrintFailure(const AssertionFailure& failure) {
    const auto length = [](std::string_view text) { return static_cast<int>(text.size()); };
    std::fprintf(stderr, "%.*s:%u: assertion '%.*s' failed%s%.*s\n", length(failure.file),
                 failure.file.data(), failure.line, length(failure.condition),
                 failure.condition.data(), failure.message.empty() ? "" : ": ",
                 length(failure.message), failure.message.data());
}

}  // namespace

AssertionHandler SetAssertionHandler(AssertionHandler handler) {
    return Exchange(&Receivers::assertion, std::move(handler));
}

void BreakAfterAssertDialog(const AssertionFailure& failure) {
    if (const AssertionHandler handler = Copy(&Receivers::assertion)) return handler(failure);
    PrintFailure(failure);
#ifndef NDEBUG
    std::abort();
#endif
}

TraceHandler SetTraceHandler(TraceHandler handler) {
    return Exchange(&Receivers::trace, std::move(handler));
}

void Trace(std::string_view category, int level, std::string_view text) {
    if (const TraceHandler handler = Copy(&Receivers::trace)) handler(category, level, text);
}

}  // namespace kracore::debug
