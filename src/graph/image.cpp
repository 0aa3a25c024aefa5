#include "bic/graph/image.hpp"

#include "bic/compositing/mask_operations.hpp"
#include "bic/platform/core/fatal.hpp"

namespace bic {

Image Image::maskRepresentation() const {
    switch (intent) {
    case Intent::image:
        return mask(bic_maskFromTransparency(ciImage));
    case Intent::mask:
        return *this;
    case Intent::data:
        break;
    }
    fatalError("Cannot create mask from data.");
}

namespace {
RenderContext withoutCaching() {
    RenderContext c;
    c.disableCaching = true;
    return c;
}
} // namespace

RenderContext RenderContext::defaultContext() {
    static const RenderContext context;
    return context;
}

RenderContext RenderContext::defaultNoCaching() {
    static const RenderContext context = withoutCaching();
    return context;
}

RenderContext RenderContext::preview() {
    static const RenderContext context(Quality::preview);
    return context;
}

RenderContext RenderContext::fileOutput() {
    static const RenderContext context = withoutCaching();
    return context;
}

} // namespace bic
