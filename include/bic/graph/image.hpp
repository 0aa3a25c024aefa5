#pragma once
// The values that travel through the image graph: an image with what its pixels mean, and the
// context a consumer passes when it asks a provider for its image.

#include "bic/pixels/pixel.hpp"
#include "bic/platform/ci/image.hpp"

#include <any>
#include <map>
#include <string>

namespace bic {

/// A lazy image and what its pixels mean. Copies share the (immutable) recipe.
class Image {
public:
    enum class Intent {
        image, ///< a colour picture with alpha
        mask,  ///< grey: white reveals, black hides
        data,  ///< values that are neither; never turned into a mask
    };

    ci::Image ciImage;
    Intent intent = Intent::image;

    Image(ci::Image image, Intent intent) : ciImage(std::move(image)), intent(intent) {}
    /// A picture.
    explicit Image(ci::Image image) : Image(std::move(image), Intent::image) {}
    static Image mask(ci::Image image) { return {std::move(image), Intent::mask}; }
    static Image data(ci::Image image) { return {std::move(image), Intent::data}; }
    /// A picture of one colour everywhere (infinite extent).
    // (The first test keeps copies of Image from asking whether Image is a pixel.)
    template <class P>
    requires(!std::is_same_v<P, Image> && Pixel<P>) explicit Image(const P& pixel)
        : Image(ci::Image::constant(pixel.ciColor())) {}

    /// Transparent, with an empty extent.
    static Image empty() { return Image(ci::Image::empty()); }
    /// White everywhere: the mask that hides nothing.
    static Image emptyMask() { return mask(ci::Image::white()); }
    /// Black everywhere: the mask that hides everything.
    static Image hidingMask() { return mask(ci::Image::black()); }
    static Image zeroData() { return data(ci::Image::black()); }

    const cg::Rect& extent() const { return ciImage.extent(); }
    /// A mask: a picture's transparency (outside its extent everything hides), a mask itself.
    /// Data stops the process with "Cannot create mask from data.".
    Image maskRepresentation() const;
    Image knockoutMask() const { return maskRepresentation(); }

    Image samplingNearest() const { return {ciImage.samplingNearest(), intent}; }
    Image samplingLinear() const { return {ciImage.samplingLinear(), intent}; }
    Image insertingIntermediate() const { return {ciImage.insertingIntermediate(), intent}; }
    Image premultiplied() const { return {ciImage.premultiplyingAlpha(), intent}; }
    Image unpremultiplied() const { return {ciImage.unpremultiplyingAlpha(), intent}; }

    /// The same recipe object and the same intent.
    friend bool operator==(const Image&, const Image&) = default;
};

/// What a consumer passes along when it asks for an image. Nodes hand it on unchanged; only
/// caching nodes read `disableCaching`.
struct RenderContext {
    enum class Quality { standard, preview };

    Quality quality = Quality::standard;
    Image background = Image::empty();
    bool disableCaching = false;
    /// Free-form values for the host's own nodes.
    std::map<std::string, std::any> userInfo;

    RenderContext() = default;
    explicit RenderContext(Quality q) : quality(q) {}

    /// The ready-made contexts; each call returns a copy of a value made once.
    static RenderContext defaultContext();
    static RenderContext defaultNoCaching();
    static RenderContext preview();
    static RenderContext fileOutput();
};

} // namespace bic
