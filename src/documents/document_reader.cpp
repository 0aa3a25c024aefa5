// Reading layered documents. Every length, count and size from the file is checked against the
// bytes that remain before it is used, and against the format's maxima before anything is
// allocated for it.

#include "bic/buffers/channel_data.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/documents/layered_document.hpp"
#include "bic/platform/coding/compression.hpp"
#include "byte_io.hpp"
#include "document_io.hpp"

#include <cctype>
#include <exception>
#include <fstream>
#include <iterator>
#include <tbb/parallel_for.h>

namespace bic {

namespace documents {

namespace {

using Kind = DocumentError::Kind;

std::string keyText(const std::string& key) {
    std::string out = "'";
    for (const char c : key)
        out += (c >= 0x20 && c < 0x7F) ? c : '?';
    return out + "'";
}

// The way a plane's samples are stored, as ChannelData's compression and prediction.
template <class T>
SamplePlane decodeTyped(std::span<const std::uint8_t> data, std::vector<std::int64_t> counts,
                        ChannelCompression compression, std::int64_t width, std::int64_t height,
                        int bitDepth) {
    ChannelData<T> plane;
    plane.dataIsBigEndian = true;
    switch (compression) {
    case ChannelCompression::raw: {
        const std::size_t size = std::size_t(width * height) * sizeof(T);
        if (data.size() < size)
            corrupt("raw data holds " + std::to_string(data.size()) + " bytes, " +
                    std::to_string(size) + " needed");
        data = data.first(size);
        break;
    }
    case ChannelCompression::rle:
        plane.compressionType = ChannelDataCompressionType::rle;
        plane.scanlineByteCounts = std::move(counts);
        break;
    case ChannelCompression::zip:
    case ChannelCompression::zipPredicted:
        plane.compressionType = ChannelDataCompressionType::zip;
        plane.predictionType = compression == ChannelCompression::zipPredicted
                                   ? PredictionType::sub
                                   : PredictionType::none;
        break;
    }
    plane.data.assign(data.begin(), data.end());
    ByteBuffer samples;
    try {
        // Sized from the coded bytes first: a plane the data cannot fill is refused before its
        // memory is asked for.
        plane.requireCodedBytesFor(width, height);
        samples.resize(std::size_t(width * height) * sizeof(T));
        plane.decodeInto(width, height, samples);
    } catch (const coding::CompressionError& e) {
        // The coder's sentence, as a clause of ours.
        std::string text = e.what();
        if (!text.empty()) text[0] = char(std::tolower(static_cast<unsigned char>(text[0])));
        if (!text.empty() && text.back() == '.') text.pop_back();
        corrupt(text);
    } catch (const ImageCoreError&) {
        corrupt(std::string(channelCompressionName(compression)) + " data does not decode to " +
                std::to_string(width) + " × " + std::to_string(height) + " samples of " +
                std::to_string(bitDepth) + " bits");
    }
    return SamplePlane(width, height, bitDepth, std::move(samples));
}

} // namespace

SamplePlane decodePlane(std::span<const std::uint8_t> data, std::vector<std::int64_t> counts,
                        ChannelCompression compression, std::int64_t width, std::int64_t height,
                        int bitDepth) {
    if (width == 0 || height == 0) return SamplePlane(width, height, bitDepth);
    switch (bitDepth) {
    case 8:
        return decodeTyped<std::uint8_t>(data, std::move(counts), compression, width, height, 8);
    case 16:
        return decodeTyped<std::uint16_t>(data, std::move(counts), compression, width, height, 16);
    default:
        return decodeTyped<float>(data, std::move(counts), compression, width, height, 32);
    }
}

namespace {

ChannelCompression compressionCode(std::uint16_t code, const std::string& where) {
    if (code > 3)
        throw DocumentError(Kind::unsupportedCompression,
                            where + ": unknown compression " + std::to_string(code));
    return ChannelCompression(code);
}

// Row byte counts of RLE data: 2 bytes each in PSD, 4 in PSB.
std::vector<std::int64_t> rowCounts(ByteReader& r, std::uint64_t rows, bool large,
                                    std::string_view what) {
    r.need(rows * (large ? 4 : 2), what);
    std::vector<std::int64_t> counts(rows);
    for (auto& c : counts)
        c = large ? std::int64_t(r.u32(what)) : std::int64_t(r.u16(what));
    return counts;
}

struct Context {
    bool large = false;
    int bitDepth = 8;
    int colorChannels = 3;
};

// A record while reading: the layer, what its divider says, its channels' stored lengths.
struct Record {
    DocumentLayer layer;
    int sectionType = 0; // 0 layer, 1 open group, 2 closed group, 3 end of group
    std::vector<std::uint64_t> channelLengths;
};

std::string latin1ToUTF8(std::span<const std::uint8_t> bytes) {
    std::string out;
    for (const std::uint8_t b : bytes) {
        if (b < 0x80) {
            out += char(b);
        } else {
            out += char(0xC0 | b >> 6);
            out += char(0x80 | (b & 0x3F));
        }
    }
    return out;
}

void readMask(ByteReader m, Record& rec, bool hasRealMaskChannel, const std::string& where) {
    if (m.remaining() == 0) return;
    LayerMask mask;
    mask.rect.top = m.i32("a layer mask");
    mask.rect.left = m.i32("a layer mask");
    mask.rect.bottom = m.i32("a layer mask");
    mask.rect.right = m.i32("a layer mask");
    mask.defaultColor = m.u8("a layer mask");
    mask.flags = m.u8("a layer mask");
    // The real user mask comes before the parameters. It is there when the layer has its
    // channel, or, without parameters, when the record is long enough to hold it.
    const bool parameters = mask.flags & LayerMask::hasParameters;
    if (hasRealMaskChannel || (!parameters && m.remaining() >= 18)) {
        RealUserMask real;
        real.flags = m.u8("a real user mask");
        real.defaultColor = m.u8("a real user mask");
        real.rect.top = m.i32("a real user mask");
        real.rect.left = m.i32("a real user mask");
        real.rect.bottom = m.i32("a real user mask");
        real.rect.right = m.i32("a real user mask");
        rec.layer.realMask = real;
    }
    if (parameters) {
        // The flag without the parameters' byte reads as parameters that set nothing.
        MaskParameters p;
        const std::uint8_t which = m.remaining() > 0 ? m.u8("mask parameters") : 0;
        if (which & 1) p.userMaskDensity = m.u8("mask parameters");
        if (which & 2) p.userMaskFeather = m.f64("mask parameters");
        if (which & 4) p.vectorMaskDensity = m.u8("mask parameters");
        if (which & 8) p.vectorMaskFeather = m.f64("mask parameters");
        mask.parameters = p;
    }
    for (const DocumentRect& r : {mask.rect, rec.layer.realMask.value_or(RealUserMask{}).rect})
        if (r.bottom < r.top || r.right < r.left || r.width() > LayeredDocument::maximumPSBSide ||
            r.height() > LayeredDocument::maximumPSBSide)
            corrupt(where + ": the mask rectangle is inverted or too large");
    rec.layer.mask = mask;
}

// Tagged blocks until the data ends. Writers pad blocks to 2 or 4 bytes, some without counting
// the padding in the length; whatever is left that cannot hold a block is padding.
std::vector<TaggedBlock> readBlocks(ByteReader& r, bool large, const std::string& where) {
    std::vector<TaggedBlock> blocks;
    const auto isSignature = [](std::span<const std::uint8_t> b) {
        return b.size() >= 4 && b[0] == '8' && b[1] == 'B' &&
               ((b[2] == 'I' && b[3] == 'M') || (b[2] == '6' && b[3] == '4'));
    };
    while (r.remaining() >= 12) {
        if (!isSignature(r.peek(4))) {
            // Padding a writer did not count: up to three bytes before the next signature.
            bool found = false;
            for (std::size_t skip = 1; skip <= 3 && !found; ++skip) {
                const auto ahead = r.peek(skip + 4);
                if (ahead.size() == skip + 4 && isSignature(ahead.subspan(skip))) {
                    r.skip(skip, "padding");
                    found = true;
                }
            }
            if (!found) {
                if (blocks.empty() || r.remaining() > 3)
                    corrupt(where + ": tagged block " + std::to_string(blocks.size()) +
                            " has no signature (at byte " + std::to_string(r.offset()) + ")");
                break;
            }
            if (r.remaining() < 12) break;
        }
        TaggedBlock block;
        block.signature = r.chars(4, "a tagged block");
        block.key = r.chars(4, "a tagged block");
        const bool wide = large && hasLongLengthInLargeDocuments(block.key);
        const std::uint64_t length = r.length(wide, "a tagged block");
        if (length > r.remaining())
            throw DocumentError(Kind::truncated, where + ": tagged block " + keyText(block.key) +
                                                     " says " + std::to_string(length) +
                                                     " bytes, only " +
                                                     std::to_string(r.remaining()) + " remain");
        const auto data = r.take(length, "a tagged block");
        block.bytes.assign(data.begin(), data.end());
        blocks.push_back(std::move(block));
    }
    return blocks;
}

const TaggedBlock* findBlock(const DocumentLayer& layer, std::string_view key) {
    for (const auto& b : layer.blocks)
        if (b.key == key) return &b;
    return nullptr;
}

// What the record's tagged blocks say: name, divider, fill opacity, kind.
void interpretBlocks(Record& rec) {
    DocumentLayer& layer = rec.layer;
    bool sectionSeen = false;
    for (const auto& block : layer.blocks) {
        const std::string& k = block.key;
        ByteReader b(block.bytes);
        if (k == "luni" && b.remaining() >= 4) {
            const std::uint32_t count = b.u32("a Unicode name");
            if (std::uint64_t(count) * 2 <= b.remaining()) {
                std::vector<std::uint16_t> units(count);
                for (auto& u : units)
                    u = b.u16("a Unicode name");
                while (!units.empty() && units.back() == 0)
                    units.pop_back();
                layer.name = utf8FromUTF16(units);
            }
        } else if ((k == "lsct" || k == "lsdk") && !sectionSeen) {
            // "lsdk" stands for "lsct" in nested groups of some versions; only the first one
            // counts (and only it is rewritten by the writer).
            sectionSeen = true;
            if (b.remaining() >= 4)
                rec.sectionType = int(std::min<std::uint32_t>(b.u32("a section divider"), 4));
            if (rec.sectionType == 4) rec.sectionType = 0;
            if (b.remaining() >= 8 && (rec.sectionType == 1 || rec.sectionType == 2)) {
                b.skip(4, "a section divider");
                layer.blendKey = b.chars(4, "a section divider");
            }
        } else if (k == "iOpa" && b.remaining() >= 1) {
            layer.fillOpacity = b.u8("fill opacity");
        } else if (k == "SoCo") {
            layer.kind = LayerKind::solidColorFill;
        } else if (k == "GdFl") {
            layer.kind = LayerKind::gradientFill;
        } else if (k == "PtFl") {
            layer.kind = LayerKind::patternFill;
        } else if (k == "SoLd" || k == "PlLd" || k == "SoLE") {
            layer.kind = LayerKind::smartObject;
        } else if (k == "TySh" || k == "tySh") {
            layer.kind = LayerKind::text;
        } else if (k == "lfx2" || k == "lrFX" || k == "lmfx") {
            layer.hasLayerEffects = true;
        } else if (k == "vmsk" || k == "vsms") {
            layer.hasVectorMask = true;
        } else {
            static constexpr std::string_view adjustments[] = {
                "brit", "levl", "curv", "expA", "vibA", "hue ", "hue2", "blnc", "blwh",
                "phfl", "mixr", "clrL", "nvrt", "post", "thrs", "grdm", "selc", "CgEd"};
            for (const auto a : adjustments)
                if (k == a) layer.kind = LayerKind::adjustment;
        }
    }
    if (rec.sectionType == 1 || rec.sectionType == 2) {
        layer.kind = LayerKind::group;
        layer.groupIsOpen = rec.sectionType == 1;
    }
}

Record readRecord(ByteReader& r, std::size_t index, const Context& ctx) {
    Record rec;
    DocumentLayer& layer = rec.layer;
    const std::string where = "layer record " + std::to_string(index);
    layer.bounds.top = r.i32("a layer record");
    layer.bounds.left = r.i32("a layer record");
    layer.bounds.bottom = r.i32("a layer record");
    layer.bounds.right = r.i32("a layer record");
    const DocumentRect& b = layer.bounds;
    if (b.bottom < b.top || b.right < b.left)
        corrupt(where + ": its bounds are inverted (" + std::to_string(b.top) + ", " +
                std::to_string(b.left) + ", " + std::to_string(b.bottom) + ", " +
                std::to_string(b.right) + ")");
    if (b.width() > LayeredDocument::maximumPSBSide || b.height() > LayeredDocument::maximumPSBSide)
        throw DocumentError(Kind::tooLarge,
                            where + ": its bounds are " + std::to_string(b.width()) + " × " +
                                std::to_string(b.height()) + ", beyond the format's maxima");
    const std::uint16_t channelCount = r.u16("a layer record");
    if (channelCount > 56)
        corrupt(where + ": it has " + std::to_string(channelCount) + " channels (at most 56)");
    r.need(std::uint64_t(channelCount) * (ctx.large ? 10 : 6), "a layer's channel list");
    for (std::uint16_t c = 0; c < channelCount; ++c) {
        LayerChannel channel;
        channel.id = r.i16("a layer's channel list");
        if (channel.id < realUserMaskChannel)
            corrupt(where + ": channel id " + std::to_string(channel.id) + " is not defined");
        rec.channelLengths.push_back(r.length(ctx.large, "a layer's channel list"));
        layer.channels.push_back(std::move(channel));
    }
    const std::string signature = r.chars(4, "a layer record");
    if (signature != "8BIM" && signature != "8B64")
        corrupt(where + ": the blend mode signature is " + keyText(signature) + ", not '8BIM'");
    layer.blendKey = r.chars(4, "a layer record");
    layer.opacity = r.u8("a layer record");
    layer.clipping = r.u8("a layer record");
    layer.flags = r.u8("a layer record");
    r.u8("a layer record");
    const std::uint32_t extraLength = r.u32("a layer record");
    if (extraLength > r.remaining())
        throw DocumentError(Kind::truncated, where + ": its extra data says " +
                                                 std::to_string(extraLength) + " bytes, only " +
                                                 std::to_string(r.remaining()) + " remain");
    ByteReader extra = r.sub(extraLength, "a layer's extra data");
    const std::uint32_t maskLength = extra.u32("a layer's mask data");
    if (maskLength > extra.remaining()) corrupt(where + ": its mask data runs past its extra data");
    const bool hasRealMaskChannel = layer.channel(realUserMaskChannel) != nullptr;
    readMask(extra.sub(maskLength, "a layer's mask data"), rec, hasRealMaskChannel, where);
    const std::uint32_t rangesLength = extra.u32("a layer's blending ranges");
    if (rangesLength > extra.remaining())
        corrupt(where + ": its blending ranges run past its extra data");
    const auto ranges = extra.take(rangesLength, "a layer's blending ranges");
    layer.blendingRanges.assign(ranges.begin(), ranges.end());
    const std::uint8_t nameLength = extra.u8("a layer name");
    layer.name = latin1ToUTF8(extra.take(nameLength, "a layer name"));
    // Trailing NULs are padding in either form of the name.
    while (!layer.name.empty() && layer.name.back() == '\0')
        layer.name.pop_back();
    // The name is padded to a multiple of four bytes with its length byte.
    extra.skipPadding((4 - (1 + nameLength) % 4) % 4);
    layer.blocks = readBlocks(extra, ctx.large, where);
    interpretBlocks(rec);
    if (rec.sectionType != 3) {
        if (const auto known = BlendMode::fromPSDKey(layer.blendKey))
            layer.blendMode = *known;
        else
            layer.blendMode.reset();
    }
    for (const auto& channel : layer.channels) {
        if (channel.id == userMaskChannel && !layer.mask)
            corrupt(where + ": it has a user mask channel but no mask record");
        if (channel.id == realUserMaskChannel && !layer.realMask)
            corrupt(where + ": it has a real user mask channel but no real mask record");
        if (channel.id >= ctx.colorChannels)
            corrupt(where + ": channel id " + std::to_string(channel.id) + " in a " +
                    std::to_string(ctx.colorChannels) + "-channel colour mode");
    }
    return rec;
}

// A channel whose samples are still to be decoded.
struct PendingChannel {
    LayerChannel* channel;
    std::string where;
    std::span<const std::uint8_t> data;
    std::vector<std::int64_t> counts;
    DocumentRect rect;
};

// Reads a layer's channel headers in file order; their samples are decoded later, together.
void readChannels(ByteReader& r, Record& rec, std::size_t index, const Context& ctx,
                  std::vector<PendingChannel>& pending) {
    DocumentLayer& layer = rec.layer;
    for (std::size_t c = 0; c < layer.channels.size(); ++c) {
        LayerChannel& channel = layer.channels[c];
        const std::string where = "layer record " + std::to_string(index) + " \"" + layer.name +
                                  "\" channel " + std::to_string(channel.id);
        const std::uint64_t length = rec.channelLengths[c];
        if (length > r.remaining())
            throw DocumentError(Kind::truncated, where + ": its data says " +
                                                     std::to_string(length) + " bytes, only " +
                                                     std::to_string(r.remaining()) + " remain");
        ByteReader data = r.sub(length, "channel image data");
        DocumentRect rect = layer.bounds;
        if (channel.id == userMaskChannel) rect = layer.mask->rect;
        if (channel.id == realUserMaskChannel) rect = layer.realMask->rect;
        if (data.remaining() < 2) {
            // A channel without even a compression code has no pixels.
            if (!rect.isEmpty()) corrupt(where + ": it has no data");
            channel.plane = SamplePlane(rect.width(), rect.height(), ctx.bitDepth);
            continue;
        }
        channel.compression = compressionCode(data.u16("a channel"), where);
        std::vector<std::int64_t> counts;
        if (channel.compression == ChannelCompression::rle && !rect.isEmpty())
            counts = rowCounts(data, std::uint64_t(rect.height()), ctx.large, where);
        pending.push_back({&channel, where, data.rest(), std::move(counts), rect});
    }
}

// Decodes every pending channel, in parallel; the first failure in file order is the one
// reported, as when they are decoded one after another.
void decodeChannels(std::vector<PendingChannel>& pending, const Context& ctx) {
    std::vector<std::exception_ptr> failures(pending.size());
    tbb::parallel_for(std::size_t{0}, pending.size(), [&](std::size_t i) {
        PendingChannel& p = pending[i];
        try {
            p.channel->plane = decodePlane(p.data, std::move(p.counts), p.channel->compression,
                                           p.rect.width(), p.rect.height(), ctx.bitDepth);
        } catch (const DocumentError& e) {
            failures[i] =
                std::make_exception_ptr(DocumentError(e.kind(), p.where + ": " + e.what()));
        } catch (...) {
            failures[i] = std::current_exception();
        }
    });
    for (const std::exception_ptr& failure : failures)
        if (failure) std::rethrow_exception(failure);
}

// The layer info: count, records, then channel image data.
std::vector<Record> readLayerInfo(ByteReader r, const Context& ctx, bool& mergedAlpha) {
    if (r.remaining() < 2) return {};
    const std::int16_t count = r.i16("the layer count");
    mergedAlpha = count < 0;
    const std::size_t n = std::size_t(count < 0 ? -std::int32_t(count) : count);
    // A record takes at least 34 bytes (bounds, channel count, blend mode, extra length).
    r.need(std::uint64_t(n) * 34, "the layer records");
    std::vector<Record> records;
    records.reserve(n);
    for (std::size_t i = 0; i < n; ++i)
        records.push_back(readRecord(r, i, ctx));
    std::vector<PendingChannel> pending;
    for (std::size_t i = 0; i < n; ++i)
        readChannels(r, records[i], i, ctx, pending);
    decodeChannels(pending, ctx);
    return records;
}

// Groups from the flat bottom-first list: an end-of-group divider opens a group that the
// group's own record (type 1 or 2) closes.
std::vector<DocumentLayer> buildTree(std::vector<Record>& records,
                                     std::vector<DocumentIssue>& issues) {
    struct Frame {
        SectionEnd end;
        std::vector<DocumentLayer> children;
    };
    std::vector<Frame> stack;
    std::vector<DocumentLayer> root;
    const auto current = [&]() -> std::vector<DocumentLayer>& {
        return stack.empty() ? root : stack.back().children;
    };
    for (Record& rec : records) {
        DocumentLayer& layer = rec.layer;
        if (rec.sectionType == 3) {
            Frame frame;
            frame.end.name = layer.name;
            frame.end.blendKey = layer.blendKey;
            frame.end.opacity = layer.opacity;
            frame.end.clipping = layer.clipping;
            frame.end.flags = layer.flags;
            frame.end.channelIds.clear();
            for (const auto& c : layer.channels)
                frame.end.channelIds.push_back(c.id);
            frame.end.blocks = std::move(layer.blocks);
            stack.push_back(std::move(frame));
        } else if (rec.sectionType == 1 || rec.sectionType == 2) {
            if (stack.empty()) {
                issues.push_back(
                    {std::nullopt, "group \"" + layer.name + "\" has no end-of-group record"});
            } else {
                layer.children = std::move(stack.back().children);
                layer.sectionEnd = std::move(stack.back().end);
                stack.pop_back();
            }
            current().push_back(std::move(layer));
        } else {
            current().push_back(std::move(layer));
        }
    }
    while (!stack.empty()) {
        issues.push_back({std::nullopt, "an end-of-group record has no group record"});
        Frame frame = std::move(stack.back());
        stack.pop_back();
        auto& parent = current();
        std::move(frame.children.begin(), frame.children.end(), std::back_inserter(parent));
    }
    return root;
}

// Fill readings and issues, once the tree gives every layer its index.
void finishLayers(std::vector<DocumentLayer>& layers, std::size_t& index,
                  std::vector<DocumentIssue>& issues) {
    for (DocumentLayer& layer : layers) {
        const std::size_t at = index++;
        const std::string who = "layer " + std::to_string(at) + " \"" + layer.name + "\"";
        if (!layer.blendMode)
            issues.push_back({at, who + ": unknown blend mode key " + keyText(layer.blendKey)});
        try {
            if (const TaggedBlock* b = findBlock(layer, "SoCo"))
                layer.solidFill = readSolidColorFill(b->bytes);
            if (const TaggedBlock* b = findBlock(layer, "GdFl"))
                layer.gradientFill = readGradientFill(b->bytes);
            if (const TaggedBlock* b = findBlock(layer, "lfx2"))
                layer.effects = readLayerEffects(b->bytes);
        } catch (const DocumentError& e) {
            issues.push_back({at, who + ": its fill cannot be read: " + e.what()});
        }
        if (layer.isGroup()) finishLayers(layer.children, index, issues);
    }
}

void readResources(ByteReader r, LayeredDocument& doc) {
    while (r.remaining() > 0) {
        ImageResource res;
        res.signature = r.chars(4, "an image resource");
        res.id = r.u16("an image resource");
        const std::uint8_t nameLength = r.u8("an image resource name");
        const auto name = r.take(nameLength, "an image resource name");
        res.name.assign(name.begin(), name.end());
        r.skipPadding((1 + nameLength) % 2);
        const std::uint32_t size = r.u32("an image resource");
        if (size > r.remaining())
            throw DocumentError(Kind::truncated, "image resource " + std::to_string(res.id) +
                                                     " says " + std::to_string(size) +
                                                     " bytes, only " +
                                                     std::to_string(r.remaining()) + " remain");
        const auto data = r.take(size, "an image resource");
        res.bytes.assign(data.begin(), data.end());
        r.skipPadding(size % 2);
        doc.resources.push_back(std::move(res));
    }
}

void readComposite(ByteReader& r, LayeredDocument& doc) {
    const std::string where = "the composite image data";
    const auto compression = compressionCode(r.u16(where), "the composite");
    doc.compositeCompression = compression;
    const std::uint64_t planes = std::uint64_t(doc.channelCount);
    const std::int64_t w = doc.width, h = doc.height;
    const std::uint64_t sampleBytes = std::uint64_t(doc.bitDepth / 8);
    doc.composite.clear();
    try {
        switch (compression) {
        case ChannelCompression::raw: {
            const std::uint64_t planeBytes = std::uint64_t(w * h) * sampleBytes;
            r.need(planeBytes * planes, where);
            for (std::uint64_t c = 0; c < planes; ++c)
                doc.composite.push_back(
                    decodePlane(r.take(planeBytes, where), {}, compression, w, h, doc.bitDepth));
            break;
        }
        case ChannelCompression::rle: {
            std::vector<std::int64_t> all =
                rowCounts(r, planes * std::uint64_t(h), doc.isLargeDocument, where);
            std::vector<std::span<const std::uint8_t>> data;
            std::vector<std::vector<std::int64_t>> rowsOf;
            for (std::uint64_t c = 0; c < planes; ++c) {
                std::vector<std::int64_t> counts(all.begin() + std::ptrdiff_t(c * h),
                                                 all.begin() + std::ptrdiff_t((c + 1) * h));
                std::uint64_t total = 0;
                for (const auto n : counts)
                    total += std::uint64_t(n);
                if (total > r.remaining())
                    throw DocumentError(Kind::truncated,
                                        "the composite's channel " + std::to_string(c) + " says " +
                                            std::to_string(total) + " bytes, only " +
                                            std::to_string(r.remaining()) + " remain");
                data.push_back(r.take(total, where));
                rowsOf.push_back(std::move(counts));
            }
            // The planes decode side by side; the first failure in plane order is reported.
            doc.composite.resize(std::size_t(planes));
            auto failures = std::vector<std::exception_ptr>(std::size_t(planes));
            tbb::parallel_for(std::size_t{0}, std::size_t(planes), [&](std::size_t c) {
                try {
                    doc.composite[c] =
                        decodePlane(data[c], std::move(rowsOf[c]), compression, w, h, doc.bitDepth);
                } catch (...) {
                    failures[c] = std::current_exception();
                }
            });
            for (const std::exception_ptr& failure : failures)
                if (failure) std::rethrow_exception(failure);
            break;
        }
        default: {
            // One zip stream holds every plane, one after another; prediction runs per row, so
            // the planes decode as one plane of all their rows.
            SamplePlane all =
                decodePlane(r.rest(), {}, compression, w, h * std::int64_t(planes), doc.bitDepth);
            const std::size_t planeBytes = std::size_t(w * h) * std::size_t(sampleBytes);
            for (std::uint64_t c = 0; c < planes; ++c) {
                const auto begin = all.bytes().begin() + std::ptrdiff_t(c * planeBytes);
                doc.composite.emplace_back(w, h, doc.bitDepth,
                                           ByteBuffer(begin, begin + std::ptrdiff_t(planeBytes)));
            }
            break;
        }
        }
    } catch (const DocumentError& e) {
        if (e.kind() == Kind::truncated) throw;
        throw DocumentError(e.kind(), "the composite: " + std::string(e.what()));
    }
}

} // namespace

LayeredDocument readDocument(std::span<const std::uint8_t> bytes) {
    if (bytes.empty()) throw DocumentError(Kind::notADocument, "the file is empty");
    ByteReader r(bytes);
    if (bytes.size() < 26)
        throw DocumentError(Kind::truncated, "the file is too short for a header (" +
                                                 std::to_string(bytes.size()) + " bytes)");
    if (r.chars(4, "the header") != "8BPS")
        throw DocumentError(Kind::notADocument, "not a layered document (no '8BPS' signature)");
    LayeredDocument doc;
    const std::uint16_t version = r.u16("the header");
    if (version != 1 && version != 2)
        throw DocumentError(Kind::unsupportedVersion, "unsupported file version " +
                                                          std::to_string(version) +
                                                          " (1 is PSD, 2 is PSB)");
    doc.isLargeDocument = version == 2;
    r.skip(6, "the header");
    const std::uint16_t channels = r.u16("the header");
    const std::uint32_t height = r.u32("the header"), width = r.u32("the header");
    const std::uint16_t depth = r.u16("the header"), mode = r.u16("the header");
    if (mode != std::uint16_t(DocumentColorMode::rgb) &&
        mode != std::uint16_t(DocumentColorMode::grayscale))
        throw DocumentError(Kind::unsupportedColorMode,
                            "unsupported colour mode " + colorModeName(mode) + " (" +
                                std::to_string(mode) + "): only RGB and Grayscale are read");
    if (depth != 8 && depth != 16 && depth != 32)
        throw DocumentError(Kind::unsupportedBitDepth,
                            "unsupported bit depth " + std::to_string(depth) +
                                ": only 8, 16 and 32 bits per channel are read");
    doc.colorMode = DocumentColorMode(mode);
    doc.bitDepth = depth;
    const std::int64_t maxSide =
        doc.isLargeDocument ? LayeredDocument::maximumPSBSide : LayeredDocument::maximumPSDSide;
    if (width < 1 || height < 1 || width > maxSide || height > maxSide)
        throw DocumentError(Kind::tooLarge, "the document is " + std::to_string(width) + " × " +
                                                std::to_string(height) +
                                                " pixels; sides must be 1 to " +
                                                std::to_string(maxSide));
    doc.width = width, doc.height = height;
    if (channels < doc.colorChannels() || channels > 56)
        corrupt("the header gives " + std::to_string(channels) + " channels for " +
                colorModeName(mode));
    doc.channelCount = channels;
    // However it is compressed, the composite needs bytes in proportion to its size (deflate
    // expands at most about 1032 times): a header promising more than the file can hold is
    // refused before anything is read or allocated.
    const std::uint64_t compositeBytes = std::uint64_t(width) * height * channels * (depth / 8u);
    if (compositeBytes / 1033 > bytes.size())
        throw DocumentError(Kind::truncated,
                            "a " + std::to_string(width) + " × " + std::to_string(height) +
                                " document needs more than " +
                                std::to_string(compositeBytes / 1033) + " bytes; the file has " +
                                std::to_string(bytes.size()));

    const std::uint32_t modeDataLength = r.u32("the colour mode data");
    const auto modeData = r.take(modeDataLength, "the colour mode data");
    doc.colorModeData.assign(modeData.begin(), modeData.end());
    const std::uint32_t resourcesLength = r.u32("the image resources");
    readResources(r.sub(resourcesLength, "the image resources"), doc);

    const Context ctx{doc.isLargeDocument, doc.bitDepth, doc.colorChannels()};
    const std::uint64_t sectionLength = r.length(ctx.large, "the layer and mask information");
    ByteReader section = r.sub(sectionLength, "the layer and mask information");
    std::vector<Record> records;
    if (section.remaining() > 0) {
        const std::uint64_t infoLength = section.length(ctx.large, "the layer info");
        records = readLayerInfo(section.sub(infoLength, "the layer info"), ctx,
                                doc.mergedAlphaIsTransparency);
        if (section.remaining() >= 4) {
            const std::uint32_t maskLength = section.u32("the global layer mask info");
            const auto mask = section.take(maskLength, "the global layer mask info");
            doc.globalLayerMask.assign(mask.begin(), mask.end());
        }
        for (TaggedBlock& block : readBlocks(section, ctx.large, "the layer and mask section")) {
            if (block.key == "Lr16" || block.key == "Lr32" || block.key == "Layr") {
                const int blockDepth = block.key == "Lr16" ? 16 : block.key == "Lr32" ? 32 : 8;
                if (blockDepth != 8 && blockDepth != doc.bitDepth)
                    corrupt("'" + block.key + "' holds " + std::to_string(blockDepth) +
                            "-bit layers, but the document has " + std::to_string(doc.bitDepth) +
                            " bits per channel");
                if (!records.empty())
                    corrupt("the document has layer info twice (in the section and in '" +
                            block.key + "')");
                records =
                    readLayerInfo(ByteReader(block.bytes), ctx, doc.mergedAlphaIsTransparency);
                continue;
            }
            doc.globalBlocks.push_back(std::move(block));
        }
    }
    readComposite(r, doc);
    doc.layers = buildTree(records, doc.issues);
    std::size_t index = 0;
    finishLayers(doc.layers, index, doc.issues);
    return doc;
}

} // namespace documents

LayeredDocument LayeredDocument::read(std::span<const std::uint8_t> bytes) {
    return documents::readDocument(bytes);
}

LayeredDocument LayeredDocument::read(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw DocumentError(DocumentError::Kind::io, "cannot open " + path.string());
    std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                    std::istreambuf_iterator<char>());
    if (in.bad()) throw DocumentError(DocumentError::Kind::io, "cannot read " + path.string());
    return read(bytes);
}

} // namespace bic
