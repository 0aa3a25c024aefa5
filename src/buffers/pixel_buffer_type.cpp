#include "bic/buffers/pixel_buffer_type.hpp"

#include "bic/platform/core/fatal.hpp"

namespace bic {

namespace {
template <class Q, class Buffer>
PixelBufferType drawnAs(const Buffer& b) {
    return typename Buffer::template Rebind<Q>(b.cgImage(), Q::deviceColorSpace(), b.title());
}
} // namespace

PixelBufferType converted(const PixelBufferType& buffer, int bitDepth) {
    return std::visit(
        [&](const auto& b) -> PixelBufferType {
            using P = typename std::decay_t<decltype(b)>::Element;
            if (P::bitDepth == bitDepth) return b;
            if (bitDepth != 8 && bitDepth != 16 && bitDepth != 32)
                fatalError("Unsupported bit depth.");
            return withPixelFormat(P::model, bitDepth,
                                   [&]<class Q>(std::type_identity<Q>) { return drawnAs<Q>(b); });
        },
        buffer);
}

bool equal(const std::optional<PixelBufferType>& a, const std::optional<PixelBufferType>& b) {
    if (!a || !b) return !a && !b;
    return a->index() == b->index() && *a == *b;
}

} // namespace bic
