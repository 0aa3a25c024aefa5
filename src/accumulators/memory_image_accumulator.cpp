#include "bic/accumulators/memory_image_accumulator.hpp"

#include "bic/pixels/pixel_format_list.hpp"
#include "bic/platform/core/checked.hpp"
#include "bic/platform/core/memory.hpp"
#include "pixel_format_choice.hpp"

#include <new>

namespace bic {

template <Pixel P>
std::shared_ptr<MemoryImageAccumulator<P>>
MemoryImageAccumulator<P>::make(const cg::Rect& requested, std::optional<std::string> title) {
    if (requested.isNull() || requested.isInfinite()) return nullptr;
    std::shared_ptr<MemoryImageAccumulator> a(new MemoryImageAccumulator());
    a->title_ = std::move(title);
    a->extent_ = requested.integral();
    a->width_ = std::int64_t(a->extent_.width());
    a->height_ = std::int64_t(a->extent_.height());
    if (a->width_ < 1 || a->height_ < 1) return nullptr;
    const std::int64_t packed = checked::mul(a->width_, std::int64_t(sizeof(P)));
    a->bytesPerRow_ = (packed + 15) / 16 * 16;
    try {
        a->rawData_ = zeroedBuffer(std::size_t(checked::mul(a->bytesPerRow_, a->height_)));
    } catch (const std::bad_alloc&) {
        return nullptr;
    } catch (const std::length_error&) {
        return nullptr;
    }
    a->bitmap_ = cg::Context::bitmap(a->rawData_.data(), a->width_, a->height_, P::bitDepth,
                                     a->bytesPerRow_, P::deviceColorSpace(), P::bitmapInfo);
    if (!a->bitmap_) return nullptr;
    // Callers draw in image coordinates.
    a->bitmap_->translateBy(-a->extent_.minX(), -a->extent_.minY());
    a->destination_.emplace(a->rawData_.data(), a->width_, a->height_, a->bytesPerRow_,
                            P::ciFormat);
    return a;
}

template <Pixel P>
ci::Image MemoryImageAccumulator<P>::image() {
    if (!cacheImage_) {
        auto snapshot = ci::Image::fromBitmap(rawData_.data(), bytesPerRow_, width_, height_,
                                              P::ciFormat, P::deviceColorSpace());
        if (!snapshot) fatalError("An accumulator's own pixels could not be read.");
        cacheImage_ = snapshot->translated(extent_.minX(), extent_.minY());
    }
    return *cacheImage_;
}

template <Pixel P>
void MemoryImageAccumulator<P>::setImage(const ci::Image& image) {
    detail::ignoringFailures([&] { setImage(image, extent_); });
}

template <Pixel P>
void MemoryImageAccumulator<P>::setImage(const ci::Image& image, const cg::Rect& dirtyRect) {
    const cg::Rect r = dirtyRect.integral();
    if (!image.extent().intersects(r)) return;
    // The buffer holds width × height pixels from the extent's origin; renders outside it are
    // discarded.
    const cg::Rect store(extent_.minX(), extent_.minY(), double(width_), double(height_));
    const cg::Rect inside = r.intersection(store);
    if (inside.isNull() || inside.isEmpty()) return;
    ci::Context::shared()
        ->startTaskToRender(
            image, inside, *destination_,
            cg::Point{inside.minX() - extent_.minX(), inside.minY() - extent_.minY()})
        .waitUntilCompleted();
    cacheImage_.reset();
}

template <Pixel P>
AnyRGBAPixel MemoryImageAccumulator<P>::color(std::int64_t x, std::int64_t y) const {
    const P p = pixel(x, y);
    if constexpr (RGBAPixel<P>) {
        return p;
    } else {
        const auto g = p.grayComponent;
        if constexpr (Pixel8<P>)
            return PixelARGB8(g, g, g, 255);
        else if constexpr (Pixel16<P>)
            return PixelRGBA16(g, g, g, 65535);
        else
            return PixelRGBA32(g, g, g, 1.0f);
    }
}

template <Pixel P>
P MemoryImageAccumulator<P>::pixel(std::int64_t x, std::int64_t y) const {
    return static_cast<const P*>(
        data())[detail::storeIndex(extent_, width_, height_, pixelsPerRow(), x, y, "get")];
}

template <Pixel P>
void MemoryImageAccumulator<P>::setPixel(std::int64_t x, std::int64_t y, const P& value) {
    static_cast<P*>(
        data())[detail::storeIndex(extent_, width_, height_, pixelsPerRow(), x, y, "set")] = value;
}

#define BIC_INSTANTIATE(P) template class MemoryImageAccumulator<P>;
BIC_EACH_PIXEL_FORMAT(BIC_INSTANTIATE)
#undef BIC_INSTANTIATE

std::shared_ptr<AnyMemoryImageAccumulator>
makeMemoryImageAccumulator(int bitDepth, const cg::Rect& extent, bool isMask,
                           std::optional<std::string> title) {
    return detail::withAccumulatorFormat(
        bitDepth, isMask,
        [&]<class P>(std::type_identity<P>) -> std::shared_ptr<AnyMemoryImageAccumulator> {
            return MemoryImageAccumulator<P>::make(extent, std::move(title));
        });
}

} // namespace bic
