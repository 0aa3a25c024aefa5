#include "library_kernels.hpp"

#include "blend_kernels.hpp"
#include "generator_kernels.hpp"
#include "operation_kernels.hpp"

#include <mutex>

namespace bic {

ci::KernelLibrary& libraryKernels() {
    static std::once_flag once;
    ci::KernelLibrary& library = ci::KernelLibrary::shared();
    std::call_once(once, [&] {
        blend::addBlendKernels(library);
        addOperationKernels(library);
        addGeneratorKernels(library);
    });
    return library;
}

} // namespace bic
