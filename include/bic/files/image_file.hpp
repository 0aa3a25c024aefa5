#pragma once
// Image files to and from pixel buffers: PNG, TIFF, JPEG and WebP, with their colour profiles
// and Exif orientation.
//
// The format of a file being read is known by its first bytes, never by its name. Pixels arrive
// premultiplied in the buffer format of their model and depth (8-bit colour as ARGB8, 16-bit as
// RGBA16, float as RGBA32, grey without alpha as the grey formats); a file that stores straight
// colour is premultiplied on the way in and unpremultiplied on the way out. The buffer's colour
// space is the embedded ICC profile's when it describes the pixels, else sRGB (device grey for
// grey pixels): the numbers are never converted unless the caller asks.
//
// Nothing a file says is trusted before it is checked: a size is refused before anything is
// allocated when it exceeds `ReadOptions::maxPixels` or more pixels than the file's bytes could
// code (see the README's "Image files" section for each format's bound).

#include "bic/buffers/pixel_buffer_type.hpp"
#include "bic/files/image_file_error.hpp"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace bic::files {

enum class ImageFileFormat { png, tiff, jpeg, webp };

/// "PNG", "TIFF", "JPEG", "WebP".
std::string_view formatName(ImageFileFormat format);
/// The format whose signature `head` starts with; nothing for anything else (or too few bytes).
std::optional<ImageFileFormat> detectFormat(std::span<const std::uint8_t> head);
/// The format a file name asks for when writing: .png, .tif/.tiff, .jpg/.jpeg/.jpe, .webp
/// (any case).
std::optional<ImageFileFormat> formatForExtension(const std::filesystem::path& path);

struct ReadOptions {
    /// Turn the pixels upright as the Exif (or TIFF) orientation says; false keeps them as
    /// stored. Either way `ImageFile::orientation` reports what the file says.
    bool applyOrientation = true;
    /// Match the pixels from the embedded profile's space to sRGB (device grey for grey pixels)
    /// and leave the profile out of the result.
    bool convertToSRGB = false;
    /// The most pixels (width × height) a file may have: 2^27, about 134 megapixels, more than
    /// camera sensors have (an 8-bit colour buffer of that size takes 512 MB).
    std::int64_t maxPixels = std::int64_t(1) << 27;
};

/// A file's image: its pixels and what the file said about them.
struct ImageFile {
    PixelBufferType buffer;
    ImageFileFormat format;
    /// The embedded ICC profile exactly as stored; empty when there is none.
    std::vector<std::uint8_t> iccProfile;
    /// The profile is the buffer's colour space. False when there is none, when Little CMS
    /// cannot read it, when it is of another model than the pixels, or when the pixels were
    /// converted out of it (CMYK files, `convertToSRGB`).
    bool profileDescribesPixels = false;
    /// The orientation the file states, 1…8 as Exif defines them; 1 when it states none.
    int orientation = 1;
    /// Whether `buffer` has been turned by `orientation` (never for 1).
    bool orientationApplied = false;

    /// The pixels as an engine image over (0, 0, width, height).
    ci::Image image() const;
    /// The profile to embed when these pixels are written: the stored one when it describes
    /// them, else nothing (sRGB).
    std::optional<std::vector<std::uint8_t>> pixelProfile() const;
};

/// Reads an image file. Throws ImageFileError.
ImageFile readImageFile(const std::filesystem::path& path, const ReadOptions& options = {});
/// Reads an image file held in memory. Throws ImageFileError.
ImageFile readImageFile(std::span<const std::uint8_t> bytes, const ReadOptions& options = {});

struct WriteOptions {
    /// The format. Writing to a path takes it from the extension when absent; encoding to
    /// bytes needs it.
    std::optional<ImageFileFormat> format;
    /// JPEG and lossy WebP: 1 (smallest) … 100 (best).
    int quality = 90;
    /// WebP: lossless coding instead of lossy.
    bool lossless = false;
    /// PNG and TIFF: deflate level 1…9.
    int compressionLevel = 6;
    /// The profile to embed, byte for byte when it is of the pixels' model as stored. A grey
    /// profile for pixels stored as colour (colour made from grey, grey in WebP, which has no
    /// grey) is embedded as its RGB equivalent, its tone curve on every channel; an RGB profile
    /// for grey pixels is refused. When absent the buffer's colour space decides: sRGB and the
    /// device spaces embed nothing, any other space its profile.
    std::optional<std::vector<std::uint8_t>> iccProfile;
    /// The orientation (1…8) to record for the pixels as they are, so that readers turn them;
    /// 1 records nothing.
    int orientation = 1;
};

/// Straight (unassociated) samples from elsewhere, for sources whose exact straight values a
/// premultiplied buffer would round: rows top first, packed, samples in host order.
struct StraightImage {
    std::int64_t width = 0, height = 0;
    /// 4: red, green, blue, alpha; 1: grey.
    int channels = 4;
    /// 8 or 16 (unsigned) or 32 (float).
    int bitDepth = 8;
    std::vector<std::uint8_t> samples;
};

/// The file's bytes. PNG takes 8 and 16 bits, TIFF any depth (with associated alpha, so the
/// buffer's values are kept exactly), JPEG and WebP 8 bits (deeper buffers are reduced to 8
/// bits and alpha is left out of JPEG; WebP stores grey as colour). A 32-bit buffer as PNG, a
/// profile that cannot describe the pixels and an unknown format throw ImageFileError.
std::vector<std::uint8_t> encodeImageFile(const PixelBufferType& buffer,
                                          const WriteOptions& options);
std::vector<std::uint8_t> encodeImageFile(const StraightImage& image, const WriteOptions& options);
/// Writes the file whole or not at all: a failure leaves no file behind.
void writeImageFile(const PixelBufferType& buffer, const std::filesystem::path& path,
                    const WriteOptions& options = {});
void writeImageFile(const StraightImage& image, const std::filesystem::path& path,
                    const WriteOptions& options = {});
/// The image rendered over its integral extent into a colour buffer of `bitDepth`, written.
void writeImageFile(const ci::Image& image, int bitDepth, const std::filesystem::path& path,
                    const WriteOptions& options = {});

} // namespace bic::files
