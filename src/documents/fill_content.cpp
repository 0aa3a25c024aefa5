#include "bic/documents/fill_content.hpp"

#include "bic/documents/descriptor.hpp"
#include "bic/documents/document_error.hpp"
#include "bic/platform/coding/compression.hpp"
#include "byte_io.hpp"

#include <algorithm>
#include <cmath>

namespace bic {

namespace {

// HSB (hue in degrees, saturation and brightness in percent) to RGB on 0…1.
PixelRGBA32 fromHSB(double h, double s, double b) {
    s = std::clamp(s / 100, 0.0, 1.0), b = std::clamp(b / 100, 0.0, 1.0);
    h = std::fmod(std::isfinite(h) ? h : 0, 360.0);
    if (h < 0) h += 360;
    const double c = b * s, x = c * (1 - std::abs(std::fmod(h / 60, 2.0) - 1)), m = b - c;
    double r = 0, g = 0, bl = 0;
    switch (int(h / 60) % 6) {
    case 0:
        r = c, g = x;
        break;
    case 1:
        r = x, g = c;
        break;
    case 2:
        g = c, bl = x;
        break;
    case 3:
        g = x, bl = c;
        break;
    case 4:
        r = x, bl = c;
        break;
    default:
        r = c, bl = x;
        break;
    }
    return PixelRGBA32(float(r + m), float(g + m), float(bl + m), 1);
}

// A finite number from a descriptor, or `fallback` (the format never stores NaN on purpose).
double finite(std::optional<double> v, double fallback) {
    return v && std::isfinite(*v) ? *v : fallback;
}

// One channel of a gradient's stops: a value, its location and the midpoint of the segment
// that ends at it.
struct Knot {
    double location, value, midPoint;
};

// The smooth curve through `knots` at `t` (see smoothedGradient).
double smoothValue(const std::vector<Knot>& knots, double t) {
    const std::size_t n = knots.size();
    if (t <= knots.front().location) return knots.front().value;
    if (t >= knots.back().location) return knots.back().value;
    std::size_t i = 0;
    while (i + 2 < n && t > knots[i + 1].location)
        ++i;
    const Knot &a = knots[i], &b = knots[i + 1];
    const double span = b.location - a.location;
    if (!(span > 0)) return b.value;
    auto slope = [&](std::size_t k) {
        if (k == 0 || k == n - 1) {
            const Knot &p = knots[k == 0 ? 0 : n - 2], &q = knots[k == 0 ? 1 : n - 1];
            const double d = q.location - p.location;
            return d > 0 ? 0.5 * (q.value - p.value) / d : 0.0;
        }
        const double d = knots[k + 1].location - knots[k - 1].location;
        return d > 0 ? (knots[k + 1].value - knots[k - 1].value) / d : 0.0;
    };
    // The midpoint moves the segment's half-way point, as in the straight form.
    const double u = (t - a.location) / span, m = b.midPoint;
    const double v = u < m ? 0.5 * u / m : 0.5 + 0.5 * (u - m) / (1 - m);
    const double v2 = v * v, v3 = v2 * v;
    const double cubic = (2 * v3 - 3 * v2 + 1) * a.value + (v3 - 2 * v2 + v) * span * slope(i) +
                         (3 * v2 - 2 * v3) * b.value + (v3 - v2) * span * slope(i + 1);
    return std::clamp(cubic, std::min(a.value, b.value), std::max(a.value, b.value));
}

} // namespace

ColorGradient smoothedGradient(const ColorGradient& gradient, double smoothness) {
    smoothness = std::isfinite(smoothness) ? std::clamp(smoothness, 0.0, 1.0) : 0.0;
    if (smoothness == 0) return gradient;
    const auto& colors = gradient.colorStops();
    const auto& opacities = gradient.opacityStops();
    std::vector<Knot> channels[4];
    for (const ColorStop& stop : colors) {
        channels[0].push_back({stop.location, stop.color.red(), stop.midPoint});
        channels[1].push_back({stop.location, stop.color.green(), stop.midPoint});
        channels[2].push_back({stop.location, stop.color.blue(), stop.midPoint});
    }
    for (const OpacityStop& stop : opacities)
        channels[3].push_back({stop.location, stop.opacity, stop.midPoint});

    // The curve sampled finely, and at every stop so that no corner is cut.
    constexpr int samples = 512;
    std::vector<double> places;
    for (int k = 0; k <= samples; ++k)
        places.push_back(double(k) / samples);
    for (const ColorStop& stop : colors)
        places.push_back(stop.location);
    for (const OpacityStop& stop : opacities)
        places.push_back(stop.location);
    std::sort(places.begin(), places.end());
    places.erase(
        std::unique(places.begin(), places.end(), [](double a, double b) { return b - a < 1e-9; }),
        places.end());

    auto mix = [&](double straight, double smooth) {
        return straight + smoothness * (smooth - straight);
    };
    std::vector<ColorStop> colorStops;
    std::vector<OpacityStop> opacityStops;
    for (const double t : places) {
        const PixelRGBA32 straight = gradient.colorAtLocation(t);
        colorStops.emplace_back(
            PixelRGBA32(float(mix(straight.red(), smoothValue(channels[0], t))),
                        float(mix(straight.green(), smoothValue(channels[1], t))),
                        float(mix(straight.blue(), smoothValue(channels[2], t))), 1.0f),
            t);
        opacityStops.emplace_back(mix(gradient.opacityAtLocation(t), smoothValue(channels[3], t)),
                                  t);
    }
    auto smoothed = ColorGradient::make(std::move(colorStops), std::move(opacityStops));
    return smoothed ? *smoothed : gradient;
}

std::optional<PixelRGBA32> colorFromDescriptor(const Descriptor& c) {
    if (c.classId == "RGBC") {
        // Newer files may give the components on 0…1 under their own keys.
        if (c.find("redFloat"))
            return PixelRGBA32(float(finite(c.number("redFloat"), 0)),
                               float(finite(c.number("greenFloat"), 0)),
                               float(finite(c.number("blueFloat"), 0)), 1);
        return PixelRGBA32(float(finite(c.number("Rd  "), 0) / 255),
                           float(finite(c.number("Grn "), 0) / 255),
                           float(finite(c.number("Bl  "), 0) / 255), 1);
    }
    if (c.classId == "Grsc") {
        // Grey is stored as ink coverage: 0 % is white.
        const float g = float(1 - finite(c.number("Gry "), 0) / 100);
        return PixelRGBA32(g, g, g, 1);
    }
    if (c.classId == "HSBC")
        return fromHSB(finite(c.number("H   "), 0), finite(c.number("Strt"), 0),
                       finite(c.number("Brgh"), 0));
    return std::nullopt;
}

std::optional<SolidColorFill> readSolidColorFill(std::span<const std::uint8_t> block) {
    const Descriptor d = parseVersionedDescriptor(block);
    const Descriptor* color = d.object("Clr ");
    if (!color) return std::nullopt;
    const auto c = colorFromDescriptor(*color);
    if (!c) return std::nullopt;
    return SolidColorFill{*c};
}

std::optional<GradientFill> readGradientFill(std::span<const std::uint8_t> block) {
    const Descriptor d = parseVersionedDescriptor(block);
    GradientFill fill;
    const auto type = d.enumerated("Type").value_or("Lnr ");
    if (type == "Lnr ")
        fill.type = GradientType::linear;
    else if (type == "Rdl ")
        fill.type = GradientType::radial;
    else if (type == "Angl")
        fill.type = GradientType::angle;
    else if (type == "Rflc")
        fill.type = GradientType::reflected;
    else if (type == "Dmnd")
        fill.type = GradientType::diamond;
    else
        return std::nullopt;
    fill.angle = finite(d.number("Angl"), 90);
    fill.scale = finite(d.number("Scl "), 100) / 100;
    fill.reverse = d.boolean("Rvrs").value_or(false);
    fill.dither = d.boolean("Dthr").value_or(false);
    fill.alignWithLayer = d.boolean("Algn").value_or(true);
    if (const Descriptor* offset = d.object("Ofst")) {
        fill.offsetX = finite(offset->number("Hrzn"), 0) / 100;
        fill.offsetY = finite(offset->number("Vrtc"), 0) / 100;
    }
    const Descriptor* grad = d.object("Grad");
    if (!grad) return fill;
    if (const DescriptorValue* name = grad->find("Nm  "))
        if (const auto* text = std::get_if<std::string>(&name->value)) fill.name = *text;
    fill.smoothness = std::clamp(finite(grad->number("Intr"), 4096) / 4096, 0.0, 1.0);
    // Noise gradients ("ClNs") have no stops.
    if (grad->enumerated("GrdF").value_or("CstS") != "CstS") return fill;
    // Locations are stored on 0…4096 and midpoints and opacities in percent; the divisions
    // are exact for every location the format can hold.
    std::vector<ColorStop> colorStops;
    std::vector<OpacityStop> opacityStops;
    if (const auto* stops = grad->list("Clrs"))
        for (const DescriptorValue& s : *stops) {
            const auto* stop = std::get_if<Descriptor>(&s.value);
            if (!stop) continue;
            PixelRGBA32 color(0, 0, 0, 1);
            if (const Descriptor* c = stop->object("Clr "))
                color = colorFromDescriptor(*c).value_or(color);
            colorStops.emplace_back(color, finite(stop->number("Lctn"), 0) / 4096,
                                    finite(stop->number("Mdpn"), 50) / 100);
        }
    if (const auto* stops = grad->list("Trns"))
        for (const DescriptorValue& s : *stops) {
            const auto* stop = std::get_if<Descriptor>(&s.value);
            if (!stop) continue;
            opacityStops.emplace_back(finite(stop->number("Opct"), 100) / 100,
                                      finite(stop->number("Lctn"), 0) / 4096,
                                      finite(stop->number("Mdpn"), 50) / 100);
        }
    fill.gradient = ColorGradient::make(std::move(colorStops), std::move(opacityStops));
    return fill;
}

std::optional<BlendMode> blendModeFromDescriptor(std::string_view value) {
    struct Name {
        std::string_view key, name;
        BlendMode mode;
    };
    // The short keys are the older spelling; modes added later have only the long one.
    static constexpr Name names[] = {
        {"Nrml", "normal", BlendMode::normal},
        {"Dslv", "dissolve", BlendMode::dissolve},
        {"Drkn", "darken", BlendMode::darken},
        {"Mltp", "multiply", BlendMode::multiply},
        {"CBrn", "colorBurn", BlendMode::colorBurn},
        {"", "linearBurn", BlendMode::linearBurn},
        {"", "darkerColor", BlendMode::darkerColor},
        {"Lghn", "lighten", BlendMode::lighten},
        {"Scrn", "screen", BlendMode::screen},
        {"CDdg", "colorDodge", BlendMode::colorDodge},
        {"", "linearDodge", BlendMode::linearDodge},
        {"", "lighterColor", BlendMode::lighterColor},
        {"Ovrl", "overlay", BlendMode::overlay},
        {"SftL", "softLight", BlendMode::softLight},
        {"HrdL", "hardLight", BlendMode::hardLight},
        {"", "vividLight", BlendMode::vividLight},
        {"", "linearLight", BlendMode::linearLight},
        {"", "pinLight", BlendMode::pinLight},
        {"", "hardMix", BlendMode::hardMix},
        {"Dfrn", "difference", BlendMode::difference},
        {"Xclu", "exclusion", BlendMode::exclusion},
        {"", "blendSubtraction", BlendMode::subtract},
        {"", "blendDivide", BlendMode::divide},
        {"H   ", "hue", BlendMode::hue},
        {"Strt", "saturation", BlendMode::saturation},
        {"Clr ", "color", BlendMode::color},
        {"Lmns", "luminosity", BlendMode::luminosity},
    };
    for (const Name& n : names)
        if (value == n.name || (!n.key.empty() && value == n.key)) return n.mode;
    return std::nullopt;
}

namespace {

// An effect's blend mode ("Md  ") and opacity ("Opct", percent); absent ones keep the defaults.
void readBlending(const Descriptor& effect, BlendMode& mode, double& opacity) {
    mode = blendModeFromDescriptor(effect.enumerated("Md  ").value_or("Nrml")).value_or(mode);
    opacity = std::clamp(finite(effect.number("Opct"), 100) / 100, 0.0, 1.0);
}

} // namespace

LayerEffects readLayerEffects(std::span<const std::uint8_t> block) {
    // The object-based effects: a 4-byte version, then a versioned descriptor.
    if (block.size() < 4)
        throw DocumentError(DocumentError::Kind::truncated, "an effects block ends in its version");
    const Descriptor d = parseVersionedDescriptor(block.subspan(4));
    LayerEffects effects;
    if (!d.boolean("masterFXSwitch").value_or(true)) return effects;
    // Each effect is an object, or (newer files) a list of them named "…Multi", listed top
    // first; a list stands for the single object of the same kind.
    const bool listed = d.find("solidFillMulti") != nullptr;
    for (const DescriptorItem& item : d.items) {
        const bool overlay = item.key == (listed ? "solidFillMulti" : "SoFi");
        if (item.key == "patternFill") {
            // A single object in every version of the block.
            const auto* e = std::get_if<Descriptor>(&item.value.value);
            if (!e || !e->boolean("enab").value_or(false)) continue;
            PatternOverlayEffect o;
            if (const Descriptor* pattern = e->object("Ptrn")) {
                if (const auto* id = pattern->find("Idnt"))
                    if (const auto* text = std::get_if<std::string>(&id->value))
                        o.patternId = *text;
            }
            readBlending(*e, o.mode, o.opacity);
            o.scale = std::max(finite(e->number("Scl "), 100) / 100, 0.01);
            if (const Descriptor* phase = e->object("phase")) {
                o.phaseX = finite(phase->number("Hrzn"), 0);
                o.phaseY = finite(phase->number("Vrtc"), 0);
            }
            effects.patternOverlays.push_back(std::move(o));
            continue;
        }
        std::vector<const Descriptor*> entries;
        if (const auto* one = std::get_if<Descriptor>(&item.value.value)) {
            entries.push_back(one);
        } else if (const auto* many =
                       std::get_if<std::vector<DescriptorValue>>(&item.value.value)) {
            for (auto it = many->rbegin(); it != many->rend(); ++it)
                if (const auto* e = std::get_if<Descriptor>(&it->value)) entries.push_back(e);
        }
        for (const Descriptor* e : entries) {
            if (!e->boolean("enab").value_or(false)) continue;
            if (!overlay) {
                if (item.key != "SoFi") effects.unrendered.push_back(item.key);
                continue;
            }
            ColorOverlayEffect o;
            if (const Descriptor* c = e->object("Clr "))
                o.color = colorFromDescriptor(*c).value_or(o.color);
            readBlending(*e, o.mode, o.opacity);
            effects.colorOverlays.push_back(o);
        }
    }
    return effects;
}

namespace {

// One pattern record; nothing for colour modes and depths we do not draw.
std::optional<Pattern> readPattern(documents::ByteReader r) {
    const std::uint32_t version = r.u32("a pattern's version");
    const std::uint32_t mode = r.u32("a pattern's colour mode");
    Pattern p;
    p.height = r.u16("a pattern's height");
    p.width = r.u16("a pattern's width");
    const std::uint32_t nameLength = r.u32("a pattern's name");
    const auto name = r.take(std::uint64_t(nameLength) * 2, "a pattern's name");
    for (std::size_t i = 0; i + 1 < name.size(); i += 2) {
        const unsigned unit = unsigned(name[i]) << 8 | name[i + 1];
        if (unit == 0) break;
        // Names are for display only: units beyond ASCII become '?'.
        p.name += unit < 0x80 ? char(unit) : '?';
    }
    p.id = r.chars(r.u8("a pattern's identifier"), "a pattern's identifier");
    if (version != 1 || (mode != 1 && mode != 3)) return std::nullopt;
    // The virtual memory array list: version, length, rectangle, channel slots.
    r.skip(4, "a pattern's pixel list");
    documents::ByteReader list = r.sub(r.u32("a pattern's pixel list"), "a pattern's pixel list");
    list.skip(16, "a pattern's rectangle");
    const std::uint32_t slots = list.u32("a pattern's channel count");
    const std::size_t colours = mode == 3 ? 3 : 1;
    for (std::uint32_t slot = 0; slot < slots + 2 && p.colors.size() < colours && !list.atEnd();
         ++slot) {
        if (!list.u32("a pattern channel's flag")) continue;
        const std::uint32_t length = list.u32("a pattern channel's length");
        if (length == 0) continue;
        documents::ByteReader channel = list.sub(length, "a pattern channel");
        const std::uint32_t depth = channel.u32("a pattern channel's depth");
        const std::int32_t top = channel.i32("a pattern channel's rectangle"),
                           left = channel.i32("a pattern channel's rectangle"),
                           bottom = channel.i32("a pattern channel's rectangle"),
                           right = channel.i32("a pattern channel's rectangle");
        channel.skip(2, "a pattern channel's depth");
        const std::uint8_t compression = channel.u8("a pattern channel's compression");
        const std::int64_t w = std::int64_t(right) - left, h = std::int64_t(bottom) - top;
        if (depth != 8 || w != p.width || h != p.height) return std::nullopt;
        // Nothing is allocated that the bytes cannot fill: a PackBits packet of two bytes
        // gives at most 128 samples.
        if (std::uint64_t(w) * std::uint64_t(h) >
            std::uint64_t(channel.remaining()) * (compression == 1 ? 64 : 1))
            documents::corrupt("a pattern channel is larger than its bytes can fill");
        SamplePlane plane(w, h, 8);
        auto out = std::span<std::uint8_t>(plane.mutableBytes());
        if (compression == 0) {
            const auto raw = channel.take(std::uint64_t(w * h), "a pattern channel's samples");
            std::copy(raw.begin(), raw.end(), out.begin());
        } else if (compression == 1) {
            std::vector<std::size_t> counts(static_cast<std::size_t>(h));
            for (std::size_t& n : counts)
                n = channel.u16("a pattern channel's row lengths");
            for (std::int64_t y = 0; y < h; ++y) {
                const auto row = out.subspan(std::size_t(y * w), std::size_t(w));
                try {
                    if (coding::unpackBitsInto(
                            channel.take(counts[std::size_t(y)], "a pattern channel's rows"),
                            row) != row.size())
                        documents::corrupt("a pattern channel's row is short");
                } catch (const coding::CompressionError& e) {
                    documents::corrupt(std::string("a pattern channel's row: ") + e.what());
                }
            }
        } else {
            return std::nullopt;
        }
        p.colors.push_back(std::move(plane));
    }
    if (p.colors.size() != colours) return std::nullopt;
    return p;
}

} // namespace

std::vector<Pattern> readPatterns(std::span<const std::uint8_t> block) {
    std::vector<Pattern> patterns;
    documents::ByteReader r(block);
    while (r.remaining() >= 4) {
        const std::uint32_t length = r.u32("a pattern's length");
        if (length == 0) break;
        if (auto p = readPattern(r.sub(length, "a pattern"))) patterns.push_back(std::move(*p));
        // Records are padded to four bytes.
        r.skipPadding((4 - length % 4) % 4);
    }
    return patterns;
}

} // namespace bic
