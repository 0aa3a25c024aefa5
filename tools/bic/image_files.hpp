#pragma once
// Image files for the tool, through the library's files layer: PNG, TIFF, JPEG and WebP read by
// their contents and written by the output's extension, with the options every pixel command
// shares (--to-srgb, --as-stored, --quality, --lossless).

#include "bic/files/image_file.hpp"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <optional>
#include <vector>

namespace bic::tool {

/// The shared image-file options, on the main command line (given before or after a command).
void addImageFileOptions(CLI::App& app);

/// Reads an image file: upright unless --as-stored, matched to sRGB with --to-srgb. Throws
/// CommandError naming the file.
files::ImageFile readImage(const std::filesystem::path& path);
/// readImage's pixels.
PixelBufferType readImageFile(const std::filesystem::path& path);

/// Writes by extension (.png, .tif/.tiff, .jpg/.jpeg, .webp) at the command line's quality;
/// `profile` is embedded as it is (an empty one embeds nothing), or else the buffer's colour
/// space decides. Throws CommandError naming the file.
void writeImageFile(const PixelBufferType& buffer, const std::filesystem::path& path,
                    std::optional<std::vector<std::uint8_t>> profile = std::nullopt);
/// Straight samples from elsewhere, written the same way.
void writeImageFile(const files::StraightImage& image, const std::filesystem::path& path,
                    std::optional<std::vector<std::uint8_t>> profile = std::nullopt);
/// Straight (unassociated) RGBA samples, host order, rows top first, as an 8 or 16-bit PNG
/// whatever the name says.
void writeStraightPNG(std::int64_t width, std::int64_t height, int depth,
                      std::vector<std::uint8_t> samples, const std::filesystem::path& path);

} // namespace bic::tool
