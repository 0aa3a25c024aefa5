#pragma once
// The library's own kernels, added to the process's kernel library the first time any is needed.

#include "bic/platform/ci/kernel.hpp"

namespace bic {

/// The process's kernel library, holding the library's kernels.
ci::KernelLibrary& libraryKernels();

} // namespace bic
