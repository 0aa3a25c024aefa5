#pragma once
// Buffers of reproducible random pixels for the buffer tests.

#include "bic/buffers/pixel_buffer.hpp"
#include "bic/pixels/pixel_format_list.hpp"

#include <gtest/gtest.h>
#include <random>

namespace bic::test_support {

/// The six formats, for typed test suites.
using EachPixelFormat = PixelFormats::Apply<::testing::Types>;

/// Premultiplied colours with random alpha, or random greys.
template <Pixel P>
P randomPixel(std::mt19937& random) {
    if constexpr (RGBAPixel<P>) {
        const float a = float(random() % 256) / 255.0f;
        return P::withRGBA(a * float(random() % 256) / 255.0f, a * float(random() % 256) / 255.0f,
                           a * float(random() % 256) / 255.0f, a);
    } else {
        return P::withGray(float(random() % 1000) / 999.0f);
    }
}

template <Pixel P>
PixelBuffer<P> filled(std::int64_t w, std::int64_t h, unsigned seed) {
    PixelBuffer<P> b(IntegralSize(w, h), P::deviceColorSpace());
    std::mt19937 random(seed);
    b.withUnsafeBuffer([&](std::span<P> pixels) {
        for (auto& p : pixels)
            p = randomPixel<P>(random);
    });
    return b;
}

} // namespace bic::test_support
