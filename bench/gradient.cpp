// Gradients of three colours with uneven midpoints and a fade, into RGBA8 on 2 threads:
//   radial_gradient_4096   ours: the gradient's image (the engine's radial ramp mapped through
//                          its 256-entry table); libvips: the same ramp computed from
//                          coordinates, scaled to 0…255 and mapped through a 256-entry RGBA
//                          lookup table (maplut), in the same run
//   angle_gradient_2048    the angle geometry (rotated ramp, coloured, scaled by ¼, moved)
//                          against the linear geometry of the same gradient and size
// Each benchmark states its inputs in its label, so runs can be compared.

#include "bic/gradients/color_gradient.hpp"
#include "bic/platform/ci/context.hpp"

#include <benchmark/benchmark.h>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#if BIC_HAVE_VIPS
#include <vips/vips.h>
#endif

namespace {

constexpr int kSize = 4096;
constexpr int kThreads = 2;
constexpr double kCentre = kSize / 2.0, kRadius = kSize / 2.0;

const bic::ColorGradient& gradient() {
    static const bic::ColorGradient g =
        *bic::ColorGradient::make({{{0.95f, 0.35f, 0.1f, 1}, 0},
                                   {{0.2f, 0.6f, 0.9f, 1}, 0.6, 0.3},
                                   {{0.1f, 0.1f, 0.3f, 1}, 1, 0.7}},
                                  {{1, 0}, {0.4, 1, 0.6}});
    return g;
}

void Radial(benchmark::State& state) {
    const bic::ci::Image image =
        gradient().image(bic::GradientType::radial, {kCentre, kCentre},
                         {kCentre + kRadius, kCentre}, false, std::nullopt);
    bic::ci::Context::Options options;
    options.threads = kThreads;
    const bic::ci::Context context(options);
    std::vector<std::uint8_t> out(std::size_t(kSize) * kSize * 4);
    for (auto _ : state) {
        context.render(image, out.data(), kSize * 4, {0, 0, double(kSize), double(kSize)},
                       bic::ci::Format::RGBA8);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetLabel("4096² RGBA8, 2 threads, centre (2048, 2048), radius 2048, 3 stops");
    state.counters["Mpx/s"] = benchmark::Counter(
        double(kSize) * kSize / 1e6 * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(Radial)->Name("radial_gradient_4096_rgba8")->Unit(benchmark::kMillisecond)->UseRealTime();

constexpr int kSmall = 2048;

void Geometry(benchmark::State& state, bic::GradientType type) {
    const bic::ci::Image image = gradient().image(
        type, {kSmall * 0.4, kSmall * 0.45}, {kSmall * 0.9, kSmall * 0.7}, false, std::nullopt);
    bic::ci::Context::Options options;
    options.threads = kThreads;
    const bic::ci::Context context(options);
    std::vector<std::uint8_t> out(std::size_t(kSmall) * kSmall * 4);
    for (auto _ : state) {
        context.render(image, out.data(), kSmall * 4, {0, 0, double(kSmall), double(kSmall)},
                       bic::ci::Format::RGBA8);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetLabel("2048² RGBA8, 2 threads, from (819, 922) to (1843, 1434)");
    state.counters["Mpx/s"] = benchmark::Counter(
        double(kSmall) * kSmall / 1e6 * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK_CAPTURE(Geometry, angle, bic::GradientType::angle)
    ->Name("angle_gradient_2048_rgba8")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK_CAPTURE(Geometry, linear, bic::GradientType::linear)
    ->Name("angle_gradient_2048_rgba8/peer:linear_geometry")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

#if BIC_HAVE_VIPS
// The gradient's table as 8-bit premultiplied RGBA, as our RGBA8 output stores it.
std::vector<std::uint8_t> lookupTable() {
    const auto& table = gradient().mappingData();
    std::vector<std::uint8_t> lut(256 * 4);
    for (int i = 0; i < 256; ++i) {
        float e[4];
        std::memcpy(e, table.data() + 16 * i, 16);
        for (int c = 0; c < 4; ++c)
            lut[std::size_t(4 * i + c)] =
                std::uint8_t(std::lround(255 * std::clamp(c < 3 ? e[c] * e[3] : e[3], 0.0f, 1.0f)));
    }
    return lut;
}

void VipsRadial(benchmark::State& state) {
    static const bool started = [] {
        vips_init("bench");
        vips_concurrency_set(kThreads);
        vips_cache_set_max(0);
        return true;
    }();
    (void)started;
    const std::vector<std::uint8_t> lut = lookupTable();
    for (auto _ : state) {
        VipsImage *xy = nullptr, *centred = nullptr, *squares = nullptr, *mean = nullptr,
                  *distance = nullptr, *levels = nullptr, *index = nullptr, *mappedImage = nullptr;
        VipsImage* table =
            vips_image_new_from_memory(lut.data(), lut.size(), 256, 1, 4, VIPS_FORMAT_UCHAR);
        const double scale[] = {1, 1}, offset[] = {-kCentre + 0.5, -kCentre + 0.5};
        // mean of the two squares is d²/2, so its square root is d/√2.
        const bool built =
            !vips_xyz(&xy, kSize, kSize, nullptr) &&
            !vips_linear(xy, &centred, scale, offset, 2, nullptr) &&
            !vips_multiply(centred, centred, &squares, nullptr) &&
            !vips_bandmean(squares, &mean, nullptr) &&
            !vips_pow_const1(mean, &distance, 0.5, nullptr) &&
            !vips_linear1(distance, &levels, 255 * std::sqrt(2.0) / kRadius, 0, nullptr) &&
            !vips_cast(levels, &index, VIPS_FORMAT_UCHAR, nullptr) &&
            !vips_maplut(index, &mappedImage, table, nullptr);
        std::size_t size = 0;
        void* out = built ? vips_image_write_to_memory(mappedImage, &size) : nullptr;
        if (!out) state.SkipWithError(vips_error_buffer());
        benchmark::DoNotOptimize(out);
        g_free(out);
        for (VipsImage* i :
             {xy, centred, squares, mean, distance, levels, index, mappedImage, table})
            if (i) g_object_unref(i);
    }
    state.SetLabel(std::string("4096² RGBA8, 2 threads, libvips ") + vips_version_string());
}
BENCHMARK(VipsRadial)
    ->Name("radial_gradient_4096_rgba8/peer:libvips")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
#endif

} // namespace
