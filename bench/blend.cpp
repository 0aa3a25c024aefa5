// Layer blending: a 4096² RGBA8 layer with partial alpha blended over a 4096² RGBA8 picture into
// RGBA8, in eleven modes, on 2 threads, against libvips' composite2 in the same run with the
// same mode and thread count (libvips has no hue, saturation, colour or luminosity mode: normal
// stands in as their peer). The floor: copying the three images once.
//
// Targets: every mode at most 0.3× libvips; hue, saturation, colour and luminosity at 150
// megapixels a second or more; normal within 4× the copies.

#include "bic/filters/blend_mode.hpp"
#include "bic/platform/ci/context.hpp"

#include <benchmark/benchmark.h>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#if BIC_HAVE_VIPS
#include <vips/vips.h>
#endif

namespace {

constexpr std::int64_t kSize = 4096;
constexpr int kThreads = 2;
constexpr std::size_t kBytes = std::size_t(kSize * kSize * 4);

// Premultiplied RGBA8 bytes: a picture (opaque) and a layer whose alpha varies across it.
const std::vector<std::uint8_t>& pixels(bool layer) {
    static std::vector<std::uint8_t> images[2];
    auto& image = images[layer];
    if (image.empty()) {
        image.resize(kBytes);
        std::mt19937 random(layer ? 2 : 1);
        for (std::int64_t y = 0; y < kSize; ++y)
            for (std::int64_t x = 0; x < kSize; ++x) {
                std::uint8_t* p = &image[std::size_t((y * kSize + x) * 4)];
                const int alpha = layer ? int((x + y) / 32 % 256) : 255;
                const int r = int((x + (random() & 15)) / 16 % 256), g = int(y / 16 % 256),
                          b = int((x ^ y) / 16 % 256);
                p[0] = std::uint8_t(r * alpha / 255);
                p[1] = std::uint8_t(g * alpha / 255);
                p[2] = std::uint8_t(b * alpha / 255);
                p[3] = std::uint8_t(alpha);
            }
    }
    return image;
}

bic::ci::Image imageOf(bool layer) {
    return *bic::ci::Image::withSharedBitmap(nullptr, pixels(layer).data(), kSize * 4, kSize, kSize,
                                             bic::ci::Format::RGBA8);
}

void Blend(benchmark::State& state, bic::BlendMode::Case mode) {
    bic::ci::Context::Options options;
    options.threads = kThreads;
    const bic::ci::Context context(options);
    const bic::ci::Image blended = bic::blended(imageOf(true), imageOf(false), mode, 1);
    std::vector<std::uint8_t> out(kBytes);
    for (auto _ : state) {
        context.render(blended, out.data(), kSize * 4, {0, 0, double(kSize), double(kSize)},
                       bic::ci::Format::RGBA8);
        benchmark::DoNotOptimize(out.data());
    }
    state.counters["Mpx/s"] = benchmark::Counter(
        double(kSize * kSize) / 1e6 * double(state.iterations()), benchmark::Counter::kIsRate);
    state.SetLabel("4096² RGBA8 over RGBA8, 2 threads");
}

// Reading both images and writing one: what any blend must at least do.
void CopyThree(benchmark::State& state) {
    std::vector<std::uint8_t> a(kBytes), b(kBytes), c(kBytes);
    for (auto _ : state) {
        std::memcpy(a.data(), pixels(true).data(), kBytes);
        std::memcpy(b.data(), pixels(false).data(), kBytes);
        std::memcpy(c.data(), a.data(), kBytes);
        benchmark::DoNotOptimize(c.data());
    }
}

#if BIC_HAVE_VIPS
void Vips(benchmark::State& state, VipsBlendMode mode) {
    static const bool started = [] {
        vips_init("bench");
        vips_concurrency_set(kThreads);
        vips_cache_set_max(0);
        return true;
    }();
    (void)started;
    for (auto _ : state) {
        VipsImage* top = vips_image_new_from_memory(pixels(true).data(), kBytes, kSize, kSize, 4,
                                                    VIPS_FORMAT_UCHAR);
        VipsImage* bottom = vips_image_new_from_memory(pixels(false).data(), kBytes, kSize, kSize,
                                                       4, VIPS_FORMAT_UCHAR);
        VipsImage *base = nullptr, *overlay = nullptr, *blended = nullptr, *cast = nullptr;
        const bool built =
            !vips_copy(bottom, &base, "interpretation", VIPS_INTERPRETATION_sRGB, nullptr) &&
            !vips_copy(top, &overlay, "interpretation", VIPS_INTERPRETATION_sRGB, nullptr) &&
            !vips_composite2(base, overlay, &blended, mode, "premultiplied", TRUE, nullptr) &&
            !vips_cast(blended, &cast, VIPS_FORMAT_UCHAR, nullptr);
        std::size_t size = 0;
        void* out = built ? vips_image_write_to_memory(cast, &size) : nullptr;
        if (!out) state.SkipWithError(vips_error_buffer());
        benchmark::DoNotOptimize(out);
        g_free(out);
        for (VipsImage* i : {top, bottom, base, overlay, blended, cast})
            if (i) g_object_unref(i);
    }
    state.SetLabel(std::string("libvips ") + vips_version_string());
}
#endif

struct Pair {
    const char* name;
    bic::BlendMode::Case ours;
#if BIC_HAVE_VIPS
    VipsBlendMode theirs;
#endif
};

#if BIC_HAVE_VIPS
#define MODE(name, ours, theirs)                                                                   \
    Pair { name, bic::BlendMode::ours, VIPS_BLEND_MODE_##theirs }
#else
#define MODE(name, ours, theirs)                                                                   \
    Pair { name, bic::BlendMode::ours }
#endif

const Pair kModes[] = {
    MODE("normal", normal, OVER),
    MODE("multiply", multiply, MULTIPLY),
    MODE("screen", screen, SCREEN),
    MODE("overlay", overlay, OVERLAY),
    MODE("color_burn", colorBurn, COLOUR_BURN),
    MODE("soft_light", softLight, SOFT_LIGHT),
    MODE("difference", difference, DIFFERENCE),
    MODE("hue", hue, OVER),
    MODE("saturation", saturation, OVER),
    MODE("color", color, OVER),
    MODE("luminosity", luminosity, OVER),
};

const bool registered = [] {
    for (const Pair& pair : kModes) {
        const std::string name = std::string("blend_4096_rgba8/") + pair.name;
        benchmark::RegisterBenchmark(name.c_str(),
                                     [mode = pair.ours](benchmark::State& s) { Blend(s, mode); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
#if BIC_HAVE_VIPS
        benchmark::RegisterBenchmark((name + "/peer:libvips").c_str(),
                                     [mode = pair.theirs](benchmark::State& s) { Vips(s, mode); })
            ->Unit(benchmark::kMillisecond)
            ->UseRealTime();
#endif
        if (pair.ours == bic::BlendMode::normal)
            benchmark::RegisterBenchmark((name + "/peer:copy_three_images").c_str(), CopyThree)
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
    }
    return true;
}();

} // namespace
