// WebP through libwebp: lossy, lossless and alpha read straight into the buffer's ARGB8 rows;
// written lossy at a quality or lossless; profiles and orientation in the extended container's
// ICCP and EXIF chunks (libwebpdemux, libwebpmux). An animation is refused rather than shown
// as its first frame.

#include "codecs.hpp"
#include "samples.hpp"

#include <cstring>
#include <fmt/format.h>
#include <webp/decode.h>
#include <webp/demux.h>
#include <webp/encode.h>
#include <webp/mux.h>

namespace bic::files::detail {

using Kind = ImageFileError::Kind;

namespace {

[[noreturn]] void failStatus(VP8StatusCode status, const char* what) {
    switch (status) {
    case VP8_STATUS_NOT_ENOUGH_DATA:
        fail(Kind::truncated, std::string("truncated WebP: ") + what);
    case VP8_STATUS_OUT_OF_MEMORY:
        fail(Kind::tooLarge, std::string("no memory to read a WebP: ") + what);
    case VP8_STATUS_UNSUPPORTED_FEATURE:
        fail(Kind::unsupported, std::string("unsupported WebP: ") + what);
    default:
        fail(Kind::corrupt, std::string("corrupt WebP: ") + what);
    }
}

struct Demuxer {
    WebPDemuxer* demux;
    ~Demuxer() { WebPDemuxDelete(demux); }

    std::vector<std::uint8_t> chunk(const char* fourcc) const {
        WebPChunkIterator it;
        std::vector<std::uint8_t> bytes;
        if (WebPDemuxGetChunk(demux, fourcc, 1, &it)) {
            bytes.assign(it.chunk.bytes, it.chunk.bytes + it.chunk.size);
            WebPDemuxReleaseChunkIterator(&it);
        }
        return bytes;
    }
};

// Lossy coding spends at least a bit and a half on every 16 × 16 macroblock of a key frame (its
// luma and chroma modes are coded with fixed probabilities); a bit each is a safe bound.
constexpr double kLossyPixelsPerByte = 8 * 256;

} // namespace

void decodeWebP(Reading& reading) {
    const std::uint8_t* data = reading.bytes.data();
    const std::size_t size = reading.bytes.size();
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) fail(Kind::unsupported, "libwebp version mismatch");
    if (const VP8StatusCode status = WebPGetFeatures(data, size, &config.input);
        status != VP8_STATUS_OK)
        failStatus(status, "its header cannot be read");
    if (config.input.has_animation)
        fail(Kind::unsupported, "an animated WebP: only still images are read");
    // Lossless coding has no such bound: a plain picture of any size takes a few bytes.
    const bool lossy = config.input.format == 1;
    reading.checkSize(config.input.width, config.input.height,
                      lossy ? double(size) * kLossyPixelsPerByte : -1);

    const WebPData whole{data, size};
    const Demuxer demuxer{WebPDemux(&whole)};
    if (!demuxer.demux) failStatus(VP8_STATUS_NOT_ENOUGH_DATA, "its chunks end early");
    const std::uint32_t flags = WebPDemuxGetI(demuxer.demux, WEBP_FF_FORMAT_FLAGS);
    if (flags & ICCP_FLAG) reading.icc = demuxer.chunk("ICCP");
    if (flags & EXIF_FLAG) reading.exif = demuxer.chunk("EXIF");

    const std::int64_t width = config.input.width, height = config.input.height;
    config.output.colorspace = MODE_ARGB;
    if (lossy) {
        // Straight into the buffer's rows.
        PixelBuffer<PixelARGB8>& buffer = reading.allocate<PixelARGB8>(width, height);
        buffer.withUnsafeBuffer([&](std::span<PixelARGB8> pixels) {
            config.output.is_external_memory = 1;
            config.output.u.RGBA.rgba = reinterpret_cast<std::uint8_t*>(pixels.data());
            config.output.u.RGBA.stride = int(buffer.bytesPerRow());
            config.output.u.RGBA.size = std::size_t(buffer.bytesPerRow() * height);
            if (const VP8StatusCode status = WebPDecode(data, size, &config);
                status != VP8_STATUS_OK)
                failStatus(status, "its image cannot be decoded");
            if (config.input.has_alpha)
                for (std::int64_t y = 0; y < height; ++y)
                    premultiplyRow(pixels.data() + y * buffer.pixelsPerRow(), width);
        });
        return;
    }
    // libwebp keeps a whole lossless image in memory of its own anyway (back references reach
    // any earlier pixel), memory that stays untouched where a hostile stream fails early; the
    // buffer is made only once the pixels are there.
    const std::unique_ptr<WebPDecBuffer, void (*)(WebPDecBuffer*)> output(&config.output,
                                                                          WebPFreeDecBuffer);
    if (const VP8StatusCode status = WebPDecode(data, size, &config); status != VP8_STATUS_OK)
        failStatus(status, "its image cannot be decoded");
    PixelBuffer<PixelARGB8>& buffer = reading.allocate<PixelARGB8>(width, height);
    buffer.withUnsafeBuffer([&](std::span<PixelARGB8> pixels) {
        for (std::int64_t y = 0; y < height; ++y) {
            PixelARGB8* row = pixels.data() + y * buffer.pixelsPerRow();
            std::memcpy(row, config.output.u.RGBA.rgba + y * config.output.u.RGBA.stride,
                        std::size_t(width) * 4);
            if (config.input.has_alpha) premultiplyRow(row, width);
        }
    });
}

namespace {

struct Picture {
    WebPPicture picture;
    WebPMemoryWriter writer;
    Picture() {
        WebPPictureInit(&picture);
        WebPMemoryWriterInit(&writer);
    }
    ~Picture() {
        WebPPictureFree(&picture);
        WebPMemoryWriterClear(&writer);
    }
};

struct Mux {
    WebPMux* mux = WebPMuxNew();
    WebPData assembled{};
    ~Mux() {
        WebPDataClear(&assembled);
        WebPMuxDelete(mux);
    }
};

// One row of straight samples as libwebp's 0xAARRGGBB words.
void toARGBWords(const Rows& rows, const std::uint8_t* in, std::uint32_t* out) {
    for (std::int64_t x = 0; x < rows.width; ++x) {
        std::uint32_t a, r, g, b;
        if (rows.grey) {
            a = 255, r = g = b = in[x];
        } else if (rows.alphaFirst) {
            const std::uint8_t* p = in + 4 * x;
            a = p[0], r = p[1], g = p[2], b = p[3];
        } else {
            const std::uint8_t* p = in + 4 * x;
            r = p[0], g = p[1], b = p[2], a = p[3];
        }
        out[x] = a << 24 | r << 16 | g << 8 | b;
    }
}

} // namespace

std::vector<std::uint8_t> encodeWebP(const Rows& rows, const Encoding& encoding) {
    if (rows.width > WEBP_MAX_DIMENSION || rows.height > WEBP_MAX_DIMENSION)
        fail(Kind::unsupported,
             fmt::format("a WebP holds at most {} pixels a side", WEBP_MAX_DIMENSION));
    WebPConfig config;
    if (!WebPConfigInit(&config)) fail(Kind::unsupported, "libwebp version mismatch");
    config.lossless = encoding.options.lossless;
    config.quality = float(encoding.options.quality);
    // Lossless files keep colour under transparent pixels exactly as given.
    config.exact = encoding.options.lossless;
    if (!WebPValidateConfig(&config)) fail(Kind::unsupported, "invalid WebP settings");

    Picture p;
    p.picture.use_argb = 1;
    p.picture.width = int(rows.width);
    p.picture.height = int(rows.height);
    if (!WebPPictureAlloc(&p.picture)) fail(Kind::tooLarge, "no memory to write a WebP");
    for (std::int64_t y = 0; y < rows.height; ++y)
        toARGBWords(rows, rows.straight(y), p.picture.argb + y * p.picture.argb_stride);
    p.picture.writer = WebPMemoryWrite;
    p.picture.custom_ptr = &p.writer;
    if (!WebPEncode(&config, &p.picture))
        fail(Kind::unsupported,
             fmt::format("cannot write the WebP (libwebp error {})", int(p.picture.error_code)));
    if (encoding.icc.empty() && encoding.exif.empty())
        return std::vector<std::uint8_t>(p.writer.mem, p.writer.mem + p.writer.size);

    Mux m;
    const WebPData image{p.writer.mem, p.writer.size};
    const WebPData icc{encoding.icc.data(), encoding.icc.size()};
    const WebPData exif{encoding.exif.data(), encoding.exif.size()};
    const bool ok =
        m.mux && WebPMuxSetImage(m.mux, &image, 0) == WEBP_MUX_OK &&
        (encoding.icc.empty() || WebPMuxSetChunk(m.mux, "ICCP", &icc, 0) == WEBP_MUX_OK) &&
        (encoding.exif.empty() || WebPMuxSetChunk(m.mux, "EXIF", &exif, 0) == WEBP_MUX_OK) &&
        WebPMuxAssemble(m.mux, &m.assembled) == WEBP_MUX_OK;
    if (!ok) fail(Kind::unsupported, "cannot write the WebP's profile or orientation");
    return std::vector<std::uint8_t>(m.assembled.bytes, m.assembled.bytes + m.assembled.size);
}

} // namespace bic::files::detail
