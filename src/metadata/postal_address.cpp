#include "postal_address.hpp"

#include <map>
#include <unicode/locid.h>
#include <unicode/unistr.h>

namespace bic::metadata_values {

namespace {

constexpr const char* kStyledRegions[] = {"US", "CA", "AU", "GB", "DE", "FR", "JP"};

// Case-folded, so that "GERMANY" and "germany" meet.
std::string folded(std::string_view text) {
    std::string out;
    icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), std::int32_t(text.size())))
        .foldCase()
        .toUTF8String(out);
    return out;
}

// Country names of the styled regions, in the languages address books are most often kept in,
// with the everyday names beside the official ones.
const std::map<std::string, std::string>& countryNames() {
    static const std::map<std::string, std::string> names = [] {
        std::map<std::string, std::string> out;
        constexpr const char* languages[] = {"en", "de", "fr", "es", "it", "pt", "nl", "sv",
                                             "da", "nb", "fi", "pl", "cs", "ru", "ja", "zh",
                                             "ko", "tr", "el", "hu", "ro", "ar", "he"};
        for (const char* region : kStyledRegions) {
            const icu::Locale country("", region);
            for (const char* language : languages) {
                icu::UnicodeString name;
                country.getDisplayCountry(icu::Locale(language), name);
                std::string text;
                name.foldCase().toUTF8String(text);
                if (!text.empty() && text != folded(region)) out.emplace(text, region);
            }
            out.emplace(folded(country.getISO3Country()), region);
        }
        constexpr std::pair<const char*, const char*> aliases[] = {
            {"USA", "US"},
            {"U.S.A.", "US"},
            {"U.S.", "US"},
            {"United States of America", "US"},
            {"America", "US"},
            {"UK", "GB"},
            {"U.K.", "GB"},
            {"Great Britain", "GB"},
            {"Britain", "GB"},
            {"England", "GB"},
            {"Scotland", "GB"},
            {"Wales", "GB"},
            {"Northern Ireland", "GB"},
            {"Bundesrepublik Deutschland", "DE"},
            {"République française", "FR"},
            {"日本国", "JP"},
            {"Nippon", "JP"},
            {"Nihon", "JP"},
        };
        for (const auto& [name, region] : aliases)
            out.emplace(folded(name), region);
        return out;
    }();
    return names;
}

std::string joined(const std::optional<std::string>& a, std::string_view separator,
                   const std::optional<std::string>& b) {
    if (!a || a->empty()) return b.value_or("");
    if (!b || b->empty()) return *a;
    return *a + std::string(separator) + *b;
}

// Japanese writes prefecture and city without a space; romanised addresses keep one.
std::string prefectureAndCity(const std::optional<std::string>& state,
                              const std::optional<std::string>& city) {
    const bool japanese = state && city && !state->empty() && !city->empty() &&
                          static_cast<unsigned char>(state->back()) >= 0x80 &&
                          static_cast<unsigned char>(city->front()) >= 0x80;
    return joined(state, japanese ? "" : " ", city);
}

} // namespace

std::optional<std::string> styledRegion(std::string_view country) {
    const std::string key = folded(country);
    for (const char* region : kStyledRegions)
        if (key == folded(region)) return std::string(region);
    if (key == "uk") return "GB";
    const auto& names = countryNames();
    if (const auto it = names.find(key); it != names.end()) return it->second;
    return std::nullopt;
}

std::vector<std::string> mailingLines(const PostalAddress& a) {
    const std::string region = a.country ? styledRegion(*a.country).value_or("") : "";
    std::vector<std::optional<std::string>> lines;
    if (region == "US" || region == "CA" || region == "AU") {
        lines = {a.street, joined(joined(a.city, " ", a.state), " ", a.postalCode), a.country};
    } else if (region == "GB") {
        lines = {a.street, a.city, a.state, a.postalCode, a.country};
    } else if (region == "DE" || region == "FR") {
        lines = {a.street, joined(a.postalCode, " ", a.city), a.country};
    } else if (region == "JP") {
        std::optional<std::string> postal;
        if (a.postalCode && !a.postalCode->empty()) postal = "〒" + *a.postalCode;
        lines = {postal, prefectureAndCity(a.state, a.city), a.street, a.country};
    } else {
        lines = {a.street, joined(a.postalCode, " ", a.city), a.state, a.country};
    }
    std::vector<std::string> out;
    for (auto& line : lines)
        if (line && !line->empty()) out.push_back(std::move(*line));
    return out;
}

} // namespace bic::metadata_values
