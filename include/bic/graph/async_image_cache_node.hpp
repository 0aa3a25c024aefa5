#pragma once
// A node that keeps a rendered copy of its input's image and brings it up to date in the
// background, so the host can draw from it at once.
//
// Changes the input reports are collected as dirty rectangles; a timer on the node's own serial
// queue fires at most `framerate` times a second, renders the dirty area into an accumulator,
// publishes the accumulator's image and tells the node's consumers which rectangle changed.
// Asking for the output never renders.
//
// Threads. Public members belong to the main thread; rendering and the render state live on the
// node's queue. Two choices keep the two from waiting for each other:
//  - The queue never waits for the main thread. It starts its timer itself (timers may be
//    started from any thread) and every broadcast is an asynchronous hop to the main queue, so
//    the getters that wait for the queue (extent, intent, inputImageProvider) cannot meet a
//    queue that waits for them.
//  - The input provider is only ever called on the main thread: when the input reports a change
//    the node asks the main queue for the input's image, which it gets once the change is
//    complete (a provider announces a change both before and after replacing its image); the
//    queue renders that image and waits for it while it is on its way. A provider therefore
//    needs no locking of its own.
// The published image, the extent, the input and the dirty rectangles sit behind one mutex,
// held only to copy or swap them, never while rendering; the flags are atomics.
//
// Drawing while it renders. The published image is the accumulator's snapshot: a render first
// copies the blocks it is about to overwrite aside for it, so a host that draws the output while
// the next render runs sees the last published picture whole and never waits for the render.

#include "bic/accumulators/image_accumulator.hpp"
#include "bic/graph/dirty_region.hpp"
#include "bic/graph/image_provider.hpp"
#include "bic/platform/dispatch/timer.hpp"

#include <atomic>
#include <mutex>

namespace bic {

class AsyncImageCacheNode : public ImageNode {
public:
    /// Starts rendering at once, then at most every 1000 / `framerate` ms (integer division).
    /// `bitDepth` is 8, 16 or 32; `framerate` must be positive.
    static std::shared_ptr<AsyncImageCacheNode> make(const cg::Rect& extent, int bitDepth,
                                                     Image::Intent intent, int framerate);
    ~AsyncImageCacheNode() override;

    /// Changing the depth drops the accumulator and marks the whole extent dirty.
    void setBitDepth(int bitDepth);
    /// Waits for the queue.
    cg::Rect extent() const;
    /// Changing the extent drops the accumulator, marks the new extent dirty and tells the
    /// consumers of the union of the old and new extents.
    void setExtent(const cg::Rect& extent);
    Image::Intent intent() const;
    void setIntent(Image::Intent intent);
    std::shared_ptr<ImageProvider> inputImageProvider() const;
    /// Held weakly. The newly dirty area is rendered at the timer's next fire.
    void setInputImageProvider(const std::shared_ptr<ImageProvider>& provider);

    bool isEnabled() const { return enabled_; }
    void setEnabled(bool on) { enabled_ = on; }
    /// Overlays the rendered rectangles in colour, to see what was redrawn.
    bool isVisualizingLastRenderRect() const { return visualizing_; }
    void setVisualizingLastRenderRect(bool on) { visualizing_ = on; }
    /// Renders the union of the dirty rectangles in one call rather than one call each.
    bool singlePassRendering() const { return singlePass_; }
    void setSinglePassRendering(bool on) { singlePass_ = on; }

    cg::Rect outputImageExtent() const override;
    /// The last published image; the input's own image when caching is off or the context
    /// disables caching; a neutral image without an input.
    Image outputImage(const RenderContext& context) override;
    void invalidateInputImage(ImageProvider& sender, const cg::Rect& rect) override;

    /// The label of the node's queue (for diagnostics): the bundle identifier and the class.
    const std::string& queueLabel() const { return queue_->label(); }

    /// The transparent empty image, or a white mask for the mask intent.
    static Image neutralImage(Image::Intent intent);

private:
    AsyncImageCacheNode(const cg::Rect& extent, int bitDepth, Image::Intent intent);
    void renderCycle();
    /// Takes the input's image on the main thread once the current change is complete.
    void requestInputImage();
    std::weak_ptr<AsyncImageCacheNode> weakSelf();

    std::unique_ptr<dispatch::SerialQueue> queue_;
    std::unique_ptr<dispatch::Timer> timer_;

    mutable std::mutex mutex_;
    int bitDepth_;
    cg::Rect extent_;
    Image::Intent intent_;
    DirtyRegion dirty_;
    Image outputImage_;
    std::weak_ptr<ImageProvider> input_;
    std::optional<Image> inputImage_; // the input's image as of its last change

    std::shared_ptr<ImageAccumulator> accumulator_; // the queue's alone
    std::atomic<bool> enabled_ = true;
    std::atomic<bool> visualizing_ = false;
    std::atomic<bool> singlePass_ = true;
    std::atomic<bool> inputRequested_ = false;
};

} // namespace bic
