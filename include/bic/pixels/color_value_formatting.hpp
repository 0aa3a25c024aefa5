#pragma once
// How one colour component (0…1) is shown to and typed by a user: as a percentage, an 8-bit
// level 0…255 or a 16-bit level 0…65535.

#include "bic/platform/ns/formatter.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

namespace bic {

class ColorValueFormattingType {
public:
    enum Case : int { percent = 0, bitLevel8 = 1, bitLevel16 = 2 };

    constexpr ColorValueFormattingType(Case c) : case_(c) {}
    /// 0, 1 or 2; nothing otherwise.
    static std::optional<ColorValueFormattingType> fromRawValue(int rawValue);
    /// "Percent", "BitLevel8" or "BitLevel16" exactly; nothing otherwise.
    static std::optional<ColorValueFormattingType> fromStringValue(std::string_view stringValue);

    int rawValue() const { return case_; }
    std::string_view stringValue() const;
    /// A new formatter on every call: a percent number formatter, or a level formatter.
    std::unique_ptr<ns::Formatter> formatter() const;

    constexpr operator Case() const { return case_; }

private:
    Case case_;
};

/// Shows a component as an integer level 0…M and reads such a level back as level / M.
class ColorValueLevelFormatter : public ns::Formatter {
public:
    std::uint32_t scale() const { return scale_; }

    /// A number f shows as f × M truncated toward zero; below 0 shows 0 and above 1 shows M.
    /// NaN and non-numbers show nothing.
    std::optional<std::string> stringForObjectValue(const Object& object) const override;
    /// Empty text gives 0. Otherwise a decimal integer in 0…M (surrounding white space allowed)
    /// gives level / M; anything else fails with "Invalid Value.".
    bool getObjectValue(Object& object, std::string_view string,
                        std::string& errorDescription) const override;
    /// Empty text, or decimal digits forming an integer in 0…M.
    bool isPartialStringValid(std::string_view partial,
                              std::string& errorDescription) const override;

protected:
    explicit ColorValueLevelFormatter(std::uint32_t scale) : scale_(scale) {}

private:
    std::uint32_t scale_;
};

class ColorValueFormatter8Bit final : public ColorValueLevelFormatter {
public:
    ColorValueFormatter8Bit() : ColorValueLevelFormatter(255) {}
};

class ColorValueFormatter16Bit final : public ColorValueLevelFormatter {
public:
    ColorValueFormatter16Bit() : ColorValueLevelFormatter(65535) {}
};

} // namespace bic
