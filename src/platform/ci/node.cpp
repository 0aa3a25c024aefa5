#include "node.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace bic::ci::detail {

IRect IRect::intersection(const IRect& o) const {
    const std::int64_t x0 = std::max(x, o.x), y0 = std::max(y, o.y);
    const std::int64_t x1 = std::min(maxX(), o.maxX()), y1 = std::min(maxY(), o.maxY());
    if (x1 <= x0 || y1 <= y0) return {};
    return {x0, y0, x1 - x0, y1 - y0};
}

IRect pixelBounds(const cg::Rect& r) {
    if (r.isEmpty()) return {};
    if (r.isInfinite()) return {-kFar, -kFar, 2 * kFar, 2 * kFar};
    const double x0 = std::clamp(std::floor(r.minX()), double(-kFar), double(kFar));
    const double y0 = std::clamp(std::floor(r.minY()), double(-kFar), double(kFar));
    const double x1 = std::clamp(std::ceil(r.maxX()), double(-kFar), double(kFar));
    const double y1 = std::clamp(std::ceil(r.maxY()), double(-kFar), double(kFar));
    return {std::int64_t(x0), std::int64_t(y0), std::int64_t(x1 - x0), std::int64_t(y1 - y0)};
}

Scratch::Lease Scratch::take(std::size_t floats) {
    if (depth_ == blocks_.size()) blocks_.emplace_back();
    Block& b = blocks_[depth_];
    if (b.size < floats) {
        b.data.reset(new float[floats]);
        b.size = floats;
    }
    ++depth_;
    return Lease(*this, b.data.get());
}

void Scratch::trim(std::size_t floats) {
    if (depth_ != 0) return;
    std::size_t held = 0;
    for (const Block& b : blocks_)
        held += b.size;
    if (held > floats) blocks_.clear();
}

const std::vector<float>* Scratch::kept(std::uint64_t id, const IRect& r) const {
    for (const Kept& k : kept_)
        if (k.id == id && k.rect == r) return &k.pixels;
    return nullptr;
}

void Scratch::keep(std::uint64_t id, const IRect& r, const Tile& tile) {
    // A tile keeps a handful; past that the oldest goes, and a later read renders again.
    constexpr std::size_t kMostKept = 64;
    if (kept_.size() == kMostKept) kept_.erase(kept_.begin());
    Kept k{id, r, std::vector<float>(std::size_t(r.w * r.h * 4))};
    for (std::int64_t i = 0; i < r.h; ++i)
        std::memcpy(k.pixels.data() + i * r.w * 4, tile.row(i),
                    sizeof(float) * 4 * std::size_t(r.w));
    kept_.push_back(std::move(k));
}

Node::Node(const cg::Rect& e, std::int64_t r) : extent(e), bounds(pixelBounds(e)), reach(r) {}

void fillZero(const Tile& out, std::int64_t w, std::int64_t h) {
    for (std::int64_t i = 0; i < h; ++i)
        std::memset(out.row(i), 0, sizeof(float) * 4 * w);
}

void Node::render(const IRect& r, const Tile& out, Scratch& scratch) const {
    const IRect inside = r.intersection(bounds);
    if (inside == r) {
        renderInside(r, out, scratch);
        return;
    }
    if (inside.isEmpty()) {
        fillZero(out, r.w, r.h);
        return;
    }
    // Rows are stored top first: the top row of `r` is y = r.maxY() − 1.
    const std::int64_t top = r.maxY() - inside.maxY();
    const std::int64_t left = inside.x - r.x;
    for (std::int64_t i = 0; i < r.h; ++i) {
        float* row = out.row(i);
        if (i < top || i >= top + inside.h) {
            std::memset(row, 0, sizeof(float) * 4 * r.w);
        } else {
            std::memset(row, 0, sizeof(float) * 4 * left);
            const std::int64_t right = left + inside.w;
            std::memset(row + 4 * right, 0, sizeof(float) * 4 * (r.w - right));
        }
    }
    renderInside(inside, Tile{out.row(top) + 4 * left, out.stride, inside.h}, scratch);
}

bool Node::renderPlaced(const IRect&, const Tile&, const cg::AffineTransform&, Scratch&) const {
    return false;
}

} // namespace bic::ci::detail
