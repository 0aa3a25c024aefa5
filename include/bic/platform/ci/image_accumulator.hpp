#pragma once
// A render target that keeps its pixels between renders and is brought up to date region by
// region.

#include "bic/platform/ci/context.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace bic::ci {

class ImageAccumulator {
public:
    /// Over the integral rectangle of `extent`, transparent at first. Nothing for an empty or
    /// infinite extent or one beyond the surface maxima's area.
    static std::shared_ptr<ImageAccumulator>
    make(const cg::Rect& extent, Format format,
         std::optional<cg::ColorSpace> colorSpace = std::nullopt);

    const cg::Rect& extent() const { return extent_; }
    Format format() const { return format_; }
    const std::optional<cg::ColorSpace>& colorSpace() const { return colorSpace_; }

    /// The current contents. The image keeps showing them after later changes.
    Image image() const;
    /// Renders `image` over the whole extent.
    void setImage(const Image& image);
    /// Renders `image` over `dirtyRect` (rounded out to whole pixels and clipped to the
    /// extent); the rest keeps its pixels.
    void setImage(const Image& image, const cg::Rect& dirtyRect);

private:
    ImageAccumulator(const cg::Rect& extent, Format format, std::optional<cg::ColorSpace> space);
    void detach();

    cg::Rect extent_;
    Format format_;
    std::optional<cg::ColorSpace> colorSpace_;
    std::int64_t width_, height_, rowBytes_;
    // Shared with the images handed out; copied before a write while they still hold it.
    std::shared_ptr<std::vector<std::uint8_t>> pixels_;
    std::shared_ptr<Context> context_;
};

} // namespace bic::ci
