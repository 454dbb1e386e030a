#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Components/KeyframeContainer.h"
#include "host/Chain.h"
#include "host/EffectCatalogue.h"
#include "host/Parameters.h"

namespace zuc::host {

/// Reads the points of a curve: "0s=64%,5s=20%" or, from a CSV file, "@curve.csv". Times are those of
/// ParseTime, from the start of the file; they must rise. A value followed by " hold" stays until the
/// next point. Throws Error (kUsage, kInput). [any]
std::vector<CurvePoint> ParseCurvePoints(std::string_view text);
/// Reads rows "time,value" or "time,value,hold", also with ';' or tabs; a first row without a time is a
/// heading. `source` begins the faults. Throws Error (kUsage). [any]
std::vector<CurvePoint> ParseCurveCsv(std::string_view csv, std::string_view source);

/// The place in `chain` of the effect that "echo", or "echo#2" for the second of several, means. Throws
/// Error (kUsage). [any]
std::size_t FindStep(const Chain& chain, const EffectCatalogue& catalogue, std::string_view name);

/// Adds to `chain` what `text` says: "echo.decay-left:0s=64%,5s=20%", or "echo#2.decay-left:…" for the
/// second of several. Replaces a curve for the same parameter. Throws Error (kUsage, kInput). [any]
void AddAutomation(Chain& chain, const EffectCatalogue& catalogue, std::string_view text);

/// The parameter curves of one effect, ready for one rate.
///
/// Values run in straight lines in the parameter's own unit; choices and switches jump. Parameters are
/// set every 64 frames of the source, at multiples of 64, and at every point, so that results do not
/// depend on the length of blocks. The points of an envelope's "curve" become its keyframes instead.
class Automation {
public:
    static constexpr std::int64_t kStepFrames = 64;

    /// One automated parameter; what `zuc plot curve` shows.
    struct Track {
        Parameter parameter;
        KeyframeContainerPtr curve;  // normalized values
        float last = -1.0f;          // as set; -1 for none
    };

    /// Throws Error (kUsage), or an ErrorList. `filter` outlives this. [host]
    Automation(const std::vector<CurveText>& curves,
               const std::string& slug,
               AudioFilter& filter,
               float rateHz);

    /// Sets every parameter to its value at frame `position`; called before Resume. [audio]
    void Start(std::int64_t position);
    /// Sets what is due at `position` and returns how many frames, at most `frames`, may pass until the
    /// next call. [audio]
    int Advance(std::int64_t position, int frames);

    const std::vector<Track>& GetTracks() const { return tracks_; }
    /// The curves with every name and value in its usual form. [host]
    const std::vector<CurveText>& GetResolved() const { return resolved_; }

private:
    void AddTrack(const CurveText& text, const std::string& slug, float rateHz);
    void AddEnvelope(const CurveText& text, const std::string& slug, float rateHz);
    void Set(std::int64_t position);

    AudioFilter& filter_;
    std::vector<Track> tracks_;
    std::vector<CurveText> resolved_;
};

}  // namespace zuc::host
