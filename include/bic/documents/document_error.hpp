#pragma once
// The one error the layered-document reader and writer throw: what kind of problem it is, and a
// message that names where in the file it was found.

#include <stdexcept>
#include <string>

namespace bic {

class DocumentError : public std::runtime_error {
public:
    enum class Kind {
        /// Not a layered document at all (wrong signature), or an empty file.
        notADocument,
        /// The file ends before a structure it announces.
        truncated,
        /// A length, count, size or coded stream that contradicts the rest of the file.
        corrupt,
        /// A colour mode other than RGB and Grayscale.
        unsupportedColorMode,
        /// A depth other than 8, 16 or 32 bits (1-bit files are Bitmap mode).
        unsupportedBitDepth,
        /// A compression code the format does not define.
        unsupportedCompression,
        /// A file version other than 1 (PSD) or 2 (PSB).
        unsupportedVersion,
        /// A size beyond the format's maxima, or a model that cannot be written.
        tooLarge,
        /// The file could not be opened, read or written.
        io,
    };

    DocumentError(Kind kind, const std::string& message)
        : std::runtime_error(message), kind_(kind) {}
    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

} // namespace bic
