// The reader and writer over every document of the test folder.

#include "bic/documents/layered_document.hpp"
#include "document_test_support.hpp"

#include <gtest/gtest.h>
#include <map>

namespace bic {
namespace {

namespace fs = std::filesystem;
using test_support::differences;
using test_support::psdFolder;
using test_support::validDocuments;
using Kind = DocumentError::Kind;

#define REQUIRE_TEST_DOCUMENTS()                                                                   \
    if (validDocuments().empty()) GTEST_SKIP() << "no documents in " << psdFolder()

std::string shortName(const fs::path& p) { return fs::relative(p, psdFolder()).string(); }

TEST(TestDocuments, EveryValidDocumentReadsWithEveryChannelWhole) {
    REQUIRE_TEST_DOCUMENTS();
    std::size_t files = 0, channels = 0;
    for (const fs::path& path : validDocuments()) {
        SCOPED_TRACE(shortName(path));
        const LayeredDocument doc = LayeredDocument::read(path);
        ++files;
        EXPECT_TRUE(doc.issues.empty()) << doc.issues.front().message;
        const std::size_t sampleBytes = std::size_t(doc.bitDepth / 8);
        ASSERT_EQ(int(doc.composite.size()), doc.channelCount);
        for (const SamplePlane& p : doc.composite) {
            EXPECT_EQ(p.width(), doc.width);
            EXPECT_EQ(p.bytes().size(), std::size_t(doc.width * doc.height) * sampleBytes);
        }
        doc.walk([&](std::size_t, int, const DocumentLayer& layer) {
            for (const LayerChannel& c : layer.channels) {
                DocumentRect rect = layer.bounds;
                if (c.id == userMaskChannel) rect = layer.mask->rect;
                if (c.id == realUserMaskChannel) rect = layer.realMask->rect;
                if (layer.isGroup()) continue;
                EXPECT_EQ(c.plane.bytes().size(),
                          std::size_t(rect.width() * rect.height()) * sampleBytes)
                    << layer.name << " channel " << c.id;
                ++channels;
            }
        });
    }
    EXPECT_GE(files, 90u);
    EXPECT_GT(channels, 1000u);
}

TEST(TestDocuments, LayerTreesAreTheOnesTheIndexDescribes) {
    REQUIRE_TEST_DOCUMENTS();
    // File → layers and groups, groups.
    const std::map<std::string, std::pair<std::size_t, std::size_t>> expected = {
        {"blend/rgb-blend-modes.psd", {164, 56}},
        {"blend/gray-blend-modes.psd", {164, 56}},
        {"composite/clipping-mask.psd", {7, 2}},
        {"blend/pass-through.psd", {6, 3}},
        {"depth/psd_rgb_16_rle.psd", {0, 0}},
        {"compression/rle-compressed-empty-channel.psd", {1, 1}},
        {"blend/ag-psd_2026-blend-modes.psd", {29, 0}}};
    for (const auto& [name, counts] : expected) {
        SCOPED_TRACE(name);
        const LayeredDocument doc = LayeredDocument::read(psdFolder() / name);
        std::size_t groups = 0;
        doc.walk([&](std::size_t, int, const DocumentLayer& l) { groups += l.isGroup(); });
        EXPECT_EQ(doc.layerCount(), counts.first);
        EXPECT_EQ(groups, counts.second);
    }
    const LayeredDocument pass =
        LayeredDocument::read(psdFolder() / "composite/passthrough_blendmodes1.psd");
    ASSERT_EQ(pass.layers.size(), 5u);
    EXPECT_EQ(pass.layers[0].kind, LayerKind::solidColorFill);
    EXPECT_EQ(pass.layers[2].blendKey, "pass");
    EXPECT_EQ(pass.layers[2].blendMode, BlendMode::passThrough);
    ASSERT_EQ(pass.layers[2].children.size(), 1u);
    EXPECT_EQ(pass.layers[2].children[0].blendMode, BlendMode::darken);
    EXPECT_EQ(pass.layers[2].sectionEnd->name, "</Layer group>");
}

TEST(TestDocuments, PSDAndPSBCopiesOfOneDocumentReadEqual) {
    REQUIRE_TEST_DOCUMENTS();
    for (const char* name :
         {"compression/1layer", "compression/2layers", "depth/16bit5x5", "depth/32bit5x5"}) {
        SCOPED_TRACE(name);
        const LayeredDocument psd =
            LayeredDocument::read(psdFolder() / (std::string(name) + ".psd"));
        const LayeredDocument psb =
            LayeredDocument::read(psdFolder() / (std::string(name) + ".psb"));
        EXPECT_FALSE(psd.isLargeDocument);
        EXPECT_TRUE(psb.isLargeDocument);
        EXPECT_EQ(differences(psd, psb, test_support::Compare::picture), "");
        // The application composited each save anew: the composites agree to a level.
        ASSERT_EQ(psd.composite.size(), psb.composite.size());
        const double level = psd.bitDepth == 32   ? 1e-4
                             : psd.bitDepth == 16 ? 1 / 65535.0
                                                  : 1 / 255.0;
        for (std::size_t c = 0; c < psd.composite.size(); ++c)
            for (std::size_t i = 0; i < psd.composite[c].sampleCount(); ++i)
                ASSERT_NEAR(psd.composite[c].normalized(i), psb.composite[c].normalized(i),
                            level + 1e-9)
                    << "channel " << c << " sample " << i;
    }
}

TEST(TestDocuments, EveryValidDocumentSurvivesAWriteAndARead) {
    REQUIRE_TEST_DOCUMENTS();
    for (const fs::path& path : validDocuments()) {
        SCOPED_TRACE(shortName(path));
        const LayeredDocument doc = LayeredDocument::read(path);
        DocumentWriteOptions options;
        options.format = doc.isLargeDocument ? DocumentWriteOptions::Format::psb
                                             : DocumentWriteOptions::Format::automatic;
        options.compositeIsRealMergedData = doc.hasRealMergedData().value_or(false);
        const LayeredDocument back = LayeredDocument::read(doc.write(options));
        EXPECT_EQ(differences(doc, back), "");
        EXPECT_EQ(back.hasRealMergedData(), doc.hasRealMergedData().value_or(false));
        EXPECT_EQ(back.isLargeDocument, doc.isLargeDocument);
    }
}

TEST(TestDocuments, MalformedFilesGiveOneCleanError) {
    REQUIRE_TEST_DOCUMENTS();
    const fs::path dir = psdFolder() / "malformed";
    const std::pair<const char*, std::pair<Kind, const char*>> cases[] = {
        {"file-empty.psd", {Kind::notADocument, "the file is empty"}},
        {"file-image-depth-17.psd", {Kind::unsupportedBitDepth, "unsupported bit depth 17"}},
        {"image-compression-invalid.psd",
         {Kind::unsupportedCompression, "the composite: unknown compression 48879"}},
        {"layer-channel-compression-invalid.psd",
         {Kind::unsupportedCompression, "channel 0: unknown compression 4"}},
        {"corrupt_20260312a.psd",
         {Kind::corrupt, "'Lr16' holds 16-bit layers, but the document has 8 bits"}},
        {"luni.psd", {Kind::corrupt, "the zip data is corrupt"}}};
    for (const auto& [name, expected] : cases) {
        SCOPED_TRACE(name);
        try {
            LayeredDocument::read(dir / name);
            ADD_FAILURE() << "read";
        } catch (const DocumentError& e) {
            EXPECT_EQ(e.kind(), expected.first) << e.what();
            EXPECT_NE(std::string(e.what()).find(expected.second), std::string::npos) << e.what();
            EXPECT_EQ(std::string(e.what()).find('\n'), std::string::npos);
        }
    }
    const LayeredDocument key = LayeredDocument::read(dir / "layer-blend-mode-key-invalid.psd");
    ASSERT_EQ(key.issues.size(), 1u);
    EXPECT_EQ(key.issues[0].message, "layer 0 \"a layer\": unknown blend mode key 'BoEF'");
    const LayeredDocument original = LayeredDocument::read(dir / "original.psd");
    EXPECT_TRUE(original.issues.empty());
    EXPECT_EQ(original.layers[0].blendMode, BlendMode::normal);
}

TEST(TestDocuments, TruncatedRealFilesFailCleanlyAtEveryLength) {
    REQUIRE_TEST_DOCUMENTS();
    for (const char* name :
         {"masks/layer_mask_data.psd", "depth/16bit5x5.psb", "composite/group.psd"}) {
        const std::vector<std::uint8_t> whole = test_support::fileBytes(psdFolder() / name);
        for (std::size_t n = 0; n < whole.size(); n += n < 4096 ? 1 : 97) {
            std::vector<std::uint8_t> part(whole.begin(), whole.begin() + std::ptrdiff_t(n));
            EXPECT_THROW(LayeredDocument::read(part), DocumentError) << name << " at " << n;
        }
    }
}

TEST(TestDocuments, TheStoredCompositeIsUnmattedFromWhite) {
    REQUIRE_TEST_DOCUMENTS();
    const LayeredDocument doc =
        LayeredDocument::read(psdFolder() / "blend/1x1/blue-red-1x1-multiply.psd");
    ASSERT_TRUE(doc.mergedAlphaIsTransparency);
    ASSERT_TRUE(doc.compositeHasTransparency());
    // Stored 127, 63, 127 over alpha 192: matted on white.
    EXPECT_EQ(doc.composite[1].sample<std::uint8_t>(0), 63);
    const auto straight = doc.straightComposite();
    ASSERT_EQ(straight.size(), 4u);
    EXPECT_EQ(straight[0].sample<std::uint8_t>(0), 85); // (127 − 63) / (192 / 255)
    EXPECT_EQ(straight[1].sample<std::uint8_t>(0), 0);
    EXPECT_EQ(straight[2].sample<std::uint8_t>(0), 85);
    EXPECT_EQ(straight[3].sample<std::uint8_t>(0), 192);
    const auto buffer = doc.compositeBuffer();
    ASSERT_TRUE(buffer);
    EXPECT_EQ(std::get<PixelBuffer<PixelARGB8>>(*buffer)(0, 0), PixelARGB8(64, 0, 64, 192));
    // The two layers: red below, blue above, both at half opacity.
    ASSERT_EQ(doc.layers.size(), 2u);
    const auto blue = doc.layers[1].pixelBuffer(doc.colorChannels(), doc.bitDepth);
    ASSERT_TRUE(blue);
    EXPECT_EQ(std::get<PixelBuffer<PixelARGB8>>(*blue)(0, 0), PixelARGB8(0, 0, 255, 255));
    EXPECT_EQ(doc.layers[1].blendMode, BlendMode::multiply);
    EXPECT_EQ(doc.layers[1].opacity, 128);
}

TEST(TestDocuments, FillLayersBecomeTheLibrarysModel) {
    REQUIRE_TEST_DOCUMENTS();
    const LayeredDocument fill = LayeredDocument::read(psdFolder() / "masks/gradient-fill.psd");
    const DocumentLayer& layer = fill.layers.at(2);
    EXPECT_EQ(layer.name, "Gradient Fill 1");
    EXPECT_EQ(layer.kind, LayerKind::gradientFill);
    EXPECT_TRUE(layer.bounds.isEmpty());
    ASSERT_TRUE(layer.gradientFill && layer.gradientFill->gradient);
    const GradientFill& g = *layer.gradientFill;
    EXPECT_EQ(g.type, GradientType::linear);
    EXPECT_EQ(g.angle, 90);
    EXPECT_EQ(g.name, "Violet, Orange");
    const auto& stops = g.gradient->colorStops();
    ASSERT_EQ(stops.size(), 2u);
    EXPECT_EQ(stops[0].location, 0);
    EXPECT_EQ(stops[1].location, 1);
    EXPECT_EQ(stops[1].midPoint, 0.5);
    EXPECT_FLOAT_EQ(stops[0].color.redComponent, float(41.003892347216606 / 255));
    EXPECT_FLOAT_EQ(stops[0].color.blueComponent, float(89.00389328598976 / 255));
    EXPECT_FLOAT_EQ(stops[1].color.greenComponent, float(124.00000020861626 / 255));
    EXPECT_EQ(g.gradient->opacityStops()[1], OpacityStop(1, 1, 0.5));
    ASSERT_TRUE(layer.mask);
    EXPECT_EQ(layer.mask->rect, (DocumentRect{6, 44, 100, 60}));

    const LayeredDocument three = LayeredDocument::read(psdFolder() / "depth/4x4_8bit_rgb.psd");
    const GradientFill& reflected = *three.layers.at(1).gradientFill;
    EXPECT_EQ(reflected.type, GradientType::reflected);
    EXPECT_EQ(reflected.angle, 30);
    EXPECT_TRUE(reflected.dither);
    ASSERT_EQ(reflected.gradient->colorStops().size(), 3u);
    EXPECT_EQ(reflected.gradient->colorStops()[1].location, 0.5);

    const LayeredDocument grey =
        LayeredDocument::read(psdFolder() / "depth/4x4_8bit_grayscale.psd");
    EXPECT_FLOAT_EQ(grey.layers.at(1).gradientFill->gradient->colorStops()[0].color.redComponent,
                    float(1 - 90.64667969942093 / 100));

    const LayeredDocument deep = LayeredDocument::read(psdFolder() / "depth/32bit.psd");
    const DocumentLayer& shape = deep.layers.at(1);
    EXPECT_EQ(shape.kind, LayerKind::solidColorFill);
    EXPECT_TRUE(shape.hasVectorMask);
    ASSERT_TRUE(shape.solidFill);
    EXPECT_EQ(shape.solidFill->color, PixelRGBA32(0, 0, 0, 1));
    EXPECT_FALSE(shape.pixelBuffer(3, 32));
    const auto background = deep.layers.at(0).pixelBuffer(3, 32);
    ASSERT_TRUE(background);
    EXPECT_TRUE(std::holds_alternative<PixelBuffer<PixelRGBA32>>(*background));
}

TEST(TestDocuments, MaskRecordsInAllTheirLayouts) {
    REQUIRE_TEST_DOCUMENTS();
    const LayeredDocument doc = LayeredDocument::read(psdFolder() / "masks/mask_parameters.psd");
    const DocumentLayer& layer = doc.layers.at(1);
    ASSERT_TRUE(layer.mask && layer.realMask && layer.mask->parameters);
    EXPECT_EQ(layer.mask->rect, (DocumentRect{19, 23, 181, 185}));
    const MaskParameters& p = *layer.mask->parameters;
    EXPECT_EQ(p.userMaskDensity, 204);
    EXPECT_EQ(p.userMaskFeather, 2.6);
    EXPECT_EQ(p.vectorMaskDensity, 250);
    EXPECT_EQ(p.vectorMaskFeather, 0.3);
    EXPECT_TRUE(layer.realMask->rect.isEmpty());
    EXPECT_EQ(layer.realMask->defaultColor, 255);

    const LayeredDocument oov = LayeredDocument::read(psdFolder() / "masks/oov-psd_mask.psd");
    EXPECT_TRUE(oov.layers.at(3).mask->isDisabled());
    EXPECT_TRUE(oov.layers.at(5).realMask->isDisabled());
    EXPECT_FALSE(oov.layers.at(5).mask->isDisabled());
    EXPECT_TRUE(oov.layers.at(0).hasLayerEffects);
    const auto mask = oov.layers.at(0).maskBuffer();
    ASSERT_TRUE(mask);
    EXPECT_TRUE(std::holds_alternative<PixelBuffer<PixelGray8>>(*mask));
    EXPECT_TRUE(oov.layers.at(2).maskBuffer(true));

    const LayeredDocument density =
        LayeredDocument::read(psdFolder() / "masks/mask-density-layermask.psd");
    EXPECT_EQ(density.layers.at(1).mask->parameters->userMaskDensity, 0x40);
    EXPECT_FALSE(density.layers.at(1).realMask);
}

} // namespace
} // namespace bic
