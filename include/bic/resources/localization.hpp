#pragma once
// The library's translated texts. String tables are gettext catalogues compiled into the
// library, one per table and language, keyed by the English text; a text without a translation
// is its own English key.

#include <optional>
#include <string>
#include <string_view>

namespace bic::resources {

/// The language texts are shown in: the override if set, otherwise the first of LANGUAGE,
/// LC_ALL, LC_MESSAGES and LANG that is set ("de_DE.UTF-8" gives "de"); "en" when none is.
std::string preferredLanguage();
/// Overrides the environment's choice (for an editor's own setting); nothing restores it.
void setPreferredLanguage(std::optional<std::string> language);

/// `key` from `table` in the preferred language, else in English; `key` itself when neither
/// catalogue has it.
std::string localizedString(std::string_view table, std::string_view key);

} // namespace bic::resources
