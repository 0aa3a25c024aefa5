#include "document_test_support.hpp"

#include "bic/platform/coding/compression.hpp"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>

namespace bic::test_support {

std::filesystem::path psdFolder() { return BIC_TEST_PSD; }

std::vector<std::filesystem::path> validDocuments() {
    std::vector<std::filesystem::path> out;
    if (!std::filesystem::is_directory(psdFolder())) return out;
    for (const auto& e : std::filesystem::recursive_directory_iterator(psdFolder())) {
        const auto ext = e.path().extension();
        if ((ext == ".psd" || ext == ".psb") && e.path().parent_path().filename() != "malformed")
            out.push_back(e.path());
    }
    std::sort(out.begin(), out.end());
    return out;
}

std::vector<std::uint8_t> fileBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::vector<std::uint8_t> patternBlock(const std::string& id, std::uint16_t width,
                                       std::uint16_t height,
                                       const std::vector<std::vector<std::uint8_t>>& planes,
                                       bool packBits) {
    const auto rect = [&](BigEndian& b) { b.u32(0).u32(0).u32(height).u32(width); };
    BigEndian channels;
    for (const auto& plane : planes) {
        BigEndian data;
        if (packBits) {
            std::vector<std::vector<std::uint8_t>> rows;
            for (std::size_t y = 0; y < height; ++y)
                rows.push_back(
                    coding::packBits(std::span(plane).subspan(y * width, std::size_t(width))));
            for (const auto& row : rows)
                data.u16(std::uint16_t(row.size()));
            for (const auto& row : rows)
                data.append(row);
        } else {
            data.append(plane);
        }
        BigEndian header;
        header.u32(8);
        rect(header);
        header.u16(8).u8(packBits ? 1 : 0);
        channels.u32(1).u32(std::uint32_t(header.bytes.size() + data.bytes.size()));
        channels.append(header.bytes).append(data.bytes);
    }
    channels.u32(0).u32(0); // unwritten slots: the user mask and the sheet's transparency
    BigEndian list;
    rect(list);
    list.u32(24).append(channels.bytes);
    BigEndian record;
    record.u32(1).u32(3).u16(height).u16(width).unicode("P");
    record.u8(std::uint8_t(id.size())).chars(id);
    record.u32(3).u32(std::uint32_t(list.bytes.size())).append(list.bytes);
    BigEndian block;
    block.u32(std::uint32_t(record.bytes.size())).append(record.bytes);
    while (block.bytes.size() % 4)
        block.u8(0);
    return block.bytes;
}

BigEndian& BigEndian::f64(double d) {
    std::uint64_t bits;
    std::memcpy(&bits, &d, 8);
    return u64(bits);
}

BigEndian header(std::uint16_t version, std::uint16_t channels, std::uint32_t height,
                 std::uint32_t width, std::uint16_t depth, std::uint16_t mode) {
    BigEndian b;
    b.chars("8BPS").u16(version).u32(0).u16(0).u16(channels).u32(height).u32(width);
    b.u16(depth).u16(mode);
    return b;
}

SamplePlane randomPlane(std::int64_t width, std::int64_t height, int bitDepth, unsigned seed) {
    SamplePlane p(width, height, bitDepth);
    std::mt19937 random(seed);
    for (std::size_t i = 0; i < p.sampleCount(); ++i) {
        // Runs of equal samples, so that PackBits has something to do.
        const std::uint32_t v = (i % 7 < 3) ? 77u * (seed + 1) : random();
        if (bitDepth == 8)
            p.setSample<std::uint8_t>(i, std::uint8_t(v));
        else if (bitDepth == 16)
            p.setSample<std::uint16_t>(i, std::uint16_t(v));
        else
            p.setSample<float>(i, float(v % 100001) / 100000.0f);
    }
    return p;
}

namespace {

DocumentLayer pixelLayer(std::string name, DocumentRect bounds, int colors, int depth,
                         unsigned seed, bool alpha) {
    DocumentLayer layer;
    layer.name = std::move(name);
    layer.bounds = bounds;
    if (alpha)
        layer.channels.push_back({transparencyChannel, ChannelCompression::raw,
                                  randomPlane(bounds.width(), bounds.height(), depth, seed + 100)});
    for (int c = 0; c < colors; ++c)
        layer.channels.push_back(
            {std::int16_t(c), ChannelCompression::raw,
             randomPlane(bounds.width(), bounds.height(), depth, seed + unsigned(c))});
    return layer;
}

} // namespace

LayeredDocument sampleDocument(int bitDepth, DocumentColorMode mode) {
    LayeredDocument doc;
    doc.width = 7, doc.height = 5, doc.bitDepth = bitDepth, doc.colorMode = mode;
    const int colors = doc.colorChannels();
    doc.channelCount = colors + 1;
    doc.mergedAlphaIsTransparency = true;
    doc.resources.push_back({"8BIM", resolutionInfoResource, "", ResolutionInfo{300, 150}.bytes()});
    doc.resources.push_back({"8BIM", 4000, "odd", {1, 2, 3}});

    doc.layers.push_back(pixelLayer("Background", {0, 0, 5, 7}, colors, bitDepth, 1, false));
    DocumentLayer masked = pixelLayer("Masked", {-2, 3, 4, 9}, colors, bitDepth, 10, true);
    masked.opacity = 128;
    masked.mask = LayerMask{{1, -1, 4, 2},
                            255,
                            LayerMask::positionRelativeToLayer | LayerMask::hasParameters,
                            std::nullopt};
    masked.mask->parameters = MaskParameters{200, 1.5, std::nullopt, std::nullopt};
    masked.channels.push_back(
        {userMaskChannel, ChannelCompression::raw, randomPlane(3, 3, bitDepth, 20)});
    masked.blendingRanges = {0, 0, 255, 255, 0, 0, 255, 255};
    masked.blocks.push_back({"8BIM", "lyid", {0, 0, 0, 7}});
    doc.layers.push_back(std::move(masked));

    DocumentLayer group;
    group.name = "Group";
    group.kind = LayerKind::group;
    group.blendKey = "pass";
    group.blendMode = BlendMode::passThrough;
    group.groupIsOpen = false;
    for (const std::int16_t id :
         {std::int16_t(-1), std::int16_t(0), std::int16_t(1), std::int16_t(2)})
        if (id < colors)
            group.channels.push_back({id, ChannelCompression::raw, SamplePlane(0, 0, bitDepth)});
    group.sectionEnd = SectionEnd{};
    group.sectionEnd->channelIds = {transparencyChannel};
    for (int c = 0; c < colors; ++c)
        group.sectionEnd->channelIds.push_back(std::int16_t(c));
    DocumentLayer inner = pixelLayer("Ebene ü ☃ 𝄞", {1, 1, 3, 6}, colors, bitDepth, 30, true);
    inner.blendKey = "mul ";
    inner.blendMode = BlendMode::multiply;
    inner.clipping = 1;
    inner.fillOpacity = 128;
    inner.flags = DocumentLayer::pixelDataIrrelevantValid | DocumentLayer::hidden;
    group.children.push_back(std::move(inner));
    group.children.push_back(pixelLayer("Empty", {}, colors, bitDepth, 40, true));
    doc.layers.push_back(std::move(group));

    for (int c = 0; c < doc.channelCount; ++c)
        doc.composite.push_back(randomPlane(7, 5, bitDepth, 50 + unsigned(c)));
    return doc;
}

namespace {

// Equal up to zero bytes at the end of the longer (padding the writer adds).
bool samePadded(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
    const auto& shorter = a.size() <= b.size() ? a : b;
    const auto& longer = a.size() <= b.size() ? b : a;
    return std::equal(shorter.begin(), shorter.end(), longer.begin()) &&
           std::all_of(longer.begin() + std::ptrdiff_t(shorter.size()), longer.end(),
                       [](std::uint8_t v) { return v == 0; });
}

std::string blocksDiffer(const std::vector<TaggedBlock>& a, const std::vector<TaggedBlock>& b) {
    // The writer adds "luni" (and "lsct"/"iOpa" when needed) to records that lack them.
    const auto rewritten = [](const TaggedBlock& t) {
        return t.key == "luni" || t.key == "lsct" || t.key == "lsdk" || t.key == "iOpa";
    };
    std::vector<const TaggedBlock*> x, y;
    for (const auto& t : a)
        if (!rewritten(t)) x.push_back(&t);
    for (const auto& t : b)
        if (!rewritten(t)) y.push_back(&t);
    if (x.size() != y.size()) return "a different number of tagged blocks";
    for (std::size_t i = 0; i < x.size(); ++i)
        if (x[i]->key != y[i]->key || x[i]->signature != y[i]->signature ||
            !samePadded(x[i]->bytes, y[i]->bytes))
            return "tagged block " + x[i]->key + " differs";
    return {};
}

std::string layersDiffer(const std::vector<DocumentLayer>& a, const std::vector<DocumentLayer>& b,
                         const std::string& path, bool all) {
    if (a.size() != b.size())
        return path + ": " + std::to_string(a.size()) + " vs " + std::to_string(b.size()) +
               " layers";
    for (std::size_t i = 0; i < a.size(); ++i) {
        const DocumentLayer &x = a[i], &y = b[i];
        const std::string at = path + "/" + std::to_string(i) + " \"" + x.name + "\"";
        if (x.name != y.name) return at + ": name \"" + y.name + "\"";
        if (x.kind != y.kind) return at + ": kind";
        if (x.bounds != y.bounds) return at + ": bounds";
        if (x.channels.size() != y.channels.size()) return at + ": channel count";
        for (std::size_t c = 0; c < x.channels.size(); ++c)
            if (x.channels[c].id != y.channels[c].id ||
                !(x.channels[c].plane == y.channels[c].plane))
                return at + ": channel " + std::to_string(x.channels[c].id);
        if (x.blendKey != y.blendKey || x.blendMode != y.blendMode) return at + ": blend mode";
        if (x.opacity != y.opacity) return at + ": opacity";
        if (x.clipping != y.clipping || x.isVisible() != y.isVisible())
            return at + ": clipping or visibility";
        if (x.fillOpacity != y.fillOpacity) return at + ": fill opacity";
        if (x.mask != y.mask || x.realMask != y.realMask) return at + ": mask";
        if (x.solidFill != y.solidFill || x.gradientFill != y.gradientFill) return at + ": fill";
        if (auto d = layersDiffer(x.children, y.children, at, all); !d.empty()) return d;
        if (!all) continue;
        if (x.flags != y.flags) return at + ": flags";
        if (x.blendingRanges != y.blendingRanges) return at + ": blending ranges";
        if (auto d = blocksDiffer(x.blocks, y.blocks); !d.empty()) return at + ": " + d;
        if (x.hasLayerEffects != y.hasLayerEffects || x.hasVectorMask != y.hasVectorMask)
            return at + ": effects or vector mask";
        if (x.groupIsOpen != y.groupIsOpen) return at + ": group state";
        if (x.sectionEnd.has_value() != y.sectionEnd.has_value()) return at + ": group end";
        if (x.sectionEnd) {
            const SectionEnd &e = *x.sectionEnd, &f = *y.sectionEnd;
            if (e.name != f.name || e.blendKey != f.blendKey || e.flags != f.flags ||
                e.opacity != f.opacity || e.channelIds != f.channelIds)
                return at + ": group end record";
            if (auto d = blocksDiffer(e.blocks, f.blocks); !d.empty()) return at + ": end " + d;
        }
    }
    return {};
}

} // namespace

std::string differences(const LayeredDocument& a, const LayeredDocument& b, Compare what) {
    const bool all = what == Compare::everything;
    if (a.width != b.width || a.height != b.height) return "size";
    if (a.bitDepth != b.bitDepth || a.colorMode != b.colorMode) return "depth or mode";
    if (a.channelCount != b.channelCount) return "channel count";
    if (a.mergedAlphaIsTransparency != b.mergedAlphaIsTransparency) return "merged alpha";
    if (all) {
        if (a.colorModeData != b.colorModeData) return "colour mode data";
        std::vector<ImageResource> x = a.resources, y = b.resources;
        // The version resource is rewritten with the caller's merged-data flag.
        for (auto* list : {&x, &y})
            std::erase_if(*list,
                          [](const ImageResource& r) { return r.id == versionInfoResource; });
        if (x != y) return "resources";
        if (!samePadded(a.globalLayerMask, b.globalLayerMask)) return "global layer mask";
        if (auto d = blocksDiffer(a.globalBlocks, b.globalBlocks); !d.empty()) return "global " + d;
    }
    if (auto d = layersDiffer(a.layers, b.layers, "", all); !d.empty()) return d;
    if (all && a.composite != b.composite) return "composite";
    return {};
}

} // namespace bic::test_support
