#pragma once
// Rectangles waiting to be rendered again.

#include "bic/platform/cg/rect.hpp"

#include <cstddef>
#include <vector>

namespace bic {

/// The rectangles a render target still has to bring up to date. A rectangle inside one already
/// held adds nothing, one that holds others replaces them, and past `maximumCount` the set
/// collapses into its union, so a storm of small changes costs a bounded number of renders.
class DirtyRegion {
public:
    static constexpr std::size_t maximumCount = 32;

    void add(const cg::Rect& rect);
    bool isEmpty() const { return rects_.empty(); }
    const std::vector<cg::Rect>& rects() const { return rects_; }
    /// The rectangles, leaving the region empty.
    std::vector<cg::Rect> take();

private:
    std::vector<cg::Rect> rects_;
};

} // namespace bic
