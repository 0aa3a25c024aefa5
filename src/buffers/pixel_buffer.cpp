#include "bic/buffers/pixel_buffer.hpp"

#include "bic/core/image_core_error.hpp"
#include "bic/pixels/pixel_format_list.hpp"
#include "bic/platform/cg/color_transform.hpp"
#include "bic/platform/ci/context.hpp"
#include "bic/platform/core/checked.hpp"
#include "bic/platform/core/memory.hpp"
#include "bic/platform/core/pixel_math.hpp"
#include "pixel_rows.hpp"

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>

namespace bic {

std::uint16_t reduced16BitValue(std::uint16_t v) { return std::uint16_t(v / 2 + 1); }

std::uint16_t expanded16BitValue(std::uint16_t r) {
    if (r > 32768) throw ImageCoreError(ImageCoreError::fileReadCorruptedDataError);
    return r == 0 ? 0 : std::uint16_t(2 * r - 1);
}

template <Pixel P>
struct PixelBuffer<P>::Storage {
    explicit Storage(cg::ColorSpace s) : space(std::move(s)) {}
    // The pixels live in their own block: images made from the buffer hold it, not the storage,
    // whose cache holds one of those images.
    std::shared_ptr<std::vector<std::uint8_t>> bytes =
        std::make_shared<std::vector<std::uint8_t>>();
    cg::ColorSpace space;
    std::unique_ptr<cg::Context> context;
    std::mutex mutex; // guards the caches
    std::optional<ci::Image> image;
    std::optional<cg::Rect> visibleExtent;
    std::shared_ptr<const void> outlines;
};

using detail::ComponentOf;

template <Pixel P>
detail::PixelRows<P> PixelBuffer<P>::rows() const {
    return {pixels(), pixelsPerRow_, size_};
}

template <Pixel P>
detail::PixelRows<const P> PixelBuffer<P>::constRows() const {
    return {pixels(), pixelsPerRow_, size_};
}

template <Pixel P>
void PixelBuffer<P>::allocate(const cg::ColorSpace& space) {
    precondition(space.model() == P::model,
                 "The colour space's model does not match the pixel format.");
    if (size_.width < 1 || size_.height < 1) throw ImageCoreError(ImageCoreError::parameterError);
    const std::int64_t packed = checked::mul(size_.width, std::int64_t(sizeof(P)));
    const std::int64_t bytesPerRow = (packed + 15) / 16 * 16;
    pixelsPerRow_ = bytesPerRow / std::int64_t(sizeof(P));
    storage_ = std::make_shared<Storage>(space);
    try {
        *storage_->bytes = zeroedBuffer(std::size_t(checked::mul(bytesPerRow, size_.height)));
    } catch (const std::bad_alloc&) {
        throw ImageCoreError(ImageCoreError::memoryError);
    } catch (const std::length_error&) {
        throw ImageCoreError(ImageCoreError::memoryError);
    }
    storage_->context = cg::Context::bitmap(storage_->bytes->data(), size_.width, size_.height,
                                            P::bitDepth, bytesPerRow, space, P::bitmapInfo);
    if (!storage_->context)
        throw ImageCoreError(ImageCoreError::unknownError,
                             "no drawing context for the buffer's pixel format");
}

template <Pixel P>
PixelBuffer<P>::PixelBuffer(IntegralSize size, const cg::ColorSpace& colorSpace, std::string title)
    : title_(std::move(title)), size_(size) {
    allocate(colorSpace);
}

template <Pixel P>
PixelBuffer<P>::PixelBuffer(const ci::Image& image, const cg::Rect& extent, std::string title)
    : title_(std::move(title)) {
    if (extent.isEmpty() || extent.isInfinite())
        throw ImageCoreError(ImageCoreError::parameterError);
    const cg::Rect integral = extent.integral();
    size_ = IntegralSize(integral.size);
    const ci::Image moved = image.translated(-integral.minX(), -integral.minY());
    allocate(P::deviceColorSpace());
    const cg::Rect whole(0, 0, double(size_.width), double(size_.height));
    if (!moved.extent().intersects(whole)) return;
    ci::RenderDestination destination(storage_->bytes->data(), size_.width, size_.height,
                                      bytesPerRow(), P::ciFormat);
    ci::Context::shared()->startTaskToRender(moved, whole, destination).waitUntilCompleted();
}

template <Pixel P>
PixelBuffer<P>::PixelBuffer(const cg::Image& image, const cg::ColorSpace& target, std::string title)
    : title_(std::move(title)), size_(image.width(), image.height()) {
    allocate(target.model() == P::model               ? target
             : image.colorSpace().model() == P::model ? image.colorSpace()
                                                      : P::deviceColorSpace());
    cg::Context& c = *storage_->context;
    c.saveGState();
    c.setBlendMode(cg::BlendMode::copy);
    c.draw(image, cg::Rect(0, 0, double(size_.width), double(size_.height)));
    c.restoreGState();
}

template <Pixel P>
PixelBuffer<P>::PixelBuffer(IntegralSize size, std::vector<AnyChannelData> channels,
                            bool expand16BitColorRange, std::string title)
    : title_(std::move(title)), size_(size) {
    const auto planes = detail::checkedPlanes<P>(size, std::move(channels));
    allocate(P::deviceColorSpace());
    detail::decodeInterleaved(rows(), planes, expand16BitColorRange);
}

template <Pixel P>
PixelBuffer<P>::PixelBuffer(IntegralSize size, const std::vector<P>& table,
                            ChannelData<std::uint8_t> channel, std::string title)
    : title_(std::move(title)), size_(size) {
    if (size.width < 1 || size.height < 1) throw ImageCoreError(ImageCoreError::parameterError);
    channel.decompress(size.width, size.height);
    allocate(P::deviceColorSpace());
    for (std::int64_t row = 0; row < size_.height; ++row)
        for (std::int64_t x = 0; x < size_.width; ++x) {
            const std::size_t index = channel.data[std::size_t(row * size_.width + x)];
            pixels()[row * pixelsPerRow_ + x] = index < table.size() ? table[index] : P();
        }
}

template <Pixel P>
P* PixelBuffer<P>::pixels() const {
    return reinterpret_cast<P*>(storage_->bytes->data());
}

template <Pixel P>
const cg::ColorSpace& PixelBuffer<P>::colorSpace() const {
    return storage_->space;
}

template <Pixel P>
cg::Context& PixelBuffer<P>::bitmap() const {
    return *storage_->context;
}

template <Pixel P>
std::optional<P> PixelBuffer<P>::operator()(std::int64_t x, std::int64_t y) const {
    if (x < 0 || y < 0 || x >= size_.width || y >= size_.height) return std::nullopt;
    return pixels()[flippedRow(y, size_.height) * pixelsPerRow_ + x];
}

template <Pixel P>
ci::Image PixelBuffer<P>::image() const {
    std::lock_guard lock(storage_->mutex);
    if (!storage_->image)
        storage_->image =
            ci::Image::withSharedBitmap(storage_->bytes, storage_->bytes->data(), bytesPerRow(),
                                        size_.width, size_.height, P::ciFormat);
    return *storage_->image;
}

template <Pixel P>
cg::Image PixelBuffer<P>::cgImage(const cg::ColorSpace& space, cg::RenderingIntent intent) const {
    if (space.model() != P::model) throw ImageCoreError(ImageCoreError::parameterError);
    // The image shares the bytes, as a data provider over them would.
    std::shared_ptr<const std::vector<std::uint8_t>> bytes = storage_->bytes;
    auto image =
        cg::Image::make(size_.width, size_.height, P::bitDepth, P::componentCount * P::bitDepth,
                        bytesPerRow(), space, P::bitmapInfo, std::move(bytes), intent);
    if (!image) throw ImageCoreError(ImageCoreError::memoryError);
    return *image;
}

template <Pixel P>
cg::Rect PixelBuffer<P>::visibleExtent() const {
    std::lock_guard lock(storage_->mutex);
    if (!storage_->visibleExtent) storage_->visibleExtent = detail::visibleExtent(constRows());
    return *storage_->visibleExtent;
}

template <Pixel P>
std::shared_ptr<const void>
PixelBuffer<P>::cachedOutlines(const std::function<std::shared_ptr<const void>()>& make) const {
    {
        std::lock_guard lock(storage_->mutex);
        if (storage_->outlines) return storage_->outlines;
    }
    auto made = make();
    std::lock_guard lock(storage_->mutex);
    if (!storage_->outlines) storage_->outlines = std::move(made); // the first one made wins
    return storage_->outlines;
}

template <Pixel P>
cg::Rect PixelBuffer<P>::trimmedExtent(const P& background) const {
    return detail::trimmedExtent(constRows(), background);
}

template <Pixel P>
PixelBuffer<P> PixelBuffer<P>::cropped(const cg::Rect& rect) const {
    const cg::Rect area =
        rect.intersection(cg::Rect(0, 0, double(size_.width), double(size_.height))).integral();
    if (area.isEmpty()) throw ImageCoreError(ImageCoreError::parameterError);
    return PixelBuffer(image().cropped(area), area, title_);
}

template <Pixel P>
PixelBuffer<P> PixelBuffer<P>::converted(const cg::ColorSpace& from, const cg::ColorSpace& to,
                                         cg::RenderingIntent intent) const {
    if (from.model() != P::model || to.model() != P::model)
        throw ImageCoreError(ImageCoreError::parameterError);
    const auto transform = cg::ColorTransform::make(from, to, intent);
    if (!transform) throw ImageCoreError(ImageCoreError::colorConversionError);
    PixelBuffer out(size_, to, title_);
    detail::matchColors(constRows(), out.rows(), *transform);
    return out;
}

template <Pixel P>
std::vector<AnyChannelData>
PixelBuffer<P>::compressedChannels(bool reduced16BitColorRange,
                                   ChannelDataCompressionType compression,
                                   PredictionType prediction, bool discard) const {
    return detail::compressedPlanes(constRows(), reduced16BitColorRange, compression, prediction,
                                    discard);
}

template <Pixel P>
bool PixelBuffer<P>::isWhiteImage() const requires RGBAPixel<P> {
    return detail::everyPixelIs(constRows(), P::whiteColor());
}

template <Pixel P>
bool PixelBuffer<P>::isBlackImage() const requires RGBAPixel<P> {
    return detail::everyPixelIs(constRows(), P::blackColor());
}

template <Pixel P>
bool PixelBuffer<P>::equalPixels(const PixelBuffer& o) const {
    return detail::equalPixels(constRows(), o.constRows());
}

template <Pixel P>
void PixelBuffer<P>::encode(coding::Encoder& encoder) const {
    detail::encodeRecord(size_, P::model, P::bitDepth, *this, encoder);
}

#define BIC_INSTANTIATE(P) template class PixelBuffer<P>;
BIC_EACH_PIXEL_FORMAT(BIC_INSTANTIATE)
#undef BIC_INSTANTIATE

} // namespace bic
