#include "bic/algorithms/dithering.hpp"

#include "../filters/library_kernels.hpp"
#include "bic/algorithms/procedural.hpp"
#include "bic/geometry/image_core_error.hpp"

#include <cmath>
#include <cstring>

namespace bic {

namespace {

// The error rounded to sixteenths, half away from zero.
inline float sixteenths(float e) {
    const float scaled = e * 16;
    return float(int(scaled + (scaled >= 0 ? 0.5f : -0.5f))) * 0.0625f;
}

template <DitheringMethod Method>
void diffuse(float* v, std::int64_t w, std::int64_t h, std::int64_t stride) {
    for (std::int64_t y = 0; y < h; ++y) {
        float* row = v + y * stride;
        float* below = y + 1 < h ? row + stride : nullptr;
        float* twoBelow = y + 2 < h ? row + 2 * stride : nullptr;
        for (std::int64_t x = 0; x < w; ++x) {
            const float old = row[x];
            const float now = old >= 0.5f ? 1.0f : 0.0f;
            row[x] = now;
            const float err = sixteenths(old - now);
            if (err == 0) continue;
            const bool left = x > 0, right = x + 1 < w;
            if constexpr (Method == DitheringMethod::floydSteinberg) {
                if (right) row[x + 1] += err * 0.4375f;
                if (below) {
                    if (left) below[x - 1] += err * 0.1875f;
                    below[x] += err * 0.3125f;
                    if (right) below[x + 1] += err * 0.0625f;
                }
            } else {
                const float share = err * 0.125f;
                if (right) row[x + 1] += share;
                if (x + 2 < w) row[x + 2] += share;
                if (below) {
                    if (left) below[x - 1] += share;
                    below[x] += share;
                    if (right) below[x + 1] += share;
                }
                if (twoBelow) twoBelow[x] += share;
            }
        }
    }
}

} // namespace

void ditherInPlace(float* samples, std::int64_t width, std::int64_t height, std::int64_t stride,
                   DitheringMethod method) {
    if (method == DitheringMethod::floydSteinberg)
        diffuse<DitheringMethod::floydSteinberg>(samples, width, height, stride);
    else
        diffuse<DitheringMethod::atkinson>(samples, width, height, stride);
}

void DitherImageProcesorKernel::process(const std::vector<ci::ProcessorInput>& inputs,
                                        const ci::ProcessorArguments& arguments,
                                        const ci::ProcessorOutput& output) const {
    const auto method = arguments.find("method");
    if (inputs.empty() || !inputs[0].surface || method == arguments.end() ||
        !std::holds_alternative<bool>(method->second))
        throw ImageCoreError(ImageCoreError::parameterError);
    const io::Surface& in = *inputs[0].surface;
    const auto w = in.width(), h = in.height();
    {
        std::lock_guard lock(mutex_);
        if (result_.empty()) {
            result_.resize(std::size_t(w * h));
            const_cast<io::Surface&>(in).lock(io::LockOptions::readOnly);
            for (std::int64_t y = 0; y < h; ++y)
                std::memcpy(result_.data() + y * w, in.baseAddress() + y * in.bytesPerRow(),
                            std::size_t(w) * sizeof(float));
            const_cast<io::Surface&>(in).unlock(io::LockOptions::readOnly);
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
    out.lock(io::LockOptions::readWrite);
    for (std::int64_t y = 0; y < out.height(); ++y)
        std::memcpy(out.baseAddress() + y * out.bytesPerRow(), result_.data() + (oy + y) * w + ox,
                    std::size_t(out.width()) * sizeof(float));
    out.unlock(io::LockOptions::readWrite);
}

ci::Image dithered(const ci::Image& image, DitheringMethod method) {
    const cg::Rect extent = image.extent();
    if (extent.isEmpty() || extent.isInfinite())
        throw ImageCoreError(ImageCoreError::parameterError);
    const cg::Rect region = extent.integral();
    auto raw =
        ci::ProcessorKernel::apply(std::make_shared<DitherImageProcesorKernel>(region), region,
                                   {image}, {{"method", method == DitheringMethod::atkinson}});
    if (!raw) throw ImageCoreError(ImageCoreError::unknownError);
    using V = std::vector<double>;
    auto result = ci::applyingFilter(*raw, "CIColorMatrix",
                                     {{"inputRVector", V{1, 0, 0, 0}},
                                      {"inputGVector", V{1, 0, 0, 0}},
                                      {"inputBVector", V{1, 0, 0, 0}},
                                      {"inputAVector", V{0, 0, 0, 1}},
                                      {"inputBiasVector", V{0, 0, 0, 0}}});
    if (!result) throw ImageCoreError(ImageCoreError::unknownError);
    return *result;
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
    return libraryKernels().colorKernel("dither").apply(
        image->extent(), {*image, RandomNoiseGenerator::uniform(), *levels});
}

} // namespace bic
