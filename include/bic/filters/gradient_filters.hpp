#pragma once
// The geometry stages of the gradient fills the engine has no generator for, as filters made
// and configured by name like any other. Each gives an unbounded grey ramp, opaque, whose level
// is the gradient location (0 = start, 1 = end, clamped beyond), for a gradient's mapping table
// to colour.

#include "bic/platform/cg/geometry.hpp"
#include "bic/platform/ci/filter.hpp"
#include "bic/platform/ci/image.hpp"

#include <optional>

namespace bic {

/// The angle about the origin, counter-clockwise from the positive x axis, as a fraction of a
/// full turn (0 just above the axis, approaching 1 just below it). Callers rotate, scale and
/// move it into place. No inputs.
class BICAngleGradientFilter final : public ci::Filter {
public:
    BICAngleGradientFilter();
    std::optional<ci::Image> outputImage() const override;
};

/// The two-point ramps: "inputPoint0" and "inputPoint1" as two-component vectors, both unset at
/// first; nothing unless both are set.
class TwoPointGradientFilter : public ci::Filter {
public:
    std::optional<cg::Point> inputPoint0() const;
    void setInputPoint0(std::optional<cg::Point> point);
    std::optional<cg::Point> inputPoint1() const;
    void setInputPoint1(std::optional<cg::Point> point);
    std::optional<ci::Image> outputImage() const override;

protected:
    using Ramp = ci::Image (*)(cg::Point, cg::Point);
    TwoPointGradientFilter(std::string name, Ramp ramp);

private:
    Ramp ramp_;
};

/// 0 at inputPoint0, 1 at inputPoint1, mirrored across the line through inputPoint0 that is
/// perpendicular to the two points.
class BICReflectedGradientFilter final : public TwoPointGradientFilter {
public:
    BICReflectedGradientFilter();
};

/// 0 at inputPoint0, 1 on the square (a diamond, as usually drawn) centred there that has
/// inputPoint1 as the midpoint of one side; its corners lie √2 times as far.
class BICDiamondGradientFilter final : public TwoPointGradientFilter {
public:
    BICDiamondGradientFilter();
};

/// Registers the three gradient filters by their class names.
void registerGradientFilters();

} // namespace bic
