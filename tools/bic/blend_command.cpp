// bic blend: one layer over another in a layer blend mode; and the demo's contact sheet of all
// pixel modes.

#include "bic/filters/blend_mode.hpp"
#include "bic/filters/generator_filters.hpp"
#include "bic/platform/ci/context.hpp"
#include "commands.hpp"
#include "common/synthetic_images.hpp"
#include "contact_sheet.hpp"
#include "image_files.hpp"

#include <fmt/format.h>
#include <memory>
#include <numbers>

namespace bic::tool {

namespace {

// A display name, or else a key (keys are four characters, names longer than four unless
// they are "Hue"); an unknown one prints the library's line.
std::optional<BlendMode> parseMode(const std::string& text) {
    for (BlendMode mode : BlendMode::allCases())
        if (mode.name() == text) return mode;
    return text.size() <= 4 ? BlendMode::fromPSDKey(text) : BlendMode::fromName(text);
}

ci::Image imageOf(const PixelBufferType& buffer) {
    return std::visit([](const auto& b) { return b.image(); }, buffer);
}

int bitDepthOf(const PixelBufferType& buffer) {
    return std::visit([](const auto& b) { return b.bitDepth; }, buffer);
}

// The bottom layer's size and depth, in colour.
PixelBufferType flattened(const ci::Image& image, const cg::Rect& extent, int bitDepth) {
    return withPixelFormat(cg::ColorSpaceModel::rgb, bitDepth,
                           [&]<class P>(std::type_identity<P>) -> PixelBufferType {
                               return PixelBuffer<P>(image, extent);
                           });
}

} // namespace

Run addBlendCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("blend", "Blend a layer over an image in a layer blend mode");
    struct Options {
        std::string mode = "Normal", top, bottom, out;
        double opacity = 1;
        std::vector<double> offset{0, 0};
    };
    auto o = std::make_shared<Options>();
    cmd->add_option("--mode", o->mode, "display name (\"Color Burn\") or key (\"idiv\")");
    cmd->add_option("--opacity", o->opacity, "the layer's opacity, 0…1")
        ->check(CLI::Range(0.0, 1.0));
    cmd->add_option("--offset", o->offset, "DX,DY: the layer's top-left corner on the image")
        ->delimiter(',')
        ->expected(2)
        ->allow_extra_args(false);
    cmd->add_option("top", o->top, "the layer (any image file; its alpha places it)")->required();
    cmd->add_option("bottom", o->bottom, "the image beneath; gives the output's size")->required();
    cmd->add_option("out", o->out, "output image (.png, .tif, .jpg or .webp)")->required();
    return [cmd, o] {
        if (!cmd->parsed()) return;
        const auto mode = parseMode(o->mode);
        if (!mode) throw CommandError("no blend mode \"" + o->mode + "\"");
        if (mode->rawValue() >= 1000)
            throw CommandError(std::string(mode->name()) + " is a group mode, not a pixel blend");
        const PixelBufferType top = readImageFile(o->top);
        const files::ImageFile bottom = readImage(o->bottom);
        const ci::Image bottomImage = imageOf(bottom.buffer);
        const cg::Rect extent = bottomImage.extent();
        // Image coordinates grow upwards: the layer's top edge sits DY below the image's.
        const ci::Image layer = imageOf(top);
        const ci::Image placed = layer.transformed(cg::AffineTransform::translation(
            o->offset[0], extent.height() - o->offset[1] - layer.extent().height()));
        const ci::Image result = blended(placed, bottomImage, *mode, o->opacity).cropped(extent);
        // The result's numbers are in the bottom image's space, so its profile goes along.
        writeImageFile(flattened(result, extent, bitDepthOf(bottom.buffer)), o->out,
                       bottom.pixelProfile().value_or(std::vector<std::uint8_t>()));
        fmt::print("{} at opacity {} ({}): wrote {}\n", mode->name(), o->opacity, mode->psdKey(),
                   o->out);
    };
}

void blendSection(const std::filesystem::path& dir) {
    fmt::print("== blend modes ==\n");
    constexpr int w = 200, h = 150, columns = 7;
    const ci::Image backdrop = synthetic::photoLike<PixelARGB8>(w, h, 5).image();
    // An orange-to-teal layer that fades from opaque to half transparent.
    using V = std::vector<double>;
    const auto gradient = ci::Filter::named("CILinearGradient");
    gradient->setValue("inputPoint0", V{0, 0});
    gradient->setValue("inputPoint1", V{w, 0});
    gradient->setValue("inputColor0", ci::Color{1, 0.55, 0.1, 1});
    gradient->setValue("inputColor1", ci::Color{0.1, 0.7, 0.8, 0.5});
    const ci::Image layer = gradient->outputImage()->cropped({0, 0, w, h});

    std::vector<Tile> tiles;
    for (BlendMode mode : BlendMode::allCases())
        if (mode.rawValue() < 1000)
            tiles.push_back({blended(layer, backdrop, mode, 1),
                             fmt::format("'{}' {}", mode.psdKey(), mode.name())});
    const auto path = dir / "blend-modes.png";
    writeContactSheet(tiles, w, h, columns, path);
    fmt::print("  {} pixel modes of one layer over one picture, labelled by key: {}\n",
               tiles.size(), path.string());

    // A picker: hue ring, the saturation/value triangle of the chosen hue inside it, a spectrum.
    BICHueWheelFilter ring;
    ring.setInputRadius(120);
    ring.setInputCenter(cg::Point{130, 190});
    ring.setInputColorSpace(cg::ColorSpace::sRGB());
    const ci::Image picker = bik_triangularSaturationValuePanel(float(std::numbers::pi / 6),
                                                                {130, 190}, 95, std::nullopt, false)
                                 ->composited(*ring.outputImage())
                                 .composited(*bic_colorSpectrumImage({10, 10, 240, 40}))
                                 .composited(ci::Image::constant({0.18, 0.18, 0.18, 1}))
                                 .cropped({0, 0, 260, 320});
    const auto pickerPath = dir / "picker.png";
    writeImageFile(PixelBuffer<PixelARGB8>(picker, picker.extent()), pickerPath);
    fmt::print("  colour picker: hue ring, saturation/value triangle at 30°, spectrum: {}\n",
               pickerPath.string());
}

} // namespace bic::tool
