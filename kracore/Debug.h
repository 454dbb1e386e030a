#pragma once

#include <functional>
#include <string_view>

#include "kracore/Export.h"

namespace kracore::debug {

/// A broken invariant: the condition as text, an explanation (may be empty) and the place.
struct AssertionFailure {
    std::string_view condition;
    std::string_view message;
    std::string_view file;
    unsigned line = 0;
};
using AssertionHandler = std::function<void(const AssertionFailure&)>;

/// Installs what a failed assertion calls; an empty handler restores the default, which prints the
/// failure on standard error and, in builds without NDEBUG, ends the process. Returns the previous
/// handler. [any, may block]
ZUC_API AssertionHandler SetAssertionHandler(AssertionHandler handler);

/// Reports a failure to the handler. The call may return. [any, may block]
ZUC_API void BreakAfterAssertDialog(const AssertionFailure& failure);

/// Reports `condition` with the caller's file and line when `holds` is false; returns `holds`, so
/// that the caller can leave early; `file` and `line` are left to their defaults. Used at preparation, never per sample. [any, may block]
inline bool Assert(bool holds,
                   std::string_view condition,
                   std::string_view message = {},
                   const char* file = __builtin_FILE(),
                   unsigned line = __builtin_LINE()) {
    if (!holds) BreakAfterAssertDialog({condition, message, file, line});
    return holds;
}

/// Receives diagnostics: a category ("MusicRetargeting"), a level (0 most important) and one line.
using TraceHandler = std::function<void(std::string_view category, int level, std::string_view)>;
/// Installs the receiver; an empty one turns tracing off, which is the default. Returns the previous
/// one. [any, may block]
ZUC_API TraceHandler SetTraceHandler(TraceHandler handler);
/// Hands one line to the receiver. Never called on an audio thread. [any, may block]
ZUC_API void Trace(std::string_view category, int level, std::string_view text);

}  // namespace kracore::debug
