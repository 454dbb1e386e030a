#include "host/FigureCanvas.h"

#include <cairo.h>

#include <cmath>

#include <fmt/format.h>

#include "host/Error.h"
#include "host/Text.h"

namespace zuc::host {
namespace {

constexpr char kFont[] = "DejaVu Sans, Helvetica, Arial, sans-serif";
constexpr char kPngFont[] = "sans-serif";
constexpr double kDash[] = {6.0, 4.0};  // pixels on, off

/// At most two decimals and no trailing zeros: paths are most of the file.
std::string Number(double value) {
    std::string text = fmt::format("{:.2f}", value);
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
    return text == "-0" ? "0" : text;
}

std::string Paint(std::string_view attribute, const CanvasColor& color) {
    const auto byte = [](double part) { return static_cast<int>(std::lround(255.0 * part)); };
    std::string text = fmt::format("{}=\"#{:02x}{:02x}{:02x}\"", attribute, byte(color.red),
                                   byte(color.green), byte(color.blue));
    if (color.opacity < 1.0)
        text += fmt::format(" {}-opacity=\"{}\"", attribute, Number(color.opacity));
    return text;
}

class SvgCanvas final : public Canvas {
public:
    SvgCanvas(double width, double height, const std::string& title) {
        text_ = fmt::format(
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
            "viewBox=\"0 0 {0} {1}\" role=\"img\" font-family=\"{2}\">\n<title>{3}</title>\n",
            Number(width), Number(height), kFont, EscapeMarkup(title));
    }

    void DrawLine(const std::vector<FigurePoint>& points,
                  const CanvasColor& color,
                  double width,
                  bool dashed) override {
        text_ += fmt::format(
            "<polyline fill=\"none\" {} stroke-width=\"{}\" stroke-linejoin=\"round\"{} points=\"",
            Paint("stroke", color), Number(width),
            dashed ? fmt::format(" stroke-dasharray=\"{} {}\"", kDash[0], kDash[1]) : "");
        AppendPoints(points);
    }

    void FillPolygon(const std::vector<FigurePoint>& points, const CanvasColor& color) override {
        text_ += fmt::format("<polygon {} points=\"", Paint("fill", color));
        AppendPoints(points);
    }

    void FillCircle(FigurePoint center, double radius, const CanvasColor& color) override {
        text_ += fmt::format("<circle cx=\"{}\" cy=\"{}\" r=\"{}\" {}/>\n", Number(center.x),
                             Number(center.y), Number(radius), Paint("fill", color));
    }

    void DrawText(const CanvasText& text) override {
        constexpr const char* kAnchors[] = {"start", "middle", "end"};
        const std::string x = Number(text.at.x);
        const std::string y = Number(text.at.y);
        text_ += fmt::format(
            "<text x=\"{}\" y=\"{}\" font-size=\"{}\" {} text-anchor=\"{}\"{}{}>{}</text>\n", x, y,
            Number(text.size), Paint("fill", text.color),
            kAnchors[static_cast<std::size_t>(text.anchor)],
            text.bold ? " font-weight=\"bold\"" : "",
            text.upwards ? fmt::format(" transform=\"rotate(-90 {} {})\"", x, y) : "",
            EscapeMarkup(text.text));
    }

    void BeginClip(const CanvasRect& rect) override {
        ++clipCount_;
        text_ += fmt::format(
            "<clipPath id=\"clip{0}\"><rect x=\"{1}\" y=\"{2}\" width=\"{3}\" height=\"{4}\"/>"
            "</clipPath>\n<g clip-path=\"url(#clip{0})\">\n",
            clipCount_, Number(rect.left), Number(rect.top), Number(rect.width),
            Number(rect.height));
    }
    void EndClip() override { text_ += "</g>\n"; }
    std::string Finish() override { return std::move(text_ += "</svg>\n"); }

private:
    void AppendPoints(const std::vector<FigurePoint>& points) {
        for (const FigurePoint& point : points)
            text_ += Number(point.x) + ',' + Number(point.y) + ' ';
        if (!points.empty()) text_.pop_back();
        text_ += "\"/>\n";
    }

    std::string text_;
    int clipCount_ = 0;
};

class PngCanvas final : public Canvas {
public:
    PngCanvas(double width, double height, double scale)
        : surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24,
                                              static_cast<int>(std::lround(width * scale)),
                                              static_cast<int>(std::lround(height * scale)))),
          cairo_(cairo_create(surface_.get())) {
        cairo_scale(cairo_.get(), scale, scale);
        cairo_set_line_join(cairo_.get(), CAIRO_LINE_JOIN_ROUND);
        Check(cairo_status(cairo_.get()));
    }

    void DrawLine(const std::vector<FigurePoint>& points,
                  const CanvasColor& color,
                  double width,
                  bool dashed) override {
        Trace(points, color);
        cairo_set_line_width(cairo_.get(), width);
        cairo_set_dash(cairo_.get(), kDash, dashed ? 2 : 0, 0.0);
        cairo_stroke(cairo_.get());
    }

    void FillPolygon(const std::vector<FigurePoint>& points, const CanvasColor& color) override {
        Trace(points, color);
        cairo_close_path(cairo_.get());
        cairo_fill(cairo_.get());
    }

    void FillCircle(FigurePoint center, double radius, const CanvasColor& color) override {
        Trace({}, color);
        cairo_arc(cairo_.get(), center.x, center.y, radius, 0.0, 2.0 * M_PI);
        cairo_fill(cairo_.get());
    }

    void DrawText(const CanvasText& text) override {
        cairo_t* cairo = cairo_.get();
        cairo_save(cairo);
        Trace({}, text.color);
        cairo_select_font_face(cairo, kPngFont, CAIRO_FONT_SLANT_NORMAL,
                               text.bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(cairo, text.size);
        cairo_text_extents_t extents;
        cairo_text_extents(cairo, text.text.c_str(), &extents);
        cairo_translate(cairo, text.at.x, text.at.y);
        if (text.upwards) cairo_rotate(cairo, -M_PI / 2.0);
        cairo_move_to(cairo, -0.5 * static_cast<double>(text.anchor) * extents.x_advance, 0.0);
        cairo_show_text(cairo, text.text.c_str());
        cairo_restore(cairo);
    }

    void BeginClip(const CanvasRect& rect) override {
        cairo_save(cairo_.get());
        cairo_rectangle(cairo_.get(), rect.left, rect.top, rect.width, rect.height);
        cairo_clip(cairo_.get());
    }
    void EndClip() override { cairo_restore(cairo_.get()); }

    std::string Finish() override {
        std::string bytes;
        const auto append = [](void* to, const unsigned char* data, unsigned int count) {
            static_cast<std::string*>(to)->append(reinterpret_cast<const char*>(data), count);
            return CAIRO_STATUS_SUCCESS;
        };
        Check(cairo_status(cairo_.get()));
        Check(cairo_surface_write_to_png_stream(surface_.get(), append, &bytes));
        return bytes;
    }

private:
    struct Release {
        void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
        void operator()(cairo_t* cairo) const { cairo_destroy(cairo); }
    };

    static void Check(cairo_status_t status) {
        if (status != CAIRO_STATUS_SUCCESS)
            throw Error(ExitCode::kProcessing, fmt::format("the picture cannot be drawn: {}",
                                                           cairo_status_to_string(status)));
    }

    void Trace(const std::vector<FigurePoint>& points, const CanvasColor& color) {
        cairo_set_source_rgba(cairo_.get(), color.red, color.green, color.blue, color.opacity);
        cairo_new_path(cairo_.get());
        for (const FigurePoint& point : points) cairo_line_to(cairo_.get(), point.x, point.y);
    }

    std::unique_ptr<cairo_surface_t, Release> surface_;
    std::unique_ptr<cairo_t, Release> cairo_;
};

}  // namespace

std::unique_ptr<Canvas> MakeSvgCanvas(double width, double height, const std::string& title) {
    return std::make_unique<SvgCanvas>(width, height, title);
}

std::unique_ptr<Canvas> MakePngCanvas(double width, double height, double scale) {
    return std::make_unique<PngCanvas>(width, height, scale);
}

}  // namespace zuc::host
