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

cg::Rect EqualizeImageProcessorKernelF::roi(int, const ci::ProcessorArguments& arguments,
                                            const cg::Rect&) const {
    return extentArgument(arguments, "EqualizeImageProcessorKernel");
}

namespace {

// The equalising map of red, green and blue: for each bucket, the cumulative share of pixels up
// to it, stretched so the first occupied bucket maps to 0. Dense below a million buckets; above,
// only the occupied buckets are kept (there are never more than pixels).
class Equalization {
public:
    Equalization(const io::Surface& in, std::size_t buckets) : n_(buckets) {
        const std::int64_t w = in.width(), h = in.height();
        const double total = double(w) * double(h);
        const bool dense = n_ <= (std::size_t(1) << 20);
        for (int c = 0; c < 3; ++c) {
            Channel& channel = channels_[std::size_t(c)];
            if (dense) {
                std::vector<double> counts(n_, 0.0);
                for (std::int64_t y = 0; y < h; ++y) {
                    const auto* row =
                        reinterpret_cast<const float*>(in.baseAddress() + y * in.bytesPerRow());
                    for (std::int64_t x = 0; x < w; ++x)
                        counts[bucketOf(row[4 * x + c])] += 1;
                }
                std::partial_sum(counts.begin(), counts.end(), counts.begin());
                channel.values = std::move(counts);
            } else {
                std::vector<std::size_t> buckets(std::size_t(w * h));
                for (std::int64_t y = 0; y < h; ++y) {
                    const auto* row =
                        reinterpret_cast<const float*>(in.baseAddress() + y * in.bytesPerRow());
                    for (std::int64_t x = 0; x < w; ++x)
                        buckets[std::size_t(y * w + x)] = bucketOf(row[4 * x + c]);
                }
                std::sort(buckets.begin(), buckets.end());
                for (std::size_t i = 0; i < buckets.size(); ++i) {
                    if (!channel.occupied.empty() && channel.occupied.back() == buckets[i])
                        channel.values.back() += 1;
                    else
                        channel.occupied.push_back(buckets[i]),
                            channel.values.push_back(
                                channel.values.empty() ? 1.0 : channel.values.back() + 1);
                }
            }
            const double low = *std::find_if(channel.values.begin(), channel.values.end(),
                                             [](double v) { return v > 0; });
            for (double& v : channel.values)
                v = total > low ? std::max(0.0, (v - low) / (total - low)) : v / total;
        }
    }

    float map(int c, float v) const {
        const Channel& channel = channels_[std::size_t(c)];
        const std::size_t bucket = bucketOf(v);
        if (channel.occupied.empty()) return float(channel.values[bucket]);
        // The cumulative share of the last occupied bucket at or below this one.
        const auto it = std::upper_bound(channel.occupied.begin(), channel.occupied.end(), bucket);
        return it == channel.occupied.begin()
                   ? 0.0f
                   : float(channel.values[std::size_t(it - channel.occupied.begin()) - 1]);
    }

private:
    struct Channel {
        std::vector<std::size_t> occupied; // sparse form only
        std::vector<double> values;
    };
    std::size_t bucketOf(float v) const {
        const float unit = v > 0 ? (v < 1 ? v : 1.0f) : 0.0f; // NaN counts as 0
        return std::min(n_ - 1, std::size_t(unit * float(n_)));
    }
    std::size_t n_;
    std::array<Channel, 3> channels_;
};

using EqualizationCache = ImageProcessingKernelCache<std::shared_ptr<const Equalization>>;

} // namespace

void EqualizeImageProcessorKernelF::process(const std::vector<ci::ProcessorInput>& inputs,
                                            const ci::ProcessorArguments& arguments,
                                            const ci::ProcessorOutput& output) const {
    const auto it = arguments.find("bucketCount");
    const auto* buckets = it == arguments.end() ? nullptr : std::get_if<double>(&it->second);
    require(!inputs.empty() && inputs[0].surface && buckets && *buckets >= 1 &&
            *buckets <= 4294967295.0 && std::floor(*buckets) == *buckets);
    io::Surface& in = *inputs[0].surface;
    const io::SurfaceLock reading(in, io::LockOptions::readOnly);
    // Every tile of one application sees the same input: the distribution is made once per
    // input state and shared, under the cache's lock so concurrent tiles do not each make it.
    std::shared_ptr<const Equalization> map;
    const ImageProcessingKernelCacheKey key{inputs[0].digest, in.id(), in.seed()};
    if (const auto cache = detail::argumentObject<EqualizationCache>(arguments, "cache")) {
        map = cache->valueOrMake(
            key, [&] { return std::make_shared<const Equalization>(in, std::size_t(*buckets)); });
    } else {
        map = std::make_shared<const Equalization>(in, std::size_t(*buckets));
    }
    io::Surface& out = *output.surface;
    const auto ox = std::int64_t(output.region.minX() - inputs[0].region.minX());
    const auto oy = std::int64_t(inputs[0].region.maxY() - output.region.maxY());
    const io::SurfaceLock writing(out, io::LockOptions::readWrite);
    for (std::int64_t y = 0; y < out.height(); ++y) {
        const auto* src =
            reinterpret_cast<const float*>(in.baseAddress() + (oy + y) * in.bytesPerRow()) + 4 * ox;
        auto* dst = reinterpret_cast<float*>(out.baseAddress() + y * out.bytesPerRow());
        for (std::int64_t x = 0; x < out.width(); ++x) {
            for (int c = 0; c < 3; ++c)
                dst[4 * x + c] = map->map(c, src[4 * x + c]);
            dst[4 * x + 3] = src[4 * x + 3];
        }
    }
}

ci::Image equalized(const ci::Image& image, std::int64_t bucketCount) {
    const cg::Rect extent = image.extent().integral();
    require(detail::isUsable(image.extent()) && bucketCount >= 1 && bucketCount <= 4294967295LL);
    auto result = ci::ProcessorKernel::apply(
        std::make_shared<EqualizeImageProcessorKernelF>(), extent, {image},
        {{"extent", rectArgument(extent)},
         {"bucketCount", double(bucketCount)},
         {"cache", std::shared_ptr<ci::ArgumentObject>(std::make_shared<EqualizationCache>())}});
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
