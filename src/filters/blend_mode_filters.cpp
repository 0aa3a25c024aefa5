#include "bic/filters/blend_mode_filters.hpp"

#include "../kernels/library_kernels.hpp"
#include "bic/algorithms/procedural.hpp"

namespace bic {

namespace {

const std::string kImage = "inputImage";
const std::string kBackground = "inputBackgroundImage";
const std::string kModule = "BrellinImageCore.";

std::vector<ci::Filter::Input> inputsWith(std::vector<ci::Filter::Input> extra) {
    std::vector<ci::Filter::Input> inputs{{kImage, {}}, {kBackground, {}}};
    inputs.insert(inputs.end(), extra.begin(), extra.end());
    return inputs;
}

ci::FilterValue valueOf(std::optional<ci::Image> image) {
    return image ? ci::FilterValue(*image) : ci::FilterValue();
}

} // namespace

BlendModeFilter::BlendModeFilter(std::string runtimeClassName, std::string kernel,
                                 std::vector<Input> extraInputs)
    : ci::Filter(std::move(runtimeClassName), inputsWith(std::move(extraInputs))),
      kernel_(std::move(kernel)) {}

void BlendModeFilter::setInputImage(std::optional<ci::Image> image) {
    setValue(kImage, valueOf(std::move(image)));
}

void BlendModeFilter::setInputBackgroundImage(std::optional<ci::Image> image) {
    setValue(kBackground, valueOf(std::move(image)));
}

std::optional<ci::Image> BlendModeFilter::outputImage() const {
    const auto foreground = inputImage(), background = inputBackgroundImage();
    if (!foreground || !background) return std::nullopt;
    return libraryKernels().blendKernel(kernel_).apply(*foreground, *background);
}

BICColorBurnBlendMode::BICColorBurnBlendMode()
    : BlendModeFilter(kModule + "BICColorBurnBlendMode", "blendModeColorBurn") {}
BICLinearBurnBlendMode::BICLinearBurnBlendMode()
    : BlendModeFilter("BICLinearBurnBlendMode", "blendModeLinearBurn") {}
BICDarkerColorBlendMode::BICDarkerColorBlendMode()
    : BlendModeFilter("BICDarkerColorBlendMode", "blendModeDarkerColor") {}
BICColorDodgeBlendMode::BICColorDodgeBlendMode()
    : BlendModeFilter(kModule + "BICColorDodgeBlendMode", "blendModeColorDodge") {}
BICLinearDodgeBlendMode::BICLinearDodgeBlendMode()
    : BlendModeFilter(kModule + "BICLinearDodgeBlendMode", "blendModeLinearDodge") {}
BICLighterColorBlendMode::BICLighterColorBlendMode()
    : BlendModeFilter("BICLighterColorBlendMode", "blendModeLighterColor") {}
BICVividLightBlendMode::BICVividLightBlendMode()
    : BlendModeFilter("BICVividLightBlendMode", "blendModeVividLight") {}
BICLinearLightBlendMode::BICLinearLightBlendMode()
    : BlendModeFilter("BICLinearLightBlendMode", "blendModeLinearLight") {}
BICPinLightBlendMode::BICPinLightBlendMode()
    : BlendModeFilter("BICPinLightBlendMode", "blendModePinLight") {}
BICHardMixBlendMode::BICHardMixBlendMode()
    : BlendModeFilter("BICHardMixBlendMode", "blendModeHardMix") {}
BICSubtractBlendMode::BICSubtractBlendMode()
    : BlendModeFilter("BICSubtractBlendMode", "blendModeSubtract") {}
BICDivideBlendMode::BICDivideBlendMode()
    : BlendModeFilter("BICDivideBlendMode", "blendModeDivide") {}
BICHueBlendMode::BICHueBlendMode() : BlendModeFilter("BICHueBlendMode", "blendModeHue") {}
BICSaturationBlendMode::BICSaturationBlendMode()
    : BlendModeFilter("BICSaturationBlendMode", "blendModeSaturation") {}
BICLuminosityBlendMode::BICLuminosityBlendMode()
    : BlendModeFilter("BICLuminosityBlendMode", "blendModeLuminosity") {}

BICColorBlendMode::BICColorBlendMode()
    : BlendModeFilter(kModule + "BICColorBlendMode", ""),
      luminosityFilter_(std::make_shared<BICLuminosityBlendMode>()) {}

std::optional<ci::Image> BICColorBlendMode::outputImage() const {
    luminosityFilter_->setInputBackgroundImage(inputImage());
    luminosityFilter_->setInputImage(inputBackgroundImage());
    return luminosityFilter_->outputImage();
}

BICDissolveBlendMode::BICDissolveBlendMode()
    : BlendModeFilter(kModule + "BICDissolveBlendMode", "blendModeDissolve",
                      {{"inputOpacity", {}}}) {}

void BICDissolveBlendMode::setInputOpacity(std::optional<double> opacity) {
    setValue("inputOpacity", opacity ? ci::FilterValue(*opacity) : ci::FilterValue());
}

std::optional<ci::Image> BICDissolveBlendMode::outputImage() const {
    const auto foreground = inputImage(), background = inputBackgroundImage();
    const auto opacity = inputOpacity();
    if (!foreground || !background || !opacity) return std::nullopt;
    // Two empty images blend to the empty image, as with every other mode.
    return libraryKernels()
        .colorKernel(kernelName())
        .apply(foreground->extent().unionWith(background->extent()),
               {*foreground, *background, RandomNoiseGenerator::uniform(), *opacity})
        .value_or(ci::Image::empty());
}

void registerBlendModeFilters() {
    ci::registerFilterClass<BICColorBurnBlendMode>();
    ci::registerFilterClass<BICLinearBurnBlendMode>();
    ci::registerFilterClass<BICDarkerColorBlendMode>();
    ci::registerFilterClass<BICColorDodgeBlendMode>();
    ci::registerFilterClass<BICLinearDodgeBlendMode>();
    ci::registerFilterClass<BICLighterColorBlendMode>();
    ci::registerFilterClass<BICVividLightBlendMode>();
    ci::registerFilterClass<BICLinearLightBlendMode>();
    ci::registerFilterClass<BICPinLightBlendMode>();
    ci::registerFilterClass<BICHardMixBlendMode>();
    ci::registerFilterClass<BICSubtractBlendMode>();
    ci::registerFilterClass<BICDivideBlendMode>();
    ci::registerFilterClass<BICHueBlendMode>();
    ci::registerFilterClass<BICSaturationBlendMode>();
    ci::registerFilterClass<BICColorBlendMode>();
    ci::registerFilterClass<BICLuminosityBlendMode>();
    ci::registerFilterClass<BICDissolveBlendMode>();
}

} // namespace bic
