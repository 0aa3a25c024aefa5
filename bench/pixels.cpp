// Pixel accessor and conversion throughput: the per-pixel paths every later algorithm runs.

#include "bic/pixels/pixel_formats.hpp"

#include <benchmark/benchmark.h>
#include <vector>

namespace {

void BM_ARGB8ToRGBA16(benchmark::State& state) {
    std::vector<bic::PixelARGB8> src(1 << 16);
    for (std::size_t i = 0; i < src.size(); ++i)
        src[i] = bic::PixelARGB8(i & 255, (i >> 8) & 255, (i * 7) & 255, 255);
    std::vector<bic::PixelRGBA16> dst(src.size());
    for (auto _ : state) {
        for (std::size_t i = 0; i < src.size(); ++i)
            dst[i] = bic::pixelCast<bic::PixelRGBA16>(src[i]);
        benchmark::DoNotOptimize(dst.data());
    }
    state.SetItemsProcessed(state.iterations() * src.size());
}
BENCHMARK(BM_ARGB8ToRGBA16);

void BM_HueSaturationValue(benchmark::State& state) {
    std::vector<bic::PixelRGBA32> px(1 << 14);
    for (std::size_t i = 0; i < px.size(); ++i)
        px[i] = bic::PixelRGBA32((i & 127) / 127.0f, ((i >> 7) & 127) / 127.0f, 0.25f, 1.0f);
    for (auto _ : state) {
        float sum = 0;
        for (const auto& p : px)
            sum += p.hue().value_or(0) + p.saturation() + p.value();
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(state.iterations() * px.size());
}
BENCHMARK(BM_HueSaturationValue);

} // namespace
