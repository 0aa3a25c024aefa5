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
/// them) is held to ±65536, so that no mode's arithmetic can reach infinity.
inline float straight(float c, float a) {
    constexpr float limit = 65536.0f;
    return std::clamp(c / a, -limit, limit);
}

/// One separable mode's B(Cb, Cs) for a channel.
template <class Mode>
concept SeparableMode = requires(float b, float s) {
    { Mode::apply(b, s) } -> std::convertible_to<float>;
};

/// Blends `count` premultiplied RGBA pixels of `fg` over `bg` into `out` with a separable mode.
template <SeparableMode Mode>
inline void separableRow(const float* fg, const float* bg, float* out, std::int64_t count) {
    for (std::int64_t i = 0; i < count * 4; i += 4) {
        const float as = fg[i + 3], ab = bg[i + 3];
        const float both = as * ab;
        for (int c = 0; c < 3; ++c) {
            const float cs = fg[i + c], cb = bg[i + c];
            const float mixed =
                both > 0 ? both * Mode::apply(straight(cb, ab), straight(cs, as)) : 0.0f;
            out[i + c] = cs * (1 - ab) + cb * (1 - as) + mixed;
        }
        out[i + 3] = as + ab * (1 - as);
    }
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
    static float apply(float b, float s) {
        if (s <= 0.5f) return b - (1 - 2 * s) * b * (1 - b);
        const float d = b <= 0.25f ? ((16 * b - 12) * b + 4) * b : std::sqrt(b);
        return b + (2 * s - 1) * (d - b);
    }
};
struct Difference {
    static float apply(float b, float s) { return std::fabs(b - s); }
};
struct Exclusion {
    static float apply(float b, float s) { return b + s - 2 * b * s; }
};

} // namespace bic::blend
