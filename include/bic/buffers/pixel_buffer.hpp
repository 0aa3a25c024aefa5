#pragma once
// The library's in-memory bitmap: pixels of one format in one byte buffer that is also the
// backing store of a drawing context, so images can be drawn into it and read from it.
//
// Rows are 16-byte aligned and stored top row first; pixel (x, y) has its origin at the bottom
// left. Copies of a buffer share the bytes and the caches: a write through one copy is seen by
// all, and caches filled before a write are not refreshed.

#include "bic/buffers/channel_data.hpp"
#include "bic/geometry/integral_geometry.hpp"
#include "bic/paths/path.hpp"
#include "bic/pixels/pixel_format_list.hpp"
#include "bic/pixels/pixel_formats.hpp"
#include "bic/platform/ci/image.hpp"
#include "bic/platform/draw/context.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace bic {

namespace detail {
template <class P>
struct PixelRows;
}

/// 16-bit samples kept in 1…32768 by some stores: floor(v / 2) + 1.
std::uint16_t reduced16BitValue(std::uint16_t v);
/// 2r − 1; a stored value above 32768 throws ImageCoreError::fileReadCorruptedDataError, and 0
/// (which reducing never writes) expands to 0.
std::uint16_t expanded16BitValue(std::uint16_t r);

template <Pixel P>
class PixelBuffer {
public:
    using Element = P;
    template <Pixel Q>
    using Rebind = PixelBuffer<Q>;

    /// A zero-filled buffer. Throws ImageCoreError: parameterError for a size below 1 × 1,
    /// memoryError when the bytes cannot be had. A colour space of another model than P's is a
    /// caller error.
    PixelBuffer(IntegralSize size, const cg::ColorSpace& colorSpace, std::string title = {});
    /// The pixels of `image` over the integral rectangle of `extent`, rendered without colour
    /// conversion. Throws parameterError for an empty or infinite extent.
    PixelBuffer(const ci::Image& image, const cg::Rect& extent, std::string title = {});
    /// `image` drawn with the copy blend mode into a buffer of its size.
    PixelBuffer(const cg::Image& image, const cg::ColorSpace& targetColorSpace,
                std::string title = {});
    /// Pixels from stored planes (red, green, blue, alpha, or one grey plane), each decoded;
    /// 16-bit planes are expanded when `expand16BitColorRange`. Throws the planes' errors,
    /// parameterError for planes of the wrong component type or count.
    PixelBuffer(IntegralSize size, std::vector<AnyChannelData> channels, bool expand16BitColorRange,
                std::string title = {});
    /// A colour buffer from an 8-bit index plane and a colour table; indices beyond the table
    /// give clear pixels.
    PixelBuffer(IntegralSize size, const std::vector<P>& colorTable,
                ChannelData<std::uint8_t> channel, std::string title = {});

    const std::string& title() const { return title_; }
    const IntegralSize& size() const { return size_; }
    std::int64_t pixelsPerRow() const { return pixelsPerRow_; }
    std::int64_t bytesPerRow() const { return pixelsPerRow_ * std::int64_t(sizeof(P)); }
    static constexpr cg::ColorSpaceModel model = P::model;
    static constexpr bool isMonochrome = P::model == cg::ColorSpaceModel::monochrome;
    static constexpr int channelCount = P::componentCount;
    static constexpr int bitDepth = P::bitDepth;
    const cg::ColorSpace& colorSpace() const;

    /// The pixel at (x, y) from the bottom left; nothing outside the buffer.
    std::optional<P> operator()(std::int64_t x, std::int64_t y) const;
    /// Runs `body` over the pixels, rows top first, `pixelsPerRow` apart.
    template <class F>
    decltype(auto) withUnsafeBuffer(F&& body) {
        return body(std::span<P>(pixels(), std::size_t(pixelsPerRow_ * size_.height)));
    }
    template <class F>
    decltype(auto) withUnsafeBuffer(F&& body) const {
        return body(std::span<const P>(pixels(), std::size_t(pixelsPerRow_ * size_.height)));
    }
    /// The drawing context over the pixels.
    cg::Context& bitmap() const;

    /// The buffer as a lazy image over (0, 0, width, height); made once.
    ci::Image image() const;
    cg::Image cgImage() const {
        return cgImage(P::deviceColorSpace(), cg::RenderingIntent::defaultIntent);
    }
    /// Throws parameterError for a space of another model than P's.
    cg::Image cgImage(const cg::ColorSpace& colorSpace, cg::RenderingIntent intent) const;

    /// The smallest rectangle holding every pixel whose trim component is not zero; made once.
    cg::Rect visibleExtent() const;
    /// The smallest rectangle holding every pixel unlike `background`; (0, 0, width, 0) if none.
    cg::Rect trimmedExtent(const P& background) const;
    /// The pixels matched from `from` to `to` (both of P's model): colours are unpremultiplied,
    /// matched and premultiplied again. Throws parameterError for spaces of another model and
    /// colorConversionError when the spaces cannot be matched.
    PixelBuffer converted(const cg::ColorSpace& from, const cg::ColorSpace& to,
                          cg::RenderingIntent intent) const;
    /// A new buffer of the integral intersection with `rect`; parameterError when empty.
    PixelBuffer cropped(const cg::Rect& rect) const;
    /// One plane per component (red, green, blue, alpha or grey), each compressed. When a plane
    /// fails the others are still coded and the last error is thrown.
    std::vector<AnyChannelData> compressedChannels(bool reduced16BitColorRange,
                                                   ChannelDataCompressionType compression,
                                                   PredictionType prediction,
                                                   bool discardIneffectiveCompression) const;
    /// Every pixel opaque white, or opaque black (colour formats, exact components).
    bool isWhiteImage() const requires RGBAPixel<P>;
    bool isBlackImage() const requires RGBAPixel<P>;

    /// Closed outlines of the opaque area (alpha ≥ ½ for colour formats, grey ≥ ½ for grey ones):
    /// one for the outer boundary of every 8-connected region, in the order found scanning up
    /// from the bottom row, then one for every hole. Corners sit on boundary pixels' integer
    /// coordinates; straight runs are merged. Traced once, then cached: the reference stays
    /// valid while any copy of the buffer lives. Nothing when the mask cannot be made.
    const std::optional<std::vector<Path>>& outlinePath() const;

    /// The stored record (see pixel_buffer_record.hpp).
    void encode(coding::Encoder& encoder) const;

    /// Same size and equal pixels; padding, titles and caches are not compared.
    friend bool operator==(const PixelBuffer& a, const PixelBuffer& b) { return a.equalPixels(b); }

private:
    struct Storage;
    void allocate(const cg::ColorSpace& space);
    P* pixels() const;
    bool equalPixels(const PixelBuffer& other) const;
    detail::PixelRows<P> rows() const;
    /// The value the storage caches for outlines, made by `make` on first use (outside the lock,
    /// since making it renders the buffer).
    std::shared_ptr<const void>
    cachedOutlines(const std::function<std::shared_ptr<const void>()>& make) const;
    detail::PixelRows<const P> constRows() const;

    std::string title_;
    IntegralSize size_;
    std::int64_t pixelsPerRow_ = 0;
    std::shared_ptr<Storage> storage_;
};

#define BIC_EXTERN_PIXEL_BUFFER(P) extern template class PixelBuffer<P>;
BIC_EACH_PIXEL_FORMAT(BIC_EXTERN_PIXEL_BUFFER)
#undef BIC_EXTERN_PIXEL_BUFFER

} // namespace bic
