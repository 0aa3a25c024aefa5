#include "bic/platform/ci/kernel.hpp"

#include "bic/platform/ci/blend_formulas.hpp"
#include "bic/platform/core/fatal.hpp"
#include "bic/platform/core/pixel_math.hpp"
#include "bic/platform/core/vector_clones.hpp"
#include "nodes.hpp"

namespace bic::ci {

using namespace detail;

namespace {

// Splits arguments into the images (sampled) and the other values (passed through).
void split(std::vector<KernelArgument>& arguments, std::vector<NodePtr>& images,
           std::vector<KernelValue>& values) {
    for (auto& a : arguments) {
        if (auto* image = std::get_if<Image>(&a)) {
            images.push_back(image->node());
        } else {
            std::visit(
                [&](auto&& v) {
                    if constexpr (!std::is_same_v<std::decay_t<decltype(v)>, Image>)
                        values.emplace_back(std::move(v));
                },
                a);
        }
    }
}

// The blend just written, mixed with its background as the engine's mix does it.
BIC_VECTOR_CLONES void fadeTowards(float* out, const float* background, float t,
                                   std::int64_t count) {
    blend::mixRow(out, background, out, t, count);
}

} // namespace

namespace detail {

void ColorKernelNode::run(KernelRow& row) const {
    function(row);
    if (fade != 1) fadeTowards(row.out, row.samples[1], fade, row.count);
}

ColorKernelNode::ColorKernelNode(const cg::Rect& e, RowFunction f, std::vector<NodePtr> i,
                                 std::vector<KernelValue> v)
    : Node(e, maxReach(i)), function(f), images(std::move(i)), values(std::move(v)) {}

void ColorKernelNode::renderInside(const IRect& r, const Tile& out, Scratch& s) const {
    // Inputs that read no neighbours give the same pixels for a strip as for the whole
    // rectangle, so a chain of per-pixel kernels hands its intermediates on through the cache.
    if (reach != 0 || images.empty() || r.w * r.h <= kStripPixels) {
        renderRows(r, out, s);
        return;
    }
    forEachStrip(r, kStripPixels, [&](const IRect& strip, std::int64_t first) {
        renderRows(strip, Tile{out.row(first), out.stride, strip.h}, s);
    });
}

void ColorKernelNode::renderRows(const IRect& r, const Tile& out, Scratch& s) const {
    std::vector<Scratch::Lease> leases;
    leases.reserve(images.size());
    for (const auto& image : images)
        leases.push_back(renderToScratch(*image, r, s));
    const float* samples[8];
    std::vector<const float*> many;
    const float** rows = images.size() <= 8 ? samples : (many.resize(images.size()), many.data());
    KernelRow row;
    row.x = r.x;
    row.count = r.w;
    row.samples = rows;
    row.values = &values;
    for (std::int64_t i = 0; i < r.h; ++i) {
        for (std::size_t k = 0; k < images.size(); ++k)
            rows[k] = leases[k].data() + i * r.w * 4;
        row.y = flippedRow(i, r.maxY());
        row.out = out.row(i);
        run(row);
    }
}

bool ColorKernelNode::renderPlaced(const IRect& r, const Tile& out,
                                   const cg::AffineTransform& place, Scratch& s) const {
    // Only a function of position everywhere: an image of finite extent has edges a placed
    // evaluation would not see.
    if (!extent.isInfinite()) return false;
    std::vector<Scratch::Lease> leases;
    leases.reserve(images.size());
    for (const auto& image : images) {
        leases.push_back(s.take(std::size_t(r.w) * std::size_t(r.h) * 4));
        if (!image->renderPlaced(r, Tile{leases.back().data(), r.w * 4, r.h}, place, s))
            return false;
    }
    const float* samples[8];
    std::vector<const float*> many;
    const float** rows = images.size() <= 8 ? samples : (many.resize(images.size()), many.data());
    KernelRow row;
    row.x = r.x;
    row.count = r.w;
    row.samples = rows;
    row.values = &values;
    row.place = &place;
    for (std::int64_t i = 0; i < r.h; ++i) {
        for (std::size_t k = 0; k < images.size(); ++k)
            rows[k] = leases[k].data() + i * r.w * 4;
        row.y = flippedRow(i, r.maxY());
        row.out = out.row(i);
        run(row);
    }
    return true;
}

GeneralKernelNode::GeneralKernelNode(const cg::Rect& e, GeneralRowFunction f, RegionOfInterest r,
                                     std::vector<NodePtr> i, std::vector<KernelValue> v)
    : Node(e, maxReach(i) + 1), function(f), roi(std::move(r)), images(std::move(i)),
      values(std::move(v)) {}

void GeneralKernelNode::renderInside(const IRect& r, const Tile& out, Scratch& s) const {
    std::vector<Scratch::Lease> leases;
    std::vector<Sampler> samplers;
    leases.reserve(images.size());
    const cg::Rect destination(double(r.x), double(r.y), double(r.w), double(r.h));
    for (std::size_t k = 0; k < images.size(); ++k) {
        const IRect need = pixelBounds(roi(int(k), destination)).intersection(images[k]->bounds);
        if (need.isEmpty()) {
            samplers.push_back(Sampler{});
            continue;
        }
        leases.push_back(renderToScratch(*images[k], need, s));
        samplers.push_back(
            Sampler{leases.back().data(), need.x, need.y, need.w, need.h, need.w * 4});
    }
    GeneralKernelRow row;
    row.x = r.x;
    row.count = r.w;
    row.samplers = samplers.data();
    row.values = &values;
    for (std::int64_t i = 0; i < r.h; ++i) {
        row.y = flippedRow(i, r.maxY());
        row.out = out.row(i);
        function(row);
    }
}

} // namespace detail

std::optional<Image> ColorKernel::apply(const cg::Rect& extent,
                                        std::vector<KernelArgument> arguments) const {
    if (extent.isEmpty()) return std::nullopt;
    std::vector<NodePtr> images;
    std::vector<KernelValue> values;
    split(arguments, images, values);
    return Image(
        std::make_shared<ColorKernelNode>(extent, function_, std::move(images), std::move(values)));
}

Image BlendKernel::apply(const Image& foreground, const Image& background) const {
    const cg::Rect extent = foreground.extent().unionWith(background.extent());
    if (extent.isEmpty()) return Image();
    return Image(std::make_shared<ColorKernelNode>(
        extent, function_, std::vector<NodePtr>{foreground.node(), background.node()},
        std::vector<KernelValue>{}));
}

std::optional<Image> GeneralKernel::apply(const cg::Rect& extent, const RegionOfInterest& roi,
                                          std::vector<KernelArgument> arguments) const {
    if (extent.isEmpty() || !roi) return std::nullopt;
    std::vector<NodePtr> images;
    std::vector<KernelValue> values;
    split(arguments, images, values);
    return Image(std::make_shared<GeneralKernelNode>(extent, function_, roi, std::move(images),
                                                     std::move(values)));
}

} // namespace bic::ci
