#pragma once
// Image files for the tool: PNG (8 and 16 bits, through libpng) and TIFF (8, 16 and 32-bit
// float samples, through libtiff). Files keep straight (unassociated) colour, except TIFFs that
// say their alpha is associated; buffers keep premultiplied colour.

#include "bic/buffers/pixel_buffer_type.hpp"

#include <cstdint>
#include <filesystem>
#include <vector>

namespace bic::tool {

/// Reads a PNG or TIFF (by contents) into a buffer of its depth: grey without alpha into a grey
/// format, everything else into a colour format. Throws CommandError for unreadable files.
PixelBufferType readImageFile(const std::filesystem::path& path);

/// Writes by extension: ".png" for 8- and 16-bit buffers, ".tif"/".tiff" for any depth.
void writeImageFile(const PixelBufferType& buffer, const std::filesystem::path& path);

/// Writes straight (unassociated) RGBA samples, host order, rows top first, as an 8 or 16-bit
/// PNG: for sources that already hold straight colour, which a premultiplied buffer would round.
void writeStraightPNG(std::int64_t width, std::int64_t height, int depth,
                      std::vector<std::uint8_t> samples, const std::filesystem::path& path);

} // namespace bic::tool
