#pragma once
// The fuzzers' view of their input: bytes consumed front to back, reads past the end giving
// zeros, so every input is a complete description of a case.

#include <algorithm>
#include <cstdint>
#include <span>

namespace bic::fuzzing {

struct Input {
    std::span<const std::uint8_t> bytes;
    std::uint8_t byte() {
        if (bytes.empty()) return 0;
        const std::uint8_t b = bytes[0];
        bytes = bytes.subspan(1);
        return b;
    }
    std::span<const std::uint8_t> take(std::size_t n) {
        n = std::min(n, bytes.size());
        auto out = bytes.first(n);
        bytes = bytes.subspan(n);
        return out;
    }
};

} // namespace bic::fuzzing
