#include "bic/platform/ci/filter.hpp"

#include <map>
#include <mutex>

namespace bic::ci {

namespace detail {
/// Adds the engine's built-in filters to a registry being made.
void registerBuiltinFilters(std::map<std::string, Filter::Constructor, std::less<>>& registry);
} // namespace detail

namespace {

struct Registry {
    std::mutex mutex;
    std::map<std::string, Filter::Constructor, std::less<>> constructors;
};

Registry& registry() {
    static Registry* r = [] {
        auto* made = new Registry; // lives for the process; filters may be made during exit
        detail::registerBuiltinFilters(made->constructors);
        return made;
    }();
    return *r;
}

template <class T>
std::optional<T> get(const FilterValue& v) {
    if (const T* t = std::get_if<T>(&v)) return *t;
    return std::nullopt;
}

} // namespace

UnknownFilterInputError::UnknownFilterInputError(const std::string& filter, const std::string& key)
    : std::invalid_argument("The filter " + filter + " has no input \"" + key + "\"."), key_(key) {}

Filter::Filter(std::string name, std::vector<Input> inputs, Output output)
    : name_(std::move(name)), inputs_(std::move(inputs)), output_(std::move(output)) {
    setDefaults();
}

std::shared_ptr<Filter> Filter::named(std::string_view name) {
    Constructor make;
    {
        Registry& r = registry();
        std::lock_guard lock(r.mutex);
        const auto it = r.constructors.find(name);
        if (it == r.constructors.end()) return nullptr;
        make = it->second;
    }
    return make();
}

void Filter::registerFilter(std::string name, std::vector<Input> inputs, Output output) {
    registerConstructor(
        name, [name, inputs, output] { return std::make_shared<Filter>(name, inputs, output); });
}

void Filter::registerConstructor(std::string name, Constructor constructor) {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    r.constructors.insert_or_assign(std::move(name), std::move(constructor));
}

void registerFilterName(std::string name, std::shared_ptr<const FilterConstructor> constructor) {
    Filter::registerConstructor(name,
                                [name, constructor] { return constructor->filterWithName(name); });
}

std::vector<std::string> Filter::filterNames() {
    Registry& r = registry();
    std::lock_guard lock(r.mutex);
    std::vector<std::string> names;
    for (const auto& entry : r.constructors)
        names.push_back(entry.first);
    return names;
}

std::vector<std::string> Filter::inputKeys() const {
    std::vector<std::string> keys;
    for (const auto& input : inputs_)
        keys.push_back(input.key);
    return keys;
}

void Filter::setValue(std::string_view key, FilterValue value) {
    for (std::size_t i = 0; i < inputs_.size(); ++i) {
        if (inputs_[i].key == key) {
            values_[i] = std::move(value);
            return;
        }
    }
    throw UnknownFilterInputError(name_, std::string(key));
}

const FilterValue& Filter::value(std::string_view key) const {
    for (std::size_t i = 0; i < inputs_.size(); ++i)
        if (inputs_[i].key == key) return values_[i];
    throw UnknownFilterInputError(name_, std::string(key));
}

void Filter::setDefaults() {
    values_.clear();
    for (const auto& input : inputs_)
        values_.push_back(input.defaultValue);
}

std::optional<Image> Filter::image(std::string_view key) const { return get<Image>(value(key)); }
std::optional<double> Filter::number(std::string_view key) const { return get<double>(value(key)); }
std::optional<std::vector<double>> Filter::vector(std::string_view key) const {
    return get<std::vector<double>>(value(key));
}
std::optional<Color> Filter::color(std::string_view key) const { return get<Color>(value(key)); }

std::optional<Image> Filter::outputImage() const {
    if (!output_) return std::nullopt;
    return output_(*this);
}

std::optional<Image> applyingFilter(const Image& image, std::string_view name,
                                    const FilterParameters& parameters) {
    const auto filter = Filter::named(name);
    if (!filter) return std::nullopt;
    filter->setValue("inputImage", image);
    for (const auto& [key, value] : parameters)
        filter->setValue(key, value);
    return filter->outputImage();
}

} // namespace bic::ci
