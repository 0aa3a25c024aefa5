#pragma once
// An accumulator whose pixels live in ordinary memory, shared by a drawing context (so callers
// can also draw vector shapes into it) and the renderer. A render is complete when setImage
// returns.

#include "bic/accumulators/image_accumulator.hpp"
#include "bic/pixels/pixel_format_list.hpp"
#include "bic/platform/draw/context.hpp"

#include <variant>
#include <vector>

namespace bic {

/// A colour pixel at one of the three depths.
using AnyRGBAPixel = std::variant<PixelARGB8, PixelRGBA16, PixelRGBA32>;

/// A memory accumulator of any pixel format.
class AnyMemoryImageAccumulator : public ImageAccumulator {
public:
    /// The drawing context over the pixels, in image coordinates.
    virtual cg::Context& bitmap() = 0;
    /// Makes drawing done through `bitmap` show in the next `image`.
    virtual void flushDrawing() = 0;
    /// The colour at (x, y) at the accumulator's depth; a grey g reads as (g, g, g, opaque).
    virtual AnyRGBAPixel color(std::int64_t x, std::int64_t y) const = 0;
    /// Moves the recorded area; the pixels and their size stay.
    virtual void setExtent(const cg::Rect& extent) = 0;
};

template <Pixel P>
class MemoryImageAccumulator : public AnyMemoryImageAccumulator {
public:
    /// Over the integral rectangle of `extent`, all bytes zero; nothing when the memory or the
    /// drawing context cannot be had.
    static std::shared_ptr<MemoryImageAccumulator> make(const cg::Rect& extent,
                                                        std::optional<std::string> title = {});

    /// A snapshot: later writes show only after the next render or flushDrawing.
    ci::Image image() override;
    void setImage(const ci::Image& image) override;
    void setImage(const ci::Image& image, const cg::Rect& dirtyRect) override;
    cg::Rect extent() const override { return extent_; }
    void setExtent(const cg::Rect& extent) override { extent_ = extent; }
    int bitDepth() const override { return P::bitDepth; }
    cg::Context& bitmap() override { return *bitmap_; }
    void flushDrawing() override { cacheImage_.reset(); }
    AnyRGBAPixel color(std::int64_t x, std::int64_t y) const override;
    ci::Image debugQuickLookObject() { return image(); }

    std::int64_t width() const { return width_; }
    std::int64_t height() const { return height_; }
    std::int64_t bytesPerRow() const { return bytesPerRow_; }
    std::int64_t pixelsPerRow() const { return bytesPerRow_ / std::int64_t(sizeof(P)); }

    /// Runs `body(pixels, width, height, pixelsPerRow)`; rows top first.
    template <class F>
    decltype(auto) withUnsafeBuffer(F&& body) const {
        return body(static_cast<const P*>(data()), width_, height_, pixelsPerRow());
    }
    template <class F>
    decltype(auto) withUnsafeMutableBuffer(F&& body) {
        return body(static_cast<P*>(data()), width_, height_, pixelsPerRow());
    }
    /// The pixel at (x, y), y growing upwards. Outside the buffer the process stops.
    P pixel(std::int64_t x, std::int64_t y) const;
    void setPixel(std::int64_t x, std::int64_t y, const P& value);

private:
    MemoryImageAccumulator() = default;
    void* data() const { return const_cast<std::uint8_t*>(rawData_.data()); }
    std::int64_t elementIndex(std::int64_t x, std::int64_t y, const char* verb) const;

    std::unique_ptr<cg::Context> bitmap_;
    std::int64_t bytesPerRow_ = 0;
    std::vector<std::uint8_t> rawData_;
    std::optional<ci::RenderDestination> destination_;
    std::optional<ci::Image> cacheImage_;
    cg::Rect extent_;
    std::int64_t width_ = 0, height_ = 0;
};

/// A memory accumulator of the format for the depth and kind (as makeSurfaceImageAccumulator).
/// Another depth stops the process.
std::shared_ptr<AnyMemoryImageAccumulator>
makeMemoryImageAccumulator(int bitDepth, const cg::Rect& extent, bool isMask,
                           std::optional<std::string> title = {});

#define BIC_EXTERN_MEMORY_ACCUMULATOR(P) extern template class MemoryImageAccumulator<P>;
BIC_EACH_PIXEL_FORMAT(BIC_EXTERN_MEMORY_ACCUMULATOR)
#undef BIC_EXTERN_MEMORY_ACCUMULATOR

} // namespace bic
