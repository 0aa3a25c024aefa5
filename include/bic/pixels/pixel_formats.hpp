#pragma once
// The six pixel formats. Field order is memory order: a row of a bitmap is an array of them.
// Colour formats hold premultiplied colour; only the 8-bit one keeps alpha first.

#include "bic/pixels/gray_pixel.hpp"
#include "bic/pixels/rgba_pixel.hpp"

#include <cstddef>
#include <type_traits>

namespace bic::ns {
class Pasteboard;
}

namespace bic {

struct PixelARGB8 : RGBAPixelBase<PixelARGB8, std::uint8_t> {
    std::uint8_t alphaComponent = 0, redComponent = 0, greenComponent = 0, blueComponent = 0;

    static constexpr PixelAlphaInfo alphaInfo = PixelAlphaInfo::first;
    static constexpr cg::BitmapInfo bitmapInfo = cg::bitmap::alphaPremultipliedFirst;
    static constexpr ci::Format ciFormat = ci::Format::ARGB8;

    constexpr PixelARGB8() = default;
    constexpr PixelARGB8(std::uint8_t red, std::uint8_t green, std::uint8_t blue,
                         std::uint8_t alpha)
        : alphaComponent(alpha), redComponent(red), greenComponent(green), blueComponent(blue) {}
    friend bool operator==(const PixelARGB8&, const PixelARGB8&) = default;
};

struct PixelRGBA16 : RGBAPixelBase<PixelRGBA16, std::uint16_t> {
    std::uint16_t redComponent = 0, greenComponent = 0, blueComponent = 0, alphaComponent = 0;

    static constexpr PixelAlphaInfo alphaInfo = PixelAlphaInfo::last;
    static constexpr cg::BitmapInfo bitmapInfo =
        cg::bitmap::alphaPremultipliedLast | cg::bitmap::byteOrder16Little;
    static constexpr ci::Format ciFormat = ci::Format::RGBA16;

    constexpr PixelRGBA16() = default;
    constexpr PixelRGBA16(std::uint16_t red, std::uint16_t green, std::uint16_t blue,
                          std::uint16_t alpha)
        : redComponent(red), greenComponent(green), blueComponent(blue), alphaComponent(alpha) {}
    friend bool operator==(const PixelRGBA16&, const PixelRGBA16&) = default;
};

struct PixelRGBA32 : RGBAPixelBase<PixelRGBA32, float> {
    float redComponent = 0, greenComponent = 0, blueComponent = 0, alphaComponent = 0;

    static constexpr PixelAlphaInfo alphaInfo = PixelAlphaInfo::last;
    static constexpr cg::BitmapInfo bitmapInfo = cg::bitmap::alphaPremultipliedLast |
                                                 cg::bitmap::floatComponents |
                                                 cg::bitmap::byteOrder32Little;
    static constexpr ci::Format ciFormat = ci::Format::RGBAf;

    constexpr PixelRGBA32() = default;
    constexpr PixelRGBA32(float red, float green, float blue, float alpha)
        : redComponent(red), greenComponent(green), blueComponent(blue), alphaComponent(alpha) {}
    friend bool operator==(const PixelRGBA32&, const PixelRGBA32&) = default;

    /// Whether the pasteboard holds a colour (see ns::readColor).
    static bool canReadFromPasteboard(const ns::Pasteboard& pasteboard);
    static bool canReadFromPasteboard();
    /// The pasteboard's colour matched into the RGB space `colorSpace`.
    static std::optional<PixelRGBA32> readFromPasteboard(const cg::ColorSpace& colorSpace,
                                                         const ns::Pasteboard& pasteboard);
    static std::optional<PixelRGBA32> readFromPasteboard(const cg::ColorSpace& colorSpace);
};

struct PixelGray8 : GrayPixelBase<PixelGray8, std::uint8_t> {
    std::uint8_t grayComponent = 0;
    static constexpr cg::BitmapInfo bitmapInfo = cg::bitmap::alphaNone;
    static constexpr ci::Format ciFormat = ci::Format::L8;
    constexpr PixelGray8() = default;
    constexpr explicit PixelGray8(std::uint8_t gray) : grayComponent(gray) {}
    friend bool operator==(const PixelGray8&, const PixelGray8&) = default;
};

struct PixelGray16 : GrayPixelBase<PixelGray16, std::uint16_t> {
    std::uint16_t grayComponent = 0;
    static constexpr cg::BitmapInfo bitmapInfo =
        cg::bitmap::alphaNone | cg::bitmap::byteOrder16Little;
    static constexpr ci::Format ciFormat = ci::Format::L16;
    constexpr PixelGray16() = default;
    constexpr explicit PixelGray16(std::uint16_t gray) : grayComponent(gray) {}
    friend bool operator==(const PixelGray16&, const PixelGray16&) = default;
};

struct PixelGray32 : GrayPixelBase<PixelGray32, float> {
    float grayComponent = 0;
    static constexpr cg::BitmapInfo bitmapInfo =
        cg::bitmap::alphaNone | cg::bitmap::floatComponents | cg::bitmap::byteOrder32Little;
    static constexpr ci::Format ciFormat = ci::Format::Lf;
    constexpr PixelGray32() = default;
    constexpr explicit PixelGray32(float gray) : grayComponent(gray) {}
    friend bool operator==(const PixelGray32&, const PixelGray32&) = default;
};

// The layouts are what bitmap rows are made of.
static_assert(sizeof(PixelARGB8) == 4 && offsetof(PixelARGB8, alphaComponent) == 0 &&
              offsetof(PixelARGB8, redComponent) == 1 && offsetof(PixelARGB8, blueComponent) == 3);
static_assert(sizeof(PixelRGBA16) == 8 && offsetof(PixelRGBA16, redComponent) == 0 &&
              offsetof(PixelRGBA16, alphaComponent) == 6);
static_assert(sizeof(PixelRGBA32) == 16 && offsetof(PixelRGBA32, redComponent) == 0 &&
              offsetof(PixelRGBA32, alphaComponent) == 12);
static_assert(sizeof(PixelGray8) == 1 && sizeof(PixelGray16) == 2 && sizeof(PixelGray32) == 4);
static_assert(Pixel8<PixelARGB8> && Pixel8<PixelGray8> && Pixel16<PixelRGBA16> &&
              Pixel16<PixelGray16> && Pixel32<PixelRGBA32> && Pixel32<PixelGray32>);
static_assert(std::is_trivially_copyable_v<PixelARGB8> && std::is_standard_layout_v<PixelARGB8>);
static_assert(std::is_trivially_copyable_v<PixelRGBA32> && std::is_standard_layout_v<PixelRGBA32>);
static_assert(RGBAPixel<PixelARGB8> && RGBAPixel<PixelRGBA16> && RGBAPixel<PixelRGBA32>);
static_assert(GrayPixel<PixelGray8> && GrayPixel<PixelGray16> && GrayPixel<PixelGray32>);

} // namespace bic
