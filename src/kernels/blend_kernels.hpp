#pragma once
// The library's blend kernels: the layered-document modes the engine has no filter for.
//
// Choices where published formulas disagree (each matches what the document format's own
// renderer was measured to do):
//  - Colour dodge gives 0 on a black backdrop even under a white source; colour burn gives 1 on
//    a white backdrop even under a black source.
//  - Vivid light has no backdrop guards: a source of 0 gives 0 and a source of 1 gives 1.
//  - Hard mix sets a channel when backdrop + source exceeds 1; the exact tie gives 0, except
//    that a backdrop of 1 always stays 1. Both are judged with a margin below one 16-bit level
//    (unpremultiplying leaves a few units in the last place), so samples that came from
//    integers decide as the integers would.
//  - Divide by 0 gives 0 for a black backdrop and 1 otherwise.
//  - The dividing modes clamp to 0…1 on both sides, as channels of 8 and 16 bits must: values
//    outside 0…1 of float documents then cannot run off to infinity.
//  - Darker and lighter colour compare luminosities weighted 0.30/0.59/0.11; a tie keeps the
//    backdrop.

#include "bic/platform/ci/blend_formulas.hpp"
#include "bic/platform/ci/kernel.hpp"
#include "bic/platform/core/pixel_math.hpp"
#include "bic/platform/core/vector_clones.hpp"

namespace bic::blend {

// The modes are written as selections between computed arms rather than early returns, so a
// chunk of pixels runs as vector code; divisions by 0 in an arm that is not chosen are harmless.
struct ColorBurn {
    static float apply(float b, float s) {
        const float burnt = 1 - std::min(1.0f, (1 - b) / s);
        return b >= 1 ? 1.0f : (s <= 0 ? 0.0f : burnt);
    }
};
struct LinearBurn {
    static float apply(float b, float s) { return std::max(0.0f, b + s - 1); }
};
struct ColorDodge {
    static float apply(float b, float s) {
        const float dodged = std::clamp(b / (1 - s), 0.0f, 1.0f);
        return b <= 0 ? 0.0f : (s >= 1 ? 1.0f : dodged);
    }
};
struct LinearDodge {
    static float apply(float b, float s) { return std::min(1.0f, b + s); }
};
struct VividLight {
    static float apply(float b, float s) {
        const float burn = 1 - (1 - b) / (2 * s), dodge = b / (2 * (1 - s));
        const float lit = std::clamp(s <= 0.5f ? burn : dodge, 0.0f, 1.0f);
        return s <= 0 ? 0.0f : (s >= 1 ? 1.0f : lit);
    }
};
/// Vivid light of 8-bit documents: the dodge half starts at level 128, dividing by
/// 1 − (2s − 256/255), as Linear Light and Hard Light do there.
struct VividLight8 {
    static float apply(float b, float s) {
        const float burn = 1 - (1 - b) / (2 * s), dodge = b / (2 * (1 - s) + 1.0f / 255.0f);
        const float lit = std::clamp(s < 128.0f / 255.0f ? burn : dodge, 0.0f, 1.0f);
        return s <= 0 ? 0.0f : (s >= 1 ? 1.0f : std::floor(lit * 255 + 1e-3f) / 255);
    }
};
struct LinearLight {
    static float apply(float b, float s) { return std::clamp(b + 2 * s - 1, 0.0f, 1.0f); }
};
/// Linear light of 8-bit documents: a layer level of 128, not 127.5, is neutral.
struct LinearLight8 {
    static float apply(float b, float s) {
        return std::clamp(b + 2 * s - 256.0f / 255.0f, 0.0f, 1.0f);
    }
};
/// Hard light of 8-bit documents: the light half starts at level 128, as Screen(b, 2s − 256/255).
struct HardLight8 {
    static float apply(float b, float s) {
        const float t = 2 * s - 256.0f / 255.0f;
        return s <= 0.5f ? 2 * s * b : b + t - b * t;
    }
};
struct PinLight {
    static float apply(float b, float s) {
        return s <= 0.5f ? std::min(b, 2 * s) : std::max(b, 2 * s - 1);
    }
};
struct HardMix {
    static constexpr float tieMargin = 4e-6f; // a 16-bit level is 1.5e-5
    static float apply(float b, float s) {
        return b >= 1 - tieMargin || b + s > 1 + tieMargin ? 1.0f : 0.0f;
    }
};
struct Subtract {
    static float apply(float b, float s) { return std::max(0.0f, b - s); }
};
struct Divide {
    static float apply(float b, float s) {
        const float divided = std::clamp(b / s, 0.0f, 1.0f);
        return s <= 0 ? (b <= 0 ? 0.0f : 1.0f) : divided;
    }
};

// The non-separable modes take whole colours.
struct RGB {
    float r, g, b;
};

inline float lum(const RGB& c) { return luma(c.r, c.g, c.b); }
inline float min3(const RGB& c) { return std::min(std::min(c.r, c.g), c.b); }
inline float max3(const RGB& c) { return std::max(std::max(c.r, c.g), c.b); }

// The helpers choose between computed values instead of branching, so that a chunk of pixels
// runs as vector code; quotients computed for an arm that is not chosen are never used.

// Pulls a colour into 0…1 towards its own luminosity. The scales l / (l − n) and
// (1 − l) / (x − l) have denominators above 0 whenever l lies inside 0…1; at a luminosity of 0
// or 1 (or beyond, in float documents) the colour's limit is its grey, which float rounding
// must not turn into 0 / 0.
inline RGB clipColor(RGB c) {
    const float l = lum(c);
    const float n = min3(c), x = max3(c);
    auto towards = [&](float k) {
        return RGB{l + (c.r - l) * k, l + (c.g - l) * k, l + (c.b - l) * k};
    };
    auto choose = [](bool pick, const RGB& a, const RGB& b) {
        return RGB{pick ? a.r : b.r, pick ? a.g : b.g, pick ? a.b : b.b};
    };
    c = choose(n < 0, towards(l > 0 ? l / (l - n) : 0.0f), c);
    return choose(x > 1, towards(l < 1 ? (1 - l) / (x - l) : 0.0f), c);
}

inline RGB setLum(const RGB& c, float l) {
    const float d = l - lum(c);
    return clipColor({c.r + d, c.g + d, c.b + d});
}

inline float sat(const RGB& c) { return max3(c) - min3(c); }

// The colour's smallest channel becomes 0, its largest s and the middle one in proportion;
// a grey becomes black. Each channel is (c − min) / (max − min) · s, so the largest reads
// exactly s and ties need no ordering.
inline RGB setSat(const RGB& c, float s) {
    const float lo = min3(c), spread = max3(c) - lo;
    auto channel = [&](float v) { return spread > 0 ? (v - lo) / spread * s : 0.0f; };
    return {channel(c.r), channel(c.g), channel(c.b)};
}

struct Hue {
    static RGB apply(const RGB& b, const RGB& s) { return setLum(setSat(s, sat(b)), lum(b)); }
};
struct Saturation {
    static RGB apply(const RGB& b, const RGB& s) { return setLum(setSat(b, sat(s)), lum(b)); }
};
struct Luminosity {
    static RGB apply(const RGB& b, const RGB& s) { return setLum(b, lum(s)); }
};
struct DarkerColor {
    static RGB apply(const RGB& b, const RGB& s) {
        const bool darker = lum(s) < lum(b);
        return {darker ? s.r : b.r, darker ? s.g : b.g, darker ? s.b : b.b};
    }
};
struct LighterColor {
    static RGB apply(const RGB& b, const RGB& s) {
        const bool lighter = lum(s) > lum(b);
        return {lighter ? s.r : b.r, lighter ? s.g : b.g, lighter ? s.b : b.b};
    }
};

// The compositing formula of separableRow, with B taking whole colours.
template <class Mode>
inline void nonSeparableRow(const ci::KernelRow& row) {
    compositeRow(
        row.samples[0], row.samples[1], row.out, row.count,
        [](const ChannelPlanes& b, const ChannelPlanes& s, ChannelPlanes& m, int n) {
            for (int j = 0; j < n; ++j) {
                const RGB blended = Mode::apply({b.r[j], b.g[j], b.b[j]}, {s.r[j], s.g[j], s.b[j]});
                m.r[j] = blended.r;
                m.g[j] = blended.g;
                m.b[j] = blended.b;
            }
        });
}

/// A blend kernel's row: Mode on premultiplied samples, the foreground in sample 0 and the
/// background in sample 1. Instantiated where the mode table names it.
template <class Mode>
BIC_VECTOR_CLONES void modeRow(const ci::KernelRow& row) {
    if constexpr (SeparableMode<Mode>)
        separableRow<Mode>(row.samples[0], row.samples[1], row.out, row.count);
    else
        nonSeparableRow<Mode>(row);
}

/// The dissolve colour kernel's row. Arguments: foreground, background, noise, opacity.
void dissolveRow(const ci::KernelRow& row);

} // namespace bic::blend
