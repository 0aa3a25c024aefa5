#include "bic/platform/cg/color.hpp"
#include "bic/platform/ci/color.hpp"

#include <array>
#include <cmath>
#include <gtest/gtest.h>
#include <lcms2.h>

using bic::cg::Color;
using bic::cg::ColorSpace;
using bic::cg::ColorSpaceModel;

namespace {

// sRGB → Lab computed from the published definitions, independently of Little CMS: the sRGB
// primaries and transfer curve, D65 white, Bradford adaptation to the connection space's D50
// white (0.9642, 1, 0.8249) and the CIE Lab formulas.
using Matrix = std::array<std::array<double, 3>, 3>;

Matrix multiply(const Matrix& a, const Matrix& b) {
    Matrix m{};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k)
                m[i][j] += a[i][k] * b[k][j];
    return m;
}

std::array<double, 3> transform(const Matrix& m, const std::array<double, 3>& v) {
    return {m[0][0] * v[0] + m[0][1] * v[1] + m[0][2] * v[2],
            m[1][0] * v[0] + m[1][1] * v[1] + m[1][2] * v[2],
            m[2][0] * v[0] + m[2][1] * v[1] + m[2][2] * v[2]};
}

Matrix inverse(const Matrix& m) {
    const double det = m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
                       m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
                       m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    Matrix r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            const int a = (j + 1) % 3, b = (j + 2) % 3, c = (i + 1) % 3, d = (i + 2) % 3;
            r[i][j] = (m[a][c] * m[b][d] - m[a][d] * m[b][c]) / det;
        }
    return r;
}

std::array<double, 3> referenceLab(double r, double g, double b) {
    const double xy[3][2] = {{0.64, 0.33}, {0.30, 0.60}, {0.15, 0.06}};
    const std::array<double, 3> d65 = {0.3127 / 0.3290, 1.0, (1 - 0.3127 - 0.3290) / 0.3290};
    const std::array<double, 3> d50 = {0.9642, 1.0, 0.8249};
    Matrix primaries;
    for (int c = 0; c < 3; ++c) {
        primaries[0][c] = xy[c][0] / xy[c][1];
        primaries[1][c] = 1;
        primaries[2][c] = (1 - xy[c][0] - xy[c][1]) / xy[c][1];
    }
    const auto scale = transform(inverse(primaries), d65);
    for (int row = 0; row < 3; ++row)
        for (int c = 0; c < 3; ++c)
            primaries[row][c] *= scale[c];
    const Matrix bradford = {
        {{0.8951, 0.2664, -0.1614}, {-0.7502, 1.7135, 0.0367}, {0.0389, -0.0685, 1.0296}}};
    const auto src = transform(bradford, d65), dst = transform(bradford, d50);
    const Matrix gain = {
        {{dst[0] / src[0], 0, 0}, {0, dst[1] / src[1], 0}, {0, 0, dst[2] / src[2]}}};
    const Matrix toD50 = multiply(multiply(inverse(bradford), gain), multiply(bradford, primaries));

    auto linear = [](double c) {
        return c <= 0.04045 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    const auto xyz = transform(toD50, {linear(r), linear(g), linear(b)});
    auto f = [](double t) {
        return t > 216.0 / 24389 ? std::cbrt(t) : (24389.0 / 27 * t + 16) / 116;
    };
    const double fx = f(xyz[0] / d50[0]), fy = f(xyz[1] / d50[1]), fz = f(xyz[2] / d50[2]);
    return {116 * fy - 16, 500 * (fx - fy), 200 * (fy - fz)};
}

} // namespace

TEST(ColorSpace, ModelsNamesAndComponentCounts) {
    EXPECT_EQ(ColorSpace::sRGB().model(), ColorSpaceModel::rgb);
    EXPECT_EQ(ColorSpace::deviceGray().model(), ColorSpaceModel::monochrome);
    EXPECT_EQ(ColorSpace::psdLab().model(), ColorSpaceModel::lab);
    EXPECT_EQ(ColorSpace::genericXYZ().model(), ColorSpaceModel::xyz);
    EXPECT_EQ(ColorSpace::deviceGray().numberOfComponents(), 1);
    EXPECT_EQ(ColorSpace::adobeRGB1998().numberOfComponents(), 3);
    EXPECT_EQ(*ColorSpace::displayP3().name(), "kCGColorSpaceDisplayP3");
    EXPECT_FALSE(ColorSpace::psdLab().name().has_value());
    EXPECT_EQ(ColorSpace::deviceRGB(), ColorSpace::deviceRGB()); // made anew, still equal
    EXPECT_FALSE(ColorSpace::deviceRGB() == ColorSpace::sRGB());
    EXPECT_EQ(*ColorSpace::named("kCGColorSpaceAdobeRGB1998"), ColorSpace::adobeRGB1998());
    EXPECT_FALSE(ColorSpace::named("nonsense").has_value());
}

TEST(ColorSpace, LabOfKnownColoursMatchesTheDefinitions) {
    const std::array<std::array<double, 3>, 7> colours = {
        {{1, 1, 1}, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0.5, 0.5, 0.5}, {1, 0.5, 0.25}}};
    for (const auto& c : colours) {
        const auto lab =
            Color::make(ColorSpace::sRGB(), {c[0], c[1], c[2], 1})->matched(ColorSpace::psdLab());
        ASSERT_TRUE(lab);
        const auto expected = referenceLab(c[0], c[1], c[2]);
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(lab->components()[i], expected[i], 0.01)
                << c[0] << " " << c[1] << " " << c[2];
    }
}

TEST(ColorSpace, RoundTripsAndNeutrals) {
    const auto p3 =
        Color::make(ColorSpace::displayP3(), {0.2, 0.6, 0.9, 0.5})->matched(ColorSpace::psdLab());
    const auto back = p3->matched(ColorSpace::displayP3());
    ASSERT_TRUE(back);
    EXPECT_NEAR(back->components()[0], 0.2, 1e-4);
    EXPECT_NEAR(back->components()[2], 0.9, 1e-4);
    EXPECT_EQ(back->alpha(), 0.5);

    const auto grey = Color::deviceGray(0.5).matched(ColorSpace::deviceRGB());
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(grey->components()[i], 0.5, 1e-3);

    const auto white =
        Color::make(ColorSpace::sRGB(), {1, 1, 1, 1})->matched(ColorSpace::genericXYZ());
    EXPECT_NEAR(white->components()[0], 0.9642, 1e-3);
    EXPECT_NEAR(white->components()[1], 1.0, 1e-3);
    EXPECT_NEAR(white->components()[2], 0.8249, 1e-3);
}

// A grey profile with a plain gamma of 1.8, as older systems wrote, made by Little CMS itself.
std::vector<std::uint8_t> gamma18GreyProfile() {
    cmsToneCurve* curve = cmsBuildGamma(nullptr, 1.8);
    cmsHPROFILE p = cmsCreateGrayProfile(cmsD50_xyY(), curve);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(p, nullptr, &size);
    std::vector<std::uint8_t> bytes(size);
    cmsSaveProfileToMem(p, bytes.data(), &size);
    cmsCloseProfile(p);
    cmsFreeToneCurve(curve);
    return bytes;
}

TEST(ColorSpace, GreyAsRGBMatchesNeutralsAsTheGreyDoes) {
    const auto grey = ColorSpace::fromICCProfile(gamma18GreyProfile());
    ASSERT_TRUE(grey);
    const auto rgb = grey->grayAsRGB();
    ASSERT_TRUE(rgb);
    EXPECT_EQ(rgb->model(), ColorSpaceModel::rgb);
    for (const double level : {0.0, 0.1, 0.5, 0.8, 1.0}) {
        const auto viaGrey = Color::make(*grey, {level, 1})->matched(ColorSpace::linearSRGB());
        const auto viaRGB =
            Color::make(*rgb, {level, level, level, 1})->matched(ColorSpace::linearSRGB());
        ASSERT_TRUE(viaGrey && viaRGB);
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(viaRGB->components()[i], viaGrey->components()[i], 1e-3) << level;
        // Gamma 1.8, not sRGB's curve: the tone curve itself came along.
        EXPECT_NEAR(viaRGB->components()[1], std::pow(level, 1.8), 2e-3) << level;
    }
    EXPECT_FALSE(ColorSpace::sRGB().grayAsRGB());
    EXPECT_FALSE(ColorSpace::psdLab().grayAsRGB());
}

TEST(ColorSpace, WideGamutColoursAreClampedIntoSmallerSpaces) {
    const auto green =
        Color::make(ColorSpace::adobeRGB1998(), {0, 1, 0, 1})->matched(ColorSpace::sRGB());
    EXPECT_EQ(green->components()[0], 0.0);
    EXPECT_EQ(green->components()[1], 1.0);
    const auto perceptual =
        Color::make(ColorSpace::sRGB(), {0.3, 0.4, 0.5, 1})
            ->matched(ColorSpace::adobeRGB1998(), bic::cg::RenderingIntent::perceptual);
    const auto absolute =
        Color::make(ColorSpace::sRGB(), {0.3, 0.4, 0.5, 1})
            ->matched(ColorSpace::adobeRGB1998(), bic::cg::RenderingIntent::absoluteColorimetric);
    ASSERT_TRUE(perceptual && absolute);
}

TEST(ColorSpace, ColoursValidateTheirComponents) {
    EXPECT_FALSE(Color::make(ColorSpace::sRGB(), {1, 0, 0}).has_value());
    EXPECT_FALSE(Color::make(ColorSpace::sRGB(), {1, 0, NAN, 1}).has_value());
    EXPECT_EQ(Color::make(ColorSpace::sRGB(), {2, -1, 0.5, 3})->components(),
              (std::vector<double>{1, 0, 0.5, 1}));
    EXPECT_EQ(Color::make(ColorSpace::psdLab(), {120, -200, 300, 1})->components(),
              (std::vector<double>{100, -128, 127, 1}));
}

TEST(ColorSpace, ICCProfilesRoundTrip) {
    const auto icc = ColorSpace::adobeRGB1998().iccData();
    ASSERT_GT(icc.size(), 128u);
    const auto space = ColorSpace::fromICCProfile(icc);
    ASSERT_TRUE(space);
    EXPECT_EQ(space->model(), ColorSpaceModel::rgb);
    const auto a = Color::make(*space, {0.1, 0.7, 0.3, 1})->matched(ColorSpace::psdLab());
    const auto b =
        Color::make(ColorSpace::adobeRGB1998(), {0.1, 0.7, 0.3, 1})->matched(ColorSpace::psdLab());
    // The stored profile quantises the tone curve; the colours stay within a hair.
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(a->components()[i], b->components()[i], 0.005);
    const std::vector<std::uint8_t> junk(200, 7);
    EXPECT_FALSE(ColorSpace::fromICCProfile(junk).has_value());
}

TEST(CIColor, FromDrawingColours) {
    const auto fromGrey = bic::ci::Color::from(Color::deviceGray(0.25, 0.5));
    EXPECT_EQ(fromGrey->red, 0.25);
    EXPECT_EQ(fromGrey->blue, 0.25);
    EXPECT_EQ(fromGrey->alpha, 0.5);
    const auto fromLab = bic::ci::Color::from(*Color::make(ColorSpace::psdLab(), {100, 0, 0, 1}));
    EXPECT_NEAR(fromLab->green, 1.0, 1e-3);
    EXPECT_EQ(bic::ci::Color::clear().alpha, 0);
}
