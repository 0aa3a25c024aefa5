#pragma once
// How metadata readers take values from tags: clean text, rational numbers and whole numbers,
// and the number formats and translated texts of the display strings.

#include "bic/platform/xmp/metadata.hpp"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bic::metadata_values {

/// A text tag's text trimmed of Unicode white space and line breaks; nothing for other tags, no tag
/// or an empty result.
std::optional<std::string> cleanText(const xmp::Tag* tag);
/// Each element's clean text, in order, blanks dropped.
std::vector<std::string> cleanElements(const xmp::Tag& tag);
/// "N" or "N/D" (decimal integers, optional sign) as N/D; nothing otherwise or for D = 0.
std::optional<double> rational(std::string_view text);
std::optional<double> rational(const xmp::Tag* tag);
/// A decimal integer with an optional sign.
std::optional<long long> integer(std::string_view text);

/// Decimal number format in the user's language.
struct NumberFormat {
    int minimumFractionDigits = 0, maximumFractionDigits = 0;
    std::string positivePrefix = "", negativePrefix = "-", suffix = "";
    bool grouping = true;
    bool localized = true; ///< false: "." as decimal separator whatever the language
};
/// The number in `format`; "-" when it cannot be formatted.
std::string formatted(double value, const NumberFormat& format);

/// A translated format ("%@ of %@") with its "%@" (or "%1$@", "%2$@") replaced in order.
std::string localizedFormat(std::string_view key, const std::vector<std::string>& arguments);

} // namespace bic::metadata_values
