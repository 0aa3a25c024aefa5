#pragma once
// A layer's vector mask, read from its "vmsk" or "vsms" block: an outline of Bézier subpaths and
// the mask's flags. The block stays among the layer's tagged blocks and is written back from
// there; this is its reading, for rendering.

#include "bic/paths/path.hpp"

#include <cstdint>
#include <optional>
#include <span>

namespace bic {

struct VectorMask {
    /// The subpaths in document pixels, y growing downwards (rows counted from the top). The
    /// mask covers what they enclose by the even-odd rule.
    Path outline;
    bool inverted = false, disabled = false;
    /// The path starts from a full mask (an initial fill rule record): what the subpaths
    /// enclose is taken out of it.
    bool startsFilled = false;
};

/// The vector mask stored in a "vmsk"/"vsms" block's bytes, for a document of `width` ×
/// `height` pixels. Nothing when the bytes are not one: a version other than 3, a knot outside a
/// subpath, a subpath shorter than its count. Records of kinds it does not use (clipboard, fill
/// rule) are skipped.
std::optional<VectorMask> readVectorMask(std::span<const std::uint8_t> bytes, std::int64_t width,
                                         std::int64_t height);

} // namespace bic
