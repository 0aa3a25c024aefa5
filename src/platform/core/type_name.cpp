#include "bic/platform/core/type_name.hpp"

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

namespace bic {

std::string unqualifiedTypeName(const std::type_info& type) {
    int status = 0;
    const std::unique_ptr<char, decltype(&std::free)> demangled(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    const std::string name = status == 0 && demangled ? demangled.get() : type.name();
    // The last "::" outside template arguments ends the qualification.
    std::size_t start = 0;
    int depth = 0;
    for (std::size_t i = 0; i + 1 < name.size(); ++i) {
        if (name[i] == '<') ++depth;
        if (name[i] == '>') --depth;
        if (depth == 0 && name[i] == ':' && name[i + 1] == ':') start = i + 2;
    }
    return name.substr(start);
}

} // namespace bic
