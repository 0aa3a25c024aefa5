// Writing layered documents: the records of everything the reader keeps, channels through the
// channel codec, the composite as PackBits rows.

#include "bic/buffers/channel_data.hpp"
#include "bic/documents/layered_document.hpp"
#include "byte_io.hpp"
#include "document_io.hpp"

#include <fstream>

namespace bic {

namespace documents {

namespace {

using Kind = DocumentError::Kind;

struct Settings {
    bool large = false;
    int bitDepth = 8;
};

// A coded channel: its compression code and the bytes after it.
struct CodedChannel {
    ChannelCompression compression = ChannelCompression::raw;
    std::vector<std::uint8_t> bytes;
};

void appendRowCounts(ByteWriter& w, const std::vector<std::int64_t>& counts, bool large) {
    for (const auto n : counts)
        large ? w.u32(std::uint32_t(n)) : w.u16(std::uint16_t(n));
}

template <class T>
CodedChannel codeTyped(const SamplePlane& plane, bool large) {
    ChannelData<T> data({plane.bytes().begin(), plane.bytes().end()}, false);
    const std::int64_t w = plane.width(), h = plane.height();
    // PackBits for 8 bits, as the format's own writer does; deeper samples compress far better
    // with zip after the row delta. Coding that would not shrink the plane is dropped.
    if constexpr (sizeof(T) == 1)
        data.compress(ChannelDataCompressionType::rle, PredictionType::none, w, h, true);
    else
        data.compress(ChannelDataCompressionType::zip, PredictionType::sub, w, h, true);
    CodedChannel coded;
    ByteWriter out;
    switch (data.compressionType) {
    case ChannelDataCompressionType::rle:
        coded.compression = ChannelCompression::rle;
        appendRowCounts(out, data.scanlineByteCounts, large);
        break;
    case ChannelDataCompressionType::zip:
        coded.compression = data.predictionType == PredictionType::sub
                                ? ChannelCompression::zipPredicted
                                : ChannelCompression::zip;
        break;
    case ChannelDataCompressionType::none:
        coded.compression = ChannelCompression::raw;
        break;
    }
    out.append(data.data);
    coded.bytes = std::move(out.bytes());
    return coded;
}

CodedChannel codeChannel(const SamplePlane& plane, bool large) {
    if (plane.isEmpty()) return {};
    switch (plane.bitDepth()) {
    case 8:
        return codeTyped<std::uint8_t>(plane, large);
    case 16:
        return codeTyped<std::uint16_t>(plane, large);
    default:
        return codeTyped<float>(plane, large);
    }
}

std::string latin1Name(std::string_view utf8) {
    std::string out;
    for (const std::uint16_t u : utf16FromUTF8(utf8))
        out += u < 0x100 ? char(u) : '?';
    if (out.size() > 255) out.resize(255);
    return out;
}

void writeRect(ByteWriter& w, const DocumentRect& r) {
    w.i32(r.top), w.i32(r.left), w.i32(r.bottom), w.i32(r.right);
}

void writeMaskData(ByteWriter& w, const DocumentLayer& layer) {
    if (!layer.mask) {
        w.u32(0);
        return;
    }
    const std::size_t at = w.placeholder(false);
    const LayerMask& m = *layer.mask;
    writeRect(w, m.rect);
    w.u8(m.defaultColor);
    std::uint8_t flags = m.flags;
    if (m.parameters)
        flags |= LayerMask::hasParameters;
    else
        flags &= std::uint8_t(~LayerMask::hasParameters);
    w.u8(flags);
    if (layer.realMask) {
        w.u8(layer.realMask->flags);
        w.u8(layer.realMask->defaultColor);
        writeRect(w, layer.realMask->rect);
    }
    if (const auto& p = m.parameters) {
        w.u8(std::uint8_t((p->userMaskDensity ? 1 : 0) | (p->userMaskFeather ? 2 : 0) |
                          (p->vectorMaskDensity ? 4 : 0) | (p->vectorMaskFeather ? 8 : 0)));
        const auto f64 = [&](double d) {
            std::uint64_t bits;
            std::memcpy(&bits, &d, 8);
            w.u64(bits);
        };
        if (p->userMaskDensity) w.u8(*p->userMaskDensity);
        if (p->userMaskFeather) f64(*p->userMaskFeather);
        if (p->vectorMaskDensity) w.u8(*p->vectorMaskDensity);
        if (p->vectorMaskFeather) f64(*p->vectorMaskFeather);
    }
    // At least 20 bytes, as readers expect of the shortest record.
    while (w.size() - at - 4 < 20)
        w.u8(0);
    w.padFrom(at + 4, 4);
    w.patchLength(at, false);
}

void writeBlock(ByteWriter& w, const TaggedBlock& block, bool large) {
    w.chars(block.signature.size() == 4 ? block.signature : "8BIM");
    w.chars(block.key);
    const bool wide = large && hasLongLengthInLargeDocuments(block.key);
    const std::size_t at = w.placeholder(wide);
    w.append(block.bytes);
    // The length counts the padding, so readers that pad and readers that do not agree.
    w.padFrom(at + (wide ? 8 : 4), 4);
    w.patchLength(at, wide);
}

std::vector<std::uint8_t> unicodeNameBytes(std::string_view name) {
    ByteWriter w;
    const auto units = utf16FromUTF8(name);
    w.u32(std::uint32_t(units.size()));
    for (const auto u : units)
        w.u16(u);
    return std::move(w.bytes());
}

// The divider block: type, and for groups the blend key; a longer original keeps its sub-type.
std::vector<std::uint8_t> sectionBytes(const TaggedBlock* original, std::uint32_t type,
                                       const std::string* blendKey) {
    std::vector<std::uint8_t> b = original ? original->bytes : std::vector<std::uint8_t>{};
    if (b.size() < 4) b.resize(4);
    for (int i = 0; i < 4; ++i)
        b[std::size_t(i)] = std::uint8_t(type >> (24 - 8 * i));
    if (blendKey) {
        if (b.size() < 12) b.resize(12);
        std::memcpy(b.data() + 4, "8BIM", 4);
        std::memcpy(b.data() + 8, blendKey->data(), 4);
    }
    return b;
}

// What one record needs: its fields and the tagged blocks to write.
struct RecordSource {
    DocumentRect bounds;
    std::vector<const LayerChannel*> channels;
    std::vector<std::int16_t> emptyChannelIds;
    std::string blendKey;
    std::uint8_t opacity = 255, clipping = 0, flags = 0;
    const DocumentLayer* layer = nullptr; // for masks and blending ranges
    std::string name;
    std::vector<TaggedBlock> blocks;
};

std::vector<TaggedBlock> layerBlocks(const DocumentLayer& layer) {
    std::vector<TaggedBlock> blocks;
    bool hasName = false, hasSection = false, hasFill = false;
    const std::string* groupKey = layer.isGroup() ? &layer.blendKey : nullptr;
    const std::uint32_t sectionType = layer.isGroup() ? (layer.groupIsOpen ? 1 : 2) : 0;
    for (const TaggedBlock& b : layer.blocks) {
        TaggedBlock out = b;
        if (b.key == "luni") {
            out.bytes = unicodeNameBytes(layer.name);
            hasName = true;
        } else if ((b.key == "lsct" || b.key == "lsdk") && !hasSection) {
            out.bytes = sectionBytes(&b, sectionType, groupKey);
            hasSection = true;
        } else if (b.key == "iOpa") {
            out.bytes = {layer.fillOpacity, 0, 0, 0};
            hasFill = true;
        }
        blocks.push_back(std::move(out));
    }
    if (!hasName) blocks.push_back({"8BIM", "luni", unicodeNameBytes(layer.name)});
    if (!hasSection && layer.isGroup())
        blocks.push_back({"8BIM", "lsct", sectionBytes(nullptr, sectionType, groupKey)});
    if (!hasFill && layer.fillOpacity != 255)
        blocks.push_back({"8BIM", "iOpa", {layer.fillOpacity, 0, 0, 0}});
    return blocks;
}

void flatten(const std::vector<DocumentLayer>& layers, int colorChannels,
             std::vector<RecordSource>& out) {
    for (const DocumentLayer& layer : layers) {
        if (layer.isGroup()) {
            const SectionEnd end = layer.sectionEnd.value_or(SectionEnd{});
            RecordSource divider;
            divider.blendKey = end.blendKey;
            divider.opacity = end.opacity, divider.clipping = end.clipping;
            divider.flags = end.flags;
            divider.emptyChannelIds = end.channelIds;
            if (divider.emptyChannelIds.empty()) {
                divider.emptyChannelIds.push_back(transparencyChannel);
                for (int c = 0; c < colorChannels; ++c)
                    divider.emptyChannelIds.push_back(std::int16_t(c));
            }
            divider.name = end.name;
            bool hasName = false, hasSection = false;
            for (const TaggedBlock& b : end.blocks) {
                TaggedBlock copy = b;
                if (b.key == "luni") copy.bytes = unicodeNameBytes(end.name), hasName = true;
                if ((b.key == "lsct" || b.key == "lsdk") && !hasSection)
                    copy.bytes = sectionBytes(&b, 3, nullptr), hasSection = true;
                divider.blocks.push_back(std::move(copy));
            }
            if (!hasName) divider.blocks.push_back({"8BIM", "luni", unicodeNameBytes(end.name)});
            if (!hasSection)
                divider.blocks.push_back({"8BIM", "lsct", sectionBytes(nullptr, 3, nullptr)});
            out.push_back(std::move(divider));
            flatten(layer.children, colorChannels, out);
        }
        RecordSource rec;
        rec.bounds = layer.bounds;
        for (const auto& c : layer.channels)
            rec.channels.push_back(&c);
        // Readers refuse records without channels; a group or empty layer made without any
        // gets the empty ones the format's own writer gives it.
        if (rec.channels.empty() && layer.bounds.isEmpty()) {
            rec.emptyChannelIds.push_back(transparencyChannel);
            for (int c = 0; c < colorChannels; ++c)
                rec.emptyChannelIds.push_back(std::int16_t(c));
        }
        // A pass-through group's own record says normal; its divider block carries "pass".
        rec.blendKey = layer.isGroup() && layer.blendKey == "pass" ? "norm" : layer.blendKey;
        rec.opacity = layer.opacity, rec.clipping = layer.clipping, rec.flags = layer.flags;
        rec.layer = &layer;
        rec.name = layer.name;
        rec.blocks = layerBlocks(layer);
        out.push_back(std::move(rec));
    }
}

std::string where(const RecordSource& rec, std::size_t index) {
    return "layer record " + std::to_string(index) + " \"" + rec.name + "\"";
}

std::vector<std::uint8_t> layerInfo(const LayeredDocument& doc, const Settings& s) {
    std::vector<RecordSource> records;
    flatten(doc.layers, doc.colorChannels(), records);
    if (records.size() > 32767)
        throw DocumentError(Kind::tooLarge, "a document holds at most 32,767 layer records");
    ByteWriter w;
    const auto count = std::int16_t(records.size());
    w.i16(doc.mergedAlphaIsTransparency ? std::int16_t(-count) : count);
    std::vector<std::vector<CodedChannel>> coded(records.size());
    for (std::size_t i = 0; i < records.size(); ++i) {
        const RecordSource& rec = records[i];
        if (rec.blendKey.size() != 4)
            corrupt(where(rec, i) + ": blend key " + rec.blendKey + " is not four characters");
        for (const LayerChannel* c : rec.channels) {
            DocumentRect rect = rec.bounds;
            if (c->id == userMaskChannel) {
                if (!rec.layer->mask) corrupt(where(rec, i) + ": a mask channel without a mask");
                rect = rec.layer->mask->rect;
            } else if (c->id == realUserMaskChannel) {
                if (!rec.layer->realMask)
                    corrupt(where(rec, i) + ": a real mask channel without a real mask");
                rect = rec.layer->realMask->rect;
            }
            if (c->plane.width() != rect.width() || c->plane.height() != rect.height() ||
                (!c->plane.isEmpty() && c->plane.bitDepth() != s.bitDepth))
                corrupt(where(rec, i) + " channel " + std::to_string(c->id) + ": its plane is " +
                        std::to_string(c->plane.width()) + " × " +
                        std::to_string(c->plane.height()) + " at " +
                        std::to_string(c->plane.bitDepth()) + " bits, its rectangle " +
                        std::to_string(rect.width()) + " × " + std::to_string(rect.height()));
            coded[i].push_back(codeChannel(c->plane, s.large));
        }
        writeRect(w, rec.bounds);
        w.u16(std::uint16_t(rec.channels.size() + rec.emptyChannelIds.size()));
        for (std::size_t c = 0; c < rec.channels.size(); ++c) {
            w.i16(rec.channels[c]->id);
            w.length(s.large, 2 + coded[i][c].bytes.size());
        }
        for (const auto id : rec.emptyChannelIds) {
            w.i16(id);
            w.length(s.large, 2);
        }
        w.chars("8BIM");
        w.chars(rec.blendKey);
        w.u8(rec.opacity), w.u8(rec.clipping), w.u8(rec.flags), w.u8(0);
        const std::size_t extra = w.placeholder(false);
        if (rec.layer)
            writeMaskData(w, *rec.layer);
        else
            w.u32(0);
        const std::vector<std::uint8_t> noRanges;
        const auto& ranges = rec.layer ? rec.layer->blendingRanges : noRanges;
        w.u32(std::uint32_t(ranges.size()));
        w.append(ranges);
        const std::size_t nameAt = w.size();
        const std::string name = latin1Name(rec.name);
        w.u8(std::uint8_t(name.size()));
        w.chars(name);
        w.padFrom(nameAt, 4);
        for (const TaggedBlock& b : rec.blocks)
            writeBlock(w, b, s.large);
        w.patchLength(extra, false);
    }
    for (std::size_t i = 0; i < records.size(); ++i) {
        for (const CodedChannel& c : coded[i]) {
            w.u16(std::uint16_t(c.compression));
            w.append(c.bytes);
        }
        for (std::size_t k = 0; k < records[i].emptyChannelIds.size(); ++k)
            w.u16(0);
    }
    return std::move(w.bytes());
}

// The version resource with the merged-data flag set as the caller says; names and versions
// of a kept resource stay.
std::vector<std::uint8_t> versionInfo(const ImageResource* kept, bool real) {
    if (kept && kept->bytes.size() >= 5) {
        std::vector<std::uint8_t> b = kept->bytes;
        b[4] = real ? 1 : 0;
        return b;
    }
    ByteWriter w;
    w.u32(1);
    w.u8(real ? 1 : 0);
    for (int i = 0; i < 2; ++i) {
        const auto units = utf16FromUTF8("BrellinImageCore");
        w.u32(std::uint32_t(units.size()));
        for (const auto u : units)
            w.u16(u);
    }
    w.u32(1);
    return std::move(w.bytes());
}

void writeResource(ByteWriter& w, const ImageResource& r, const std::vector<std::uint8_t>& bytes) {
    w.chars(r.signature.size() == 4 ? r.signature : "8BIM");
    w.u16(r.id);
    const std::string name = r.name.substr(0, 255);
    w.u8(std::uint8_t(name.size()));
    w.chars(name);
    if ((1 + name.size()) % 2) w.u8(0);
    w.u32(std::uint32_t(bytes.size()));
    w.append(bytes);
    if (bytes.size() % 2) w.u8(0);
}

// The composite planes to write: the caller's, the document's, or white (transparent when the
// document's first alpha is its transparency).
std::vector<SamplePlane> compositePlanes(const LayeredDocument& doc,
                                         const DocumentWriteOptions& options) {
    const std::vector<SamplePlane>& given = options.composite ? *options.composite : doc.composite;
    if (!given.empty()) {
        if (int(given.size()) < doc.colorChannels() || given.size() > 56)
            corrupt("the composite has " + std::to_string(given.size()) + " planes");
        for (const SamplePlane& p : given)
            if (p.width() != doc.width || p.height() != doc.height || p.bitDepth() != doc.bitDepth)
                corrupt("a composite plane is " + std::to_string(p.width()) + " × " +
                        std::to_string(p.height()) + " at " + std::to_string(p.bitDepth()) +
                        " bits; the document is " + std::to_string(doc.width) + " × " +
                        std::to_string(doc.height) + " at " + std::to_string(doc.bitDepth));
        return given;
    }
    std::vector<SamplePlane> planes;
    const int count =
        std::max(doc.colorChannels(), doc.mergedAlphaIsTransparency ? doc.colorChannels() + 1 : 0);
    for (int c = 0; c < count; ++c) {
        SamplePlane p(doc.width, doc.height, doc.bitDepth);
        if (c < doc.colorChannels()) {
            for (std::size_t i = 0; i < p.sampleCount(); ++i) {
                if (doc.bitDepth == 8)
                    p.setSample<std::uint8_t>(i, 255);
                else if (doc.bitDepth == 16)
                    p.setSample<std::uint16_t>(i, 65535);
                else
                    p.setSample<float>(i, 1.0f);
            }
        }
        planes.push_back(std::move(p));
    }
    return planes;
}

// PackBits rows of the big-endian samples, all rows' lengths first: the one compression every
// reader of the composite understands at every depth.
void writeComposite(ByteWriter& w, const std::vector<SamplePlane>& planes, const Settings& s) {
    w.u16(std::uint16_t(ChannelCompression::rle));
    std::vector<ChannelData<std::uint8_t>> coded;
    for (const SamplePlane& p : planes) {
        const int bytes = p.bitDepth() / 8;
        std::vector<std::uint8_t> big(p.bytes().begin(), p.bytes().end());
        if (bytes > 1)
            for (std::size_t i = 0; i < big.size(); i += std::size_t(bytes))
                std::reverse(big.begin() + std::ptrdiff_t(i),
                             big.begin() + std::ptrdiff_t(i) + bytes);
        ChannelData<std::uint8_t> data(std::move(big), false);
        data.compress(ChannelDataCompressionType::rle, PredictionType::none, p.width() * bytes,
                      p.height(), false);
        coded.push_back(std::move(data));
    }
    for (const auto& c : coded)
        appendRowCounts(w, c.scanlineByteCounts, s.large);
    for (const auto& c : coded)
        w.append(c.data);
}

} // namespace

std::vector<std::uint8_t> writeDocument(const LayeredDocument& doc,
                                        const DocumentWriteOptions& options) {
    if (doc.width < 1 || doc.height < 1 || doc.width > LayeredDocument::maximumPSBSide ||
        doc.height > LayeredDocument::maximumPSBSide)
        throw DocumentError(Kind::tooLarge, "a document of " + std::to_string(doc.width) + " × " +
                                                std::to_string(doc.height) +
                                                " pixels cannot be written");
    if (doc.colorMode != DocumentColorMode::rgb && doc.colorMode != DocumentColorMode::grayscale)
        throw DocumentError(Kind::unsupportedColorMode,
                            "only RGB and Grayscale documents are written");
    if (doc.bitDepth != 8 && doc.bitDepth != 16 && doc.bitDepth != 32)
        throw DocumentError(Kind::unsupportedBitDepth,
                            "unsupported bit depth " + std::to_string(doc.bitDepth));
    const bool needsLarge = std::max(doc.width, doc.height) > LayeredDocument::maximumPSDSide;
    using Format = DocumentWriteOptions::Format;
    if (options.format == Format::psd && needsLarge)
        throw DocumentError(Kind::tooLarge, "a side beyond 30,000 pixels needs PSB");
    const Settings s{options.format == Format::psb || needsLarge, doc.bitDepth};
    const std::vector<SamplePlane> planes = compositePlanes(doc, options);

    ByteWriter w;
    w.chars("8BPS");
    w.u16(s.large ? 2 : 1);
    w.zeros(6);
    w.u16(std::uint16_t(planes.size()));
    w.u32(std::uint32_t(doc.height));
    w.u32(std::uint32_t(doc.width));
    w.u16(std::uint16_t(doc.bitDepth));
    w.u16(std::uint16_t(doc.colorMode));
    w.u32(std::uint32_t(doc.colorModeData.size()));
    w.append(doc.colorModeData);

    const std::size_t resources = w.placeholder(false);
    bool wroteVersion = false;
    for (const ImageResource& r : doc.resources) {
        if (r.id == versionInfoResource) {
            if (wroteVersion) continue;
            writeResource(w, r, versionInfo(&r, options.compositeIsRealMergedData));
            wroteVersion = true;
        } else {
            writeResource(w, r, r.bytes);
        }
    }
    if (!wroteVersion) {
        ImageResource version;
        version.id = versionInfoResource;
        writeResource(w, version, versionInfo(nullptr, options.compositeIsRealMergedData));
    }
    w.patchLength(resources, false);

    const std::size_t section = w.placeholder(s.large);
    const std::vector<std::uint8_t> info = layerInfo(doc, s);
    // 8-bit layers go in the layer info; 16 and 32-bit ones in a tagged block of their own
    // after an empty layer info, where readers of those depths look for them.
    // A document without layers has neither (an empty block puzzles some readers).
    const bool hasLayers = info.size() > 2;
    const bool inBlock = doc.bitDepth != 8 && hasLayers;
    const std::size_t infoAt = w.placeholder(s.large);
    if (!inBlock && hasLayers) {
        w.append(info);
        w.padFrom(infoAt + (s.large ? 8 : 4), 4);
    }
    w.patchLength(infoAt, s.large);
    w.u32(std::uint32_t(doc.globalLayerMask.size()));
    w.append(doc.globalLayerMask);
    // The merged-transparency markers go before the layers, where readers look for them before
    // they read on.
    const auto isMarker = [](const TaggedBlock& b) {
        return b.key == "Mtrn" || b.key == "Mt16" || b.key == "Mt32";
    };
    for (const TaggedBlock& b : doc.globalBlocks)
        if (isMarker(b)) writeBlock(w, b, s.large);
    if (inBlock) writeBlock(w, {"8BIM", doc.bitDepth == 16 ? "Lr16" : "Lr32", info}, s.large);
    for (const TaggedBlock& b : doc.globalBlocks)
        if (!isMarker(b)) writeBlock(w, b, s.large);
    w.patchLength(section, s.large);

    writeComposite(w, planes, s);
    return std::move(w.bytes());
}

} // namespace documents

std::vector<std::uint8_t> LayeredDocument::write(const DocumentWriteOptions& options) const {
    return documents::writeDocument(*this, options);
}

void LayeredDocument::write(const std::filesystem::path& path,
                            const DocumentWriteOptions& options) const {
    const std::vector<std::uint8_t> bytes = write(options);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) throw DocumentError(DocumentError::Kind::io, "cannot create " + path.string());
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    out.close();
    if (!out) throw DocumentError(DocumentError::Kind::io, "cannot write " + path.string());
}

} // namespace bic
