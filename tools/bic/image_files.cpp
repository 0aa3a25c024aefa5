#include "image_files.hpp"

#include "commands.hpp"

#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <png.h>
#include <string>
#include <tiffio.h>

namespace bic::tool {

namespace {

// Samples between a file and a buffer: grey (1 channel) or RGBA (4), host order, rows packed.
struct Raster {
    std::int64_t width = 0, height = 0;
    int channels = 4;
    int depth = 8; // 8, 16, or 32 for float
    bool premultiplied = false;
    std::vector<std::uint8_t> samples;

    std::size_t rowBytes() const { return std::size_t(width * channels * (depth / 8)); }
    std::uint8_t* row(std::int64_t y) { return samples.data() + std::size_t(y) * rowBytes(); }
    void allocate() { samples.assign(rowBytes() * std::size_t(height), 0); }
};

template <class T>
constexpr T fullValue() {
    if constexpr (std::is_floating_point_v<T>)
        return T(1);
    else
        return std::numeric_limits<T>::max();
}

template <class T>
T premultiply(T c, T a) {
    if constexpr (std::is_floating_point_v<T>) {
        return c * a;
    } else {
        constexpr std::uint64_t m = fullValue<T>();
        return T((std::uint64_t(c) * a + m / 2) / m);
    }
}

template <class T>
T unpremultiply(T c, T a) {
    if constexpr (std::is_floating_point_v<T>) {
        return a > 0 ? c / a : 0;
    } else {
        constexpr std::uint64_t m = fullValue<T>();
        return a == 0 ? 0 : T(std::min<std::uint64_t>(m, (std::uint64_t(c) * m + a / 2) / a));
    }
}

template <Pixel P>
PixelBufferType toBuffer(const Raster& r, const std::string& title) {
    using T = typename P::ComponentType;
    PixelBuffer<P> buffer(IntegralSize(r.width, r.height), P::deviceColorSpace(), title);
    buffer.withUnsafeBuffer([&](std::span<P> pixels) {
        for (std::int64_t y = 0; y < r.height; ++y) {
            const T* in =
                reinterpret_cast<const T*>(r.samples.data() + std::size_t(y) * r.rowBytes());
            P* out = pixels.data() + y * buffer.pixelsPerRow();
            for (std::int64_t x = 0; x < r.width; ++x, in += r.channels) {
                if constexpr (RGBAPixel<P>) {
                    const T a = in[3];
                    const bool straight = !r.premultiplied;
                    out[x].redComponent = straight ? premultiply(in[0], a) : in[0];
                    out[x].greenComponent = straight ? premultiply(in[1], a) : in[1];
                    out[x].blueComponent = straight ? premultiply(in[2], a) : in[2];
                    out[x].alphaComponent = a;
                } else {
                    out[x].grayComponent = in[0];
                }
            }
        }
    });
    return buffer;
}

PixelBufferType toBuffer(const Raster& r, const std::string& title) {
    return withPixelFormat(
        r.channels == 1 ? cg::ColorSpaceModel::monochrome : cg::ColorSpaceModel::rgb, r.depth,
        [&]<class P>(std::type_identity<P>) { return toBuffer<P>(r, title); });
}

Raster toRaster(const PixelBufferType& buffer, bool premultiplied) {
    return std::visit(
        [&](const auto& b) {
            using P = typename std::decay_t<decltype(b)>::Element;
            using T = typename P::ComponentType;
            Raster r;
            r.width = b.size().width, r.height = b.size().height;
            r.channels = P::componentCount;
            r.depth = P::bitDepth;
            r.premultiplied = premultiplied;
            r.allocate();
            b.withUnsafeBuffer([&](std::span<const P> pixels) {
                for (std::int64_t y = 0; y < r.height; ++y) {
                    T* out = reinterpret_cast<T*>(r.row(y));
                    const P* in = pixels.data() + y * b.pixelsPerRow();
                    for (std::int64_t x = 0; x < r.width; ++x, out += r.channels) {
                        if constexpr (RGBAPixel<P>) {
                            const T a = in[x].alphaComponent;
                            out[0] = premultiplied ? in[x].redComponent
                                                   : unpremultiply(in[x].redComponent, a);
                            out[1] = premultiplied ? in[x].greenComponent
                                                   : unpremultiply(in[x].greenComponent, a);
                            out[2] = premultiplied ? in[x].blueComponent
                                                   : unpremultiply(in[x].blueComponent, a);
                            out[3] = a;
                        } else {
                            out[0] = in[x].grayComponent;
                        }
                    }
                }
            });
            return r;
        },
        buffer);
}

// ---- PNG ----

struct PngFailure {
    std::string message;
};

[[noreturn]] void pngError(png_structp png, png_const_charp message) {
    static_cast<PngFailure*>(png_get_error_ptr(png))->message = message;
    png_longjmp(png, 1);
}

void pngWarning(png_structp, png_const_charp) {}

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File open(const std::filesystem::path& path, const char* mode) {
    File f(std::fopen(path.c_str(), mode), &std::fclose);
    if (!f) throw CommandError("cannot open " + path.string() + ": " + std::strerror(errno));
    return f;
}

Raster readPNG(const std::filesystem::path& path) {
    File file = open(path, "rb");
    PngFailure failure;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &failure, pngError, pngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) throw CommandError("out of memory reading " + path.string());
    Raster r;
    std::vector<png_bytep> rows;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        throw CommandError(path.string() + ": " + failure.message);
    }
    png_init_io(png, file.get());
    png_read_info(png, info);
    const int type = png_get_color_type(png, info);
    const int depth = png_get_bit_depth(png, info);
    const bool transparency = png_get_valid(png, info, PNG_INFO_tRNS);
    png_set_expand(png); // palettes to RGB, low grey depths to 8, tRNS to alpha
    if (depth == 16) png_set_swap(png);
    const bool grey = (type == PNG_COLOR_TYPE_GRAY) && !transparency;
    if (!grey) {
        png_set_gray_to_rgb(png);
        png_set_add_alpha(png, 0xffff, PNG_FILLER_AFTER);
    }
    png_read_update_info(png, info);
    r.width = png_get_image_width(png, info);
    r.height = png_get_image_height(png, info);
    r.channels = grey ? 1 : 4;
    r.depth = depth == 16 ? 16 : 8;
    r.allocate();
    if (png_get_rowbytes(png, info) != r.rowBytes()) png_error(png, "unexpected row length");
    for (std::int64_t y = 0; y < r.height; ++y)
        rows.push_back(r.row(y));
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return r;
}

void writePNG(Raster& r, const std::filesystem::path& path) {
    if (r.depth == 32)
        throw CommandError("32-bit buffers are written as TIFF: use a .tif name for " +
                           path.string());
    File file = open(path, "wb");
    PngFailure failure;
    png_structp png =
        png_create_write_struct(PNG_LIBPNG_VER_STRING, &failure, pngError, pngWarning);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!info) throw CommandError("out of memory writing " + path.string());
    std::vector<png_bytep> rows;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        throw CommandError(path.string() + ": " + failure.message);
    }
    png_init_io(png, file.get());
    png_set_IHDR(png, info, png_uint_32(r.width), png_uint_32(r.height), r.depth,
                 r.channels == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (r.depth == 16) png_set_swap(png);
    for (std::int64_t y = 0; y < r.height; ++y)
        rows.push_back(r.row(y));
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    if (std::fflush(file.get()) != 0) throw CommandError("cannot write " + path.string());
}

// ---- TIFF ----

thread_local std::string tiffMessage;

void tiffError(const char* module, const char* format, va_list args) {
    char text[512];
    std::vsnprintf(text, sizeof text, format, args);
    tiffMessage = std::string(module ? module : "TIFF") + ": " + text;
}

using Tiff = std::unique_ptr<TIFF, void (*)(TIFF*)>;

Tiff openTIFF(const std::filesystem::path& path, const char* mode) {
    TIFFSetErrorHandler(tiffError);
    TIFFSetWarningHandler(nullptr);
    Tiff tiff(TIFFOpen(path.c_str(), mode), &TIFFClose);
    if (!tiff) throw CommandError("cannot open " + path.string() + ": " + tiffMessage);
    return tiff;
}

Raster readTIFF(const std::filesystem::path& path) {
    Tiff tiff = openTIFF(path, "r");
    TIFF* t = tiff.get();
    std::uint32_t width = 0, height = 0;
    std::uint16_t bits = 0, spp = 1, format = SAMPLEFORMAT_UINT, planar = PLANARCONFIG_CONTIG,
                  photometric = 0, extraCount = 0;
    std::uint16_t* extra = nullptr;
    TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLEFORMAT, &format);
    TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &photometric);
    TIFFGetFieldDefaulted(t, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    const bool grey = photometric == PHOTOMETRIC_MINISBLACK && (spp == 1 || spp == 2);
    const bool rgb = photometric == PHOTOMETRIC_RGB && (spp == 3 || spp == 4);
    const bool samplesOk = (format == SAMPLEFORMAT_UINT && (bits == 8 || bits == 16)) ||
                           (format == SAMPLEFORMAT_IEEEFP && bits == 32);
    if (!(grey || rgb) || !samplesOk || planar != PLANARCONFIG_CONTIG || TIFFIsTiled(t) ||
        width == 0 || height == 0)
        throw CommandError(path.string() +
                           ": only strip TIFFs of interleaved grey or RGB samples, 8 or 16-bit "
                           "unsigned or 32-bit float, can be read");
    Raster r;
    r.width = width, r.height = height, r.depth = bits;
    r.channels = grey && spp == 1 ? 1 : 4;
    r.premultiplied = extraCount > 0 && extra && extra[0] == EXTRASAMPLE_ASSOCALPHA;
    r.allocate();
    const std::size_t bytes = bits / 8;
    std::vector<std::uint8_t> line(std::size_t(TIFFScanlineSize(t)));
    if (line.size() < std::size_t(width) * spp * bytes)
        throw CommandError(path.string() + ": unexpected scanline length");
    for (std::uint32_t y = 0; y < height; ++y) {
        if (TIFFReadScanline(t, line.data(), y, 0) < 0)
            throw CommandError(path.string() + ": " + tiffMessage);
        std::uint8_t* out = r.row(y);
        for (std::uint32_t x = 0; x < width; ++x) {
            const std::uint8_t* in = line.data() + std::size_t(x) * spp * bytes;
            std::uint8_t* o = out + std::size_t(x) * std::size_t(r.channels) * bytes;
            // Grey fills red, green and blue; a missing alpha is opaque.
            for (int c = 0; c < r.channels; ++c) {
                int from = grey ? (c < 3 ? 0 : 1) : c;
                if (from < spp) {
                    std::memcpy(o + std::size_t(c) * bytes, in + std::size_t(from) * bytes, bytes);
                } else if (bits == 32) {
                    const float one = 1;
                    std::memcpy(o + std::size_t(c) * bytes, &one, 4);
                } else {
                    std::memset(o + std::size_t(c) * bytes, 0xff, bytes);
                }
            }
        }
    }
    return r;
}

void writeTIFF(Raster& r, const std::filesystem::path& path) {
    Tiff tiff = openTIFF(path, "w");
    TIFF* t = tiff.get();
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, std::uint32_t(r.width));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, std::uint32_t(r.height));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, std::uint16_t(r.depth));
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, std::uint16_t(r.channels));
    TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, r.depth == 32 ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC,
                 r.channels == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
    if (r.channels == 4) {
        const std::uint16_t extra[] = {
            std::uint16_t(r.premultiplied ? EXTRASAMPLE_ASSOCALPHA : EXTRASAMPLE_UNASSALPHA)};
        TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    for (std::int64_t y = 0; y < r.height; ++y)
        if (TIFFWriteScanline(t, r.row(y), std::uint32_t(y), 0) < 0)
            throw CommandError("cannot write " + path.string() + ": " + tiffMessage);
    if (!TIFFFlush(t)) throw CommandError("cannot write " + path.string() + ": " + tiffMessage);
}

bool hasExtension(const std::filesystem::path& path, std::initializer_list<const char*> names) {
    std::string ext = path.extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    return std::any_of(names.begin(), names.end(), [&](const char* n) { return ext == n; });
}

} // namespace

PixelBufferType readImageFile(const std::filesystem::path& path) {
    unsigned char magic[8] = {};
    {
        std::ifstream in(path, std::ios::binary);
        if (!in) throw CommandError("cannot open " + path.string());
        in.read(reinterpret_cast<char*>(magic), sizeof magic);
    }
    const std::string title = path.stem().string();
    if (png_sig_cmp(magic, 0, 8) == 0) return toBuffer(readPNG(path), title);
    if ((magic[0] == 'I' && magic[1] == 'I' && magic[2] == 42 && magic[3] == 0) ||
        (magic[0] == 'M' && magic[1] == 'M' && magic[2] == 0 && magic[3] == 42))
        return toBuffer(readTIFF(path), title);
    throw CommandError(path.string() + " is neither a PNG nor a TIFF file");
}

void writeImageFile(const PixelBufferType& buffer, const std::filesystem::path& path) {
    if (hasExtension(path, {".png"})) {
        Raster r = toRaster(buffer, false);
        writePNG(r, path);
    } else if (hasExtension(path, {".tif", ".tiff"})) {
        Raster r = toRaster(buffer, true);
        writeTIFF(r, path);
    } else {
        throw CommandError("cannot tell the image format of " + path.string() +
                           " (use .png, .tif or .tiff)");
    }
}

void writeStraightPNG(std::int64_t width, std::int64_t height, int depth,
                      std::vector<std::uint8_t> samples, const std::filesystem::path& path) {
    Raster r;
    r.width = width, r.height = height, r.channels = 4, r.depth = depth;
    if (samples.size() != r.rowBytes() * std::size_t(height))
        throw CommandError("internal: " + path.string() + " has the wrong number of samples");
    r.samples = std::move(samples);
    writePNG(r, path);
}

} // namespace bic::tool
