#include "bic/algorithms/dithering.hpp"

#include "../kernels/operation_kernels.hpp"
#include "bic/algorithms/procedural.hpp"
#include "bic/core/image_core_error.hpp"
#include "processing_support.hpp"

#include <cmath>
#include <cstring>

namespace bic {

namespace {

// The error rounded to sixteenths, half away from zero. Adding and taking away 1.5 × 2^23
// rounds to the nearest integer (ties to even) without leaving the floating-point unit; an
// exact tie is then moved away from zero. (Errors from samples far outside 0…1 take the library's
// rounding.)
inline float sixteenths(float e) {
    constexpr float magic = 12582912.0f; // 1.5 × 2^23
    const float scaled = e * 16;
    if (!(std::fabs(scaled) < 4194304.0f)) return std::round(scaled) * 0.0625f; // far outside 0…1
    const float nearest = (scaled + magic) - magic;
    const float off = scaled - nearest;
    const float away = scaled + std::copysign(0.5f, scaled);
    return (std::fabs(off) == 0.5f ? away : nearest) * 0.0625f;
}

// One Floyd–Steinberg step at (x, row); `below` is null on the last row. Unchecked steps need
// a pixel on either side.
template <bool Checked>
inline void floydSteinbergStep(float* row, float* below, std::int64_t x, std::int64_t w) {
    const float old = row[x];
    const auto now = float(old >= 0.5f);
    row[x] = now;
    const float err = sixteenths(old - now);
    const bool left = !Checked || x > 0, right = !Checked || x + 1 < w;
    if (right) row[x + 1] += err * 0.4375f;
    if (below) {
        if (left) below[x - 1] += err * 0.1875f;
        below[x] += err * 0.3125f;
        if (right) below[x + 1] += err * 0.0625f;
    }
}

// Each pixel waits for the error of the one before it, a chain of a dozen dependent operations.
// Rows are therefore dithered four at a time, each two pixels behind the one above: a cell
// still receives its shares in the order of the plain row-by-row loop (the row above has
// finished the three pixels over it before its own row reaches its left neighbour), so the sums
// are the same, and the four chains overlap in the processor.
void floydSteinberg(float* v, std::int64_t w, std::int64_t h, std::int64_t stride) {
    constexpr std::int64_t kRows = 4, kLag = 2;
    for (std::int64_t top = 0; top < h; top += kRows) {
        const std::int64_t rows = std::min(kRows, h - top);
        float* row[kRows] = {};
        float* below[kRows] = {};
        for (std::int64_t r = 0; r < rows; ++r) {
            row[r] = v + (top + r) * stride;
            below[r] = top + r + 1 < h ? row[r] + stride : nullptr;
        }
        const std::int64_t steps = w + kLag * (rows - 1);
        std::int64_t step = 0;
        auto edge = [&] {
            for (std::int64_t r = 0; r < rows; ++r) {
                const std::int64_t x = step - kLag * r;
                if (x >= 0 && x < w) floydSteinbergStep<true>(row[r], below[r], x, w);
            }
        };
        for (; step < std::min(steps, kLag * (rows - 1) + 1); ++step)
            edge();
        if (rows == kRows) {
            // Every row's pixel has neighbours on both sides; the pointers are held in
            // registers rather than read from the arrays at every step.
            float *r0 = row[0], *r1 = row[1], *r2 = row[2], *r3 = row[3];
            float *b0 = below[0], *b1 = below[1], *b2 = below[2], *b3 = below[3];
            for (; step + 1 < w; ++step) {
                floydSteinbergStep<false>(r0, b0, step, w);
                floydSteinbergStep<false>(r1, b1, step - kLag, w);
                floydSteinbergStep<false>(r2, b2, step - 2 * kLag, w);
                floydSteinbergStep<false>(r3, b3, step - 3 * kLag, w);
            }
        }
        for (; step < steps; ++step)
            edge();
    }
}

void atkinson(float* v, std::int64_t w, std::int64_t h, std::int64_t stride) {
    for (std::int64_t y = 0; y < h; ++y) {
        float* row = v + y * stride;
        float* below = y + 1 < h ? row + stride : nullptr;
        float* twoBelow = y + 2 < h ? row + 2 * stride : nullptr;
        for (std::int64_t x = 0; x < w; ++x) {
            const float old = row[x];
            const float now = old >= 0.5f ? 1.0f : 0.0f;
            row[x] = now;
            const float share = sixteenths(old - now) * 0.125f;
            if (x + 1 < w) row[x + 1] += share;
            if (x + 2 < w) row[x + 2] += share;
            if (below) {
                if (x > 0) below[x - 1] += share;
                below[x] += share;
                if (x + 1 < w) below[x + 1] += share;
            }
            if (twoBelow) twoBelow[x] += share;
        }
    }
}

} // namespace

void ditherInPlace(float* samples, std::int64_t width, std::int64_t height, std::int64_t stride,
                   DitheringMethod method) {
    if (method == DitheringMethod::floydSteinberg)
        floydSteinberg(samples, width, height, stride);
    else
        atkinson(samples, width, height, stride);
}

void DitherImageProcesorKernel::process(const std::vector<ci::ProcessorInput>& inputs,
                                        const ci::ProcessorArguments& arguments,
                                        const ci::ProcessorOutput& output) const {
    const auto method = arguments.find("method");
    if (inputs.empty() || !inputs[0].surface || method == arguments.end() ||
        !std::holds_alternative<bool>(method->second))
        throw ImageCoreError(ImageCoreError::parameterError);
    io::Surface& in = *inputs[0].surface;
    const auto w = in.width(), h = in.height();
    {
        std::lock_guard lock(mutex_);
        if (result_.empty()) {
            result_.resize(std::size_t(w * h));
            {
                const io::SurfaceLock reading(in, io::LockOptions::readOnly);
                for (std::int64_t y = 0; y < h; ++y)
                    std::memcpy(result_.data() + y * w, in.baseAddress() + y * in.bytesPerRow(),
                                std::size_t(w) * sizeof(float));
            }
            ditherInPlace(result_.data(), w, h, w,
                          std::get<bool>(method->second) ? DitheringMethod::atkinson
                                                         : DitheringMethod::floydSteinberg);
        }
    }
    // The output's rows within the input, both top first.
    io::Surface& out = *output.surface;
    const auto ox = std::int64_t(output.region.minX() - inputs[0].region.minX());
    const auto oy = std::int64_t(inputs[0].region.maxY() - output.region.maxY());
    if (ox < 0 || oy < 0 || ox + out.width() > w || oy + out.height() > h)
        throw ImageCoreError(ImageCoreError::parameterError);
    const io::SurfaceLock writing(out, io::LockOptions::readWrite);
    for (std::int64_t y = 0; y < out.height(); ++y)
        std::memcpy(out.baseAddress() + y * out.bytesPerRow(), result_.data() + (oy + y) * w + ox,
                    std::size_t(out.width()) * sizeof(float));
}

ci::Image dithered(const ci::Image& image, DitheringMethod method) {
    const cg::Rect extent = image.extent();
    if (extent.isEmpty() || extent.isInfinite())
        throw ImageCoreError(ImageCoreError::parameterError);
    const cg::Rect region = extent.integral();
    auto raw =
        ci::ProcessorKernel::apply(std::make_shared<DitherImageProcesorKernel>(region), region,
                                   {image}, {{"method", method == DitheringMethod::atkinson}});
    if (!raw)
        throw ImageCoreError(ImageCoreError::unknownError, "the dithering kernel gave no image");
    return detail::greyFromRed(*raw);
}

BICDitherFilter::BICDitherFilter()
    : ci::Filter("BICDitherFilter", {{"inputImage", {}}, {"inputLevels", {}}}) {}

void BICDitherFilter::setInputImage(std::optional<ci::Image> image) {
    setValue("inputImage", image ? ci::FilterValue(*image) : ci::FilterValue());
}

void BICDitherFilter::setInputLevels(std::optional<double> levels) {
    setValue("inputLevels", levels ? ci::FilterValue(*levels) : ci::FilterValue());
}

std::optional<ci::Image> BICDitherFilter::outputImage() const {
    const auto image = this->image("inputImage");
    const auto levels = number("inputLevels");
    if (!image || !levels) return std::nullopt;
    return kernels::dither(*image, RandomNoiseGenerator::uniform(), *levels);
}

} // namespace bic
