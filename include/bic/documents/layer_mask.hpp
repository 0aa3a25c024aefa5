#pragma once
// A layer's mask record: where the user mask lies, what it shows outside its rectangle, and its
// switches. A layer that also has a vector mask stores its pixel mask as the "real" user mask.

#include "bic/documents/document_geometry.hpp"

#include <cstdint>
#include <optional>

namespace bic {

/// Density and feather of the user and vector masks (present when flag bit 4 is set).
struct MaskParameters {
    std::optional<std::uint8_t> userMaskDensity;
    std::optional<double> userMaskFeather;
    std::optional<std::uint8_t> vectorMaskDensity;
    std::optional<double> vectorMaskFeather;

    friend bool operator==(const MaskParameters&, const MaskParameters&) = default;
};

struct LayerMask {
    /// Flag bits as the format defines them.
    enum Flag : std::uint8_t {
        positionRelativeToLayer = 1 << 0,
        disabled = 1 << 1,
        invert = 1 << 2,
        fromRenderingOtherData = 1 << 3,
        hasParameters = 1 << 4,
    };

    /// The rectangle of the mask channel (id −2) in document coordinates.
    DocumentRect rect;
    /// 0 or 255: the mask's value everywhere outside `rect`.
    std::uint8_t defaultColor = 0;
    /// As stored; the writer sets `hasParameters` exactly when `parameters` are given.
    std::uint8_t flags = 0;
    std::optional<MaskParameters> parameters;

    bool isDisabled() const { return flags & disabled; }
    bool isPositionRelativeToLayer() const { return flags & positionRelativeToLayer; }
    bool isInverted() const { return flags & invert; }

    friend bool operator==(const LayerMask&, const LayerMask&) = default;
};

/// The pixel mask of a layer that also has a vector mask (channel id −3).
struct RealUserMask {
    std::uint8_t flags = 0;
    std::uint8_t defaultColor = 0;
    DocumentRect rect;

    bool isDisabled() const { return flags & LayerMask::disabled; }
    friend bool operator==(const RealUserMask&, const RealUserMask&) = default;
};

} // namespace bic
