// Every image operation on the three images that break operations most often: the empty image,
// an infinite one and a single pixel. Each must give an image (or its documented error), and
// whatever it gives must render to finite values.

#include "bic/compositing/image_operations.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/gradients/gradient_mapping.hpp"
#include "bic/graph/image_operations.hpp"
#include "bic/platform/ci/context.hpp"

#include <cmath>
#include <functional>
#include <gtest/gtest.h>

using namespace bic;

namespace {

// Renders the part of (−2, −2, 5, 5) the image covers and checks every value is finite.
void expectFiniteRender(const ci::Image& image, const std::string& what) {
    const cg::Rect area = image.extent().intersection(cg::Rect(-2, -2, 5, 5)).integral();
    if (area.isNull() || area.isEmpty()) return;
    const auto w = std::int64_t(area.width()), h = std::int64_t(area.height());
    std::vector<float> px(std::size_t(w * h * 4));
    ci::Context().render(image, px.data(), w * 16, area, ci::Format::RGBAf);
    for (const float v : px)
        ASSERT_TRUE(std::isfinite(v)) << what;
}

struct Subject {
    std::string name;
    ci::Image image;
};

std::vector<Subject> subjects() {
    return {{"empty", ci::Image::empty()},
            {"infinite", ci::Image::constant({0.2, 0.4, 0.6, 0.8})},
            {"single pixel", ci::Image::constant({1, 0.5, 0, 1}).cropped({0, 0, 1, 1})}};
}

} // namespace

TEST(ImageOperations, EmptyInfiniteAndSinglePixelImages) {
    const std::vector<double> curve{0, 0.25, 1};
    for (const auto& [name, ci] : subjects()) {
        SCOPED_TRACE(name);
        for (const auto& [otherName, other] : subjects()) {
            SCOPED_TRACE(otherName);
            const std::vector<std::pair<std::string, std::function<ci::Image()>>> engine = {
                {"bic_masked", [&] { return bic_masked(ci, other); }},
                {"bic_composited", [&] { return bic_composited(ci, other); }},
                {"bic_multiplied", [&] { return bic_multiplied(ci, other); }},
                {"bic_mixed", [&] { return bic_mixed(ci, other, 0.3); }},
                {"bic_dissolved", [&] { return bic_dissolved(ci, other, 0.5); }},
                {"bic_mixWithMask", [&] { return bic_mixWithMask(ci, other, other); }},
                {"blended", [&] { return blended(ci, other, BlendMode::dissolve, 0.5); }},
            };
            for (const auto& [operation, make] : engine)
                expectFiniteRender(make(), operation);
            for (const BlendMode mode : BlendMode::allCases()) {
                if (mode == BlendMode::passThrough || mode == BlendMode::replace) continue;
                expectFiniteRender(blended(ci, other, mode, 0.5), std::string(mode.name()));
                expectFiniteRender(compositedAtop(Image(ci), Image(other), mode, 0.5).ciImage,
                                   std::string(mode.name()) + " atop");
            }
            expectFiniteRender(mixed(Image(ci), Image(other), 0.5).ciImage, "mixed");
            expectFiniteRender(dissolved(Image(ci), Image(other), 0.5).ciImage, "dissolved");
            expectFiniteRender(mixed(Image(ci), Image(other), Image::mask(other)).ciImage,
                               "mixed with mask");
            expectFiniteRender(masked(Image(ci), Image::mask(other)).ciImage, "masked");
        }
        const std::vector<std::pair<std::string, std::function<ci::Image()>>> alone = {
            {"bic_inverted", [&] { return bic_inverted(ci); }},
            {"bic_saturated", [&] { return bic_saturated(ci); }},
            {"bic_applyingBoxBlur", [&] { return bic_applyingBoxBlur(ci, 2); }},
            {"bic_pixelTransformed",
             [&] { return bic_pixelTransformed(ci, cg::AffineTransform::translation(1, 1)); }},
            {"bic_movedToOrigin", [&] { return bic_movedToOrigin(ci); }},
            {"bic_bySettingExtent",
             [&] {
                 return bic_bySettingExtent(ci, {0, 0, 2, 2});
             }},
            {"bic_stampingOut",
             [&] {
                 return bic_stampingOut(ci, {0, 0, 1, 1});
             }},
            {"bic_threshold", [&] { return bic_threshold(ci, 0.5); }},
            {"bic_maxDistanceMask",
             [&] {
                 return bic_maxDistanceMask(ci, {1, 0, 0, 1});
             }},
            {"surfaceNormals", [&] { return surfaceNormals(ci); }},
            {"mapped", [&] { return mapped(ci, curve, curve, curve).value_or(ci::Image()); }},
            {"dotProduct",
             [&] {
                 return dotProduct(ci, {1, 2, 3}).value_or(ci::Image());
             }},
            {"bic_sobel", [&] { return bic_sobel(ci).value_or(ci::Image()); }},
        };
        for (const auto& [operation, make] : alone)
            expectFiniteRender(make(), operation);
        const Image image(ci);
        const std::vector<std::pair<std::string, std::function<Image()>>> graph = {
            {"colorMatrix",
             [&] {
                 return colorMatrix(image, {1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1},
                                    {0, 0, 0, 0});
             }},
            {"gammaAdjusted", [&] { return gammaAdjusted(image, 2.2); }},
            {"applyingOpacity", [&] { return applyingOpacity(image, 0.5); }},
            {"saturated", [&] { return saturated(image); }},
            {"colorClamped",
             [&] {
                 return colorClamped(image, {0, 0, 0, 0}, {0.5, 0.5, 0.5, 1});
             }},
            {"inverted", [&] { return inverted(image); }},
            {"luminosityImage", [&] { return luminosityImage(image); }},
            {"applyingGaussianBlur", [&] { return applyingGaussianBlur(image, 2); }},
            {"boxBlurred", [&] { return boxBlurred(image, 2, 3); }},
            {"threshold", [&] { return threshold(image, 0.5); }},
            {"sobel", [&] { return sobel(image); }},
            {"cropped",
             [&] {
                 return cropped(image, {0, 0, 1, 1});
             }},
            {"clamped",
             [&] {
                 return clamped(image, {0, 0, 1, 1});
             }},
            {"offset",
             [&] {
                 return offset(image, {3, -2});
             }},
            {"distance",
             [&] {
                 return distance(image, {0, 0, 3, 3}, 4);
             }},
            {"strokeMask",
             [&] {
                 return strokeMask(image, 2, {0, 0, 3, 3});
             }},
            {"strokeMaskFromDistance", [&] { return strokeMaskFromDistance(image, 2); }},
        };
        for (const auto& [operation, make] : graph)
            expectFiniteRender(make().ciImage, operation);
        // Tone maps of graph images report an image the kernel could not make: the empty image
        // has no pixels to map.
        const std::vector<std::pair<std::string, std::function<Image()>>> maps = {
            {"mapped", [&] { return mapped(image, curve); }},
            {"mapped to gradient",
             [&] { return mapped(image, ColorGradient::whiteToTransparent()); }},
        };
        for (const auto& [operation, make] : maps) {
            if (ci.extent().isEmpty())
                EXPECT_THROW(make(), ImageCoreError) << operation;
            else
                expectFiniteRender(make().ciImage, operation);
        }
        EXPECT_THROW(distance(image, cg::Rect::infinite(), 4), ImageCoreError);
    }
    EXPECT_TRUE(bic_movedToOrigin(ci::Image::empty()).extent().isEmpty());
    EXPECT_TRUE(blended(ci::Image::empty(), ci::Image::empty(), BlendMode::dissolve, 0.5)
                    .extent()
                    .isEmpty());
}
