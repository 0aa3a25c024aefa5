#pragma once
// The geometry stages of the gradient fills the engine has no generator for. Each gives an
// unbounded grey ramp, opaque, whose level is the gradient location (0 = start, 1 = end,
// clamped beyond), for a gradient's mapping table to colour.

#include "bic/platform/cg/geometry.hpp"
#include "bic/platform/ci/image.hpp"

#include <optional>

namespace bic {

/// The angle about the origin, counter-clockwise from the positive x axis, as a fraction of a
/// full turn (0 just above the axis, approaching 1 just below it). Callers rotate, scale and
/// move it into place.
class BICAngleGradientFilter {
public:
    std::optional<ci::Image> outputImage() const;
};

/// 0 at inputPoint0, 1 at inputPoint1, mirrored across the line through inputPoint0 that is
/// perpendicular to the two points.
class BICReflectedGradientFilter {
public:
    std::optional<cg::Point> inputPoint0;
    std::optional<cg::Point> inputPoint1;
    /// Nothing unless both points are set.
    std::optional<ci::Image> outputImage() const;
};

/// 0 at inputPoint0, 1 on the square (a diamond, as usually drawn) centred there that has
/// inputPoint1 as the midpoint of one side; its corners lie √2 times as far.
class BICDiamondGradientFilter {
public:
    std::optional<cg::Point> inputPoint0;
    std::optional<cg::Point> inputPoint1;
    /// Nothing unless both points are set.
    std::optional<ci::Image> outputImage() const;
};

} // namespace bic
