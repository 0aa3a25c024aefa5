#pragma once
// Any pixel buffer: one of the six formats, its pixels owned or in a shared surface.

#include "bic/buffers/pixel_buffer.hpp"
#include "bic/buffers/surface_pixel_buffer.hpp"
#include "bic/pixels/pixel_format_list.hpp"

#include <optional>
#include <variant>

namespace bic {

namespace detail {
template <class... P>
auto bufferVariant(PixelFormatList<P...>)
    -> std::variant<PixelBuffer<P>..., SurfacePixelBuffer<P>...>;
}

/// The owned buffers of the six formats, then the surface buffers, in the order of
/// `PixelFormats`.
using PixelBufferType = decltype(detail::bufferVariant(PixelFormats()));

/// The buffer at another depth of the same model (itself at its own depth), drawn through its
/// image into the same kind of buffer. Another depth than 8, 16 or 32 stops the process.
PixelBufferType converted(const PixelBufferType& buffer, int bitDepth);
/// Equal when of the same kind and pixel format and equal as such (owned buffers by their
/// pixels, surface buffers by their surface); absent buffers equal each other only.
bool equal(const std::optional<PixelBufferType>& a, const std::optional<PixelBufferType>& b);

} // namespace bic
