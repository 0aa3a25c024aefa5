#pragma once
// The image resources of a document: numbered blocks the reader keeps as bytes, and the three it
// interprets.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace bic {

struct ImageResource {
    /// "8BIM" nearly always; a few writers use others ("MeSa", …).
    std::string signature = "8BIM";
    std::uint16_t id = 0;
    /// The Pascal name as stored (usually empty).
    std::string name;
    std::vector<std::uint8_t> bytes;

    friend bool operator==(const ImageResource&, const ImageResource&) = default;
};

/// Resource ids the reader interprets.
enum ImageResourceId : std::uint16_t {
    resolutionInfoResource = 1005,
    iccProfileResource = 1039,
    versionInfoResource = 1057,
};

/// Resolution (1005): pixels per inch in both directions, and the units the user chose to see
/// (1 = per inch, 2 = per centimetre; widths 1 inch … 5 columns).
struct ResolutionInfo {
    double horizontal = 72, vertical = 72;
    std::uint16_t horizontalUnit = 1, widthUnit = 1, verticalUnit = 1, heightUnit = 1;

    /// The 16 bytes of the resource (16.16 fixed-point resolutions).
    std::vector<std::uint8_t> bytes() const;
    /// Nothing when the resource is shorter than 16 bytes.
    static std::optional<ResolutionInfo> fromBytes(std::span<const std::uint8_t> bytes);
    friend bool operator==(const ResolutionInfo&, const ResolutionInfo&) = default;
};

} // namespace bic
