#include "bic/filters/blend_mode.hpp"

#include "../kernels/blend_kernels.hpp"
#include "bic/filters/blend_mode_filters.hpp"
#include "bic/platform/ci/builtin_filters.hpp"
#include "bic/platform/coding/errors.hpp"
#include "bic/platform/core/diagnostics.hpp"
#include "bic/platform/core/fatal.hpp"
#include "bic/resources/localization.hpp"
#include "blend_mode_table.hpp"

#include <utility>

namespace bic {

namespace detail {

namespace {

template <class F>
std::shared_ptr<ci::Filter> make() {
    return std::make_shared<F>();
}

template <class F>
ci::Image applyClass(const ci::Image& foreground, const ci::Image& background) {
    F filter;
    filter.setInputImage(foreground);
    filter.setInputBackgroundImage(background);
    return *filter.outputImage();
}

/// The library's filter class F performs the mode.
template <class F>
constexpr BlendFilter library{make<F>, applyClass<F>, ci::registerFilterClass<F>, F::blendMode};

/// The engine's built-in blend filter performs the mode.
template <ci::BuiltinBlendMode M>
constexpr BlendFilter builtIn{[] { return ci::blendFilter(M); },
                              [](const ci::Image& foreground, const ci::Image& background) {
                                  return ci::blended(M, foreground, background);
                              }};

/// Source-over compositing is the mode's filter; the library's class F, when there is one, is
/// what blends (dissolve: pixels chosen by the layer's opacity).
template <class F = void>
constexpr BlendFilter sourceOver = {ci::sourceOverCompositingFilter,
                                    [](const ci::Image& foreground, const ci::Image& background) {
                                        return foreground.composited(background);
                                    },
                                    ci::registerFilterClass<F>, F::blendMode};
template <>
constexpr BlendFilter sourceOver<void> = {
    ci::sourceOverCompositingFilter, [](const ci::Image& foreground, const ci::Image& background) {
        return foreground.composited(background);
    }};

constexpr BlendFilter none{};

using B = BlendMode;
using BB = ci::BuiltinBlendMode;
constexpr std::string_view kModule = "BrellinImageCore.";

// clang-format off
constexpr BlendModeRow kRows[] = {
    {B::normal, "Normal", "norm", sourceOver<>},
    {B::dissolve, "Dissolve", "diss", sourceOver<BICDissolveBlendMode>,
     "BrellinImageCore.BICDissolveBlendMode", "blendModeDissolve", blend::dissolveRow},
    {B::darken, "Darken", "dark", builtIn<BB::darken>},
    {B::multiply, "Multiply", "mul ", builtIn<BB::multiply>},
    {B::colorBurn, "Color Burn", "idiv", library<BICColorBurnBlendMode>,
     "BrellinImageCore.BICColorBurnBlendMode", "blendModeColorBurn", blend::modeRow<blend::ColorBurn>},
    {B::linearBurn, "Linear Burn", "lbrn", library<BICLinearBurnBlendMode>,
     "BICLinearBurnBlendMode", "blendModeLinearBurn", blend::modeRow<blend::LinearBurn>},
    {B::darkerColor, "Darker Color", "dkCl", library<BICDarkerColorBlendMode>,
     "BICDarkerColorBlendMode", "blendModeDarkerColor", blend::modeRow<blend::DarkerColor>},
    {B::lighten, "Lighten", "lite", builtIn<BB::lighten>},
    {B::screen, "Screen", "scrn", builtIn<BB::screen>},
    {B::colorDodge, "Color Dodge", "div ", library<BICColorDodgeBlendMode>,
     "BrellinImageCore.BICColorDodgeBlendMode", "blendModeColorDodge", blend::modeRow<blend::ColorDodge>},
    {B::linearDodge, "Linear Dodge", "lddg", library<BICLinearDodgeBlendMode>,
     "BrellinImageCore.BICLinearDodgeBlendMode", "blendModeLinearDodge", blend::modeRow<blend::LinearDodge>},
    {B::lighterColor, "Lighter Color", "lgCl", library<BICLighterColorBlendMode>,
     "BICLighterColorBlendMode", "blendModeLighterColor", blend::modeRow<blend::LighterColor>},
    {B::overlay, "Overlay", "over", builtIn<BB::overlay>},
    {B::softLight, "Soft Light", "sLit", builtIn<BB::softLight>},
    {B::hardLight, "Hard Light", "hLit", builtIn<BB::hardLight>,
     "", "blendModeHardLight", nullptr, blend::modeRow<blend::HardLight8>},
    {B::vividLight, "Vivid Light", "vLit", library<BICVividLightBlendMode>,
     "BICVividLightBlendMode", "blendModeVividLight", blend::modeRow<blend::VividLight>,
     blend::modeRow<blend::VividLight8>},
    {B::linearLight, "Linear Light", "lLit", library<BICLinearLightBlendMode>,
     "BICLinearLightBlendMode", "blendModeLinearLight", blend::modeRow<blend::LinearLight>,
     blend::modeRow<blend::LinearLight8>},
    {B::pinLight, "Pin Light", "pLit", library<BICPinLightBlendMode>,
     "BICPinLightBlendMode", "blendModePinLight", blend::modeRow<blend::PinLight>},
    {B::hardMix, "Hard Mix", "hMix", library<BICHardMixBlendMode>,
     "BICHardMixBlendMode", "blendModeHardMix", blend::modeRow<blend::HardMix>},
    {B::difference, "Difference", "diff", builtIn<BB::difference>},
    {B::exclusion, "Exclusion", "smud", builtIn<BB::exclusion>},
    {B::subtract, "Subtract", "fsub", library<BICSubtractBlendMode>,
     "BICSubtractBlendMode", "blendModeSubtract", blend::modeRow<blend::Subtract>},
    {B::divide, "Divide", "fdiv", library<BICDivideBlendMode>,
     "BICDivideBlendMode", "blendModeDivide", blend::modeRow<blend::Divide>},
    {B::hue, "Hue", "hue ", library<BICHueBlendMode>,
     "BICHueBlendMode", "blendModeHue", blend::modeRow<blend::Hue>},
    {B::saturation, "Saturation", "sat ", library<BICSaturationBlendMode>,
     "BICSaturationBlendMode", "blendModeSaturation", blend::modeRow<blend::Saturation>},
    {B::color, "Color", "colr", library<BICColorBlendMode>,
     "BrellinImageCore.BICColorBlendMode"},
    {B::luminosity, "Luminosity", "lum ", library<BICLuminosityBlendMode>,
     "BICLuminosityBlendMode", "blendModeLuminosity", blend::modeRow<blend::Luminosity>},
    {B::passThrough, "Pass Through", "pass", none},
    {B::replace, "Replace", "rplc", none},
};
// clang-format on

// A row out of place, a class under another mode's row or a class without a name is a compile
// error.
constexpr int kLayerModes = int(BlendMode::caseCount) - 2;

consteval bool rowsAreConsistent() {
    int expected = 1;
    for (const BlendModeRow& row : kRows) {
        if (row.mode != expected) return false;
        expected = expected == kLayerModes ? int(BlendMode::passThrough) : expected + 1;
        if (row.filter.classMode && *row.filter.classMode != row.mode) return false;
        if (row.filter.classMode.has_value() != !row.runtimeClassName.empty()) return false;
        if (row.runtimeClassName.starts_with(kModule) &&
            row.runtimeClassName.size() == kModule.size())
            return false;
        if (row.key.size() != 4) return false;
    }
    return true;
}
static_assert(std::size(kRows) == BlendMode::caseCount, "one row for every blend mode");
static_assert(rowsAreConsistent());

} // namespace

const BlendModeRow& blendModeRow(BlendMode mode) {
    const int raw = mode.rawValue();
    return kRows[raw >= BlendMode::passThrough
                     ? std::size_t(kLayerModes + raw - BlendMode::passThrough)
                     : std::size_t(raw - 1)];
}

std::span<const BlendModeRow> blendModeRows() { return kRows; }

} // namespace detail

namespace {

std::optional<BlendMode> byName(std::string_view name) {
    for (const detail::BlendModeRow& row : detail::blendModeRows())
        if (row.name == name) return row.mode;
    return std::nullopt;
}

} // namespace

const std::array<BlendMode, BlendMode::caseCount>& BlendMode::allCases() {
    static const auto all = []<std::size_t... I>(std::index_sequence<I...>) {
        return std::array<BlendMode, caseCount>{detail::blendModeRows()[I].mode...};
    }
    (std::make_index_sequence<caseCount>{});
    return all;
}

std::optional<BlendMode> BlendMode::fromRawValue(int rawValue) {
    for (const detail::BlendModeRow& row : detail::blendModeRows())
        if (row.mode == rawValue) return row.mode;
    return std::nullopt;
}

std::optional<BlendMode> BlendMode::fromName(std::string_view name) {
    if (auto mode = byName(name)) return mode;
    diagnostic("Unsupported blend mode name.");
    return std::nullopt;
}

std::optional<BlendMode> BlendMode::fromPSDKey(std::string_view key) {
    for (const detail::BlendModeRow& row : detail::blendModeRows())
        if (row.key == key) return row.mode;
    diagnostic("Unsupported blend mode name " + std::string(key) + ".");
    return std::nullopt;
}

std::string_view BlendMode::name() const { return detail::blendModeRow(*this).name; }
std::string_view BlendMode::psdKey() const { return detail::blendModeRow(*this).key; }

std::string BlendMode::localizedName() const {
    return resources::localizedString("BlendModes", name());
}

std::shared_ptr<ci::Filter> BlendMode::filter() const {
    const auto make = detail::blendModeRow(*this).filter.make;
    auto filter = make ? make() : nullptr;
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
    const detail::BlendModeRow& row = detail::blendModeRow(mode);
    if (!row.filter.apply) mode.filter(); // the group modes stop there
    if (mode == BlendMode::dissolve) return bic_dissolved(foreground, background, opacity);
    // Normal reads no straight colour, so fading the layer first is as exact and cheaper.
    if (mode == BlendMode::normal && opacity < 1)
        return bic_applying(foreground, opacity).composited(background);
    const auto blend = [&](const ci::Image& under) {
        return arithmetic == BlendArithmetic::eightBit && row.eightBitKernel
                   ? ci::BlendKernel(std::string(row.kernelName) + "8", row.eightBitKernel)
                         .apply(foreground, under)
                   : row.filter.apply(foreground, under);
    };
    if (!(opacity < 1)) return blend(background);
    // The blend is linear in the layer's alpha: fading the layer by o is mixing the full blend
    // with the background by o. Done this way the mode never sees a colour divided back out of
    // a faded alpha, where 1 can come back as 0.99999. The mix is made with each row of the
    // blend where the engine can; otherwise the background, read twice, is kept once per tile.
    const double fraction = double(float(opacity));
    if (auto faded = ci::fadedBlend(blend(background), background, fraction)) return *faded;
    const ci::Image shared = background.sharedWithinTile();
    return ci::mix(blend(shared), shared, fraction);
}

} // namespace bic
