#include "bic/platform/ci/builtin_filters.hpp"
#include "bic/platform/ci/context.hpp"
#include "bic/platform/ci/filter.hpp"

#include <cmath>
#include <gtest/gtest.h>

using namespace bic;
using namespace bic::ci;
using Vector = std::vector<double>;

namespace {

std::vector<float> render(const Image& image, const cg::Rect& rect) {
    const auto w = std::int64_t(rect.width()), h = std::int64_t(rect.height());
    std::vector<float> out(std::size_t(w * h * 4));
    Context().render(image, out.data(), w * 16, rect, Format::RGBAf);
    return out;
}

void expectPixel(const std::vector<float>& px, std::size_t i, std::vector<float> e,
                 float tol = 1e-5f) {
    for (int c = 0; c < 4; ++c)
        EXPECT_NEAR(px[4 * i + c], e[c], tol) << "pixel " << i << " channel " << c;
}

Image patch(double r, double g, double b, double a) {
    return Image::constant({r, g, b, a}).cropped({0, 0, 1, 1});
}

Image filtered(const char* name, FilterParameters parameters) {
    const auto filter = Filter::named(name);
    EXPECT_TRUE(filter) << name;
    for (const auto& [k, v] : parameters)
        filter->setValue(k, v);
    const auto out = filter->outputImage();
    EXPECT_TRUE(out) << name;
    return out.value_or(Image());
}

} // namespace

TEST(Filters, RegistryAndInputs) {
    const auto matrix = Filter::named("CIColorMatrix");
    ASSERT_TRUE(matrix);
    EXPECT_EQ(matrix->inputKeys().size(), 6u);
    EXPECT_FALSE(matrix->outputImage()) << "no input image yet";
    try {
        matrix->setValue("inputColour", 1.0);
        FAIL();
    } catch (const UnknownFilterInputError& e) {
        EXPECT_EQ(e.key(), "inputColour");
    }
    EXPECT_THROW(matrix->value("nope"), UnknownFilterInputError);
    EXPECT_FALSE(Filter::named("CINoSuchFilter"));
    EXPECT_FALSE(applyingFilter(Image::white(), "CINoSuchFilter"));
    Filter::registerFilter("TestDouble", {{"inputImage", {}}},
                           [](const Filter& f) -> std::optional<Image> {
                               const auto i = f.image("inputImage");
                               if (!i) return std::nullopt;
                               return i->composited(*i);
                           });
    EXPECT_TRUE(applyingFilter(Image::white(), "TestDouble"));
    const auto names = Filter::filterNames();
    EXPECT_NE(std::find(names.begin(), names.end(), "CIGaussianBlur"), names.end());
}

TEST(Filters, ColourFiltersWorkOnUnpremultipliedColour) {
    const Image half = patch(0.8, 0.4, 0.2, 0.5); // stored (0.4, 0.2, 0.1, 0.5)
    const auto m = render(filtered("CIColorMatrix", {{"inputImage", half},
                                                     {"inputRVector", Vector{0, 1, 0, 0}},
                                                     {"inputBiasVector", Vector{0.1, 0, 0, 0}}}),
                          {0, 0, 1, 1});
    expectPixel(m, 0, {0.25f, 0.2f, 0.1f, 0.5f}); // red = green + 0.1 = 0.5, premultiplied
    const auto inv = render(filtered("CIColorInvert", {{"inputImage", half}}), {0, 0, 1, 1});
    expectPixel(inv, 0, {0.1f, 0.3f, 0.4f, 0.5f});
    const auto clamp =
        render(filtered("CIColorClamp", {{"inputImage", half},
                                         {"inputMinComponents", Vector{0.5, 0.5, 0, 0}},
                                         {"inputMaxComponents", Vector{0.6, 1, 1, 1}}}),
               {0, 0, 1, 1});
    expectPixel(clamp, 0, {0.3f, 0.25f, 0.1f, 0.5f});
    const auto gamma = render(
        filtered("CIGammaAdjust", {{"inputImage", half}, {"inputPower", 2.0}}), {0, 0, 1, 1});
    expectPixel(gamma, 0, {0.32f, 0.08f, 0.02f, 0.5f});
    const auto alpha = render(
        filtered("CIMaskToAlpha", {{"inputImage", patch(0.25, 0.25, 0.25, 1)}}), {0, 0, 1, 1});
    expectPixel(alpha, 0, {0.25f, 0.25f, 0.25f, 0.25f});
}

TEST(Filters, CompositingOperatorsAndExtents) {
    const Image fg = Image::constant({1, 0, 0, 0.5}).cropped({0, 0, 2, 1}); // (0.5, 0, 0, 0.5)
    const Image bg = Image::constant({0, 0, 1, 1}).cropped({1, 0, 2, 1});
    const Image atop =
        filtered("CISourceAtopCompositing", {{"inputImage", fg}, {"inputBackgroundImage", bg}});
    EXPECT_EQ(atop.extent(), bg.extent());
    expectPixel(render(atop, {1, 0, 1, 1}), 0, {0.5f, 0, 0.5f, 1});
    const Image out =
        filtered("CISourceOutCompositing", {{"inputImage", fg}, {"inputBackgroundImage", bg}});
    EXPECT_EQ(out.extent(), fg.extent());
    const auto o = render(out, {0, 0, 2, 1});
    expectPixel(o, 0, {0.5f, 0, 0, 0.5f});
    expectPixel(o, 1, {0, 0, 0, 0});
    const Image mul =
        filtered("CIMultiplyCompositing", {{"inputImage", fg}, {"inputBackgroundImage", bg}});
    EXPECT_EQ(mul.extent(), cg::Rect(1, 0, 1, 1));
    const Image mix = filtered(
        "CIMix", {{"inputImage", fg}, {"inputBackgroundImage", bg}, {"inputAmount", 0.25}});
    expectPixel(render(mix, {1, 0, 1, 1}), 0, {0.125f, 0, 0.75f, 0.875f});
    const Image over =
        filtered("CISourceOverCompositing", {{"inputImage", fg}, {"inputBackgroundImage", bg}});
    expectPixel(render(over, {1, 0, 1, 1}), 0, {0.5f, 0, 0.5f, 1});
}

TEST(Filters, BuiltInBlendModesFollowTheCompositingFormula) {
    // Opaque colours: the result is B(Cb, Cs) itself.
    const Image s = patch(0.25, 0.5, 0.75, 1), b = patch(0.5, 0.5, 0.1, 1);
    const struct {
        const char* name;
        float r, g, bl;
    } cases[] = {
        {"CIMultiplyBlendMode", 0.125f, 0.25f, 0.075f},
        {"CIScreenBlendMode", 0.625f, 0.75f, 0.775f},
        {"CIDarkenBlendMode", 0.25f, 0.5f, 0.1f},
        {"CILightenBlendMode", 0.5f, 0.5f, 0.75f},
        {"CIDifferenceBlendMode", 0.25f, 0, 0.65f},
        {"CIExclusionBlendMode", 0.5f, 0.5f, 0.7f},
        {"CIHardLightBlendMode", 0.25f, 0.5f, 0.55f},
        {"CIOverlayBlendMode", 0.25f, 0.5f, 0.15f},
    };
    for (const auto& c : cases) {
        const auto px = render(filtered(c.name, {{"inputImage", s}, {"inputBackgroundImage", b}}),
                               {0, 0, 1, 1});
        expectPixel(px, 0, {c.r, c.g, c.bl, 1});
    }
    // Soft light's dark-backdrop arm: Cb = 0.1, Cs = 0.75 → 0.1 + 0.5·(D(0.1) − 0.1).
    const float d = ((16 * 0.1f - 12) * 0.1f + 4) * 0.1f;
    const auto soft =
        render(filtered("CISoftLightBlendMode", {{"inputImage", s}, {"inputBackgroundImage", b}}),
               {0, 0, 1, 1});
    EXPECT_NEAR(soft[2], 0.1f + 0.5f * (d - 0.1f), 1e-6f);
    // Half-transparent source over nothing stays itself.
    const auto alone = render(filtered("CIMultiplyBlendMode", {{"inputImage", patch(1, 0, 0, 0.5)},
                                                               {"inputBackgroundImage", Image()}}),
                              {0, 0, 1, 1});
    expectPixel(alone, 0, {0.5f, 0, 0, 0.5f});
}

TEST(Filters, AFadedBlendIsTheMixOfTheBlendWithItsBackground) {
    // Partly transparent gradients, so every pixel has its own colours and alphas, and the
    // background reaches beyond the layer.
    const Image layer =
        linearGradient({0, 0}, {37, 5}, Color{1, 0.2, 0, 0.9}, Color{0.1, 0.7, 1, 0.3})
            .cropped({3, 2, 40, 30});
    const Image background =
        linearGradient({0, 50}, {9, 0}, Color{0.3, 1, 0.5, 1}, Color{0.8, 0.1, 0.4, 0.6})
            .cropped({0, 0, 50, 40});
    const cg::Rect all(0, 0, 50, 40);
    for (const auto mode : {BuiltinBlendMode::multiply, BuiltinBlendMode::softLight}) {
        const Image blend = blended(mode, layer, background);
        for (const double amount : {0.0, 0.3, 0.75}) {
            const auto faded = fadedBlend(blend, background, amount);
            ASSERT_TRUE(faded);
            EXPECT_EQ(faded->extent(), all);
            EXPECT_EQ(render(*faded, all), render(mix(blend, background, amount), all));
        }
    }
    // Only an image made from that very background can be faded as it is made.
    const Image blend = blended(BuiltinBlendMode::screen, layer, background);
    EXPECT_FALSE(fadedBlend(blend, background.cropped({0, 0, 10, 10}), 0.5));
    EXPECT_FALSE(fadedBlend(blend, layer, 0.5));
    EXPECT_FALSE(fadedBlend(layer, background, 0.5));
    EXPECT_FALSE(fadedBlend(*fadedBlend(blend, background, 0.5), background, 0.5));
}

TEST(Filters, BlursSpreadButKeepTheTotal) {
    const Image dot = Image::constant({1, 1, 1, 1}).cropped({10, 10, 1, 1});
    const Image gauss = filtered("CIGaussianBlur", {{"inputImage", dot}, {"inputRadius", 2.0}});
    EXPECT_EQ(gauss.extent(), cg::Rect(4, 4, 13, 13));
    const auto g = render(gauss, {0, 0, 21, 21});
    double total = 0;
    for (std::size_t i = 0; i < g.size(); i += 4)
        total += g[i + 3];
    EXPECT_NEAR(total, 1.0, 1e-5);
    const float centre = g[4 * (10 * 21 + 10) + 3];
    const float w0 = 1 / (2 * float(std::numbers::pi) * 4);
    EXPECT_NEAR(centre, w0, 2e-3f);
    EXPECT_FLOAT_EQ(g[4 * (10 * 21 + 9) + 3], g[4 * (10 * 21 + 11) + 3]); // symmetric
    const auto box =
        render(filtered("CIBoxBlur", {{"inputImage", dot}, {"inputRadius", 1.0}}), {9, 9, 3, 3});
    for (int i = 0; i < 9; ++i)
        EXPECT_NEAR(box[4 * i + 3], 1.0f / 9, 1e-6f);
}

TEST(Filters, GeneratorsAndTiling) {
    const Image linear = filtered("CILinearGradient", {{"inputPoint0", Vector{0, 0}},
                                                       {"inputPoint1", Vector{10, 0}},
                                                       {"inputColor0", Color::black()},
                                                       {"inputColor1", Color::white()}});
    EXPECT_TRUE(linear.extent().isInfinite());
    const auto l = render(linear, {-1, 0, 12, 1});
    expectPixel(l, 0, {0, 0, 0, 1});
    expectPixel(l, 3, {0.25f, 0.25f, 0.25f, 1}); // x = 2, centre 2.5
    expectPixel(l, 11, {1, 1, 1, 1});
    const Image radial = filtered("CIRadialGradient", {{"inputCenter", Vector{0, 0}},
                                                       {"inputRadius0", 0.0},
                                                       {"inputRadius1", 10.0},
                                                       {"inputColor0", Color::white()},
                                                       {"inputColor1", Color::clear()}});
    const auto r = render(radial, {2, 0, 1, 1}); // centre (2.5, 0.5)
    EXPECT_NEAR(r[3], 1 - std::hypot(2.5, 0.5) / 10, 1e-5);
    const Image constant =
        filtered("CIConstantColorGenerator", {{"inputColor", Color{0, 1, 0, 0.5}}});
    expectPixel(render(constant, {0, 0, 1, 1}), 0, {0, 0.5f, 0, 0.5f});

    std::vector<std::uint8_t> checker = {255, 0, 0, 255, 0, 0, 255, 255};
    const Image cell = *Image::fromBitmap(checker.data(), 8, 2, 1, Format::RGBA8);
    const Image tiled =
        filtered("CIAffineTile", {{"inputImage", cell},
                                  {"inputTransform", cg::AffineTransform::translation(1, 0)}});
    const auto t = render(tiled, {-3, 5, 4, 1});
    expectPixel(t, 0, {1, 0, 0, 1}); // x = −3 → source (−4) mod 2 = 0: red
    expectPixel(t, 1, {0, 0, 1, 1});
}

TEST(Filters, WideGaussiansStayCloseToTheExactKernel) {
    // A vertical step edge, blurred with σ = 20 by the box cascade, against the exact 3σ kernel
    // applied by hand along x (the step does not vary along y).
    const Image step = Image::white().cropped({0, -1000, 1000, 2000});
    const double sigma = 20;
    const auto fast =
        render(filtered("CIGaussianBlur", {{"inputImage", step}, {"inputRadius", sigma}}),
               {-80, 0, 160, 1});
    const int radius = 60;
    std::vector<double> w(2 * radius + 1);
    double total = 0;
    for (int k = -radius; k <= radius; ++k)
        total += w[k + radius] = std::exp(-k * k / (2 * sigma * sigma));
    float worst = 0;
    for (int x = -80; x < 80; ++x) {
        double exact = 0;
        for (int k = -radius; k <= radius; ++k)
            if (x + k >= 0) exact += w[k + radius] / total;
        worst = std::max(worst, std::fabs(fast[4 * (x + 80) + 3] - float(exact)));
    }
    EXPECT_LT(worst, 0.01f);
    EXPECT_GT(worst, 1e-3f) << "the exact kernel would agree to rounding: the cascade did not run";
    // Far inside the white area the colour is untouched.
    EXPECT_NEAR(fast[4 * 159], 1.0f, 1e-4f);
}
