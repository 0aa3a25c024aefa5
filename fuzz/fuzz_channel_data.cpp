// Decodes arbitrary planes. A plane either decodes to exactly width × height samples, which
// then survive coding again, or fails with the codec's errors and is left as it was.

#include "bic/buffers/channel_data.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/platform/coding/compression.hpp"

#include <cstdint>
#include <cstdlib>
#include <span>

namespace {

template <class T>
void exercise(std::span<const std::uint8_t> in, bic::ChannelDataCompressionType compression,
              bic::PredictionType prediction, std::int64_t width, std::int64_t height) {
    bic::ChannelData<T> plane({}, true, compression, prediction);
    if (compression == bic::ChannelDataCompressionType::rle) {
        // Row lengths first, two bytes each, then the packed rows.
        for (std::int64_t r = 0; r < height && in.size() >= 2; ++r) {
            plane.scanlineByteCounts.push_back(std::int64_t(in[0]) | std::int64_t(in[1]) << 8);
            in = in.subspan(2);
        }
    }
    plane.data.assign(in.begin(), in.end());
    const auto before = plane;
    try {
        plane.decompress(width, height);
    } catch (const bic::ImageCoreError&) {
        if (!(plane == before)) std::abort();
        return;
    } catch (const bic::coding::CompressionError&) {
        if (!(plane == before)) std::abort();
        return;
    }
    if (plane.data.size() != std::size_t(width * height) * sizeof(T)) std::abort();
    auto again = plane;
    const auto recode = sizeof(T) == 1 && in.size() % 2 ? bic::ChannelDataCompressionType::rle
                                                        : bic::ChannelDataCompressionType::zip;
    again.compress(recode, prediction, width, height, false);
    again.decompress(width, height);
    if (!(again.data == plane.data)) std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size < 4) return 0;
    const auto compression = bic::ChannelDataCompressionType(bytes[0] % 3);
    const auto prediction = bic::PredictionType(bytes[1] % 5);
    const std::int64_t width = bytes[2] % 64 + 1, height = bytes[3] % 64 + 1;
    const std::span<const std::uint8_t> rest(bytes + 4, size - 4);
    switch (bytes[0] / 3 % 3) {
    case 0:
        exercise<std::uint8_t>(rest, compression, prediction, width, height);
        break;
    case 1:
        exercise<std::uint16_t>(rest, compression, prediction, width, height);
        break;
    default:
        exercise<float>(rest, compression, prediction, width, height);
    }
    return 0;
}
