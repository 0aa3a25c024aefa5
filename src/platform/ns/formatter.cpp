#include "bic/platform/ns/formatter.hpp"

#include <memory>
#include <unicode/unum.h>
#include <unicode/ustring.h>
#include <vector>

namespace bic::ns {

bool Formatter::isPartialStringValid(std::string_view, std::string&) const { return true; }

std::optional<double> Formatter::numberValue(const Object& object) {
    if (const double* d = std::get_if<double>(&object)) return *d;
    if (const std::int64_t* i = std::get_if<std::int64_t>(&object)) return static_cast<double>(*i);
    return std::nullopt;
}

namespace {

struct NumberFormatClose {
    void operator()(UNumberFormat* f) const { unum_close(f); }
};
using NumberFormatPtr = std::unique_ptr<UNumberFormat, NumberFormatClose>;

NumberFormatPtr open(NumberFormatter::Style style, const std::string& locale) {
    UErrorCode status = U_ZERO_ERROR;
    const UNumberFormatStyle s = style == NumberFormatter::Style::percent    ? UNUM_PERCENT
                                 : style == NumberFormatter::Style::currency ? UNUM_CURRENCY
                                                                             : UNUM_DECIMAL;
    NumberFormatPtr f(unum_open(s, nullptr, 0, locale.c_str(), nullptr, &status));
    if (U_FAILURE(status)) return nullptr;
    return f;
}

std::optional<std::string> toUTF8(const UChar* text, int32_t length) {
    UErrorCode status = U_ZERO_ERROR;
    int32_t needed = 0;
    u_strToUTF8(nullptr, 0, &needed, text, length, &status);
    if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) return std::nullopt;
    std::string out(static_cast<std::size_t>(needed), '\0');
    status = U_ZERO_ERROR;
    u_strToUTF8(out.data(), needed, nullptr, text, length, &status);
    if (U_FAILURE(status)) return std::nullopt;
    return out;
}

std::optional<std::vector<UChar>> toUTF16(std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    int32_t needed = 0;
    u_strFromUTF8(nullptr, 0, &needed, text.data(), static_cast<int32_t>(text.size()), &status);
    if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) return std::nullopt;
    std::vector<UChar> out(static_cast<std::size_t>(needed) + 1);
    status = U_ZERO_ERROR;
    u_strFromUTF8(out.data(), needed + 1, nullptr, text.data(), static_cast<int32_t>(text.size()),
                  &status);
    if (U_FAILURE(status)) return std::nullopt;
    out.resize(static_cast<std::size_t>(needed));
    return out;
}

} // namespace

NumberFormatter::NumberFormatter(Style style, std::string locale)
    : style_(style), locale_(std::move(locale)) {}

std::unique_ptr<void, void (*)(void*)> NumberFormatter::format() const {
    auto close = [](void* f) { unum_close(static_cast<UNumberFormat*>(f)); };
    NumberFormatPtr f = open(style_, locale_);
    if (!f) return {nullptr, close};
    if (minimumFractionDigits_)
        unum_setAttribute(f.get(), UNUM_MIN_FRACTION_DIGITS, *minimumFractionDigits_);
    if (maximumFractionDigits_)
        unum_setAttribute(f.get(), UNUM_MAX_FRACTION_DIGITS, *maximumFractionDigits_);
    if (usesGroupingSeparator_)
        unum_setAttribute(f.get(), UNUM_GROUPING_USED, *usesGroupingSeparator_);
    const std::pair<const std::optional<std::string>*, UNumberFormatTextAttribute> texts[] = {
        {&positivePrefix_, UNUM_POSITIVE_PREFIX},
        {&negativePrefix_, UNUM_NEGATIVE_PREFIX},
        {&positiveSuffix_, UNUM_POSITIVE_SUFFIX},
        {&negativeSuffix_, UNUM_NEGATIVE_SUFFIX}};
    for (const auto& [text, attribute] : texts) {
        if (!*text) continue;
        const auto utf16 = toUTF16(**text);
        if (!utf16) return {nullptr, close};
        UErrorCode status = U_ZERO_ERROR;
        unum_setTextAttribute(f.get(), attribute, utf16->data(), int32_t(utf16->size()), &status);
        if (U_FAILURE(status)) return {nullptr, close};
    }
    return {f.release(), close};
}

std::optional<std::string> NumberFormatter::stringForObjectValue(const Object& object) const {
    const auto number = numberValue(object);
    if (!number) return std::nullopt;
    const auto f = format();
    if (!f) return std::nullopt;
    UChar buffer[128];
    UErrorCode status = U_ZERO_ERROR;
    const int32_t n = unum_formatDouble(static_cast<const UNumberFormat*>(f.get()), *number, buffer,
                                        128, nullptr, &status);
    if (U_FAILURE(status)) return std::nullopt;
    return toUTF8(buffer, n);
}

bool NumberFormatter::getObjectValue(Object& object, std::string_view string,
                                     std::string& errorDescription) const {
    const auto f = format();
    const auto text = toUTF16(string);
    if (f && text && !text->empty()) {
        UErrorCode status = U_ZERO_ERROR;
        int32_t position = 0;
        const int32_t length = static_cast<int32_t>(text->size());
        const double value = unum_parseDouble(static_cast<const UNumberFormat*>(f.get()),
                                              text->data(), length, &position, &status);
        if (U_SUCCESS(status) && position == length) {
            object = value;
            return true;
        }
    }
    errorDescription = "Invalid Value.";
    return false;
}

} // namespace bic::ns
