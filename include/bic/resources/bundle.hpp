#pragma once
// The library's identity among the resources of a host application.

#include <string_view>

namespace bic::resources {

/// Reverse-DNS name of the library; pasteboard types and similar keys derive from it.
inline constexpr std::string_view bundleIdentifier = "org.brellin.BrellinImageCore";

} // namespace bic::resources
