#include "bic/graph/async_image_cache_node.hpp"

#include "bic/platform/core/diagnostics.hpp"
#include "bic/platform/core/fatal.hpp"
#include "bic/platform/core/type_name.hpp"
#include "bic/resources/bundle.hpp"

#include <random>
#include <utility>

namespace bic {

namespace {

// The host's debug print of a string: quoted, with escapes.
void debugPrint(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        switch (c) {
        case '\n':
            out += "\\n";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\r':
            out += "\\r";
            break;
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        default:
            out += c;
        }
    }
    out += '"';
    diagnostic(out);
}

} // namespace

Image AsyncImageCacheNode::neutralImage(Image::Intent intent) {
    return intent == Image::Intent::mask ? Image(ci::Image::white(), Image::Intent::mask)
                                         : Image(ci::Image::empty(), Image::Intent::image);
}

AsyncImageCacheNode::AsyncImageCacheNode(const cg::Rect& extent, int bitDepth, Image::Intent intent)
    : queue_(std::make_unique<dispatch::SerialQueue>(std::string(resources::bundleIdentifier) +
                                                     ".AsyncImageCacheNode")),
      timer_(std::make_unique<dispatch::Timer>(*queue_)), bitDepth_(bitDepth), extent_(extent),
      intent_(intent), outputImage_(neutralImage(intent)) {}

std::shared_ptr<AsyncImageCacheNode> AsyncImageCacheNode::make(const cg::Rect& extent, int bitDepth,
                                                               Image::Intent intent,
                                                               int framerate) {
    precondition(framerate > 0, "A cache node needs a positive frame rate.");
    std::shared_ptr<AsyncImageCacheNode> node(new AsyncImageCacheNode(extent, bitDepth, intent));
    node->timer_->setEventHandler([weak = node->weakSelf()] {
        if (auto self = weak.lock()) self->renderCycle();
    });
    node->timer_->schedule(dispatch::Timer::Clock::now(),
                           std::chrono::milliseconds(1000 / framerate));
    node->timer_->start();
    return node;
}

AsyncImageCacheNode::~AsyncImageCacheNode() {
    // The timer goes first, so no fire reaches a queue that is shutting down.
    timer_.reset();
    queue_.reset();
}

std::weak_ptr<AsyncImageCacheNode> AsyncImageCacheNode::weakSelf() {
    return std::dynamic_pointer_cast<AsyncImageCacheNode>(shared_from_this());
}

void AsyncImageCacheNode::setBitDepth(int bitDepth) {
    queue_->async([weak = weakSelf(), bitDepth] {
        auto self = weak.lock();
        if (!self) return;
        {
            std::lock_guard lock(self->mutex_);
            if (bitDepth == self->bitDepth_) return;
            self->bitDepth_ = bitDepth;
            self->dirty_.add(self->extent_);
        }
        self->accumulator_.reset();
        dispatch::MainQueue::shared().async([weak] {
            if (auto self = weak.lock())
                self->broadcastOutputImageChange(self->outputImageExtent());
        });
    });
}

cg::Rect AsyncImageCacheNode::extent() const {
    cg::Rect result;
    queue_->sync([&] {
        std::lock_guard lock(mutex_);
        result = extent_;
    });
    return result;
}

void AsyncImageCacheNode::setExtent(const cg::Rect& extent) {
    queue_->async([weak = weakSelf(), extent] {
        auto self = weak.lock();
        if (!self) return;
        cg::Rect old;
        {
            std::lock_guard lock(self->mutex_);
            if (extent == self->extent_) return;
            old = self->extent_;
            self->extent_ = extent;
            self->dirty_.add(extent);
        }
        self->accumulator_.reset();
        dispatch::MainQueue::shared().async([weak, old] {
            if (auto self = weak.lock())
                self->broadcastOutputImageChange(old.unionWith(self->outputImageExtent()));
        });
    });
}

Image::Intent AsyncImageCacheNode::intent() const {
    Image::Intent result;
    queue_->sync([&] {
        std::lock_guard lock(mutex_);
        result = intent_;
    });
    return result;
}

void AsyncImageCacheNode::setIntent(Image::Intent intent) {
    queue_->async([weak = weakSelf(), intent] {
        auto self = weak.lock();
        if (!self) return;
        {
            std::lock_guard lock(self->mutex_);
            if (intent == self->intent_) return;
            self->intent_ = intent;
            self->outputImage_.intent = intent; // the published image carries the intent
        }
        dispatch::MainQueue::shared().async([weak] {
            if (auto self = weak.lock())
                self->broadcastOutputImageChange(self->outputImageExtent());
        });
    });
}

std::shared_ptr<ImageProvider> AsyncImageCacheNode::inputImageProvider() const {
    std::shared_ptr<ImageProvider> result;
    queue_->sync([&] {
        std::lock_guard lock(mutex_);
        result = input_.lock();
    });
    return result;
}

void AsyncImageCacheNode::setInputImageProvider(const std::shared_ptr<ImageProvider>& provider) {
    // Registration happens here, on the main thread, together with the switch of input, so an
    // invalidation from the new input is never taken for a stranger's.
    std::shared_ptr<ImageProvider> old;
    {
        std::lock_guard lock(mutex_);
        old = input_.lock();
        if (old && old == provider) return;
        input_ = provider;
        inputImage_.reset();
        dirty_.add(extent_);
    }
    if (old) old->removeImageConsumer(*this);
    if (provider) {
        provider->addImageConsumer(*this);
        Image image = provider->outputImage(RenderContext::defaultContext());
        std::lock_guard lock(mutex_);
        inputImage_ = std::move(image);
    }
}

cg::Rect AsyncImageCacheNode::outputImageExtent() const {
    std::lock_guard lock(mutex_);
    return extent_;
}

Image AsyncImageCacheNode::outputImage(const RenderContext& context) {
    std::shared_ptr<ImageProvider> input;
    {
        std::lock_guard lock(mutex_);
        if (enabled_ && !context.disableCaching) return outputImage_;
        input = input_.lock();
        if (!input) return neutralImage(intent_);
    }
    return input->outputImage(context);
}

void AsyncImageCacheNode::invalidateInputImage(ImageProvider& sender, const cg::Rect& rect) {
    std::shared_ptr<ImageProvider> input;
    cg::Rect extent;
    {
        std::lock_guard lock(mutex_);
        input = input_.lock();
        extent = extent_;
    }
    if (!input || input.get() != &sender)
        fatalError(unqualifiedTypeName(typeid(*this)) + " is not listening to sender " +
                   unqualifiedTypeName(typeid(sender)) + ".");
    requestInputImage();
    if (!enabled_) {
        broadcastOutputImageChange(rect);
        return;
    }
    if (!rect.intersects(extent)) return;
    queue_->async([weak = weakSelf(), rect] {
        auto self = weak.lock();
        if (!self) return;
        {
            std::lock_guard lock(self->mutex_);
            self->dirty_.add(rect);
        }
        self->timer_->start();
    });
}

void AsyncImageCacheNode::requestInputImage() {
    // One request per burst of changes; it runs once the change that caused it is complete
    // (a provider may announce a change before and after replacing its image).
    if (inputRequested_.exchange(true)) return;
    dispatch::MainQueue::shared().async([weak = weakSelf()] {
        auto self = weak.lock();
        if (!self) return;
        std::shared_ptr<ImageProvider> input;
        {
            std::lock_guard lock(self->mutex_);
            input = self->input_.lock();
        }
        std::optional<Image> image;
        if (input) image = input->outputImage(RenderContext::defaultContext());
        {
            std::lock_guard lock(self->mutex_);
            self->inputImage_ = std::move(image);
            self->inputRequested_ = false;
        }
        self->queue_->async([weak] {
            if (auto self = weak.lock()) self->timer_->start();
        });
    });
}

void AsyncImageCacheNode::renderCycle() {
    timer_->stop();
    // A newer input image is on its way: rendering now would paint changed areas with the old
    // one. Its arrival starts the timer again.
    if (!enabled_ || inputRequested_) return;
    std::vector<cg::Rect> dirty;
    cg::Rect extent;
    int bitDepth;
    Image::Intent intent;
    std::optional<Image> input;
    {
        std::lock_guard lock(mutex_);
        if (extent_.isNull() || extent_.isEmpty()) return;
        if (dirty_.isEmpty() || input_.expired() || !inputImage_) return;
        // Taken whole: rectangles added while this cycle renders wait for the next one.
        dirty = dirty_.take();
        extent = extent_;
        bitDepth = bitDepth_;
        intent = intent_;
        input = inputImage_;
    }
    if (!accumulator_) {
        accumulator_ = makeImageAccumulator(extent, bitDepth, intent == Image::Intent::mask);
        if (!accumulator_)
            fatalError(unqualifiedTypeName(typeid(*this)) +
                       " failed to create an image accumulator.");
    }
    cg::Rect area = cg::Rect::null();
    for (const auto& r : dirty)
        area = area.unionWith(r);
    area = area.intersection(extent).integral();
    if (area.isNull() || area.isEmpty()) return;

    const ci::Image source = input->ciImage.composited(ci::Image::clear());
    try {
        if (singlePass_) {
            accumulator_->setImage(source.cropped(area), area);
        } else {
            for (const auto& r : dirty)
                accumulator_->setImage(source.cropped(r), r);
        }
    } catch (const std::exception& e) {
        debugPrint(unqualifiedTypeName(typeid(*this)) + " failed to render.\n" + e.what());
        return;
    }

    ci::Image image = accumulator_->image();
    if (visualizing_) {
        if (singlePass_) {
            image = ci::Image::constant(ci::Color{1, 1, 0, 0.33}).cropped(area).composited(image);
        } else {
            thread_local std::mt19937 random(std::random_device{}());
            std::uniform_real_distribution<double> level(0.3, 0.9);
            for (const auto& r : dirty) {
                const double red = level(random), green = level(random), blue = level(random);
                image = ci::Image::constant(ci::Color{red, green, blue, 0.75})
                            .cropped(r)
                            .composited(image);
            }
        }
    }
    {
        std::lock_guard lock(mutex_);
        outputImage_ = Image(image, intent_);
    }
    dispatch::MainQueue::shared().async([weak = weakSelf(), area] {
        if (auto self = weak.lock()) self->broadcastOutputImageChange(area);
    });
}

} // namespace bic
