#include "bic/graph/dirty_region.hpp"

#include <utility>

namespace bic {

void DirtyRegion::add(const cg::Rect& rect) {
    for (const auto& r : rects_)
        if (r.contains(rect)) return;
    std::erase_if(rects_, [&](const cg::Rect& r) { return rect.contains(r); });
    rects_.push_back(rect);
    if (rects_.size() > maximumCount) {
        cg::Rect all = cg::Rect::null();
        for (const auto& r : rects_)
            all = all.unionWith(r);
        rects_.assign(1, all);
    }
}

std::vector<cg::Rect> DirtyRegion::take() { return std::exchange(rects_, {}); }

} // namespace bic
