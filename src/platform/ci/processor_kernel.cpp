#include "bic/platform/ci/processor_kernel.hpp"

#include "bic/platform/ci/context.hpp"
#include "bic/platform/io/pixel_io.hpp"
#include "nodes.hpp"

#include <cstring>
#include <functional>
#include <map>
#include <mutex>

namespace bic::ci {

using namespace detail;

namespace {

std::uint32_t surfaceCode(Format f) {
    switch (f) {
    case Format::BGRA8:
        return io::surface_format::bgra8;
    case Format::Rf:
        return io::surface_format::grayf;
    default:
        return io::surface_format::rgbaf;
    }
}

Format checkedFormat(Format f) { return f == Format::BGRA8 || f == Format::Rf ? f : Format::RGBAf; }

std::shared_ptr<io::Surface> makeSurface(const IRect& r, Format f) {
    const int element = bytesPerPixel(f);
    auto surface = io::Surface::make(
        {r.w, r.h, surfaceCode(f), element, io::Surface::alignBytesPerRow(r.w * element)});
    if (!surface) throw RenderError("A processor kernel's region is too large for a surface.");
    return surface;
}

cg::Rect rectOf(const IRect& r) { return {double(r.x), double(r.y), double(r.w), double(r.h)}; }

struct ProcessorNode final : Node {
    ProcessorNode(std::shared_ptr<const ProcessorKernel> k, const cg::Rect& extent,
                  std::vector<NodePtr> in, ProcessorArguments a)
        : Node(extent), kernel(std::move(k)), inputs(std::move(in)), arguments(std::move(a)) {}

    std::shared_ptr<const ProcessorKernel> kernel;
    std::vector<NodePtr> inputs;
    ProcessorArguments arguments;

    // The last surface rendered for each input. Tiles that ask for the same region of an input
    // (a kernel that reads its whole extent) get the same surface back, as a caching engine
    // would hand it out: its contents are rendered once, and a kernel that works on its input
    // in place finds its own result (its surface ID and seed tell it so).
    struct Held {
        IRect region;
        std::shared_ptr<io::Surface> surface;
    };
    mutable std::mutex heldMutex;
    mutable std::map<std::size_t, Held> heldSurfaces;

    // Renders `node` over `region` into the part of `surface` that holds it.
    static void renderInto(const Node& node, const IRect& region, const IRect& held,
                           io::Surface& surface, Format format, Scratch& s) {
        const Scratch::Lease pixels = renderToScratch(node, region, s);
        const std::int64_t top = held.maxY() - region.maxY();
        for (std::int64_t i = 0; i < region.h; ++i)
            io::writeRow(format, pixels.data() + i * region.w * 4,
                         surface.baseAddress() + (top + i) * surface.bytesPerRow() +
                             (region.x - held.x) * bytesPerPixel(format),
                         region.w);
    }

    std::shared_ptr<io::Surface> heldSurface(std::size_t input, const IRect& region) const {
        std::lock_guard lock(heldMutex);
        const auto it = heldSurfaces.find(input);
        return it != heldSurfaces.end() && it->second.region == region ? it->second.surface
                                                                       : nullptr;
    }
    void keep(std::size_t input, const IRect& region, std::shared_ptr<io::Surface> surface) const {
        std::lock_guard lock(heldMutex);
        heldSurfaces.insert_or_assign(input, Held{region, std::move(surface)});
    }

    void renderInside(const IRect& r, const Tile& out, Scratch& s) const override {
        const cg::Rect outputRect = rectOf(r);
        std::vector<ProcessorInput> prepared;
        for (std::size_t i = 0; i < inputs.size(); ++i) {
            const int index = int(i);
            const Format format = checkedFormat(kernel->formatForInput(index));
            const cg::Rect wanted = kernel->roi(index, arguments, outputRect);
            const IRect held = pixelBounds(wanted).intersection(pixelBounds(cg::Rect::infinite()));
            if (held.isEmpty()) {
                prepared.push_back({nullptr, cg::Rect::null(), format, 0});
                continue;
            }
            std::shared_ptr<io::Surface> surface = heldSurface(i, held);
            if (!surface) {
                surface = makeSurface(held, format);
                const io::SurfaceLock writing(*surface, io::LockOptions::readWrite);
                const auto pieces = kernel->roiTileArray(index, arguments, outputRect);
                if (pieces && !pieces->empty()) {
                    for (const cg::Rect& piece : *pieces) {
                        const IRect part = pixelBounds(piece).intersection(held);
                        if (!part.isEmpty())
                            renderInto(*inputs[i], part, held, *surface, format, s);
                    }
                } else {
                    renderInto(*inputs[i], held, held, *surface, format, s);
                }
                keep(i, held, surface);
            }
            const std::uint64_t digest =
                std::hash<const void*>()(inputs[i].get()) * 31 +
                std::hash<std::int64_t>()(held.x * 73856093 ^ held.y * 19349663 ^
                                          held.w * 83492791 ^ held.h);
            prepared.push_back({std::move(surface), rectOf(held), format, digest});
        }
        const Format outFormat = checkedFormat(kernel->outputFormat());
        const ProcessorOutput output{makeSurface(r, outFormat), outputRect, outFormat};
        kernel->process(prepared, arguments, output);
        {
            const io::SurfaceLock reading(*output.surface, io::LockOptions::readOnly);
            for (std::int64_t i = 0; i < r.h; ++i)
                io::readRow(outFormat,
                            output.surface->baseAddress() + i * output.surface->bytesPerRow(),
                            out.row(i), r.w);
        }
        if (kernel->outputIsOpaque())
            for (std::int64_t i = 0; i < r.h; ++i)
                for (std::int64_t j = 0; j < r.w; ++j)
                    out.row(i)[4 * j + 3] = 1.0f;
    }
};

} // namespace

Format ProcessorKernel::formatForInput(int) const { return Format::RGBAf; }
Format ProcessorKernel::outputFormat() const { return Format::RGBAf; }

cg::Rect ProcessorKernel::roi(int, const ProcessorArguments&, const cg::Rect& outputRect) const {
    return outputRect;
}

std::optional<std::vector<cg::Rect>> ProcessorKernel::roiTileArray(int, const ProcessorArguments&,
                                                                   const cg::Rect&) const {
    return std::nullopt;
}

std::optional<Image> ProcessorKernel::apply(std::shared_ptr<const ProcessorKernel> kernel,
                                            const cg::Rect& extent, std::vector<Image> inputs,
                                            ProcessorArguments arguments) {
    if (!kernel || extent.isEmpty() || extent.isInfinite()) return std::nullopt;
    std::vector<NodePtr> nodes;
    for (const auto& image : inputs)
        nodes.push_back(image.node());
    return Image(std::make_shared<ProcessorNode>(std::move(kernel), extent, std::move(nodes),
                                                 std::move(arguments)));
}

} // namespace bic::ci
