#pragma once
// Turns its input into a distance map over `extent`: for every pixel, how far it is from the
// input's shape (outer) or from the shape's edge inwards (inner), searching no farther than a
// radius. The map is computed on request and kept until something invalidates it.

#include "bic/graph/image_provider.hpp"

#include <optional>

namespace bic {

class DistanceMapNode : public ImageNode {
public:
    enum class DistanceMapType : int { inner = 0, outer = 1 };

    /// `searchLimitRadius` is rounded up to whole pixels; with a `threshold` the input's mask is
    /// thresholded at that level first.
    DistanceMapNode(DistanceMapType type, double searchLimitRadius,
                    std::optional<double> threshold);

    DistanceMapType distanceMapType() const { return type_; }
    /// Tells the consumers of `extent` before and after; the kept map stays.
    void setDistanceMapType(DistanceMapType type);
    double searchLimitRadius() const { return radius_; }
    /// Rounded up. A radius larger than the kept map's tells the consumers of the input's
    /// extent grown by it and drops the map; a smaller one keeps it.
    void setSearchLimitRadius(double radius);
    std::optional<double> threshold() const { return threshold_; }
    const cg::Rect& extent() const { return extent_; }
    /// Tells the consumers of the old extent, drops the map, tells them of the new one.
    void setExtent(const cg::Rect& extent);
    std::shared_ptr<ImageProvider> inputImageProvider() const { return input_.lock(); }
    void setInputImageProvider(const std::shared_ptr<ImageProvider>& provider);

    /// A distance beyond every search limit: +∞ everywhere, as a mask.
    static Image infinitelyFar();

    cg::Rect outputImageExtent() const override { return extent_; }
    /// The kept map, or a new one (kept); the infinitely-far image when there is no extent, no
    /// input, nothing to search or the transform fails (nothing kept then).
    Image outputImage(const RenderContext& context) override;
    /// Drops the map and tells the consumers of the change grown by the search radius (a
    /// change moves distances that far), within the input's extent and `extent`.
    void invalidateInputImage(ImageProvider& sender, const cg::Rect& rect) override;

private:
    DistanceMapType type_;
    double cachedRadius_ = 0;
    double radius_;
    std::optional<double> threshold_;
    cg::Rect extent_ = cg::Rect::null();
    std::weak_ptr<ImageProvider> input_;
    std::optional<Image> cache_;
};

} // namespace bic
