// The cache node under a storm of changes from the main thread while it renders at 120 frames a
// second: afterwards its output must equal a direct render of the final input. Built with
// ThreadSanitizer by the "tsan" preset; a watchdog fails the run if anything deadlocks.

#include "bic/accumulators/image_accumulator.hpp"
#include "bic/graph/async_image_cache_node.hpp"
#include "bic/platform/ci/context.hpp"

#include <array>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <mutex>
#include <random>
#include <thread>

using namespace bic;
using namespace std::chrono_literals;

namespace {

class Watchdog {
public:
    explicit Watchdog(std::chrono::seconds limit)
        : thread_([this, limit] {
              std::unique_lock lock(mutex_);
              if (!done_.wait_for(lock, limit, [this] { return finished_; })) {
                  std::fprintf(stderr, "watchdog: no progress within %lld s\n",
                               static_cast<long long>(limit.count()));
                  std::abort();
              }
          }) {}
    ~Watchdog() {
        {
            std::lock_guard lock(mutex_);
            finished_ = true;
        }
        done_.notify_all();
        thread_.join();
    }

private:
    std::mutex mutex_;
    std::condition_variable done_;
    bool finished_ = false;
    std::thread thread_;
};

std::vector<std::uint8_t> pixels(const ci::Image& image, const cg::Rect& area) {
    const auto w = std::int64_t(area.width()), h = std::int64_t(area.height());
    std::vector<std::uint8_t> out(std::size_t(w * h * 4));
    ci::Context::shared()->render(image, out.data(), w * 4, area, ci::Format::ARGB8);
    return out;
}

} // namespace

TEST(AsyncImageCacheNodeStress, TenThousandChangesEndInTheFinalPicture) {
    const Watchdog watchdog(60s);
    auto& main = dispatch::MainQueue::shared();
    std::mt19937 random(2026);
    auto uniform = [&](int lo, int hi) {
        return std::uniform_int_distribution<int>(lo, hi)(random);
    };
    auto anyRect = [&] {
        return cg::Rect(uniform(-20, 200), uniform(-20, 200), uniform(1, 120), uniform(1, 120));
    };
    auto anyPicture = [&] {
        const ci::Color colour{uniform(0, 255) / 255.0, uniform(0, 255) / 255.0,
                               uniform(0, 255) / 255.0, uniform(0, 255) / 255.0};
        return Image(ci::Image::constant(colour).cropped(anyRect()));
    };
    std::vector<std::shared_ptr<StaticImageProvider>> providers;
    for (int i = 0; i < 3; ++i)
        providers.push_back(std::make_shared<StaticImageProvider>(anyPicture()));
    const std::vector<cg::Rect> extents{{0, 0, 160, 160}, {10, 20, 100, 90}, {-30, -30, 256, 200}};

    auto node = AsyncImageCacheNode::make(extents[0], 8, Image::Intent::image, 120);
    node->setInputImageProvider(providers[0]);
    std::shared_ptr<StaticImageProvider> current = providers[0];
    for (int op = 0; op < 10000; ++op) {
        switch (uniform(0, 9)) {
        case 0:
            node->setExtent(extents[std::size_t(uniform(0, 2))]);
            break;
        case 1:
            node->setBitDepth(std::array{8, 16, 32}[std::size_t(uniform(0, 2))]);
            break;
        case 2:
            current = providers[std::size_t(uniform(0, 2))];
            node->setInputImageProvider(current);
            break;
        case 3:
            node->setSinglePassRendering(uniform(0, 1) == 1);
            break;
        case 4:
        case 5:
        case 6:
            current->setImage(anyPicture());
            break;
        default:
            current->broadcastOutputImageChange(anyRect());
            break;
        }
        if (op % 16 == 0) {
            main.drain();
            // Drawn while the queue renders into the accumulator behind it.
            (void)pixels(node->outputImage(RenderContext()).ciImage, cg::Rect(0, 0, 24, 24));
        }
        if (op % 64 == 0) std::this_thread::sleep_for(1ms);
    }

    // The final state: depth 8, a known extent and picture, announced by one last change.
    const cg::Rect extent = extents[2];
    node->setBitDepth(8);
    node->setExtent(extent);
    const Image picture(
        ci::Image::constant(ci::Color{0.2, 0.6, 0.4, 0.8}).cropped(cg::Rect(-10, 5, 150, 120)));
    current->setImage(picture);
    const auto expected = pixels(picture.ciImage.composited(ci::Image::clear()), extent);
    const bool matched = main.runUntil(
        [&] { return pixels(node->outputImage(RenderContext()).ciImage, extent) == expected; },
        30s);
    if (!matched) {
        const auto got = pixels(node->outputImage(RenderContext()).ciImage, extent);
        std::size_t first = 0;
        while (first < got.size() && got[first] == expected[first])
            ++first;
        std::int64_t x0 = 1 << 20, y0 = 1 << 20, x1 = -1, y1 = -1, count = 0;
        for (std::size_t i = 0; i < got.size(); i += 4)
            if (std::memcmp(&got[i], &expected[i], 4) != 0) {
                const auto px = std::int64_t(i / 4) % 256, py = std::int64_t(i / 4) / 256;
                x0 = std::min(x0, px), x1 = std::max(x1, px), y0 = std::min(y0, py),
                y1 = std::max(y1, py), ++count;
            }
        ADD_FAILURE() << count << " pixels differ in columns " << x0 << "…" << x1 << ", rows " << y0
                      << "…" << y1 << " (top first); got " << int(got[first - first % 4]) << ","
                      << int(got[first - first % 4 + 1]) << " expected "
                      << int(expected[first - first % 4]) << ","
                      << int(expected[first - first % 4 + 1]);
        ADD_FAILURE() << "the cached output never matched the final input: extent "
                      << node->extent().minX() << "," << node->extent().minY() << " "
                      << node->extent().width() << "×" << node->extent().height()
                      << ", first difference at byte " << first << " of " << got.size()
                      << ", output extent " << node->outputImage(RenderContext()).extent().width();
        current->broadcastOutputImageChange(extent);
        const bool later = main.runUntil(
            [&] { return pixels(node->outputImage(RenderContext()).ciImage, extent) == expected; },
            10s);
        ADD_FAILURE() << "after one more full change: " << later;
    }
    node.reset();
    main.drain();
}

TEST(ImageAccumulatorStress, PaintingFromItsOwnImageWhileAnotherThreadDrawsIt) {
    // An editor's stroke: every dab is composited over the canvas's own image into the dab's
    // rectangle, while another thread keeps drawing the canvas's latest image. Each drawn picture
    // must be one the canvas really held: dabs whole or absent, never half of one.
    const Watchdog watchdog(60s);
    const cg::Rect extent(0, 0, 128, 128);
    auto canvas = makeSurfaceImageAccumulator(extent, 8, false);
    canvas->setImage(ci::Image::white(), extent);
    std::atomic<bool> painting{true};
    std::mutex published;
    ci::Image latest = canvas->image();
    std::thread reader([&] {
        while (painting) {
            ci::Image image;
            {
                std::lock_guard lock(published);
                image = latest;
            }
            const auto px = pixels(image, extent);
            // Every dab covers a whole 16 × 16 cell with one grey: a cell is never mixed.
            for (int cell = 0; cell < 64; ++cell) {
                const int cx = cell % 8 * 16, cy = cell / 8 * 16;
                const std::uint8_t first = px[std::size_t((cy * 128 + cx) * 4 + 1)];
                for (int y = cy; y < cy + 16; ++y)
                    for (int x = cx; x < cx + 16; ++x)
                        ASSERT_EQ(px[std::size_t((y * 128 + x) * 4 + 1)], first) << x << "," << y;
            }
        }
    });
    std::mt19937 random(4);
    for (int dab = 0; dab < 2000; ++dab) {
        const int cell = int(random() % 64);
        const cg::Rect dirty(cell % 8 * 16, cell / 8 * 16, 16, 16);
        const ci::Image paint = ci::Image::constant(ci::Color{0, 0, 0, 0.1}).cropped(dirty);
        canvas->setImage(paint.composited(canvas->image()), dirty);
        std::lock_guard lock(published);
        latest = canvas->image();
    }
    painting = false;
    reader.join();
}
