#pragma once
// Selections from a seed point: the 4-connected region whose colours lie within a tolerance of
// the seed's colour, as a mask; and the global colour-range selection.
//
// Colour distance is the largest absolute difference over a pixel's components (alpha included
// for colour formats). Tolerances are fractions: 8- and 16-bit formats compare in their integer
// levels (round(clamp(t, 0, 1) × 255 or 65535)), float formats against t itself. A NaN
// tolerance selects nothing.

#include "bic/buffers/pixel_buffer.hpp"
#include "bic/buffers/surface_pixel_buffer.hpp"
#include "bic/platform/ci/image.hpp"

#include <optional>

namespace bic {

/// The mask (grey, opaque, infinite: black outside the buffer) of the region 4-connected to the
/// seed whose colours are within `tolerance` of `seedColor` (the seed pixel's colour when
/// absent). `seedY` counts up from the bottom row. A seed outside the buffer gives opaque black.
/// With `antiAlias`, the mask is graded by colour distance (see bic_antiAliasEdges); a
/// tolerance outside (0, 1] then leaves the hard mask.
template <class Buffer>
ci::Image floodFillMaskImage(const Buffer& buffer, std::int64_t seedX, std::int64_t seedY,
                             std::optional<typename Buffer::Element> seedColor, float tolerance,
                             bool antiAlias);

/// A seed colour of another pixel type than the buffer's counts as absent.
template <class Buffer, Pixel Q>
requires(!std::same_as<Q, typename Buffer::Element>) ci::Image
    floodFillMaskImage(const Buffer& buffer, std::int64_t seedX, std::int64_t seedY,
                       std::optional<Q>, float tolerance, bool antiAlias) {
    return floodFillMaskImage(buffer, seedX, seedY, std::nullopt, tolerance, antiAlias);
}

/// Grades a hard mask by colour: the result is the closeness 1 − distance / t (clamped; with
/// `maxDistanceMask` = 1 − distance) mixed towards the hard mask by the strength of the mask's
/// inner edge (its Sobel edge within it), so the selection's border stays where the fill put it.
/// Throws ImageCoreError parameterError unless 0 < t ≤ 1.
ci::Image bic_antiAliasEdges(const ci::Image& mask, const ci::Image& maxDistanceMask,
                             double tolerance);

/// Every pixel whose colour is within `tolerance` of `selecting`, connected or not, as a grey
/// mask; softened at its edges with `antiAliased`.
ci::Image bic_mask(const ci::Image& image, const ci::Color& selecting, double tolerance,
                   bool antiAliased);

} // namespace bic
