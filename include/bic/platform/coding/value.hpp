#pragma once
// The property-list value tree every serialised form of the library passes through.
//
// One tree serves the three file forms (XML and binary property lists, JSON), so a type writes
// its encode/decode once. Dictionaries keep insertion order so that written files are stable.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace bic::coding {

using Data = std::vector<std::uint8_t>;

/// A point in time as seconds since 2001-01-01 00:00:00 UTC, the property-list epoch.
/// Property lists keep whole seconds; JSON keeps the fraction.
struct Date {
    double secondsSinceReferenceDate = 0;
    friend bool operator==(const Date&, const Date&) = default;
};

class Value;
using Array = std::vector<Value>;
using Dictionary = std::vector<std::pair<std::string, Value>>;

class Value {
public:
    enum class Kind { null, boolean, integer, real, string, data, date, array, dictionary };

    Value() = default;
    Value(bool b) : v_(b) {}
    Value(std::int64_t i) : v_(i) {}
    Value(int i) : v_(std::int64_t{i}) {}
    Value(double d) : v_(d) {}
    /// Stores the double closest to the float's shortest decimal form, so that text forms show
    /// 0.1 rather than 0.100000001490116 and the float reads back bit for bit.
    Value(float f);
    Value(std::string s) : v_(std::move(s)) {}
    Value(const char* s) : v_(std::string(s)) {}
    Value(Data d) : v_(std::move(d)) {}
    Value(Date d) : v_(d) {}
    Value(Array a) : v_(std::move(a)) {}
    Value(Dictionary d) : v_(std::move(d)) {}

    Kind kind() const { return static_cast<Kind>(v_.index()); }
    bool isNull() const { return kind() == Kind::null; }

    template <class T>
    const T* get() const {
        return std::get_if<T>(&v_);
    }
    template <class T>
    T* get() {
        return std::get_if<T>(&v_);
    }

    /// The value stored under `key` of a dictionary, or nullptr.
    const Value* find(std::string_view key) const;

    friend bool operator==(const Value&, const Value&) = default;

private:
    std::variant<std::monostate, bool, std::int64_t, double, std::string, Data, Date, Array,
                 Dictionary>
        v_;
};

/// A readable name of a kind ("dictionary", "integer", …) for error messages.
std::string_view kindName(Value::Kind kind);

} // namespace bic::coding
