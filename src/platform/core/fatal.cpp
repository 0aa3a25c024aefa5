#include "bic/platform/core/fatal.hpp"

#include <cstdio>
#include <cstdlib>

namespace bic {

void fatalError(std::string_view message) {
    std::fflush(stdout);
    std::fprintf(stderr, "Fatal error: %.*s\n", static_cast<int>(message.size()), message.data());
    std::fflush(stderr);
    std::abort();
}

} // namespace bic
