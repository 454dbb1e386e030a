#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Components/MusicRetargetResults.h"
#include "host/Error.h"

namespace zuc::host {

using components::Ratio;

/// A remix as a list of source ranges, so that it can be kept, edited and made again.
struct RemixPlan {
    std::string sourcePath;         // what it was made for; a note only
    int sourceRateHz = 0;           // 0: not known
    std::int64_t sourceFrames = 0;  // 0: not known
    double targetSeconds = 0.0;
    components::MusicRetargetResults segments;
    std::vector<double> joinCosts;  // one per join, or none
    Ratio fadeOut = 0;              // seconds at the end

    /// How long the remix is: all ranges together. [any]
    Ratio GetDuration() const;
    /// When in the remix each range begins; one value more, the end, behind the last. [any]
    std::vector<double> GetStarts() const;
    std::size_t GetJoinCount() const { return segments.empty() ? 0 : segments.size() - 1; }
};

/// {"schema": "zuc.remix/1",
///  "source": {"file": "song.wav", "rate": 44100, "frames": 9261000},
///  "target": 157.0,
///  "segments": [{"offset": "0/1", "duration": "1234/441", "crossfade": "1/2", "cost": 0.13}, …],
///  "fade-out": "2/1"}
///
/// Times are exact ratios of seconds. A cost is what the search paid for the join that leads into the range.
/// [any]
std::string PlanToJson(const RemixPlan& plan);
/// Reads the same; times may also be whole or decimal numbers ("12.5", 12.5). "source", "crossfade", "cost"
/// and "fade-out" may be missing. Throws Error (kUsage), or an ErrorList, that begins with `name` and says
/// where the fault is: no such key, a time that is not finite, negative or above a million seconds, a range
/// without length, ratios whose common denominator is above 10^12. [any]
RemixPlan PlanFromJson(std::string_view json, const std::string& name);

/// The plan in a file. Throws as PlanFromJson, or Error (kInput). [host]
RemixPlan ReadPlanFile(const std::string& path);

/// Whether every range, and what its fade needs around it, lies within a source of that length; otherwise
/// throws Error (kUsage), or an ErrorList, that begins with `name`. [any]
void CheckPlan(const RemixPlan& plan, int rateHz, std::int64_t frames, const std::string& name);

inline double ToSeconds(const Ratio& ratio) { return boost::rational_cast<double>(ratio); }

/// "song.wav as a remix of 2:37.00 from 4:01.20". [any]
std::string MakeRemixTitle(const RemixPlan& plan, const std::string& songPath);

/// "2:37.00", with hours from one hour on. [any]
std::string FormatTime(double seconds);

}  // namespace zuc::host
