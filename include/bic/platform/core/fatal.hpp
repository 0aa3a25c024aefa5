#pragma once
// The one way the library stops the process: caller misuse and violated preconditions.

#include <string_view>

namespace bic {

/// Prints "Fatal error: <message>" to standard error and aborts. Never returns.
[[noreturn]] void fatalError(std::string_view message);

/// Stops with `message` when `condition` is false. The message is only used on failure.
inline void precondition(bool condition, std::string_view message) {
    if (!condition) [[unlikely]]
        fatalError(message);
}

} // namespace bic
