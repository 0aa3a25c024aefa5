#include "bic/graph/color_sampler.hpp"
#include "bic/graph/image_provider.hpp"
#include "graph/graph_support.hpp"

#include <gtest/gtest.h>

using namespace bic;
using bic::test_support::RecordingConsumer;

namespace {
ci::Image square(double side, const ci::Color& color = ci::Color{1, 0, 0, 1}) {
    return ci::Image::constant(color).cropped(cg::Rect(0, 0, side, side));
}
} // namespace

TEST(GraphImage, StaticImagesIntentsAndMasks) {
    EXPECT_TRUE(Image::empty().extent().isEmpty());
    EXPECT_TRUE(Image::emptyMask().extent().isInfinite());
    EXPECT_TRUE(Image::hidingMask().extent().isInfinite());
    EXPECT_EQ(Image::emptyMask().intent, Image::Intent::mask);
    EXPECT_EQ(Image::hidingMask().intent, Image::Intent::mask);
    EXPECT_EQ(Image::zeroData().intent, Image::Intent::data);
    ColorSampler sampler;
    EXPECT_EQ(sampler.sample(Image::emptyMask(), {3, 4})->red(), 1.0f);
    EXPECT_EQ(sampler.sample(Image::hidingMask(), {3, 4})->red(), 0.0f);

    const ci::Image picture =
        ci::Image::constant(ci::Color{0.2, 0.4, 0.6, 0.5}).cropped(cg::Rect(0, 0, 4, 4));
    const Image asMask = Image::mask(picture);
    EXPECT_EQ(asMask.maskRepresentation().ciImage, picture) << "a mask is its own mask";
    EXPECT_FALSE(Image(picture) == asMask) << "same recipe, different intent";
    EXPECT_TRUE(Image(picture) == Image(picture));

    // A picture's mask is its alpha as an opaque grey, black outside the picture.
    const Image fromAlpha = Image(picture).maskRepresentation();
    EXPECT_EQ(fromAlpha.intent, Image::Intent::mask);
    EXPECT_EQ(fromAlpha.knockoutMask().ciImage.extent(), fromAlpha.ciImage.extent());
    const auto inside = *sampler.sample(fromAlpha, {1, 1});
    EXPECT_NEAR(inside.red(), 0.5, 1e-6);
    EXPECT_NEAR(inside.alpha(), 1, 1e-6);
    EXPECT_EQ(*sampler.sample(fromAlpha, {10, 1}), PixelRGBA32(0, 0, 0, 1));

    EXPECT_EQ(sampler.sample(Image(PixelRGBA32(0, 1, 0, 1)), {-5, 5})->green(), 1.0f);
}

TEST(GraphImageDeathTest, DataHasNoMask) {
    EXPECT_DEATH(Image::zeroData().maskRepresentation(), "Cannot create mask from data\\.");
    EXPECT_DEATH(Image::zeroData().knockoutMask(), "Cannot create mask from data\\.");
}

TEST(RenderContext, ReadyMadeContexts) {
    const RenderContext plain;
    for (const RenderContext& c :
         {RenderContext::defaultContext(), RenderContext::defaultNoCaching(),
          RenderContext::preview(), RenderContext::fileOutput(), plain}) {
        EXPECT_TRUE(c.background.extent().isEmpty());
        EXPECT_EQ(c.background.intent, Image::Intent::image);
        EXPECT_TRUE(c.userInfo.empty());
    }
    EXPECT_EQ(RenderContext::defaultContext().quality, plain.quality);
    EXPECT_FALSE(RenderContext::defaultContext().disableCaching);
    EXPECT_TRUE(RenderContext::defaultNoCaching().disableCaching);
    EXPECT_TRUE(RenderContext::fileOutput().disableCaching);
    EXPECT_EQ(RenderContext::fileOutput().quality, RenderContext::Quality::standard);
    EXPECT_EQ(RenderContext::preview().quality, RenderContext::Quality::preview);
    EXPECT_EQ(RenderContext(RenderContext::Quality::preview).quality,
              RenderContext::preview().quality);
    EXPECT_FALSE(RenderContext::preview().disableCaching);
    EXPECT_TRUE(RenderContext::preview().userInfo.empty());
}

TEST(ImageProvider, RegistrationAndBroadcasts) {
    auto provider = std::make_shared<StaticImageProvider>(Image(square(100)));
    auto a = std::make_shared<RecordingConsumer>();
    provider->addImageConsumer(*a);
    provider->addImageConsumer(*a);
    EXPECT_EQ(provider->imageConsumers().size(), 1u);
    provider->removeImageConsumer(*a);
    EXPECT_TRUE(provider->imageConsumers().empty());

    // Old extent first, then the new one; an equal image still sends both.
    provider->addImageConsumer(*a);
    provider->setImage(Image(square(50)));
    EXPECT_EQ(a->rects(), (std::vector<cg::Rect>{{0, 0, 100, 100}, {0, 0, 50, 50}}));
    EXPECT_EQ(a->calls[0].sender, provider.get());
    provider->setImage(provider->image());
    EXPECT_EQ(a->calls.size(), 4u);
    EXPECT_EQ(provider->outputImage(RenderContext::preview()), provider->image());
    EXPECT_EQ(provider->outputImageExtent(), cg::Rect(0, 0, 50, 50));

    provider->setBroadcastingImageChanges(false);
    provider->setImage(Image(square(10)));
    EXPECT_EQ(a->calls.size(), 4u);
    EXPECT_EQ(provider->outputImageExtent(), cg::Rect(0, 0, 10, 10));
    provider->setBroadcastingImageChanges(true);

    // A destroyed consumer's entry stays and is skipped; new consumers come after it.
    auto gone = std::make_shared<RecordingConsumer>();
    provider->addImageConsumer(*gone);
    gone.reset();
    auto b = std::make_shared<RecordingConsumer>();
    provider->addImageConsumer(*b);
    ASSERT_EQ(provider->imageConsumers().size(), 3u);
    EXPECT_TRUE(provider->imageConsumers()[1].expired());
    EXPECT_EQ(provider->imageConsumers()[2].lock().get(), static_cast<GraphObject*>(b.get()));

    // A consumer that leaves while being told does not stop the pass.
    a->onCall = [&] { provider->removeImageConsumer(*a); };
    provider->broadcastOutputImageChange(cg::Rect(1, 2, 3, 4));
    EXPECT_EQ(b->rects(), (std::vector<cg::Rect>{{1, 2, 3, 4}}));
    EXPECT_EQ(provider->imageConsumers().size(), 2u);

    // A listed object that is not a consumer is skipped.
    auto plainObject = std::make_shared<StaticImageProvider>(Image::empty());
    auto list = provider->imageConsumers();
    list.push_back(plainObject);
    provider->setImageConsumers(list);
    provider->broadcastOutputImageChange(cg::Rect(0, 0, 1, 1));
    EXPECT_EQ(b->calls.size(), 2u);
}

TEST(WeakContainerNode, StandsInForItsProvider) {
    auto node = std::make_shared<WeakContainerNode>();
    EXPECT_EQ(node->outputImage(RenderContext()), Image::empty());
    EXPECT_TRUE(node->outputImageExtent().isNull());
    auto seen = std::make_shared<RecordingConsumer>();
    node->addImageConsumer(*seen);

    auto a = std::make_shared<StaticImageProvider>(Image(square(100)));
    auto b = std::make_shared<StaticImageProvider>(Image(square(30)));
    node->setImageProvider(a);
    EXPECT_EQ(seen->rects(), (std::vector<cg::Rect>{{0, 0, 100, 100}}));
    EXPECT_EQ(node->outputImage(RenderContext()), a->image());
    node->setImageProvider(a); // the same again: nothing
    EXPECT_EQ(seen->calls.size(), 1u);
    node->setImageProvider(b);
    EXPECT_EQ(seen->rects(),
              (std::vector<cg::Rect>{{0, 0, 100, 100}, {0, 0, 100, 100}, {0, 0, 30, 30}}));
    EXPECT_TRUE(a->imageConsumers().empty());
    ASSERT_EQ(b->imageConsumers().size(), 1u);
    EXPECT_EQ(node->outputImageExtent(), cg::Rect(0, 0, 30, 30));

    // Its provider's changes pass through unchanged, with the node as sender.
    b->broadcastOutputImageChange(cg::Rect(1.5, 2, 3, 4));
    EXPECT_EQ(seen->calls.back().rect, cg::Rect(1.5, 2, 3, 4));
    EXPECT_EQ(seen->calls.back().sender, node.get());
    node->setImageProvider(nullptr);
    EXPECT_TRUE(b->imageConsumers().empty());
    EXPECT_EQ(seen->calls.back().rect, cg::Rect(0, 0, 30, 30));
}

TEST(WeakContainerNodeDeathTest, StrangersStop) {
    auto node = std::make_shared<WeakContainerNode>();
    StaticImageProvider stranger(Image::empty());
    EXPECT_DEATH(node->invalidateInputImage(stranger, cg::Rect(0, 0, 1, 1)),
                 "WeakContainerNode is not listening to sender of type StaticImageProvider\\.");
}
