#pragma once
// The graph form of a layer with a layer mask: an image input and a mask input (both held
// weakly); while the mask is on, the output is the image masked by the mask.

#include "bic/graph/image_provider.hpp"

namespace bic {

class MaskImageNode : public ImageNode {
public:
    bool isMaskTurnedOn() const { return maskTurnedOn_; }
    /// Tells the consumers of the node's area before and after, even when nothing changes.
    void setMaskTurnedOn(bool on);
    std::shared_ptr<ImageProvider> inputImageProvider() const { return image_.lock(); }
    void setInputImageProvider(const std::shared_ptr<ImageProvider>& provider);
    std::shared_ptr<ImageProvider> inputMaskProvider() const { return mask_.lock(); }
    void setInputMaskProvider(const std::shared_ptr<ImageProvider>& provider);

    /// The image input's extent, or the null rectangle without one.
    cg::Rect outputImageExtent() const override;
    /// Without an image input a white mask; with the mask on and a mask input, the image masked
    /// by it; otherwise the image input's own output.
    Image outputImage(const RenderContext& context) override;
    /// Changes of the image input pass on as they are; the mask input's are clipped to the
    /// image's extent; anything else stops the process. Ignored without an image input.
    void invalidateInputImage(ImageProvider& sender, const cg::Rect& rect) override;

private:
    void replace(std::weak_ptr<ImageProvider>& slot, const std::shared_ptr<ImageProvider>& next);

    bool maskTurnedOn_ = true;
    std::weak_ptr<ImageProvider> image_, mask_;
};

} // namespace bic
