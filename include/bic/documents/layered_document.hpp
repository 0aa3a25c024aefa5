#pragma once
// A layered document (PSD, or PSB for large documents): header, image resources, the layer tree
// with every record's properties, channels and tagged blocks, and the stored composite.
//
// Reading trusts nothing the file says: every length, count and size is checked against the bytes
// that remain and against the format's maxima before anything is allocated for it, so a damaged
// file is answered with one DocumentError naming what is wrong, never with a crash or a huge
// allocation. Problems that leave the document usable (an unknown blend-mode key, a group
// without its closing record) are listed in `issues` instead.
//
// Writing produces a file that reads back equal: the resources as they were (with the version
// resource saying whether the composite is real merged data), every layer record field, the
// kept tagged blocks, the channels (PackBits for 8 bits, zip with prediction for 16 and 32) and
// the composite given in the options, or else the one that was read.

#include "bic/buffers/pixel_buffer_type.hpp"
#include "bic/documents/document_error.hpp"
#include "bic/documents/document_layer.hpp"
#include "bic/documents/image_resource.hpp"
#include "bic/documents/sample_plane.hpp"
#include "bic/documents/tagged_block.hpp"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bic {

/// The format's colour modes; only RGB and Grayscale are read.
enum class DocumentColorMode : std::uint16_t {
    bitmap = 0,
    grayscale = 1,
    indexed = 2,
    rgb = 3,
    cmyk = 4,
    multichannel = 7,
    duotone = 8,
    lab = 9,
};
/// "Bitmap", "Grayscale", "Indexed", "RGB", "CMYK", "Multichannel", "Duotone", "Lab", or
/// "mode N" for codes the format does not define.
std::string colorModeName(std::uint16_t mode);

/// Something the reader found wrong that does not stop the document from being used.
struct DocumentIssue {
    /// The layer's position in `LayeredDocument::walk` order, when the issue is a layer's.
    std::optional<std::size_t> layerIndex;
    std::string message;
};

struct DocumentWriteOptions {
    enum class Format { automatic, psd, psb };
    /// Automatic: PSB when a side exceeds 30,000 pixels, PSD otherwise.
    Format format = Format::automatic;
    /// The composite to store, one plane per composite channel (colour channels, then the
    /// merged transparency when the document has one, then any further alpha channels), each of
    /// the document's size and depth. Without it, the composite that was read is written (and a
    /// document that has none gets a transparent or white one).
    std::optional<std::vector<SamplePlane>> composite;
    /// Written into the version resource (1057): whether the composite is the real merged
    /// image of the layers. Say so only for a composite made from the layers.
    bool compositeIsRealMergedData = false;
};

class LayeredDocument {
public:
    /// Maxima of a side: 30,000 pixels in PSD, 300,000 in PSB.
    static constexpr std::int64_t maximumPSDSide = 30000;
    static constexpr std::int64_t maximumPSBSide = 300000;

    /// Throws DocumentError (kind io when the file cannot be read).
    static LayeredDocument read(const std::filesystem::path& path);
    static LayeredDocument read(std::span<const std::uint8_t> bytes);

    /// Throws DocumentError: tooLarge for sizes beyond PSB's maxima or a PSD the caller forced
    /// that cannot hold the document; corrupt for a model that contradicts itself (a channel
    /// whose plane is not the size of its rectangle, a composite of the wrong size); io when
    /// the file cannot be written.
    void write(const std::filesystem::path& path, const DocumentWriteOptions& options = {}) const;
    std::vector<std::uint8_t> write(const DocumentWriteOptions& options = {}) const;

    // ---- Header ----
    /// Version 2 (PSB) when read from a large document.
    bool isLargeDocument = false;
    std::int64_t width = 1, height = 1;
    /// 8, 16 or 32.
    int bitDepth = 8;
    DocumentColorMode colorMode = DocumentColorMode::rgb;
    /// Channels of the composite: the colour channels and any alpha channels.
    int channelCount = 3;
    /// The colour mode data section as stored (empty for RGB and Grayscale).
    std::vector<std::uint8_t> colorModeData;

    // ---- Resources ----
    /// Every resource in stored order.
    std::vector<ImageResource> resources;
    const ImageResource* resource(std::uint16_t id) const;
    std::optional<ResolutionInfo> resolution() const;
    std::optional<std::vector<std::uint8_t>> iccProfile() const;
    /// From the version resource; nothing when there is none.
    std::optional<bool> hasRealMergedData() const;

    // ---- Layers ----
    /// Bottom first; groups hold their children.
    std::vector<DocumentLayer> layers;
    /// The file gave its layer count as negative: the composite's first alpha channel is then
    /// the merged transparency.
    bool mergedAlphaIsTransparency = false;
    /// The global layer mask info, as stored.
    std::vector<std::uint8_t> globalLayerMask;
    /// Document-level tagged blocks after it, in order, except the "Lr16"/"Lr32" blocks that
    /// carry the layers of 16 and 32-bit documents (the writer makes those).
    std::vector<TaggedBlock> globalBlocks;

    /// Colour channels of the mode: 3 for RGB, 1 for Grayscale.
    int colorChannels() const { return colorMode == DocumentColorMode::grayscale ? 1 : 3; }
    /// Every layer and group in pre-order, bottom first: a group, then its children. `depth`
    /// is 0 at the top level. The index passed is the layer's position in this order.
    void walk(
        const std::function<void(std::size_t index, int depth, const DocumentLayer&)>& visit) const;
    /// The number of layers and groups.
    std::size_t layerCount() const;

    // ---- Composite ----
    /// The image data section's planes (the composite channels in order); empty when the
    /// document was made without one.
    std::vector<SamplePlane> composite;
    ChannelCompression compositeCompression = ChannelCompression::rle;
    /// Whether the composite has a transparency channel: its first alpha channel is one when
    /// `mergedAlphaIsTransparency` or a merged-transparency block ("Mtrn", "Mt16", "Mt32") says so.
    bool compositeHasTransparency() const;
    /// The composite with straight colour: colour channels then, when it has transparency, an
    /// alpha channel. The stored colour of a transparent document is matted on white
    /// (c·α + max·(1 − α)); this removes the matte where α > 0 and gives 0 where α = 0. Empty
    /// when there is no composite or its planes are not of the document's size and depth.
    std::vector<SamplePlane> straightComposite() const;
    /// The composite as a premultiplied buffer of the document's size (colour formats when it
    /// has transparency or colour, grey ones for grey without). Nothing when there is none.
    std::optional<PixelBufferType> compositeBuffer() const;

    /// Problems the reader found that do not stop the document from being used.
    std::vector<DocumentIssue> issues;
};

} // namespace bic
