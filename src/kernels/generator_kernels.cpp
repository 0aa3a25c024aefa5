#include "generator_kernels.hpp"

#include "bic/platform/core/vector_clones.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace bic {

namespace {

// Hue position 0…6 (sectors of 60°), saturation and value to RGB.
void hsv(float position, float s, float v, float* rgb) {
    position = std::fmod(position, 6.0f);
    if (position < 0) position += 6;
    auto channel = [&](float n) {
        const float k = std::fmod(n + position, 6.0f);
        return v - v * s * std::clamp(std::min(k, 4 - k), 0.0f, 1.0f);
    };
    rgb[0] = channel(5);
    rgb[1] = channel(3);
    rgb[2] = channel(1);
}

void put(float* out, const float* rgb, float alpha) {
    for (int c = 0; c < 3; ++c)
        out[c] = rgb[c] * alpha;
    out[3] = alpha;
}

// One pixel of coverage falloff at a disc's rim.
float discCoverage(float distance, float radius) {
    return std::clamp(radius - distance + 0.5f, 0.0f, 1.0f);
}

template <class F>
void eachPixel(const ci::KernelRow& row, F&& f) {
    for (std::int64_t i = 0; i < row.count; ++i) {
        const cg::Point p = row.position(i);
        f(float(p.x), float(p.y), row.out + 4 * i);
    }
}

constexpr float kSectorsPerRadian = 3 / std::numbers::pi_v<float>;

// (radius, centre)
void hueWheelRow(const ci::KernelRow& row) {
    const float r = float(row.number(0));
    const auto& c = row.vector(1);
    eachPixel(row, [&](float x, float y, float* out) {
        const float dx = x - float(c[0]), dy = y - float(c[1]);
        float rgb[3];
        hsv(std::atan2(dy, dx) * kSectorsPerRadian, 1, 1, rgb);
        put(out, rgb, discCoverage(std::hypot(dx, dy), r));
    });
}

// (value, radius, centre)
void colorWheelRow(const ci::KernelRow& row) {
    const float v = float(row.number(0)), r = float(row.number(1));
    const auto& c = row.vector(2);
    eachPixel(row, [&](float x, float y, float* out) {
        const float dx = x - float(c[0]), dy = y - float(c[1]);
        const float d = std::hypot(dx, dy);
        float rgb[3];
        hsv(std::atan2(dy, dx) * kSectorsPerRadian, r > 0 ? std::min(1.0f, d / r) : 0, v, rgb);
        put(out, rgb, discCoverage(d, r));
    });
}

// (hue position, rect): saturation along x, value along y of the rectangle.
void saturationValuePanelRow(const ci::KernelRow& row) {
    const float h = float(row.number(0));
    const auto& rect = row.vector(1);
    eachPixel(row, [&](float x, float y, float* out) {
        const float s = std::clamp((x - float(rect[0])) / float(rect[2]), 0.0f, 1.0f);
        const float v = std::clamp((y - float(rect[1])) / float(rect[3]), 0.0f, 1.0f);
        float rgb[3];
        hsv(h, s, v, rgb);
        put(out, rgb, 1);
    });
}

// (hue position, centre, radius): barycentric mix of hue (0°), white (120°) and black (240°).
void triangularPanelRow(const ci::KernelRow& row) {
    const float h = float(row.number(0));
    const auto& c = row.vector(1);
    const float r = float(row.number(2));
    const float cx = float(c[0]), cy = float(c[1]), half = r * 0.866025403784439f;
    const float ax = cx + r, ay = cy;            // hue
    const float bx = cx - r / 2, by = cy + half; // white
    const float qx = cx - r / 2, qy = cy - half; // black
    const float area = (bx - ax) * (qy - ay) - (qx - ax) * (by - ay);
    const float side = r * 1.7320508f;
    float hue[3];
    hsv(h, 1, 1, hue);
    eachPixel(row, [&](float x, float y, float* out) {
        float wa = ((bx - x) * (qy - y) - (qx - x) * (by - y)) / area;
        float wb = ((qx - x) * (ay - y) - (ax - x) * (qy - y)) / area;
        float wq = 1 - wa - wb;
        // A weight is the distance to the opposite side over the triangle's height.
        const float height = side * 0.866025403784439f;
        const float edge = std::min({wa, wb, wq}) * height;
        const float alpha = std::clamp(edge + 0.5f, 0.0f, 1.0f);
        wa = std::max(wa, 0.0f);
        wb = std::max(wb, 0.0f);
        wq = std::max(wq, 0.0f);
        const float sum = wa + wb + wq;
        float rgb[3];
        for (int k = 0; k < 3; ++k)
            rgb[k] = (wa * hue[k] + wb) / sum;
        put(out, rgb, alpha);
    });
}

// (rect): hue along x; black → hue → white from bottom to top.
void colorSpectrumRow(const ci::KernelRow& row) {
    const auto& rect = row.vector(0);
    eachPixel(row, [&](float x, float y, float* out) {
        const float u = std::clamp((x - float(rect[0])) / float(rect[2]), 0.0f, 1.0f);
        const float v = std::clamp((y - float(rect[1])) / float(rect[3]), 0.0f, 1.0f);
        float rgb[3];
        if (v <= 0.5f)
            hsv(u * 6, 1, v * 2, rgb);
        else
            hsv(u * 6, 2 - v * 2, 1, rgb);
        put(out, rgb, 1);
    });
}

// ---- Gradient ramps: grey levels 0…1, opaque, evaluated at pixel centres in double precision
// so that large canvases keep their ramps smooth.

// Pixels are taken in chunks: their positions first, then the levels, then the pixels, each a
// plain loop the compiler vectorises (positions are computed as KernelRow::position does).
template <class F>
void rampRow(const ci::KernelRow& row, F&& level) {
    constexpr std::int64_t kChunk = 64;
    alignas(32) double xs[kChunk], ys[kChunk], levels[kChunk];
    const double cy = double(row.y) + 0.5;
    for (std::int64_t start = 0; start < row.count; start += kChunk) {
        const int n = int(std::min(kChunk, row.count - start));
        // Whole numbers and halves are exact in doubles: x + ½ + j is the centre's x.
        const double x0 = double(row.x + start) + 0.5;
        if (const cg::AffineTransform* t = row.place) {
            for (int j = 0; j < n; ++j) {
                const double cx = x0 + double(j);
                xs[j] = t->a * cx + t->c * cy + t->tx;
                ys[j] = t->b * cx + t->d * cy + t->ty;
            }
        } else {
            for (int j = 0; j < n; ++j) {
                xs[j] = x0 + double(j);
                ys[j] = cy;
            }
        }
        for (int j = 0; j < n; ++j)
            levels[j] = std::clamp(level(xs[j], ys[j]), 0.0, 1.0);
        float* out = row.out + 4 * start;
        for (int j = 0; j < n; ++j) {
            const auto v = float(levels[j]);
            out[4 * j] = out[4 * j + 1] = out[4 * j + 2] = v;
            out[4 * j + 3] = 1;
        }
    }
}

// The angle of (x, y) counter-clockwise from +x as a fraction of a turn, 0…1. Computed here
// rather than by the C library's atan2 so that a row of them vectorises: the ratio of the
// smaller to the larger coordinate is moved to within tan(π/16) of 0 by subtracting the
// nearest of the angles 0, π/8 and π/4, where eight terms of the arctangent's series leave
// an error below 3·10⁻¹⁵ radians, far under a float's resolution of the result.
inline double turnOf(double x, double y) {
    constexpr double pi = std::numbers::pi;
    const double ax = std::abs(x), ay = std::abs(y);
    const double hi = std::max(ax, ay), lo = std::min(ax, ay);
    constexpr double tan1 = 0.19891236737965800691;      // tan(π/16)
    constexpr double tan3 = 0.66817863791929891999;      // tan(3π/16)
    constexpr double tanEighth = 0.41421356237309504880; // tan(π/8)
    // With t = lo / hi, u = (t − c) / (1 + t·c), in one division.
    const double c = lo <= tan1 * hi ? 0.0 : (lo <= tan3 * hi ? tanEighth : 1.0);
    const double base = lo <= tan1 * hi ? 0.0 : (lo <= tan3 * hi ? pi / 8 : pi / 4);
    const double u = hi > 0 ? (lo - c * hi) / (hi + c * lo) : 0.0, w = u * u;
    const double series =
        1 +
        w * (-1.0 / 3 +
             w * (1.0 / 5 +
                  w * (-1.0 / 7 +
                       w * (1.0 / 9 +
                            w * (-1.0 / 11 + w * (1.0 / 13 + w * (-1.0 / 15 + w * (1.0 / 17))))))));
    double a = base + u * series; // 0…π/4
    a = ay > ax ? pi / 2 - a : a; // 0…π/2
    a = x < 0 ? pi - a : a;       // 0…π
    a = y < 0 ? 2 * pi - a : a;   // 0…2π
    a = a >= 2 * pi ? a - 2 * pi : a;
    return a / (2 * pi);
}

// No arguments: the angle counter-clockwise from +x as a fraction of a turn.
BIC_VECTOR_CLONES void angleGradientRow(const ci::KernelRow& row) {
    rampRow(row, [](double x, double y) { return turnOf(x, y); });
}

// (point 0, point 1): the distance along the axis from point 0, either way.
BIC_VECTOR_CLONES void reflectedGradientRow(const ci::KernelRow& row) {
    const auto &p0 = row.vector(0), &p1 = row.vector(1);
    const double dx = p1[0] - p0[0], dy = p1[1] - p0[1], len2 = dx * dx + dy * dy;
    rampRow(row, [&](double x, double y) {
        return len2 > 0 ? std::abs((x - p0[0]) * dx + (y - p0[1]) * dy) / len2 : 1.0;
    });
}

// (centre, midpoint of a side): the larger of the distances along the two axes of the square.
BIC_VECTOR_CLONES void diamondGradientRow(const ci::KernelRow& row) {
    const auto &p0 = row.vector(0), &p1 = row.vector(1);
    const double mx = p1[0] - p0[0], my = p1[1] - p0[1], len2 = mx * mx + my * my;
    rampRow(row, [&](double x, double y) {
        if (!(len2 > 0)) return 1.0;
        const double qx = x - p0[0], qy = y - p0[1];
        return std::max(std::abs(qx * mx + qy * my), std::abs(qy * mx - qx * my)) / len2;
    });
}

} // namespace

} // namespace bic

namespace bic::kernels {

namespace {
std::vector<double> vectorOf(cg::Point p) { return {p.x, p.y}; }
std::vector<double> vectorOf(const cg::Rect& r) {
    return {r.minX(), r.minY(), r.width(), r.height()};
}
} // namespace

std::optional<ci::Image> hueWheel(const cg::Rect& extent, double radius, cg::Point center) {
    static const ci::ColorKernel kernel("hueWheel", hueWheelRow);
    return kernel.apply(extent, {radius, vectorOf(center)});
}

std::optional<ci::Image> colorWheel(const cg::Rect& extent, double value, double radius,
                                    cg::Point center) {
    static const ci::ColorKernel kernel("colorWheel", colorWheelRow);
    return kernel.apply(extent, {value, radius, vectorOf(center)});
}

std::optional<ci::Image> saturationValuePanel(const cg::Rect& rect, double huePosition) {
    static const ci::ColorKernel kernel("saturationValuePanel", saturationValuePanelRow);
    return kernel.apply(rect, {huePosition, vectorOf(rect)});
}

std::optional<ci::Image> triangularSaturationValuePanel(const cg::Rect& extent, double huePosition,
                                                        cg::Point center, double radius) {
    static const ci::ColorKernel kernel("triangularSaturationValuePanel", triangularPanelRow);
    return kernel.apply(extent, {huePosition, vectorOf(center), radius});
}

std::optional<ci::Image> colorSpectrum(const cg::Rect& rect) {
    static const ci::ColorKernel kernel("colorSpectrumImage", colorSpectrumRow);
    return kernel.apply(rect, {vectorOf(rect)});
}

ci::Image angleGradient() {
    static const ci::ColorKernel kernel("angleGradient", angleGradientRow);
    return *kernel.apply(cg::Rect::infinite(), {});
}

ci::Image reflectedGradient(cg::Point point0, cg::Point point1) {
    static const ci::ColorKernel kernel("reflectedGradient", reflectedGradientRow);
    return *kernel.apply(cg::Rect::infinite(), {vectorOf(point0), vectorOf(point1)});
}

ci::Image diamondGradient(cg::Point point0, cg::Point point1) {
    static const ci::ColorKernel kernel("diamondGradient", diamondGradientRow);
    return *kernel.apply(cg::Rect::infinite(), {vectorOf(point0), vectorOf(point1)});
}

} // namespace bic::kernels
