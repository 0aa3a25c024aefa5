#include "bic/documents/fill_content.hpp"

#include "bic/documents/descriptor.hpp"

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

} // namespace

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

} // namespace bic
