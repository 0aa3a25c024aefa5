#include "bic/filters/blend_mode.hpp"

#include "../kernels/library_kernels.hpp"
#include "bic/filters/blend_mode_filters.hpp"
#include "bic/platform/ci/builtin_filters.hpp"
#include "bic/platform/coding/errors.hpp"
#include "bic/platform/core/fatal.hpp"
#include "bic/resources/localization.hpp"

#include <cstdio>
#include <utility>

namespace bic {

namespace {

struct ModeInfo {
    BlendMode::Case mode;
    std::string_view name, key;
    std::shared_ptr<ci::Filter> (*filter)();
};

std::shared_ptr<ci::Filter> none() { return nullptr; }
template <class F>
std::shared_ptr<ci::Filter> make() {
    return std::make_shared<F>();
}
template <const char* Name>
std::shared_ptr<ci::Filter> builtIn() {
    return ci::Filter::named(Name);
}

constexpr char kSourceOver[] = "CISourceOverCompositing";
constexpr char kDarken[] = "CIDarkenBlendMode";
constexpr char kMultiply[] = "CIMultiplyBlendMode";
constexpr char kLighten[] = "CILightenBlendMode";
constexpr char kScreen[] = "CIScreenBlendMode";
constexpr char kOverlay[] = "CIOverlayBlendMode";
constexpr char kSoftLight[] = "CISoftLightBlendMode";
constexpr char kHardLight[] = "CIHardLightBlendMode";
constexpr char kDifference[] = "CIDifferenceBlendMode";
constexpr char kExclusion[] = "CIExclusionBlendMode";

using B = BlendMode;
// Declaration order; the group modes last.
constexpr ModeInfo kModes[] = {
    {B::normal, "Normal", "norm", builtIn<kSourceOver>},
    {B::dissolve, "Dissolve", "diss", builtIn<kSourceOver>},
    {B::darken, "Darken", "dark", builtIn<kDarken>},
    {B::multiply, "Multiply", "mul ", builtIn<kMultiply>},
    {B::colorBurn, "Color Burn", "idiv", make<BICColorBurnBlendMode>},
    {B::linearBurn, "Linear Burn", "lbrn", make<BICLinearBurnBlendMode>},
    {B::darkerColor, "Darker Color", "dkCl", make<BICDarkerColorBlendMode>},
    {B::lighten, "Lighten", "lite", builtIn<kLighten>},
    {B::screen, "Screen", "scrn", builtIn<kScreen>},
    {B::colorDodge, "Color Dodge", "div ", make<BICColorDodgeBlendMode>},
    {B::linearDodge, "Linear Dodge", "lddg", make<BICLinearDodgeBlendMode>},
    {B::lighterColor, "Lighter Color", "lgCl", make<BICLighterColorBlendMode>},
    {B::overlay, "Overlay", "over", builtIn<kOverlay>},
    {B::softLight, "Soft Light", "sLit", builtIn<kSoftLight>},
    {B::hardLight, "Hard Light", "hLit", builtIn<kHardLight>},
    {B::vividLight, "Vivid Light", "vLit", make<BICVividLightBlendMode>},
    {B::linearLight, "Linear Light", "lLit", make<BICLinearLightBlendMode>},
    {B::pinLight, "Pin Light", "pLit", make<BICPinLightBlendMode>},
    {B::hardMix, "Hard Mix", "hMix", make<BICHardMixBlendMode>},
    {B::difference, "Difference", "diff", builtIn<kDifference>},
    {B::exclusion, "Exclusion", "smud", builtIn<kExclusion>},
    {B::subtract, "Subtract", "fsub", make<BICSubtractBlendMode>},
    {B::divide, "Divide", "fdiv", make<BICDivideBlendMode>},
    {B::hue, "Hue", "hue ", make<BICHueBlendMode>},
    {B::saturation, "Saturation", "sat ", make<BICSaturationBlendMode>},
    {B::color, "Color", "colr", make<BICColorBlendMode>},
    {B::luminosity, "Luminosity", "lum ", make<BICLuminosityBlendMode>},
    {B::passThrough, "Pass Through", "pass", none},
    {B::replace, "Replace", "rplc", none},
};

const ModeInfo& info(BlendMode mode) {
    const int raw = mode.rawValue();
    return kModes[raw >= 1000 ? std::size_t(27 + raw - 1000) : std::size_t(raw - 1)];
}

std::optional<BlendMode> byName(std::string_view name) {
    for (const ModeInfo& m : kModes)
        if (m.name == name) return m.mode;
    return std::nullopt;
}

} // namespace

const std::array<BlendMode, 29>& BlendMode::allCases() {
    static const auto all = []<std::size_t... I>(std::index_sequence<I...>) {
        return std::array<BlendMode, 29>{kModes[I].mode...};
    }
    (std::make_index_sequence<29>{});
    return all;
}

std::optional<BlendMode> BlendMode::fromRawValue(int rawValue) {
    if ((rawValue >= 1 && rawValue <= 27) || rawValue == 1000 || rawValue == 1001)
        return BlendMode(Case(rawValue));
    return std::nullopt;
}

std::optional<BlendMode> BlendMode::fromName(std::string_view name) {
    if (auto mode = byName(name)) return mode;
    std::printf("Unsupported blend mode name.\n");
    std::fflush(stdout);
    return std::nullopt;
}

std::optional<BlendMode> BlendMode::fromPSDKey(std::string_view key) {
    for (const ModeInfo& m : kModes)
        if (m.key == key) return m.mode;
    std::printf("Unsupported blend mode name %.*s.\n", int(key.size()), key.data());
    std::fflush(stdout);
    return std::nullopt;
}

std::string_view BlendMode::name() const { return info(*this).name; }
std::string_view BlendMode::psdKey() const { return info(*this).key; }

std::string BlendMode::localizedName() const {
    return resources::localizedString("BlendModes", name());
}

std::shared_ptr<ci::Filter> BlendMode::filter() const {
    auto filter = info(*this).filter();
    if (!filter) fatalError("Cannot create filter for blend mode " + std::string(name()) + ".");
    return filter;
}

void BlendMode::encode(coding::Encoder& encoder) const { encoder.encodeSingle(name()); }

BlendMode BlendMode::decode(const coding::Decoder& decoder) {
    if (auto mode = byName(decoder.decodeSingle<std::string>())) return *mode;
    throw coding::FileReadCorruptError();
}

ci::Image bic_applying(const ci::Image& image, double opacity) {
    return ci::colorMatrix(
        image, {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, opacity}, {0, 0, 0, 0}});
}

ci::Image bic_dissolved(const ci::Image& image, const ci::Image& over, double fraction) {
    BICDissolveBlendMode dissolve;
    dissolve.setInputImage(image);
    dissolve.setInputBackgroundImage(over);
    dissolve.setInputOpacity(fraction);
    return *dissolve.outputImage();
}

ci::Image blended(const ci::Image& foreground, const ci::Image& background, BlendMode mode,
                  double opacity, BlendArithmetic arithmetic) {
    std::optional<ci::Image> result;
    if (mode == BlendMode::dissolve) {
        BICDissolveBlendMode dissolve;
        dissolve.setInputImage(foreground);
        dissolve.setInputBackgroundImage(background);
        dissolve.setInputOpacity(opacity);
        result = dissolve.outputImage();
    } else if (mode == BlendMode::normal && opacity < 1) {
        // Normal reads no straight colour, so fading the layer first is as exact and cheaper.
        result = bic_applying(foreground, opacity).composited(background);
    } else {
        if (arithmetic == BlendArithmetic::eightBit &&
            (mode == BlendMode::linearLight || mode == BlendMode::hardLight)) {
            result = libraryKernels()
                         .blendKernel(mode == BlendMode::linearLight ? "blendModeLinearLight8"
                                                                     : "blendModeHardLight8")
                         .apply(foreground, background);
        } else {
            const auto filter = mode.filter();
            filter->setValue("inputImage", foreground);
            filter->setValue("inputBackgroundImage", background);
            result = filter->outputImage();
        }
        // The blend is linear in the layer's alpha: fading the layer by o is mixing the full
        // blend with the background by o. Done this way the mode never sees a colour divided
        // back out of a faded alpha, where 1 can come back as 0.99999.
        if (result && opacity < 1) result = ci::mix(*result, background, double(float(opacity)));
    }
    if (!result)
        fatalError("The " + std::string(mode.name()) + " blend filter gave no output image.");
    return *result;
}

} // namespace bic
