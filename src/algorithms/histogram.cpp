#include "bic/algorithms/histogram.hpp"

#include "bic/accumulators/image_accumulator.hpp"
#include "bic/buffers/pixel_buffer.hpp"
#include "bic/geometry/image_core_error.hpp"
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

Histogram areaHistogram(const ci::Image& image, const cg::Rect& extent) {
    require(detail::isUsable(extent));
    auto accumulator = SurfaceImageAccumulator<PixelARGB8>::make(extent);
    if (!accumulator) throw ImageCoreError(ImageCoreError::memoryError);
    accumulator->setImage(image, extent.integral());
    std::vector<std::uint64_t> r(256), g(256), b(256), a(256);
    accumulator->withUnsafeBuffer(
        [&](const PixelARGB8* pixels, std::int64_t w, std::int64_t h, std::int64_t stride) {
            histogramARGB8888(reinterpret_cast<const std::uint8_t*>(pixels), w, h,
                              stride * std::int64_t(sizeof(PixelARGB8)),
                              {a.data(), r.data(), g.data(), b.data()});
        });
    r[0] -= a[0], g[0] -= a[0], b[0] -= a[0]; // fully transparent pixels have no colour
    return Histogram(std::move(r), std::move(g), std::move(b), std::move(a));
}

cg::Rect EqualizeImageProcessorKernelF::roi(int, const ci::ProcessorArguments& arguments,
                                            const cg::Rect&) const {
    return extentArgument(arguments, "EqualizeImageProcessorKernel");
}

void EqualizeImageProcessorKernelF::process(const std::vector<ci::ProcessorInput>& inputs,
                                            const ci::ProcessorArguments& arguments,
                                            const ci::ProcessorOutput& output) const {
    const auto it = arguments.find("bucketCount");
    const auto* buckets = it == arguments.end() ? nullptr : std::get_if<double>(&it->second);
    require(!inputs.empty() && inputs[0].surface && buckets && *buckets >= 1 &&
            *buckets <= 4294967295.0 && std::floor(*buckets) == *buckets);
    const io::Surface& in = *inputs[0].surface;
    const auto n = std::size_t(*buckets);
    const std::int64_t w = in.width(), h = in.height();
    auto bucketOf = [n](float v) {
        return std::min(n - 1, std::size_t(std::clamp(v, 0.0f, 1.0f) * float(n)));
    };
    const_cast<io::Surface&>(in).lock(io::LockOptions::readOnly);
    // Cumulative distributions of red, green and blue over the whole input.
    std::vector<std::vector<double>> cdf(3, std::vector<double>(n, 0.0));
    for (std::int64_t y = 0; y < h; ++y) {
        const auto* row = reinterpret_cast<const float*>(in.baseAddress() + y * in.bytesPerRow());
        for (std::int64_t x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                cdf[std::size_t(c)][bucketOf(row[4 * x + c])] += 1;
    }
    const double total = double(w * h);
    for (auto& channel : cdf) {
        std::partial_sum(channel.begin(), channel.end(), channel.begin());
        const double low =
            *std::find_if(channel.begin(), channel.end(), [](double v) { return v > 0; });
        for (double& v : channel)
            v = total > low ? std::max(0.0, (v - low) / (total - low)) : v / total;
    }
    io::Surface& out = *output.surface;
    const auto ox = std::int64_t(output.region.minX() - inputs[0].region.minX());
    const auto oy = std::int64_t(inputs[0].region.maxY() - output.region.maxY());
    out.lock(io::LockOptions::readWrite);
    for (std::int64_t y = 0; y < out.height(); ++y) {
        const auto* src =
            reinterpret_cast<const float*>(in.baseAddress() + (oy + y) * in.bytesPerRow()) + 4 * ox;
        auto* dst = reinterpret_cast<float*>(out.baseAddress() + y * out.bytesPerRow());
        for (std::int64_t x = 0; x < out.width(); ++x) {
            for (int c = 0; c < 3; ++c)
                dst[4 * x + c] = float(cdf[std::size_t(c)][bucketOf(src[4 * x + c])]);
            dst[4 * x + 3] = src[4 * x + 3];
        }
    }
    out.unlock(io::LockOptions::readWrite);
    const_cast<io::Surface&>(in).unlock(io::LockOptions::readOnly);
}

ci::Image equalized(const ci::Image& image, std::int64_t bucketCount) {
    const cg::Rect extent = image.extent().integral();
    require(detail::isUsable(image.extent()) && bucketCount >= 1 && bucketCount <= 4294967295LL);
    auto result = ci::ProcessorKernel::apply(
        std::make_shared<EqualizeImageProcessorKernelF>(), extent, {image},
        {{"extent", rectArgument(extent)}, {"bucketCount", double(bucketCount)}});
    if (!result) throw ImageCoreError(ImageCoreError::unknownError);
    return *result;
}

cg::Rect AverageColorImageProcessorKernel::roi(int, const ci::ProcessorArguments& arguments,
                                               const cg::Rect&) const {
    return extentArgument(arguments, "AverageColorImageProcessorKernel");
}

void AverageColorImageProcessorKernel::process(const std::vector<ci::ProcessorInput>& inputs,
                                               const ci::ProcessorArguments&,
                                               const ci::ProcessorOutput& output) const {
    require(!inputs.empty() && inputs[0].surface);
    const io::Surface& in = *inputs[0].surface;
    const_cast<io::Surface&>(in).lock(io::LockOptions::readOnly);
    double sum[3] = {0, 0, 0};
    std::uint64_t n = 0;
    for (std::int64_t y = 0; y < in.height(); ++y) {
        const auto* row = reinterpret_cast<const float*>(in.baseAddress() + y * in.bytesPerRow());
        for (std::int64_t x = 0; x < in.width(); ++x)
            if (row[4 * x + 3] > 0) {
                for (int c = 0; c < 3; ++c)
                    sum[c] += row[4 * x + c];
                ++n;
            }
    }
    const_cast<io::Surface&>(in).unlock(io::LockOptions::readOnly);
    const float mean[4] = {n ? float(sum[0] / double(n)) : 0.0f,
                           n ? float(sum[1] / double(n)) : 0.0f,
                           n ? float(sum[2] / double(n)) : 0.0f, 1.0f};
    io::Surface& out = *output.surface;
    out.lock(io::LockOptions::readWrite);
    for (std::int64_t y = 0; y < out.height(); ++y)
        for (std::int64_t x = 0; x < out.width(); ++x)
            std::memcpy(out.baseAddress() + y * out.bytesPerRow() + x * 16, mean, 16);
    out.unlock(io::LockOptions::readWrite);
}

PixelRGBA32 averageColor(const ci::Image& image, const cg::Rect& rect) {
    require(detail::isUsable(rect));
    const cg::Rect one(0, 0, 1, 1);
    const auto mean =
        ci::ProcessorKernel::apply(std::make_shared<AverageColorImageProcessorKernel>(), one,
                                   {image}, {{"extent", rectArgument(rect.integral())}});
    try {
        const PixelBuffer<PixelRGBA32> pixel(*mean, one, "");
        return *pixel(0, 0);
    } catch (const std::exception&) {
        return PixelRGBA32::withRGBA(0, 0, 0, 1);
    }
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
