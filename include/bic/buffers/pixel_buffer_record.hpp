#pragma once
// The stored form of a pixel buffer and the choice of a pixel format at run time.
//
// A buffer is stored as a keyed record: "Size" ([width, height]), "Model" (a colour model
// string), "Bit Depth" (8, 16 or 32), "Is Premultiplied" (always written true) and "Channels",
// one plane per component (red, green, blue, alpha, or grey) in the keyed form of ChannelData.
// Monochrome and RGB at 8, 16 and 32 bits are the six pixel formats.

#include "bic/buffers/pixel_buffer_type.hpp"
#include "bic/platform/coding/coder.hpp"

#include <optional>
#include <string_view>

namespace bic {

/// "Monochrome", "RGB", "CMYK", "LAB", "DeviceN", "Indexed", "Pattern", "XYZ"; "Unknown" for
/// every other model.
std::string_view colorModelString(cg::ColorSpaceModel model);
/// The model of one of those strings ("Unknown" is the unknown model); nothing for others.
std::optional<cg::ColorSpaceModel> colorModelFromString(std::string_view string);

/// Reads a stored record into a buffer of the format it names.
///
/// Checks, in order: the four header keys are read (a missing key or a value of the wrong type,
/// or a model string outside the table, is a coding::DecodingError); a colour record marked not
/// premultiplied throws ImageCoreError::fileReadUnpremultipliedImageDataUnsupported; a depth
/// other than 8, 16, 32 throws fileReadUnsupportedBitDepthError; a model other than monochrome
/// or RGB throws fileReadUnsupportedColorModelError; then the planes are read and decoded, with
/// their own errors, and parameterError for a plane count other than the format's.
struct PixelBufferDecoder {
    PixelBufferType pixelBuffer;

    static PixelBufferDecoder decode(const coding::Decoder& decoder);
};

/// Stores any buffer as its record.
void encode(const PixelBufferType& buffer, coding::Encoder& encoder);

/// Makes buffers of a format chosen at run time: monochrome or RGB at 8, 16 or 32 bits.
namespace PixelBufferFactory {

/// `image` drawn into a buffer of the format. An unsupported format is a caller error: the
/// process stops with "Unsupported color model." or "Unsupported bit depth.".
PixelBufferType make(cg::ColorSpaceModel model, int bitDepth, const cg::Image& image,
                     const cg::ColorSpace& targetColorSpace, std::string title = {});
/// `image` rendered over `extent` into a buffer of the format; stops as above.
PixelBufferType make(cg::ColorSpaceModel model, int bitDepth, const ci::Image& image,
                     const cg::Rect& extent, std::string title = {});
/// A buffer from stored planes, for data read from outside: throws
/// fileReadUnsupportedBitDepthError, fileReadUnsupportedColorModelError, parameterError for
/// planes of the wrong component type or count, and the planes' own errors.
PixelBufferType make(std::vector<AnyChannelData> channelData, bool expand16BitColorRange,
                     IntegralSize size, cg::ColorSpaceModel model, int bitDepth);

} // namespace PixelBufferFactory

} // namespace bic
