// The engine against plain memory bandwidth, libvips and OpenCV, at the same thread count.
//
//   copy      4096² RGBA8 through the engine into RGBA8                 vs memcpy of the bytes
//   pipeline  translate by (0.5, 0.5), colour matrix, multiply-blend
//             over a second image, 4096² RGBA8 → RGBA8                  vs libvips
//   blur      Gaussian σ = 10 on 4096² RGBA float                       vs OpenCV, libvips

#include "bic/platform/ci/context.hpp"
#include "bic/platform/ci/filter.hpp"

#include <benchmark/benchmark.h>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#if BIC_HAVE_VIPS
#include <vips/vips.h>
#endif
#if BIC_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

constexpr std::int64_t kSize = 4096;
const int kThreads = int(std::max(1u, std::thread::hardware_concurrency()));

const std::vector<std::uint8_t>& photo(int seed) {
    static std::vector<std::uint8_t> images[2];
    auto& image = images[seed];
    if (image.empty()) {
        image.resize(std::size_t(kSize * kSize * 4));
        std::mt19937 random{unsigned(seed)};
        for (std::int64_t y = 0; y < kSize; ++y)
            for (std::int64_t x = 0; x < kSize; ++x) {
                std::uint8_t* p = &image[std::size_t((y * kSize + x) * 4)];
                p[0] = std::uint8_t((x + (random() & 7)) / 16);
                p[1] = std::uint8_t((y + (random() & 7)) / 16);
                p[2] = std::uint8_t((x ^ y) / 16);
                p[3] = 255;
            }
    }
    return image;
}

bic::ci::Image imageOf(const std::vector<std::uint8_t>& bytes) {
    return *bic::ci::Image::withSharedBitmap(nullptr, bytes.data(), kSize * 4, kSize, kSize,
                                             bic::ci::Format::RGBA8);
}

bic::ci::Context context() {
    bic::ci::Context::Options options;
    options.threads = kThreads;
    return bic::ci::Context(options);
}

void Copy(benchmark::State& state) {
    const auto image = imageOf(photo(0));
    std::vector<std::uint8_t> out(photo(0).size());
    const auto ctx = context();
    for (auto _ : state)
        ctx.render(image, out.data(), kSize * 4, {0, 0, double(kSize), double(kSize)},
                   bic::ci::Format::RGBA8);
    state.SetBytesProcessed(state.iterations() * std::int64_t(out.size()));
}
BENCHMARK(Copy)->Name("copy_4096_rgba8")->Unit(benchmark::kMillisecond)->UseRealTime();

void Memcpy(benchmark::State& state) {
    const auto& in = photo(0);
    std::vector<std::uint8_t> out(in.size());
    for (auto _ : state) {
        std::memcpy(out.data(), in.data(), in.size());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(out.size()));
}
BENCHMARK(Memcpy)
    ->Name("copy_4096_rgba8/peer:memcpy")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void Pipeline(benchmark::State& state) {
    using namespace bic::ci;
    const Image top = *applyingFilter(imageOf(photo(0)).translated(0.5, 0.5), "CIColorMatrix",
                                      {{"inputRVector", std::vector<double>{0.8, 0.1, 0.1, 0}},
                                       {"inputBiasVector", std::vector<double>{0.05, 0, 0, 0}}});
    const Image blended =
        *applyingFilter(top, "CIMultiplyBlendMode", {{"inputBackgroundImage", imageOf(photo(1))}});
    std::vector<std::uint8_t> out(photo(0).size());
    const auto ctx = context();
    for (auto _ : state)
        ctx.render(blended, out.data(), kSize * 4, {0, 0, double(kSize), double(kSize)},
                   Format::RGBA8);
}
BENCHMARK(Pipeline)->Name("pipeline_4096_rgba8")->Unit(benchmark::kMillisecond)->UseRealTime();

std::vector<float> floatPhoto() {
    const auto& bytes = photo(0);
    std::vector<float> f(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i)
        f[i] = bytes[i] / 255.0f;
    return f;
}

void Blur(benchmark::State& state) {
    const double sigma = double(state.range(0));
    using namespace bic::ci;
    const auto pixels = floatPhoto();
    const Image source =
        *Image::withSharedBitmap(nullptr, pixels.data(), kSize * 16, kSize, kSize, Format::RGBAf);
    const Image blurred =
        *applyingFilter(source.clampedToExtent(), "CIGaussianBlur", {{"inputRadius", sigma}});
    std::vector<float> out(pixels.size());
    const auto ctx = context();
    for (auto _ : state)
        ctx.render(blurred, out.data(), kSize * 16, {0, 0, double(kSize), double(kSize)},
                   Format::RGBAf);
}
BENCHMARK(Blur)
    ->Name("gaussian_sigma10_4096_rgbaf")
    ->Arg(10)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(Blur)
    ->Name("gaussian_sigma40_4096_rgbaf")
    ->Arg(40)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

#if BIC_HAVE_VIPS
struct Vips {
    Vips() {
        vips_init("bench");
        vips_concurrency_set(kThreads);
        vips_cache_set_max(0);
    }
};
void ensureVips() { static Vips vips; }

void VipsPipeline(benchmark::State& state) {
    ensureVips();
    const auto& a = photo(0);
    const auto& b = photo(1);
    double matrix[] = {0.8, 0.1, 0.1, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    for (auto _ : state) {
        VipsImage* top =
            vips_image_new_from_memory(a.data(), a.size(), kSize, kSize, 4, VIPS_FORMAT_UCHAR);
        VipsImage* bottom =
            vips_image_new_from_memory(b.data(), b.size(), kSize, kSize, 4, VIPS_FORMAT_UCHAR);
        VipsImage *moved = nullptr, *m = nullptr, *recombined = nullptr, *biased = nullptr,
                  *blended = nullptr, *cast = nullptr, *base = nullptr, *overlay = nullptr;
        m = vips_image_new_matrix_from_array(4, 4, matrix, 16);
        double scale[] = {1, 1, 1, 1}, offset[] = {0.05 * 255, 0, 0, 0};
        const bool built =
            !vips_affine(top, &moved, 1, 0, 0, 1, "odx", 0.5, "ody", 0.5, nullptr) &&
            !vips_recomb(moved, &recombined, m, nullptr) &&
            !vips_linear(recombined, &biased, scale, offset, 4, nullptr) &&
            // Memory images are plain bands; compositing wants to know they are sRGB.
            !vips_copy(bottom, &base, "interpretation", VIPS_INTERPRETATION_sRGB, nullptr) &&
            !vips_copy(biased, &overlay, "interpretation", VIPS_INTERPRETATION_sRGB, nullptr) &&
            !vips_composite2(base, overlay, &blended, VIPS_BLEND_MODE_MULTIPLY, nullptr) &&
            !vips_cast(blended, &cast, VIPS_FORMAT_UCHAR, nullptr);
        std::size_t size = 0;
        void* out = built ? vips_image_write_to_memory(cast, &size) : nullptr;
        if (!out) {
            state.SkipWithError(vips_error_buffer());
            break;
        }
        g_free(out);
        for (VipsImage* i :
             {top, bottom, moved, m, recombined, biased, base, overlay, blended, cast})
            if (i) g_object_unref(i);
    }
}
BENCHMARK(VipsPipeline)
    ->Name("pipeline_4096_rgba8/peer:libvips")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void VipsBlur(benchmark::State& state) {
    ensureVips();
    const auto pixels = floatPhoto();
    for (auto _ : state) {
        VipsImage* in = vips_image_new_from_memory(pixels.data(), pixels.size() * 4, kSize, kSize,
                                                   4, VIPS_FORMAT_FLOAT);
        VipsImage* out = nullptr;
        vips_gaussblur(in, &out, 10.0, nullptr);
        std::size_t size = 0;
        void* bytes = vips_image_write_to_memory(out, &size);
        if (!bytes) state.SkipWithError(vips_error_buffer());
        g_free(bytes);
        g_object_unref(out);
        g_object_unref(in);
    }
}
BENCHMARK(VipsBlur)
    ->Name("gaussian_sigma10_4096_rgbaf/peer:libvips")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
#endif

#if BIC_HAVE_OPENCV
void OpenCVBlur(benchmark::State& state) {
    const double sigma = double(state.range(0));
    cv::setNumThreads(kThreads);
    auto pixels = floatPhoto();
    const cv::Mat in{static_cast<int>(kSize), static_cast<int>(kSize), CV_32FC4, pixels.data()};
    cv::Mat out;
    for (auto _ : state)
        cv::GaussianBlur(in, out, cv::Size(0, 0), sigma, sigma, cv::BORDER_REPLICATE);
}
BENCHMARK(OpenCVBlur)
    ->Name("gaussian_sigma10_4096_rgbaf/peer:OpenCV")
    ->Arg(10)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(OpenCVBlur)
    ->Name("gaussian_sigma40_4096_rgbaf/peer:OpenCV")
    ->Arg(40)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
#endif

} // namespace
