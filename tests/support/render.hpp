#pragma once
// Rendering helpers for tests that read single channels back from the engine.

#include "bic/platform/ci/context.hpp"

#include <vector>

namespace bic::test_support {

/// The red channel of `rect` (rows top first) as the engine renders it in floats.
inline std::vector<float> reds(const ci::Image& image, const cg::Rect& rect) {
    const auto w = std::int64_t(rect.width()), h = std::int64_t(rect.height());
    std::vector<float> px(std::size_t(w * h * 4)), out;
    ci::Context().render(image, px.data(), w * 16, rect, ci::Format::RGBAf);
    for (std::size_t i = 0; i < px.size(); i += 4)
        out.push_back(px[i]);
    return out;
}

/// An opaque grey image of `values` (rows top first, `width` a row) at the origin.
inline ci::Image greyImage(const std::vector<float>& values, std::int64_t width) {
    std::vector<float> rgba;
    for (float g : values)
        rgba.insert(rgba.end(), {g, g, g, 1});
    return *ci::Image::fromBitmap(rgba.data(), width * 16, width,
                                  std::int64_t(values.size()) / width, ci::Format::RGBAf);
}

} // namespace bic::test_support
