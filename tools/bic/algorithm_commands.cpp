// bic dither / bic histogram: error diffusion of a picture's grey, and its channel histograms.

#include "bic/algorithms/distance_transform.hpp"
#include "bic/algorithms/dithering.hpp"
#include "bic/algorithms/flood_fill.hpp"
#include "bic/algorithms/histogram.hpp"
#include "bic/compositing/image_operations.hpp"
#include "bic/graph/image_operations.hpp"
#include "bic/platform/ci/filter.hpp"
#include "bic/platform/core/pixel_math.hpp"
#include "commands.hpp"
#include "image_files.hpp"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>

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
                    const std::int64_t y = flippedRow(i, (c + 1) * rowHeight); // rows top first
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
    cmd->add_option("image", *in, "PNG, TIFF, JPEG or WebP")->required();
    cmd->add_flag("--atkinson", *atkinson, "Atkinson's diffusion instead of Floyd–Steinberg");
    cmd->add_option("out", *out, "output image (.png, .tif, .jpg or .webp)")->required();
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

Run addFillCommand(CLI::App& app) {
    auto* cmd =
        app.add_subcommand("fill", "Select the region around a seed by colour (magic wand)");
    struct Options {
        std::string in, out;
        std::vector<std::int64_t> seed;
        float tolerance = 0.1f;
        bool antialias = false, fillHoles = false;
    };
    auto o = std::make_shared<Options>();
    cmd->add_option("image", o->in, "PNG, TIFF, JPEG or WebP")->required();
    cmd->add_option("--seed", o->seed, "X,Y from the top-left corner")
        ->delimiter(',')
        ->expected(2)
        ->allow_extra_args(false)
        ->required();
    cmd->add_option("--tolerance", o->tolerance, "largest channel difference, 0…1")
        ->check(CLI::Range(0.0, 1.0));
    cmd->add_flag("--antialias", o->antialias, "grade the mask by colour distance");
    cmd->add_flag("--fill-holes", o->fillHoles, "also take what the region encloses");
    cmd->add_option("out", o->out, "the mask (.png, .tif, .jpg or .webp)")->required();
    return [cmd, o] {
        if (!cmd->parsed()) return;
        const ci::Image image = imageOf(readImageFile(o->in));
        const cg::Rect extent = image.extent();
        const IntegralPoint seed{o->seed[0], std::int64_t(extent.height()) - 1 - o->seed[1]};
        if (o->seed[0] < 0 || o->seed[1] < 0 || o->seed[0] >= std::int64_t(extent.width()) ||
            seed.y < 0)
            throw CommandError(fmt::format("the seed {},{} lies outside the {} × {} picture",
                                           o->seed[0], o->seed[1], extent.width(),
                                           extent.height()));
        auto operation = FloodFillOperation::make(extent, image);
        operation->fill(seed, std::optional<PixelARGB8>(), o->tolerance, std::nullopt, o->antialias,
                        o->fillHoles);
        const auto mask = operation->maskImage();
        if (!mask) throw CommandError("no memory for the mask");
        const PixelBuffer<PixelGray8> out(*mask, extent);
        std::uint64_t selected = 0;
        out.withUnsafeBuffer([&](std::span<const PixelGray8> p) {
            for (std::int64_t y = 0; y < out.size().height; ++y)
                for (std::int64_t x = 0; x < out.size().width; ++x)
                    selected += p[std::size_t(y * out.pixelsPerRow() + x)].grayComponent > 127;
        });
        writeImageFile(out, o->out);
        fmt::print("selected {} of {} pixels from {},{} at tolerance {}: wrote {}\n", selected,
                   std::uint64_t(extent.width() * extent.height()), o->seed[0], o->seed[1],
                   o->tolerance, o->out);
    };
}

Run addDistanceCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("distance", "Distances from every pixel to a mask's white");
    struct Options {
        std::string in, out;
        double radius = 32;
        bool euclidean = false;
    };
    auto o = std::make_shared<Options>();
    cmd->add_option("mask", o->in,
                    "PNG, TIFF, JPEG or WebP; white (≥ ½) is what distances are measured to")
        ->required();
    cmd->add_option("--radius", o->radius, "the search limit in pixels")
        ->check(CLI::PositiveNumber);
    cmd->add_flag("--euclidean", o->euclidean, "exact Euclidean distances instead of chamfer ones");
    cmd->add_option("out", o->out,
                    "distances as 32-bit float grey (.tif), or as levels of the radius (.png, "
                    ".jpg, .webp)")
        ->required();
    return [cmd, o] {
        if (!cmd->parsed()) return;
        const ci::Image mask = imageOf(readImageFile(o->in));
        const cg::Rect extent = mask.extent();
        // The Euclidean transform measures to non-zero pixels: hand it the white ones.
        const ci::Image map =
            o->euclidean
                ? edtMap(bic_threshold(mask, 0.5).composited(ci::Image::black()), extent, o->radius)
                : distanceMap(mask, extent, o->radius);
        const PixelBuffer<PixelGray32> out(map, extent);
        float far = 0;
        out.withUnsafeBuffer([&](std::span<const PixelGray32> p) {
            for (std::int64_t y = 0; y < out.size().height; ++y)
                for (std::int64_t x = 0; x < out.size().width; ++x)
                    far = std::max(
                        far, std::min(p[std::size_t(y * out.pixelsPerRow() + x)].grayComponent,
                                      float(1e9)));
        });
        if (files::formatForExtension(o->out) == files::ImageFileFormat::tiff) {
            writeImageFile(out, o->out);
        } else {
            // The other formats hold levels, not lengths: distance / radius as grey, at 16 bits
            // where the format has them.
            const std::vector<double> scale{1 / o->radius, 0, 0, 0};
            const ci::Image levels = *ci::applyingFilter(
                map, "CIColorMatrix",
                {{"inputRVector", scale}, {"inputGVector", scale}, {"inputBVector", scale}});
            if (files::formatForExtension(o->out) == files::ImageFileFormat::png)
                writeImageFile(PixelBuffer<PixelGray16>(levels, extent), o->out);
            else
                writeImageFile(PixelBuffer<PixelGray8>(levels, extent), o->out);
        }
        fmt::print("{} distances of {} × {}, farthest {:.3f} px: wrote {}\n",
                   o->euclidean ? "Euclidean" : "chamfer", extent.width(), extent.height(), far,
                   o->out);
    };
}

Run addOutlineCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("outline", "Trace a mask's outlines into SVG");
    auto in = std::make_shared<std::string>(), out = std::make_shared<std::string>();
    cmd->add_option("mask", *in,
                    "PNG, TIFF, JPEG or WebP; opaque (alpha ≥ ½) or, for grey, bright pixels")
        ->required();
    cmd->add_option("out", *out, "SVG file")->required();
    return [cmd, in, out] {
        if (!cmd->parsed()) return;
        const PixelBufferType buffer = readImageFile(*in);
        const auto paths = std::visit(
            [](const auto& b) -> std::optional<std::vector<Path>> {
                if constexpr (requires { b.outlinePath(); })
                    return b.outlinePath();
                else // files are read into owned buffers
                    return std::nullopt;
            },
            buffer);
        if (!paths) throw CommandError("the mask could not be rendered");
        const IntegralSize size = std::visit([](const auto& b) { return b.size(); }, buffer);
        // Outlines run in bottom-up pixel coordinates; SVG's y runs down, through pixel centres.
        std::string svg = fmt::format(
            "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0}\" height=\"{1}\" "
            "viewBox=\"0 0 {0} {1}\">\n<g transform=\"matrix(1 0 0 -1 0.5 {2})\" fill=\"none\" "
            "stroke=\"#d02020\" stroke-width=\"1\" stroke-linejoin=\"round\">\n",
            size.width, size.height, double(size.height) - 0.5);
        for (const Path& path : *paths)
            svg += fmt::format("<path d=\"{}\"/>\n", path.svgPathData());
        svg += "</g>\n</svg>\n";
        std::ofstream file(*out);
        file << svg;
        if (!file) throw CommandError("cannot write " + *out);
        fmt::print("{} outlines of {} × {}: wrote {}\n", paths->size(), size.width, size.height,
                   *out);
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
    cmd->add_option("image", *in, "PNG, TIFF, JPEG or WebP")->required();
    cmd->add_option("--plot", *plotPath, "also draw the four histograms into this image file");
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
    auto wand = FloodFillOperation::make(photo.extent(), photo);
    wand->fill({40, 440}, std::optional<PixelARGB8>(), 0.2f, std::nullopt, false, true);
    writeImageFile(PixelBuffer<PixelGray8>(*wand->maskImage(), photo.extent()),
                   dir / "fill-sky.png");
    fmt::print("  selected the sky around (40, 40) at tolerance 0.2, holes filled: {}\n",
               (dir / "fill-sky.png").string());
    // How far every pixel is from the selection, and the selection's outlines.
    const ci::Image selection = *wand->maskImage();
    const ci::Image far =
        edtMap(bic_threshold(selection, 0.5).composited(ci::Image::black()), photo.extent(), 64);
    // Shown as a glow: 1 − distance / 64.
    using V = std::vector<double>;
    const V fade{-1.0 / 64, 0, 0, 0};
    const ci::Image glow = *ci::applyingFilter(far, "CIColorMatrix",
                                               {{"inputRVector", fade},
                                                {"inputGVector", fade},
                                                {"inputBVector", fade},
                                                {"inputAVector", V{0, 0, 0, 1}},
                                                {"inputBiasVector", V{1, 1, 1, 0}}});
    writeImageFile(PixelBuffer<PixelGray8>(glow, photo.extent()), dir / "fill-distance.png");
    fmt::print("  Euclidean distance from the selection, up to 64 px: {}\n",
               (dir / "fill-distance.png").string());
    const PixelBuffer<PixelGray8> selected(selection, photo.extent());
    const auto outlines = selected.outlinePath();
    fmt::print("  the selection has {} outline(s); the first has {} corners\n",
               outlines ? outlines->size() : 0,
               outlines && !outlines->empty() ? (*outlines)[0].subpaths[0].points.size() : 0);
    const Histogram h = areaHistogram(photo, photo.extent());
    fmt::print("  histogram of the photo:\n{}", describeHistogram(h));
    writeImageFile(plot(h), dir / "histogram.png");
    fmt::print("  wrote {}\n", (dir / "histogram.png").string());
}

} // namespace bic::tool
