// PNG through libpng: every colour type and depth read, 8 and 16 bits written.
//
// libpng reports errors by longjmp. Everything that outlives a libpng call (the structs, the
// row list, the output) lives in an object made before setjmp, in the caller's frame, and the
// frames libpng can jump out of hold nothing with a destructor.

#include "codecs.hpp"
#include "samples.hpp"

#include <csetjmp>
#include <cstring>
#include <fmt/format.h>
#include <png.h>

namespace bic::files::detail {

using Kind = ImageFileError::Kind;

namespace {

std::uint32_t bigEndian32(const std::uint8_t* p) {
    return std::uint32_t(p[0]) << 24 | std::uint32_t(p[1]) << 16 | std::uint32_t(p[2]) << 8 | p[3];
}

// The bytes of all IDAT chunks, as far as the file holds them: what the pixels are coded in.
std::uint64_t imageDataBytes(std::span<const std::uint8_t> b) {
    std::uint64_t total = 0;
    for (std::size_t at = 8; at + 12 <= b.size();) {
        const std::uint64_t length = bigEndian32(&b[at]);
        if (std::memcmp(&b[at + 4], "IDAT", 4) == 0)
            total += std::min<std::uint64_t>(length, b.size() - at - 8);
        if (std::memcmp(&b[at + 4], "IEND", 4) == 0) break;
        at += 12 + std::size_t(std::min<std::uint64_t>(length, b.size()));
    }
    return total;
}

// Deflate codes at most 258 bytes in two bits (a longest match with one-bit codes): 1032 bytes
// of filtered rows per byte of stream, whatever the encoder did.
constexpr double kDeflateMaxRatio = 1032;

struct PngReader {
    std::span<const std::uint8_t> bytes;
    std::size_t at = 0;
    png_structp png = nullptr;
    png_infop info = nullptr;
    Kind kind = Kind::corrupt;
    std::string message;
    std::vector<png_bytep> rows;

    ~PngReader() { png_destroy_read_struct(&png, &info, nullptr); }

    static void error(png_structp png, png_const_charp text) {
        auto* r = static_cast<PngReader*>(png_get_error_ptr(png));
        r->message = text;
        png_longjmp(png, 1);
    }
    static void warning(png_structp, png_const_charp) {}
    static void read(png_structp png, png_bytep out, png_size_t n) {
        auto* r = static_cast<PngReader*>(png_get_io_ptr(png));
        if (n > r->bytes.size() - r->at) {
            r->kind = Kind::truncated;
            png_error(png, "the file ends inside the image");
        }
        std::memcpy(out, r->bytes.data() + r->at, n);
        r->at += n;
    }
};

// The chunks after the image may hold the Exif block too.
void takeExif(PngReader& r, Reading& reading) {
    png_bytep exif = nullptr;
    png_uint_32 length = 0;
    if (reading.exif.empty() && png_get_eXIf_1(r.png, r.info, &length, &exif) && exif)
        reading.exif.assign(exif, exif + length);
}

template <Pixel P>
void readRows(PngReader& r, Reading& reading, std::int64_t width, std::int64_t height,
              bool interlaced, bool straightAlpha) {
    PixelBuffer<P>& buffer = reading.allocate<P>(width, height);
    if (png_get_rowbytes(r.png, r.info) != std::size_t(width) * sizeof(P))
        png_error(r.png, "unexpected row length");
    buffer.withUnsafeBuffer([&](std::span<P> pixels) {
        P* first = pixels.data();
        const std::int64_t stride = buffer.pixelsPerRow();
        if (interlaced) {
            r.rows.resize(std::size_t(height));
            for (std::int64_t y = 0; y < height; ++y)
                r.rows[std::size_t(y)] = reinterpret_cast<png_bytep>(first + y * stride);
            png_read_image(r.png, r.rows.data());
            if (straightAlpha)
                for (std::int64_t y = 0; y < height; ++y)
                    premultiplyRow(first + y * stride, width);
        } else {
            // Row by row, so each is premultiplied while still in cache.
            for (std::int64_t y = 0; y < height; ++y) {
                P* row = first + y * stride;
                png_read_row(r.png, reinterpret_cast<png_bytep>(row), nullptr);
                if (straightAlpha) premultiplyRow(row, width);
            }
        }
    });
}

bool decode(PngReader& r, Reading& reading) {
    if (setjmp(png_jmpbuf(r.png))) return false;
    png_set_read_fn(r.png, &r, PngReader::read);
    // Every chunk's CRC already guards the image data; zlib's own checksum of the inflated rows
    // would be work over the largest data for nothing.
    png_set_option(r.png, PNG_IGNORE_ADLER32, PNG_OPTION_ON);
    png_read_info(r.png, r.info);
    png_uint_32 width = 0, height = 0;
    int depth = 0, type = 0, interlace = 0;
    png_get_IHDR(r.png, r.info, &width, &height, &depth, &type, &interlace, nullptr, nullptr);

    const std::uint64_t idat = imageDataBytes(r.bytes);
    const bool transparency = png_get_valid(r.png, r.info, PNG_INFO_tRNS);
    const bool alpha = (type & PNG_COLOR_MASK_ALPHA) || transparency;
    const bool grey = !(type & PNG_COLOR_MASK_COLOR) && !alpha;
    const int channels = type == PNG_COLOR_TYPE_PALETTE ? 1 : png_get_channels(r.png, r.info);
    const double codable = (double(idat) + 1) * kDeflateMaxRatio * 8 / double(channels * depth);
    reading.checkSize(width, height, codable);

    png_charp name = nullptr;
    png_bytep profile = nullptr;
    png_uint_32 profileLength = 0;
    int compression = 0;
    if (png_get_iCCP(r.png, r.info, &name, &compression, &profile, &profileLength) && profile)
        reading.icc.assign(profile, profile + profileLength);
    takeExif(r, reading);

    if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(r.png);
    if (!(type & PNG_COLOR_MASK_COLOR) && depth < 8) png_set_expand_gray_1_2_4_to_8(r.png);
    if (transparency) png_set_tRNS_to_alpha(r.png);
    if (depth == 16) png_set_swap(r.png);
    if (!grey && !(type & PNG_COLOR_MASK_COLOR)) png_set_gray_to_rgb(r.png);
    if (!grey && depth == 16 && !alpha) png_set_filler(r.png, 0xffff, PNG_FILLER_AFTER);
    if (!grey && depth < 16) {
        if (alpha)
            png_set_swap_alpha(r.png);
        else
            png_set_filler(r.png, 0xff, PNG_FILLER_BEFORE);
    }
    const bool interlaced = png_set_interlace_handling(r.png) > 1;
    png_read_update_info(r.png, r.info);

    if (grey && depth == 16)
        readRows<PixelGray16>(r, reading, width, height, interlaced, false);
    else if (grey)
        readRows<PixelGray8>(r, reading, width, height, interlaced, false);
    else if (depth == 16)
        readRows<PixelRGBA16>(r, reading, width, height, interlaced, alpha);
    else
        readRows<PixelARGB8>(r, reading, width, height, interlaced, alpha);
    png_read_end(r.png, r.info);
    takeExif(r, reading);
    return true;
}

struct PngWriter {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::string message;
    std::vector<std::uint8_t> out;

    ~PngWriter() { png_destroy_write_struct(&png, &info); }

    static void error(png_structp png, png_const_charp text) {
        static_cast<PngWriter*>(png_get_error_ptr(png))->message = text;
        png_longjmp(png, 1);
    }
    static void write(png_structp png, png_bytep data, png_size_t n) {
        auto& out = static_cast<PngWriter*>(png_get_io_ptr(png))->out;
        out.insert(out.end(), data, data + n);
    }
    static void flush(png_structp) {}
};

bool encode(PngWriter& w, const Rows& rows, const Encoding& encoding) {
    if (setjmp(png_jmpbuf(w.png))) return false;
    png_set_write_fn(w.png, &w, PngWriter::write, PngWriter::flush);
    // libpng refuses profiles it knows to be slightly wrong (early sRGB profiles); they are
    // written as given all the same, as other writers do.
    png_set_benign_errors(w.png, 1);
    png_set_compression_level(w.png, encoding.options.compressionLevel);
    const bool alpha = !rows.grey && !rows.opaque();
    const int type = rows.grey ? PNG_COLOR_TYPE_GRAY
                     : alpha   ? PNG_COLOR_TYPE_RGB_ALPHA
                               : PNG_COLOR_TYPE_RGB;
    png_set_IHDR(w.png, w.info, png_uint_32(rows.width), png_uint_32(rows.height), rows.bitDepth,
                 type, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!encoding.icc.empty())
        png_set_iCCP(w.png, w.info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, encoding.icc.data(),
                     png_uint_32(encoding.icc.size()));
    if (!encoding.exif.empty())
        png_set_eXIf_1(w.png, w.info, png_uint_32(encoding.exif.size()),
                       const_cast<png_bytep>(encoding.exif.data()));
    png_write_info(w.png, w.info);
    if (rows.bitDepth == 16) png_set_swap(w.png);
    if (!rows.grey) {
        if (alpha && rows.alphaFirst)
            png_set_swap_alpha(w.png);
        else if (!alpha)
            png_set_filler(w.png, 0, rows.alphaFirst ? PNG_FILLER_BEFORE : PNG_FILLER_AFTER);
    }
    for (std::int64_t y = 0; y < rows.height; ++y)
        png_write_row(w.png, const_cast<png_bytep>(rows.straight(y)));
    png_write_end(w.png, w.info);
    return true;
}

} // namespace

void decodePNG(Reading& reading) {
    PngReader r;
    r.bytes = reading.bytes;
    r.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r, PngReader::error, PngReader::warning);
    if (r.png) r.info = png_create_info_struct(r.png);
    if (!r.info) fail(Kind::tooLarge, "no memory to read a PNG");
    if (!decode(r, reading))
        fail(r.kind, (r.kind == Kind::truncated ? "truncated PNG: " : "corrupt PNG: ") + r.message);
}

std::vector<std::uint8_t> encodePNG(const Rows& rows, const Encoding& encoding) {
    PngWriter w;
    w.png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, &w, PngWriter::error, PngReader::warning);
    if (w.png) w.info = png_create_info_struct(w.png);
    if (!w.info) fail(Kind::tooLarge, "no memory to write a PNG");
    if (rows.width > 0x7fffffff || rows.height > 0x7fffffff)
        fail(Kind::unsupported, "a PNG holds at most 2³¹ − 1 pixels a side");
    if (!encode(w, rows, encoding)) fail(Kind::unsupported, "cannot write the PNG: " + w.message);
    return std::move(w.out);
}

} // namespace bic::files::detail
