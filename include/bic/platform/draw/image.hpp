#pragma once
// Immutable bitmaps of the drawing layer.

#include "bic/platform/cg/bitmap_info.hpp"
#include "bic/platform/cg/color_space.hpp"
#include "bic/platform/ci/image.hpp"
#include "bic/platform/io/format.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace bic::cg {

class Image {
public:
    /// An image over `data` (shared, never written): nothing when the sizes are not positive, the
    /// rows are too short, the data too small or the layout is not one the library uses (8-bit
    /// ARGB or RGBA premultiplied, 16-bit RGBA premultiplied last, 32-bit float RGBA
    /// premultiplied last, and 8-, 16- and 32-bit float grey, little-endian).
    static std::optional<Image> make(std::int64_t width, std::int64_t height, int bitsPerComponent,
                                     int bitsPerPixel, std::int64_t bytesPerRow,
                                     ColorSpace colorSpace, BitmapInfo bitmapInfo,
                                     std::shared_ptr<const std::vector<std::uint8_t>> data,
                                     RenderingIntent intent = RenderingIntent::defaultIntent);

    std::int64_t width() const { return width_; }
    std::int64_t height() const { return height_; }
    int bitsPerComponent() const { return bitsPerComponent_; }
    int bitsPerPixel() const { return bitsPerPixel_; }
    std::int64_t bytesPerRow() const { return bytesPerRow_; }
    const ColorSpace& colorSpace() const { return colorSpace_; }
    BitmapInfo bitmapInfo() const { return bitmapInfo_; }
    RenderingIntent renderingIntent() const { return intent_; }
    const std::shared_ptr<const std::vector<std::uint8_t>>& data() const { return data_; }
    /// The engine's layout of these bytes.
    ci::Format format() const { return format_; }
    /// The bitmap as a lazy image over (0, 0, width, height), sharing the bytes.
    ci::Image ciImage() const;

private:
    Image(std::int64_t w, std::int64_t h, int bpc, int bpp, std::int64_t bpr, ColorSpace space,
          BitmapInfo info, std::shared_ptr<const std::vector<std::uint8_t>> data,
          RenderingIntent intent, ci::Format format)
        : width_(w), height_(h), bitsPerComponent_(bpc), bitsPerPixel_(bpp), bytesPerRow_(bpr),
          colorSpace_(std::move(space)), bitmapInfo_(info), data_(std::move(data)), intent_(intent),
          format_(format) {}

    std::int64_t width_, height_;
    int bitsPerComponent_, bitsPerPixel_;
    std::int64_t bytesPerRow_;
    ColorSpace colorSpace_;
    BitmapInfo bitmapInfo_;
    std::shared_ptr<const std::vector<std::uint8_t>> data_;
    RenderingIntent intent_;
    ci::Format format_;
};

/// The engine layout of a bitmap description; nothing for layouts the library does not use.
std::optional<ci::Format> formatFor(int bitsPerComponent, int bitsPerPixel, ColorSpaceModel model,
                                    BitmapInfo info);

} // namespace bic::cg
