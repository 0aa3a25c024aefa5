#pragma once
// One layer (or group) of a layered document, with everything its record holds.
//
// Layers are listed bottom first, as the format stores them; a group holds its children, bottom
// first, and stands in its parent's list where the group's record stood. Channels are kept
// exactly as stored (straight colour, host-order samples); `pixelBuffer` and `maskBuffer` make
// the library's bitmaps from them.

#include "bic/buffers/pixel_buffer_type.hpp"
#include "bic/documents/document_geometry.hpp"
#include "bic/documents/fill_content.hpp"
#include "bic/documents/layer_mask.hpp"
#include "bic/documents/sample_plane.hpp"
#include "bic/documents/tagged_block.hpp"
#include "bic/filters/blend_mode.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bic {

/// How a channel (or the composite) is stored.
enum class ChannelCompression : std::uint16_t { raw = 0, rle = 1, zip = 2, zipPredicted = 3 };
/// "raw", "rle", "zip", "zip-pred".
std::string_view channelCompressionName(ChannelCompression compression);

/// Channel ids with a meaning of their own; 0, 1, 2 are red, green, blue (0 is grey).
enum ChannelId : std::int16_t {
    transparencyChannel = -1,
    userMaskChannel = -2,
    realUserMaskChannel = -3,
};

struct LayerChannel {
    std::int16_t id = 0;
    /// As read; the writer chooses its own (PackBits for 8 bits, zip with prediction above).
    ChannelCompression compression = ChannelCompression::raw;
    /// The samples over the layer's bounds, or over the mask's rectangle for ids −2 and −3.
    SamplePlane plane;

    friend bool operator==(const LayerChannel&, const LayerChannel&) = default;
};

/// What a layer is, from its section divider and its tagged blocks' keys. Only pixel layers,
/// groups and the two fill kinds are rendered by the library; the others are listed and shown
/// from whatever pixels the file stores for them.
enum class LayerKind {
    pixel,
    group,
    solidColorFill,
    gradientFill,
    patternFill,
    adjustment,
    smartObject,
    text,
};
/// "pixel", "group", "solid fill", "gradient fill", "pattern fill", "adjustment",
/// "smart object", "text".
std::string_view layerKindName(LayerKind kind);

/// The record that closes a group in the file (a bounding section divider, conventionally named
/// "</Layer group>"); kept so that it is written back as it was.
struct SectionEnd {
    std::string name = "</Layer group>";
    std::string blendKey = "norm";
    std::uint8_t opacity = 255, clipping = 0, flags = 0x18;
    /// The ids of its (empty) channels; none given means transparency and the mode's colours.
    std::vector<std::int16_t> channelIds;
    /// Every tagged block of the divider; its "lsct"/"lsdk" and "luni" are rewritten.
    std::vector<TaggedBlock> blocks;

    friend bool operator==(const SectionEnd&, const SectionEnd&) = default;
};

struct DocumentLayer {
    /// Flag bits of the record.
    enum Flag : std::uint8_t {
        transparencyProtected = 1 << 0,
        hidden = 1 << 1,
        pixelDataIrrelevantValid = 1 << 3,
        pixelDataIrrelevant = 1 << 4,
    };

    /// UTF-8; from the Unicode name ("luni") when the layer has one, else the one-byte name.
    std::string name;
    LayerKind kind = LayerKind::pixel;
    DocumentRect bounds;
    /// In stored order. A layer without a transparency channel is opaque over its bounds. A
    /// record with empty bounds and no channels is written with empty transparency and colour
    /// channels, as readers expect every record to have some.
    std::vector<LayerChannel> channels;

    /// The four characters as stored. `blendMode` is the library's mode for it, and empty for a
    /// key the library does not know: such a key is kept (and written back) as it is, the reader
    /// reports it among the document's issues, and a compositor should show the layer as normal.
    std::string blendKey = "norm";
    std::optional<BlendMode> blendMode = BlendMode::normal;
    std::uint8_t opacity = 255;
    /// From "iOpa"; 255 when the layer has none.
    std::uint8_t fillOpacity = 255;
    /// 0: base; 1: clipped to the layer below.
    std::uint8_t clipping = 0;
    std::uint8_t flags = pixelDataIrrelevantValid;

    std::optional<LayerMask> mask;
    std::optional<RealUserMask> realMask;
    /// The blending ranges record, kept as bytes.
    std::vector<std::uint8_t> blendingRanges;
    /// Every tagged block in stored order, with its bytes. The writer rewrites "luni", the first
    /// "lsct"/"lsdk" (the one the reader goes by) and "iOpa" from the fields above and writes all
    /// others as they are.
    std::vector<TaggedBlock> blocks;

    /// Readings of the fill blocks (not written back: the blocks are).
    std::optional<SolidColorFill> solidFill;
    std::optional<GradientFill> gradientFill;
    /// Any effects block ("lfx2", "lrFX", "lmfx"); and a vector mask ("vmsk", "vsms").
    bool hasLayerEffects = false, hasVectorMask = false;
    /// The reading of "lfx2": colour overlays are rendered, the other effects listed.
    std::optional<LayerEffects> effects;

    // Groups (kind == group).
    std::vector<DocumentLayer> children;
    /// Open (section type 1) or closed (2) in the layers panel.
    bool groupIsOpen = true;
    std::optional<SectionEnd> sectionEnd;

    bool isVisible() const { return !(flags & hidden); }
    bool isClipped() const { return clipping != 0; }
    bool isGroup() const { return kind == LayerKind::group; }
    /// The first channel with `id`, or nothing.
    const LayerChannel* channel(std::int16_t id) const;

    /// The layer's colour and transparency over its bounds, premultiplied as the library's
    /// formats are: PixelARGB8, PixelRGBA16 or PixelRGBA32 by `bitDepth`; grey documents
    /// (`colorChannels` 1) give grey formats unless the layer has a transparency channel, which
    /// only the colour formats can carry. A missing transparency channel is opaque, a missing
    /// colour channel 0. Nothing for empty bounds.
    std::optional<PixelBufferType> pixelBuffer(int colorChannels, int bitDepth) const;
    /// The user mask (−2, or the real mask −3 when `real`) over its rectangle as a grey buffer of
    /// the layer's depth; nothing when there is none or it is empty.
    std::optional<PixelBufferType> maskBuffer(bool real = false) const;

    friend bool operator==(const DocumentLayer&, const DocumentLayer&) = default;
};

} // namespace bic
