#include "bic/documents/descriptor.hpp"

#include "byte_io.hpp"

namespace bic {

namespace {

using documents::ByteReader;
using documents::corrupt;

constexpr int maximumNesting = 64;

std::string unicodeString(ByteReader& r, std::string_view what) {
    const std::uint32_t count = r.u32(what);
    r.need(std::uint64_t(count) * 2, what);
    std::vector<std::uint16_t> units(count);
    for (auto& u : units)
        u = r.u16(what);
    while (!units.empty() && units.back() == 0)
        units.pop_back();
    return documents::utf8FromUTF16(units);
}

// A class or key identifier: a length and that many bytes, or 0 and four characters.
std::string identifier(ByteReader& r, std::string_view what) {
    const std::uint32_t length = r.u32(what);
    return r.chars(length == 0 ? 4 : length, what);
}

Descriptor descriptor(ByteReader& r, int depth);

DescriptorValue value(ByteReader& r, const std::string& type, int depth) {
    if (depth > maximumNesting) corrupt("a descriptor nests deeper than 64 levels");
    DescriptorValue v;
    v.type = type;
    if (type == "Objc" || type == "GlbO") {
        v.value = descriptor(r, depth + 1);
    } else if (type == "VlLs") {
        const std::uint32_t count = r.u32("a descriptor list");
        // Every item takes at least its four-character type.
        r.need(std::uint64_t(count) * 4, "a descriptor list");
        std::vector<DescriptorValue> items;
        items.reserve(count);
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::string itemType = r.chars(4, "a descriptor list item");
            items.push_back(value(r, itemType, depth + 1));
        }
        v.value = std::move(items);
    } else if (type == "doub") {
        v.value = r.f64("a descriptor number");
    } else if (type == "UntF") {
        UnitFloat u;
        u.unit = r.chars(4, "a descriptor unit");
        u.value = r.f64("a descriptor number");
        v.value = u;
    } else if (type == "long") {
        v.value = std::int64_t(r.i32("a descriptor integer"));
    } else if (type == "comp") {
        v.value = std::int64_t(r.u64("a descriptor integer"));
    } else if (type == "bool") {
        v.value = r.u8("a descriptor Boolean") != 0;
    } else if (type == "TEXT") {
        v.value = unicodeString(r, "a descriptor text");
    } else if (type == "enum") {
        EnumeratedValue e;
        e.type = identifier(r, "a descriptor enumeration");
        e.value = identifier(r, "a descriptor enumeration");
        v.value = e;
    } else if (type == "type" || type == "GlbC") {
        unicodeString(r, "a descriptor class");
        v.value = identifier(r, "a descriptor class");
    } else if (type == "alis" || type == "tdta" || type == "Pth ") {
        const std::uint32_t length = r.u32("descriptor data");
        const auto bytes = r.take(length, "descriptor data");
        v.value = std::vector<std::uint8_t>(bytes.begin(), bytes.end());
    } else if (type == "UnFl") {
        UnitFloat u;
        u.unit = r.chars(4, "a descriptor unit");
        const std::uint32_t count = r.u32("a descriptor unit list");
        r.need(std::uint64_t(count) * 8, "a descriptor unit list");
        std::vector<DescriptorValue> items;
        for (std::uint32_t i = 0; i < count; ++i)
            items.push_back(DescriptorValue{"UntF", UnitFloat{u.unit, r.f64("a number")}});
        v.value = std::move(items);
    } else if (type == "obj ") {
        // A reference: its items are only skipped over, the bytes kept.
        const std::uint32_t count = r.u32("a descriptor reference");
        r.need(std::uint64_t(count) * 4, "a descriptor reference");
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::string form = r.chars(4, "a reference item");
            if (form == "prop") {
                unicodeString(r, "a reference item");
                identifier(r, "a reference item");
                identifier(r, "a reference item");
            } else if (form == "Clss") {
                unicodeString(r, "a reference item");
                identifier(r, "a reference item");
            } else if (form == "Enmr") {
                unicodeString(r, "a reference item");
                identifier(r, "a reference item");
                identifier(r, "a reference item");
                identifier(r, "a reference item");
            } else if (form == "rele") {
                unicodeString(r, "a reference item");
                identifier(r, "a reference item");
                r.u32("a reference item");
            } else if (form == "Idnt" || form == "indx") {
                r.u32("a reference item");
            } else if (form == "name") {
                unicodeString(r, "a reference item");
                identifier(r, "a reference item");
                unicodeString(r, "a reference item");
            } else {
                corrupt("a descriptor reference has an item of unknown form '" + form + "'");
            }
        }
        v.value = std::vector<std::uint8_t>{};
    } else {
        corrupt("a descriptor has a value of unknown type '" + type + "'");
    }
    return v;
}

Descriptor descriptor(ByteReader& r, int depth) {
    if (depth > maximumNesting) corrupt("a descriptor nests deeper than 64 levels");
    Descriptor d;
    d.name = unicodeString(r, "a descriptor name");
    d.classId = identifier(r, "a descriptor class");
    const std::uint32_t count = r.u32("a descriptor item count");
    // Every item takes at least a key length and a type.
    r.need(std::uint64_t(count) * 8, "a descriptor's items");
    d.items.reserve(count);
    for (std::uint32_t i = 0; i < count; ++i) {
        DescriptorItem item;
        item.key = identifier(r, "a descriptor key");
        const std::string type = r.chars(4, "a descriptor type");
        item.value = value(r, type, depth);
        d.items.push_back(std::move(item));
    }
    return d;
}

} // namespace

const DescriptorValue* Descriptor::find(std::string_view key) const {
    for (const auto& item : items)
        if (item.key == key) return &item.value;
    return nullptr;
}

std::optional<double> Descriptor::number(std::string_view key) const {
    const DescriptorValue* v = find(key);
    if (!v) return std::nullopt;
    if (const auto* d = std::get_if<double>(&v->value)) return *d;
    if (const auto* i = std::get_if<std::int64_t>(&v->value)) return double(*i);
    if (const auto* u = std::get_if<UnitFloat>(&v->value)) return u->value;
    return std::nullopt;
}

std::optional<bool> Descriptor::boolean(std::string_view key) const {
    const DescriptorValue* v = find(key);
    if (const auto* b = v ? std::get_if<bool>(&v->value) : nullptr) return *b;
    return std::nullopt;
}

std::optional<std::string> Descriptor::enumerated(std::string_view key) const {
    const DescriptorValue* v = find(key);
    if (const auto* e = v ? std::get_if<EnumeratedValue>(&v->value) : nullptr) return e->value;
    return std::nullopt;
}

const Descriptor* Descriptor::object(std::string_view key) const {
    const DescriptorValue* v = find(key);
    return v ? std::get_if<Descriptor>(&v->value) : nullptr;
}

const std::vector<DescriptorValue>* Descriptor::list(std::string_view key) const {
    const DescriptorValue* v = find(key);
    return v ? std::get_if<std::vector<DescriptorValue>>(&v->value) : nullptr;
}

Descriptor parseVersionedDescriptor(std::span<const std::uint8_t> bytes) {
    ByteReader r(bytes);
    const std::uint32_t version = r.u32("a descriptor version");
    if (version != 16) corrupt("a descriptor has version " + std::to_string(version));
    return descriptor(r, 0);
}

} // namespace bic
