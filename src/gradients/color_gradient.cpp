#include "bic/gradients/color_gradient.hpp"

#include "bic/core/image_core_error.hpp"
#include "bic/platform/cg/color.hpp"
#include "bic/resources/localization.hpp"

#include <algorithm>
#include <cstring>

namespace bic {

namespace {

double clamp01(double v) { return v < 0 ? 0 : (v > 1 ? 1 : v); }
double clampMidpoint(double v) { return v < 0.05 ? 0.05 : (v > 0.95 ? 0.95 : v); }

template <class Stop>
void sortByLocation(std::vector<Stop>& stops) {
    std::stable_sort(stops.begin(), stops.end(),
                     [](const Stop& a, const Stop& b) { return a.location < b.location; });
}

// What a stop contributes to a sample, and how two of them mix.
PixelRGBA32 halfWay(const ColorStop& a, const ColorStop& b, float f) {
    return {a.color.red() + (b.color.red() - a.color.red()) * f,
            a.color.green() + (b.color.green() - a.color.green()) * f,
            a.color.blue() + (b.color.blue() - a.color.blue()) * f, 1.0f};
}
double halfWay(const OpacityStop& a, const OpacityStop& b, double f) {
    return a.opacity + (b.opacity - a.opacity) * f;
}
ColorStop synthetic(const ColorStop& a, const ColorStop& b, double location) {
    return {halfWay(a, b, 0.5f), location, 0.5};
}
OpacityStop synthetic(const OpacityStop& a, const OpacityStop& b, double location) {
    return {halfWay(a, b, 0.5), location, 0.5};
}

template <class Stop>
std::vector<Stop> expanded(const std::vector<Stop>& stops) {
    std::vector<Stop> out;
    out.reserve(stops.size() * 2);
    for (std::size_t i = 0; i < stops.size(); ++i) {
        const Stop& b = stops[i];
        if (i > 0 && b.midPoint != 0.5) {
            const Stop& a = stops[i - 1];
            out.push_back(
                synthetic(a, b, clamp01(a.location + (b.location - a.location) * b.midPoint)));
        }
        out.push_back(b);
    }
    return out;
}

// The two stops of the expanded list that enclose `t`; `upper` is null when `t` needs no
// interpolation (before the first stop, at or past the last, or between coincident stops).
template <class Stop>
std::pair<const Stop*, const Stop*> enclosing(const std::vector<Stop>& e, double t) {
    const Stop* lower = &e.front();
    const Stop* upper = nullptr;
    for (const Stop& s : e) {
        if (s.location <= t) {
            lower = &s;
        } else if (s.location > t) {
            upper = &s;
            break;
        }
    }
    if (!upper) upper = &e.back();
    if (!(upper->location - lower->location > 0)) return {lower, nullptr};
    return {lower, upper};
}

PixelRGBA32 sampleColor(const std::vector<ColorStop>& e, double t) {
    const auto [lower, upper] = enclosing(e, t);
    if (!upper) return lower->color;
    const auto f = float((t - lower->location) / (upper->location - lower->location));
    return halfWay(*lower, *upper, f);
}

double sampleOpacity(const std::vector<OpacityStop>& e, double t) {
    const auto [lower, upper] = enclosing(e, t);
    if (!upper) return lower->opacity;
    return halfWay(*lower, *upper, (t - lower->location) / (upper->location - lower->location));
}

template <class Stop>
void encodeStop(coding::KeyedEncoder& k, const Stop& s) {
    k.encode("Location", s.location);
    if (s.midPoint != 0.5) k.encode("Midpoint", s.midPoint);
}

constexpr std::string_view kColorStops = "Color Stops", kOpacityStops = "Opacity Stops";

// ---- The property-list form ----

std::optional<double> number(const coding::Value& dictionary, std::string_view key) {
    const coding::Value* v = dictionary.find(key);
    if (!v) return std::nullopt;
    if (const double* d = v->get<double>()) return *d;
    if (const std::int64_t* i = v->get<std::int64_t>()) return double(*i);
    return std::nullopt;
}

// The entries of an array of dictionaries; nothing when the value is anything else.
std::optional<std::vector<const coding::Value*>> dictionaries(const coding::Value& plist,
                                                              std::string_view key) {
    const coding::Value* v = plist.find(key);
    const coding::Array* array = v ? v->get<coding::Array>() : nullptr;
    if (!array) return std::nullopt;
    std::vector<const coding::Value*> out;
    for (const coding::Value& entry : *array) {
        if (!entry.get<coding::Dictionary>()) return std::nullopt;
        out.push_back(&entry);
    }
    return out;
}

std::optional<ColorStop> plistColorStop(const coding::Value& d) {
    const coding::Value* text = d.find("Color");
    const std::string* s = text ? text->get<std::string>() : nullptr;
    const auto location = number(d, "Location"), midPoint = number(d, "Mid Point");
    if (!s || !location || !midPoint) return std::nullopt;
    const auto color = PixelRGBA32::fromStringRepresentation(*s);
    if (!color) return std::nullopt;
    return ColorStop(*color, *location, *midPoint);
}

std::optional<OpacityStop> plistOpacityStop(const coding::Value& d) {
    const auto opacity = number(d, "Opacity"), location = number(d, "Location"),
               midPoint = number(d, "Mid Point");
    if (!opacity || !location || !midPoint) return std::nullopt;
    return OpacityStop(*opacity, *location, *midPoint);
}

template <class Stop, class Read>
std::optional<std::vector<Stop>> plistStops(const coding::Value& plist, std::string_view key,
                                            Read read) {
    const auto entries = dictionaries(plist, key);
    if (!entries) return std::nullopt;
    std::vector<Stop> stops;
    for (const coding::Value* entry : *entries) {
        auto stop = read(*entry);
        if (!stop) return std::nullopt;
        stops.push_back(*stop);
    }
    if (stops.size() < 2) return std::nullopt;
    return stops;
}

coding::Value plistEntry(const ColorStop& s) {
    return coding::Dictionary{{"Color", s.color.stringRepresentation()},
                              {"Location", s.location},
                              {"Mid Point", s.midPoint}};
}
coding::Value plistEntry(const OpacityStop& s) {
    return coding::Dictionary{
        {"Opacity", s.opacity}, {"Location", s.location}, {"Mid Point", s.midPoint}};
}

template <class Stop>
coding::Value plistArray(const std::vector<Stop>& stops) {
    coding::Array out;
    for (const Stop& s : stops)
        out.push_back(plistEntry(s));
    return out;
}

template <class Stop>
std::vector<Stop> decodedStops(const coding::KeyedDecoder& k, std::string_view key,
                               std::vector<Stop> fallback) {
    auto stops = k.decodeIfPresent<std::vector<Stop>>(key);
    if (!stops) return fallback;
    if (stops->size() < 2) {
        coding::CodingPath path = k.codingPath();
        path.emplace_back(key);
        throw coding::DecodingError(coding::DecodingError::Kind::dataCorrupted, std::move(path),
                                    "A gradient needs at least two stops.");
    }
    return std::move(*stops);
}

const std::vector<ColorStop>& blackWhiteStops() {
    static const std::vector<ColorStop> stops{{{0, 0, 0, 1}, 0}, {{1, 1, 1, 1}, 1}};
    return stops;
}
const std::vector<OpacityStop>& opaqueStops() {
    static const std::vector<OpacityStop> stops{{1, 0}, {1, 1}};
    return stops;
}

} // namespace

std::vector<ColorStop> midpointExpanded(const std::vector<ColorStop>& stops) {
    return expanded(stops);
}
std::vector<OpacityStop> midpointExpanded(const std::vector<OpacityStop>& stops) {
    return expanded(stops);
}

// ---- Stops ----

void ColorStop::encode(coding::Encoder& encoder) const {
    auto k = encoder.keyed();
    k.encode("Color", color);
    encodeStop(k, *this);
}

ColorStop ColorStop::decode(const coding::Decoder& decoder) {
    const auto k = decoder.keyed();
    return {k.decode<PixelRGBA32>("Color"), k.decode("Location", 0.0, 1.0),
            k.decodeIfPresent("Midpoint", 0.05, 0.95).value_or(0.5)};
}

void OpacityStop::encode(coding::Encoder& encoder) const {
    auto k = encoder.keyed();
    k.encode("Opacity", opacity);
    encodeStop(k, *this);
}

OpacityStop OpacityStop::decode(const coding::Decoder& decoder) {
    const auto k = decoder.keyed();
    return {k.decode("Opacity", 0.0, 1.0), k.decode("Location", 0.0, 1.0),
            k.decodeIfPresent("Midpoint", 0.05, 0.95).value_or(0.5)};
}

// ---- Gradient types ----

namespace {
struct TypeInfo {
    std::string_view rawValue, displayKey;
};
constexpr TypeInfo kTypes[] = {{"Linear", "Linear"},   {"Radial", "Radial"},
                               {"Angle", "Angle"},     {"Reflected", "Reflected"},
                               {"Diamond", "Diamond"}, {"Shaped", "Shaped by Content"}};
} // namespace

const std::array<GradientType, 6>& GradientType::allCases() {
    static constexpr std::array<GradientType, 6> all{linear,    radial,  angle,
                                                     reflected, diamond, shaped};
    return all;
}

std::optional<GradientType> GradientType::fromTag(int tag) {
    if (tag < 0 || tag > 5) return std::nullopt;
    return GradientType(Case(tag));
}

std::optional<GradientType> GradientType::fromRawValue(std::string_view rawValue) {
    for (const GradientType t : allCases())
        if (t.rawValue() == rawValue) return t;
    return std::nullopt;
}

std::string_view GradientType::rawValue() const { return kTypes[case_].rawValue; }

std::string GradientType::localizedName() const {
    return resources::localizedString("Localizable", kTypes[case_].displayKey);
}

void GradientType::encode(coding::Encoder& encoder) const {
    encoder.encodeSingle(std::string(rawValue()));
}

GradientType GradientType::decode(const coding::Decoder& decoder) {
    if (const auto t = fromRawValue(decoder.decodeSingle<std::string>())) return *t;
    throw coding::FileReadCorruptError();
}

// ---- The gradient ----

ColorGradient::ColorGradient() : ColorGradient(blackWhiteStops(), opaqueStops()) {}

std::optional<ColorGradient> ColorGradient::make(std::vector<ColorStop> colorStops,
                                                 std::vector<OpacityStop> opacityStops) {
    if (colorStops.size() < 2 || opacityStops.size() < 2) return std::nullopt;
    sortByLocation(colorStops);
    sortByLocation(opacityStops);
    return ColorGradient(std::move(colorStops), std::move(opacityStops));
}

ColorGradient& ColorGradient::blackToWhite() {
    static ColorGradient g;
    return g;
}

ColorGradient& ColorGradient::blackToTransparent() {
    static ColorGradient g({{{0, 0, 0, 1}, 0}, {{0, 0, 0, 1}, 1}}, {{1, 0}, {0, 1}});
    return g;
}

ColorGradient& ColorGradient::whiteToTransparent() {
    static ColorGradient g({{{1, 1, 1, 1}, 0}, {{1, 1, 1, 1}, 1}}, {{1, 0}, {0, 1}});
    return g;
}

void ColorGradient::addColorStop(const ColorStop& stop) {
    std::erase_if(colorStops_, [&](const ColorStop& s) { return s.location == stop.location; });
    colorStops_.push_back(stop);
    sortByLocation(colorStops_);
    changed();
}

void ColorGradient::addOpacityStop(const OpacityStop& stop) {
    std::erase_if(opacityStops_, [&](const OpacityStop& s) { return s.location == stop.location; });
    opacityStops_.push_back(stop);
    sortByLocation(opacityStops_);
    changed();
}

void ColorGradient::removeColorStop(std::size_t atIndex) {
    if (atIndex >= colorStops_.size() || colorStops_.size() < 3) return;
    colorStops_.erase(colorStops_.begin() + std::ptrdiff_t(atIndex));
    changed();
}

void ColorGradient::removeOpacityStop(std::size_t atIndex) {
    if (atIndex >= opacityStops_.size() || opacityStops_.size() < 3) return;
    opacityStops_.erase(opacityStops_.begin() + std::ptrdiff_t(atIndex));
    changed();
}

void ColorGradient::changeColorOfStop(std::size_t atIndex, const PixelRGBA32& to) {
    edit(colorStops_, atIndex, [&](ColorStop& s) {
        s.color = {to.red(), to.green(), to.blue(), 1.0f};
    });
}

void ColorGradient::changeOpacityOfStop(std::size_t atIndex, double to) {
    edit(opacityStops_, atIndex, [&](OpacityStop& s) { s.opacity = to; });
}

void ColorGradient::changeLocationOfColorStop(std::size_t adIndex, double to) {
    edit(colorStops_, adIndex, [&](ColorStop& s) { s.location = clamp01(to); });
}

void ColorGradient::changeLocationOfOpacityStop(std::size_t adIndex, double to) {
    edit(opacityStops_, adIndex, [&](OpacityStop& s) { s.location = clamp01(to); });
}

void ColorGradient::changeMidpointOfColorStop(std::size_t adIndex, double to) {
    edit(colorStops_, adIndex, [&](ColorStop& s) { s.midPoint = clampMidpoint(to); });
}

void ColorGradient::changeMidpointOfOpacityStop(std::size_t adIndex, double to) {
    edit(opacityStops_, adIndex, [&](OpacityStop& s) { s.midPoint = clampMidpoint(to); });
}

void ColorGradient::reverse() {
    // A segment's midpoint belongs to the stop that ends it; mirrored, that stop starts the
    // segment, so each midpoint moves one stop down as 1 − m.
    const std::size_t colors = colorStops_.size();
    for (std::size_t i = 0; i < colors; ++i) {
        changeLocationOfColorStop(i, 1 - colorStops_[i].location);
        if (i > 0) changeMidpointOfColorStop(i - 1, 1 - colorStops_[i].midPoint);
    }
    sortByLocation(colorStops_);
    const std::size_t opacities = opacityStops_.size();
    for (std::size_t i = 0; i < opacities; ++i) {
        changeLocationOfOpacityStop(i, 1 - opacityStops_[i].location);
        if (i > 0) changeMidpointOfOpacityStop(i - 1, 1 - opacityStops_[i].midPoint);
    }
    sortByLocation(opacityStops_);
    changed();
}

void ColorGradient::convertColorSpace(const cg::ColorSpace& from, const cg::ColorSpace& to,
                                      cg::RenderingIntent intent) {
    std::vector<ColorStop> converted = colorStops_;
    for (ColorStop& stop : converted) {
        if (to.model() != cg::ColorSpaceModel::rgb)
            throw ImageCoreError(ImageCoreError::parameterError);
        const PixelRGBA32& c = stop.color;
        const auto color = cg::Color::make(
            from, {double(c.red()), double(c.green()), double(c.blue()), double(c.alpha())});
        const auto matched = color ? color->matched(to, intent) : std::nullopt;
        if (!matched || matched->components().size() < 4)
            throw ImageCoreError(ImageCoreError::unknownError,
                                 "a stop colour could not be matched to the target colour space");
        const auto& m = matched->components();
        stop.color = {float(m[0]), float(m[1]), float(m[2]), 1.0f};
    }
    colorStops_ = std::move(converted);
    changed();
}

PixelRGBA32 ColorGradient::colorAtLocation(double location) const {
    return sampleColor(expanded(colorStops_), location);
}

double ColorGradient::opacityAtLocation(double location) const {
    return sampleOpacity(expanded(opacityStops_), location);
}

const std::vector<std::uint8_t>& ColorGradient::mappingData() const {
    if (!mapping_) {
        // One expansion serves all 256 samples; each sample is what the two samplers give.
        const auto colors = expanded(colorStops_);
        const auto opacities = expanded(opacityStops_);
        auto table = std::make_shared<std::vector<std::uint8_t>>(256 * 4 * sizeof(float));
        for (int i = 0; i < 256; ++i) {
            const double t = double(i) / 255.0;
            const PixelRGBA32 c = sampleColor(colors, t);
            const float entry[4] = {c.red(), c.green(), c.blue(),
                                    float(sampleOpacity(opacities, t))};
            std::memcpy(table->data() + std::size_t(i) * sizeof entry, entry, sizeof entry);
        }
        mapping_ = std::move(table);
    }
    return *mapping_;
}

coding::Value ColorGradient::plistRepresentation() const {
    return coding::Dictionary{{std::string(kColorStops), plistArray(colorStops_)},
                              {std::string(kOpacityStops), plistArray(opacityStops_)}};
}

std::optional<ColorGradient> ColorGradient::fromPlistRepresentation(const coding::Value& plist) {
    const coding::Dictionary* d = plist.get<coding::Dictionary>();
    if (!d || d->empty()) return std::nullopt;
    auto colors = plistStops<ColorStop>(plist, kColorStops, plistColorStop);
    if (!colors) return std::nullopt;
    auto opacities = plistStops<OpacityStop>(plist, kOpacityStops, plistOpacityStop);
    if (!opacities) return std::nullopt;
    return ColorGradient(std::move(*colors), std::move(*opacities));
}

void ColorGradient::encode(coding::Encoder& encoder) const {
    auto k = encoder.keyed();
    k.encode(kColorStops, colorStops_);
    k.encode(kOpacityStops, opacityStops_);
}

ColorGradient ColorGradient::decode(const coding::Decoder& decoder) {
    const auto k = decoder.keyed();
    auto colors = decodedStops(k, kColorStops, blackWhiteStops());
    auto opacities = decodedStops(k, kOpacityStops, opaqueStops());
    return ColorGradient(std::move(colors), std::move(opacities));
}

bool operator==(const ColorGradient& a, const ColorGradient& b) {
    return a.colorStops_ == b.colorStops_ && a.opacityStops_ == b.opacityStops_ &&
           a.title_ == b.title_;
}

} // namespace bic
