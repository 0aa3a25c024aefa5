#pragma once
// Any pixel buffer: one of the six formats, its pixels owned or in a shared surface.

#include "bic/buffers/pixel_buffer.hpp"
#include "bic/buffers/surface_pixel_buffer.hpp"

#include <optional>
#include <variant>

namespace bic {

using PixelBufferType =
    std::variant<PixelBuffer<PixelARGB8>, PixelBuffer<PixelGray8>, PixelBuffer<PixelRGBA16>,
                 PixelBuffer<PixelGray16>, PixelBuffer<PixelRGBA32>, PixelBuffer<PixelGray32>,
                 SurfacePixelBuffer<PixelARGB8>, SurfacePixelBuffer<PixelGray8>,
                 SurfacePixelBuffer<PixelRGBA16>, SurfacePixelBuffer<PixelGray16>,
                 SurfacePixelBuffer<PixelRGBA32>, SurfacePixelBuffer<PixelGray32>>;

/// The buffer at another depth of the same model (itself at its own depth), drawn through its
/// image into the same kind of buffer. Another depth than 8, 16 or 32 stops the process.
PixelBufferType converted(const PixelBufferType& buffer, int bitDepth);
/// Equal when of the same kind and pixel format and equal as such (owned buffers by their
/// pixels, surface buffers by their surface); absent buffers equal each other only.
bool equal(const std::optional<PixelBufferType>& a, const std::optional<PixelBufferType>& b);

} // namespace bic
