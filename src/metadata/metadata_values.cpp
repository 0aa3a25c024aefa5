#include "metadata_values.hpp"

#include "bic/platform/core/text.hpp"
#include "bic/platform/ns/formatter.hpp"
#include "bic/resources/localization.hpp"

#include <charconv>

namespace bic::metadata_values {

std::optional<std::string> cleanText(const xmp::Tag* tag) {
    if (!tag || tag->type() != xmp::TagType::string || !tag->text()) return std::nullopt;
    const std::string_view text = trimmingWhitespace(*tag->text());
    if (text.empty()) return std::nullopt;
    return std::string(text);
}

std::vector<std::string> cleanElements(const xmp::Tag& tag) {
    std::vector<std::string> out;
    for (const xmp::Tag& e : tag.elements())
        if (auto text = cleanText(&e)) out.push_back(std::move(*text));
    return out;
}

std::optional<long long> integer(std::string_view text) {
    if (!text.empty() && text.front() == '+') {
        text.remove_prefix(1);
        if (!text.empty() && text.front() == '-') return std::nullopt;
    }
    if (text.empty()) return std::nullopt;
    long long v = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return v;
}

std::optional<double> rational(std::string_view text) {
    const std::size_t slash = text.find('/');
    const auto n = integer(text.substr(0, slash));
    if (!n) return std::nullopt;
    if (slash == std::string_view::npos) return double(*n);
    const auto d = integer(text.substr(slash + 1)); // a second "/" fails here
    if (!d || *d == 0) return std::nullopt;
    return double(*n) / double(*d);
}

std::optional<double> rational(const xmp::Tag* tag) {
    const auto text = cleanText(tag);
    return text ? rational(*text) : std::nullopt;
}

std::string formatted(double value, const NumberFormat& format) {
    ns::NumberFormatter f(ns::NumberFormatter::Style::decimal,
                          format.localized ? resources::preferredLanguage() : "en_US_POSIX");
    f.setMinimumFractionDigits(format.minimumFractionDigits);
    f.setMaximumFractionDigits(format.maximumFractionDigits);
    f.setUsesGroupingSeparator(format.grouping);
    f.setPositivePrefix(format.positivePrefix);
    f.setNegativePrefix(format.negativePrefix);
    f.setPositiveSuffix(format.suffix);
    f.setNegativeSuffix(format.suffix);
    return f.stringForObjectValue(value).value_or("-");
}

std::string localizedFormat(std::string_view key, const std::vector<std::string>& arguments) {
    const std::string format = resources::localizedString("Localizable", key);
    std::string out;
    std::size_t next = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%' && i + 1 < format.size()) {
            if (format[i + 1] == '@') {
                if (next < arguments.size()) out += arguments[next];
                ++next;
                ++i;
                continue;
            }
            // Positional "%n$@", which translations use to reorder.
            const std::size_t dollar = format.find("$@", i);
            if (dollar != std::string::npos && dollar > i + 1) {
                const auto n = integer(std::string_view(format).substr(i + 1, dollar - i - 1));
                if (n && *n >= 1) {
                    if (std::size_t(*n) <= arguments.size()) out += arguments[std::size_t(*n - 1)];
                    i = dollar + 1;
                    continue;
                }
            }
        }
        out += format[i];
    }
    return out;
}

} // namespace bic::metadata_values
