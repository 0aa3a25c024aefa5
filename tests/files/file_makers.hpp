#pragma once
// Image files made by the reference libraries themselves (libpng, libtiff, libjpeg), not by the
// code under test, so that the readers meet the variants other writers produce; and small
// helpers over buffers and processes.

#include "bic/buffers/pixel_buffer.hpp"
#include "bic/files/image_file.hpp"

#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace bic::test_support {

using Bytes = std::vector<std::uint8_t>;

struct PngSpec {
    PngSpec(std::uint32_t width, std::uint32_t height, int colorType, int bitDepth)
        : width(width), height(height), colorType(colorType), bitDepth(bitDepth) {}

    std::uint32_t width = 1, height = 1;
    int colorType = 0; // PNG_COLOR_TYPE_…
    int bitDepth = 8;
    bool interlaced = false;
    /// Rows as the file stores them (big-endian 16-bit samples, packed low depths).
    std::vector<Bytes> rows;
    std::vector<std::uint8_t> palette; // RGB triples
    std::vector<std::uint8_t> paletteAlpha;
    Bytes exif;
    Bytes icc;
};
Bytes pngFile(const PngSpec& spec);
/// A PNG's RGBA samples exactly as stored (8 or 16 bits), through libpng.
struct RawImage {
    std::uint32_t width = 0, height = 0;
    int colorType = 0, bitDepth = 0;
    std::vector<Bytes> rows;
};
RawImage rawPNG(const Bytes& file);

struct TiffSpec {
    TiffSpec(std::uint32_t width, std::uint32_t height, std::uint16_t channels, std::uint16_t bits,
             std::uint16_t format = 1, std::uint16_t photometric = 1)
        : width(width), height(height), channels(channels), bits(bits), format(format),
          photometric(photometric) {}

    std::uint32_t width = 1, height = 1;
    std::uint16_t channels = 1, bits = 8, format = 1 /* uint */, photometric = 1 /* min-is-black */;
    std::uint16_t planar = 1 /* contiguous */, compression = 1 /* none */;
    std::optional<std::uint16_t> extraSample; // EXTRASAMPLE_…
    std::uint32_t tileSize = 0;               // 0: strips of rowsPerStrip
    std::uint32_t rowsPerStrip = 1;
    std::optional<std::uint16_t> orientation;
    std::vector<std::uint16_t> colorMap; // 3 × 2^bits entries for palette images
    /// Interleaved host-order samples, rows top first.
    Bytes samples;
};
Bytes tiffFile(const TiffSpec& spec);
/// samples per pixel of a TIFF as written.
int tiffSamplesPerPixel(const Bytes& file);

struct JpegSpec {
    JpegSpec(std::uint32_t width, std::uint32_t height, int components, int inColorSpace,
             int fileColorSpace)
        : width(width), height(height), components(components), inColorSpace(inColorSpace),
          fileColorSpace(fileColorSpace) {}

    std::uint32_t width = 8, height = 8;
    int components = 3;
    int inColorSpace = 2;   // J_COLOR_SPACE: 1 grey, 2 RGB, 4 CMYK
    int fileColorSpace = 3; // 1 grey, 3 YCbCr, 4 CMYK, 5 YCCK
    bool progressive = false;
    int quality = 95;
    Bytes samples; // interleaved, rows top first
};
Bytes jpegFile(const JpegSpec& spec);

Bytes readBytes(const std::filesystem::path& path);

/// The pixels ImageMagick's convert reads from `file`, turned upright, as 8-bit RGB triples,
/// rows top first; nothing when convert is not installed.
std::optional<std::vector<std::uint8_t>>
imageMagickRGB(const std::filesystem::path& file, std::uint32_t& width, std::uint32_t& height);

/// A scratch folder of this test process, removed at exit.
std::filesystem::path scratchFolder();

/// The folder of camera photos the tests may read; empty when missing.
std::filesystem::path photoFolder();

/// The ImageFileError that `f` throws; a test failure when it throws none.
template <class F>
files::ImageFileError fileErrorOf(F&& f) {
    try {
        f();
    } catch (const files::ImageFileError& e) {
        return e;
    }
    ADD_FAILURE() << "no ImageFileError";
    return files::ImageFileError(files::ImageFileError::Kind::io, "none");
}

} // namespace bic::test_support
