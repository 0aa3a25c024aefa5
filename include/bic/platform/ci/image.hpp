#pragma once
// Lazy images: immutable, shared recipes that render only when drawn into a destination.
//
// The working format is premultiplied RGBA in 32-bit floats with no colour conversion anywhere.
// Coordinates have y growing upwards and pixel centres at +0.5. Outside its extent an image is
// transparent. Copies share the recipe; two images are equal when they are the same recipe.

#include "bic/platform/cg/affine_transform.hpp"
#include "bic/platform/ci/color.hpp"
#include "bic/platform/io/format.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace bic::io {
class Surface;
}

namespace bic::ci {

namespace detail {
struct Node;
}

class Image {
public:
    /// The empty image: nothing anywhere, a null extent.
    Image();

    static Image empty() { return Image(); }
    /// Transparent everywhere (infinite).
    static Image clear();
    /// Opaque white everywhere (infinite).
    static Image white();
    /// Opaque black everywhere (infinite).
    static Image black();
    /// `color` everywhere; the colour's unpremultiplied components are premultiplied.
    static Image constant(const Color& color);

    /// An image over a copy of bitmap bytes: `width` × `height` pixels of `format`, rows
    /// `rowBytes` apart, top row first, extent (0, 0, width, height). Nothing when the sizes are
    /// not positive or the rows are too short for the format.
    /// The colour space says what the numbers mean to the caller; rendering never converts them.
    static std::optional<Image> fromBitmap(const void* bytes, std::int64_t rowBytes,
                                           std::int64_t width, std::int64_t height, Format format,
                                           std::optional<cg::ColorSpace> colorSpace = std::nullopt);
    /// As fromBitmap, but sharing `bytes`, which `owner` keeps alive and nobody writes while
    /// the image exists.
    static std::optional<Image> withSharedBitmap(std::shared_ptr<const void> owner,
                                                 const void* bytes, std::int64_t rowBytes,
                                                 std::int64_t width, std::int64_t height,
                                                 Format format);
    /// The surface's pixels as they are now (a snapshot): later writes to the surface do not
    /// show in the image, so it can be drawn while the surface is written, even into the same
    /// surface. Nothing for surfaces of unknown pixel formats.
    static std::optional<Image> fromSurface(std::shared_ptr<io::Surface> surface);

    /// The domain of definition: where the image may be non-transparent.
    const cg::Rect& extent() const;

    /// Integer translations copy pixels exactly; other transforms sample bilinearly, or take
    /// the nearest pixel after samplingNearest(). NaN in the transform stops the process.
    Image transformed(const cg::AffineTransform& transform) const;
    Image translated(double dx, double dy) const {
        return transformed(cg::AffineTransform::translation(dx, dy));
    }
    /// Pixels outside `rect` become transparent; pixels the rectangle only partly covers keep
    /// that fraction of their colour.
    Image cropped(const cg::Rect& rect) const;
    /// Infinite: every pixel takes the nearest pixel of the integral rectangle of `rect`.
    Image clamped(const cg::Rect& rect) const;
    Image clampedToExtent() const { return clamped(extent()); }
    /// This image over `background` (source over).
    Image composited(const Image& background) const;
    /// Pieces laid over one another: the same pixels as compositing them in turn, but when
    /// their pixels do not overlap (tiles on a grid), a render reads only the pieces its
    /// rectangle touches, however many there are.
    static Image mosaic(const std::vector<Image>& pieces);
    Image premultiplyingAlpha() const;
    Image unpremultiplyingAlpha() const;
    /// Later transforms of the result take the nearest pixel, or sample bilinearly.
    Image samplingNearest() const;
    Image samplingLinear() const;
    /// Renders each region of the result once and keeps it for later renders.
    Image insertingIntermediate() const;
    /// The same pixels, rendered once per tile however many times a recipe reads them there:
    /// for recipes that read one image along two paths (a blend of a layer over a backdrop,
    /// then mixed with that backdrop). Without it each path renders the image again, and a
    /// chain of n such steps renders its first image 2^n times.
    Image sharedWithinTile() const;

    friend bool operator==(const Image& a, const Image& b) { return a.node_ == b.node_; }

    explicit Image(std::shared_ptr<const detail::Node> node);
    const std::shared_ptr<const detail::Node>& node() const { return node_; }

private:
    std::shared_ptr<const detail::Node> node_;
};

} // namespace bic::ci
