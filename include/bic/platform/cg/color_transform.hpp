#pragma once
// Colour matching of many colours at once, between two spaces of the same component count
// class (RGB or grey in, RGB or grey out), on unpremultiplied 32-bit floats.

#include "bic/platform/cg/color_space.hpp"

#include <cstddef>
#include <memory>
#include <optional>

namespace bic::cg {

class ColorTransform {
public:
    /// Nothing when the spaces cannot be matched or either is neither RGB nor grey, except that
    /// `from` may also be CMYK.
    static std::optional<ColorTransform> make(const ColorSpace& from, const ColorSpace& to,
                                              RenderingIntent intent);

    /// `count` colours of `from`'s components (3 or 1 floats each, 0…1; CMYK 4, ink 0…1) into
    /// `to`'s.
    /// Safe to call from several threads at once.
    void apply(const float* in, float* out, std::size_t count) const;

    int inputComponents() const { return inComponents_; }
    int outputComponents() const { return outComponents_; }

private:
    struct Handle;
    ColorTransform(std::shared_ptr<Handle> h, int in, int out)
        : handle_(std::move(h)), inComponents_(in), outComponents_(out) {}
    std::shared_ptr<Handle> handle_;
    int inComponents_, outComponents_;
};

} // namespace bic::cg
