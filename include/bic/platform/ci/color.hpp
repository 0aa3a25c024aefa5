#pragma once
// A colour of the lazy-image engine: unpremultiplied red, green, blue and alpha.

#include "bic/platform/cg/color.hpp"

#include <optional>

namespace bic::ci {

struct Color {
    double red = 0, green = 0, blue = 0, alpha = 1;
    /// Nothing means the engine's working space (device RGB, no conversion).
    std::optional<cg::ColorSpace> colorSpace = std::nullopt;

    static Color clear() { return {0, 0, 0, 0, std::nullopt}; }
    static Color white() { return {1, 1, 1, 1, std::nullopt}; }
    static Color black() { return {0, 0, 0, 1, std::nullopt}; }

    /// The colour of a drawing-layer colour: grey becomes (g, g, g), other spaces are matched
    /// into the colour's own space when it is RGB and into device RGB otherwise.
    static std::optional<Color> from(const cg::Color& color);
    /// The same colour as a drawing-layer colour in its space (device RGB when none).
    cg::Color cgColor() const;

    friend bool operator==(const Color&, const Color&) = default;
};

} // namespace bic::ci
