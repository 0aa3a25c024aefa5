#include "bic/compositing/image_operations.hpp"

#include "../kernels/operation_kernels.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/platform/ci/builtin_filters.hpp"
#include "bic/platform/core/fatal.hpp"

#include <cstring>

namespace bic {

namespace {

using V = std::vector<double>;

std::vector<std::uint8_t> floatBytes(const V& curve) {
    std::vector<std::uint8_t> bytes(curve.size() * sizeof(float));
    for (std::size_t i = 0; i < curve.size(); ++i) {
        const auto f = float(curve[i]);
        std::memcpy(bytes.data() + i * sizeof f, &f, sizeof f);
    }
    return bytes;
}

ci::Image orEmpty(std::optional<ci::Image> image) { return image.value_or(ci::Image::empty()); }

} // namespace

// ---- Engine images --------------------------------------------------------------------------

ci::Image bic_masked(const ci::Image& image, const ci::Image& mask) {
    return ci::multiplyCompositing(image, ci::maskToAlpha(mask));
}

ci::Image bic_composited(const ci::Image& image, const ci::Image& atop) {
    return ci::sourceAtopCompositing(image, atop);
}

ci::Image bic_multiplied(const ci::Image& image, const ci::Image& with) {
    return ci::multiplyCompositing(image, with);
}

ci::Image bic_mixed(const ci::Image& image, const ci::Image& with, double opacity) {
    return ci::mix(image, with, double(float(opacity)));
}

ci::Image bic_inverted(const ci::Image& image) { return ci::colorInvert(image); }

ci::Image bic_saturated(const ci::Image& image) {
    return ci::colorClamp(image, {0, 0, 0, 0}, {1, 1, 1, 1});
}

ci::Image bic_applyingBoxBlur(const ci::Image& image, double radius) {
    return ci::boxBlur(image, double(float(radius)));
}

ci::Image bic_pixelTransformed(const ci::Image& image, const cg::AffineTransform& by) {
    return image.samplingNearest().transformed(by);
}

ci::Image bic_movedToOrigin(const ci::Image& image) {
    const cg::Rect& e = image.extent();
    // The empty image has no origin to move, and an infinite one already covers the origin.
    if (e.isNull() || e.isInfinite()) return image;
    return image.transformed(cg::AffineTransform::translation(-e.minX(), -e.minY()));
}

ci::Image bic_bySettingExtent(const ci::Image& image, const cg::Rect& rect) {
    if (image.extent() == rect) return image;
    return image.composited(ci::Image::clear()).cropped(rect);
}

ci::Image bic_stampingOut(const ci::Image& image, const cg::Rect& rect) {
    return ci::sourceOutCompositing(image, ci::Image::black().cropped(rect));
}

ci::Image bic_frame(const cg::Rect& extent, const ci::Color& color) {
    const ci::Image outline = ci::Image::black()
                                  .cropped(extent.insetBy(1, 1))
                                  .composited(ci::Image::white().cropped(extent));
    return ci::multiplyCompositing(ci::Image::constant(color).cropped(extent),
                                   ci::maskToAlpha(outline));
}

ci::Image bic_threshold(const ci::Image& image, double level) {
    return orEmpty(kernels::threshold(image, level));
}

ci::Image bic_mixWithMask(const ci::Image& image, const ci::Image& other, const ci::Image& mask) {
    return orEmpty(kernels::mixWithMask(image, other, mask));
}

ci::Image bic_maxDistanceMask(const ci::Image& image, const ci::Color& to) {
    return orEmpty(kernels::maxChannelDistance(image, to));
}

std::optional<ci::Image> mapped(const ci::Image& image, const V& redMap, const V& greenMap,
                                const V& blueMap) {
    return kernels::colorMap(image, floatBytes(redMap), floatBytes(greenMap), floatBytes(blueMap));
}

std::optional<ci::Image> mapped(const ci::Image& image, const std::vector<std::uint8_t>& table) {
    if (table.size() != 4096) return std::nullopt;
    // The kernel reads its image saturated itself: one pass instead of a clamp and a map.
    return kernels::gradientMap(image, table);
}

ci::Image surfaceNormals(const ci::Image& image) {
    // An image without pixels has no surface: its normals are the empty image too. Only a kernel
    // that fails on real pixels is a fault.
    if (image.extent().isEmpty()) return ci::Image::empty();
    auto normals = kernels::surfaceNormals(image);
    if (!normals) fatalError("The surface normals kernel gave no image.");
    return *normals;
}

std::optional<ci::Image> dotProduct(const ci::Image& image, const V& vector) {
    precondition(vector.size() == 3, "A dot product needs a vector of three components.");
    return kernels::dotProduct(image, vector);
}

std::optional<ci::Image> bic_sobel(const ci::Image& image) { return kernels::sobel(image); }

} // namespace bic
