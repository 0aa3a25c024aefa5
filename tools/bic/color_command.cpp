#include "commands.hpp"

#include <fmt/format.h>

namespace bic::tool {

std::optional<PixelRGBA32> parseColor(const std::string& text) {
    if (auto hex = PixelRGBA32::fromHexValue(text)) return hex;
    return PixelRGBA32::fromStringRepresentation(text);
}

std::string describeColor(const PixelRGBA32& c, const cg::ColorSpace& rgbSpace) {
    std::string out;
    out += fmt::format("hex:        {}\n", c.hexValue());
    out += fmt::format("text:       {}\n", c.stringRepresentation());
    out += fmt::format("8-bit:      {} {} {} {}\n", c.red8(), c.green8(), c.blue8(), c.alpha8());
    const auto hue = c.hue();
    out += fmt::format("hsv:        {} {:.4f} {:.4f}\n", hue ? fmt::format("{:.2f}", *hue) : "none",
                       c.saturation(), c.value());
    out += fmt::format("luminosity: {:.4f}\n", c.luminosity());
    if (const auto lab = c.psdLabComponents(rgbSpace))
        out += fmt::format("lab:        {:.2f} {:.2f} {:.2f}\n", (*lab)[0], (*lab)[1], (*lab)[2]);
    return out;
}

Run addColorCommand(CLI::App& app) {
    auto* cmd =
        app.add_subcommand("color", "Print a colour's hex and text forms, HSV, luminosity and Lab");
    auto text = std::make_shared<std::string>();
    auto space = std::make_shared<std::string>("srgb");
    cmd->add_option("colour", *text, "hex (#FF8000) or text (\"1 0.5 0\")")->required();
    cmd->add_option("--space", *space, "RGB space the colour is read in for Lab")
        ->check(CLI::IsMember({"srgb", "p3", "adobe", "device"}));
    return [cmd, text, space] {
        if (!cmd->parsed()) return;
        const auto color = parseColor(*text);
        if (!color)
            throw CommandError("not a colour: \"" + *text +
                               "\" (use hex like #FF8000 or numbers like \"1 0.5 0\")");
        const cg::ColorSpace rgb = *space == "p3"       ? cg::ColorSpace::displayP3()
                                   : *space == "adobe"  ? cg::ColorSpace::adobeRGB1998()
                                   : *space == "device" ? cg::ColorSpace::deviceRGB()
                                                        : cg::ColorSpace::sRGB();
        fmt::print("{}", describeColor(*color, rgb));
    };
}

} // namespace bic::tool
