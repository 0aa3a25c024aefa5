#pragma once
// The library's error: one enumeration whose cases every throwing operation reports.

#include <exception>
#include <string_view>

namespace bic {

class ImageCoreError : public std::exception {
public:
    /// The cases; the number is the code the error carries to platform error objects.
    enum Code : int {
        unknownError = 0,
        parameterError = 1,
        internalInconsistency = 2,
        memoryError = 3,
        colorConversionError = 4,
        fileReadUnsupportedColorModelError = 5,
        fileReadUnsupportedBitDepthError = 6,
        fileReadUnpremultipliedImageDataUnsupported = 7,
        fileReadCorruptedDataError = 8,
    };

    static constexpr std::string_view domain = "BrellinImageCore.ImageCoreError";

    ImageCoreError(Code code) : code_(code) {}
    Code code() const { return code_; }
    /// The case name ("parameterError", …).
    const char* what() const noexcept override;

    friend bool operator==(const ImageCoreError& a, const ImageCoreError& b) {
        return a.code_ == b.code_;
    }

private:
    Code code_;
};

} // namespace bic
