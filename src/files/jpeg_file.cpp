// JPEG through libjpeg-turbo: baseline, progressive and arithmetic-coded files in grey, YCbCr,
// RGB, CMYK and YCCK read; grey and colour written at a quality.
//
// Colour decodes straight into the buffer's ARGB8 rows (libjpeg-turbo fills the alpha byte),
// and is coded from them, so neither direction copies the pixels. libjpeg reports errors by
// longjmp; as in the PNG code, everything with a destructor lives in the caller's frame.

#include "bic/platform/cg/color_transform.hpp"
#include "codecs.hpp"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
// jpeglib.h needs size_t and FILE declared first.
#include <jerror.h>
#include <jpeglib.h>

namespace bic::files::detail {

using Kind = ImageFileError::Kind;

namespace {

// A legitimate progressive file has about ten scans; thousands, each running over the whole
// image, only make decoding slow.
constexpr int kMaxScans = 500;

struct JpegErrors {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
    Kind kind = Kind::corrupt;
    char message[JMSG_LENGTH_MAX] = {};

    [[noreturn]] void raise(j_common_ptr cinfo, Kind k) {
        kind = k;
        (*cinfo->err->format_message)(cinfo, message);
        std::longjmp(jump, 1);
    }
    static JpegErrors& of(j_common_ptr cinfo) { return *reinterpret_cast<JpegErrors*>(cinfo->err); }
    static void exit(j_common_ptr cinfo) { of(cinfo).raise(cinfo, Kind::corrupt); }
    // Warnings that mean lost pixels are errors; the rest (stray bytes between markers, odd
    // version numbers, a damaged profile) are not.
    static void emit(j_common_ptr cinfo, int level) {
        if (level != -1) return;
        switch (cinfo->err->msg_code) {
        case JWRN_JPEG_EOF:
            of(cinfo).raise(cinfo, Kind::truncated);
        case JWRN_HIT_MARKER:
        case JWRN_HUFF_BAD_CODE:
        case JWRN_MUST_RESYNC:
            of(cinfo).raise(cinfo, Kind::corrupt);
        default:
            break;
        }
    }
    static void progress(j_common_ptr cinfo) {
        auto* d = reinterpret_cast<j_decompress_ptr>(cinfo);
        if (cinfo->is_decompressor && d->input_scan_number > kMaxScans) {
            auto& e = of(cinfo);
            e.kind = Kind::corrupt;
            std::snprintf(e.message, sizeof e.message, "more than %d scans", kMaxScans);
            std::longjmp(e.jump, 1);
        }
    }

    void install(jpeg_error_mgr*& slot) {
        slot = jpeg_std_error(&manager);
        manager.error_exit = exit;
        manager.emit_message = emit;
    }
};

struct JpegReader {
    jpeg_decompress_struct cinfo{};
    JpegErrors errors;
    jpeg_progress_mgr progress{};
    bool created = false;
    std::vector<JSAMPROW> rows;
    std::vector<std::uint8_t> cmyk;
    std::vector<float> ink, rgb;
    std::optional<cg::ColorTransform> transform;
    JOCTET* icc = nullptr;

    ~JpegReader() {
        if (created) jpeg_destroy_decompress(&cinfo);
        std::free(icc);
    }
};

// The most pixels the entropy-coded data could describe. Huffman coding spends at least a bit
// on every block of every component a scan covers, and a file need only cover its sparsest
// component (one block per up to 32 × 32 pixels when subsampled fourfold); arithmetic coding
// can spend much less, so it sets no bound.
double codablePixels(const jpeg_decompress_struct& c, std::size_t bytes) {
    if (c.arith_code) return -1;
    double area = 64;
    for (int i = 0; i < c.num_components; ++i) {
        const auto& comp = c.comp_info[i];
        if (comp.h_samp_factor > 0 && comp.v_samp_factor > 0)
            area = std::max(area, 64.0 * c.max_h_samp_factor / comp.h_samp_factor *
                                      c.max_v_samp_factor / comp.v_samp_factor);
    }
    return double(bytes) * 8 * area;
}

// CMYK as Adobe's writers store it is inverted (255 = no ink). Through the embedded profile
// when there is a CMYK one, else by the naive complement.
void cmykRowToARGB(JpegReader& r, bool inverted, std::int64_t width, PixelARGB8* out) {
    const std::uint8_t* in = r.cmyk.data();
    if (r.transform) {
        for (std::int64_t i = 0; i < width * 4; ++i)
            r.ink[std::size_t(i)] = (inverted ? 255 - in[i] : in[i]) / 255.0f;
        r.transform->apply(r.ink.data(), r.rgb.data(), std::size_t(width));
        for (std::int64_t x = 0; x < width; ++x)
            out[x] = PixelARGB8::withRGBA(r.rgb[std::size_t(3 * x)], r.rgb[std::size_t(3 * x + 1)],
                                          r.rgb[std::size_t(3 * x + 2)], 1);
        return;
    }
    for (std::int64_t x = 0; x < width; ++x, in += 4) {
        const unsigned k = inverted ? in[3] : 255 - in[3];
        auto channel = [&](std::uint8_t v) {
            const unsigned paper = inverted ? v : 255 - v;
            return std::uint8_t((paper * k + 127) / 255);
        };
        out[x] = PixelARGB8(channel(in[0]), channel(in[1]), channel(in[2]), 255);
    }
}

template <Pixel P>
void readScanlines(JpegReader& r, Reading& reading, bool fromCMYK) {
    jpeg_decompress_struct& c = r.cinfo;
    const std::int64_t width = c.output_width, height = c.output_height;
    PixelBuffer<P>& buffer = reading.allocate<P>(width, height);
    buffer.withUnsafeBuffer([&](std::span<P> pixels) {
        const std::int64_t stride = buffer.pixelsPerRow();
        const std::size_t batch = std::size_t(std::max(1, c.rec_outbuf_height));
        r.rows.resize(batch);
        while (c.output_scanline < c.output_height) {
            const std::int64_t y = c.output_scanline;
            const std::size_t n = std::min<std::size_t>(batch, std::size_t(height - y));
            if (fromCMYK) {
                r.rows[0] = r.cmyk.data();
                jpeg_read_scanlines(&c, r.rows.data(), 1);
                if constexpr (std::is_same_v<P, PixelARGB8>)
                    cmykRowToARGB(r, c.saw_Adobe_marker, width, pixels.data() + y * stride);
                continue;
            }
            for (std::size_t i = 0; i < n; ++i)
                r.rows[i] =
                    reinterpret_cast<JSAMPROW>(pixels.data() + (y + std::int64_t(i)) * stride);
            jpeg_read_scanlines(&c, r.rows.data(), JDIMENSION(n));
        }
    });
}

bool decode(JpegReader& r, Reading& reading) {
    if (setjmp(r.errors.jump)) return false;
    jpeg_decompress_struct& c = r.cinfo;
    r.errors.install(c.err);
    jpeg_create_decompress(&c);
    r.created = true;
    r.progress.progress_monitor = JpegErrors::progress;
    c.progress = &r.progress;
    jpeg_mem_src(&c, reading.bytes.data(), static_cast<unsigned long>(reading.bytes.size()));
    jpeg_save_markers(&c, JPEG_APP0 + 1, 0xffff);
    jpeg_save_markers(&c, JPEG_APP0 + 2, 0xffff);
    if (jpeg_read_header(&c, TRUE) != JPEG_HEADER_OK) {
        r.errors.kind = Kind::corrupt;
        std::snprintf(r.errors.message, sizeof r.errors.message, "it holds tables, no image");
        return false;
    }
    reading.checkSize(c.image_width, c.image_height, codablePixels(c, reading.bytes.size()));

    unsigned int iccLength = 0;
    if (jpeg_read_icc_profile(&c, &r.icc, &iccLength) && r.icc)
        reading.icc.assign(r.icc, r.icc + iccLength);
    static constexpr char exifPrefix[] = {'E', 'x', 'i', 'f', 0, 0};
    for (jpeg_saved_marker_ptr m = c.marker_list; m; m = m->next)
        if (m->marker == JPEG_APP0 + 1 && m->data_length > 6 &&
            std::memcmp(m->data, exifPrefix, 6) == 0 && reading.exif.empty())
            reading.exif.assign(m->data + 6, m->data + m->data_length);

    bool fromCMYK = false;
    switch (c.num_components) {
    case 1:
        c.out_color_space = JCS_GRAYSCALE;
        break;
    case 3:
        c.out_color_space = JCS_EXT_ARGB;
        break;
    case 4:
        c.out_color_space = JCS_CMYK;
        fromCMYK = true;
        break;
    default:
        r.errors.kind = Kind::unsupported;
        std::snprintf(r.errors.message, sizeof r.errors.message, "%d colour components",
                      c.num_components);
        return false;
    }
    jpeg_start_decompress(&c);
    if (fromCMYK) {
        // The pixels leave the profile's space; a CMYK profile converts them to sRGB.
        reading.convertedFromProfile = true;
        if (const auto space = cg::ColorSpace::fromICCProfile(reading.icc);
            space && space->model() == cg::ColorSpaceModel::cmyk)
            r.transform = cg::ColorTransform::make(*space, cg::ColorSpace::sRGB(),
                                                   cg::RenderingIntent::perceptual);
        r.cmyk.resize(std::size_t(c.output_width) * 4);
        r.ink.resize(r.cmyk.size());
        r.rgb.resize(std::size_t(c.output_width) * 3);
        readScanlines<PixelARGB8>(r, reading, true);
    } else if (c.num_components == 1) {
        readScanlines<PixelGray8>(r, reading, false);
    } else {
        readScanlines<PixelARGB8>(r, reading, false);
    }
    jpeg_finish_decompress(&c);
    return true;
}

struct JpegWriter {
    jpeg_compress_struct cinfo{};
    JpegErrors errors;
    bool created = false;
    unsigned char* out = nullptr;
    unsigned long outSize = 0;
    std::vector<JOCTET> exif;

    ~JpegWriter() {
        if (created) jpeg_destroy_compress(&cinfo);
        std::free(out);
    }
};

bool encode(JpegWriter& w, const Rows& rows, const Encoding& encoding) {
    if (setjmp(w.errors.jump)) return false;
    jpeg_compress_struct& c = w.cinfo;
    w.errors.install(c.err);
    jpeg_create_compress(&c);
    w.created = true;
    jpeg_mem_dest(&c, &w.out, &w.outSize);
    c.image_width = JDIMENSION(rows.width);
    c.image_height = JDIMENSION(rows.height);
    c.input_components = rows.grey ? 1 : 4;
    c.in_color_space = rows.grey ? JCS_GRAYSCALE : rows.alphaFirst ? JCS_EXT_XRGB : JCS_EXT_RGBX;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, encoding.options.quality, TRUE);
    jpeg_start_compress(&c, TRUE);
    if (!w.exif.empty())
        jpeg_write_marker(&c, JPEG_APP0 + 1, w.exif.data(), unsigned(w.exif.size()));
    if (!encoding.icc.empty())
        jpeg_write_icc_profile(&c, encoding.icc.data(), unsigned(encoding.icc.size()));
    for (std::int64_t y = 0; y < rows.height; ++y) {
        JSAMPROW row = const_cast<JSAMPROW>(rows.straight(y));
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    return true;
}

} // namespace

void decodeJPEG(Reading& reading) {
    JpegReader r;
    if (!decode(r, reading))
        fail(r.errors.kind, (r.errors.kind == Kind::truncated     ? "truncated JPEG: "
                             : r.errors.kind == Kind::unsupported ? "unsupported JPEG: "
                                                                  : "corrupt JPEG: ") +
                                std::string(r.errors.message));
}

std::vector<std::uint8_t> encodeJPEG(const Rows& rows, const Encoding& encoding) {
    if (rows.width > JPEG_MAX_DIMENSION || rows.height > JPEG_MAX_DIMENSION)
        fail(Kind::unsupported,
             fmt::format("a JPEG holds at most {} pixels a side", JPEG_MAX_DIMENSION));
    JpegWriter w;
    if (!encoding.exif.empty()) {
        static constexpr char prefix[] = {'E', 'x', 'i', 'f', 0, 0};
        w.exif.resize(6 + encoding.exif.size());
        std::memcpy(w.exif.data(), prefix, 6);
        std::memcpy(w.exif.data() + 6, encoding.exif.data(), encoding.exif.size());
    }
    if (!encode(w, rows, encoding))
        fail(Kind::unsupported, "cannot write the JPEG: " + std::string(w.errors.message));
    return std::vector<std::uint8_t>(w.out, w.out + w.outSize);
}

} // namespace bic::files::detail
