// Reads arbitrary bytes as a layered document. Reading either fails with DocumentError or gives
// a document whose bitmaps can be made and composited, which the writer writes, and which reads
// back with the same layers, pixels and composite.

#include "bic/documents/document_composition.hpp"
#include "bic/documents/layered_document.hpp"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

using namespace bic;

namespace {

bool sameLayers(const std::vector<DocumentLayer>& a, const std::vector<DocumentLayer>& b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const DocumentLayer &x = a[i], &y = b[i];
        if (x.name != y.name || x.bounds != y.bounds || x.blendKey != y.blendKey ||
            x.opacity != y.opacity || x.fillOpacity != y.fillOpacity || x.mask != y.mask ||
            x.realMask != y.realMask || x.kind != y.kind || x.channels.size() != y.channels.size())
            return false;
        for (std::size_t c = 0; c < x.channels.size(); ++c)
            if (x.channels[c].id != y.channels[c].id ||
                !(x.channels[c].plane == y.channels[c].plane))
                return false;
        if (!sameLayers(x.children, y.children)) return false;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Unknown blend-mode keys are announced on standard output; the fuzzer's own reports go to
    // standard error.
    if (!std::freopen("/dev/null", "w", stdout)) std::abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    LayeredDocument doc;
    try {
        doc = LayeredDocument::read(std::span(bytes, size));
    } catch (const DocumentError&) {
        return 0;
    }
    // Bitmaps are made for modest sizes only: the point is their code, not the allocator.
    if (doc.width * doc.height <= (1 << 20)) {
        (void)doc.compositeBuffer();
        // Our composite of whatever the layers are: finite samples of the document's size.
        const DocumentComposition composition(doc);
        const auto planes = composition.render();
        for (const SamplePlane& plane : planes)
            if (plane.width() != doc.width || plane.height() != doc.height) {
                std::fprintf(stderr, "a composite plane is not of the document's size\n");
                std::abort();
            }
        if (doc.bitDepth == 32)
            for (const SamplePlane& plane : planes)
                for (std::size_t i = 0; i + 4 <= plane.bytes().size(); i += 4) {
                    float v;
                    std::memcpy(&v, plane.bytes().data() + i, 4);
                    if (!std::isfinite(v)) {
                        std::fprintf(stderr, "a composite sample is not finite\n");
                        std::abort();
                    }
                }
        doc.walk([&](std::size_t, int, const DocumentLayer& layer) {
            if (layer.bounds.width() * layer.bounds.height() <= (1 << 20))
                (void)layer.pixelBuffer(doc.colorChannels(), doc.bitDepth);
            (void)layer.maskBuffer(false);
            (void)layer.maskBuffer(true);
        });
    }
    std::vector<std::uint8_t> written;
    try {
        written = doc.write();
    } catch (const DocumentError& e) {
        std::fprintf(stderr, "a document that reads cannot be written: %s\n", e.what());
        std::abort();
    }
    LayeredDocument back;
    try {
        back = LayeredDocument::read(written);
    } catch (const DocumentError& e) {
        std::fprintf(stderr, "a written document does not read: %s\n", e.what());
        std::abort();
    }
    if (!sameLayers(doc.layers, back.layers) || doc.composite != back.composite ||
        doc.width != back.width || doc.height != back.height) {
        std::fprintf(stderr, "a written document reads back different\n");
        std::abort();
    }
    return 0;
}
