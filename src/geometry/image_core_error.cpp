#include "bic/geometry/image_core_error.hpp"

namespace bic {

const char* ImageCoreError::what() const noexcept {
    switch (code_) {
    case unknownError:
        return "unknownError";
    case parameterError:
        return "parameterError";
    case internalInconsistency:
        return "internalInconsistency";
    case memoryError:
        return "memoryError";
    case colorConversionError:
        return "colorConversionError";
    case fileReadUnsupportedColorModelError:
        return "fileReadUnsupportedColorModelError";
    case fileReadUnsupportedBitDepthError:
        return "fileReadUnsupportedBitDepthError";
    case fileReadUnpremultipliedImageDataUnsupported:
        return "fileReadUnpremultipliedImageDataUnsupported";
    case fileReadCorruptedDataError:
        return "fileReadCorruptedDataError";
    }
    return "unknownError";
}

} // namespace bic
