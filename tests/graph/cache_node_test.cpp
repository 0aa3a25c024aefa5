#include "bic/graph/async_image_cache_node.hpp"
#include "bic/graph/color_sampler.hpp"
#include "bic/platform/ci/context.hpp"
#include "bic/platform/ci/kernel.hpp"
#include "graph/graph_support.hpp"

#include <future>
#include <gtest/gtest.h>

using namespace bic;
using namespace std::chrono_literals;
using bic::test_support::RecordingConsumer;

namespace {

ci::Image square(const cg::Rect& rect, const ci::Color& color) {
    return ci::Image::constant(color).cropped(rect);
}

struct Graph {
    std::shared_ptr<StaticImageProvider> input;
    std::shared_ptr<AsyncImageCacheNode> node;
    std::shared_ptr<RecordingConsumer> seen = std::make_shared<RecordingConsumer>();
    int framerate;

    explicit Graph(const cg::Rect& extent, Image::Intent intent = Image::Intent::image,
                   int framerate = 120)
        : input(std::make_shared<StaticImageProvider>(
              Image(square(cg::Rect(0, 0, 64, 64), ci::Color{1, 0, 0, 1})))),
          node(AsyncImageCacheNode::make(extent, 8, intent, framerate)), framerate(framerate) {
        node->addImageConsumer(*seen);
        node->setInputImageProvider(input);
    }
    // Pumps the main queue until the node has broadcast `count` changes in all.
    bool waitForBroadcasts(std::size_t count) {
        return dispatch::MainQueue::shared().runUntil([&] { return seen->calls.size() >= count; },
                                                      5s);
    }
    // Renders whatever connecting the input left dirty and forgets the broadcasts, so a test
    // starts from a node with nothing to do: done when three frame intervals pass quietly.
    void settle() {
        input->broadcastOutputImageChange(input->outputImageExtent());
        ASSERT_TRUE(waitForBroadcasts(1));
        const auto quiet = std::chrono::milliseconds(3000 / framerate);
        for (std::size_t count = 0; count != seen->calls.size();) {
            count = seen->calls.size();
            std::this_thread::sleep_for(quiet);
            dispatch::MainQueue::shared().drain();
        }
        seen->calls.clear();
    }
    PixelRGBA32 pixel(cg::Point p) {
        return *ColorSampler().sample(node->outputImage(RenderContext()), p);
    }
};

} // namespace

TEST(AsyncImageCacheNode, NeutralOutputBeforeTheFirstRender) {
    auto mask = AsyncImageCacheNode::make(cg::Rect(0, 0, 8, 8), 8, Image::Intent::mask, 60);
    const Image white = mask->outputImage(RenderContext());
    EXPECT_EQ(white.intent, Image::Intent::mask);
    EXPECT_TRUE(white.extent().isInfinite());
    auto picture = AsyncImageCacheNode::make(cg::Rect(0, 0, 8, 8), 8, Image::Intent::data, 60);
    EXPECT_TRUE(picture->outputImage(RenderContext()).extent().isEmpty());
    EXPECT_EQ(picture->outputImage(RenderContext()).intent, Image::Intent::image);
    EXPECT_EQ(picture->intent(), Image::Intent::data);
    EXPECT_EQ(picture->outputImageExtent(), cg::Rect(0, 0, 8, 8));
    EXPECT_EQ(picture->inputImageProvider(), nullptr);
}

TEST(AsyncImageCacheNode, RendersChangesInTheBackgroundAndTellsItsConsumers) {
    // Ten frames a second: the changes below arrive well before the next fire is due.
    Graph g(cg::Rect(0, 0, 100, 100), Image::Intent::image, 10);
    EXPECT_EQ(g.node->inputImageProvider(), g.input);
    g.settle();
    // Three changes before a fire: one render, one broadcast of the combined area, clipped to
    // the extent and widened to whole pixels. They are made as a render is announced, so the
    // next fire is a whole frame (100 ms) away.
    g.seen->onCall = [&] {
        g.seen->onCall = nullptr;
        g.seen->calls.clear();
        g.input->broadcastOutputImageChange(cg::Rect(10.5, 10, 5, 5));
        g.input->broadcastOutputImageChange(cg::Rect(90, 90, 50, 50));
        g.input->broadcastOutputImageChange(cg::Rect(200, 200, 5, 5)); // outside: ignored
    };
    g.input->broadcastOutputImageChange(cg::Rect(0, 0, 1, 1));
    ASSERT_TRUE(g.waitForBroadcasts(1));
    std::this_thread::sleep_for(250ms);
    dispatch::MainQueue::shared().drain();
    EXPECT_EQ(g.seen->rects(), (std::vector<cg::Rect>{{10, 10, 90, 90}}));
    EXPECT_EQ(g.seen->calls[0].sender, g.node.get());
    EXPECT_EQ(g.pixel({5, 5}), PixelRGBA32(1, 0, 0, 1));
    EXPECT_EQ(g.pixel({80, 80}), PixelRGBA32(0, 0, 0, 0)) << "no input there: transparent";

    g.input->setImage(Image(square(cg::Rect(0, 0, 30, 30), ci::Color{0, 0, 1, 1})));
    ASSERT_TRUE(g.waitForBroadcasts(2));
    EXPECT_EQ(g.seen->rects()[1], cg::Rect(0, 0, 64, 64));
    EXPECT_EQ(g.pixel({5, 5}), PixelRGBA32(0, 0, 1, 1));
    EXPECT_EQ(g.pixel({40, 40}), PixelRGBA32(0, 0, 0, 0));

    // With caching off in the context the input answers, fresh.
    EXPECT_EQ(g.node->outputImage(RenderContext::defaultNoCaching()), g.input->image());
    std::this_thread::sleep_for(30ms);
    dispatch::MainQueue::shared().drain();
    EXPECT_EQ(g.seen->calls.size(), 2u) << "nothing renders without a change";
}

TEST(AsyncImageCacheNode, PerRectangleRenderingAndTheOverlay) {
    Graph g(cg::Rect(0, 0, 100, 100));
    g.settle();
    g.node->setSinglePassRendering(false);
    g.node->setVisualizingLastRenderRect(true);
    g.input->broadcastOutputImageChange(cg::Rect(0, 0, 10, 10));
    ASSERT_TRUE(g.waitForBroadcasts(1));
    EXPECT_EQ(g.seen->rects()[0], cg::Rect(0, 0, 10, 10));
    // The overlay is laid over the rendered pixels: no longer pure red.
    const PixelRGBA32 p = g.pixel({5, 5});
    EXPECT_EQ(p.alpha(), 1.0f);
    EXPECT_GT(p.green() + p.blue(), 0.1f);
}

TEST(AsyncImageCacheNode, DisabledNodesPassChangesThrough) {
    Graph g(cg::Rect(0, 0, 100, 100));
    g.node->setEnabled(false);
    g.input->broadcastOutputImageChange(cg::Rect(500, 1, 2, 3));
    EXPECT_EQ(g.seen->rects(), (std::vector<cg::Rect>{{500, 1, 2, 3}})) << "at once, unclipped";
    EXPECT_EQ(g.node->outputImage(RenderContext()), g.input->image());
}

TEST(AsyncImageCacheNode, ExtentDepthAndIntentChanges) {
    Graph g(cg::Rect(0, 0, 50, 50), Image::Intent::image);
    g.settle();
    g.node->setExtent(cg::Rect(0, 0, 50, 50)); // unchanged: nothing
    g.node->setExtent(cg::Rect(20, 20, 60, 60));
    EXPECT_EQ(g.node->extent(), cg::Rect(20, 20, 60, 60));
    ASSERT_TRUE(g.waitForBroadcasts(1));
    EXPECT_EQ(g.seen->rects()[0], cg::Rect(0, 0, 80, 80)) << "old and new extents together";

    g.node->setIntent(Image::Intent::mask);
    EXPECT_EQ(g.node->intent(), Image::Intent::mask);
    ASSERT_TRUE(g.waitForBroadcasts(2));
    EXPECT_EQ(g.seen->rects()[1], cg::Rect(20, 20, 60, 60));
    EXPECT_EQ(g.node->outputImage(RenderContext()).intent, Image::Intent::mask);

    g.node->setBitDepth(16);
    ASSERT_TRUE(g.waitForBroadcasts(3));
    // The next change renders the whole new extent at the new depth.
    g.input->broadcastOutputImageChange(cg::Rect(30, 30, 1, 1));
    ASSERT_TRUE(g.waitForBroadcasts(4));
    EXPECT_EQ(g.seen->rects()[3], cg::Rect(20, 20, 60, 60));
    // The new accumulator is a mask one (the intent is mask now): red's level reads as white.
    EXPECT_EQ(g.pixel({30, 30}), PixelRGBA32(1, 1, 1, 1));
}

TEST(AsyncImageCacheNode, ReplacingTheInputMovesTheRegistration) {
    Graph g(cg::Rect(0, 0, 10, 10));
    g.settle();
    auto other = std::make_shared<StaticImageProvider>(
        Image(square(cg::Rect(0, 0, 10, 10), ci::Color{0, 1, 0, 1})));
    g.node->setInputImageProvider(other);
    EXPECT_TRUE(g.input->imageConsumers().empty());
    EXPECT_EQ(other->imageConsumers().size(), 1u);
    EXPECT_EQ(g.node->inputImageProvider(), other);
    other->broadcastOutputImageChange(cg::Rect(0, 0, 1, 1));
    ASSERT_TRUE(g.waitForBroadcasts(1));
    EXPECT_EQ(g.pixel({5, 5}), PixelRGBA32(0, 1, 0, 1));
}

TEST(AsyncImageCacheNode, AFailedRenderKeepsThePreviousOutput) {
    // Coordinates this far out cannot be rendered.
    Graph g(cg::Rect(1e14, 0, 10, 10));
    const Image before = g.node->outputImage(RenderContext());
    testing::internal::CaptureStdout();
    g.input->setImage(Image(ci::Image::white()));
    dispatch::MainQueue::shared().runUntil([] { return false; }, 200ms); // pump a while
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.rfind("\"AsyncImageCacheNode failed to render.\\n", 0), 0u) << out;
    EXPECT_EQ(out.back(), '\n');
    EXPECT_EQ(g.node->outputImage(RenderContext()), before);
    EXPECT_TRUE(g.seen->calls.empty());
}

TEST(AsyncImageCacheNode, AReleasedNodeNeverRendersOrBroadcasts) {
    auto input = std::make_shared<StaticImageProvider>(Image(ci::Image::white()));
    auto seen = std::make_shared<RecordingConsumer>();
    {
        auto node =
            AsyncImageCacheNode::make(cg::Rect(0, 0, 64, 64), 8, Image::Intent::image, 1000);
        node->addImageConsumer(*seen);
        node->setInputImageProvider(input);
        input->setImage(Image(ci::Image::black()));
    }
    std::this_thread::sleep_for(20ms);
    dispatch::MainQueue::shared().drain();
    EXPECT_TRUE(seen->calls.empty());
    input->setImage(Image(ci::Image::white())); // its dead entry is skipped
}

TEST(AsyncImageCacheNodeDeathTest, StrangersStop) {
    auto node = AsyncImageCacheNode::make(cg::Rect(0, 0, 8, 8), 8, Image::Intent::image, 60);
    StaticImageProvider stranger(Image::empty());
    EXPECT_DEATH(node->invalidateInputImage(stranger, cg::Rect(0, 0, 1, 1)),
                 "AsyncImageCacheNode is not listening to sender StaticImageProvider\\.");
}

namespace {

// A colour kernel that holds every row until the gate opens: a render that is under way for as
// long as a test needs.
std::atomic<bool> gateOpen{false};
std::atomic<int> rowsWaiting{0};

void heldBlueRow(const ci::KernelRow& row) {
    ++rowsWaiting;
    while (!gateOpen)
        std::this_thread::sleep_for(1ms);
    for (std::int64_t i = 0; i < row.count; ++i) {
        float* p = row.out + 4 * i;
        p[0] = 0, p[1] = 0, p[2] = 1, p[3] = 1;
    }
}

} // namespace

TEST(AsyncImageCacheNode, TheOutputCanBeDrawnWhileTheNodeRenders) {
    Graph g(cg::Rect(0, 0, 256, 256));
    g.settle(); // red in (0, 0, 64, 64), published
    EXPECT_EQ(g.node->queueLabel(), "org.brellin.BrellinImageCore.AsyncImageCacheNode");

    gateOpen = false;
    rowsWaiting = 0;
    const ci::ColorKernel held("heldBlue", heldBlueRow);
    g.input->setImage(Image(*held.apply(cg::Rect(0, 0, 256, 256), {})));
    ASSERT_TRUE(dispatch::MainQueue::shared().runUntil([] { return rowsWaiting > 0; }, 5s));

    // The render is under way and cannot finish: drawing the published picture must not wait
    // for it, and shows it whole.
    const ci::Image published = g.node->outputImage(RenderContext()).ciImage;
    auto read = std::async(std::launch::async, [&] {
        std::vector<float> pixels(256 * 256 * 4);
        ci::Context::shared()->render(published, pixels.data(), 256 * 16, cg::Rect(0, 0, 256, 256),
                                      ci::Format::RGBAf);
        return pixels;
    });
    const bool answered = read.wait_for(10s) == std::future_status::ready;
    gateOpen = true;
    ASSERT_TRUE(answered) << "reading the published image waited for the render";
    const std::vector<float> pixels = read.get();
    auto at = [&](int x, int y) {
        const float* p = pixels.data() + ((255 - y) * 256 + x) * 4;
        return PixelRGBA32(p[0], p[1], p[2], p[3]);
    };
    EXPECT_EQ(at(10, 10), PixelRGBA32(1, 0, 0, 1));
    EXPECT_EQ(at(63, 63), PixelRGBA32(1, 0, 0, 1));
    EXPECT_EQ(at(64, 10), PixelRGBA32(0, 0, 0, 0));
    EXPECT_EQ(at(200, 200), PixelRGBA32(0, 0, 0, 0));

    // A broadcast of the settling render may still arrive late on a loaded machine, so the test
    // waits for the new picture itself rather than for the first announcement.
    ASSERT_TRUE(dispatch::MainQueue::shared().runUntil(
        [&] {
            return g.pixel({200, 200}) == PixelRGBA32(0, 0, 1, 1);
        },
        5s))
        << "the render that was held never published";
    // What was read during the render is still the picture it was.
    EXPECT_EQ(*ColorSampler().sample(published, {10, 10}), PixelRGBA32(1, 0, 0, 1));
}
