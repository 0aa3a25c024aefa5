#pragma once
// Checked signed 64-bit arithmetic: sizes and coordinates never wrap silently.

#include "bic/platform/core/fatal.hpp"

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace bic::checked {

#ifdef BIC_BOUNDS_CHECKS
inline constexpr bool kBoundsChecks = true;
#else
inline constexpr bool kBoundsChecks = false;
#endif

/// In builds with bounds checks (the sanitizer preset), stops when `index` lies outside
/// 0…count − 1; costs nothing otherwise. For the row accessors of pixel loops, where an index
/// one off reads a neighbour's memory without any sanitizer noticing.
inline void index(std::int64_t index, std::int64_t count, std::string_view what) {
    if constexpr (kBoundsChecks)
        if (index < 0 || index >= count) [[unlikely]]
            fatalError(std::string(what) + " index " + std::to_string(index) + " is outside 0…" +
                       std::to_string(count - 1) + ".");
}

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

/// `v` as a signed 64-bit value; an unsigned value above 2^63 − 1 stops instead of wrapping.
template <std::integral T>
constexpr std::int64_t exact(T v) {
    if (!std::in_range<std::int64_t>(v)) [[unlikely]]
        fatalError("Integer overflow in conversion.");
    return static_cast<std::int64_t>(v);
}

inline std::int64_t abs(std::int64_t a) { return a < 0 ? neg(a) : a; }

} // namespace bic::checked
