#include "bic/buffers/pixel_buffer.hpp"

#include "bic/geometry/image_core_error.hpp"
#include "bic/platform/cg/color_transform.hpp"
#include "bic/platform/ci/context.hpp"
#include "bic/platform/core/checked.hpp"

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
};

namespace {

template <Pixel P>
using ComponentOf = typename P::ComponentType;

// Component k of a pixel in memory order; the formats are arrays of their component type.
template <Pixel P>
ComponentOf<P>* components(P* p) {
    return reinterpret_cast<ComponentOf<P>*>(p);
}

// Index of the stored plane (red, green, blue, alpha) that memory component k comes from: only
// the 8-bit format keeps alpha first.
template <Pixel P>
int planeOf(int k) {
    if constexpr (P::alphaInfo == PixelAlphaInfo::first)
        return (k + 3) % 4;
    else
        return k;
}

} // namespace

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
        storage_->bytes->assign(std::size_t(checked::mul(bytesPerRow, size_.height)), 0);
    } catch (const std::bad_alloc&) {
        throw ImageCoreError(ImageCoreError::memoryError);
    } catch (const std::length_error&) {
        throw ImageCoreError(ImageCoreError::memoryError);
    }
    storage_->context = cg::Context::bitmap(storage_->bytes->data(), size_.width, size_.height,
                                            P::bitDepth, bytesPerRow, space, P::bitmapInfo);
    if (!storage_->context) throw ImageCoreError(ImageCoreError::unknownError);
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
    using T = ComponentOf<P>;
    if (size.width < 1 || size.height < 1 || std::int64_t(channels.size()) != P::componentCount)
        throw ImageCoreError(ImageCoreError::parameterError);
    std::vector<ChannelData<T>> planes;
    for (auto& any : channels) {
        auto* plane = std::get_if<ChannelData<T>>(&any);
        if (!plane) throw ImageCoreError(ImageCoreError::parameterError);
        planes.push_back(std::move(*plane));
        planes.back().decompress(size.width, size.height);
    }
    allocate(P::deviceColorSpace());
    for (int k = 0; k < P::componentCount; ++k) {
        const T* samples =
            reinterpret_cast<const T*>(planes[std::size_t(planeOf<P>(k))].data.data());
        for (std::int64_t row = 0; row < size_.height; ++row) {
            P* out = pixels() + row * pixelsPerRow_;
            for (std::int64_t x = 0; x < size_.width; ++x) {
                T v = samples[row * size_.width + x];
                if constexpr (std::is_same_v<T, std::uint16_t>)
                    if (expand16BitColorRange) v = expanded16BitValue(v);
                components(out + x)[k] = v;
            }
        }
    }
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
    return pixels()[(size_.height - 1 - y) * pixelsPerRow_ + x];
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
    if (storage_->visibleExtent) return *storage_->visibleExtent;
    std::int64_t x0 = size_.width, x1 = -1, y0 = size_.height, y1 = -1;
    for (std::int64_t y = 0; y < size_.height; ++y) {
        const P* row = pixels() + (size_.height - 1 - y) * pixelsPerRow_;
        for (std::int64_t x = 0; x < size_.width; ++x) {
            if (row[x].trimComponent() == ComponentOf<P>(0)) continue;
            x0 = std::min(x0, x), x1 = std::max(x1, x), y0 = std::min(y0, y), y1 = std::max(y1, y);
        }
    }
    storage_->visibleExtent =
        x1 < 0 ? cg::Rect::zero()
               : cg::Rect(double(x0), double(y0), double(x1 - x0 + 1), double(y1 - y0 + 1));
    return *storage_->visibleExtent;
}

template <Pixel P>
cg::Rect PixelBuffer<P>::trimmedExtent(const P& background) const {
    const std::int64_t w = size_.width, h = size_.height;
    auto rowIsBackground = [&](std::int64_t memoryRow) {
        const P* row = pixels() + memoryRow * pixelsPerRow_;
        return std::all_of(row, row + w, [&](const P& p) { return p == background; });
    };
    std::int64_t top = 0;
    while (top < h && rowIsBackground(top))
        ++top;
    if (top == h) return cg::Rect(0, 0, double(w), 0);
    std::int64_t bottom = h - 1;
    while (bottom > top && rowIsBackground(bottom))
        --bottom;
    auto columnIsBackground = [&](std::int64_t x) {
        for (std::int64_t r = top; r <= bottom; ++r)
            if (!(pixels()[r * pixelsPerRow_ + x] == background)) return false;
        return true;
    };
    std::int64_t left = 0;
    while (columnIsBackground(left))
        ++left;
    std::int64_t right = w - 1;
    while (right > left && columnIsBackground(right))
        --right;
    // Memory rows top…bottom are image rows h − 1 − bottom … h − 1 − top.
    return cg::Rect(double(left), double(h - 1 - bottom), double(right - left + 1),
                    double(bottom - top + 1));
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
    constexpr int n = RGBAPixel<P> ? 3 : 1;
    std::vector<float> in(std::size_t(size_.width * n)), matched(in.size()),
        alpha(std::size_t(size_.width));
    for (std::int64_t row = 0; row < size_.height; ++row) {
        const P* src = pixels() + row * pixelsPerRow_;
        P* dst = out.pixels() + row * pixelsPerRow_;
        for (std::int64_t x = 0; x < size_.width; ++x) {
            if constexpr (RGBAPixel<P>) {
                const float a = src[x].alpha();
                const float k = a > 0 ? 1 / a : 0;
                alpha[std::size_t(x)] = a;
                in[std::size_t(3 * x)] = src[x].red() * k;
                in[std::size_t(3 * x + 1)] = src[x].green() * k;
                in[std::size_t(3 * x + 2)] = src[x].blue() * k;
            } else {
                in[std::size_t(x)] = src[x].gray();
            }
        }
        transform->apply(in.data(), matched.data(), std::size_t(size_.width));
        for (std::int64_t x = 0; x < size_.width; ++x) {
            if constexpr (RGBAPixel<P>) {
                const float a = alpha[std::size_t(x)];
                const float* c = matched.data() + 3 * x;
                dst[x] = P::withRGBA(c[0] * a, c[1] * a, c[2] * a, a);
            } else {
                dst[x] = P::withGray(matched[std::size_t(x)]);
            }
        }
    }
    return out;
}

template <Pixel P>
std::vector<AnyChannelData>
PixelBuffer<P>::compressedChannels(bool reduced16BitColorRange,
                                   ChannelDataCompressionType compression,
                                   PredictionType prediction, bool discard) const {
    using T = ComponentOf<P>;
    std::vector<AnyChannelData> planes;
    std::exception_ptr failure;
    for (int plane = 0; plane < P::componentCount; ++plane) {
        int k = 0;
        while (planeOf<P>(k) != plane)
            ++k;
        std::vector<std::uint8_t> bytes(std::size_t(size_.width * size_.height) * sizeof(T));
        T* samples = reinterpret_cast<T*>(bytes.data());
        for (std::int64_t row = 0; row < size_.height; ++row) {
            P* in = pixels() + row * pixelsPerRow_;
            for (std::int64_t x = 0; x < size_.width; ++x) {
                T v = components(in + x)[k];
                if constexpr (std::is_same_v<T, std::uint16_t>)
                    if (reduced16BitColorRange) v = reduced16BitValue(v);
                samples[row * size_.width + x] = v;
            }
        }
        ChannelData<T> channel(std::move(bytes), false);
        try {
            channel.compress(compression, prediction, size_.width, size_.height, discard);
        } catch (...) {
            failure = std::current_exception();
        }
        planes.emplace_back(std::move(channel));
    }
    if (failure) std::rethrow_exception(failure);
    return planes;
}

template <Pixel P>
bool PixelBuffer<P>::everyPixelIs(const P& value) const {
    for (std::int64_t y = 0; y < size_.height; ++y) {
        const P* row = pixels() + y * pixelsPerRow_;
        if (!std::all_of(row, row + size_.width, [&](const P& p) { return p == value; }))
            return false;
    }
    return true;
}

template <Pixel P>
bool PixelBuffer<P>::isWhiteImage() const requires RGBAPixel<P> {
    return everyPixelIs(P::whiteColor());
}

template <Pixel P>
bool PixelBuffer<P>::isBlackImage() const requires RGBAPixel<P> {
    return everyPixelIs(P::blackColor());
}

template <Pixel P>
bool PixelBuffer<P>::equalPixels(const PixelBuffer& o) const {
    if (!(size_ == o.size_)) return false;
    for (std::int64_t y = 0; y < size_.height; ++y)
        if (!std::equal(pixels() + y * pixelsPerRow_, pixels() + y * pixelsPerRow_ + size_.width,
                        o.pixels() + y * o.pixelsPerRow_))
            return false;
    return true;
}

namespace {
template <class Q, Pixel P>
PixelBufferType drawnAs(const PixelBuffer<P>& b) {
    return PixelBuffer<Q>(b.cgImage(), Q::deviceColorSpace(), b.title());
}
} // namespace

PixelBufferType converted(const PixelBufferType& buffer, int bitDepth) {
    return std::visit(
        [&](const auto& b) -> PixelBufferType {
            using P = typename std::decay_t<decltype(b)>::Element;
            if (P::bitDepth == bitDepth) return b;
            if (bitDepth != 8 && bitDepth != 16 && bitDepth != 32)
                fatalError("Unsupported bit depth.");
            if constexpr (P::model == cg::ColorSpaceModel::monochrome) {
                if (bitDepth == 8) return drawnAs<PixelGray8>(b);
                if (bitDepth == 16) return drawnAs<PixelGray16>(b);
                return drawnAs<PixelGray32>(b);
            } else {
                if (bitDepth == 8) return drawnAs<PixelARGB8>(b);
                if (bitDepth == 16) return drawnAs<PixelRGBA16>(b);
                return drawnAs<PixelRGBA32>(b);
            }
        },
        buffer);
}

bool equal(const std::optional<PixelBufferType>& a, const std::optional<PixelBufferType>& b) {
    if (!a || !b) return !a && !b;
    return a->index() == b->index() && *a == *b;
}

template class PixelBuffer<PixelARGB8>;
template class PixelBuffer<PixelGray8>;
template class PixelBuffer<PixelRGBA16>;
template class PixelBuffer<PixelGray16>;
template class PixelBuffer<PixelRGBA32>;
template class PixelBuffer<PixelGray32>;

} // namespace bic
