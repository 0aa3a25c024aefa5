#pragma once
// The string tables compiled into the library (generated from resources/strings/<lang>/*.po).

#include <span>
#include <string_view>

namespace bic::resources {

struct Catalogue {
    std::string_view language, table, text;
};

std::span<const Catalogue> catalogues();

} // namespace bic::resources
