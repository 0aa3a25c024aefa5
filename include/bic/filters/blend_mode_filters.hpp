#pragma once
// The library's blend filters: one class per layered-document mode the engine has no filter
// for, each applying its "blendMode…" kernel on premultiplied samples over the union of its two
// images. Filters are known by their runtime class names (`runtimeClassName`): the bare class
// name, or "BrellinImageCore." and the class name for the classes archived under their module.
//
// Nothing is registered by the library itself: an editor registers the filters it wants to make
// by name, for instance with registerBlendModeFilters().

#include "bic/platform/ci/filter.hpp"

#include <memory>
#include <string_view>

namespace bic {

/// A blend filter: "inputImage" (the layer) over "inputBackgroundImage" (what lies beneath).
class BlendModeFilter : public ci::Filter {
public:
    std::optional<ci::Image> inputImage() const { return image("inputImage"); }
    void setInputImage(std::optional<ci::Image> image);
    std::optional<ci::Image> inputBackgroundImage() const { return image("inputBackgroundImage"); }
    void setInputBackgroundImage(std::optional<ci::Image> image);

    /// Nothing unless both images are set; otherwise the kernel's result over the union of
    /// their extents.
    std::optional<ci::Image> outputImage() const override;
    const std::string& kernelName() const { return kernel_; }

protected:
    BlendModeFilter(std::string runtimeClassName, std::string kernel,
                    std::vector<Input> extraInputs = {});

private:
    std::string kernel_;
};

class BICColorBurnBlendMode final : public BlendModeFilter {
public:
    BICColorBurnBlendMode();
};
class BICLinearBurnBlendMode final : public BlendModeFilter {
public:
    BICLinearBurnBlendMode();
};
class BICDarkerColorBlendMode final : public BlendModeFilter {
public:
    BICDarkerColorBlendMode();
};
class BICColorDodgeBlendMode final : public BlendModeFilter {
public:
    BICColorDodgeBlendMode();
};
class BICLinearDodgeBlendMode final : public BlendModeFilter {
public:
    BICLinearDodgeBlendMode();
};
class BICLighterColorBlendMode final : public BlendModeFilter {
public:
    BICLighterColorBlendMode();
};
class BICVividLightBlendMode final : public BlendModeFilter {
public:
    BICVividLightBlendMode();
};
class BICLinearLightBlendMode final : public BlendModeFilter {
public:
    BICLinearLightBlendMode();
};
class BICPinLightBlendMode final : public BlendModeFilter {
public:
    BICPinLightBlendMode();
};
class BICHardMixBlendMode final : public BlendModeFilter {
public:
    BICHardMixBlendMode();
};
class BICSubtractBlendMode final : public BlendModeFilter {
public:
    BICSubtractBlendMode();
};
class BICDivideBlendMode final : public BlendModeFilter {
public:
    BICDivideBlendMode();
};
class BICHueBlendMode final : public BlendModeFilter {
public:
    BICHueBlendMode();
};
class BICSaturationBlendMode final : public BlendModeFilter {
public:
    BICSaturationBlendMode();
};
class BICLuminosityBlendMode final : public BlendModeFilter {
public:
    BICLuminosityBlendMode();
};

/// The colour blend: the luminosity blend with the two images swapped, so the layer keeps the
/// backdrop's luminosity and brings its own hue and saturation.
class BICColorBlendMode final : public BlendModeFilter {
public:
    BICColorBlendMode();
    std::optional<ci::Image> outputImage() const override;

private:
    std::shared_ptr<BICLuminosityBlendMode> luminosityFilter_;
};

/// Shows each pixel of the layer whole or not at all, chosen by the process's uniform noise
/// against "inputOpacity" (0…1), so a dissolved layer looks the same on every render.
class BICDissolveBlendMode final : public BlendModeFilter {
public:
    BICDissolveBlendMode();
    std::optional<double> inputOpacity() const { return number("inputOpacity"); }
    void setInputOpacity(std::optional<double> opacity);
    /// Nothing unless both images and the opacity are set.
    std::optional<ci::Image> outputImage() const override;
};

/// The name the filter is known by: "BrellinImageCore.BICColorBurnBlendMode" or
/// "BICLinearBurnBlendMode", say.
inline const std::string& runtimeClassName(const ci::Filter& filter) { return filter.name(); }

/// Makes a new filter of class F whatever name it is asked for.
template <class F>
using BlendModeFilterGenerator = ci::ClassConstructor<F>;

using BICLinearBurnBlendModeGenerator = BlendModeFilterGenerator<BICLinearBurnBlendMode>;
using BICDarkerColorBlendModeGenerator = BlendModeFilterGenerator<BICDarkerColorBlendMode>;
using BICLighterColorBlendModeGenerator = BlendModeFilterGenerator<BICLighterColorBlendMode>;
using BICVividLightBlendModeGenerator = BlendModeFilterGenerator<BICVividLightBlendMode>;
using BICLinearLightBlendModeGenerator = BlendModeFilterGenerator<BICLinearLightBlendMode>;
using BICPinLightBlendModeGenerator = BlendModeFilterGenerator<BICPinLightBlendMode>;
using BICHardMixBlendModeGenerator = BlendModeFilterGenerator<BICHardMixBlendMode>;
using BICSubtractBlendModeGenerator = BlendModeFilterGenerator<BICSubtractBlendMode>;
using BICDivideBlendModeGenerator = BlendModeFilterGenerator<BICDivideBlendMode>;
using BICHueBlendModeGenerator = BlendModeFilterGenerator<BICHueBlendMode>;
using BICSaturationBlendModeGenerator = BlendModeFilterGenerator<BICSaturationBlendMode>;
using BICColorBlendModeGenerator = BlendModeFilterGenerator<BICColorBlendMode>;
using BICLuminosityBlendModeGenerator = BlendModeFilterGenerator<BICLuminosityBlendMode>;

/// Registers every blend filter class with the filter registry under its runtime class name.
void registerBlendModeFilters();

} // namespace bic
