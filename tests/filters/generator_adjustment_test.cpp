#include "bic/filters/adjustment_filters.hpp"
#include "bic/filters/generator_filters.hpp"
#include "bic/platform/ci/context.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>

using namespace bic;

namespace {

std::array<float, 4> pixel(const ci::Image& image, double x, double y) {
    float v[4];
    ci::Context().render(image, v, 16, {std::floor(x), std::floor(y), 1, 1}, ci::Format::RGBAf);
    return {v[0], v[1], v[2], v[3]};
}

void expectNear(const std::array<float, 4>& got, const std::array<float, 4>& want,
                float tolerance = 1e-4f) {
    for (int c = 0; c < 4; ++c)
        EXPECT_NEAR(got[c], want[c], tolerance) << "channel " << c;
}

const cg::ColorSpace srgb = cg::ColorSpace::sRGB();

} // namespace

TEST(Generators, WheelsNeedTheirInputsAndTurnToTheTop) {
    BICHueWheelFilter wheel;
    wheel.setInputRadius(50);
    wheel.setInputCenter(cg::Point{100.5, 100.5});
    EXPECT_FALSE(wheel.outputImage()); // no colour space
    wheel.setInputColorSpace(srgb);
    wheel.setInputHueAngleOrientation(HueAngleOrientation::counterClockwiseFromX);
    auto ccw = wheel.outputImage();
    ASSERT_TRUE(ccw);
    EXPECT_EQ(ccw->extent(), cg::Rect(50.5, 50.5, 100, 100));
    // Counter-clockwise from x: red on the right, green 120° on, outside the disc nothing.
    expectNear(pixel(*ccw, 140, 100), {1, 0, 0, 1});
    const double g = 2 * std::numbers::pi / 3;
    expectNear(pixel(*ccw, 100 + 40 * std::cos(g), 100 + 40 * std::sin(g)), {0, 1, 0, 1}, 0.05f);
    expectNear(pixel(*ccw, 145, 145), {0, 0, 0, 0});
    // Clockwise from the top: red at the top, green 120° clockwise from it (lower right).
    wheel.setInputHueAngleOrientation(HueAngleOrientation::clockwiseFromTop);
    const auto cw = wheel.outputImage();
    expectNear(pixel(*cw, 100, 140), {1, 0, 0, 1});
    const double gcw = std::numbers::pi / 2 - g;
    expectNear(pixel(*cw, 100 + 40 * std::cos(gcw), 100 + 40 * std::sin(gcw)), {0, 1, 0, 1}, 0.05f);

    BICColorWheelFilter colors;
    colors.setInputValue(0.5);
    colors.setInputRadius(50);
    EXPECT_FALSE(colors.outputImage());
    colors.setInputCenter(cg::Point{100.5, 100.5});
    const auto c = colors.outputImage(); // no colour space needed
    ASSERT_TRUE(c);
    expectNear(pixel(*c, 100, 100), {0.5f, 0.5f, 0.5f, 1});  // grey centre at the value
    colors.setInputColorSpace(cg::ColorSpace::deviceGray()); // not RGB: still renders
    EXPECT_TRUE(colors.outputImage());

    // By name, with the inputs' names and defaults, like any filter.
    registerGeneratorFilters();
    const auto byName = ci::Filter::named("BICHueWheelFilter");
    ASSERT_TRUE(byName);
    EXPECT_EQ(byName->inputKeys(),
              (std::vector<std::string>{"inputRadius", "inputCenter", "inputColorSpace",
                                        "inputHueAngleOrientation"}));
    EXPECT_EQ(byName->number("inputHueAngleOrientation"), 0.0) << "clockwise from the top";
    byName->setValue("inputRadius", 50.0);
    byName->setValue("inputCenter", std::vector<double>{100.5, 100.5});
    EXPECT_FALSE(byName->outputImage());
    byName->setValue("inputColorSpace", srgb);
    ASSERT_TRUE(byName->outputImage());
    expectNear(pixel(*byName->outputImage(), 100, 140), {1, 0, 0, 1});
    for (const char* name : {"BICColorWheelFilter", "BICSaturationValuePanelFilter"})
        EXPECT_TRUE(ci::Filter::named(name)) << name;
}

TEST(Generators, PanelsAndSpectrum) {
    EXPECT_EQ(huePosition(float(std::numbers::pi)), 3.0000002f);
    BICSaturationValuePanelFilter triangle;
    triangle.setInputHue(0);
    triangle.setInputRadius(100);
    EXPECT_FALSE(triangle.outputImage());
    triangle.setInputCenter(cg::Point{0, 0});
    const auto t = triangle.outputImage();
    ASSERT_TRUE(t);
    EXPECT_EQ(t->extent(), cg::Rect(-50, -87, 150, 174));
    expectNear(pixel(*t, 97, 0), {1, 0, 0, 1}, 0.05f);    // the hue vertex
    expectNear(pixel(*t, -49, 84), {1, 1, 1, 1}, 0.05f);  // white, upper left
    expectNear(pixel(*t, -49, -85), {0, 0, 0, 1}, 0.05f); // black, lower left
    expectNear(pixel(*t, 80, 60), {0, 0, 0, 0});          // outside the triangle
    const auto flipped = bik_triangularSaturationValuePanel(0, {0, 0}, 100, srgb, true);
    expectNear(pixel(*flipped, -49, -85), {1, 1, 1, 1}, 0.05f);

    const auto square =
        bik_saturationValuePanel(float(2 * std::numbers::pi / 3), {10, 10, 100, 50});
    ASSERT_TRUE(square);
    EXPECT_EQ(square->extent(), cg::Rect(10, 10, 100, 50));
    expectNear(pixel(*square, 109, 59), {0, 1, 0, 1}, 0.03f); // full saturation and value: green
    expectNear(pixel(*square, 10, 59), {1, 1, 1, 1}, 0.03f);  // no saturation: white
    expectNear(pixel(*square, 60, 10), {0, 0, 0, 1}, 0.03f);  // no value: black

    const auto spectrum = bic_colorSpectrumImage({0, 0, 600, 100});
    expectNear(pixel(*spectrum, 0, 50), {1, 0, 0, 1}, 0.02f);
    expectNear(pixel(*spectrum, 200, 50), {0, 1, 0, 1}, 0.02f);
    expectNear(pixel(*spectrum, 300, 0), {0, 0, 0, 1}, 0.02f);
    expectNear(pixel(*spectrum, 300, 99), {1, 1, 1, 1}, 0.02f);
}

TEST(Adjustments, ThresholdColourMapBevelSobel) {
    const ci::Image grey = ci::Image::constant({0.5, 0.5, 0.5, 1}).cropped({0, 0, 10, 10});
    BICThresholdFilter threshold;
    threshold.setInputImage(grey);
    EXPECT_FALSE(threshold.outputImage());
    threshold.setInputThreshold(0.4);
    expectNear(pixel(*threshold.outputImage(), 1, 1), {1, 1, 1, 1});
    const auto made = BICThresholdFilterGenerator().filterWithName("x");
    EXPECT_TRUE(std::dynamic_pointer_cast<BICThresholdFilter>(made));

    BICColorMapFilter map;
    EXPECT_FALSE(map.outputImage());
    map.setInputImage(grey);
    map.setMaps(std::vector<double>{1, 0}, std::vector<double>{1, 0}, std::nullopt);
    EXPECT_EQ(*map.outputImage(), grey); // a missing curve: the image itself
    map.setMaps(std::vector<double>{0, 0.2}, std::vector<double>{1, 0}, std::vector<double>{});
    expectNear(pixel(*map.outputImage(), 1, 1), {0.1f, 0.5f, 0.5f, 1});

    EXPECT_EQ(BICBevelFilter::regionOfInterest({0, 0, 10, 10}), cg::Rect(-1, -1, 12, 12));
    BICBevelFilter bevel;
    bevel.setInputImage(grey);
    bevel.setInputLightAngle(std::vector<double>{0, 0});
    EXPECT_FALSE(bevel.outputImage());
    bevel.setInputLightAngle(std::vector<double>{0, 0, 2}); // normalised to (0, 0, 1)
    expectNear(pixel(*bevel.outputImage(), 5, 5), {1, 1, 1, 1});
    bevel.setInputLightAngle(std::vector<double>{1, 0, 1});
    expectNear(pixel(*bevel.outputImage(), 5, 5),
               {float(std::sqrt(0.5)), float(std::sqrt(0.5)), float(std::sqrt(0.5)), 1});

    BICSobelFilter sobel;
    EXPECT_FALSE(sobel.outputImage());
    sobel.setInputImage(grey);
    expectNear(pixel(*sobel.outputImage(), 5, 5), {0, 0, 0, 1});
    expectNear(pixel(*sobel.outputImage(), 0, 5), {0.5f, 0.5f, 0.5f, 1}); // the edge to nothing
}

TEST(Adjustments, CustomGammaIsSmoothAndInvertible) {
    for (double a0 : {0.01, 0.04045, 0.2, 0.5, 0.9})
        for (double g : {1.1, 2.2, 2.4, 5.0}) {
            const double s = g / (a0 * (g - 1) + std::pow(a0, 1 - g));
            const double a = 1 / ((g - 1) * std::pow(a0, g) + 1) - 1;
            // The two pieces meet at a0 in value and slope.
            EXPECT_NEAR(s * a0, (1 + a) * std::pow(a0, g) - a, 1e-12) << a0 << " " << g;
            EXPECT_NEAR(s, (1 + a) * g * std::pow(a0, g - 1), 1e-9) << a0 << " " << g;
            EXPECT_NEAR(applyingCustomGamma(1, a0, g, false), 1, 1e-12);
            for (double x = 0; x <= 1; x += 0.03125)
                EXPECT_NEAR(applyingCustomGamma(applyingCustomGamma(x, a0, g, false), a0, g, true),
                            x, 1e-12);
        }
    // The kernel follows the formula on colour, per channel.
    const ci::Image c = ci::Image::constant({0.3, 0.6, 0.9, 0.5}).cropped({0, 0, 1, 1});
    const auto out = bic_applying(c, {2.2, 2.4, 1.8}, 0.05, false);
    ASSERT_TRUE(out);
    expectNear(pixel(*out, 0, 0),
               {float(0.5 * applyingCustomGamma(0.3, 0.05, 2.2, false)),
                float(0.5 * applyingCustomGamma(0.6, 0.05, 2.4, false)),
                float(0.5 * applyingCustomGamma(0.9, 0.05, 1.8, false)), 0.5f},
               1e-5f);
    const auto back = bic_applying(*out, {2.2, 2.4, 1.8}, 0.05, true);
    expectNear(pixel(*back, 0, 0), {0.15f, 0.3f, 0.45f, 0.5f}, 1e-5f);
    EXPECT_FALSE(bic_applying(c, {2.2, 2.4}, 0.05, false));
}
