#include "bic/algorithms/distance_transform.hpp"

#include "../kernels/operation_kernels.hpp"
#include "bic/algorithms/kernel_cache.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/platform/ci/filter.hpp"
#include "bic/platform/core/fatal.hpp"
#include "bic/platform/core/memory.hpp"
#include "processing_support.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <span>
#include <tbb/parallel_for.h>
#include <vector>

namespace bic {

namespace {

constexpr float kOne = 1.0f, kDiagonal = 1.4142135f, kKnight = 2.236068f;

using detail::greyFromRed;
using detail::isUsable;
using detail::rectArgument;
using detail::require;

cg::Rect argumentRect(const ci::ProcessorArguments& arguments, const char* source) {
    return detail::rectFromArguments(arguments, "extent", source);
}

double argumentRadius(const ci::ProcessorArguments& arguments, const char* source) {
    const auto it = arguments.find("searchLimitRadius");
    const auto* r = it == arguments.end() ? nullptr : std::get_if<double>(&it->second);
    if (!r) fatalError(std::string(source) + ": no searchLimitRadius argument.");
    return *r;
}

cg::Rect grown(const cg::Rect& r, double radius) { return r.integral().insetBy(-radius, -radius); }

} // namespace

void chamferDistanceInPlace(float* v, std::int64_t w, std::int64_t h, std::int64_t stride) {
    constexpr float inf = std::numeric_limits<float>::infinity();
    auto at = [&](std::int64_t x, std::int64_t y) {
        return x < 0 || y < 0 || x >= w || y >= h ? inf : v[y * stride + x];
    };
    // A pixel's checked update, for pixels near a border.
    auto forward = [&](std::int64_t x, std::int64_t y) {
        float& c = v[y * stride + x];
        if (c > 0)
            c = std::min({c, at(x - 1, y - 2) + kKnight, at(x + 1, y - 2) + kKnight,
                          at(x - 2, y - 1) + kKnight, at(x - 1, y - 1) + kDiagonal,
                          at(x, y - 1) + kOne, at(x + 1, y - 1) + kDiagonal,
                          at(x + 2, y - 1) + kKnight, at(x - 1, y) + kOne});
    };
    auto backward = [&](std::int64_t x, std::int64_t y) {
        float& c = v[y * stride + x];
        if (c > 0)
            c = std::min({c, at(x + 1, y) + kOne, at(x - 2, y + 1) + kKnight,
                          at(x - 1, y + 1) + kDiagonal, at(x, y + 1) + kOne,
                          at(x + 1, y + 1) + kDiagonal, at(x + 2, y + 1) + kKnight,
                          at(x - 1, y + 2) + kKnight, at(x + 1, y + 2) + kKnight});
    };
    // Away from the borders a row is done in two steps: the rows already final (above in the
    // first sweep, below in the second) are folded into every pixel at once, a loop the
    // compiler vectorises; then the neighbour along the row, the one dependency from pixel to
    // pixel, is taken in order. Each pixel sees the same values in the same order as when it is
    // updated alone.
    std::vector<float> folded(std::size_t(std::max<std::int64_t>(w, 0)));
    auto fold = [&](const float* row, const float* n1, const float* n2) {
        for (std::int64_t x = 2; x + 2 < w; ++x)
            folded[std::size_t(x)] = std::min(
                row[x], std::min(std::min(std::min(n2[x - 1], n2[x + 1]) + kKnight,
                                          std::min(std::min(n1[x - 2], n1[x + 2]) + kKnight,
                                                   std::min(n1[x - 1], n1[x + 1]) + kDiagonal)),
                                 n1[x] + kOne));
    };
    for (std::int64_t y = 0; y + 1 < h; ++y) {
        float* row = v + y * stride;
        if (y < 2 || w < 5) {
            for (std::int64_t x = 0; x + 1 < w; ++x)
                forward(x, y);
            continue;
        }
        fold(row, row - stride, row - 2 * stride);
        forward(0, y), forward(1, y);
        float left = row[1];
        for (std::int64_t x = 2; x + 2 < w; ++x) {
            if (row[x] > 0) row[x] = std::min(folded[std::size_t(x)], left + kOne);
            left = row[x];
        }
        forward(w - 2, y);
    }
    for (std::int64_t y = h - 2; y >= 0; --y) {
        float* row = v + y * stride;
        if (y + 2 >= h || w < 5) {
            for (std::int64_t x = w - 2; x >= 0; --x)
                backward(x, y);
            continue;
        }
        fold(row, row + stride, row + 2 * stride);
        backward(w - 2, y);
        float right = row[w - 2];
        for (std::int64_t x = w - 3; x >= 2; --x) {
            if (row[x] > 0) row[x] = std::min(folded[std::size_t(x)], right + kOne);
            right = row[x];
        }
        backward(1, y), backward(0, y);
    }
}

void euclideanDistance(const float* features, std::int64_t w, std::int64_t h, std::int64_t stride,
                       float* distances, float limit) {
    // Meijster, Roerdink and Hesselink's two phases in exact integers. First, per column, the
    // distance to the nearest feature in that column — swept a whole row at a time, so the
    // sweeps run along memory. "None" is w + h, farther than any real distance.
    const std::int64_t none = w + h;
    // Every entry is written by the first sweep: no zeroing, and huge pages for fewer faults.
    const auto storage = uninitializedBuffer(std::size_t(w * h) * sizeof(std::int32_t));
    const std::span<std::int32_t> g(reinterpret_cast<std::int32_t*>(storage.get()),
                                    std::size_t(w * h));
    constexpr std::int64_t kColumns = 512; // each task sweeps all rows of a band of columns
    tbb::parallel_for(std::int64_t(0), (w + kColumns - 1) / kColumns, [&](std::int64_t band) {
        const std::int64_t x0 = band * kColumns, x1 = std::min(w, x0 + kColumns);
        for (std::int64_t y = 0; y < h; ++y) {
            const float* f = features + y * stride;
            std::int32_t* row = g.data() + y * w;
            const std::int32_t* above = row - w;
            for (std::int64_t x = x0; x < x1; ++x)
                row[x] = f[x] > 0 ? 0
                                  : std::int32_t(y > 0 ? std::min(above[x] + 1, std::int32_t(none))
                                                       : none);
        }
        for (std::int64_t y = h - 2; y >= 0; --y) {
            std::int32_t* row = g.data() + y * w;
            const std::int32_t* below = row + w;
            for (std::int64_t x = x0; x < x1; ++x)
                row[x] = std::min(row[x], below[x] + 1);
        }
    });
    // Then, per row, the lower envelope of the parabolas (x − i)² + g(i)².
    const double limitSquared = double(limit) * double(limit);
    tbb::parallel_for(std::int64_t(0), h, [&](std::int64_t y) {
        thread_local std::vector<std::int64_t> s, t;
        s.resize(std::size_t(w)), t.resize(std::size_t(w));
        const std::int32_t* gy = g.data() + y * w;
        auto f = [&](std::int64_t x, std::int64_t i) {
            return (x - i) * (x - i) + std::int64_t(gy[i]) * gy[i];
        };
        // Rounded down; the numerator stays below 2^27, so a double holds it exactly and its
        // division is quicker than a 64-bit integer one.
        auto sep = [&](std::int64_t i, std::int64_t u) {
            const auto numerator =
                double(u * u - i * i + std::int64_t(gy[u]) * gy[u] - std::int64_t(gy[i]) * gy[i]);
            return std::int64_t(std::floor(numerator / double(2 * (u - i))));
        };
        std::int64_t q = 0;
        s[0] = 0, t[0] = 0;
        for (std::int64_t u = 1; u < w; ++u) {
            while (q >= 0 && f(t[std::size_t(q)], s[std::size_t(q)]) > f(t[std::size_t(q)], u))
                --q;
            if (q < 0) {
                q = 0;
                s[0] = u;
            } else {
                const std::int64_t next = 1 + sep(s[std::size_t(q)], u);
                if (next < w) {
                    ++q;
                    s[std::size_t(q)] = u;
                    t[std::size_t(q)] = next;
                }
            }
        }
        float* out = distances + y * w;
        for (std::int64_t u = w - 1; u >= 0; --u) {
            const auto squared = double(f(u, s[std::size_t(q)]));
            out[u] = squared < limitSquared && gy[s[std::size_t(q)]] < none
                         ? float(std::sqrt(squared))
                         : limit;
            if (u == t[std::size_t(q)]) --q;
        }
    });
}

// ---- Chamfer ---------------------------------------------------------------------------------

cg::Rect SearchLimitedDistanceKernel::roi(int, const ci::ProcessorArguments& arguments,
                                          const cg::Rect& outputRect) const {
    return grown(outputRect, argumentRadius(arguments, source_));
}

std::optional<std::vector<cg::Rect>>
SearchLimitedDistanceKernel::roiTileArray(int, const ci::ProcessorArguments& arguments,
                                          const cg::Rect&) const {
    return std::vector<cg::Rect>{
        grown(argumentRect(arguments, source_), argumentRadius(arguments, source_))};
}

void CDTImageProcessorKernel::process(const std::vector<ci::ProcessorInput>& inputs,
                                      const ci::ProcessorArguments& arguments,
                                      const ci::ProcessorOutput& output) const {
    auto* cache = detail::argumentObject<ImageProcessingKernelCache<bool>>(arguments, "cache");
    require(!inputs.empty() && inputs[0].surface && cache);
    // The input reaches past the extent by the search radius, where the prepared image has no
    // pixels: read as 0 those would be features. Nothing lies out there, so they start at +∞.
    const cg::Rect held = inputs[0].region;
    const cg::Rect extent = argumentRect(arguments, "CDTImageProcessorKernel").integral();
    processInPlaceThenCopy(inputs, output, *cache, [&](io::Surface& s) {
        auto* v = reinterpret_cast<float*>(s.baseAddress());
        const std::int64_t stride = s.bytesPerRow() / 4;
        const auto x0 =
            std::clamp(std::int64_t(extent.minX() - held.minX()), std::int64_t(0), s.width());
        const auto x1 = std::clamp(std::int64_t(extent.maxX() - held.minX()), x0, s.width());
        const auto top = std::clamp(std::int64_t(held.maxY() - extent.maxY()), std::int64_t(0),
                                    s.height()); // memory rows run top down
        const auto bottom = std::clamp(std::int64_t(held.maxY() - extent.minY()), top, s.height());
        constexpr float inf = std::numeric_limits<float>::infinity();
        for (std::int64_t y = 0; y < s.height(); ++y) {
            float* row = v + y * stride;
            if (y < top || y >= bottom) {
                std::fill(row, row + s.width(), inf);
            } else {
                std::fill(row, row + x0, inf);
                std::fill(row + x1, row + s.width(), inf);
            }
        }
        chamferDistanceInPlace(v, s.width(), s.height(), stride);
    });
}

ci::Image distanceMap(const ci::Image& mask, const cg::Rect& extent, double searchLimitRadius) {
    require(isUsable(extent));
    const auto prepared = kernels::prepareDT(mask, extent);
    if (!prepared)
        throw ImageCoreError(ImageCoreError::unknownError,
                             "the distance seed kernel gave no image");
    const auto raw = ci::ProcessorKernel::apply(
        std::make_shared<CDTImageProcessorKernel>(), extent, {*prepared},
        {{"extent", rectArgument(extent)},
         {"searchLimitRadius", searchLimitRadius},
         {"cache", std::shared_ptr<ci::ArgumentObject>(
                       std::make_shared<ImageProcessingKernelCache<bool>>())}});
    if (!raw)
        throw ImageCoreError(ImageCoreError::unknownError,
                             "the chamfer distance kernel gave no image");
    return greyFromRed(*raw);
}

// ---- Euclidean -------------------------------------------------------------------------------

void EDT::process(const std::vector<ci::ProcessorInput>& inputs,
                  const ci::ProcessorArguments& arguments,
                  const ci::ProcessorOutput& output) const {
    const auto it = arguments.find("searchLimitRadius");
    const auto* radius = it == arguments.end() ? nullptr : std::get_if<double>(&it->second);
    require(!inputs.empty() && inputs[0].surface && radius);
    io::Surface& in = *inputs[0].surface;
    const auto storage = uninitializedBuffer(std::size_t(in.width() * in.height()) * sizeof(float));
    auto* distances = reinterpret_cast<float*>(storage.get());
    {
        const io::SurfaceLock reading(in, io::LockOptions::readOnly);
        euclideanDistance(reinterpret_cast<const float*>(in.baseAddress()), in.width(), in.height(),
                          in.bytesPerRow() / 4, distances, float(*radius));
    }
    // The output region lies inside the input region (grown by the radius); copy its part.
    io::Surface& out = *output.surface;
    const auto ox = std::int64_t(output.region.minX() - inputs[0].region.minX());
    const auto oy = std::int64_t(inputs[0].region.maxY() - output.region.maxY());
    const io::SurfaceLock writing(out, io::LockOptions::readWrite);
    for (std::int64_t y = 0; y < out.height(); ++y) {
        auto* dst = reinterpret_cast<float*>(out.baseAddress() + y * out.bytesPerRow());
        const std::int64_t sy = oy + y;
        for (std::int64_t x = 0; x < out.width(); ++x) {
            const std::int64_t sx = ox + x;
            dst[x] = sx >= 0 && sy >= 0 && sx < in.width() && sy < in.height()
                         ? distances[std::size_t(sy * in.width() + sx)]
                         : float(*radius);
        }
    }
}

ci::Image edtMap(const ci::Image& image, const cg::Rect& extent, double searchLimitRadius) {
    require(isUsable(extent));
    const auto raw = ci::ProcessorKernel::apply(
        std::make_shared<EDT>(), extent, {image},
        {{"extent", rectArgument(extent)}, {"searchLimitRadius", searchLimitRadius}});
    if (!raw)
        throw ImageCoreError(ImageCoreError::unknownError,
                             "the Euclidean distance kernel gave no image");
    return greyFromRed(*raw);
}

} // namespace bic
