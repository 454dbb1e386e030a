#pragma once

#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace zuc::host {

/// What a shell's process answers. The numbers are documented and never change.
enum class ExitCode : int {
    kDone = 0,
    kProcessing = 1,
    kUsage = 2,
    kInput = 3,
    kOutput = 4,
    kBatchPartlyFailed = 5,
    kClippedOrFaulty = 6,
    kRemixInfeasible = 7,
};

/// A failure as a person reads it: what and where, what would be allowed, and a hint. `what()` joins
/// the parts that are not empty, one line each.
class Error : public std::runtime_error {
public:
    Error(ExitCode code, std::string message, std::string allowed = {}, std::string hint = {})
        : std::runtime_error(Join(message, allowed, hint)),
          code_(code),
          message_(std::move(message)),
          allowed_(std::move(allowed)),
          hint_(std::move(hint)) {}

    ExitCode GetCode() const { return code_; }
    const std::string& GetMessage() const { return message_; }  // "amplify has no parameter 'gian'"
    const std::string& GetAllowed() const { return allowed_; }  // "parameters: gain, link-sliders"
    const std::string& GetHint() const { return hint_; }        // "did you mean 'gain'?"

private:
    static std::string Join(const std::string& message,
                            const std::string& allowed,
                            const std::string& hint) {
        std::string text = message;
        if (!allowed.empty()) text += "\n  allowed: " + allowed;
        if (!hint.empty()) text += "\n  hint: " + hint;
        return text;
    }

    ExitCode code_;
    std::string message_;
    std::string allowed_;
    std::string hint_;
};

/// Thrown when somebody set what stops a job; nothing was written.
class Interrupted : public std::exception {
public:
    const char* what() const noexcept override { return "interrupted"; }
};

/// The candidate most like `word` by edit distance, or empty when none is close. [any]
std::string FindSimilar(std::string_view word, const std::vector<std::string>& candidates);

}  // namespace zuc::host
