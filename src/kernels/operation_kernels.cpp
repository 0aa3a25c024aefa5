#include "operation_kernels.hpp"

#include "bic/platform/ci/builtin_filters.hpp"
#include "bic/platform/core/pixel_math.hpp"
#include "bic/platform/core/vector_clones.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

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

// Where a pixel falls in a table of straight RGBA float entries (entry and fraction) and its
// clamped alpha: the image is read saturated (straight colour and alpha clamped to 0…1), so
// callers need no clamp of their own. `channel(j, c)` is pixel j's premultiplied channel c; a
// loop the compiler vectorises.
struct TablePlaces {
    static constexpr std::int64_t kChunk = 64;
    std::uint32_t index[kChunk];
    float fraction[kChunk], alphas[kChunk];

    template <class Channel>
    void locate(Channel&& channel, std::int64_t n, float last) {
        // Clamped as the vector minimum and maximum would: NaN becomes 0.
        auto clamp = [](float v) { return std::min(1.0f, std::max(0.0f, v)); };
        for (std::int64_t j = 0; j < n; ++j) {
            const float a = channel(j, 3);
            const float k = unpremultiplyScale(a);
            const float value = kLumaRed * clamp(channel(j, 0) * k) +
                                kLumaGreen * clamp(channel(j, 1) * k) +
                                kLumaBlue * clamp(channel(j, 2) * k);
            const float x = clamp(value) * last;
            const auto whole = std::int32_t(x);
            index[j] = std::uint32_t(whole);
            fraction[j] = x - float(whole);
            alphas[j] = clamp(a);
        }
    }

    // The entries interpolated, their alpha scaled by the pixel's, premultiplied into `out`:
    // two pixels per eight-lane vector, the colour scaled by its alpha stored before it.
    void lookUp(const std::vector<std::uint8_t>& bytes, std::int64_t n, float* out) const {
        using Quad = float __attribute__((vector_size(16)));
        using Pair = float __attribute__((vector_size(32)));
        const std::size_t entries = bytes.size() / 16;
        auto put = [&](std::int64_t j, std::int64_t step, std::size_t floats) {
            Quad lo[2], hi[2];
            for (int k = 0; k < 2; ++k) {
                const std::uint32_t at = index[j + k * step];
                std::memcpy(&lo[k], bytes.data() + std::size_t(at) * 16, 16);
                // The last entry is its own successor.
                std::memcpy(&hi[k], bytes.data() + std::min<std::size_t>(at + 1, entries - 1) * 16,
                            16);
            }
            const Pair l = __builtin_shufflevector(lo[0], lo[1], 0, 1, 2, 3, 4, 5, 6, 7);
            const Pair h = __builtin_shufflevector(hi[0], hi[1], 0, 1, 2, 3, 4, 5, 6, 7);
            const float f0 = fraction[j], f1 = fraction[j + step];
            const float a0 = alphas[j], a1 = alphas[j + step];
            const Pair c = l + (h - l) * Pair{f0, f0, f0, f0, f1, f1, f1, f1};
            const Pair alpha = __builtin_shufflevector(c, c, 3, 3, 3, 3, 7, 7, 7, 7) *
                               Pair{a0, a0, a0, a0, a1, a1, a1, a1};
            const Pair r = __builtin_shufflevector(c * alpha, alpha, 0, 1, 2, 11, 4, 5, 6, 15);
            std::memcpy(out + 4 * j, &r, sizeof(float) * floats);
        };
        std::int64_t j = 0;
        for (; j + 2 <= n; j += 2)
            put(j, 1, 8);
        if (j < n) put(j, 0, 4); // an odd pixel at the end: computed twice, half stored
    }
};

// Maps chunks of a row through the table in value 0; `locate(places, start, n)` places them.
template <class Locate>
void mapThroughTable(const ci::KernelRow& row, std::size_t table, Locate&& locate) {
    const std::vector<std::uint8_t>& bytes = row.data(table);
    const std::size_t entries = bytes.size() / (4 * sizeof(float));
    if (entries == 0) {
        std::fill(row.out, row.out + row.count * 4, 0.0f);
        return;
    }
    const float last = float(entries - 1);
    TablePlaces places;
    for (std::int64_t start = 0; start < row.count; start += TablePlaces::kChunk) {
        const std::int64_t n = std::min(TablePlaces::kChunk, row.count - start);
        locate(places, start, n, last);
        places.lookUp(bytes, n, row.out + start * 4);
    }
}

// (image, table of straight RGBA float entries): the value picks a place in the table,
// interpolated between neighbouring entries; the entry's alpha scales the pixel's.
BIC_VECTOR_CLONES void gradientMapRow(const ci::KernelRow& row) {
    mapThroughTable(row, 0,
                    [&](TablePlaces& places, std::int64_t start, std::int64_t n, float last) {
                        const float* p = row.samples[0] + start * 4;
                        places.locate([p](std::int64_t j, int c) { return p[4 * j + c]; }, n, last);
                    });
}

// ((cx, cy, r0, r1), table): the radial ramp from black to white mapped through the table, in
// one pass and to the same bits as the ramp's image mapped by gradientMapRow.
BIC_VECTOR_CLONES void radialGradientMapRow(const ci::KernelRow& row) {
    mapThroughTable(
        row, 1, [&](TablePlaces& places, std::int64_t start, std::int64_t n, float last) {
            alignas(32) float levels[TablePlaces::kChunk];
            ci::radialLevels(row, row.vector(0), start, n, levels);
            // The ramp's pixel: black + (white − black) × level, opaque.
            places.locate([&](std::int64_t j, int c) { return c == 3 ? 1.0f : levels[j]; }, n,
                          last);
        });
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

ci::Image radialGradientMap(cg::Point centre, double radius0, double radius1,
                            std::vector<std::uint8_t> table) {
    static const ci::ColorKernel kernel("radialGradientMap", radialGradientMapRow);
    return *kernel.apply(
        cg::Rect::infinite(),
        {std::vector<double>{centre.x, centre.y, radius0, radius1}, std::move(table)});
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
