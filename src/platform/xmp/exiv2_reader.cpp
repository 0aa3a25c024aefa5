// XMP parsing and photo files through Exiv2. Exiv2 hands XMP over as a flat list of keys
// ("Xmp.iptcExt.LocationCreated[1]/Iptc4xmpExt:City"); the builder turns that back into a tree.

#include "bic/platform/xmp/metadata.hpp"
#include "xmp_path.hpp"

#include <exiv2/exiv2.hpp>
#include <mutex>

namespace bic::xmp {

namespace {

// Exiv2 and its XMP toolkit keep process-wide namespace tables; one lock serialises every use.
// (The tool writes Exif through Exiv2 too, but never while the library reads.)
std::mutex& exiv2Mutex() {
    static std::mutex m;
    return m;
}

// Readies Exiv2 for one read. Every parse registers the namespaces its packet declares, and a
// prefix registered once would from then on name that namespace in every later packet (a
// stray "tiff" bound to another address would capture the real tiff properties), so each read
// starts from the built-in table alone.
void startExiv2() {
    static std::once_flag once;
    std::call_once(once, [] { Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute); });
    Exiv2::XmpProperties::unregisterNs();
    Exiv2::XmpParser::terminate();
    Exiv2::XmpParser::initialize();
}

// The namespace of a prefix met inside a path: ours, then Exiv2's (which include those the
// packet declared).
std::string namespaceOf(const std::string& prefix) {
    if (const auto uri = namespaceForPrefix(prefix)) return std::string(*uri);
    try {
        const std::string uri = Exiv2::XmpProperties::ns(prefix);
        if (!uri.empty()) return uri;
    } catch (const Exiv2::AnyError&) {
    }
    return {};
}

} // namespace

struct TreeBuilder {
    std::vector<Tag>& root;
    bool failed = false;

    static bool refuse(const std::string& prefix, const std::string& uri) {
        const auto standard = namespaceForPrefix(prefix);
        return standard && *standard != uri;
    }

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

    // Where a datum goes; null for qualifiers and paths we cannot follow.
    Tag* place(const Exiv2::Xmpdatum& datum) {
        const std::string group = datum.groupName();
        std::string uri;
        try {
            uri = Exiv2::XmpProperties::ns(group);
        } catch (const Exiv2::AnyError&) {
            return nullptr;
        }
        // Terms of RDF and XML themselves are syntax, not properties.
        if (isReservedNamespace(uri)) return nullptr;
        // Exiv2 names properties by prefix, so a packet that binds a standard prefix to another
        // namespace cannot be told apart from the standard one: refuse it.
        if (uri.empty() || refuse(group, uri)) {
            failed = true;
            return nullptr;
        }
        const std::string prefix(publicPrefix(uri).value_or(group));
        const std::string path = datum.tagName();
        const auto steps = parsePath(path);
        if (!steps || steps->front().qualifiedName.empty()) return nullptr;
        Tag* at = nullptr;
        for (const Step& step : *steps) {
            if (step.qualifiedName.starts_with('?') || step.index >= 1'000'000) return nullptr;
            const std::string name(step.qualifiedName);
            if (!at) {
                at = &member(root, uri, prefix, name);
            } else if (!name.empty()) {
                // A member before (or without) its structure's own entry: Exiv2's Exif
                // conversion writes the flash structure so.
                if (at->type() == TagType::string)
                    assign(*at, TagType::structure, std::nullopt, {}, true);
                const std::size_t colon = name.find(':');
                if (colon == std::string::npos) return nullptr;
                const std::string memberPrefix = name.substr(0, colon);
                const std::string memberURI = namespaceOf(memberPrefix);
                if (memberURI.empty() || refuse(memberPrefix, memberURI)) {
                    failed = true;
                    return nullptr;
                }
                const std::string publicName(publicPrefix(memberURI).value_or(memberPrefix));
                at = &member(at->elements(), memberURI, publicName, name.substr(colon + 1));
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

    // Exiv2 keeps an empty array item from some spellings of a packet and drops it from others
    // (ours among them); dropping it always makes reading agree with itself.
    static void pruneEmptyItems(std::vector<Tag>& tags) {
        for (Tag& t : tags) {
            if (t.type() == TagType::arrayUnordered || t.type() == TagType::arrayOrdered ||
                t.type() == TagType::alternateArray)
                std::erase_if(t.elements(), [](const Tag& e) {
                    return e.type() == TagType::string && e.text().value_or("").empty() &&
                           !e.language();
                });
            pruneEmptyItems(t.elements());
        }
    }

    static std::optional<Metadata> build(const Exiv2::XmpData& data) {
        Metadata m;
        TreeBuilder b{m.tags_};
        for (const Exiv2::Xmpdatum& d : data)
            b.add(d);
        if (b.failed) return std::nullopt;
        pruneEmptyItems(m.tags_);
        canonicalize(m.tags_, true);
        return m;
    }
};

namespace {

// Exif values Exiv2 has no XMP rule for, or puts elsewhere than the property bridge looks.
void bridgeGaps(const Exiv2::ExifData& exif, Metadata& m) {
    auto text = [&](const char* key) -> std::optional<std::string> {
        const auto it = exif.findKey(Exiv2::ExifKey(key));
        if (it == exif.end() || it->count() == 0) return std::nullopt;
        return it->toString();
    };
    auto setIfAbsent = [&](std::string_view dictionary, std::string_view property,
                           const PropertyValue& value) {
        if (!m.tagMatchingImageProperty(dictionary, property))
            m.setValueMatchingImageProperty(dictionary, property, value);
    };
    if (const auto v = text("Exif.Photo.LensMake")) setIfAbsent("{Exif}", "LensMake", *v);
    if (const auto v = text("Exif.Photo.LensModel")) setIfAbsent("{Exif}", "LensModel", *v);
    if (const auto v = text("Exif.Photo.CameraOwnerName"))
        setIfAbsent("{Exif}", "CameraOwnerName", *v);
    if (const auto v = text("Exif.Photo.OffsetTimeOriginal"))
        setIfAbsent("{Exif}", "OffsetTimeOriginal", *v);
    if (const auto v = text("Exif.Image.Software")) setIfAbsent("{TIFF}", "Software", *v);
    if (const auto v = text("Exif.GPSInfo.GPSHPositioningError"))
        setIfAbsent("{GPS}", "HPositioningError", *v);
    const auto spec = exif.findKey(Exiv2::ExifKey("Exif.Photo.LensSpecification"));
    if (spec != exif.end() && spec->count() == 4) {
        std::vector<std::string> parts;
        for (long i = 0; i < 4; ++i) {
            const Exiv2::Rational r = spec->toRational(i);
            parts.push_back(std::to_string(r.first) + "/" + std::to_string(r.second));
        }
        setIfAbsent("{Exif}", "LensSpecification", parts);
    }
    // Exiv2 writes the standard name; the bridge reads the platform's own spelling.
    if (const Tag* t = m.tag("exif:FocalLengthIn35mmFilm"); t && t->text())
        setIfAbsent("{Exif}", "FocalLenIn35mmFilm", *t->text());
    if (const Tag* t = m.tag("exif:DateTimeOriginal"); t && t->text())
        setIfAbsent("{Exif}", "DateTimeOriginal", *t->text());
}

} // namespace

std::optional<Metadata> Metadata::fromXMPData(std::span<const std::uint8_t> data) {
    std::lock_guard lock(exiv2Mutex());
    startExiv2();
    const std::string packet(data.begin(), data.end());
    // An empty packet is no XMP, though Exiv2 accepts it as an empty tree.
    if (packet.find_first_not_of(" \t\r\n") == std::string::npos) return std::nullopt;
    Exiv2::XmpData parsed;
    try {
        if (Exiv2::XmpParser::decode(parsed, packet) != 0) return std::nullopt;
        return TreeBuilder::build(parsed);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::optional<Metadata> Metadata::fromImageFile(const std::filesystem::path& path) {
    std::lock_guard lock(exiv2Mutex());
    startExiv2();
    try {
        auto image = Exiv2::ImageFactory::open(path.string());
        if (!image.get()) return std::nullopt;
        image->readMetadata();
        Exiv2::XmpData xmp = image->xmpData();
        Exiv2::copyExifToXmp(image->exifData(), xmp);
        Exiv2::copyIptcToXmp(image->iptcData(), xmp);
        auto m = TreeBuilder::build(xmp);
        if (m) bridgeGaps(image->exifData(), *m);
        return m;
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

} // namespace bic::xmp
