#include "bic/platform/coding/value.hpp"

#include <charconv>

namespace bic::coding {

Value::Value(float f) {
    char buffer[64];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, f);
    double d = 0;
    std::from_chars(buffer, result.ptr, d);
    v_ = d;
}

const Value* Value::find(std::string_view key) const {
    const Dictionary* d = get<Dictionary>();
    if (!d) return nullptr;
    for (const auto& [k, v] : *d)
        if (k == key) return &v;
    return nullptr;
}

std::string_view kindName(Value::Kind kind) {
    switch (kind) {
    case Value::Kind::null:
        return "null";
    case Value::Kind::boolean:
        return "boolean";
    case Value::Kind::integer:
        return "integer";
    case Value::Kind::real:
        return "real";
    case Value::Kind::string:
        return "string";
    case Value::Kind::data:
        return "data";
    case Value::Kind::date:
        return "date";
    case Value::Kind::array:
        return "array";
    case Value::Kind::dictionary:
        return "dictionary";
    }
    return "unknown";
}

} // namespace bic::coding
