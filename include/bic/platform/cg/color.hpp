#pragma once
// A colour of the drawing layer: components in a colour space, alpha last.

#include "bic/platform/cg/color_space.hpp"

#include <optional>
#include <vector>

namespace bic::cg {

class Color {
public:
    /// `components` holds the space's components followed by alpha; nothing when the count is
    /// wrong or a component is NaN. Components outside the space's range are clamped to it.
    static std::optional<Color> make(const ColorSpace& space, std::vector<double> components);
    static Color deviceRGB(double r, double g, double b, double a = 1);
    static Color deviceGray(double gray, double a = 1);

    const ColorSpace& colorSpace() const { return space_; }
    const std::vector<double>& components() const { return components_; }
    double alpha() const { return components_.back(); }
    int numberOfComponents() const { return static_cast<int>(components_.size()); }

    /// The colour matched into `target`; alpha passes unchanged. Nothing when the spaces
    /// cannot be matched.
    std::optional<Color> matched(const ColorSpace& target,
                                 RenderingIntent intent = RenderingIntent::defaultIntent) const;

    friend bool operator==(const Color&, const Color&) = default;

private:
    Color(ColorSpace space, std::vector<double> components)
        : space_(std::move(space)), components_(std::move(components)) {}
    ColorSpace space_;
    std::vector<double> components_;
};

} // namespace bic::cg
