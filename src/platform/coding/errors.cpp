#include "bic/platform/coding/errors.hpp"

namespace bic::coding {

namespace {
std::string describe(const CodingPath& path, const std::string& text) {
    std::string out;
    for (const auto& p : path) {
        if (!out.empty()) out += '.';
        out += p;
    }
    return out.empty() ? text : out + ": " + text;
}
} // namespace

DecodingError::DecodingError(Kind kind, CodingPath path, std::string debugDescription)
    : std::runtime_error(describe(path, debugDescription)), kind_(kind), path_(std::move(path)),
      description_(std::move(debugDescription)) {}

EncodingError::EncodingError(CodingPath path, std::string debugDescription)
    : std::runtime_error(describe(path, debugDescription)), path_(std::move(path)) {}

FileReadCorruptError::FileReadCorruptError()
    : std::runtime_error("The file couldn't be opened because it isn't in the correct format.") {}

} // namespace bic::coding
