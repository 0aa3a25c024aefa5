// Image files with known pixels: formats told by content, every format written and read back,
// straight samples, the write options.

#include "bic/files/image_file.hpp"
#include "file_makers.hpp"
#include "support/buffers.hpp"

#include <cmath>
#include <fstream>
#include <gtest/gtest.h>

namespace bic::files {
namespace {

using test_support::Bytes;
using Kind = ImageFileError::Kind;
using namespace std::string_view_literals;

Bytes text(std::string_view s) { return Bytes(s.begin(), s.end()); }

using test_support::fileErrorOf;

WriteOptions as(ImageFileFormat format) {
    WriteOptions o;
    o.format = format;
    return o;
}

// Distinct smooth colours and an opaque-to-clear alpha ramp on the right half.
template <Pixel P>
PixelBuffer<P> gradientPicture(std::int64_t w, std::int64_t h, bool translucent) {
    PixelBuffer<P> b(IntegralSize(w, h), P::deviceColorSpace());
    b.withUnsafeBuffer([&](std::span<P> pixels) {
        for (std::int64_t y = 0; y < h; ++y)
            for (std::int64_t x = 0; x < w; ++x) {
                const float u = float(x) / float(w - 1), v = float(y) / float(h - 1);
                const float a = translucent && x >= w / 2 ? 1 - v : 1;
                P& p = pixels[std::size_t(y * b.pixelsPerRow() + x)];
                if constexpr (RGBAPixel<P>)
                    p = P::withRGBA(u * a, v * a, (1 - u) * a, a);
                else
                    p = P::withGray(0.5f * (u + v));
            }
    });
    return b;
}

TEST(ImageFileFormats, TheContentDecidesNotTheName) {
    const auto png =
        encodeImageFile(test_support::filled<PixelARGB8>(3, 2, 1), as(ImageFileFormat::png));
    const auto path = test_support::scratchFolder() / "really-a-png.jpg";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(png.data()), std::streamsize(png.size()));
    EXPECT_EQ(readImageFile(path).format, ImageFileFormat::png);

    EXPECT_EQ(detectFormat(text("\xff\xd8\xff\xe0")), ImageFileFormat::jpeg);
    EXPECT_EQ(detectFormat(text(std::string_view("II*\0", 4))), ImageFileFormat::tiff);
    EXPECT_EQ(detectFormat(text(std::string_view("MM\0+", 4))), ImageFileFormat::tiff); // BigTIFF
    EXPECT_EQ(detectFormat(text("RIFF\x10\0\0\0WEBPVP8 "sv)), ImageFileFormat::webp);
    EXPECT_EQ(detectFormat(text("RIFF\x10\0\0\0WAVEfmt "sv)), std::nullopt);
    EXPECT_EQ(detectFormat(text("\x89PNG\r\n\x1a")), std::nullopt); // one byte short

    EXPECT_EQ(formatForExtension("a/b.JPEG"), ImageFileFormat::jpeg);
    EXPECT_EQ(formatForExtension("b.Tif"), ImageFileFormat::tiff);
    EXPECT_EQ(formatForExtension("b.webp"), ImageFileFormat::webp);
    EXPECT_EQ(formatForExtension("b.gif"), std::nullopt);
    EXPECT_EQ(formatForExtension("png"), std::nullopt);
}

TEST(ImageFileFormats, ForeignFilesAreNamedInOneError) {
    const std::pair<std::string_view, std::string_view> cases[] = {
        {"GIF89a\x01\0\x01\0", "a GIF file: not a format we read"},
        {"BM\x46\0\0\0\0\0\0\0\x36\0\0\0"sv, "a BMP file"},
        {"8BPS\0\x01"sv, "a layered document (PSD or PSB)"},
        {"\0\0\0\x18"
         "ftypheic\0\0\0\0"sv,
         "a HEIF file"},
        {"\0\0\0\x1c"
         "ftypavif\0\0\0\0"sv,
         "an AVIF file"},
        {"RIFF\x10\0\0\0WAVEfmt "sv, "a RIFF file that is not WebP"},
        {"%PDF-1.7", "a PDF document"},
        {"P6\n3 2\n255\n", "a portable anymap (PNM) file"},
        {"hello", "not an image file we know (it starts with 68 65 6c 6c 6f)"},
        {"", "the file is empty"},
    };
    for (const auto& [bytes, message] : cases) {
        const ImageFileError e = fileErrorOf([&] { readImageFile(text(bytes)); });
        EXPECT_NE(std::string(e.what()).find(message), std::string::npos) << e.what();
        EXPECT_TRUE(e.kind() == Kind::unreadableFormat || e.kind() == Kind::notAnImage);
    }
    EXPECT_EQ(fileErrorOf([] { readImageFile(text("GIF87a....")); }).kind(),
              Kind::unreadableFormat);
    EXPECT_EQ(fileErrorOf([] { readImageFile(std::filesystem::path("/no/such/file.png")); }).kind(),
              Kind::io);
}

template <Pixel P>
void expectLosslessRoundTrip(ImageFileFormat format, const PixelBuffer<P>& original) {
    WriteOptions options = as(format);
    options.lossless = true;
    const ImageFile file = readImageFile(encodeImageFile(original, options));
    EXPECT_EQ(file.format, format);
    ASSERT_TRUE(std::holds_alternative<PixelBuffer<P>>(file.buffer))
        << formatName(format) << " gave buffer kind " << file.buffer.index();
    EXPECT_TRUE(std::get<PixelBuffer<P>>(file.buffer) == original) << formatName(format);
    EXPECT_EQ(file.orientation, 1);
    EXPECT_FALSE(file.profileDescribesPixels);
}

TEST(RoundTrip, LosslessFormatsKeepEveryPixelOfTheirDepths) {
    // Random premultiplied pixels with every alpha, transparent ones included.
    for (const auto format : {ImageFileFormat::png, ImageFileFormat::tiff}) {
        expectLosslessRoundTrip(format, test_support::filled<PixelARGB8>(17, 9, 1));
        expectLosslessRoundTrip(format, test_support::filled<PixelGray8>(17, 9, 2));
        expectLosslessRoundTrip(format, test_support::filled<PixelRGBA16>(17, 9, 3));
        expectLosslessRoundTrip(format, test_support::filled<PixelGray16>(17, 9, 4));
    }
    expectLosslessRoundTrip(ImageFileFormat::tiff, test_support::filled<PixelRGBA32>(17, 9, 5));
    expectLosslessRoundTrip(ImageFileFormat::tiff, test_support::filled<PixelGray32>(17, 9, 6));
    expectLosslessRoundTrip(ImageFileFormat::webp, test_support::filled<PixelARGB8>(17, 9, 7));
    // Opaque pictures are written without alpha and come back opaque.
    expectLosslessRoundTrip(ImageFileFormat::png, gradientPicture<PixelARGB8>(33, 20, false));
    expectLosslessRoundTrip(ImageFileFormat::tiff, gradientPicture<PixelRGBA16>(33, 20, false));
}

TEST(RoundTrip, OpaqueColourIsWrittenWithoutAlpha) {
    const auto opaque = gradientPicture<PixelARGB8>(8, 4, false);
    const auto translucent = gradientPicture<PixelARGB8>(8, 4, true);
    EXPECT_EQ(test_support::rawPNG(encodeImageFile(opaque, as(ImageFileFormat::png))).colorType,
              2); // RGB
    EXPECT_EQ(
        test_support::rawPNG(encodeImageFile(translucent, as(ImageFileFormat::png))).colorType,
        6); // RGBA
    EXPECT_EQ(test_support::tiffSamplesPerPixel(encodeImageFile(opaque, as(ImageFileFormat::tiff))),
              3);
    EXPECT_EQ(
        test_support::tiffSamplesPerPixel(encodeImageFile(translucent, as(ImageFileFormat::tiff))),
        4);
}

// The mean and largest difference per colour component, in 8-bit levels.
std::pair<double, int> difference(const PixelBuffer<PixelARGB8>& a,
                                  const PixelBuffer<PixelARGB8>& b) {
    double sum = 0;
    int largest = 0;
    std::int64_t n = 0;
    for (std::int64_t y = 0; y < a.size().height; ++y)
        for (std::int64_t x = 0; x < a.size().width; ++x) {
            const PixelARGB8 p = *a(x, y), q = *b(x, y);
            for (const int d :
                 {p.redComponent - q.redComponent, p.greenComponent - q.greenComponent,
                  p.blueComponent - q.blueComponent}) {
                sum += std::abs(d), largest = std::max(largest, std::abs(d)), ++n;
            }
        }
    return {sum / double(n), largest};
}

TEST(RoundTrip, LossyFormatsStayCloseAtHighQuality) {
    const auto picture = gradientPicture<PixelARGB8>(64, 48, false);
    for (const auto format : {ImageFileFormat::jpeg, ImageFileFormat::webp}) {
        WriteOptions options = as(format);
        options.quality = 95;
        const ImageFile file = readImageFile(encodeImageFile(picture, options));
        const auto& back = std::get<PixelBuffer<PixelARGB8>>(file.buffer);
        const auto [mean, largest] = difference(picture, back);
        EXPECT_LT(mean, 1.5) << formatName(format);
        EXPECT_LT(largest, 12) << formatName(format);
        // A smaller quality makes a smaller file.
        options.quality = 20;
        EXPECT_LT(encodeImageFile(picture, options).size(),
                  encodeImageFile(picture, as(format)).size());
    }
}

TEST(RoundTrip, JPEGLeavesAlphaOutAndWebPKeepsIt) {
    // Straight colour (0.8, 0.4, 0.2) at alpha ½ over a flat picture.
    PixelBuffer<PixelARGB8> half(IntegralSize(16, 16), cg::ColorSpace::deviceRGB());
    half.withUnsafeBuffer([](std::span<PixelARGB8> p) {
        std::fill(p.begin(), p.end(), PixelARGB8::withRGBA(0.4f, 0.2f, 0.1f, 0.5f));
    });
    const auto jpeg = readImageFile(encodeImageFile(half, as(ImageFileFormat::jpeg)));
    const PixelARGB8 j = *std::get<PixelBuffer<PixelARGB8>>(jpeg.buffer)(5, 5);
    EXPECT_EQ(j.alphaComponent, 255);
    EXPECT_NEAR(j.redComponent, 204, 2);
    EXPECT_NEAR(j.greenComponent, 102, 2);
    EXPECT_NEAR(j.blueComponent, 51, 2);

    const auto webp = readImageFile(encodeImageFile(half, as(ImageFileFormat::webp)));
    const PixelARGB8 w = *std::get<PixelBuffer<PixelARGB8>>(webp.buffer)(5, 5);
    EXPECT_EQ(w.alphaComponent, 128);
    EXPECT_NEAR(w.redComponent, 102, 2);
    EXPECT_NEAR(w.greenComponent, 51, 2);
}

TEST(RoundTrip, EightBitFormatsTakeDeeperAndGreyBuffers) {
    // 16-bit and float colour are reduced to 8 bits for JPEG and WebP.
    const auto deep = gradientPicture<PixelRGBA16>(32, 16, false);
    WriteOptions lossless = as(ImageFileFormat::webp);
    lossless.lossless = true;
    const auto reduced = std::get<PixelBuffer<PixelARGB8>>(converted(deep, 8));
    const auto webp = readImageFile(encodeImageFile(deep, lossless));
    EXPECT_TRUE(std::get<PixelBuffer<PixelARGB8>>(webp.buffer) == reduced);
    const auto jpeg = readImageFile(
        encodeImageFile(gradientPicture<PixelRGBA32>(32, 16, false), as(ImageFileFormat::jpeg)));
    // Quality 90 with halved chroma: within a few levels on average.
    EXPECT_LT(difference(std::get<PixelBuffer<PixelARGB8>>(jpeg.buffer), reduced).first, 2.5);

    // JPEG keeps grey as grey; WebP has no grey and stores it as colour.
    const auto grey = gradientPicture<PixelGray8>(32, 16, false);
    const auto greyJPEG = readImageFile(encodeImageFile(grey, as(ImageFileFormat::jpeg)));
    ASSERT_TRUE(std::holds_alternative<PixelBuffer<PixelGray8>>(greyJPEG.buffer));
    EXPECT_NEAR(std::get<PixelBuffer<PixelGray8>>(greyJPEG.buffer)(20, 7)->grayComponent,
                grey(20, 7)->grayComponent, 2);
    const auto greyWebP = readImageFile(encodeImageFile(grey, lossless));
    const PixelARGB8 g = *std::get<PixelBuffer<PixelARGB8>>(greyWebP.buffer)(20, 7);
    EXPECT_EQ(g, PixelARGB8(grey(20, 7)->grayComponent, grey(20, 7)->grayComponent,
                            grey(20, 7)->grayComponent, 255));
}

TEST(RoundTrip, PNGRefusesFloatsAndEveryWriterItsLimits) {
    const auto floats = test_support::filled<PixelRGBA32>(4, 4, 1);
    const ImageFileError e =
        fileErrorOf([&] { encodeImageFile(floats, as(ImageFileFormat::png)); });
    EXPECT_EQ(e.kind(), Kind::unsupported);
    EXPECT_NE(std::string(e.what()).find("32-bit buffers are written as TIFF"), std::string::npos);

    const auto wide = PixelBuffer<PixelGray8>(IntegralSize(16384, 1), cg::ColorSpace::deviceGray());
    EXPECT_NE(
        std::string(fileErrorOf([&] { encodeImageFile(wide, as(ImageFileFormat::webp)); }).what())
            .find("at most 16383 pixels a side"),
        std::string::npos);
}

TEST(StraightImages, AreWrittenAsGivenAndReadBackPremultiplied) {
    // Colour under zero alpha survives in the file, as a premultiplied buffer could not keep it.
    StraightImage image{2, 1, 4, 8, {10, 20, 30, 0, 200, 100, 50, 128}};
    const Bytes png = encodeImageFile(image, as(ImageFileFormat::png));
    const auto raw = test_support::rawPNG(png);
    EXPECT_EQ(raw.rows[0], (Bytes{10, 20, 30, 0, 200, 100, 50, 128}));
    const auto read = std::get<PixelBuffer<PixelARGB8>>(readImageFile(png).buffer);
    EXPECT_EQ(*read(0, 0), PixelARGB8(0, 0, 0, 0));
    EXPECT_EQ(*read(1, 0), PixelARGB8(100, 50, 25, 128));

    // 16 bits, host order in, big-endian in the file.
    StraightImage deep{1, 1, 4, 16, {}};
    for (const std::uint16_t v : {0x1234, 0x5678, 0x9abc, 0xffff})
        deep.samples.push_back(std::uint8_t(v)), deep.samples.push_back(std::uint8_t(v >> 8));
    EXPECT_EQ(test_support::rawPNG(encodeImageFile(deep, as(ImageFileFormat::png))).rows[0],
              (Bytes{0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc}));
    // TIFF keeps associated alpha: the straight samples are premultiplied on the way in.
    const auto tiff = readImageFile(encodeImageFile(image, as(ImageFileFormat::tiff)));
    EXPECT_EQ(*std::get<PixelBuffer<PixelARGB8>>(tiff.buffer)(1, 0), PixelARGB8(100, 50, 25, 128));
    // JPEG and WebP take 8 bits; deeper samples are rounded.
    const auto jpeg = readImageFile(encodeImageFile(deep, as(ImageFileFormat::jpeg)));
    EXPECT_NEAR(std::get<PixelBuffer<PixelARGB8>>(jpeg.buffer)(0, 0)->redComponent, 0x12, 3);

    const StraightImage wrong{2, 2, 4, 8, Bytes(15)};
    EXPECT_EQ(fileErrorOf([&] { encodeImageFile(wrong, as(ImageFileFormat::png)); }).kind(),
              Kind::unsupported);
    const StraightImage twoChannels{1, 1, 2, 8, Bytes(2)};
    EXPECT_EQ(fileErrorOf([&] { encodeImageFile(twoChannels, as(ImageFileFormat::png)); }).kind(),
              Kind::unsupported);
}

TEST(WriteOptions, OutOfRangeSettingsAreRefused) {
    const auto picture = test_support::filled<PixelARGB8>(2, 2, 1);
    auto refused = [&](WriteOptions o, std::string_view words) {
        const ImageFileError e = fileErrorOf([&] { encodeImageFile(picture, o); });
        EXPECT_EQ(e.kind(), Kind::unsupported);
        EXPECT_NE(std::string(e.what()).find(words), std::string::npos) << e.what();
    };
    refused(WriteOptions(), "no image format");
    WriteOptions o = as(ImageFileFormat::jpeg);
    o.quality = 0;
    refused(o, "quality 0");
    o.quality = 101;
    refused(o, "quality 101");
    o = as(ImageFileFormat::png);
    o.compressionLevel = 10;
    refused(o, "compression level 10");
    o = as(ImageFileFormat::png);
    o.orientation = 9;
    refused(o, "orientation 9");
}

TEST(WriteImageFile, TakesTheFormatFromTheNameAndLeavesNothingOnFailure) {
    const auto folder = test_support::scratchFolder();
    const auto picture = test_support::filled<PixelRGBA16>(5, 3, 9);
    writeImageFile(picture, folder / "deep.TIFF");
    EXPECT_EQ(readImageFile(folder / "deep.TIFF").format, ImageFileFormat::tiff);
    EXPECT_TRUE(std::get<PixelBuffer<PixelRGBA16>>(readImageFile(folder / "deep.TIFF").buffer) ==
                picture);

    const ImageFileError noFormat = fileErrorOf([&] { writeImageFile(picture, folder / "x.bmp"); });
    EXPECT_NE(std::string(noFormat.what()).find("cannot tell the image format"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(folder / "x.bmp"));
    fileErrorOf(
        [&] { writeImageFile(test_support::filled<PixelGray32>(2, 2, 1), folder / "f.png"); });
    EXPECT_FALSE(std::filesystem::exists(folder / "f.png"));
    EXPECT_EQ(fileErrorOf([&] { writeImageFile(picture, folder / "no-folder" / "x.png"); }).kind(),
              Kind::io);
}

TEST(EngineImages, ReadAsImagesAndRenderedIntoFiles) {
    const auto folder = test_support::scratchFolder();
    const auto picture = test_support::filled<PixelARGB8>(6, 4, 3);
    writeImageFile(picture, folder / "engine.png");
    const ImageFile file = readImageFile(folder / "engine.png");
    EXPECT_EQ(file.image().extent(), cg::Rect(0, 0, 6, 4));
    // An image placed away from the origin is written over its own extent.
    writeImageFile(file.image().translated(10, -3), 16, folder / "moved.png");
    const auto moved = readImageFile(folder / "moved.png");
    ASSERT_TRUE(std::holds_alternative<PixelBuffer<PixelRGBA16>>(moved.buffer));
    EXPECT_TRUE(std::get<PixelBuffer<PixelARGB8>>(converted(moved.buffer, 8)) == picture);
    EXPECT_EQ(
        fileErrorOf([&] { writeImageFile(ci::Image::white(), 8, folder / "white.png"); }).kind(),
        Kind::unsupported);
}

} // namespace
} // namespace bic::files
