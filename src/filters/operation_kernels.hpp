#pragma once
// Kernels of the small image operations: thresholds, masks, tone curves, gradient maps, surface
// normals and edges.
//
// Conventions (ours to choose, kept the same everywhere): a colour's "value" is its luminosity
// 0.30 R + 0.59 G + 0.11 B of the unpremultiplied colour; masks are read from their red channel;
// results that are masks or measures are opaque greys.

#include "bic/platform/ci/kernel.hpp"

namespace bic {

/// Adds "threshold", "mixWithMask", "maxChannelDistance", "colorMap_aa", "gradientMap_aa",
/// "surfaceNormals", "dotProduct", "sobel", "bevel", "customGamma", "customGammaInversed",
/// "dither" and "prepareDT" to `library`.
void addOperationKernels(ci::KernelLibrary& library);

} // namespace bic
