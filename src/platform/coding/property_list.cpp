#include "bic/platform/coding/formats.hpp"

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <locale.h>
#include <memory>
#include <optional>
#include <plist/plist.h>

namespace bic::coding {

namespace {

// libplist reads the reals of XML property lists with the C library, which follows the process
// locale: in a comma-decimal one "0.25" reads as 0. Its calls run in the C locale, on this
// thread only.
class ClassicLocale {
public:
    ClassicLocale() : previous_(classic() ? uselocale(classic()) : nullptr) {}
    ~ClassicLocale() {
        if (previous_) uselocale(previous_);
    }
    ClassicLocale(const ClassicLocale&) = delete;
    ClassicLocale& operator=(const ClassicLocale&) = delete;

private:
    static locale_t classic() {
        static const locale_t c = newlocale(LC_ALL_MASK, "C", locale_t(nullptr));
        return c;
    }
    locale_t previous_;
};

struct PlistFree {
    void operator()(plist_t p) const { plist_free(p); }
};
using PlistPtr = std::unique_ptr<void, PlistFree>;

plist_t toPlist(const Value& v, CodingPath& path) {
    switch (v.kind()) {
    case Value::Kind::null:
        throw EncodingError(path, "Property lists cannot hold a null value.");
    case Value::Kind::boolean:
        return plist_new_bool(*v.get<bool>() ? 1 : 0);
    // libplist stores integers as 64 raw bits and writes them back as signed numbers.
    case Value::Kind::integer:
        return plist_new_uint(static_cast<std::uint64_t>(*v.get<std::int64_t>()));
    case Value::Kind::real:
        return plist_new_real(*v.get<double>());
    case Value::Kind::string:
        return plist_new_string(v.get<std::string>()->c_str());
    case Value::Kind::data: {
        const Data& d = *v.get<Data>();
        return plist_new_data(reinterpret_cast<const char*>(d.data()), d.size());
    }
    case Value::Kind::date: {
        const double s = v.get<Date>()->secondsSinceReferenceDate;
        const double whole = std::floor(s);
        return plist_new_date(static_cast<std::int32_t>(whole),
                              static_cast<std::int32_t>(std::lround((s - whole) * 1e6)));
    }
    case Value::Kind::array: {
        PlistPtr array(plist_new_array());
        const Array& a = *v.get<Array>();
        for (std::size_t i = 0; i < a.size(); ++i) {
            path.push_back("Index " + std::to_string(i));
            plist_array_append_item(array.get(), toPlist(a[i], path));
            path.pop_back();
        }
        return array.release();
    }
    case Value::Kind::dictionary: {
        PlistPtr dict(plist_new_dict());
        for (const auto& [key, item] : *v.get<Dictionary>()) {
            path.push_back(key);
            plist_dict_set_item(dict.get(), key.c_str(), toPlist(item, path));
            path.pop_back();
        }
        return dict.release();
    }
    }
    throw EncodingError(path, "Unknown value kind.");
}

Value fromPlist(plist_t node) {
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t b = 0;
        plist_get_bool_val(node, &b);
        return Value(b != 0);
    }
    case PLIST_UINT: {
        std::uint64_t u = 0;
        plist_get_uint_val(node, &u);
        return Value(static_cast<std::int64_t>(u));
    }
    case PLIST_REAL: {
        double d = 0;
        plist_get_real_val(node, &d);
        return Value(d);
    }
    case PLIST_STRING: {
        // By pointer and length: strings in binary lists may hold NUL characters, which the
        // copying accessor refuses with an assertion.
        std::uint64_t length = 0;
        const char* s = plist_get_string_ptr(node, &length);
        return Value(s ? std::string(s, length) : std::string());
    }
    case PLIST_DATA: {
        char* bytes = nullptr;
        std::uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        Data out(reinterpret_cast<std::uint8_t*>(bytes),
                 reinterpret_cast<std::uint8_t*>(bytes) + length);
        std::free(bytes);
        return Value(std::move(out));
    }
    case PLIST_DATE: {
        std::int32_t sec = 0, usec = 0;
        plist_get_date_val(node, &sec, &usec);
        return Value(Date{sec + usec / 1e6});
    }
    case PLIST_ARRAY: {
        Array out;
        const std::uint32_t n = plist_array_get_size(node);
        out.reserve(n);
        for (std::uint32_t i = 0; i < n; ++i)
            out.push_back(fromPlist(plist_array_get_item(node, i)));
        return Value(std::move(out));
    }
    case PLIST_DICT: {
        // Owned so that a value further down that throws frees them too.
        using Owned = std::unique_ptr<void, decltype(&std::free)>;
        Dictionary out;
        plist_dict_iter rawIterator = nullptr;
        plist_dict_new_iter(node, &rawIterator);
        const Owned iterator(rawIterator, &std::free);
        for (;;) {
            char* rawKey = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, rawIterator, &rawKey, &item);
            const Owned key(rawKey, &std::free);
            if (!item) break;
            out.emplace_back(rawKey ? rawKey : "", fromPlist(item));
        }
        return Value(std::move(out));
    }
    default:
        throw DecodingError(DecodingError::Kind::dataCorrupted, {},
                            "The property list holds a value of an unsupported type.");
    }
}

} // namespace

Data writePropertyList(const Value& root, PropertyListFormat format) {
    CodingPath path;
    PlistPtr plist(toPlist(root, path));
    char* bytes = nullptr;
    std::uint32_t length = 0;
    if (format == PropertyListFormat::binary) {
        plist_to_bin(plist.get(), &bytes, &length);
    } else {
        const ClassicLocale c;
        plist_to_xml(plist.get(), &bytes, &length);
    }
    if (!bytes) throw EncodingError({}, "The property list could not be written.");
    Data out(reinterpret_cast<std::uint8_t*>(bytes),
             reinterpret_cast<std::uint8_t*>(bytes) + length);
    std::free(bytes);
    return out;
}

namespace {

// libplist keeps strings as C strings and asserts, rather than fails, when a binary list holds a
// string or key with a NUL inside. Such lists are refused here first, by walking the object table
// (format: "bplist00", objects, offset table, 32-byte trailer). Anything this walk cannot follow
// is left for libplist to judge.
bool binaryListHasStringWithNUL(std::span<const std::uint8_t> b) {
    constexpr std::size_t trailerSize = 32;
    if (b.size() < 8 + trailerSize || std::memcmp(b.data(), "bplist0", 7) != 0) return false;
    auto bigEndian = [&](std::size_t at, std::size_t n) -> std::optional<std::uint64_t> {
        if (n == 0 || n > 8 || at > b.size() || n > b.size() - at) return std::nullopt;
        std::uint64_t v = 0;
        for (std::size_t i = 0; i < n; ++i)
            v = v << 8 | b[at + i];
        return v;
    };
    const std::size_t trailer = b.size() - trailerSize;
    const std::size_t offsetSize = b[trailer + 6];
    const auto count = bigEndian(trailer + 8, 8);
    const auto table = bigEndian(trailer + 24, 8);
    if (!count || !table || *count > b.size()) return false;
    for (std::uint64_t i = 0; i < *count; ++i) {
        const auto at = bigEndian(std::size_t(*table + i * offsetSize), offsetSize);
        if (!at || *at >= b.size()) return false;
        const std::uint8_t marker = b[*at];
        const int type = marker >> 4;
        if (type != 0x5 && type != 0x6) continue;
        std::uint64_t length = marker & 0xF;
        std::size_t start = *at + 1;
        if (length == 0xF) { // the length follows as an integer object
            if (start >= b.size() || (b[start] >> 4) != 0x1) return false;
            const std::size_t n = std::size_t(1) << (b[start] & 0x3);
            const auto l = bigEndian(start + 1, n);
            if (!l) return false;
            length = *l, start += 1 + n;
        }
        const std::uint64_t unit = type == 0x6 ? 2 : 1;
        if (length > (b.size() - start) / unit) return false;
        for (std::uint64_t k = 0; k < length; ++k) {
            const std::size_t c = start + std::size_t(k * unit);
            if (b[c] == 0 && (unit == 1 || b[c + 1] == 0)) return true;
        }
    }
    return false;
}

} // namespace

Value readPropertyList(std::span<const std::uint8_t> bytes) {
    if (binaryListHasStringWithNUL(bytes))
        throw DecodingError(DecodingError::Kind::dataCorrupted, {},
                            "The property list holds a string with a NUL character.");
    plist_t raw = nullptr;
    const ClassicLocale c;
    if (!bytes.empty() && bytes.size() <= UINT32_MAX)
        plist_from_memory(reinterpret_cast<const char*>(bytes.data()),
                          static_cast<std::uint32_t>(bytes.size()), &raw);
    if (!raw)
        throw DecodingError(DecodingError::Kind::dataCorrupted, {},
                            "The given data was not a valid property list.");
    PlistPtr plist(raw);
    return fromPlist(plist.get());
}

} // namespace bic::coding
