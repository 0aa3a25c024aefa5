// The variants other writers produce, made by the reference libraries with known samples; and
// truncated, corrupt and hostile files.

#include "bic/files/image_file.hpp"
#include "file_makers.hpp"
#include "support/buffers.hpp"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <jpeglib.h>
#include <png.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tiffio.h>
#include <unistd.h>
#include <zlib.h>

namespace bic::files {
namespace {

using test_support::Bytes;
using Kind = ImageFileError::Kind;

// A copy shares the bytes, so the result outlives the file it came from cheaply.
template <class P>
PixelBuffer<P> pixels(const ImageFile& file) {
    EXPECT_TRUE(std::holds_alternative<PixelBuffer<P>>(file.buffer))
        << "buffer kind " << file.buffer.index();
    return std::get<PixelBuffer<P>>(file.buffer);
}

// Pixel (x, y) counted from the top left, as files count.
template <class P>
P at(const PixelBuffer<P>& b, std::int64_t x, std::int64_t y) {
    return *b(x, b.size().height - 1 - y);
}

using test_support::fileErrorOf;

bool mentions(const ImageFileError& e, std::string_view words) {
    return std::string_view(e.what()).find(words) != std::string_view::npos;
}

Bytes bigEndian16(std::initializer_list<std::uint16_t> values) {
    Bytes out;
    for (const auto v : values)
        out.push_back(std::uint8_t(v >> 8)), out.push_back(std::uint8_t(v));
    return out;
}

template <class T>
Bytes hostBytes(std::initializer_list<T> values) {
    Bytes out(values.size() * sizeof(T));
    std::memcpy(out.data(), std::data(values), out.size());
    return out;
}

TEST(PNGVariants, PalettesLowDepthsAndGreyWithAlpha) {
    // Two-bit palette indices 0, 1, 2 with transparency 255, 128, 0.
    test_support::PngSpec palette{3, 1, PNG_COLOR_TYPE_PALETTE, 2};
    palette.palette = {255, 0, 0, 0, 255, 0, 0, 0, 255};
    palette.paletteAlpha = {255, 128, 0};
    palette.rows = {{0b00011000}};
    const auto p = pixels<PixelARGB8>(readImageFile(test_support::pngFile(palette)));
    EXPECT_EQ(at(p, 0, 0), PixelARGB8(255, 0, 0, 255));
    EXPECT_EQ(at(p, 1, 0), PixelARGB8(0, 128, 0, 128));
    EXPECT_EQ(at(p, 2, 0), PixelARGB8(0, 0, 0, 0));

    test_support::PngSpec bits{8, 1, PNG_COLOR_TYPE_GRAY, 1};
    bits.rows = {{0b10110000}};
    const auto g = pixels<PixelGray8>(readImageFile(test_support::pngFile(bits)));
    const std::uint8_t expected[] = {255, 0, 255, 255, 0, 0, 0, 0};
    for (int x = 0; x < 8; ++x)
        EXPECT_EQ(at(g, x, 0).grayComponent, expected[x]) << x;
    test_support::PngSpec nibbles{2, 1, PNG_COLOR_TYPE_GRAY, 4};
    nibbles.rows = {{0x3c}};
    const auto n = pixels<PixelGray8>(readImageFile(test_support::pngFile(nibbles)));
    EXPECT_EQ(at(n, 0, 0).grayComponent, 0x33);
    EXPECT_EQ(at(n, 1, 0).grayComponent, 0xcc);

    // Grey with alpha becomes colour (grey formats have no alpha), premultiplied.
    test_support::PngSpec greyAlpha{2, 1, PNG_COLOR_TYPE_GRAY_ALPHA, 8};
    greyAlpha.rows = {{100, 255, 200, 0}};
    const auto ga = pixels<PixelARGB8>(readImageFile(test_support::pngFile(greyAlpha)));
    EXPECT_EQ(at(ga, 0, 0), PixelARGB8(100, 100, 100, 255));
    EXPECT_EQ(at(ga, 1, 0), PixelARGB8(0, 0, 0, 0));
    test_support::PngSpec deepGreyAlpha{1, 1, PNG_COLOR_TYPE_GRAY_ALPHA, 16};
    deepGreyAlpha.rows = {bigEndian16({0x1234, 0xffff})};
    EXPECT_EQ(at(pixels<PixelRGBA16>(readImageFile(test_support::pngFile(deepGreyAlpha))), 0, 0),
              PixelRGBA16(0x1234, 0x1234, 0x1234, 0xffff));

    test_support::PngSpec rgb16{1, 2, PNG_COLOR_TYPE_RGB, 16};
    rgb16.rows = {bigEndian16({0x0102, 0x0304, 0x0506}), bigEndian16({0xfffe, 0x8000, 0})};
    const auto deep = pixels<PixelRGBA16>(readImageFile(test_support::pngFile(rgb16)));
    EXPECT_EQ(at(deep, 0, 0), PixelRGBA16(0x0102, 0x0304, 0x0506, 0xffff));
    EXPECT_EQ(at(deep, 0, 1), PixelRGBA16(0xfffe, 0x8000, 0, 0xffff));
}

TEST(PNGVariants, InterlacedReadsLikePlain) {
    test_support::PngSpec spec{13, 11, PNG_COLOR_TYPE_RGB_ALPHA, 8};
    std::mt19937 random(5);
    for (std::uint32_t y = 0; y < spec.height; ++y) {
        Bytes row(spec.width * 4);
        for (auto& b : row)
            b = std::uint8_t(random());
        spec.rows.push_back(row);
    }
    const ImageFile plain = readImageFile(test_support::pngFile(spec));
    spec.interlaced = true;
    const ImageFile interlaced = readImageFile(test_support::pngFile(spec));
    EXPECT_TRUE(pixels<PixelARGB8>(plain) == pixels<PixelARGB8>(interlaced));
    // Straight samples premultiplied on the way in.
    const std::uint8_t* s = spec.rows[4].data() + 4 * 7;
    const auto premultiplied = [&](int c) { return std::uint8_t((s[c] * s[3] + 127) / 255); };
    EXPECT_EQ(at(pixels<PixelARGB8>(plain), 7, 4),
              PixelARGB8(premultiplied(0), premultiplied(1), premultiplied(2), s[3]));
}

TEST(TIFFVariants, AlphaIsPremultipliedUnlessAssociated) {
    test_support::TiffSpec spec{1, 1, 4, 8, SAMPLEFORMAT_UINT, PHOTOMETRIC_RGB};
    spec.samples = {200, 100, 50, 128};
    spec.extraSample = EXTRASAMPLE_UNASSALPHA;
    EXPECT_EQ(at(pixels<PixelARGB8>(readImageFile(test_support::tiffFile(spec))), 0, 0),
              PixelARGB8(100, 50, 25, 128));
    spec.extraSample = EXTRASAMPLE_ASSOCALPHA;
    spec.samples = {100, 50, 25, 128};
    EXPECT_EQ(at(pixels<PixelARGB8>(readImageFile(test_support::tiffFile(spec))), 0, 0),
              PixelARGB8(100, 50, 25, 128));
}

TEST(TIFFVariants, PlanesTilesAndCodecsGiveTheSamePixels) {
    test_support::TiffSpec spec{37, 23, 4, 16, SAMPLEFORMAT_UINT, PHOTOMETRIC_RGB};
    spec.extraSample = EXTRASAMPLE_UNASSALPHA;
    spec.rowsPerStrip = 5;
    std::mt19937 random(11);
    spec.samples.resize(37 * 23 * 4 * 2);
    for (auto& b : spec.samples)
        b = std::uint8_t(random() % 7); // compressible, so the codecs do some work
    const auto reference = pixels<PixelRGBA16>(readImageFile(test_support::tiffFile(spec)));
    auto variant = [&](auto change) {
        test_support::TiffSpec v = spec;
        change(v);
        return pixels<PixelRGBA16>(readImageFile(test_support::tiffFile(v)));
    };
    EXPECT_TRUE(variant([](auto& v) { v.planar = PLANARCONFIG_SEPARATE; }) == reference);
    EXPECT_TRUE(variant([](auto& v) { v.tileSize = 16; }) == reference);
    EXPECT_TRUE(variant([](auto& v) { v.tileSize = 16, v.planar = PLANARCONFIG_SEPARATE; }) ==
                reference);
    for (const std::uint16_t codec :
         {COMPRESSION_LZW, COMPRESSION_PACKBITS, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_ZSTD})
        EXPECT_TRUE(variant([&](auto& v) { v.compression = codec; }) == reference) << codec;
    // One straight sample checked by hand: 16-bit colour at half alpha.
    spec.width = spec.height = 1;
    spec.samples = hostBytes<std::uint16_t>({40000, 20000, 0, 32768});
    EXPECT_EQ(at(pixels<PixelRGBA16>(readImageFile(test_support::tiffFile(spec))), 0, 0),
              PixelRGBA16(20000, 10000, 0, 32768));
}

TEST(TIFFVariants, WhiteIsZeroPalettesAndFloats) {
    test_support::TiffSpec white{2, 1, 1, 8, SAMPLEFORMAT_UINT, PHOTOMETRIC_MINISWHITE};
    white.samples = {0, 200};
    const auto w = pixels<PixelGray8>(readImageFile(test_support::tiffFile(white)));
    EXPECT_EQ(at(w, 0, 0).grayComponent, 255);
    EXPECT_EQ(at(w, 1, 0).grayComponent, 55);

    // A 4-bit palette goes through libtiff's RGBA reader.
    test_support::TiffSpec palette{2, 1, 1, 4, SAMPLEFORMAT_UINT, PHOTOMETRIC_PALETTE};
    palette.colorMap.assign(48, 0);
    palette.colorMap[1] = 0xffff;      // entry 1: red
    palette.colorMap[16 + 2] = 0xffff; // entry 2: green
    palette.samples = {0x12};
    const auto p = pixels<PixelARGB8>(readImageFile(test_support::tiffFile(palette)));
    EXPECT_EQ(at(p, 0, 0), PixelARGB8(255, 0, 0, 255));
    EXPECT_EQ(at(p, 1, 0), PixelARGB8(0, 255, 0, 255));

    // Floats are kept as they are, out of range too.
    test_support::TiffSpec floats{3, 1, 1, 32, SAMPLEFORMAT_IEEEFP, PHOTOMETRIC_MINISBLACK};
    floats.samples = hostBytes<float>({0.25f, 2.5f, -1.0f});
    const auto f = pixels<PixelGray32>(readImageFile(test_support::tiffFile(floats)));
    EXPECT_EQ(at(f, 0, 0).grayComponent, 0.25f);
    EXPECT_EQ(at(f, 1, 0).grayComponent, 2.5f);
    EXPECT_EQ(at(f, 2, 0).grayComponent, -1.0f);
}

test_support::JpegSpec rgbJPEG(std::uint32_t w, std::uint32_t h) {
    test_support::JpegSpec spec{w, h, 3, JCS_RGB, JCS_YCbCr};
    for (std::uint32_t y = 0; y < h; ++y)
        for (std::uint32_t x = 0; x < w; ++x)
            for (const std::uint32_t v : {x * 255 / w, y * 255 / h, 128u})
                spec.samples.push_back(std::uint8_t(v));
    return spec;
}

TEST(JPEGVariants, GreyProgressiveAndBaseline) {
    test_support::JpegSpec grey{16, 16, 1, JCS_GRAYSCALE, JCS_GRAYSCALE};
    grey.samples.assign(256, 100);
    const auto g = pixels<PixelGray8>(readImageFile(test_support::jpegFile(grey)));
    EXPECT_NEAR(at(g, 9, 9).grayComponent, 100, 1);

    // Progressive coding sends the same coefficients in another order: the same pixels.
    auto spec = rgbJPEG(40, 24);
    const auto baseline = pixels<PixelARGB8>(readImageFile(test_support::jpegFile(spec)));
    spec.progressive = true;
    const auto progressive = pixels<PixelARGB8>(readImageFile(test_support::jpegFile(spec)));
    EXPECT_TRUE(baseline == progressive);
    EXPECT_NEAR(at(baseline, 20, 12).redComponent, 127, 3);
    EXPECT_NEAR(at(baseline, 20, 12).greenComponent, 127, 3);
    EXPECT_EQ(at(baseline, 20, 12).alphaComponent, 255);
}

TEST(JPEGVariants, CMYKAndYCCKAreInvertedInkAsAdobeStoresThem) {
    // Left half full cyan ink, right half full black ink; stored inverted (255 = no ink).
    for (const int fileSpace : {JCS_CMYK, JCS_YCCK}) {
        test_support::JpegSpec spec{16, 8, 4, JCS_CMYK, fileSpace};
        const std::uint8_t cyanInk[] = {0, 255, 255, 255}, blackInk[] = {255, 255, 255, 0};
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 16; ++x)
                for (const std::uint8_t v : x < 8 ? cyanInk : blackInk)
                    spec.samples.push_back(v);
        const ImageFile file = readImageFile(test_support::jpegFile(spec));
        const auto p = pixels<PixelARGB8>(file);
        const PixelARGB8 cyan = at(p, 3, 4), black = at(p, 12, 4);
        EXPECT_LE(cyan.redComponent, 3) << fileSpace;
        EXPECT_GE(cyan.greenComponent, 252) << fileSpace;
        EXPECT_GE(cyan.blueComponent, 252) << fileSpace;
        EXPECT_LE(std::max({black.redComponent, black.greenComponent, black.blueComponent}), 3);
        EXPECT_FALSE(file.profileDescribesPixels);
    }
}

// A progressive file whose first scan (DC coefficients, coded without reference to earlier
// scans) is repeated `copies` times more.
Bytes withRepeatedFirstScan(Bytes jpeg, int copies) {
    std::size_t start = 0;
    while (start + 4 < jpeg.size() && !(jpeg[start] == 0xff && jpeg[start + 1] == 0xda))
        ++start;
    // The entropy-coded data runs to the next marker that is not a stuffed byte or a restart.
    std::size_t end = start + 2 + (std::size_t(jpeg[start + 2]) << 8 | jpeg[start + 3]);
    while (end + 1 < jpeg.size() &&
           !(jpeg[end] == 0xff && jpeg[end + 1] != 0 && (jpeg[end + 1] & 0xf8) != 0xd0))
        ++end;
    const Bytes scan(jpeg.begin() + std::ptrdiff_t(start), jpeg.begin() + std::ptrdiff_t(end));
    for (int i = 0; i < copies; ++i)
        jpeg.insert(jpeg.begin() + std::ptrdiff_t(end), scan.begin(), scan.end());
    return jpeg;
}

TEST(HostileFiles, ThousandsOfScansAreRefused) {
    auto spec = rgbJPEG(16, 16);
    spec.progressive = true;
    const Bytes jpeg = test_support::jpegFile(spec);
    EXPECT_NO_THROW(readImageFile(withRepeatedFirstScan(jpeg, 50)));
    const ImageFileError e = fileErrorOf([&] { readImageFile(withRepeatedFirstScan(jpeg, 600)); });
    EXPECT_EQ(e.kind(), Kind::corrupt);
    EXPECT_TRUE(mentions(e, "more than 500 scans")) << e.what();
}

// Small files of every format and kind, written by us.
std::vector<std::pair<std::string, Bytes>> sampleFiles() {
    const auto photo = test_support::filled<PixelARGB8>(40, 30, 3);
    std::vector<std::pair<std::string, Bytes>> files;
    for (const auto format : {ImageFileFormat::png, ImageFileFormat::jpeg, ImageFileFormat::tiff,
                              ImageFileFormat::webp}) {
        WriteOptions options;
        options.format = format;
        files.emplace_back(std::string(formatName(format)), encodeImageFile(photo, options));
    }
    WriteOptions lossless;
    lossless.format = ImageFileFormat::webp;
    lossless.lossless = true;
    files.emplace_back("WebP", encodeImageFile(photo, lossless));
    auto progressive = rgbJPEG(40, 30);
    progressive.progressive = true;
    files.emplace_back("JPEG", test_support::jpegFile(progressive));
    return files;
}

TEST(BadFiles, EveryTruncationGivesOneErrorNamingTheFormat) {
    for (const auto& [name, file] : sampleFiles()) {
        for (const std::size_t keep :
             {std::size_t(9), std::size_t(20), std::size_t(40), file.size() / 3, file.size() / 2,
              file.size() - 30, file.size() - 1}) {
            const Bytes cut(file.begin(), file.begin() + std::ptrdiff_t(keep));
            const ImageFileError e = fileErrorOf([&] { readImageFile(cut); });
            EXPECT_TRUE(e.kind() == Kind::truncated || e.kind() == Kind::corrupt)
                << name << " cut to " << keep << ": " << e.what();
            EXPECT_TRUE(mentions(e, name)) << name << " cut to " << keep << ": " << e.what();
        }
    }
}

TEST(BadFiles, DamagedDataIsRefusedOrReadWithoutHarm) {
    // A changed byte in a PNG's image data breaks its checksum.
    Bytes png = sampleFiles()[0].second;
    png[png.size() / 2] ^= 0x55;
    const ImageFileError e = fileErrorOf([&] { readImageFile(png); });
    EXPECT_EQ(e.kind(), Kind::corrupt);
    EXPECT_TRUE(mentions(e, "corrupt PNG")) << e.what();
    // Scrambled bytes anywhere: an error or an image, never a crash or a hang.
    std::mt19937 random(3);
    for (const auto& [name, file] : sampleFiles())
        for (int round = 0; round < 40; ++round) {
            Bytes damaged = file;
            for (int i = 0; i < 4; ++i)
                damaged[8 + random() % (damaged.size() - 8)] = std::uint8_t(random());
            try {
                readImageFile(damaged);
            } catch (const ImageFileError&) {
            }
        }
}

// A PNG chunk with its checksum.
void appendChunk(Bytes& png, const char* type, const Bytes& data) {
    const std::uint32_t n = std::uint32_t(data.size());
    for (int s = 24; s >= 0; s -= 8)
        png.push_back(std::uint8_t(n >> s));
    Bytes body(type, type + 4);
    body.insert(body.end(), data.begin(), data.end());
    png.insert(png.end(), body.begin(), body.end());
    const auto crc = std::uint32_t(crc32(0, body.data(), uInt(body.size())));
    for (int s = 24; s >= 0; s -= 8)
        png.push_back(std::uint8_t(crc >> s));
}

// A PNG of `width` × `height` pixels of colour type and depth given, whose image data is the
// zlib stream of all-zero rows (filter byte included) when `zeros`, else `junk` bytes.
Bytes pngWithData(std::uint32_t width, std::uint32_t height, int depth, int type, bool zeros,
                  std::size_t junk = 0) {
    Bytes png = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
    Bytes header;
    for (const std::uint32_t v : {width, height})
        for (int s = 24; s >= 0; s -= 8)
            header.push_back(std::uint8_t(v >> s));
    header.insert(header.end(), {std::uint8_t(depth), std::uint8_t(type), 0, 0, 0});
    appendChunk(png, "IHDR", header);
    Bytes data(junk, 0x7a);
    if (zeros) {
        const int channels = type == PNG_COLOR_TYPE_RGB_ALPHA ? 4 : 1;
        const Bytes row(1 + (std::size_t(width) * channels * std::size_t(depth) + 7) / 8, 0);
        z_stream z{};
        deflateInit(&z, 9);
        Bytes out(1 << 16);
        for (std::uint32_t y = 0; y <= height; ++y) {
            z.next_in = const_cast<Bytef*>(row.data());
            z.avail_in = y < height ? uInt(row.size()) : 0;
            do {
                z.next_out = out.data(), z.avail_out = uInt(out.size());
                deflate(&z, y < height ? Z_NO_FLUSH : Z_FINISH);
                data.insert(data.end(), out.data(), out.data() + (out.size() - z.avail_out));
            } while (z.avail_out == 0);
        }
        deflateEnd(&z);
    }
    appendChunk(png, "IDAT", data);
    appendChunk(png, "IEND", {});
    return png;
}

void setBigEndian16(Bytes& bytes, std::size_t at, std::uint16_t v) {
    bytes[at] = std::uint8_t(v >> 8), bytes[at + 1] = std::uint8_t(v);
}

// Sets a SHORT or LONG tag of a little-endian TIFF's first directory.
void setTiffTag(Bytes& tiff, std::uint16_t tag, std::uint32_t value) {
    auto u16 = [&](std::size_t at) { return std::uint32_t(tiff[at] | tiff[at + 1] << 8); };
    const std::size_t ifd = u16(4) | u16(6) << 16;
    for (std::uint32_t i = 0; i < u16(ifd); ++i) {
        const std::size_t entry = ifd + 2 + 12 * i;
        if (u16(entry) != tag) continue;
        const int bytes = u16(entry + 2) == 3 ? 2 : 4;
        for (int b = 0; b < bytes; ++b)
            tiff[entry + 8 + std::size_t(b)] = std::uint8_t(value >> (8 * b));
        return;
    }
    ADD_FAILURE() << "no tag " << tag;
}

TEST(HostileFiles, SizesATinyFileCannotHoldAreRefusedBeforeAllocating) {
    // 100,000 × 100,000 is past the pixel limit; 10,000 × 10,000 within it, but more than the
    // file's bytes can code in each format.
    const Bytes huge = pngWithData(100000, 100000, 8, PNG_COLOR_TYPE_RGB_ALPHA, false, 1000);
    const ImageFileError limit = fileErrorOf([&] { readImageFile(huge); });
    EXPECT_EQ(limit.kind(), Kind::tooLarge);
    EXPECT_TRUE(mentions(limit, "100000 × 100000 pixels: more than the limit")) << limit.what();
    ReadOptions generous;
    generous.maxPixels = std::int64_t(1) << 40;
    const ImageFileError png = fileErrorOf([&] { readImageFile(huge, generous); });
    EXPECT_TRUE(mentions(png, "cannot be coded in 1057 bytes")) << png.what();

    Bytes jpeg = test_support::jpegFile(rgbJPEG(16, 16));
    for (std::size_t i = 0; i + 8 < jpeg.size(); ++i)
        if (jpeg[i] == 0xff && jpeg[i + 1] == 0xc0)
            setBigEndian16(jpeg, i + 5, 10000), setBigEndian16(jpeg, i + 7, 10000);
    const ImageFileError j = fileErrorOf([&] { readImageFile(jpeg); });
    EXPECT_EQ(j.kind(), Kind::tooLarge);
    EXPECT_TRUE(mentions(j, "10000 × 10000 pixels cannot be coded")) << j.what();

    test_support::TiffSpec spec{16, 16, 1, 8};
    spec.samples.assign(256, 9);
    spec.rowsPerStrip = 1u << 30;
    Bytes tiff = test_support::tiffFile(spec);
    setTiffTag(tiff, TIFFTAG_IMAGEWIDTH, 10000);
    setTiffTag(tiff, TIFFTAG_IMAGELENGTH, 10000);
    const ImageFileError t = fileErrorOf([&] { readImageFile(tiff); });
    EXPECT_EQ(t.kind(), Kind::tooLarge);
    EXPECT_TRUE(mentions(t, "10000 × 10000 pixels cannot be coded")) << t.what();

    // A lossy WebP's frame header claiming the format's largest size.
    WriteOptions lossy;
    lossy.format = ImageFileFormat::webp;
    PixelBuffer<PixelARGB8> opaque(IntegralSize(16, 16), cg::ColorSpace::sRGB());
    opaque.withUnsafeBuffer([](std::span<PixelARGB8> p) {
        std::fill(p.begin(), p.end(), PixelARGB8(10, 200, 30, 255));
    });
    Bytes webp = encodeImageFile(opaque, lossy);
    ASSERT_EQ(std::string(webp.begin() + 12, webp.begin() + 16), "VP8 ");
    webp[26] = webp[28] = 0xff, webp[27] = webp[29] = 0x3f;
    EXPECT_TRUE(mentions(fileErrorOf([&] { readImageFile(webp, generous); }), "cannot be coded"));
}

TEST(HostileFiles, ADecompressionBombIsRefused) {
    // 20,000 × 20,000 bilevel zeros: a 60 KB file that would be 400 MB of grey pixels.
    const Bytes bomb = pngWithData(20000, 20000, 1, PNG_COLOR_TYPE_GRAY, true);
    EXPECT_LT(bomb.size(), 100000u);
    const ImageFileError e = fileErrorOf([&] { readImageFile(bomb); });
    EXPECT_EQ(e.kind(), Kind::tooLarge);
    EXPECT_TRUE(mentions(e, "20000 × 20000 pixels: more than the limit")) << e.what();
    // Under a raised limit the same stream is honest and reads as the zeros it is.
    const Bytes small = pngWithData(3000, 2000, 1, PNG_COLOR_TYPE_GRAY, true);
    const auto grey = pixels<PixelGray8>(readImageFile(small));
    EXPECT_EQ(grey.size(), IntegralSize(3000, 2000));
    EXPECT_EQ(at(grey, 2999, 1999).grayComponent, 0);
}

#if !defined(__SANITIZE_ADDRESS__)
// The growth of the peak resident memory while `read` runs, measured in a child process.
long peakGrowthKB(const std::function<void()>& read) {
    int pipeEnds[2];
    if (::pipe(pipeEnds) != 0) return -1;
    const pid_t child = ::fork();
    if (child == 0) {
        rusage before{}, after{};
        ::getrusage(RUSAGE_SELF, &before);
        try {
            read();
        } catch (const ImageFileError&) {
        }
        ::getrusage(RUSAGE_SELF, &after);
        const long growth = after.ru_maxrss - before.ru_maxrss;
        (void)!::write(pipeEnds[1], &growth, sizeof growth);
        ::_exit(0);
    }
    long growth = -1;
    (void)!::read(pipeEnds[0], &growth, sizeof growth);
    ::waitpid(child, nullptr, 0);
    ::close(pipeEnds[0]), ::close(pipeEnds[1]);
    return growth;
}

TEST(HostileFiles, StreamsWithoutABoundFailWithoutTouchingTheirSize) {
    // Lossless WebP and TIFF codecs like Zstandard can code any size in a few bytes, so a huge
    // header is only found out by decoding: that must not first fill hundreds of megabytes.
    ReadOptions generous;
    generous.maxPixels = std::int64_t(1) << 28;
    WriteOptions lossless;
    lossless.format = ImageFileFormat::webp;
    lossless.lossless = true;
    Bytes webp = encodeImageFile(test_support::filled<PixelARGB8>(64, 64, 1), lossless);
    ASSERT_EQ(std::string(webp.begin() + 12, webp.begin() + 16), "VP8L");
    // 14-bit width − 1 and height − 1 after the signature byte: 16000 × 16000.
    const std::uint32_t sizeBits = (16000 - 1) | (16000 - 1) << 14 | (webp[24] & 0xf0u) << 24;
    for (int b = 0; b < 4; ++b)
        webp[21 + std::size_t(b)] = std::uint8_t(sizeBits >> (8 * b));
    const long webpGrowth = peakGrowthKB([&] { readImageFile(webp, generous); });
    EXPECT_GE(webpGrowth, 0);
    EXPECT_LT(webpGrowth, 64 * 1024) << "KB";
    EXPECT_FALSE(fileErrorOf([&] { readImageFile(webp, generous); }).kind() == Kind::io);

    test_support::TiffSpec spec{64, 64, 1, 8};
    spec.samples.assign(64 * 64, 9);
    spec.compression = COMPRESSION_ZSTD;
    spec.rowsPerStrip = 1u << 30;
    Bytes tiff = test_support::tiffFile(spec);
    setTiffTag(tiff, TIFFTAG_IMAGEWIDTH, 12000);
    setTiffTag(tiff, TIFFTAG_IMAGELENGTH, 12000);
    const long tiffGrowth = peakGrowthKB([&] { readImageFile(tiff, generous); });
    EXPECT_GE(tiffGrowth, 0);
    EXPECT_LT(tiffGrowth, 64 * 1024) << "KB";
    EXPECT_EQ(fileErrorOf([&] { readImageFile(tiff, generous); }).kind(), Kind::corrupt);
}
#endif

} // namespace
} // namespace bic::files
