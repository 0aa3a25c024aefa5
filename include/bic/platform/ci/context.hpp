#pragma once
// Rendering lazy images into memory or surfaces.
//
// A render takes a rectangle of an image and writes it into a destination at a point of the
// destination (destination coordinates have y growing upwards from the bottom row). Values are
// written without colour conversion. The work is split into tiles rendered in parallel; the
// result does not depend on the tile size or the number of threads.

#include "bic/platform/ci/image.hpp"

#include <cstdint>
#include <memory>
#include <stdexcept>

namespace bic::io {
class Surface;
}

namespace bic::ci {

/// A render that cannot be done: an empty or infinite source rectangle, a destination too
/// small for the rectangle. Nothing has been written when it is thrown.
class RenderError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class RenderDestination {
public:
    /// `width` × `height` pixels of `format` at `bytes`, rows `rowBytes` apart, top row first.
    RenderDestination(void* bytes, std::int64_t width, std::int64_t height, std::int64_t rowBytes,
                      Format format);
    /// The surface's memory in its own format, written under a read-write lock.
    explicit RenderDestination(std::shared_ptr<io::Surface> surface);

    std::int64_t width() const { return width_; }
    std::int64_t height() const { return height_; }
    Format format() const { return format_; }

private:
    friend class Context;
    std::uint8_t* bytes_;
    std::int64_t width_, height_, rowBytes_;
    Format format_;
    std::shared_ptr<io::Surface> surface_;
};

/// A started render. Renders run to completion before the task is handed out, so waiting
/// returns at once; the type keeps callers independent of that choice.
class RenderTask {
public:
    void waitUntilCompleted() const {}
};

class Context {
public:
    struct Options {
        std::int64_t tileWidth = 512;
        std::int64_t tileHeight = 64;
        /// 0 lets the scheduler use every core; 1 renders on the calling thread.
        int threads = 0;
    };

    Context() = default;
    explicit Context(Options options) : options_(options) {}

    /// The process-wide context, made once. The environment variable BIC_RENDER_THREADS, when
    /// set, caps its threads (1 renders on the calling thread).
    static std::shared_ptr<Context> shared();

    /// Renders the pixels of `fromRect` (its integral rectangle) so that its lower-left corner
    /// lands on `atPoint` of the destination. Throws RenderError before writing anything when
    /// the rectangle is empty or infinite or does not fit the destination there.
    RenderTask startTaskToRender(const Image& image, const cg::Rect& fromRect,
                                 const RenderDestination& destination,
                                 cg::Point atPoint = {}) const;

    /// Renders `bounds` of the image into bytes of `format` (top row first).
    void render(const Image& image, void* bytes, std::int64_t rowBytes, const cg::Rect& bounds,
                Format format) const;

    const Options& options() const { return options_; }

private:
    Options options_;
};

} // namespace bic::ci
