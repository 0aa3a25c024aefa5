#pragma once
// Processor kernels: CPU code that works on whole regions of pixels in surfaces.
//
// The engine renders each input over the region of interest the kernel asks for into a surface
// of the kernel's input format (RGBA floats, BGRA bytes or one red float), hands the kernel
// those surfaces and an output surface for the region being rendered, and reads the output
// back. It may call the kernel once per tile, so a kernel that needs all of its input at once
// declares the whole extent as its region of interest.

#include "bic/platform/ci/filter.hpp"
#include "bic/platform/io/surface.hpp"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace bic::ci {

using ProcessorArguments = std::map<std::string, FilterValue, std::less<>>;

struct ProcessorInput {
    std::shared_ptr<io::Surface> surface; ///< top row first, region.width × region.height pixels
    cg::Rect region;                      ///< what the surface holds, in image coordinates
    Format format;
    /// Identifies the input recipe and region: equal digests mean equal pixels.
    std::uint64_t digest;
};

struct ProcessorOutput {
    std::shared_ptr<io::Surface> surface;
    cg::Rect region;
    Format format;
};

class ProcessorKernel {
public:
    virtual ~ProcessorKernel() = default;

    /// One of Format::RGBAf, Format::BGRA8 or Format::Rf.
    virtual Format formatForInput(int index) const;
    virtual Format outputFormat() const;
    virtual bool outputIsOpaque() const { return false; }
    virtual bool synchronizeInputs() const { return true; }
    /// The part of input `index` needed for `outputRect`; the output rectangle by default.
    virtual cg::Rect roi(int index, const ProcessorArguments& arguments,
                         const cg::Rect& outputRect) const;
    /// Optionally, the pieces in which to render that region.
    virtual std::optional<std::vector<cg::Rect>>
    roiTileArray(int index, const ProcessorArguments& arguments, const cg::Rect& outputRect) const;
    /// Computes the output region. Throwing fails the render that asked for it.
    virtual void process(const std::vector<ProcessorInput>& inputs,
                         const ProcessorArguments& arguments,
                         const ProcessorOutput& output) const = 0;

    /// The kernel's image over `extent`; nothing for an empty or infinite extent.
    static std::optional<Image> apply(std::shared_ptr<const ProcessorKernel> kernel,
                                      const cg::Rect& extent, std::vector<Image> inputs,
                                      ProcessorArguments arguments);
};

} // namespace bic::ci
