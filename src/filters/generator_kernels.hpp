#pragma once
// Kernels of the colour-picker generators; layouts as in generator_filters.hpp.

#include "bic/platform/ci/kernel.hpp"

namespace bic {

/// Adds "hueWheel", "colorWheel", "saturationValuePanel", "triangularSaturationValuePanel" and
/// "colorSpectrumImage" to `library`.
void addGeneratorKernels(ci::KernelLibrary& library);

} // namespace bic
