#pragma once
// The accessor path between depths: through the normalised float with rounding, so that 8-bit
// 255 reads as 16-bit 65535. All arithmetic is 32-bit float; round is half away from zero.
//
// Integer accessors of float components read NaN as 0, and float setters of integer components
// store NaN as 0: a NaN is no colour, and an accessor has no way to refuse it.

#include "bic/pixels/component_type.hpp"

#include <cmath>

namespace bic::scaling {

template <ComponentTypeProtocol T>
inline constexpr float scaleOf = static_cast<float>(Component<T>::whiteValue);

/// round(min(x / from, 1) × to), for integer levels between integer scales.
inline float rescale(float x, float from, float to) {
    const float n = x / from;
    return std::round((n < 1.0f ? n : 1.0f) * to);
}

/// A stored component read at an integer scale D (255 or 65535).
template <ComponentTypeProtocol T>
inline float readLevel(T v, float d) {
    if constexpr (std::same_as<T, float>) {
        if (!(v >= 0)) return 0; // negative or NaN
        return std::round((v < 1.0f ? v : 1.0f) * d);
    } else {
        return scaleOf<T> == d ? static_cast<float>(v)
                               : rescale(static_cast<float>(v), scaleOf<T>, d);
    }
}

/// An integer level of scale D stored as a component.
template <ComponentTypeProtocol T>
inline T writeLevel(float x, float d) {
    if constexpr (std::same_as<T, float>) {
        return x / d;
    } else {
        return static_cast<T>(scaleOf<T> == d ? x : rescale(x, d, scaleOf<T>));
    }
}

template <ComponentTypeProtocol T>
inline float readFloat(T v) {
    if constexpr (std::same_as<T, float>)
        return v;
    else
        return static_cast<float>(v) / scaleOf<T>;
}

/// Normalised float stored as a component: integer formats clamp to 0…1 and round.
template <ComponentTypeProtocol T>
inline T writeFloat(float x) {
    if constexpr (std::same_as<T, float>) {
        return x;
    } else {
        const float c = x > 0 ? (x < 1 ? x : 1.0f) : 0.0f; // NaN → 0
        return static_cast<T>(std::round(c * scaleOf<T>));
    }
}

} // namespace bic::scaling
