#include "bic/platform/io/pixel_io.hpp"

#include "bic/platform/core/vector_clones.hpp"
#include "bic/platform/io/surface.hpp"

#include <array>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace bic::io {

namespace {

const std::array<float, 256>& byteToFloat() {
    static const std::array<float, 256> table = [] {
        std::array<float, 256> t{};
        for (int i = 0; i < 256; ++i)
            t[i] = float(i) / 255.0f;
        return t;
    }();
    return table;
}

inline float clamp01(float v) { return v > 0 ? (v < 1 ? v : 1.0f) : 0.0f; } // NaN → 0

inline std::uint8_t to8(float v) { return std::uint8_t(clamp01(v) * 255.0f + 0.5f); }
inline std::uint16_t to16(float v) { return std::uint16_t(clamp01(v) * 65535.0f + 0.5f); }

#if defined(__SSE2__)
// Four pixels at a time. The arithmetic is the scalar rule's, operation for operation (a true
// division by 255; clamp, scale, add ½, truncate), so both give the same bits.

// The lane of a pixel's bytes that holds memory byte `position`, as a shuffle selector.
template <int R, int G, int B, int A>
constexpr int memoryOrder() { // output lane p = channel stored at memory position p
    int lane[4] = {};
    lane[R] = 0, lane[G] = 1, lane[B] = 2, lane[A] = 3;
    return _MM_SHUFFLE(lane[3], lane[2], lane[1], lane[0]);
}

template <int R, int G, int B, int A>
void read8888(const std::uint8_t* s, float* o, std::int64_t n) {
    const __m128 levels = _mm_set1_ps(255.0f);
    const __m128i zero = _mm_setzero_si128();
    std::int64_t i = 0;
    for (; i + 4 <= n; i += 4, s += 16, o += 16) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s));
        const __m128i low = _mm_unpacklo_epi8(bytes, zero), high = _mm_unpackhi_epi8(bytes, zero);
        const __m128i words[4] = {_mm_unpacklo_epi16(low, zero), _mm_unpackhi_epi16(low, zero),
                                  _mm_unpacklo_epi16(high, zero), _mm_unpackhi_epi16(high, zero)};
        for (int k = 0; k < 4; ++k) {
            const __m128 v = _mm_div_ps(_mm_cvtepi32_ps(words[k]), levels); // memory order
            _mm_storeu_ps(o + 4 * k, _mm_shuffle_ps(v, v, _MM_SHUFFLE(A, B, G, R)));
        }
    }
    const auto& t = byteToFloat();
    for (; i < n; ++i, s += 4, o += 4) {
        o[0] = t[s[R]];
        o[1] = t[s[G]];
        o[2] = t[s[B]];
        o[3] = t[s[A]];
    }
}

template <int R, int G, int B, int A>
void write8888(const float* in, std::uint8_t* d, std::int64_t n) {
    const __m128 zero = _mm_setzero_ps(), one = _mm_set1_ps(1.0f), levels = _mm_set1_ps(255.0f),
                 half = _mm_set1_ps(0.5f);
    constexpr int order = memoryOrder<R, G, B, A>();
    std::int64_t i = 0;
    for (; i + 4 <= n; i += 4, in += 16, d += 16) {
        __m128i q[4];
        for (int k = 0; k < 4; ++k) {
            __m128 v = _mm_loadu_ps(in + 4 * k);
            v = _mm_shuffle_ps(v, v, order);
            // max(v, 0) gives its second operand for NaN: NaN writes 0, as the scalar rule.
            v = _mm_min_ps(_mm_max_ps(v, zero), one);
            q[k] = _mm_cvttps_epi32(_mm_add_ps(_mm_mul_ps(v, levels), half));
        }
        const __m128i words = _mm_packs_epi32(q[0], q[1]), more = _mm_packs_epi32(q[2], q[3]);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(d), _mm_packus_epi16(words, more));
    }
    for (; i < n; ++i, in += 4, d += 4) {
        d[R] = to8(in[0]);
        d[G] = to8(in[1]);
        d[B] = to8(in[2]);
        d[A] = to8(in[3]);
    }
}
#else
template <int R, int G, int B, int A>
void read8888(const std::uint8_t* s, float* o, std::int64_t n) {
    const auto& t = byteToFloat();
    for (std::int64_t i = 0; i < n; ++i, s += 4, o += 4) {
        o[0] = t[s[R]];
        o[1] = t[s[G]];
        o[2] = t[s[B]];
        o[3] = t[s[A]];
    }
}

template <int R, int G, int B, int A>
void write8888(const float* in, std::uint8_t* d, std::int64_t n) {
    for (std::int64_t i = 0; i < n; ++i, in += 4, d += 4) {
        d[R] = to8(in[0]);
        d[G] = to8(in[1]);
        d[B] = to8(in[2]);
        d[A] = to8(in[3]);
    }
}
#endif

} // namespace

BIC_VECTOR_CLONES void readRow(Format format, const std::uint8_t* src, float* out, std::int64_t n) {
    switch (format) {
    case Format::ARGB8:
        return read8888<1, 2, 3, 0>(src, out, n);
    case Format::BGRA8:
        return read8888<2, 1, 0, 3>(src, out, n);
    case Format::RGBA8:
        return read8888<0, 1, 2, 3>(src, out, n);
    case Format::L8: {
        const auto& t = byteToFloat();
        for (std::int64_t i = 0; i < n; ++i, out += 4) {
            out[0] = out[1] = out[2] = t[src[i]];
            out[3] = 1;
        }
        return;
    }
    case Format::RGBA16: {
        std::uint16_t v[4];
        for (std::int64_t i = 0; i < n; ++i, src += 8, out += 4) {
            std::memcpy(v, src, 8);
            for (int c = 0; c < 4; ++c)
                out[c] = float(v[c]) / 65535.0f;
        }
        return;
    }
    case Format::L16: {
        std::uint16_t v;
        for (std::int64_t i = 0; i < n; ++i, src += 2, out += 4) {
            std::memcpy(&v, src, 2);
            out[0] = out[1] = out[2] = float(v) / 65535.0f;
            out[3] = 1;
        }
        return;
    }
    case Format::RGBAf:
        std::memcpy(out, src, std::size_t(n) * 16);
        return;
    case Format::Lf:
    case Format::Rf: {
        float v;
        for (std::int64_t i = 0; i < n; ++i, src += 4, out += 4) {
            std::memcpy(&v, src, 4);
            out[0] = v;
            out[1] = out[2] = format == Format::Lf ? v : 0.0f;
            out[3] = 1;
        }
        return;
    }
    }
}

BIC_VECTOR_CLONES void writeRow(Format format, const float* in, std::uint8_t* dst, std::int64_t n) {
    switch (format) {
    case Format::ARGB8:
        return write8888<1, 2, 3, 0>(in, dst, n);
    case Format::BGRA8:
        return write8888<2, 1, 0, 3>(in, dst, n);
    case Format::RGBA8:
        return write8888<0, 1, 2, 3>(in, dst, n);
    case Format::L8:
        for (std::int64_t i = 0; i < n; ++i, in += 4)
            dst[i] = to8(in[0]);
        return;
    case Format::RGBA16: {
        std::uint16_t v[4];
        for (std::int64_t i = 0; i < n; ++i, in += 4, dst += 8) {
            for (int c = 0; c < 4; ++c)
                v[c] = to16(in[c]);
            std::memcpy(dst, v, 8);
        }
        return;
    }
    case Format::L16:
        for (std::int64_t i = 0; i < n; ++i, in += 4, dst += 2) {
            const std::uint16_t v = to16(in[0]);
            std::memcpy(dst, &v, 2);
        }
        return;
    case Format::RGBAf:
        std::memcpy(dst, in, std::size_t(n) * 16);
        return;
    case Format::Lf:
    case Format::Rf:
        for (std::int64_t i = 0; i < n; ++i, in += 4, dst += 4)
            std::memcpy(dst, in, 4);
        return;
    }
}

} // namespace bic::io

namespace bic::io {

std::optional<Format> formatOfSurfaceCode(std::uint32_t code) {
    namespace sf = surface_format;
    switch (code) {
    case sf::argb8:
        return Format::ARGB8;
    case sf::bgra8:
        return Format::BGRA8;
    case sf::gray8:
        return Format::L8;
    case sf::rgba16:
        return Format::RGBA16;
    case sf::gray16:
        return Format::L16;
    case sf::rgbaf:
        return Format::RGBAf;
    case sf::grayf:
        return Format::Lf;
    default:
        return std::nullopt;
    }
}

} // namespace bic::io
