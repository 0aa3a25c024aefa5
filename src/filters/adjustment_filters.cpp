#include "bic/filters/adjustment_filters.hpp"

#include "../kernels/operation_kernels.hpp"
#include "bic/compositing/image_operations.hpp"

#include <cmath>

namespace bic {

namespace {

const std::string kImage = "inputImage";

ci::FilterValue valueOf(std::optional<ci::Image> image) {
    return image ? ci::FilterValue(*image) : ci::FilterValue();
}
ci::FilterValue valueOf(std::optional<std::vector<double>> v) {
    return v ? ci::FilterValue(*v) : ci::FilterValue();
}

} // namespace

BICThresholdFilter::BICThresholdFilter()
    : ci::Filter("BICThresholdFilter", {{kImage, {}}, {"inputThreshold", {}}}) {}

void BICThresholdFilter::setInputImage(std::optional<ci::Image> image) {
    setValue(kImage, valueOf(std::move(image)));
}

void BICThresholdFilter::setInputThreshold(std::optional<double> threshold) {
    setValue("inputThreshold", threshold ? ci::FilterValue(*threshold) : ci::FilterValue());
}

std::optional<ci::Image> BICThresholdFilter::outputImage() const {
    const auto image = inputImage();
    const auto level = inputThreshold();
    if (!image || !level) return std::nullopt;
    return kernels::threshold(*image, *level);
}

BICColorMapFilter::BICColorMapFilter()
    : ci::Filter("BICColorMapFilter",
                 {{kImage, {}}, {"redMap", {}}, {"greenMap", {}}, {"blueMap", {}}}) {}

void BICColorMapFilter::setInputImage(std::optional<ci::Image> image) {
    setValue(kImage, valueOf(std::move(image)));
}

void BICColorMapFilter::setMaps(std::optional<std::vector<double>> red,
                                std::optional<std::vector<double>> green,
                                std::optional<std::vector<double>> blue) {
    setValue("redMap", valueOf(std::move(red)));
    setValue("greenMap", valueOf(std::move(green)));
    setValue("blueMap", valueOf(std::move(blue)));
}

std::optional<ci::Image> BICColorMapFilter::outputImage() const {
    const auto image = this->image(kImage);
    if (!image) return std::nullopt;
    const auto red = vector("redMap"), green = vector("greenMap"), blue = vector("blueMap");
    if (!red || !green || !blue) return image;
    return mapped(*image, *red, *green, *blue);
}

BICBevelFilter::BICBevelFilter()
    : ci::Filter("BICBevelFilter", {{kImage, {}}, {"inputLightAngle", {}}}) {}

void BICBevelFilter::setInputImage(std::optional<ci::Image> image) {
    setValue(kImage, valueOf(std::move(image)));
}

void BICBevelFilter::setInputLightAngle(std::optional<std::vector<double>> light) {
    setValue("inputLightAngle", valueOf(std::move(light)));
}

std::optional<ci::Image> BICBevelFilter::outputImage() const {
    const auto image = this->image(kImage);
    const auto light = vector("inputLightAngle");
    if (!image || !light || light->size() != 3) return std::nullopt;
    const double length = std::hypot((*light)[0], (*light)[1], (*light)[2]);
    if (!(length > 0)) return std::nullopt;
    const std::vector<double> unit{(*light)[0] / length, (*light)[1] / length,
                                   (*light)[2] / length};
    return kernels::bevel(*image, unit);
}

BICSobelFilter::BICSobelFilter() : ci::Filter("BICSobelFilter", {{kImage, {}}}) {}

void BICSobelFilter::setInputImage(std::optional<ci::Image> image) {
    setValue(kImage, valueOf(std::move(image)));
}

std::optional<ci::Image> BICSobelFilter::outputImage() const {
    const auto image = this->image(kImage);
    if (!image) return std::nullopt;
    return kernels::sobel(*image);
}

double applyingCustomGamma(double x, double a0, double g, bool inverse) {
    const double s = g / (a0 * (g - 1) + std::pow(a0, 1 - g));
    const double a = 1 / ((g - 1) * std::pow(a0, g) + 1) - 1;
    if (!inverse) return x <= a0 ? s * x : (1 + a) * std::pow(x, g) - a;
    return x <= a0 * s ? x / s : std::pow((x + a) / (1 + a), 1 / g);
}

std::optional<ci::Image> bic_applying(const ci::Image& image,
                                      const std::vector<double>& customGamma,
                                      double transitionPoint, bool inverse) {
    if (customGamma.size() != 1 && customGamma.size() != 3) return std::nullopt;
    const double gr = customGamma[0];
    const double gg = customGamma.size() == 3 ? customGamma[1] : gr;
    const double gb = customGamma.size() == 3 ? customGamma[2] : gr;
    return kernels::customGamma(image, {transitionPoint, gr, gg, gb}, inverse);
}

} // namespace bic
