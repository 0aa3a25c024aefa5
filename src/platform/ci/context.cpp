#include "bic/platform/ci/context.hpp"

#include "bic/platform/core/pixel_math.hpp"
#include "bic/platform/io/pixel_io.hpp"
#include "bic/platform/io/surface.hpp"
#include "nodes.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>
#include <vector>

namespace bic::ci {

using namespace detail;

namespace {

Format formatOf(const io::Surface& s) {
    if (const auto format = formatOfSurfaceCode(s.pixelFormat())) return *format;
    throw RenderError("The surface's pixel format cannot be rendered into.");
}

// A bitmap seen through integer translations only: its rows can be copied as bytes into a
// destination of the same layout, which is what a plain copy through the engine amounts to.
struct DirectSource {
    const BitmapNode* bitmap = nullptr;
    std::int64_t dx = 0, dy = 0;
    IRect area; ///< the part of the rendered rectangle it covers
};

std::optional<DirectSource> directSource(const Node* node, const IRect& r, Format format) {
    DirectSource d;
    for (;;) {
        if (const auto* t = dynamic_cast<const TranslateNode*>(node)) {
            d.dx += t->dx;
            d.dy += t->dy;
            node = t->input.get();
        } else if (const auto* s = dynamic_cast<const SamplingNode*>(node)) {
            node = s->input.get();
        } else {
            d.bitmap = dynamic_cast<const BitmapNode*>(node);
            if (!d.bitmap || d.bitmap->format != format) return std::nullopt;
            d.area = r.intersection(d.bitmap->bounds.offset(d.dx, d.dy));
            return d;
        }
    }
}

// The bitmaps that make up the rendered rectangle when every part of it is a direct source or
// transparent: a bitmap, or a mosaic of bitmaps (a tiled canvas).
std::optional<std::vector<DirectSource>> directSources(const Node& root, const IRect& r,
                                                       Format format) {
    if (const auto* mosaic = dynamic_cast<const MosaicNode*>(&root)) {
        std::vector<DirectSource> sources;
        for (const std::uint32_t i : mosaic->piecesIn(r)) {
            const auto source = directSource(mosaic->pieces[i].get(), r, format);
            if (!source) return std::nullopt;
            sources.push_back(*source);
        }
        // Copied top row first, left to right, the pieces are read in the order a canvas lays
        // its tiles out in memory; pieces in their own order jump back at every other tile
        // edge, and the hardware stops streaming the rows ahead (a third slower).
        std::sort(sources.begin(), sources.end(), [](const DirectSource& a, const DirectSource& b) {
            return a.area.maxY() != b.area.maxY() ? a.area.maxY() > b.area.maxY()
                                                  : a.area.x < b.area.x;
        });
        return sources;
    }
    const auto source = directSource(&root, r, format);
    if (!source) return std::nullopt;
    return std::vector<DirectSource>{*source};
}

// What a thread's scratch may keep between renders (32 MB); more is given back after the tile
// that needed it.
constexpr std::size_t kKeptScratchFloats = std::size_t(8) << 20;

template <class F>
void forEach(std::int64_t count, int threads, F&& f) {
    if (threads == 1 || count == 1) {
        for (std::int64_t i = 0; i < count; ++i)
            f(i);
        return;
    }
    auto run = [&] { tbb::parallel_for(std::int64_t{0}, count, [&](std::int64_t i) { f(i); }); };
    if (threads > 1)
        tbb::task_arena(threads).execute(run);
    else
        run();
}

} // namespace

RenderDestination::RenderDestination(void* bytes, std::int64_t width, std::int64_t height,
                                     std::int64_t rowBytes, Format format)
    : bytes_(static_cast<std::uint8_t*>(bytes)), width_(width), height_(height),
      rowBytes_(rowBytes), format_(format) {
    if (!bytes || width < 0 || height < 0 || rowBytes < width * bytesPerPixel(format))
        throw RenderError("The destination's memory is too small for its size.");
}

RenderDestination::RenderDestination(std::shared_ptr<io::Surface> surface)
    : bytes_(surface->baseAddress()), width_(surface->width()), height_(surface->height()),
      rowBytes_(surface->bytesPerRow()), format_(formatOf(*surface)), surface_(std::move(surface)) {
}

std::shared_ptr<Context> Context::shared() {
    // Never destroyed: renders on background threads may still use it while the process exits.
    static const auto* context = new std::shared_ptr<Context>([] {
        Options options;
        if (const char* threads = std::getenv("BIC_RENDER_THREADS"))
            options.threads = std::max(0, std::atoi(threads));
        return std::make_shared<Context>(options);
    }());
    return *context;
}

RenderTask Context::startTaskToRender(const Image& image, const cg::Rect& fromRect,
                                      const RenderDestination& d, cg::Point atPoint) const {
    if (fromRect.isNull() || fromRect.isInfinite() || fromRect.isEmpty())
        throw RenderError("A render needs a finite, non-empty rectangle.");
    if (!std::isfinite(atPoint.x) || !std::isfinite(atPoint.y) ||
        std::abs(fromRect.minX()) > double(kFar) || std::abs(fromRect.maxX()) > double(kFar) ||
        std::abs(fromRect.minY()) > double(kFar) || std::abs(fromRect.maxY()) > double(kFar))
        throw RenderError("A render needs finite coordinates.");
    const IRect r = pixelBounds(fromRect);
    const auto px = std::int64_t(std::floor(atPoint.x)), py = std::int64_t(std::floor(atPoint.y));
    if (px < 0 || py < 0 || px + r.w > d.width_ || py + r.h > d.height_)
        throw RenderError("The destination is too small for the rendered rectangle.");

    // Only the rendered area is written, so snapshots of the destination (the image being
    // rendered may be one) keep just that area aside.
    std::optional<io::SurfaceLock> lock;
    if (d.surface_) lock.emplace(*d.surface_, io::SurfaceArea{px, d.height_ - py - r.h, r.w, r.h});
    if (const auto direct = directSources(*image.node(), r, d.format_)) {
        const int bpp = bytesPerPixel(d.format_);
        std::int64_t covered = 0;
        for (const DirectSource& source : *direct)
            covered += source.area.w * source.area.h;
        // Tasks of about 256 KB: long enough runs of rows for the hardware to stream, small
        // enough that two threads share a 1-megapixel copy evenly.
        const std::int64_t rowsPerTask =
            std::max<std::int64_t>(1, (std::int64_t(256) << 10) / (r.w * bpp));
        const std::int64_t tasks = (r.h + rowsPerTask - 1) / rowsPerTask;
        // Each task copies from the sources its rows touch (a tall tiled canvas has hundreds),
        // listed task after task in one array. Task rows run top first: image row y is task
        // row r.maxY() − 1 − y.
        auto rowsOf = [&](const DirectSource& source) {
            return std::pair{r.maxY() - source.area.maxY(), r.maxY() - source.area.y};
        };
        std::vector<std::size_t> begin(std::size_t(tasks) + 1, 0);
        for (const DirectSource& source : *direct) {
            if (source.area.isEmpty()) continue;
            const auto [top, end] = rowsOf(source);
            for (std::int64_t t = top / rowsPerTask; t <= (end - 1) / rowsPerTask; ++t)
                ++begin[std::size_t(t) + 1];
        }
        for (std::size_t t = 0; t < std::size_t(tasks); ++t)
            begin[t + 1] += begin[t];
        std::vector<const DirectSource*> listed(begin.back());
        std::vector<std::size_t> next(begin.begin(), begin.end() - 1);
        for (const DirectSource& source : *direct) {
            if (source.area.isEmpty()) continue;
            const auto [top, end] = rowsOf(source);
            for (std::int64_t t = top / rowsPerTask; t <= (end - 1) / rowsPerTask; ++t)
                listed[next[std::size_t(t)]++] = &source;
        }
        forEach(tasks, options_.threads, [&](std::int64_t task) {
            thread_local std::vector<std::uint8_t> scratch;
            const std::int64_t first = task * rowsPerTask;
            const std::int64_t last = std::min(r.h, first + rowsPerTask);
            // Rows of the destination, top first; uncovered pixels are transparent, all zeros.
            auto row = [&](std::int64_t i) {
                return d.bytes_ + (flippedRow(py, d.height_) - r.h + 1 + i) * d.rowBytes_ +
                       px * bpp;
            };
            if (covered != r.w * r.h)
                for (std::int64_t i = first; i < last; ++i)
                    std::memset(row(i), 0, std::size_t(r.w * bpp));
            for (std::size_t k = begin[std::size_t(task)]; k < begin[std::size_t(task) + 1]; ++k) {
                const DirectSource& source = *listed[k];
                const BitmapNode& b = *source.bitmap;
                const IRect& a = source.area;
                const auto [top, end] = rowsOf(source);
                const std::size_t bytes = std::size_t(a.w * bpp);
                if (b.snapshot && scratch.size() < bytes) scratch.resize(bytes);
                const std::int64_t i0 = std::max(first, top), i1 = std::min(last, end);
                // Image row y is task row r.maxY() − 1 − y, so memory rows follow task rows.
                const std::int64_t row0 =
                    flippedRow(flippedRow(i0, r.maxY()) - source.dy, b.height);
                std::uint8_t* to = row(i0) + (a.x - r.x) * bpp;
                b.withRows([&](auto rowAt, std::int64_t stride) {
                    if (stride) {
                        // Rows in place lie a stride apart: step, without asking for each.
                        const std::uint8_t* from = rowAt(row0, a.x - source.dx, a.w, nullptr);
                        for (std::int64_t i = i0; i < i1; ++i, from += stride, to += d.rowBytes_)
                            std::memmove(to, from, bytes);
                        return;
                    }
                    for (std::int64_t i = i0; i < i1; ++i, to += d.rowBytes_)
                        std::memmove(to,
                                     rowAt(row0 + (i - i0), a.x - source.dx, a.w, scratch.data()),
                                     bytes);
                });
            }
        });
        return {};
    }

    // Tiles of recipes that read far beyond them (wide blurs) grow, so the margin each tile
    // renders stays a fraction of the tile.
    const std::int64_t wanted = std::min<std::int64_t>(4 * image.node()->reach, 512);
    const std::int64_t tw = std::max<std::int64_t>({1, options_.tileWidth, wanted});
    const std::int64_t th = std::max<std::int64_t>({1, options_.tileHeight, wanted});
    const std::int64_t columns = (r.w + tw - 1) / tw, rows = (r.h + th - 1) / th;
    const Node& root = *image.node();
    const bool writesFloats = d.format_ == Format::RGBAf;

    auto renderTile = [&](std::int64_t index) {
        // Each thread keeps its scratch from render to render: a small render costs no
        // allocation and no page faults. Leases nest, so a tile stolen while another waits on
        // the same thread takes deeper blocks and gives them back before the other resumes.
        thread_local Scratch scratch;
        scratch.forgetKept();
        const std::int64_t tx = index % columns, ty = index / columns;
        // Tiles are laid out from the top row of the rectangle down.
        const std::int64_t x = r.x + tx * tw, w = std::min(tw, r.maxX() - x);
        const std::int64_t top = r.maxY() - ty * th, h = std::min(th, top - r.y);
        const IRect tile{x, top - h, w, h};
        // The destination row of image row y: rows are stored top first from height − 1.
        const std::int64_t firstRow = flippedRow(py + (top - 1 - r.y), d.height_);
        std::uint8_t* dst =
            d.bytes_ + firstRow * d.rowBytes_ + (px + (x - r.x)) * bytesPerPixel(d.format_);
        if (writesFloats && d.rowBytes_ % 16 == 0 &&
            reinterpret_cast<std::uintptr_t>(d.bytes_) % 4 == 0) {
            // Working floats go straight into a float destination.
            root.render(tile, Tile{reinterpret_cast<float*>(dst), d.rowBytes_ / 4, tile.h},
                        scratch);
        } else {
            // A root without neighbours is converted strip by strip while its floats are in
            // cache; one that reads around it renders its margins once for the whole tile.
            const std::int64_t strip = root.reach == 0 ? kStripPixels : w * h;
            forEachStrip(tile, strip, [&](const IRect& part, std::int64_t first) {
                const Scratch::Lease pixels = renderToScratch(root, part, scratch);
                for (std::int64_t i = 0; i < part.h; ++i)
                    io::writeRow(d.format_, pixels.data() + i * w * 4,
                                 dst + (first + i) * d.rowBytes_, w);
            });
        }
        scratch.trim(kKeptScratchFloats);
    };

    forEach(columns * rows, options_.threads, renderTile);
    return {};
}

void Context::render(const Image& image, void* bytes, std::int64_t rowBytes, const cg::Rect& bounds,
                     Format format) const {
    const IRect r = pixelBounds(bounds);
    RenderDestination d(bytes, r.w, r.h, rowBytes, format);
    startTaskToRender(image, bounds, d, {0, 0});
}

} // namespace bic::ci
