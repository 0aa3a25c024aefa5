#include "bic/buffers/channel_data.hpp"

#include "bic/core/image_core_error.hpp"
#include "bic/platform/coding/compression.hpp"
#include "bic/platform/core/memory.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace bic {

std::string_view rawValue(ChannelDataCompressionType t) {
    switch (t) {
    case ChannelDataCompressionType::none:
        return "None";
    case ChannelDataCompressionType::rle:
        return "RLE";
    case ChannelDataCompressionType::zip:
        return "Zip";
    }
    return "None";
}

std::string_view rawValue(PredictionType t) {
    switch (t) {
    case PredictionType::none:
        return "None";
    case PredictionType::sub:
        return "Sub";
    case PredictionType::up:
        return "Up";
    case PredictionType::average:
        return "Average";
    case PredictionType::paeth:
        return "Paeth";
    }
    return "None";
}

std::optional<ChannelDataCompressionType> compressionTypeFromRaw(std::string_view raw) {
    for (auto t : {ChannelDataCompressionType::none, ChannelDataCompressionType::rle,
                   ChannelDataCompressionType::zip})
        if (rawValue(t) == raw) return t;
    return std::nullopt;
}

std::optional<PredictionType> predictionTypeFromRaw(std::string_view raw) {
    for (auto t : {PredictionType::none, PredictionType::sub, PredictionType::up,
                   PredictionType::average, PredictionType::paeth})
        if (rawValue(t) == raw) return t;
    return std::nullopt;
}

namespace {

// ---- Prediction on integer samples, with wrapping arithmetic ---------------------------------

template <class U>
inline U wrap(std::int64_t v) {
    return static_cast<U>(v);
}

inline std::int64_t paethPredictor(std::int64_t a, std::int64_t b, std::int64_t c) {
    const std::int64_t p = a + b - c;
    const std::int64_t pa = std::abs(p - a), pb = std::abs(p - b), pc = std::abs(p - c);
    if (pa <= pb && pa <= pc) return a;
    return pb <= pc ? b : c;
}

inline std::int64_t mean(std::int64_t a, std::int64_t b) {
    return std::min(a, b) + (std::max(a, b) - std::min(a, b)) / 2;
}

// One loop for every integer width; the 8-bit instantiation is the dedicated byte loop.
template <class U>
void filter(U* s, std::int64_t w, std::int64_t h, PredictionType type) {
    switch (type) {
    case PredictionType::none:
        return;
    case PredictionType::sub:
        for (std::int64_t r = 0; r < h; ++r) {
            U* row = s + r * w;
            for (std::int64_t c = w - 1; c > 0; --c)
                row[c] = wrap<U>(row[c] - row[c - 1]);
        }
        return;
    case PredictionType::up:
        for (std::int64_t r = h - 1; r > 0; --r) {
            U* row = s + r * w;
            const U* above = row - w;
            for (std::int64_t c = 0; c < w; ++c)
                row[c] = wrap<U>(row[c] - above[c]);
        }
        return;
    case PredictionType::average:
    case PredictionType::paeth: {
        const std::vector<U> original(s, s + w * h);
        for (std::int64_t r = 0; r < h; ++r) {
            const U* o = original.data() + r * w;
            const U* above = r ? o - w : nullptr;
            U* row = s + r * w;
            for (std::int64_t c = 0; c < w; ++c) {
                if (type == PredictionType::average) {
                    const std::int64_t a = c ? o[c - 1] : 0, b = above ? above[c] : 0;
                    row[c] = wrap<U>(o[c] - mean(a, b));
                } else if (r && c) {
                    row[c] = wrap<U>(o[c] - paethPredictor(o[c - 1], above[c], above[c - 1]));
                }
            }
        }
        return;
    }
    }
}

// One pass per row: each sample is taken from big-endian order when `Swap`, then the prediction
// added back. The prediction type is a template argument, so the row loop has no branch on it.
template <class U, PredictionType Type, bool Swap>
void unfilterRows(U* s, std::int64_t w, std::int64_t h) {
    for (std::int64_t r = 0; r < h; ++r) {
        U* row = s + r * w;
        const U* above = r ? row - w : nullptr;
        for (std::int64_t c = 0; c < w; ++c) {
            U v = row[c];
            if constexpr (Swap) v = bigEndian(v);
            if constexpr (Type == PredictionType::sub) {
                if (c) v = wrap<U>(v + row[c - 1]);
            } else if constexpr (Type == PredictionType::up) {
                if (above) v = wrap<U>(v + above[c]);
            } else if constexpr (Type == PredictionType::average) {
                v = wrap<U>(v + mean(c ? row[c - 1] : 0, above ? above[c] : 0));
            } else if constexpr (Type == PredictionType::paeth) {
                if (above && c) v = wrap<U>(v + paethPredictor(row[c - 1], above[c], above[c - 1]));
            }
            row[c] = v;
        }
    }
}

template <class U, bool Swap>
void unfilter(U* s, std::int64_t w, std::int64_t h, PredictionType type) {
    switch (type) {
    case PredictionType::none:
        return unfilterRows<U, PredictionType::none, Swap>(s, w, h);
    case PredictionType::sub:
        return unfilterRows<U, PredictionType::sub, Swap>(s, w, h);
    case PredictionType::up:
        return unfilterRows<U, PredictionType::up, Swap>(s, w, h);
    case PredictionType::average:
        return unfilterRows<U, PredictionType::average, Swap>(s, w, h);
    case PredictionType::paeth:
        return unfilterRows<U, PredictionType::paeth, Swap>(s, w, h);
    }
}

template <ComponentTypeProtocol T>
void swapBytes(std::span<std::uint8_t> data) {
    if constexpr (sizeof(T) > 1) {
        T v;
        for (std::size_t i = 0; i + sizeof(T) <= data.size(); i += sizeof(T)) {
            std::memcpy(&v, data.data() + i, sizeof(T));
            v = bigEndian(v);
            std::memcpy(data.data() + i, &v, sizeof(T));
        }
    }
}

// Float rows of big-endian bytes become four byte planes (most significant bytes first) and back.
void toBytePlanes(std::vector<std::uint8_t>& data, std::int64_t w, std::int64_t h) {
    if (w == 0) return;
    std::vector<std::uint8_t> row(std::size_t(w * 4));
    for (std::int64_t r = 0; r < h; ++r) {
        std::uint8_t* p = data.data() + r * w * 4;
        for (std::int64_t i = 0; i < w; ++i)
            for (int k = 0; k < 4; ++k)
                row[std::size_t(k * w + i)] = p[i * 4 + k];
        std::memcpy(p, row.data(), row.size());
    }
}

void fromBytePlanes(std::span<std::uint8_t> data, std::int64_t w, std::int64_t h) {
    if (w == 0) return;
    std::vector<std::uint8_t> row(std::size_t(w * 4));
    for (std::int64_t r = 0; r < h; ++r) {
        std::uint8_t* p = data.data() + r * w * 4;
        for (std::int64_t i = 0; i < w; ++i)
            for (int k = 0; k < 4; ++k)
                row[std::size_t(i * 4 + k)] = p[k * w + i];
        std::memcpy(p, row.data(), row.size());
    }
}

// Host-order samples → predicted big-endian bytes.
template <ComponentTypeProtocol T>
void predict(std::vector<std::uint8_t>& data, std::int64_t w, std::int64_t h, PredictionType type) {
    if constexpr (std::is_same_v<T, float>) {
        swapBytes<T>(data);
        if (type == PredictionType::none) return;
        toBytePlanes(data, w, h);
        filter(data.data(), w * 4, h, type);
    } else {
        filter(reinterpret_cast<T*>(data.data()), w, h, type);
        swapBytes<T>(data);
    }
}

// Predicted big-endian bytes → host-order samples.
template <ComponentTypeProtocol T>
void unpredict(std::span<std::uint8_t> data, std::int64_t w, std::int64_t h, PredictionType type) {
    if constexpr (std::is_same_v<T, float>) {
        if (type != PredictionType::none) {
            unfilter<std::uint8_t, false>(data.data(), w * 4, h, type);
            fromBytePlanes(data, w, h);
        }
        swapBytes<T>(data);
    } else {
        unfilter<T, true>(reinterpret_cast<T*>(data.data()), w, h, type);
    }
}

} // namespace

template <ComponentTypeProtocol T>
void ChannelData<T>::compress(ChannelDataCompressionType compression, PredictionType prediction,
                              std::int64_t width, std::int64_t height,
                              bool discardIneffectiveCompression) {
    precondition(compressionType == ChannelDataCompressionType::none &&
                     predictionType == PredictionType::none && !dataIsBigEndian,
                 "A channel plane must be plain host-order samples to be compressed.");
    precondition(width >= 0 && height >= 0 &&
                     std::int64_t(data.size()) == width * height * std::int64_t(sizeof(T)),
                 "A channel plane's length must be width × height samples.");
    precondition(compression != ChannelDataCompressionType::rle || sizeof(T) == 1,
                 "Run-length coding is only for 8-bit channel planes.");
    predict<T>(data, width, height, prediction);
    predictionType = prediction;
    dataIsBigEndian = true;

    // Coding that saves nothing is dropped when asked; no compression at all saves nothing.
    // Prediction is undone exactly (wrapping arithmetic) rather than kept in a copy that every
    // plane would pay for.
    auto keepPlainSamples = [&] {
        unpredict<T>(data, width, height, prediction);
        swapBytes<T>(data);
        predictionType = PredictionType::none;
        scanlineByteCounts.clear();
    };
    std::vector<std::uint8_t> coded;
    std::vector<std::int64_t> counts;
    switch (compression) {
    case ChannelDataCompressionType::none:
        if (discardIneffectiveCompression) keepPlainSamples();
        return;
    case ChannelDataCompressionType::rle:
        for (std::int64_t r = 0; r < height; ++r) {
            const auto row = coding::packBits(
                std::span(data).subspan(std::size_t(r * width), std::size_t(width)));
            coded.insert(coded.end(), row.begin(), row.end());
            counts.push_back(std::int64_t(row.size()));
        }
        break;
    case ChannelDataCompressionType::zip:
        coded = coding::zipCompressed(data);
        break;
    }
    if (discardIneffectiveCompression && coded.size() >= data.size()) {
        keepPlainSamples();
        return;
    }
    data = std::move(coded);
    scanlineByteCounts = std::move(counts);
    compressionType = compression;
}

// The most a coded byte can stand for: deflate's longest match (258 bytes) costs at least two
// bits; a two-byte PackBits repeat packet writes 128 bytes.
constexpr std::size_t maximumDeflateRatio = 1032 + 1;
constexpr std::size_t maximumPackBitsRatio = 64;

namespace {

// Coded bytes too few for the decoded size are refused before anything that large is made.
void requireCodedBytes(ChannelDataCompressionType compression, std::size_t coded,
                       std::size_t decoded) {
    if (compression == ChannelDataCompressionType::zip && decoded / maximumDeflateRatio > coded)
        throw coding::CompressionError("The zip data is too short for the plane's size.");
    if (compression == ChannelDataCompressionType::rle && decoded / maximumPackBitsRatio > coded)
        throw ImageCoreError(ImageCoreError::fileReadCorruptedDataError);
}

} // namespace

template <ComponentTypeProtocol T>
void ChannelData<T>::requireCodedBytesFor(std::int64_t width, std::int64_t height) const {
    precondition(width >= 0 && height >= 0, "A channel plane's size cannot be negative.");
    // The size comes from stored data too: one that no plane can have is refused.
    if (height > 0 &&
        width > std::numeric_limits<std::int64_t>::max() / std::int64_t(sizeof(T)) / height)
        throw ImageCoreError(ImageCoreError::fileReadCorruptedDataError);
    requireCodedBytes(compressionType, data.size(), std::size_t(width * height) * sizeof(T));
}

template <ComponentTypeProtocol T>
void ChannelData<T>::decodeInto(std::int64_t width, std::int64_t height,
                                std::span<std::uint8_t> out) const {
    precondition(dataIsBigEndian, "A channel plane must be big-endian to be decompressed.");
    const std::size_t size = out.size();
    precondition(width >= 0 && height >= 0 && size % sizeof(T) == 0 &&
                     (height == 0
                          ? size == 0
                          : size / sizeof(T) % std::size_t(height) == 0 &&
                                size / sizeof(T) / std::size_t(height) == std::size_t(width)),
                 "A channel plane is decoded into exactly its samples.");
    requireCodedBytes(compressionType, data.size(), size);
    switch (compressionType) {
    case ChannelDataCompressionType::zip:
        coding::zipUncompressInto(data, out);
        break;
    case ChannelDataCompressionType::rle: {
        if (std::int64_t(scanlineByteCounts.size()) != height)
            throw ImageCoreError(ImageCoreError::unknownError,
                                 "a run-length plane has " +
                                     std::to_string(scanlineByteCounts.size()) +
                                     " row byte counts for " + std::to_string(height) + " rows");
        const std::size_t rowBytes = std::size_t(width) * sizeof(T);
        std::int64_t offset = 0;
        std::size_t written = 0;
        for (const std::int64_t count : scanlineByteCounts) {
            if (count < 0 || offset > std::int64_t(data.size()) - count)
                throw ImageCoreError(ImageCoreError::fileReadCorruptedDataError);
            // Each row is decoded into its own slot: a short row is an error, not a shift.
            const std::size_t n = coding::unpackBitsInto(
                std::span(data).subspan(std::size_t(offset), std::size_t(count)),
                out.subspan(written, rowBytes));
            if (n != rowBytes) throw ImageCoreError(ImageCoreError::fileReadCorruptedDataError);
            written += n;
            offset += count;
        }
        break;
    }
    case ChannelDataCompressionType::none:
        // Nothing short or long goes on: a plane is whole or it is an error.
        if (data.size() != size) throw ImageCoreError(ImageCoreError::fileReadCorruptedDataError);
        if (size) std::memcpy(out.data(), data.data(), size); // an empty plane has no storage
        break;
    }
    unpredict<T>(out, width, height, predictionType);
}

template <ComponentTypeProtocol T>
void ChannelData<T>::decompress(std::int64_t width, std::int64_t height) {
    precondition(dataIsBigEndian, "A channel plane must be big-endian to be decompressed.");
    requireCodedBytesFor(width, height);
    const std::size_t size = std::size_t(width * height) * sizeof(T);
    std::vector<std::uint8_t> plain = zeroedBuffer(size);
    decodeInto(width, height, plain);
    data = std::move(plain);
    compressionType = ChannelDataCompressionType::none;
    predictionType = PredictionType::none;
    dataIsBigEndian = false;
    scanlineByteCounts.clear();
}

template <ComponentTypeProtocol T>
void ChannelData<T>::convertToBigEndian() {
    precondition(!dataIsBigEndian, "The channel plane is big-endian already.");
    swapBytes<T>(data);
    dataIsBigEndian = true;
}

template <ComponentTypeProtocol T>
void ChannelData<T>::convertFromBigEndian() {
    precondition(dataIsBigEndian, "The channel plane is in host order already.");
    swapBytes<T>(data);
    dataIsBigEndian = false;
}

template <ComponentTypeProtocol T>
void ChannelData<T>::encode(coding::Encoder& encoder) const {
    precondition(dataIsBigEndian && compressionType != ChannelDataCompressionType::rle,
                 "Only big-endian channel planes without run-length coding can be stored.");
    auto k = encoder.keyed();
    k.encode("Compression", std::string(rawValue(compressionType)));
    if (predictionType != PredictionType::none)
        k.encode("Prediction", std::string(rawValue(predictionType)));
    k.encode("Data", data);
}

template <ComponentTypeProtocol T>
ChannelData<T> ChannelData<T>::decode(const coding::Decoder& decoder) {
    const auto k = decoder.keyed();
    auto invalid = [&](const char* key, const std::string& raw) {
        auto path = k.codingPath();
        path.emplace_back(key);
        return coding::DecodingError(coding::DecodingError::Kind::dataCorrupted, path,
                                     "Cannot initialize from invalid String value " + raw);
    };
    ChannelData plane;
    if (const auto raw = k.decodeIfPresent<std::string>("Compression")) {
        const auto type = compressionTypeFromRaw(*raw);
        if (!type) throw invalid("Compression", *raw);
        plane.compressionType = *type;
    }
    if (const auto raw = k.decodeIfPresent<std::string>("Prediction")) {
        const auto type = predictionTypeFromRaw(*raw);
        if (!type) throw invalid("Prediction", *raw);
        plane.predictionType = *type;
    }
    plane.data = k.decode<coding::Data>("Data");
    plane.dataIsBigEndian = true;
    return plane;
}

template class ChannelData<std::uint8_t>;
template class ChannelData<std::uint16_t>;
template class ChannelData<float>;

} // namespace bic
