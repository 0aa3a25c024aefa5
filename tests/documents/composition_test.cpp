#include "bic/core/image_core_error.hpp"
#include "bic/documents/document_composition.hpp"
#include "bic/graph/async_image_cache_node.hpp"
#include "bic/graph/color_sampler.hpp"
#include "bic/platform/dispatch/queue.hpp"
#include "document_test_support.hpp"
#include "graph/graph_support.hpp"

#include <array>
#include <cmath>
#include <cstdio>
#include <gtest/gtest.h>
#include <map>
#include <thread>

namespace bic {
namespace {

using test_support::psdFolder;
using test_support::validDocuments;

struct Agreement {
    std::size_t pixels = 0, within = 0;
    double worst = 0; // in levels of 255
    double share() const { return pixels ? double(within) / double(pixels) : 1; }
};

// Our composite against the file's: our colour matted on white as the file stores it, alpha
// compared where the composite has transparency, each difference in levels of 255.
Agreement agreement(const LayeredDocument& doc, const std::vector<SamplePlane>& ours) {
    Agreement result;
    const int colors = doc.colorChannels();
    const bool alpha = doc.compositeHasTransparency();
    const std::size_t count = std::size_t(doc.width * doc.height);
    const double levels = doc.bitDepth == 8 ? 255 : (doc.bitDepth == 16 ? 65535 : 1);
    for (std::size_t i = 0; i < count; ++i) {
        const double a = ours[std::size_t(colors)].normalized(i);
        double worst = 0;
        for (int c = 0; c < colors; ++c) {
            const double matted = ours[std::size_t(c)].normalized(i) * a + (1 - a);
            worst = std::max(worst, std::abs(matted - doc.composite[std::size_t(c)].normalized(i)));
        }
        if (alpha)
            worst = std::max(worst, std::abs(a - doc.composite[std::size_t(colors)].normalized(i)));
        // Integer files are compared in their own levels (a difference of one level of 255 is
        // within); float files in levels of 255 directly.
        const double inLevels =
            doc.bitDepth == 32 ? worst * 255 : std::round(worst * levels) / levels * 255;
        result.pixels++;
        if (inLevels <= 1.0 + 1e-9) result.within++;
        result.worst = std::max(result.worst, inLevels);
    }
    return result;
}

bool compositeIsComparable(const LayeredDocument& doc) {
    return doc.hasRealMergedData().value_or(false) && !doc.layers.empty() &&
           doc.composite.size() >= std::size_t(doc.colorChannels()) &&
           doc.composite[0].width() == doc.width && doc.composite[0].height() == doc.height;
}

// Files whose stored composite we do not reach, for reasons outside the blending itself,
// with the share of pixels within a level we measured (the README gives the reasons).
const std::map<std::string, double> kKnownShortfalls = {
    {"blend/dissolve.psd", 0.62},         // the noise pattern is the application's own
    {"blend/gray-blend-modes.psd", 0.99}, // gradient fills' smooth curve is fitted, not known
    {"blend/rgb-blend-modes.psd", 0.97},
    {"masks/layer_mask_data.psd", 0.91}, // feathered edges 1–7 levels off a Gaussian
};

TEST(DocumentComposition, MatchesTheStoredCompositeOfEveryRealDocument) {
    if (validDocuments().empty()) GTEST_SKIP() << "no documents in " << psdFolder();
    std::printf("%-52s %8s %9s %6s %9s\n", "file", "pixels", "within 1", "worst", "once");
    Agreement roundedOnce, roundedEach;
    for (const auto& path : validDocuments()) {
        const LayeredDocument doc = LayeredDocument::read(path);
        if (!compositeIsComparable(doc)) continue;
        const std::string name = std::filesystem::relative(path, psdFolder()).generic_string();
        const DocumentComposition composition(doc);
        const Agreement a = agreement(doc, composition.render());
        // The same with the running result rounded once, to show what rounding after every
        // layer is worth.
        const Agreement once = agreement(
            doc, DocumentComposition(doc, {DocumentCompositeOptions::Rounding::once}).render());
        std::printf("%-52s %8zu %8.3f%% %6.0f %8.3f%%\n", name.c_str(), a.pixels, 100 * a.share(),
                    a.worst, 100 * once.share());
        if (doc.bitDepth == 8) {
            roundedOnce.within += once.within;
            roundedEach.within += a.within;
        }
        const auto known = kKnownShortfalls.find(name);
        const double floor = known == kKnownShortfalls.end() ? 0.995 : known->second;
        EXPECT_GE(a.share(), floor) << name;
    }
    EXPECT_GT(roundedEach.within, roundedOnce.within)
        << "8-bit documents match better when every layer is rounded";
}

} // namespace
} // namespace bic

// ---- The composition as a graph ----

namespace bic {
namespace {

DocumentLayer solidLayer(std::string name, DocumentRect bounds, std::uint8_t r, std::uint8_t g,
                         std::uint8_t b, std::uint8_t a = 255) {
    DocumentLayer layer;
    layer.name = std::move(name);
    layer.bounds = bounds;
    const std::uint8_t values[] = {r, g, b, a};
    const std::int16_t ids[] = {0, 1, 2, transparencyChannel};
    for (int c = 0; c < 4; ++c) {
        SamplePlane plane(bounds.width(), bounds.height(), 8);
        std::fill(plane.mutableBytes().begin(), plane.mutableBytes().end(), values[c]);
        layer.channels.push_back({ids[c], ChannelCompression::raw, std::move(plane)});
    }
    return layer;
}

LayeredDocument canvas(std::int64_t width, std::int64_t height) {
    LayeredDocument doc;
    doc.width = width, doc.height = height;
    return doc;
}

// The straight 8-bit RGBA of one pixel of a rendered composite (document coordinates).
std::array<int, 4> at(const std::vector<SamplePlane>& planes, std::int64_t width, std::int64_t x,
                      std::int64_t y) {
    const std::size_t i = std::size_t(y * width + x);
    return {planes[0].sample<std::uint8_t>(i), planes[1].sample<std::uint8_t>(i),
            planes[2].sample<std::uint8_t>(i), planes[3].sample<std::uint8_t>(i)};
}

using RGBA = std::array<int, 4>;

TEST(DocumentComposition, ClippingMasksGroupsAndHiddenBases) {
    LayeredDocument doc = canvas(4, 1);
    // A base covering pixels 0–1, a clipped layer over 0–3 that shows only there.
    doc.layers.push_back(solidLayer("base", {0, 0, 1, 2}, 255, 0, 0));
    DocumentLayer clipped = solidLayer("clipped", {0, 0, 1, 4}, 0, 0, 255);
    clipped.clipping = 1;
    clipped.opacity = 128;
    doc.layers.push_back(clipped);
    // A masked layer at pixel 3: its mask hides the rectangle's pixel, the default shows.
    DocumentLayer masked = solidLayer("masked", {0, 2, 1, 4}, 0, 255, 0);
    masked.mask = LayerMask{{0, 3, 1, 4}, 255, 0, std::nullopt};
    masked.channels.push_back({userMaskChannel, ChannelCompression::raw, SamplePlane(1, 1, 8)});
    doc.layers.push_back(masked);
    {
        const auto p = DocumentComposition(doc).render();
        EXPECT_EQ(at(p, 4, 0, 0), (RGBA{127, 0, 128, 255})); // half blue over red, rounded
        EXPECT_EQ(at(p, 4, 1, 0), (RGBA{127, 0, 128, 255}));
        EXPECT_EQ(at(p, 4, 2, 0), (RGBA{0, 255, 0, 255})) << "outside the mask: its default";
        EXPECT_EQ(at(p, 4, 3, 0), (RGBA{0, 0, 0, 0})) << "clipped layer outside its base";
    }
    // A disabled mask is not applied; a hidden base hides what is clipped to it.
    doc.layers[2].mask->flags = LayerMask::disabled;
    doc.layers[0].flags |= DocumentLayer::hidden;
    {
        const auto p = DocumentComposition(doc).render();
        EXPECT_EQ(at(p, 4, 0, 0), (RGBA{0, 0, 0, 0}));
        EXPECT_EQ(at(p, 4, 3, 0), (RGBA{0, 255, 0, 255}));
    }
}

TEST(DocumentComposition, AGradientFillWithoutPixelsSpansItsMasksRectangle) {
    // A vertical ramp, black at the bottom to white at the top, on a layer without bounds whose
    // mask shows rows 5–14 of 20: the ramp spans those rows, not the document, sampled half a
    // pixel up (the direction's major axis), so row 5 is white and row 14 a tenth of the way.
    LayeredDocument doc = canvas(1, 20);
    DocumentLayer fill;
    fill.kind = LayerKind::gradientFill;
    fill.name = "ramp";
    GradientFill ramp;
    ramp.angle = 90;
    ramp.smoothness = 0;
    ramp.gradient = *ColorGradient::make({{{0, 0, 0, 1}, 0}, {{1, 1, 1, 1}, 1}}, {{1, 0}, {1, 1}});
    fill.gradientFill = ramp;
    fill.mask = LayerMask{{5, 0, 15, 1}, 0, 0, std::nullopt};
    SamplePlane shown(1, 10, 8);
    std::fill(shown.mutableBytes().begin(), shown.mutableBytes().end(), 255);
    fill.channels.push_back({userMaskChannel, ChannelCompression::raw, std::move(shown)});
    doc.layers.push_back(fill);
    const auto p = DocumentComposition(doc).render();
    EXPECT_EQ(at(p, 1, 0, 4)[3], 0) << "outside the mask";
    EXPECT_EQ(at(p, 1, 0, 15)[3], 0);
    EXPECT_EQ(at(p, 1, 0, 5), (RGBA{255, 255, 255, 255}));
    EXPECT_NEAR(at(p, 1, 0, 14)[0], 26, 1);
    EXPECT_NEAR(at(p, 1, 0, 10)[0], 128, 1);
}

TEST(DocumentComposition, ColourOverlaysBlendAfterTheirLayerOverItsShape) {
    // A half-transparent layer over grey, then a multiply overlay: the overlay multiplies what
    // the layer left (not the layer alone), over the layer's coverage only, at the layer's
    // opacity and not its fill opacity.
    LayeredDocument doc = canvas(2, 1);
    doc.layers.push_back(solidLayer("grey", {0, 0, 1, 2}, 200, 200, 200));
    DocumentLayer top = solidLayer("top", {0, 0, 1, 1}, 255, 255, 255);
    top.fillOpacity = 0;
    top.effects = LayerEffects{{{{0.5f, 1, 1, 1}, BlendMode::multiply, 1}}, {}, {}};
    doc.layers.push_back(top);
    auto p = DocumentComposition(doc).render();
    EXPECT_EQ(at(p, 2, 0, 0), (RGBA{100, 200, 200, 255}));
    EXPECT_EQ(at(p, 2, 1, 0), (RGBA{200, 200, 200, 255})) << "outside the layer";
    doc.layers[1].opacity = 128;
    p = DocumentComposition(doc).render();
    EXPECT_NEAR(at(p, 2, 0, 0)[0], 150, 1);
}

TEST(DocumentComposition, PatternOverlaysRepeatFromOneRowBelowTheirPhase) {
    // A 1 × 2 pattern, red over blue, over a 1 × 4 layer at fill 0: rows show blue, red, blue,
    // red (the pattern starts one row down), and nothing of the layer's own white.
    LayeredDocument doc = canvas(1, 4);
    doc.globalBlocks.push_back(
        {"8BIM", "Patt",
         test_support::patternBlock("stripes", 1, 2, {{255, 0}, {0, 0}, {0, 255}}, true)});
    DocumentLayer layer = solidLayer("text", {0, 0, 4, 1}, 255, 255, 255);
    layer.fillOpacity = 0;
    layer.effects = LayerEffects{{}, {{"stripes", BlendMode::normal, 1, 1, 0, 0}}, {}};
    doc.layers.push_back(layer);
    DocumentComposition composition(doc);
    const auto p = composition.render();
    EXPECT_EQ(at(p, 1, 0, 0), (RGBA{0, 0, 255, 255}));
    EXPECT_EQ(at(p, 1, 0, 1), (RGBA{255, 0, 0, 255}));
    EXPECT_EQ(at(p, 1, 0, 2), (RGBA{0, 0, 255, 255}));
    EXPECT_EQ(at(p, 1, 0, 3), (RGBA{255, 0, 0, 255}));
    EXPECT_TRUE(composition.approximations().empty());
    // A pattern the document does not hold is named, and the layer shows without it.
    doc.layers[0].effects->patternOverlays[0].patternId = "elsewhere";
    const DocumentComposition missing(doc);
    ASSERT_EQ(missing.approximations().size(), 1u);
    EXPECT_EQ(at(missing.render(), 1, 0, 0)[3], 0);
}

TEST(DocumentComposition, GroupsAreIsolatedUnlessTheyPassThrough) {
    // A multiply layer in a group over a grey background: isolated, it multiplies nothing
    // and shows its own colour; passed through, it multiplies the background.
    LayeredDocument doc = canvas(1, 1);
    doc.layers.push_back(solidLayer("grey", {0, 0, 1, 1}, 128, 128, 128));
    DocumentLayer group;
    group.kind = LayerKind::group;
    group.name = "group";
    group.blendKey = "norm";
    group.opacity = 255;
    DocumentLayer multiply = solidLayer("multiply", {0, 0, 1, 1}, 255, 0, 255);
    multiply.blendMode = BlendMode::multiply;
    group.children.push_back(multiply);
    doc.layers.push_back(group);
    EXPECT_EQ(at(DocumentComposition(doc).render(), 1, 0, 0), (RGBA{255, 0, 255, 255}));
    doc.layers[1].blendMode = BlendMode::passThrough;
    EXPECT_EQ(at(DocumentComposition(doc).render(), 1, 0, 0), (RGBA{128, 0, 128, 255}));
    // A pass-through group's opacity mixes with what was before it.
    doc.layers[1].opacity = 0;
    EXPECT_EQ(at(DocumentComposition(doc).render(), 1, 0, 0), (RGBA{128, 128, 128, 255}));
}

TEST(DocumentComposition, EditsAnnounceExactlyTheRectangleThatChanged) {
    LayeredDocument doc = canvas(100, 80);
    doc.layers.push_back(solidLayer("background", {0, 0, 80, 100}, 255, 255, 255));
    doc.layers.push_back(solidLayer("square", {10, 20, 30, 40}, 255, 0, 0)); // 20 × 20
    DocumentComposition composition(doc);
    auto seen = std::make_shared<test_support::RecordingConsumer>();
    composition.root()->addImageConsumer(*seen);
    const auto& square = composition.layer(1);
    // In image coordinates (y up): rows 10–30 from the top of 80 are y 50–70.
    const cg::Rect where(20, 50, 20, 20);
    square->setVisible(false);
    square->setOpacity(0.5);
    square->setBlendMode(BlendMode::multiply);
    EXPECT_EQ(seen->rects(), (std::vector<cg::Rect>{where, where, where}));
    EXPECT_EQ(at(composition.render(), 100, 25, 15), (RGBA{255, 255, 255, 255}));
    seen->calls.clear();
    square->setVisible(true);
    square->moveBy(5, -10); // right 5, up 10 in the document
    EXPECT_EQ(seen->rects(), (std::vector<cg::Rect>{where, where, cg::Rect(25, 60, 20, 20)}));
    EXPECT_EQ(at(composition.render(), 100, 27, 5), (RGBA{255, 128, 128, 255}));
    EXPECT_THROW(square->setBlendMode(BlendMode::passThrough), ImageCoreError);
}

TEST(DocumentComposition, ACacheNodeReRendersOnlyTheToggledLayer) {
    // 4000 × 3000, twenty layers; toggling one 200 × 200 layer re-renders 200 × 200.
    LayeredDocument doc = canvas(4000, 3000);
    doc.layers.push_back(solidLayer("background", {0, 0, 3000, 4000}, 40, 80, 120));
    for (int i = 1; i < 20; ++i) {
        const std::int32_t x = 150 * i, y = 100 * i;
        DocumentLayer layer = solidLayer("layer " + std::to_string(i), {y, x, y + 200, x + 200},
                                         255, std::uint8_t(12 * i), 0, 200);
        layer.blendMode = BlendMode::allCases()[std::size_t(i) % 26 + 1];
        doc.layers.push_back(layer);
    }
    DocumentComposition composition(doc);
    auto cache = AsyncImageCacheNode::make(composition.extent(), 8, Image::Intent::image, 120);
    auto seen = std::make_shared<test_support::RecordingConsumer>();
    cache->addImageConsumer(*seen);
    cache->setInputImageProvider(composition.root());
    composition.root()->broadcastOutputImageChange(composition.extent());
    ASSERT_TRUE(dispatch::MainQueue::shared().runUntil([&] { return !seen->calls.empty(); },
                                                       std::chrono::seconds(60)));
    // The node's timer can fire between taking the input and the broadcast, so the document may
    // be rendered twice. A pause lets the second render take its dirty area before the toggle
    // adds one; under load it may still be running after that, and its announcement covers the
    // whole extent, told apart from the toggle's below.
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    seen->calls.clear();

    composition.layer(7)->setVisible(false);
    const cg::Rect whole = composition.extent();
    const auto partial = [&] {
        std::vector<cg::Rect> rects;
        for (const auto& r : seen->rects())
            if (r != whole) rects.push_back(r);
        return rects;
    };
    ASSERT_TRUE(dispatch::MainQueue::shared().runUntil([&] { return !partial().empty(); },
                                                       std::chrono::seconds(60)));
    EXPECT_EQ(partial(), (std::vector<cg::Rect>{cg::Rect(1050, 3000 - 900, 200, 200)}));
    // What the cache shows there is the document without the layer.
    const auto shown = ColorSampler().sample(cache->outputImage(RenderContext()), {1100, 2150});
    ASSERT_TRUE(shown);
    EXPECT_NEAR(shown->redComponent, 40 / 255.0, 1e-6);
}

} // namespace
} // namespace bic
