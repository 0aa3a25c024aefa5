#pragma once
// Generated stand-ins for photographs, shared by the tool's demo and the benchmarks: smooth
// shading with a few edges and a little sensor-like noise, so that prediction and deflate see
// what they would see in a photograph rather than a flat or random plane.

#include "bic/buffers/pixel_buffer.hpp"

#include <cmath>
#include <cstdint>
#include <random>

namespace bic::synthetic {

/// An opaque photo-like picture, identical for equal sizes and seeds, drawn at full float
/// precision and then stored in P (premultiplied, mostly opaque, with one soft translucent
/// disc so alpha is not constant).
template <Pixel P>
PixelBuffer<P> photoLike(std::int64_t width, std::int64_t height, unsigned seed = 1) {
    PixelBuffer<P> buffer(IntegralSize(width, height), P::deviceColorSpace(), "photo");
    std::mt19937 random(seed);
    std::normal_distribution<float> noise(0.0f, 1.2f / 255.0f);
    const float w = float(width), h = float(height);
    buffer.withUnsafeBuffer([&](std::span<P> pixels) {
        for (std::int64_t row = 0; row < height; ++row) {
            const float v = float(row) / h;
            for (std::int64_t col = 0; col < width; ++col) {
                const float u = float(col) / w;
                // Sky-to-ground shading, a few broad waves and a hard horizon.
                float r = 0.35f + 0.25f * std::sin(3.1f * u + 1.3f * v) + 0.1f * std::cos(9 * v);
                float g = 0.45f + 0.2f * std::sin(2.3f * u - 2.0f * v + 0.5f);
                float b = 0.55f + 0.3f * std::cos(1.7f * u + 2.9f * v);
                if (v > 0.62f + 0.05f * std::sin(7 * u)) r *= 0.6f, g *= 0.8f, b *= 0.45f;
                const float du = u - 0.7f, dv = v - 0.3f;
                const float disc =
                    std::clamp((0.15f - std::sqrt(du * du + dv * dv)) * 40, 0.f, 1.f);
                const float a = 1.0f - 0.5f * disc;
                auto channel = [&](float c) { return std::clamp(c + noise(random), 0.0f, 1.0f); };
                P& p = pixels[std::size_t(row * buffer.pixelsPerRow() + col)];
                if constexpr (RGBAPixel<P>)
                    p = P::withRGBA(channel(r) * a, channel(g) * a, channel(b) * a, a);
                else
                    p = P::withGray(channel(0.3f * r + 0.59f * g + 0.11f * b));
            }
        }
    });
    return buffer;
}

} // namespace bic::synthetic
