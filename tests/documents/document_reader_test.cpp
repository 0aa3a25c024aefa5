#include "bic/documents/layered_document.hpp"
#include "document_test_support.hpp"

#include <gtest/gtest.h>

namespace bic {
namespace {

using test_support::BigEndian;
using test_support::header;
using Kind = DocumentError::Kind;

// Reads `bytes` expecting a DocumentError of `kind` whose message contains `text`.
void expectError(const std::vector<std::uint8_t>& bytes, Kind kind, const std::string& text) {
    try {
        LayeredDocument::read(bytes);
        ADD_FAILURE() << "read, expected: " << text;
    } catch (const DocumentError& e) {
        EXPECT_EQ(e.kind(), kind) << e.what();
        EXPECT_NE(std::string(e.what()).find(text), std::string::npos) << e.what();
    }
}

// A document of `width` × `height` with no resources or layers and a raw composite whose
// samples count up from 1.
BigEndian rawDocument(std::uint16_t version, std::uint16_t channels, std::uint32_t height,
                      std::uint32_t width, std::uint16_t mode = 3) {
    BigEndian b = header(version, channels, height, width, 8, mode);
    b.u32(0).u32(0);
    version == 2 ? b.u64(0) : b.u32(0);
    b.u16(0);
    for (std::uint32_t i = 0; i < channels * width * height; ++i)
        b.u8(std::uint8_t(i + 1));
    return b;
}

TEST(DocumentHeader, RefusesWhatIsNoReadableDocument) {
    expectError({}, Kind::notADocument, "the file is empty");
    expectError({'8', 'B', 'P', 'S', 0, 1}, Kind::truncated, "too short for a header");
    std::vector<std::uint8_t> other = rawDocument(1, 3, 1, 1).bytes;
    other[0] = 'X';
    expectError(other, Kind::notADocument, "not a layered document");
    expectError(rawDocument(3, 3, 1, 1).bytes, Kind::unsupportedVersion, "version 3");
    expectError(rawDocument(1, 2, 1, 1).bytes, Kind::corrupt, "2 channels for RGB");
    expectError(rawDocument(1, 57, 1, 1).bytes, Kind::corrupt, "57 channels");
}

TEST(DocumentHeader, NamesEveryUnsupportedColourMode) {
    const std::pair<std::uint16_t, const char*> modes[] = {
        {0, "Bitmap"},  {2, "Indexed"}, {4, "CMYK"},  {7, "Multichannel"},
        {8, "Duotone"}, {9, "Lab"},     {5, "mode 5"}};
    for (const auto& [mode, name] : modes)
        expectError(rawDocument(1, 4, 1, 1, mode).bytes, Kind::unsupportedColorMode,
                    std::string("unsupported colour mode ") + name);
}

TEST(DocumentHeader, RefusesDepthsOtherThan8_16And32) {
    for (const std::uint16_t depth : {1, 4, 17, 24, 64}) {
        BigEndian b = header(1, 3, 1, 1, depth, 3);
        b.u32(0).u32(0).u32(0).u16(0).u32(0);
        expectError(b.bytes, Kind::unsupportedBitDepth,
                    "unsupported bit depth " + std::to_string(depth));
    }
}

TEST(DocumentHeader, RefusesSizesBeyondTheFormatAndTheFileAtOnce) {
    expectError(rawDocument(1, 3, 1, 30001).bytes, Kind::tooLarge, "sides must be 1 to 30000");
    expectError(rawDocument(1, 3, 0, 1).bytes, Kind::tooLarge, "0 pixels");
    // A 30,000 × 30,000 header on a file of 100 bytes: refused before anything else is read.
    BigEndian huge = header(1, 3, 30000, 30000, 8, 3);
    huge.bytes.resize(100);
    expectError(huge.bytes, Kind::truncated, "a 30000 × 30000 document needs more than");
    // PSB allows ten times more, but not beyond.
    BigEndian larger = header(2, 3, 1, 300001, 8, 3);
    larger.bytes.resize(100);
    expectError(larger.bytes, Kind::tooLarge, "sides must be 1 to 300000");
}

TEST(DocumentComposite, ReadsRawPlanesInChannelOrder) {
    const LayeredDocument doc = LayeredDocument::read(rawDocument(1, 3, 2, 2).bytes);
    EXPECT_EQ(doc.width, 2);
    EXPECT_EQ(doc.height, 2);
    EXPECT_FALSE(doc.isLargeDocument);
    ASSERT_EQ(doc.composite.size(), 3u);
    EXPECT_EQ(doc.compositeCompression, ChannelCompression::raw);
    EXPECT_EQ(doc.composite[1].bytes(), (ByteBuffer{5, 6, 7, 8}));
    EXPECT_TRUE(doc.layers.empty());
    EXPECT_TRUE(doc.issues.empty());
    EXPECT_FALSE(doc.compositeHasTransparency());
}

TEST(DocumentComposite, RunLengthRowsCountTwoBytesInPSDAndFourInPSB) {
    // A 16-bit grey 3 × 2 composite: PackBits over the rows' big-endian bytes.
    for (const std::uint16_t version : {1, 2}) {
        BigEndian b = header(version, 1, 2, 3, 16, 1);
        b.u32(0).u32(0);
        version == 2 ? b.u64(0) : b.u32(0);
        b.u16(1);
        // Row 0: literal 01 02 03 04 05 06; row 1: six bytes of 0xAB repeated.
        const std::vector<std::uint8_t> row0{5, 1, 2, 3, 4, 5, 6}, row1{std::uint8_t(-5), 0xAB};
        for (const auto* row : {&row0, &row1})
            version == 2 ? b.u32(std::uint32_t(row->size())) : b.u16(std::uint16_t(row->size()));
        b.append(row0).append(row1);
        const LayeredDocument doc = LayeredDocument::read(b.bytes);
        EXPECT_EQ(doc.isLargeDocument, version == 2);
        ASSERT_EQ(doc.composite.size(), 1u);
        EXPECT_EQ(doc.composite[0].sample<std::uint16_t>(0), 0x0102);
        EXPECT_EQ(doc.composite[0].sample<std::uint16_t>(2), 0x0506);
        EXPECT_EQ(doc.composite[0].sample<std::uint16_t>(4), 0xABAB);
    }
}

TEST(DocumentComposite, DamagedCompositesAreOneError) {
    BigEndian unknown = header(1, 3, 1, 1, 8, 3);
    unknown.u32(0).u32(0).u32(0).u16(0xBEEF).u8(1).u8(2).u8(3);
    expectError(unknown.bytes, Kind::unsupportedCompression,
                "the composite: unknown compression 48879");
    BigEndian shortRaw = rawDocument(1, 3, 2, 2);
    shortRaw.bytes.pop_back();
    expectError(shortRaw.bytes, Kind::truncated, "the composite image data");
    BigEndian badRows = header(1, 1, 1, 4, 8, 1);
    badRows.u32(0).u32(0).u32(0).u16(1).u16(2).u8(0).u8(9);
    expectError(badRows.bytes, Kind::corrupt, "the composite");
}

TEST(DocumentResources, KeepsEveryBlockAndInterpretsThree) {
    BigEndian resources;
    // Resolution 300 × 72.5 pixels per inch (16.16 fixed point), a two-byte ICC "profile",
    // version info saying the composite is real, and one the reader does not know with an odd
    // name and odd length (both padded to even).
    resources.chars("8BIM").u16(1005).u16(0).u32(16);
    resources.u32(300u << 16).u16(1).u16(2).u32(72u << 16 | 0x8000).u16(1).u16(1);
    resources.chars("8BIM").u16(1039).u16(0).u32(2).u8(0xAA).u8(0xBB);
    resources.chars("8BIM").u16(1057).u16(0).u32(5).u32(1).u8(1).u8(0);
    resources.chars("MeSa").u16(7000).u8(2).chars("ab").u8(0).u32(1).u8(9).u8(0);
    BigEndian b = header(1, 3, 1, 1, 8, 3);
    b.u32(0).u32(std::uint32_t(resources.bytes.size())).append(resources.bytes);
    b.u32(0).u16(0).u8(1).u8(2).u8(3);
    const LayeredDocument doc = LayeredDocument::read(b.bytes);
    ASSERT_EQ(doc.resources.size(), 4u);
    EXPECT_EQ(doc.resources[3].signature, "MeSa");
    EXPECT_EQ(doc.resources[3].name, "ab");
    EXPECT_EQ(doc.resources[3].bytes, std::vector<std::uint8_t>{9});
    const auto resolution = doc.resolution();
    ASSERT_TRUE(resolution);
    EXPECT_EQ(resolution->horizontal, 300);
    EXPECT_EQ(resolution->vertical, 72.5);
    EXPECT_EQ(resolution->widthUnit, 2);
    EXPECT_EQ(doc.iccProfile(), (std::vector<std::uint8_t>{0xAA, 0xBB}));
    EXPECT_EQ(doc.hasRealMergedData(), true);
    EXPECT_EQ(ResolutionInfo::fromBytes(resolution->bytes()), resolution);
}

// A layer section holding one record of `extra` and the given channels' data.
BigEndian oneLayerDocument(const BigEndian& record, const BigEndian& channelData,
                           std::int16_t count = 1) {
    BigEndian info;
    info.u16(std::uint16_t(count)).append(record.bytes).append(channelData.bytes);
    BigEndian section;
    section.u32(std::uint32_t(info.bytes.size())).append(info.bytes).u32(0);
    BigEndian b = header(1, 3, 1, 1, 8, 3);
    b.u32(0).u32(0).u32(std::uint32_t(section.bytes.size())).append(section.bytes);
    b.u16(0).u8(1).u8(2).u8(3);
    return b;
}

BigEndian record(const std::string& key, const BigEndian& extra, std::uint16_t channels = 0) {
    BigEndian r;
    r.u32(0).u32(0).u32(1).u32(1).u16(channels);
    for (std::uint16_t c = 0; c < channels; ++c)
        r.u16(c).u32(3);
    r.chars("8BIM").chars(key).u8(255).u8(0).u8(8).u8(0);
    r.u32(std::uint32_t(extra.bytes.size())).append(extra.bytes);
    return r;
}

BigEndian extraData(const std::string& name, const BigEndian& blocks) {
    BigEndian e;
    e.u32(0).u32(0).u8(std::uint8_t(name.size())).chars(name);
    for (std::size_t n = 1 + name.size(); n % 4; ++n)
        e.u8(0);
    return e.append(blocks.bytes);
}

TEST(DocumentLayers, AnUnknownBlendKeyIsKeptAndReported) {
    BigEndian channels;
    for (int c = 0; c < 3; ++c)
        channels.u16(0).u8(std::uint8_t(10 * c));
    const LayeredDocument doc = LayeredDocument::read(
        oneLayerDocument(record("BoEF", extraData("odd", {}), 3), channels).bytes);
    ASSERT_EQ(doc.layers.size(), 1u);
    EXPECT_EQ(doc.layers[0].name, "odd");
    EXPECT_EQ(doc.layers[0].blendKey, "BoEF");
    EXPECT_FALSE(doc.layers[0].blendMode);
    EXPECT_EQ(doc.layers[0].channels[2].plane.sample<std::uint8_t>(0), 20);
    ASSERT_EQ(doc.issues.size(), 1u);
    EXPECT_EQ(doc.issues[0].layerIndex, 0u);
    EXPECT_EQ(doc.issues[0].message, "layer 0 \"odd\": unknown blend mode key 'BoEF'");
}

TEST(DocumentLayers, UnicodeNameFillOpacityAndPaddingOfTaggedBlocks) {
    BigEndian blocks;
    // "luni" of "Äb" (odd length, padding not counted), then "iOpa".
    blocks.chars("8BIM").chars("luni").u32(8).u32(2).u16(0xC4).u16('b');
    blocks.u16(0);
    blocks.chars("8BIM").chars("iOpa").u32(4).u8(51).u8(0).u8(0).u8(0);
    const LayeredDocument doc =
        LayeredDocument::read(oneLayerDocument(record("norm", extraData("Ab", blocks)), {}).bytes);
    ASSERT_EQ(doc.layers.size(), 1u);
    EXPECT_EQ(doc.layers[0].name, "Äb");
    EXPECT_EQ(doc.layers[0].fillOpacity, 51);
    ASSERT_EQ(doc.layers[0].blocks.size(), 2u);
    EXPECT_EQ(doc.layers[0].blocks[1].key, "iOpa");
}

TEST(DocumentLayers, NamesLoseTheirPaddingNULsInBothForms) {
    // A one-byte name padded with NULs and no Unicode name: the name a write and read keep.
    const LayeredDocument doc = LayeredDocument::read(
        oneLayerDocument(record("norm", extraData(std::string("ab\0\0", 4), {})), {}).bytes);
    ASSERT_EQ(doc.layers.size(), 1u);
    EXPECT_EQ(doc.layers[0].name, "ab");
    EXPECT_EQ(LayeredDocument::read(doc.write()).layers[0].name, "ab");
}

TEST(DocumentLayers, OnlyTheFirstSectionDividerBlockCounts) {
    // A plain layer (type 0) with a second divider block claiming an open group: the first
    // rules, and a write keeps the second as it was.
    BigEndian blocks;
    blocks.chars("8BIM").chars("lsct").u32(4).u32(0);
    blocks.chars("8BIM").chars("lsct").u32(12).u32(1).chars("8BIM").chars("pass");
    const LayeredDocument doc =
        LayeredDocument::read(oneLayerDocument(record("norm", extraData("a", blocks)), {}).bytes);
    ASSERT_EQ(doc.layers.size(), 1u);
    EXPECT_FALSE(doc.layers[0].isGroup());
    EXPECT_EQ(doc.layers[0].blendKey, "norm");
    const LayeredDocument back = LayeredDocument::read(doc.write());
    ASSERT_EQ(back.layers.size(), 1u);
    EXPECT_FALSE(back.layers[0].isGroup());
    EXPECT_EQ(back.layers[0].blocks[1].bytes, doc.layers[0].blocks[1].bytes);
}

TEST(DocumentLayers, CountsAndLengthsAreCheckedBeforeUse) {
    // 30,000 records announced in a few bytes.
    expectError(oneLayerDocument(record("norm", extraData("a", {})), {}, 30000).bytes,
                Kind::truncated, "the layer records");
    // A channel whose data is longer than what remains.
    BigEndian r = record("norm", extraData("a", {}), 1);
    expectError(oneLayerDocument(r, {}).bytes, Kind::truncated, "its data says 3 bytes");
    // Inverted bounds.
    BigEndian inverted = record("norm", extraData("a", {}));
    inverted.bytes[3] = 5;
    expectError(oneLayerDocument(inverted, {}).bytes, Kind::corrupt, "bounds are inverted");
    // A tagged block longer than the extra data.
    BigEndian blocks;
    blocks.chars("8BIM").chars("abcd").u32(1000);
    expectError(oneLayerDocument(record("norm", extraData("a", blocks)), {}).bytes, Kind::truncated,
                "tagged block 'abcd' says 1000 bytes");
}

TEST(DocumentLayers, TruncationAnywhereIsOneCleanError) {
    const std::vector<std::uint8_t> whole =
        test_support::sampleDocument(8).write(DocumentWriteOptions{});
    ASSERT_NO_THROW(LayeredDocument::read(whole));
    for (std::size_t n = 0; n < whole.size(); ++n) {
        const std::vector<std::uint8_t> part(whole.begin(), whole.begin() + std::ptrdiff_t(n));
        EXPECT_THROW(LayeredDocument::read(part), DocumentError) << "prefix of " << n;
    }
}

TEST(DocumentBitmaps, ImageRectsCountFromTheBottomLeft) {
    EXPECT_EQ(imageRect({10, 20, 30, 60}, 100), IntegralRect(20, 70, 40, 20));
    EXPECT_EQ(imageRect({-5, -3, 0, 0}, 8), IntegralRect(-3, 8, 3, 5));
    EXPECT_TRUE((DocumentRect{3, 3, 3, 9}).isEmpty());
}

TEST(DocumentBitmaps, LayersBecomePremultipliedBuffersOfTheirBounds) {
    const LayeredDocument grey = test_support::sampleDocument(8, DocumentColorMode::grayscale);
    // Without transparency a grey layer stays grey; with it, only a colour format can hold it.
    const auto background = grey.layers[0].pixelBuffer(1, 8);
    ASSERT_TRUE(background);
    const auto& g = std::get<PixelBuffer<PixelGray8>>(*background);
    EXPECT_EQ(g.size(), IntegralSize(7, 5));
    // Pixel (0, 0) is the bottom-left one: the last stored row's first sample.
    EXPECT_EQ(g(0, 0)->grayComponent, grey.layers[0].channels[0].plane.sample<std::uint8_t>(28));
    const DocumentLayer& masked = grey.layers[1];
    const auto colour = masked.pixelBuffer(1, 8);
    ASSERT_TRUE(colour);
    const auto& c = std::get<PixelBuffer<PixelARGB8>>(*colour);
    const std::uint8_t a = masked.channel(transparencyChannel)->plane.sample<std::uint8_t>(0);
    const std::uint8_t v = masked.channel(0)->plane.sample<std::uint8_t>(0);
    const auto top = c(0, 5);
    ASSERT_TRUE(top);
    EXPECT_EQ(top->alphaComponent, a);
    EXPECT_EQ(top->redComponent, std::uint8_t((v * a + 127) / 255));
    EXPECT_EQ(top->blueComponent, top->redComponent);
    const auto mask = masked.maskBuffer();
    ASSERT_TRUE(mask);
    EXPECT_EQ(std::get<PixelBuffer<PixelGray8>>(*mask).size(), IntegralSize(3, 3));
    EXPECT_FALSE(masked.maskBuffer(true));
    EXPECT_FALSE(grey.layers[2].children[1].pixelBuffer(1, 8)); // empty bounds
    const LayeredDocument deep = test_support::sampleDocument(32);
    const auto floats = deep.layers[1].pixelBuffer(3, 32);
    ASSERT_TRUE(floats);
    const auto p = std::get<PixelBuffer<PixelRGBA32>>(*floats)(1, 5);
    const float fa = deep.layers[1].channel(transparencyChannel)->plane.sample<float>(1);
    EXPECT_EQ(p->alphaComponent, fa);
    EXPECT_EQ(p->greenComponent, deep.layers[1].channel(1)->plane.sample<float>(1) * fa);
}

} // namespace
} // namespace bic
