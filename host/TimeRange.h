#pragma once

#include <limits>
#include <string_view>

namespace zuc::host {

/// A part of a recording.
struct TimeRange {
    double beginSeconds = 0.0;
    double endSeconds = std::numeric_limits<double>::infinity();
    bool operator==(const TimeRange&) const = default;
};

/// Seconds of "12", "0.5s", "250ms", "1:30.5" (minutes) or "1:02:03" (hours); not negative. Throws
/// Error (kUsage). [any]
double ParseTime(std::string_view text);
/// Reads "A..B", "A.." or "..B", each as ParseTime does. Throws Error (kUsage) also when B is not
/// behind A. [any]
TimeRange ParseTimeRange(std::string_view text);

}  // namespace zuc::host
