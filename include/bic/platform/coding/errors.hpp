#pragma once
// Errors of the coding layer.

#include <stdexcept>
#include <string>
#include <vector>

namespace bic::coding {

using CodingPath = std::vector<std::string>;

/// Why a value tree could not be read as the requested type.
class DecodingError : public std::runtime_error {
public:
    enum class Kind { typeMismatch, valueNotFound, keyNotFound, dataCorrupted };

    DecodingError(Kind kind, CodingPath path, std::string debugDescription);

    Kind kind() const { return kind_; }
    const CodingPath& codingPath() const { return path_; }
    const std::string& debugDescription() const { return description_; }

private:
    Kind kind_;
    CodingPath path_;
    std::string description_;
};

/// A value could not be written in the requested form (NaN in JSON, null in a property list).
class EncodingError : public std::runtime_error {
public:
    EncodingError(CodingPath path, std::string debugDescription);
    const CodingPath& codingPath() const { return path_; }

private:
    CodingPath path_;
};

/// The platform's "file read corrupt" error: Cocoa error domain, code 259. Thrown by decoders
/// whose input parses but does not describe a valid value.
class FileReadCorruptError : public std::runtime_error {
public:
    static constexpr const char* domain = "NSCocoaErrorDomain";
    static constexpr int code = 259;
    FileReadCorruptError();
};

} // namespace bic::coding
