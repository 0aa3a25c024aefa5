#include "bic/pixels/pixel_format_list.hpp"
#include "bic/pixels/pixel_formats.hpp"
#include "bic/platform/coding/formats.hpp"

#include <cstring>
#include <gtest/gtest.h>

using namespace bic;

namespace {
template <class P>
std::vector<std::uint8_t> bytesOf(const P& p) {
    std::vector<std::uint8_t> b(sizeof(P));
    std::memcpy(b.data(), &p, sizeof(P));
    return b;
}
} // namespace

TEST(PixelFormats, MemoryLayoutIsTheRowLayout) {
    EXPECT_EQ(bytesOf(PixelARGB8(10, 20, 30, 128)), (std::vector<std::uint8_t>{128, 10, 20, 30}));
    const auto b16 = bytesOf(PixelRGBA16(0x0102, 0, 0, 0xA0B0));
    EXPECT_EQ(b16[0], 0x02);
    EXPECT_EQ(b16[1], 0x01);
    EXPECT_EQ(b16[6], 0xB0);
    const auto bf = bytesOf(PixelRGBA32(0, 0, 0, 1.0f));
    EXPECT_EQ(bf[15], 0x3F); // little-endian float 1.0 = 00 00 80 3F
    EXPECT_EQ(bytesOf(PixelGray16(0x1234)), (std::vector<std::uint8_t>{0x34, 0x12}));
}

TEST(PixelFormats, Constants) {
    EXPECT_EQ(PixelARGB8::bitmapInfo, 2u);
    EXPECT_EQ(PixelGray8::bitmapInfo, 0u);
    EXPECT_EQ(PixelRGBA16::bitmapInfo, 0x1001u);
    EXPECT_EQ(PixelGray16::bitmapInfo, 0x1000u);
    EXPECT_EQ(PixelRGBA32::bitmapInfo, 0x2101u);
    EXPECT_EQ(PixelGray32::bitmapInfo, 0x2100u);
    EXPECT_EQ(PixelARGB8::alphaInfo, PixelAlphaInfo::first);
    EXPECT_EQ(PixelRGBA16::alphaInfo, PixelAlphaInfo::last);
    EXPECT_EQ(PixelGray32::alphaInfo, PixelAlphaInfo::none);
    EXPECT_EQ(PixelRGBA32::ciFormat, ci::Format::RGBAf);
    EXPECT_EQ(PixelGray16::ciFormat, ci::Format::L16);
    EXPECT_EQ(PixelRGBA16::bitDepth, 16);
    EXPECT_EQ(PixelGray32::bitDepth, 32);
    EXPECT_EQ(PixelGray8::componentCount, 1);
    EXPECT_EQ(PixelGray8::model, cg::ColorSpaceModel::monochrome);
    EXPECT_EQ(PixelARGB8::deviceColorSpace().model(), cg::ColorSpaceModel::rgb);
    EXPECT_EQ(PixelGray16::deviceColorSpace().model(), cg::ColorSpaceModel::monochrome);
    EXPECT_EQ(PixelRGBA16::whiteValue, 65535);
    EXPECT_EQ(PixelARGB8::componentValue(0.5f), 128);
    EXPECT_EQ(PixelGray32::componentValue(1.5f), 1.5f);
}

TEST(PixelFormats, AccessorsAcrossScalesRoundThroughFloat) {
    PixelARGB8 a8(255, 1, 128, 255);
    EXPECT_EQ(a8.red16(), 65535);
    EXPECT_EQ(a8.green16(), 257);
    EXPECT_EQ(a8.blue16(), 128 * 257);
    EXPECT_FLOAT_EQ(a8.blue(), 128 / 255.0f);

    PixelRGBA16 p16(65535, 32767, 32896, 128);
    EXPECT_EQ(p16.red8(), 255);
    EXPECT_EQ(p16.green8(), 127);
    EXPECT_EQ(p16.blue8(), 128);
    EXPECT_EQ(p16.alpha8(), 0);
    p16.setRed8(255);
    EXPECT_EQ(p16.redComponent, 65535);
    p16.setRed8(1);
    EXPECT_EQ(p16.redComponent, 257);
    a8.setRed16(32896);
    EXPECT_EQ(a8.redComponent, 128);

    PixelRGBA32 f(-0.5f, 0.5f, 1.2f, 1);
    EXPECT_EQ(f.red8(), 0);
    EXPECT_EQ(f.green8(), 128);
    EXPECT_EQ(f.blue8(), 255);
    EXPECT_EQ(f.green16(), 32768);
    f.setRed8(51);
    EXPECT_FLOAT_EQ(f.redComponent, 0.2f);
    f.setRed(7.5f); // float formats store any float
    EXPECT_EQ(f.redComponent, 7.5f);

    PixelARGB8 clamp;
    clamp.setRed(-0.1f);
    EXPECT_EQ(clamp.redComponent, 0);
    clamp.setRed(1.5f);
    EXPECT_EQ(clamp.redComponent, 255);
    clamp.setRed(NAN);
    EXPECT_EQ(clamp.redComponent, 0);
    EXPECT_EQ(PixelRGBA32(NAN, 0, 0, 1).red8(), 0);

    PixelGray16 g;
    g.setGray8(255);
    EXPECT_EQ(g.grayComponent, 65535);
    EXPECT_EQ(PixelGray8(128).gray16(), 32896);
    EXPECT_EQ(PixelGray32(0.5f).gray8(), 128);
}

TEST(PixelFormats, FloatInitialisersClampIntegerFormatsOnly) {
    EXPECT_EQ(PixelARGB8::withRGBA(1.5f, -1, 0.5f, 0.2f), PixelARGB8(255, 0, 128, 51));
    EXPECT_EQ(PixelRGBA16::withRGBA(0.5f, 0, 0, 1), PixelRGBA16(32768, 0, 0, 65535));
    EXPECT_EQ(PixelRGBA32::withRGBA(1.5f, -1, 0, 1), PixelRGBA32(1.5f, -1, 0, 1));
    EXPECT_EQ(PixelGray8::withGray(2), PixelGray8(255));
}

TEST(PixelFormats, ConversionBetweenFormats) {
    EXPECT_EQ(pixelCast<PixelRGBA16>(PixelARGB8(255, 128, 0, 255)),
              PixelRGBA16(65535, 128 * 257, 0, 65535));
    EXPECT_EQ(pixelCast<PixelARGB8>(PixelGray8(77)), PixelARGB8(77, 77, 77, 255));
    EXPECT_EQ(pixelCast<PixelGray16>(PixelRGBA32(0.2f, 0.9f, 0.5f, 0.1f)),
              PixelGray16::withGray(0.9f));
    EXPECT_EQ(PixelGray8::from(PixelARGB8(10, 200, 30, 0)), PixelGray8(200));
    EXPECT_EQ(PixelARGB8::from(PixelARGB8(1, 2, 3, 4)), PixelARGB8(1, 2, 3, 4));
}

TEST(PixelFormats, DistancesAndInversion) {
    EXPECT_EQ(PixelARGB8(10, 20, 30, 255).distance(PixelARGB8(12, 0, 30, 250)), 20);
    EXPECT_EQ(PixelGray16(5).distance(PixelGray16(65535)), 65530);
    EXPECT_FLOAT_EQ(PixelRGBA32(1, 0, 0, 1).squaredEuclidianDistance(PixelRGBA32(0, 0, 0, 0.5f)),
                    1.25f);
    EXPECT_EQ(PixelARGB8(10, 20, 30, 40).inverted(), PixelARGB8(245, 235, 225, 40));
    PixelRGBA32 f(0.25f, 0, 1, 0.5f);
    f.invert();
    EXPECT_EQ(f, PixelRGBA32(0.75f, 1, 0, 0.5f));
    EXPECT_EQ(PixelGray8(5).inverted(), PixelGray8(250));
    EXPECT_EQ(PixelARGB8(1, 2, 3, 99).trimComponent(), 99);
    EXPECT_EQ(PixelGray8(42).trimComponent(), 42);
}

TEST(PixelFormats, SerialisedFormDependsOnAlphaNotDepth) {
    EXPECT_EQ(coding::encodeJSON(PixelARGB8(255, 0, 0, 255)), "[1.0,0.0,0.0]");
    EXPECT_EQ(coding::encodeJSON(PixelRGBA32(0, 0, 0, 0.999f)), "[0.0,0.0,0.0,0.999]");
    EXPECT_EQ(coding::encodeJSON(PixelGray16(65535)), "[1.0]");
    // 8-bit colours read back exactly into 8 bits and at v × 257 into 16 bits.
    const PixelARGB8 p(17, 200, 3, 128);
    for (auto form : {coding::PropertyListFormat::xml, coding::PropertyListFormat::binary}) {
        const auto bytes = coding::encodePropertyList(p, form);
        EXPECT_EQ(coding::decodePropertyList<PixelARGB8>(bytes), p);
        EXPECT_EQ(coding::decodePropertyList<PixelRGBA16>(bytes),
                  PixelRGBA16(17 * 257, 200 * 257, 3 * 257, 128 * 257));
    }
    EXPECT_EQ(coding::decodeJSON<PixelARGB8>(coding::encodeJSON(p)), p);
    EXPECT_EQ(coding::decodeJSON<PixelRGBA32>("[0.5]"), PixelRGBA32(0.5f, 0.5f, 0.5f, 1));
    EXPECT_EQ(coding::decodeJSON<PixelGray8>("[1.0, 0.0, 0.0]"), PixelGray8(77));
    EXPECT_EQ(coding::decodeJSON<PixelGray8>("[0, 1, 0, 0.5]"), PixelGray8(150));
    EXPECT_EQ(coding::decodeJSON<PixelARGB8>("[2, -1, 0.5, 1]"), PixelARGB8(255, 0, 128, 255));
}

TEST(PixelFormats, MalformedSerialisedPixels) {
    try {
        coding::decodeJSON<PixelARGB8>("[0.1, 0.2]");
        FAIL() << "decoded";
    } catch (const coding::FileReadCorruptError& e) {
        EXPECT_EQ(e.code, 259);
    }
    EXPECT_THROW(coding::decodeJSON<PixelGray32>("[]"), coding::FileReadCorruptError);
    EXPECT_THROW(coding::decodeJSON<PixelGray32>("[1, 2, 3, 4, 5]"), coding::FileReadCorruptError);
    EXPECT_THROW(coding::decodeJSON<PixelRGBA16>("[\"red\"]"), coding::DecodingError);
    EXPECT_THROW(coding::decodeJSON<PixelRGBA16>("{\"r\": 1}"), coding::DecodingError);
}

// Every format and every geometry type survives every file form unchanged.
template <class T>
class SerialisedRoundTrip : public ::testing::Test {};

TYPED_TEST_SUITE(SerialisedRoundTrip, PixelFormats::Apply<::testing::Types>);

TYPED_TEST(SerialisedRoundTrip, ThroughBothPropertyListsAndJSON) {
    std::vector<TypeParam> samples;
    for (int i = 0; i < 64; ++i) {
        const float a = (i * 37 % 101) / 100.0f, b = (i * 53 % 97) / 96.0f, c = (i % 7) / 6.0f;
        if constexpr (RGBAPixel<TypeParam>)
            samples.push_back(TypeParam::withRGBA(a, b, c, i % 3 ? 1.0f : b));
        else
            samples.push_back(TypeParam::withGray(a));
    }
    for (auto form : {coding::PropertyListFormat::xml, coding::PropertyListFormat::binary})
        EXPECT_EQ(coding::decodePropertyList<std::vector<TypeParam>>(
                      coding::encodePropertyList(samples, form)),
                  samples);
    EXPECT_EQ(coding::decodeJSON<std::vector<TypeParam>>(coding::encodeJSON(samples)), samples);
}
