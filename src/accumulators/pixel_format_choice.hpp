#pragma once
// What the accumulators share: the pixel format by bit depth and kind, failure handling of the
// whole-image setters, and pixel addressing.

#include "bic/pixels/pixel_format_list.hpp"
#include "bic/platform/core/fatal.hpp"

#include <exception>
#include <type_traits>

namespace bic::detail {

/// Calls body(std::type_identity<P>()) with ARGB8, RGBA16 or RGBA32 for colour and the grey
/// formats for masks; another depth stops the process.
template <class Body>
decltype(auto) withAccumulatorFormat(int bitDepth, bool isMask, Body&& body) {
    return withPixelFormat(isMask ? cg::ColorSpaceModel::monochrome : cg::ColorSpaceModel::rgb,
                           bitDepth, std::forward<Body>(body));
}

/// Runs `render`, dropping any failure it reports (render, kernel, allocation or lock errors
/// alike): the accumulators' whole-image setters ignore failures.
template <class F>
void ignoringFailures(F&& render) {
    try {
        render();
    } catch (const std::exception&) {
    }
}

/// Column and memory row of image pixel (x, y) in a store over `extent` that is `height` rows
/// tall; stops with "Cannot <verb> pixel at x: …, y: …" outside `width` × `height`.
std::int64_t storeIndex(const cg::Rect& extent, std::int64_t width, std::int64_t height,
                        std::int64_t pixelsPerRow, std::int64_t x, std::int64_t y,
                        const char* verb);

} // namespace bic::detail
