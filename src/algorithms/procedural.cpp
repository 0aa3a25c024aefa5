#include "bic/algorithms/procedural.hpp"

#include "bic/accumulators/memory_image_accumulator.hpp"
#include "bic/platform/ci/builtin_filters.hpp"
#include "bic/platform/ci/filter.hpp"
#include "bic/platform/core/fatal.hpp"
#include "bic/platform/gk/random.hpp"

#include <array>
#include <cmath>
#include <sys/random.h>

namespace bic {

namespace {

// Cloud offsets come from the system's cryptographic generator: u uniform in 0…2^24 (inclusive)
// gives r = u·2^−24 − 0.5, and u = 2^24 gives exactly 0.5.
class CloudOffsets {
public:
    double next() {
        constexpr std::uint64_t values = (std::uint64_t(1) << 24) + 1;
        constexpr std::uint64_t limit = ((std::uint64_t(1) << 32) / values) * values;
        std::uint64_t v;
        do
            v = nextWord();
        while (v >= limit);
        const std::uint64_t u = v % values;
        return u == (std::uint64_t(1) << 24) ? 0.5 : double(u) * 0x1p-24 - 0.5;
    }

private:
    std::uint32_t nextWord() {
        if (index_ == words_.size()) {
            auto* bytes = reinterpret_cast<std::uint8_t*>(words_.data());
            std::size_t filled = 0;
            while (filled < sizeof(words_)) {
                const ssize_t n = getrandom(bytes + filled, sizeof(words_) - filled, 0);
                if (n < 0) fatalError("The system's random generator failed.");
                filled += std::size_t(n);
            }
            index_ = 0;
        }
        return words_[index_++];
    }
    std::array<std::uint32_t, 1024> words_{};
    std::size_t index_ = words_.size();
};

// The grid's cells through the pixel's float red accessor, in the accumulator's coordinates.
template <RGBAPixel P>
struct CloudGrid {
    MemoryImageAccumulator<P>& grid;
    float get(std::int64_t x, std::int64_t y) const { return grid.pixel(x, y).red(); }
    void set(std::int64_t x, std::int64_t y, double v) {
        P p = grid.pixel(x, y);
        p.setRed(float(v));
        grid.setPixel(x, y, p);
    }
};

ci::Image noiseImage(const char* title, auto&& draw) {
    PixelBuffer<PixelARGB8> tile(IntegralSize(512, 512), cg::ColorSpace::deviceRGB(), title);
    tile.withUnsafeBuffer([&](std::span<PixelARGB8> pixels) {
        if (pixels.data() == nullptr) fatalError("RandomNoiseGenerator: no pixel memory.");
        for (std::int64_t y = 0; y < 512; ++y)
            for (std::int64_t x = 0; x < 512; ++x) {
                std::uint8_t d[4];
                for (auto& v : d) {
                    const std::int64_t value = draw();
                    precondition(value >= 0 && value <= 255, "A noise draw left 0…255.");
                    v = std::uint8_t(value);
                }
                PixelARGB8& p = pixels[std::size_t(y * tile.pixelsPerRow() + x)];
                p.alphaComponent = d[3];
                p.redComponent = d[0];
                p.greenComponent = d[1];
                p.blueComponent = d[2];
            }
    });
    return ci::affineTile(tile.image(), cg::AffineTransform::identity());
}

constexpr std::array<std::uint8_t, 16> kNoiseSeed{};

} // namespace

template <RGBAPixel P>
std::optional<PixelBuffer<P>> Renderer::clouds(const cg::Size& size, int) {
    const double side = std::max(size.width, size.height);
    if (!(side >= 1)) return std::nullopt;
    std::int64_t n = 3;
    while (double(n) < side) {
        if (n > (std::int64_t(1) << 20)) return std::nullopt;
        n = 2 * (n - 1) + 1;
    }
    auto accumulator = MemoryImageAccumulator<P>::make(cg::Rect(0, 0, double(n), double(n)));
    if (!accumulator) return std::nullopt;
    CloudGrid<P> grid{*accumulator};
    CloudOffsets random;
    const std::int64_t period = n - 1;
    double amplitude = 0.75;
    for (std::int64_t s = n - 1; s >= 2; s /= 2) {
        const std::int64_t h = s / 2;
        for (std::int64_t y = 0; y < n - 1; y += s)
            for (std::int64_t x = 0; x < n - 1; x += s) {
                const double sum = double(grid.get(x, y)) + grid.get(x + s, y) +
                                   grid.get(x, y + s) + grid.get(x + s, y + s);
                grid.set(x + h, y + h, sum * 0.25 + random.next() * amplitude);
            }
        for (std::int64_t y = 0; y < n - 1; y += s)
            for (std::int64_t x = 0; x < n - 1; x += s) {
                const std::int64_t midpoints[4][2] = {
                    {x + h, y}, {x + h, y + s}, {x + s, y + h}, {x, y + h}};
                for (const auto& [px, py] : midpoints) {
                    bool wrapped = false;
                    auto wrap = [&](std::int64_t i) {
                        if (i > n - 1) return wrapped = true, i - period;
                        if (i < 0) return wrapped = true, i + period;
                        return i;
                    };
                    const double sum = double(grid.get(wrap(px + h), py)) +
                                       grid.get(wrap(px - h), py) + grid.get(px, wrap(py + h)) +
                                       grid.get(px, wrap(py - h));
                    grid.set(px, py, sum * 0.25 + (wrapped ? 0.0 : random.next() * amplitude));
                }
            }
        amplitude *= 0.66;
    }
    accumulator->withUnsafeMutableBuffer(
        [](P* pixels, std::int64_t w, std::int64_t hgt, std::int64_t stride) {
            for (std::int64_t y = 0; y < hgt; ++y)
                for (std::int64_t x = 0; x < w; ++x) {
                    P& p = pixels[y * stride + x];
                    p.greenComponent = p.redComponent;
                    p.blueComponent = p.redComponent;
                    p.setAlpha(1.0f);
                }
        });
    accumulator->flushDrawing();
    return PixelBuffer<P>(accumulator->image(), cg::Rect(0, 0, double(n), double(n)), "");
}

template std::optional<PixelBuffer<PixelARGB8>> Renderer::clouds<PixelARGB8>(const cg::Size&, int);
template std::optional<PixelBuffer<PixelRGBA16>> Renderer::clouds<PixelRGBA16>(const cg::Size&,
                                                                               int);
template std::optional<PixelBuffer<PixelRGBA32>> Renderer::clouds<PixelRGBA32>(const cg::Size&,
                                                                               int);

const ci::Image& RandomNoiseGenerator::uniform() {
    static const ci::Image image = [] {
        gk::ARC4RandomSource source(kNoiseSeed);
        gk::RandomDistribution distribution(source, 0, 255);
        return noiseImage("Random Uniform", [&] { return distribution.nextInt(); });
    }();
    return image;
}

const ci::Image& RandomNoiseGenerator::gaussian() {
    static const ci::Image image = [] {
        gk::ARC4RandomSource source(kNoiseSeed);
        gk::GaussianDistribution distribution(source, 0, 255);
        return noiseImage("Random Gaussian", [&] { return distribution.nextInt(); });
    }();
    return image;
}

} // namespace bic
