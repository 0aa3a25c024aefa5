#pragma once
// The three file forms of the value tree: XML and binary property lists, and JSON.
//
// Property lists cannot hold null. JSON has no data or date type: data is written as a
// base64 string and dates as seconds since 2001-01-01, and both read back through the
// decoders of coder.hpp.

#include "bic/platform/coding/coder.hpp"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace bic::coding {

enum class PropertyListFormat { xml, binary };

/// Throws EncodingError for null values.
Data writePropertyList(const Value& root, PropertyListFormat format = PropertyListFormat::binary);
/// Reads either property-list form; malformed input throws DecodingError (data corrupted).
Value readPropertyList(std::span<const std::uint8_t> bytes);

/// Throws EncodingError for non-finite numbers.
std::string writeJSON(const Value& root, bool pretty = false);
/// Malformed text throws DecodingError (data corrupted).
Value readJSON(std::string_view text);

template <class T>
Data encodePropertyList(const T& value, PropertyListFormat format = PropertyListFormat::binary) {
    return writePropertyList(encode(value), format);
}
template <class T>
T decodePropertyList(std::span<const std::uint8_t> bytes) {
    return decode<T>(readPropertyList(bytes));
}
template <class T>
std::string encodeJSON(const T& value, bool pretty = false) {
    return writeJSON(encode(value), pretty);
}
template <class T>
T decodeJSON(std::string_view text) {
    return decode<T>(readJSON(text));
}

/// Standard base64 with padding.
std::string base64Encode(std::span<const std::uint8_t> bytes);
/// Rejects anything that is not canonical padded base64 (white space is ignored).
bool base64Decode(std::string_view text, Data& out);

} // namespace bic::coding
