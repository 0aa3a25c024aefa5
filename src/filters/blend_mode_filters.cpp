#include "bic/filters/blend_mode_filters.hpp"

#include "bic/algorithms/procedural.hpp"
#include "blend_mode_table.hpp"

namespace bic {

namespace {

const std::string kImage = "inputImage";
const std::string kBackground = "inputBackgroundImage";

std::vector<ci::Filter::Input> inputsWith(std::vector<ci::Filter::Input> extra) {
    std::vector<ci::Filter::Input> inputs{{kImage, {}}, {kBackground, {}}};
    inputs.insert(inputs.end(), extra.begin(), extra.end());
    return inputs;
}

ci::FilterValue valueOf(std::optional<ci::Image> image) {
    return image ? ci::FilterValue(*image) : ci::FilterValue();
}

} // namespace

BlendModeFilter::BlendModeFilter(BlendMode mode, std::vector<Input> extraInputs)
    : ci::Filter(std::string(detail::blendModeRow(mode).runtimeClassName),
                 inputsWith(std::move(extraInputs))),
      mode_(mode) {}

std::string_view BlendModeFilter::kernelName() const {
    return detail::blendModeRow(mode_).kernelName;
}

void BlendModeFilter::setInputImage(std::optional<ci::Image> image) {
    setValue(kImage, valueOf(std::move(image)));
}

void BlendModeFilter::setInputBackgroundImage(std::optional<ci::Image> image) {
    setValue(kBackground, valueOf(std::move(image)));
}

std::optional<ci::Image> BlendModeFilter::outputImage() const {
    const auto foreground = inputImage(), background = inputBackgroundImage();
    if (!foreground || !background) return std::nullopt;
    const detail::BlendModeRow& row = detail::blendModeRow(mode_);
    return ci::BlendKernel(std::string(row.kernelName), row.kernel).apply(*foreground, *background);
}

std::optional<ci::Image> BICColorBlendMode::outputImage() const {
    luminosityFilter_->setInputBackgroundImage(inputImage());
    luminosityFilter_->setInputImage(inputBackgroundImage());
    return luminosityFilter_->outputImage();
}

BICDissolveBlendMode::BICDissolveBlendMode()
    : BlendModeFilter(BlendMode::dissolve, {{"inputOpacity", {}}}) {}

void BICDissolveBlendMode::setInputOpacity(std::optional<double> opacity) {
    setValue("inputOpacity", opacity ? ci::FilterValue(*opacity) : ci::FilterValue());
}

std::optional<ci::Image> BICDissolveBlendMode::outputImage() const {
    const auto foreground = inputImage(), background = inputBackgroundImage();
    const auto opacity = inputOpacity();
    if (!foreground || !background || !opacity) return std::nullopt;
    const detail::BlendModeRow& row = detail::blendModeRow(BlendMode::dissolve);
    static const ci::ColorKernel kernel(std::string(row.kernelName), row.kernel);
    // Two empty images blend to the empty image, as with every other mode.
    return kernel
        .apply(foreground->extent().unionWith(background->extent()),
               {*foreground, *background, RandomNoiseGenerator::uniform(), *opacity})
        .value_or(ci::Image::empty());
}

void registerBlendModeFilters() {
    for (const detail::BlendModeRow& row : detail::blendModeRows())
        if (row.filter.registerClass) row.filter.registerClass();
}

} // namespace bic
