// The image graph's render paths against rendering the same pixels directly:
//  - a 256 × 256 dirty rectangle re-rendered into a 16384 × 16384 tiled canvas, the way the cache
//    node does it (crop, render into the tiles, read the canvas image back), against rendering
//    that rectangle into a buffer of its own;
//  - a whole 4096 × 4096 picture through the cache node (from the input's change to the node's
//    announcement) against rendering it into a memory accumulator.

#include "bic/accumulators/memory_image_accumulator.hpp"
#include "bic/accumulators/tiled_image_accumulator.hpp"
#include "bic/graph/async_image_cache_node.hpp"
#include "bic/platform/ci/filter.hpp"
#include "common/synthetic_images.hpp"

#include <benchmark/benchmark.h>

using namespace bic;

namespace {

// A layer as an editor keeps it: a picture under a colour adjustment.
ci::Image layer(const ci::Image& picture) {
    using V = std::vector<double>;
    return *ci::applyingFilter(
        picture, "CIColorMatrix",
        {{"inputRVector", V{0.9, 0.1, 0, 0}}, {"inputBiasVector", V{0.02, 0, 0, 0}}});
}

const ci::Image& picture4096() {
    static const PixelBuffer<PixelARGB8> photo = synthetic::photoLike<PixelARGB8>(4096, 4096);
    static const ci::Image image = layer(photo.image());
    return image;
}

// Procedural and infinite, so the huge canvas needs no huge input.
const ci::Image& endlessLayer() {
    static const ci::Image image = layer(picture4096().clampedToExtent());
    return image;
}

const cg::Rect dirty(9000, 7000, 256, 256);

void DirtyRectOnTiledCanvas(benchmark::State& state) {
    TiledImageAccumulator<PixelARGB8> canvas(4096);
    const ci::Image source = endlessLayer().composited(ci::Image::clear());
    canvas.setImage(source, cg::Rect(0, 0, 16384, 16384).insetBy(8000, 8000)); // some tiles
    for (auto _ : state) {
        canvas.setImage(source.cropped(dirty), dirty);
        benchmark::DoNotOptimize(canvas.image());
    }
}

void DirtyRectDirect(benchmark::State& state) {
    std::vector<std::uint8_t> bytes(256 * 256 * 4);
    for (auto _ : state)
        ci::Context::shared()->render(endlessLayer(), bytes.data(), 256 * 4, dirty,
                                      ci::Format::ARGB8);
}

void FullRenderThroughCacheNode(benchmark::State& state) {
    auto& main = dispatch::MainQueue::shared();
    const cg::Rect extent(0, 0, 4096, 4096);
    auto input = std::make_shared<StaticImageProvider>(Image(picture4096()));
    auto node = AsyncImageCacheNode::make(extent, 8, Image::Intent::image, 1000);
    struct Counter : ImageConsumer {
        int announced = 0;
        void invalidateInputImage(ImageProvider&, const cg::Rect&) override { ++announced; }
    };
    auto counter = std::make_shared<Counter>();
    node->addImageConsumer(*counter);
    node->setInputImageProvider(input);
    auto renderOnce = [&] {
        const int before = counter->announced;
        input->broadcastOutputImageChange(extent);
        main.runUntil([&] { return counter->announced > before; }, std::chrono::seconds(30));
    };
    renderOnce(); // makes the accumulator
    for (auto _ : state)
        renderOnce();
}

void FullRenderIntoMemoryAccumulator(benchmark::State& state) {
    auto canvas = MemoryImageAccumulator<PixelARGB8>::make(cg::Rect(0, 0, 4096, 4096));
    for (auto _ : state)
        canvas->setImage(picture4096(), canvas->extent());
}

#define GRAPH_BENCH(fn, name)                                                                      \
    BENCHMARK(fn)->Name(name)->Unit(benchmark::kMillisecond)->UseRealTime()

GRAPH_BENCH(DirtyRectOnTiledCanvas, "dirty_256_on_16384_canvas");
GRAPH_BENCH(DirtyRectDirect, "dirty_256_on_16384_canvas/peer:direct_render");
GRAPH_BENCH(FullRenderThroughCacheNode, "full_4096_through_cache_node");
GRAPH_BENCH(FullRenderIntoMemoryAccumulator,
            "full_4096_through_cache_node/peer:memory_accumulator");

} // namespace
