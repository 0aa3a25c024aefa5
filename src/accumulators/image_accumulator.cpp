#include "bic/accumulators/image_accumulator.hpp"

#include "bic/accumulators/memory_image_accumulator.hpp"
#include "bic/accumulators/tiled_image_accumulator.hpp"
#include "bic/buffers/surface_pixel_buffer.hpp"
#include "bic/pixels/pixel_format_list.hpp"
#include "bic/platform/ci/image_accumulator.hpp"
#include "pixel_format_choice.hpp"

#include <algorithm>
#include <cmath>
#include <string>

namespace bic {

std::int64_t detail::storeIndex(const cg::Rect& extent, std::int64_t width, std::int64_t height,
                                std::int64_t pixelsPerRow, std::int64_t x, std::int64_t y,
                                const char* verb) {
    const std::int64_t column = x - std::int64_t(std::floor(extent.minX()));
    const std::int64_t row = height - y + std::int64_t(std::floor(extent.minY())) - 1;
    if (column < 0 || column >= width || row < 0 || row >= height)
        fatalError(std::string("Cannot ") + verb + " pixel at x: " + std::to_string(x) +
                   ", y: " + std::to_string(y));
    return row * pixelsPerRow + column;
}

// ---- surface accumulator ----

template <Pixel P>
std::shared_ptr<SurfaceImageAccumulator<P>>
SurfaceImageAccumulator<P>::make(const cg::Rect& requested, std::optional<std::string> title) {
    if (requested.isNull() || requested.isInfinite()) return nullptr;
    std::shared_ptr<SurfaceImageAccumulator> a(new SurfaceImageAccumulator());
    a->extent_ = requested.integral();
    a->title_ = std::move(title);
    a->width_ = std::int64_t(a->extent_.width());
    a->height_ = std::int64_t(a->extent_.height());
    if (a->width_ > io::Surface::maximumWidth || a->height_ > io::Surface::maximumHeight)
        return nullptr;
    const std::int64_t element = sizeof(P);
    a->surface_ =
        io::Surface::make({.width = a->width_,
                           .height = a->height_,
                           .pixelFormat = surfacePixelFormat<P>(),
                           .bytesPerElement = element,
                           .bytesPerRow = io::Surface::alignBytesPerRow(a->width_ * element)});
    if (!a->surface_) return nullptr;
    a->destination_.emplace(a->surface_);
    return a;
}

template <Pixel P>
ci::Image SurfaceImageAccumulator<P>::image() {
    if (!image_) {
        auto read = ci::Image::fromSurface(surface_);
        if (!read) fatalError("A surface of an accumulator's own format cannot be read.");
        image_ = read->translated(extent_.minX(), extent_.minY());
    }
    return *image_;
}

template <Pixel P>
void SurfaceImageAccumulator<P>::setImage(const ci::Image& image) {
    detail::ignoringFailures([&] { setImage(image, extent_); });
}

namespace {
// The pixels of `dirtyRect` the store can hold: renders outside the store are discarded.
std::optional<cg::Rect> renderArea(const ci::Image& image, const cg::Rect& dirtyRect,
                                   const cg::Rect& extent) {
    if (!image.extent().intersects(dirtyRect)) return std::nullopt;
    const cg::Rect r = dirtyRect.integral();
    if (!image.extent().intersects(r)) return std::nullopt;
    const cg::Rect inside = r.intersection(extent);
    if (inside.isNull() || inside.isEmpty()) return std::nullopt;
    return inside;
}
} // namespace

template <Pixel P>
void SurfaceImageAccumulator<P>::setImage(const ci::Image& image, const cg::Rect& dirtyRect) {
    const auto r = renderArea(image, dirtyRect, extent_);
    if (!r) return;
    ci::Context::shared()->startTaskToRender(
        image, *r, *destination_,
        cg::Point{r->minX() - extent_.minX(), r->minY() - extent_.minY()});
    image_.reset();
}

template <Pixel P>
P SurfaceImageAccumulator<P>::pixel(std::int64_t x, std::int64_t y) const {
    const auto i = detail::storeIndex(extent_, width_, height_, pixelsPerRow(), x, y, "get");
    const io::SurfaceLock lock(*surface_, io::LockOptions::readOnly);
    return static_cast<const P*>(base())[i];
}

template <Pixel P>
void SurfaceImageAccumulator<P>::setPixel(std::int64_t x, std::int64_t y, const P& value) {
    const auto i = detail::storeIndex(extent_, width_, height_, pixelsPerRow(), x, y, "set");
    image_.reset();
    const io::SurfaceLock lock(*surface_,
                               io::SurfaceArea{i % pixelsPerRow(), i / pixelsPerRow(), 1, 1});
    static_cast<P*>(base())[i] = value;
}

#define BIC_INSTANTIATE(P) template class SurfaceImageAccumulator<P>;
BIC_EACH_PIXEL_FORMAT(BIC_INSTANTIATE)
#undef BIC_INSTANTIATE

std::shared_ptr<ImageAccumulator> makeSurfaceImageAccumulator(const cg::Rect& extent, int bitDepth,
                                                              bool isMask,
                                                              std::optional<std::string> title) {
    return detail::withAccumulatorFormat(
        bitDepth, isMask, [&]<class P>(std::type_identity<P>) -> std::shared_ptr<ImageAccumulator> {
            return SurfaceImageAccumulator<P>::make(extent, std::move(title));
        });
}

// ---- the engine's accumulator ----

namespace {

class SystemImageAccumulator : public ImageAccumulator {
public:
    SystemImageAccumulator(std::shared_ptr<ci::ImageAccumulator> a, const cg::Rect& extent,
                           int bitDepth)
        : accumulator_(std::move(a)), extent_(extent.integral()), bitDepth_(bitDepth) {}

    ci::Image image() override { return accumulator_->image(); }
    void setImage(const ci::Image& image) override {
        detail::ignoringFailures([&] { accumulator_->setImage(image); });
    }
    void setImage(const ci::Image& image, const cg::Rect& dirtyRect) override {
        accumulator_->setImage(image, dirtyRect);
    }
    cg::Rect extent() const override { return extent_; }
    int bitDepth() const override { return bitDepth_; }

private:
    std::shared_ptr<ci::ImageAccumulator> accumulator_;
    cg::Rect extent_;
    int bitDepth_;
};

} // namespace

std::shared_ptr<ImageAccumulator> detail::makeSystemImageAccumulator(const cg::Rect& extent,
                                                                     int bitDepth,
                                                                     const cg::ColorSpace& space) {
    const ci::Format format = bitDepth == 8    ? ci::Format::ARGB8
                              : bitDepth == 32 ? ci::Format::RGBAf
                                               : ci::Format::RGBA16;
    auto a = ci::ImageAccumulator::make(extent, format, space);
    if (!a) return nullptr;
    return std::make_shared<SystemImageAccumulator>(std::move(a), extent, bitDepth);
}

// ---- the factory ----

std::shared_ptr<ImageAccumulator> makeImageAccumulator(const cg::Rect& extent, int bitDepth,
                                                       bool isMask) {
    if (extent.isNull() || extent.isEmpty() || extent.isInfinite()) return nullptr;
    const double width = std::ceil(extent.width()), height = std::ceil(extent.height());
    if (width <= double(io::Surface::maximumWidth) &&
        height <= double(io::Surface::maximumHeight)) {
        if (auto a = makeSurfaceImageAccumulator(extent, bitDepth, isMask)) return a;
        if (auto a = makeMemoryImageAccumulator(bitDepth, extent, isMask)) return a;
        return detail::makeSystemImageAccumulator(extent, bitDepth, cg::ColorSpace::deviceGray());
    }
    // One tile per side would be as large as the area and could never be made; tiles are
    // limited to what one surface can hold.
    const auto tile = std::int64_t(std::min(
        {width, height, double(io::Surface::maximumWidth), double(io::Surface::maximumHeight)}));
    return detail::withAccumulatorFormat(
        bitDepth, isMask, [&]<class P>(std::type_identity<P>) -> std::shared_ptr<ImageAccumulator> {
            return std::make_shared<TiledImageAccumulator<P>>(tile);
        });
}

} // namespace bic
