// Outlines of a buffer's opaque area: a one-pass contour-tracing labelling of its binary mask
// (Chang, Chen and Lu), in bottom-up coordinates, with collinear boundary runs merged.

#include "bic/buffers/pixel_buffer.hpp"
#include "bic/compositing/image_operations.hpp"
#include "bic/compositing/mask_operations.hpp"
#include "bic/platform/ci/filter.hpp"

#include <cstdlib>
#include <memory>
#include <new>

namespace bic {

namespace {

constexpr int kDx[8] = {1, 1, 0, -1, -1, -1, 0, 1};
constexpr int kDy[8] = {0, 1, 1, 1, 0, -1, -1, -1};

class Tracer {
public:
    Tracer(const std::uint8_t* mask, std::int64_t w, std::int64_t h, std::int64_t stride)
        : mask_(mask), w_(w), h_(h), stride_(stride),
          // calloc: the system hands out zero pages, and only cells the tracing touches cost.
          labels_(static_cast<std::int32_t*>(
                      std::calloc(std::size_t((w + 2) * (h + 2)), sizeof(std::int32_t))),
                  std::free) {
        if (!labels_) throw std::bad_alloc();
    }

    std::int32_t& label(std::int64_t x, std::int64_t y) {
        return labels_.get()[(x + 1) + (y + 1) * (w_ + 2)];
    }
    bool foreground(std::int64_t x, std::int64_t y) const {
        return x >= 0 && y >= 0 && x < w_ && y < h_ && mask_[(h_ - 1 - y) * stride_ + x] != 0;
    }

    std::vector<Path> outlines() {
        std::vector<Path> outer, holes;
        std::int32_t counter = 0;
        for (std::int64_t y = 0; y < h_; ++y) {
            std::int32_t running = 0;
            for (std::int64_t x = 0; x < w_; ++x) {
                if (foreground(x, y)) {
                    if (running == 0) {
                        std::int32_t& cell = label(x, y);
                        if (cell == 0) {
                            const std::int32_t l = ++counter;
                            outer.push_back(follow(x, y, 0, l));
                            label(x, y) = l;
                            running = l;
                        } else {
                            running = cell;
                        }
                    } else {
                        label(x, y) = running;
                    }
                } else if (running != 0) {
                    if (label(x, y) == 0) holes.push_back(follow(x - 1, y, 1, running));
                    running = 0;
                }
            }
        }
        outer.insert(outer.end(), std::make_move_iterator(holes.begin()),
                     std::make_move_iterator(holes.end()));
        return outer;
    }

private:
    struct Step {
        std::int64_t x, y;
        int direction;
    };

    Step trace(std::int64_t x, std::int64_t y, int d) {
        for (int i = 0; i < 7; ++i) {
            const int k = (d + i) % 8;
            const std::int64_t nx = x + kDx[k], ny = y + kDy[k];
            if (foreground(nx, ny)) return {nx, ny, k};
            if (nx >= -1 && ny >= -1 && nx <= w_ && ny <= h_) label(nx, ny) = -1;
        }
        return {x, y, (d + 7) % 8};
    }

    Path follow(std::int64_t sx, std::int64_t sy, int d0, std::int32_t l) {
        auto point = [](std::int64_t x, std::int64_t y) { return cg::Point{double(x), double(y)}; };
        Step t = trace(sx, sy, d0);
        std::vector<cg::Point> points{point(t.x, t.y)};
        if (t.x != sx || t.y != sy) {
            Step current = t;
            for (;;) {
                label(current.x, current.y) = l;
                const Step next = trace(current.x, current.y, (current.direction + 6) % 8);
                if (current.x == sx && current.y == sy && next.x == t.x && next.y == t.y) break;
                points.push_back(point(next.x, next.y));
                current = next;
            }
        }
        Path path(merged(points));
        path.closeSubPath();
        path.lineWidth = 1.0;
        path.lineCap = cg::LineCap::round;
        path.lineJoin = cg::LineJoin::round;
        path.miterLimit = 10.0;
        return path;
    }

    // Drops every point that continues the previous segment in the same direction.
    static Path merged(const std::vector<cg::Point>& points) {
        std::vector<cg::Point> kept;
        for (const cg::Point& p : points) {
            if (kept.size() >= 2) {
                const cg::Point a = kept[kept.size() - 2], b = kept.back();
                const cg::Vector incoming{b.x - a.x, b.y - a.y}, outgoing{p.x - b.x, p.y - b.y};
                if (outgoing.hasSameDirection(incoming)) kept.pop_back();
            }
            kept.push_back(p);
        }
        Path path(kept.front());
        for (std::size_t i = 1; i < kept.size(); ++i)
            path.lineTo(kept[i]);
        return path;
    }

    const std::uint8_t* mask_;
    std::int64_t w_, h_, stride_;
    std::unique_ptr<std::int32_t, decltype(&std::free)> labels_;
};

template <Pixel P>
std::optional<std::vector<Path>> traceOutlines(const PixelBuffer<P>& buffer) {
    ci::Image image = buffer.image();
    // Colour buffers: alpha as grey (everything outside the buffer hides).
    if constexpr (P::model == cg::ColorSpaceModel::rgb) image = bic_maskFromTransparency(image);
    try {
        const PixelBuffer<PixelGray8> mask(bic_threshold(image, 0.5), buffer.image().extent(), "");
        std::optional<std::vector<Path>> result;
        mask.withUnsafeBuffer([&](std::span<const PixelGray8> pixels) {
            Tracer tracer(reinterpret_cast<const std::uint8_t*>(pixels.data()), mask.size().width,
                          mask.size().height, mask.pixelsPerRow());
            result = tracer.outlines();
        });
        return result;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace

template <Pixel P>
std::optional<std::vector<Path>> PixelBuffer<P>::outlinePath() const {
    using Result = std::optional<std::vector<Path>>;
    return *std::static_pointer_cast<const Result>(cachedOutlines([this] {
        return std::shared_ptr<const void>(std::make_shared<const Result>(traceOutlines(*this)));
    }));
}

template std::optional<std::vector<Path>> PixelBuffer<PixelARGB8>::outlinePath() const;
template std::optional<std::vector<Path>> PixelBuffer<PixelGray8>::outlinePath() const;
template std::optional<std::vector<Path>> PixelBuffer<PixelRGBA16>::outlinePath() const;
template std::optional<std::vector<Path>> PixelBuffer<PixelGray16>::outlinePath() const;
template std::optional<std::vector<Path>> PixelBuffer<PixelRGBA32>::outlinePath() const;
template std::optional<std::vector<Path>> PixelBuffer<PixelGray32>::outlinePath() const;

} // namespace bic
