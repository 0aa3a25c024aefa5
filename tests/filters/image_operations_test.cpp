#include "bic/compositing/image_operations.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/graph/image_operations.hpp"
#include "bic/platform/ci/context.hpp"

#include <cstring>
#include <gtest/gtest.h>

using namespace bic;

namespace {

std::vector<float> render(const ci::Image& image, const cg::Rect& rect) {
    const auto w = std::int64_t(rect.width()), h = std::int64_t(rect.height());
    std::vector<float> out(std::size_t(w * h * 4));
    ci::Context().render(image, out.data(), w * 16, rect, ci::Format::RGBAf);
    return out;
}

std::array<float, 4> pixel(const ci::Image& image, double x, double y) {
    const auto v = render(image, {x, y, 1, 1});
    return {v[0], v[1], v[2], v[3]};
}

ci::Image patch(const cg::Rect& r, double red, double green, double blue, double alpha) {
    return ci::Image::constant({red, green, blue, alpha}).cropped(r);
}

using P = std::array<float, 4>;

void expectNear(const P& got, const P& want, float tolerance = 1e-5f) {
    for (int c = 0; c < 4; ++c)
        EXPECT_NEAR(got[c], want[c], tolerance) << "channel " << c;
}

} // namespace

TEST(ImageOperations, IntentRules) {
    const Image picture(patch({0, 0, 4, 4}, 1, 0, 0, 1));
    const Image mask = Image::mask(patch({0, 0, 2, 4}, 1, 1, 1, 1));
    const Image backdrop = Image::data(patch({0, 0, 4, 4}, 0, 0, 1, 1));

    const Image m = masked(picture, mask);
    EXPECT_EQ(m.intent, Image::Intent::image);
    expectNear(pixel(m.ciImage, 0, 0), {1, 0, 0, 1});
    expectNear(pixel(m.ciImage, 3, 0), {0, 0, 0, 0});
    EXPECT_DEATH(masked(mask, mask), "Fatal error: A mask cannot be masked\\.");
    EXPECT_DEATH(masked(picture, picture), "Fatal error: Only a mask can mask an image\\.");
    EXPECT_DEATH(mixed(picture, backdrop, mask), "Fatal error: Only images of one intent");

    EXPECT_EQ(compositedAtop(picture, backdrop, BlendMode::normal, 1).intent, Image::Intent::image);
    EXPECT_EQ(compositedAtop(picture, backdrop, BlendMode::multiply, 1).intent,
              Image::Intent::data);
    EXPECT_EQ(compositedAtop(picture, backdrop, BlendMode::normal, 0.5).intent,
              Image::Intent::image);
    EXPECT_EQ(compositedOver(picture, backdrop, BlendMode::screen, 1).intent, Image::Intent::data);
    // Atop keeps the background's extent and shows the layer only where the background is.
    const Image small = Image(patch({0, 0, 2, 2}, 0, 1, 0, 1));
    const Image atop = compositedAtop(picture, small, BlendMode::normal, 0.5);
    EXPECT_EQ(atop.extent(), cg::Rect(0, 0, 2, 2));
    expectNear(pixel(atop.ciImage, 1, 1), {0.5f, 0.5f, 0, 1});
}

TEST(ImageOperations, OpacityBlursAndExtents) {
    const Image endless(ci::Image::constant({0.2, 0.4, 0.6, 1}));
    const Image faded = applyingOpacity(endless, 1);
    EXPECT_TRUE(faded.extent().isInfinite());
    expectNear(pixel(faded.ciImage, 5, 5), {0.2f, 0.4f, 0.6f, 1});
    expectNear(pixel(applyingOpacity(endless, 0.5).ciImage, 5, 5), {0.1f, 0.2f, 0.3f, 0.5f});

    // Three passes are three blurs in a row.
    const Image dot(patch({10, 10, 1, 1}, 1, 1, 1, 1));
    ci::Image expected = dot.ciImage;
    for (int i = 0; i < 3; ++i)
        expected = *ci::applyingFilter(expected, "CIBoxBlur", {{"inputRadius", 2.0}});
    const cg::Rect area(0, 0, 21, 21);
    EXPECT_EQ(render(boxBlurred(dot, 2, 3).ciImage, area), render(expected, area));
    EXPECT_NE(render(boxBlurred(dot, 2, 2).ciImage, area), render(expected, area));
    EXPECT_DEATH(boxBlurred(dot, 2, 0), "Fatal error: A box blur needs at least one pass\\.");

    const ci::Image p = patch({1, 2, 3, 4}, 1, 1, 1, 1);
    EXPECT_EQ(bic_bySettingExtent(p, {1, 2, 3, 4}), p);
    const ci::Image wider = bic_bySettingExtent(p, {0, 0, 10, 10});
    EXPECT_EQ(wider.extent(), cg::Rect(0, 0, 10, 10));
    expectNear(pixel(wider, 0, 0), {0, 0, 0, 0});
    EXPECT_EQ(bic_movedToOrigin(p).extent(), cg::Rect(0, 0, 3, 4));

    const ci::Image cut = bic_stampingOut(patch({0, 0, 4, 4}, 1, 0, 0, 1), {1, 1, 2, 2});
    expectNear(pixel(cut, 0, 0), {1, 0, 0, 1});
    expectNear(pixel(cut, 1, 1), {0, 0, 0, 0});

    // The frame: the outer ring of pixels only.
    const ci::Image frame = bic_frame({0, 0, 5, 4}, {0, 0, 1, 1});
    expectNear(pixel(frame, 0, 2), {0, 0, 1, 1});
    expectNear(pixel(frame, 4, 3), {0, 0, 1, 1});
    expectNear(pixel(frame, 2, 2), {0, 0, 0, 0});
    expectNear(pixel(frame, 6, 2), {0, 0, 0, 0});
}

TEST(ImageOperations, ThresholdMixAndDistance) {
    const ci::Image grey = patch({0, 0, 1, 1}, 0.5, 0.5, 0.5, 1);
    expectNear(pixel(bic_threshold(grey, 0.5), 0, 0), {1, 1, 1, 1});
    expectNear(pixel(bic_threshold(grey, 0.51), 0, 0), {0, 0, 0, 1});
    EXPECT_EQ(bic_threshold(ci::Image::empty(), 0.5).extent(), ci::Image::empty().extent());

    const ci::Image a = patch({0, 0, 2, 1}, 1, 0, 0, 1), b = patch({0, 0, 2, 1}, 0, 0, 1, 1);
    const ci::Image quarter = patch({0, 0, 2, 1}, 0.25, 0.25, 0.25, 1);
    expectNear(pixel(bic_mixWithMask(a, b, quarter), 0, 0), {0.75f, 0, 0.25f, 1});
    expectNear(pixel(mixed(Image(a), Image(b), 0.75).ciImage, 0, 0), {0.75f, 0, 0.25f, 1});

    const ci::Image colour = patch({0, 0, 1, 1}, 0.2, 0.9, 0.5, 1);
    expectNear(pixel(bic_maxDistanceMask(colour, {0.25, 0.5, 0.5, 1}), 0, 0),
               {0.4f, 0.4f, 0.4f, 1});
}

TEST(ImageOperations, CurvesAndGradientTables) {
    const ci::Image c = patch({0, 0, 1, 1}, 0.25, 0.5, 1, 0.5);
    // Curves read at v·(n − 1) between entries, on unpremultiplied colour.
    const auto out = mapped(c, {0, 1}, {1, 0}, {});
    ASSERT_TRUE(out);
    expectNear(pixel(*out, 0, 0), {0.125f, 0.25f, 0.5f, 0.5f});
    const auto steps = mapped(c, {0, 0.1, 0.9, 1}, {0, 0.1, 0.9, 1}, {0, 0.1, 0.9, 1});
    expectNear(pixel(*steps, 0, 0), {0.5f * 0.075f, 0.5f * 0.5f, 0.5f * 1, 0.5f});
    EXPECT_THROW(mapped(Image(ci::Image::empty()), std::vector<double>{0, 1}), ImageCoreError);

    // A table from black to red by luminosity.
    std::vector<std::uint8_t> table(4096);
    for (int i = 0; i < 256; ++i) {
        const float e[4] = {float(i) / 255, 0, 0, 1};
        std::memcpy(table.data() + i * 16, e, 16);
    }
    const auto mappedGrey = mapped(patch({0, 0, 1, 1}, 0.6, 0.6, 0.6, 1), table);
    ASSERT_TRUE(mappedGrey);
    expectNear(pixel(*mappedGrey, 0, 0), {0.6f, 0, 0, 1});
    EXPECT_FALSE(mapped(c, std::vector<std::uint8_t>(4095)));
}

TEST(ImageOperations, NormalsEdgesAndDotProducts) {
    // A unit step along x: Sobel is 1 on both sides of the edge and 0 away from it.
    const ci::Image step =
        patch({0, 0, 4, 4}, 0, 0, 0, 1).composited(patch({4, 0, 4, 4}, 1, 1, 1, 1));
    const auto edges = bic_sobel(step);
    ASSERT_TRUE(edges);
    expectNear(pixel(*edges, 3, 2), {1, 1, 1, 1});
    expectNear(pixel(*edges, 4, 2), {1, 1, 1, 1});
    expectNear(pixel(*edges, 1, 2), {0, 0, 0, 1});
    expectNear(pixel(*edges, 6, 2), {0, 0, 0, 1});
    EXPECT_EQ(sobel(Image::mask(step)).intent, Image::Intent::mask);

    const ci::Image flat = ci::Image::constant({0.5, 0.5, 0.5, 1});
    const ci::Image normals = surfaceNormals(flat.cropped({0, 0, 8, 8}));
    expectNear(pixel(normals, 4, 4), {0, 0, 1, 1});
    // Rising to the right: the normal leans left.
    const P lean = pixel(surfaceNormals(step), 4, 2);
    EXPECT_LT(lean[0], 0);
    EXPECT_GT(lean[2], 0);
    const auto lit = dotProduct(normals, {0, 0, 0.5});
    expectNear(pixel(*lit, 4, 4), {0.5f, 0.5f, 0.5f, 1});
    EXPECT_DEATH(dotProduct(normals, {1, 0}), "three components");
}

TEST(ImageOperations, StrokeMaskFromDistance) {
    // Distances 0, 2.5 and 4 under a radius of 3: covered, half covered, empty.
    const ci::Image d = patch({0, 0, 1, 1}, 0, 0, 0, 1)
                            .composited(patch({1, 0, 1, 1}, 2.5, 2.5, 2.5, 1))
                            .composited(patch({2, 0, 1, 1}, 4, 4, 4, 1));
    const Image mask = strokeMaskFromDistance(Image::data(d), 3);
    EXPECT_EQ(mask.intent, Image::Intent::mask);
    EXPECT_EQ(mask.extent(), cg::Rect(0, 0, 3, 1));
    expectNear(pixel(mask.ciImage, 0, 0), {1, 1, 1, 1});
    expectNear(pixel(mask.ciImage, 1, 0), {0.5f, 0.5f, 0.5f, 1});
    expectNear(pixel(mask.ciImage, 2, 0), {0, 0, 0, 1});
}
