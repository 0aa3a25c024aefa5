#pragma once
// Checked signed 64-bit arithmetic: sizes and coordinates never wrap silently.

#include "bic/platform/core/fatal.hpp"

#include <cstdint>

namespace bic::checked {

inline std::int64_t add(std::int64_t a, std::int64_t b) {
    std::int64_t r;
    if (__builtin_add_overflow(a, b, &r)) [[unlikely]]
        fatalError("Integer overflow in addition.");
    return r;
}

inline std::int64_t sub(std::int64_t a, std::int64_t b) {
    std::int64_t r;
    if (__builtin_sub_overflow(a, b, &r)) [[unlikely]]
        fatalError("Integer overflow in subtraction.");
    return r;
}

inline std::int64_t mul(std::int64_t a, std::int64_t b) {
    std::int64_t r;
    if (__builtin_mul_overflow(a, b, &r)) [[unlikely]]
        fatalError("Integer overflow in multiplication.");
    return r;
}

inline std::int64_t neg(std::int64_t a) { return sub(0, a); }

inline std::int64_t abs(std::int64_t a) { return a < 0 ? neg(a) : a; }

} // namespace bic::checked
