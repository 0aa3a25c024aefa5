#include "bic/platform/ci/image.hpp"

#include "bic/platform/core/fatal.hpp"
#include "bic/platform/core/memory.hpp"
#include "bic/platform/core/pixel_math.hpp"
#include "bic/platform/core/vector_clones.hpp"
#include "bic/platform/io/pixel_io.hpp"
#include "bic/platform/io/surface.hpp"
#include "nodes.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

namespace bic::ci {

using namespace detail;

namespace {

struct EmptyNode final : Node {
    EmptyNode() : Node(cg::Rect::null()) {}
    void renderInside(const IRect&, const Tile&, Scratch&) const override {}
};

const NodePtr& emptyNode() {
    static const NodePtr node = std::make_shared<EmptyNode>();
    return node;
}

NodePtr constantNode(float r, float g, float b, float a) {
    const float c[4] = {r * a, g * a, b * a, a};
    return std::make_shared<ConstantNode>(c);
}

// Source over, on premultiplied samples. Each pixel is loaded whole before it is written, so
// the loops vectorise without assuming anything about where `out` lies.
BIC_VECTOR_CLONES void sourceOverRow(const KernelRow& row) {
    const float* f = row.samples[0];
    const float* b = row.samples[1];
    float* o = row.out;
    for (std::int64_t i = 0; i < row.count * 4; i += 4) {
        float fc[4], bc[4];
        for (int c = 0; c < 4; ++c)
            fc[c] = f[i + c], bc[c] = b[i + c];
        const float k = 1.0f - fc[3];
        // An opaque pixel hides the background entirely, even an infinite one (distance maps
        // lie over +∞), where ∞ × 0 would make NaN.
        for (int c = 0; c < 4; ++c)
            o[i + c] = k > 0 ? fc[c] + bc[c] * k : fc[c];
    }
}

// Two pixels at a time in one vector of eight lanes: each lane times its pixel's alpha, the
// alphas kept. Written with the compiler's vector types because its loop vectoriser turns the
// four-lane pattern into a store per lane.
BIC_VECTOR_CLONES void premultiplyRow(const KernelRow& row) {
    using Pair = float __attribute__((vector_size(32)));
    const float* s = row.samples[0];
    float* o = row.out;
    std::int64_t i = 0;
    for (; i + 2 <= row.count; i += 2) {
        Pair v;
        std::memcpy(&v, s + 4 * i, sizeof v);
        const Pair scaled = v * __builtin_shufflevector(v, v, 3, 3, 3, 3, 7, 7, 7, 7);
        const Pair r = __builtin_shufflevector(scaled, v, 0, 1, 2, 11, 4, 5, 6, 15);
        std::memcpy(o + 4 * i, &r, sizeof r);
    }
    for (; i < row.count; ++i) {
        const float r = s[4 * i], g = s[4 * i + 1], b = s[4 * i + 2], a = s[4 * i + 3];
        o[4 * i] = r * a, o[4 * i + 1] = g * a, o[4 * i + 2] = b * a, o[4 * i + 3] = a;
    }
}

void unpremultiplyRow(const KernelRow& row) {
    const float* s = row.samples[0];
    for (std::int64_t i = 0; i < row.count * 4; i += 4) {
        const float a = s[i + 3];
        const float k = unpremultiplyScale(a);
        row.out[i] = s[i] * k;
        row.out[i + 1] = s[i + 1] * k;
        row.out[i + 2] = s[i + 2] * k;
        row.out[i + 3] = a;
    }
}

bool isFinite(const cg::AffineTransform& t) {
    return std::isfinite(t.a) && std::isfinite(t.b) && std::isfinite(t.c) && std::isfinite(t.d) &&
           std::isfinite(t.tx) && std::isfinite(t.ty);
}

// Looks through sampling markers for the mode later transforms should use.
bool samplesNearest(const NodePtr& node) {
    const auto* s = dynamic_cast<const SamplingNode*>(node.get());
    return s && s->nearest;
}

} // namespace

// ---- Node kinds -------------------------------------------------------------------------------

namespace detail {

ConstantNode::ConstantNode(const float rgba[4]) : Node(cg::Rect::infinite()) {
    std::copy(rgba, rgba + 4, color);
}

void ConstantNode::renderInside(const IRect& r, const Tile& out, Scratch&) const {
    for (std::int64_t i = 0; i < r.h; ++i) {
        float* row = out.row(i);
        for (std::int64_t x = 0; x < r.w; ++x)
            std::memcpy(row + 4 * x, color, sizeof color);
    }
}

bool ConstantNode::renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform&,
                                Scratch& s) const {
    renderInside(r, out, s);
    return true;
}

BitmapNode::BitmapNode(std::shared_ptr<const void> o, const std::uint8_t* b, std::int64_t rb,
                       std::int64_t w, std::int64_t h, Format f)
    : Node(cg::Rect(0, 0, double(w), double(h))), owner(std::move(o)), bytes(b), rowBytes(rb),
      width(w), height(h), format(f) {}

BitmapNode::BitmapNode(std::shared_ptr<const io::SurfaceSnapshot> s, Format f)
    : Node(cg::Rect(0, 0, double(s->width()), double(s->height()))), width(s->width()),
      height(s->height()), format(f), snapshot(std::move(s)) {}

void BitmapNode::renderInside(const IRect& r, const Tile& out, Scratch& s) const {
    const Scratch::Lease scratch =
        s.take(snapshot ? std::size_t(r.w * bytesPerPixel(format) + 3) / 4 : 0);
    auto* bytesOfScratch = reinterpret_cast<std::uint8_t*>(scratch.data());
    withRows([&](auto rowAt, std::int64_t) {
        for (std::int64_t i = 0; i < r.h; ++i) {
            const std::int64_t y = flippedRow(i, r.maxY());
            io::readRow(format, rowAt(flippedRow(y, height), r.x, r.w, bytesOfScratch), out.row(i),
                        r.w);
        }
    });
}

TranslateNode::TranslateNode(NodePtr in, std::int64_t x, std::int64_t y)
    : Node(in->extent.offsetBy(double(x), double(y)), in->reach), input(std::move(in)), dx(x),
      dy(y) {}

void TranslateNode::renderInside(const IRect& r, const Tile& out, Scratch& s) const {
    input->render({r.x - dx, r.y - dy, r.w, r.h}, out, s);
}

bool TranslateNode::renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform& place,
                                 Scratch& s) const {
    return input->renderPlaced(
        r, out, place.concatenating(cg::AffineTransform::translation(double(-dx), double(-dy))), s);
}

TransformNode::TransformNode(NodePtr in, const cg::AffineTransform& t, bool n)
    : Node(t.apply(in->extent), in->reach + 1), input(std::move(in)), inverse(t.inverted()),
      nearest(n) {}

bool TransformNode::renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform& place,
                                 Scratch& s) const {
    return !nearest && input->renderPlaced(r, out, place.concatenating(inverse), s);
}

void TransformNode::renderInside(const IRect& r, const Tile& out, Scratch& s) const {
    // A procedural input is evaluated where each output pixel shows it: one evaluation a pixel,
    // however the transform scales, rather than a resampled render of its region.
    if (!nearest && input->renderPlaced(r, out, inverse, s)) return;
    // Region of interest: the source area under the output rectangle, one pixel wider for the
    // bilinear neighbours, limited to where the input has pixels.
    const cg::Rect area =
        inverse.apply(cg::Rect(double(r.x), double(r.y), double(r.w), double(r.h)));
    const IRect roi = pixelBounds(area).grownBy(1).intersection(input->bounds);
    if (roi.isEmpty()) {
        fillZero(out, r.w, r.h);
        return;
    }
    const Scratch::Lease src = renderToScratch(*input, roi, s);
    const Sampler sampler{src.data(), roi.x, roi.y, roi.w, roi.h, roi.w * 4};
    for (std::int64_t i = 0; i < r.h; ++i) {
        float* o = out.row(i);
        const double cy = double(flippedRow(i, r.maxY())) + 0.5;
        for (std::int64_t j = 0; j < r.w; ++j, o += 4) {
            const double cx = double(r.x + j) + 0.5;
            const double sx = inverse.a * cx + inverse.c * cy + inverse.tx;
            const double sy = inverse.b * cx + inverse.d * cy + inverse.ty;
            if (nearest) {
                std::memcpy(
                    o, sampler.at(std::int64_t(std::floor(sx)), std::int64_t(std::floor(sy))), 16);
                continue;
            }
            const double fx0 = std::floor(sx - 0.5), fy0 = std::floor(sy - 0.5);
            const float fx = float(sx - 0.5 - fx0), fy = float(sy - 0.5 - fy0);
            const auto x0 = std::int64_t(fx0), y0 = std::int64_t(fy0);
            const float* p00 = sampler.at(x0, y0);
            const float* p10 = sampler.at(x0 + 1, y0);
            const float* p01 = sampler.at(x0, y0 + 1);
            const float* p11 = sampler.at(x0 + 1, y0 + 1);
            for (int c = 0; c < 4; ++c) {
                const float bottom = p00[c] + (p10[c] - p00[c]) * fx;
                const float top = p01[c] + (p11[c] - p01[c]) * fx;
                o[c] = bottom + (top - bottom) * fy;
            }
        }
    }
}

CropNode::CropNode(NodePtr in, const cg::Rect& rc)
    : Node(in->extent.intersection(rc), in->reach), input(std::move(in)), rect(rc.standardized()) {}

void CropNode::renderInside(const IRect& r, const Tile& out, Scratch& s) const {
    input->render(r, out, s);
    if (rect.isInfinite()) return;
    // Coverage of each pixel by the crop rectangle; 1 inside, a fraction on fractional edges.
    auto cover = [](double p, double lo, double hi) {
        return float(std::clamp(std::min(p + 1, hi) - std::max(p, lo), 0.0, 1.0));
    };
    const Scratch::Lease lease = s.take(std::size_t(r.w));
    float* columns = lease.data();
    bool partialColumns = false;
    for (std::int64_t j = 0; j < r.w; ++j) {
        columns[j] = cover(double(r.x + j), rect.minX(), rect.maxX());
        partialColumns |= columns[j] != 1.0f;
    }
    for (std::int64_t i = 0; i < r.h; ++i) {
        const float rowCover = cover(double(flippedRow(i, r.maxY())), rect.minY(), rect.maxY());
        if (rowCover == 1.0f && !partialColumns) continue;
        float* o = out.row(i);
        for (std::int64_t j = 0; j < r.w; ++j, o += 4) {
            const float k = rowCover * columns[j];
            if (k != 1.0f)
                for (int c = 0; c < 4; ++c)
                    o[c] *= k;
        }
    }
}

ClampNode::ClampNode(NodePtr in, const IRect& e)
    : Node(cg::Rect::infinite(), in->reach), input(std::move(in)), edge(e) {}

void ClampNode::renderInside(const IRect& r, const Tile& out, Scratch& s) const {
    auto clampX = [&](std::int64_t x) { return std::clamp(x, edge.x, edge.maxX() - 1); };
    auto clampY = [&](std::int64_t y) { return std::clamp(y, edge.y, edge.maxY() - 1); };
    const std::int64_t x0 = clampX(r.x), x1 = clampX(r.maxX() - 1) + 1;
    const std::int64_t y0 = clampY(r.y), y1 = clampY(r.maxY() - 1) + 1;
    const IRect src{x0, y0, x1 - x0, y1 - y0};
    const Scratch::Lease lease = renderToScratch(*input, src, s);
    for (std::int64_t i = 0; i < r.h; ++i) {
        const std::int64_t sy = clampY(flippedRow(i, r.maxY()));
        const float* srow = lease.data() + flippedRow(sy, src.maxY()) * src.w * 4;
        float* o = out.row(i);
        for (std::int64_t j = 0; j < r.w; ++j)
            std::memcpy(o + 4 * j, srow + 4 * (clampX(r.x + j) - src.x), 16);
    }
}

SamplingNode::SamplingNode(NodePtr in, bool n)
    : Node(in->extent, in->reach), input(std::move(in)), nearest(n) {}

void SamplingNode::renderInside(const IRect& r, const Tile& out, Scratch& s) const {
    input->render(r, out, s);
}

bool SamplingNode::renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform& place,
                                Scratch& s) const {
    return !nearest && input->renderPlaced(r, out, place, s);
}

WideningNode::WideningNode(NodePtr in)
    : Node(cg::Rect::infinite(), in->reach), input(std::move(in)) {}

void WideningNode::renderInside(const IRect& r, const Tile& out, Scratch& s) const {
    input->render(r, out, s);
}

bool WideningNode::renderPlaced(const IRect& r, const Tile& out, const cg::AffineTransform& place,
                                Scratch& s) const {
    return input->extent.isInfinite() && input->renderPlaced(r, out, place, s);
}

namespace {

std::int64_t floorDiv(std::int64_t a, std::int64_t b) {
    return a >= 0 ? a / b : -((-a + b - 1) / b);
}

// Cell coordinates packed into one key; canvases never reach 2^31 cells a side.
std::int64_t cellKey(std::int64_t cx, std::int64_t cy) { return (cx << 32) ^ (cy & 0xFFFFFFFF); }

} // namespace

MosaicNode::MosaicNode(const cg::Rect& e, std::vector<NodePtr> p, std::int64_t c)
    : Node(e, maxReach(p)), pieces(std::move(p)), cell(c) {
    for (std::uint32_t i = 0; i < pieces.size(); ++i) {
        const IRect& b = pieces[i]->bounds;
        for (std::int64_t cy = floorDiv(b.y, cell); cy * cell < b.maxY(); ++cy)
            for (std::int64_t cx = floorDiv(b.x, cell); cx * cell < b.maxX(); ++cx)
                cells[cellKey(cx, cy)].push_back(i);
    }
}

std::vector<std::uint32_t> MosaicNode::piecesIn(const IRect& r) const {
    std::vector<std::uint32_t> found;
    for (std::int64_t cy = floorDiv(r.y, cell); cy * cell < r.maxY(); ++cy)
        for (std::int64_t cx = floorDiv(r.x, cell); cx * cell < r.maxX(); ++cx) {
            const auto it = cells.find(cellKey(cx, cy));
            if (it == cells.end()) continue;
            for (const std::uint32_t i : it->second)
                if (!pieces[i]->bounds.intersection(r).isEmpty()) found.push_back(i);
        }
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

void MosaicNode::renderInside(const IRect& r, const Tile& out, Scratch& s) const {
    const std::vector<std::uint32_t> touched = piecesIn(r);
    std::int64_t covered = 0;
    for (const std::uint32_t i : touched)
        covered += pieces[i]->bounds.intersection(r).w * pieces[i]->bounds.intersection(r).h;
    if (covered != r.w * r.h) fillZero(out, r.w, r.h);
    for (const std::uint32_t i : touched) {
        const IRect part = pieces[i]->bounds.intersection(r);
        pieces[i]->render(
            part, Tile{out.row(r.maxY() - part.maxY()) + 4 * (part.x - r.x), out.stride, part.h},
            s);
    }
}

IntermediateNode::IntermediateNode(NodePtr in) : Node(in->extent), input(std::move(in)) {}

void IntermediateNode::renderInside(const IRect& r, const Tile& out, Scratch& s) const {
    for (std::int64_t ty = floorDiv(r.y, kTile); ty * kTile < r.maxY(); ++ty) {
        for (std::int64_t tx = floorDiv(r.x, kTile); tx * kTile < r.maxX(); ++tx) {
            std::shared_ptr<Entry> entry;
            {
                std::lock_guard lock(mutex);
                auto& slot = tiles[{tx, ty}];
                if (!slot) slot = std::make_shared<Entry>();
                entry = slot;
            }
            const IRect tile{tx * kTile, ty * kTile, kTile, kTile};
            std::call_once(entry->once, [&] {
                entry->pixels.resize(std::size_t(kTile * kTile * 4));
                input->render(tile, Tile{entry->pixels.data(), kTile * 4, kTile}, s);
            });
            const IRect part = tile.intersection(r);
            for (std::int64_t y = part.y; y < part.maxY(); ++y) {
                const float* src = entry->pixels.data() + flippedRow(y, tile.maxY()) * kTile * 4 +
                                   (part.x - tile.x) * 4;
                std::memcpy(out.row(flippedRow(y, r.maxY())) + (part.x - r.x) * 4, src,
                            std::size_t(part.w) * 16);
            }
        }
    }
}

} // namespace detail

// ---- Image ------------------------------------------------------------------------------------

Image::Image() : node_(emptyNode()) {}
Image::Image(std::shared_ptr<const detail::Node> node) : node_(std::move(node)) {}

Image Image::clear() { return Image(constantNode(0, 0, 0, 0)); }
Image Image::white() { return Image(constantNode(1, 1, 1, 1)); }
Image Image::black() { return Image(constantNode(0, 0, 0, 1)); }
Image Image::constant(const Color& c) {
    return Image(constantNode(float(c.red), float(c.green), float(c.blue), float(c.alpha)));
}

std::optional<Image> Image::fromBitmap(const void* bytes, std::int64_t rowBytes, std::int64_t width,
                                       std::int64_t height, Format format,
                                       std::optional<cg::ColorSpace>) {
    if (!bytes || width < 1 || height < 1 || rowBytes < width * bytesPerPixel(format))
        return std::nullopt;
    const std::int64_t packed = width * bytesPerPixel(format);
    auto copy = uninitializedBuffer(std::size_t(packed * height));
    for (std::int64_t y = 0; y < height; ++y)
        std::memcpy(copy.get() + y * packed, static_cast<const std::uint8_t*>(bytes) + y * rowBytes,
                    std::size_t(packed));
    const std::uint8_t* data = copy.get();
    return Image(std::make_shared<BitmapNode>(std::shared_ptr<const void>(copy, data), data, packed,
                                              width, height, format));
}

std::optional<Image> Image::withSharedBitmap(std::shared_ptr<const void> owner, const void* bytes,
                                             std::int64_t rowBytes, std::int64_t width,
                                             std::int64_t height, Format format) {
    if (!bytes || width < 1 || height < 1 || rowBytes < width * bytesPerPixel(format))
        return std::nullopt;
    return Image(std::make_shared<BitmapNode>(std::move(owner),
                                              static_cast<const std::uint8_t*>(bytes), rowBytes,
                                              width, height, format));
}

std::optional<Image> Image::fromSurface(std::shared_ptr<io::Surface> surface) {
    if (!surface) return std::nullopt;
    const std::optional<Format> format = formatOfSurfaceCode(surface->pixelFormat());
    if (!format) return std::nullopt;
    return Image(std::make_shared<BitmapNode>(surface->snapshot(), *format));
}

const cg::Rect& Image::extent() const { return node_->extent; }

Image Image::transformed(const cg::AffineTransform& t) const {
    precondition(isFinite(t), "Cannot transform an image by a non-finite transform.");
    if (t.isIdentity() || node_->extent.isNull()) return *this;
    if (t.isIntegerTranslation())
        return Image(
            std::make_shared<TranslateNode>(node_, std::int64_t(t.tx), std::int64_t(t.ty)));
    return Image(std::make_shared<TransformNode>(node_, t, samplesNearest(node_)));
}

Image Image::cropped(const cg::Rect& rect) const {
    precondition(!std::isnan(rect.origin.x) && !std::isnan(rect.origin.y) &&
                     !std::isnan(rect.size.width) && !std::isnan(rect.size.height),
                 "Cannot crop an image to a rectangle with NaN coordinates.");
    if (rect.isInfinite()) return *this;
    if (node_->extent.intersection(rect).isEmpty()) return Image();
    return Image(std::make_shared<CropNode>(node_, rect));
}

Image Image::clamped(const cg::Rect& rect) const {
    const IRect edge = pixelBounds(rect).intersection(pixelBounds(cg::Rect::infinite()));
    if (edge.isEmpty() || rect.isInfinite()) return *this;
    return Image(std::make_shared<ClampNode>(node_, edge));
}

Image Image::composited(const Image& background) const {
    static const BlendKernel over("sourceOver", sourceOverRow);
    const auto* constant = dynamic_cast<const ConstantNode*>(background.node_.get());
    if (constant && constant->color[3] == 0 && constant->color[0] == 0 && constant->color[1] == 0 &&
        constant->color[2] == 0)
        return Image(std::make_shared<WideningNode>(node_));
    return over.apply(*this, background);
}

Image Image::mosaic(const std::vector<Image>& pieces) {
    std::vector<NodePtr> nodes;
    cg::Rect extent = cg::Rect::null();
    std::int64_t cell = 1;
    for (const Image& piece : pieces) {
        if (piece.extent().isEmpty()) continue;
        nodes.push_back(piece.node());
        extent = extent.unionWith(piece.extent());
        cell = std::max({cell, nodes.back()->bounds.w, nodes.back()->bounds.h});
    }
    auto composite = [&] {
        Image result;
        for (const auto& node : nodes)
            result = Image(node).composited(result);
        return result;
    };
    // Only pieces of finite size whose pixels never overlap can be taken as they are.
    if (nodes.size() < 2 || extent.isInfinite() || cell >= kFar) return composite();
    const auto mosaic = std::make_shared<MosaicNode>(extent, nodes, cell);
    for (std::uint32_t i = 0; i < nodes.size(); ++i)
        for (const std::uint32_t j : mosaic->piecesIn(nodes[i]->bounds))
            if (j != i) return composite();
    return Image(mosaic);
}

Image Image::premultiplyingAlpha() const {
    return Image(std::make_shared<ColorKernelNode>(
        extent(), premultiplyRow, std::vector<NodePtr>{node_}, std::vector<KernelValue>{}));
}

Image Image::unpremultiplyingAlpha() const {
    return Image(std::make_shared<ColorKernelNode>(
        extent(), unpremultiplyRow, std::vector<NodePtr>{node_}, std::vector<KernelValue>{}));
}

Image Image::samplingNearest() const { return Image(std::make_shared<SamplingNode>(node_, true)); }
Image Image::samplingLinear() const { return Image(std::make_shared<SamplingNode>(node_, false)); }
namespace {
std::atomic<std::uint64_t> nextSharedNodeID{1};
} // namespace

SharedNode::SharedNode(NodePtr in)
    : Node(in->extent, in->reach), input(std::move(in)), id(nextSharedNodeID.fetch_add(1)) {}

void SharedNode::renderInside(const IRect& r, const Tile& out, Scratch& s) const {
    if (const std::vector<float>* pixels = s.kept(id, r)) {
        for (std::int64_t i = 0; i < r.h; ++i)
            std::memcpy(out.row(i), pixels->data() + i * r.w * 4,
                        sizeof(float) * 4 * std::size_t(r.w));
        return;
    }
    input->render(r, out, s);
    s.keep(id, r, out);
}

Image Image::sharedWithinTile() const {
    if (!node_ || dynamic_cast<const SharedNode*>(node_.get())) return *this;
    return Image(std::make_shared<SharedNode>(node_));
}

Image Image::insertingIntermediate() const {
    return Image(std::make_shared<IntermediateNode>(node_));
}

} // namespace bic::ci
