#pragma once
// The image graph: providers make images on request, consumers are told which rectangle of a
// provider's image changed, nodes are both. Images are pulled, changes are pushed.
//
// Graph objects are reference objects held by std::shared_ptr; providers hold their consumers
// weakly, so a consumer that goes away simply stops being told. Registration and broadcasting
// belong to the host's main thread and lock nothing.

#include "bic/graph/image.hpp"

#include <memory>
#include <vector>

namespace bic {

/// The common base of graph objects, so that consumer lists can hold any of them weakly and
/// compare them by identity.
class GraphObject : public std::enable_shared_from_this<GraphObject> {
public:
    virtual ~GraphObject() = default;
};

using WeakGraphObject = std::weak_ptr<GraphObject>;

class ImageProvider;

class ImageConsumer : public virtual GraphObject {
public:
    /// `rect`, in image coordinates, of `sender`'s output changed.
    virtual void invalidateInputImage(ImageProvider& sender, const cg::Rect& rect) = 0;
};

class ImageProvider : public virtual GraphObject {
public:
    /// The registered consumers in registration order; entries of destroyed objects stay until
    /// the list is replaced.
    const std::vector<WeakGraphObject>& imageConsumers() const { return consumers_; }
    void setImageConsumers(std::vector<WeakGraphObject> consumers) {
        consumers_ = std::move(consumers);
    }
    /// When false, broadcastOutputImageChange does nothing.
    bool isBroadcastingImageChanges() const { return broadcasting_; }
    void setBroadcastingImageChanges(bool on) { broadcasting_ = on; }

    /// The extent of the image this provider would produce now.
    virtual cg::Rect outputImageExtent() const = 0;
    virtual Image outputImage(const RenderContext& context) = 0;

    /// Appends `consumer` unless that very object is already listed. The consumer must be
    /// owned by a std::shared_ptr.
    void addImageConsumer(ImageConsumer& consumer);
    /// Removes every entry of that very object; other entries, dead ones included, stay in order.
    void removeImageConsumer(const ImageConsumer& consumer);
    /// Tells every live consumer in the list, as it is when the broadcast starts, that `rect`
    /// changed. Listed objects that are not consumers are skipped.
    void broadcastOutputImageChange(const cg::Rect& rect);

private:
    std::vector<WeakGraphObject> consumers_;
    bool broadcasting_ = true;
};

class ImageNode : public ImageConsumer, public ImageProvider {};

/// A leaf: hands out the image it holds. Replacing the image tells the consumers of the old
/// image's extent and then of the new one's, even when the two are equal.
class StaticImageProvider : public ImageProvider {
public:
    explicit StaticImageProvider(Image image) : image_(std::move(image)) {}

    const Image& image() const { return image_; }
    virtual void setImage(Image image);

    cg::Rect outputImageExtent() const override { return image_.extent(); }
    Image outputImage(const RenderContext&) override { return image_; }

private:
    Image image_;
};

/// Stands in for the provider put into it, which it holds strongly, and forwards that
/// provider's changes. A change from anything else stops the process.
class WeakContainerNode : public ImageNode {
public:
    const std::shared_ptr<ImageProvider>& imageProvider() const { return provider_; }
    /// Replacing the provider tells this node's consumers of the old provider's extent, then of
    /// the new one's; setting the same provider again changes nothing.
    void setImageProvider(std::shared_ptr<ImageProvider> provider);

    /// The provider's image for the same context, or the empty image.
    Image outputImage(const RenderContext& context) override;
    /// The provider's extent, or the null rectangle.
    cg::Rect outputImageExtent() const override;
    void invalidateInputImage(ImageProvider& sender, const cg::Rect& rect) override;

private:
    std::shared_ptr<ImageProvider> provider_;
};

} // namespace bic
