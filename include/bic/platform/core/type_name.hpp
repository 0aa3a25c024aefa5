#pragma once
// Readable type names for messages.

#include <string>
#include <typeinfo>

namespace bic {

/// The type's name without its namespaces or enclosing classes ("StaticImageProvider"); template
/// arguments are kept as the compiler spells them.
std::string unqualifiedTypeName(const std::type_info& type);

} // namespace bic
