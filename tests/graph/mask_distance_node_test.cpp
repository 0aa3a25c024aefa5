#include "bic/graph/distance_map_node.hpp"
#include "bic/graph/mask_image_node.hpp"
#include "bic/platform/ci/context.hpp"
#include "graph/graph_support.hpp"

#include <cmath>
#include <gtest/gtest.h>

using namespace bic;
using test_support::RecordingConsumer;

namespace {

float redAt(const ci::Image& image, double x, double y) {
    float px[4];
    ci::Context().render(image, px, 16, cg::Rect(x, y, 1, 1), ci::Format::RGBAf);
    return px[0];
}

std::shared_ptr<StaticImageProvider> provider(Image image) {
    return std::make_shared<StaticImageProvider>(std::move(image));
}

} // namespace

TEST(MaskImageNode, MasksWhileOnAndForwardsChanges) {
    auto node = std::make_shared<MaskImageNode>();
    EXPECT_TRUE(node->outputImageExtent().isNull());
    const Image white = node->outputImage({});
    EXPECT_EQ(white.intent, Image::Intent::mask);
    EXPECT_EQ(redAt(white.ciImage, 5, 5), 1.0f);

    auto consumer = std::make_shared<RecordingConsumer>();
    node->addImageConsumer(*consumer);
    auto picture = provider(Image(ci::Image::constant({1, 0, 0, 1}).cropped({0, 0, 10, 10})));
    auto mask = provider(Image::mask(ci::Image::white()
                                         .cropped({0, 0, 5, 10})
                                         .composited(ci::Image::black().cropped({0, 0, 10, 10}))));
    node->setInputImageProvider(picture);
    EXPECT_EQ(consumer->rects(), (std::vector<cg::Rect>{cg::Rect::null(), {0, 0, 10, 10}}));
    consumer->calls.clear();
    node->setInputImageProvider(picture); // the same one: nothing
    EXPECT_TRUE(consumer->calls.empty());
    // Without a mask input: the picture itself.
    EXPECT_EQ(node->outputImage({}), picture->outputImage({}));
    node->setInputMaskProvider(mask);
    const Image masked = node->outputImage({});
    EXPECT_EQ(masked.intent, Image::Intent::image);
    EXPECT_EQ(redAt(masked.ciImage, 2, 2), 1.0f);
    EXPECT_EQ(redAt(masked.ciImage, 7, 2), 0.0f);
    consumer->calls.clear();
    node->setMaskTurnedOn(true); // no change, still two notifications
    EXPECT_EQ(consumer->rects(), (std::vector<cg::Rect>{{0, 0, 10, 10}, {0, 0, 10, 10}}));
    node->setMaskTurnedOn(false);
    EXPECT_EQ(node->outputImage({}), picture->outputImage({}));

    consumer->calls.clear();
    picture->broadcastOutputImageChange({1, 1, 2, 2});
    mask->broadcastOutputImageChange({8, 8, 5, 5});
    mask->broadcastOutputImageChange({20, 20, 5, 5});
    ASSERT_EQ(consumer->calls.size(), 3u);
    EXPECT_EQ(consumer->calls[0].rect, cg::Rect(1, 1, 2, 2));
    EXPECT_EQ(consumer->calls[1].rect, cg::Rect(8, 8, 2, 2));
    EXPECT_TRUE(consumer->calls[2].rect.isNull() || consumer->calls[2].rect.isEmpty());
    auto stranger = provider(Image::empty());
    EXPECT_DEATH(node->invalidateInputImage(*stranger, {0, 0, 1, 1}),
                 "Fatal error: MaskImageNode does not listen to changes of this sender "
                 "StaticImageProvider\\.");
}

TEST(DistanceMapNode, MapsCachesAndInvalidates) {
    auto node = std::make_shared<DistanceMapNode>(DistanceMapNode::DistanceMapType::outer, 2.1,
                                                  std::nullopt);
    EXPECT_EQ(node->searchLimitRadius(), 3.0);
    // No extent yet: infinitely far, not kept.
    const Image far = node->outputImage({});
    EXPECT_TRUE(std::isinf(redAt(far.ciImage, 0, 0)));
    EXPECT_NE(node->outputImage({}), far);

    auto consumer = std::make_shared<RecordingConsumer>();
    node->addImageConsumer(*consumer);
    // A white square 10…20 in a 40 × 40 extent.
    auto square = provider(Image::mask(ci::Image::white().cropped({10, 10, 10, 10})));
    node->setExtent({0, 0, 40, 40});
    node->setInputImageProvider(square);
    const Image map = node->outputImage({});
    EXPECT_EQ(map.intent, Image::Intent::mask);
    EXPECT_EQ(node->outputImage({}), map); // kept
    EXPECT_EQ(redAt(map.ciImage, 15, 15), 0.0f);
    EXPECT_EQ(redAt(map.ciImage, 21, 15), 2.0f);         // two pixels right of the square
    EXPECT_TRUE(std::isinf(redAt(map.ciImage, 35, 35))); // beyond the search area

    // Inner distances of a shape whose mask hides everything outside it: from the edge in.
    auto shape = provider(
        Image::mask(ci::Image::white().cropped({10, 10, 10, 10}).composited(ci::Image::black())));
    auto inner = std::make_shared<DistanceMapNode>(DistanceMapNode::DistanceMapType::inner, 5, 0.5);
    inner->setExtent({0, 0, 40, 40});
    inner->setInputImageProvider(shape);
    const Image in = inner->outputImage({});
    EXPECT_EQ(redAt(in.ciImage, 15, 15), 5.0f); // the middle of the square: five from outside
    EXPECT_EQ(redAt(in.ciImage, 25, 15), 0.0f);

    // Radius changes: larger drops the map and notifies the input's extent grown by it.
    consumer->calls.clear();
    node->setSearchLimitRadius(5);
    EXPECT_EQ(consumer->rects(), (std::vector<cg::Rect>{{5, 5, 20, 20}}));
    const Image again = node->outputImage({});
    EXPECT_NE(again, map);
    consumer->calls.clear();
    node->setSearchLimitRadius(4);
    EXPECT_TRUE(consumer->calls.empty());
    EXPECT_EQ(node->outputImage({}), again);

    // An invalidation grows by the radius (4) and is clipped to the extent.
    square->broadcastOutputImageChange({12, 12, 1, 1});
    EXPECT_EQ(consumer->rects().back(), cg::Rect(8, 8, 9, 9));
    EXPECT_NE(node->outputImage({}), again);
    auto stranger = provider(Image::empty());
    EXPECT_DEATH(
        node->invalidateInputImage(*stranger, {0, 0, 1, 1}),
        "DistanceMapNode does not listen to changes of this sender StaticImageProvider\\.");
    // Data cannot become a mask.
    auto data = provider(Image::data(ci::Image::white().cropped({0, 0, 4, 4})));
    auto fresh =
        std::make_shared<DistanceMapNode>(DistanceMapNode::DistanceMapType::outer, 2, std::nullopt);
    fresh->setExtent({0, 0, 4, 4});
    fresh->setInputImageProvider(data);
    EXPECT_DEATH(fresh->outputImage({}), "Cannot create mask from data\\.");
}

TEST(DistanceMapNode, OuterDistancesFallTowardsTheShape) {
    // A 4 × 4 square in an extent that reaches ten pixels past it: along a row from the extent's
    // edge, the distance falls from 10 to 1.
    auto node = std::make_shared<DistanceMapNode>(DistanceMapNode::DistanceMapType::outer, 10,
                                                  std::nullopt);
    auto square = provider(Image::mask(ci::Image::white().cropped({10, 10, 4, 4})));
    node->setExtent({0, 0, 24, 24});
    node->setInputImageProvider(square);
    const Image map = node->outputImage({});
    for (int x = 0; x < 10; ++x)
        EXPECT_EQ(redAt(map.ciImage, x, 11), float(10 - x)) << x;
}
