#include "bic/documents/document_composition.hpp"

#include "../kernels/operation_kernels.hpp"
#include "bic/compositing/image_operations.hpp"
#include "bic/compositing/mask_operations.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/documents/vector_mask.hpp"
#include "bic/platform/ci/builtin_filters.hpp"
#include "bic/platform/ci/context.hpp"
#include "bic/platform/ci/kernel.hpp"
#include "bic/platform/core/memory.hpp"
#include "bic/platform/draw/context.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <tbb/parallel_for.h>

namespace bic {

struct DocumentCompositeSettings {
    std::int64_t width = 0, height = 0;
    int bitDepth = 8, colorChannels = 3;
    bool roundEachLayer = false;

    cg::Rect imageRect(const DocumentRect& r) const { return bic::imageRect(r, height).cgRect(); }
    cg::Rect extent() const { return cg::Rect(0, 0, double(width), double(height)); }
    int sampleBytes() const { return bitDepth / 8; }
    ci::Format colorFormat() const {
        return bitDepth == 8 ? ci::Format::RGBA8
                             : (bitDepth == 16 ? ci::Format::RGBA16 : ci::Format::RGBAf);
    }
    ci::Format greyFormat() const {
        return bitDepth == 8 ? ci::Format::L8 : (bitDepth == 16 ? ci::Format::L16 : ci::Format::Lf);
    }
    BlendArithmetic arithmetic() const {
        return bitDepth == 8 ? BlendArithmetic::eightBit : BlendArithmetic::continuous;
    }
};

namespace {

// The running result as the writing application keeps it between layers.
ci::Image roundedToEightBit(const ci::Image& image) {
    if (image.extent().isEmpty() || image.extent().isInfinite()) return image;
    return kernels::roundedToEightBit(image).value_or(image);
}

// Straight RGBA of the document's depth from a layer's channel planes (grey copied into all
// three colours; no transparency plane: opaque). The planes and the pixels share the host's
// byte order. Rows are done in parallel, and 8-bit ones in a loop the compiler vectorises.
std::shared_ptr<std::uint8_t[]> interleaved(const DocumentCompositeSettings& s, std::int64_t width,
                                            std::int64_t height,
                                            const std::vector<const SamplePlane*>& colors,
                                            const SamplePlane* alpha) {
    const auto bytes = std::size_t(s.sampleBytes());
    std::uint8_t zero[4] = {}, one[4];
    if (s.bitDepth == 32) {
        const float f = 1;
        std::memcpy(one, &f, 4);
    } else {
        std::memset(one, 0xff, 4);
    }
    const auto w = std::size_t(width);
    auto out = uninitializedBuffer(w * std::size_t(height) * 4 * bytes);
    const std::uint8_t* planes[4];
    for (std::size_t c = 0; c < 3; ++c) {
        const SamplePlane* plane = colors[c % colors.size()];
        planes[c] = plane ? plane->bytes().data() : nullptr;
    }
    planes[3] = alpha ? alpha->bytes().data() : nullptr;
    tbb::parallel_for(std::int64_t{0}, height, [&](std::int64_t y) {
        const std::size_t first = std::size_t(y) * w;
        std::uint8_t* p = out.get() + first * 4 * bytes;
        if (bytes == 1 && planes[0] && planes[1] && planes[2] && planes[3]) {
            const std::uint8_t *r = planes[0] + first, *g = planes[1] + first,
                               *b = planes[2] + first, *a = planes[3] + first;
            for (std::size_t x = 0; x < w; ++x) {
                p[4 * x] = r[x], p[4 * x + 1] = g[x], p[4 * x + 2] = b[x];
                p[4 * x + 3] = a[x];
            }
            return;
        }
        for (std::size_t x = 0; x < w; ++x, p += 4 * bytes)
            for (std::size_t c = 0; c < 4; ++c)
                std::memcpy(p + c * bytes,
                            planes[c] ? planes[c] + (first + x) * bytes : (c == 3 ? one : zero),
                            bytes);
    });
    return out;
}

const SamplePlane* planeOfSize(const LayerChannel* channel, const DocumentRect& rect, int depth) {
    if (!channel) return nullptr;
    const SamplePlane& p = channel->plane;
    return p.width() == rect.width() && p.height() == rect.height() && p.bitDepth() == depth
               ? &p
               : nullptr;
}

ci::Image sharedBitmap(std::shared_ptr<const void> owner, const std::uint8_t* bytes,
                       std::int64_t width, std::int64_t height, ci::Format format) {
    const std::int64_t rowBytes = width * ci::bytesPerPixel(format);
    auto image =
        ci::Image::withSharedBitmap(std::move(owner), bytes, rowBytes, width, height, format);
    if (!image)
        throw ImageCoreError(ImageCoreError::unknownError, "a layer's pixels make no image");
    return *image;
}

// Whether the file carries its vector mask drawn: then the user mask channel holds that
// drawing (flagged as rendered from other data, or beside a real user mask that holds the
// pixel mask), and the composite uses it as stored.
bool vectorMaskIsStored(const DocumentLayer& layer) {
    return layer.mask &&
           ((layer.mask->flags & LayerMask::fromRenderingOtherData) || layer.realMask);
}

// Flagged as rendered and beside a real user mask, the user mask channel is the two masks
// multiplied, neither's density nor feather applied: the vector mask is drawn and the real
// mask used instead, each with its own.
bool userMaskChannelCombinesBoth(const DocumentLayer& layer) {
    return layer.mask && layer.realMask && (layer.mask->flags & LayerMask::fromRenderingOtherData);
}

bool blendingRangesAreDefault(const std::vector<std::uint8_t>& ranges) {
    // Each range is black low, black high, white low, white high; the default passes all.
    for (std::size_t i = 0; i + 4 <= ranges.size(); i += 4)
        if (ranges[i] != 0 || ranges[i + 1] != 0 || ranges[i + 2] != 255 || ranges[i + 3] != 255)
            return false;
    return true;
}

// The box a gradient fill aligned with its layer spans: the outline of the layer's vector mask
// (a shape's own rectangle, without the anti-aliased margin its pixels add), else the layer's
// bounds, else its mask's rectangle; image coordinates.
std::optional<cg::Rect> alignmentBox(const DocumentLayer& layer,
                                     const DocumentCompositeSettings& s) {
    for (const TaggedBlock& block : layer.blocks) {
        if (block.key != "vmsk" && block.key != "vsms") continue;
        const auto vector = readVectorMask(block.bytes, s.width, s.height);
        if (!vector || vector->disabled) break;
        const cg::Rect outline = vector->outline.cgPath().boundingBox();
        // Rows counted from the top become image y, which grows upwards.
        if (!outline.isNull() && !outline.isEmpty())
            return cg::Rect(outline.minX(), double(s.height) - outline.maxY(), outline.width(),
                            outline.height());
        break;
    }
    if (!layer.bounds.isEmpty()) return s.imageRect(layer.bounds);
    // A fill without pixels shows only inside its mask's rectangle when the mask hides the rest:
    // that rectangle is its extent (masks/gradient-fill.psd's ramp spans exactly its rows).
    if (layer.mask && !layer.mask->isDisabled() && layer.mask->defaultColor == 0 &&
        !layer.mask->rect.isEmpty())
        return s.imageRect(layer.mask->rect);
    return std::nullopt;
}

// The paint of a gradient fill over `r` (image coordinates).
std::optional<ci::Image> gradientImage(const GradientFill& fill, const cg::Rect& r,
                                       const DocumentCompositeSettings& s) {
    if (!fill.gradient || r.isEmpty()) return std::nullopt;
    ColorGradient gradient = *fill.gradient;
    if (fill.reverse) gradient.reverse();
    gradient = smoothedGradient(gradient, fill.smoothness);
    const double w = r.size.width, h = r.size.height;
    const double radians = fill.angle * M_PI / 180;
    const cg::Vector direction{std::cos(radians), std::sin(radians)};
    // The application's linear fills are its ramp sampled half a pixel on along the direction's
    // major axis: at 150° half a pixel left of our pixel centres, at 90° half a pixel up (fitted
    // on the stored fills of three documents: 0.3–0.44 levels rms on the two at 150°, every
    // pixel within a level at 90°, where an even shift along the direction loses 5–15 % of the
    // 150° pixels). Its reflected ones show no such shift.
    cg::Vector shift{0, 0};
    if (fill.type == GradientType::linear) {
        if (std::abs(direction.dx) >= std::abs(direction.dy))
            shift.dx = direction.dx < 0 ? 0.5 : -0.5;
        else
            shift.dy = direction.dy < 0 ? 0.5 : -0.5;
    }
    // The offset is a fraction of the box, with y down as the file measures it.
    const cg::Point centre{r.origin.x + w / 2 + fill.offsetX * w + shift.dx,
                           r.origin.y + h / 2 - fill.offsetY * h + shift.dy};
    // The ramp spans the chord that the line through the centre at the angle cuts from the box,
    // times the scale: away from right angles the corners lie beyond its ends, in the end
    // colours (measured on the application's stored fills).
    const double across = std::abs(direction.dx) > 1e-12 ? w / std::abs(direction.dx) : INFINITY;
    const double upwards = std::abs(direction.dy) > 1e-12 ? h / std::abs(direction.dy) : INFINITY;
    const double length = std::min(across, upwards) * std::max(fill.scale, 1e-6);
    const auto along = [&](double t) {
        return cg::Point{centre.x + direction.dx * length * t,
                         centre.y + direction.dy * length * t};
    };
    cg::Point from = centre, to = along(0.5);
    if (fill.type == GradientType::linear) from = along(-0.5);
    if (fill.type == GradientType::reflected) {
        // The application's reflected fills end on a pixel corner: the chord's end rounded down
        // to whole pixels in the file's coordinates (y down). The 4 × 4 test documents' fill,
        // stored at 30°, is drawn exactly so (its end moves to the corner, 45°); the move is
        // under a pixel, so a large fill keeps its angle. Linear fills show no such rounding.
        const double top = double(s.height);
        to = cg::Point{std::floor(to.x), top - std::floor(top - to.y)};
    }
    const std::optional<int> dither =
        fill.dither ? std::optional<int>(s.bitDepth == 8 ? 256 : 65536) : std::nullopt;
    return gradient.image(fill.type, from, to, true, dither);
}

// A document pattern as an opaque float image, repeated from the document's top-left corner.
struct PatternPaint {
    ci::Image image; // opaque floats, the pattern's top row first
    std::int64_t height = 0;

    // The pattern over the plane with its top-left pixel at `x`, `y` (document pixels, y down)
    // of a document `documentHeight` tall.
    ci::Image placed(double x, double y, std::int64_t documentHeight) const {
        return ci::affineTile(image, cg::AffineTransform::translation(x, double(documentHeight) -
                                                                             y - double(height)));
    }
};

bool anyPatternOverlay(const std::vector<DocumentLayer>& layers) {
    return std::any_of(layers.begin(), layers.end(), [](const DocumentLayer& layer) {
        return (layer.effects && !layer.effects->patternOverlays.empty()) ||
               anyPatternOverlay(layer.children);
    });
}

// The patterns of the document's pattern blocks by identifier, when a layer draws one;
// unreadable blocks give none.
std::map<std::string, PatternPaint> documentPatterns(const LayeredDocument& document) {
    std::map<std::string, PatternPaint> paints;
    if (!anyPatternOverlay(document.layers)) return paints;
    for (const TaggedBlock& block : document.globalBlocks) {
        if (block.key != "Patt" && block.key != "Pat2" && block.key != "Pat3") continue;
        std::vector<Pattern> patterns;
        try {
            patterns = readPatterns(block.bytes);
        } catch (const DocumentError&) {
            continue;
        }
        for (const Pattern& p : patterns) {
            const auto count = std::size_t(p.width * p.height);
            auto pixels = std::make_shared<std::vector<float>>(count * 4);
            for (std::size_t i = 0; i < count; ++i) {
                for (std::size_t c = 0; c < 3; ++c)
                    (*pixels)[4 * i + c] = float(p.colors[c % p.colors.size()].bytes()[i]) / 255.0f;
                (*pixels)[4 * i + 3] = 1;
            }
            const auto* bytes = reinterpret_cast<const std::uint8_t*>(pixels->data());
            PatternPaint paint{
                sharedBitmap(std::move(pixels), bytes, p.width, p.height, ci::Format::RGBAf),
                p.height};
            paints.emplace(p.id, std::move(paint));
        }
    }
    return paints;
}

} // namespace

// ---- Compositing ----

struct DocumentCompositor {
    static ci::Image blend(const ci::Image& layer, const ci::Image& backdrop, BlendMode mode,
                           double opacity, const DocumentCompositeSettings& s) {
        if (!(opacity > 0) || layer.extent().isEmpty()) return backdrop;
        const cg::Rect inside = layer.extent().integral();
        const cg::Rect all = backdrop.extent().unionWith(inside);
        if (inside.isInfinite() || all.isInfinite() || inside.contains(all)) {
            const ci::Image result =
                blended(layer, backdrop, mode, std::min(opacity, 1.0), s.arithmetic());
            return s.roundEachLayer ? roundedToEightBit(result) : result;
        }
        // Where the layer is transparent every mode gives the backdrop, which is already
        // rounded: only the layer's rectangle is blended, and the rest of the backdrop is laid
        // beside it in four bands, so that rendering outside the layer costs it nothing.
        ci::Image result =
            blended(layer, backdrop.cropped(inside), mode, std::min(opacity, 1.0), s.arithmetic());
        if (s.roundEachLayer) result = roundedToEightBit(result);
        std::vector<ci::Image> pieces{result.cropped(inside)};
        const double x0 = all.minX(), x1 = all.maxX(), y0 = all.minY(), y1 = all.maxY();
        const double ix0 = inside.minX(), ix1 = inside.maxX(), iy0 = inside.minY(),
                     iy1 = inside.maxY();
        for (const cg::Rect& band :
             {cg::Rect(x0, y0, x1 - x0, iy0 - y0), cg::Rect(x0, iy1, x1 - x0, y1 - iy1),
              cg::Rect(x0, iy0, ix0 - x0, iy1 - iy0), cg::Rect(ix1, iy0, x1 - ix1, iy1 - iy0)})
            if (!band.isEmpty()) pieces.push_back(backdrop.cropped(band));
        return ci::Image::mosaic(pieces);
    }

    // `children` blended bottom first onto `backdrop`.
    static ci::Image compose(ci::Image running,
                             const std::vector<std::shared_ptr<DocumentLayerNode>>& children,
                             const DocumentCompositeSettings& s) {
        for (std::size_t i = 0; i < children.size();) {
            const DocumentLayerNode& base = *children[i];
            std::size_t end = i + 1;
            while (end < children.size() && children[end]->isClipped())
                ++end;
            if (base.isVisible()) {
                running = composeOne(running, base, s);
                if (end > i + 1) {
                    // Clipped layers show only where the base has coverage of its own.
                    const ci::Image coverage = bic_maskFromTransparency(base.content());
                    for (std::size_t k = i + 1; k < end; ++k) {
                        const DocumentLayerNode& clipped = *children[k];
                        if (!clipped.isVisible()) continue;
                        running = blendLayer(bic_masked(clipped.content(), coverage), running,
                                             clipped, s);
                    }
                }
            }
            i = end;
        }
        return running;
    }

    static ci::Image composeOne(const ci::Image& before, const DocumentLayerNode& layer,
                                const DocumentCompositeSettings& s) {
        if (layer.isGroup() && layer.blendMode() == BlendMode::passThrough) {
            // Read by the group's layers and again by the mix with its mask and opacity.
            const ci::Image running = before.sharedWithinTile();
            const ci::Image after = compose(running, layer.children(), s);
            ci::Image result = after;
            if (!layer.masks_.empty()) {
                // Where the group's mask hides, the result before the group shows.
                ci::Image shown = ci::Image::white();
                for (const auto& mask : layer.masks_)
                    shown = bic_masked(shown, maskImage(mask, s));
                result = bic_mixWithMask(running, after, bic_maskFromTransparency(shown));
            }
            const double opacity = layer.opacity() * layer.fillOpacity();
            if (opacity < 1) result = ci::mix(result, running, opacity);
            return s.roundEachLayer && result != after ? roundedToEightBit(result) : result;
        }
        return blendLayer(layer.content(), before, layer, s);
    }

    // A layer's `content` blended onto `before`, then its colour overlays: each paints the
    // layer's shape (its coverage, whatever its fill opacity) in its colour, mode and opacity
    // onto the result, as the application does unless interior effects blend as a group.
    static ci::Image blendLayer(const ci::Image& content, const ci::Image& before,
                                const DocumentLayerNode& layer,
                                const DocumentCompositeSettings& s) {
        ci::Image running =
            blend(content, before, layer.blendMode(), layer.opacity() * layer.fillOpacity(), s);
        if (layer.overlays_.empty()) return running;
        const ci::Image shape = bic_maskFromTransparency(content);
        for (const DocumentLayerNode::Overlay& overlay : layer.overlays_) {
            const ci::Image paint =
                overlay.paint.cropped(content.extent().intersection(s.extent()));
            running = blend(bic_masked(paint, shape), running, overlay.mode,
                            overlay.opacity * layer.opacity(), s);
        }
        return running;
    }

    // A vector mask drawn into an 8-bit grey bitmap over its outline's pixels (the document's
    // outside them is the mask's default level): anti-aliased, even-odd.
    static std::optional<DocumentLayerNode::Mask>
    drawnVectorMask(const VectorMask& vector, const DocumentCompositeSettings& s) {
        const bool invert = vector.inverted != vector.startsFilled;
        DocumentLayerNode::Mask mask;
        mask.defaultLevel = invert ? 1 : 0;
        const cg::Path outline = vector.outline.cgPath();
        const cg::Rect drawn = outline.boundingBox().integral().insetBy(-1, -1).intersection(
            cg::Rect(0, 0, double(s.width), double(s.height)));
        if (drawn.isNull() || drawn.isEmpty()) return mask;
        const auto left = std::int32_t(drawn.minX()), top = std::int32_t(drawn.minY());
        mask.rect = {top, left, std::int32_t(drawn.maxY()), std::int32_t(drawn.maxX())};
        const std::int64_t w = mask.rect.width(), h = mask.rect.height();
        auto bytes = std::make_shared<std::vector<std::uint8_t>>(std::size_t(w * h), 0);
        auto context = cg::Context::bitmap(bytes->data(), w, h, 8, w, cg::ColorSpace::deviceGray(),
                                           cg::bitmap::alphaNone);
        if (!context) return std::nullopt;
        // Document rows run down from the top; the context's y runs up from its bottom row.
        context->translateBy(-double(left), double(top) + double(h));
        context->scaleBy(1, -1);
        context->setFillColor(cg::Color::deviceGray(1, 1));
        context->addPath(outline);
        context->fillPath(cg::PathFillRule::evenOdd);
        if (invert)
            for (std::uint8_t& v : *bytes)
                v = std::uint8_t(255 - v);
        const cg::Rect r = s.imageRect(mask.rect);
        mask.coverage = sharedBitmap(bytes, bytes->data(), w, h, ci::Format::L8)
                            .translated(r.origin.x, r.origin.y);
        return mask;
    }

    static ci::Image maskImage(const DocumentLayerNode::Mask& mask,
                               const DocumentCompositeSettings& s) {
        const double d = mask.defaultLevel;
        const ci::Image outside = ci::Image::constant({d, d, d, 1});
        ci::Image image = outside;
        if (!mask.rect.isEmpty() && (mask.samples || mask.coverage)) {
            const cg::Rect r = s.imageRect(mask.rect);
            image = mask.coverage
                        ? *mask.coverage
                        : sharedBitmap(mask.samples, mask.samples->data(), mask.rect.width(),
                                       mask.rect.height(), s.greyFormat())
                              .translated(r.origin.x, r.origin.y);
            image = image.composited(outside);
            if (mask.feather > 0)
                image = ci::gaussianBlur(
                    image.clamped(r.insetBy(-3 * mask.feather, -3 * mask.feather)), mask.feather);
        }
        if (mask.density < 1) {
            // Density lifts what the mask hides: m' = 1 − density·(1 − m).
            const double k = mask.density;
            image = ci::colorMatrix(
                image,
                {{k, 0, 0, 0}, {0, k, 0, 0}, {0, 0, k, 0}, {0, 0, 0, 1}, {1 - k, 1 - k, 1 - k, 0}});
        }
        return image;
    }
};

// ---- Layer nodes ----

void DocumentLayerNode::rebuildContent() {
    const DocumentCompositeSettings& s = *settings_;
    ci::Image image;
    if (isGroup()) {
        image = DocumentCompositor::compose(ci::Image(), children_, s);
    } else if (fill_) {
        image = *fill_;
    } else {
        image = storedPixels();
    }
    // A pass-through group's mask is applied by its parent, to the result it mixes.
    if (!(isGroup() && mode_ == BlendMode::passThrough))
        for (const auto& mask : masks_)
            image = bic_masked(image, DocumentCompositor::maskImage(mask, s));
    content_ = image;
}

ci::Image DocumentLayerNode::storedPixels() const {
    if (!pixels_ || bounds_.isEmpty()) return ci::Image();
    const cg::Rect r = settings_->imageRect(bounds_);
    return sharedBitmap(pixels_, pixels_.get(), bounds_.width(), bounds_.height(),
                        settings_->colorFormat())
        .premultiplyingAlpha()
        .translated(r.origin.x, r.origin.y);
}

ci::Image DocumentLayerNode::content() const { return content_; }

cg::Rect DocumentLayerNode::outputImageExtent() const {
    if (isGroup()) {
        cg::Rect all = cg::Rect::null();
        for (const auto& child : children_)
            all = all.unionWith(child->outputImageExtent());
        return all;
    }
    if (fill_) return settings_->extent();
    return bounds_.isEmpty() ? cg::Rect::null() : settings_->imageRect(bounds_);
}

Image DocumentLayerNode::outputImage(const RenderContext&) { return Image(content_); }

void DocumentLayerNode::announce(const cg::Rect& rect) {
    if (!rect.isEmpty()) broadcastOutputImageChange(rect);
}

void DocumentLayerNode::invalidateInputImage(ImageProvider&, const cg::Rect& rect) {
    if (isGroup()) rebuildContent();
    announce(rect);
}

void DocumentLayerNode::setVisible(bool visible) {
    if (visible == visible_) return;
    visible_ = visible;
    announce(outputImageExtent());
}

void DocumentLayerNode::setOpacity(double opacity) {
    opacity = std::isfinite(opacity) ? std::clamp(opacity, 0.0, 1.0) : 1.0;
    if (opacity == opacity_) return;
    opacity_ = opacity;
    announce(outputImageExtent());
}

void DocumentLayerNode::setFillOpacity(double fillOpacity) {
    fillOpacity = std::isfinite(fillOpacity) ? std::clamp(fillOpacity, 0.0, 1.0) : 1.0;
    if (fillOpacity == fillOpacity_) return;
    fillOpacity_ = fillOpacity;
    announce(outputImageExtent());
}

void DocumentLayerNode::setBlendMode(BlendMode mode) {
    const bool groupMode = mode == BlendMode::passThrough || mode == BlendMode::replace;
    if (mode == BlendMode::replace || (groupMode && !isGroup()))
        throw ImageCoreError(ImageCoreError::parameterError,
                             std::string(mode.name()) + " is no mode for this layer");
    if (mode == mode_) return;
    const bool masksMove =
        isGroup() && (mode == BlendMode::passThrough) != (mode_ == BlendMode::passThrough);
    mode_ = mode;
    if (masksMove) rebuildContent();
    announce(outputImageExtent());
}

void DocumentLayerNode::moveBy(std::int64_t dx, std::int64_t dy) {
    if (dx == 0 && dy == 0) return;
    const cg::Rect before = outputImageExtent();
    const auto moved = [&](DocumentRect r) {
        r.left = std::int32_t(r.left + dx), r.right = std::int32_t(r.right + dx);
        r.top = std::int32_t(r.top + dy), r.bottom = std::int32_t(r.bottom + dy);
        return r;
    };
    bounds_ = moved(bounds_);
    for (auto& mask : masks_)
        mask.rect = moved(mask.rect);
    rebuildContent();
    announce(before);
    announce(outputImageExtent());
}

void DocumentLayerNode::setPixels(const DocumentRect& bounds,
                                  const std::vector<SamplePlane>& planes) {
    const DocumentCompositeSettings& s = *settings_;
    const int colors = s.colorChannels;
    const bool sizesFit = std::all_of(planes.begin(), planes.end(), [&](const SamplePlane& p) {
        return p.width() == bounds.width() && p.height() == bounds.height() &&
               p.bitDepth() == s.bitDepth;
    });
    if (isGroup() || fill_ || !sizesFit ||
        (planes.size() != std::size_t(colors) && planes.size() != std::size_t(colors + 1)))
        throw ImageCoreError(ImageCoreError::parameterError,
                             "pixels must be one plane per colour channel and an optional "
                             "transparency, of the bounds' size and the document's depth");
    const cg::Rect before = outputImageExtent();
    std::vector<const SamplePlane*> colorPlanes;
    for (int c = 0; c < colors; ++c)
        colorPlanes.push_back(&planes[std::size_t(c)]);
    const SamplePlane* alpha =
        planes.size() > std::size_t(colors) ? &planes[std::size_t(colors)] : nullptr;
    bounds_ = bounds;
    pixels_ = bounds.isEmpty()
                  ? nullptr
                  : interleaved(s, bounds.width(), bounds.height(), colorPlanes, alpha);
    rebuildContent();
    announce(before.unionWith(outputImageExtent()));
}

// ---- The composition ----

namespace {

std::string describeMode(const DocumentLayer& layer) {
    return "unknown blend key \"" + layer.blendKey + "\" shown as Normal";
}

} // namespace

DocumentComposition::DocumentComposition(const LayeredDocument& document,
                                         DocumentCompositeOptions options) {
    auto settings = std::make_shared<DocumentCompositeSettings>();
    settings->width = document.width;
    settings->height = document.height;
    settings->bitDepth = document.bitDepth;
    settings->colorChannels = document.colorChannels();
    using Rounding = DocumentCompositeOptions::Rounding;
    settings->roundEachLayer = options.rounding == Rounding::eachLayer ||
                               (options.rounding == Rounding::automatic && document.bitDepth == 8);
    settings_ = settings;
    const DocumentCompositeSettings& s = *settings_;

    const auto approximate = [&](std::size_t index, const DocumentLayer& layer, std::string why) {
        approximations_.push_back({index, layer.name, std::move(why)});
    };
    const std::map<std::string, PatternPaint> patterns = documentPatterns(document);

    // Pre-order, as `walk` numbers the layers, building each group's children as it goes.
    std::size_t index = 0;
    const auto build = [&](auto& self,
                           const DocumentLayer& layer) -> std::shared_ptr<DocumentLayerNode> {
        const std::size_t at = index++;
        auto node = std::shared_ptr<DocumentLayerNode>(new DocumentLayerNode());
        layers_.push_back(node);
        node->settings_ = settings_;
        node->name_ = layer.name;
        node->kind_ = layer.kind;
        node->visible_ = layer.isVisible();
        node->clipped_ = layer.isClipped();
        node->opacity_ = layer.opacity / 255.0;
        node->fillOpacity_ = layer.fillOpacity / 255.0;
        if (layer.effects) {
            // The application stacks pattern overlays under colour overlays, and starts a
            // pattern one row below its phase (composite/fill-opacity.psd: every pixel so, 86 %
            // at the phase itself).
            for (const PatternOverlayEffect& e : layer.effects->patternOverlays) {
                const auto found = patterns.find(e.patternId);
                if (found == patterns.end()) {
                    approximate(at, layer, "pattern overlay: the document lacks its pattern");
                    continue;
                }
                if (e.scale != 1) approximate(at, layer, "pattern overlay drawn at 100 %");
                node->overlays_.push_back(
                    {found->second.placed(e.phaseX, e.phaseY + 1, s.height), e.mode, e.opacity});
            }
            for (const ColorOverlayEffect& e : layer.effects->colorOverlays) {
                const PixelRGBA32& c = e.color;
                node->overlays_.push_back(
                    {ci::Image::constant({c.redComponent, c.greenComponent, c.blueComponent, 1}),
                     e.mode, e.opacity});
            }
        }
        node->mode_ = layer.blendMode.value_or(BlendMode::normal);
        if (!layer.blendMode) approximate(at, layer, describeMode(layer));
        if (node->mode_ == BlendMode::replace) node->mode_ = BlendMode::normal;
        if (node->mode_ == BlendMode::passThrough && !layer.isGroup())
            node->mode_ = BlendMode::normal;
        if (node->mode_ == BlendMode::dissolve)
            approximate(at, layer, "Dissolve's noise pattern is the library's own");

        const auto addMask = [&](const DocumentRect& rect, std::uint8_t defaultColor,
                                 std::int16_t id) {
            DocumentLayerNode::Mask mask;
            mask.rect = rect;
            mask.defaultLevel = defaultColor / 255.0;
            if (layer.mask->parameters) {
                // The user mask channel holds the vector mask's drawing when the file carries
                // it drawn (the pixel mask is then the real user mask): each takes its own
                // density and feather.
                const MaskParameters& p = *layer.mask->parameters;
                const bool drawing = id == userMaskChannel && vectorMaskIsStored(layer);
                const auto density = drawing ? p.vectorMaskDensity : p.userMaskDensity;
                const auto feather = drawing ? p.vectorMaskFeather : p.userMaskFeather;
                if (density) mask.density = *density / 255.0;
                if (feather) mask.feather = std::max(0.0, *feather);
            }
            if (const SamplePlane* plane = planeOfSize(layer.channel(id), rect, s.bitDepth))
                mask.samples = std::make_shared<ByteBuffer>(plane->bytes());
            node->masks_.push_back(std::move(mask));
        };
        if (layer.mask && !layer.mask->isDisabled() && !userMaskChannelCombinesBoth(layer))
            addMask(layer.mask->rect, layer.mask->defaultColor, userMaskChannel);
        if (layer.realMask && !layer.realMask->isDisabled())
            addMask(layer.realMask->rect, layer.realMask->defaultColor, realUserMaskChannel);

        if (layer.isGroup()) {
            for (const DocumentLayer& child : layer.children) {
                node->children_.push_back(self(self, child));
                node->children_.back()->addImageConsumer(*node);
            }
        } else if (layer.kind == LayerKind::solidColorFill && layer.solidFill) {
            const PixelRGBA32& c = layer.solidFill->color;
            node->fill_ =
                ci::Image::constant({c.redComponent, c.greenComponent, c.blueComponent, 1})
                    .cropped(s.extent());
        } else if (layer.kind == LayerKind::gradientFill && layer.gradientFill) {
            std::optional<cg::Rect> box;
            if (layer.gradientFill->alignWithLayer) box = alignmentBox(layer, s);
            if (!box) box = s.extent();
            if (auto paint = gradientImage(*layer.gradientFill, *box, s)) {
                node->fill_ = paint->cropped(s.extent());
                if (layer.gradientFill->dither)
                    approximate(at, layer, "the gradient's dither pattern is the library's own");
            }
        }
        if (!layer.isGroup() && !layer.bounds.isEmpty()) {
            std::vector<const SamplePlane*> colors;
            for (int c = 0; c < s.colorChannels; ++c)
                colors.push_back(
                    planeOfSize(layer.channel(std::int16_t(c)), layer.bounds, s.bitDepth));
            const bool anyColor =
                std::any_of(colors.begin(), colors.end(), [](const SamplePlane* p) { return p; });
            node->bounds_ = layer.bounds;
            if (anyColor)
                node->pixels_ = interleaved(
                    s, layer.bounds.width(), layer.bounds.height(), colors,
                    planeOfSize(layer.channel(transparencyChannel), layer.bounds, s.bitDepth));
        }

        // A shape (a fill whose vector mask outlines it) is painted through the outline's
        // coverage, which its stored pixels carry in their transparency, anti-aliased as the
        // application drew it. Other vector masks are drawn here.
        if (node->fill_ && layer.hasVectorMask && node->pixels_ && !vectorMaskIsStored(layer)) {
            node->fill_ = bic_masked(node->fill_->cropped(s.imageRect(layer.bounds)),
                                     bic_maskFromTransparency(node->storedPixels()));
        } else if (layer.hasVectorMask &&
                   (!vectorMaskIsStored(layer) || userMaskChannelCombinesBoth(layer))) {
            std::optional<DocumentLayerNode::Mask> drawn;
            bool disabled = false;
            for (const TaggedBlock& block : layer.blocks)
                if (block.key == "vmsk" || block.key == "vsms") {
                    if (const auto vector = readVectorMask(block.bytes, s.width, s.height)) {
                        disabled = vector->disabled;
                        if (!disabled) drawn = DocumentCompositor::drawnVectorMask(*vector, s);
                    }
                    break;
                }
            if (drawn) {
                if (layer.mask && layer.mask->parameters) {
                    const MaskParameters& p = *layer.mask->parameters;
                    if (p.vectorMaskDensity) drawn->density = *p.vectorMaskDensity / 255.0;
                    if (p.vectorMaskFeather) drawn->feather = std::max(0.0, *p.vectorMaskFeather);
                }
                node->masks_.push_back(std::move(*drawn));
            } else if (!disabled) {
                approximate(at, layer, "vector mask not readable");
            }
        }
        switch (layer.kind) {
        case LayerKind::adjustment:
            approximate(at, layer, "adjustment layer not applied");
            node->visible_ = false;
            break;
        case LayerKind::patternFill:
        case LayerKind::text:
        case LayerKind::smartObject:
            if (!node->pixels_)
                approximate(at, layer, std::string(layerKindName(layer.kind)) + " without pixels");
            break;
        case LayerKind::solidColorFill:
        case LayerKind::gradientFill:
            if (!node->fill_) approximate(at, layer, "fill not readable; stored pixels shown");
            break;
        default:
            break;
        }
        if (layer.hasLayerEffects && !layer.effects) {
            approximate(at, layer, "layer effects not rendered");
        } else if (layer.effects && !layer.effects->unrendered.empty()) {
            std::string keys;
            for (const std::string& key : layer.effects->unrendered)
                keys += (keys.empty() ? "" : ", ") + key;
            approximate(at, layer, "layer effects not rendered: " + keys);
        }
        if (!blendingRangesAreDefault(layer.blendingRanges))
            approximate(at, layer, "blending ranges not applied");
        node->rebuildContent();
        return node;
    };

    root_ = std::shared_ptr<DocumentLayerNode>(new DocumentLayerNode());
    root_->settings_ = settings_;
    root_->name_ = "document";
    root_->kind_ = LayerKind::group;
    for (const DocumentLayer& layer : document.layers) {
        root_->children_.push_back(build(build, layer));
        root_->children_.back()->addImageConsumer(*root_);
    }
    root_->rebuildContent();
}

const std::shared_ptr<DocumentLayerNode>& DocumentComposition::layer(std::size_t index) const {
    return layers_.at(index);
}

cg::Rect DocumentComposition::extent() const { return settings_->extent(); }

std::vector<SamplePlane> DocumentComposition::render() const {
    const DocumentCompositeSettings& s = *settings_;
    const std::int64_t w = s.width, h = s.height;
    const int colors = s.colorChannels;
    std::vector<SamplePlane> planes;
    for (int c = 0; c <= colors; ++c)
        planes.emplace_back(w, h, s.bitDepth);
    const ci::Image image = root_->content();
    if (image.extent().isEmpty() || w == 0 || h == 0) return planes;
    // Bands of the engine's tile height, rendered and converted while they are in cache: a
    // float copy of the whole document would be 16 bytes a pixel, written and read once.
    constexpr std::int64_t kBand = 64;
    const auto convert = [&](auto sample, const float* rgba, std::size_t first, std::size_t n) {
        using Sample = decltype(sample);
        Sample* out[5];
        for (int c = 0; c <= colors; ++c)
            out[c] =
                reinterpret_cast<Sample*>(planes[std::size_t(c)].mutableBytes().data()) + first;
        const auto level = [](float v) {
            v = std::clamp(v, 0.0f, 1.0f);
            if constexpr (std::is_same_v<Sample, float>) return v;
            constexpr float top = float(std::numeric_limits<Sample>::max());
            return Sample(std::floor(v * top + 0.5f));
        };
        for (std::size_t i = 0; i < n; ++i) {
            const float* p = rgba + 4 * i;
            const float a = p[3];
            for (int c = 0; c < colors; ++c)
                out[c][i] = level(a > 0 ? p[c] / a : 0.0f);
            out[colors][i] = level(a);
        }
    };
    tbb::parallel_for(std::int64_t{0}, (h + kBand - 1) / kBand, [&](std::int64_t band) {
        const std::int64_t top = band * kBand, rows = std::min(kBand, h - top);
        const auto rgba = std::make_unique_for_overwrite<float[]>(std::size_t(w * rows * 4));
        // Image rows run bottom up; the band's top row is document row `top`.
        ci::Context::shared()->render(image, rgba.get(), w * 16,
                                      cg::Rect(0, double(h - top - rows), double(w), double(rows)),
                                      ci::Format::RGBAf);
        const auto first = std::size_t(top * w), n = std::size_t(rows * w);
        if (s.bitDepth == 8)
            convert(std::uint8_t{}, rgba.get(), first, n);
        else if (s.bitDepth == 16)
            convert(std::uint16_t{}, rgba.get(), first, n);
        else
            convert(float{}, rgba.get(), first, n);
    });
    return planes;
}

} // namespace bic

namespace bic {

std::vector<SamplePlane> DocumentComposition::renderForFile() const {
    std::vector<SamplePlane> planes = render();
    const int colors = settings_->colorChannels;
    const auto matte = [&](auto sample) {
        using Sample = decltype(sample);
        const auto* alpha =
            reinterpret_cast<const Sample*>(planes[std::size_t(colors)].bytes().data());
        const std::size_t count = planes[0].sampleCount();
        for (int c = 0; c < colors; ++c) {
            auto* color = reinterpret_cast<Sample*>(planes[std::size_t(c)].mutableBytes().data());
            const tbb::blocked_range<std::size_t> all(0, count, std::size_t{1} << 16);
            tbb::parallel_for(all, [&](const tbb::blocked_range<std::size_t>& part) {
                for (std::size_t i = part.begin(); i != part.end(); ++i) {
                    if constexpr (std::is_same_v<Sample, float>) {
                        color[i] = color[i] * alpha[i] + (1 - alpha[i]);
                    } else {
                        constexpr std::int64_t top = std::numeric_limits<Sample>::max();
                        const std::int64_t a = alpha[i];
                        color[i] = Sample((color[i] * a + top * (top - a) + top / 2) / top);
                    }
                }
            });
        }
    };
    if (settings_->bitDepth == 8)
        matte(std::uint8_t{});
    else if (settings_->bitDepth == 16)
        matte(std::uint16_t{});
    else
        matte(float{});
    return planes;
}

} // namespace bic
