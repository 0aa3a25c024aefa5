#pragma once
// One channel of a layered document exactly as stored: width × height samples of 8 or 16-bit
// unsigned integers or 32-bit floats, rows top first, in host byte order, no padding.
//
// Colour channels hold straight (unpremultiplied) colour, as the format does: the compositor
// needs exact straight values, which a premultiplied 8-bit bitmap would lose where alpha is low.

#include "bic/platform/core/memory.hpp"

#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace bic {

class SamplePlane {
public:
    /// An empty plane (0 × 0, 8 bits).
    SamplePlane() = default;
    /// A zero-filled plane. A depth other than 8, 16 or 32, or a negative size, is a caller
    /// error.
    SamplePlane(std::int64_t width, std::int64_t height, int bitDepth);
    /// A plane over `hostOrderBytes`, which must hold exactly width × height samples.
    SamplePlane(std::int64_t width, std::int64_t height, int bitDepth, ByteBuffer hostOrderBytes);

    std::int64_t width() const { return width_; }
    std::int64_t height() const { return height_; }
    int bitDepth() const { return bitDepth_; }
    std::size_t sampleCount() const { return std::size_t(width_ * height_); }
    bool isEmpty() const { return width_ == 0 || height_ == 0; }

    const ByteBuffer& bytes() const { return bytes_; }
    ByteBuffer& mutableBytes() { return bytes_; }

    /// Sample `index` (row × width + column) as its own type: std::uint8_t, std::uint16_t or
    /// float, matching the depth (a caller error otherwise).
    template <class T>
    T sample(std::size_t index) const {
        T value;
        std::memcpy(&value, bytes_.data() + index * sizeof(T), sizeof(T));
        return value;
    }
    template <class T>
    void setSample(std::size_t index, T value) {
        std::memcpy(bytes_.data() + index * sizeof(T), &value, sizeof(T));
    }
    /// Sample `index` on 0…1: v / 255, v / 65535, or the float as stored.
    double normalized(std::size_t index) const;

    friend bool operator==(const SamplePlane&, const SamplePlane&) = default;

private:
    std::int64_t width_ = 0, height_ = 0;
    int bitDepth_ = 8;
    ByteBuffer bytes_;
};

} // namespace bic
