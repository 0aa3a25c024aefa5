#include "bic/core/image_core_error.hpp"
#include "bic/pixels/pixel_formats.hpp"
#include "bic/platform/ns/pasteboard.hpp"

#include <gtest/gtest.h>

using namespace bic;

TEST(ColorOperations, HueSaturationValue) {
    EXPECT_EQ(*PixelRGBA32(1, 0, 0, 1).hue(), 0);
    EXPECT_EQ(*PixelRGBA32(0, 0, 1, 1).hue(), 240);
    EXPECT_EQ(*PixelRGBA32(1, 1, 0, 1).hue(), 60);  // the tie goes to red
    EXPECT_EQ(*PixelRGBA32(0, 1, 1, 1).hue(), 180); // the tie goes to green
    EXPECT_FLOAT_EQ(*PixelRGBA32(1, 0, 0.5f, 1).hue(), 330);
    EXPECT_FALSE(PixelRGBA32(0.5f, 0.5f, 0.5f, 1).hue());
    EXPECT_EQ(PixelRGBA32(0.5f, 0.5f, 0.5f, 1).saturation(), 0);
    EXPECT_EQ(PixelRGBA32(0, 0, 0, 1).saturation(), 0);
    EXPECT_FLOAT_EQ(PixelRGBA32(0.8f, 0.4f, 0.2f, 1).saturation(), 0.75f);
    EXPECT_FLOAT_EQ(PixelRGBA32(0.8f, 0.4f, 0.2f, 1).value(), 0.8f);
}

TEST(ColorOperations, HSVConstructionCoversEverySector) {
    const struct {
        float h;
        PixelARGB8 expected;
    } cases[] = {{0, {255, 0, 0, 255}},     {30, {255, 128, 0, 255}},  {90, {128, 255, 0, 255}},
                 {150, {0, 255, 128, 255}}, {210, {0, 128, 255, 255}}, {270, {128, 0, 255, 255}},
                 {330, {255, 0, 128, 255}}};
    for (const auto& c : cases)
        EXPECT_EQ(PixelARGB8::withHSV(c.h, 1, 1), c.expected) << c.h;
    EXPECT_EQ(PixelARGB8::withHSV(120, 0.5f, 0.5f, 0.2f), PixelARGB8(64, 128, 64, 51));
}

TEST(ColorOperations, SettersIgnoreOutOfRangeValuesAndKeepAlpha) {
    PixelARGB8 p(255, 0, 0, 77);
    const PixelARGB8 before = p;
    p.setHue(360);
    p.setHue(-1);
    p.setHue(std::nullopt);
    p.setSaturation(1.5f);
    p.setValue(NAN);
    EXPECT_EQ(p, before);
    p.setHue(120);
    EXPECT_EQ(p, PixelARGB8(0, 255, 0, 77));
    p.setValue(0.5f);
    EXPECT_EQ(p, PixelARGB8(0, 128, 0, 77));
    p.setSaturation(0);
    EXPECT_EQ(p, PixelARGB8(128, 128, 128, 77));
    p.setSaturation(1); // a grey has no hue: red
    EXPECT_EQ(p, PixelARGB8(128, 0, 0, 77));
}

TEST(ColorOperations, NamedColoursAndLuminosity) {
    EXPECT_EQ(PixelARGB8::darkGrayColor().redComponent, 85);
    EXPECT_EQ(PixelARGB8::lightGrayColor().redComponent, 170);
    EXPECT_EQ(PixelARGB8::grayColor().redComponent, 128);
    EXPECT_EQ(PixelRGBA16::clearColor(), PixelRGBA16(0, 0, 0, 0));
    EXPECT_EQ(PixelRGBA32::blueColor(), PixelRGBA32(0, 0, 1, 1));
    EXPECT_EQ(PixelGray8::grayColor(), PixelGray8(128));
    EXPECT_EQ(PixelGray16::whiteColor(), PixelGray16(65535));
    EXPECT_FLOAT_EQ(PixelRGBA32(1, 1, 1, 0).luminosity(), 1.0f);
    EXPECT_FLOAT_EQ(PixelRGBA32(0, 1, 0, 1).luminosity(), 0.59f);
}

TEST(ColorOperations, HexForm) {
    EXPECT_EQ(PixelARGB8(255, 128, 0, 10).hexValue(), "FF8000");
    EXPECT_EQ(PixelRGBA16(65535, 0, 4112, 0).hexValue(), "FF0010");
    EXPECT_EQ(*PixelARGB8::fromHexValue(" #ff8000\n"), PixelARGB8(255, 128, 0, 255));
    // Every Unicode space and line break: no-break space, ideographic space, next line, line
    // separator.
    EXPECT_EQ(*PixelARGB8::fromHexValue("\u00A0\u3000#\u00A0FF8000\u0085\u2028"),
              PixelARGB8(255, 128, 0, 255));
    EXPECT_EQ(*PixelARGB8::fromHexValue("0a0B0c"), PixelARGB8(10, 11, 12, 255));
    for (const char* bad : {"#FFF", "FF80001", "GG0000", "", "#", "ff 800", "-FFFFF", "0x1234"})
        EXPECT_FALSE(PixelARGB8::fromHexValue(bad)) << bad;
}

TEST(ColorOperations, TextForm) {
    EXPECT_EQ(PixelRGBA32(1, 0.5f, 0, 1).stringRepresentation(), "1.000000 0.500000 0.000000");
    EXPECT_EQ(PixelRGBA32(0, 0, 0, 0.5f).stringRepresentation(),
              "0.000000 0.000000 0.000000 0.500000");
    EXPECT_EQ(PixelGray8(51).stringRepresentation(), "0.200000");
    EXPECT_EQ(*PixelARGB8::fromStringRepresentation("0.5"), PixelARGB8(128, 128, 128, 255));
    EXPECT_EQ(*PixelARGB8::fromStringRepresentation("1 0.5 0"), PixelARGB8(255, 128, 0, 255));
    EXPECT_EQ(*PixelRGBA32::fromStringRepresentation("1 0.5 +0 0.25"),
              PixelRGBA32(1, 0.5f, 0, 0.25f));
    for (const char* bad : {"0.1 0.2", "1 2 3 4 5", "1  2 3", " 1 2 3", "1 2 x", "", "1,5"})
        EXPECT_FALSE(PixelARGB8::fromStringRepresentation(bad)) << bad;
    EXPECT_EQ(*PixelGray16::fromStringRepresentation("1"), PixelGray16(65535));
    EXPECT_FALSE(PixelGray16::fromStringRepresentation("1 1 1"));
    const PixelRGBA32 odd(0.123456f, 0.5f, 0.75f, 0.25f);
    const auto back = PixelRGBA32::fromStringRepresentation(odd.stringRepresentation());
    EXPECT_NEAR(back->redComponent, odd.redComponent, 1e-6);
}

TEST(ColorOperations, ColourManagedConversions) {
    const auto white = PixelARGB8(255, 255, 255, 255).psdLabComponents(cg::ColorSpace::sRGB());
    ASSERT_TRUE(white);
    EXPECT_NEAR((*white)[0], 100, 0.01);
    EXPECT_NEAR((*white)[1], 0, 0.01);
    EXPECT_FALSE(PixelARGB8::blackColor().psdLabComponents(cg::ColorSpace::deviceGray()));

    const PixelARGB8 orange(255, 128, 0, 255);
    const auto lab = orange.psdLabComponents(cg::ColorSpace::sRGB());
    EXPECT_EQ(*PixelARGB8::fromPSDLab(cg::ColorSpace::sRGB(), (*lab)[0], (*lab)[1], (*lab)[2]),
              orange);
    const auto xyz = orange.xyzComponents(cg::ColorSpace::adobeRGB1998());
    EXPECT_EQ(*PixelARGB8::fromXYZ(cg::ColorSpace::adobeRGB1998(), (*xyz)[0], (*xyz)[1], (*xyz)[2]),
              orange);

    // Pure sRGB red lies inside Display P3, away from its primaries.
    const auto p3 = PixelRGBA32(1, 0, 0, 1)
                        .converted(cg::ColorSpace::sRGB(), cg::ColorSpace::displayP3(),
                                   cg::RenderingIntent::relativeColorimetric);
    EXPECT_NEAR(p3.redComponent, 0.9175, 0.002);
    EXPECT_NEAR(p3.greenComponent, 0.2003, 0.002);
    EXPECT_NEAR(p3.blueComponent, 0.1386, 0.002);
    try {
        PixelRGBA32::redColor().converted(cg::ColorSpace::deviceGray(), cg::ColorSpace::sRGB(),
                                          cg::RenderingIntent::defaultIntent);
        FAIL() << "converted from a grey space";
    } catch (const ImageCoreError& e) {
        EXPECT_EQ(e.code(), ImageCoreError::parameterError);
    }
}

TEST(ColorOperations, PlatformColoursAndThePasteboard) {
    const PixelRGBA16 p(65535, 0, 32768, 65535);
    const auto color = p.nsColor(cg::ColorSpace::displayP3());
    ASSERT_TRUE(color);
    EXPECT_EQ(color->colorSpace(), cg::ColorSpace::displayP3());
    EXPECT_EQ(*PixelRGBA16::fromNSColor(*color, cg::ColorSpace::displayP3()), p);
    EXPECT_FALSE(p.nsColor(cg::ColorSpace::psdLab()));
    EXPECT_EQ(*PixelARGB8::fromNSColor(cg::Color::deviceGray(0.5), cg::ColorSpace::deviceRGB()),
              PixelARGB8(128, 128, 128, 255));

    ns::MemoryPasteboard board;
    EXPECT_FALSE(PixelRGBA32::canReadFromPasteboard(board));
    ns::writeColor(board, cg::Color::deviceRGB(0.25, 0.5, 1, 0.5));
    EXPECT_TRUE(PixelRGBA32::canReadFromPasteboard(board));
    const auto read = PixelRGBA32::readFromPasteboard(cg::ColorSpace::deviceRGB(), board);
    EXPECT_EQ(*read, PixelRGBA32(0.25f, 0.5f, 1, 0.5f));
    const auto ci = PixelARGB8(255, 0, 0, 128).ciColor();
    EXPECT_FLOAT_EQ(float(ci.alpha), 128 / 255.0f);
    EXPECT_EQ(PixelGray8(255).ciColor().green, 1.0);
}
