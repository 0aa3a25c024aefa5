#pragma once
// Render targets brought up to date rectangle by rectangle: a caller hands over an image and
// the rectangle that changed, the accumulator renders just that rectangle into its pixels, and
// its image reads the whole area back.
//
// Accumulators lock nothing of their own and are used from one thread at a time; pixel access to
// surface-backed ones goes through the surface's locks.

#include "bic/pixels/pixel_format_list.hpp"
#include "bic/pixels/pixel_formats.hpp"
#include "bic/platform/ci/context.hpp"
#include "bic/platform/ci/image.hpp"
#include "bic/platform/io/surface.hpp"

#include <memory>
#include <optional>
#include <string>

namespace bic {

class ImageAccumulator {
public:
    virtual ~ImageAccumulator() = default;

    /// The accumulated pixels as an image placed on `extent`: a snapshot, which later renders
    /// into the accumulator do not change, so an accumulator can be painted from its own image
    /// and drawn from while it is rendered into.
    virtual ci::Image image() = 0;
    /// Replaces the whole content; failures of any kind are ignored.
    virtual void setImage(const ci::Image& image) = 0;
    /// Renders `image` into `dirtyRect` only. Throws the renderer's errors.
    virtual void setImage(const ci::Image& image, const cg::Rect& dirtyRect) = 0;
    /// The covered area, whole pixels.
    virtual cg::Rect extent() const = 0;
    /// 8, 16 or 32 bits per component.
    virtual int bitDepth() const = 0;

    /// A name for debugging.
    const std::optional<std::string>& title() const { return title_; }
    void setTitle(std::optional<std::string> title) { title_ = std::move(title); }

protected:
    std::optional<std::string> title_;
};

/// Pixels in a shared surface of P's surface format, rows top first.
template <Pixel P>
class SurfaceImageAccumulator : public ImageAccumulator {
public:
    /// Over the integral rectangle of `extent`; nothing when that is wider or taller than a
    /// surface can be, or the surface cannot be made.
    static std::shared_ptr<SurfaceImageAccumulator> make(const cg::Rect& extent,
                                                         std::optional<std::string> title = {});

    ci::Image image() override;
    void setImage(const ci::Image& image) override;
    void setImage(const ci::Image& image, const cg::Rect& dirtyRect) override;
    cg::Rect extent() const override { return extent_; }
    int bitDepth() const override { return P::bitDepth; }

    const std::shared_ptr<io::Surface>& surface() const { return surface_; }
    /// Runs `body(surface)` with the surface locked with `options`.
    template <class F>
    decltype(auto) withLockedSurface(io::LockOptions options, F&& body) {
        if (options == io::LockOptions::readWrite) image_.reset();
        const io::SurfaceLock lock(*surface_, options);
        return body(*surface_);
    }
    /// Runs `body(pixels, width, height, pixelsPerRow)` under a read-only lock, or a read-write
    /// one for the mutable form.
    template <class F>
    decltype(auto) withUnsafeBuffer(F&& body) const {
        const io::SurfaceLock lock(*surface_, io::LockOptions::readOnly);
        return body(static_cast<const P*>(base()), width_, height_, pixelsPerRow());
    }
    template <class F>
    decltype(auto) withUnsafeMutableBuffer(F&& body) {
        image_.reset();
        const io::SurfaceLock lock(*surface_, io::LockOptions::readWrite);
        return body(static_cast<P*>(base()), width_, height_, pixelsPerRow());
    }
    /// The pixel at (x, y), y growing upwards. Outside the extent the process stops.
    P pixel(std::int64_t x, std::int64_t y) const;
    void setPixel(std::int64_t x, std::int64_t y, const P& value);

private:
    SurfaceImageAccumulator() = default;
    void* base() const { return surface_->baseAddress(); }
    std::int64_t pixelsPerRow() const { return surface_->bytesPerRow() / std::int64_t(sizeof(P)); }
    std::int64_t elementIndex(std::int64_t x, std::int64_t y, const char* verb) const;

    std::shared_ptr<io::Surface> surface_;
    std::optional<ci::RenderDestination> destination_;
    std::optional<ci::Image> image_;
    cg::Rect extent_;
    std::int64_t width_ = 0, height_ = 0;
};

/// A surface accumulator of the format for the depth (8, 16, 32) and kind: ARGB8, RGBA16,
/// RGBA32 for colour, the grey formats for masks. Another depth stops the process.
std::shared_ptr<ImageAccumulator>
makeSurfaceImageAccumulator(const cg::Rect& extent, int bitDepth, bool isMask,
                            std::optional<std::string> title = {});

namespace detail {
/// The engine's own accumulator: 8 → ARGB8, 32 → RGBAf, anything else → RGBA16. Used by the
/// factory as the last resort.
std::shared_ptr<ImageAccumulator> makeSystemImageAccumulator(const cg::Rect& extent, int bitDepth,
                                                             const cg::ColorSpace& colorSpace);
} // namespace detail

/// The render target for an area: a surface accumulator where one surface can hold it, else a
/// memory accumulator, else the engine's own; a tiled accumulator for larger areas. Nothing for
/// an empty or infinite extent or when every kind fails.
std::shared_ptr<ImageAccumulator> makeImageAccumulator(const cg::Rect& extent, int bitDepth,
                                                       bool isMask);

#define BIC_EXTERN_SURFACE_ACCUMULATOR(P) extern template class SurfaceImageAccumulator<P>;
BIC_EACH_PIXEL_FORMAT(BIC_EXTERN_SURFACE_ACCUMULATOR)
#undef BIC_EXTERN_SURFACE_ACCUMULATOR

} // namespace bic
