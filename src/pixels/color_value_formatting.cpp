#include "bic/pixels/color_value_formatting.hpp"

#include "bic/platform/core/text.hpp"

#include <charconv>
#include <cmath>
#include <limits>

namespace bic {

namespace {

constexpr const char* kInvalid = "Invalid Value.";

/// A complete decimal 32-bit integer with an optional sign.
std::optional<std::int32_t> scanInt32(std::string_view s) {
    if (!s.empty() && s.front() == '+') s.remove_prefix(1);
    std::int32_t v = 0;
    const auto [end, error] = std::from_chars(s.data(), s.data() + s.size(), v);
    if (s.empty() || error != std::errc() || end != s.data() + s.size()) return std::nullopt;
    return v;
}

} // namespace

std::optional<ColorValueFormattingType> ColorValueFormattingType::fromRawValue(int rawValue) {
    if (rawValue < percent || rawValue > bitLevel16) return std::nullopt;
    return ColorValueFormattingType(static_cast<Case>(rawValue));
}

std::optional<ColorValueFormattingType>
ColorValueFormattingType::fromStringValue(std::string_view s) {
    if (s == "Percent") return ColorValueFormattingType(percent);
    if (s == "BitLevel8") return ColorValueFormattingType(bitLevel8);
    if (s == "BitLevel16") return ColorValueFormattingType(bitLevel16);
    return std::nullopt;
}

std::string_view ColorValueFormattingType::stringValue() const {
    switch (case_) {
    case percent:
        return "Percent";
    case bitLevel8:
        return "BitLevel8";
    case bitLevel16:
        return "BitLevel16";
    }
    return "Percent";
}

std::unique_ptr<ns::Formatter> ColorValueFormattingType::formatter() const {
    switch (case_) {
    case bitLevel8:
        return std::make_unique<ColorValueFormatter8Bit>();
    case bitLevel16:
        return std::make_unique<ColorValueFormatter16Bit>();
    case percent:
        break;
    }
    return std::make_unique<ns::NumberFormatter>(ns::NumberFormatter::Style::percent);
}

std::optional<std::string>
ColorValueLevelFormatter::stringForObjectValue(const Object& object) const {
    const auto number = numberValue(object);
    if (!number || std::isnan(*number)) return std::nullopt;
    const float f = static_cast<float>(*number);
    const float scaled = f < 0 ? 0.0f : std::fmin(f, 1.0f) * static_cast<float>(scale_);
    return std::to_string(static_cast<std::uint32_t>(scaled));
}

bool ColorValueLevelFormatter::getObjectValue(Object& object, std::string_view string,
                                              std::string& errorDescription) const {
    if (string.empty()) {
        object = 0.0;
        return true;
    }
    const auto n = scanInt32(trimmingWhitespace(string));
    if (!n || *n < 0 || static_cast<std::uint32_t>(*n) > scale_) {
        errorDescription = kInvalid;
        return false;
    }
    object = static_cast<double>(static_cast<float>(*n) / static_cast<float>(scale_));
    return true;
}

bool ColorValueLevelFormatter::isPartialStringValid(std::string_view partial,
                                                    std::string& errorDescription) const {
    if (partial.empty()) return true;
    for (char c : partial) {
        if (c < '0' || c > '9') {
            errorDescription = kInvalid;
            return false;
        }
    }
    const auto n = scanInt32(partial);
    if (!n || static_cast<std::uint32_t>(*n) > scale_) {
        errorDescription = kInvalid;
        return false;
    }
    return true;
}

} // namespace bic
