// Reads arbitrary records. The first byte picks the form: a property list or JSON text as bytes,
// or a record built field by field from the input, which reaches the decoder's checks and the
// plane codec far more often than random file bytes do. Whatever the input, the answer is a
// buffer of the recorded size or one of the documented errors.

#include "bic/buffers/pixel_buffer_record.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/platform/coding/compression.hpp"
#include "bic/platform/coding/formats.hpp"
#include "fuzz_input.hpp"

#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

using namespace bic;

namespace {

using fuzzing::Input;

coding::Value structuredRecord(Input& in) {
    static const char* models[] = {"Monochrome", "RGB", "CMYK", "LAB", "Unknown", "Grey", ""};
    static const char* compressions[] = {"None", "Zip", "RLE", "Gzip"};
    static const char* predictions[] = {"None", "Sub", "Up", "Average", "Paeth", "Left"};
    static const std::int64_t depths[] = {8, 16, 32, 12, 0, -8, 64, 1};
    coding::Dictionary record;
    const std::uint8_t shape = in.byte();
    // Sizes are mostly small, sometimes zero, negative or enormous.
    auto side = [&]() -> std::int64_t {
        const std::uint8_t b = in.byte();
        if (b == 255) return std::int64_t(1) << 40;
        if (b == 254) return -3;
        return b % 40;
    };
    if (shape & 1) record.emplace_back("Size", coding::Array{side(), side()});
    if (shape & 2) record.emplace_back("Model", models[in.byte() % 7]);
    if (shape & 4) record.emplace_back("Bit Depth", depths[in.byte() % 8]);
    if (shape & 8) record.emplace_back("Is Premultiplied", bool(in.byte() & 1));
    if (shape & 16) record.emplace_back("Bit Depth", "eight"); // a duplicate of the wrong type
    coding::Array channels;
    const int planes = in.byte() % 6;
    for (int i = 0; i < planes; ++i) {
        coding::Dictionary plane;
        const std::uint8_t kind = in.byte();
        plane.emplace_back("Compression", compressions[kind % 4]);
        if (kind & 8) plane.emplace_back("Prediction", predictions[kind / 16 % 6]);
        const std::size_t length = std::size_t(in.byte()) * 16 + in.byte() % 16;
        const auto data = in.take(length);
        if (kind & 4) {
            // Often a valid deflate stream, so the decoders behind it are reached.
            plane.emplace_back("Data", coding::zipCompressed(data));
        } else {
            plane.emplace_back("Data", coding::Data(data.begin(), data.end()));
        }
        channels.push_back(std::move(plane));
    }
    if (!(shape & 32)) record.emplace_back("Channels", std::move(channels));
    return record;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size < 1) return 0;
    Input in{std::span(bytes + 1, size - 1)};
    try {
        coding::Value record;
        switch (bytes[0] % 4) {
        case 0:
            record = coding::readPropertyList(in.bytes);
            break;
        case 1:
            record = coding::readJSON(
                std::string_view(reinterpret_cast<const char*>(in.bytes.data()), in.bytes.size()));
            break;
        default:
            record = structuredRecord(in);
        }
        const PixelBufferType buffer = coding::decode<PixelBufferDecoder>(record).pixelBuffer;
        // A buffer that reads is whole: its record writes and reads back to the same bytes
        // (compared as planes, so that float NaNs compare too).
        coding::Value again;
        coding::Encoder encoder(again, {});
        encode(buffer, encoder);
        auto planes = [](const PixelBufferType& b) {
            return std::visit(
                [](const auto& x) {
                    return x.compressedChannels(false, ChannelDataCompressionType::none,
                                                PredictionType::none, false);
                },
                b);
        };
        if (planes(coding::decode<PixelBufferDecoder>(again).pixelBuffer) != planes(buffer))
            std::abort();
    } catch (const coding::DecodingError&) {
    } catch (const ImageCoreError&) {
    } catch (const coding::CompressionError&) {
    }
    return 0;
}
