// Outlines of a buffer's opaque area: the one-pass contour-tracing labelling of its binary mask
// (Chang, Chen and Lu), in bottom-up coordinates, with collinear boundary runs merged. Only the
// boundaries are kept, so the labelling shrinks to marks.

#include "bic/buffers/pixel_buffer.hpp"
#include "bic/pixels/pixel_format_list.hpp"
#include "bic/platform/core/pixel_math.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace bic {

namespace {

constexpr int kDx[8] = {1, 1, 0, -1, -1, -1, 0, 1};
constexpr int kDy[8] = {0, 1, 1, 1, 0, -1, -1, -1};

// What tracing leaves behind for the scan. Region numbers never matter for outlines, so a cell
// only says whether a boundary has passed: a traced foreground pixel, or a background pixel
// the tracer looked at and turned away from.
enum class Mark : std::uint8_t { none = 0, traced = 1, background = 2 };

// The marks of one thread, kept from call to call so that a call pays neither for zeroing nor
// for fresh pages: each byte carries the call's generation above its two mark bits, and a byte
// of another generation reads as no mark. Grids above kKeptCells get a zeroed grid of their own.
class MarkGrid {
public:
    static constexpr std::size_t kKeptCells = std::size_t(256) << 20;
    MarkGrid(std::int64_t width, std::int64_t height) : width_(width) {
        const auto cells = std::size_t(width * height);
        if (cells > kKeptCells) {
            own_.reset(static_cast<std::uint8_t*>(std::calloc(cells, 1)));
            if (!own_) throw std::bad_alloc();
            cells_ = own_.get();
            generation_ = 0;
            return;
        }
        thread_local std::vector<std::uint8_t> kept;
        thread_local std::uint8_t last = 0;
        if (kept.size() < cells) {
            kept.assign(cells, 0);
            last = 0;
        }
        if (++last > 63) { // every generation used: start afresh
            std::fill(kept.begin(), kept.end(), std::uint8_t(0));
            last = 1;
        }
        cells_ = kept.data();
        generation_ = last;
    }
    Mark read(std::int64_t column, std::int64_t row) const {
        const std::uint8_t cell = cells_[row * width_ + column];
        return (cell >> 2) == generation_ ? Mark(cell & 3) : Mark::none;
    }
    void write(std::int64_t column, std::int64_t row, Mark mark) {
        cells_[row * width_ + column] = std::uint8_t(generation_ << 2 | std::uint8_t(mark));
    }

private:
    std::int64_t width_;
    std::uint8_t* cells_ = nullptr;
    std::uint8_t generation_ = 0;
    std::unique_ptr<std::uint8_t, decltype(&std::free)> own_{nullptr, std::free};
};

// Foreground is a mask byte with its high bit set (≥ 128), so an 8-bit grey buffer is its own
// mask.
class Tracer {
public:
    Tracer(const std::uint8_t* mask, std::int64_t w, std::int64_t h, std::int64_t stride)
        : mask_(mask), w_(w), h_(h), stride_(stride), marks_(w + 2, h + 2) {}

    Mark mark(std::int64_t x, std::int64_t y) const { return marks_.read(x + 1, y + 1); }
    void setMark(std::int64_t x, std::int64_t y, Mark m) { marks_.write(x + 1, y + 1, m); }
    bool foreground(std::int64_t x, std::int64_t y) const {
        return x >= 0 && y >= 0 && x < w_ && y < h_ &&
               mask_[flippedRow(y, h_) * stride_ + x] >= 128;
    }

    std::vector<Path> outlines() {
        std::vector<Path> outer, holes;
        for (std::int64_t y = 0; y < h_; ++y) {
            const std::uint8_t* row = mask_ + flippedRow(y, h_) * stride_;
            constexpr std::uint64_t high = 0x8080808080808080u; // every byte's top bit
            auto word = [&](std::int64_t at) {
                std::uint64_t v;
                std::memcpy(&v, row + at, 8);
                return v;
            };
            bool running = false;
            for (std::int64_t x = 0; x < w_; ++x) {
                if (!running) {
                    // Background outside any run changes nothing: skip it eight bytes at a time.
                    while (x + 32 <= w_ &&
                           ((word(x) | word(x + 8) | word(x + 16) | word(x + 24)) & high) == 0)
                        x += 32;
                    while (x + 8 <= w_ && (word(x) & high) == 0)
                        x += 8;
                    if (x >= w_) break;
                }
                if (row[x] >= 128) {
                    if (!running) {
                        if (mark(x, y) == Mark::none) {
                            outer.push_back(follow(x, y, 0));
                            setMark(x, y, Mark::traced);
                        }
                        running = true;
                    } else {
                        // Only a run's first pixel (on a boundary, its left neighbour being
                        // background) and background marks are ever read: skip to the run's end.
                        std::int64_t end = x + 1;
                        while (end + 8 <= w_ && (word(end) & high) == high)
                            end += 8;
                        while (end < w_ && row[end] >= 128)
                            ++end;
                        x = end - 1;
                    }
                } else if (running) {
                    if (mark(x, y) == Mark::none) holes.push_back(follow(x - 1, y, 1));
                    running = false;
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
            if (nx >= -1 && ny >= -1 && nx <= w_ && ny <= h_) setMark(nx, ny, Mark::background);
        }
        return {x, y, (d + 7) % 8};
    }

    Path follow(std::int64_t sx, std::int64_t sy, int d0) {
        // Straight runs are merged as the boundary is walked: a point that continues the last
        // segment in the same direction replaces that segment's end.
        std::vector<Path::Point>& kept = scratch_;
        kept.clear();
        auto add = [&](std::int64_t x, std::int64_t y) {
            const cg::Point p{double(x), double(y)};
            if (kept.size() >= 2) {
                const cg::Point a = kept[kept.size() - 2].position, b = kept.back().position;
                if (cg::Vector{p.x - b.x, p.y - b.y}.hasSameDirection({b.x - a.x, b.y - a.y}))
                    kept.pop_back();
            }
            kept.emplace_back(p);
        };
        const Step t = trace(sx, sy, d0);
        add(t.x, t.y);
        if (t.x != sx || t.y != sy) {
            Step current = t;
            for (;;) {
                setMark(current.x, current.y, Mark::traced);
                const Step next = trace(current.x, current.y, (current.direction + 6) % 8);
                if (current.x == sx && current.y == sy && next.x == t.x && next.y == t.y) break;
                add(next.x, next.y);
                current = next;
            }
        }
        Path path;
        path.subpaths.front().points.assign(kept.begin(), kept.end());
        path.closeSubPath();
        path.lineWidth = 1.0;
        path.lineCap = cg::LineCap::round;
        path.lineJoin = cg::LineJoin::round;
        path.miterLimit = 10.0;
        return path;
    }

    const std::uint8_t* mask_;
    std::int64_t w_, h_, stride_;
    MarkGrid marks_;
    std::vector<Path::Point> scratch_; // one boundary's corners, reused from boundary to boundary
};

// The threshold the engine applies to the mask form, computed here without rendering: the
// mask form is grey (the pixel's alpha for colour formats, its grey for grey ones), and the
// threshold compares its luminosity with ½ exactly as the kernel does.
template <Pixel P>
bool isOpaqueEnough(const P& p) {
    float v;
    if constexpr (P::model == cg::ColorSpaceModel::rgb)
        v = p.alpha();
    else
        v = p.gray();
    return luma(v, v, v) >= 0.5f;
}

template <Pixel P>
std::optional<std::vector<Path>> traceOutlines(const PixelBuffer<P>& buffer) {
    const std::int64_t w = buffer.size().width, h = buffer.size().height;
    std::optional<std::vector<Path>> result;
    buffer.withUnsafeBuffer([&](std::span<const P> pixels) {
        if constexpr (std::is_same_v<P, PixelGray8>) {
            // 8-bit grey is its own mask: level 128 is the first at or above ½.
            Tracer tracer(reinterpret_cast<const std::uint8_t*>(pixels.data()), w, h,
                          buffer.pixelsPerRow());
            result = tracer.outlines();
        } else {
            std::vector<std::uint8_t> mask(std::size_t(w * h));
            for (std::int64_t y = 0; y < h; ++y)
                for (std::int64_t x = 0; x < w; ++x)
                    mask[std::size_t(y * w + x)] =
                        isOpaqueEnough(pixels[std::size_t(y * buffer.pixelsPerRow() + x)]) ? 255
                                                                                           : 0;
            Tracer tracer(mask.data(), w, h, w);
            result = tracer.outlines();
        }
    });
    return result;
}

} // namespace

template <Pixel P>
const std::optional<std::vector<Path>>& PixelBuffer<P>::outlinePath() const {
    using Result = std::optional<std::vector<Path>>;
    return *std::static_pointer_cast<const Result>(cachedOutlines([this] {
        return std::shared_ptr<const void>(std::make_shared<const Result>(traceOutlines(*this)));
    }));
}

#define BIC_INSTANTIATE(P)                                                                         \
    template const std::optional<std::vector<Path>>& PixelBuffer<P>::outlinePath() const;
BIC_EACH_PIXEL_FORMAT(BIC_INSTANTIATE)
#undef BIC_INSTANTIATE

} // namespace bic
