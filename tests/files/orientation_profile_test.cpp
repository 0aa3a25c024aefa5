// Exif orientation in every format and form, the camera photos upright as ImageMagick shows
// them, and colour profiles kept byte for byte or matched to sRGB on request.

#include "bic/files/image_file.hpp"
#include "file_makers.hpp"
#include "support/buffers.hpp"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <lcms2.h>
#include <map>
#include <png.h>
#include <tiffio.h>
#include <webp/mux.h>

namespace bic::files {
namespace {

using test_support::Bytes;

// Six far-apart colours, so that even JPEG keeps them told apart.
const std::map<char, PixelARGB8> kColours = {
    {'a', PixelARGB8(255, 0, 0, 255)},   {'b', PixelARGB8(0, 255, 0, 255)},
    {'c', PixelARGB8(0, 0, 255, 255)},   {'d', PixelARGB8(255, 255, 0, 255)},
    {'e', PixelARGB8(0, 255, 255, 255)}, {'f', PixelARGB8(255, 0, 255, 255)}};

constexpr int kBlock = 16;

// "abc/def": the letters' colours in blocks of 16 × 16 pixels, rows top first.
PixelBuffer<PixelARGB8> blocks(std::string_view layout) {
    std::vector<std::string_view> rows;
    for (std::size_t start = 0;;) {
        const auto slash = layout.find('/', start);
        rows.push_back(layout.substr(start, slash - start));
        if (slash == std::string_view::npos) break;
        start = slash + 1;
    }
    const auto w = std::int64_t(rows[0].size()) * kBlock, h = std::int64_t(rows.size()) * kBlock;
    PixelBuffer<PixelARGB8> b(IntegralSize(w, h), cg::ColorSpace::sRGB());
    b.withUnsafeBuffer([&](std::span<PixelARGB8> p) {
        for (std::int64_t y = 0; y < h; ++y)
            for (std::int64_t x = 0; x < w; ++x)
                p[std::size_t(y * b.pixelsPerRow() + x)] =
                    kColours.at(rows[std::size_t(y / kBlock)][std::size_t(x / kBlock)]);
    });
    return b;
}

// The layout a buffer of blocks shows, told by each block's centre to within `tolerance`.
std::string layoutOf(const PixelBufferType& buffer, int tolerance) {
    const auto& b = std::get<PixelBuffer<PixelARGB8>>(buffer);
    std::string text;
    for (std::int64_t row = 0; row < b.size().height / kBlock; ++row) {
        if (row) text += '/';
        for (std::int64_t col = 0; col < b.size().width / kBlock; ++col) {
            const PixelARGB8 p =
                *b(col * kBlock + kBlock / 2, b.size().height - 1 - (row * kBlock + kBlock / 2));
            char found = '?';
            for (const auto& [letter, c] : kColours)
                if (std::abs(p.redComponent - c.redComponent) <= tolerance &&
                    std::abs(p.greenComponent - c.greenComponent) <= tolerance &&
                    std::abs(p.blueComponent - c.blueComponent) <= tolerance)
                    found = letter;
            text += found;
        }
    }
    return text;
}

// How a stored "abc/def" shows under each orientation, as Exif defines them.
const char* const kUpright[9] = {"",         "abc/def",  "cba/fed",  "fed/cba", "def/abc",
                                 "ad/be/cf", "da/eb/fc", "fc/eb/da", "cf/be/ad"};

TEST(Orientation, EveryValueInEveryFormatTurnsThePixelsUpright) {
    const auto stored = blocks("abc/def");
    for (const auto format : {ImageFileFormat::png, ImageFileFormat::tiff, ImageFileFormat::jpeg,
                              ImageFileFormat::webp}) {
        const int tolerance = format == ImageFileFormat::jpeg ? 40 : 0;
        for (int orientation = 1; orientation <= 8; ++orientation) {
            WriteOptions options;
            options.format = format;
            options.lossless = true;
            options.orientation = orientation;
            const Bytes file = encodeImageFile(stored, options);
            const ImageFile upright = readImageFile(file);
            EXPECT_EQ(upright.orientation, orientation);
            EXPECT_EQ(upright.orientationApplied, orientation != 1);
            EXPECT_EQ(layoutOf(upright.buffer, tolerance), kUpright[orientation])
                << formatName(format) << " orientation " << orientation;
            ReadOptions asStored;
            asStored.applyOrientation = false;
            const ImageFile kept = readImageFile(file, asStored);
            EXPECT_EQ(kept.orientation, orientation);
            EXPECT_FALSE(kept.orientationApplied);
            EXPECT_EQ(layoutOf(kept.buffer, tolerance), "abc/def") << formatName(format);
        }
    }
}

TEST(Orientation, TIFFsReadThroughLibtiffsRGBAReaderTurnAlike) {
    // An 8-bit palette image takes libtiff's RGBA path, which flips rows by itself.
    test_support::TiffSpec spec{3 * kBlock, 2 * kBlock,        1,
                                8,          SAMPLEFORMAT_UINT, PHOTOMETRIC_PALETTE};
    spec.rowsPerStrip = 7;
    spec.colorMap.assign(3 * 256, 0);
    const std::string letters = "abcdef";
    for (std::size_t i = 0; i < letters.size(); ++i) {
        const PixelARGB8 c = kColours.at(letters[i]);
        spec.colorMap[i] = std::uint16_t(c.redComponent * 257);
        spec.colorMap[256 + i] = std::uint16_t(c.greenComponent * 257);
        spec.colorMap[512 + i] = std::uint16_t(c.blueComponent * 257);
    }
    for (std::uint32_t y = 0; y < spec.height; ++y)
        for (std::uint32_t x = 0; x < spec.width; ++x)
            spec.samples.push_back(std::uint8_t(y / kBlock * 3 + x / kBlock));
    for (std::uint16_t orientation = 1; orientation <= 8; ++orientation) {
        spec.orientation = orientation;
        EXPECT_EQ(layoutOf(readImageFile(test_support::tiffFile(spec)).buffer, 0),
                  kUpright[orientation])
            << orientation;
    }
}

Bytes pngWithExif(const Bytes& exif) {
    test_support::PngSpec spec{1, 1, PNG_COLOR_TYPE_GRAY, 8};
    spec.rows = {{7}};
    spec.exif = exif;
    return test_support::pngFile(spec);
}

TEST(Orientation, ExifIsReadInEitherByteOrderAndOddValuesAreIgnored) {
    // Big-endian, the orientation after another tag.
    const Bytes bigEndian = {'M',  'M',  0, 42, 0, 0, 0,   8,   0,   2, 0x01, 0x0f,
                             0,    2,    0, 0,  0, 4, 'A', 'c', 'm', 0,          // Make "Acm"
                             0x01, 0x12, 0, 3,  0, 0, 0,   1,   0,   6, 0,    0, // Orientation 6
                             0,    0,    0, 0};
    EXPECT_EQ(readImageFile(pngWithExif(bigEndian)).orientation, 6);
    Bytes nine = bigEndian;
    nine[31] = 9;
    EXPECT_EQ(readImageFile(pngWithExif(nine)).orientation, 1);
    Bytes asLong = bigEndian;
    asLong[25] = 4;
    EXPECT_EQ(readImageFile(pngWithExif(asLong)).orientation, 1);
    const Bytes cut(bigEndian.begin(), bigEndian.begin() + 30);
    EXPECT_EQ(readImageFile(pngWithExif(cut)).orientation, 1);

    // Some writers keep JPEG's "Exif\0\0" in a WebP's EXIF chunk.
    WriteOptions webp;
    webp.format = ImageFileFormat::webp;
    webp.lossless = true;
    const Bytes plain = encodeImageFile(blocks("ab"), webp);
    Bytes prefixed = {'E',  'x',  'i', 'f', 0, 0, 'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0,
                      0x12, 0x01, 3,   0,   1, 0, 0,   0,   8,  0, 0, 0, 0, 0, 0, 0};
    WebPMux* mux = WebPMuxNew();
    const WebPData image{plain.data(), plain.size()}, exif{prefixed.data(), prefixed.size()};
    WebPData out{};
    ASSERT_EQ(WebPMuxSetImage(mux, &image, 0), WEBP_MUX_OK);
    ASSERT_EQ(WebPMuxSetChunk(mux, "EXIF", &exif, 0), WEBP_MUX_OK);
    ASSERT_EQ(WebPMuxAssemble(mux, &out), WEBP_MUX_OK);
    const ImageFile file = readImageFile(Bytes(out.bytes, out.bytes + out.size));
    WebPDataClear(&out);
    WebPMuxDelete(mux);
    EXPECT_EQ(file.orientation, 8);
    EXPECT_EQ(layoutOf(file.buffer, 0), "b/a");
}

TEST(Orientation, RotatedCameraPhotosComeOutAsImageMagickShowsThem) {
    const auto folder = test_support::photoFolder();
    if (folder.empty()) GTEST_SKIP() << "no test photos";
    const std::pair<const char*, int> photos[] = {{"Leica T (Typ 701).jpg", 8},
                                                  {"Pentax.jpg", 8},
                                                  {"Samsung GT-I9000 (Galaxy S).jpg", 6},
                                                  {"DSCN0010.jpg", 1}};
    for (const auto& [name, orientation] : photos) {
        const ImageFile file = readImageFile(folder / name);
        EXPECT_EQ(file.orientation, orientation) << name;
        const auto& b = std::get<PixelBuffer<PixelARGB8>>(file.buffer);
        ReadOptions asStored;
        asStored.applyOrientation = false;
        const auto stored =
            std::get<PixelBuffer<PixelARGB8>>(readImageFile(folder / name, asStored).buffer);
        if (orientation >= 5) {
            EXPECT_EQ(b.size(), IntegralSize(stored.size().height, stored.size().width)) << name;
        }

        std::uint32_t w = 0, h = 0;
        const auto reference = test_support::imageMagickRGB(folder / name, w, h);
        if (!reference) GTEST_SKIP() << "ImageMagick's convert is not installed";
        ASSERT_EQ(b.size(), IntegralSize(w, h)) << name;
        std::size_t differing = 0;
        for (std::uint32_t y = 0; y < h; ++y)
            for (std::uint32_t x = 0; x < w; ++x) {
                const PixelARGB8 p = *b(x, h - 1 - y);
                const std::uint8_t* q = reference->data() + (std::size_t(y) * w + x) * 3;
                differing += p.redComponent != q[0] || p.greenComponent != q[1] ||
                             p.blueComponent != q[2] || p.alphaComponent != 255;
            }
        EXPECT_EQ(differing, 0u) << name;
    }
}

PixelBuffer<PixelARGB8> flat(PixelARGB8 colour) {
    PixelBuffer<PixelARGB8> b(IntegralSize(16, 16), cg::ColorSpace::sRGB());
    b.withUnsafeBuffer([&](std::span<PixelARGB8> p) { std::fill(p.begin(), p.end(), colour); });
    return b;
}

void expectProfileKept(const Bytes& icc, const PixelBufferType& pixels, const char* what) {
    for (const auto format : {ImageFileFormat::png, ImageFileFormat::tiff, ImageFileFormat::jpeg,
                              ImageFileFormat::webp}) {
        WriteOptions options;
        options.format = format;
        options.iccProfile = icc;
        const ImageFile file = readImageFile(encodeImageFile(pixels, options));
        EXPECT_EQ(file.iccProfile, icc) << what << " in " << formatName(format);
        EXPECT_TRUE(file.profileDescribesPixels) << what << " in " << formatName(format);
        EXPECT_EQ(file.pixelProfile(), icc);
        // Reading makes plain buffers only; surface buffers have no colour space to compare.
        const std::optional<cg::ColorSpace> space = std::visit(
            [](const auto& b) -> std::optional<cg::ColorSpace> {
                if constexpr (requires { b.colorSpace(); })
                    return b.colorSpace();
                else
                    return std::nullopt;
            },
            file.buffer);
        ASSERT_TRUE(space) << what;
        EXPECT_TRUE(*space == *cg::ColorSpace::fromICCProfile(icc)) << what;
    }
}

TEST(Profiles, EmbeddedProfilesRoundTripByteForByte) {
    expectProfileKept(cg::ColorSpace::displayP3().iccData(), flat(PixelARGB8(1, 2, 3, 255)),
                      "Display P3");
    expectProfileKept(cg::ColorSpace::adobeRGB1998().iccData(),
                      test_support::filled<PixelRGBA16>(5, 5, 1), "Adobe RGB, 16 bits");
    // A grey profile goes with grey pixels.
    const Bytes grey = cg::ColorSpace::deviceGray().iccData();
    PixelBuffer<PixelGray8> greyPixels(IntegralSize(8, 8), cg::ColorSpace::deviceGray());
    for (const auto format : {ImageFileFormat::png, ImageFileFormat::tiff, ImageFileFormat::jpeg}) {
        WriteOptions options;
        options.format = format;
        options.iccProfile = grey;
        EXPECT_EQ(readImageFile(encodeImageFile(greyPixels, options)).iccProfile, grey);
    }
}

// A grey profile with a gamma of 1.8 (not the device grey's sRGB curve), as Little CMS makes it.
Bytes gamma18Grey() {
    cmsToneCurve* curve = cmsBuildGamma(nullptr, 1.8);
    cmsHPROFILE p = cmsCreateGrayProfile(cmsD50_xyY(), curve);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(p, nullptr, &size);
    Bytes bytes(size);
    cmsSaveProfileToMem(p, bytes.data(), &size);
    cmsCloseProfile(p);
    cmsFreeToneCurve(curve);
    return bytes;
}

// The linear light of the pixel at (1, 1) through the space the file was read in.
double linearGreen(const ImageFile& file) {
    return std::visit(
        [](const auto& b) -> double {
            if constexpr (requires { b.colorSpace(); }) {
                const auto p = *b(1, 1);
                std::vector<double> components;
                if constexpr (RGBAPixel<std::decay_t<decltype(p)>>)
                    components = {p.redComponent / 255.0, p.greenComponent / 255.0,
                                  p.blueComponent / 255.0, 1};
                else
                    components = {p.grayComponent / 255.0, 1};
                const auto linear = cg::Color::make(b.colorSpace(), components)
                                        ->matched(cg::ColorSpace::linearSRGB());
                return linear ? linear->components()[1] : -1;
            } else {
                return -1;
            }
        },
        file.buffer);
}

TEST(Profiles, GreyProfilesDescribeGreyStoredAsColour) {
    // WebP has no grey: grey pixels go in as colour with the grey profile's RGB equivalent, and
    // read back they mean the same light.
    const Bytes grey = gamma18Grey();
    PixelBuffer<PixelGray8> levels(IntegralSize(4, 4), *cg::ColorSpace::fromICCProfile(grey));
    levels.withUnsafeBuffer(
        [](std::span<PixelGray8> p) { std::fill(p.begin(), p.end(), PixelGray8(100)); });
    WriteOptions png;
    png.format = ImageFileFormat::png;
    const ImageFile asGrey = readImageFile(encodeImageFile(levels, png));
    EXPECT_EQ(asGrey.iccProfile, grey);
    const double expected = std::pow(100 / 255.0, 1.8);
    EXPECT_NEAR(linearGreen(asGrey), expected, 1e-3);
    for (const bool lossless : {true, false}) {
        WriteOptions webp;
        webp.format = ImageFileFormat::webp;
        webp.lossless = lossless;
        const ImageFile asColour = readImageFile(encodeImageFile(levels, webp));
        EXPECT_TRUE(asColour.profileDescribesPixels);
        EXPECT_EQ(asColour.iccProfile,
                  cg::ColorSpace::fromICCProfile(grey)->grayAsRGB()->iccData());
        EXPECT_NEAR(linearGreen(asColour), expected, lossless ? 1e-3 : 0.01);
    }
    // Colour made from grey pixels takes their grey profile the same way; an RGB profile for
    // grey pixels cannot be made to fit.
    png.iccProfile = grey;
    EXPECT_NEAR(
        linearGreen(readImageFile(encodeImageFile(flat(PixelARGB8(100, 100, 100, 255)), png))),
        expected, 1e-3);
    png.iccProfile = cg::ColorSpace::sRGB().iccData();
    EXPECT_THROW(encodeImageFile(levels, png), ImageFileError);
}

// How many APP2 segments of a JPEG carry a piece of its ICC profile.
int iccSegments(const Bytes& jpeg) {
    int count = 0;
    for (std::size_t i = 2; i + 16 < jpeg.size() && jpeg[i] == 0xff && jpeg[i + 1] != 0xda;) {
        const std::size_t length = std::size_t(jpeg[i + 2]) << 8 | jpeg[i + 3];
        count += jpeg[i + 1] == 0xe2 && std::memcmp(&jpeg[i + 4], "ICC_PROFILE", 12) == 0;
        i += 2 + length;
    }
    return count;
}

TEST(Profiles, ProfilesLargerThanAJPEGSegmentAreSplitAndJoined) {
    // A profile padded past 150 KB (the header's size says so): three APP2 segments at least.
    Bytes big = cg::ColorSpace::displayP3().iccData();
    big.resize(150000 + big.size(), 0);
    for (int b = 0; b < 4; ++b)
        big[std::size_t(b)] = std::uint8_t(big.size() >> (24 - 8 * b));
    ASSERT_TRUE(cg::ColorSpace::fromICCProfile(big));
    WriteOptions options;
    options.format = ImageFileFormat::jpeg;
    options.iccProfile = big;
    const Bytes jpeg = encodeImageFile(flat(PixelARGB8(10, 20, 30, 255)), options);
    EXPECT_EQ(iccSegments(jpeg), 3);
    EXPECT_EQ(readImageFile(jpeg).iccProfile, big);
    expectProfileKept(big, flat(PixelARGB8(10, 20, 30, 255)), "a padded profile");
}

TEST(Profiles, ABufferInAProfiledSpaceCarriesItsProfile) {
    PixelBuffer<PixelARGB8> p3(IntegralSize(4, 4), cg::ColorSpace::displayP3());
    WriteOptions options;
    options.format = ImageFileFormat::png;
    const ImageFile file = readImageFile(encodeImageFile(p3, options));
    EXPECT_TRUE(file.profileDescribesPixels);
    EXPECT_TRUE(std::get<PixelBuffer<PixelARGB8>>(file.buffer).colorSpace() ==
                *cg::ColorSpace::fromICCProfile(cg::ColorSpace::displayP3().iccData()));
    // An empty profile given explicitly embeds nothing.
    options.iccProfile = Bytes();
    EXPECT_TRUE(readImageFile(encodeImageFile(p3, options)).iccProfile.empty());
}

TEST(Profiles, FilesWithoutOneAreSRGB) {
    WriteOptions options;
    options.format = ImageFileFormat::png;
    const ImageFile colour =
        readImageFile(encodeImageFile(flat(PixelARGB8(9, 9, 9, 255)), options));
    EXPECT_TRUE(colour.iccProfile.empty());
    EXPECT_FALSE(colour.pixelProfile());
    EXPECT_TRUE(std::get<PixelBuffer<PixelARGB8>>(colour.buffer).colorSpace() ==
                cg::ColorSpace::sRGB());
    const ImageFile grey = readImageFile(encodeImageFile(
        PixelBuffer<PixelGray8>(IntegralSize(2, 2), cg::ColorSpace::deviceGray()), options));
    EXPECT_TRUE(std::get<PixelBuffer<PixelGray8>>(grey.buffer).colorSpace() ==
                cg::ColorSpace::deviceGray());
}

TEST(Profiles, ProfilesThatCannotDescribeThePixelsAreRefused) {
    WriteOptions options;
    options.format = ImageFileFormat::png;
    options.iccProfile = cg::ColorSpace::sRGB().iccData();
    try {
        encodeImageFile(PixelBuffer<PixelGray8>(IntegralSize(2, 2), cg::ColorSpace::deviceGray()),
                        options);
        ADD_FAILURE() << "an RGB profile on grey pixels";
    } catch (const ImageFileError& e) {
        EXPECT_EQ(e.kind(), ImageFileError::Kind::unsupported);
        EXPECT_NE(std::string(e.what()).find("not of grey pixels"), std::string::npos);
    }
    options.iccProfile = Bytes{1, 2, 3, 4};
    EXPECT_THROW(encodeImageFile(flat(PixelARGB8(1, 1, 1, 255)), options), ImageFileError);
}

TEST(Profiles, PixelsAreMatchedToSRGBOnlyWhenAsked) {
    // sRGB's red is (0.9175, 0.2003, 0.1386) in Display P3.
    WriteOptions options;
    options.format = ImageFileFormat::png;
    options.iccProfile = cg::ColorSpace::displayP3().iccData();
    const Bytes file = encodeImageFile(flat(PixelARGB8(234, 51, 35, 255)), options);
    const ImageFile asStored = readImageFile(file);
    EXPECT_EQ(*std::get<PixelBuffer<PixelARGB8>>(asStored.buffer)(3, 3),
              PixelARGB8(234, 51, 35, 255));
    ReadOptions toSRGB;
    toSRGB.convertToSRGB = true;
    const ImageFile matched = readImageFile(file, toSRGB);
    const PixelARGB8 red = *std::get<PixelBuffer<PixelARGB8>>(matched.buffer)(3, 3);
    EXPECT_GE(red.redComponent, 253);
    EXPECT_LE(red.greenComponent, 3);
    EXPECT_LE(red.blueComponent, 3);
    EXPECT_FALSE(matched.profileDescribesPixels);
    EXPECT_FALSE(matched.pixelProfile());
    EXPECT_EQ(matched.iccProfile, *options.iccProfile); // still reported as found
    EXPECT_TRUE(std::get<PixelBuffer<PixelARGB8>>(matched.buffer).colorSpace() ==
                cg::ColorSpace::sRGB());
}

TEST(Profiles, CameraPhotoProfilesAreReadAsImageMagickReadsThemAndKept) {
    const auto folder = test_support::photoFolder();
    if (folder.empty()) GTEST_SKIP() << "no test photos";
    int profiled = 0;
    for (const char* name : {"BlueSquare.jpg", "Canon EOS 7D.jpg", "Nikon D5000.jpg", "Reagan.jpg",
                             "Reagan.tiff", "test.tiff", "DSCN0010.jpg"}) {
        const ImageFile file = readImageFile(folder / name);
        const std::string quoted = "'" + (folder / name).string() + "'";
        if (std::system("command -v convert > /dev/null 2>&1") == 0) {
            const auto out = test_support::scratchFolder() / "profile.icc";
            const std::string command =
                "convert " + quoted + " icc:" + out.string() + " > /dev/null 2>&1";
            const bool has = std::system(command.c_str()) == 0;
            EXPECT_EQ(file.iccProfile, has ? test_support::readBytes(out) : Bytes()) << name;
            std::filesystem::remove(out);
        }
        if (file.iccProfile.empty()) continue;
        ++profiled;
        EXPECT_TRUE(file.profileDescribesPixels) << name;
        expectProfileKept(file.iccProfile, file.buffer, name);
    }
    EXPECT_EQ(profiled, 6);
}

} // namespace
} // namespace bic::files
