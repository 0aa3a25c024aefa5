#pragma once
// The library's identity among the resources of a host application, and the resource files
// compiled into it.

#include <optional>
#include <string_view>

namespace bic::resources {

/// Reverse-DNS name of the library; pasteboard types and similar keys derive from it.
inline constexpr std::string_view bundleIdentifier = "org.brellin.BrellinImageCore";

/// The bytes of a resource by its path under resources/ ("MakerStrings.plist",
/// "MakerIcons/Nikon.svg"); nothing for a name the library does not carry.
std::optional<std::string_view> resourceData(std::string_view name);

} // namespace bic::resources
