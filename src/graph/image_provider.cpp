#include "bic/graph/image_provider.hpp"

#include "bic/platform/core/fatal.hpp"
#include "bic/platform/core/type_name.hpp"

#include <algorithm>

namespace bic {

namespace {
const GraphObject* identity(const ImageConsumer& consumer) {
    return static_cast<const GraphObject*>(&consumer);
}
} // namespace

void ImageProvider::addImageConsumer(ImageConsumer& consumer) {
    const GraphObject* object = identity(consumer);
    for (const auto& entry : consumers_)
        if (entry.lock().get() == object) return;
    WeakGraphObject weak = static_cast<GraphObject&>(consumer).weak_from_this();
    if (weak.expired()) fatalError("Image consumers must be owned by a shared pointer.");
    consumers_.push_back(std::move(weak));
}

void ImageProvider::removeImageConsumer(const ImageConsumer& consumer) {
    const GraphObject* object = identity(consumer);
    std::erase_if(consumers_, [&](const WeakGraphObject& e) { return e.lock().get() == object; });
}

void ImageProvider::broadcastOutputImageChange(const cg::Rect& rect) {
    if (!broadcasting_) return;
    const std::vector<WeakGraphObject> snapshot = consumers_;
    for (const auto& entry : snapshot) {
        const auto object = entry.lock();
        if (auto* consumer = dynamic_cast<ImageConsumer*>(object.get()))
            consumer->invalidateInputImage(*this, rect);
    }
}

void StaticImageProvider::setImage(Image image) {
    broadcastOutputImageChange(image_.extent());
    image_ = std::move(image);
    broadcastOutputImageChange(image_.extent());
}

void WeakContainerNode::setImageProvider(std::shared_ptr<ImageProvider> provider) {
    const std::shared_ptr<ImageProvider> old = provider_;
    const bool changed = old != provider;
    if (old && changed) {
        broadcastOutputImageChange(old->outputImageExtent());
        old->removeImageConsumer(*this);
    }
    provider_ = std::move(provider);
    if (provider_ && changed) {
        provider_->addImageConsumer(*this);
        broadcastOutputImageChange(provider_->outputImageExtent());
    }
}

Image WeakContainerNode::outputImage(const RenderContext& context) {
    return provider_ ? provider_->outputImage(context) : Image::empty();
}

cg::Rect WeakContainerNode::outputImageExtent() const {
    return provider_ ? provider_->outputImageExtent() : cg::Rect::null();
}

void WeakContainerNode::invalidateInputImage(ImageProvider& sender, const cg::Rect& rect) {
    if (provider_.get() != &sender)
        fatalError("WeakContainerNode is not listening to sender of type " +
                   unqualifiedTypeName(typeid(sender)) + ".");
    broadcastOutputImageChange(rect);
}

} // namespace bic
