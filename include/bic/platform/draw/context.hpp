#pragma once
// Bitmap drawing contexts: paths, images and gradients drawn into pixel memory.
//
// The origin is the bottom-left corner and y grows upwards; memory holds the top row first.
// Paths are turned into coverage by cairo (fills with either rule, strokes with width, caps,
// joins, miter limit and dashes, anti-aliased or not) and composited here, premultiplied, into
// the bitmap's own layout. Colours are device RGB or device grey; a grey bitmap receives the
// luminance 0.3 r + 0.59 g + 0.11 b of a colour.
//
// Clipping is to rectangles; under a rotating transform the clip is the bounding box of the
// transformed rectangle.

#include "bic/platform/cg/color.hpp"
#include "bic/platform/cg/path.hpp"
#include "bic/platform/draw/image.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace bic::cg {

enum class BlendMode { normal, copy };
enum class PathFillRule { winding, evenOdd };

/// Colours at locations 0…1, drawn by Context::drawLinearGradient.
struct Gradient {
    std::vector<Color> colors;
    std::vector<double> locations;
};

class Context {
public:
    /// A context over `data` (the caller keeps it alive), or over memory of its own when `data`
    /// is null. Nothing when the layout is not one of formatFor's, the size is not positive or
    /// `bytesPerRow` is too small for a row.
    static std::unique_ptr<Context> bitmap(void* data, std::int64_t width, std::int64_t height,
                                           int bitsPerComponent, std::int64_t bytesPerRow,
                                           const ColorSpace& space, BitmapInfo bitmapInfo);
    ~Context();

    std::int64_t width() const { return width_; }
    std::int64_t height() const { return height_; }
    std::int64_t bytesPerRow() const { return bytesPerRow_; }
    ci::Format format() const { return format_; }
    std::uint8_t* data() { return data_; }
    const ColorSpace& colorSpace() const { return space_; }
    BitmapInfo bitmapInfo() const { return bitmapInfo_; }
    /// A copy of the current pixels as an image.
    std::optional<Image> makeImage() const;

    // Graphics state.
    void saveGState();
    void restoreGState();
    void translateBy(double tx, double ty);
    void scaleBy(double sx, double sy);
    void rotateBy(double radians);
    void concatenate(const AffineTransform& t);
    const AffineTransform& ctm() const { return state().ctm; }
    void clip(const Rect& rect);
    void setShouldAntialias(bool on) { state().antialias = on; }
    bool shouldAntialias() const { return state().antialias; }
    const std::vector<double>& lineDash() const { return state().dashes; }
    void setFillColor(const Color& color);
    void setStrokeColor(const Color& color);
    void setLineWidth(double width) { state().lineWidth = width; }
    void setLineCap(LineCap cap) { state().cap = cap; }
    void setLineJoin(LineJoin join) { state().join = join; }
    void setMiterLimit(double limit) { state().miterLimit = limit; }
    /// No lengths: solid lines.
    void setLineDash(double phase, std::vector<double> lengths);
    void setBlendMode(BlendMode mode) { state().blendMode = mode; }

    // The current path, in user space when added.
    void beginPath() { path_ = Path(); }
    void addPath(const Path& path) { path_.addPath(path, state().ctm); }
    /// Fills the current path and clears it. Paths with non-finite points draw nothing.
    void fillPath(PathFillRule rule = PathFillRule::winding);
    /// Strokes the current path with the stroke settings and clears it.
    void strokePath();
    void fill(const Rect& rect);
    /// The image scaled into `rect` (user space); copy replaces the pixels under it.
    void draw(const Image& image, const Rect& rect);
    /// A linear ramp from `start` to `end` (user space), extended with the end colours when the
    /// flags say so, over the clip.
    void drawLinearGradient(const Gradient& gradient, Point start, Point end,
                            bool extendBefore = true, bool extendAfter = true);
    /// The gradient across `rect` at `angleDegrees` (0 runs left to right, 90 bottom to top),
    /// from the corner that comes first along that direction to the one that comes last, and
    /// clipped to the rectangle.
    void drawLinearGradient(const Gradient& gradient, const Rect& rect, double angleDegrees);

private:
    struct State {
        AffineTransform ctm;
        Rect clip; // device space
        bool antialias = true;
        float fill[4] = {0, 0, 0, 1}; // premultiplied device RGBA
        float stroke[4] = {0, 0, 0, 1};
        double lineWidth = 1;
        LineCap cap = LineCap::butt;
        LineJoin join = LineJoin::miter;
        double miterLimit = 10;
        double dashPhase = 0;
        std::vector<double> dashes;
        BlendMode blendMode = BlendMode::normal;
    };

    Context(void* data, std::vector<std::uint8_t> own, std::int64_t w, std::int64_t h,
            std::int64_t bpr, ci::Format f, ColorSpace space, BitmapInfo info);
    State& state() { return states_.back(); }
    const State& state() const { return states_.back(); }
    void drawPath(bool stroke, PathFillRule rule);
    /// Blends one colour into the device rows of `area` through `coverage`.
    void compositeSolid(const struct DeviceRect& area, const std::uint8_t* coverage,
                        std::int64_t coverageStride, const float color[4]);
    /// Blends per-pixel colours into the device rows of `area` through `coverage` (or fully).
    template <class ColorAt>
    void composite(const struct DeviceRect& area, const std::uint8_t* coverage,
                   std::int64_t coverageStride, ColorAt&& colorAt);

    std::vector<std::uint8_t> own_;
    std::uint8_t* data_;
    std::int64_t width_, height_, bytesPerRow_;
    ci::Format format_;
    ColorSpace space_;
    BitmapInfo bitmapInfo_;
    std::vector<State> states_;
    Path path_;
    std::vector<unsigned char> mask_; // coverage memory reused from draw to draw
};

} // namespace bic::cg
