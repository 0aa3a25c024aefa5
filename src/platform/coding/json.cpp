#include "bic/platform/coding/formats.hpp"

#include <cmath>
#include <nlohmann/json.hpp>

namespace bic::coding {

namespace {

using Json = nlohmann::ordered_json;

Json toJson(const Value& v, CodingPath& path) {
    switch (v.kind()) {
    case Value::Kind::null:
        return nullptr;
    case Value::Kind::boolean:
        return *v.get<bool>();
    case Value::Kind::integer:
        return *v.get<std::int64_t>();
    case Value::Kind::real: {
        const double d = *v.get<double>();
        if (!std::isfinite(d))
            throw EncodingError(path, "Unable to encode a non-finite number in JSON.");
        return d;
    }
    case Value::Kind::string:
        return *v.get<std::string>();
    case Value::Kind::data:
        return base64Encode(*v.get<Data>());
    case Value::Kind::date:
        return v.get<Date>()->secondsSinceReferenceDate;
    case Value::Kind::array: {
        Json out = Json::array();
        const Array& a = *v.get<Array>();
        for (std::size_t i = 0; i < a.size(); ++i) {
            path.push_back("Index " + std::to_string(i));
            out.push_back(toJson(a[i], path));
            path.pop_back();
        }
        return out;
    }
    case Value::Kind::dictionary: {
        Json out = Json::object();
        for (const auto& [key, item] : *v.get<Dictionary>()) {
            path.push_back(key);
            out[key] = toJson(item, path);
            path.pop_back();
        }
        return out;
    }
    }
    return nullptr;
}

Value fromJson(const Json& j) {
    switch (j.type()) {
    case Json::value_t::null:
        return Value();
    case Json::value_t::boolean:
        return Value(j.get<bool>());
    case Json::value_t::number_integer:
        return Value(j.get<std::int64_t>());
    case Json::value_t::number_unsigned: {
        const auto u = j.get<std::uint64_t>();
        if (u > static_cast<std::uint64_t>(INT64_MAX)) return Value(static_cast<double>(u));
        return Value(static_cast<std::int64_t>(u));
    }
    case Json::value_t::number_float:
        return Value(j.get<double>());
    case Json::value_t::string:
        return Value(j.get<std::string>());
    case Json::value_t::array: {
        Array out;
        out.reserve(j.size());
        for (const auto& e : j)
            out.push_back(fromJson(e));
        return Value(std::move(out));
    }
    case Json::value_t::object: {
        Dictionary out;
        for (auto it = j.begin(); it != j.end(); ++it)
            out.emplace_back(it.key(), fromJson(it.value()));
        return Value(std::move(out));
    }
    default:
        return Value();
    }
}

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

std::string writeJSON(const Value& root, bool pretty) {
    CodingPath path;
    return toJson(root, path).dump(pretty ? 2 : -1);
}

Value readJSON(std::string_view text) {
    Json j = Json::parse(text.begin(), text.end(), nullptr, false);
    if (j.is_discarded())
        throw DecodingError(DecodingError::Kind::dataCorrupted, {},
                            "The given data was not valid JSON.");
    return fromJson(j);
}

std::string base64Encode(std::span<const std::uint8_t> bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const std::uint32_t n = bytes[i] << 16 | bytes[i + 1] << 8 | bytes[i + 2];
        out += kAlphabet[n >> 18];
        out += kAlphabet[(n >> 12) & 63];
        out += kAlphabet[(n >> 6) & 63];
        out += kAlphabet[n & 63];
    }
    if (const std::size_t rest = bytes.size() - i) {
        const std::uint32_t n = bytes[i] << 16 | (rest == 2 ? bytes[i + 1] << 8 : 0);
        out += kAlphabet[n >> 18];
        out += kAlphabet[(n >> 12) & 63];
        out += rest == 2 ? kAlphabet[(n >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

bool base64Decode(std::string_view text, Data& out) {
    out.clear();
    std::uint32_t accumulator = 0;
    int bits = 0, padding = 0;
    for (char ch : text) {
        if (ch == ' ' || ch == '\n' || ch == '\r' || ch == '\t') continue;
        if (ch == '=') {
            ++padding;
            continue;
        }
        if (padding) return false; // data after padding
        const char* p = std::char_traits<char>::find(kAlphabet, 64, ch);
        if (!p) return false;
        accumulator = accumulator << 6 | static_cast<std::uint32_t>(p - kAlphabet);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out.push_back(static_cast<std::uint8_t>(accumulator >> bits));
        }
    }
    // Valid endings: no leftover bits beyond the padding the encoder would have written.
    // One trailing byte leaves 4 spare bits and two "=", two trailing bytes leave 2 and one "=".
    const bool ok =
        (bits == 0 && padding == 0) || (bits == 4 && padding == 2) || (bits == 2 && padding == 1);
    return ok && (accumulator & ((1u << bits) - 1)) == 0;
}

} // namespace bic::coding
