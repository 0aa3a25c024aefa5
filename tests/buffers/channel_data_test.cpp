#include "bic/buffers/channel_data.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/platform/coding/compression.hpp"
#include "bic/platform/coding/formats.hpp"
#include "support/expect_error.hpp"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <zlib.h>

using namespace bic;
using bic::test_support::expectCode;
using Bytes = std::vector<std::uint8_t>;

namespace {

template <class T>
Bytes bytesOf(const std::vector<T>& v) {
    Bytes b(v.size() * sizeof(T));
    if (!b.empty()) std::memcpy(b.data(), v.data(), b.size());
    return b;
}

template <class T>
std::vector<T> samplesOf(const Bytes& b) {
    std::vector<T> v(b.size() / sizeof(T));
    if (!b.empty()) std::memcpy(v.data(), b.data(), b.size());
    return v;
}

ChannelData<std::uint8_t> plane8(const Bytes& b) { return ChannelData<std::uint8_t>(b, false); }

// Photo-like samples: smooth gradients with a little noise, so that prediction pays off.
template <class T>
std::vector<T> photo(std::int64_t w, std::int64_t h, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<T> v(std::size_t(w * h));
    for (std::int64_t y = 0; y < h; ++y)
        for (std::int64_t x = 0; x < w; ++x) {
            const double level = (double(x + y) / double(w + h)) + (random() % 5) / 1000.0;
            if constexpr (std::is_same_v<T, float>)
                v[std::size_t(y * w + x)] = float(level);
            else
                v[std::size_t(y * w + x)] = T(level * double(Component<T>::whiteValue));
        }
    return v;
}

} // namespace

TEST(ChannelData, FiltersOnSmallPlanes) {
    auto up = plane8({1, 2, 3, 4, 5, 6, 7, 8, 9});
    up.compress(ChannelDataCompressionType::none, PredictionType::up, 3, 3, false);
    EXPECT_EQ(up.data, (Bytes{1, 2, 3, 3, 3, 3, 3, 3, 3}));
    EXPECT_TRUE(up.dataIsBigEndian);
    EXPECT_EQ(up.predictionType, PredictionType::up);
    up.decompress(3, 3);
    EXPECT_EQ(up.data, (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_FALSE(up.dataIsBigEndian);
    EXPECT_EQ(up.predictionType, PredictionType::none);

    auto sub = plane8({10, 5, 250});
    sub.compress(ChannelDataCompressionType::none, PredictionType::sub, 3, 1, false);
    EXPECT_EQ(sub.data, (Bytes{10, 251, 245}));

    auto paeth = plane8({9, 8, 7, 6, 50, 60, 5, 70, 80});
    paeth.compress(ChannelDataCompressionType::none, PredictionType::paeth, 3, 3, false);
    EXPECT_EQ(paeth.data[0], 9);
    EXPECT_EQ(paeth.data[2], 7);
    EXPECT_EQ(paeth.data[3], 6);
    EXPECT_EQ(paeth.data[6], 5);
    // (1, 1): a = 6, b = 8, c = 9 → p = 5, closest is a = 6 → 50 − 6.
    EXPECT_EQ(paeth.data[4], 44);

    // Average of 200 and 255 without overflow: 227; first sample predicted from (0, 0).
    auto average = plane8({255, 200, 0, 0});
    average.compress(ChannelDataCompressionType::none, PredictionType::average, 2, 2, false);
    EXPECT_EQ(average.data,
              (Bytes{255, std::uint8_t(200 - 127), std::uint8_t(0 - 127), std::uint8_t(0 - 100)}));

    for (auto p : {PredictionType::sub, PredictionType::up, PredictionType::average,
                   PredictionType::paeth}) {
        ChannelData<std::uint16_t> one(bytesOf(std::vector<std::uint16_t>{0x0102}), false);
        one.compress(ChannelDataCompressionType::none, p, 1, 1, false);
        EXPECT_EQ(one.data, (Bytes{0x01, 0x02})) << "only the byte order changes";
    }
}

TEST(ChannelData, SixteenBitPredictionWorksOnSamples) {
    ChannelData<std::uint16_t> p(
        bytesOf(std::vector<std::uint16_t>{0x0100, 0x00FF, 0xFFFF, 0x0001}), false);
    p.compress(ChannelDataCompressionType::none, PredictionType::sub, 4, 1, false);
    // Residuals 0x0100, 0x00FF − 0x0100 = 0xFFFF, 0xFF00, 0x0002 as big-endian bytes.
    EXPECT_EQ(p.data, (Bytes{0x01, 0x00, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x02}));
}

TEST(ChannelData, EveryDepthPredictionAndCompressionRoundTrips) {
    auto check = [](auto tag) {
        using T = decltype(tag);
        for (auto compression : {ChannelDataCompressionType::none, ChannelDataCompressionType::zip,
                                 ChannelDataCompressionType::rle}) {
            if (compression == ChannelDataCompressionType::rle && sizeof(T) != 1) continue;
            for (auto prediction : {PredictionType::none, PredictionType::sub, PredictionType::up,
                                    PredictionType::average, PredictionType::paeth}) {
                for (auto [w, h] :
                     {std::pair<std::int64_t, std::int64_t>{37, 23}, {1, 5}, {6, 1}, {0, 0}}) {
                    const auto samples = photo<T>(w, h, unsigned(w * 7 + h));
                    ChannelData<T> plane(bytesOf(samples), false);
                    plane.compress(compression, prediction, w, h, false);
                    EXPECT_EQ(plane.compressionType, compression);
                    plane.decompress(w, h);
                    EXPECT_EQ(samplesOf<T>(plane.data), samples)
                        << int(compression) << " " << int(prediction) << " " << w;
                }
            }
        }
    };
    check(std::uint8_t{});
    check(std::uint16_t{});
    check(float{});
}

TEST(ChannelData, FloatPlanesArePredictedOnBytePlanes) {
    ChannelData<float> p(bytesOf(std::vector<float>{1.0f, 2.0f}), false); // 3F800000, 40000000
    p.compress(ChannelDataCompressionType::none, PredictionType::none, 2, 1, false);
    EXPECT_EQ(p.data, (Bytes{0x3F, 0x80, 0, 0, 0x40, 0, 0, 0}));
    ChannelData<float> q(bytesOf(std::vector<float>{1.0f, 2.0f}), false);
    q.compress(ChannelDataCompressionType::none, PredictionType::sub, 2, 1, false);
    // Byte planes 3F 40 | 80 00 | 00 00 | 00 00, then sub over the row of 8 bytes.
    EXPECT_EQ(q.data, (Bytes{0x3F, 0x01, 0x40, 0x80, 0, 0, 0, 0}));
}

TEST(ChannelData, RunLengthRowsAndIneffectiveCompression) {
    Bytes rows(4 * 64);
    for (std::size_t i = 0; i < rows.size(); ++i)
        rows[i] = std::uint8_t(i / 64 * 10);
    auto rle = plane8(rows);
    rle.compress(ChannelDataCompressionType::rle, PredictionType::none, 64, 4, true);
    ASSERT_EQ(rle.scanlineByteCounts.size(), 4u);
    std::int64_t total = 0;
    for (auto c : rle.scanlineByteCounts)
        total += c;
    EXPECT_EQ(total, std::int64_t(rle.data.size()));
    EXPECT_EQ(rle.data.size(), 4u * 2); // each row is one repeat packet of 64 bytes

    std::mt19937 random(1);
    Bytes noise(1000);
    for (auto& b : noise)
        b = std::uint8_t(random());
    auto zip = plane8(noise);
    zip.compress(ChannelDataCompressionType::zip, PredictionType::paeth, 100, 10, true);
    EXPECT_EQ(zip.compressionType, ChannelDataCompressionType::none);
    EXPECT_EQ(zip.predictionType, PredictionType::none);
    EXPECT_TRUE(zip.dataIsBigEndian);
    EXPECT_EQ(zip.data, noise);
    auto kept = plane8(noise);
    kept.compress(ChannelDataCompressionType::zip, PredictionType::paeth, 100, 10, false);
    EXPECT_EQ(kept.compressionType, ChannelDataCompressionType::zip);
    EXPECT_GE(kept.data.size(), noise.size());
    // No compression never saves anything: asked to discard, the prediction goes too, and
    // 16-bit samples stay big-endian.
    auto uncompressed = plane8(noise);
    uncompressed.compress(ChannelDataCompressionType::none, PredictionType::sub, 100, 10, true);
    EXPECT_EQ(uncompressed.predictionType, PredictionType::none);
    EXPECT_EQ(uncompressed.data, noise);
    ChannelData<std::uint16_t> deep(Bytes{0x01, 0x02, 0x03, 0x04}, false);
    deep.compress(ChannelDataCompressionType::none, PredictionType::up, 1, 2, true);
    EXPECT_EQ(deep.predictionType, PredictionType::none);
    EXPECT_EQ(deep.data, (Bytes{0x02, 0x01, 0x04, 0x03}));
}

TEST(ChannelData, InteroperatesWithZlibAndThePublishedPackBitsExample) {
    const auto samples = photo<std::uint16_t>(64, 32, 9);
    ChannelData<std::uint16_t> plane(bytesOf(samples), false);
    plane.compress(ChannelDataCompressionType::zip, PredictionType::up, 64, 32, false);
    Bytes inflated(64 * 32 * 2);
    uLongf size = uLongf(inflated.size());
    ASSERT_EQ(uncompress(inflated.data(), &size, plane.data.data(), uLong(plane.data.size())),
              Z_OK);
    EXPECT_EQ(size, inflated.size());
    // Big-endian residuals against the previous row: row 1, column 0.
    const std::uint16_t residual = std::uint16_t(samples[64] - samples[0]);
    EXPECT_EQ(inflated[128], residual >> 8);
    EXPECT_EQ(inflated[129], residual & 0xFF);

    // A plane deflated by zlib itself decodes.
    const Bytes plain = {0, 1, 0, 2, 0, 3, 0, 4};
    Bytes deflated(compressBound(8));
    uLongf dsize = uLongf(deflated.size());
    ASSERT_EQ(compress2(deflated.data(), &dsize, plain.data(), 8, 9), Z_OK);
    deflated.resize(dsize);
    ChannelData<std::uint16_t> foreign(deflated, true, ChannelDataCompressionType::zip);
    foreign.decompress(4, 1);
    EXPECT_EQ(samplesOf<std::uint16_t>(foreign.data), (std::vector<std::uint16_t>{1, 2, 3, 4}));

    const Bytes packed = {0xFE, 0xAA, 0x02, 0x80, 0x00, 0x2A, 0xFD, 0xAA,
                          0x03, 0x80, 0x00, 0x2A, 0x22, 0xF7, 0xAA};
    const Bytes expected = {0xAA, 0xAA, 0xAA, 0x80, 0x00, 0x2A, 0xAA, 0xAA, 0xAA, 0xAA, 0x80, 0x00,
                            0x2A, 0x22, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
    EXPECT_EQ(coding::unpackBits(packed, 24), expected);
    EXPECT_EQ(coding::unpackBits(coding::packBits(expected), 24), expected);
    Bytes mixed(300);
    for (std::size_t i = 0; i < mixed.size(); ++i)
        mixed[i] = i < 150 ? std::uint8_t(i) : 7;
    EXPECT_EQ(coding::unpackBits(coding::packBits(mixed), 300), mixed);
    EXPECT_EQ(coding::unpackBits(Bytes{0x80, 0x00, 0x05}, 1),
              Bytes{0x05}); // 0x80 is a no-op header
}

TEST(ChannelData, LargePlanesAreDeflatedInPartsIntoOneZlibStream) {
    // Planes of two and three 8 MB parts: photographs (dynamic blocks), noise (stored blocks)
    // and constant runs, at lengths that end the parts on different bits of their last bytes.
    std::mt19937 random(11);
    std::vector<Bytes> planes;
    for (std::int64_t extra : {0, 1, 77})
        planes.push_back(bytesOf(photo<std::uint8_t>(4096, 4096 + extra, unsigned(extra) + 3)));
    Bytes noise((std::size_t(17) << 20) + 5);
    for (auto& b : noise)
        b = std::uint8_t(random());
    planes.push_back(noise);
    planes.push_back(Bytes((std::size_t(24) << 20) + 3, 0x5A));
    for (const Bytes& plain : planes) {
        const Bytes z = coding::zipCompressed(plain);
        Bytes inflated(plain.size());
        uLongf size = uLongf(inflated.size());
        ASSERT_EQ(uncompress(inflated.data(), &size, z.data(), uLong(z.size())), Z_OK);
        EXPECT_EQ(size, plain.size());
        EXPECT_TRUE(inflated == plain);
        EXPECT_TRUE(coding::zipUncompressed(z, plain.size()) == plain);
    }
}

TEST(ChannelData, DamagedDataIsAnErrorAndLeavesThePlane) {
    auto rle = plane8(Bytes(16, 3));
    rle.compress(ChannelDataCompressionType::rle, PredictionType::sub, 4, 4, false);
    const auto intact = rle;

    auto wrongCount = intact;
    wrongCount.scanlineByteCounts.pop_back();
    expectCode([&] { wrongCount.decompress(4, 4); }, ImageCoreError::unknownError);
    auto pastEnd = intact;
    pastEnd.scanlineByteCounts.back() += 5;
    expectCode([&] { pastEnd.decompress(4, 4); }, ImageCoreError::fileReadCorruptedDataError);
    EXPECT_EQ(pastEnd.data, intact.data);
    auto negative = intact;
    negative.scanlineByteCounts[0] = -1;
    expectCode([&] { negative.decompress(4, 4); }, ImageCoreError::fileReadCorruptedDataError);
    auto shortRow = intact;
    shortRow.data = {0x00, 0x01, 0x00, 0x01, 0x00, 0x01, 0x00, 0x01}; // one byte a row
    shortRow.scanlineByteCounts = {2, 2, 2, 2};
    expectCode([&] { shortRow.decompress(4, 4); }, ImageCoreError::fileReadCorruptedDataError);
    auto longRow = intact;
    longRow.data = {0xF9, 0x01, 0xF9, 0x01, 0xF9, 0x01, 0xF9, 0x01}; // 8 bytes a row into 4
    longRow.scanlineByteCounts = {2, 2, 2, 2};
    EXPECT_THROW(longRow.decompress(4, 4), coding::CompressionError);
    EXPECT_EQ(longRow.compressionType, ChannelDataCompressionType::rle);

    auto zip = ChannelData<float>(bytesOf(photo<float>(16, 16, 3)), false);
    zip.compress(ChannelDataCompressionType::zip, PredictionType::up, 16, 16, false);
    auto truncated = zip;
    truncated.data.resize(truncated.data.size() / 2);
    EXPECT_THROW(truncated.decompress(16, 16), coding::CompressionError);
    auto corrupt = zip;
    corrupt.data[corrupt.data.size() / 2] ^= 0x5A;
    EXPECT_THROW(corrupt.decompress(16, 16), coding::CompressionError);
    EXPECT_EQ(corrupt.compressionType, ChannelDataCompressionType::zip);
    EXPECT_THROW(zip.decompress(16, 15), coding::CompressionError) << "a plane of another size";
    ChannelData<std::uint8_t> plainWrong(Bytes(5), true);
    expectCode([&] { plainWrong.decompress(2, 2); }, ImageCoreError::fileReadCorruptedDataError);

    // Sizes from a damaged record: refused before a plane that large is allocated.
    EXPECT_THROW(zip.decompress(1 << 20, 1 << 20), coding::CompressionError);
    expectCode([&] { zip.decompress(std::int64_t(1) << 40, std::int64_t(1) << 40); },
               ImageCoreError::fileReadCorruptedDataError);
    auto huge = intact;
    huge.scanlineByteCounts.assign(1 << 16, 0);
    expectCode([&] { huge.decompress(1 << 16, 1 << 16); },
               ImageCoreError::fileReadCorruptedDataError);
    EXPECT_EQ(zip.compressionType, ChannelDataCompressionType::zip);
}

TEST(ChannelData, SerialisedForm) {
    ChannelData<std::uint16_t> p(bytesOf(std::vector<std::uint16_t>{0x0102}), false);
    p.compress(ChannelDataCompressionType::none, PredictionType::none, 1, 1, false);
    const coding::Value v = coding::encode(p);
    EXPECT_EQ(*v.find("Compression"), coding::Value("None"));
    EXPECT_EQ(v.find("Prediction"), nullptr);
    EXPECT_EQ(*v.find("Data"), coding::Value(Bytes{0x01, 0x02}));

    auto zipped = ChannelData<std::uint8_t>(bytesOf(photo<std::uint8_t>(20, 20, 4)), false);
    zipped.compress(ChannelDataCompressionType::zip, PredictionType::paeth, 20, 20, false);
    for (auto form : {coding::PropertyListFormat::xml, coding::PropertyListFormat::binary})
        EXPECT_EQ(coding::decodePropertyList<ChannelData<std::uint8_t>>(
                      coding::encodePropertyList(zipped, form)),
                  zipped);
    EXPECT_EQ(coding::decodeJSON<ChannelData<std::uint8_t>>(coding::encodeJSON(zipped)), zipped);

    const auto bare = coding::decodeJSON<ChannelData<std::uint8_t>>("{\"Data\": \"AQID\"}");
    EXPECT_EQ(bare.compressionType, ChannelDataCompressionType::none);
    EXPECT_EQ(bare.predictionType, PredictionType::none);
    EXPECT_TRUE(bare.dataIsBigEndian);
    EXPECT_EQ(bare.data, (Bytes{1, 2, 3}));
    EXPECT_THROW(coding::decodeJSON<ChannelData<std::uint8_t>>("{\"Compression\": \"None\"}"),
                 coding::DecodingError);
    EXPECT_THROW(
        coding::decodeJSON<ChannelData<std::uint8_t>>("{\"Compression\": \"LZW\", \"Data\": \"\"}"),
        coding::DecodingError);
    EXPECT_THROW(
        coding::decodeJSON<ChannelData<std::uint8_t>>("{\"Prediction\": \"up\", \"Data\": \"\"}"),
        coding::DecodingError);
    EXPECT_EQ(rawValue(ChannelDataCompressionType::rle), "RLE");
    EXPECT_EQ(predictionTypeFromRaw("Average"), PredictionType::average);
    EXPECT_FALSE(compressionTypeFromRaw("zip"));
}

TEST(ChannelDataDeathTest, CallerErrorsStop) {
    EXPECT_DEATH(plane8(Bytes(5)).compress(ChannelDataCompressionType::none, PredictionType::none,
                                           2, 2, false),
                 "width × height");
    ChannelData<std::uint16_t> wide(Bytes(8), false);
    EXPECT_DEATH(wide.compress(ChannelDataCompressionType::rle, PredictionType::none, 2, 2, false),
                 "8-bit");
    ChannelData<std::uint8_t> host(Bytes(4), false);
    EXPECT_DEATH(host.decompress(2, 2), "big-endian");
    EXPECT_DEATH(coding::encode(host), "big-endian");
    ChannelData<std::uint8_t> twice(Bytes(4), true);
    EXPECT_DEATH(twice.convertToBigEndian(), "already");
}
