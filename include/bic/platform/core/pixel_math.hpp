#pragma once
// The small formulas every layer of pixel code needs, written once: the luminosity weights the
// library measures colour by, the step from premultiplied back to straight colour, and the flip
// between image rows (counted up from the bottom) and memory rows (stored top first).

#include <cstdint>

namespace bic {

/// The memory row of image row `row`, or equally the image row of memory row `row`, among rows
/// that end below `top` (exclusive: a height, for rows counted from 0, or a region's maxY).
constexpr std::int64_t flippedRow(std::int64_t row, std::int64_t top) { return top - 1 - row; }

/// The weights of red, green and blue in a colour's luminosity (Rec. 601 rounded), used for
/// grey conversion, thresholds, masks and the non-separable blend modes alike.
inline constexpr float kLumaRed = 0.30f, kLumaGreen = 0.59f, kLumaBlue = 0.11f;

/// The luminosity of (r, g, b), summed red first.
constexpr float luma(float r, float g, float b) {
    return kLumaRed * r + kLumaGreen * g + kLumaBlue * b;
}

/// The factor that takes premultiplied channels of alpha `a` back to straight ones: 1 / a, and 0
/// for a transparent pixel, whose colour is lost.
constexpr float unpremultiplyScale(float a) { return a > 0 ? 1.0f / a : 0.0f; }

/// The straight value of premultiplied channel `c` of alpha `a`, divided rather than multiplied
/// by a reciprocal (c = a gives exactly 1); 0 for a transparent pixel.
constexpr float unpremultiplied(float c, float a) { return a > 0 ? c / a : 0.0f; }

} // namespace bic
