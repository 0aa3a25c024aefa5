#include "bic/platform/gk/random.hpp"

#include "bic/platform/core/fatal.hpp"

#include <cmath>
#include <numeric>
#include <utility>

namespace bic::gk {

ARC4RandomSource::ARC4RandomSource(std::span<const std::uint8_t> seed) {
    static constexpr std::uint8_t zero = 0;
    if (seed.empty()) seed = std::span(&zero, 1);
    precondition(seed.size() <= 256, "An ARC4 key holds at most 256 bytes.");
    std::iota(state_.begin(), state_.end(), std::uint8_t{0});
    std::uint8_t j = 0;
    for (std::size_t i = 0; i < 256; ++i) {
        j = std::uint8_t(j + state_[i] + seed[i % seed.size()]);
        std::swap(state_[i], state_[j]);
    }
}

std::uint8_t ARC4RandomSource::nextByte() {
    i_ = std::uint8_t(i_ + 1);
    j_ = std::uint8_t(j_ + state_[i_]);
    std::swap(state_[i_], state_[j_]);
    return state_[std::uint8_t(state_[i_] + state_[j_])];
}

std::uint32_t ARC4RandomSource::nextUInt32() {
    std::uint32_t v = 0;
    for (int k = 0; k < 4; ++k)
        v = (v << 8) | nextByte();
    return v;
}

void ARC4RandomSource::dropValues(std::size_t count) {
    while (count-- > 0)
        nextByte();
}

RandomDistribution::RandomDistribution(ARC4RandomSource& source, std::int64_t lowest,
                                       std::int64_t highest)
    : source_(source), lowest_(lowest), highest_(highest) {
    precondition(highest >= lowest && highest - lowest < (std::int64_t(1) << 32),
                 "A random distribution needs lowest ≤ highest within 2^32 values.");
}

std::int64_t RandomDistribution::nextInt() {
    const std::uint64_t range = std::uint64_t(highest_ - lowest_) + 1;
    // The largest multiple of `range` that 32 bits hold; draws at or above it would favour the
    // low values.
    const std::uint64_t limit = ((std::uint64_t(1) << 32) / range) * range;
    std::uint64_t v;
    do
        v = source_.nextUInt32();
    while (v >= limit);
    return lowest_ + std::int64_t(v % range);
}

GaussianDistribution::GaussianDistribution(ARC4RandomSource& source, std::int64_t lowest,
                                           std::int64_t highest)
    : source_(source), lowest_(lowest), highest_(highest),
      mean_((double(lowest) + double(highest)) / 2),
      deviation_((double(highest) - double(lowest)) / 6) {
    precondition(highest >= lowest, "A Gaussian distribution needs lowest ≤ highest.");
}

std::int64_t GaussianDistribution::nextInt() {
    for (;;) {
        double z;
        if (hasSpare_) {
            z = spare_;
            hasSpare_ = false;
        } else {
            double u, v, s;
            do {
                u = 2 * source_.nextUniform() - 1;
                v = 2 * source_.nextUniform() - 1;
                s = u * u + v * v;
            } while (s >= 1 || s == 0);
            const double k = std::sqrt(-2 * std::log(s) / s);
            z = u * k;
            spare_ = v * k;
            hasSpare_ = true;
        }
        const auto value = std::int64_t(std::llround(mean_ + z * deviation_));
        if (value >= lowest_ && value <= highest_) return value;
    }
}

} // namespace bic::gk
