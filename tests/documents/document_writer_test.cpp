#include "bic/documents/layered_document.hpp"
#include "document_test_support.hpp"

#include <cstdio>
#include <gtest/gtest.h>
#include <memory>

namespace bic {
namespace {

using test_support::differences;
using test_support::sampleDocument;
using Kind = DocumentError::Kind;

LayeredDocument roundTrip(const LayeredDocument& doc, const DocumentWriteOptions& options = {}) {
    return LayeredDocument::read(doc.write(options));
}

TEST(DocumentWriter, EveryDepthAndModeReadsBackEqual) {
    for (const auto mode : {DocumentColorMode::rgb, DocumentColorMode::grayscale})
        for (const int depth : {8, 16, 32}) {
            SCOPED_TRACE(std::to_string(depth) + " bits, mode " + std::to_string(int(mode)));
            LayeredDocument doc = sampleDocument(depth, mode);
            // One plane that compresses well: the writer keeps coding only where it pays.
            doc.layers[0].channels[0].plane = SamplePlane(7, 5, depth);
            const LayeredDocument back = roundTrip(doc);
            EXPECT_EQ(differences(doc, back), "");
            EXPECT_TRUE(back.issues.empty());
            // PackBits for 8 bits, zip with prediction above (raw only where coding did not pay).
            const LayerChannel& c = back.layers[0].channels[0];
            if (depth == 8)
                EXPECT_EQ(c.compression, ChannelCompression::rle);
            else
                EXPECT_EQ(c.compression, ChannelCompression::zipPredicted);
            EXPECT_EQ(back.compositeCompression, ChannelCompression::rle);
        }
}

TEST(DocumentWriter, KeepsGroupsMasksNamesAndFlags) {
    const LayeredDocument back = roundTrip(sampleDocument(8));
    ASSERT_EQ(back.layers.size(), 3u);
    const DocumentLayer& masked = back.layers[1];
    ASSERT_TRUE(masked.mask);
    EXPECT_EQ(masked.mask->rect, (DocumentRect{1, -1, 4, 2}));
    EXPECT_TRUE(masked.mask->isPositionRelativeToLayer());
    ASSERT_TRUE(masked.mask->parameters);
    EXPECT_EQ(masked.mask->parameters->userMaskDensity, 200);
    EXPECT_EQ(masked.mask->parameters->userMaskFeather, 1.5);
    const DocumentLayer& group = back.layers[2];
    EXPECT_TRUE(group.isGroup());
    EXPECT_FALSE(group.groupIsOpen);
    EXPECT_EQ(group.blendMode, BlendMode::passThrough);
    ASSERT_EQ(group.children.size(), 2u);
    const DocumentLayer& inner = group.children[0];
    EXPECT_EQ(inner.name, "Ebene ü ☃ 𝄞");
    EXPECT_FALSE(inner.isVisible());
    EXPECT_TRUE(inner.isClipped());
    EXPECT_EQ(inner.fillOpacity, 128);
    EXPECT_EQ(inner.blendMode, BlendMode::multiply);
    EXPECT_TRUE(group.children[1].bounds.isEmpty());
    std::vector<std::size_t> order;
    std::vector<int> depths;
    back.walk([&](std::size_t i, int depth, const DocumentLayer&) {
        order.push_back(i);
        depths.push_back(depth);
    });
    EXPECT_EQ(order, (std::vector<std::size_t>{0, 1, 2, 3, 4}));
    EXPECT_EQ(depths, (std::vector<int>{0, 0, 0, 1, 1}));
}

TEST(DocumentWriter, AMaskBesideAVectorMaskKeepsBothRecords) {
    LayeredDocument doc = sampleDocument(16);
    DocumentLayer& layer = doc.layers[1];
    layer.realMask = RealUserMask{LayerMask::disabled, 255, {0, 0, 2, 2}};
    layer.channels.push_back(
        {realUserMaskChannel, ChannelCompression::raw, test_support::randomPlane(2, 2, 16, 9)});
    layer.mask->parameters->vectorMaskFeather = 0.25;
    const LayeredDocument back = roundTrip(doc);
    EXPECT_EQ(differences(doc, back), "");
    EXPECT_TRUE(back.layers[1].realMask->isDisabled());
    // Without parameters the real mask is recognised by the record's length alone.
    layer.mask->parameters.reset();
    layer.channels.pop_back();
    EXPECT_EQ(roundTrip(doc).layers[1].realMask, layer.realMask);
}

TEST(DocumentWriter, UnknownBlendKeysGoBackAsTheyCame) {
    LayeredDocument doc = sampleDocument(8);
    doc.layers[0].blendKey = "BoEF";
    doc.layers[0].blendMode.reset();
    const LayeredDocument back = roundTrip(doc);
    EXPECT_EQ(back.layers[0].blendKey, "BoEF");
    ASSERT_EQ(back.issues.size(), 1u);
    EXPECT_EQ(back.issues[0].layerIndex, 0u);
    doc.layers[0].blendKey = "abc";
    EXPECT_THROW(doc.write(), DocumentError);
}

TEST(DocumentWriter, ChoosesPSBForLargeSidesOrWhenAsked) {
    LayeredDocument wide;
    wide.width = 30001, wide.height = 1;
    EXPECT_TRUE(roundTrip(wide).isLargeDocument);
    DocumentWriteOptions psd;
    psd.format = DocumentWriteOptions::Format::psd;
    try {
        wide.write(psd);
        ADD_FAILURE();
    } catch (const DocumentError& e) {
        EXPECT_EQ(e.kind(), Kind::tooLarge);
    }
    DocumentWriteOptions psb;
    psb.format = DocumentWriteOptions::Format::psb;
    const LayeredDocument doc = sampleDocument(32);
    const LayeredDocument back = roundTrip(doc, psb);
    EXPECT_TRUE(back.isLargeDocument);
    EXPECT_EQ(differences(doc, back), "");
    LayeredDocument tooWide;
    tooWide.width = 300001;
    EXPECT_THROW(tooWide.write(), DocumentError);
}

TEST(DocumentWriter, TheVersionResourceSaysWhatTheCallerSays) {
    LayeredDocument doc = sampleDocument(8);
    EXPECT_FALSE(doc.hasRealMergedData());
    EXPECT_EQ(roundTrip(doc).hasRealMergedData(), false);
    DocumentWriteOptions real;
    real.compositeIsRealMergedData = true;
    const LayeredDocument back = roundTrip(doc, real);
    EXPECT_EQ(back.hasRealMergedData(), true);
    // A kept version resource keeps its other bytes; only the flag changes.
    doc.resources.push_back({"8BIM", versionInfoResource, "", {0, 0, 0, 1, 1, 9, 9, 9}});
    const LayeredDocument again = roundTrip(doc);
    const ImageResource* kept = again.resource(versionInfoResource);
    ASSERT_TRUE(kept);
    EXPECT_EQ(kept->bytes, (std::vector<std::uint8_t>{0, 0, 0, 1, 0, 9, 9, 9}));
}

TEST(DocumentWriter, TheCompositeIsTheCallersOrTheOneRead) {
    LayeredDocument doc = sampleDocument(16);
    DocumentWriteOptions options;
    options.composite = std::vector<SamplePlane>();
    for (unsigned c = 0; c < 4; ++c)
        options.composite->push_back(test_support::randomPlane(7, 5, 16, 90 + c));
    EXPECT_EQ(roundTrip(doc, options).composite, *options.composite);
    options.composite->back() = test_support::randomPlane(7, 4, 16, 1);
    EXPECT_THROW(doc.write(options), DocumentError);
    // A new document without a composite gets a transparent white one.
    doc.composite.clear();
    const LayeredDocument back = roundTrip(doc);
    ASSERT_EQ(back.composite.size(), 4u);
    EXPECT_EQ(back.composite[0].sample<std::uint16_t>(3), 65535);
    EXPECT_EQ(back.composite[3].sample<std::uint16_t>(3), 0);
    EXPECT_TRUE(back.compositeHasTransparency());
}

TEST(DocumentWriter, RefusesAModelThatContradictsItself) {
    LayeredDocument doc = sampleDocument(8);
    doc.layers[0].channels[0].plane = test_support::randomPlane(3, 3, 8, 1);
    try {
        doc.write();
        ADD_FAILURE();
    } catch (const DocumentError& e) {
        EXPECT_EQ(e.kind(), Kind::corrupt);
        EXPECT_NE(std::string(e.what()).find("\"Background\" channel 0"), std::string::npos);
    }
    doc = sampleDocument(8);
    doc.layers[1].mask.reset();
    EXPECT_THROW(doc.write(), DocumentError);
}

// ---- ImageMagick as an independent reader ----

std::string run(const std::string& command) {
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string out;
    char buffer[4096];
    std::size_t n = 0;
    while (pipe && (n = std::fread(buffer, 1, sizeof buffer, pipe.get())) > 0)
        out.append(buffer, n);
    return out;
}

bool haveImageMagick() {
    return std::filesystem::exists("/usr/bin/identify") &&
           std::filesystem::exists("/usr/bin/convert");
}

// Frames (composite and layers) and a digest of the composite's pixels, as ImageMagick sees
// them; empty when it cannot read the file.
std::string magickView(const std::filesystem::path& file) {
    const std::string count =
        run("identify -format '%n\\n' '" + file.string() + "' 2>/dev/null | head -1");
    const std::string pixels =
        run("convert '" + file.string() + "[0]' -depth 16 rgba:- 2>/dev/null | md5sum");
    return count + pixels;
}

TEST(DocumentInterop, ImageMagickSeesTheSameLayersAndComposite) {
    if (!haveImageMagick()) GTEST_SKIP() << "ImageMagick is not installed";
    const auto dir = std::filesystem::temp_directory_path() / "bic-documents-interop";
    std::filesystem::create_directories(dir);
    // Our own document: ImageMagick finds every layer with pixels and exactly the composite
    // we stored.
    LayeredDocument doc = sampleDocument(8);
    doc.mergedAlphaIsTransparency = false;
    doc.composite.pop_back();
    doc.channelCount = 3;
    // Said to be real merged data, as a reader that would otherwise flatten the layers itself
    // takes the stored composite only then.
    DocumentWriteOptions real;
    real.compositeIsRealMergedData = true;
    doc.write(dir / "sample.psd", real);
    std::size_t withPixels = 0;
    doc.walk([&](std::size_t, int, const DocumentLayer& l) { withPixels += !l.bounds.isEmpty(); });
    EXPECT_EQ(run("identify -format '%n\\n' '" + (dir / "sample.psd").string() + "' | head -1"),
              std::to_string(withPixels + 1) + "\n");
    const std::string rgb =
        run("convert '" + (dir / "sample.psd").string() + "[0]' -depth 8 rgb:-");
    std::string expected;
    for (std::size_t i = 0; i < doc.composite[0].sampleCount(); ++i)
        for (int c = 0; c < 3; ++c)
            expected += char(doc.composite[std::size_t(c)].sample<std::uint8_t>(i));
    EXPECT_EQ(rgb, expected);
    // Real documents: the rewrite looks to ImageMagick exactly like the original.
    const char* files[] = {"composite/passthrough_blendmodes1.psd",
                           "masks/oov-psd_mask.psd",
                           "depth/16bit5x5.psd",
                           "depth/grayscale16bit_transparent.psd",
                           "blend/gray-blend-modes.psd",
                           "compression/1layer.psb",
                           "depth/psd_rgb_16.psd",
                           "compression/ag-psd_simple-compress.psd"};
    for (const char* name : files) {
        const auto original = test_support::psdFolder() / name;
        if (!std::filesystem::exists(original)) continue;
        SCOPED_TRACE(name);
        const LayeredDocument read = LayeredDocument::read(original);
        DocumentWriteOptions options;
        options.compositeIsRealMergedData = read.hasRealMergedData().value_or(false);
        options.format = read.isLargeDocument ? DocumentWriteOptions::Format::psb
                                              : DocumentWriteOptions::Format::automatic;
        const auto copy = dir / "copy.psd";
        read.write(copy, options);
        const std::string expected = magickView(original);
        ASSERT_NE(expected.substr(0, 1), "\n");
        EXPECT_EQ(magickView(copy), expected);
    }
}

} // namespace
} // namespace bic
