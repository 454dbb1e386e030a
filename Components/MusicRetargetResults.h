#pragma once

#include <vector>

#include "kracore/Export.h"
#include "kracore/PropList.h"
#include "kracore/Rational.h"

namespace zuc::components {

using kracore::utility::Ratio;

// Names for the host's own storage of Remix data; the library itself does not read them.
inline constexpr char kMusicRetargetResultsProperty[] = "RemixResults";
inline constexpr char kMusicRetargetAnalysisDataGuid[] = "AnalysisDataGuid";
inline constexpr char kMusicRetargetSegmentData[] = "Segments";

/// One range of the source as it is played in a remix; all in seconds.
struct RetargetSegment {
    Ratio offset;     // where the range starts in the source
    Ratio duration;   // its length in the source
    Ratio crossfade;  // length of the fade that leads into it, half of it before the start
    bool operator==(const RetargetSegment&) const = default;
};

/// The ranges of a remix in playing order.
class ZUC_API MusicRetargetResults : public std::vector<RetargetSegment> {
public:
    using std::vector<RetargetSegment>::vector;

    /// Appends to `out` every moment of the remix at which the source's moment `seconds` is heard: none,
    /// or several. A range holds its start and not its end, so a moment between two ranges that follow
    /// each other in the source is heard once. [any]
    void RemapTime(const Ratio& seconds, std::vector<Ratio>& out) const;
};

/// One child list "Segment_0", "Segment_1", ... per segment, with the ratios "Offset", "Duration" and
/// "Crossfade". Writing replaces the segments that the list holds. [host]
ZUC_API void WriteToPropertyList(const MusicRetargetResults& results,
                                 kracore::proplist::PropList& list);
/// Reads segments from "Segment_0" on, as far as they go without a gap. False, and `results` stays as it
/// was, when a segment lacks a ratio or has one with a denominator that is not positive. [host]
ZUC_API bool ReadFromPropertyList(const kracore::proplist::PropList& list,
                                  MusicRetargetResults& results);

/// How a search for a remix ended.
enum class RetargetResult : int {
    kDone = 0,
    kCancelled,
    kNoBeats,     // fewer than two beats
    kBadCosts,    // a cost is not a number or -infinity
    kInfeasible,  // every sequence of beats is forbidden
    kOutOfMemory,
    kNoSampleRate,
};

/// The result as a sentence for people. [any]
ZUC_API const char* DescribeResult(RetargetResult result);

}  // namespace zuc::components
