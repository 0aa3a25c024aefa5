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

/// Adds the "blendMode…" kernels to `library`.
void addBlendKernels(ci::KernelLibrary& library);

} // namespace bic::blend
