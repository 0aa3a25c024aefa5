#include "bic/filters/generator_filters.hpp"

#include "../kernels/generator_kernels.hpp"

namespace bic {

namespace {

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

namespace {

// Points travel as two-component vectors, as the engine's own point inputs do.
ci::FilterValue pointValue(const std::optional<cg::Point>& p) {
    return p ? ci::FilterValue(std::vector<double>{p->x, p->y}) : ci::FilterValue();
}

std::optional<cg::Point> pointOf(const ci::Filter& filter, std::string_view key) {
    const auto v = filter.vector(key);
    if (!v || v->size() != 2) return std::nullopt;
    return cg::Point{(*v)[0], (*v)[1]};
}

HueAngleOrientation orientationOf(const ci::Filter& filter) {
    return filter.number("inputHueAngleOrientation").value_or(0) == 1
               ? HueAngleOrientation::counterClockwiseFromX
               : HueAngleOrientation::clockwiseFromTop;
}

const ci::FilterValue clockwise = double(HueAngleOrientation::clockwiseFromTop);

} // namespace

BICHueWheelFilter::BICHueWheelFilter()
    : ci::Filter("BICHueWheelFilter", {{"inputRadius", {}},
                                       {"inputCenter", {}},
                                       {"inputColorSpace", {}},
                                       {"inputHueAngleOrientation", clockwise}}) {}
void BICHueWheelFilter::setInputRadius(std::optional<double> r) {
    setValue("inputRadius", ci::filterValue(r));
}
std::optional<cg::Point> BICHueWheelFilter::inputCenter() const {
    return pointOf(*this, "inputCenter");
}
void BICHueWheelFilter::setInputCenter(std::optional<cg::Point> c) {
    setValue("inputCenter", pointValue(c));
}
std::optional<cg::ColorSpace> BICHueWheelFilter::inputColorSpace() const {
    return valueAs<cg::ColorSpace>("inputColorSpace");
}
void BICHueWheelFilter::setInputColorSpace(std::optional<cg::ColorSpace> space) {
    setValue("inputColorSpace", ci::filterValue(space));
}
HueAngleOrientation BICHueWheelFilter::inputHueAngleOrientation() const {
    return orientationOf(*this);
}
void BICHueWheelFilter::setInputHueAngleOrientation(HueAngleOrientation o) {
    setValue("inputHueAngleOrientation", double(o));
}

std::optional<ci::Image> BICHueWheelFilter::outputImage() const {
    const auto radius = inputRadius();
    const auto center = inputCenter();
    if (!radius || !center || !inputColorSpace()) return std::nullopt;
    return oriented(kernels::hueWheel(square(*center, *radius), *radius, *center), *center,
                    inputHueAngleOrientation());
}

BICColorWheelFilter::BICColorWheelFilter()
    : ci::Filter("BICColorWheelFilter", {{"inputValue", {}},
                                         {"inputRadius", {}},
                                         {"inputCenter", {}},
                                         {"inputColorSpace", {}},
                                         {"inputHueAngleOrientation", clockwise}}) {}
void BICColorWheelFilter::setInputValue(std::optional<double> v) {
    setValue("inputValue", ci::filterValue(v));
}
void BICColorWheelFilter::setInputRadius(std::optional<double> r) {
    setValue("inputRadius", ci::filterValue(r));
}
std::optional<cg::Point> BICColorWheelFilter::inputCenter() const {
    return pointOf(*this, "inputCenter");
}
void BICColorWheelFilter::setInputCenter(std::optional<cg::Point> c) {
    setValue("inputCenter", pointValue(c));
}
std::optional<cg::ColorSpace> BICColorWheelFilter::inputColorSpace() const {
    return valueAs<cg::ColorSpace>("inputColorSpace");
}
void BICColorWheelFilter::setInputColorSpace(std::optional<cg::ColorSpace> space) {
    setValue("inputColorSpace", ci::filterValue(space));
}
HueAngleOrientation BICColorWheelFilter::inputHueAngleOrientation() const {
    return orientationOf(*this);
}
void BICColorWheelFilter::setInputHueAngleOrientation(HueAngleOrientation o) {
    setValue("inputHueAngleOrientation", double(o));
}

std::optional<ci::Image> BICColorWheelFilter::outputImage() const {
    const auto value = inputValue();
    const auto radius = inputRadius();
    const auto center = inputCenter();
    if (!value || !radius || !center) return std::nullopt;
    return oriented(kernels::colorWheel(square(*center, *radius), *value, *radius, *center),
                    *center, inputHueAngleOrientation());
}

float huePosition(float hue) {
    constexpr float divisor = 3.1415925f; // 0x40490FDA
    return hue * 3.0f / divisor;
}

BICSaturationValuePanelFilter::BICSaturationValuePanelFilter()
    : ci::Filter(
          "BICSaturationValuePanelFilter",
          {{"inputHue", {}}, {"inputCenter", {}}, {"inputRadius", {}}, {"inputColorSpace", {}}}) {}
std::optional<float> BICSaturationValuePanelFilter::inputHue() const {
    const auto hue = number("inputHue");
    return hue ? std::optional<float>(float(*hue)) : std::nullopt;
}
void BICSaturationValuePanelFilter::setInputHue(std::optional<float> hue) {
    setValue("inputHue", hue ? ci::FilterValue(double(*hue)) : ci::FilterValue());
}
std::optional<cg::Point> BICSaturationValuePanelFilter::inputCenter() const {
    return pointOf(*this, "inputCenter");
}
void BICSaturationValuePanelFilter::setInputCenter(std::optional<cg::Point> c) {
    setValue("inputCenter", pointValue(c));
}
void BICSaturationValuePanelFilter::setInputRadius(std::optional<double> r) {
    setValue("inputRadius", ci::filterValue(r));
}
std::optional<cg::ColorSpace> BICSaturationValuePanelFilter::inputColorSpace() const {
    return valueAs<cg::ColorSpace>("inputColorSpace");
}
void BICSaturationValuePanelFilter::setInputColorSpace(std::optional<cg::ColorSpace> space) {
    setValue("inputColorSpace", ci::filterValue(space));
}

std::optional<ci::Image> BICSaturationValuePanelFilter::outputImage() const {
    const auto hue = inputHue();
    const auto center = inputCenter();
    const auto radius = inputRadius();
    if (!hue || !radius || !center) return std::nullopt;
    const double r = *radius, half = r * 0.866025403784439;
    const cg::Rect definition =
        cg::Rect(center->x - r / 2, center->y - half, 1.5 * r, 2 * half).integral();
    return kernels::triangularSaturationValuePanel(definition, double(huePosition(*hue)), *center,
                                                   r);
}

std::optional<ci::Image> bik_saturationValuePanel(float hue, const cg::Rect& rect) {
    // The unit square's function evaluated straight at the rectangle's pixels: the engine's
    // kernels run per output pixel, so scaling a one-pixel square would lose the field.
    return kernels::saturationValuePanel(rect, double(huePosition(hue)));
}

std::optional<ci::Image>
bik_triangularSaturationValuePanel(float hue, const cg::Point& center, double radius,
                                   std::optional<cg::ColorSpace> colorSpace, bool flipped) {
    BICSaturationValuePanelFilter filter;
    filter.setInputHue(hue);
    filter.setInputCenter(center);
    filter.setInputRadius(radius);
    filter.setInputColorSpace(std::move(colorSpace));
    auto image = filter.outputImage();
    if (image && flipped) image = image->transformed({1, 0, 0, -1, 0, 2 * center.y});
    return image;
}

std::optional<ci::Image> bic_colorSpectrumImage(const cg::Rect& rect) {
    return kernels::colorSpectrum(rect);
}

void registerGeneratorFilters() {
    ci::registerFilterClass<BICHueWheelFilter>();
    ci::registerFilterClass<BICColorWheelFilter>();
    ci::registerFilterClass<BICSaturationValuePanelFilter>();
}

} // namespace bic
