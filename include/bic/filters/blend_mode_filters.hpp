#pragma once
// The library's blend filters: one class per layered-document mode the engine has no filter
// for, each applying its "blendMode…" kernel on premultiplied samples over the union of its two
// images. Filters are known by their runtime class names (`runtimeClassName`): the bare class
// name, or "BrellinImageCore." and the class name for the classes archived under their module.
//
// Nothing is registered by the library itself: an editor registers the filters it wants to make
// by name, for instance with registerBlendModeFilters().

#include "bic/filters/blend_mode.hpp"
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
    /// The mode the filter performs.
    BlendMode mode() const { return mode_; }
    /// "blendModeColorBurn", …; empty for the colour blend, which has no kernel of its own.
    std::string_view kernelName() const;

protected:
    /// A filter of `mode`, under the runtime class name of the mode's table row.
    explicit BlendModeFilter(BlendMode mode, std::vector<Input> extraInputs = {});

private:
    BlendMode mode_;
};

/// The filter class of a mode that is its kernel and nothing more.
template <BlendMode::Case M>
class KernelBlendModeFilter : public BlendModeFilter {
public:
    static constexpr BlendMode::Case blendMode = M;
    KernelBlendModeFilter() : BlendModeFilter(M) {}
};

// clang-format off
class BICColorBurnBlendMode final : public KernelBlendModeFilter<BlendMode::colorBurn> {};
class BICLinearBurnBlendMode final : public KernelBlendModeFilter<BlendMode::linearBurn> {};
class BICDarkerColorBlendMode final : public KernelBlendModeFilter<BlendMode::darkerColor> {};
class BICColorDodgeBlendMode final : public KernelBlendModeFilter<BlendMode::colorDodge> {};
class BICLinearDodgeBlendMode final : public KernelBlendModeFilter<BlendMode::linearDodge> {};
class BICLighterColorBlendMode final : public KernelBlendModeFilter<BlendMode::lighterColor> {};
class BICVividLightBlendMode final : public KernelBlendModeFilter<BlendMode::vividLight> {};
class BICLinearLightBlendMode final : public KernelBlendModeFilter<BlendMode::linearLight> {};
class BICPinLightBlendMode final : public KernelBlendModeFilter<BlendMode::pinLight> {};
class BICHardMixBlendMode final : public KernelBlendModeFilter<BlendMode::hardMix> {};
class BICSubtractBlendMode final : public KernelBlendModeFilter<BlendMode::subtract> {};
class BICDivideBlendMode final : public KernelBlendModeFilter<BlendMode::divide> {};
class BICHueBlendMode final : public KernelBlendModeFilter<BlendMode::hue> {};
class BICSaturationBlendMode final : public KernelBlendModeFilter<BlendMode::saturation> {};
class BICLuminosityBlendMode final : public KernelBlendModeFilter<BlendMode::luminosity> {};
// clang-format on

/// The colour blend: the luminosity blend with the two images swapped, so the layer keeps the
/// backdrop's luminosity and brings its own hue and saturation.
class BICColorBlendMode final : public KernelBlendModeFilter<BlendMode::color> {
public:
    std::optional<ci::Image> outputImage() const override;

private:
    std::shared_ptr<BICLuminosityBlendMode> luminosityFilter_ =
        std::make_shared<BICLuminosityBlendMode>();
};

/// Shows each pixel of the layer whole or not at all, chosen by the process's uniform noise
/// against "inputOpacity" (0…1), so a dissolved layer looks the same on every render.
class BICDissolveBlendMode final : public BlendModeFilter {
public:
    static constexpr BlendMode::Case blendMode = BlendMode::dissolve;
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
