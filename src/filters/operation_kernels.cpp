#include "operation_kernels.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace bic {

namespace {

float luminosity(const float* p) {
    const float a = p[3];
    if (a <= 0) return 0;
    return (0.30f * p[0] + 0.59f * p[1] + 0.11f * p[2]) / a;
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
            d = std::max(d, std::fabs((a > 0 ? in[i + k] / a : 0.0f) - ref[k]));
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
            const float v = a > 0 ? in[i + c] / a : 0.0f;
            row.out[i + c] = onCurve(row.data(std::size_t(c)), v) * a;
        }
        row.out[i + 3] = a;
    }
}

// (image, table of 256 straight RGBA float entries): the value picks a place in the table,
// interpolated between neighbouring entries; the entry's alpha scales the pixel's.
void gradientMapRow(const ci::KernelRow& row) {
    const std::vector<std::uint8_t>& table = row.data(0);
    const std::size_t entries = table.size() / (4 * sizeof(float));
    const float* in = row.samples[0];
    auto entry = [&](std::size_t k, int c) {
        float f;
        std::memcpy(&f, table.data() + (k * 4 + std::size_t(c)) * sizeof(float), sizeof f);
        return f;
    };
    for (std::int64_t i = 0; i < row.count * 4; i += 4) {
        if (entries == 0) {
            std::fill(row.out + i, row.out + i + 4, 0.0f);
            continue;
        }
        const float x = std::clamp(luminosity(in + i), 0.0f, 1.0f) * float(entries - 1);
        const auto k = std::min(std::size_t(x), entries - 1);
        const std::size_t next = std::min(k + 1, entries - 1);
        const float t = x - float(k);
        float rgba[4];
        for (int c = 0; c < 4; ++c)
            rgba[c] = entry(k, c) + (entry(next, c) - entry(k, c)) * t;
        const float alpha = rgba[3] * in[i + 3];
        for (int c = 0; c < 3; ++c)
            row.out[i + c] = rgba[c] * alpha;
        row.out[i + 3] = alpha;
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
            const float x = alpha > 0 ? in[i + c] / alpha : 0.0f;
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
void ditherRow(const ci::KernelRow& row) {
    const float levels = std::max(2.0f, float(row.number(0))) - 1;
    const float* in = row.samples[0];
    const float* noise = row.samples[1];
    for (std::int64_t i = 0; i < row.count * 4; i += 4) {
        const float a = in[i + 3];
        const float n = std::min(noise[i], 0.999999f);
        for (int c = 0; c < 3; ++c) {
            const float v = a > 0 ? std::clamp(in[i + c] / a, 0.0f, 1.0f) : 0.0f;
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

void addOperationKernels(ci::KernelLibrary& library) {
    library.addColorKernel("threshold", thresholdRow);
    library.addColorKernel("mixWithMask", mixWithMaskRow);
    library.addColorKernel("maxChannelDistance", maxChannelDistanceRow);
    library.addColorKernel("colorMap_aa", colorMapRow);
    library.addColorKernel("gradientMap_aa", gradientMapRow);
    library.addColorKernel("dotProduct", dotProductRow);
    library.addGeneralKernel("surfaceNormals", surfaceNormalsRow);
    library.addGeneralKernel("sobel", sobelRow);
    library.addGeneralKernel("bevel", bevelRow);
    library.addColorKernel("customGamma", customGammaRow<false>);
    library.addColorKernel("customGammaInversed", customGammaRow<true>);
    library.addColorKernel("dither", ditherRow);
    library.addColorKernel("prepareDT", prepareDTRow);
}

} // namespace bic
