#pragma once
// Small image-to-image adjustments for the editor's tools: a hard threshold, per-channel tone
// curves, a bevel shading of a height image, a Sobel edge image and a piecewise custom gamma.
// Conventions as for the image operations: values are luminosities of unpremultiplied colour,
// results that are measures are opaque greys.

#include "bic/platform/ci/filter.hpp"

#include <optional>
#include <vector>

namespace bic {

/// White where the value reaches "inputThreshold", black elsewhere.
class BICThresholdFilter final : public ci::Filter {
public:
    BICThresholdFilter();
    std::optional<ci::Image> inputImage() const { return image("inputImage"); }
    void setInputImage(std::optional<ci::Image> image);
    std::optional<double> inputThreshold() const { return number("inputThreshold"); }
    void setInputThreshold(std::optional<double> threshold);
    /// Needs both inputs.
    std::optional<ci::Image> outputImage() const override;
};

/// Makes threshold filters for the filter registry, whatever the name.
class BICThresholdFilterGenerator final : public ci::FilterConstructor {
public:
    std::shared_ptr<ci::Filter> filterWithName(std::string_view) const override {
        return std::make_shared<BICThresholdFilter>();
    }
};

/// Tone curves "redMap", "greenMap", "blueMap" (see `mapped`). Without an image nothing; with
/// any curve missing, the image unchanged.
class BICColorMapFilter final : public ci::Filter {
public:
    BICColorMapFilter();
    void setInputImage(std::optional<ci::Image> image);
    void setMaps(std::optional<std::vector<double>> red, std::optional<std::vector<double>> green,
                 std::optional<std::vector<double>> blue);
    std::optional<ci::Image> outputImage() const override;
};

/// The image read as a height field, shaded by the dot product of its unit surface normal with
/// the normalised "inputLightAngle" (three components; any other count gives nothing). The
/// shade is grey, carried by the image's alpha.
class BICBevelFilter final : public ci::Filter {
public:
    BICBevelFilter();
    void setInputImage(std::optional<ci::Image> image);
    void setInputLightAngle(std::optional<std::vector<double>> light);
    std::optional<ci::Image> outputImage() const override;
    /// The rectangle each output rectangle reads: one pixel more on every side.
    static cg::Rect regionOfInterest(const cg::Rect& destination) {
        return destination.insetBy(-1, -1);
    }
};

/// The Sobel gradient magnitude of the value, opaque grey, 1 for a unit step.
class BICSobelFilter final : public ci::Filter {
public:
    BICSobelFilter();
    void setInputImage(std::optional<ci::Image> image);
    std::optional<ci::Image> outputImage() const override;
};

/// The piecewise gamma: linear up to the transition point a0 with slope s, a power curve
/// (1 + a)·x^g − a above, meeting with equal value and slope, and f(1) = 1; `inverse` undoes it.
/// s = g ÷ (a0·(g − 1) + a0^(1 − g)), a = 1 ÷ ((g − 1)·a0^g + 1) − 1.
double applyingCustomGamma(double x, double a0, double g, bool inverse);

/// The custom gamma on each colour channel of unpremultiplied colour, alpha kept. `customGamma`
/// holds the exponent for all three channels, or one each for red, green and blue.
std::optional<ci::Image> bic_applying(const ci::Image& image,
                                      const std::vector<double>& customGamma,
                                      double transitionPoint, bool inverse);

} // namespace bic
