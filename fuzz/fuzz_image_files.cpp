// Reads arbitrary bytes as an image file. Reading either fails with ImageFileError or gives a
// buffer of the size the file states (turned by its orientation), which TIFF, holding any depth
// and associated alpha, writes and reads back pixel for pixel; small images go through the other
// writers too.

#include "bic/files/image_file.hpp"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>

using namespace bic;
using namespace bic::files;

namespace {

[[noreturn]] void stop(const char* what, const char* detail = "") {
    std::fprintf(stderr, "%s %s\n", what, detail);
    std::abort();
}

IntegralSize sizeOf(const PixelBufferType& buffer) {
    return std::visit([](const auto& b) { return b.size(); }, buffer);
}

// Pixel for pixel by their bits: float samples may be NaN, which equals nothing.
template <class B>
bool sameBits(const B& a, const PixelBufferType& other) {
    using P = typename B::Element;
    const B& b = std::get<B>(other);
    const std::int64_t width = a.size().width, height = a.size().height;
    return a.withUnsafeBuffer([&](std::span<const P> x) {
        return b.withUnsafeBuffer([&](std::span<const P> y) {
            for (std::int64_t row = 0; row < height; ++row)
                if (std::memcmp(x.data() + row * a.pixelsPerRow(),
                                y.data() + row * b.pixelsPerRow(),
                                std::size_t(width) * sizeof(P)) != 0)
                    return false;
            return true;
        });
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    ReadOptions options;
    // Big enough for every path, small enough that the sanitizers' memory stays modest.
    options.maxPixels = std::int64_t(1) << 22;
    // Odd-sized inputs are matched to sRGB as well, so that profiles found go through Little CMS.
    options.convertToSRGB = size % 2 == 1;
    std::optional<ImageFile> read;
    try {
        read = readImageFile(std::span(bytes, size), options);
    } catch (const ImageFileError&) {
        return 0;
    }
    const ImageFile& file = *read;
    if (file.orientation < 1 || file.orientation > 8) stop("an orientation outside 1…8");

    WriteOptions tiff;
    tiff.format = ImageFileFormat::tiff;
    tiff.iccProfile = std::vector<std::uint8_t>();
    std::optional<ImageFile> written;
    try {
        written = readImageFile(encodeImageFile(file.buffer, tiff));
    } catch (const ImageFileError& e) {
        stop("a buffer read does not go through TIFF:", e.what());
    }
    const ImageFile& back = *written;
    if (back.buffer.index() != file.buffer.index() || sizeOf(back.buffer) != sizeOf(file.buffer))
        stop("TIFF gives back another kind or size of buffer");
    const bool same =
        std::visit([&](const auto& b) { return sameBits(b, back.buffer); }, file.buffer);
    if (!same) stop("TIFF gives back other pixels");

    const IntegralSize s = sizeOf(file.buffer);
    // WebP holds at most 16383 pixels a side.
    if (s.width * s.height > (1 << 16) || s.width > 16383 || s.height > 16383) return 0;
    for (const auto format : {ImageFileFormat::png, ImageFileFormat::jpeg, ImageFileFormat::webp}) {
        WriteOptions o;
        o.format = format;
        o.orientation = file.orientation;
        try {
            const ImageFile again = readImageFile(encodeImageFile(file.buffer, o));
            const IntegralSize t = sizeOf(again.buffer);
            // The orientation written is applied once more on reading.
            const bool turned = file.orientation >= 5;
            if (t.width != (turned ? s.height : s.width) ||
                t.height != (turned ? s.width : s.height))
                stop("a written file reads back at another size:",
                     std::string(formatName(format)).c_str());
        } catch (const ImageFileError& e) {
            // 32-bit buffers are not written as PNG; anything else must write and read.
            if (e.kind() != ImageFileError::Kind::unsupported || format != ImageFileFormat::png)
                stop("a buffer read does not write and read again:", e.what());
        }
    }
    return 0;
}
