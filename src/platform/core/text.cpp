#include "bic/platform/core/text.hpp"

#include <unicode/uchar.h>

namespace bic {

bool isUnicodeWhitespace(char32_t c) { return c <= 0x10FFFF && u_isUWhiteSpace(UChar32(c)); }

std::optional<char32_t> nextCodePoint(std::string_view text, std::size_t& at) {
    if (at >= text.size()) return std::nullopt;
    const auto lead = static_cast<unsigned char>(text[at]);
    if (lead < 0x80) return char32_t(text[at++]);
    std::size_t length;
    char32_t c, least;
    if ((lead & 0xE0) == 0xC0) {
        length = 2, c = lead & 0x1F, least = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, c = lead & 0x0F, least = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, c = lead & 0x07, least = 0x10000;
    } else {
        return std::nullopt;
    }
    if (text.size() - at < length) return std::nullopt;
    for (std::size_t k = 1; k < length; ++k) {
        const auto next = static_cast<unsigned char>(text[at + k]);
        if ((next & 0xC0) != 0x80) return std::nullopt;
        c = c << 6 | (next & 0x3F);
    }
    if (c < least || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return std::nullopt;
    at += length;
    return c;
}

bool isWellFormedUTF8(std::string_view text) {
    for (std::size_t at = 0; at < text.size();)
        if (!nextCodePoint(text, at)) return false;
    return true;
}

std::string_view trimmingWhitespace(std::string_view text) {
    std::size_t start = 0;
    for (std::size_t at = start; const auto c = nextCodePoint(text, at); start = at)
        if (!isUnicodeWhitespace(*c)) break;
    std::size_t end = text.size();
    while (end > start) {
        // The last sequence starts at most three continuation bytes before the end.
        std::size_t begin = end - 1;
        while (begin > start && end - begin < 4 &&
               (static_cast<unsigned char>(text[begin]) & 0xC0) == 0x80)
            --begin;
        std::size_t at = begin;
        const auto c = nextCodePoint(text, at);
        if (!c || at != end || !isUnicodeWhitespace(*c)) break;
        end = begin;
    }
    return text.substr(start, end - start);
}

} // namespace bic
