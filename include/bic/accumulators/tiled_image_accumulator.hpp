#pragma once
// An accumulator for areas larger than one surface: square tiles on a fixed grid, each a surface
// accumulator, made only where something has been rendered.

#include "bic/accumulators/image_accumulator.hpp"
#include "bic/pixels/pixel_format_list.hpp"

#include <unordered_map>

namespace bic {

struct TileIndex {
    std::int64_t x = 0, y = 0;
    friend bool operator==(const TileIndex&, const TileIndex&) = default;
};

struct TileIndexHash {
    std::size_t operator()(const TileIndex& i) const {
        return std::hash<std::int64_t>()(i.x) * 31 + std::hash<std::int64_t>()(i.y);
    }
};

template <Pixel P>
class TiledImageAccumulator : public ImageAccumulator {
public:
    explicit TiledImageAccumulator(std::int64_t tileSize = 128,
                                   std::optional<std::string> title = {});

    /// The existing tiles laid over each other (they never overlap); a render reads only the
    /// tiles its rectangle touches.
    ci::Image image() override;
    /// Renders into the existing tiles only.
    void setImage(const ci::Image& image) override;
    /// Renders into every tile the rectangle touches, making missing ones; a tile that cannot
    /// be made is skipped. An error stops the pass; tiles already rendered keep their pixels.
    void setImage(const ci::Image& image, const cg::Rect& dirtyRect) override;
    /// The union of the existing tiles; null without tiles.
    cg::Rect extent() const override;
    int bitDepth() const override { return P::bitDepth; }

    std::int64_t tileSize() const { return tileSize_; }
    const std::unordered_map<TileIndex, std::shared_ptr<SurfaceImageAccumulator<P>>, TileIndexHash>&
    tiles() const {
        return tiles_;
    }

private:
    std::int64_t tileSize_;
    std::optional<ci::Image> image_;
    std::unordered_map<TileIndex, std::shared_ptr<SurfaceImageAccumulator<P>>, TileIndexHash>
        tiles_;
};

#define BIC_EXTERN_TILED_ACCUMULATOR(P) extern template class TiledImageAccumulator<P>;
BIC_EACH_PIXEL_FORMAT(BIC_EXTERN_TILED_ACCUMULATOR)
#undef BIC_EXTERN_TILED_ACCUMULATOR

} // namespace bic
