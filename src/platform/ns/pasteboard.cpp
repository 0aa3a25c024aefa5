#include "bic/platform/ns/pasteboard.hpp"

#include "bic/platform/coding/formats.hpp"

namespace bic::ns {

namespace {
std::mutex& generalMutex() {
    static std::mutex m;
    return m;
}
std::shared_ptr<Pasteboard>& generalSlot() {
    static std::shared_ptr<Pasteboard> p = std::make_shared<MemoryPasteboard>();
    return p;
}
} // namespace

std::shared_ptr<Pasteboard> Pasteboard::general() {
    std::lock_guard lock(generalMutex());
    return generalSlot();
}

void Pasteboard::setGeneral(std::shared_ptr<Pasteboard> pasteboard) {
    std::lock_guard lock(generalMutex());
    generalSlot() = pasteboard ? std::move(pasteboard) : std::make_shared<MemoryPasteboard>();
}

void MemoryPasteboard::clearContents() {
    std::lock_guard lock(mutex_);
    items_.clear();
}

void MemoryPasteboard::setData(std::string_view type, PasteboardData data) {
    std::lock_guard lock(mutex_);
    for (auto& [t, d] : items_) {
        if (t == type) {
            d = std::move(data);
            return;
        }
    }
    items_.emplace_back(std::string(type), std::move(data));
}

std::optional<PasteboardData> MemoryPasteboard::data(std::string_view type) const {
    std::lock_guard lock(mutex_);
    for (const auto& [t, d] : items_)
        if (t == type) return d;
    return std::nullopt;
}

std::vector<std::string> MemoryPasteboard::types() const {
    std::lock_guard lock(mutex_);
    std::vector<std::string> out;
    for (const auto& item : items_)
        out.push_back(item.first);
    return out;
}

void writeColor(Pasteboard& pasteboard, const cg::Color& color) {
    coding::Dictionary d;
    const auto& name = color.colorSpace().name();
    d.emplace_back("Color Space",
                   name ? coding::Value(*name) : coding::Value(color.colorSpace().iccData()));
    coding::Array components;
    for (double c : color.components())
        components.emplace_back(c);
    d.emplace_back("Components", coding::Value(std::move(components)));
    pasteboard.setData(pasteboard_type::color,
                       coding::writePropertyList(coding::Value(std::move(d))));
}

std::optional<cg::Color> readColor(const Pasteboard& pasteboard) {
    const auto bytes = pasteboard.data(pasteboard_type::color);
    if (!bytes) return std::nullopt;
    try {
        const coding::Value root = coding::readPropertyList(*bytes);
        const coding::Value* spaceValue = root.find("Color Space");
        const coding::Value* componentsValue = root.find("Components");
        if (!spaceValue || !componentsValue) return std::nullopt;
        std::optional<cg::ColorSpace> space;
        if (const auto* name = spaceValue->get<std::string>())
            space = cg::ColorSpace::named(*name);
        else if (const auto* icc = spaceValue->get<coding::Data>())
            space = cg::ColorSpace::fromICCProfile(*icc);
        if (!space) return std::nullopt;
        return cg::Color::make(*space, coding::decode<std::vector<double>>(*componentsValue));
    } catch (const coding::DecodingError&) {
        return std::nullopt;
    }
}

} // namespace bic::ns
