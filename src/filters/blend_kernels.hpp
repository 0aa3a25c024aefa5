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
//  - Darker and lighter colour compare luminosities weighted 0.30/0.59/0.11; a tie keeps the
//    backdrop.

#include "bic/platform/ci/blend_formulas.hpp"
#include "bic/platform/ci/kernel.hpp"

namespace bic::blend {

struct ColorBurn {
    static float apply(float b, float s) {
        if (b >= 1) return 1;
        if (s <= 0) return 0;
        return 1 - std::min(1.0f, (1 - b) / s);
    }
};
struct LinearBurn {
    static float apply(float b, float s) { return std::max(0.0f, b + s - 1); }
};
struct ColorDodge {
    static float apply(float b, float s) {
        if (b <= 0) return 0;
        if (s >= 1) return 1;
        return std::min(1.0f, b / (1 - s));
    }
};
struct LinearDodge {
    static float apply(float b, float s) { return std::min(1.0f, b + s); }
};
struct VividLight {
    static float apply(float b, float s) {
        if (s <= 0) return 0;
        if (s >= 1) return 1;
        return s <= 0.5f ? std::max(0.0f, 1 - (1 - b) / (2 * s))
                         : std::min(1.0f, b / (2 * (1 - s)));
    }
};
struct LinearLight {
    static float apply(float b, float s) { return std::clamp(b + 2 * s - 1, 0.0f, 1.0f); }
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
        if (s <= 0) return b <= 0 ? 0.0f : 1.0f;
        return std::min(1.0f, b / s);
    }
};

/// Adds the "blendMode…" kernels to `library`.
void addBlendKernels(ci::KernelLibrary& library);

} // namespace bic::blend
