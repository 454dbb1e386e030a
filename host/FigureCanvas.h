#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/Figure.h"

namespace zuc::host {

struct CanvasColor {
    double red;
    double green;
    double blue;
    double opacity = 1.0;
};

struct CanvasRect {
    double left;
    double top;
    double width;
    double height;
    double Right() const { return left + width; }
    double Bottom() const { return top + height; }
};

enum class TextAnchor { kStart, kMiddle, kEnd };

struct CanvasText {
    std::string text;  // UTF-8
    FigurePoint at;    // the base line, at its start, middle or end
    double size;       // pixels
    CanvasColor color;
    TextAnchor anchor = TextAnchor::kStart;
    bool bold = false;
    bool upwards = false;  // turned a quarter to the left
};

/// What a figure is drawn with. Coordinates in pixels, y downwards. All operations are [host].
class Canvas {
public:
    virtual ~Canvas() = default;
    virtual void DrawLine(const std::vector<FigurePoint>& points,
                          const CanvasColor& color,
                          double width,
                          bool dashed) = 0;
    virtual void FillPolygon(const std::vector<FigurePoint>& points, const CanvasColor& color) = 0;
    virtual void FillCircle(FigurePoint center, double radius, const CanvasColor& color) = 0;
    virtual void DrawText(const CanvasText& text) = 0;
    /// Until EndClip nothing is drawn outside the rectangle. Not nested.
    virtual void BeginClip(const CanvasRect& rect) = 0;
    virtual void EndClip() = 0;
    /// The finished picture, as the bytes of its file; once.
    virtual std::string Finish() = 0;
};

std::unique_ptr<Canvas> MakeSvgCanvas(double width, double height, const std::string& title);
/// `scale` pixels of the picture for each pixel of the coordinates. Throws Error(kProcessing).
std::unique_ptr<Canvas> MakePngCanvas(double width, double height, double scale);

}  // namespace zuc::host
