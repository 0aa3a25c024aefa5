#include "bic/filters/gradient_filters.hpp"
#include "bic/gradients/gradient_mapping.hpp"
#include "bic/platform/ci/builtin_filters.hpp"
#include "bic/platform/ci/context.hpp"
#include "bic/platform/coding/formats.hpp"
#include "bic/platform/ns/image.hpp"
#include "bic/platform/ns/pasteboard.hpp"
#include "support/expect_error.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <numbers>

namespace bic {
namespace {

using test_support::expectCode;

// One pixel of `image`, straight RGBA floats; (x, y) is the pixel whose centre is at
// (x + ½, y + ½).
std::array<float, 4> pixel(const ci::Image& image, double x, double y) {
    std::array<float, 4> p;
    ci::Context().render(image, p.data(), 16, {x, y, 1, 1}, ci::Format::RGBAf);
    if (p[3] > 0)
        for (int c = 0; c < 3; ++c)
            p[c] /= p[3];
    return p;
}

// A short or long field of a little-endian TIFF's first directory; 0 when absent.
std::uint32_t tiffField(const std::vector<std::uint8_t>& tiff, std::uint16_t tag) {
    auto read = [&](std::size_t at, int bytes) {
        std::uint32_t v = 0;
        for (int i = bytes - 1; i >= 0; --i)
            v = v << 8 | tiff.at(at + std::size_t(i));
        return v;
    };
    const std::size_t directory = read(4, 4);
    for (std::uint32_t i = 0, n = read(directory, 2); i < n; ++i) {
        const std::size_t entry = directory + 2 + 12 * i;
        if (read(entry, 2) == tag) return read(entry + 8, read(entry + 2, 2) == 3 ? 2 : 4);
    }
    return 0;
}

float level(const ColorGradient& g, GradientType type, cg::Point from, cg::Point to, double x,
            double y, bool flipped = false) {
    return pixel(g.image(type, from, to, flipped, std::nullopt), x, y)[0];
}

TEST(GradientRendering, EachGeometryRampsFromStartToEnd) {
    const ColorGradient g; // black to white: colour = ramp level
    constexpr float tolerance = 2e-5f;
    // Linear: along the axis only, clamped beyond the ends; shaped is the same ramp.
    for (GradientType t : {GradientType::linear, GradientType::shaped}) {
        EXPECT_NEAR(level(g, t, {0, 0}, {100, 0}, 25, 40), 0.255f, tolerance);
        EXPECT_NEAR(level(g, t, {0, 0}, {100, 0}, 150, -3), 1, tolerance);
        EXPECT_NEAR(level(g, t, {0, 0}, {100, 0}, -20, 7), 0, tolerance);
    }
    // Radial about the start, the end on the rim.
    EXPECT_NEAR(level(g, GradientType::radial, {50.5, 50.5}, {90.5, 50.5}, 50, 70), 0.5f,
                tolerance);
    EXPECT_NEAR(level(g, GradientType::radial, {50.5, 50.5}, {90.5, 50.5}, 150, 150), 1, tolerance);
    // Reflected: the same level either side of the start.
    const cg::Point s{50.5, 0.5}, e{90.5, 0.5};
    EXPECT_NEAR(level(g, GradientType::reflected, s, e, 60, 9), 0.25f, tolerance);
    EXPECT_NEAR(level(g, GradientType::reflected, s, e, 40, 9), 0.25f, tolerance);
    EXPECT_NEAR(level(g, GradientType::reflected, s, e, 0, 0), 1, tolerance);
    // Diamond: the end point is a corner, the side between two corners reaches 1 too, and half
    // way to either is ½.
    const cg::Point c{50.5, 50.5}, corner{90.5, 50.5};
    EXPECT_NEAR(level(g, GradientType::diamond, c, corner, 70, 50), 0.5f, tolerance);
    EXPECT_NEAR(level(g, GradientType::diamond, c, corner, 70, 70), 1, tolerance);
    EXPECT_NEAR(level(g, GradientType::diamond, c, corner, 60, 60), 0.5f, tolerance);
    EXPECT_NEAR(level(g, GradientType::diamond, c, corner, 50, 30), 0.5f, tolerance);
    EXPECT_NEAR(level(g, GradientType::diamond, c, corner, 65, 65), 0.75f, tolerance);
}

TEST(GradientRendering, AngleRampTurnsFromTheEndPoint) {
    const ColorGradient g;
    const cg::Point c{50.5, 50.5};
    // The angle image is sampled at 4× and bilinearly, so levels carry a little blur.
    constexpr float tolerance = 0.01f;
    // Flipped: the ramp starts towards `to` and turns counter-clockwise.
    EXPECT_NEAR(level(g, GradientType::angle, c, {90.5, 50.5}, 50, 80, true), 0.25f, tolerance);
    EXPECT_NEAR(level(g, GradientType::angle, c, {90.5, 50.5}, 20, 50, true), 0.5f, tolerance);
    EXPECT_NEAR(level(g, GradientType::angle, c, {50.5, 90.5}, 20, 50, true), 0.25f, tolerance);
    // Not flipped: `to` straight to the right turns nothing; straight above turns by 3π/2, so
    // the ramp starts below the centre.
    EXPECT_NEAR(level(g, GradientType::angle, c, {90.5, 50.5}, 50, 80), 0.25f, tolerance);
    EXPECT_NEAR(level(g, GradientType::angle, c, {50.5, 90.5}, 80, 50), 0.25f, tolerance);
    EXPECT_NEAR(level(g, GradientType::angle, c, {50.5, 90.5}, 50, 80), 0.5f, tolerance);
    EXPECT_NEAR(level(g, GradientType::angle, c, {50.5, 90.5}, 20, 50), 0.75f, tolerance);
}

TEST(GradientRendering, ColoursOpacityAndDithering) {
    // Red to blue with the even mix at a quarter, fading from opaque to a fifth.
    const ColorGradient g =
        *ColorGradient::make({{{1, 0, 0, 1}, 0}, {{0, 0, 1, 1}, 1, 0.25}}, {{1, 0}, {0.2, 1}});
    // Pixel x has its centre at ramp level x / 255.
    const ci::Image image =
        g.image(GradientType::linear, {0.5, 0}, {255.5, 0}, false, std::nullopt);
    auto at = [&](int x) { return pixel(image, x, 0); };
    EXPECT_NEAR(at(0)[0], 1, 1e-6);
    EXPECT_NEAR(at(255)[2], 1, 1e-6);
    EXPECT_NEAR(at(255)[3], 0.2f, 1e-6);
    const PixelRGBA32 quarter = g.colorAtLocation(64 / 255.0);
    EXPECT_NEAR(at(64)[0], quarter.red(), 1e-6);
    EXPECT_NEAR(at(64)[2], quarter.blue(), 1e-6);
    EXPECT_NEAR(at(64)[3], g.opacityAtLocation(64 / 255.0), 1e-6);

    // Two levels: every channel of every pixel lands on 0 or 1.
    const ci::Image dithered = g.image(GradientType::linear, {0, 0}, {64, 0}, false, 2);
    std::vector<float> px(64 * 8 * 4);
    ci::Context().render(dithered, px.data(), 64 * 16, {0, 0, 64, 8}, ci::Format::RGBAf);
    int ones = 0;
    for (std::size_t i = 0; i < px.size(); i += 4) {
        EXPECT_TRUE(px[i] == 0 || px[i] == px[i + 3]) << px[i];
        ones += px[i] > 0;
    }
    EXPECT_GT(ones, 0);
    EXPECT_LT(ones, 64 * 8);
}

TEST(GradientRendering, FiltersNeedBothPoints) {
    BICReflectedGradientFilter reflected;
    reflected.setInputPoint0(cg::Point{0, 0});
    EXPECT_FALSE(reflected.outputImage());
    BICDiamondGradientFilter diamond;
    diamond.setInputPoint1(cg::Point{0, 0});
    EXPECT_FALSE(diamond.outputImage());
    // Filters like any other: made and configured by name, points as two-component vectors.
    registerGradientFilters();
    const auto byName = ci::Filter::named("BICReflectedGradientFilter");
    ASSERT_TRUE(byName);
    EXPECT_EQ(byName->inputKeys(), (std::vector<std::string>{"inputPoint0", "inputPoint1"}));
    byName->setValue("inputPoint0", std::vector<double>{0, 0});
    EXPECT_FALSE(byName->outputImage());
    byName->setValue("inputPoint1", std::vector<double>{10, 0});
    ASSERT_TRUE(byName->outputImage());
    EXPECT_NEAR(pixel(*byName->outputImage(), -5, 3)[0], 0.45f, 0.01f); // mirrored
    ASSERT_TRUE(ci::Filter::named("BICDiamondGradientFilter"));
    EXPECT_TRUE(ci::Filter::named("BICAngleGradientFilter")->outputImage());
    const auto angle = BICAngleGradientFilter().outputImage();
    ASSERT_TRUE(angle);
    EXPECT_TRUE(angle->extent().isInfinite());
    EXPECT_NEAR(pixel(*angle, -1, 10)[0], 0.25f, 0.01f);
    EXPECT_NEAR(pixel(*angle, -10, -1)[0], 0.5f, 0.01f);
}

TEST(GradientRendering, TheAngleRampIsTheArcTangentEverywhere) {
    // Pixel centres around the origin (every octant, both axes) and far from it.
    const ci::Image angle = *BICAngleGradientFilter().outputImage();
    for (const cg::Rect& area : {cg::Rect(-37, -37, 74, 74), cg::Rect(-100003, 999, 200, 3),
                                 cg::Rect(5, -7000000, 3, 64)}) {
        const auto w = std::int64_t(area.width()), h = std::int64_t(area.height());
        std::vector<float> out(std::size_t(w * h * 4));
        ci::Context::shared()->render(angle, out.data(), w * 16, area, ci::Format::RGBAf);
        double worst = 0;
        for (std::int64_t row = 0; row < h; ++row)
            for (std::int64_t i = 0; i < w; ++i) {
                const double x = area.minX() + double(i) + 0.5;
                const double y = area.maxY() - double(row) - 0.5; // rows are stored top first
                double a = std::atan2(y, x);
                a = (a < 0 ? a + 2 * std::numbers::pi : a) / (2 * std::numbers::pi);
                worst = std::max(worst, std::abs(double(out[std::size_t((row * w + i) * 4)]) - a));
            }
        EXPECT_LT(worst, 1e-7) << area.minX() << ", " << area.minY();
    }
}

TEST(GradientRendering, TheRadialGradientIsItsRampMapped) {
    // The radial gradient is made in one pass; it must show what mapping the ramp image does,
    // also where a transform makes the engine evaluate it at placed points, and for odd rows.
    const ColorGradient g = *ColorGradient::make(
        {{{0.9f, 0.2f, 0.1f, 1}, 0}, {{0.1f, 0.5f, 0.9f, 1}, 0.55, 0.3}, {{0, 0, 0.2f, 1}, 1}},
        {{1, 0}, {0.2, 1, 0.7}});
    const cg::Point centre{40.25, 31.5}, edge{95, 60};
    const ci::Image twoStage =
        *mapped(ci::radialGradient(centre, 0, double(float(std::hypot(54.75, 28.5))),
                                   ci::Color::black(), ci::Color::white()),
                g);
    const ci::Image fused = g.image(GradientType::radial, centre, edge, false, std::nullopt);
    const auto turn =
        cg::AffineTransform::rotation(0.3).concatenating(cg::AffineTransform::scale(1.7, 0.6));
    for (const auto& [a, b] : {std::pair{fused, twoStage},
                               std::pair{fused.transformed(turn), twoStage.transformed(turn)}}) {
        const cg::Rect area(-13, -9, 131, 97);
        std::vector<float> x(131 * 97 * 4), y(x.size());
        ci::Context().render(a, x.data(), 131 * 16, area, ci::Format::RGBAf);
        ci::Context().render(b, y.data(), 131 * 16, area, ci::Format::RGBAf);
        float worst = 0;
        for (std::size_t i = 0; i < x.size(); ++i)
            worst = std::max(worst, std::abs(x[i] - y[i]));
        // Equal bits where the two are compiled alike; an instrumented build may fuse
        // multiply-adds differently in each.
        EXPECT_LE(worst, 1e-6f);
        EXPECT_GT(x[4 * (40 * 131 + 50) + 3], 0.1f); // drawn, not empty
    }
}

TEST(GradientRendering, MappingThroughAGradient) {
    const ColorGradient g =
        *ColorGradient::make({{{0, 1, 0, 1}, 0}, {{1, 0, 1, 1}, 1}}, {{1, 0}, {1, 1}});
    // Luminosity picks the place: black → green, white → magenta, outside 0…1 clamped.
    std::vector<float> rgba{0, 0, 0, 1, 1, 1, 1, 1, 4, 4, 4, 1};
    const ci::Image source = *ci::Image::fromBitmap(rgba.data(), 48, 3, 1, ci::Format::RGBAf);
    const Image out = mapped(Image::mask(source), g);
    EXPECT_EQ(out.intent, Image::Intent::image);
    EXPECT_EQ(pixel(out.ciImage, 0, 0), (std::array<float, 4>{0, 1, 0, 1}));
    EXPECT_EQ(pixel(out.ciImage, 1, 0), (std::array<float, 4>{1, 0, 1, 1}));
    EXPECT_EQ(pixel(out.ciImage, 2, 0), (std::array<float, 4>{1, 0, 1, 1}));
}

TEST(GradientRendering, DrawingMakesEveryMidpointExplicit) {
    const ColorGradient plain =
        *ColorGradient::make({{{0, 0, 0, 1}, 0.2}, {{1, 1, 1, 1}, 0.7}}, {{1, 0.2}, {1, 0.7}});
    EXPECT_EQ(plain.drawingGradient(cg::ColorSpace::sRGB()).locations,
              (std::vector<double>{0, 0.2, 0.7, 1}));

    ColorGradient uneven;
    uneven.changeMidpointOfColorStop(1, 0.25);
    uneven.changeMidpointOfOpacityStop(1, 0.75);
    uneven.changeOpacityOfStop(1, 0);
    const cg::Gradient drawn = uneven.drawingGradient(cg::ColorSpace::deviceRGB());
    ASSERT_EQ(drawn.locations, (std::vector<double>{0, 0.25, 0.75, 1}));
    // At ¼ the colours' even mix and the opacity a third of the way to its own; at ¾ the
    // reverse.
    auto expectComponents = [](const cg::Color& c, double grey, double alpha) {
        ASSERT_EQ(c.components().size(), 4u);
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(c.components()[std::size_t(k)], grey, 1e-6);
        EXPECT_NEAR(c.alpha(), alpha, 1e-12);
    };
    expectComponents(drawn.colors[1], 0.5, 5.0 / 6);
    expectComponents(drawn.colors[2], 5.0 / 6, 0.5);

    // A space that cannot take the four components falls back location by location, saying so
    // each time; one that can (Lab has four too) is used as it is, silently.
    testing::internal::CaptureStdout();
    const cg::Gradient fallback = uneven.drawingGradient(cg::ColorSpace::deviceGray());
    std::string expected;
    for (std::size_t i = 0; i < fallback.locations.size(); ++i)
        expected += "Failed to create color in colorSpace kCGColorSpaceDeviceGray\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
    EXPECT_EQ(fallback.locations.size(), 4u);
    EXPECT_EQ(fallback.colors[1].colorSpace(), cg::ColorSpace::deviceRGB());
    testing::internal::CaptureStdout();
    const cg::Gradient lab = uneven.drawingGradient(cg::ColorSpace::psdLab());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(lab.colors[1].colorSpace(), cg::ColorSpace::psdLab());

    // Drawn across 256 pixels, left to right: grey ½ sits a quarter of the way along.
    auto context = cg::Context::bitmap(nullptr, 256, 1, 8, 1024, cg::ColorSpace::deviceRGB(),
                                       cg::bitmap::alphaPremultipliedLast);
    ColorGradient opaque;
    opaque.changeMidpointOfColorStop(1, 0.25);
    opaque.draw({0, 0, 256, 1}, 0, cg::ColorSpace::deviceRGB()); // no current context: nothing
    EXPECT_EQ(context->data()[3], 0);
    {
        ns::GraphicsContext::Scope scope(*context);
        opaque.draw({0, 0, 256, 1}, 0, cg::ColorSpace::deviceRGB());
    }
    EXPECT_EQ(ns::GraphicsContext::current(), nullptr);
    const std::uint8_t* p = context->data();
    EXPECT_NEAR(p[64 * 4], 128, 1);
    EXPECT_NEAR(p[32 * 4], 64, 1);
    EXPECT_NEAR(p[160 * 4], 192, 1);
    EXPECT_EQ(p[64 * 4 + 3], 255);

    // A transparent stop keeps its colour: white to transparent white is white fading out,
    // premultiplied, never grey.
    auto faded = cg::Context::bitmap(nullptr, 256, 1, 8, 1024, cg::ColorSpace::deviceRGB(),
                                     cg::bitmap::alphaPremultipliedLast);
    {
        ns::GraphicsContext::Scope scope(*faded);
        ColorGradient::whiteToTransparent().draw({0, 0, 256, 1}, 0, cg::ColorSpace::deviceRGB());
    }
    const std::uint8_t* q = faded->data();
    for (const int x : {0, 128, 192, 250})
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(q[x * 4 + c], q[x * 4 + 3]) << x; // colour = alpha: white
    EXPECT_NEAR(q[128 * 4 + 3], 127, 1);
    EXPECT_NEAR(q[192 * 4 + 3], 63, 1);
}

TEST(GradientRendering, Pasteboard) {
    const auto previous = ns::Pasteboard::general();
    ns::Pasteboard::setGeneral(std::make_shared<ns::MemoryPasteboard>());
    const auto pasteboard = ns::Pasteboard::general();
    EXPECT_EQ(ColorGradient::colorGradientDataType(),
              "org.brellin.BrellinImageCore.ColorGradientType");

    EXPECT_FALSE(ColorGradient::canReadFromPasteboard());
    expectCode([] { ColorGradient::readFromPasteboard(); }, ImageCoreError::unknownError);

    pasteboard->setData("public.utf8-plain-text", {'x'});
    ColorGradient g =
        *ColorGradient::make({{{1, 0, 0, 1}, 0}, {{0, 0, 1, 1}, 1, 0.3}}, {{1, 0}, {0.5, 1}});
    g.writeToPasteboard();
    EXPECT_TRUE(ColorGradient::canReadFromPasteboard());
    EXPECT_FALSE(pasteboard->data("public.utf8-plain-text")); // the old contents are gone
    EXPECT_EQ(ColorGradient::readFromPasteboard(), g);
    // The keyed form as a property list, beside a TIFF preview (little-endian header).
    const auto data = pasteboard->data(ColorGradient::colorGradientDataType());
    EXPECT_EQ(coding::decodePropertyList<ColorGradient>(*data), g);
    const auto tiff = pasteboard->data(ns::pasteboard_type::tiff);
    ASSERT_TRUE(tiff);
    ASSERT_GT(tiff->size(), 8u);
    EXPECT_EQ((std::vector<std::uint8_t>(tiff->begin(), tiff->begin() + 4)),
              (std::vector<std::uint8_t>{'I', 'I', 42, 0}));
    EXPECT_EQ(tiffField(*tiff, 256), 256u); // width
    EXPECT_EQ(tiffField(*tiff, 257), 256u); // height

    pasteboard->setData(ColorGradient::colorGradientDataType(), {'n', 'o', 'p', 'e'});
    EXPECT_THROW(ColorGradient::readFromPasteboard(), coding::DecodingError);
    ns::Pasteboard::setGeneral(previous);
}

TEST(GradientRendering, DrawnImagesBecomeTIFF) {
    int calls = 0;
    const ns::Image failing({4, 4}, false, [&](const cg::Rect&) { return ++calls, false; });
    EXPECT_FALSE(failing.tiffRepresentation());
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(
        ns::Image({0, 3}, false, [](const cg::Rect&) { return true; }).tiffRepresentation());

    // Flipped images have their origin at the top: a fill of the first row lands on top.
    std::optional<std::vector<std::uint8_t>> tops[2];
    for (bool flipped : {false, true}) {
        const ns::Image image({8, 8}, flipped, [](const cg::Rect&) {
            ns::GraphicsContext::current()->setFillColor(cg::Color::deviceRGB(1, 1, 1));
            ns::GraphicsContext::current()->fill({0, 0, 8, 1});
            return true;
        });
        tops[flipped] = image.tiffRepresentation();
        ASSERT_TRUE(tops[flipped]);
    }
    EXPECT_NE(*tops[0], *tops[1]);
}

} // namespace
} // namespace bic
