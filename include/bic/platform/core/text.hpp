#pragma once
// Unicode text services shared by the readers of outside text (metadata, colour texts).

#include <cstddef>
#include <optional>
#include <string_view>

namespace bic {

/// Whether `c` is white space by Unicode's White_Space property: the spaces of every width
/// (U+0020, U+00A0, U+1680, U+2000…U+200A, U+202F, U+205F, U+3000), tabs and the line and
/// paragraph breaks (U+000A…U+000D, U+0085, U+2028, U+2029).
bool isUnicodeWhitespace(char32_t c);

/// `text` (UTF-8) without the white space and line breaks at either end. Bytes that are not
/// UTF-8 are not white space and stay.
std::string_view trimmingWhitespace(std::string_view text);

/// The code point of the UTF-8 sequence at `at`, moving `at` past it; nothing, with `at` left
/// alone, when the bytes there are not well-formed UTF-8 (stray continuation bytes, overlong
/// forms, surrogates, code points above U+10FFFF, a sequence cut short).
std::optional<char32_t> nextCodePoint(std::string_view text, std::size_t& at);

/// Whether all of `text` is well-formed UTF-8.
bool isWellFormedUTF8(std::string_view text);

} // namespace bic
