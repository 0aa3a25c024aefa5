// bic dither / bic histogram: error diffusion of a picture's grey, and its channel histograms.

#include "bic/algorithms/dithering.hpp"
#include "bic/algorithms/histogram.hpp"
#include "bic/platform/ci/filter.hpp"
#include "commands.hpp"
#include "image_files.hpp"

#include <algorithm>
#include <fmt/format.h>

namespace bic::tool {

namespace {

ci::Image imageOf(const PixelBufferType& buffer) {
    return std::visit([](const auto& b) { return b.image(); }, buffer);
}

// The picture as seen on white paper, as grey (its luminosity).
ci::Image luminosity(const ci::Image& image) {
    using V = std::vector<double>;
    const V weights{0.3, 0.59, 0.11, 0};
    const ci::Image flat = image.composited(ci::Image::white().cropped(image.extent()));
    return *ci::applyingFilter(flat, "CIColorMatrix",
                               {{"inputRVector", weights},
                                {"inputGVector", weights},
                                {"inputBVector", weights},
                                {"inputAVector", V{0, 0, 0, 1}},
                                {"inputBiasVector", V{0, 0, 0, 0}}});
}

// Four stacked bar charts, 256 pixels wide, each scaled to its own tallest bucket.
PixelBuffer<PixelARGB8> plot(const Histogram& h) {
    constexpr std::int64_t rowHeight = 100;
    PixelBuffer<PixelARGB8> out(IntegralSize(256, 4 * rowHeight), cg::ColorSpace::deviceRGB());
    const std::vector<std::uint64_t>* channels[] = {&h.red, &h.green, &h.blue, &h.alpha};
    const PixelARGB8 inks[] = {
        PixelARGB8::withRGBA(0.85f, 0.1f, 0.1f), PixelARGB8::withRGBA(0.1f, 0.7f, 0.1f),
        PixelARGB8::withRGBA(0.15f, 0.25f, 0.9f), PixelARGB8::withRGBA(0.3f, 0.3f, 0.3f)};
    out.withUnsafeBuffer([&](std::span<PixelARGB8> pixels) {
        std::fill(pixels.begin(), pixels.end(), PixelARGB8::whiteColor());
        for (int c = 0; c < 4; ++c) {
            const auto& counts = *channels[c];
            const std::uint64_t top =
                std::max<std::uint64_t>(1, *std::max_element(counts.begin(), counts.end()));
            for (std::int64_t x = 0; x < 256; ++x) {
                const auto bar = std::int64_t(counts[std::size_t(x)] * (rowHeight - 4) / top);
                for (std::int64_t i = 0; i < bar; ++i) {
                    const std::int64_t y = (c + 1) * rowHeight - 1 - i; // rows top first
                    pixels[std::size_t(y * out.pixelsPerRow() + x)] = inks[c];
                }
            }
        }
    });
    return out;
}

} // namespace

Run addDitherCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("dither", "Dither a picture's grey to black and white");
    auto in = std::make_shared<std::string>(), out = std::make_shared<std::string>();
    auto atkinson = std::make_shared<bool>(false);
    cmd->add_option("image", *in, "PNG or TIFF")->required();
    cmd->add_flag("--atkinson", *atkinson, "Atkinson's diffusion instead of Floyd–Steinberg");
    cmd->add_option("out", *out, "output image (.png or .tif)")->required();
    return [cmd, in, out, atkinson] {
        if (!cmd->parsed()) return;
        const ci::Image image = imageOf(readImageFile(*in));
        const ci::Image result =
            dithered(luminosity(image),
                     *atkinson ? DitheringMethod::atkinson : DitheringMethod::floydSteinberg);
        writeImageFile(PixelBuffer<PixelARGB8>(result, image.extent()), *out);
        fmt::print("{} dithering of {} × {}: wrote {}\n",
                   *atkinson ? "Atkinson" : "Floyd–Steinberg", image.extent().width(),
                   image.extent().height(), *out);
    };
}

std::string describeHistogram(const Histogram& h) {
    std::string text;
    const std::pair<const char*, const std::vector<std::uint64_t>*> channels[] = {
        {"red", &h.red}, {"green", &h.green}, {"blue", &h.blue}, {"alpha", &h.alpha}};
    for (const auto& [name, counts] : channels) {
        std::uint64_t total = 0;
        double sum = 0;
        for (std::size_t i = 0; i < 256; ++i)
            total += (*counts)[i], sum += double(i) * double((*counts)[i]);
        const auto peak =
            std::size_t(std::max_element(counts->begin(), counts->end()) - counts->begin());
        const auto first =
            std::size_t(std::find_if(counts->begin(), counts->end(), [](auto c) { return c > 0; }) -
                        counts->begin());
        const auto last = std::size_t(
            255 - (std::find_if(counts->rbegin(), counts->rend(), [](auto c) { return c > 0; }) -
                   counts->rbegin()));
        if (total == 0)
            text += fmt::format("  {:<6} no pixels\n", name);
        else
            text += fmt::format(
                "  {:<6} {:>9} pixels  levels {:>3}…{:<3}  mean {:6.2f}  peak {:>3} ({})\n", name,
                total, first, last, sum / double(total), peak, (*counts)[peak]);
    }
    return text;
}

Run addHistogramCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("histogram", "Print a picture's channel histograms");
    auto in = std::make_shared<std::string>(), plotPath = std::make_shared<std::string>();
    cmd->add_option("image", *in, "PNG or TIFF")->required();
    cmd->add_option("--plot", *plotPath, "also draw the four histograms into this PNG");
    return [cmd, in, plotPath] {
        if (!cmd->parsed()) return;
        const ci::Image image = imageOf(readImageFile(*in));
        const Histogram h = areaHistogram(image, image.extent());
        fmt::print("{} × {}\n{}", image.extent().width(), image.extent().height(),
                   describeHistogram(h));
        if (!plotPath->empty()) {
            writeImageFile(plot(h), *plotPath);
            fmt::print("wrote {}\n", *plotPath);
        }
    };
}

void algorithmSection(const std::filesystem::path& dir) {
    fmt::print("== pixel algorithms ==\n");
    const ci::Image photo = imageOf(readImageFile(dir / "photo.png"));
    for (auto [method, name] : {std::pair{DitheringMethod::floydSteinberg, "floyd-steinberg"},
                                std::pair{DitheringMethod::atkinson, "atkinson"}}) {
        const auto path = dir / fmt::format("dither-{}.png", name);
        writeImageFile(PixelBuffer<PixelARGB8>(dithered(luminosity(photo), method), photo.extent()),
                       path);
        fmt::print("  dithered the photo's grey: {}\n", path.string());
    }
    const Histogram h = areaHistogram(photo, photo.extent());
    fmt::print("  histogram of the photo:\n{}", describeHistogram(h));
    writeImageFile(plot(h), dir / "histogram.png");
    fmt::print("  wrote {}\n", (dir / "histogram.png").string());
}

} // namespace bic::tool
