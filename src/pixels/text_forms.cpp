#include "bic/pixels/text_forms.hpp"

#include "bic/platform/core/text.hpp"

#include <charconv>

namespace bic::text_forms {

std::optional<std::uint32_t> parseHex(std::string_view text) {
    // Pasted text comes with spaces of every kind and line breaks around it, before and after
    // the "#".
    text = trimmingWhitespace(text);
    if (!text.empty() && text.front() == '#') text = trimmingWhitespace(text.substr(1));
    if (text.size() != 6) return std::nullopt;
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::string formatFloats(std::initializer_list<float> values, std::size_t count) {
    std::string out;
    char buffer[64]; // six decimals of the largest float: 39 digits before the point
    std::size_t i = 0;
    for (float v : values) {
        if (i++ == count) break;
        // "%f" as the C locale writes it, whatever locale the process is in.
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, static_cast<double>(v),
                                          std::chars_format::fixed, 6);
        out += (out.empty() ? "" : " ") + std::string(buffer, result.ptr);
    }
    return out;
}

std::optional<std::vector<float>> parseFloats(std::string_view text) {
    std::vector<float> out;
    for (;;) {
        const std::size_t space = text.find(' ');
        std::string_view piece = text.substr(0, space);
        // A leading plus sign is a valid float spelling that from_chars does not take.
        if (piece.size() > 1 && piece.front() == '+' && piece[1] != '-') piece.remove_prefix(1);
        float v = 0;
        const auto [end, error] = std::from_chars(piece.data(), piece.data() + piece.size(), v);
        if (piece.empty() || error != std::errc() || end != piece.data() + piece.size())
            return std::nullopt;
        out.push_back(v);
        if (space == std::string_view::npos) break;
        text.remove_prefix(space + 1);
    }
    return out;
}

} // namespace bic::text_forms
