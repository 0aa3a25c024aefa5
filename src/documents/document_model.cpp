// The document model's small parts: sample planes, names, resources, text conversion, and the
// conversions from stored channels to the library's bitmaps.

#include "bic/documents/layered_document.hpp"
#include "bic/platform/core/fatal.hpp"
#include "byte_io.hpp"

#include <algorithm>
#include <array>
#include <cmath>

namespace bic {

// ---- Sample planes ----

SamplePlane::SamplePlane(std::int64_t width, std::int64_t height, int bitDepth)
    : width_(width), height_(height), bitDepth_(bitDepth) {
    precondition(width >= 0 && height >= 0, "A sample plane's size cannot be negative.");
    precondition(bitDepth == 8 || bitDepth == 16 || bitDepth == 32, "Unsupported bit depth.");
    bytes_.assign(std::size_t(width * height * (bitDepth / 8)), 0);
}

SamplePlane::SamplePlane(std::int64_t width, std::int64_t height, int bitDepth,
                         ByteBuffer hostOrderBytes)
    : width_(width), height_(height), bitDepth_(bitDepth), bytes_(std::move(hostOrderBytes)) {
    precondition(width >= 0 && height >= 0, "A sample plane's size cannot be negative.");
    precondition(bitDepth == 8 || bitDepth == 16 || bitDepth == 32, "Unsupported bit depth.");
    precondition(bytes_.size() == std::size_t(width * height * (bitDepth / 8)),
                 "A sample plane's bytes must hold exactly width × height samples.");
}

double SamplePlane::normalized(std::size_t index) const {
    switch (bitDepth_) {
    case 8:
        return sample<std::uint8_t>(index) / 255.0;
    case 16:
        return sample<std::uint16_t>(index) / 65535.0;
    default:
        return sample<float>(index);
    }
}

// ---- Names ----

std::string_view channelCompressionName(ChannelCompression compression) {
    switch (compression) {
    case ChannelCompression::raw:
        return "raw";
    case ChannelCompression::rle:
        return "rle";
    case ChannelCompression::zip:
        return "zip";
    case ChannelCompression::zipPredicted:
        return "zip-pred";
    }
    return "?";
}

std::string_view layerKindName(LayerKind kind) {
    switch (kind) {
    case LayerKind::pixel:
        return "pixel";
    case LayerKind::group:
        return "group";
    case LayerKind::solidColorFill:
        return "solid fill";
    case LayerKind::gradientFill:
        return "gradient fill";
    case LayerKind::patternFill:
        return "pattern fill";
    case LayerKind::adjustment:
        return "adjustment";
    case LayerKind::smartObject:
        return "smart object";
    case LayerKind::text:
        return "text";
    }
    return "?";
}

std::string colorModeName(std::uint16_t mode) {
    static constexpr std::array<const char*, 10> names = {
        "Bitmap", "Grayscale", "Indexed",      "RGB",     "CMYK",
        nullptr,  nullptr,     "Multichannel", "Duotone", "Lab"};
    if (mode < names.size() && names[mode]) return names[mode];
    return "mode " + std::to_string(mode);
}

bool hasLongLengthInLargeDocuments(const std::string& key) {
    static constexpr std::array<std::string_view, 13> keys = {
        "LMsk", "Lr16", "Lr32", "Layr", "Mt16", "Mt32", "Mtrn",
        "Alph", "FMsk", "lnk2", "FEid", "FXid", "PxSD"};
    return std::find(keys.begin(), keys.end(), key) != keys.end();
}

// ---- Resolution ----

std::vector<std::uint8_t> ResolutionInfo::bytes() const {
    documents::ByteWriter w;
    const auto fixed = [](double v) {
        return std::uint32_t(std::llround(std::clamp(v, 0.0, 65535.0) * 65536.0));
    };
    w.u32(fixed(horizontal));
    w.u16(horizontalUnit);
    w.u16(widthUnit);
    w.u32(fixed(vertical));
    w.u16(verticalUnit);
    w.u16(heightUnit);
    return std::move(w.bytes());
}

std::optional<ResolutionInfo> ResolutionInfo::fromBytes(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < 16) return std::nullopt;
    documents::ByteReader r(bytes);
    ResolutionInfo info;
    info.horizontal = r.u32("") / 65536.0;
    info.horizontalUnit = r.u16("");
    info.widthUnit = r.u16("");
    info.vertical = r.u32("") / 65536.0;
    info.verticalUnit = r.u16("");
    info.heightUnit = r.u16("");
    return info;
}

// ---- Text ----

namespace documents {

namespace {
void appendUTF8(std::string& out, std::uint32_t c) {
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | c >> 6), out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | c >> 12), out += char(0x80 | (c >> 6 & 0x3F));
        out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | c >> 18), out += char(0x80 | (c >> 12 & 0x3F));
        out += char(0x80 | (c >> 6 & 0x3F)), out += char(0x80 | (c & 0x3F));
    }
}
} // namespace

std::string utf8FromUTF16(const std::vector<std::uint16_t>& units) {
    std::string out;
    for (std::size_t i = 0; i < units.size(); ++i) {
        const std::uint32_t u = units[i];
        if (u >= 0xD800 && u < 0xDC00 && i + 1 < units.size() && units[i + 1] >= 0xDC00 &&
            units[i + 1] < 0xE000) {
            appendUTF8(out, 0x10000 + ((u - 0xD800) << 10) + (units[i + 1] - 0xDC00));
            ++i;
        } else if (u >= 0xD800 && u < 0xE000) {
            appendUTF8(out, 0xFFFD);
        } else {
            appendUTF8(out, u);
        }
    }
    return out;
}

std::vector<std::uint16_t> utf16FromUTF8(std::string_view s) {
    std::vector<std::uint16_t> out;
    for (std::size_t i = 0; i < s.size();) {
        const auto b = std::uint8_t(s[i]);
        const int n = b < 0x80         ? 1
                      : (b >> 5) == 6  ? 2
                      : (b >> 4) == 14 ? 3
                      : (b >> 3) == 30 ? 4
                                       : 0;
        std::uint32_t c = n == 1 ? b : n == 2 ? b & 0x1F : n == 3 ? b & 0x0F : b & 0x07;
        bool ok = n > 0 && i + std::size_t(n) <= s.size();
        for (int k = 1; ok && k < n; ++k) {
            const auto t = std::uint8_t(s[i + std::size_t(k)]);
            ok = (t >> 6) == 2;
            c = c << 6 | (t & 0x3F);
        }
        if (!ok || (c >= 0xD800 && c < 0xE000) || c > 0x10FFFF) {
            out.push_back(0xFFFD);
            ++i;
            continue;
        }
        if (c >= 0x10000) {
            out.push_back(std::uint16_t(0xD800 + ((c - 0x10000) >> 10)));
            out.push_back(std::uint16_t(0xDC00 + ((c - 0x10000) & 0x3FF)));
        } else {
            out.push_back(std::uint16_t(c));
        }
        i += std::size_t(n);
    }
    return out;
}

} // namespace documents

// ---- Bitmaps from channels ----

namespace {

template <class T>
constexpr T maximumSample() {
    if constexpr (std::is_floating_point_v<T>)
        return T(1);
    else
        return std::numeric_limits<T>::max();
}

template <class T>
T premultiplied(T c, T a) {
    if constexpr (std::is_floating_point_v<T>) {
        return c * a;
    } else {
        constexpr std::uint64_t m = maximumSample<T>();
        return T((std::uint64_t(c) * a + m / 2) / m);
    }
}

// Straight planes (colour channels, then alpha or none) into a premultiplied buffer; a missing
// colour plane reads 0, a missing alpha 1.
template <Pixel P>
PixelBufferType bufferFromPlanes(std::int64_t width, std::int64_t height,
                                 const std::vector<const SamplePlane*>& colors,
                                 const SamplePlane* alpha) {
    using T = typename P::ComponentType;
    PixelBuffer<P> buffer(IntegralSize(width, height), P::deviceColorSpace());
    const auto at = [](const SamplePlane* p, std::size_t i, T fallback) {
        return p ? p->sample<T>(i) : fallback;
    };
    buffer.withUnsafeBuffer([&](std::span<P> pixels) {
        for (std::int64_t y = 0; y < height; ++y) {
            P* row = pixels.data() + y * buffer.pixelsPerRow();
            for (std::int64_t x = 0; x < width; ++x) {
                const std::size_t i = std::size_t(y * width + x);
                if constexpr (RGBAPixel<P>) {
                    const T a = at(alpha, i, maximumSample<T>());
                    const T r = at(colors[0], i, 0);
                    const T g = colors.size() > 1 ? at(colors[1], i, 0) : r;
                    const T b = colors.size() > 2 ? at(colors[2], i, 0) : r;
                    row[x].redComponent = premultiplied(r, a);
                    row[x].greenComponent = premultiplied(g, a);
                    row[x].blueComponent = premultiplied(b, a);
                    row[x].alphaComponent = a;
                } else {
                    row[x].grayComponent = at(colors[0], i, 0);
                }
            }
        }
    });
    return buffer;
}

PixelBufferType bufferFromPlanes(int bitDepth, bool colorFormat, std::int64_t width,
                                 std::int64_t height, const std::vector<const SamplePlane*>& colors,
                                 const SamplePlane* alpha) {
    switch (bitDepth) {
    case 8:
        return colorFormat ? bufferFromPlanes<PixelARGB8>(width, height, colors, alpha)
                           : bufferFromPlanes<PixelGray8>(width, height, colors, nullptr);
    case 16:
        return colorFormat ? bufferFromPlanes<PixelRGBA16>(width, height, colors, alpha)
                           : bufferFromPlanes<PixelGray16>(width, height, colors, nullptr);
    default:
        return colorFormat ? bufferFromPlanes<PixelRGBA32>(width, height, colors, alpha)
                           : bufferFromPlanes<PixelGray32>(width, height, colors, nullptr);
    }
}

} // namespace

const LayerChannel* DocumentLayer::channel(std::int16_t id) const {
    for (const auto& c : channels)
        if (c.id == id) return &c;
    return nullptr;
}

std::optional<PixelBufferType> DocumentLayer::pixelBuffer(int colorChannels, int bitDepth) const {
    if (bounds.isEmpty()) return std::nullopt;
    const auto usable = [&](const LayerChannel* c) {
        return c && c->plane.width() == bounds.width() && c->plane.height() == bounds.height() &&
                       c->plane.bitDepth() == bitDepth
                   ? &c->plane
                   : nullptr;
    };
    std::vector<const SamplePlane*> colors;
    for (int i = 0; i < colorChannels; ++i)
        colors.push_back(usable(channel(std::int16_t(i))));
    const SamplePlane* alpha = usable(channel(transparencyChannel));
    return bufferFromPlanes(bitDepth, colorChannels > 1 || alpha, bounds.width(), bounds.height(),
                            colors, alpha);
}

std::optional<PixelBufferType> DocumentLayer::maskBuffer(bool real) const {
    const LayerChannel* c = channel(real ? realUserMaskChannel : userMaskChannel);
    if (!c || c->plane.isEmpty()) return std::nullopt;
    return bufferFromPlanes(c->plane.bitDepth(), false, c->plane.width(), c->plane.height(),
                            {&c->plane}, nullptr);
}

// ---- The document ----

const ImageResource* LayeredDocument::resource(std::uint16_t id) const {
    for (const auto& r : resources)
        if (r.id == id) return &r;
    return nullptr;
}

std::optional<ResolutionInfo> LayeredDocument::resolution() const {
    const ImageResource* r = resource(resolutionInfoResource);
    return r ? ResolutionInfo::fromBytes(r->bytes) : std::nullopt;
}

std::optional<std::vector<std::uint8_t>> LayeredDocument::iccProfile() const {
    const ImageResource* r = resource(iccProfileResource);
    if (!r) return std::nullopt;
    return r->bytes;
}

std::optional<bool> LayeredDocument::hasRealMergedData() const {
    const ImageResource* r = resource(versionInfoResource);
    if (!r || r->bytes.size() < 5) return std::nullopt;
    return r->bytes[4] != 0;
}

namespace {
void walkLayers(const std::vector<DocumentLayer>& layers, int depth, std::size_t& index,
                const std::function<void(std::size_t, int, const DocumentLayer&)>& visit) {
    for (const auto& layer : layers) {
        visit(index++, depth, layer);
        if (layer.isGroup()) walkLayers(layer.children, depth + 1, index, visit);
    }
}
} // namespace

void LayeredDocument::walk(
    const std::function<void(std::size_t, int, const DocumentLayer&)>& visit) const {
    std::size_t index = 0;
    walkLayers(layers, 0, index, visit);
}

std::size_t LayeredDocument::layerCount() const {
    std::size_t n = 0;
    walk([&](std::size_t, int, const DocumentLayer&) { ++n; });
    return n;
}

bool LayeredDocument::compositeHasTransparency() const {
    // Documents with a positive layer count say it with a marker block instead.
    const bool marked = std::any_of(globalBlocks.begin(), globalBlocks.end(), [](const auto& b) {
        return b.key == "Mtrn" || b.key == "Mt16" || b.key == "Mt32";
    });
    return (mergedAlphaIsTransparency || marked) && int(composite.size()) > colorChannels();
}

namespace {
template <class T>
void unmatte(std::vector<SamplePlane>& planes, std::size_t colorCount) {
    const SamplePlane& alpha = planes[colorCount];
    constexpr double m = double(maximumSample<T>());
    for (std::size_t i = 0; i < alpha.sampleCount(); ++i) {
        const double a = double(alpha.sample<T>(i)) / m;
        for (std::size_t c = 0; c < colorCount; ++c) {
            const double stored = double(planes[c].sample<T>(i));
            // A NaN or infinite stored float is left alone rather than spread.
            double v = a > 0 && std::isfinite(stored) ? (stored - m * (1 - a)) / a : 0;
            v = std::clamp(v, 0.0, m);
            if constexpr (std::is_floating_point_v<T>)
                planes[c].setSample<T>(i, T(v));
            else
                planes[c].setSample<T>(i, T(std::lround(v)));
        }
    }
}
} // namespace

std::vector<SamplePlane> LayeredDocument::straightComposite() const {
    const std::size_t colorCount = std::size_t(colorChannels());
    if (composite.size() < colorCount) return {};
    for (const SamplePlane& p : composite)
        if (p.width() != width || p.height() != height || p.bitDepth() != bitDepth) return {};
    std::vector<SamplePlane> planes(composite.begin(),
                                    composite.begin() + std::ptrdiff_t(colorCount));
    if (!compositeHasTransparency()) return planes;
    planes.push_back(composite[colorCount]);
    switch (bitDepth) {
    case 8:
        unmatte<std::uint8_t>(planes, colorCount);
        break;
    case 16:
        unmatte<std::uint16_t>(planes, colorCount);
        break;
    default:
        unmatte<float>(planes, colorCount);
        break;
    }
    return planes;
}

std::optional<PixelBufferType> LayeredDocument::compositeBuffer() const {
    const std::vector<SamplePlane> planes = straightComposite();
    if (planes.empty()) return std::nullopt;
    const std::size_t colorCount = std::size_t(colorChannels());
    std::vector<const SamplePlane*> colors;
    for (std::size_t c = 0; c < colorCount; ++c)
        colors.push_back(&planes[c]);
    const SamplePlane* alpha = planes.size() > colorCount ? &planes[colorCount] : nullptr;
    return bufferFromPlanes(bitDepth, colorCount > 1 || alpha, width, height, colors, alpha);
}

} // namespace bic
