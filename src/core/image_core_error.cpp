#include "bic/core/image_core_error.hpp"

namespace bic {

namespace {

std::string_view nameOf(ImageCoreError::Code code) {
    switch (code) {
    case ImageCoreError::unknownError:
        return "unknownError";
    case ImageCoreError::parameterError:
        return "parameterError";
    case ImageCoreError::internalInconsistency:
        return "internalInconsistency";
    case ImageCoreError::memoryError:
        return "memoryError";
    case ImageCoreError::colorConversionError:
        return "colorConversionError";
    case ImageCoreError::fileReadUnsupportedColorModelError:
        return "fileReadUnsupportedColorModelError";
    case ImageCoreError::fileReadUnsupportedBitDepthError:
        return "fileReadUnsupportedBitDepthError";
    case ImageCoreError::fileReadUnpremultipliedImageDataUnsupported:
        return "fileReadUnpremultipliedImageDataUnsupported";
    case ImageCoreError::fileReadCorruptedDataError:
        return "fileReadCorruptedDataError";
    }
    return "unknownError";
}

} // namespace

ImageCoreError::ImageCoreError(Code code) : code_(code) {}

ImageCoreError::ImageCoreError(Code code, std::string_view detail) : code_(code) {
    if (detail.empty()) return;
    std::string message(nameOf(code));
    message += ": ";
    detailOffset_ = message.size();
    message += detail;
    message_ = std::make_shared<const std::string>(std::move(message));
}

std::string_view ImageCoreError::codeName() const { return nameOf(code_); }

std::string_view ImageCoreError::detail() const {
    return message_ ? std::string_view(*message_).substr(detailOffset_) : std::string_view();
}

const char* ImageCoreError::what() const noexcept {
    // The case names are literals, so both branches point at text that outlives the call.
    return message_ ? message_->c_str() : nameOf(code_).data();
}

} // namespace bic
