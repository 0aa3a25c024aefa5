#pragma once
// The pixel loops shared by the owned and the surface-backed buffers. Both keep rows top row
// first, `pixelsPerRow` apart; they differ only in where the memory lives and how access to it
// is bracketed, which the callers handle.

#include "bic/buffers/channel_data.hpp"
#include "bic/buffers/pixel_buffer.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/platform/cg/color_transform.hpp"
#include "bic/platform/core/checked.hpp"
#include "bic/platform/core/memory.hpp"
#include "bic/platform/core/pixel_math.hpp"

#include <algorithm>
#include <exception>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <vector>

namespace bic::detail {

template <Pixel P>
using ComponentOf = typename P::ComponentType;

/// A window on pixel memory: `size` pixels, rows top first.
template <class P>
struct PixelRows {
    P* base;
    std::int64_t pixelsPerRow;
    IntegralSize size;

    P* row(std::int64_t memoryRow) const {
        checked::index(memoryRow, size.height, "Pixel row");
        return base + memoryRow * pixelsPerRow;
    }
    /// The memory row of image row y (origin at the bottom left).
    std::int64_t memoryRow(std::int64_t y) const { return flippedRow(y, size.height); }
};

// Component k of a pixel in memory order; the formats are arrays of their component type.
template <Pixel P>
ComponentOf<P>* components(P* p) {
    return reinterpret_cast<ComponentOf<P>*>(p);
}

// Index of the stored plane (red, green, blue, alpha) that memory component k comes from: only
// the 8-bit format keeps alpha first.
template <Pixel P>
constexpr int planeOf(int k) {
    if constexpr (P::alphaInfo == PixelAlphaInfo::first)
        return (k + 3) % 4;
    else
        return k;
}

template <Pixel P>
constexpr int componentOfPlane(int plane) {
    int k = 0;
    while (planeOf<P>(k) != plane)
        ++k;
    return k;
}

/// The stored planes of a buffer of `size`, checked: throws parameterError for planes of the
/// wrong component type or count. Nothing is decoded yet.
template <Pixel P>
std::vector<ChannelData<ComponentOf<P>>> checkedPlanes(IntegralSize size,
                                                       std::vector<AnyChannelData> channels) {
    using T = ComponentOf<P>;
    if (size.width < 1 || size.height < 1 || std::int64_t(channels.size()) != P::componentCount)
        throw ImageCoreError(ImageCoreError::parameterError);
    std::vector<ChannelData<T>> planes;
    for (auto& any : channels) {
        auto* plane = std::get_if<ChannelData<T>>(&any);
        if (!plane) throw ImageCoreError(ImageCoreError::parameterError);
        planes.push_back(std::move(*plane));
    }
    return planes;
}

/// Decodes the planes (in parallel, each straight into memory of its own that is never
/// zeroed) and interleaves them into the pixels, bands of rows in parallel. Throws the planes'
/// errors, or a 16-bit expansion error, with the pixels partly written: callers write into
/// memory nobody else sees yet.
template <Pixel P>
void decodeInterleaved(const PixelRows<P>& out,
                       const std::vector<ChannelData<ComponentOf<P>>>& planes,
                       bool expand16BitColorRange) {
    using T = ComponentOf<P>;
    constexpr int n = P::componentCount;
    const std::int64_t w = out.size.width, h = out.size.height;
    const std::size_t planeBytes = std::size_t(w * h) * sizeof(T);
    std::vector<std::shared_ptr<std::uint8_t[]>> decoded(planes.size());
    std::vector<std::exception_ptr> failures(planes.size());
    tbb::parallel_for(std::size_t(0), planes.size(), [&](std::size_t i) {
        try {
            decoded[i] = uninitializedBuffer(planeBytes);
            planes[i].decodeInto(w, h, std::span(decoded[i].get(), planeBytes));
        } catch (...) {
            failures[i] = std::current_exception();
        }
    });
    for (const auto& failure : failures)
        if (failure) std::rethrow_exception(failure);
    const T* sources[n];
    for (int k = 0; k < n; ++k)
        sources[k] = reinterpret_cast<const T*>(decoded[std::size_t(planeOf<P>(k))].get());
    tbb::parallel_for(tbb::blocked_range<std::int64_t>(0, h, 64),
                      [&](const tbb::blocked_range<std::int64_t>& rows) {
                          for (std::int64_t r = rows.begin(); r < rows.end(); ++r) {
                              T* dst = components(out.row(r));
                              for (int k = 0; k < n; ++k) {
                                  const T* src = sources[k] + r * w;
                                  if constexpr (std::is_same_v<T, std::uint16_t>) {
                                      if (expand16BitColorRange) {
                                          for (std::int64_t x = 0; x < w; ++x)
                                              dst[x * n + k] = expanded16BitValue(src[x]);
                                          continue;
                                      }
                                  }
                                  for (std::int64_t x = 0; x < w; ++x)
                                      dst[x * n + k] = src[x];
                              }
                          }
                      });
}

/// One compressed plane per component in stored order (red, green, blue, alpha, or grey),
/// coded in parallel. When a plane fails the others are still coded and the last error thrown.
template <Pixel P>
std::vector<AnyChannelData> compressedPlanes(const PixelRows<const P>& in, bool reduce16,
                                             ChannelDataCompressionType compression,
                                             PredictionType prediction, bool discard) {
    using T = ComponentOf<P>;
    const std::int64_t w = in.size.width, h = in.size.height;
    std::vector<ChannelData<T>> planes(P::componentCount);
    std::vector<std::exception_ptr> failures(P::componentCount);
    tbb::parallel_for(0, P::componentCount, [&](int plane) {
        const int k = componentOfPlane<P>(plane);
        std::vector<std::uint8_t> bytes = zeroedBuffer(std::size_t(w * h) * sizeof(T));
        T* samples = reinterpret_cast<T*>(bytes.data());
        for (std::int64_t r = 0; r < h; ++r) {
            const T* src = reinterpret_cast<const T*>(in.row(r)) + k;
            T* dst = samples + r * w;
            for (std::int64_t x = 0; x < w; ++x) {
                T v = src[x * P::componentCount];
                if constexpr (std::is_same_v<T, std::uint16_t>)
                    if (reduce16) v = reduced16BitValue(v);
                dst[x] = v;
            }
        }
        planes[std::size_t(plane)] = ChannelData<T>(std::move(bytes), false);
        try {
            planes[std::size_t(plane)].compress(compression, prediction, w, h, discard);
        } catch (...) {
            failures[std::size_t(plane)] = std::current_exception();
        }
    });
    for (auto it = failures.rbegin(); it != failures.rend(); ++it)
        if (*it) std::rethrow_exception(*it);
    return {std::make_move_iterator(planes.begin()), std::make_move_iterator(planes.end())};
}

/// The smallest rectangle (bottom-left origin) of pixels whose trim component is not zero.
template <Pixel P>
cg::Rect visibleExtent(const PixelRows<const P>& in) {
    std::int64_t x0 = in.size.width, x1 = -1, y0 = in.size.height, y1 = -1;
    for (std::int64_t y = 0; y < in.size.height; ++y) {
        const P* row = in.row(in.memoryRow(y));
        for (std::int64_t x = 0; x < in.size.width; ++x) {
            if (row[x].trimComponent() == ComponentOf<P>(0)) continue;
            x0 = std::min(x0, x), x1 = std::max(x1, x), y0 = std::min(y0, y), y1 = std::max(y1, y);
        }
    }
    return x1 < 0 ? cg::Rect::zero()
                  : cg::Rect(double(x0), double(y0), double(x1 - x0 + 1), double(y1 - y0 + 1));
}

template <Pixel P>
cg::Rect trimmedExtent(const PixelRows<const P>& in, const P& background) {
    const std::int64_t w = in.size.width, h = in.size.height;
    auto rowIsBackground = [&](std::int64_t memoryRow) {
        const P* row = in.row(memoryRow);
        return std::all_of(row, row + w, [&](const P& p) { return p == background; });
    };
    std::int64_t top = 0;
    while (top < h && rowIsBackground(top))
        ++top;
    if (top == h) return cg::Rect(0, 0, double(w), 0);
    std::int64_t bottom = h - 1;
    while (bottom > top && rowIsBackground(bottom))
        --bottom;
    auto columnIsBackground = [&](std::int64_t x) {
        for (std::int64_t r = top; r <= bottom; ++r)
            if (!(in.row(r)[x] == background)) return false;
        return true;
    };
    std::int64_t left = 0;
    while (columnIsBackground(left))
        ++left;
    std::int64_t right = w - 1;
    while (right > left && columnIsBackground(right))
        --right;
    // Memory rows top…bottom are image rows h − 1 − bottom … h − 1 − top.
    return cg::Rect(double(left), double(flippedRow(bottom, h)), double(right - left + 1),
                    double(bottom - top + 1));
}

template <Pixel P>
bool everyPixelIs(const PixelRows<const P>& in, const P& value) {
    for (std::int64_t r = 0; r < in.size.height; ++r) {
        const P* row = in.row(r);
        if (!std::all_of(row, row + in.size.width, [&](const P& p) { return p == value; }))
            return false;
    }
    return true;
}

template <Pixel P>
bool equalPixels(const PixelRows<const P>& a, const PixelRows<const P>& b) {
    if (!(a.size == b.size)) return false;
    for (std::int64_t r = 0; r < a.size.height; ++r)
        if (!std::equal(a.row(r), a.row(r) + a.size.width, b.row(r))) return false;
    return true;
}

/// Colours unpremultiplied, matched by `transform` and premultiplied again, row by row.
template <Pixel P>
void matchColors(const PixelRows<const P>& in, const PixelRows<P>& out,
                 const cg::ColorTransform& transform) {
    constexpr int n = RGBAPixel<P> ? 3 : 1;
    const std::int64_t w = in.size.width;
    std::vector<float> src(static_cast<std::size_t>(w * n)), matched(src.size()),
        alpha(static_cast<std::size_t>(w));
    for (std::int64_t r = 0; r < in.size.height; ++r) {
        const P* a = in.row(r);
        P* b = out.row(r);
        for (std::int64_t x = 0; x < w; ++x) {
            if constexpr (RGBAPixel<P>) {
                const float al = a[x].alpha();
                const float k = al > 0 ? 1 / al : 0;
                alpha[std::size_t(x)] = al;
                src[std::size_t(3 * x)] = a[x].red() * k;
                src[std::size_t(3 * x + 1)] = a[x].green() * k;
                src[std::size_t(3 * x + 2)] = a[x].blue() * k;
            } else {
                src[std::size_t(x)] = a[x].gray();
            }
        }
        transform.apply(src.data(), matched.data(), std::size_t(w));
        for (std::int64_t x = 0; x < w; ++x) {
            if constexpr (RGBAPixel<P>) {
                const float al = alpha[std::size_t(x)];
                const float* c = matched.data() + 3 * x;
                b[x] = P::withRGBA(c[0] * al, c[1] * al, c[2] * al, al);
            } else {
                b[x] = P::withGray(matched[std::size_t(x)]);
            }
        }
    }
}

/// Writes the stored record of `buffer`: planes predicted with "Sub" and deflated, or kept
/// plain where deflate does not make them smaller.
void encodeRecordHeader(coding::KeyedEncoder& record, IntegralSize size, cg::ColorSpaceModel model,
                        int bitDepth);

template <class Buffer>
void encodeRecord(IntegralSize size, cg::ColorSpaceModel model, int bitDepth, const Buffer& buffer,
                  coding::Encoder& encoder) {
    using T = ComponentOf<typename Buffer::Element>;
    auto planes = buffer.compressedChannels(false, ChannelDataCompressionType::zip,
                                            PredictionType::sub, true);
    std::vector<ChannelData<T>> typed;
    typed.reserve(planes.size());
    for (auto& plane : planes)
        typed.push_back(std::move(std::get<ChannelData<T>>(plane)));
    auto record = encoder.keyed();
    encodeRecordHeader(record, size, model, bitDepth);
    record.encode("Channels", typed);
}

} // namespace bic::detail
