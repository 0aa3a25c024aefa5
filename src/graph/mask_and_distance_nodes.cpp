#include "bic/algorithms/distance_transform.hpp"
#include "bic/compositing/image_operations.hpp"
#include "bic/graph/distance_map_node.hpp"
#include "bic/graph/image_operations.hpp"
#include "bic/graph/mask_image_node.hpp"
#include "bic/platform/core/fatal.hpp"
#include "bic/platform/core/type_name.hpp"

#include <cmath>
#include <limits>

namespace bic {

namespace {

[[noreturn]] void foreignSender(const GraphObject& node, const ImageProvider& sender) {
    fatalError(unqualifiedTypeName(typeid(node)) + " does not listen to changes of this sender " +
               unqualifiedTypeName(typeid(sender)) + ".");
}

} // namespace

// ---- Mask node -------------------------------------------------------------------------------

cg::Rect MaskImageNode::outputImageExtent() const {
    const auto image = image_.lock();
    return image ? image->outputImageExtent() : cg::Rect::null();
}

void MaskImageNode::setMaskTurnedOn(bool on) {
    broadcastOutputImageChange(outputImageExtent());
    maskTurnedOn_ = on;
    broadcastOutputImageChange(outputImageExtent());
}

void MaskImageNode::replace(std::weak_ptr<ImageProvider>& slot,
                            const std::shared_ptr<ImageProvider>& next) {
    const auto old = slot.lock();
    if (old == next) {
        slot = next;
        return;
    }
    broadcastOutputImageChange(outputImageExtent());
    if (old) old->removeImageConsumer(*this);
    slot = next;
    if (next) next->addImageConsumer(*this);
    broadcastOutputImageChange(outputImageExtent());
}

void MaskImageNode::setInputImageProvider(const std::shared_ptr<ImageProvider>& provider) {
    replace(image_, provider);
}

void MaskImageNode::setInputMaskProvider(const std::shared_ptr<ImageProvider>& provider) {
    replace(mask_, provider);
}

Image MaskImageNode::outputImage(const RenderContext& context) {
    const auto image = image_.lock();
    if (!image) return Image::mask(ci::Image::white());
    const Image output = image->outputImage(context);
    const auto mask = mask_.lock();
    if (maskTurnedOn_ && mask) return masked(output, mask->outputImage(context));
    return output;
}

void MaskImageNode::invalidateInputImage(ImageProvider& sender, const cg::Rect& rect) {
    const auto image = image_.lock();
    if (!image) return;
    if (&sender == image.get()) {
        broadcastOutputImageChange(rect);
    } else if (const auto mask = mask_.lock(); mask && &sender == mask.get()) {
        broadcastOutputImageChange(rect.intersection(image->outputImageExtent()));
    } else {
        foreignSender(*this, sender);
    }
}

// ---- Distance map node -----------------------------------------------------------------------

DistanceMapNode::DistanceMapNode(DistanceMapType type, double searchLimitRadius,
                                 std::optional<double> threshold)
    : type_(type), radius_(std::ceil(searchLimitRadius)), threshold_(threshold) {}

Image DistanceMapNode::infinitelyFar() {
    constexpr double inf = std::numeric_limits<double>::infinity();
    return Image::mask(ci::Image::constant({inf, inf, inf, 1}));
}

void DistanceMapNode::setDistanceMapType(DistanceMapType type) {
    broadcastOutputImageChange(extent_);
    type_ = type;
    broadcastOutputImageChange(extent_);
}

void DistanceMapNode::setSearchLimitRadius(double radius) {
    radius_ = std::ceil(radius);
    if (cachedRadius_ < radius_) {
        if (const auto input = input_.lock())
            broadcastOutputImageChange(input->outputImageExtent().insetBy(-radius_, -radius_));
        cache_.reset();
    }
}

void DistanceMapNode::setExtent(const cg::Rect& extent) {
    broadcastOutputImageChange(extent_);
    extent_ = extent;
    cache_.reset();
    broadcastOutputImageChange(extent_);
}

void DistanceMapNode::setInputImageProvider(const std::shared_ptr<ImageProvider>& provider) {
    const auto old = input_.lock();
    if (old == provider) {
        input_ = provider;
        return;
    }
    broadcastOutputImageChange(extent_);
    if (old) old->removeImageConsumer(*this);
    input_ = provider;
    if (provider) provider->addImageConsumer(*this);
    cache_.reset();
    broadcastOutputImageChange(extent_);
}

Image DistanceMapNode::outputImage(const RenderContext& context) {
    if (cache_) return *cache_;
    const auto input = input_.lock();
    if (extent_.isNull() || extent_.isEmpty() || !input) return infinitelyFar();
    Image mask = input->outputImage(context).maskRepresentation();
    if (threshold_) mask = bic::threshold(mask, *threshold_);
    if (type_ == DistanceMapType::inner) mask = bic::inverted(mask);
    const cg::Rect area =
        input->outputImageExtent().insetBy(-radius_, -radius_).intersection(extent_);
    if (area.isNull() || area.isEmpty()) return infinitelyFar();
    try {
        const ci::Image map = distanceMap(mask.ciImage, area, radius_)
                                  .insertingIntermediate()
                                  .composited(infinitelyFar().ciImage)
                                  .cropped(extent_);
        cache_ = Image::mask(map);
        cachedRadius_ = radius_;
        return *cache_;
    } catch (const std::exception&) {
        return infinitelyFar();
    }
}

void DistanceMapNode::invalidateInputImage(ImageProvider& sender, const cg::Rect& rect) {
    const auto input = input_.lock();
    if (!input) return;
    if (&sender != input.get()) foreignSender(*this, sender);
    cache_.reset();
    broadcastOutputImageChange(rect.intersection(input->outputImageExtent())
                                   .insetBy(-radius_, -radius_)
                                   .intersection(extent_));
}

} // namespace bic
