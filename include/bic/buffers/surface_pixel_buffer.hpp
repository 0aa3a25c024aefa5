#pragma once
// A pixel buffer whose pixels live in a shared surface, so renderers can write into it and read
// from it without copies. Same formats, bottom-left coordinates and operations as PixelBuffer.
//
// Every access to the pixels is bracketed by a surface lock (read-only for reading); a renderer
// may change the pixels between two accesses. Accesses nest: a read inside withUnsafeBuffer is
// fine. The buffer's own caches are never locked while the surface is being locked, so the two
// locks are always taken in one order (surface first). Copies share the surface and the caches, and
// two buffers are equal exactly when they share one surface: their pixels are not compared, since
// they may change under either.

#include "bic/buffers/channel_data.hpp"
#include "bic/geometry/integral_geometry.hpp"
#include "bic/pixels/pixel_format_list.hpp"
#include "bic/pixels/pixel_formats.hpp"
#include "bic/platform/ci/image.hpp"
#include "bic/platform/draw/image.hpp"
#include "bic/platform/io/surface.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace bic {

namespace detail {
template <class P>
struct PixelRows;
}

/// The surface pixel format of P ('L008', 'l64r', … ; 32 for 8-bit ARGB).
template <Pixel P>
constexpr std::uint32_t surfacePixelFormat() {
    switch (P::ciFormat) {
    case ci::Format::ARGB8:
        return io::surface_format::argb8;
    case ci::Format::L8:
        return io::surface_format::gray8;
    case ci::Format::RGBA16:
        return io::surface_format::rgba16;
    case ci::Format::L16:
        return io::surface_format::gray16;
    case ci::Format::RGBAf:
        return io::surface_format::rgbaf;
    case ci::Format::Lf:
        return io::surface_format::grayf;
    default:
        return 0;
    }
}

template <Pixel P>
class SurfacePixelBuffer {
public:
    using Element = P;
    template <Pixel Q>
    using Rebind = SurfacePixelBuffer<Q>;

    /// A zero-filled buffer. Throws ImageCoreError: parameterError for a size outside 1 … the
    /// surface maxima, unknownError when the surface cannot be made.
    explicit SurfacePixelBuffer(IntegralSize size, std::string title = {});
    /// `image` drawn with the copy blend mode. The drawing space is `targetColorSpace` when of
    /// P's model, else the image's own space when of P's model, else P's device space.
    SurfacePixelBuffer(const cg::Image& image,
                       const std::optional<cg::ColorSpace>& targetColorSpace,
                       std::string title = {});
    /// The pixels of `image` over the integral rectangle of `extent`, rendered into the surface.
    /// Throws parameterError for an empty or infinite extent.
    SurfacePixelBuffer(const ci::Image& image, const cg::Rect& extent, std::string title = {});
    /// Pixels from stored planes, as PixelBuffer's constructor from planes.
    SurfacePixelBuffer(IntegralSize size, std::vector<AnyChannelData> channels,
                       bool expand16BitColorRange, std::string title = {});

    const std::string& title() const { return title_; }
    const IntegralSize& size() const { return size_; }
    std::int64_t pixelsPerRow() const { return pixelsPerRow_; }
    std::int64_t bytesPerRow() const { return pixelsPerRow_ * std::int64_t(sizeof(P)); }
    static constexpr cg::ColorSpaceModel model = P::model;
    static constexpr bool isMonochrome = P::model == cg::ColorSpaceModel::monochrome;
    static constexpr int channelCount = P::componentCount;
    static constexpr int bitDepth = P::bitDepth;
    const std::shared_ptr<io::Surface>& surface() const { return surface_; }

    /// The pixel at (x, y) from the bottom left, read under a read-only lock; nothing outside.
    std::optional<P> operator()(std::int64_t x, std::int64_t y) const;
    /// Runs `body` over the pixels (rows top first, `pixelsPerRow` apart) under a read-write
    /// lock, or a read-only one for the const form.
    template <class F>
    decltype(auto) withUnsafeBuffer(F&& body) {
        // An image taken inside the body would be cached before its writes were done.
        struct Forget {
            const SurfacePixelBuffer& buffer;
            ~Forget() { buffer.forgetImage(); }
        } forget{*this};
        forgetImage();
        const io::SurfaceLock lock(*surface_, io::LockOptions::readWrite);
        return body(std::span<P>(pixels(), std::size_t(pixelsPerRow_ * size_.height)));
    }
    template <class F>
    decltype(auto) withUnsafeBuffer(F&& body) const {
        const io::SurfaceLock lock(*surface_, io::LockOptions::readOnly);
        return body(std::span<const P>(pixels(), std::size_t(pixelsPerRow_ * size_.height)));
    }

    /// The pixels as an image: a snapshot, made once and again after each write through
    /// withUnsafeBuffer. Images handed out earlier keep the pixels they were made with.
    ci::Image image() const;
    cg::Image cgImage() const {
        return cgImage(P::deviceColorSpace(), cg::RenderingIntent::defaultIntent);
    }
    /// A snapshot of the pixels as they are now. Throws parameterError for a space of another
    /// model than P's.
    cg::Image cgImage(const cg::ColorSpace& colorSpace, cg::RenderingIntent intent) const;

    /// As PixelBuffer's: the extent is made once and not refreshed by later writes.
    cg::Rect visibleExtent() const;
    cg::Rect trimmedExtent(const P& background) const;
    SurfacePixelBuffer converted(const cg::ColorSpace& from, const cg::ColorSpace& to,
                                 cg::RenderingIntent intent) const;
    SurfacePixelBuffer cropped(const cg::Rect& rect) const;
    std::vector<AnyChannelData> compressedChannels(bool reduced16BitColorRange,
                                                   ChannelDataCompressionType compression,
                                                   PredictionType prediction,
                                                   bool discardIneffectiveCompression) const;
    bool isWhiteImage() const requires RGBAPixel<P>;
    bool isBlackImage() const requires RGBAPixel<P>;
    /// The stored record (see pixel_buffer_record.hpp).
    void encode(coding::Encoder& encoder) const;

    friend bool operator==(const SurfacePixelBuffer& a, const SurfacePixelBuffer& b) {
        return a.surface_ == b.surface_;
    }

private:
    struct Caches;
    void forgetImage() const;
    void allocate();
    P* pixels() const { return reinterpret_cast<P*>(surface_->baseAddress()); }
    detail::PixelRows<P> rows() const;
    detail::PixelRows<const P> constRows() const;

    std::string title_;
    IntegralSize size_;
    std::int64_t pixelsPerRow_ = 0;
    std::shared_ptr<io::Surface> surface_;
    std::shared_ptr<Caches> caches_;
};

#define BIC_EXTERN_SURFACE_PIXEL_BUFFER(P) extern template class SurfacePixelBuffer<P>;
BIC_EACH_PIXEL_FORMAT(BIC_EXTERN_SURFACE_PIXEL_BUFFER)
#undef BIC_EXTERN_SURFACE_PIXEL_BUFFER

} // namespace bic
