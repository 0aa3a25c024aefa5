// Exif orientation: reading it from an Exif block, writing a block that states it, and turning
// pixels upright.

#include "codecs.hpp"

#include <algorithm>
#include <cstring>

namespace bic::files::detail {

namespace {

struct ExifReader {
    std::span<const std::uint8_t> b;
    bool little = true;

    std::optional<std::uint32_t> u16(std::size_t at) const {
        if (at + 2 > b.size()) return std::nullopt;
        return little ? std::uint32_t(b[at] | b[at + 1] << 8)
                      : std::uint32_t(b[at] << 8 | b[at + 1]);
    }
    std::optional<std::uint32_t> u32(std::size_t at) const {
        const auto lo = u16(at + (little ? 0 : 2)), hi = u16(at + (little ? 2 : 0));
        if (!lo || !hi) return std::nullopt;
        return *lo | *hi << 16;
    }
};

} // namespace

std::optional<int> exifOrientation(std::span<const std::uint8_t> exif) {
    // Some writers keep JPEG's "Exif\0\0" in PNG and WebP blocks too.
    static constexpr std::uint8_t prefix[] = {'E', 'x', 'i', 'f', 0, 0};
    if (exif.size() >= 6 && std::equal(prefix, prefix + 6, exif.begin())) exif = exif.subspan(6);
    if (exif.size() < 8) return std::nullopt;
    ExifReader r{exif};
    if (exif[0] == 'I' && exif[1] == 'I')
        r.little = true;
    else if (exif[0] == 'M' && exif[1] == 'M')
        r.little = false;
    else
        return std::nullopt;
    const auto magic = r.u16(2), ifd = r.u32(4), count = ifd ? r.u16(*ifd) : std::nullopt;
    if (magic != 42u || !count) return std::nullopt;
    for (std::uint32_t i = 0; i < *count; ++i) {
        const std::size_t entry = std::size_t(*ifd) + 2 + 12 * std::size_t(i);
        const auto tag = r.u16(entry), type = r.u16(entry + 2), n = r.u32(entry + 4),
                   value = r.u16(entry + 8);
        if (!value) break;
        if (*tag != 0x0112) continue;
        // A SHORT of 1…8; anything else says nothing.
        if (*type == 3 && *n >= 1 && *value >= 1 && *value <= 8) return int(*value);
        return std::nullopt;
    }
    return std::nullopt;
}

std::vector<std::uint8_t> orientationExif(int orientation) {
    const auto o = std::uint8_t(orientation);
    return {'I',  'I',  42, 0, 8, 0, 0, 0,             // header, IFD0 at 8
            1,    0,                                   // one entry
            0x12, 0x01, 3,  0, 1, 0, 0, 0, o, 0, 0, 0, // Orientation, SHORT, 1, value
            0,    0,    0,  0};                        // no next IFD
}

namespace {

// Destination pixel (x, y) reads source element base + x·dx + y·dy, rows top first.
template <Pixel P>
PixelBuffer<P> turned(const P* source, std::int64_t w, std::int64_t h, std::int64_t stride,
                      int orientation, const cg::ColorSpace& space, const std::string& title) {
    const bool swaps = orientation >= 5;
    const std::int64_t outW = swaps ? h : w, outH = swaps ? w : h;
    const std::int64_t last = (h - 1) * stride;
    std::int64_t base = 0, dx = 1, dy = stride;
    switch (orientation) {
    case 2:
        base = w - 1, dx = -1, dy = stride;
        break;
    case 3:
        base = last + w - 1, dx = -1, dy = -stride;
        break;
    case 4:
        base = last, dx = 1, dy = -stride;
        break;
    case 5:
        base = 0, dx = stride, dy = 1;
        break;
    case 6:
        base = last, dx = -stride, dy = 1;
        break;
    case 7:
        base = last + w - 1, dx = -stride, dy = -1;
        break;
    case 8:
        base = w - 1, dx = stride, dy = -1;
        break;
    default:
        break;
    }
    PixelBuffer<P> out(IntegralSize(outW, outH), space, title);
    out.withUnsafeBuffer([&](std::span<P> pixels) {
        const std::int64_t outStride = out.pixelsPerRow();
        // Tiles keep the columns a rotation reads in cache.
        constexpr std::int64_t tile = 64;
        for (std::int64_t ty = 0; ty < outH; ty += tile)
            for (std::int64_t tx = 0; tx < outW; tx += tile)
                for (std::int64_t y = ty; y < std::min(outH, ty + tile); ++y) {
                    P* row = pixels.data() + y * outStride;
                    const P* from = source + base + y * dy;
                    for (std::int64_t x = tx; x < std::min(outW, tx + tile); ++x)
                        row[x] = from[x * dx];
                }
    });
    return out;
}

} // namespace

PixelBufferType oriented(const PixelBufferType& buffer, int orientation) {
    if (orientation < 2 || orientation > 8) return buffer;
    return std::visit(
        [&](const auto& b) -> PixelBufferType {
            using P = typename std::decay_t<decltype(b)>::Element;
            return b.withUnsafeBuffer([&](std::span<const P> pixels) {
                return turned<P>(pixels.data(), b.size().width, b.size().height, b.pixelsPerRow(),
                                 orientation, colorSpaceOf(b), b.title());
            });
        },
        buffer);
}

} // namespace bic::files::detail
