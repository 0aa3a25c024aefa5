#pragma once
// The scanline segment fill: a 4-connected flood from a seed into a mask, over any pixel format.
//
// Spans are filled a row at a time; every run found on a row pushes the span to explore next in
// the same direction and, where the run reaches past its parent, the spans to explore back
// towards the parent's row (U-turns). Parent bounds are kept one column outside the parent run,
// so those U-turn spans never re-examine the columns that stopped the parent. A pixel is taken
// when its mask is still 0 and it matches: the mask is tested first, so a filled pixel's source
// is never read again.

#include "bic/pixels/pixel.hpp"

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <vector>

namespace bic::detail {

struct ScanlineSegment {
    std::int64_t left, right, parentLeft, parentRight, row, direction;
};

/// The largest absolute component difference, in P's own units (alpha included).
template <Pixel P>
auto componentDistance(const P& a, const P& b) {
    using T = typename P::ComponentType;
    const auto x = std::bit_cast<std::array<T, P::componentCount>>(a);
    const auto y = std::bit_cast<std::array<T, P::componentCount>>(b);
    if constexpr (std::is_floating_point_v<T>) {
        float d = 0;
        for (int i = 0; i < P::componentCount; ++i)
            d = std::max(d, std::fabs(x[std::size_t(i)] - y[std::size_t(i)]));
        return d;
    } else {
        std::int32_t d = 0;
        for (int i = 0; i < P::componentCount; ++i)
            d = std::max(
                d, std::abs(std::int32_t(x[std::size_t(i)]) - std::int32_t(y[std::size_t(i)])));
        return d;
    }
}

/// The distance a pixel may be from the seed colour: integer levels for 8- and 16-bit formats
/// (round(clamp(t, 0, 1) × max), half away from zero), the tolerance itself for floats. NaN
/// matches nothing.
template <Pixel P>
auto toleranceFor(float tolerance) {
    using T = typename P::ComponentType;
    if constexpr (std::is_floating_point_v<T>) {
        return tolerance;
    } else {
        if (std::isnan(tolerance)) return std::int32_t(-1);
        constexpr float top = std::is_same_v<T, std::uint8_t> ? 255.0f : 65535.0f;
        return std::int32_t(std::round(std::clamp(tolerance, 0.0f, 1.0f) * top));
    }
}

/// Fills from (seedX, seedRow) (memory rows, top first) within columns [minX, maxX) and rows
/// [minY, maxY); `matches(x, row, pixel)` decides the colour test. Mask samples are M; `filled`
/// is written.
template <Pixel P, class M, class Matches>
void scanlineFill(const P* source, std::int64_t sourceStride, M* mask, std::int64_t maskStride,
                  std::int64_t minX, std::int64_t maxX, std::int64_t minY, std::int64_t maxY,
                  std::int64_t seedX, std::int64_t seedRow, M filled, Matches&& matches) {
    auto taken = [&](std::int64_t x, std::int64_t row) {
        return mask[row * maskStride + x] == M(0) &&
               matches(x, row, source[row * sourceStride + x]);
    };
    auto fill = [&](std::int64_t x, std::int64_t row) { mask[row * maskStride + x] = filled; };
    if (!taken(seedX, seedRow)) return;
    fill(seedX, seedRow);
    std::int64_t l = seedX, r = seedX;
    while (l - 1 >= minX && taken(l - 1, seedRow))
        fill(--l, seedRow);
    while (r + 1 < maxX && taken(r + 1, seedRow))
        fill(++r, seedRow);
    std::vector<ScanlineSegment> stack;
    stack.reserve(512);
    stack.push_back({l, r, l, r, seedRow + 1, +1});
    stack.push_back({l, r, l, r, seedRow - 1, -1});
    while (!stack.empty()) {
        const ScanlineSegment s = stack.back();
        stack.pop_back();
        if (s.row < minY || s.row >= maxY) continue;
        auto emit = [&](std::int64_t a, std::int64_t b) {
            stack.push_back({a, b, a - 1, b + 1, s.row + s.direction, s.direction});
            if (s.parentRight < b)
                stack.push_back(
                    {s.parentRight + 1, b, a - 1, b + 1, s.row - s.direction, -s.direction});
            if (a < s.parentLeft)
                stack.push_back(
                    {a, s.parentLeft - 1, a - 1, b + 1, s.row - s.direction, -s.direction});
        };
        std::int64_t x = s.left, runStart = x;
        bool inRun = false;
        if (taken(x, s.row)) {
            fill(x, s.row);
            while (runStart - 1 >= minX && taken(runStart - 1, s.row))
                fill(--runStart, s.row);
            inRun = true;
        }
        bool finished = false;
        for (++x; x < maxX; ++x) {
            if (!inRun) {
                if (x > s.right) {
                    finished = true;
                    break;
                }
                if (taken(x, s.row)) {
                    fill(x, s.row);
                    runStart = x;
                    inRun = true;
                }
            } else if (taken(x, s.row)) {
                fill(x, s.row);
            } else {
                emit(runStart, x - 1);
                inRun = false;
            }
        }
        if (!finished && inRun) emit(runStart, maxX - 1);
    }
}

} // namespace bic::detail
