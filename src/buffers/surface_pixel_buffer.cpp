#include "bic/buffers/surface_pixel_buffer.hpp"

#include "bic/pixels/pixel_format_list.hpp"
#include "bic/platform/ci/context.hpp"
#include "bic/platform/core/checked.hpp"
#include "bic/platform/core/pixel_math.hpp"
#include "bic/platform/draw/context.hpp"
#include "pixel_rows.hpp"

#include <mutex>

namespace bic {

template <Pixel P>
struct SurfacePixelBuffer<P>::Caches {
    std::mutex mutex;
    std::optional<ci::Image> image;
    std::optional<cg::Rect> visibleExtent;
};

namespace {

bool withinSurfaceMaxima(std::int64_t width, std::int64_t height) {
    return width >= 1 && height >= 1 && width <= io::Surface::maximumWidth &&
           height <= io::Surface::maximumHeight;
}

} // namespace

template <Pixel P>
void SurfacePixelBuffer<P>::allocate() {
    if (!withinSurfaceMaxima(size_.width, size_.height))
        throw ImageCoreError(ImageCoreError::parameterError);
    const std::int64_t element = sizeof(P);
    const std::int64_t rowBytes = io::Surface::alignBytesPerRow(size_.width * element);
    if (rowBytes % element != 0)
        throw ImageCoreError(ImageCoreError::unknownError,
                             "the surface's row length is not a whole number of pixels");
    surface_ = io::Surface::make({.width = size_.width,
                                  .height = size_.height,
                                  .pixelFormat = surfacePixelFormat<P>(),
                                  .bytesPerElement = element,
                                  .bytesPerRow = rowBytes});
    if (!surface_)
        throw ImageCoreError(ImageCoreError::unknownError, "the surface could not be created");
    pixelsPerRow_ = rowBytes / element;
    caches_ = std::make_shared<Caches>();
}

template <Pixel P>
SurfacePixelBuffer<P>::SurfacePixelBuffer(IntegralSize size, std::string title)
    : title_(std::move(title)), size_(size) {
    allocate();
}

template <Pixel P>
SurfacePixelBuffer<P>::SurfacePixelBuffer(const cg::Image& image,
                                          const std::optional<cg::ColorSpace>& target,
                                          std::string title)
    : title_(std::move(title)), size_(image.width(), image.height()) {
    allocate();
    const cg::ColorSpace space = target && target->model() == P::model    ? *target
                                 : image.colorSpace().model() == P::model ? image.colorSpace()
                                                                          : P::deviceColorSpace();
    const io::SurfaceLock lock(*surface_, io::LockOptions::readWrite);
    auto context = cg::Context::bitmap(surface_->baseAddress(), size_.width, size_.height,
                                       P::bitDepth, surface_->bytesPerRow(), space, P::bitmapInfo);
    if (!context)
        throw ImageCoreError(ImageCoreError::unknownError,
                             "no drawing context for the surface's pixel format");
    context->setBlendMode(cg::BlendMode::copy);
    context->draw(image, cg::Rect(0, 0, double(size_.width), double(size_.height)));
}

template <Pixel P>
SurfacePixelBuffer<P>::SurfacePixelBuffer(const ci::Image& image, const cg::Rect& extent,
                                          std::string title)
    : title_(std::move(title)) {
    if (extent.isEmpty() || extent.isInfinite())
        throw ImageCoreError(ImageCoreError::parameterError);
    const cg::Rect integral = extent.integral();
    if (!withinSurfaceMaxima(std::int64_t(integral.size.width), std::int64_t(integral.size.height)))
        throw ImageCoreError(ImageCoreError::parameterError);
    size_ = IntegralSize(integral.size);
    allocate();
    // The destination takes the surface's lock for the length of the render.
    ci::RenderDestination destination(surface_);
    ci::Context::shared()
        ->startTaskToRender(image, integral, destination, cg::Point{0, 0})
        .waitUntilCompleted();
}

template <Pixel P>
SurfacePixelBuffer<P>::SurfacePixelBuffer(IntegralSize size, std::vector<AnyChannelData> channels,
                                          bool expand16BitColorRange, std::string title)
    : title_(std::move(title)), size_(size) {
    if (!withinSurfaceMaxima(size.width, size.height))
        throw ImageCoreError(ImageCoreError::parameterError);
    const auto planes = detail::checkedPlanes<P>(size, std::move(channels));
    allocate();
    const io::SurfaceLock lock(*surface_, io::LockOptions::readWrite);
    detail::decodeInterleaved(rows(), planes, expand16BitColorRange);
}

template <Pixel P>
detail::PixelRows<P> SurfacePixelBuffer<P>::rows() const {
    return {pixels(), pixelsPerRow_, size_};
}

template <Pixel P>
detail::PixelRows<const P> SurfacePixelBuffer<P>::constRows() const {
    return {pixels(), pixelsPerRow_, size_};
}

template <Pixel P>
std::optional<P> SurfacePixelBuffer<P>::operator()(std::int64_t x, std::int64_t y) const {
    if (x < 0 || y < 0 || x >= size_.width || y >= size_.height) return std::nullopt;
    const io::SurfaceLock lock(*surface_, io::LockOptions::readOnly);
    return pixels()[flippedRow(y, size_.height) * pixelsPerRow_ + x];
}

template <Pixel P>
ci::Image SurfacePixelBuffer<P>::image() const {
    {
        std::lock_guard guard(caches_->mutex);
        if (caches_->image) return *caches_->image;
    }
    // Made outside the cache's lock: taking the snapshot waits for a writer, which may itself
    // be asking the caches for something.
    auto image = ci::Image::fromSurface(surface_);
    if (!image) throw ImageCoreError(ImageCoreError::unknownError, "the surface gave no image");
    std::lock_guard guard(caches_->mutex);
    if (!caches_->image) caches_->image = *image;
    return *caches_->image;
}

template <Pixel P>
void SurfacePixelBuffer<P>::forgetImage() const {
    std::lock_guard guard(caches_->mutex);
    caches_->image.reset();
}

template <Pixel P>
cg::Image SurfacePixelBuffer<P>::cgImage(const cg::ColorSpace& space,
                                         cg::RenderingIntent intent) const {
    if (space.model() != P::model) throw ImageCoreError(ImageCoreError::parameterError);
    std::shared_ptr<std::vector<std::uint8_t>> bytes;
    {
        const io::SurfaceLock lock(*surface_, io::LockOptions::readOnly);
        const std::uint8_t* base = surface_->baseAddress();
        bytes = std::make_shared<std::vector<std::uint8_t>>(base, base + surface_->bytesPerRow() *
                                                                             size_.height);
    }
    auto image =
        cg::Image::make(size_.width, size_.height, P::bitDepth, P::componentCount * P::bitDepth,
                        bytesPerRow(), space, P::bitmapInfo, std::move(bytes), intent);
    if (!image) throw ImageCoreError(ImageCoreError::memoryError);
    return *image;
}

template <Pixel P>
cg::Rect SurfacePixelBuffer<P>::visibleExtent() const {
    {
        std::lock_guard guard(caches_->mutex);
        if (caches_->visibleExtent) return *caches_->visibleExtent;
    }
    cg::Rect extent;
    {
        const io::SurfaceLock lock(*surface_, io::LockOptions::readOnly);
        extent = detail::visibleExtent(constRows());
    }
    std::lock_guard guard(caches_->mutex);
    if (!caches_->visibleExtent) caches_->visibleExtent = extent;
    return *caches_->visibleExtent;
}

template <Pixel P>
cg::Rect SurfacePixelBuffer<P>::trimmedExtent(const P& background) const {
    const io::SurfaceLock lock(*surface_, io::LockOptions::readOnly);
    return detail::trimmedExtent(constRows(), background);
}

template <Pixel P>
SurfacePixelBuffer<P> SurfacePixelBuffer<P>::converted(const cg::ColorSpace& from,
                                                       const cg::ColorSpace& to,
                                                       cg::RenderingIntent intent) const {
    if (from.model() != P::model || to.model() != P::model)
        throw ImageCoreError(ImageCoreError::parameterError);
    const auto transform = cg::ColorTransform::make(from, to, intent);
    if (!transform) throw ImageCoreError(ImageCoreError::colorConversionError);
    SurfacePixelBuffer out(size_, title_);
    const io::SurfaceLock in(*surface_, io::LockOptions::readOnly);
    const io::SurfaceLock written(*out.surface_, io::LockOptions::readWrite);
    detail::matchColors(constRows(), out.rows(), *transform);
    return out;
}

template <Pixel P>
SurfacePixelBuffer<P> SurfacePixelBuffer<P>::cropped(const cg::Rect& rect) const {
    const cg::Rect area =
        rect.intersection(cg::Rect(0, 0, double(size_.width), double(size_.height))).integral();
    if (area.isEmpty()) throw ImageCoreError(ImageCoreError::parameterError);
    return SurfacePixelBuffer(image(), area, title_);
}

template <Pixel P>
std::vector<AnyChannelData>
SurfacePixelBuffer<P>::compressedChannels(bool reduced16BitColorRange,
                                          ChannelDataCompressionType compression,
                                          PredictionType prediction, bool discard) const {
    const io::SurfaceLock lock(*surface_, io::LockOptions::readOnly);
    return detail::compressedPlanes(constRows(), reduced16BitColorRange, compression, prediction,
                                    discard);
}

template <Pixel P>
bool SurfacePixelBuffer<P>::isWhiteImage() const requires RGBAPixel<P> {
    const io::SurfaceLock lock(*surface_, io::LockOptions::readOnly);
    return detail::everyPixelIs(constRows(), P::whiteColor());
}

template <Pixel P>
bool SurfacePixelBuffer<P>::isBlackImage() const requires RGBAPixel<P> {
    const io::SurfaceLock lock(*surface_, io::LockOptions::readOnly);
    return detail::everyPixelIs(constRows(), P::blackColor());
}

template <Pixel P>
void SurfacePixelBuffer<P>::encode(coding::Encoder& encoder) const {
    detail::encodeRecord(size_, P::model, P::bitDepth, *this, encoder);
}

#define BIC_INSTANTIATE(P) template class SurfacePixelBuffer<P>;
BIC_EACH_PIXEL_FORMAT(BIC_INSTANTIATE)
#undef BIC_INSTANTIATE

} // namespace bic
