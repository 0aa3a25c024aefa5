#include "bic/algorithms/procedural.hpp"
#include "bic/filters/blend_mode.hpp"
#include "bic/filters/blend_mode_filters.hpp"
#include "bic/platform/ci/context.hpp"
#include "bic/platform/ci/kernel.hpp"
#include "bic/platform/coding/formats.hpp"
#include "bic/platform/core/diagnostics.hpp"
#include "bic/resources/localization.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <random>
#include <thread>
#include <unordered_set>

using namespace bic;

namespace {

// ---- An independent double-precision model of the layered-document blend modes ------------

using RGB = std::array<double, 3>;

double lum(const RGB& c) { return 0.3 * c[0] + 0.59 * c[1] + 0.11 * c[2]; }

RGB clip(RGB c) {
    const double l = lum(c), n = std::min({c[0], c[1], c[2]}), x = std::max({c[0], c[1], c[2]});
    if (n < 0)
        for (double& v : c)
            v = l + (v - l) * l / (l - n);
    if (x > 1)
        for (double& v : c)
            v = l + (v - l) * (1 - l) / (x - l);
    return c;
}

RGB withLum(RGB c, double l) {
    const double d = l - lum(c);
    for (double& v : c)
        v += d;
    return clip(c);
}

double sat(const RGB& c) { return std::max({c[0], c[1], c[2]}) - std::min({c[0], c[1], c[2]}); }

RGB withSat(const RGB& c, double s) {
    std::array<int, 3> order{0, 1, 2};
    std::sort(order.begin(), order.end(), [&](int a, int b) { return c[a] < c[b]; });
    RGB out{};
    const double lo = c[order[0]], mid = c[order[1]], hi = c[order[2]];
    if (hi > lo) {
        out[order[1]] = (mid - lo) * s / (hi - lo);
        out[order[2]] = s;
    }
    return out;
}

using Separable = std::function<double(double b, double s)>;
using Whole = std::function<RGB(const RGB& b, const RGB& s)>;

Whole perChannel(Separable f) {
    return [f](const RGB& b, const RGB& s) {
        return RGB{f(b[0], s[0]), f(b[1], s[1]), f(b[2], s[2])};
    };
}

// B(Cb, Cs) of every pixel mode but dissolve. Edge rules: dodge and burn check the backdrop
// first; vivid light has no guards; hard mix sets when the sum exceeds 1 or the backdrop is 1;
// divide by 0 is 0 on black and 1 otherwise.
Whole reference(BlendMode mode) {
    switch (mode) {
    case BlendMode::normal:
        return perChannel([](double, double s) { return s; });
    case BlendMode::darken:
        return perChannel([](double b, double s) { return std::min(b, s); });
    case BlendMode::multiply:
        return perChannel([](double b, double s) { return b * s; });
    case BlendMode::colorBurn:
        return perChannel([](double b, double s) {
            return b == 1 ? 1 : s == 0 ? 0 : 1 - std::min(1.0, (1 - b) / s);
        });
    case BlendMode::linearBurn:
        return perChannel([](double b, double s) { return std::max(0.0, b + s - 1); });
    case BlendMode::lighten:
        return perChannel([](double b, double s) { return std::max(b, s); });
    case BlendMode::screen:
        return perChannel([](double b, double s) { return b + s - b * s; });
    case BlendMode::colorDodge:
        return perChannel([](double b, double s) {
            return b == 0 ? 0 : s == 1 ? 1 : std::min(1.0, b / (1 - s));
        });
    case BlendMode::linearDodge:
        return perChannel([](double b, double s) { return std::min(1.0, b + s); });
    case BlendMode::overlay:
        return perChannel(
            [](double b, double s) { return b <= 0.5 ? 2 * b * s : 1 - 2 * (1 - b) * (1 - s); });
    case BlendMode::softLight:
        return perChannel([](double b, double s) {
            if (s <= 0.5) return b - (1 - 2 * s) * b * (1 - b);
            const double d = b <= 0.25 ? ((16 * b - 12) * b + 4) * b : std::sqrt(b);
            return b + (2 * s - 1) * (d - b);
        });
    case BlendMode::hardLight:
        return perChannel(
            [](double b, double s) { return s <= 0.5 ? 2 * b * s : 1 - 2 * (1 - b) * (1 - s); });
    case BlendMode::vividLight:
        return perChannel([](double b, double s) {
            if (s == 0) return 0.0;
            if (s == 1) return 1.0;
            return s <= 0.5 ? std::max(0.0, 1 - (1 - b) / (2 * s))
                            : std::min(1.0, b / (2 * (1 - s)));
        });
    case BlendMode::linearLight:
        return perChannel([](double b, double s) { return std::clamp(b + 2 * s - 1, 0.0, 1.0); });
    case BlendMode::pinLight:
        return perChannel([](double b, double s) {
            return s <= 0.5 ? std::min(b, 2 * s) : std::max(b, 2 * s - 1);
        });
    case BlendMode::hardMix:
        // Decided on the 8-bit levels the test draws, as integers.
        return perChannel([](double b, double s) {
            const long lb = std::lround(b * 255), ls = std::lround(s * 255);
            return lb == 255 || lb + ls > 255 ? 1.0 : 0.0;
        });
    case BlendMode::difference:
        return perChannel([](double b, double s) { return std::fabs(b - s); });
    case BlendMode::exclusion:
        return perChannel([](double b, double s) { return b + s - 2 * b * s; });
    case BlendMode::subtract:
        return perChannel([](double b, double s) { return std::max(0.0, b - s); });
    case BlendMode::divide:
        return perChannel([](double b, double s) {
            return s == 0 ? (b == 0 ? 0.0 : 1.0) : std::min(1.0, b / s);
        });
    case BlendMode::hue:
        return [](const RGB& b, const RGB& s) { return withLum(withSat(s, sat(b)), lum(b)); };
    case BlendMode::saturation:
        return [](const RGB& b, const RGB& s) { return withLum(withSat(b, sat(s)), lum(b)); };
    case BlendMode::color:
        return [](const RGB& b, const RGB& s) { return withLum(s, lum(b)); };
    case BlendMode::luminosity:
        return [](const RGB& b, const RGB& s) { return withLum(b, lum(s)); };
    case BlendMode::darkerColor:
        return [](const RGB& b, const RGB& s) { return lum(s) < lum(b) ? s : b; };
    case BlendMode::lighterColor:
        return [](const RGB& b, const RGB& s) { return lum(s) > lum(b) ? s : b; };
    default:
        return {};
    }
}

struct Straight {
    RGB color;
    double alpha;
};

// The general compositing formula, premultiplied result.
std::array<double, 4> composite(const Whole& blend, const Straight& s, const Straight& b) {
    const RGB mixed = blend(b.color, s.color);
    std::array<double, 4> out{};
    for (int c = 0; c < 3; ++c)
        out[c] = s.alpha * s.color[c] * (1 - b.alpha) + b.alpha * b.color[c] * (1 - s.alpha) +
                 s.alpha * b.alpha * mixed[c];
    out[3] = s.alpha + b.alpha * (1 - s.alpha);
    return out;
}

ci::Image row(const std::vector<Straight>& pixels) {
    std::vector<float> data;
    for (const auto& p : pixels) {
        for (double c : p.color)
            data.push_back(float(c * p.alpha));
        data.push_back(float(p.alpha));
    }
    return *ci::Image::fromBitmap(data.data(), std::int64_t(data.size() * 4),
                                  std::int64_t(pixels.size()), 1, ci::Format::RGBAf);
}

std::vector<float> render(const ci::Image& image, const cg::Rect& rect) {
    const auto w = std::int64_t(rect.width()), h = std::int64_t(rect.height());
    std::vector<float> out(std::size_t(w * h * 4));
    ci::Context().render(image, out.data(), w * 16, rect, ci::Format::RGBAf);
    return out;
}

std::vector<Straight> randomPixels(std::mt19937& random, std::size_t count) {
    // 8-bit levels, alpha 0, partial or 1, and the channel ends often enough to reach the edge
    // rules.
    auto level = [&] {
        const unsigned pick = random() % 10;
        return pick == 0 ? 0.0 : pick == 1 ? 1.0 : double(random() % 256) / 255;
    };
    std::vector<Straight> pixels;
    for (std::size_t i = 0; i < count; ++i) {
        const unsigned a = random() % 4;
        pixels.push_back({{level(), level(), level()},
                          a == 0   ? 0.0
                          : a == 1 ? 1.0
                                   : double(1 + random() % 254) / 255});
    }
    return pixels;
}

std::string captureStdout(const std::function<void()>& body) {
    testing::internal::CaptureStdout();
    body();
    return testing::internal::GetCapturedStdout();
}

} // namespace

TEST(BlendMode, TableNamesKeysAndRawValues) {
    ASSERT_EQ(BlendMode::allCases().size(), 29u);
    for (BlendMode mode : BlendMode::allCases()) {
        EXPECT_EQ(BlendMode::fromRawValue(mode.rawValue()), mode);
        EXPECT_EQ(BlendMode::fromName(mode.name()), mode);
        EXPECT_EQ(BlendMode::fromPSDKey(mode.psdKey()), mode);
        EXPECT_EQ(mode.psdKey().size(), 4u) << mode.name();
    }
    EXPECT_EQ(BlendMode(BlendMode::colorBurn).rawValue(), 5);
    EXPECT_EQ(BlendMode(BlendMode::colorBurn).psdKey(), "idiv");
    EXPECT_EQ(BlendMode(BlendMode::exclusion).psdKey(), "smud");
    EXPECT_EQ(BlendMode(BlendMode::luminosity).name(), "Luminosity");
    EXPECT_FALSE(BlendMode::fromRawValue(0));
    EXPECT_FALSE(BlendMode::fromRawValue(28));
    EXPECT_FALSE(BlendMode::fromRawValue(999));
    EXPECT_EQ(BlendMode::fromRawValue(1000), BlendMode::passThrough);
    EXPECT_EQ(BlendMode::fromRawValue(1001), BlendMode::replace);
}

TEST(BlendMode, UnknownNamesAndKeysPrintOneLine) {
    std::optional<BlendMode> mode = BlendMode::normal;
    EXPECT_EQ(captureStdout([&] { mode = BlendMode::fromPSDKey("mul"); }),
              "Unsupported blend mode name mul.\n");
    EXPECT_FALSE(mode);
    EXPECT_EQ(captureStdout([&] { mode = BlendMode::fromPSDKey("mul "); }), "");
    EXPECT_EQ(mode, BlendMode::multiply);
    EXPECT_EQ(captureStdout([&] { mode = BlendMode::fromName("color burn"); }),
              "Unsupported blend mode name.\n");
    EXPECT_FALSE(mode);
    EXPECT_EQ(captureStdout([&] { mode = BlendMode::fromName("Color Burn"); }), "");
    EXPECT_EQ(mode, BlendMode::colorBurn);
}

TEST(BlendMode, DiagnosticLinesGoToTheHostsSink) {
    std::vector<std::string> lines;
    std::mutex mutex;
    const auto previous = setDiagnosticSink([&](std::string_view line) {
        std::lock_guard lock(mutex);
        lines.emplace_back(line);
    });
    EXPECT_FALSE(previous) << "standard output is the default";
    const std::string printed = captureStdout([] {
        // From several threads at once, as renders report.
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([] { EXPECT_FALSE(BlendMode::fromPSDKey("nope")); });
        for (auto& t : threads)
            t.join();
    });
    EXPECT_EQ(printed, "");
    EXPECT_EQ(lines, std::vector<std::string>(4, "Unsupported blend mode name nope."));
    EXPECT_TRUE(setDiagnosticSink({}));
    EXPECT_EQ(captureStdout([] { BlendMode::fromName("nope"); }), "Unsupported blend mode name.\n");
}

TEST(BlendMode, SerialisedAsTheDisplayName) {
    EXPECT_EQ(coding::encodeJSON(BlendMode(BlendMode::linearDodge)), "\"Linear Dodge\"");
    EXPECT_EQ(coding::decodeJSON<BlendMode>("\"Linear Dodge\""), BlendMode::linearDodge);
    const auto plist = coding::encodePropertyList(BlendMode(BlendMode::hue));
    EXPECT_EQ(coding::decodePropertyList<BlendMode>(plist), BlendMode::hue);
    std::string printed = captureStdout([] {
        EXPECT_THROW(coding::decodeJSON<BlendMode>("\"lddg\""), coding::FileReadCorruptError);
    });
    EXPECT_EQ(printed, "");
    EXPECT_THROW(coding::decodeJSON<BlendMode>("11"), coding::DecodingError);
}

TEST(BlendMode, LocalizedNamesComeFromTheStringTable) {
    resources::setPreferredLanguage("de");
    EXPECT_EQ(BlendMode(BlendMode::multiply).localizedName(), "Multiplizieren");
    EXPECT_EQ(BlendMode(BlendMode::saturation).localizedName(), "Sättigung");
    resources::setPreferredLanguage("fr");
    EXPECT_EQ(BlendMode(BlendMode::screen).localizedName(), "Superposition");
    resources::setPreferredLanguage("sv"); // no table: the English name
    EXPECT_EQ(BlendMode(BlendMode::colorBurn).localizedName(), "Color Burn");
    EXPECT_EQ(resources::localizedString("BlendModes", "Not a mode"), "Not a mode");
    resources::setPreferredLanguage(std::nullopt);
}

TEST(BlendMode, FiltersOfTheModes) {
    EXPECT_EQ(BlendMode(BlendMode::normal).filter()->name(), "CISourceOverCompositing");
    EXPECT_EQ(BlendMode(BlendMode::dissolve).filter()->name(), "CISourceOverCompositing");
    EXPECT_EQ(BlendMode(BlendMode::multiply).filter()->name(), "CIMultiplyBlendMode");
    EXPECT_EQ(BlendMode(BlendMode::colorBurn).filter()->name(),
              "BrellinImageCore.BICColorBurnBlendMode");
    EXPECT_EQ(BlendMode(BlendMode::hardMix).filter()->name(), "BICHardMixBlendMode");
    // A fresh filter every time.
    EXPECT_NE(BlendMode(BlendMode::hue).filter(), BlendMode(BlendMode::hue).filter());
    EXPECT_DEATH(BlendMode(BlendMode::passThrough).filter(),
                 "Fatal error: Cannot create filter for blend mode Pass Through\\.");
    EXPECT_DEATH(BlendMode(BlendMode::replace).filter(),
                 "Fatal error: Cannot create filter for blend mode Replace\\.");
}

TEST(BlendMode, EveryPixelModeFollowsTheCompositingFormula) {
    std::mt19937 random(20261123);
    const std::size_t n = 4000;
    for (BlendMode mode : BlendMode::allCases()) {
        if (mode == BlendMode::dissolve || mode.rawValue() >= 1000) continue;
        const auto fg = randomPixels(random, n), bg = randomPixels(random, n);
        const auto out = render(blended(row(fg), row(bg), mode, 1.0), cg::Rect(0, 0, double(n), 1));
        const Whole model = reference(mode);
        int failures = 0;
        for (std::size_t i = 0; i < n && failures < 5; ++i) {
            const auto want = composite(model, fg[i], bg[i]);
            for (int c = 0; c < 4; ++c)
                if (std::fabs(out[4 * i + c] - want[c]) > 2e-5) {
                    ++failures;
                    ADD_FAILURE() << mode.name() << " pixel " << i << " channel " << c << ": "
                                  << out[4 * i + c] << " ≠ " << want[c] << " (source "
                                  << fg[i].color[c] << " α " << fg[i].alpha << ", backdrop "
                                  << bg[i].color[c] << " α " << bg[i].alpha << ")";
                }
        }
    }
}

TEST(BlendMode, IdentitiesThatCatchSwappedOperands) {
    std::mt19937 random(7);
    const std::size_t n = 500;
    auto fg = randomPixels(random, n), bg = randomPixels(random, n);
    const cg::Rect all(0, 0, double(n), 1);
    auto opaque = bg;
    for (auto& p : opaque)
        p.alpha = 1;
    std::vector<Straight> white(n, {{1, 1, 1}, 1}), black(n, {{0, 0, 0}, 1});
    // Normal over an opaque backdrop is source-over; multiply by white and screen with black
    // leave the layer's colour (over an opaque backdrop: the layer composited normally).
    const auto normal = render(blended(row(fg), row(opaque), BlendMode::normal, 1), all);
    const auto multiply = render(blended(row(white), row(opaque), BlendMode::multiply, 1), all);
    const auto screen = render(blended(row(black), row(opaque), BlendMode::screen, 1), all);
    for (std::size_t i = 0; i < n; ++i)
        for (int c = 0; c < 3; ++c) {
            const double a = fg[i].alpha;
            EXPECT_NEAR(normal[4 * i + c], a * fg[i].color[c] + (1 - a) * opaque[i].color[c], 1e-5);
            EXPECT_NEAR(multiply[4 * i + c], opaque[i].color[c], 1e-5);
            EXPECT_NEAR(screen[4 * i + c], opaque[i].color[c], 1e-5);
        }
    // Colour over X is luminosity of X over the layer, alpha included.
    const auto color = render(blended(row(fg), row(bg), BlendMode::color, 1), all);
    const auto luminosity = render(blended(row(bg), row(fg), BlendMode::luminosity, 1), all);
    for (std::size_t i = 0; i < 4 * n; ++i)
        EXPECT_NEAR(color[i], luminosity[i], 1e-6);
    // Opacity scales the layer before the mode.
    const auto half = render(blended(row(fg), row(bg), BlendMode::multiply, 0.5), all);
    auto faded = fg;
    for (auto& p : faded)
        p.alpha *= 0.5;
    const auto expected = render(blended(row(faded), row(bg), BlendMode::multiply, 1), all);
    for (std::size_t i = 0; i < 4 * n; ++i)
        EXPECT_NEAR(half[i], expected[i], 1e-6);
}

TEST(BlendMode, DissolveShowsWholePixelsInProportionToOpacity) {
    const ci::Image layer = ci::Image::constant({1, 0, 0, 0.8}).cropped({0, 0, 256, 256});
    const ci::Image backdrop = ci::Image::constant({0, 0, 1, 1}).cropped({0, 0, 256, 256});
    const cg::Rect all(0, 0, 256, 256);
    for (double opacity : {0.0, 0.3, 1.0}) {
        const auto out = render(blended(layer, backdrop, BlendMode::dissolve, opacity), all);
        std::size_t shown = 0;
        for (std::size_t i = 0; i < out.size(); i += 4) {
            const bool isShown = out[i] > 0;
            // Shown pixels are the layer over the backdrop with the layer's own alpha.
            if (isShown) {
                EXPECT_NEAR(out[i], 0.8f, 1e-6);
                EXPECT_NEAR(out[i + 2], 0.2f, 1e-6);
            } else {
                EXPECT_EQ(out[i + 2], 1.0f);
            }
            shown += isShown;
        }
        EXPECT_NEAR(double(shown) / (256 * 256), opacity, 0.01) << opacity;
    }
    // The pattern is the same on every render.
    const auto a = render(blended(layer, backdrop, BlendMode::dissolve, 0.5), all);
    const auto b = render(blended(layer, backdrop, BlendMode::dissolve, 0.5), all);
    EXPECT_EQ(a, b);
}

TEST(BlendModeFilters, InputsDefinitionAndConstructors) {
    const ci::Image small = ci::Image::constant({1, 0, 0, 1}).cropped({10, 10, 5, 5});
    const ci::Image large = ci::Image::constant({0, 1, 0, 1}).cropped({0, 0, 100, 50});
    BICColorBurnBlendMode burn;
    EXPECT_FALSE(burn.outputImage());
    burn.setInputImage(small);
    EXPECT_FALSE(burn.outputImage());
    burn.setInputBackgroundImage(large);
    ASSERT_TRUE(burn.outputImage());
    EXPECT_EQ(burn.outputImage()->extent(), cg::Rect(0, 0, 100, 50));
    burn.setInputBackgroundImage(std::nullopt);
    EXPECT_FALSE(burn.outputImage());

    BICDissolveBlendMode dissolve;
    dissolve.setInputImage(small);
    dissolve.setInputBackgroundImage(large);
    EXPECT_FALSE(dissolve.outputImage());
    dissolve.setInputOpacity(0.5);
    EXPECT_TRUE(dissolve.outputImage());

    // The colour filter is the luminosity filter seen from the other side.
    BICColorBlendMode color;
    BICLuminosityBlendMode luminosity;
    color.setInputImage(small);
    color.setInputBackgroundImage(large);
    luminosity.setInputImage(large);
    luminosity.setInputBackgroundImage(small);
    EXPECT_EQ(render(*color.outputImage(), {0, 0, 100, 50}),
              render(*luminosity.outputImage(), {0, 0, 100, 50}));

    const BICHardMixBlendModeGenerator generator;
    const auto first = generator.filterWithName("anything"), second = generator.filterWithName("");
    EXPECT_NE(first, second);
    EXPECT_TRUE(std::dynamic_pointer_cast<BICHardMixBlendMode>(first));
    EXPECT_EQ(runtimeClassName(*first), "BICHardMixBlendMode");

    registerBlendModeFilters();
    const auto named = ci::Filter::named("BrellinImageCore.BICColorDodgeBlendMode");
    ASSERT_TRUE(named);
    EXPECT_TRUE(std::dynamic_pointer_cast<BICColorDodgeBlendMode>(named));
    EXPECT_TRUE(
        std::dynamic_pointer_cast<BICPinLightBlendMode>(ci::Filter::named("BICPinLightBlendMode")));
}

TEST(BlendModeFilters, EveryModesFilterBlendsAsTheOperationDoes) {
    // Half-transparent colours over a partly covered backdrop, so each mode's arithmetic shows.
    const ci::Image layer = ci::Image::constant({0.1, 0.45, 0.3, 0.5}).cropped({0, 0, 4, 4});
    const ci::Image backdrop = ci::Image::constant({0.6, 0.2, 0.35, 0.8}).cropped({2, 0, 4, 4});
    for (const BlendMode mode : BlendMode::allCases()) {
        if (mode == BlendMode::passThrough || mode == BlendMode::replace ||
            mode == BlendMode::dissolve)
            continue;
        const auto filter = mode.filter();
        filter->setValue("inputImage", layer);
        filter->setValue("inputBackgroundImage", backdrop);
        ASSERT_TRUE(filter->outputImage()) << mode.name();
        EXPECT_EQ(render(*filter->outputImage(), {0, 0, 6, 4}),
                  render(blended(layer, backdrop, mode, 1), {0, 0, 6, 4}))
            << mode.name();
    }
}

TEST(BlendModeFilters, RegistrationTakesEveryLibraryClassUnderItsName) {
    registerBlendModeFilters();
    struct Class {
        const char* name;
        BlendMode::Case mode;
        const char* kernel;
    };
    const Class classes[] = {
        {"BrellinImageCore.BICColorBurnBlendMode", BlendMode::colorBurn, "blendModeColorBurn"},
        {"BICLinearBurnBlendMode", BlendMode::linearBurn, "blendModeLinearBurn"},
        {"BICDarkerColorBlendMode", BlendMode::darkerColor, "blendModeDarkerColor"},
        {"BrellinImageCore.BICColorDodgeBlendMode", BlendMode::colorDodge, "blendModeColorDodge"},
        {"BrellinImageCore.BICLinearDodgeBlendMode", BlendMode::linearDodge,
         "blendModeLinearDodge"},
        {"BICLighterColorBlendMode", BlendMode::lighterColor, "blendModeLighterColor"},
        {"BICVividLightBlendMode", BlendMode::vividLight, "blendModeVividLight"},
        {"BICLinearLightBlendMode", BlendMode::linearLight, "blendModeLinearLight"},
        {"BICPinLightBlendMode", BlendMode::pinLight, "blendModePinLight"},
        {"BICHardMixBlendMode", BlendMode::hardMix, "blendModeHardMix"},
        {"BICSubtractBlendMode", BlendMode::subtract, "blendModeSubtract"},
        {"BICDivideBlendMode", BlendMode::divide, "blendModeDivide"},
        {"BICHueBlendMode", BlendMode::hue, "blendModeHue"},
        {"BICSaturationBlendMode", BlendMode::saturation, "blendModeSaturation"},
        {"BrellinImageCore.BICColorBlendMode", BlendMode::color, ""},
        {"BICLuminosityBlendMode", BlendMode::luminosity, "blendModeLuminosity"},
        {"BrellinImageCore.BICDissolveBlendMode", BlendMode::dissolve, "blendModeDissolve"},
    };
    for (const Class& c : classes) {
        const auto filter = std::dynamic_pointer_cast<BlendModeFilter>(ci::Filter::named(c.name));
        ASSERT_TRUE(filter) << c.name;
        EXPECT_EQ(filter->name(), c.name);
        EXPECT_EQ(filter->mode(), c.mode) << c.name;
        EXPECT_EQ(filter->kernelName(), c.kernel) << c.name;
    }
}

TEST(Procedural, CloudsTileSeamlessly) {
    EXPECT_FALSE(Renderer::clouds<PixelARGB8>(cg::Size{0, 0}, 8));
    EXPECT_EQ(Renderer::clouds<PixelARGB8>(cg::Size{2, 1}, 8)->size(), IntegralSize(3, 3));
    const auto clouds = Renderer::clouds<PixelRGBA32>(cg::Size{100, 60}, 32);
    ASSERT_TRUE(clouds);
    ASSERT_EQ(clouds->size(), IntegralSize(129, 129));
    float lo = 1e9f, hi = -1e9f;
    for (std::int64_t y = 0; y < 129; ++y)
        for (std::int64_t x = 0; x < 129; ++x) {
            const PixelRGBA32 p = *(*clouds)(x, y);
            ASSERT_EQ(p.green(), p.red());
            ASSERT_EQ(p.blue(), p.red());
            ASSERT_EQ(p.alpha(), 1.0f);
            if (x == 0) {
                ASSERT_EQ(p.red(), (*clouds)(128, y)->red()) << "row " << y;
            }
            if (y == 0) {
                ASSERT_EQ(p.red(), (*clouds)(x, 128)->red()) << "column " << x;
            }
            lo = std::min(lo, p.red());
            hi = std::max(hi, p.red());
        }
    EXPECT_GT(hi - lo, 0.1f);                                       // not flat
    EXPECT_EQ(*(*clouds)(0, 0), PixelRGBA32::withRGBA(0, 0, 0, 1)); // corners are never written
}

TEST(Procedural, NoiseIsTheSeededARC4Stream) {
    EXPECT_EQ(RandomNoiseGenerator::uniform(), RandomNoiseGenerator::uniform());
    EXPECT_TRUE(RandomNoiseGenerator::uniform().extent().isInfinite());
    // The key stream of ARC4 under 16 zero bytes starts de 18 89 41 | a3 37 5d 3a | 8a 06 1e 67 |
    // 57 6e 92 6d; a uniform draw over 0…255 is the last byte of each 32-bit word. The first
    // pixel (top left) takes red, green, blue, alpha from four draws; the tile repeats every
    // 512 pixels.
    std::uint8_t px[8];
    ci::Context().render(RandomNoiseGenerator::uniform(), px, 8, cg::Rect(512, 1023, 2, 1),
                         ci::Format::ARGB8);
    EXPECT_EQ(px[0], 0x6d); // alpha
    EXPECT_EQ(px[1], 0x41);
    EXPECT_EQ(px[2], 0x3a);
    EXPECT_EQ(px[3], 0x67);
    // Gaussian bytes gather around the middle: about 68 % within one deviation (42.5).
    std::vector<std::uint8_t> bytes(256 * 256 * 4);
    ci::Context().render(RandomNoiseGenerator::gaussian(), bytes.data(), 256 * 4,
                         cg::Rect(0, 0, 256, 256), ci::Format::ARGB8);
    std::size_t near = 0;
    for (std::size_t i = 0; i < bytes.size(); i += 4)
        near += std::fabs(double(bytes[i]) - 127.5) <= 42.5;
    EXPECT_NEAR(double(near) / (256 * 256), 0.683, 0.01);
}

namespace {

// Column x holds grey level x, or row y grey level y: every pair of 8-bit greys once.
ci::Image greyRamp(bool alongRows, double alpha) {
    std::vector<float> data;
    for (int y = 0; y < 256; ++y)
        for (int x = 0; x < 256; ++x) {
            const float g = float(alongRows ? 255 - y : x) / 255.0f;
            data.insert(data.end(),
                        {g * float(alpha), g * float(alpha), g * float(alpha), float(alpha)});
        }
    return *ci::Image::fromBitmap(data.data(), 256 * 16, 256, 256, ci::Format::RGBAf);
}

} // namespace

TEST(BlendMode, NoModeMakesNaNOrInfinity) {
    // Every 8-bit grey over every 8-bit grey, opaque and half transparent, at full and half
    // opacity; then random samples of float documents, beyond 0…1 and with odd alphas.
    std::mt19937 random(11);
    std::vector<float> wildFg(4 * 4096), wildBg(4 * 4096);
    for (auto* v : {&wildFg, &wildBg})
        for (float& x : *v)
            x = std::uniform_real_distribution<float>(-0.5f, 2.0f)(random);
    const ci::Image wildLayer =
        *ci::Image::fromBitmap(wildFg.data(), 4096 * 16, 4096, 1, ci::Format::RGBAf);
    const ci::Image wildBackdrop =
        *ci::Image::fromBitmap(wildBg.data(), 4096 * 16, 4096, 1, ci::Format::RGBAf);
    for (BlendMode mode : BlendMode::allCases()) {
        if (mode.rawValue() >= 1000) continue;
        for (const double opacity : {1.0, 0.5}) {
            for (const double alpha : {1.0, 128.0 / 255}) {
                const auto out =
                    render(blended(greyRamp(false, alpha), greyRamp(true, 1), mode, opacity),
                           {0, 0, 256, 256});
                for (std::size_t i = 0; i < out.size(); ++i)
                    ASSERT_TRUE(std::isfinite(out[i]))
                        << mode.name() << " opacity " << opacity << " alpha " << alpha
                        << ": layer grey " << i / 4 % 256 << " over " << i / 4 / 256;
            }
            const auto wild =
                render(blended(wildLayer, wildBackdrop, mode, opacity), {0, 0, 4096, 1});
            for (std::size_t i = 0; i < wild.size(); ++i)
                ASSERT_TRUE(std::isfinite(wild[i])) << mode.name() << " float sample " << i / 4;
        }
    }
    // Black luminosity at α 128 over greys: the backdrop shows through at half strength.
    const std::vector<std::uint8_t> greys{29, 30, 116, 117};
    for (const std::uint8_t g : greys) {
        const std::uint8_t layer[4] = {128, 0, 0, 0}, backdrop[4] = {255, g, g, g};
        const ci::Image top = *ci::Image::fromBitmap(layer, 4, 1, 1, ci::Format::ARGB8);
        const ci::Image bottom = *ci::Image::fromBitmap(backdrop, 4, 1, 1, ci::Format::ARGB8);
        std::uint8_t out[4];
        ci::Context().render(blended(top, bottom, BlendMode::luminosity, 1), out, 4, {0, 0, 1, 1},
                             ci::Format::ARGB8);
        EXPECT_EQ(out[1], std::lround(g * 127.0 / 255)) << int(g);
    }
}

TEST(BlendMode, EdgeRulesHoldUnderOpacityAndPartialAlpha) {
    // A layer channel of 255 is exactly 1 and 0 exactly 0 for the mode, whatever the opacity:
    // vivid light of 1 over 0 gives 1 (the application stores 137 for red here, not 33). The
    // expectation is the general formula with the layer's own colour and its alpha scaled by
    // the opacity.
    const std::uint8_t layer[4] = {237, 237, 0, 0};     // (255, 0, 0) at α 237, ARGB
    const std::uint8_t backdrop[4] = {192, 0, 128, 64}; // (0, 170, 85) at α 192
    const ci::Image top = *ci::Image::fromBitmap(layer, 4, 1, 1, ci::Format::ARGB8);
    const ci::Image bottom = *ci::Image::fromBitmap(backdrop, 4, 1, 1, ci::Format::ARGB8);
    const Straight source{{1, 0, 0}, 237.0 / 255 * 128 / 255};
    const Straight under{{0, 128.0 / 192, 64.0 / 192}, 192.0 / 255};
    for (const BlendMode mode : BlendMode::allCases()) {
        if (mode == BlendMode::dissolve || mode.rawValue() >= 1000) continue;
        const auto out = render(blended(top, bottom, mode, 128.0 / 255), {0, 0, 1, 1});
        const auto want = composite(reference(mode), source, under);
        for (int c = 0; c < 4; ++c)
            EXPECT_NEAR(out[c], want[c], 2e-5) << mode.name() << " channel " << c;
    }
    std::uint8_t stored[4];
    ci::Context().render(blended(top, bottom, BlendMode::vividLight, 128.0 / 255), stored, 4,
                         {0, 0, 1, 1}, ci::Format::ARGB8);
    EXPECT_EQ(std::lround(stored[1] * 255.0 / stored[0]), 137);
}

// Vivid light of 8-bit documents in integers: the burn half below 128, the dodge half from 128
// dividing by 255 − (2s − 256), each rounded down, the ends 0 and 255 whatever the backdrop.
int vividLightOfLevels(int b, int s) {
    if (s == 0) return 0;
    if (s == 255) return 255;
    if (s < 128) return std::max(0, 255 * (2 * s - 255 + b) / (2 * s));
    return std::min(255, 255 * b / (511 - 2 * s));
}

TEST(BlendMode, EightBitDocumentsKeepTheirLinearHardAndVividLightSteps) {
    // Linear light of 8-bit documents is b + 2s − 256/255 (integers: b + 2s − 256), and hard
    // light's light half starts at 128: Screen(b, 2s − 256/255); vivid light as above. Every
    // pair of levels.
    const ci::Image layer = greyRamp(false, 1), backdrop = greyRamp(true, 1);
    const cg::Rect all(0, 0, 256, 256);
    for (const BlendMode mode :
         {BlendMode::linearLight, BlendMode::hardLight, BlendMode::vividLight}) {
        std::vector<std::uint8_t> out(256 * 256 * 4);
        ci::Context().render(blended(layer, backdrop, mode, 1, BlendArithmetic::eightBit),
                             out.data(), 256 * 4, all, ci::Format::ARGB8);
        for (int b = 0; b < 256; ++b)
            for (int s = 0; s < 256; ++s) {
                const int want =
                    mode == BlendMode::vividLight    ? vividLightOfLevels(b, s)
                    : mode == BlendMode::linearLight ? std::clamp(b + 2 * s - 256, 0, 255)
                    : s <= 127                       ? int(std::lround(2.0 * s * b / 255))
                               : int(std::lround(b + (2 * s - 256) - b * (2 * s - 256) / 255.0));
                const int got = out[std::size_t(((255 - b) * 256 + s) * 4 + 1)];
                ASSERT_EQ(got, want) << mode.name() << " layer " << s << " over " << b;
            }
    }
    // Other work keeps the continuous rule: (128, 128) gives 129.
    std::uint8_t one[4];
    const std::uint8_t mid[4] = {255, 128, 128, 128};
    const ci::Image grey = *ci::Image::fromBitmap(mid, 4, 1, 1, ci::Format::ARGB8);
    ci::Context().render(blended(grey, grey, BlendMode::linearLight, 1), one, 4, {0, 0, 1, 1},
                         ci::Format::ARGB8);
    EXPECT_EQ(one[1], 129);
}

TEST(BlendMode, Hashes) {
    std::unordered_set<BlendMode> modes(BlendMode::allCases().begin(), BlendMode::allCases().end());
    EXPECT_EQ(modes.size(), 29u);
    EXPECT_EQ(std::hash<BlendMode>()(BlendMode::multiply),
              std::hash<BlendMode>()(*BlendMode::fromName("Multiply")));
}

namespace {

std::atomic<int> countedRows{0};

// A grey picture that counts the rows it is asked for.
void countingRow(const ci::KernelRow& row) {
    ++countedRows;
    for (std::int64_t i = 0; i < row.count * 4; ++i)
        row.out[i] = 0.5f;
}

} // namespace

TEST(Blending, LayersUnderOpacityRenderTheirBackdropOnce) {
    // Each faded layer reads its backdrop twice (the blend, then the mix by opacity); without
    // sharing, 24 such layers render the bottom picture 2^24 times per tile.
    static const ci::ColorKernel counting("countingPicture", countingRow);
    ci::Image running = *counting.apply(cg::Rect(0, 0, 16, 16), {});
    const ci::Image layer = ci::Image::constant({0.8, 0.3, 0.1, 0.6}).cropped({4, 4, 8, 8});
    for (const BlendMode mode : {BlendMode::multiply, BlendMode::hue, BlendMode::colorBurn})
        for (int i = 0; i < 8; ++i)
            running = blended(layer, running, mode, 0.5);
    std::vector<float> out(16 * 16 * 4);
    countedRows = 0;
    ci::Context(ci::Context::Options{.threads = 1})
        .render(running, out.data(), 16 * 16, {0, 0, 16, 16}, ci::Format::RGBAf);
    EXPECT_EQ(countedRows, 16);
    EXPECT_TRUE(std::all_of(out.begin(), out.end(), [](float v) { return std::isfinite(v); }));
}
