#pragma once
// What a fill layer paints, read from its "SoCo" (solid colour) or "GdFl" (gradient) block.
//
// The blocks stay in the layer's tagged blocks and are written back from there; these values are
// their reading, for rendering. Colours are straight, 0…1, opaque.

#include "bic/documents/sample_plane.hpp"
#include "bic/filters/blend_mode.hpp"
#include "bic/gradients/color_gradient.hpp"
#include "bic/pixels/pixel_formats.hpp"

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bic {

struct SolidColorFill {
    PixelRGBA32 color{0, 0, 0, 1};

    friend bool operator==(const SolidColorFill&, const SolidColorFill&) = default;
};

struct GradientFill {
    /// Linear, radial, angle, reflected or diamond.
    GradientType type = GradientType::linear;
    /// Degrees, counter-clockwise from the positive x axis.
    double angle = 90;
    /// 1 is the layer's (or document's) full size; stored as a percentage.
    double scale = 1;
    bool reverse = false, dither = false;
    /// Align with the layer's bounds rather than the document's.
    bool alignWithLayer = true;
    /// Offset of the centre as fractions of the width and height (stored as percentages).
    double offsetX = 0, offsetY = 0;
    /// The gradient's own name, as stored.
    std::string name;
    /// Smoothness, 0…1 (stored on 0…4096).
    double smoothness = 1;
    /// The stops: file locations 0…4096 become 0…1, midpoints (percent) 0…1, opacities (percent)
    /// 0…1. A stop's midpoint places the even mix between the stop before it and itself, as in
    /// ColorGradient. Not applied: `reverse` (a rendering choice). Empty for noise gradients and
    /// for fewer than two stops in a list.
    std::optional<ColorGradient> gradient;

    friend bool operator==(const GradientFill&, const GradientFill&) = default;
};

/// `gradient` as a gradient fill draws it at `smoothness` (0…1): at 0 the midpoint rule's
/// straight segments; at 1 a cubic through the stops whose slope at a stop is that of the line
/// between its neighbours (half the first and last segments' slopes at the ends), kept within
/// each segment's two values, so a stop that is a peak or a valley holds its value instead of
/// overshooting it; between the two, a mix. Midpoints reshape each segment as the midpoint rule
/// does. The result is a many-stop gradient that follows the curve to a fraction of a level.
ColorGradient smoothedGradient(const ColorGradient& gradient, double smoothness);

/// A colour overlay layer effect: the layer's shape painted in one colour, blended onto what the
/// layer was composited onto in its own mode and opacity.
struct ColorOverlayEffect {
    PixelRGBA32 color{0, 0, 0, 1};
    BlendMode mode = BlendMode::normal;
    /// 0…1 (stored as a percentage).
    double opacity = 1;

    friend bool operator==(const ColorOverlayEffect&, const ColorOverlayEffect&) = default;
};

/// The blend mode a descriptor's "BlnM" enumeration names, in either of its spellings ("Mltp"
/// or "multiply"); nothing for a name no mode has.
std::optional<BlendMode> blendModeFromDescriptor(std::string_view value);

/// A pattern overlay layer effect: the layer's shape painted with a pattern of the document's
/// "Patt" blocks, repeated from the document's origin shifted by the phase.
struct PatternOverlayEffect {
    /// The pattern's identifier, as its record stores it.
    std::string patternId;
    BlendMode mode = BlendMode::normal;
    /// 0…1 (stored as percentages).
    double opacity = 1, scale = 1;
    /// Pixels.
    double phaseX = 0, phaseY = 0;

    friend bool operator==(const PatternOverlayEffect&, const PatternOverlayEffect&) = default;
};

/// What an "lfx2" block's effects turn on: its colour and pattern overlays, bottom first, and
/// the keys of every other enabled effect ("DrSh", "GrFl", …), which the library does not
/// render. Nothing is on when the effects are switched off as a whole.
struct LayerEffects {
    std::vector<ColorOverlayEffect> colorOverlays;
    std::vector<PatternOverlayEffect> patternOverlays;
    std::vector<std::string> unrendered;

    friend bool operator==(const LayerEffects&, const LayerEffects&) = default;
};

/// A pattern a document keeps for its pattern fills and overlays: 8-bit planes, one (grey) or
/// three (RGB), of `width` × `height`.
struct Pattern {
    std::string id, name;
    std::int64_t width = 0, height = 0;
    std::vector<SamplePlane> colors;
};

/// The patterns of a "Patt", "Pat2" or "Pat3" block's bytes. Patterns of other colour modes or
/// depths are skipped; throws DocumentError for a record that contradicts its lengths.
std::vector<Pattern> readPatterns(std::span<const std::uint8_t> block);

/// Throws DocumentError for a malformed descriptor.
LayerEffects readLayerEffects(std::span<const std::uint8_t> block);

/// The colour a colour descriptor ("RGBC", "Grsc", "HSBC") holds, straight on 0…1; nothing for
/// other colour models. Exposed for the fills' readers and their tests.
struct Descriptor;
std::optional<PixelRGBA32> colorFromDescriptor(const Descriptor& color);

/// The readings of a "SoCo" and a "GdFl" block's bytes. Throw DocumentError for malformed
/// descriptors; a descriptor of an unknown shape gives nothing.
std::optional<SolidColorFill> readSolidColorFill(std::span<const std::uint8_t> block);
std::optional<GradientFill> readGradientFill(std::span<const std::uint8_t> block);

} // namespace bic
