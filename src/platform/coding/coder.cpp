#include "bic/platform/coding/coder.hpp"

#include "bic/platform/coding/formats.hpp"

#include <cmath>

namespace bic::coding {

KeyedEncoder Encoder::keyed() {
    if (!slot_.get<Dictionary>()) slot_ = Value(Dictionary{});
    return KeyedEncoder(*slot_.get<Dictionary>(), path_);
}

UnkeyedEncoder Encoder::unkeyed() {
    if (!slot_.get<Array>()) slot_ = Value(Array{});
    return UnkeyedEncoder(*slot_.get<Array>(), path_);
}

void KeyedEncoder::put(std::string_view key, Value v) {
    for (auto& [k, existing] : dict_) {
        if (k == key) {
            existing = std::move(v);
            return;
        }
    }
    dict_.emplace_back(std::string(key), std::move(v));
}

KeyedDecoder Decoder::keyed() const {
    if (!value_.get<Dictionary>()) detail::typeMismatch(value_, "Dictionary", path_);
    return KeyedDecoder(value_, path_);
}

UnkeyedDecoder Decoder::unkeyed() const {
    const Array* a = value_.get<Array>();
    if (!a) detail::typeMismatch(value_, "Array", path_);
    return UnkeyedDecoder(*a, path_);
}

const Value& KeyedDecoder::require(std::string_view key) const {
    const Value* v = dict_.find(key);
    if (!v)
        throw DecodingError(DecodingError::Kind::keyNotFound, path_,
                            "No value associated with key \"" + std::string(key) + "\".");
    if (v->isNull())
        throw DecodingError(DecodingError::Kind::valueNotFound, pathFor(key),
                            "Expected a value but found null instead.");
    return *v;
}

CodingPath KeyedDecoder::pathFor(std::string_view key) const {
    CodingPath p = path_;
    p.emplace_back(key);
    return p;
}

void KeyedDecoder::outOfRange(std::string_view key) const {
    throw DecodingError(DecodingError::Kind::dataCorrupted, pathFor(key),
                        "Value out of the accepted range.");
}

const Value& UnkeyedDecoder::next() {
    if (isAtEnd())
        throw DecodingError(DecodingError::Kind::valueNotFound, pathFor(index_),
                            "Unkeyed container is at end.");
    return array_[index_++];
}

CodingPath UnkeyedDecoder::pathFor(std::size_t i) const {
    CodingPath p = path_;
    p.push_back("Index " + std::to_string(i));
    return p;
}

namespace detail {

void typeMismatch(const Value& v, std::string_view expected, const CodingPath& path) {
    if (v.isNull())
        throw DecodingError(DecodingError::Kind::valueNotFound, path,
                            "Expected " + std::string(expected) + " but found null instead.");
    throw DecodingError(DecodingError::Kind::typeMismatch, path,
                        "Expected to decode " + std::string(expected) + " but found " +
                            std::string(kindName(v.kind())) + " instead.");
}

void doesNotFit(const Value&, std::string_view type, const CodingPath& path) {
    throw DecodingError(DecodingError::Kind::dataCorrupted, path,
                        "Parsed number does not fit in " + std::string(type) + ".");
}

std::int64_t integerValue(const Value& v, const CodingPath& path) {
    if (const std::int64_t* i = v.get<std::int64_t>()) return *i;
    if (const double* d = v.get<double>()) {
        // JSON writers may spell whole numbers as reals; anything fractional is no integer.
        if (std::isfinite(*d) && std::trunc(*d) == *d && *d >= -9223372036854775808.0 &&
            *d < 9223372036854775808.0)
            return static_cast<std::int64_t>(*d);
        doesNotFit(v, "integer", path);
    }
    typeMismatch(v, "Int", path);
}

std::uint64_t unsignedValue(const Value& v, const CodingPath& path) {
    const std::int64_t i = integerValue(v, path);
    if (i < 0) doesNotFit(v, "unsigned integer", path);
    return static_cast<std::uint64_t>(i);
}

double realValue(const Value& v, const CodingPath& path) {
    if (const double* d = v.get<double>()) return *d;
    if (const std::int64_t* i = v.get<std::int64_t>()) return static_cast<double>(*i);
    typeMismatch(v, "Double", path);
}

Data dataValue(const Value& v, const CodingPath& path) {
    if (const Data* d = v.get<Data>()) return *d;
    if (const std::string* s = v.get<std::string>()) {
        Data out;
        if (base64Decode(*s, out)) return out;
        throw DecodingError(DecodingError::Kind::dataCorrupted, path,
                            "Encountered Data is not valid Base64.");
    }
    typeMismatch(v, "Data", path);
}

} // namespace detail
} // namespace bic::coding
