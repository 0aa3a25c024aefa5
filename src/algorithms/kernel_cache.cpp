#include "bic/algorithms/kernel_cache.hpp"

#include "bic/core/image_core_error.hpp"

#include <cstring>
#include <mutex>
#include <utility>

namespace bic {

void processInPlaceThenCopy(const std::vector<ci::ProcessorInput>& inputs,
                            const ci::ProcessorOutput& output,
                            ImageProcessingKernelCache<bool>& cache,
                            const std::function<void(io::Surface&)>& compute) {
    if (inputs.empty() || !inputs[0].surface) throw ImageCoreError(ImageCoreError::parameterError);
    const ci::ProcessorInput& input = inputs[0];
    io::Surface& surface = *input.surface;
    {
        // Tiles of one application arrive together: the look-up, the work and the record of
        // its result happen as one step, so the first computes and the others find its result.
        std::lock_guard serial(cache.workMutex());
        // A look under a read lock: releasing a write lock would move the seed on.
        std::uint32_t seed = io::SurfaceLock(std::as_const(surface)).seed();
        if (cache.value({input.digest, surface.id(), seed}) != true) {
            io::SurfaceLock writing(surface, io::LockOptions::readWrite);
            compute(surface);
            seed = writing.release();
            cache.setValue({input.digest, surface.id(), seed}, true);
        }
    }
    // The input drawn into the output at its own place: rows of the overlap, top first.
    io::Surface& out = *output.surface;
    if (out.bytesPerElement() != surface.bytesPerElement())
        throw ImageCoreError(ImageCoreError::memoryError);
    const auto element = surface.bytesPerElement();
    const auto dx = std::int64_t(input.region.minX() - output.region.minX());
    const auto dyTop =
        std::int64_t(output.region.maxY() - input.region.maxY()); // input row 0 in output rows
    const io::SurfaceLock reading(surface, io::LockOptions::readOnly);
    const io::SurfaceLock writing(out, io::LockOptions::readWrite);
    for (std::int64_t y = 0; y < out.height(); ++y) {
        const std::int64_t sy = y - dyTop;
        if (sy < 0 || sy >= surface.height()) continue;
        const std::int64_t x0 = std::max<std::int64_t>(0, dx),
                           x1 = std::min(out.width(), dx + surface.width());
        if (x1 <= x0) continue;
        std::memcpy(out.baseAddress() + y * out.bytesPerRow() + x0 * element,
                    surface.baseAddress() + sy * surface.bytesPerRow() + (x0 - dx) * element,
                    std::size_t((x1 - x0) * element));
    }
}

} // namespace bic
