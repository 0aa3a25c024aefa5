// bic gradient: a gradient fill of any geometry into an image file; and the demo's sheet of the
// six geometries.

#include "bic/gradients/color_gradient.hpp"
#include "bic/platform/coding/formats.hpp"
#include "bic/platform/ns/pasteboard.hpp"
#include "commands.hpp"
#include "contact_sheet.hpp"
#include "image_files.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <iterator>

namespace bic::tool {

namespace {

std::optional<GradientType> parseType(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return std::tolower(c); });
    for (GradientType t : GradientType::allCases()) {
        std::string raw(t.rawValue());
        std::transform(raw.begin(), raw.end(), raw.begin(),
                       [](unsigned char c) { return std::tolower(c); });
        if (raw == text) return t;
    }
    return std::nullopt;
}

// A gradient library entry (the property-list form) or a pasteboard's keyed form.
ColorGradient readGradient(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw CommandError("cannot read " + path.string());
    const coding::Data bytes{std::istreambuf_iterator<char>(file), {}};
    coding::Value plist;
    try {
        plist = coding::readPropertyList(bytes);
    } catch (const coding::DecodingError& e) {
        throw CommandError(path.string() + " is no property list: " + e.what());
    }
    if (auto g = ColorGradient::fromPlistRepresentation(plist)) return *g;
    try {
        return coding::decode<ColorGradient>(plist);
    } catch (const std::exception& e) {
        throw CommandError(path.string() + " holds no gradient: " + e.what());
    }
}

// From the top-left corner, y down, to the engine's y-up coordinates.
cg::Point enginePoint(const std::vector<double>& xy, double height) {
    return {xy[0], height - xy[1]};
}

// Three colours with uneven midpoints, opaque at the ends and half transparent in between.
ColorGradient demoGradient() {
    return *ColorGradient::make({{{0.98f, 0.78f, 0.2f, 1}, 0},
                                 {{0.85f, 0.2f, 0.35f, 1}, 0.45, 0.25},
                                 {{0.15f, 0.15f, 0.45f, 1}, 1, 0.7}},
                                {{1, 0}, {0.5, 0.5, 0.3}, {1, 1, 0.8}});
}

ci::Image checkerboard(int size) {
    PixelBuffer<PixelARGB8> board(IntegralSize(size, size), cg::ColorSpace::deviceRGB());
    board.withUnsafeBuffer([&](std::span<PixelARGB8> p) {
        for (int y = 0; y < size; ++y)
            for (int x = 0; x < size; ++x)
                p[std::size_t(y) * std::size_t(board.pixelsPerRow()) + std::size_t(x)] =
                    (x / 12 + y / 12) % 2 ? PixelARGB8::withRGBA(0.8f, 0.8f, 0.8f)
                                          : PixelARGB8::whiteColor();
    });
    return board.image();
}

void writeFile(const std::vector<std::uint8_t>& bytes, const std::filesystem::path& path) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    if (!file) throw CommandError("cannot write " + path.string());
}

} // namespace

Run addGradientCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("gradient", "Fill an image with a gradient");
    struct Options {
        std::string type = "linear", stops, out;
        std::vector<double> from, to;
        std::optional<int> dither;
        std::vector<int> size;
    };
    auto o = std::make_shared<Options>();
    cmd->add_option("--type", o->type,
                    "linear, radial, angle, reflected, diamond or shaped (default linear)");
    // Each pair is one argument ("X,Y", "WxH"): a vector option would otherwise also take the
    // output's name when one of the shared image-file options follows it.
    cmd->add_option("--from", o->from, "X,Y: the start, in pixels from the top-left corner")
        ->delimiter(',')
        ->expected(2)
        ->allow_extra_args(false)
        ->required();
    cmd->add_option("--to", o->to, "X,Y: the end (radial: on the rim; diamond: a corner)")
        ->delimiter(',')
        ->expected(2)
        ->allow_extra_args(false)
        ->required();
    cmd->add_option("--stops", o->stops,
                    "a gradient as a property list (library or pasteboard form); default black "
                    "to white");
    cmd->add_option("--dither", o->dither, "dither to this many levels per channel")
        ->check(CLI::Range(2, 256));
    cmd->add_option("--size", o->size, "WxH of the image")
        ->delimiter('x')
        ->expected(2)
        ->allow_extra_args(false)
        ->required();
    cmd->add_option("out", o->out, "output image (.png, .tif, .jpg or .webp)")->required();
    return [cmd, o] {
        if (!cmd->parsed()) return;
        const auto type = parseType(o->type);
        if (!type) throw CommandError("no gradient type \"" + o->type + "\"");
        if (o->size[0] < 1 || o->size[1] < 1 || o->size[0] > 65536 || o->size[1] > 65536)
            throw CommandError("the size must lie between 1x1 and 65536x65536");
        if (o->from == o->to) throw CommandError("--from and --to must differ");
        const ColorGradient gradient = o->stops.empty() ? ColorGradient() : readGradient(o->stops);
        const double w = o->size[0], h = o->size[1];
        // Points come y down, so the angle ramp is asked for in flipped form: it starts towards
        // --to and runs counter-clockwise as seen.
        const ci::Image image =
            gradient.image(*type, enginePoint(o->from, h), enginePoint(o->to, h), true, o->dither)
                .cropped({0, 0, w, h});
        writeImageFile(PixelBuffer<PixelARGB8>(image, image.extent()), o->out);
        fmt::print("{} gradient of {} colour and {} opacity stops, {} × {}{}: wrote {}\n",
                   type->rawValue(), gradient.colorStops().size(), gradient.opacityStops().size(),
                   w, h, o->dither ? fmt::format(", dithered to {} levels", *o->dither) : "",
                   o->out);
    };
}

void gradientSection(const std::filesystem::path& dir) {
    fmt::print("== gradients ==\n");
    constexpr int size = 240;
    const ColorGradient gradient = demoGradient();
    std::vector<Tile> tiles;
    const cg::Point centre{size / 2.0, size / 2.0};
    for (GradientType type : GradientType::allCases()) {
        const bool centred = type != GradientType::linear && type != GradientType::shaped;
        const cg::Point from = centred ? centre : cg::Point{20, size / 2.0};
        const cg::Point to = centred ? cg::Point{size / 2.0 + 90, size / 2.0 + 30}
                                     : cg::Point{size - 20.0, size / 2.0 + 60};
        // Over a checkerboard, so that the half-transparent middle shows.
        tiles.push_back(
            {gradient.image(type, from, to, true, std::nullopt).composited(checkerboard(size)),
             type.localizedName()});
    }
    const auto sheet = dir / "gradients.png";
    writeContactSheet(tiles, size, size, 3, sheet);
    fmt::print("  six geometries of one gradient (uneven midpoints, half transparent in the "
               "middle): {}\n",
               sheet.string());

    const auto plist = dir / "gradient.plist";
    writeFile(
        coding::writePropertyList(gradient.plistRepresentation(), coding::PropertyListFormat::xml),
        plist);
    fmt::print("  its library entry: {}\n", plist.string());

    // Through the (in-process) pasteboard: the keyed form and the preview travel together.
    gradient.writeToPasteboard();
    const ColorGradient pasted = ColorGradient::readFromPasteboard();
    const auto preview = ns::Pasteboard::general()->data(ns::pasteboard_type::tiff);
    if (!preview) throw CommandError("the gradient left no preview on the pasteboard");
    const auto previewPath = dir / "gradient-preview.tiff";
    writeFile(*preview, previewPath);
    fmt::print("  copied and pasted {}; pasteboard preview: {}\n",
               pasted == gradient ? "unchanged" : "CHANGED", previewPath.string());
}

} // namespace bic::tool
