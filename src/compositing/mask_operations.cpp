#include "bic/compositing/mask_operations.hpp"

#include "bic/platform/ci/filter.hpp"
#include "bic/platform/core/fatal.hpp"

namespace bic {

ci::Image bic_maskFromTransparency(const ci::Image& image) {
    using V = std::vector<double>;
    const V alphaAsGrey{0, 0, 0, 1};
    const auto grey = ci::applyingFilter(image, "CIColorMatrix",
                                         {{"inputRVector", alphaAsGrey},
                                          {"inputGVector", alphaAsGrey},
                                          {"inputBVector", alphaAsGrey},
                                          {"inputAVector", V{0, 0, 0, 0}},
                                          {"inputBiasVector", V{0, 0, 0, 1}}});
    if (!grey) fatalError("The colour matrix filter gave no output image.");
    return grey->cropped(image.extent()).composited(ci::Image::black());
}

} // namespace bic
