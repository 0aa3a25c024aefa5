#pragma once
// Blend-mode arithmetic on premultiplied samples, shared by the engine's built-in blend filters
// and the library's own blend kernels.
//
// A mode supplies B(Cb, Cs) on unpremultiplied channels (backdrop, source). The result is the
// general compositing formula co = cs·(1 − αb) + cb·(1 − αs) + αs·αb·B(Cb, Cs),
// αo = αs + αb·(1 − αs); where either alpha is 0 no division happens and B drops out.

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace bic::blend {

/// The straight value of a premultiplied channel. Divided, not multiplied by a reciprocal: a
/// channel equal to its alpha must read as exactly 1, which the modes' edge rules test. A
/// channel far larger than its alpha (no valid premultiplied colour, but float documents have
/// them) is held to ±65536, so that no mode's arithmetic can reach infinity. Where the alpha is
/// 0 the result is not used.
inline float straight(float c, float a) {
    // min and max in this order let NaN through, as the plain comparisons would.
    constexpr float limit = 65536.0f;
    return std::max(std::min(c / a, limit), -limit);
}

/// background + (image − background)·t over `count` RGBA pixels: a mix, or a blend faded by an
/// opacity. `out` may be `image` itself.
inline void mixRow(const float* image, const float* background, float* out, float t,
                   std::int64_t count) {
    for (std::int64_t i = 0; i < count * 4; ++i)
        out[i] = background[i] + (image[i] - background[i]) * t;
}

/// Pixels are blended in chunks, channel by channel (structure of arrays), so that a mode's
/// arithmetic over a chunk is a plain loop the compiler turns into vector instructions.
inline constexpr int kBlendChunk = 64;

struct ChannelPlanes {
    alignas(16) float r[kBlendChunk];
    alignas(16) float g[kBlendChunk];
    alignas(16) float b[kBlendChunk];
};

/// The general compositing formula over `count` premultiplied pixels:
/// co = cs·(1 − αb) + cb·(1 − αs) + αs·αb·B(Cb, Cs), αo = αs + αb·(1 − αs).
/// `blend(backdrop, source, mixed, n)` fills B for the first n pixels of a chunk from straight
/// colours; its values where either alpha is 0 are ignored.
template <class Blend>
inline void compositeRow(const float* fg, const float* bg, float* out, std::int64_t count,
                         Blend&& blend) {
    // Every step is a loop over one plane at a time; only the first and the last move between
    // interleaved pixels and planes.
    ChannelPlanes fp, bp, source, backdrop, mixed;
    alignas(16) float as[kBlendChunk], ab[kBlendChunk];
    for (std::int64_t start = 0; start < count; start += kBlendChunk) {
        const int n = int(std::min<std::int64_t>(kBlendChunk, count - start));
        const float* f = fg + start * 4;
        const float* b = bg + start * 4;
        float* o = out + start * 4;
        for (int j = 0; j < n; ++j) {
            fp.r[j] = f[4 * j], fp.g[j] = f[4 * j + 1], fp.b[j] = f[4 * j + 2];
            as[j] = f[4 * j + 3];
        }
        for (int j = 0; j < n; ++j) {
            bp.r[j] = b[4 * j], bp.g[j] = b[4 * j + 1], bp.b[j] = b[4 * j + 2];
            ab[j] = b[4 * j + 3];
        }
        for (int j = 0; j < n; ++j) {
            source.r[j] = straight(fp.r[j], as[j]);
            source.g[j] = straight(fp.g[j], as[j]);
            source.b[j] = straight(fp.b[j], as[j]);
            backdrop.r[j] = straight(bp.r[j], ab[j]);
            backdrop.g[j] = straight(bp.g[j], ab[j]);
            backdrop.b[j] = straight(bp.b[j], ab[j]);
        }
        blend(backdrop, source, mixed, n);
        for (int j = 0; j < n; ++j) {
            const float both = as[j] * ab[j];
            const float ks = 1 - ab[j], kb = 1 - as[j];
            const bool blended = both > 0;
            fp.r[j] = fp.r[j] * ks + bp.r[j] * kb + (blended ? both * mixed.r[j] : 0.0f);
            fp.g[j] = fp.g[j] * ks + bp.g[j] * kb + (blended ? both * mixed.g[j] : 0.0f);
            fp.b[j] = fp.b[j] * ks + bp.b[j] * kb + (blended ? both * mixed.b[j] : 0.0f);
            ab[j] = as[j] + ab[j] * kb;
        }
        for (int j = 0; j < n; ++j) {
            o[4 * j] = fp.r[j], o[4 * j + 1] = fp.g[j], o[4 * j + 2] = fp.b[j];
            o[4 * j + 3] = ab[j];
        }
    }
}

/// One separable mode's B(Cb, Cs) for a channel.
template <class Mode>
concept SeparableMode = requires(float b, float s) {
    { Mode::apply(b, s) } -> std::convertible_to<float>;
};

/// Blends `count` premultiplied RGBA pixels of `fg` over `bg` into `out` with a separable mode.
template <SeparableMode Mode>
inline void separableRow(const float* fg, const float* bg, float* out, std::int64_t count) {
    compositeRow(fg, bg, out, count,
                 [](const ChannelPlanes& b, const ChannelPlanes& s, ChannelPlanes& m, int n) {
                     for (int j = 0; j < n; ++j) {
                         m.r[j] = Mode::apply(b.r[j], s.r[j]);
                         m.g[j] = Mode::apply(b.g[j], s.g[j]);
                         m.b[j] = Mode::apply(b.b[j], s.b[j]);
                     }
                 });
}

struct Normal {
    static float apply(float, float s) { return s; }
};
struct Darken {
    static float apply(float b, float s) { return std::min(b, s); }
};
struct Multiply {
    static float apply(float b, float s) { return b * s; }
};
struct Lighten {
    static float apply(float b, float s) { return std::max(b, s); }
};
struct Screen {
    static float apply(float b, float s) { return b + s - b * s; }
};
struct HardLight {
    static float apply(float b, float s) {
        return s <= 0.5f ? 2 * s * b : 1 - 2 * (1 - s) * (1 - b);
    }
};
struct Overlay {
    static float apply(float b, float s) { return HardLight::apply(s, b); }
};
/// The W3C soft light, whose dark-backdrop arm follows a cubic rather than the square root.
struct SoftLight {
    // Both arms are computed and one chosen, so that a chunk of pixels runs without branches
    // (the square root of a backdrop below ¼ is computed but not used).
    static float apply(float b, float s) {
        const float dark = b - (1 - 2 * s) * b * (1 - b);
        const float d = b <= 0.25f ? ((16 * b - 12) * b + 4) * b : std::sqrt(b);
        return s <= 0.5f ? dark : b + (2 * s - 1) * (d - b);
    }
};
struct Difference {
    static float apply(float b, float s) { return std::fabs(b - s); }
};
struct Exclusion {
    static float apply(float b, float s) { return b + s - 2 * b * s; }
};

} // namespace bic::blend
