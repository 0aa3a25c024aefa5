#include "bic/platform/draw/image.hpp"

namespace bic::cg {

std::optional<ci::Format> formatFor(int bpc, int bpp, ColorSpaceModel model, BitmapInfo info) {
    using namespace bitmap;
    const BitmapInfo alpha = info & alphaInfoMask;
    const BitmapInfo order = info & byteOrderMask;
    const bool isFloat = info & floatComponents;
    if (model == ColorSpaceModel::rgb) {
        if (bpc == 8 && bpp == 32 && !isFloat && order == byteOrderDefault) {
            if (alpha == alphaPremultipliedFirst) return ci::Format::ARGB8;
            if (alpha == alphaPremultipliedLast) return ci::Format::RGBA8;
        }
        if (bpc == 16 && bpp == 64 && !isFloat && order == byteOrder16Little &&
            alpha == alphaPremultipliedLast)
            return ci::Format::RGBA16;
        if (bpc == 32 && bpp == 128 && isFloat && order == byteOrder32Little &&
            alpha == alphaPremultipliedLast)
            return ci::Format::RGBAf;
    } else if (model == ColorSpaceModel::monochrome && alpha == alphaNone) {
        if (bpc == 8 && bpp == 8 && !isFloat) return ci::Format::L8;
        if (bpc == 16 && bpp == 16 && !isFloat && order == byteOrder16Little)
            return ci::Format::L16;
        if (bpc == 32 && bpp == 32 && isFloat && order == byteOrder32Little) return ci::Format::Lf;
    }
    return std::nullopt;
}

std::optional<Image> Image::make(std::int64_t width, std::int64_t height, int bpc, int bpp,
                                 std::int64_t bytesPerRow, ColorSpace space, BitmapInfo info,
                                 std::shared_ptr<const std::vector<std::uint8_t>> data,
                                 RenderingIntent intent) {
    const auto format = formatFor(bpc, bpp, space.model(), info);
    if (!format || !data || width < 1 || height < 1 ||
        bytesPerRow < width * ci::bytesPerPixel(*format))
        return std::nullopt;
    if (std::int64_t(data->size()) <
        bytesPerRow * (height - 1) + width * ci::bytesPerPixel(*format))
        return std::nullopt;
    return Image(width, height, bpc, bpp, bytesPerRow, std::move(space), info, std::move(data),
                 intent, *format);
}

ci::Image Image::ciImage() const {
    return *ci::Image::withSharedBitmap(data_, data_->data(), bytesPerRow_, width_, height_,
                                        format_);
}

} // namespace bic::cg
