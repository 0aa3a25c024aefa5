#include "operation_kernels.hpp"

#include "bic/platform/core/pixel_math.hpp"
#include "bic/platform/core/vector_clones.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#include <xmmintrin.h>
#endif

namespace bic {

namespace {

float luminosity(const float* p) {
    const float a = p[3];
    if (a <= 0) return 0;
    return luma(p[0], p[1], p[2]) / a;
}

void grey(float* out, float v) {
    out[0] = out[1] = out[2] = v;
    out[3] = 1;
}

// (image, level): white where the value reaches the level, black elsewhere.
void thresholdRow(const ci::KernelRow& row) {
    const float level = float(row.number(0));
    const float* in = row.samples[0];
    for (std::int64_t i = 0; i < row.count * 4; i += 4)
        grey(row.out + i, luminosity(in + i) >= level ? 1.0f : 0.0f);
}

// (image, other, mask): image × (1 − m) + other × m on premultiplied samples, m the mask's red.
void mixWithMaskRow(const ci::KernelRow& row) {
    const float *a = row.samples[0], *b = row.samples[1], *m = row.samples[2];
    for (std::int64_t i = 0; i < row.count * 4; i += 4) {
        const float t = std::clamp(m[i], 0.0f, 1.0f);
        for (int c = 0; c < 4; ++c)
            row.out[i + c] = a[i + c] * (1 - t) + b[i + c] * t;
    }
}

// (image, colour): the largest difference of any unpremultiplied channel, alpha included.
void maxChannelDistanceRow(const ci::KernelRow& row) {
    const ci::Color& c = row.color(0);
    const float ref[4] = {float(c.red), float(c.green), float(c.blue), float(c.alpha)};
    const float* in = row.samples[0];
    for (std::int64_t i = 0; i < row.count * 4; i += 4) {
        const float a = in[i + 3];
        float d = std::fabs(a - ref[3]);
        for (int k = 0; k < 3; ++k)
            d = std::max(d, std::fabs(unpremultiplied(in[i + k], a) - ref[k]));
        grey(row.out + i, d);
    }
}

// A curve of 32-bit floats, read at v·(n − 1) with linear interpolation; an empty curve keeps
// the value.
float onCurve(const std::vector<std::uint8_t>& curve, float v) {
    const std::size_t n = curve.size() / sizeof(float);
    if (n == 0) return v;
    auto at = [&](std::size_t i) {
        float f;
        std::memcpy(&f, curve.data() + i * sizeof(float), sizeof f);
        return f;
    };
    const float x = std::clamp(v, 0.0f, 1.0f) * float(n - 1);
    const auto i = std::min(std::size_t(x), n - 1);
    const float t = x - float(i);
    return i + 1 < n ? at(i) + (at(i + 1) - at(i)) * t : at(i);
}

// (image, red curve, green curve, blue curve) on unpremultiplied colour; alpha is kept.
void colorMapRow(const ci::KernelRow& row) {
    const float* in = row.samples[0];
    for (std::int64_t i = 0; i < row.count * 4; i += 4) {
        const float a = in[i + 3];
        for (int c = 0; c < 3; ++c) {
            const float v = unpremultiplied(in[i + c], a);
            row.out[i + c] = onCurve(row.data(std::size_t(c)), v) * a;
        }
        row.out[i + 3] = a;
    }
}

// (image, table of straight RGBA float entries): the value picks a place in the table,
// interpolated between neighbouring entries; the entry's alpha scales the pixel's. The image is
// read saturated (straight colour and alpha clamped to 0…1), so callers need no clamp of their
// own before it.
BIC_VECTOR_CLONES void gradientMapRow(const ci::KernelRow& row) {
    const std::vector<std::uint8_t>& bytes = row.data(0);
    const std::size_t entries = bytes.size() / (4 * sizeof(float));
    if (entries == 0) {
        std::fill(row.out, row.out + row.count * 4, 0.0f);
        return;
    }
    const float last = float(entries - 1);
    const float* in = row.samples[0];
    // Where each pixel falls in the table (entry and fraction) and its clamped alpha, a loop
    // the compiler vectorises; then the entries looked up one by one.
    constexpr std::int64_t kChunk = 64;
    std::uint32_t index[kChunk];
    float fraction[kChunk], alphas[kChunk];
    for (std::int64_t start = 0; start < row.count; start += kChunk) {
        const std::int64_t n = std::min(kChunk, row.count - start);
        const float* p = in + start * 4;
        // Clamped as the vector minimum and maximum would: NaN becomes 0.
        auto clamp = [](float v) { return std::min(1.0f, std::max(0.0f, v)); };
        for (std::int64_t j = 0; j < n; ++j) {
            const float a = p[4 * j + 3];
            const float k = unpremultiplyScale(a);
            const float value = kLumaRed * clamp(p[4 * j] * k) +
                                kLumaGreen * clamp(p[4 * j + 1] * k) +
                                kLumaBlue * clamp(p[4 * j + 2] * k);
            const float x = clamp(value) * last;
            const auto whole = std::int32_t(x);
            index[j] = std::uint32_t(whole);
            fraction[j] = x - float(whole);
            alphas[j] = clamp(a);
        }
        for (std::int64_t j = 0; j < n; ++j) {
            // This entry and the next (the last entry again at the end).
            const std::uint8_t* lo = bytes.data() + std::size_t(index[j]) * 16;
            const std::uint8_t* hi =
                bytes.data() + std::min<std::size_t>(index[j] + 1, entries - 1) * 16;
            float* o = row.out + (start + j) * 4;
#if defined(__SSE2__)
            const __m128 e0 = _mm_loadu_ps(reinterpret_cast<const float*>(lo));
            const __m128 e1 = _mm_loadu_ps(reinterpret_cast<const float*>(hi));
            const __m128 c =
                _mm_add_ps(e0, _mm_mul_ps(_mm_sub_ps(e1, e0), _mm_set1_ps(fraction[j])));
            const __m128 alpha =
                _mm_mul_ps(_mm_shuffle_ps(c, c, _MM_SHUFFLE(3, 3, 3, 3)), _mm_set1_ps(alphas[j]));
            _mm_storeu_ps(o, _mm_mul_ps(c, alpha));
            o[3] = _mm_cvtss_f32(alpha);
#else
            float e[8];
            std::memcpy(e, lo, 16);
            std::memcpy(e + 4, hi, 16);
            const float t = fraction[j];
            const float alpha = (e[3] + (e[7] - e[3]) * t) * alphas[j];
            for (int c = 0; c < 3; ++c)
                o[c] = (e[c] + (e[4 + c] - e[c]) * t) * alpha;
            o[3] = alpha;
#endif
        }
    }
}

// (height image): the unit normal of the height field (x, y, 1 / 2 scaled by central
// differences), stored as (nx, ny, nz, 1).
void surfaceNormalsRow(const ci::GeneralKernelRow& row) {
    const ci::Sampler& s = row.samplers[0];
    for (std::int64_t i = 0; i < row.count; ++i) {
        const std::int64_t x = row.x + i, y = row.y;
        const float dx = (luminosity(s.at(x + 1, y)) - luminosity(s.at(x - 1, y))) / 2;
        const float dy = (luminosity(s.at(x, y + 1)) - luminosity(s.at(x, y - 1))) / 2;
        const float length = std::sqrt(dx * dx + dy * dy + 1);
        float* out = row.out + 4 * i;
        out[0] = -dx / length;
        out[1] = -dy / length;
        out[2] = 1 / length;
        out[3] = 1;
    }
}

// (image, vector of three): the dot product of the colour's channels with the vector, as grey.
void dotProductRow(const ci::KernelRow& row) {
    const std::vector<double>& v = row.vector(0);
    const float vx = float(v[0]), vy = float(v[1]), vz = float(v[2]);
    const float* in = row.samples[0];
    for (std::int64_t i = 0; i < row.count * 4; i += 4)
        grey(row.out + i, in[i] * vx + in[i + 1] * vy + in[i + 2] * vz);
}

// (image): the Sobel gradient magnitude of the value, a unit step giving 1 (clamped to 1).
void sobelRow(const ci::GeneralKernelRow& row) {
    const ci::Sampler& s = row.samplers[0];
    for (std::int64_t i = 0; i < row.count; ++i) {
        const std::int64_t x = row.x + i, y = row.y;
        float v[3][3];
        for (int j = -1; j <= 1; ++j)
            for (int k = -1; k <= 1; ++k)
                v[j + 1][k + 1] = luminosity(s.at(x + k, y + j));
        const float gx = (v[0][2] + 2 * v[1][2] + v[2][2]) - (v[0][0] + 2 * v[1][0] + v[2][0]);
        const float gy = (v[2][0] + 2 * v[2][1] + v[2][2]) - (v[0][0] + 2 * v[0][1] + v[0][2]);
        grey(row.out + 4 * i, std::min(1.0f, std::sqrt(gx * gx + gy * gy) / 4));
    }
}

// (height image, unit light vector): max(0, n · light) as grey, carried by the pixel's alpha.
void bevelRow(const ci::GeneralKernelRow& row) {
    const ci::Sampler& s = row.samplers[0];
    const std::vector<double>& light = std::get<std::vector<double>>((*row.values)[0]);
    const float lx = float(light[0]), ly = float(light[1]), lz = float(light[2]);
    for (std::int64_t i = 0; i < row.count; ++i) {
        const std::int64_t x = row.x + i, y = row.y;
        const float dx = (luminosity(s.at(x + 1, y)) - luminosity(s.at(x - 1, y))) / 2;
        const float dy = (luminosity(s.at(x, y + 1)) - luminosity(s.at(x, y - 1))) / 2;
        const float shade =
            std::max(0.0f, (-dx * lx - dy * ly + lz) / std::sqrt(dx * dx + dy * dy + 1));
        const float alpha = s.at(x, y)[3];
        float* out = row.out + 4 * i;
        out[0] = out[1] = out[2] = shade * alpha;
        out[3] = alpha;
    }
}

// (image, [a0, g red, g green, g blue]): the custom gamma per channel of unpremultiplied colour.
template <bool Inverse>
void customGammaRow(const ci::KernelRow& row) {
    const std::vector<double>& p = row.vector(0);
    const float a0 = float(p[0]);
    float s[3], a[3], g[3];
    for (int c = 0; c < 3; ++c) {
        g[c] = float(p[std::size_t(c) + 1]);
        s[c] = g[c] / (a0 * (g[c] - 1) + std::pow(a0, 1 - g[c]));
        a[c] = 1 / ((g[c] - 1) * std::pow(a0, g[c]) + 1) - 1;
    }
    const float* in = row.samples[0];
    for (std::int64_t i = 0; i < row.count * 4; i += 4) {
        const float alpha = in[i + 3];
        for (int c = 0; c < 3; ++c) {
            const float x = unpremultiplied(in[i + c], alpha);
            float y;
            if (!Inverse)
                y = x <= a0 ? s[c] * x : (1 + a[c]) * std::pow(x, g[c]) - a[c];
            else
                y = x <= a0 * s[c] ? x / s[c] : std::pow((x + a[c]) / (1 + a[c]), 1 / g[c]);
            row.out[i + c] = y * alpha;
        }
        row.out[i + 3] = alpha;
    }
}

// (image, noise, levels) on straight colour; alpha kept.
// Channel by channel over chunks of pixels, so that the rounding vectorises.
BIC_VECTOR_CLONES void roundToEightBitRow(const ci::KernelRow& row) {
    constexpr std::int64_t kChunk = 64;
    alignas(32) float planes[4][kChunk];
    for (std::int64_t start = 0; start < row.count; start += kChunk) {
        const std::int64_t n = std::min(kChunk, row.count - start);
        const float* in = row.samples[0] + 4 * start;
        float* out = row.out + 4 * start;
        for (std::int64_t j = 0; j < n; ++j)
            for (int c = 0; c < 4; ++c)
                planes[c][j] = in[4 * j + c];
        for (std::int64_t j = 0; j < n; ++j) {
            // NaN alpha reads as 0, and a pixel whose alpha rounds to 0 is all zeros.
            const float alpha = planes[3][j];
            const float a =
                std::floor(std::min(1.0f, std::max(0.0f, alpha)) * 255.0f + 0.5f) / 255.0f;
            // Straight colour through one reciprocal a pixel, not a division per channel: the
            // level is rounded, so the reciprocal's last place cannot move it (a level's value
            // lies half a level from any rounding edge).
            const float inverse = 1.0f / (alpha > 0 ? alpha : 1.0f); // used only where a > 0
            for (int c = 0; c < 3; ++c) {
                const float straight = std::clamp(planes[c][j] * inverse, 0.0f, 1.0f);
                planes[c][j] = a > 0 ? std::floor(straight * 255.0f + 0.5f) / 255.0f * a : 0.0f;
            }
            planes[3][j] = a;
        }
        for (std::int64_t j = 0; j < n; ++j)
            for (int c = 0; c < 4; ++c)
                out[4 * j + c] = planes[c][j];
    }
}

void ditherRow(const ci::KernelRow& row) {
    const float levels = std::max(2.0f, float(row.number(0))) - 1;
    const float* in = row.samples[0];
    const float* noise = row.samples[1];
    for (std::int64_t i = 0; i < row.count * 4; i += 4) {
        const float a = in[i + 3];
        const float n = std::min(noise[i], 0.999999f);
        for (int c = 0; c < 3; ++c) {
            const float v = std::clamp(unpremultiplied(in[i + c], a), 0.0f, 1.0f);
            row.out[i + c] = std::min(levels, std::floor(v * levels + n)) / levels * a;
        }
        row.out[i + 3] = a;
    }
}

// (mask): 0 on the mask's white pixels (red ≥ 0.5), the distances are measured to them; a
// distance larger than any image elsewhere.
void prepareDTRow(const ci::KernelRow& row) {
    const float* in = row.samples[0];
    for (std::int64_t i = 0; i < row.count * 4; i += 4)
        grey(row.out + i, in[i] >= 0.5f ? 0.0f : 1e20f);
}

} // namespace

} // namespace bic

namespace bic::kernels {

namespace {
cg::Rect grownByOne(int, const cg::Rect& r) { return r.insetBy(-1, -1); }
} // namespace

std::optional<ci::Image> roundedToEightBit(const ci::Image& image) {
    static const ci::ColorKernel kernel("roundToEightBit", roundToEightBitRow);
    return kernel.apply(image.extent(), {image});
}

std::optional<ci::Image> threshold(const ci::Image& image, double level) {
    static const ci::ColorKernel kernel("threshold", thresholdRow);
    return kernel.apply(image.extent(), {image, level});
}

std::optional<ci::Image> mixWithMask(const ci::Image& image, const ci::Image& other,
                                     const ci::Image& mask) {
    static const ci::ColorKernel kernel("mixWithMask", mixWithMaskRow);
    return kernel.apply(image.extent().unionWith(other.extent()), {image, other, mask});
}

std::optional<ci::Image> maxChannelDistance(const ci::Image& image, const ci::Color& color) {
    static const ci::ColorKernel kernel("maxChannelDistance", maxChannelDistanceRow);
    return kernel.apply(image.extent(), {image, color});
}

std::optional<ci::Image> colorMap(const ci::Image& image, std::vector<std::uint8_t> red,
                                  std::vector<std::uint8_t> green, std::vector<std::uint8_t> blue) {
    static const ci::ColorKernel kernel("colorMap_aa", colorMapRow);
    return kernel.apply(image.extent(), {image, std::move(red), std::move(green), std::move(blue)});
}

std::optional<ci::Image> gradientMap(const ci::Image& image, std::vector<std::uint8_t> table) {
    static const ci::ColorKernel kernel("gradientMap_aa", gradientMapRow);
    return kernel.apply(image.extent(), {image, std::move(table)});
}

std::optional<ci::Image> dotProduct(const ci::Image& image, std::vector<double> vector) {
    static const ci::ColorKernel kernel("dotProduct", dotProductRow);
    return kernel.apply(image.extent(), {image, std::move(vector)});
}

std::optional<ci::Image> surfaceNormals(const ci::Image& image) {
    static const ci::GeneralKernel kernel("surfaceNormals", surfaceNormalsRow);
    return kernel.apply(image.extent(), grownByOne, {image});
}

std::optional<ci::Image> sobel(const ci::Image& image) {
    static const ci::GeneralKernel kernel("sobel", sobelRow);
    return kernel.apply(image.extent(), grownByOne, {image});
}

std::optional<ci::Image> bevel(const ci::Image& image, std::vector<double> light) {
    static const ci::GeneralKernel kernel("bevel", bevelRow);
    return kernel.apply(image.extent(), grownByOne, {image, std::move(light)});
}

std::optional<ci::Image> customGamma(const ci::Image& image, std::vector<double> parameters,
                                     bool inverse) {
    static const ci::ColorKernel forward("customGamma", customGammaRow<false>);
    static const ci::ColorKernel backward("customGammaInversed", customGammaRow<true>);
    return (inverse ? backward : forward).apply(image.extent(), {image, std::move(parameters)});
}

std::optional<ci::Image> dither(const ci::Image& image, const ci::Image& noise, double levels) {
    static const ci::ColorKernel kernel("dither", ditherRow);
    return kernel.apply(image.extent(), {image, noise, levels});
}

std::optional<ci::Image> prepareDT(const ci::Image& mask, const cg::Rect& extent) {
    static const ci::ColorKernel kernel("prepareDT", prepareDTRow);
    return kernel.apply(extent, {mask});
}

} // namespace bic::kernels
