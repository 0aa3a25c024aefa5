// XMP parsing and photo files through Exiv2. Exiv2 hands XMP over as a flat list of keys
// ("Xmp.iptcExt.LocationCreated[1]/iptcx:City"); the builder turns that back into a tree.
//
// Two habits of Exiv2 shape this file. A key's first part is Exiv2's own prefix for the
// property's namespace (registered as the packet declares it), while the prefixes inside the
// path are the packet's, as written; so the namespaces come from the packet's own declarations,
// which a light scan of the packet collects. And Exiv2 drops empty items of simple arrays; the
// scan rewrites those items into a form it keeps.

#include "bic/platform/xmp/metadata.hpp"
#include "xmp_path.hpp"

#include <algorithm>
#include <charconv>
#include <exiv2/exiv2.hpp>
#include <map>
#include <mutex>
#include <set>
#include <tuple>

namespace bic::xmp {

namespace {

constexpr std::string_view kRDF = "http://www.w3.org/1999/02/22-rdf-syntax-ns#";
// The namespace of the qualifier that marks a rewritten empty item. It never leaves the reader:
// qualifiers are not read into the tree.
constexpr std::string_view kEmptyItemMark = "http://ns.brellin.org/bic/empty-item/";

// Exiv2 and its XMP toolkit keep process-wide namespace tables; one lock serialises every use.
// (The tool writes Exif through Exiv2 too, but never while the library reads.)
std::mutex& exiv2Mutex() {
    static std::mutex m;
    return m;
}

// Readies Exiv2 for one read. Every parse registers the namespaces its packet declares, and a
// prefix registered once would from then on name that namespace in every later packet, so each
// read starts from the built-in table alone.
void startExiv2() {
    static std::once_flag once;
    std::call_once(once, [] { Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute); });
    Exiv2::XmpProperties::unregisterNs();
    Exiv2::XmpParser::terminate();
    Exiv2::XmpParser::initialize();
}

std::optional<std::string> exiv2Namespace(const std::string& prefix) {
    try {
        const std::string uri = Exiv2::XmpProperties::ns(prefix);
        if (!uri.empty()) return uri;
    } catch (const Exiv2::AnyError&) {
    }
    return std::nullopt;
}

std::optional<std::string> exiv2Prefix(const std::string& uri) {
    try {
        const std::string prefix = Exiv2::XmpProperties::prefix(uri);
        if (!prefix.empty()) return prefix;
    } catch (const Exiv2::AnyError&) {
    }
    return std::nullopt;
}

// ---- The packet scan ----

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

// An attribute value with XML's references resolved and its white space normalised.
std::string attributeValue(std::string_view raw) {
    std::string out;
    for (std::size_t i = 0; i < raw.size(); ++i) {
        if (raw[i] != '&') {
            out += isSpace(raw[i]) ? ' ' : raw[i];
            continue;
        }
        const std::size_t end = raw.find(';', i);
        if (end == std::string_view::npos) {
            out += raw.substr(i);
            break;
        }
        const std::string_view entity = raw.substr(i + 1, end - i - 1);
        static const std::pair<std::string_view, char> named[] = {
            {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
        bool done = false;
        for (const auto& [name, c] : named)
            if (entity == name) out += c, done = true;
        if (!done && entity.size() > 1 && entity[0] == '#') {
            const bool hex = entity[1] == 'x';
            std::uint32_t code = 0;
            const std::string_view digits = entity.substr(hex ? 2 : 1);
            const auto [ptr, error] =
                std::from_chars(digits.data(), digits.data() + digits.size(), code, hex ? 16 : 10);
            if (error == std::errc() && ptr == digits.data() + digits.size() && code <= 0x10FFFF) {
                // UTF-8 of the code point.
                if (code < 0x80) {
                    out += char(code);
                } else if (code < 0x800) {
                    out += char(0xC0 | code >> 6), out += char(0x80 | (code & 0x3F));
                } else if (code < 0x10000) {
                    out += char(0xE0 | code >> 12), out += char(0x80 | (code >> 6 & 0x3F));
                    out += char(0x80 | (code & 0x3F));
                } else {
                    out += char(0xF0 | code >> 18), out += char(0x80 | (code >> 12 & 0x3F));
                    out += char(0x80 | (code >> 6 & 0x3F)), out += char(0x80 | (code & 0x3F));
                }
                done = true;
            }
        }
        if (!done) out += raw.substr(i, end - i + 1);
        i = end;
    }
    return out;
}

struct PacketScan {
    std::string packet; ///< the packet, empty array items rewritten
    std::vector<std::pair<std::string, std::string>> declarations; ///< (prefix, namespace)
};

// Collects the packet's namespace declarations and rewrites each empty array item ("<rdf:li/>",
// "<rdf:li></rdf:li>") into an empty value with a qualifier, which makes Exiv2 report it. The
// scan follows XML's lexical structure (comments, sections, instructions, quoted attribute
// values) and nothing more; whatever it cannot follow it copies, and the parser judges.
PacketScan scan(std::string_view in) {
    PacketScan out;
    out.packet.reserve(in.size());
    // Declarations in scope, innermost last, with the depth of the element declaring each.
    std::vector<std::tuple<std::size_t, std::string, std::string>> scope;
    std::size_t depth = 0;
    auto resolve = [&](std::string_view prefix) -> std::optional<std::string> {
        for (auto it = scope.rbegin(); it != scope.rend(); ++it)
            if (std::get<1>(*it) == prefix) return std::get<2>(*it);
        return std::nullopt;
    };
    auto skipTo = [&](std::size_t from, std::string_view end) {
        const std::size_t at = in.find(end, from);
        return at == std::string_view::npos ? in.size() : at + end.size();
    };
    std::size_t i = 0;
    while (i < in.size()) {
        const std::size_t open = in.find('<', i);
        if (open == std::string_view::npos) {
            out.packet += in.substr(i);
            break;
        }
        out.packet += in.substr(i, open - i);
        const std::string_view rest = in.substr(open);
        std::size_t end;
        if (rest.starts_with("<!--")) {
            end = skipTo(open + 4, "-->");
        } else if (rest.starts_with("<![CDATA[")) {
            end = skipTo(open + 9, "]]>");
        } else if (rest.starts_with("<?")) {
            end = skipTo(open + 2, "?>");
        } else if (rest.starts_with("<!")) {
            // A document type: its internal subset may hold '>' inside brackets.
            end = open + 2;
            for (int brackets = 0; end < in.size(); ++end) {
                if (in[end] == '[') ++brackets;
                if (in[end] == ']') --brackets;
                if (in[end] == '>' && brackets <= 0) break;
            }
            end = std::min(end + 1, in.size());
        } else if (rest.starts_with("</")) {
            end = skipTo(open + 2, ">");
            while (!scope.empty() && std::get<0>(scope.back()) == depth)
                scope.pop_back();
            if (depth > 0) --depth;
        } else {
            // A start tag: its name, then attributes up to '>' or "/>".
            std::size_t at = open + 1;
            while (at < in.size() && !isSpace(in[at]) && in[at] != '>' && in[at] != '/')
                ++at;
            const std::string_view name = in.substr(open + 1, at - open - 1);
            bool attributes = false, selfClosing = false, closed = false;
            ++depth;
            while (at < in.size()) {
                while (at < in.size() && isSpace(in[at]))
                    ++at;
                if (at >= in.size()) break;
                if (in[at] == '>') {
                    closed = true, ++at;
                    break;
                }
                if (in.substr(at).starts_with("/>")) {
                    closed = selfClosing = true, at += 2;
                    break;
                }
                const std::size_t nameStart = at;
                while (at < in.size() && in[at] != '=' && in[at] != '>' && !isSpace(in[at]))
                    ++at;
                const std::string_view attribute = in.substr(nameStart, at - nameStart);
                while (at < in.size() && isSpace(in[at]))
                    ++at;
                if (at >= in.size() || in[at] != '=') break;
                ++at;
                while (at < in.size() && isSpace(in[at]))
                    ++at;
                if (at >= in.size() || (in[at] != '"' && in[at] != '\'')) break;
                const std::size_t close = in.find(in[at], at + 1);
                if (close == std::string_view::npos) break;
                const std::string_view value = in.substr(at + 1, close - at - 1);
                at = close + 1;
                attributes = true;
                if (attribute.starts_with("xmlns:")) {
                    std::string prefix(attribute.substr(6)), uri = attributeValue(value);
                    out.declarations.emplace_back(prefix, uri);
                    scope.emplace_back(depth, std::move(prefix), std::move(uri));
                }
            }
            end = at;
            const std::size_t colon = name.find(':');
            const bool item = closed && !attributes && colon != std::string_view::npos &&
                              name.substr(colon + 1) == "li" &&
                              resolve(name.substr(0, colon)) == kRDF;
            std::size_t emptyEnd = std::string_view::npos;
            if (item && !selfClosing && in.substr(end).starts_with("</") &&
                in.substr(end + 2).starts_with(name)) {
                std::size_t after = end + 2 + name.size();
                while (after < in.size() && isSpace(in[after]))
                    ++after;
                if (after < in.size() && in[after] == '>') emptyEnd = after + 1;
            }
            if (item && (selfClosing || emptyEnd != std::string_view::npos)) {
                const std::string rdf(name.substr(0, colon));
                out.packet += "<" + std::string(name) + " " + rdf + ":parseType=\"Resource\"><" +
                              rdf + ":value></" + rdf + ":value><bicEmpty:item xmlns:bicEmpty=\"" +
                              std::string(kEmptyItemMark) + "\">1</bicEmpty:item></" +
                              std::string(name) + ">";
                i = selfClosing ? end : emptyEnd;
                while (!scope.empty() && std::get<0>(scope.back()) == depth)
                    scope.pop_back();
                --depth;
                continue;
            }
            if (selfClosing) {
                while (!scope.empty() && std::get<0>(scope.back()) == depth)
                    scope.pop_back();
                --depth;
            }
        }
        out.packet += in.substr(open, end - open);
        i = end;
    }
    return out;
}

// ---- Namespaces ----

// What the prefixes in Exiv2's keys stand for.
struct Namespaces {
    std::map<std::string, std::string> byGroup;            ///< Exiv2's prefix → namespace
    std::map<std::string, std::set<std::string>> byPrefix; ///< the packet's prefix → namespaces
    std::map<std::string, std::string, std::less<>> preferred; ///< namespace → the packet's prefix

    // Registers each namespace the packet declares and Exiv2 does not know under a prefix of
    // our own, so that Exiv2's keys tell apart namespaces the packet gives one prefix (a second
    // "tiff"), and remembers the exact text of each namespace, which Exiv2 ends with a "/".
    static Namespaces declaredIn(const PacketScan& packet) {
        Namespaces n;
        std::set<std::string> prefixes;
        for (const auto& [prefix, uri] : packet.declarations) {
            n.byPrefix[prefix].insert(uri);
            n.preferred.emplace(uri, prefix);
            prefixes.insert(prefix);
        }
        int next = 1;
        for (const auto& [uri, prefix] : n.preferred) {
            if (uri.empty() || isReservedNamespace(uri)) continue;
            if (const auto known = exiv2Prefix(uri)) {
                // A built-in namespace, or one Exiv2 takes for it but for the final "/".
                const auto builtIn = exiv2Namespace(*known);
                if (!n.byGroup.contains(*known) || (builtIn && *builtIn == uri))
                    n.byGroup[*known] = uri;
                continue;
            }
            std::string group;
            do
                group = "bicNS" + std::to_string(next++);
            while (prefixes.contains(group) || exiv2Namespace(group));
            try {
                Exiv2::XmpProperties::registerNs(uri, group);
                n.byGroup[group] = uri;
            } catch (const Exiv2::AnyError&) {
                // Exiv2 then names the namespace itself, as it would have anyway.
            }
        }
        return n;
    }

    std::optional<std::string> group(const std::string& prefix) const {
        if (const auto it = byGroup.find(prefix); it != byGroup.end()) return it->second;
        return exiv2Namespace(prefix);
    }

    // A prefix inside a path: what the packet binds it to, when that is one namespace; else a
    // public or Exiv2 prefix, as in Exiv2's own conversions, which declare nothing.
    std::optional<std::string> member(const std::string& prefix) const {
        if (const auto it = byPrefix.find(prefix); it != byPrefix.end()) {
            if (it->second.size() == 1) return *it->second.begin();
            return std::nullopt;
        }
        if (const auto uri = namespaceForPrefix(prefix)) return std::string(*uri);
        return exiv2Namespace(prefix);
    }

    std::string prefixFor(const std::string& uri, const std::string& fallback) const {
        if (const auto p = publicPrefix(uri)) return std::string(*p);
        if (const auto it = preferred.find(uri); it != preferred.end()) return it->second;
        return fallback;
    }
};

} // namespace

struct TreeBuilder {
    std::vector<Tag>& root;
    const Namespaces& namespaces;

    Tag& member(std::vector<Tag>& tags, const std::string& uri, const std::string& prefix,
                const std::string& name) {
        for (Tag& t : tags)
            if (t.namespaceURI() == uri && t.name() == name) return t;
        tags.push_back(Tag::text(uri, prefix, name, ""));
        return tags.back();
    }

    static Tag& element(Tag& array, std::size_t index) {
        auto& elements = array.elements();
        while (elements.size() < index)
            elements.push_back(Tag::element(""));
        return elements[index - 1];
    }

    // Where a datum goes; null for qualifiers and for what cannot be placed.
    Tag* place(const Exiv2::Xmpdatum& datum) {
        const std::string group = datum.groupName();
        const auto uri = namespaces.group(group);
        // Terms of RDF and XML themselves are syntax, not properties.
        if (!uri || uri->empty() || isReservedNamespace(*uri)) return nullptr;
        const std::string path = datum.tagName();
        const auto steps = parsePath(path);
        if (!steps || steps->front().qualifiedName.empty()) return nullptr;
        Tag* at = nullptr;
        for (const Step& step : *steps) {
            if (step.qualifiedName.starts_with('?') || step.index >= 1'000'000) return nullptr;
            const std::string name(step.qualifiedName);
            if (!at) {
                at = &member(root, *uri, namespaces.prefixFor(*uri, group), name);
            } else if (!name.empty()) {
                const std::size_t colon = name.find(':');
                if (colon == std::string::npos) return nullptr;
                const std::string memberPrefix = name.substr(0, colon);
                const auto memberURI = namespaces.member(memberPrefix);
                if (!memberURI || memberURI->empty() || isReservedNamespace(*memberURI))
                    return nullptr;
                // A member before (or without) its structure's own entry: Exiv2's Exif
                // conversion writes the flash structure so.
                if (at->type() == TagType::string)
                    assign(*at, TagType::structure, std::nullopt, {}, true);
                at =
                    &member(at->elements(), *memberURI,
                            namespaces.prefixFor(*memberURI, memberPrefix), name.substr(colon + 1));
            }
            if (step.index > 0) {
                if (at->type() == TagType::string)
                    assign(*at, TagType::arrayOrdered, std::nullopt, {}, true);
                at = &element(*at, step.index);
            }
        }
        return at;
    }

    static TagType arrayType(Exiv2::XmpValue::XmpArrayType type) {
        switch (type) {
        case Exiv2::XmpValue::xaBag:
            return TagType::arrayUnordered;
        case Exiv2::XmpValue::xaSeq:
            return TagType::arrayOrdered;
        default:
            return TagType::alternateArray;
        }
    }

    // Keeps name, namespace and elements gathered so far; changes the kind and value.
    static void assign(Tag& at, TagType type, std::optional<std::string> text,
                       std::vector<Tag> elements, bool keepElements) {
        Tag replacement =
            at.name().empty()
                ? (type == TagType::string ? Tag::element(text.value_or(""), at.language())
                                           : Tag::element(type, {}))
                : (type == TagType::string
                       ? Tag::text(at.namespaceURI(), at.prefix(), at.name(), text.value_or(""))
                       : Tag::container(at.namespaceURI(), at.prefix(), at.name(), type, {}));
        replacement.elements() = keepElements ? std::move(at.elements()) : std::move(elements);
        at = std::move(replacement);
    }

    void add(const Exiv2::Xmpdatum& datum) {
        Tag* at = place(datum);
        if (!at) return;
        const Exiv2::Value& value = datum.value();
        if (const auto* alt = dynamic_cast<const Exiv2::LangAltValue*>(&value)) {
            std::vector<Tag> texts;
            if (const auto def = alt->value_.find("x-default"); def != alt->value_.end())
                texts.push_back(Tag::element(def->second, def->first));
            for (const auto& [language, text] : alt->value_)
                if (language != "x-default") texts.push_back(Tag::element(text, language));
            assign(*at, TagType::alternateText, std::nullopt, std::move(texts), false);
        } else if (const auto* array = dynamic_cast<const Exiv2::XmpArrayValue*>(&value)) {
            std::vector<Tag> items;
            for (long i = 0; i < array->count(); ++i)
                items.push_back(Tag::element(array->toString(i)));
            assign(*at, arrayType(array->xmpArrayType()), std::nullopt, std::move(items), false);
        } else if (const auto* text = dynamic_cast<const Exiv2::XmpValue*>(&value)) {
            if (text->xmpStruct() == Exiv2::XmpValue::xsStruct)
                assign(*at, TagType::structure, std::nullopt, {}, true);
            else if (text->xmpArrayType() != Exiv2::XmpValue::xaNone)
                assign(*at, arrayType(text->xmpArrayType()), std::nullopt, {}, true);
            else
                assign(*at, TagType::string, value.toString(), {}, false);
        }
    }

    // A datum that cannot be placed is left out; the rest of the packet stands.
    static Metadata build(const Exiv2::XmpData& data, const Namespaces& namespaces) {
        Metadata m;
        TreeBuilder b{m.tags_, namespaces};
        for (const Exiv2::Xmpdatum& d : data)
            b.add(d);
        choosePrefixes(m.tags_);
        canonicalize(m.tags_, true);
        return m;
    }

    // The top-level tags of `from` that `into` lacks.
    static void addMissing(Metadata& into, Metadata from) {
        for (Tag& t : from.tags_)
            if (!std::binary_search(into.tags_.begin(), into.tags_.end(), t, canonicalOrder))
                into.setTag(std::move(t));
    }

    static void finish(Metadata& m) { choosePrefixes(m.tags_); }
};

namespace {

// Parses a packet; nothing when Exiv2 refuses it. Exiv2 must have been started for this read.
std::optional<Metadata> decodePacket(std::string_view packet) {
    // An empty packet is no XMP, though Exiv2 accepts it as an empty tree.
    if (packet.find_first_not_of(" \t\r\n") == std::string_view::npos) return std::nullopt;
    try {
        const PacketScan scanned = scan(packet);
        const Namespaces namespaces = Namespaces::declaredIn(scanned);
        Exiv2::XmpData parsed;
        if (Exiv2::XmpParser::decode(parsed, scanned.packet) != 0) return std::nullopt;
        return TreeBuilder::build(parsed, namespaces);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

// Exif and IPTC converted by Exiv2 into a tree of their own; empty when the conversion fails.
template <typename Convert>
Metadata converted(Convert convert) {
    try {
        Exiv2::XmpData xmp;
        convert(xmp);
        return TreeBuilder::build(xmp, Namespaces{});
    } catch (const std::exception&) {
        return {};
    }
}

// Cameras without a fix write the seconds of a position as 0/0, which Exiv2 refuses to convert;
// they mean no seconds.
void acceptUnknownSeconds(Exiv2::ExifData& exif) {
    for (const char* key : {"Exif.GPSInfo.GPSLatitude", "Exif.GPSInfo.GPSLongitude",
                            "Exif.GPSInfo.GPSDestLatitude", "Exif.GPSInfo.GPSDestLongitude"}) {
        const auto it = exif.findKey(Exiv2::ExifKey(key));
        if (it == exif.end() || it->count() != 3) continue;
        const Exiv2::Rational seconds = it->toRational(2);
        if (seconds.first != 0 || seconds.second != 0) continue;
        std::string parts;
        for (long i = 0; i < 2; ++i) {
            const Exiv2::Rational r = it->toRational(i);
            parts += std::to_string(r.first) + "/" + std::to_string(r.second) + " ";
        }
        auto value = Exiv2::Value::create(it->typeId());
        if (value->read(parts + "0/1") == 0) it->setValue(value.get());
    }
}

// An XMP date of the day alone ("2004-06-21", as IPTC's legacy date is carried over) says less
// than Exif's date and time of the same day; the time fills it in, which replaces nothing the XMP
// says.
void completeDates(Metadata& m, const Metadata& exif) {
    for (const std::string_view path : {"photoshop:DateCreated", "xmp:CreateDate"}) {
        const Tag* day = m.tag(path);
        const Tag* full = exif.tag(path);
        if (!day || !full || !day->text() || !full->text()) continue;
        const std::string& d = *day->text();
        const bool dayOnly = d.size() == 10 && d[4] == '-' && d[7] == '-' &&
                             std::all_of(d.begin(), d.end(),
                                         [](char c) { return c == '-' || (c >= '0' && c <= '9'); });
        if (dayOnly && full->text()->starts_with(d + "T")) m.setTag(*full);
    }
}

void setIfAbsent(Metadata& m, std::string_view dictionary, std::string_view property,
                 const PropertyValue& value) {
    if (!m.tagMatchingImageProperty(dictionary, property))
        m.setValueMatchingImageProperty(dictionary, property, value);
}

// XMP properties the bridge looks for under another name.
void bridgeXMPGaps(Metadata& m) {
    // Exiv2 writes the standard name; the bridge reads the platform's own spelling.
    if (const Tag* t = m.tag("exif:FocalLengthIn35mmFilm"); t && t->text())
        setIfAbsent(m, "{Exif}", "FocalLenIn35mmFilm", *t->text());
    if (const Tag* t = m.tag("exif:DateTimeOriginal"); t && t->text())
        setIfAbsent(m, "{Exif}", "DateTimeOriginal", *t->text());
}

// Exif values Exiv2 has no XMP rule for, or puts elsewhere than the property bridge looks.
void bridgeExifGaps(const Exiv2::ExifData& exif, Metadata& m) {
    auto text = [&](const char* key) -> std::optional<std::string> {
        const auto it = exif.findKey(Exiv2::ExifKey(key));
        if (it == exif.end() || it->count() == 0) return std::nullopt;
        return it->toString();
    };
    if (const auto v = text("Exif.Photo.LensMake")) setIfAbsent(m, "{Exif}", "LensMake", *v);
    if (const auto v = text("Exif.Photo.LensModel")) setIfAbsent(m, "{Exif}", "LensModel", *v);
    if (const auto v = text("Exif.Photo.CameraOwnerName"))
        setIfAbsent(m, "{Exif}", "CameraOwnerName", *v);
    if (const auto v = text("Exif.Photo.OffsetTimeOriginal"))
        setIfAbsent(m, "{Exif}", "OffsetTimeOriginal", *v);
    if (const auto v = text("Exif.Image.Software")) setIfAbsent(m, "{TIFF}", "Software", *v);
    if (const auto v = text("Exif.GPSInfo.GPSHPositioningError"))
        setIfAbsent(m, "{GPS}", "HPositioningError", *v);
    const auto spec = exif.findKey(Exiv2::ExifKey("Exif.Photo.LensSpecification"));
    if (spec != exif.end() && spec->count() == 4) {
        std::vector<std::string> parts;
        for (long i = 0; i < 4; ++i) {
            const Exiv2::Rational r = spec->toRational(i);
            parts.push_back(std::to_string(r.first) + "/" + std::to_string(r.second));
        }
        setIfAbsent(m, "{Exif}", "LensSpecification", parts);
    }
}

} // namespace

std::optional<Metadata> Metadata::fromXMPData(std::span<const std::uint8_t> data) {
    std::lock_guard lock(exiv2Mutex());
    startExiv2();
    return decodePacket(std::string_view(reinterpret_cast<const char*>(data.data()), data.size()));
}

std::optional<Metadata> Metadata::fromImageFile(const std::filesystem::path& path) {
    std::lock_guard lock(exiv2Mutex());
    startExiv2();
    std::string packet;
    Exiv2::ExifData exif;
    Exiv2::IptcData iptc;
    try {
        auto image = Exiv2::ImageFactory::open(path.string());
        if (!image.get()) return std::nullopt;
        image->readMetadata();
        packet = image->xmpPacket();
        exif = image->exifData();
        iptc = image->iptcData();
    } catch (const std::exception&) {
        return std::nullopt;
    }
    // Reading decoded the packet once already, registering what it declares.
    startExiv2();
    // The file's XMP first; what it already says, Exif and IPTC never replace.
    Metadata m = decodePacket(packet).value_or(Metadata());
    bridgeXMPGaps(m);
    acceptUnknownSeconds(exif);
    Metadata fromExif = converted([&](Exiv2::XmpData& x) { Exiv2::copyExifToXmp(exif, x); });
    completeDates(m, fromExif);
    TreeBuilder::addMissing(m, std::move(fromExif));
    TreeBuilder::addMissing(m,
                            converted([&](Exiv2::XmpData& x) { Exiv2::copyIptcToXmp(iptc, x); }));
    bridgeExifGaps(exif, m);
    bridgeXMPGaps(m);
    TreeBuilder::finish(m);
    return m;
}

} // namespace bic::xmp
