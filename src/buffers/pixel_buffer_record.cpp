#include "bic/buffers/pixel_buffer_record.hpp"

#include "bic/core/image_core_error.hpp"
#include "pixel_rows.hpp"

#include <array>
#include <utility>

namespace bic {

namespace {

constexpr std::array<std::pair<cg::ColorSpaceModel, std::string_view>, 9> modelStrings{{
    {cg::ColorSpaceModel::monochrome, "Monochrome"},
    {cg::ColorSpaceModel::rgb, "RGB"},
    {cg::ColorSpaceModel::cmyk, "CMYK"},
    {cg::ColorSpaceModel::lab, "LAB"},
    {cg::ColorSpaceModel::deviceN, "DeviceN"},
    {cg::ColorSpaceModel::indexed, "Indexed"},
    {cg::ColorSpaceModel::pattern, "Pattern"},
    {cg::ColorSpaceModel::xyz, "XYZ"},
    {cg::ColorSpaceModel::unknown, "Unknown"},
}};

bool supportedDepth(int bitDepth) { return bitDepth == 8 || bitDepth == 16 || bitDepth == 32; }

bool supportedModel(cg::ColorSpaceModel model) {
    return model == cg::ColorSpaceModel::monochrome || model == cg::ColorSpaceModel::rgb;
}

// The checks of data read from outside, depth first whatever the model.
void requireSupported(cg::ColorSpaceModel model, int bitDepth) {
    if (!supportedDepth(bitDepth))
        throw ImageCoreError(ImageCoreError::fileReadUnsupportedBitDepthError);
    if (!supportedModel(model))
        throw ImageCoreError(ImageCoreError::fileReadUnsupportedColorModelError);
}

// The caller's promise, for formats chosen by code rather than read.
void stopUnlessSupported(cg::ColorSpaceModel model, int bitDepth) {
    if (!supportedModel(model)) fatalError("Unsupported color model.");
    if (!supportedDepth(bitDepth)) fatalError("Unsupported bit depth.");
}

} // namespace

std::string_view colorModelString(cg::ColorSpaceModel model) {
    for (const auto& [m, s] : modelStrings)
        if (m == model) return s;
    return "Unknown";
}

std::optional<cg::ColorSpaceModel> colorModelFromString(std::string_view string) {
    for (const auto& [m, s] : modelStrings)
        if (s == string) return m;
    return std::nullopt;
}

void detail::encodeRecordHeader(coding::KeyedEncoder& record, IntegralSize size,
                                cg::ColorSpaceModel model, int bitDepth) {
    record.encode("Size", size);
    record.encode("Model", colorModelString(model));
    record.encode("Bit Depth", bitDepth);
    record.encode("Is Premultiplied", true);
}

PixelBufferDecoder PixelBufferDecoder::decode(const coding::Decoder& decoder) {
    const auto record = decoder.keyed();
    const auto size = record.decode<IntegralSize>("Size");
    const auto modelString = record.decode<std::string>("Model");
    const auto model = colorModelFromString(modelString);
    if (!model) {
        auto path = record.codingPath();
        path.emplace_back("Model");
        throw coding::DecodingError(coding::DecodingError::Kind::dataCorrupted, path,
                                    "Cannot initialize color model from invalid String value " +
                                        modelString);
    }
    // Any integer is a bit depth, supported or not: one that an int cannot hold is simply not
    // supported, rather than a coding error.
    const auto storedDepth = record.decode<std::int64_t>("Bit Depth");
    const int bitDepth = std::in_range<int>(storedDepth) ? int(storedDepth) : 0;
    const auto premultiplied = record.decodeIfPresent<bool>("Is Premultiplied");
    if (premultiplied == false && *model != cg::ColorSpaceModel::monochrome)
        throw ImageCoreError(ImageCoreError::fileReadUnpremultipliedImageDataUnsupported);
    requireSupported(*model, bitDepth);
    return {
        withPixelFormat(*model, bitDepth, [&]<class P>(std::type_identity<P>) -> PixelBufferType {
            using T = typename P::ComponentType;
            auto planes = record.decode<std::vector<ChannelData<T>>>("Channels");
            std::vector<AnyChannelData> channels(std::make_move_iterator(planes.begin()),
                                                 std::make_move_iterator(planes.end()));
            return PixelBuffer<P>(size, std::move(channels), false, "");
        })};
}

void encode(const PixelBufferType& buffer, coding::Encoder& encoder) {
    std::visit([&](const auto& b) { b.encode(encoder); }, buffer);
}

namespace PixelBufferFactory {

PixelBufferType make(cg::ColorSpaceModel model, int bitDepth, const cg::Image& image,
                     const cg::ColorSpace& targetColorSpace, std::string title) {
    stopUnlessSupported(model, bitDepth);
    return withPixelFormat(model, bitDepth, [&]<class P>(std::type_identity<P>) -> PixelBufferType {
        return PixelBuffer<P>(image, targetColorSpace, std::move(title));
    });
}

PixelBufferType make(cg::ColorSpaceModel model, int bitDepth, const ci::Image& image,
                     const cg::Rect& extent, std::string title) {
    stopUnlessSupported(model, bitDepth);
    return withPixelFormat(model, bitDepth, [&]<class P>(std::type_identity<P>) -> PixelBufferType {
        return PixelBuffer<P>(image, extent, std::move(title));
    });
}

PixelBufferType make(std::vector<AnyChannelData> channelData, bool expand16BitColorRange,
                     IntegralSize size, cg::ColorSpaceModel model, int bitDepth) {
    requireSupported(model, bitDepth);
    return withPixelFormat(model, bitDepth, [&]<class P>(std::type_identity<P>) -> PixelBufferType {
        return PixelBuffer<P>(size, std::move(channelData), expand16BitColorRange);
    });
}

} // namespace PixelBufferFactory

} // namespace bic
