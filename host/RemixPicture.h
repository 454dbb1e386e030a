#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "host/AudioSource.h"
#include "host/FigureCanvas.h"
#include "host/RemixPlan.h"

namespace zuc::host {

/// A song above, its remix below, and between them ribbons from where the remix takes its sound to where it
/// plays it. Drawn alike as SVG and as PNG. All operations but the first are [host].
class RemixPicture {
public:
    /// Reads both. `beats` of the song, in seconds, may be empty. Throws Error (kInput). [worker]
    RemixPicture(const RemixPlan& plan,
                 AudioSource& song,
                 AudioSource& remix,
                 std::vector<double> beats,
                 std::string title);

    std::string ToSvg() const;
    /// Writes SVG or PNG as the name's end says, whole or not at all. Throws Error(kUsage, kOutput).
    void Save(const std::string& path) const;

    // Where things are, as shares of the picture, for what a page lays over it.
    double GetX(double seconds) const;  // of a moment of the song or the remix
    static double GetRemixTop();
    static double GetRemixHeight();

private:
    struct Peak {
        double lo = 0.0;
        double hi = 0.0;
    };
    using Peaks = std::vector<Peak>;

    Peaks Measure(AudioSource& audio) const;
    void Draw(Canvas& canvas) const;
    void DrawAxis(Canvas& canvas, double y, double seconds, bool isAbove) const;
    void DrawBeats(Canvas& canvas) const;
    void DrawRanges(Canvas& canvas) const;
    void DrawWave(Canvas& canvas, const Peaks& peaks, double seconds, double top) const;
    double ToX(double seconds) const;

    RemixPlan plan_;
    std::vector<double> beats_;
    std::string title_;
    double songSeconds_;
    double remixSeconds_;
    Peaks songPeaks_;
    Peaks remixPeaks_;
};

/// The picture of a plan alone: `songPath` is played through it first. Throws Error, or Interrupted.
/// [worker, may block]
RemixPicture PlotRemix(const std::string& songPath,
                       const std::string& planPath,
                       const std::atomic<int>* interrupted);

}  // namespace zuc::host
