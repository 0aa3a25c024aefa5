#pragma once
// The one error the image-file readers and writers throw: what kind of problem it is, and a
// message that says what was found ("a GIF file: not a format we read", "truncated JPEG").

#include <stdexcept>
#include <string>

namespace bic::files {

class ImageFileError : public std::runtime_error {
public:
    enum class Kind {
        /// Empty, or no image format we know by its first bytes.
        notAnImage,
        /// An image format we recognise but do not read (GIF, BMP, HEIF, …).
        unreadableFormat,
        /// The file ends before the image does.
        truncated,
        /// Data that contradicts the format or itself.
        corrupt,
        /// A valid file using something we do not read or write (a colour model, a depth, an
        /// animation; a 32-bit buffer as PNG, a profile of another model).
        unsupported,
        /// More pixels than the limits allow, or than the file's bytes can hold.
        tooLarge,
        /// The file could not be opened, read or written.
        io,
    };

    ImageFileError(Kind kind, const std::string& message)
        : std::runtime_error(message), kind_(kind) {}
    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

} // namespace bic::files
