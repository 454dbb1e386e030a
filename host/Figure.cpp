#include "host/Figure.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <set>

#include <fmt/format.h>

#include "host/Error.h"
#include "host/FigureAxis.h"
#include "host/FigureCanvas.h"
#include "host/TemporaryFile.h"

namespace zuc::host {
namespace {

// Pixels.
constexpr double kMargin = 16.0;
constexpr double kTitleSize = 16.0;
constexpr double kTextSize = 12.0;
constexpr double kTickSize = 11.0;
constexpr double kLeftSpace = 72.0;    // y ticks and label
constexpr double kBottomSpace = 48.0;  // x ticks and label
constexpr double kTitleSpace = 28.0;
constexpr double kLegendSpace = 22.0;
constexpr double kPanelGap = 14.0;
constexpr double kXTickDistance = 80.0;
constexpr double kYTickDistance = 44.0;
constexpr double kSwatch = 18.0;
constexpr double kCharacterWidth = 0.58;  // of the text size, on average
constexpr double kTitleCharacter = 10.2;  // width of a bold one, on average
constexpr double kPngScale = 2.0;

constexpr CanvasColor kPaper{1.0, 1.0, 1.0};
constexpr CanvasColor kInk{0.13, 0.13, 0.15};
constexpr CanvasColor kSoftInk{0.35, 0.35, 0.38};
constexpr CanvasColor kGrid{0.88, 0.88, 0.90};
constexpr CanvasColor kMinorGrid{0.95, 0.95, 0.96};
constexpr CanvasColor kGreyLine{0.55, 0.55, 0.58};

// Okabe and Ito, "Color Universal Design", 2008.
constexpr std::array<CanvasColor, 6> kPalette{{
    {0.00, 0.45, 0.70},
    {0.84, 0.37, 0.00},
    {0.00, 0.62, 0.45},
    {0.80, 0.47, 0.65},
    {0.90, 0.62, 0.00},
    {0.34, 0.71, 0.91},
}};

CanvasColor ColorOf(const FigureStyle& style) {
    CanvasColor color = style.color < 0
                            ? kGreyLine
                            : kPalette[static_cast<std::size_t>(style.color) % kPalette.size()];
    color.opacity = style.opacity;
    return color;
}

/// At most `most` characters of UTF-8 text, the last one "…" when there are more.
std::string Shortened(const std::string& text, double most) {
    const auto isFirstByte = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
    if (static_cast<double>(std::count_if(text.begin(), text.end(), isFirstByte)) <= most)
        return text;
    std::string kept;
    double count = 0.0;
    for (const char c : text) {
        if (isFirstByte(c) && ++count > most - 1.0) break;
        kept += c;
    }
    return kept + "…";
}

bool IsWithin(const Axis& axis, double value) { return value >= axis.lo && value <= axis.hi; }

bool IsFinite(const FigurePoint& point) { return std::isfinite(point.x) && std::isfinite(point.y); }

}  // namespace

// ---- What is drawn ----

void FigurePanel::AddLine(std::vector<FigurePoint> points,
                          std::string name,
                          const FigureStyle& style) {
    items_.push_back({Kind::kLine, std::move(points), {}, std::move(name), style});
}

void FigurePanel::AddBand(const std::vector<FigureBand>& band,
                          std::string name,
                          const FigureStyle& style) {
    Item item{Kind::kBand, {}, {}, std::move(name), style};
    for (const FigureBand& step : band) {
        item.points.push_back({step.x, step.hi});
        item.lower.push_back(step.lo);
    }
    items_.push_back(std::move(item));
}

void FigurePanel::AddPoints(std::vector<FigurePoint> points,
                            std::string name,
                            const FigureStyle& style) {
    items_.push_back({Kind::kPoints, std::move(points), {}, std::move(name), style});
}

void FigurePanel::AddVerticals(const std::vector<double>& x,
                               std::string name,
                               const FigureStyle& style) {
    Item item{Kind::kVerticals, {}, {}, std::move(name), style};
    for (const double at : x) item.points.push_back({at, 0.0});
    items_.push_back(std::move(item));
}

void FigurePanel::AddHorizontals(const std::vector<double>& y,
                                 std::string name,
                                 const FigureStyle& style) {
    Item item{Kind::kHorizontals, {}, {}, std::move(name), style};
    for (const double at : y) item.points.push_back({0.0, at});
    items_.push_back(std::move(item));
}

void FigurePanel::AddLabel(FigurePoint at, std::string text) {
    items_.push_back({Kind::kLabel, {at}, {}, std::move(text), {}});
}

// ---- Layout ----

/// Draws one figure: knows where everything goes, in pixels.
class FigureLayout {
public:
    FigureLayout(const Figure& figure, Canvas& canvas) : figure_(figure), canvas_(canvas) {}

    void Draw() {
        const double width = figure_.width_;
        const double height = figure_.height_;
        canvas_.FillPolygon({{0, 0}, {width, 0}, {width, height}, {0, height}}, kPaper);
        canvas_.DrawText(
            {Shortened(figure_.title_, (width - kLeftSpace - kMargin) / kTitleCharacter),
             {kLeftSpace, kMargin + kTitleSize - 2.0},
             kTitleSize,
             kInk,
             TextAnchor::kStart,
             true});
        const double top = kMargin + kTitleSpace + DrawLegend();
        const double bottom = height - kBottomSpace;
        double shares = 0.0;
        for (const FigurePanel& panel : figure_.panels_) shares += panel.heightShare_;
        const double free =
            bottom - top - kPanelGap * static_cast<double>(figure_.panels_.size() - 1);
        double at = top;
        for (const FigurePanel& panel : figure_.panels_) {
            const double panelHeight = free * panel.heightShare_ / shares;
            DrawPanel(panel, {kLeftSpace, at, width - kLeftSpace - kMargin, panelHeight},
                      &panel == &figure_.panels_.back());
            at += panelHeight + kPanelGap;
        }
    }

private:
    using Kind = FigurePanel::Kind;
    using Item = FigurePanel::Item;

    /// Returns the height it took.
    double DrawLegend() {
        std::set<std::string> seen;
        double x = kLeftSpace;
        double y = kMargin + kTitleSpace + 2.0;
        for (const FigurePanel& panel : figure_.panels_)
            for (const Item& item : panel.items_) {
                if (item.kind == Kind::kLabel || item.name.empty() ||
                    !seen.insert(item.name).second)
                    continue;
                const double width =
                    kSwatch + 6.0 + 18.0 +
                    kCharacterWidth * kTextSize * static_cast<double>(item.name.size());
                if (x > kLeftSpace && x + width > figure_.width_) {
                    x = kLeftSpace;
                    y += kLegendSpace;
                }
                DrawSwatch(item, {x, y});
                canvas_.DrawText({item.name, {x + kSwatch + 6.0, y + 4.0}, kTextSize, kInk});
                x += width;
            }
        return seen.empty() ? 0.0 : y - kMargin - kTitleSpace + kLegendSpace - 4.0;
    }

    void DrawSwatch(const Item& item, FigurePoint at) {
        const CanvasColor color = ColorOf(item.style);
        if (item.kind == Kind::kBand)
            canvas_.FillPolygon({{at.x, at.y - 5.0},
                                 {at.x + kSwatch, at.y - 5.0},
                                 {at.x + kSwatch, at.y + 5.0},
                                 {at.x, at.y + 5.0}},
                                color);
        else if (item.kind == Kind::kPoints)
            canvas_.FillCircle({at.x + kSwatch / 2.0, at.y}, item.style.width, color);
        else
            canvas_.DrawLine({at, {at.x + kSwatch, at.y}}, color, item.style.width,
                             item.style.dashed);
    }

    void DrawPanel(const FigurePanel& panel, const CanvasRect& area, bool isLast) {
        area_ = area;
        xAxis_ = Widened(figure_.x_);
        yAxis_ = Widened(panel.y_);
        DrawGrid(isLast);
        canvas_.BeginClip(area_);
        for (const Item& item : panel.items_) DrawItem(item);
        canvas_.EndClip();
        for (const Item& item : panel.items_) DrawMarks(item);
        canvas_.DrawLine({{area_.left, area_.top},
                          {area_.left, area_.Bottom()},
                          {area_.Right(), area_.Bottom()}},
                         kSoftInk, 1.0, false);
        canvas_.DrawText({panel.y_.label,
                          {kMargin + 8.0, area_.top + area_.height / 2.0},
                          kTextSize,
                          kInk,
                          TextAnchor::kMiddle,
                          false,
                          true});
        if (isLast)
            canvas_.DrawText({figure_.x_.label,
                              {area_.left + area_.width / 2.0, area_.Bottom() + 36.0},
                              kTextSize,
                              kInk,
                              TextAnchor::kMiddle});
    }

    void DrawGrid(bool withXTexts) {
        for (const AxisTick& tick :
             MakeTicks(xAxis_, static_cast<int>(area_.width / kXTickDistance))) {
            const double x = ToPixels({tick.value, 0.0}).x;
            canvas_.DrawLine({{x, area_.top}, {x, area_.Bottom()}},
                             tick.text.empty() ? kMinorGrid : kGrid, 1.0, false);
            if (withXTexts)
                canvas_.DrawText({tick.text,
                                  {x, area_.Bottom() + 17.0},
                                  kTickSize,
                                  kSoftInk,
                                  TextAnchor::kMiddle});
        }
        for (const AxisTick& tick :
             MakeTicks(yAxis_, static_cast<int>(area_.height / kYTickDistance))) {
            const double y = ToPixels({0.0, tick.value}).y;
            canvas_.DrawLine({{area_.left, y}, {area_.Right(), y}},
                             tick.text.empty() ? kMinorGrid : kGrid, 1.0, false);
            canvas_.DrawText(
                {tick.text, {area_.left - 7.0, y + 4.0}, kTickSize, kSoftInk, TextAnchor::kEnd});
        }
    }

    void DrawItem(const Item& item) {
        const CanvasColor color = ColorOf(item.style);
        switch (item.kind) {
            case Kind::kLine:
                DrawRuns(item, color);
                break;
            case Kind::kBand:
                DrawBand(item, color);
                break;
            case Kind::kVerticals:
                for (const FigurePoint& point : item.points) {
                    const double x = ToPixels(point).x;
                    canvas_.DrawLine({{x, area_.top}, {x, area_.Bottom()}}, color, item.style.width,
                                     item.style.dashed);
                }
                break;
            case Kind::kHorizontals:
                for (const FigurePoint& point : item.points) {
                    const double y = ToPixels(point).y;
                    canvas_.DrawLine({{area_.left, y}, {area_.Right(), y}}, color, item.style.width,
                                     item.style.dashed);
                }
                break;
            case Kind::kPoints:
            case Kind::kLabel:
                break;
        }
    }

    /// What stays whole at the border: points within the axes, and texts.
    void DrawMarks(const Item& item) {
        if (item.kind == Kind::kLabel) DrawLabel(item);
        if (item.kind != Kind::kPoints) return;
        for (const FigurePoint& point : item.points) {
            if (!IsFinite(point) || !IsWithin(xAxis_, point.x) || !IsWithin(yAxis_, point.y))
                continue;
            canvas_.FillCircle(ToPixels(point), item.style.width + 1.5, kPaper);
            canvas_.FillCircle(ToPixels(point), item.style.width, ColorOf(item.style));
        }
    }

    void DrawRuns(const Item& item, const CanvasColor& color) {
        std::vector<FigurePoint> run;
        const auto flush = [&] {
            if (run.size() > 1) canvas_.DrawLine(run, color, item.style.width, item.style.dashed);
            run.clear();
        };
        for (const FigurePoint& point : item.points)
            if (IsFinite(point))
                run.push_back(ToPixels(point));
            else
                flush();
        flush();
    }

    void DrawBand(const Item& item, const CanvasColor& color) {
        std::vector<FigurePoint> outline;
        for (const FigurePoint& point : item.points) outline.push_back(ToPixels(point));
        for (std::size_t i = item.points.size(); i-- > 0;)
            outline.push_back(ToPixels({item.points[i].x, item.lower[i]}));
        if (!outline.empty()) canvas_.FillPolygon(outline, color);
    }

    /// Below and to the right of its point, or where there is no room further below to the left, out of
    /// the way of a line that rises; always inside the panel.
    void DrawLabel(const Item& item) {
        FigurePoint at = ToPixels(item.points.front());
        const double width = kCharacterWidth * kTickSize * static_cast<double>(item.name.size());
        const bool onRight = at.x + 8.0 + width < area_.Right();
        at.x += onRight ? 8.0 : -8.0;
        at.y =
            std::clamp(at.y + (onRight ? 14.0 : 26.0), area_.top + kTickSize, area_.Bottom() - 4.0);
        canvas_.DrawText(
            {item.name, at, kTickSize, kInk, onRight ? TextAnchor::kStart : TextAnchor::kEnd});
    }

    /// Far outside is far enough: renderers get coordinates that they can count with.
    FigurePoint ToPixels(const FigurePoint& point) const {
        const auto bounded = [](double fraction) { return std::clamp(fraction, -10.0, 11.0); };
        return {area_.left + area_.width * bounded(Fraction(xAxis_, point.x)),
                area_.Bottom() - area_.height * bounded(Fraction(yAxis_, point.y))};
    }

    const Figure& figure_;
    Canvas& canvas_;
    CanvasRect area_{};
    Axis xAxis_;
    Axis yAxis_;
};

Figure::Figure(std::string title, Axis x, double width, double height)
    : title_(std::move(title)), x_(std::move(x)), width_(width), height_(height) {}

FigurePanel& Figure::AddPanel(Axis y, double heightShare) {
    FigurePanel& panel = panels_.emplace_back();
    panel.y_ = std::move(y);
    panel.heightShare_ = heightShare;
    return panel;
}

void Figure::Draw(Canvas& canvas) const { FigureLayout(*this, canvas).Draw(); }

std::string Figure::ToSvg() const {
    const auto canvas = MakeSvgCanvas(width_, height_, title_);
    Draw(*canvas);
    return canvas->Finish();
}

std::string Figure::ToPng() const {
    const auto canvas = MakePngCanvas(width_, height_, kPngScale);
    Draw(*canvas);
    return canvas->Finish();
}

void Figure::Save(const std::string& path) const {
    if (path.ends_with(".svg"))
        WriteFileAtomically(path, ToSvg());
    else if (path.ends_with(".png"))
        WriteFileAtomically(path, ToPng());
    else
        throw Error(ExitCode::kUsage, fmt::format("'{}' does not say what kind of picture", path),
                    "names that end in .svg or .png");
}

}  // namespace zuc::host
