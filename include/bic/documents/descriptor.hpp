#pragma once
// The format's action descriptors: typed key-value trees that fill layers, effects and many other
// tagged blocks carry ("Objc" objects, "VlLs" lists, "doub", "UntF", "long", "enum", "TEXT",
// "bool", …). Parsed into values for reading; the blocks themselves are kept as bytes, so nothing
// here needs to be written back.

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace bic {

struct DescriptorItem;
struct DescriptorValue;

struct Descriptor {
    /// The class's display name (UTF-8) and its identifier ("null", "Grdn", "RGBC", …).
    std::string name, classId;
    std::vector<DescriptorItem> items;

    /// The value of the first item with `key`; nothing when there is none.
    const DescriptorValue* find(std::string_view key) const;
    /// The value as a number: "doub", "long", "comp" and the number of "UntF".
    std::optional<double> number(std::string_view key) const;
    std::optional<bool> boolean(std::string_view key) const;
    /// The value of an "enum" item.
    std::optional<std::string> enumerated(std::string_view key) const;
    const Descriptor* object(std::string_view key) const;
    const std::vector<DescriptorValue>* list(std::string_view key) const;
};

struct UnitFloat {
    std::string unit; ///< "#Ang", "#Prc", "#Pxl", …
    double value = 0;
};

struct EnumeratedValue {
    std::string type, value;
};

struct DescriptorValue {
    /// The four-character type as stored ("doub", "Objc", …).
    std::string type;
    /// Unparsed kinds ("obj " references, aliases, raw data) keep their bytes.
    std::variant<std::vector<std::uint8_t>, double, UnitFloat, std::int64_t, bool, std::string,
                 EnumeratedValue, Descriptor, std::vector<DescriptorValue>>
        value;
};

struct DescriptorItem {
    std::string key;
    DescriptorValue value;
};

/// A descriptor as a tagged block stores it: a 4-byte version (16) and the descriptor. Throws
/// DocumentError (corrupt or truncated) for bytes that are no descriptor; nesting deeper than 64
/// levels is refused.
Descriptor parseVersionedDescriptor(std::span<const std::uint8_t> bytes);

} // namespace bic
