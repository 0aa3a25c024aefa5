#pragma once
// The three component types of the pixel model (8-bit, 16-bit unsigned and 32-bit float) and
// the scaling between them.
//
// Two scaling paths exist on purpose. Generic component code (codecs, flood fill, prediction)
// moves between depths by shifting 8 bits: 255 becomes 65280 and 65535 becomes 255. Pixel
// accessors go through the normalised float instead (see pixel_scaling.hpp): 255 becomes 65535.

#include "bic/platform/core/fatal.hpp"

#include <bit>
#include <cmath>
#include <concepts>
#include <cstdint>

namespace bic {

template <class T>
concept ComponentTypeProtocol =
    std::same_as<T, std::uint8_t> || std::same_as<T, std::uint16_t> || std::same_as<T, float>;

/// The float rule: below 0 gives 0, otherwise min(f, 1) × M rounded half away from zero, all in
/// 32-bit float. NaN is a precondition violation.
template <std::uint32_t M>
inline std::uint32_t floatToLevel(float f) {
    precondition(!std::isnan(f), "Cannot convert NaN to a component level.");
    if (f < 0) return 0;
    return static_cast<std::uint32_t>(std::round((f < 1.0f ? f : 1.0f) * static_cast<float>(M)));
}

template <ComponentTypeProtocol T>
struct Component;

template <>
struct Component<std::uint8_t> {
    using Type = std::uint8_t;
    static constexpr Type whiteValue = 255;
    static constexpr int bitDepth = 8;
    static constexpr Type from8BitLevel(std::uint8_t v) { return v; }
    static constexpr Type from16BitLevel(std::uint16_t v) { return static_cast<Type>(v >> 8); }
    static Type fromFloatValue(float f) { return static_cast<Type>(floatToLevel<255>(f)); }
    static constexpr std::uint8_t as8BitLevel(Type v) { return v; }
    static constexpr std::uint16_t as16BitLevel(Type v) {
        return static_cast<std::uint16_t>(v << 8);
    }
    static constexpr float floatValue(Type v) { return static_cast<float>(v) / 255.0f; }
    static constexpr Type wrappingAdd(Type a, Type b) { return static_cast<Type>(a + b); }
    static constexpr Type wrappingSub(Type a, Type b) { return static_cast<Type>(a - b); }
};

template <>
struct Component<std::uint16_t> {
    using Type = std::uint16_t;
    static constexpr Type whiteValue = 65535;
    static constexpr int bitDepth = 16;
    static constexpr Type from8BitLevel(std::uint8_t v) { return static_cast<Type>(v << 8); }
    static constexpr Type from16BitLevel(std::uint16_t v) { return v; }
    static Type fromFloatValue(float f) { return static_cast<Type>(floatToLevel<65535>(f)); }
    static constexpr std::uint8_t as8BitLevel(Type v) { return static_cast<std::uint8_t>(v >> 8); }
    static constexpr std::uint16_t as16BitLevel(Type v) { return v; }
    static constexpr float floatValue(Type v) { return static_cast<float>(v) / 65535.0f; }
    static constexpr Type wrappingAdd(Type a, Type b) { return static_cast<Type>(a + b); }
    static constexpr Type wrappingSub(Type a, Type b) { return static_cast<Type>(a - b); }
};

template <>
struct Component<float> {
    using Type = float;
    static constexpr Type whiteValue = 1.0f;
    static constexpr int bitDepth = 32;
    static constexpr Type from8BitLevel(std::uint8_t v) { return static_cast<float>(v) / 255.0f; }
    static constexpr Type from16BitLevel(std::uint16_t v) {
        return static_cast<float>(v) / 65535.0f;
    }
    static constexpr Type fromFloatValue(float f) { return f; }
    static std::uint8_t as8BitLevel(Type v) {
        return static_cast<std::uint8_t>(floatToLevel<255>(v));
    }
    static std::uint16_t as16BitLevel(Type v) {
        return static_cast<std::uint16_t>(floatToLevel<65535>(v));
    }
    static constexpr float floatValue(Type v) { return v; }
    [[noreturn]] static Type wrappingAdd(Type, Type) {
        fatalError("Float32 componentes do not support overflowing addition.");
    }
    [[noreturn]] static Type wrappingSub(Type, Type) {
        fatalError("Float32 componentes do not support overflowing subtraction.");
    }
};

/// Component division; integer division truncates and a zero divisor is a precondition violation.
template <ComponentTypeProtocol T>
inline T divide(T a, T b) {
    if constexpr (std::is_integral_v<T>) {
        precondition(b != 0, "Division by zero.");
        return static_cast<T>(a / b);
    } else {
        return a / b;
    }
}

/// |a − b| without wrapping.
template <ComponentTypeProtocol T>
constexpr T absDifference(T a, T b) {
    return a > b ? static_cast<T>(a - b) : static_cast<T>(b - a);
}

/// Byte-order conversion between host order and big-endian order.
template <ComponentTypeProtocol T>
constexpr T bigEndian(T v) {
    if constexpr (std::endian::native == std::endian::big || sizeof(T) == 1) {
        return v;
    } else if constexpr (std::same_as<T, std::uint16_t>) {
        return static_cast<T>(v >> 8 | v << 8);
    } else {
        return std::bit_cast<float>(__builtin_bswap32(std::bit_cast<std::uint32_t>(v)));
    }
}

} // namespace bic
