#pragma once
// Keyed, unkeyed and single-value encoding and decoding over the value tree.
//
// A type takes part by declaring
//     void encode(coding::Encoder&) const;
//     static T decode(const coding::Decoder&);
// Booleans, integers, floats, strings, Data, Date, std::vector and std::optional are built in.
// Decoders throw DecodingError with the coding path of the offending value.

#include "bic/platform/coding/errors.hpp"
#include "bic/platform/coding/value.hpp"

#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace bic::coding {

class Encoder;
class Decoder;

template <class T>
concept SelfEncodable = requires(const T& t, Encoder& e) {
    t.encode(e);
};
template <class T>
concept SelfDecodable = requires(const Decoder& d) {
    { T::decode(d) } -> std::same_as<T>;
};

template <class T>
Value encode(const T& value, CodingPath path = {});
template <class T>
T decode(const Value& value, CodingPath path = {});

class KeyedEncoder {
public:
    template <class T>
    void encode(std::string_view key, const T& value) {
        CodingPath p = path_;
        p.emplace_back(key);
        put(key, coding::encode(value, std::move(p)));
    }
    template <class T>
    void encodeIfPresent(std::string_view key, const std::optional<T>& value) {
        if (value) encode(key, *value);
    }

private:
    friend class Encoder;
    KeyedEncoder(Dictionary& d, CodingPath path) : dict_(d), path_(std::move(path)) {}
    void put(std::string_view key, Value v);
    Dictionary& dict_;
    CodingPath path_;
};

class UnkeyedEncoder {
public:
    template <class T>
    void encode(const T& value) {
        CodingPath p = path_;
        p.push_back("Index " + std::to_string(array_.size()));
        array_.push_back(coding::encode(value, std::move(p)));
    }

private:
    friend class Encoder;
    UnkeyedEncoder(Array& a, CodingPath path) : array_(a), path_(std::move(path)) {}
    Array& array_;
    CodingPath path_;
};

/// Writes one value into a slot of the tree; a value uses exactly one of the three forms.
class Encoder {
public:
    Encoder(Value& slot, CodingPath path) : slot_(slot), path_(std::move(path)) {}
    KeyedEncoder keyed();
    UnkeyedEncoder unkeyed();
    template <class T>
    void encodeSingle(const T& value) {
        slot_ = coding::encode(value, path_);
    }
    const CodingPath& codingPath() const { return path_; }

private:
    Value& slot_;
    CodingPath path_;
};

class KeyedDecoder {
public:
    bool contains(std::string_view key) const { return dict_.find(key) != nullptr; }
    template <class T>
    T decode(std::string_view key) const {
        return coding::decode<T>(require(key), pathFor(key));
    }
    template <class T>
    std::optional<T> decodeIfPresent(std::string_view key) const {
        const Value* v = dict_.find(key);
        if (!v || v->isNull()) return std::nullopt;
        return coding::decode<T>(*v, pathFor(key));
    }
    /// Decodes a number and rejects values outside min…max as corrupted data.
    template <class T>
    T decode(std::string_view key, T min, T max) const {
        T v = decode<T>(key);
        if (!(v >= min && v <= max)) outOfRange(key);
        return v;
    }
    /// The same for an optional value: absent (or null) gives nothing.
    template <class T>
    std::optional<T> decodeIfPresent(std::string_view key, T min, T max) const {
        const std::optional<T> v = decodeIfPresent<T>(key);
        if (v && !(*v >= min && *v <= max)) outOfRange(key);
        return v;
    }
    const CodingPath& codingPath() const { return path_; }

private:
    friend class Decoder;
    KeyedDecoder(const Value& d, CodingPath path) : dict_(d), path_(std::move(path)) {}
    const Value& require(std::string_view key) const;
    CodingPath pathFor(std::string_view key) const;
    [[noreturn]] void outOfRange(std::string_view key) const;
    const Value& dict_;
    CodingPath path_;
};

class UnkeyedDecoder {
public:
    std::size_t count() const { return array_.size(); }
    bool isAtEnd() const { return index_ >= array_.size(); }
    std::size_t currentIndex() const { return index_; }
    template <class T>
    T decode() {
        const Value& v = next();
        return coding::decode<T>(v, pathFor(index_ - 1));
    }

private:
    friend class Decoder;
    UnkeyedDecoder(const Array& a, CodingPath path) : array_(a), path_(std::move(path)) {}
    const Value& next();
    CodingPath pathFor(std::size_t i) const;
    const Array& array_;
    std::size_t index_ = 0;
    CodingPath path_;
};

/// Reads one value of the tree.
class Decoder {
public:
    Decoder(const Value& value, CodingPath path) : value_(value), path_(std::move(path)) {}
    KeyedDecoder keyed() const;
    UnkeyedDecoder unkeyed() const;
    template <class T>
    T decodeSingle() const {
        return coding::decode<T>(value_, path_);
    }
    const Value& value() const { return value_; }
    const CodingPath& codingPath() const { return path_; }

private:
    const Value& value_;
    CodingPath path_;
};

namespace detail {
[[noreturn]] void typeMismatch(const Value& v, std::string_view expected, const CodingPath& path);
[[noreturn]] void doesNotFit(const Value& v, std::string_view type, const CodingPath& path);
std::int64_t integerValue(const Value& v, const CodingPath& path);
std::uint64_t unsignedValue(const Value& v, const CodingPath& path);
double realValue(const Value& v, const CodingPath& path);
Data dataValue(const Value& v, const CodingPath& path);

template <class T>
struct IsVector : std::false_type {};
template <class T>
struct IsVector<std::vector<T>> : std::true_type {};
template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};
} // namespace detail

template <class T>
Value encode(const T& value, CodingPath path) {
    if constexpr (std::is_same_v<T, bool>) {
        return Value(value);
    } else if constexpr (std::is_same_v<T, Data>) {
        return Value(value);
    } else if constexpr (std::is_integral_v<T>) {
        if constexpr (std::is_unsigned_v<T> && sizeof(T) == 8) {
            if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
                throw EncodingError(path,
                                    "Unsigned value does not fit in a signed 64-bit integer.");
        }
        return Value(static_cast<std::int64_t>(value));
    } else if constexpr (std::is_floating_point_v<T>) {
        return Value(value);
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
        return Value(std::string(std::string_view(value)));
    } else if constexpr (std::is_same_v<T, Date> || std::is_same_v<T, Value>) {
        return Value(value);
    } else if constexpr (detail::IsOptional<T>::value) {
        return value ? coding::encode(*value, std::move(path)) : Value();
    } else if constexpr (detail::IsVector<T>::value) {
        Value out;
        Encoder e(out, std::move(path));
        auto u = e.unkeyed();
        for (const auto& element : value)
            u.encode(element);
        return out;
    } else {
        static_assert(SelfEncodable<T>, "type has no encode(coding::Encoder&) member");
        Value out;
        Encoder e(out, std::move(path));
        value.encode(e);
        return out;
    }
}

template <class T>
T decode(const Value& value, CodingPath path) {
    if constexpr (std::is_same_v<T, bool>) {
        if (const bool* b = value.get<bool>()) return *b;
        detail::typeMismatch(value, "Bool", path);
    } else if constexpr (std::is_same_v<T, Data>) {
        return detail::dataValue(value, path);
    } else if constexpr (std::is_integral_v<T>) {
        if constexpr (std::is_unsigned_v<T>) {
            const std::uint64_t u = detail::unsignedValue(value, path);
            if (u > std::numeric_limits<T>::max())
                detail::doesNotFit(value, "unsigned integer", path);
            return static_cast<T>(u);
        } else {
            const std::int64_t i = detail::integerValue(value, path);
            if (i < std::numeric_limits<T>::min() || i > std::numeric_limits<T>::max())
                detail::doesNotFit(value, "integer", path);
            return static_cast<T>(i);
        }
    } else if constexpr (std::is_same_v<T, float>) {
        const double d = detail::realValue(value, path);
        if (d > std::numeric_limits<float>::max() || d < -std::numeric_limits<float>::max())
            detail::doesNotFit(value, "Float", path);
        return static_cast<float>(d);
    } else if constexpr (std::is_same_v<T, double>) {
        return detail::realValue(value, path);
    } else if constexpr (std::is_same_v<T, std::string>) {
        if (const std::string* s = value.get<std::string>()) return *s;
        detail::typeMismatch(value, "String", path);
    } else if constexpr (std::is_same_v<T, Date>) {
        if (const Date* d = value.get<Date>()) return *d;
        if (value.kind() == Value::Kind::integer || value.kind() == Value::Kind::real)
            return Date{detail::realValue(value, path)};
        detail::typeMismatch(value, "Date", path);
    } else if constexpr (std::is_same_v<T, Value>) {
        return value;
    } else if constexpr (detail::IsOptional<T>::value) {
        if (value.isNull()) return T{};
        return coding::decode<typename T::value_type>(value, std::move(path));
    } else if constexpr (detail::IsVector<T>::value) {
        Decoder d(value, std::move(path));
        auto u = d.unkeyed();
        T out;
        out.reserve(u.count());
        while (!u.isAtEnd())
            out.push_back(u.template decode<typename T::value_type>());
        return out;
    } else {
        static_assert(SelfDecodable<T>, "type has no static decode(const coding::Decoder&)");
        return T::decode(Decoder(value, std::move(path)));
    }
}

} // namespace bic::coding
