#pragma once
// Images drawn on demand, and the drawing context that drawing calls without a context of their
// own go to.

#include "bic/platform/cg/geometry.hpp"
#include "bic/platform/draw/context.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace bic::ns {

/// The current drawing context of the calling thread, if any.
class GraphicsContext {
public:
    static cg::Context* current();

    /// Makes `context` current on this thread until the scope ends, then restores the one
    /// before.
    class Scope {
    public:
        explicit Scope(cg::Context& context);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        cg::Context* previous_;
    };
};

/// An image whose pixels a handler draws when they are needed, at one pixel per unit.
class Image {
public:
    /// Draws into the current context over the given rectangle (the whole image); false
    /// reports failure.
    using DrawingHandler = std::function<bool(const cg::Rect&)>;

    /// `flipped` puts the origin at the top left with y growing downwards.
    Image(cg::Size size, bool flipped, DrawingHandler handler)
        : size_(size), flipped_(flipped), handler_(std::move(handler)) {}

    cg::Size size() const { return size_; }

    /// The handler's drawing over transparent black as a TIFF: 8-bit RGBA with associated
    /// alpha, deflate-compressed. Nothing when the size has no whole pixel, the handler
    /// reports failure or the TIFF cannot be written.
    std::optional<std::vector<std::uint8_t>> tiffRepresentation() const;

private:
    cg::Size size_;
    bool flipped_;
    DrawingHandler handler_;
};

} // namespace bic::ns
