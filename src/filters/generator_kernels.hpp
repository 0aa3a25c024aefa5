#pragma once
// Kernels of the generators: colour pickers and gradient ramps.

#include "bic/platform/ci/kernel.hpp"

namespace bic {

/// Adds "hueWheel", "colorWheel", "saturationValuePanel", "triangularSaturationValuePanel",
/// "colorSpectrumImage" and the gradient ramps "angleGradient", "reflectedGradient" and
/// "diamondGradient" (layouts in gradient_filters.hpp) to `library`.
void addGeneratorKernels(ci::KernelLibrary& library);

} // namespace bic
