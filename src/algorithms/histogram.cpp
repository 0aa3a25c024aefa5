#include "bic/algorithms/histogram.hpp"

#include "bic/accumulators/image_accumulator.hpp"
#include "bic/algorithms/kernel_cache.hpp"
#include "bic/buffers/pixel_buffer.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/platform/ci/context.hpp"
#include "bic/platform/core/fatal.hpp"
#include "processing_support.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <optional>
#include <tbb/collaborative_call_once.h>
#include <tbb/combinable.h>
#include <tbb/parallel_for.h>

namespace bic {

namespace {

using detail::rectArgument;
using detail::require;

cg::Rect extentArgument(const ci::ProcessorArguments& arguments, const char* source) {
    return detail::rectFromArguments(arguments, "extent", source);
}

// A smooth, plausible channel: a skewed bump around `peak` over 0…last, scaled so the counts
// add up to `total`, with the peak exactly `peakCount` and the first buckets as given.
std::vector<std::uint64_t> demoChannel(int last, int peak, std::uint64_t peakCount,
                                       std::uint64_t total, std::vector<std::uint64_t> first) {
    std::vector<double> shape(256, 0.0);
    for (int i = 0; i <= last; ++i) {
        const double width = i < peak ? peak / 2.2 : (last - peak + 8) / 2.0;
        const double d = (i - peak) / width;
        shape[std::size_t(i)] = std::exp(-d * d) + 0.02;
    }
    std::vector<std::uint64_t> counts(256, 0);
    const double sum = std::accumulate(shape.begin(), shape.end(), 0.0);
    for (int i = 0; i <= last; ++i)
        counts[std::size_t(i)] = std::uint64_t(shape[std::size_t(i)] / sum * double(total));
    std::copy(first.begin(), first.end(), counts.begin());
    counts[std::size_t(peak)] = peakCount;
    // Spread what is left over (or take back what is too much) around the peak's shoulders,
    // never reaching the peak's count.
    auto current = [&] { return std::accumulate(counts.begin(), counts.end(), std::uint64_t(0)); };
    for (int step = 1; current() != total; step = step % 40 + 1) {
        for (int side : {-1, 1}) {
            const int i = peak + side * step;
            if (i < int(first.size()) || i > last || current() == total) continue;
            auto& c = counts[std::size_t(i)];
            if (current() < total && c + 1 < peakCount)
                ++c;
            else if (current() > total && c > 1)
                --c;
        }
    }
    return counts;
}

} // namespace

Histogram::Histogram(std::vector<std::uint64_t> r, std::vector<std::uint64_t> g,
                     std::vector<std::uint64_t> b, std::vector<std::uint64_t> a)
    : red(std::move(r)), green(std::move(g)), blue(std::move(b)), alpha(std::move(a)) {
    precondition(red.size() == 256 && green.size() == 256 && blue.size() == 256 &&
                     alpha.size() == 256,
                 "A histogram holds 256 counts a channel.");
}

Histogram& Histogram::demo() {
    static Histogram sample = [] {
        constexpr std::uint64_t pixels = 220480;
        std::vector<std::uint64_t> alpha(256, 0);
        alpha[255] = pixels;
        return Histogram(demoChannel(255, 189, 3057, pixels, {3, 2, 4, 5, 4, 6}),
                         demoChannel(211, 131, 2639, pixels, {}),
                         demoChannel(212, 125, 2453, pixels, {}), alpha);
    }();
    return sample;
}

void histogramARGB8888(const std::uint8_t* pixels, std::int64_t width, std::int64_t height,
                       std::int64_t bytesPerRow, std::array<std::uint64_t*, 4> counts) {
    // Two tables a channel, alternating between pixels, so that runs of equal values do not
    // wait on the same counter; 32-bit counters, flushed before they could overflow.
    std::vector<std::uint32_t> tables(8 * 256, 0);
    std::uint64_t sinceFlush = 0;
    auto flush = [&] {
        for (int c = 0; c < 4; ++c)
            for (int v = 0; v < 256; ++v)
                counts[std::size_t(c)][v] += std::uint64_t(tables[std::size_t((2 * c) * 256 + v)]) +
                                             tables[std::size_t((2 * c + 1) * 256 + v)];
        std::fill(tables.begin(), tables.end(), 0u);
        sinceFlush = 0;
    };
    std::uint32_t* t = tables.data();
    for (std::int64_t y = 0; y < height; ++y) {
        const std::uint8_t* p = pixels + y * bytesPerRow;
        std::int64_t x = 0;
        for (; x + 1 < width; x += 2, p += 8) {
            ++t[0 * 256 + p[0]], ++t[2 * 256 + p[1]], ++t[4 * 256 + p[2]], ++t[6 * 256 + p[3]];
            ++t[1 * 256 + p[4]], ++t[3 * 256 + p[5]], ++t[5 * 256 + p[6]], ++t[7 * 256 + p[7]];
        }
        if (x < width)
            ++t[0 * 256 + p[0]], ++t[2 * 256 + p[1]], ++t[4 * 256 + p[2]], ++t[6 * 256 + p[3]];
        sinceFlush += std::uint64_t(width);
        if (sinceFlush > (std::uint64_t(1) << 31)) flush();
    }
    flush();
}

namespace {

// Areas are rendered in bands of at most a surface's width and this many pixels, so a measure
// works on any area and holds at most one band at a time.
constexpr std::int64_t kBandPixels = std::int64_t(1) << 22;

template <class F>
void forEachBand(const ci::Image& image, const cg::Rect& rect, ci::Format format, F&& use) {
    const cg::Rect area = rect.integral();
    const auto x0 = std::int64_t(area.minX()), y0 = std::int64_t(area.minY());
    const auto width = std::int64_t(area.width()), height = std::int64_t(area.height());
    const std::int64_t bandWidth = std::min(width, io::Surface::maximumWidth);
    const std::int64_t bandHeight = std::max<std::int64_t>(1, kBandPixels / bandWidth);
    const std::int64_t bpp = ci::bytesPerPixel(format);
    std::vector<std::uint8_t> bytes(std::size_t(bandWidth * std::min(bandHeight, height) * bpp));
    for (std::int64_t y = 0; y < height; y += bandHeight)
        for (std::int64_t x = 0; x < width; x += bandWidth) {
            const std::int64_t w = std::min(bandWidth, width - x);
            const std::int64_t h = std::min(bandHeight, height - y);
            const cg::Rect band(double(x0 + x), double(y0 + y), double(w), double(h));
            if (image.extent().intersects(band))
                ci::Context::shared()->render(image, bytes.data(), w * bpp, band, format);
            else
                std::fill(bytes.begin(), bytes.end(), std::uint8_t(0));
            use(bytes.data(), w, h, w * bpp);
        }
}

// Counts every channel of 8-bit ARGB pixels, colour only where alpha is not 0. Transparent
// pixels' colour goes into tables of its own, so the loop has no branch.
void countARGB8888(const std::uint8_t* pixels, std::int64_t width, std::int64_t height,
                   std::int64_t bytesPerRow, std::array<std::vector<std::uint64_t>*, 4> counts) {
    std::vector<std::uint32_t> tables(7 * 256, 0); // alpha, colour, colour of transparent pixels
    std::uint64_t sinceFlush = 0;
    auto flush = [&] {
        for (int c = 0; c < 4; ++c)
            for (int v = 0; v < 256; ++v)
                (*counts[std::size_t(c)])[std::size_t(v)] += tables[std::size_t(c * 256 + v)];
        std::fill(tables.begin(), tables.end(), 0u);
        sinceFlush = 0;
    };
    std::uint32_t* t = tables.data();
    for (std::int64_t y = 0; y < height; ++y) {
        const std::uint8_t* p = pixels + y * bytesPerRow;
        for (std::int64_t x = 0; x < width; ++x, p += 4) {
            std::uint32_t* colour = t + (p[0] == 0 ? 3 * 256 : 0);
            ++t[p[0]];
            ++colour[1 * 256 + p[1]], ++colour[2 * 256 + p[2]], ++colour[3 * 256 + p[3]];
        }
        sinceFlush += std::uint64_t(width);
        if (sinceFlush > (std::uint64_t(1) << 31)) flush();
    }
    flush();
}

} // namespace

Histogram areaHistogram(const ci::Image& image, const cg::Rect& extent) {
    require(detail::isUsable(extent));
    std::vector<std::uint64_t> r(256), g(256), b(256), a(256);
    forEachBand(
        image, extent, ci::Format::ARGB8,
        [&](const std::uint8_t* bytes, std::int64_t w, std::int64_t h, std::int64_t rowBytes) {
            countARGB8888(bytes, w, h, rowBytes, {&a, &r, &g, &b});
        });
    return Histogram(std::move(r), std::move(g), std::move(b), std::move(a));
}

namespace {

// Where a pixel value falls among `n` buckets of 0…1 (NaN counts as 0).
std::size_t bucketOf(float v, std::size_t n) {
    const float unit = v > 0 ? (v < 1 ? v : 1.0f) : 0.0f;
    return std::min(n - 1, std::size_t(unit * float(n)));
}

// The buckets of `count` floats when there are at most 2^20 buckets: a loop the compiler
// vectorises, so that counting and mapping are left with one table access per value.
void denseIndices(const float* values, std::int64_t count, std::size_t n,
                  std::vector<std::int32_t>& indices) {
    indices.resize(std::size_t(count));
    const float scale = float(n);
    const auto last = std::int32_t(n - 1);
    std::int32_t* out = indices.data();
    for (std::int64_t i = 0; i < count; ++i) {
        const float v = values[i];
        const float unit = v > 0 ? (v < 1 ? v : 1.0f) : 0.0f;
        const auto bucket = std::int32_t(unit * scale);
        out[i] = bucket < last ? bucket : last;
    }
}

// Red, green and blue counted into buckets: dense counts up to a million buckets; above, each
// pixel's bucket is kept (there are never more occupied buckets than pixels).
struct BucketCounts {
    std::size_t n = 0;
    std::array<std::vector<std::uint64_t>, 3> dense;
    std::array<std::vector<std::size_t>, 3> sparse;
    std::vector<std::int32_t> indices; // scratch of addRow

    explicit BucketCounts(std::size_t buckets) : n(buckets) {
        if (isDense())
            for (auto& c : dense)
                c.assign(n, 0);
    }
    bool isDense() const { return n <= (std::size_t(1) << 20); }

    void addRow(const float* row, std::int64_t width) {
        if (isDense()) {
            denseIndices(row, width * 4, n, indices);
            for (std::int64_t x = 0; x < width; ++x)
                for (std::size_t c = 0; c < 3; ++c)
                    ++dense[c][std::size_t(indices[std::size_t(4 * x) + c])];
            return;
        }
        for (std::size_t c = 0; c < 3; ++c)
            for (std::int64_t x = 0; x < width; ++x)
                sparse[c].push_back(bucketOf(row[4 * x + std::int64_t(c)], n));
    }
    void add(BucketCounts&& other) {
        for (std::size_t c = 0; c < 3; ++c) {
            if (isDense())
                for (std::size_t i = 0; i < n; ++i)
                    dense[c][i] += other.dense[c][i];
            else
                sparse[c].insert(sparse[c].end(), other.sparse[c].begin(), other.sparse[c].end());
        }
    }
};

// The equalising map of red, green and blue: for each bucket, the cumulative share of pixels up
// to it, stretched so the first occupied bucket maps to 0.
class Equalization {
public:
    Equalization(BucketCounts&& counts, double total) : n_(counts.n) {
        for (std::size_t c = 0; c < 3; ++c) {
            Channel& channel = channels_[c];
            std::vector<double> values;
            if (counts.isDense()) {
                values.assign(counts.dense[c].begin(), counts.dense[c].end());
                std::partial_sum(values.begin(), values.end(), values.begin());
            } else {
                auto& buckets = counts.sparse[c];
                std::sort(buckets.begin(), buckets.end());
                for (std::size_t i = 0; i < buckets.size(); ++i) {
                    if (!channel.occupied.empty() && channel.occupied.back() == buckets[i])
                        values.back() += 1;
                    else
                        channel.occupied.push_back(buckets[i]),
                            values.push_back(values.empty() ? 1.0 : values.back() + 1);
                }
            }
            const auto first =
                std::find_if(values.begin(), values.end(), [](double v) { return v > 0; });
            const double low = first == values.end() ? 0 : *first;
            channel.values.reserve(values.size());
            for (const double v : values)
                channel.values.push_back(
                    float(total > low ? std::max(0.0, (v - low) / (total - low)) : v / total));
        }
    }

    /// Maps a row of RGBA floats; alpha is copied.
    void mapRow(const float* src, float* dst, std::int64_t width,
                std::vector<std::int32_t>& indices) const {
        if (channels_[0].occupied.empty()) {
            denseIndices(src, width * 4, n_, indices);
            const float* tables[3] = {channels_[0].values.data(), channels_[1].values.data(),
                                      channels_[2].values.data()};
            for (std::int64_t x = 0; x < width; ++x) {
                for (std::size_t c = 0; c < 3; ++c)
                    dst[4 * x + std::int64_t(c)] = tables[c][indices[std::size_t(4 * x) + c]];
                dst[4 * x + 3] = src[4 * x + 3];
            }
            return;
        }
        for (std::int64_t x = 0; x < width; ++x) {
            for (std::size_t c = 0; c < 3; ++c)
                dst[4 * x + std::int64_t(c)] = map(c, src[4 * x + std::int64_t(c)]);
            dst[4 * x + 3] = src[4 * x + 3];
        }
    }

private:
    float map(std::size_t c, float v) const {
        const Channel& channel = channels_[c];
        const std::size_t bucket = bucketOf(v, n_);
        if (channel.occupied.empty()) return channel.values[bucket];
        // The cumulative share of the last occupied bucket at or below this one.
        const auto it = std::upper_bound(channel.occupied.begin(), channel.occupied.end(), bucket);
        return it == channel.occupied.begin()
                   ? 0.0f
                   : channel.values[std::size_t(it - channel.occupied.begin()) - 1];
    }

    struct Channel {
        std::vector<std::size_t> occupied; // sparse form only
        std::vector<float> values;
    };
    std::size_t n_;
    std::array<Channel, 3> channels_;
};

// What `equalized` hands its kernel: the image whose distribution it maps through, made on the
// first tile of the first render and shared by every later tile. The kernel then reads only
// each tile of its input, not its whole extent at once.
class EqualizationSource final : public ci::ArgumentObject {
public:
    EqualizationSource(ci::Image image, const cg::Rect& extent, std::size_t buckets)
        : image_(std::move(image)), extent_(extent), buckets_(buckets) {}

    const Equalization& equalization() const {
        // Tiles that arrive while it is made help make it (the work is isolated: a helping
        // thread cannot pick up another tile of this kernel, which would wait for itself).
        tbb::collaborative_call_once(made_, [&] { make(); });
        return *equalization_;
    }

private:
    void make() const {
        // Tile-sized pieces, so that each is counted while it is still in the core's cache.
        const auto x0 = std::int64_t(extent_.minX()), y0 = std::int64_t(extent_.minY());
        const auto width = std::int64_t(extent_.width()), height = std::int64_t(extent_.height());
        const std::int64_t pieceWidth = std::min(width, io::Surface::maximumWidth);
        const std::int64_t pieceRows =
            std::max<std::int64_t>(1, (std::int64_t(1) << 16) / pieceWidth);
        const std::int64_t across = (width + pieceWidth - 1) / pieceWidth;
        const std::int64_t pieces = (height + pieceRows - 1) / pieceRows * across;
        struct Local {
            BucketCounts counts;
            std::vector<float> pixels;
        };
        tbb::combinable<Local> locals([&] {
            return Local{BucketCounts(buckets_),
                         std::vector<float>(std::size_t(pieceWidth * pieceRows * 4))};
        });
        // Pieces are rendered on one thread each and counted where they were rendered.
        const ci::Context serial(ci::Context::Options{.threads = 1});
        tbb::parallel_for(std::int64_t{0}, pieces, [&](std::int64_t piece) {
            const std::int64_t x = piece % across * pieceWidth, y = piece / across * pieceRows;
            const std::int64_t w = std::min(pieceWidth, width - x),
                               h = std::min(pieceRows, height - y);
            Local& local = locals.local();
            serial.render(image_, local.pixels.data(), w * 16,
                          cg::Rect(double(x0 + x), double(y0 + y), double(w), double(h)),
                          ci::Format::RGBAf);
            for (std::int64_t row = 0; row < h; ++row)
                local.counts.addRow(local.pixels.data() + row * w * 4, w);
        });
        BucketCounts total(buckets_);
        locals.combine_each([&](Local& part) { total.add(std::move(part.counts)); });
        equalization_.emplace(std::move(total), double(width) * double(height));
    }

    ci::Image image_;
    cg::Rect extent_;
    std::size_t buckets_;
    mutable tbb::collaborative_once_flag made_;
    mutable std::optional<Equalization> equalization_;
};

using EqualizationCache = ImageProcessingKernelCache<std::shared_ptr<const Equalization>>;

std::size_t bucketArgument(const ci::ProcessorArguments& arguments) {
    const auto it = arguments.find("bucketCount");
    const auto* buckets = it == arguments.end() ? nullptr : std::get_if<double>(&it->second);
    require(buckets && *buckets >= 1 && *buckets <= 4294967295.0 &&
            std::floor(*buckets) == *buckets);
    return std::size_t(*buckets);
}

} // namespace

cg::Rect EqualizeImageProcessorKernelF::roi(int, const ci::ProcessorArguments& arguments,
                                            const cg::Rect& outputRect) const {
    if (detail::argumentObject<EqualizationSource>(arguments, "source")) return outputRect;
    return extentArgument(arguments, "EqualizeImageProcessorKernel");
}

void EqualizeImageProcessorKernelF::process(const std::vector<ci::ProcessorInput>& inputs,
                                            const ci::ProcessorArguments& arguments,
                                            const ci::ProcessorOutput& output) const {
    const std::size_t buckets = bucketArgument(arguments);
    require(!inputs.empty() && inputs[0].surface);
    io::Surface& in = *inputs[0].surface;
    const io::SurfaceLock reading(in, io::LockOptions::readOnly);
    const Equalization* map = nullptr;
    std::shared_ptr<const Equalization> counted;
    if (const auto* source = detail::argumentObject<EqualizationSource>(arguments, "source")) {
        map = &source->equalization();
    } else {
        // Used on its own, the kernel's input is its whole extent: the distribution is counted
        // from it once per input state and shared by the tiles.
        auto make = [&] {
            BucketCounts counts(buckets);
            for (std::int64_t y = 0; y < in.height(); ++y)
                counts.addRow(
                    reinterpret_cast<const float*>(in.baseAddress() + y * in.bytesPerRow()),
                    in.width());
            return std::make_shared<const Equalization>(std::move(counts),
                                                        double(in.width()) * double(in.height()));
        };
        const ImageProcessingKernelCacheKey key{inputs[0].digest, in.id(), in.seed()};
        const auto cache = detail::argumentObject<EqualizationCache>(arguments, "cache");
        counted = cache ? cache->valueOrMake(key, make) : make();
        map = counted.get();
    }
    io::Surface& out = *output.surface;
    const auto ox = std::int64_t(output.region.minX() - inputs[0].region.minX());
    const auto oy = std::int64_t(inputs[0].region.maxY() - output.region.maxY());
    const io::SurfaceLock writing(out, io::LockOptions::readWrite);
    std::vector<std::int32_t> indices;
    for (std::int64_t y = 0; y < out.height(); ++y) {
        const auto* src =
            reinterpret_cast<const float*>(in.baseAddress() + (oy + y) * in.bytesPerRow()) + 4 * ox;
        auto* dst = reinterpret_cast<float*>(out.baseAddress() + y * out.bytesPerRow());
        map->mapRow(src, dst, out.width(), indices);
    }
}

ci::Image equalized(const ci::Image& image, std::int64_t bucketCount) {
    const cg::Rect extent = image.extent().integral();
    require(detail::isUsable(image.extent()) && bucketCount >= 1 && bucketCount <= 4294967295LL);
    auto result = ci::ProcessorKernel::apply(
        std::make_shared<EqualizeImageProcessorKernelF>(), extent, {image},
        {{"extent", rectArgument(extent)},
         {"bucketCount", double(bucketCount)},
         {"source", std::shared_ptr<ci::ArgumentObject>(std::make_shared<EqualizationSource>(
                        image, extent, std::size_t(bucketCount)))}});
    if (!result)
        throw ImageCoreError(ImageCoreError::unknownError, "the equalisation kernel gave no image");
    return *result;
}

cg::Rect AverageColorImageProcessorKernel::roi(int, const ci::ProcessorArguments& arguments,
                                               const cg::Rect&) const {
    return extentArgument(arguments, "AverageColorImageProcessorKernel");
}

namespace {

// Sums of the colour of the pixels with alpha above 0, and their count.
struct ColorSums {
    double sum[3] = {0, 0, 0};
    std::uint64_t count = 0;

    void add(const float* pixels, std::int64_t width, std::int64_t height,
             std::int64_t floatsPerRow) {
        for (std::int64_t y = 0; y < height; ++y) {
            const float* row = pixels + y * floatsPerRow;
            for (std::int64_t x = 0; x < width; ++x)
                if (row[4 * x + 3] > 0) {
                    for (int c = 0; c < 3; ++c)
                        sum[c] += row[4 * x + c];
                    ++count;
                }
        }
    }
    PixelRGBA32 mean() const {
        return count ? PixelRGBA32::withRGBA(sum[0] / double(count), sum[1] / double(count),
                                             sum[2] / double(count), 1)
                     : PixelRGBA32::withRGBA(0, 0, 0, 1);
    }
};

} // namespace

void AverageColorImageProcessorKernel::process(const std::vector<ci::ProcessorInput>& inputs,
                                               const ci::ProcessorArguments&,
                                               const ci::ProcessorOutput& output) const {
    require(!inputs.empty() && inputs[0].surface);
    io::Surface& in = *inputs[0].surface;
    ColorSums sums;
    {
        const io::SurfaceLock reading(in, io::LockOptions::readOnly);
        sums.add(reinterpret_cast<const float*>(in.baseAddress()), in.width(), in.height(),
                 in.bytesPerRow() / 4);
    }
    const PixelRGBA32 mean = sums.mean();
    const float pixel[4] = {mean.red(), mean.green(), mean.blue(), 1.0f};
    io::Surface& out = *output.surface;
    const io::SurfaceLock writing(out, io::LockOptions::readWrite);
    for (std::int64_t y = 0; y < out.height(); ++y)
        for (std::int64_t x = 0; x < out.width(); ++x)
            std::memcpy(out.baseAddress() + y * out.bytesPerRow() + x * 16, pixel, 16);
}

PixelRGBA32 averageColor(const ci::Image& image, const cg::Rect& rect) {
    require(detail::isUsable(rect));
    // Summed band by band rather than through the kernel's one surface, which could not hold an
    // area wider than a surface.
    ColorSums sums;
    try {
        forEachBand(
            image, rect, ci::Format::RGBAf,
            [&](const std::uint8_t* bytes, std::int64_t w, std::int64_t h, std::int64_t rowBytes) {
                sums.add(reinterpret_cast<const float*>(bytes), w, h, rowBytes / 4);
            });
    } catch (const std::exception&) {
        return PixelRGBA32::withRGBA(0, 0, 0, 1);
    }
    return sums.mean();
}

namespace {
template <class P>
std::optional<P> pixelAt(const ci::Image& image, const IntegralPoint& point) {
    if (!image.extent().contains(cg::Point{double(point.x), double(point.y)})) return std::nullopt;
    const ci::Image moved =
        image.transformed(cg::AffineTransform::translation(-double(point.x), -double(point.y)))
            .cropped({0, 0, 1, 1});
    auto accumulator = SurfaceImageAccumulator<P>::make({0, 0, 1, 1});
    if (!accumulator) throw ImageCoreError(ImageCoreError::memoryError);
    accumulator->setImage(moved, {0, 0, 1, 1});
    return accumulator->pixel(0, 0);
}
} // namespace

std::optional<PixelRGBA32> color(const ci::Image& image, const IntegralPoint& point) {
    return pixelAt<PixelRGBA32>(image, point);
}

std::optional<float> grayValue(const ci::Image& image, const IntegralPoint& point) {
    const auto p = pixelAt<PixelGray32>(image, point);
    return p ? std::optional<float>(p->gray()) : std::nullopt;
}

} // namespace bic
