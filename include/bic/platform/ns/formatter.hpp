#pragma once
// Formatters: turn values into text for display and text typed by a user back into values.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace bic::ns {

class Formatter {
public:
    /// An object a text field shows: nothing, a number, or text.
    using Object = std::variant<std::monostate, double, std::int64_t, std::string>;

    virtual ~Formatter() = default;

    /// The text for `object`; nothing when the formatter cannot show it.
    virtual std::optional<std::string> stringForObjectValue(const Object& object) const = 0;
    /// Reads `string` into `object`. On failure returns false and sets `errorDescription`.
    virtual bool getObjectValue(Object& object, std::string_view string,
                                std::string& errorDescription) const = 0;
    /// Whether `partial`, the text while the user types, may stand. The default accepts all.
    virtual bool isPartialStringValid(std::string_view partial,
                                      std::string& errorDescription) const;

    /// The number an object holds, if it is one.
    static std::optional<double> numberValue(const Object& object);
};

/// Locale-aware number formatting through ICU.
class NumberFormatter final : public Formatter {
public:
    enum class Style { decimal = 1, currency = 2, percent = 3 };

    explicit NumberFormatter(Style style = Style::decimal, std::string locale = "en_US");
    Style style() const { return style_; }
    const std::string& locale() const { return locale_; }

    // Settings left unset keep the locale's pattern.
    void setMinimumFractionDigits(int digits) { minimumFractionDigits_ = digits; }
    void setMaximumFractionDigits(int digits) { maximumFractionDigits_ = digits; }
    void setUsesGroupingSeparator(bool uses) { usesGroupingSeparator_ = uses; }
    void setPositivePrefix(std::string text) { positivePrefix_ = std::move(text); }
    void setNegativePrefix(std::string text) { negativePrefix_ = std::move(text); }
    void setPositiveSuffix(std::string text) { positiveSuffix_ = std::move(text); }
    void setNegativeSuffix(std::string text) { negativeSuffix_ = std::move(text); }

    std::optional<std::string> stringForObjectValue(const Object& object) const override;
    bool getObjectValue(Object& object, std::string_view string,
                        std::string& errorDescription) const override;

private:
    // The ICU formatter with the settings applied, owned by the caller; null when ICU refuses.
    std::unique_ptr<void, void (*)(void*)> format() const;

    Style style_;
    std::string locale_;
    std::optional<int> minimumFractionDigits_, maximumFractionDigits_;
    std::optional<bool> usesGroupingSeparator_;
    std::optional<std::string> positivePrefix_, negativePrefix_, positiveSuffix_, negativeSuffix_;
};

} // namespace bic::ns
