#include "bic/filters/generator_filters.hpp"

#include "library_kernels.hpp"

namespace bic {

namespace {

std::vector<double> vectorOf(const cg::Point& p) { return {p.x, p.y}; }

cg::Rect square(const cg::Point& c, double r) { return {c.x - r, c.y - r, 2 * r, 2 * r}; }

std::optional<ci::Image> oriented(std::optional<ci::Image> image, const cg::Point& center,
                                  HueAngleOrientation orientation) {
    if (!image || orientation == HueAngleOrientation::counterClockwiseFromX) return image;
    return image->transformed(clockwiseFromTopTransform(center));
}

} // namespace

cg::AffineTransform clockwiseFromTopTransform(const cg::Point& c) {
    // Translate by −c, rotate by π/2, mirror x, translate by c. The rotation and the mirror
    // together swap x and y, which is written out so that pixel centres land on pixel centres.
    return {0, 1, 1, 0, c.x - c.y, c.y - c.x};
}

std::optional<ci::Image> BICHueWheelFilter::outputImage() const {
    if (!inputRadius || !inputCenter || !inputColorSpace) return std::nullopt;
    return oriented(
        libraryKernels()
            .colorKernel("hueWheel")
            .apply(square(*inputCenter, *inputRadius), {*inputRadius, vectorOf(*inputCenter)}),
        *inputCenter, inputHueAngleOrientation);
}

std::optional<ci::Image> BICColorWheelFilter::outputImage() const {
    if (!inputValue || !inputRadius || !inputCenter) return std::nullopt;
    return oriented(libraryKernels()
                        .colorKernel("colorWheel")
                        .apply(square(*inputCenter, *inputRadius),
                               {*inputValue, *inputRadius, vectorOf(*inputCenter)}),
                    *inputCenter, inputHueAngleOrientation);
}

float huePosition(float hue) {
    constexpr float divisor = 3.1415925f; // 0x40490FDA
    return hue * 3.0f / divisor;
}

std::optional<ci::Image> BICSaturationValuePanelFilter::outputImage() const {
    if (!inputHue || !inputRadius || !inputCenter) return std::nullopt;
    const double r = *inputRadius, half = r * 0.866025403784439;
    const cg::Rect definition =
        cg::Rect(inputCenter->x - r / 2, inputCenter->y - half, 1.5 * r, 2 * half).integral();
    return libraryKernels()
        .colorKernel("triangularSaturationValuePanel")
        .apply(definition, {double(huePosition(*inputHue)), vectorOf(*inputCenter), r});
}

std::optional<ci::Image> bik_saturationValuePanel(float hue, const cg::Rect& rect) {
    // The unit square's function evaluated straight at the rectangle's pixels: the engine's
    // kernels run per output pixel, so scaling a one-pixel square would lose the field.
    return libraryKernels()
        .colorKernel("saturationValuePanel")
        .apply(rect, {double(huePosition(hue)),
                      std::vector<double>{rect.minX(), rect.minY(), rect.width(), rect.height()}});
}

std::optional<ci::Image>
bik_triangularSaturationValuePanel(float hue, const cg::Point& center, double radius,
                                   std::optional<cg::ColorSpace> colorSpace, bool flipped) {
    BICSaturationValuePanelFilter filter;
    filter.inputHue = hue;
    filter.inputCenter = center;
    filter.inputRadius = radius;
    filter.inputColorSpace = std::move(colorSpace);
    auto image = filter.outputImage();
    if (image && flipped) image = image->transformed({1, 0, 0, -1, 0, 2 * center.y});
    return image;
}

std::optional<ci::Image> bic_colorSpectrumImage(const cg::Rect& rect) {
    return libraryKernels()
        .colorKernel("colorSpectrumImage")
        .apply(rect, {std::vector<double>{rect.minX(), rect.minY(), rect.width(), rect.height()}});
}

} // namespace bic
