#include "bic/platform/ci/image_accumulator.hpp"

#include "bic/platform/io/surface.hpp"

namespace bic::ci {

std::shared_ptr<ImageAccumulator> ImageAccumulator::make(const cg::Rect& extent, Format format,
                                                         std::optional<cg::ColorSpace> colorSpace) {
    if (extent.isEmpty() || extent.isInfinite()) return nullptr;
    const cg::Rect integral = extent.integral();
    if (integral.width() > double(io::Surface::maximumWidth * 4) ||
        integral.height() > double(io::Surface::maximumHeight * 4))
        return nullptr;
    return std::shared_ptr<ImageAccumulator>(
        new ImageAccumulator(integral, format, std::move(colorSpace)));
}

ImageAccumulator::ImageAccumulator(const cg::Rect& extent, Format format,
                                   std::optional<cg::ColorSpace> space)
    : extent_(extent), format_(format), colorSpace_(std::move(space)),
      width_(std::int64_t(extent.width())), height_(std::int64_t(extent.height())),
      rowBytes_(width_ * bytesPerPixel(format)),
      pixels_(std::make_shared<std::vector<std::uint8_t>>(std::size_t(rowBytes_ * height_), 0)),
      context_(Context::shared()) {}

Image ImageAccumulator::image() const {
    const auto pixels = pixels_;
    return Image::withSharedBitmap(pixels, pixels->data(), rowBytes_, width_, height_, format_)
        ->translated(extent_.minX(), extent_.minY());
}

void ImageAccumulator::detach() {
    if (pixels_.use_count() > 1) pixels_ = std::make_shared<std::vector<std::uint8_t>>(*pixels_);
}

void ImageAccumulator::setImage(const Image& image) { setImage(image, extent_); }

void ImageAccumulator::setImage(const Image& image, const cg::Rect& dirtyRect) {
    const cg::Rect area = dirtyRect.integral().intersection(extent_);
    if (area.isEmpty()) return;
    detach();
    RenderDestination destination(pixels_->data(), width_, height_, rowBytes_, format_);
    context_->startTaskToRender(image, area, destination,
                                {area.minX() - extent_.minX(), area.minY() - extent_.minY()});
}

} // namespace bic::ci
