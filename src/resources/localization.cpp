#include "bic/resources/localization.hpp"

#include "catalogues.hpp"

#include <cstdlib>
#include <map>
#include <mutex>

namespace bic::resources {

namespace {

struct State {
    std::mutex mutex;
    std::optional<std::string> language;
    // (language, table) → (English → translation), parsed on first use.
    std::map<std::pair<std::string, std::string>, std::map<std::string, std::string, std::less<>>,
             std::less<>>
        tables;
};

State& state() {
    static State s;
    return s;
}

std::string languageOf(std::string_view locale) {
    const std::size_t end = locale.find_first_of("_.@:");
    return std::string(locale.substr(0, end));
}

// One quoted string of a catalogue line, unescaped; gettext's escapes \" \\ \n \t.
std::string unquote(std::string_view text) {
    const std::size_t open = text.find('"'), close = text.rfind('"');
    std::string out;
    if (open == std::string_view::npos || close <= open) return out;
    for (std::size_t i = open + 1; i < close; ++i) {
        if (text[i] != '\\' || i + 1 == close) {
            out += text[i];
            continue;
        }
        const char c = text[++i];
        out += c == 'n' ? '\n' : c == 't' ? '\t' : c;
    }
    return out;
}

// msgid / msgstr pairs, each possibly continued on following quoted lines. The header entry
// (empty msgid) is skipped.
std::map<std::string, std::string, std::less<>> parseCatalogue(std::string_view text) {
    std::map<std::string, std::string, std::less<>> entries;
    std::string id, translation, *current = nullptr;
    auto flush = [&] {
        if (!id.empty() && !translation.empty()) entries.emplace(id, translation);
        id.clear();
        translation.clear();
        current = nullptr;
    };
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        if (line.starts_with("msgid ")) {
            flush();
            id = unquote(line);
            current = &id;
        } else if (line.starts_with("msgstr ")) {
            translation = unquote(line);
            current = &translation;
        } else if (line.starts_with('"') && current) {
            *current += unquote(line);
        }
    }
    flush();
    return entries;
}

} // namespace

std::string preferredLanguage() {
    {
        std::lock_guard lock(state().mutex);
        if (state().language) return *state().language;
    }
    for (const char* variable : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value && *value) {
            std::string language = languageOf(value);
            if (language == "C" || language == "POSIX") return "en";
            if (!language.empty()) return language;
        }
    }
    return "en";
}

void setPreferredLanguage(std::optional<std::string> language) {
    std::lock_guard lock(state().mutex);
    state().language = std::move(language);
}

std::string localizedString(std::string_view table, std::string_view key) {
    const std::string language = preferredLanguage();
    State& s = state();
    std::lock_guard lock(s.mutex);
    auto lookUp = [&](const std::string& lang) -> const std::string* {
        auto it = s.tables.find(std::pair(lang, std::string(table)));
        if (it == s.tables.end()) {
            std::map<std::string, std::string, std::less<>> entries;
            for (const Catalogue& c : catalogues())
                if (c.language == lang && c.table == table) entries = parseCatalogue(c.text);
            it = s.tables.emplace(std::pair(lang, std::string(table)), std::move(entries)).first;
        }
        const auto entry = it->second.find(key);
        return entry == it->second.end() ? nullptr : &entry->second;
    };
    // Most keys are their own English text; those that are not (abbreviations keyed by a
    // description) have an English catalogue to fall back on.
    if (const std::string* text = lookUp(language)) return *text;
    if (language != "en")
        if (const std::string* text = lookUp("en")) return *text;
    return std::string(key);
}

} // namespace bic::resources
