#pragma once
// The engine's node kinds, shared by the image operations, kernels and filters.

#include "bic/platform/ci/kernel.hpp"
#include "bic/platform/io/surface.hpp"
#include "node.hpp"

#include <algorithm>
#include <map>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace bic::ci::detail {

struct ConstantNode final : Node {
    explicit ConstantNode(const float rgba[4]);
    float color[4];
    void renderInside(const IRect& r, const Tile& out, Scratch&) const override;
    bool renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform&,
                      Scratch& s) const override;
};

/// Pixels of a stored layout: shared bytes, or a snapshot of a surface.
struct BitmapNode final : Node {
    BitmapNode(std::shared_ptr<const void> owner, const std::uint8_t* bytes, std::int64_t rowBytes,
               std::int64_t width, std::int64_t height, Format format);
    BitmapNode(std::shared_ptr<const io::SurfaceSnapshot> snapshot, Format format);
    std::shared_ptr<const void> owner;
    const std::uint8_t* bytes = nullptr; ///< when not a snapshot
    std::int64_t rowBytes = 0, width, height;
    Format format;
    std::shared_ptr<const io::SurfaceSnapshot> snapshot;

    /// Calls `use(rowAt, stride)`, where `rowAt(row, x, count, scratch)` gives the stored bytes
    /// of `count` pixels of memory row `row` from column `x` (`scratch` holds count pixels when
    /// a snapshot needs it), and `stride` is the distance between rows when they lie in place
    /// (so callers may step from row to row without asking again), 0 when they do not. A
    /// snapshot is read under one lock for the whole call.
    template <class F>
    void withRows(F&& use) const {
        if (!snapshot) {
            use([&](std::int64_t row, std::int64_t x, std::int64_t,
                    std::uint8_t*) { return bytes + row * rowBytes + x * bytesPerPixel(format); },
                rowBytes);
            return;
        }
        const io::SurfaceSnapshot::Reader reader(*snapshot);
        if (const std::uint8_t* memory = reader.unchangedMemory()) {
            // The common case, a surface not written since: its rows in place, no call a row.
            const std::int64_t stride = snapshot->bytesPerRow();
            use([&](std::int64_t row, std::int64_t x, std::int64_t,
                    std::uint8_t*) { return memory + row * stride + x * bytesPerPixel(format); },
                stride);
            return;
        }
        use([&](std::int64_t row, std::int64_t x, std::int64_t count,
                std::uint8_t* scratch) { return reader.row(row, x, count, scratch); },
            std::int64_t{0});
    }
    void renderInside(const IRect& r, const Tile& out, Scratch&) const override;
};

struct TranslateNode final : Node {
    TranslateNode(NodePtr input, std::int64_t dx, std::int64_t dy);
    NodePtr input;
    std::int64_t dx, dy;
    void renderInside(const IRect& r, const Tile& out, Scratch& s) const override;
    bool renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform& place,
                      Scratch& s) const override;
};

struct TransformNode final : Node {
    TransformNode(NodePtr input, const cg::AffineTransform& t, bool nearest);
    NodePtr input;
    cg::AffineTransform inverse;
    bool nearest;
    void renderInside(const IRect& r, const Tile& out, Scratch& s) const override;
    bool renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform& place,
                      Scratch& s) const override;
};

struct CropNode final : Node {
    CropNode(NodePtr input, const cg::Rect& rect);
    NodePtr input;
    cg::Rect rect;
    void renderInside(const IRect& r, const Tile& out, Scratch& s) const override;
};

struct ClampNode final : Node {
    ClampNode(NodePtr input, const IRect& edge);
    NodePtr input;
    IRect edge;
    void renderInside(const IRect& r, const Tile& out, Scratch& s) const override;
};

/// Marks how later transforms sample its input; renders the input unchanged.
struct SamplingNode final : Node {
    SamplingNode(NodePtr input, bool nearest);
    NodePtr input;
    bool nearest;
    void renderInside(const IRect& r, const Tile& out, Scratch& s) const override;
    bool renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform& place,
                      Scratch& s) const override;
};

/// Its input over transparent pixels to infinity: the input's pixels under an infinite extent,
/// which is what compositing over the clear image amounts to, without a blend per pixel.
struct WideningNode final : Node {
    explicit WideningNode(NodePtr input);
    NodePtr input;
    void renderInside(const IRect& r, const Tile& out, Scratch& s) const override;
    bool renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform& place,
                      Scratch& s) const override;
};

/// Pieces whose pixels do not overlap, as one image: a render asks only the pieces its
/// rectangle touches, found on a square grid of `cell` pixels.
struct MosaicNode final : Node {
    MosaicNode(const cg::Rect& extent, std::vector<NodePtr> pieces, std::int64_t cell);
    std::vector<NodePtr> pieces;
    std::int64_t cell;
    std::unordered_map<std::int64_t, std::vector<std::uint32_t>> cells; // by packed cell index
    /// The pieces that touch `r`, each once, in piece order.
    std::vector<std::uint32_t> piecesIn(const IRect& r) const;
    void renderInside(const IRect& r, const Tile& out, Scratch& s) const override;
};

/// Its input, rendered once per tile of a render however often it is read there.
struct SharedNode final : Node {
    explicit SharedNode(NodePtr input);
    NodePtr input;
    std::uint64_t id; ///< unique for the process's life, unlike the node's address
    void renderInside(const IRect& r, const Tile& out, Scratch& s) const override;
    bool renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform& place,
                      Scratch& s) const override {
        return input->renderPlaced(r, out, place, s);
    }
};

/// Keeps rendered tiles of its input; each tile is rendered once, by whichever thread needs it
/// first, while others wait for it.
struct IntermediateNode final : Node {
    explicit IntermediateNode(NodePtr input);
    NodePtr input;
    static constexpr std::int64_t kTile = 128;
    struct Entry {
        std::once_flag once;
        std::vector<float> pixels;
    };
    mutable std::mutex mutex;
    mutable std::map<std::pair<std::int64_t, std::int64_t>, std::shared_ptr<Entry>> tiles;
    void renderInside(const IRect& r, const Tile& out, Scratch& s) const override;
};

struct ColorKernelNode final : Node {
    ColorKernelNode(const cg::Rect& extent, RowFunction function, std::vector<NodePtr> images,
                    std::vector<KernelValue> values);
    RowFunction function;
    std::vector<NodePtr> images;
    std::vector<KernelValue> values;
    /// Below 1, each output row is mixed with the second image's row by this fraction as it is
    /// made: a blend at an opacity, whose background is then rendered once.
    float fade = 1;
    void renderInside(const IRect& r, const Tile& out, Scratch& s) const override;
    bool renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform& place,
                      Scratch& s) const override;

private:
    void run(KernelRow& row) const;
    void renderRows(const IRect& r, const Tile& out, Scratch& s) const;
};

struct GeneralKernelNode final : Node {
    GeneralKernelNode(const cg::Rect& extent, GeneralRowFunction function, RegionOfInterest roi,
                      std::vector<NodePtr> images, std::vector<KernelValue> values);
    GeneralRowFunction function;
    RegionOfInterest roi;
    std::vector<NodePtr> images;
    std::vector<KernelValue> values;
    void renderInside(const IRect& r, const Tile& out, Scratch& s) const override;
};

inline std::int64_t maxReach(const std::vector<NodePtr>& nodes) {
    std::int64_t r = 0;
    for (const auto& n : nodes)
        r = std::max(r, n->reach);
    return r;
}

/// Calls `f(strip, firstRow)` for horizontal strips of `r` of about `pixels` pixels each (at
/// least one row), top strip first; `firstRow` counts rows from the top of `r`. Per-pixel work
/// done strip by strip keeps each intermediate in cache instead of a whole tile of floats.
template <class F>
void forEachStrip(const IRect& r, std::int64_t pixels, F&& f) {
    const std::int64_t rows = std::max<std::int64_t>(1, pixels / std::max<std::int64_t>(1, r.w));
    for (std::int64_t first = 0; first < r.h; first += rows) {
        const std::int64_t h = std::min(rows, r.h - first);
        f(IRect{r.x, r.maxY() - first - h, r.w, h}, first);
    }
}

/// Pixels per strip: a chain's 128 KB float buffers stay in a core's second-level cache, and
/// deep trees of small layers pay their per-call costs a few times a tile, not dozens.
inline constexpr std::int64_t kStripPixels = 8192;

/// Renders `node` over `r` into a new scratch lease of r.w × r.h pixels.
inline Scratch::Lease renderToScratch(const Node& node, const IRect& r, Scratch& s) {
    Scratch::Lease lease = s.take(std::size_t(r.w) * std::size_t(r.h) * 4);
    node.render(r, Tile{lease.data(), r.w * 4, r.h}, s);
    return lease;
}

} // namespace bic::ci::detail
