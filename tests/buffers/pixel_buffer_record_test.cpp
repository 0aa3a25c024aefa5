#include "bic/buffers/pixel_buffer_record.hpp"
#include "bic/platform/coding/compression.hpp"
#include "bic/platform/coding/formats.hpp"
#include "support/buffers.hpp"
#include "support/expect_error.hpp"

#include <gtest/gtest.h>

using namespace bic;
using bic::test_support::expectCode;
using bic::test_support::filled;

namespace {

coding::Value recordOf(const PixelBufferType& buffer) {
    coding::Value root;
    coding::Encoder encoder(root, {});
    encode(buffer, encoder);
    return root;
}

coding::Dictionary& fields(coding::Value& record) { return *record.get<coding::Dictionary>(); }

coding::Value* field(coding::Value& record, std::string_view key) {
    for (auto& [k, v] : fields(record))
        if (k == key) return &v;
    return nullptr;
}

void set(coding::Value& record, std::string_view key, coding::Value value) {
    if (auto* v = field(record, key))
        *v = std::move(value);
    else
        fields(record).emplace_back(std::string(key), std::move(value));
}

void erase(coding::Value& record, std::string_view key) {
    std::erase_if(fields(record), [&](const auto& kv) { return kv.first == key; });
}

coding::Array& planes(coding::Value& record) {
    return *field(record, "Channels")->get<coding::Array>();
}

PixelBufferType read(const coding::Value& record) {
    return coding::decode<PixelBufferDecoder>(record).pixelBuffer;
}

// A smooth gradient: deflate after horizontal prediction makes it small.
PixelBuffer<PixelARGB8> gradient(std::int64_t w, std::int64_t h) {
    PixelBuffer<PixelARGB8> b(IntegralSize(w, h), cg::ColorSpace::deviceRGB());
    b.withUnsafeBuffer([&](std::span<PixelARGB8> p) {
        for (std::int64_t y = 0; y < h; ++y)
            for (std::int64_t x = 0; x < w; ++x)
                p[std::size_t(y * b.pixelsPerRow() + x)] =
                    PixelARGB8(std::uint8_t(x), std::uint8_t(y), std::uint8_t(x + y), 255);
    });
    return b;
}

} // namespace

TEST(PixelBufferRecord, WrittenFields) {
    PixelBuffer<PixelGray8> grey(IntegralSize(2, 2), cg::ColorSpace::deviceGray());
    coding::Value record = recordOf(grey);
    std::vector<std::string> keys;
    for (const auto& [k, v] : fields(record))
        keys.push_back(k);
    EXPECT_EQ(keys, (std::vector<std::string>{"Size", "Model", "Bit Depth", "Is Premultiplied",
                                              "Channels"}));
    EXPECT_EQ(*field(record, "Size"), coding::Value(coding::Array{2, 2}));
    EXPECT_EQ(*field(record, "Model"), coding::Value("Monochrome"));
    EXPECT_EQ(*field(record, "Bit Depth"), coding::Value(8));
    EXPECT_EQ(*field(record, "Is Premultiplied"), coding::Value(true));
    ASSERT_EQ(planes(record).size(), 1u);
    // Four bytes do not deflate smaller: stored plain, without a prediction key.
    const auto& plane = planes(record)[0];
    EXPECT_EQ(*plane.find("Compression"), coding::Value("None"));
    EXPECT_EQ(plane.find("Prediction"), nullptr);

    coding::Value smooth = recordOf(gradient(64, 64));
    ASSERT_EQ(planes(smooth).size(), 4u);
    EXPECT_EQ(*field(smooth, "Model"), coding::Value("RGB"));
    for (const auto& p : planes(smooth)) {
        EXPECT_EQ(*p.find("Compression"), coding::Value("Zip"));
        EXPECT_EQ(*p.find("Prediction"), coding::Value("Sub"));
    }
    // Stored order is red, green, blue, alpha although the format keeps alpha first.
    auto decoded = [&](int i) {
        auto p = coding::decode<ChannelData<std::uint8_t>>(planes(smooth)[std::size_t(i)]);
        p.decompress(64, 64);
        return p.data;
    };
    EXPECT_EQ(decoded(3), std::vector<std::uint8_t>(64 * 64, 255));
    const auto red = decoded(0);
    EXPECT_EQ(red[64 + 5], 5);
    EXPECT_EQ(decoded(1)[64 * 7 + 5], 7);
}

void expectRoundTripsThroughEveryFileForm(const PixelBufferType& buffer) {
    const coding::Value record = recordOf(buffer);
    for (auto form : {coding::PropertyListFormat::binary, coding::PropertyListFormat::xml}) {
        const auto bytes = coding::writePropertyList(record, form);
        const auto back = read(coding::readPropertyList(bytes));
        EXPECT_TRUE(equal(back, buffer)) << buffer.index();
        std::visit([](const auto& b) { EXPECT_EQ(b.title(), ""); }, back);
    }
    EXPECT_TRUE(equal(read(coding::readJSON(coding::writeJSON(record))), buffer));
}

template <class P>
class PixelBufferRecordOf : public ::testing::Test {};
TYPED_TEST_SUITE(PixelBufferRecordOf, test_support::EachPixelFormat);

TYPED_TEST(PixelBufferRecordOf, RoundTripsThroughEveryFileForm) {
    // Random pixels are stored plain; a smooth gradient deflates with prediction.
    expectRoundTripsThroughEveryFileForm(filled<TypeParam>(9, 7, 1));
    PixelBuffer<TypeParam> smooth(IntegralSize(40, 30), TypeParam::deviceColorSpace());
    smooth.withUnsafeBuffer([&](std::span<TypeParam> p) {
        for (std::size_t i = 0; i < p.size(); ++i) {
            const float v = float(i % 40 + i / 40) / 80.0f;
            if constexpr (RGBAPixel<TypeParam>)
                p[i] = TypeParam::withRGBA(v, 1 - v, v / 2, 1);
            else
                p[i] = TypeParam::withGray(v);
        }
    });
    expectRoundTripsThroughEveryFileForm(smooth);
}

TEST(PixelBufferRecord, HeaderErrorsComeInOrder) {
    const coding::Value good = recordOf(filled<PixelARGB8>(3, 2, 7));
    auto variant = [&](std::initializer_list<std::pair<const char*, coding::Value>> changes) {
        coding::Value r = good;
        for (const auto& [k, v] : changes)
            set(r, k, v);
        return r;
    };
    expectCode(
        [&] {
            read(variant({{"Model", "CMYK"}}));
        },
        ImageCoreError::fileReadUnsupportedColorModelError);
    expectCode(
        [&] {
            read(variant({{"Model", "Unknown"}}));
        },
        ImageCoreError::fileReadUnsupportedColorModelError);
    expectCode(
        [&] {
            read(variant({{"Model", "CMYK"}, {"Bit Depth", 12}}));
        },
        ImageCoreError::fileReadUnsupportedBitDepthError);
    for (const std::int64_t depth :
         {std::int64_t(0), std::int64_t(1) << 32, -(std::int64_t(1) << 40)})
        expectCode(
            [&] {
                read(variant({{"Bit Depth", depth}}));
            },
            ImageCoreError::fileReadUnsupportedBitDepthError);
    expectCode(
        [&] {
            read(variant({{"Model", "LAB"}, {"Bit Depth", 12}, {"Is Premultiplied", false}}));
        },
        ImageCoreError::fileReadUnpremultipliedImageDataUnsupported);

    // A missing flag counts as premultiplied; a grey record may say it is not.
    coding::Value noFlag = good;
    erase(noFlag, "Is Premultiplied");
    EXPECT_TRUE(equal(read(noFlag), read(good)));
    coding::Value grey = recordOf(filled<PixelGray16>(3, 2, 8));
    set(grey, "Is Premultiplied", false);
    EXPECT_TRUE(std::holds_alternative<PixelBuffer<PixelGray16>>(read(grey)));

    // The decoder's own errors for strings outside the table, missing keys and wrong types.
    auto expectDecodingError = [](const coding::Value& r, coding::DecodingError::Kind kind) {
        try {
            read(r);
            ADD_FAILURE() << "no error";
        } catch (const coding::DecodingError& e) {
            EXPECT_EQ(e.kind(), kind) << e.what();
        }
    };
    expectDecodingError(variant({{"Model", "Grey"}}), coding::DecodingError::Kind::dataCorrupted);
    expectDecodingError(variant({{"Bit Depth", "8"}}), coding::DecodingError::Kind::typeMismatch);
    coding::Value noSize = good;
    erase(noSize, "Size");
    expectDecodingError(noSize, coding::DecodingError::Kind::keyNotFound);
}

TEST(PixelBufferRecord, DamagedPlanesAreErrors) {
    const coding::Value good = recordOf(gradient(50, 20));
    auto damaged = [&](auto change) {
        coding::Value r = good;
        change(r);
        return r;
    };
    auto data = [](coding::Value& r, int i) -> coding::Data& {
        return *const_cast<coding::Value*>(planes(r)[std::size_t(i)].find("Data"))
                    ->get<coding::Data>();
    };
    expectCode([&] { read(damaged([](coding::Value& r) { planes(r).pop_back(); })); },
               ImageCoreError::parameterError);
    expectCode([&] { read(damaged([&](coding::Value& r) { planes(r).push_back(planes(r)[0]); })); },
               ImageCoreError::parameterError);
    // Truncated and corrupted deflate streams.
    for (auto change : std::vector<std::function<void(coding::Data&)>>{
             [](coding::Data& d) { d.resize(d.size() / 2); },
             [](coding::Data& d) { d[d.size() / 2] ^= 0x5a, d[d.size() / 2 + 1] ^= 0xa5; },
             [](coding::Data& d) { d.clear(); }}) {
        const coding::Value r = damaged([&](coding::Value& v) { change(data(v, 1)); });
        EXPECT_ANY_THROW(read(r));
    }
    // A plain plane one sample short, and one of 16-bit samples in an 8-bit record.
    const coding::Value plain = recordOf(filled<PixelGray8>(5, 5, 9));
    coding::Value shortPlane = plain;
    data(shortPlane, 0).pop_back();
    expectCode([&] { read(shortPlane); }, ImageCoreError::fileReadCorruptedDataError);
    coding::Value deep = plain;
    set(deep, "Bit Depth", 16);
    expectCode([&] { read(deep); }, ImageCoreError::fileReadCorruptedDataError);
}

TEST(PixelBufferFactory, MakesTheFormatOfModelAndDepth) {
    const auto argb = filled<PixelARGB8>(6, 4, 3);
    const PixelBufferType fromCG = PixelBufferFactory::make(
        cg::ColorSpaceModel::rgb, 16, argb.cgImage(), cg::ColorSpace::deviceRGB(), "deep");
    ASSERT_TRUE(std::holds_alternative<PixelBuffer<PixelRGBA16>>(fromCG));
    EXPECT_EQ(std::get<PixelBuffer<PixelRGBA16>>(fromCG).title(), "deep");
    EXPECT_TRUE(equal(converted(fromCG, 8), PixelBufferType(argb)));

    const PixelBufferType fromCI = PixelBufferFactory::make(
        cg::ColorSpaceModel::monochrome, 32, ci::Image::constant(ci::Color{0.25f, 0.25f, 0.25f, 1}),
        cg::Rect(0.5, 0.5, 2, 2));
    const auto& grey = std::get<PixelBuffer<PixelGray32>>(fromCI);
    EXPECT_EQ(grey.size(), IntegralSize(3, 3));
    EXPECT_FLOAT_EQ(grey(2, 2)->gray(), 0.25f);

    const auto planes = filled<PixelGray16>(4, 4, 5).compressedChannels(
        true, ChannelDataCompressionType::zip, PredictionType::up, false);
    const auto expanded = PixelBufferFactory::make(planes, true, IntegralSize(4, 4),
                                                   cg::ColorSpaceModel::monochrome, 16);
    EXPECT_TRUE(std::holds_alternative<PixelBuffer<PixelGray16>>(expanded));
    expectCode(
        [&] {
            PixelBufferFactory::make(planes, true, IntegralSize(4, 4), cg::ColorSpaceModel::cmyk,
                                     16);
        },
        ImageCoreError::fileReadUnsupportedColorModelError);
    expectCode(
        [&] {
            PixelBufferFactory::make(planes, true, IntegralSize(4, 4), cg::ColorSpaceModel::cmyk,
                                     1);
        },
        ImageCoreError::fileReadUnsupportedBitDepthError);
    expectCode(
        [&] {
            PixelBufferFactory::make(planes, true, IntegralSize(4, 4),
                                     cg::ColorSpaceModel::monochrome, 8);
        },
        ImageCoreError::parameterError);
    // 40000 cannot come from reducing: expanding it is corrupt data, and nothing is returned.
    const ChannelData<std::uint16_t> big({0, 1, 0, 2, 0, 3, 0x9c, 0x40}, true);
    expectCode(
        [&] {
            PixelBufferFactory::make({big}, true, IntegralSize(2, 2),
                                     cg::ColorSpaceModel::monochrome, 16);
        },
        ImageCoreError::fileReadCorruptedDataError);
}

TEST(PixelBufferFactoryDeathTest, UnsupportedFormatsFromCodeStop) {
    const auto argb = filled<PixelARGB8>(2, 2, 3);
    EXPECT_DEATH(PixelBufferFactory::make(cg::ColorSpaceModel::cmyk, 8, argb.cgImage(),
                                          cg::ColorSpace::deviceRGB()),
                 "Unsupported color model\\.");
    EXPECT_DEATH(
        PixelBufferFactory::make(cg::ColorSpaceModel::rgb, 12, argb.image(), cg::Rect(0, 0, 2, 2)),
        "Unsupported bit depth\\.");
}
