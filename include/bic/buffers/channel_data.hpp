#pragma once
// One channel plane of a bitmap, stored compactly: a per-row prediction filter, big-endian
// samples and an optional compression (PackBits per row, or zlib over the whole plane).
//
// A plane does not know its width and height; callers pass them to every operation that needs
// them. Misuse by a caller (a plane in the wrong state, a length that is not width × height
// samples, run-length coding of samples wider than a byte) stops the process; damaged stored
// data is answered with exceptions and leaves the plane as it was.

#include "bic/pixels/component_type.hpp"
#include "bic/platform/coding/coder.hpp"

#include <any>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace bic {

enum class ChannelDataCompressionType { none, rle, zip };
enum class PredictionType { none, sub, up, average, paeth };

/// "None", "RLE", "Zip".
std::string_view rawValue(ChannelDataCompressionType type);
/// "None", "Sub", "Up", "Average", "Paeth".
std::string_view rawValue(PredictionType type);
std::optional<ChannelDataCompressionType> compressionTypeFromRaw(std::string_view raw);
std::optional<PredictionType> predictionTypeFromRaw(std::string_view raw);

template <ComponentTypeProtocol T>
class ChannelData {
public:
    using Component = T;

    ChannelDataCompressionType compressionType = ChannelDataCompressionType::none;
    PredictionType predictionType = PredictionType::none;
    std::vector<std::uint8_t> data;
    bool dataIsBigEndian = false;
    /// For run-length coding: the coded length of each row.
    std::vector<std::int64_t> scanlineByteCounts;
    /// For the caller; never serialised.
    std::map<std::string, std::any> userInfo;

    ChannelData() = default;
    ChannelData(std::vector<std::uint8_t> bytes, bool bigEndian,
                ChannelDataCompressionType compression = ChannelDataCompressionType::none,
                PredictionType prediction = PredictionType::none)
        : compressionType(compression), predictionType(prediction), data(std::move(bytes)),
          dataIsBigEndian(bigEndian) {}

    /// Predicts, makes big-endian and compresses a plain host-order plane. With
    /// `discardIneffectiveCompression`, a coded form not smaller than the samples is dropped
    /// and the plane stays plain big-endian samples. Throws coding::CompressionError when deflate
    /// fails, leaving the plane predicted and big-endian.
    void compress(ChannelDataCompressionType compression, PredictionType prediction,
                  std::int64_t width, std::int64_t height, bool discardIneffectiveCompression);
    /// Back to plain host-order samples. Throws ImageCoreError (unknownError for a wrong number
    /// of row lengths, fileReadCorruptedDataError for rows beyond the data or a wrong decoded
    /// size) or coding::CompressionError; the plane is unchanged then.
    void decompress(std::int64_t width, std::int64_t height);
    /// The plain host-order samples into `out` (exactly width × height samples), leaving the
    /// plane as it is: decoding straight into a caller's memory. Throws as decompress; `out`
    /// may be partly written then.
    void decodeInto(std::int64_t width, std::int64_t height, std::span<std::uint8_t> out) const;
    /// Throws as decodeInto would when the coded bytes are too few for width × height samples
    /// whatever they hold (each coding expands by at most a fixed ratio): a caller can refuse a
    /// plane before it makes room for it.
    void requireCodedBytesFor(std::int64_t width, std::int64_t height) const;
    void convertToBigEndian();
    void convertFromBigEndian();

    /// Keys "Compression", "Prediction" (when not none) and "Data". Only big-endian planes
    /// compressed with none or zip can be written.
    void encode(coding::Encoder& encoder) const;
    /// Reads big-endian; unknown compression or prediction strings are decoding errors.
    static ChannelData decode(const coding::Decoder& decoder);

    friend bool operator==(const ChannelData& a, const ChannelData& b) {
        return a.compressionType == b.compressionType && a.predictionType == b.predictionType &&
               a.data == b.data && a.dataIsBigEndian == b.dataIsBigEndian &&
               a.scanlineByteCounts == b.scanlineByteCounts;
    }
};

/// A plane of any component type.
using AnyChannelData =
    std::variant<ChannelData<std::uint8_t>, ChannelData<std::uint16_t>, ChannelData<float>>;

extern template class ChannelData<std::uint8_t>;
extern template class ChannelData<std::uint16_t>;
extern template class ChannelData<float>;

} // namespace bic
