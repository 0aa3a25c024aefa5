#pragma once
// Small pieces the pixel algorithms share: argument checks, rectangles passed to processor
// kernels, and the grey form of a one-channel result.

#include "bic/core/image_core_error.hpp"
#include "bic/platform/ci/builtin_filters.hpp"
#include "bic/platform/ci/filter.hpp"
#include "bic/platform/ci/processor_kernel.hpp"
#include "bic/platform/core/fatal.hpp"

#include <string>
#include <vector>

namespace bic::detail {

/// Bad arguments are the caller's parameter error.
inline void require(bool condition) {
    if (!condition) throw ImageCoreError(ImageCoreError::parameterError);
}

/// Neither null, empty nor infinite.
inline bool isUsable(const cg::Rect& r) { return !r.isNull() && !r.isEmpty() && !r.isInfinite(); }

/// A rectangle as a kernel argument: {x, y, width, height}.
inline std::vector<double> rectArgument(const cg::Rect& r) {
    return {r.minX(), r.minY(), r.width(), r.height()};
}

/// The rectangle argument `key`; a missing or malformed one is a deployment fault of `source`.
inline cg::Rect rectFromArguments(const ci::ProcessorArguments& arguments, const char* key,
                                  const char* source) {
    const auto it = arguments.find(key);
    const auto* v = it == arguments.end() ? nullptr : std::get_if<std::vector<double>>(&it->second);
    if (!v || v->size() != 4) fatalError(std::string(source) + ": no " + key + " argument.");
    return {(*v)[0], (*v)[1], (*v)[2], (*v)[3]};
}

/// The object argument `key` when it is a T; nothing otherwise.
template <class T>
T* argumentObject(const ci::ProcessorArguments& arguments, const char* key) {
    const auto it = arguments.find(key);
    const auto* object = it == arguments.end()
                             ? nullptr
                             : std::get_if<std::shared_ptr<ci::ArgumentObject>>(&it->second);
    return object ? dynamic_cast<T*>(object->get()) : nullptr;
}

/// Red copied into green and blue, alpha kept.
inline ci::Image greyFromRed(const ci::Image& image) {
    return ci::colorMatrix(image,
                           {{1, 0, 0, 0}, {1, 0, 0, 0}, {1, 0, 0, 0}, {0, 0, 0, 1}, {0, 0, 0, 0}});
}

} // namespace bic::detail
