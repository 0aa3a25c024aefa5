#pragma once
// Lazy operations that turn pictures into masks.

#include "bic/platform/ci/image.hpp"

namespace bic {

/// An opaque grey mask whose level is the picture's alpha, cropped to the picture's extent and
/// laid over black, so that everything outside the picture hides.
ci::Image bic_maskFromTransparency(const ci::Image& image);

} // namespace bic
