#pragma once
// What the format readers and writers share: the reading state a codec fills in, the size
// checks made before any pixel memory exists, and the straight rows a writer codes.

#include "bic/files/image_file.hpp"

#include <functional>
#include <string>

namespace bic::files::detail {

/// One read in progress: the file's bytes and options in, what the codec found out.
class Reading {
public:
    Reading(std::span<const std::uint8_t> bytes, const ReadOptions& options)
        : bytes(bytes), options(options) {}

    const std::span<const std::uint8_t> bytes;
    const ReadOptions& options;

    /// The embedded profile as stored, set by the codec before it allocates.
    std::vector<std::uint8_t> icc;
    /// The Exif block (TIFF-structured, without JPEG's "Exif\0\0" prefix), if any.
    std::vector<std::uint8_t> exif;
    /// An orientation the format states itself (TIFF's tag), which Exif does not override.
    std::optional<int> nativeOrientation;
    /// The pixels arrive in another model than the profile's and were converted (CMYK).
    bool convertedFromProfile = false;
    std::optional<PixelBufferType> buffer;

    /// Refuses `width` × `height` before allocating: beyond the pixel limit, or beyond
    /// `codablePixels`, the most pixels the file's bytes could possibly code in this format
    /// (negative when the format sets no bound). Throws ImageFileError (tooLarge, corrupt).
    void checkSize(std::int64_t width, std::int64_t height, double codablePixels) const;

    /// A zeroed buffer of the format's size in the space of the profile found (or sRGB /
    /// device grey), which becomes `buffer`. checkSize first.
    template <Pixel P>
    PixelBuffer<P>& allocate(std::int64_t width, std::int64_t height);

    /// The space of pixels of `model` given the profile found; sets profileDescribesPixels.
    cg::ColorSpace colorSpaceFor(cg::ColorSpaceModel model);
    bool profileDescribesPixels() const { return describes_; }

private:
    bool describes_ = false;
};

/// A buffer's colour space; surface buffers are in their format's device space.
template <class B>
cg::ColorSpace colorSpaceOf(const B& buffer) {
    if constexpr (requires { buffer.colorSpace(); })
        return buffer.colorSpace();
    else
        return B::Element::deviceColorSpace();
}

[[noreturn]] void fail(ImageFileError::Kind kind, const std::string& message);

void decodePNG(Reading& reading);
void decodeJPEG(Reading& reading);
void decodeTIFF(Reading& reading);
void decodeWebP(Reading& reading);

/// Rows of straight samples for a writer, top first, valid until the next call. 8-bit colour
/// comes as A,R,G,B (a buffer's own layout) or R,G,B,A; deeper colour as R,G,B,A; grey as one
/// sample. Associated rows (premultiplied) always come as R,G,B,A (TIFF's order).
struct Rows {
    std::int64_t width = 0, height = 0;
    int bitDepth = 8;
    bool grey = false;
    bool alphaFirst = false;
    std::function<const std::uint8_t*(std::int64_t y)> straight;
    std::function<const std::uint8_t*(std::int64_t y)> associated;
    /// Every alpha full, so a writer may leave alpha out; asked once, after a full scan.
    std::function<bool()> opaque;
};

struct Encoding {
    const WriteOptions& options;
    std::span<const std::uint8_t> icc;
    /// A minimal Exif block recording the orientation; empty for orientation 1.
    std::vector<std::uint8_t> exif;
};

std::vector<std::uint8_t> encodePNG(const Rows& rows, const Encoding& encoding);
std::vector<std::uint8_t> encodeJPEG(const Rows& rows, const Encoding& encoding);
std::vector<std::uint8_t> encodeTIFF(const Rows& rows, const Encoding& encoding);
std::vector<std::uint8_t> encodeWebP(const Rows& rows, const Encoding& encoding);

/// The orientation an Exif block states (IFD0's tag 274), if it states a valid one.
std::optional<int> exifOrientation(std::span<const std::uint8_t> exif);
/// An Exif block (little-endian TIFF structure) holding only the orientation.
std::vector<std::uint8_t> orientationExif(int orientation);
/// The pixels turned upright: orientation 1…8 as Exif defines them.
PixelBufferType oriented(const PixelBufferType& buffer, int orientation);

} // namespace bic::files::detail
