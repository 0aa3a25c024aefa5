#pragma once
// The engine's recipe nodes and the machinery they render with.
//
// Every image is a tree of immutable nodes. Rendering asks the root for the premultiplied RGBA
// float pixels of an integer rectangle; each node asks its inputs for just the rectangle it
// needs (its region of interest) into scratch buffers of at most a tile (per-pixel kernels ask in
// strips of a few rows), so chains of per-pixel work stay in cache and no full-size intermediate
// is ever made. Virtual calls happen per node and strip, never per pixel.

#include "bic/platform/cg/affine_transform.hpp"
#include "bic/platform/cg/rect.hpp"
#include "bic/platform/core/checked.hpp"

#include <cstdint>
#include <memory>
#include <vector>

namespace bic::ci::detail {

/// A rectangle of whole pixels in image coordinates (y grows upwards).
struct IRect {
    std::int64_t x = 0, y = 0, w = 0, h = 0;

    bool isEmpty() const { return w <= 0 || h <= 0; }
    std::int64_t maxX() const { return x + w; }
    std::int64_t maxY() const { return y + h; }
    IRect intersection(const IRect& o) const;
    IRect grownBy(std::int64_t d) const { return {x - d, y - d, w + 2 * d, h + 2 * d}; }
    IRect offset(std::int64_t dx, std::int64_t dy) const { return {x + dx, y + dy, w, h}; }
    friend bool operator==(const IRect&, const IRect&) = default;
};

/// Coordinates beyond this are treated as "everywhere": large enough for any canvas, small
/// enough that sums of two never overflow.
inline constexpr std::int64_t kFar = std::int64_t{1} << 40;

/// The pixels a rectangle touches (its integral rectangle); an infinite rectangle gives the
/// "everywhere" bounds, a null or empty one an empty rectangle.
IRect pixelBounds(const cg::Rect& r);

/// A tile of premultiplied RGBA floats, top row first.
struct Tile {
    float* data;
    std::ptrdiff_t stride; ///< floats from one row to the next
    std::int64_t rows;     ///< how many rows it holds
    float* row(std::int64_t i) const {
        checked::index(i, rows, "Tile row");
        return data + i * stride;
    }
};

/// Per-thread buffers handed out and returned in stack order, reused from tile to tile.
class Scratch {
public:
    class Lease {
    public:
        Lease(Scratch& s, float* p) : scratch_(&s), data_(p) {}
        Lease(Lease&& o) noexcept : scratch_(o.scratch_), data_(o.data_) { o.scratch_ = nullptr; }
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;
        ~Lease() {
            if (scratch_) --scratch_->depth_;
        }
        float* data() const { return data_; }

    private:
        Scratch* scratch_;
        float* data_;
    };

    /// `floats` floats, contents undefined, valid until the lease ends.
    Lease take(std::size_t floats);
    /// Frees the blocks when none is leased and together they hold more than `floats`.
    void trim(std::size_t floats);

    /// Pixels of rectangle `r` that node `id` rendered earlier in this tile, or null.
    const std::vector<float>* kept(std::uint64_t id, const IRect& r) const;
    /// Keeps the `r.w` × `r.h` pixels of `tile` under node `id` for later reads in this tile.
    void keep(std::uint64_t id, const IRect& r, const Tile& tile);
    /// Forgets every kept rectangle: a new tile starts.
    void forgetKept() { kept_.clear(); }

private:
    struct Block {
        std::unique_ptr<float[]> data;
        std::size_t size = 0;
    };
    std::vector<Block> blocks_;
    std::size_t depth_ = 0;
    struct Kept {
        std::uint64_t id;
        IRect rect;
        std::vector<float> pixels;
    };
    std::vector<Kept> kept_;
};

struct Node {
    /// `reach`: how many pixels beyond a requested rectangle the node (with its inputs) reads.
    explicit Node(const cg::Rect& extent, std::int64_t reach = 0);
    virtual ~Node() = default;

    /// Writes the pixels of `r` into `out`; pixels outside the extent are transparent.
    void render(const IRect& r, const Tile& out, Scratch& scratch) const;
    /// Writes, for each pixel of `r`, the node's value at the point `place` maps its centre to,
    /// when the node is a function of position everywhere (a procedural image and pointwise
    /// operations on it, of infinite extent): transforms of such images are then evaluated at
    /// the points they show instead of resampling pixels. False, writing nothing, otherwise.
    virtual bool renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform& place,
                              Scratch& scratch) const;

    cg::Rect extent;
    IRect bounds; ///< pixelBounds(extent)
    std::int64_t reach;

protected:
    /// Writes the pixels of `r`, which lies inside `bounds`.
    virtual void renderInside(const IRect& r, const Tile& out, Scratch& scratch) const = 0;
};

using NodePtr = std::shared_ptr<const Node>;

void fillZero(const Tile& out, std::int64_t w, std::int64_t h);

} // namespace bic::ci::detail
