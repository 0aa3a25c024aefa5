#pragma once
// Filters: named image operations with key-value inputs, created by name from one registry.
//
// The engine registers its built-in filters ("CIColorMatrix", "CIGaussianBlur", …) with the
// platform's input names and defaults; the library and an editor may register more, either as a
// definition (inputs plus an output function) or as a constructor of a Filter subclass.

#include "bic/platform/cg/affine_transform.hpp"
#include "bic/platform/cg/color_space.hpp"
#include "bic/platform/ci/image.hpp"

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace bic::ci {

/// An object passed by reference among a kernel's arguments (a cache shared by the calls of one
/// application, say).
class ArgumentObject {
public:
    virtual ~ArgumentObject() = default;
};

/// An input value: none, an image, a number, a vector, a colour, a transform, bytes, text, a
/// Boolean, a shared object or a colour space.
using FilterValue = std::variant<std::monostate, Image, double, std::vector<double>, Color,
                                 cg::AffineTransform, std::vector<std::uint8_t>, std::string, bool,
                                 std::shared_ptr<ArgumentObject>, cg::ColorSpace>;
using FilterParameters = std::vector<std::pair<std::string, FilterValue>>;

/// An optional value as an input value: none for nothing.
template <class T>
FilterValue filterValue(const std::optional<T>& value) {
    return value ? FilterValue(*value) : FilterValue();
}
/// A filter was asked for an input it does not have.
class UnknownFilterInputError : public std::invalid_argument {
public:
    UnknownFilterInputError(const std::string& filter, const std::string& key);
    const std::string& key() const { return key_; }

private:
    std::string key_;
};

class Filter {
public:
    struct Input {
        std::string key;
        FilterValue defaultValue;
    };
    using Output = std::function<std::optional<Image>(const Filter&)>;
    using Constructor = std::function<std::shared_ptr<Filter>()>;

    Filter(std::string name, std::vector<Input> inputs, Output output = {});
    virtual ~Filter() = default;

    /// A new filter of the registered name with default inputs; nothing for unknown names.
    static std::shared_ptr<Filter> named(std::string_view name);
    /// Registers (or replaces) a filter made from inputs and an output function.
    static void registerFilter(std::string name, std::vector<Input> inputs, Output output);
    /// Registers (or replaces) a constructor for `name`.
    static void registerConstructor(std::string name, Constructor constructor);
    static std::vector<std::string> filterNames();

    const std::string& name() const { return name_; }
    std::vector<std::string> inputKeys() const;
    /// Throws UnknownFilterInputError for keys the filter does not have.
    void setValue(std::string_view key, FilterValue value);
    const FilterValue& value(std::string_view key) const;
    void setDefaults();

    /// Typed reads of inputs; nothing when unset or of another type.
    std::optional<Image> image(std::string_view key) const;
    std::optional<double> number(std::string_view key) const;
    std::optional<std::vector<double>> vector(std::string_view key) const;
    std::optional<Color> color(std::string_view key) const;
    template <class T>
    std::optional<T> valueAs(std::string_view key) const {
        if (const T* v = std::get_if<T>(&value(key))) return *v;
        return std::nullopt;
    }

    /// The result; nothing when a required input is missing.
    virtual std::optional<Image> outputImage() const;

private:
    std::string name_;
    std::vector<Input> inputs_;
    std::vector<FilterValue> values_;
    Output output_;
};

/// Makes filters for the registry; what it makes for a name is its own affair.
class FilterConstructor {
public:
    virtual ~FilterConstructor() = default;
    virtual std::shared_ptr<Filter> filterWithName(std::string_view name) const = 0;
};

/// Registers (or replaces) `constructor` for `name`; Filter::named(name) then asks it.
void registerFilterName(std::string name, std::shared_ptr<const FilterConstructor> constructor);

/// The constructor of the filter class F: whatever the name, a new F.
template <class F>
class ClassConstructor final : public FilterConstructor {
public:
    std::shared_ptr<Filter> filterWithName(std::string_view) const override {
        return std::make_shared<F>();
    }
};

/// Registers the filter class F under its own name.
template <class F>
void registerFilterClass() {
    registerFilterName(F().name(), std::make_shared<ClassConstructor<F>>());
}

/// `image` as the filter's "inputImage", the parameters set on top; nothing for unknown filters
/// or when the filter has no output. Unknown parameter keys throw UnknownFilterInputError.
std::optional<Image> applyingFilter(const Image& image, std::string_view name,
                                    const FilterParameters& parameters = {});

} // namespace bic::ci
