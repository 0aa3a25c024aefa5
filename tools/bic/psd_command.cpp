// bic psd: a layered document's layer tree, our composite and the stored one, its layers as
// images, and a round trip through the writer; and the demo's layered-document section.

#include "bic/documents/document_composition.hpp"
#include "bic/documents/layered_document.hpp"
#include "commands.hpp"
#include "common/synthetic_document.hpp"
#include "image_files.hpp"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>
#include <memory>

namespace bic::tool {

namespace {

int percent(std::uint8_t v) { return int(std::lround(v * 100.0 / 255)); }

std::string rectText(const DocumentRect& r) {
    return fmt::format("{},{} {}×{}", r.left, r.top, r.width(), r.height());
}

std::string keyText(const std::string& key) {
    std::string out;
    for (const char c : key)
        out += (c >= 0x20 && c < 0x7F) ? c : '?';
    return out;
}

std::string maskText(const DocumentLayer& layer) {
    if (!layer.mask) return "none";
    const LayerMask& m = *layer.mask;
    std::string text = rectText(m.rect) + fmt::format(" default {}", m.defaultColor);
    if (m.isDisabled()) text += " disabled";
    if (m.isPositionRelativeToLayer()) text += " relative";
    if (m.isInverted()) text += " inverted";
    if (layer.realMask)
        text += " real " + rectText(layer.realMask->rect) +
                (layer.realMask->isDisabled() ? " disabled" : "");
    return text;
}

std::string treeLine(std::size_t index, int depth, const DocumentLayer& layer) {
    std::string kind(layerKindName(layer.kind));
    if (layer.hasLayerEffects) kind += "+effects";
    if (layer.hasVectorMask) kind += "+vector mask";
    const std::string blend = layer.blendMode ? std::string(layer.blendMode->name())
                                              : "unknown '" + keyText(layer.blendKey) + "'";
    return fmt::format("{}{:>3} \"{}\"  {}  {}  opacity {}%  fill {}%  bounds {}  mask {}  {}  {}",
                       std::string(std::size_t(depth) * 2, ' '), index, layer.name, kind, blend,
                       percent(layer.opacity), percent(layer.fillOpacity), rectText(layer.bounds),
                       maskText(layer), layer.isClipped() ? "clipped" : "base",
                       layer.isVisible() ? "visible" : "hidden");
}

// Straight samples as 8 or 16-bit PNG values: floats clamp to 0…1 and scale to 16 bits.
std::uint16_t pngSample(const SamplePlane& p, std::size_t i) {
    switch (p.bitDepth()) {
    case 8:
        return p.sample<std::uint8_t>(i);
    case 16:
        return p.sample<std::uint16_t>(i);
    default: {
        const float f = p.sample<float>(i);
        return std::uint16_t(
            std::lround(std::clamp(std::isfinite(f) ? double(f) : 0.0, 0.0, 1.0) * 65535));
    }
    }
}

// RGBA image of straight planes: grey fills red, green and blue; no alpha plane is opaque. The
// document's profile goes along when it is an RGB one.
void writePlanes(std::int64_t width, std::int64_t height, int bitDepth,
                 const std::vector<const SamplePlane*>& colors, const SamplePlane* alpha,
                 const std::filesystem::path& path, const std::vector<std::uint8_t>& profile) {
    const int depth = bitDepth == 8 ? 8 : 16;
    const std::size_t n = std::size_t(width * height);
    std::vector<std::uint8_t> samples(n * 4 * std::size_t(depth / 8));
    const std::uint16_t opaque = depth == 8 ? 255 : 65535;
    for (std::size_t i = 0; i < n; ++i)
        for (std::size_t c = 0; c < 4; ++c) {
            const SamplePlane* p = c < 3 ? colors[std::min(c, colors.size() - 1)] : alpha;
            const std::uint16_t v = p ? pngSample(*p, i) : c == 3 ? opaque : 0;
            if (depth == 8)
                samples[i * 4 + c] = std::uint8_t(v);
            else
                std::memcpy(samples.data() + (i * 4 + c) * 2, &v, 2);
        }
    writeImageFile(files::StraightImage{width, height, 4, depth, std::move(samples)}, path,
                   profile);
}

std::vector<std::uint8_t> rgbProfile(const LayeredDocument& doc) {
    auto icc = doc.iccProfile();
    if (!icc) return {};
    const auto space = cg::ColorSpace::fromICCProfile(*icc);
    return space && space->model() == cg::ColorSpaceModel::rgb ? *icc : std::vector<std::uint8_t>();
}

// A layer name as a file name: no separators, reserved or control characters, no leading dot.
std::string fileName(const std::string& name) {
    std::string out;
    for (const char ch : name) {
        const auto c = static_cast<unsigned char>(ch);
        const bool bad = c < 0x20 || c == 0x7F ||
                         std::string_view("/\\:*?\"<>|").find(ch) != std::string_view::npos;
        out += bad ? '_' : ch;
    }
    if (out.empty() || out[0] == '.') out.insert(out.begin(), '_');
    if (out.size() > 100) {
        out.resize(100);
        while (!out.empty() && (static_cast<unsigned char>(out.back()) & 0xC0) == 0x80)
            out.pop_back();
        if (!out.empty() && static_cast<unsigned char>(out.back()) >= 0xC0) out.pop_back();
    }
    return out;
}

std::string describe(const LayeredDocument& doc) {
    const auto real = doc.hasRealMergedData();
    return fmt::format(
        "{}, {}, {} bits, {} × {}, {} channels, composite {}{}, {} layers and groups",
        doc.isLargeDocument ? "PSB" : "PSD", colorModeName(std::uint16_t(doc.colorMode)),
        doc.bitDepth, doc.width, doc.height, doc.channelCount,
        channelCompressionName(doc.compositeCompression),
        real ? (*real ? " (real merged data)" : " (not real merged data)") : "", doc.layerCount());
}

// Straight planes of the document's size (colour, then optionally alpha) as an RGBA image of
// the format the path names.
void writeComposite(const LayeredDocument& doc, const std::vector<SamplePlane>& planes,
                    const std::string& path) {
    std::vector<const SamplePlane*> colors;
    for (int c = 0; c < doc.colorChannels(); ++c)
        colors.push_back(&planes[std::size_t(c)]);
    const SamplePlane* alpha = int(planes.size()) > doc.colorChannels() ? &planes.back() : nullptr;
    writePlanes(doc.width, doc.height, doc.bitDepth, colors, alpha, path, rgbProfile(doc));
    fmt::print("wrote {} ({} × {}, {} bits)\n", path, doc.width, doc.height,
               doc.bitDepth == 8 ? 8 : 16);
}

} // namespace

void documentSection(const std::filesystem::path& dir) {
    fmt::print("== layered documents ==\n");
    LayeredDocument doc = synthetic::layeredDocument(240, 160, 8);
    DocumentComposition composition(doc);
    DocumentWriteOptions options;
    options.composite = composition.renderForFile();
    options.compositeIsRealMergedData = true;
    const auto psd = dir / "document.psd";
    doc.write(psd, options);
    const LayeredDocument back = LayeredDocument::read(psd);
    fmt::print("{}: {}\n", psd.string(), describe(back));
    back.walk([](std::size_t index, int depth, const DocumentLayer& layer) {
        fmt::print("{}\n", treeLine(index, depth, layer));
    });
    writeComposite(back, DocumentComposition(back).render(), (dir / "document.png").string());
}

Run addPsdCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("psd", "A layered document (PSD or PSB): its layer tree, "
                                          "stored composite and layers");
    struct Options {
        std::string file, composite, stored, layers, write, layerFormat = "png";
    };
    auto o = std::make_shared<Options>();
    cmd->add_option("file", o->file, "the document")->required();
    cmd->add_option("--composite", o->composite,
                    "write our composite of the visible layers (straight RGBA)");
    cmd->add_option("--stored", o->stored, "write the file's stored composite (straight RGBA)");
    cmd->add_option("--layers", o->layers, "write each layer's pixels as DIR/NNN-name.png");
    cmd->add_option("--layer-format", o->layerFormat,
                    "the layers' file type: png (default), tif, "
                    "jpg or webp")
        ->check(CLI::IsMember({"png", "tif", "jpg", "webp"}));
    cmd->add_option("--write", o->write, "write the document again (a round trip)");
    return [cmd, o] {
        if (!cmd->parsed()) return;
        LayeredDocument doc;
        try {
            doc = LayeredDocument::read(std::filesystem::path(o->file));
        } catch (const DocumentError& e) {
            throw CommandError(o->file + ": " + e.what());
        }
        const bool listing =
            o->composite.empty() && o->stored.empty() && o->layers.empty() && o->write.empty();
        if (listing) {
            fmt::print("{}: {}\n", o->file, describe(doc));
            doc.walk([](std::size_t index, int depth, const DocumentLayer& layer) {
                fmt::print("{}\n", treeLine(index, depth, layer));
            });
        }
        if (!o->composite.empty()) {
            const DocumentComposition composition(doc);
            for (const CompositeApproximation& a : composition.approximations())
                fmt::print(stderr, "bic: approximated layer {} \"{}\": {}\n", a.layerIndex,
                           a.layerName, a.reason);
            writeComposite(doc, composition.render(), o->composite);
        }
        if (!o->stored.empty()) {
            const std::vector<SamplePlane> planes = doc.straightComposite();
            if (planes.empty()) throw CommandError(o->file + ": the document has no composite");
            writeComposite(doc, planes, o->stored);
        }
        if (!o->layers.empty()) {
            std::filesystem::create_directories(o->layers);
            std::size_t number = 0;
            doc.walk([&](std::size_t, int, const DocumentLayer& layer) {
                if (layer.isGroup()) return;
                const std::string name =
                    fmt::format("{:03}-{}.{}", number++, fileName(layer.name), o->layerFormat);
                if (layer.bounds.isEmpty()) {
                    fmt::print("{}: no pixels\n", name);
                    return;
                }
                const auto plane = [&](std::int16_t id) -> const SamplePlane* {
                    const LayerChannel* c = layer.channel(id);
                    return c && c->plane.width() == layer.bounds.width() &&
                                   c->plane.height() == layer.bounds.height()
                               ? &c->plane
                               : nullptr;
                };
                std::vector<const SamplePlane*> colors;
                for (int c = 0; c < doc.colorChannels(); ++c)
                    colors.push_back(plane(std::int16_t(c)));
                const auto path = std::filesystem::path(o->layers) / name;
                writePlanes(layer.bounds.width(), layer.bounds.height(), doc.bitDepth, colors,
                            plane(transparencyChannel), path, rgbProfile(doc));
                fmt::print("wrote {}\n", path.string());
            });
        }
        if (!o->write.empty()) {
            DocumentWriteOptions options;
            options.format = doc.isLargeDocument ? DocumentWriteOptions::Format::psb
                                                 : DocumentWriteOptions::Format::automatic;
            // The layers are unchanged, so the stored composite is still what they make.
            options.compositeIsRealMergedData = doc.hasRealMergedData().value_or(false);
            try {
                doc.write(std::filesystem::path(o->write), options);
            } catch (const DocumentError& e) {
                throw CommandError(o->write + ": " + e.what());
            }
            fmt::print("wrote {} ({} layers and groups)\n", o->write, doc.layerCount());
        }
        // Problems that did not stop the reading still make the command fail, on one line.
        if (!doc.issues.empty()) {
            std::string line = o->file + ": " + doc.issues.front().message;
            if (doc.issues.size() > 1)
                line += fmt::format(" (and {} more problems)", doc.issues.size() - 1);
            throw CommandError(line);
        }
    };
}

} // namespace bic::tool
