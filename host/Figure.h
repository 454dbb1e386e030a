#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace zuc::host {

class Canvas;

/// How the values of an axis are spread, and how its ticks read.
enum class AxisScale { kLinear, kLogarithmic };
enum class AxisUnit {
    kNumber,
    kDecibel,  // "-20"; the unit stands in the axis label
    kHertz,    // "200", "1k", "20k"
    kSeconds,  // "1.5", and "2:30" once the axis passes a minute
};

/// One axis: what stands beside it and what it spans. A logarithmic axis needs lo > 0. When hi is not
/// above lo the axis is widened by a little.
struct Axis {
    std::string label;  // "Input level (dB)"
    double lo = 0.0;
    double hi = 1.0;
    AxisUnit unit = AxisUnit::kNumber;
    AxisScale scale = AxisScale::kLinear;
};

struct FigurePoint {
    double x;
    double y;
};

/// One step of a band: everything between `lo` and `hi` at `x` is filled.
struct FigureBand {
    double x;
    double lo;
    double hi;
};

/// How something is drawn. Colours are numbers into a fixed palette that colour-blind readers can tell
/// apart: 0 blue, 1 vermilion, 2 green, 3 purple, 4 orange, 5 sky blue; kGrey for what only helps.
struct FigureStyle {
    static constexpr int kGrey = -1;

    int color = 0;
    double width = 2.0;  // of lines, in pixels; of points, their radius
    bool dashed = false;
    double opacity = 1.0;
};

/// One set of axes of a figure and what is drawn in it, in the order of the calls. Names go into the
/// legend; an empty name stays out of it. Points that are not finite interrupt a line. What lies
/// outside the axes is cut off. All operations are [host].
class FigurePanel {
public:
    void AddLine(std::vector<FigurePoint> points, std::string name, const FigureStyle& style);
    void AddBand(const std::vector<FigureBand>& band, std::string name, const FigureStyle& style);
    void AddPoints(std::vector<FigurePoint> points, std::string name, const FigureStyle& style);
    /// Lines across the whole panel at each of the values: beats, borders, thresholds.
    void AddVerticals(const std::vector<double>& x, std::string name, const FigureStyle& style);
    void AddHorizontals(const std::vector<double>& y, std::string name, const FigureStyle& style);
    /// A short text beside a point.
    void AddLabel(FigurePoint at, std::string text);

private:
    friend class Figure;
    friend class FigureLayout;

    enum class Kind { kLine, kBand, kPoints, kVerticals, kHorizontals, kLabel };
    struct Item {
        Kind kind;
        std::vector<FigurePoint> points;  // of a band: x and its upper edge
        std::vector<double> lower;        // of a band only
        std::string name;                 // of a label: its text
        FigureStyle style;
    };

    Axis y_;
    double heightShare_ = 1.0;
    std::vector<Item> items_;
};

/// A picture with one x axis and one or more panels below each other: title, legend, grid, ticks in
/// human units, on a light background. Drawn alike as SVG (text of our own) and as PNG.
///
///     Figure figure("Transfer curve", {"Input level (dB)", -100, 0, AxisUnit::kDecibel});
///     FigurePanel& panel = figure.AddPanel({"Output level (dB)", -100, 0, AxisUnit::kDecibel});
///     panel.AddLine(curve, "curve", {});
///     figure.Save("curve.svg");
///
/// All operations are [host].
class Figure {
public:
    /// `width` and `height` in pixels; a PNG has twice as many each way.
    Figure(std::string title, Axis x, double width = 900.0, double height = 560.0);

    /// Adds a panel below the others. Heights are shared out in proportion to `heightShare`. The
    /// reference stays valid as long as the figure.
    FigurePanel& AddPanel(Axis y, double heightShare = 1.0);

    std::string ToSvg() const;
    /// Throws Error(kProcessing) when there is no memory for the picture.
    std::string ToPng() const;
    /// Writes SVG or PNG as the name's end says, whole or not at all. Throws Error(kUsage) for any
    /// other end and Error(kOutput) when it cannot be written.
    void Save(const std::string& path) const;

private:
    friend class FigureLayout;

    void Draw(Canvas& canvas) const;

    std::string title_;
    Axis x_;
    double width_;
    double height_;
    std::deque<FigurePanel> panels_;
};

}  // namespace zuc::host
