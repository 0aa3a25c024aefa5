#pragma once
// Seeded random sources and integer distributions over them.
//
// The ARC4 source is the RC4 key stream keyed with the seed bytes; a 32-bit draw is four
// stream bytes, most significant first. The distributions draw integers in lowest…highest:
// the uniform one without modulo bias (rejection of the incomplete top range), the Gaussian one
// with mean (lowest + highest) / 2 and deviation (highest − lowest) / 6 by the polar method,
// rounded to the nearest integer and drawn again when it falls outside the range. Equal seeds
// give equal sequences on every machine; the sequences are our own, not any other
// implementation's.

#include <array>
#include <cstdint>
#include <span>

namespace bic::gk {

class ARC4RandomSource {
public:
    /// Keyed with `seed` (1…256 bytes; an empty seed is keyed as one zero byte).
    explicit ARC4RandomSource(std::span<const std::uint8_t> seed);

    std::uint8_t nextByte();
    std::uint32_t nextUInt32();
    /// Uniform in [0, 1) with 24 bits of precision.
    double nextUniform() { return double(nextUInt32() >> 8) * 0x1p-24; }
    /// Skips `count` bytes of the key stream.
    void dropValues(std::size_t count);

private:
    std::array<std::uint8_t, 256> state_;
    std::uint8_t i_ = 0, j_ = 0;
};

class RandomDistribution {
public:
    /// Integers lowest…highest (highest ≥ lowest) from `source`, which must outlive this.
    RandomDistribution(ARC4RandomSource& source, std::int64_t lowest, std::int64_t highest);
    std::int64_t nextInt();
    std::int64_t lowestValue() const { return lowest_; }
    std::int64_t highestValue() const { return highest_; }

private:
    ARC4RandomSource& source_;
    std::int64_t lowest_, highest_;
};

class GaussianDistribution {
public:
    GaussianDistribution(ARC4RandomSource& source, std::int64_t lowest, std::int64_t highest);
    std::int64_t nextInt();
    double mean() const { return mean_; }
    double deviation() const { return deviation_; }

private:
    ARC4RandomSource& source_;
    std::int64_t lowest_, highest_;
    double mean_, deviation_;
    double spare_ = 0;
    bool hasSpare_ = false;
};

} // namespace bic::gk
