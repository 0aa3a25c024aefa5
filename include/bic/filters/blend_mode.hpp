#pragma once
// The ways a layer's pixels combine with what lies beneath them: the layer blend modes of the
// layered-document format, with its four-character keys, and the two group modes.

#include "bic/platform/ci/filter.hpp"
#include "bic/platform/coding/coder.hpp"

#include <array>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace bic {

class BlendMode {
public:
    enum Case : int {
        normal = 1,
        dissolve = 2,
        darken = 3,
        multiply = 4,
        colorBurn = 5,
        linearBurn = 6,
        darkerColor = 7,
        lighten = 8,
        screen = 9,
        colorDodge = 10,
        linearDodge = 11,
        lighterColor = 12,
        overlay = 13,
        softLight = 14,
        hardLight = 15,
        vividLight = 16,
        linearLight = 17,
        pinLight = 18,
        hardMix = 19,
        difference = 20,
        exclusion = 21,
        subtract = 22,
        divide = 23,
        hue = 24,
        saturation = 25,
        color = 26,
        luminosity = 27,
        passThrough = 1000, ///< a group's children blend straight onto what lies below it
        replace = 1001,
    };

    /// How many cases there are: the layer modes numbered from 1, then the two group modes.
    static constexpr std::size_t caseCount = 29;

    constexpr BlendMode(Case c) : case_(c) {}
    /// Every mode in declaration order.
    static const std::array<BlendMode, caseCount>& allCases();

    /// 1…27, 1000 or 1001; nothing otherwise.
    static std::optional<BlendMode> fromRawValue(int rawValue);
    /// The English display name, exactly (case matters). An unknown name prints
    /// "Unsupported blend mode name." on standard output and gives nothing.
    static std::optional<BlendMode> fromName(std::string_view name);
    /// The four-character key, exactly. An unknown key prints "Unsupported blend mode name "
    /// followed by the key and a full stop on standard output and gives nothing.
    static std::optional<BlendMode> fromPSDKey(std::string_view key);

    int rawValue() const { return case_; }
    /// "Normal", "Color Burn", …
    std::string_view name() const;
    /// "norm", "idiv", "mul ", … (always four characters)
    std::string_view psdKey() const;
    /// The name in the user's language ("BlendModes" string table); the English name without a
    /// translation.
    std::string localizedName() const;
    /// A new filter that performs the mode, no inputs set. The group modes have none: asking
    /// stops the process ("Cannot create filter for blend mode <name>.").
    std::shared_ptr<ci::Filter> filter() const;

    /// The display name as a single string.
    void encode(coding::Encoder& encoder) const;
    /// Throws FileReadCorruptError (259) for a string that is no display name.
    static BlendMode decode(const coding::Decoder& decoder);

    constexpr operator Case() const { return case_; }

private:
    Case case_;
};

/// Which arithmetic a mode follows where 8-bit documents differ from the continuous formulas.
enum class BlendArithmetic {
    /// The formulas on continuous values: for images of any depth.
    continuous,
    /// The steps of 8-bit layered documents as their application computes them: linear light
    /// is b + 2s − 256/255 and hard light's light half Screen(b, 2s − 256/255), so a layer level
    /// of 128 is neutral. For compositing documents whose channels are 8-bit.
    eightBit,
};

/// `foreground` blended over `background`: dissolve shows whole pixels by opacity; every other
/// mode blends as if the foreground were `opacity` transparent (below 1). The mode sees the
/// layer's own colour whatever the opacity, which is then applied by mixing the full blend with
/// the background — the same result by the compositing formula's linearity in the layer's
/// alpha, with channels of 0 and 1 read exactly. The group modes stop the process.
ci::Image blended(const ci::Image& foreground, const ci::Image& background, BlendMode mode,
                  double opacity, BlendArithmetic arithmetic = BlendArithmetic::continuous);

/// `image` with its alpha (and premultiplied colour) scaled by `opacity`; the extent is kept.
ci::Image bic_applying(const ci::Image& image, double opacity);
/// `image` dissolved over `over`: each pixel whole or not at all, shown in proportion to
/// `fraction` by the library's fixed noise (the dissolve blend filter).
ci::Image bic_dissolved(const ci::Image& image, const ci::Image& over, double fraction);

} // namespace bic

template <>
struct std::hash<bic::BlendMode> {
    std::size_t operator()(bic::BlendMode mode) const noexcept {
        return std::hash<int>()(mode.rawValue());
    }
};
