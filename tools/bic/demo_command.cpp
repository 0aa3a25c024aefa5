#include "bic/pixels/color_value_formatting.hpp"
#include "bic/platform/coding/formats.hpp"
#include "commands.hpp"

#include <filesystem>
#include <fmt/format.h>
#include <fstream>

namespace bic::tool {

namespace {

void writeFile(const std::filesystem::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    if (!out) throw CommandError("cannot write " + path.string());
}

// Colours: a hue sweep through every named conversion, written as a record of the pixels.
void colorSection(const std::filesystem::path& dir) {
    fmt::print("== colours ==\n");
    std::vector<PixelRGBA32> sweep;
    for (int i = 0; i < 12; ++i)
        sweep.push_back(PixelRGBA32::withHSV(i * 30.0f, 0.8f, 0.9f));
    const auto eight = ColorValueFormattingType(ColorValueFormattingType::bitLevel8).formatter();
    const auto percent = ColorValueFormattingType(ColorValueFormattingType::percent).formatter();
    for (const auto& c : sweep) {
        const auto lab = c.psdLabComponents(cg::ColorSpace::sRGB());
        fmt::print("  #{}  hue {:6.1f}  luminosity {:.3f}  red {:>3} ({:>4})  Lab {:6.2f} {:7.2f} "
                   "{:7.2f}\n",
                   c.hexValue(), c.hue().value_or(0), c.luminosity(),
                   eight->stringForObjectValue(double(c.red())).value_or("?"),
                   percent->stringForObjectValue(double(c.red())).value_or("?"), (*lab)[0],
                   (*lab)[1], (*lab)[2]);
    }
    const auto p3 = sweep[0].converted(cg::ColorSpace::sRGB(), cg::ColorSpace::displayP3(),
                                       cg::RenderingIntent::relativeColorimetric);
    fmt::print("  #{} in Display P3: {}\n", sweep[0].hexValue(), p3.stringRepresentation());
    writeFile(dir / "colors.json", coding::encodeJSON(sweep, true) + "\n");
    const auto plist = coding::encodePropertyList(sweep, coding::PropertyListFormat::xml);
    writeFile(dir / "colors.plist", std::string(plist.begin(), plist.end()));
    fmt::print("  wrote {} and {}\n", (dir / "colors.json").string(),
               (dir / "colors.plist").string());
}

} // namespace

Run addDemoCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("demo", "Run the main jobs on generated inputs");
    auto out = std::make_shared<std::string>("demo-out");
    cmd->add_option("--out", *out, "folder for the outputs");
    return [cmd, out] {
        if (!cmd->parsed()) return;
        const std::filesystem::path dir(*out);
        std::error_code error;
        std::filesystem::create_directories(dir, error);
        if (error) throw CommandError("cannot create " + dir.string() + ": " + error.message());
        colorSection(dir);
    };
}

} // namespace bic::tool
