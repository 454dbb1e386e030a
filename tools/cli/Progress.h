#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "host/Render.h"

namespace zuc::cli {

enum class ProgressMode { kNone, kLine, kJson };

/// "auto" is a line when standard error is a terminal, "always" a line, "never" and "json" as named.
/// Throws host::Error (kUsage).
ProgressMode ParseProgressMode(std::string_view text, bool quiet);

/// Tells of a running job on standard error, ten times a second at most: one line that is written over,
/// or one JSON object a line. Ends the line when it is destroyed.
class Progress {
public:
    Progress(ProgressMode mode, int rateHz);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Show(const host::RenderProgress& progress);

private:
    using Clock = std::chrono::steady_clock;

    void ShowLine(const host::RenderProgress& progress, double elapsedSeconds);
    void ShowJson(const host::RenderProgress& progress, double elapsedSeconds);

    ProgressMode mode_;
    int rateHz_;
    Clock::time_point start_ = Clock::now();
    Clock::time_point last_ = start_;
    int pass_ = 1;
    bool isLineOpen_ = false;
};

/// "1:02:03", "4:05" or "0:00.3".
std::string FormatDuration(double seconds);

}  // namespace zuc::cli
