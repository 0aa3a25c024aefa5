#include "bic/files/image_file.hpp"

#include "bic/core/image_core_error.hpp"
#include "codecs.hpp"
#include "samples.hpp"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <memory>

namespace bic::files {

using Kind = ImageFileError::Kind;

namespace detail {

void fail(Kind kind, const std::string& message) { throw ImageFileError(kind, message); }

void Reading::checkSize(std::int64_t width, std::int64_t height, double codablePixels) const {
    if (width < 1 || height < 1)
        fail(Kind::corrupt, fmt::format("an image of {} × {} pixels", width, height));
    const double pixels = double(width) * double(height);
    if (pixels > double(options.maxPixels))
        fail(Kind::tooLarge, fmt::format("{} × {} pixels: more than the limit of {} pixels", width,
                                         height, options.maxPixels));
    if (codablePixels >= 0 && pixels > codablePixels)
        fail(Kind::tooLarge,
             fmt::format("{} × {} pixels cannot be coded in {} bytes (a damaged or hostile file)",
                         width, height, bytes.size()));
}

cg::ColorSpace Reading::colorSpaceFor(cg::ColorSpaceModel model) {
    describes_ = false;
    if (!icc.empty() && !convertedFromProfile)
        if (auto space = cg::ColorSpace::fromICCProfile(icc); space && space->model() == model) {
            describes_ = true;
            return *space;
        }
    return model == cg::ColorSpaceModel::monochrome ? cg::ColorSpace::deviceGray()
                                                    : cg::ColorSpace::sRGB();
}

template <Pixel P>
PixelBuffer<P>& Reading::allocate(std::int64_t width, std::int64_t height) {
    try {
        buffer.emplace(PixelBuffer<P>(IntegralSize(width, height), colorSpaceFor(P::model)));
    } catch (const ImageCoreError&) {
        fail(Kind::tooLarge, fmt::format("no memory for {} × {} pixels", width, height));
    }
    return std::get<PixelBuffer<P>>(*buffer);
}

#define BIC_INSTANTIATE(P)                                                                         \
    template PixelBuffer<P>& Reading::allocate<P>(std::int64_t, std::int64_t);
BIC_EACH_PIXEL_FORMAT(BIC_INSTANTIATE)
#undef BIC_INSTANTIATE

} // namespace detail

using detail::fail;

std::string_view formatName(ImageFileFormat format) {
    switch (format) {
    case ImageFileFormat::png:
        return "PNG";
    case ImageFileFormat::tiff:
        return "TIFF";
    case ImageFileFormat::jpeg:
        return "JPEG";
    case ImageFileFormat::webp:
        return "WebP";
    }
    return "?";
}

namespace {

bool startsWith(std::span<const std::uint8_t> bytes, std::string_view prefix, std::size_t at = 0) {
    return bytes.size() >= at + prefix.size() &&
           std::equal(prefix.begin(), prefix.end(), bytes.begin() + std::ptrdiff_t(at),
                      [](char a, std::uint8_t b) { return std::uint8_t(a) == b; });
}

using namespace std::string_view_literals;

// Formats people try to open that we recognise but do not read, so the error can say what the
// file is rather than that it is nothing.
std::optional<std::string_view> unreadableFormat(std::span<const std::uint8_t> b) {
    if (startsWith(b, "GIF87a") || startsWith(b, "GIF89a")) return "a GIF file";
    if (startsWith(b, "BM") && b.size() >= 14) return "a BMP file";
    if (startsWith(b, "8BPS")) return "a layered document (PSD or PSB)";
    if (startsWith(b, "ftyp", 4)) {
        if (startsWith(b, "avif", 8) || startsWith(b, "avis", 8)) return "an AVIF file";
        if (startsWith(b, "hei", 8) || startsWith(b, "mif1", 8) || startsWith(b, "msf1", 8))
            return "a HEIF file";
        if (startsWith(b, "jp2 ", 8)) return "a JPEG 2000 file";
        if (startsWith(b, "qt  ", 8) || startsWith(b, "isom", 8) || startsWith(b, "mp4", 8))
            return "a video file";
    }
    if (startsWith(b, "\x00\x00\x00\x0cjP  \r\n\x87\n"sv) || startsWith(b, "\xff\x4f\xff\x51"sv))
        return "a JPEG 2000 file";
    if (startsWith(b, "\xff\x0a"sv) || startsWith(b, "\x00\x00\x00\x0cJXL \r\n\x87\n"sv))
        return "a JPEG XL file";
    if (startsWith(b, "II\x2a\x00"sv) || startsWith(b, "MM\x00\x2a"sv)) return std::nullopt;
    if (startsWith(b, "\x00\x00\x01\x00"sv)) return "an icon (ICO) file";
    if (startsWith(b, "%PDF")) return "a PDF document";
    if (startsWith(b, "\x76\x2f\x31\x01"sv)) return "an OpenEXR file";
    if (startsWith(b, "#?RADIANCE") || startsWith(b, "#?RGBE")) return "a Radiance HDR file";
    if (startsWith(b, "qoif")) return "a QOI file";
    if (startsWith(b, "DDS ")) return "a DDS texture";
    if (b.size() >= 2 && b[0] == 'P' && b[1] >= '1' && b[1] <= '7' &&
        (b.size() == 2 || std::isspace(b[2])))
        return "a portable anymap (PNM) file";
    if (startsWith(b, "<?xml") || startsWith(b, "<svg")) return "an XML or SVG file";
    if (startsWith(b, "RIFF") && b.size() >= 12 && !startsWith(b, "WEBP", 8))
        return "a RIFF file that is not WebP";
    return std::nullopt;
}

std::string leadingBytes(std::span<const std::uint8_t> b) {
    std::string text;
    for (std::size_t i = 0; i < std::min<std::size_t>(b.size(), 8); ++i)
        text += fmt::format("{}{:02x}", i ? " " : "", b[i]);
    return text;
}

cg::ColorSpace sRGBFor(cg::ColorSpaceModel model) {
    return model == cg::ColorSpaceModel::monochrome ? cg::ColorSpace::deviceGray()
                                                    : cg::ColorSpace::sRGB();
}

} // namespace

std::optional<ImageFileFormat> detectFormat(std::span<const std::uint8_t> b) {
    if (startsWith(b, "\x89PNG\r\n\x1a\n"sv)) return ImageFileFormat::png;
    if (startsWith(b, "\xff\xd8\xff"sv)) return ImageFileFormat::jpeg;
    if (startsWith(b, "II\x2a\x00"sv) || startsWith(b, "MM\x00\x2a"sv) ||
        startsWith(b, "II\x2b\x00"sv) || startsWith(b, "MM\x00\x2b"sv))
        return ImageFileFormat::tiff;
    if (startsWith(b, "RIFF") && startsWith(b, "WEBP", 8)) return ImageFileFormat::webp;
    return std::nullopt;
}

std::optional<ImageFileFormat> formatForExtension(const std::filesystem::path& path) {
    std::string ext = path.extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    if (ext == ".png") return ImageFileFormat::png;
    if (ext == ".tif" || ext == ".tiff") return ImageFileFormat::tiff;
    if (ext == ".jpg" || ext == ".jpeg" || ext == ".jpe") return ImageFileFormat::jpeg;
    if (ext == ".webp") return ImageFileFormat::webp;
    return std::nullopt;
}

ci::Image ImageFile::image() const {
    return std::visit([](const auto& b) { return b.image(); }, buffer);
}

std::optional<std::vector<std::uint8_t>> ImageFile::pixelProfile() const {
    if (!profileDescribesPixels) return std::nullopt;
    return iccProfile;
}

ImageFile readImageFile(std::span<const std::uint8_t> bytes, const ReadOptions& options) {
    if (bytes.empty()) fail(Kind::notAnImage, "the file is empty");
    const auto format = detectFormat(bytes);
    if (!format) {
        // A WebP cut before its form type says WEBP is still most likely a WebP.
        if (startsWith(bytes, "RIFF") && bytes.size() < 12)
            fail(Kind::truncated, "truncated RIFF file: it ends before saying whether it holds a "
                                  "WebP image");
        if (const auto what = unreadableFormat(bytes))
            fail(Kind::unreadableFormat,
                 std::string(*what) + ": not a format we read (PNG, TIFF, JPEG and WebP are)");
        fail(Kind::notAnImage,
             "not an image file we know (it starts with " + leadingBytes(bytes) + ")");
    }
    detail::Reading reading(bytes, options);
    switch (*format) {
    case ImageFileFormat::png:
        detail::decodePNG(reading);
        break;
    case ImageFileFormat::jpeg:
        detail::decodeJPEG(reading);
        break;
    case ImageFileFormat::tiff:
        detail::decodeTIFF(reading);
        break;
    case ImageFileFormat::webp:
        detail::decodeWebP(reading);
        break;
    }
    ImageFile file{std::move(*reading.buffer), *format, std::move(reading.icc),
                   reading.profileDescribesPixels()};
    const std::optional<int> orientation = reading.nativeOrientation
                                               ? reading.nativeOrientation
                                               : detail::exifOrientation(reading.exif);
    file.orientation = orientation.value_or(1);
    if (options.applyOrientation && file.orientation != 1) {
        file.buffer = detail::oriented(file.buffer, file.orientation);
        file.orientationApplied = true;
    }
    if (options.convertToSRGB && file.profileDescribesPixels) {
        try {
            file.buffer = std::visit(
                [](const auto& b) -> PixelBufferType {
                    return b.converted(detail::colorSpaceOf(b), sRGBFor(b.model),
                                       cg::RenderingIntent::relativeColorimetric);
                },
                file.buffer);
        } catch (const ImageCoreError&) {
            fail(Kind::unsupported, "the embedded profile cannot be matched to sRGB");
        }
        file.profileDescribesPixels = false;
    }
    return file;
}

namespace {

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

std::string systemError() { return std::strerror(errno); }

} // namespace

ImageFile readImageFile(const std::filesystem::path& path, const ReadOptions& options) {
    File file(std::fopen(path.c_str(), "rb"));
    if (!file) fail(Kind::io, "cannot open " + path.string() + ": " + systemError());
    std::vector<std::uint8_t> bytes;
    if (std::fseek(file.get(), 0, SEEK_END) == 0) {
        const long size = std::ftell(file.get());
        if (size > 0) bytes.reserve(std::size_t(size));
        std::rewind(file.get());
    }
    std::uint8_t chunk[1 << 16];
    for (;;) {
        const std::size_t n = std::fread(chunk, 1, sizeof chunk, file.get());
        bytes.insert(bytes.end(), chunk, chunk + n);
        if (n < sizeof chunk) break;
    }
    if (std::ferror(file.get())) fail(Kind::io, "cannot read " + path.string());
    return readImageFile(std::span<const std::uint8_t>(bytes), options);
}

// ---- writing ----

namespace {

bool embedsNothing(const cg::ColorSpace& space) {
    return space == cg::ColorSpace::sRGB() || space == cg::ColorSpace::deviceRGB() ||
           space == cg::ColorSpace::deviceGray();
}

void checkOptions(const WriteOptions& o) {
    if (!o.format) fail(Kind::unsupported, "no image format given to write");
    if (o.quality < 1 || o.quality > 100)
        fail(Kind::unsupported, fmt::format("quality {} is outside 1…100", o.quality));
    if (o.compressionLevel < 1 || o.compressionLevel > 9)
        fail(Kind::unsupported,
             fmt::format("compression level {} is outside 1…9", o.compressionLevel));
    if (o.orientation < 1 || o.orientation > 8)
        fail(Kind::unsupported, fmt::format("orientation {} is outside 1…8", o.orientation));
}

// The profile to embed for pixels stored as colour or grey: as given when it is of that model;
// a grey one for pixels stored as colour (grey written to WebP, colour made from grey) as its
// RGB equivalent, whose neutrals match as its levels do. Anything else would misdescribe them.
std::vector<std::uint8_t> profileFor(std::span<const std::uint8_t> icc, bool storedGrey) {
    if (icc.empty()) return {};
    const auto space = cg::ColorSpace::fromICCProfile(icc);
    if (!space) fail(Kind::unsupported, "the ICC profile to embed cannot be read");
    if (space->model() == cg::ColorSpaceModel::monochrome && !storedGrey) {
        const auto rgb = space->grayAsRGB();
        if (!rgb)
            fail(Kind::unsupported,
                 "the grey ICC profile to embed has no tone curve to describe colour pixels by");
        return rgb->iccData();
    }
    const auto wanted = storedGrey ? cg::ColorSpaceModel::monochrome : cg::ColorSpaceModel::rgb;
    if (space->model() != wanted)
        fail(Kind::unsupported, std::string("the ICC profile to embed is not of ") +
                                    (storedGrey ? "grey" : "RGB") + " pixels");
    return std::vector<std::uint8_t>(icc.begin(), icc.end());
}

std::vector<std::uint8_t> encodeRows(const detail::Rows& rows, const WriteOptions& options,
                                     std::span<const std::uint8_t> icc) {
    // WebP stores grey as colour.
    const std::vector<std::uint8_t> profile =
        profileFor(icc, rows.grey && *options.format != ImageFileFormat::webp);
    const detail::Encoding encoding{options, profile,
                                    options.orientation == 1
                                        ? std::vector<std::uint8_t>()
                                        : detail::orientationExif(options.orientation)};
    switch (*options.format) {
    case ImageFileFormat::png:
        return detail::encodePNG(rows, encoding);
    case ImageFileFormat::jpeg:
        return detail::encodeJPEG(rows, encoding);
    case ImageFileFormat::tiff:
        return detail::encodeTIFF(rows, encoding);
    case ImageFileFormat::webp:
        return detail::encodeWebP(rows, encoding);
    }
    return {};
}

bool eightBitOnly(ImageFileFormat format) {
    return format == ImageFileFormat::jpeg || format == ImageFileFormat::webp;
}

const char* const kNoFloatPNG =
    "32-bit buffers are written as TIFF: PNG holds 8 and 16-bit samples";

// The rows of a buffer's pixels: straight ones unpremultiplied into a scratch row unless the
// row is opaque, in which case the buffer's own memory serves.
template <Pixel P>
detail::Rows bufferRows(std::span<const P> pixels, std::int64_t width, std::int64_t height,
                        std::int64_t pixelsPerRow, std::vector<P>& scratch,
                        std::vector<std::uint8_t>& associatedScratch) {
    using T = typename P::ComponentType;
    detail::Rows rows;
    rows.width = width, rows.height = height;
    rows.bitDepth = P::bitDepth;
    rows.grey = !RGBAPixel<P>;
    rows.alphaFirst = P::alphaInfo == PixelAlphaInfo::first;
    scratch.resize(std::size_t(width));
    const P* base = pixels.data();
    rows.straight = [=, &scratch](std::int64_t y) {
        const P* row = base + y * pixelsPerRow;
        if (detail::opaqueRow(row, width)) return reinterpret_cast<const std::uint8_t*>(row);
        detail::unpremultiplyRow(row, scratch.data(), width);
        return reinterpret_cast<const std::uint8_t*>(scratch.data());
    };
    rows.associated = [=, &associatedScratch](std::int64_t y) {
        const P* row = base + y * pixelsPerRow;
        if constexpr (RGBAPixel<P> && P::alphaInfo == PixelAlphaInfo::first) {
            associatedScratch.resize(std::size_t(width) * 4 * sizeof(T));
            T* out = reinterpret_cast<T*>(associatedScratch.data());
            for (std::int64_t x = 0; x < width; ++x, out += 4)
                out[0] = row[x].redComponent, out[1] = row[x].greenComponent,
                out[2] = row[x].blueComponent, out[3] = row[x].alphaComponent;
            return associatedScratch.data();
        } else {
            return reinterpret_cast<const std::uint8_t*>(row);
        }
    };
    rows.opaque = [=] {
        for (std::int64_t y = 0; y < height; ++y)
            if (!detail::opaqueRow(base + y * pixelsPerRow, width)) return false;
        return true;
    };
    return rows;
}

std::size_t sampleBytes(int bitDepth) { return std::size_t(bitDepth / 8); }

// Straight samples at 8 bits, for the formats that hold no more: 16-bit values rounded, floats
// clamped to 0…1 and rounded.
StraightImage reducedTo8Bits(const StraightImage& image) {
    StraightImage out = image;
    out.bitDepth = 8;
    const std::size_t n = image.samples.size() / sampleBytes(image.bitDepth);
    out.samples.resize(n);
    for (std::size_t i = 0; i < n; ++i) {
        double v;
        if (image.bitDepth == 16) {
            std::uint16_t s;
            std::memcpy(&s, image.samples.data() + 2 * i, 2);
            v = s / 65535.0;
        } else {
            float f;
            std::memcpy(&f, image.samples.data() + 4 * i, 4);
            v = std::isfinite(f) ? std::clamp(double(f), 0.0, 1.0) : 0.0;
        }
        out.samples[i] = std::uint8_t(std::lround(v * 255));
    }
    return out;
}

} // namespace

std::vector<std::uint8_t> encodeImageFile(const PixelBufferType& buffer,
                                          const WriteOptions& options) {
    checkOptions(options);
    const int depth = std::visit([](const auto& b) { return b.bitDepth; }, buffer);
    if (eightBitOnly(*options.format) && depth != 8)
        return encodeImageFile(converted(buffer, 8), options);
    if (*options.format == ImageFileFormat::png && depth == 32)
        fail(Kind::unsupported, kNoFloatPNG);
    return std::visit(
        [&](const auto& b) {
            using P = typename std::decay_t<decltype(b)>::Element;
            std::vector<std::uint8_t> icc;
            if (options.iccProfile)
                icc = *options.iccProfile;
            else if (const auto space = detail::colorSpaceOf(b); !embedsNothing(space))
                icc = space.iccData();
            std::vector<P> scratch;
            std::vector<std::uint8_t> associatedScratch;
            return b.withUnsafeBuffer([&](std::span<const P> pixels) {
                return encodeRows(bufferRows<P>(pixels, b.size().width, b.size().height,
                                                b.pixelsPerRow(), scratch, associatedScratch),
                                  options, icc);
            });
        },
        buffer);
}

std::vector<std::uint8_t> encodeImageFile(const StraightImage& image, const WriteOptions& options) {
    checkOptions(options);
    if (image.width < 1 || image.height < 1 || (image.channels != 1 && image.channels != 4) ||
        (image.bitDepth != 8 && image.bitDepth != 16 && image.bitDepth != 32) ||
        image.samples.size() !=
            std::size_t(image.width * image.height * image.channels) * sampleBytes(image.bitDepth))
        fail(Kind::unsupported, "straight samples of an unsupported shape or the wrong count");
    if (eightBitOnly(*options.format) && image.bitDepth != 8)
        return encodeImageFile(reducedTo8Bits(image), options);
    if (*options.format == ImageFileFormat::png && image.bitDepth == 32)
        fail(Kind::unsupported, kNoFloatPNG);

    const std::size_t bytes = sampleBytes(image.bitDepth);
    const std::size_t rowBytes = std::size_t(image.width) * std::size_t(image.channels) * bytes;
    detail::Rows rows;
    rows.width = image.width, rows.height = image.height, rows.bitDepth = image.bitDepth;
    rows.grey = image.channels == 1;
    const std::uint8_t* base = image.samples.data();
    rows.straight = [=](std::int64_t y) { return base + std::size_t(y) * rowBytes; };
    std::vector<std::uint8_t> scratch(rowBytes);
    auto premultiply = [&]<class T>(std::int64_t y) {
        std::memcpy(scratch.data(), base + std::size_t(y) * rowBytes, rowBytes);
        T* s = reinterpret_cast<T*>(scratch.data());
        for (std::int64_t x = 0; x < image.width; ++x, s += 4)
            for (int c = 0; c < 3; ++c)
                s[c] = detail::premultiplied(s[c], s[3]);
        return static_cast<const std::uint8_t*>(scratch.data());
    };
    rows.associated = [&, base, rowBytes](std::int64_t y) -> const std::uint8_t* {
        if (rows.grey) return base + std::size_t(y) * rowBytes;
        switch (image.bitDepth) {
        case 8:
            return premultiply.template operator()<std::uint8_t>(y);
        case 16:
            return premultiply.template operator()<std::uint16_t>(y);
        default:
            return premultiply.template operator()<float>(y);
        }
    };
    rows.opaque = [&] {
        if (rows.grey) return true;
        for (std::size_t i = 3 * bytes; i < image.samples.size(); i += 4 * bytes) {
            if (image.bitDepth == 32) {
                float a;
                std::memcpy(&a, image.samples.data() + i, 4);
                if (a != 1.0f) return false;
            } else if (image.samples[i] != 0xff || (bytes == 2 && image.samples[i + 1] != 0xff)) {
                return false;
            }
        }
        return true;
    };
    return encodeRows(rows, options,
                      options.iccProfile ? std::span<const std::uint8_t>(*options.iccProfile)
                                         : std::span<const std::uint8_t>());
}

namespace {

WriteOptions withFormatOf(const std::filesystem::path& path, const WriteOptions& options) {
    WriteOptions o = options;
    if (!o.format) o.format = formatForExtension(path);
    if (!o.format)
        fail(Kind::unsupported,
             "cannot tell the image format from the name (use .png, .tif, .jpg or .webp)");
    return o;
}

void writeBytes(const std::vector<std::uint8_t>& bytes, const std::filesystem::path& path) {
    File file(std::fopen(path.c_str(), "wb"));
    if (!file) fail(Kind::io, "cannot write " + path.string() + ": " + systemError());
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size() &&
                         std::fflush(file.get()) == 0;
    const std::string reason = systemError();
    file.reset();
    if (!written) {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
        fail(Kind::io, "cannot write " + path.string() + ": " + reason);
    }
}

} // namespace

void writeImageFile(const PixelBufferType& buffer, const std::filesystem::path& path,
                    const WriteOptions& options) {
    writeBytes(encodeImageFile(buffer, withFormatOf(path, options)), path);
}

void writeImageFile(const StraightImage& image, const std::filesystem::path& path,
                    const WriteOptions& options) {
    writeBytes(encodeImageFile(image, withFormatOf(path, options)), path);
}

void writeImageFile(const ci::Image& image, int bitDepth, const std::filesystem::path& path,
                    const WriteOptions& options) {
    const WriteOptions o = withFormatOf(path, options);
    if (bitDepth != 8 && bitDepth != 16 && bitDepth != 32)
        fail(Kind::unsupported, fmt::format("no buffers of {} bits", bitDepth));
    if (image.extent().isEmpty() || image.extent().isInfinite())
        fail(Kind::unsupported, "an empty or infinite image has no pixels to write");
    const PixelBufferType buffer = withPixelFormat(
        cg::ColorSpaceModel::rgb, bitDepth, [&]<class P>(std::type_identity<P>) -> PixelBufferType {
            return PixelBuffer<P>(image, image.extent());
        });
    writeImageFile(buffer, path, o);
}

} // namespace bic::files
