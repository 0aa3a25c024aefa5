#include "bic/accumulators/tiled_image_accumulator.hpp"

#include "bic/pixels/pixel_format_list.hpp"
#include "pixel_format_choice.hpp"

#include <cmath>

namespace bic {

template <Pixel P>
TiledImageAccumulator<P>::TiledImageAccumulator(std::int64_t tileSize,
                                                std::optional<std::string> title)
    : tileSize_(tileSize) {
    title_ = std::move(title);
}

template <Pixel P>
ci::Image TiledImageAccumulator<P>::image() {
    if (!image_) {
        std::vector<ci::Image> pieces;
        pieces.reserve(tiles_.size());
        for (auto& [index, tile] : tiles_)
            pieces.push_back(tile->image());
        image_ = ci::Image::mosaic(pieces);
    }
    return *image_;
}

template <Pixel P>
void TiledImageAccumulator<P>::setImage(const ci::Image& image) {
    detail::ignoringFailures([&] { setImage(image, extent()); });
}

template <Pixel P>
void TiledImageAccumulator<P>::setImage(const ci::Image& image, const cg::Rect& dirtyRect) {
    if (dirtyRect.isNull() || dirtyRect.isEmpty() || dirtyRect.isInfinite()) return;
    image_.reset();
    const double s = double(tileSize_);
    const cg::Rect range = cg::Rect(dirtyRect.minX() / s, dirtyRect.minY() / s,
                                    dirtyRect.width() / s, dirtyRect.height() / s)
                               .integral();
    // Rows from the top, each left to right: the order in which a render reads the canvas out.
    // Equal tiles are handed out in address order, so new tiles then lie in memory as they are
    // read, and the hardware's prefetching follows a read from one tile into the next.
    for (auto row = std::int64_t(range.maxY()) - 1; row >= std::int64_t(range.minY()); --row)
        for (auto column = std::int64_t(range.minX()); column < std::int64_t(range.maxX());
             ++column) {
            const TileIndex index{column, row};
            auto it = tiles_.find(index);
            if (it == tiles_.end()) {
                auto tile = SurfaceImageAccumulator<P>::make(
                    cg::Rect(double(column) * s, double(row) * s, s, s));
                if (!tile) continue;
                it = tiles_.emplace(index, std::move(tile)).first;
            }
            it->second->setImage(image, dirtyRect);
        }
}

template <Pixel P>
cg::Rect TiledImageAccumulator<P>::extent() const {
    cg::Rect all = cg::Rect::null();
    for (const auto& [index, tile] : tiles_)
        all = all.unionWith(tile->extent());
    return all;
}

#define BIC_INSTANTIATE(P) template class TiledImageAccumulator<P>;
BIC_EACH_PIXEL_FORMAT(BIC_INSTANTIATE)
#undef BIC_INSTANTIATE

} // namespace bic
