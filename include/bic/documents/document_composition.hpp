#pragma once
// A layered document as a live image graph: one node per layer and group, whose root's output is
// the document's composite, and which tells its consumers exactly which rectangle changed when a
// layer is shown, hidden, faded, re-moded, moved or repainted. Put an AsyncImageCacheNode on the
// root and an edit re-renders only what it touched.
//
// How the composite is made, and where it follows the application that writes these files
// rather than the plainest formulas:
//  - Layers blend bottom first in their mode, faded by opacity × fill opacity; hidden layers and
//    everything clipped to a hidden base are skipped; an unknown blend key shows as Normal.
//  - A layer mask multiplies the layer's coverage; outside its rectangle it is its default
//    colour, and a disabled mask is not applied.
//  - Clipped layers blend onto the running result where their base layer is: each is masked by
//    the base's coverage (its pixels and mask, before opacity).
//  - A group is composited alone on transparency and then blended as one layer in its mode; a
//    pass-through group's children blend onto the running result directly and the group's
//    opacity and mask then mix that result with the one before the group.
//  - 8-bit documents use the 8-bit blend arithmetic and round the running result to 8-bit
//    straight colour after every layer, as the writing application does; without that, stacks
//    of half-transparent layers miss the stored composite by up to 2 levels.
//  - Fill layers are rendered by the library: solid colour, and gradients through ColorGradient.
//    Adjustment layers and layer effects are not applied; pattern fills, text and smart objects
//    show their stored pixels. Each such layer is listed in `approximations`.

#include "bic/documents/layered_document.hpp"
#include "bic/graph/image_provider.hpp"

#include <memory>
#include <string>
#include <vector>

namespace bic {

struct DocumentCompositeOptions {
    enum class Rounding {
        /// Each layer for 8-bit documents, once at the end for 16 and 32 bits.
        automatic,
        eachLayer,
        once,
    };
    Rounding rounding = Rounding::automatic;
};

/// A layer the composite does not show as the writing application would, and why.
struct CompositeApproximation {
    /// The layer's position in `LayeredDocument::walk` order.
    std::size_t layerIndex = 0;
    std::string layerName;
    std::string reason;
};

struct DocumentCompositeSettings;

/// One layer or group. Its output is its own content in image coordinates (y up, origin at the
/// document's bottom left): premultiplied pixels through its mask, or a group's children
/// composited alone. Its opacity, mode and visibility are applied by the group it is in, which
/// consumes it; changing any of them is announced as a change of the layer's extent.
class DocumentLayerNode : public ImageNode {
public:
    const std::string& name() const { return name_; }
    LayerKind kind() const { return kind_; }
    bool isGroup() const { return kind_ == LayerKind::group; }
    const std::vector<std::shared_ptr<DocumentLayerNode>>& children() const { return children_; }

    bool isVisible() const { return visible_; }
    void setVisible(bool visible);
    /// 0…1.
    double opacity() const { return opacity_; }
    void setOpacity(double opacity);
    double fillOpacity() const { return fillOpacity_; }
    void setFillOpacity(double fillOpacity);
    BlendMode blendMode() const { return mode_; }
    /// Pass Through only for groups, and no other group mode (ImageCoreError parameterError).
    void setBlendMode(BlendMode mode);
    bool isClipped() const { return clipped_; }

    /// The pixels' bounds in document coordinates (empty for groups and fill layers).
    const DocumentRect& bounds() const { return bounds_; }
    /// Moves the layer's pixels and its mask by whole pixels (document coordinates, y down);
    /// the old and the new extent are announced.
    void moveBy(std::int64_t dx, std::int64_t dy);
    /// Replaces the pixels with `planes`, straight colour channels then transparency (optional),
    /// each of `bounds`' size and the document's depth (ImageCoreError parameterError
    /// otherwise). The union of the old and new bounds is announced.
    void setPixels(const DocumentRect& bounds, const std::vector<SamplePlane>& planes);

    /// Where the layer's content may be non-transparent, in image coordinates: its bounds, the
    /// document for fill layers, its children's union for groups.
    cg::Rect outputImageExtent() const override;
    Image outputImage(const RenderContext& context) override;
    /// A child's change is passed on as it is: every mode works pixel by pixel.
    void invalidateInputImage(ImageProvider& sender, const cg::Rect& rect) override;

    /// The node's content as an engine image (what outputImage wraps).
    ci::Image content() const;

private:
    friend class DocumentComposition;
    friend struct DocumentCompositor;
    DocumentLayerNode() = default;
    void announce(const cg::Rect& rect);
    void rebuildContent();
    ci::Image storedPixels() const;

    std::shared_ptr<const DocumentCompositeSettings> settings_;
    std::string name_;
    LayerKind kind_ = LayerKind::pixel;
    bool visible_ = true, clipped_ = false;
    double opacity_ = 1, fillOpacity_ = 1;
    BlendMode mode_ = BlendMode::normal;
    // The layer's colour and pattern overlays, bottom first: what each paints (unbounded) over
    // the layer's shape, in its mode and opacity.
    struct Overlay {
        ci::Image paint;
        BlendMode mode;
        double opacity;
    };
    std::vector<Overlay> overlays_;
    DocumentRect bounds_;
    // Straight RGBA of the document's depth over bounds_, shared with the engine image.
    std::shared_ptr<std::uint8_t[]> pixels_; // straight RGBA of the document's depth
    struct Mask {
        DocumentRect rect;
        double defaultLevel = 0;
        double density = 1, feather = 0;
        std::shared_ptr<ByteBuffer> samples; // grey of the document's depth
        std::optional<ci::Image> coverage;   // or a drawn one (vector masks), over the document
    };
    std::vector<Mask> masks_;
    std::optional<ci::Image> fill_; // fill layers: their paint over the document
    std::vector<std::shared_ptr<DocumentLayerNode>> children_;
    ci::Image content_;
};

class DocumentComposition {
public:
    explicit DocumentComposition(const LayeredDocument& document,
                                 DocumentCompositeOptions options = {});

    /// The node whose output is the composite of the visible layers (transparent where none
    /// is), over the document's extent.
    std::shared_ptr<DocumentLayerNode> root() const { return root_; }
    /// The layer or group at `index` in `LayeredDocument::walk` order (std::out_of_range beyond).
    const std::shared_ptr<DocumentLayerNode>& layer(std::size_t index) const;
    std::size_t layerCount() const { return layers_.size(); }
    /// What the composite shows differently from the writing application, one entry per layer
    /// and reason.
    const std::vector<CompositeApproximation>& approximations() const { return approximations_; }

    /// The document's extent in image coordinates.
    cg::Rect extent() const;
    /// The composite as straight planes of the document's size and depth: the colour channels,
    /// then transparency.
    std::vector<SamplePlane> render() const;
    /// The composite as the file stores it, ready for DocumentWriteOptions::composite: colour
    /// matted on white where it is transparent, then transparency.
    std::vector<SamplePlane> renderForFile() const;

private:
    std::shared_ptr<const DocumentCompositeSettings> settings_;
    std::shared_ptr<DocumentLayerNode> root_;
    std::vector<std::shared_ptr<DocumentLayerNode>> layers_;
    std::vector<CompositeApproximation> approximations_;
};

} // namespace bic
