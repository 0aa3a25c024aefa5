#include "file_makers.hpp"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>
#include <unistd.h>

namespace bic::test_support {

namespace {

[[noreturn]] void pngFailed(png_structp, png_const_charp message) {
    throw std::runtime_error(std::string("libpng: ") + message);
}

} // namespace

Bytes pngFile(const PngSpec& spec) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, pngFailed, nullptr);
    png_infop info = png_create_info_struct(png);
    Bytes out;
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep data, png_size_t n) {
            auto* o = static_cast<Bytes*>(png_get_io_ptr(p));
            o->insert(o->end(), data, data + n);
        },
        nullptr);
    png_set_IHDR(png, info, spec.width, spec.height, spec.bitDepth, spec.colorType,
                 spec.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    std::vector<png_color> palette;
    for (std::size_t i = 0; i + 2 < spec.palette.size(); i += 3)
        palette.push_back({spec.palette[i], spec.palette[i + 1], spec.palette[i + 2]});
    if (!palette.empty()) png_set_PLTE(png, info, palette.data(), int(palette.size()));
    if (!spec.paletteAlpha.empty())
        png_set_tRNS(png, info, spec.paletteAlpha.data(), int(spec.paletteAlpha.size()), nullptr);
    if (!spec.exif.empty())
        png_set_eXIf_1(png, info, png_uint_32(spec.exif.size()),
                       const_cast<png_bytep>(spec.exif.data()));
    if (!spec.icc.empty())
        png_set_iCCP(png, info, "profile", 0, spec.icc.data(), png_uint_32(spec.icc.size()));
    png_write_info(png, info);
    std::vector<png_bytep> rows;
    for (const Bytes& row : spec.rows)
        rows.push_back(const_cast<png_bytep>(row.data()));
    png_write_image(png, rows.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return out;
}

RawImage rawPNG(const Bytes& file) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, pngFailed, nullptr);
    png_infop info = png_create_info_struct(png);
    struct Cursor {
        const Bytes* bytes;
        std::size_t at;
    } cursor{&file, 0};
    png_set_read_fn(png, &cursor, [](png_structp p, png_bytep out, png_size_t n) {
        auto* c = static_cast<Cursor*>(png_get_io_ptr(p));
        if (c->at + n > c->bytes->size()) png_error(p, "end of data");
        std::memcpy(out, c->bytes->data() + c->at, n);
        c->at += n;
    });
    png_read_info(png, info);
    RawImage raw;
    raw.width = png_get_image_width(png, info);
    raw.height = png_get_image_height(png, info);
    raw.colorType = png_get_color_type(png, info);
    raw.bitDepth = png_get_bit_depth(png, info);
    raw.rows.assign(raw.height, Bytes(png_get_rowbytes(png, info)));
    std::vector<png_bytep> rows;
    for (Bytes& row : raw.rows)
        rows.push_back(row.data());
    png_read_image(png, rows.data());
    png_destroy_read_struct(&png, &info, nullptr);
    return raw;
}

std::filesystem::path scratchFolder() {
    static const std::filesystem::path folder = [] {
        auto p = std::filesystem::temp_directory_path() /
                 ("bic-files-test-" + std::to_string(::getpid()));
        std::filesystem::create_directories(p);
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(std::filesystem::temp_directory_path() /
                                            ("bic-files-test-" + std::to_string(::getpid())),
                                        ignored);
        });
        return p;
    }();
    return folder;
}

Bytes readBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}

Bytes tiffFile(const TiffSpec& s) {
    static int counter = 0;
    const auto path = scratchFolder() / ("made-" + std::to_string(counter++) + ".tif");
    TIFF* t = TIFFOpen(path.c_str(), "w");
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, s.width);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, s.height);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, s.channels);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, s.bits);
    TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, s.format);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, s.photometric);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, s.planar);
    TIFFSetField(t, TIFFTAG_COMPRESSION, s.compression);
    if (s.extraSample) TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &*s.extraSample);
    if (s.orientation) TIFFSetField(t, TIFFTAG_ORIENTATION, *s.orientation);
    if (!s.colorMap.empty()) {
        const std::size_t n = s.colorMap.size() / 3;
        TIFFSetField(t, TIFFTAG_COLORMAP, s.colorMap.data(), s.colorMap.data() + n,
                     s.colorMap.data() + 2 * n);
    }
    const std::size_t sampleBytes = std::max<std::size_t>(1, s.bits / 8);
    const std::size_t pixelBytes = s.channels * sampleBytes;
    const std::size_t rowBytes = s.bits < 8 ? (s.width * s.bits + 7) / 8 : s.width * pixelBytes;
    // Planes or tiles take the samples apart; contiguous strips take rows as they are.
    auto sampleAt = [&](std::uint32_t x, std::uint32_t y, int c) {
        return s.samples.data() + y * rowBytes + x * pixelBytes + std::size_t(c) * sampleBytes;
    };
    const int planes = s.planar == PLANARCONFIG_SEPARATE ? s.channels : 1;
    if (s.tileSize) {
        TIFFSetField(t, TIFFTAG_TILEWIDTH, s.tileSize);
        TIFFSetField(t, TIFFTAG_TILELENGTH, s.tileSize);
        const std::size_t perPixel = planes > 1 ? sampleBytes : pixelBytes;
        Bytes tile(s.tileSize * s.tileSize * perPixel);
        for (int plane = 0; plane < planes; ++plane)
            for (std::uint32_t ty = 0; ty < s.height; ty += s.tileSize)
                for (std::uint32_t tx = 0; tx < s.width; tx += s.tileSize) {
                    std::fill(tile.begin(), tile.end(), 0);
                    for (std::uint32_t y = ty; y < std::min(s.height, ty + s.tileSize); ++y)
                        for (std::uint32_t x = tx; x < std::min(s.width, tx + s.tileSize); ++x)
                            std::memcpy(tile.data() + ((y - ty) * s.tileSize + (x - tx)) * perPixel,
                                        sampleAt(x, y, planes > 1 ? plane : 0), perPixel);
                    TIFFWriteTile(t, tile.data(), tx, ty, 0, std::uint16_t(plane));
                }
    } else {
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, s.rowsPerStrip);
        Bytes row(planes > 1 ? s.width * sampleBytes : rowBytes);
        for (int plane = 0; plane < planes; ++plane)
            for (std::uint32_t y = 0; y < s.height; ++y) {
                if (planes > 1)
                    for (std::uint32_t x = 0; x < s.width; ++x)
                        std::memcpy(row.data() + x * sampleBytes, sampleAt(x, y, plane),
                                    sampleBytes);
                else
                    std::memcpy(row.data(), s.samples.data() + y * rowBytes, rowBytes);
                TIFFWriteScanline(t, row.data(), y, std::uint16_t(plane));
            }
    }
    TIFFClose(t);
    return readBytes(path);
}

int tiffSamplesPerPixel(const Bytes& file) {
    static int counter = 0;
    const auto path = scratchFolder() / ("check-" + std::to_string(counter++) + ".tif");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(file.data()), std::streamsize(file.size()));
    TIFF* t = TIFFOpen(path.c_str(), "r");
    std::uint16_t spp = 0;
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFClose(t);
    return spp;
}

Bytes jpegFile(const JpegSpec& s) {
    jpeg_compress_struct c{};
    jpeg_error_mgr errors{};
    c.err = jpeg_std_error(&errors);
    jpeg_create_compress(&c);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &out, &size);
    c.image_width = s.width;
    c.image_height = s.height;
    c.input_components = s.components;
    c.in_color_space = J_COLOR_SPACE(s.inColorSpace);
    jpeg_set_defaults(&c);
    jpeg_set_colorspace(&c, J_COLOR_SPACE(s.fileColorSpace));
    jpeg_set_quality(&c, s.quality, TRUE);
    if (s.progressive) jpeg_simple_progression(&c);
    jpeg_start_compress(&c, TRUE);
    const std::size_t rowBytes = s.width * std::size_t(s.components);
    for (std::uint32_t y = 0; y < s.height; ++y) {
        JSAMPROW row = const_cast<JSAMPROW>(s.samples.data() + y * rowBytes);
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    Bytes bytes(out, out + size);
    std::free(out);
    return bytes;
}

std::optional<std::vector<std::uint8_t>>
imageMagickRGB(const std::filesystem::path& file, std::uint32_t& width, std::uint32_t& height) {
    if (std::system("command -v convert > /dev/null 2>&1") != 0) return std::nullopt;
    std::string quoted = "'";
    for (const char c : file.string())
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    quoted += "'";
    FILE* pipe =
        ::popen(("convert " + quoted + " -auto-orient -depth 8 ppm:- 2>/dev/null").c_str(), "r");
    if (!pipe) return std::nullopt;
    unsigned w = 0, h = 0, max = 0;
    std::vector<std::uint8_t> rgb;
    if (std::fscanf(pipe, "P6 %u %u %u", &w, &h, &max) == 3 && max == 255) {
        std::fgetc(pipe); // the one white-space byte before the samples
        rgb.resize(std::size_t(w) * h * 3);
        if (std::fread(rgb.data(), 1, rgb.size(), pipe) != rgb.size()) rgb.clear();
    }
    ::pclose(pipe);
    if (rgb.empty()) return std::nullopt;
    width = w, height = h;
    return rgb;
}

std::filesystem::path photoFolder() {
    const std::filesystem::path folder(BIC_TEST_PHOTOS);
    return std::filesystem::is_directory(folder) ? folder : std::filesystem::path();
}

} // namespace bic::test_support
