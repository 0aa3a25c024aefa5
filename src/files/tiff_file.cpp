// TIFF through libtiff, from and to memory. Grey and RGB of 8 or 16-bit integers or 32-bit
// floats, in strips or tiles, interleaved or in planes, with associated or unassociated alpha,
// are read sample for sample; everything else libtiff's RGBA interface takes (palettes, bilevel
// and 4-bit images, YCbCr, CMYK, Lab) arrives as 8-bit colour. The first image of a file is read.
// Written files keep the buffer's values exactly: associated alpha, deflate with prediction.

#include "codecs.hpp"
#include "samples.hpp"

#include <cstdarg>
#include <cstring>
#include <fmt/format.h>
#include <tiffio.h>

namespace bic::files::detail {

using Kind = ImageFileError::Kind;

namespace {

// libtiff's handle: the bytes being read, or the bytes being written.
struct TiffMemory {
    std::span<const std::uint8_t> input;
    std::vector<std::uint8_t> output;
    bool writing = false;
    std::uint64_t at = 0;
    std::string message;

    std::uint64_t size() const { return writing ? output.size() : input.size(); }

    static TiffMemory& of(thandle_t h) { return *static_cast<TiffMemory*>(h); }
    static tmsize_t read(thandle_t h, void* buffer, tmsize_t n) {
        TiffMemory& m = of(h);
        const std::uint8_t* data = m.writing ? m.output.data() : m.input.data();
        if (n < 0 || m.at >= m.size()) return 0;
        const auto count = std::min<std::uint64_t>(std::uint64_t(n), m.size() - m.at);
        std::memcpy(buffer, data + m.at, count);
        m.at += count;
        return tmsize_t(count);
    }
    static tmsize_t write(thandle_t h, void* buffer, tmsize_t n) {
        TiffMemory& m = of(h);
        if (!m.writing || n < 0) return 0;
        if (m.at + std::uint64_t(n) > m.output.size()) m.output.resize(m.at + std::uint64_t(n));
        std::memcpy(m.output.data() + m.at, buffer, std::size_t(n));
        m.at += std::uint64_t(n);
        return n;
    }
    static toff_t seek(thandle_t h, toff_t offset, int whence) {
        TiffMemory& m = of(h);
        const std::uint64_t base = whence == SEEK_CUR ? m.at : whence == SEEK_END ? m.size() : 0;
        m.at = base + offset;
        return m.at;
    }
    static int close(thandle_t) { return 0; }
    static toff_t sizeOf(thandle_t h) { return of(h).size(); }
    static int map(thandle_t, void**, toff_t*) { return 0; }
    static void unmap(thandle_t, void*, toff_t) {}
    static int error(TIFF*, void* user, const char* module, const char* format, va_list args) {
        char text[512];
        std::vsnprintf(text, sizeof text, format, args);
        auto& m = *static_cast<TiffMemory*>(user);
        if (m.message.empty()) m.message = std::string(module ? module : "TIFF") + ": " + text;
        return 1;
    }
    static int warning(TIFF*, void*, const char*, const char*, va_list) { return 1; }
};

struct TiffCloser {
    void operator()(TIFF* t) const { TIFFClose(t); }
};
using Tiff = std::unique_ptr<TIFF, TiffCloser>;

Tiff open(TiffMemory& memory, const char* mode) {
    TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
    TIFFOpenOptionsSetErrorHandlerExtR(options, TiffMemory::error, &memory);
    TIFFOpenOptionsSetWarningHandlerExtR(options, TiffMemory::warning, &memory);
    Tiff tiff(TIFFClientOpenExt("memory", mode, &memory, TiffMemory::read, TiffMemory::write,
                                TiffMemory::seek, TiffMemory::close, TiffMemory::sizeOf,
                                TiffMemory::map, TiffMemory::unmap, options));
    TIFFOpenOptionsFree(options);
    return tiff;
}

[[noreturn]] void failWith(const TiffMemory& memory, const std::string& what) {
    const bool truncated = memory.message.find("Read error") != std::string::npos ||
                           memory.message.find("end of file") != std::string::npos ||
                           memory.message.find("Cannot read") != std::string::npos;
    fail(truncated ? Kind::truncated : Kind::corrupt,
         (truncated ? "truncated TIFF: " : "corrupt TIFF: ") + what +
             (memory.message.empty() ? "" : " (" + memory.message + ")"));
}

// The most pixels one stored byte can code, for pixels of `bitsPerPixel`: each codec's best case
// (a PackBits run gives 128 bytes for 2, deflate 1032 for 1, an LZW code at most 4096 for 9
// bits; JPEG spends a bit at least on a block of up to 32 × 32 pixels). Codecs without such a
// bound (fax, LZMA, Zstandard, …) give none.
double codablePixelsPerByte(std::uint16_t compression, double bitsPerPixel) {
    switch (compression) {
    case COMPRESSION_NONE:
        return 8 / bitsPerPixel;
    case COMPRESSION_PACKBITS:
        return 64 * 8 / bitsPerPixel;
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE:
        return 1032 * 8 / bitsPerPixel;
    case COMPRESSION_LZW:
        return 4096 * 8 / 9.0 * 8 / bitsPerPixel;
    case COMPRESSION_JPEG:
    case COMPRESSION_OJPEG:
        return 8 * 1024;
    default:
        return -1;
    }
}

struct Layout {
    std::uint32_t width = 0, height = 0;
    std::uint16_t bits = 1, samples = 1, format = SAMPLEFORMAT_UINT, planar = PLANARCONFIG_CONTIG,
                  photometric = PHOTOMETRIC_MINISBLACK, compression = COMPRESSION_NONE;
    int colors = 1;
    bool alpha = false, associated = false;
};

// Samples of one band of rows, interleaved, converted into buffer pixels.
template <Pixel P, class T>
void convertRow(const T* in, P* out, std::int64_t width, const Layout& l, bool whiteIsZero) {
    constexpr T full = fullSample<T>();
    auto level = [&](T v) -> T { return whiteIsZero ? T(full - v) : v; };
    const int n = l.samples;
    for (std::int64_t x = 0; x < width; ++x, in += n) {
        if constexpr (RGBAPixel<P>) {
            const T r = l.colors == 1 ? level(in[0]) : in[0];
            const T g = l.colors == 1 ? r : in[1];
            const T b = l.colors == 1 ? r : in[2];
            const T a = l.alpha ? in[l.colors] : full;
            const bool straight = l.alpha && !l.associated;
            out[x].redComponent = straight ? premultiplied(r, a) : r;
            out[x].greenComponent = straight ? premultiplied(g, a) : g;
            out[x].blueComponent = straight ? premultiplied(b, a) : b;
            out[x].alphaComponent = a;
        } else {
            out[x].grayComponent = level(in[0]);
        }
    }
}

// Strips or tiles band by band into the buffer. When the codec sets no bound on what a byte can
// code (`deferred`), the whole image is decoded first into memory that is not cleared, so that a
// hostile stream failing early touches little of it, and the buffer is made afterwards.
template <Pixel P>
void readSamples(TIFF* t, TiffMemory& memory, Reading& reading, const Layout& l, bool deferred) {
    using T = typename P::ComponentType;
    const std::int64_t width = l.width, height = l.height;
    const bool tiled = TIFFIsTiled(t);
    std::uint32_t blockWidth = l.width, blockHeight = l.height;
    if (tiled) {
        TIFFGetField(t, TIFFTAG_TILEWIDTH, &blockWidth);
        TIFFGetField(t, TIFFTAG_TILELENGTH, &blockHeight);
    } else {
        TIFFGetFieldDefaulted(t, TIFFTAG_ROWSPERSTRIP, &blockHeight);
        blockHeight = std::min(blockHeight, l.height);
    }
    const std::size_t sampleBytes = sizeof(T);
    const int planes = l.planar == PLANARCONFIG_SEPARATE ? l.samples : 1;
    const std::size_t blockSamples = l.planar == PLANARCONFIG_SEPARATE ? 1 : l.samples;
    const tmsize_t blockBytes = tiled ? TIFFTileSize(t) : TIFFStripSize(t);
    // A tile or strip larger than the image it belongs to is a hostile way to allocate.
    const double imageBytes = double(width) * double(height) * l.samples * double(sampleBytes);
    if (blockWidth == 0 || blockHeight == 0 || blockBytes <= 0 ||
        double(blockWidth) * blockHeight * double(blockSamples * sampleBytes) >
            double(blockBytes) ||
        double(blockBytes) > 4 * imageBytes + (1 << 20))
        failWith(memory, "strips or tiles that do not fit the image");
    const std::uint32_t bandHeight = deferred ? l.height : blockHeight;

    const std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[std::size_t(blockBytes)]);
    const std::unique_ptr<T[]> band(new T[std::size_t(width) * bandHeight * l.samples]);
    const std::size_t blockRow = blockWidth * blockSamples * sampleBytes;
    // The rows [y0, y0 + rows) of every plane into the band, from its row `bandRow` on.
    auto readBlocks = [&](std::uint32_t y0, std::uint32_t rows, std::uint32_t bandRow) {
        for (int plane = 0; plane < planes; ++plane)
            for (std::uint32_t x0 = 0; x0 < l.width; x0 += blockWidth) {
                const std::uint32_t index =
                    tiled ? TIFFComputeTile(t, x0, y0, 0, std::uint16_t(plane))
                          : TIFFComputeStrip(t, y0, std::uint16_t(plane));
                const tmsize_t got = tiled
                                         ? TIFFReadEncodedTile(t, index, block.get(), blockBytes)
                                         : TIFFReadEncodedStrip(t, index, block.get(), blockBytes);
                if (got < 0 || std::size_t(got) < (tiled ? blockHeight : rows) * blockRow)
                    failWith(memory,
                             fmt::format("{} {} cannot be read", tiled ? "tile" : "strip", index));
                const std::uint32_t columns = std::min(blockWidth, l.width - x0);
                for (std::uint32_t r = 0; r < rows; ++r) {
                    const T* from = reinterpret_cast<const T*>(block.get() + r * blockRow);
                    T* to = band.get() + (std::size_t(bandRow + r) * l.width + x0) * l.samples;
                    if (planes == 1)
                        std::memcpy(to, from, columns * l.samples * sampleBytes);
                    else
                        for (std::uint32_t x = 0; x < columns; ++x)
                            to[std::size_t(x) * l.samples + std::size_t(plane)] = from[x];
                }
            }
    };
    const bool whiteIsZero = l.photometric == PHOTOMETRIC_MINISWHITE;
    auto convertBand = [&](PixelBuffer<P>& buffer, std::span<P> pixels, std::uint32_t y0,
                           std::uint32_t rows) {
        for (std::uint32_t r = 0; r < rows; ++r) {
            const std::size_t bandRow = deferred ? y0 + r : r;
            convertRow<P, T>(band.get() + bandRow * l.width * l.samples,
                             pixels.data() + (y0 + r) * buffer.pixelsPerRow(), width, l,
                             whiteIsZero);
        }
    };
    if (deferred)
        for (std::uint32_t y0 = 0; y0 < l.height; y0 += blockHeight)
            readBlocks(y0, std::min(blockHeight, l.height - y0), y0);
    PixelBuffer<P>& buffer = reading.allocate<P>(width, height);
    buffer.withUnsafeBuffer([&](std::span<P> pixels) {
        if (deferred) {
            convertBand(buffer, pixels, 0, l.height);
            return;
        }
        for (std::uint32_t y0 = 0; y0 < l.height; y0 += blockHeight) {
            const std::uint32_t rows = std::min(blockHeight, l.height - y0);
            readBlocks(y0, rows, 0);
            convertBand(buffer, pixels, y0, rows);
        }
    });
}

// Orientation o's image as stored: libtiff's RGBA reader flips within groups of orientations
// ({1, 5}, {2, 6}, {3, 7}, {4, 8}), so asking for the group's first gives the stored rows, and
// our own turning then treats every file alike.
int storedOrder(int orientation) { return (orientation - 1) % 4 + 1; }

// The raster is not cleared, so where a stream fails early its memory stays untouched; the
// buffer is made once the pixels are there.
void readRGBA(TIFF* t, TiffMemory& memory, Reading& reading, const Layout& l, int orientation) {
    std::unique_ptr<std::uint32_t[]> raster(new std::uint32_t[std::size_t(l.width) * l.height]);
    if (!TIFFReadRGBAImageOriented(t, l.width, l.height, raster.get(), storedOrder(orientation), 1))
        failWith(memory, "the image cannot be decoded");
    PixelBuffer<PixelARGB8>& buffer = reading.allocate<PixelARGB8>(l.width, l.height);
    buffer.withUnsafeBuffer([&](std::span<PixelARGB8> pixels) {
        for (std::uint32_t y = 0; y < l.height; ++y) {
            const std::uint32_t* in = raster.get() + std::size_t(y) * l.width;
            PixelARGB8* out = pixels.data() + y * buffer.pixelsPerRow();
            for (std::uint32_t x = 0; x < l.width; ++x)
                out[x] = PixelARGB8(std::uint8_t(TIFFGetR(in[x])), std::uint8_t(TIFFGetG(in[x])),
                                    std::uint8_t(TIFFGetB(in[x])), std::uint8_t(TIFFGetA(in[x])));
        }
    });
}

} // namespace

void decodeTIFF(Reading& reading) {
    TiffMemory memory;
    memory.input = reading.bytes;
    const Tiff tiff = open(memory, "rm");
    if (!tiff) failWith(memory, "no image directory");
    TIFF* t = tiff.get();

    Layout l;
    if (!TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &l.width) ||
        !TIFFGetField(t, TIFFTAG_IMAGELENGTH, &l.height))
        failWith(memory, "no image size");
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &l.bits);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &l.samples);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLEFORMAT, &l.format);
    TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &l.planar);
    TIFFGetFieldDefaulted(t, TIFFTAG_COMPRESSION, &l.compression);
    if (!TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &l.photometric))
        l.photometric = l.samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
    std::uint16_t extraCount = 0;
    std::uint16_t* extra = nullptr;
    TIFFGetFieldDefaulted(t, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
    std::uint16_t orientation = ORIENTATION_TOPLEFT;
    if (TIFFGetField(t, TIFFTAG_ORIENTATION, &orientation) && orientation >= 1 && orientation <= 8)
        reading.nativeOrientation = orientation;
    std::uint32_t profileLength = 0;
    void* profile = nullptr;
    if (TIFFGetField(t, TIFFTAG_ICCPROFILE, &profileLength, &profile) && profile)
        reading.icc.assign(static_cast<const std::uint8_t*>(profile),
                           static_cast<const std::uint8_t*>(profile) + profileLength);

    // Sizes are checked before the strips are even counted, whose number follows from them
    // (libtiff cuts a single uncompressed strip into rows of its own): first against the limit
    // and all the file's bytes, then against the bytes the strips hold.
    const double perByte =
        codablePixelsPerByte(l.compression, double(std::max<std::uint16_t>(l.bits, 1)) * l.samples);
    reading.checkSize(l.width, l.height, perByte < 0 ? -1 : double(reading.bytes.size()) * perByte);
    const std::uint32_t striles = TIFFIsTiled(t) ? TIFFNumberOfTiles(t) : TIFFNumberOfStrips(t);
    if (striles == 0 || striles > reading.bytes.size())
        failWith(memory,
                 fmt::format("{} strips or tiles in {} bytes", striles, reading.bytes.size()));
    std::uint64_t stored = 0;
    for (std::uint32_t i = 0; i < striles; ++i)
        stored += TIFFGetStrileByteCount(t, i);
    reading.checkSize(
        l.width, l.height,
        perByte < 0 ? -1 : double(std::min<std::uint64_t>(stored, reading.bytes.size())) * perByte);

    l.colors = l.photometric == PHOTOMETRIC_RGB ? 3 : 1;
    l.alpha = l.samples > l.colors;
    l.associated = l.alpha && extraCount > 0 && extra && extra[0] == EXTRASAMPLE_ASSOCALPHA;
    const bool greyOrRGB =
        ((l.photometric == PHOTOMETRIC_MINISBLACK || l.photometric == PHOTOMETRIC_MINISWHITE) &&
         l.samples <= 4) ||
        (l.photometric == PHOTOMETRIC_RGB && l.samples >= 3 && l.compression != COMPRESSION_OJPEG);
    const bool direct =
        greyOrRGB && ((l.format == SAMPLEFORMAT_UINT && (l.bits == 8 || l.bits == 16)) ||
                      (l.format == SAMPLEFORMAT_IEEEFP && l.bits == 32));
    if (direct) {
        const bool grey = l.colors == 1 && !l.alpha;
        withPixelFormat(grey ? cg::ColorSpaceModel::monochrome : cg::ColorSpaceModel::rgb, l.bits,
                        [&]<class P>(std::type_identity<P>) {
                            readSamples<P>(t, memory, reading, l, perByte < 0);
                        });
        return;
    }
    char reason[1024] = {};
    if (!TIFFRGBAImageOK(t, reason))
        fail(Kind::unsupported, std::string("unsupported TIFF: ") + reason);
    // Inks and Lab leave the profile's space on their way to RGB.
    reading.convertedFromProfile =
        l.photometric == PHOTOMETRIC_SEPARATED || l.photometric == PHOTOMETRIC_CIELAB ||
        l.photometric == PHOTOMETRIC_ICCLAB || l.photometric == PHOTOMETRIC_ITULAB;
    readRGBA(t, memory, reading, l, reading.nativeOrientation.value_or(1));
}

std::vector<std::uint8_t> encodeTIFF(const Rows& rows, const Encoding& encoding) {
    if (rows.width > 0xffffffffLL || rows.height > 0xffffffffLL)
        fail(Kind::unsupported, "a TIFF holds at most 2³² − 1 pixels a side");
    TiffMemory memory;
    memory.writing = true;
    // Classic TIFF addresses 4 GB; larger images need BigTIFF.
    const double bytes =
        double(rows.width) * double(rows.height) * (rows.grey ? 1 : 4) * (rows.bitDepth / 8);
    Tiff tiff = open(memory, bytes > 3.9e9 ? "w8" : "w");
    if (!tiff) fail(Kind::unsupported, "cannot write the TIFF: " + memory.message);
    TIFF* t = tiff.get();
    const bool alpha = !rows.grey && !rows.opaque();
    const int samples = rows.grey ? 1 : alpha ? 4 : 3;
    const bool isFloat = rows.bitDepth == 32;
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, std::uint32_t(rows.width));
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, std::uint32_t(rows.height));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, std::uint16_t(rows.bitDepth));
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, std::uint16_t(samples));
    TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, isFloat ? SAMPLEFORMAT_IEEEFP : SAMPLEFORMAT_UINT);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, rows.grey ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(t, TIFFTAG_ZIPQUALITY, encoding.options.compressionLevel);
    TIFFSetField(t, TIFFTAG_PREDICTOR, isFloat ? PREDICTOR_FLOATINGPOINT : PREDICTOR_HORIZONTAL);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
    if (alpha) {
        const std::uint16_t extra[] = {EXTRASAMPLE_ASSOCALPHA};
        TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, extra);
    }
    if (encoding.options.orientation != 1)
        TIFFSetField(t, TIFFTAG_ORIENTATION, std::uint16_t(encoding.options.orientation));
    if (!encoding.icc.empty())
        TIFFSetField(t, TIFFTAG_ICCPROFILE, std::uint32_t(encoding.icc.size()),
                     encoding.icc.data());
    // libtiff's predictor works in the row it is given, so it always gets a copy.
    const std::size_t sampleBytes = std::size_t(rows.bitDepth / 8);
    const std::size_t inSamples = rows.grey ? 1 : 4;
    std::vector<std::uint8_t> row(std::size_t(rows.width) * std::size_t(samples) * sampleBytes);
    for (std::int64_t y = 0; y < rows.height; ++y) {
        const std::uint8_t* in = rows.associated(y);
        if (std::size_t(samples) == inSamples) {
            std::memcpy(row.data(), in, row.size());
        } else {
            for (std::int64_t x = 0; x < rows.width; ++x)
                std::memcpy(row.data() + std::size_t(x) * 3 * sampleBytes,
                            in + std::size_t(x) * 4 * sampleBytes, 3 * sampleBytes);
        }
        if (TIFFWriteScanline(t, row.data(), std::uint32_t(y), 0) < 0)
            fail(Kind::unsupported, "cannot write the TIFF: " + memory.message);
    }
    if (!TIFFWriteDirectory(t)) fail(Kind::unsupported, "cannot write the TIFF: " + memory.message);
    tiff.reset();
    return std::move(memory.output);
}

} // namespace bic::files::detail
