#pragma once
// The library's error: one enumeration whose cases every throwing operation reports, with the
// reason in words where the code alone would leave a reader guessing.

#include <exception>
#include <memory>
#include <string>
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

    ImageCoreError(Code code);
    /// An error of `code` that says why; `detail` is for people, not for matching.
    ImageCoreError(Code code, std::string_view detail);

    Code code() const { return code_; }
    /// The case name ("parameterError", …).
    std::string_view codeName() const;
    /// The reason given when thrown; empty when none was.
    std::string_view detail() const;
    /// The case name, then ": " and the detail when there is one.
    const char* what() const noexcept override;

    /// Errors are equal when their codes are: the detail does not take part.
    friend bool operator==(const ImageCoreError& a, const ImageCoreError& b) {
        return a.code_ == b.code_;
    }

private:
    Code code_;
    std::size_t detailOffset_ = 0;               ///< where the detail starts in message_
    std::shared_ptr<const std::string> message_; ///< shared, so copies cannot throw
};

} // namespace bic
