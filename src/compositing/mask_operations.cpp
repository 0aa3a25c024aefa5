#include "bic/compositing/mask_operations.hpp"

#include "bic/platform/ci/builtin_filters.hpp"

namespace bic {

ci::Image bic_maskFromTransparency(const ci::Image& image) {
    const std::vector<double> alphaAsGrey{0, 0, 0, 1};
    const ci::Image grey =
        ci::colorMatrix(image, {alphaAsGrey, alphaAsGrey, alphaAsGrey, {0, 0, 0, 0}, {0, 0, 0, 1}});
    return grey.cropped(image.extent()).composited(ci::Image::black());
}

} // namespace bic
