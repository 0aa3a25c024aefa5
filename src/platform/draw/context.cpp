#include "bic/platform/draw/context.hpp"

#include "bic/platform/ci/context.hpp"
#include "bic/platform/core/pixel_math.hpp"
#include "bic/platform/io/pixel_io.hpp"

#include <algorithm>
#include <cairo.h>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <new>
#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

namespace bic::cg {

/// Whole device pixels: columns x…x+w−1 and memory rows row…row+h−1 (top row first).
struct DeviceRect {
    std::int64_t x = 0, row = 0, w = 0, h = 0;
    bool isEmpty() const { return w <= 0 || h <= 0; }
};

namespace {

// The colour's straight device RGBA.
void deviceRGB(const Color& color, float out[4]) {
    double r, g, b;
    const auto& c = color.components();
    switch (color.colorSpace().model()) {
    case ColorSpaceModel::rgb:
        r = c[0], g = c[1], b = c[2];
        break;
    case ColorSpaceModel::monochrome:
        r = g = b = c[0];
        break;
    default: {
        const auto m = color.matched(ColorSpace::deviceRGB());
        const auto& mc = m ? m->components() : std::vector<double>{0, 0, 0, 1};
        r = mc[0], g = mc[1], b = mc[2];
    }
    }
    out[0] = float(r);
    out[1] = float(g);
    out[2] = float(b);
    out[3] = float(color.alpha());
}

void premultipliedDeviceRGB(const Color& color, float out[4]) {
    deviceRGB(color, out);
    for (int c = 0; c < 3; ++c)
        out[c] *= out[3];
}

bool isGrey(ci::Format f) {
    return f == ci::Format::L8 || f == ci::Format::L16 || f == ci::Format::Lf;
}

// An A8 coverage mask over memory the context keeps between draws: a large mask that is new
// each time costs more in page faults than the drawing itself.
struct CairoSurface {
    unsigned char* pixels = nullptr;
    int stride = 0;
    cairo_surface_t* surface = nullptr;
    cairo_t* cr = nullptr;
    CairoSurface(std::vector<unsigned char>& memory, int w, int h) {
        stride = cairo_format_stride_for_width(CAIRO_FORMAT_A8, w);
        const std::size_t size = std::size_t(stride) * std::size_t(h);
        if (memory.size() < size) memory.resize(size);
        pixels = memory.data();
        std::memset(pixels, 0, size);
        surface = cairo_image_surface_create_for_data(pixels, CAIRO_FORMAT_A8, w, h, stride);
        cr = cairo_create(surface);
    }
    CairoSurface(const CairoSurface&) = delete;
    ~CairoSurface() {
        cairo_destroy(cr);
        cairo_surface_destroy(surface);
    }
};

} // namespace

std::unique_ptr<Context> Context::bitmap(void* data, std::int64_t width, std::int64_t height,
                                         int bpc, std::int64_t bytesPerRow, const ColorSpace& space,
                                         BitmapInfo info) {
    const int components = space.model() == ColorSpaceModel::rgb ? 4 : 1;
    const auto format = formatFor(bpc, bpc * components, space.model(), info);
    if (!format || width < 1 || height < 1 || width > (1 << 20) || height > (1 << 20))
        return nullptr;
    if (bytesPerRow < width * ci::bytesPerPixel(*format)) return nullptr;
    std::vector<std::uint8_t> own;
    if (!data) own.assign(std::size_t(bytesPerRow * height), 0);
    return std::unique_ptr<Context>(
        new Context(data, std::move(own), width, height, bytesPerRow, *format, space, info));
}

Context::Context(void* data, std::vector<std::uint8_t> own, std::int64_t w, std::int64_t h,
                 std::int64_t bpr, ci::Format f, ColorSpace space, BitmapInfo info)
    : own_(std::move(own)), data_(data ? static_cast<std::uint8_t*>(data) : own_.data()), width_(w),
      height_(h), bytesPerRow_(bpr), format_(f), space_(std::move(space)), bitmapInfo_(info) {
    State initial;
    initial.clip = Rect(0, 0, double(w), double(h));
    states_.push_back(initial);
}

Context::~Context() = default;

std::optional<Image> Context::makeImage() const {
    const std::size_t size = std::size_t(bytesPerRow_ * height_);
    auto copy = std::make_shared<const std::vector<std::uint8_t>>(data_, data_ + size);
    const int bpp = ci::bytesPerPixel(format_) * 8;
    const int bpc = isGrey(format_) ? bpp : bpp / 4;
    return Image::make(width_, height_, bpc, bpp, bytesPerRow_, space_, bitmapInfo_,
                       std::move(copy));
}

void Context::saveGState() { states_.push_back(state()); }
void Context::restoreGState() {
    if (states_.size() > 1) states_.pop_back();
}
void Context::translateBy(double tx, double ty) { state().ctm = state().ctm.translatedBy(tx, ty); }
void Context::scaleBy(double sx, double sy) { state().ctm = state().ctm.scaledBy(sx, sy); }
void Context::rotateBy(double radians) { state().ctm = state().ctm.rotatedBy(radians); }
void Context::concatenate(const AffineTransform& t) { state().ctm = t.concatenating(state().ctm); }
void Context::clip(const Rect& rect) {
    state().clip = state().clip.intersection(state().ctm.apply(rect));
}
void Context::setFillColor(const Color& color) { premultipliedDeviceRGB(color, state().fill); }
void Context::setStrokeColor(const Color& color) { premultipliedDeviceRGB(color, state().stroke); }
void Context::setLineDash(double phase, std::vector<double> lengths) {
    state().dashPhase = phase;
    state().dashes = std::move(lengths);
}

namespace {
DeviceRect deviceArea(const Rect& deviceRect, const Rect& clip, std::int64_t w, std::int64_t h) {
    const Rect r = deviceRect.intersection(clip).intersection(Rect(0, 0, double(w), double(h)));
    if (r.isEmpty()) return {};
    const Rect i = r.integral();
    const auto x0 = std::int64_t(i.minX()), x1 = std::int64_t(i.maxX());
    const auto y0 = std::int64_t(i.minY()), y1 = std::int64_t(i.maxY());
    return {x0, h - y1, x1 - x0, y1 - y0};
}
} // namespace

template <class ColorAt>
void Context::composite(const DeviceRect& area, const std::uint8_t* coverage,
                        std::int64_t coverageStride, ColorAt&& colorAt) {
    const bool copy = state().blendMode == BlendMode::copy;
    const bool grey = isGrey(format_);
    const int bpp = ci::bytesPerPixel(format_);
    std::vector<float> row(std::size_t(area.w * 4));
    for (std::int64_t i = 0; i < area.h; ++i) {
        std::uint8_t* bytes = data_ + (area.row + i) * bytesPerRow_ + area.x * bpp;
        io::readRow(format_, bytes, row.data(), area.w);
        const std::uint8_t* cov = coverage ? coverage + i * coverageStride : nullptr;
        for (std::int64_t j = 0; j < area.w; ++j) {
            const float c = cov ? float(cov[j]) / 255.0f : 1.0f;
            if (c == 0) continue;
            float s[4];
            if (!colorAt(j, i, s)) continue;
            if (grey) s[0] = s[1] = s[2] = luma(s[0], s[1], s[2]);
            float* d = row.data() + 4 * j;
            const float keep = copy ? 1 - c : 1 - s[3] * c;
            for (int k = 0; k < 4; ++k)
                d[k] = s[k] * c + d[k] * keep;
        }
        io::writeRow(format_, row.data(), bytes, area.w);
    }
}

void Context::compositeSolid(const DeviceRect& area, const std::uint8_t* coverage,
                             std::int64_t coverageStride, const float color[4]) {
    float s[4] = {color[0], color[1], color[2], color[3]};
    if (isGrey(format_)) s[0] = s[1] = s[2] = luma(s[0], s[1], s[2]);
    const bool copy = state().blendMode == BlendMode::copy;
    // Fully covered pixels take the colour itself when nothing shows through it: their bytes
    // are computed once and stored in runs. Only edge pixels are blended.
    const bool replaces = copy || s[3] >= 1.0f;
    const int bpp = ci::bytesPerPixel(format_);
    std::uint8_t solid[16];
    io::writeRow(format_, s, solid, 1);
    for (std::int64_t i = 0; i < area.h; ++i) {
        std::uint8_t* bytes = data_ + (area.row + i) * bytesPerRow_ + area.x * bpp;
        const std::uint8_t* cov = coverage + i * coverageStride;
        for (std::int64_t j = 0; j < area.w;) {
            // Eight coverage bytes at a time: empty and fully covered stretches are the common
            // case inside and outside a shape.
            if (j + 8 <= area.w) {
                std::uint64_t eight;
                std::memcpy(&eight, cov + j, 8);
                if (eight == 0) {
                    j += 8;
                    continue;
                }
                if (eight == ~std::uint64_t{0} && replaces) {
                    for (int k = 0; k < 8; ++k)
                        std::memcpy(bytes + (j + k) * bpp, solid, std::size_t(bpp));
                    j += 8;
                    continue;
                }
            }
            const std::uint8_t c = cov[j];
            if (c == 0) {
                ++j;
                continue;
            }
            if (c == 255 && replaces) {
                std::memcpy(bytes + j * bpp, solid, std::size_t(bpp));
                ++j;
                continue;
            }
            const float f = float(c) / 255.0f;
            float d[4];
            io::readRow(format_, bytes + j * bpp, d, 1);
            const float keep = copy ? 1 - f : 1 - s[3] * f;
            for (int k = 0; k < 4; ++k)
                d[k] = s[k] * f + d[k] * keep;
            io::writeRow(format_, d, bytes + j * bpp, 1);
            ++j;
        }
    }
}

void Context::drawPath(bool stroke, PathFillRule rule) {
    const Path path = std::move(path_);
    path_ = Path();
    if (path.isEmpty() || !path.isFinite()) return;
    const State& st = state();
    Rect box = path.boundingBox();
    if (stroke) {
        const AffineTransform& m = st.ctm;
        const double scale = std::max(std::abs(m.a) + std::abs(m.c), std::abs(m.b) + std::abs(m.d));
        const double reach = st.lineWidth / 2 * std::max(st.miterLimit, 1.5) * scale + 2;
        box = box.insetBy(-reach, -reach);
    } else {
        box = box.insetBy(-1, -1);
    }
    const DeviceRect area = deviceArea(box, st.clip, width_, height_);
    if (area.isEmpty()) return;

    // Large areas are rasterised in horizontal bands in parallel; every pixel's coverage depends
    // only on the geometry, so the bands join without seams.
    const bool invertible = st.ctm.a * st.ctm.d - st.ctm.b * st.ctm.c != 0;
    const AffineTransform user = invertible ? st.ctm : AffineTransform();
    const AffineTransform back = user.inverted();
    const float* color = stroke ? st.stroke : st.fill;
    auto renderBand = [&](const DeviceRect& band, std::vector<unsigned char>& memory) {
        CairoSurface mask(memory, int(band.w), int(band.h));
        cairo_t* cr = mask.cr;
        cairo_set_antialias(cr, st.antialias ? CAIRO_ANTIALIAS_DEFAULT : CAIRO_ANTIALIAS_NONE);
        // Device space (y up) to mask pixels (y down from the band's top row), after the user
        // transform, so that stroke widths and dashes are measured in user space.
        const AffineTransform toMask = user.concatenating(
            AffineTransform{1, 0, 0, -1, -double(band.x), double(height_ - band.row)});
        cairo_matrix_t matrix;
        cairo_matrix_init(&matrix, toMask.a, toMask.b, toMask.c, toMask.d, toMask.tx, toMask.ty);
        cairo_set_matrix(cr, &matrix);
        Point current{0, 0};
        for (const auto& e : path.elements()) {
            Point p[3];
            for (int k = 0; k < e.pointCount(); ++k)
                p[k] = back.apply(e.points[k]);
            switch (e.type) {
            case PathElementType::moveToPoint:
                cairo_move_to(cr, p[0].x, p[0].y), current = p[0];
                break;
            case PathElementType::addLineToPoint:
                cairo_line_to(cr, p[0].x, p[0].y), current = p[0];
                break;
            case PathElementType::addQuadCurveToPoint: {
                const Point c1{current.x + 2.0 / 3 * (p[0].x - current.x),
                               current.y + 2.0 / 3 * (p[0].y - current.y)};
                const Point c2{p[1].x + 2.0 / 3 * (p[0].x - p[1].x),
                               p[1].y + 2.0 / 3 * (p[0].y - p[1].y)};
                cairo_curve_to(cr, c1.x, c1.y, c2.x, c2.y, p[1].x, p[1].y);
                current = p[1];
                break;
            }
            case PathElementType::addCurveToPoint:
                cairo_curve_to(cr, p[0].x, p[0].y, p[1].x, p[1].y, p[2].x, p[2].y);
                current = p[2];
                break;
            case PathElementType::closeSubpath:
                cairo_close_path(cr);
                break;
            }
        }
        cairo_set_source_rgba(cr, 0, 0, 0, 1);
        if (stroke) {
            cairo_set_line_width(cr, st.lineWidth);
            cairo_set_line_cap(cr, st.cap == LineCap::round    ? CAIRO_LINE_CAP_ROUND
                                   : st.cap == LineCap::square ? CAIRO_LINE_CAP_SQUARE
                                                               : CAIRO_LINE_CAP_BUTT);
            cairo_set_line_join(cr, st.join == LineJoin::round   ? CAIRO_LINE_JOIN_ROUND
                                    : st.join == LineJoin::bevel ? CAIRO_LINE_JOIN_BEVEL
                                                                 : CAIRO_LINE_JOIN_MITER);
            cairo_set_miter_limit(cr, st.miterLimit);
            cairo_set_dash(cr, st.dashes.data(), int(st.dashes.size()), st.dashPhase);
            cairo_stroke(cr);
        } else {
            cairo_set_fill_rule(cr, rule == PathFillRule::evenOdd ? CAIRO_FILL_RULE_EVEN_ODD
                                                                  : CAIRO_FILL_RULE_WINDING);
            cairo_fill(cr);
        }
        cairo_surface_flush(mask.surface);
        compositeSolid(band, mask.pixels, mask.stride, color);
    };
    constexpr std::int64_t kBandRows = 256;
    if (area.w * area.h < (std::int64_t{1} << 20) || area.h <= kBandRows) {
        renderBand(area, mask_);
        return;
    }
    tbb::enumerable_thread_specific<std::vector<unsigned char>> masks;
    tbb::parallel_for(std::int64_t{0}, (area.h + kBandRows - 1) / kBandRows, [&](std::int64_t b) {
        const std::int64_t row = area.row + b * kBandRows;
        renderBand({area.x, row, area.w, std::min(kBandRows, area.row + area.h - row)},
                   masks.local());
    });
}

void Context::fillPath(PathFillRule rule) { drawPath(false, rule); }
void Context::strokePath() { drawPath(true, PathFillRule::winding); }

void Context::fill(const Rect& rect) {
    beginPath();
    Path p;
    p.addRect(rect);
    addPath(p);
    fillPath();
}

void Context::draw(const Image& image, const Rect& rect) {
    const Rect r = rect.standardized();
    if (r.isEmpty()) return;
    const AffineTransform place =
        AffineTransform::scale(r.width() / double(image.width()),
                               r.height() / double(image.height()))
            .concatenating(AffineTransform::translation(r.minX(), r.minY()))
            .concatenating(state().ctm);
    const ci::Image placed = image.ciImage().transformed(place);
    const DeviceRect area = deviceArea(state().ctm.apply(r), state().clip, width_, height_);
    if (area.isEmpty()) return;
    std::vector<float> pixels(std::size_t(area.w * area.h * 4));
    const double bottom = double(height_ - area.row - area.h);
    ci::Context::shared()->render(placed, pixels.data(), area.w * 16,
                                  Rect(double(area.x), bottom, double(area.w), double(area.h)),
                                  ci::Format::RGBAf);
    composite(area, nullptr, 0, [&](std::int64_t j, std::int64_t i, float* s) {
        std::copy_n(pixels.data() + (i * area.w + j) * 4, 4, s);
        return true;
    });
}

void Context::drawLinearGradient(const Gradient& gradient, Point start, Point end,
                                 bool extendBefore, bool extendAfter) {
    const std::size_t n = std::min(gradient.colors.size(), gradient.locations.size());
    if (n == 0) return;
    // Stops interpolate straight components, so a transparent stop keeps its colour towards
    // its neighbours.
    std::vector<std::array<float, 4>> stops(n);
    for (std::size_t k = 0; k < n; ++k)
        deviceRGB(gradient.colors[k], stops[k].data());
    const DeviceRect area = deviceArea(Rect::infinite(), state().clip, width_, height_);
    if (area.isEmpty()) return;
    const AffineTransform toUser = state().ctm.inverted();
    const double dx = end.x - start.x, dy = end.y - start.y, len2 = dx * dx + dy * dy;
    composite(area, nullptr, 0, [&](std::int64_t j, std::int64_t i, float* s) {
        const Point device{double(area.x + j) + 0.5, double(height_ - area.row - i) - 0.5};
        const Point u = toUser.apply(device);
        double t = len2 > 0 ? ((u.x - start.x) * dx + (u.y - start.y) * dy) / len2 : 0;
        if ((t < 0 && !extendBefore) || (t > 1 && !extendAfter)) return false;
        t = std::clamp(t, 0.0, 1.0);
        std::size_t k = 0;
        while (k + 1 < n && gradient.locations[k + 1] < t)
            ++k;
        std::array<float, 4> c = stops[k];
        if (t > gradient.locations[k] && k + 1 < n) {
            const double span = gradient.locations[k + 1] - gradient.locations[k];
            const float f = span > 0 ? float((t - gradient.locations[k]) / span) : 1.0f;
            for (int q = 0; q < 4; ++q)
                c[q] = stops[k][q] + (stops[k + 1][q] - stops[k][q]) * f;
        }
        s[0] = c[0] * c[3];
        s[1] = c[1] * c[3];
        s[2] = c[2] * c[3];
        s[3] = c[3];
        return true;
    });
}

void Context::drawLinearGradient(const Gradient& gradient, const Rect& rect, double angleDegrees) {
    const Rect r = rect.standardized();
    if (r.isEmpty()) return;
    const double radians = angleDegrees * 3.14159265358979323846 / 180;
    const double dx = std::cos(radians), dy = std::sin(radians);
    double lo = 0, hi = 0;
    bool first = true;
    for (const Point corner : {Point{r.minX(), r.minY()}, Point{r.maxX(), r.minY()},
                               Point{r.minX(), r.maxY()}, Point{r.maxX(), r.maxY()}}) {
        const double along = (corner.x - r.midX()) * dx + (corner.y - r.midY()) * dy;
        lo = first ? along : std::min(lo, along);
        hi = first ? along : std::max(hi, along);
        first = false;
    }
    saveGState();
    clip(r);
    drawLinearGradient(gradient, {r.midX() + lo * dx, r.midY() + lo * dy},
                       {r.midX() + hi * dx, r.midY() + hi * dy});
    restoreGState();
}

} // namespace bic::cg
