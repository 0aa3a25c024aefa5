#pragma once
// Paths into an XMP tree, as both the tree and the Exiv2 reader spell them:
// "prefix:name", "[n]" or "prefix:name[n]", steps joined by "/".

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

namespace bic::xmp {

struct Step {
    std::string_view qualifiedName; ///< empty for a bare "[n]"
    std::size_t index = 0;          ///< 1-based; 0 for none
};

/// The steps of `path` (views into it); nothing for an empty step or a malformed index.
std::optional<std::vector<Step>> parsePath(std::string_view path);

} // namespace bic::xmp
