#pragma once
// Rectangles as the layered-document format stores them: top, left, bottom and right edges in
// pixels, y growing downwards from the document's top edge, bottom and right exclusive.
//
// The library's images have their origin at the bottom left with y growing upwards. Records keep
// the file's edges unchanged so that they are written back exactly; `imageRect` is the one place
// that converts.

#include "bic/geometry/integral_geometry.hpp"

#include <cstdint>

namespace bic {

struct DocumentRect {
    std::int32_t top = 0, left = 0, bottom = 0, right = 0;

    /// right − left and bottom − top; 0 when an edge lies before its opposite one.
    std::int64_t width() const { return right > left ? std::int64_t(right) - left : 0; }
    std::int64_t height() const { return bottom > top ? std::int64_t(bottom) - top : 0; }
    /// No pixels: a layer or mask with empty bounds stores empty channels.
    bool isEmpty() const { return width() == 0 || height() == 0; }

    friend bool operator==(const DocumentRect&, const DocumentRect&) = default;
};

/// The rectangle in image coordinates of a document `documentHeight` pixels tall:
/// (left, documentHeight − bottom, right − left, bottom − top).
inline IntegralRect imageRect(const DocumentRect& rect, std::int64_t documentHeight) {
    return IntegralRect(rect.left, documentHeight - rect.bottom, rect.width(), rect.height());
}

} // namespace bic
