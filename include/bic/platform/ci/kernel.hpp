#pragma once
// Kernels: C++ functions the engine runs over image rows, found by name in one library.
//
// A colour kernel sees, for each pixel, one premultiplied sample of each image argument at the
// same position plus the other arguments, and returns a colour. A blend kernel is a colour
// kernel of a foreground and a background over the union of their extents. A general kernel
// may read its image arguments anywhere inside a region of interest it declares. Kernels are
// called once per row of a tile with plain arrays: no call per pixel.

#include "bic/platform/ci/image.hpp"
#include "bic/platform/core/pixel_math.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace bic::ci {

/// An argument that is not an image.
using KernelValue = std::variant<double, std::vector<double>, Color, std::vector<std::uint8_t>>;
/// Any kernel argument.
using KernelArgument =
    std::variant<Image, double, std::vector<double>, Color, std::vector<std::uint8_t>>;

/// What a colour or blend kernel gets for one row.
struct KernelRow {
    std::int64_t x = 0, y = 0; ///< image coordinates of the row's first pixel
    std::int64_t count = 0;
    const float* const* samples = nullptr; ///< one RGBA row per image argument
    float* out = nullptr;                  ///< count RGBA pixels to write
    const std::vector<KernelValue>* values = nullptr;
    /// Set when the engine evaluates a kernel without images under a transform: the map from a
    /// pixel's centre to the point in the kernel's own space that it shows.
    const cg::AffineTransform* place = nullptr;

    /// Where pixel i of the row stands in the kernel's space: its centre (x + i + ½, y + ½),
    /// or that centre placed. Kernels that compute from positions use this.
    cg::Point position(std::int64_t i) const {
        const cg::Point centre{double(x + i) + 0.5, double(y) + 0.5};
        return place ? place->apply(centre) : centre;
    }

    double number(std::size_t i) const { return std::get<double>((*values)[i]); }
    const std::vector<double>& vector(std::size_t i) const {
        return std::get<std::vector<double>>((*values)[i]);
    }
    const Color& color(std::size_t i) const { return std::get<Color>((*values)[i]); }
    const std::vector<std::uint8_t>& data(std::size_t i) const {
        return std::get<std::vector<std::uint8_t>>((*values)[i]);
    }
};

/// Reads an image argument of a general kernel at any pixel of its region of interest.
struct Sampler {
    const float* data = nullptr;
    std::int64_t x = 0, y = 0, w = 0, h = 0; ///< the pixels held; row 0 is y + h − 1
    std::ptrdiff_t stride = 0;

    /// The premultiplied RGBA at pixel (px, py); transparent outside the pixels held.
    const float* at(std::int64_t px, std::int64_t py) const {
        static constexpr float transparent[4] = {0, 0, 0, 0};
        if (px < x || py < y || px >= x + w || py >= y + h) return transparent;
        return data + flippedRow(py, y + h) * stride + (px - x) * 4;
    }
};

struct GeneralKernelRow {
    std::int64_t x = 0, y = 0, count = 0;
    const Sampler* samplers = nullptr; ///< one per image argument
    float* out = nullptr;
    const std::vector<KernelValue>* values = nullptr;
};

using RowFunction = void (*)(const KernelRow&);
using GeneralRowFunction = void (*)(const GeneralKernelRow&);
/// The rectangle of input `index` a kernel needs to produce `destination`.
using RegionOfInterest = std::function<cg::Rect(int index, const cg::Rect& destination)>;

class ColorKernel {
public:
    ColorKernel(std::string name, RowFunction function)
        : name_(std::move(name)), function_(function) {}
    const std::string& name() const { return name_; }
    /// The kernel over `extent` (images are sampled where the output pixel is); nothing for an
    /// empty extent.
    std::optional<Image> apply(const cg::Rect& extent, std::vector<KernelArgument> arguments) const;

private:
    std::string name_;
    RowFunction function_;
};

class BlendKernel {
public:
    BlendKernel(std::string name, RowFunction function)
        : name_(std::move(name)), function_(function) {}
    const std::string& name() const { return name_; }
    /// Samples 0 and 1 of the row are the foreground and the background; the extent is the
    /// union of theirs.
    Image apply(const Image& foreground, const Image& background) const;

private:
    std::string name_;
    RowFunction function_;
};

class GeneralKernel {
public:
    GeneralKernel(std::string name, GeneralRowFunction function)
        : name_(std::move(name)), function_(function) {}
    const std::string& name() const { return name_; }
    std::optional<Image> apply(const cg::Rect& extent, const RegionOfInterest& roi,
                               std::vector<KernelArgument> arguments) const;

private:
    std::string name_;
    GeneralRowFunction function_;
};

} // namespace bic::ci
