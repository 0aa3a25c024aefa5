// The tree, its paths, its serialisation and the property bridge. Parsing is in
// exiv2_reader.cpp.

#include "bic/platform/xmp/metadata.hpp"

#include "xmp_path.hpp"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <map>
#include <tuple>

namespace bic::xmp {

namespace {

struct Namespace {
    std::string_view uri, prefix;
};

constexpr Namespace kNamespaces[] = {
    {ns::dublinCore, "dc"},
    {ns::iptcCore, "Iptc4xmpCore"},
    {ns::iptcExtension, "Iptc4xmpExt"},
    {ns::exif, "exif"},
    {ns::exifAux, "aux"},
    {ns::exifEX, "exifEX"},
    {ns::tiff, "tiff"},
    {ns::photoshop, "photoshop"},
    {ns::xmpBasic, "xmp"},
    {ns::xmpRights, "xmpRights"},
};

const Tag* member(const std::vector<Tag>& tags, std::string_view qualifiedName) {
    for (const Tag& t : tags)
        if (!t.name().empty() && t.path() == qualifiedName) return &t;
    return nullptr;
}

// Follows `steps` from a list of tags (the root's or a structure's members).
const Tag* follow(const std::vector<Tag>& start, const Tag* parent, std::span<const Step> steps) {
    const Tag* at = parent;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        const Step& s = steps[i];
        if (!s.qualifiedName.empty()) {
            at = member(at ? at->elements() : start, s.qualifiedName);
            if (!at) return nullptr;
        } else if (!at) {
            return nullptr;
        }
        if (s.index > 0) {
            if (s.index > at->elements().size()) return nullptr;
            at = &at->elements()[s.index - 1];
        }
    }
    return at;
}

// ---- Serialisation ----

class Writer {
public:
    explicit Writer(const std::vector<Tag>& tags) { collect(tags); }

    std::optional<std::string> packet(const std::vector<Tag>& tags) {
        std::string body;
        for (const Tag& t : tags)
            if (!write(body, t, 3)) return std::nullopt;
        std::string out = "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
                          "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n"
                          " <rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">\n"
                          "  <rdf:Description rdf:about=\"\"";
        for (const auto& [uri, prefix] : order_)
            out += "\n    xmlns:" + prefix + "=\"" + escaped(uri).value_or("") + "\"";
        out += ">\n" + body + "  </rdf:Description>\n </rdf:RDF>\n</x:xmpmeta>\n";
        out += "<?xpacket end=\"w\"?>";
        return out;
    }

private:
    // Each namespace gets its tag's prefix, or a numbered one when another namespace took it.
    void collect(const std::vector<Tag>& tags) {
        for (const Tag& t : tags) {
            if (!t.name().empty() && !prefixes_.contains(t.namespaceURI())) {
                std::string prefix = t.prefix().empty() ? "ns" : t.prefix();
                for (int n = 2; taken(prefix); ++n)
                    prefix = (t.prefix().empty() ? "ns" : t.prefix()) + std::to_string(n);
                prefixes_[t.namespaceURI()] = prefix;
                order_.emplace_back(t.namespaceURI(), prefix);
            }
            collect(t.elements());
        }
    }
    bool taken(const std::string& prefix) const {
        return prefix == "rdf" || prefix == "x" || prefix == "xml" ||
               std::any_of(order_.begin(), order_.end(),
                           [&](const auto& entry) { return entry.second == prefix; });
    }

    // XML text; nothing for characters XML 1.0 cannot carry.
    static std::optional<std::string> escaped(std::string_view text) {
        std::string out;
        for (const char c : text) {
            const auto u = static_cast<unsigned char>(c);
            if (u < 0x20 && c != '\t' && c != '\n' && c != '\r') return std::nullopt;
            switch (c) {
            case '&':
                out += "&amp;";
                break;
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '"':
                out += "&quot;";
                break;
            case '\r':
                out += "&#xD;";
                break;
            default:
                out += c;
            }
        }
        return out;
    }

    static std::string_view arrayKind(TagType type) {
        switch (type) {
        case TagType::arrayUnordered:
            return "rdf:Bag";
        case TagType::arrayOrdered:
            return "rdf:Seq";
        default:
            return "rdf:Alt";
        }
    }

    bool write(std::string& out, const Tag& t, int depth) {
        if (!t.name().empty() && isReservedNamespace(t.namespaceURI())) return false;
        const std::string pad(std::size_t(depth), ' ');
        const std::string open =
            t.name().empty() ? "rdf:li" : prefixes_.at(t.namespaceURI()) + ":" + t.name();
        std::string attributes;
        if (t.language()) {
            const auto lang = escaped(*t.language());
            if (!lang) return false;
            attributes = " xml:lang=\"" + *lang + "\"";
        }
        switch (t.type()) {
        case TagType::structure:
            out += pad + "<" + open + attributes + " rdf:parseType=\"Resource\">\n";
            for (const Tag& m : t.elements())
                if (!write(out, m, depth + 1)) return false;
            out += pad + "</" + open + ">\n";
            return true;
        case TagType::arrayUnordered:
        case TagType::arrayOrdered:
        case TagType::alternateArray:
        case TagType::alternateText: {
            const std::string_view kind = arrayKind(t.type());
            out += pad + "<" + open + attributes + ">\n" + pad + " <" + std::string(kind) + ">\n";
            for (const Tag& e : t.elements())
                if (!write(out, e, depth + 2)) return false;
            out += pad + " </" + std::string(kind) + ">\n" + pad + "</" + open + ">\n";
            return true;
        }
        default: {
            const auto text = escaped(t.text().value_or(""));
            if (!text) return false;
            out += pad + "<" + open + attributes + ">" + *text + "</" + open + ">\n";
            return true;
        }
        }
    }

    std::map<std::string, std::string> prefixes_;
    std::vector<std::pair<std::string, std::string>> order_;
};

// ---- The property bridge ----

enum class Form { text, langAlt, seq, bag };

struct Mapping {
    std::string_view dictionary, property, uri, name;
    Form form = Form::text;
};

constexpr Mapping kBridge[] = {
    {"{Exif}", "DateTimeOriginal", ns::photoshop, "DateCreated"},
    {"{Exif}", "DateTimeDigitized", ns::xmpBasic, "CreateDate"},
    {"{Exif}", "OffsetTimeOriginal", ns::exif, "OffsetTimeOriginal"},
    {"{Exif}", "UserComment", ns::exif, "UserComment", Form::langAlt},
    {"{Exif}", "LensMake", ns::exifEX, "LensMake"},
    {"{Exif}", "LensModel", ns::exifEX, "LensModel"},
    {"{Exif}", "LensSpecification", ns::exifEX, "LensSpecification", Form::seq},
    {"{Exif}", "LensSerialNumber", ns::exifEX, "LensSerialNumber"},
    {"{Exif}", "CameraOwnerName", ns::exifEX, "CameraOwnerName"},
    {"{Exif}", "BodySerialNumber", ns::exifEX, "BodySerialNumber"},
    {"{Exif}", "FocalLength", ns::exif, "FocalLength"},
    {"{Exif}", "FocalLenIn35mmFilm", ns::exif, "FocalLenIn35mmFilm"},
    {"{Exif}", "DigitalZoomRatio", ns::exif, "DigitalZoomRatio"},
    {"{Exif}", "ExposureProgram", ns::exif, "ExposureProgram"},
    {"{Exif}", "ExposureTime", ns::exif, "ExposureTime"},
    {"{Exif}", "ShutterSpeedValue", ns::exif, "ShutterSpeedValue"},
    {"{Exif}", "FNumber", ns::exif, "FNumber"},
    {"{Exif}", "ApertureValue", ns::exif, "ApertureValue"},
    {"{Exif}", "ISOSpeedRatings", ns::exif, "ISOSpeedRatings", Form::seq},
    {"{Exif}", "ExposureBiasValue", ns::exif, "ExposureBiasValue"},
    {"{Exif}", "MeteringMode", ns::exif, "MeteringMode"},
    {"{Exif}", "WhiteBalance", ns::exif, "WhiteBalance"},
    {"{Exif}", "LightSource", ns::exif, "LightSource"},
    {"{Exif}", "Flash", ns::exif, "Flash"},
    {"{ExifAux}", "LensModel", ns::exifAux, "Lens"},
    {"{ExifAux}", "LensInfo", ns::exifAux, "LensInfo"},
    {"{ExifAux}", "FlashCompensation", ns::exifAux, "FlashCompensation"},
    {"{ExifAux}", "OwnerName", ns::exifAux, "OwnerName"},
    {"{ExifAux}", "SerialNumber", ns::exifAux, "SerialNumber"},
    {"{TIFF}", "Make", ns::tiff, "Make"},
    {"{TIFF}", "Model", ns::tiff, "Model"},
    {"{TIFF}", "Compression", ns::tiff, "Compression"},
    {"{TIFF}", "PhotometricInterpretation", ns::tiff, "PhotometricInterpretation"},
    {"{TIFF}", "Orientation", ns::tiff, "Orientation"},
    {"{TIFF}", "XResolution", ns::tiff, "XResolution"},
    {"{TIFF}", "YResolution", ns::tiff, "YResolution"},
    {"{TIFF}", "ResolutionUnit", ns::tiff, "ResolutionUnit"},
    {"{TIFF}", "Software", ns::xmpBasic, "CreatorTool"},
    {"{TIFF}", "DateTime", ns::xmpBasic, "ModifyDate"},
    {"{TIFF}", "ImageDescription", ns::dublinCore, "description", Form::langAlt},
    {"{TIFF}", "Artist", ns::dublinCore, "creator", Form::seq},
    {"{TIFF}", "Copyright", ns::dublinCore, "rights", Form::langAlt},
    {"{TIFF}", "TransferFunction", ns::tiff, "TransferFunction", Form::seq},
    {"{TIFF}", "WhitePoint", ns::tiff, "WhitePoint", Form::seq},
    {"{TIFF}", "PrimaryChromaticities", ns::tiff, "PrimaryChromaticities", Form::seq},
    {"{TIFF}", "TileWidth", ns::tiff, "TileWidth"},
    {"{TIFF}", "TileLength", ns::tiff, "TileLength"},
    {"{GPS}", "Latitude", ns::exif, "GPSLatitude"},
    {"{GPS}", "Longitude", ns::exif, "GPSLongitude"},
    {"{GPS}", "LatitudeRef", ns::exif, "GPSLatitudeRef"},
    {"{GPS}", "LongitudeRef", ns::exif, "GPSLongitudeRef"},
    {"{GPS}", "Altitude", ns::exif, "GPSAltitude"},
    {"{GPS}", "AltitudeRef", ns::exif, "GPSAltitudeRef"},
    {"{GPS}", "HPositioningError", ns::exif, "GPSHPositioningError"},
    {"{IPTC}", "CreatorContactInfo", ns::iptcCore, "CreatorContactInfo"},
    {"{IPTC}", "SpecialInstructions", ns::photoshop, "Instructions"},
    {"{IPTC}", "LocationCreated", ns::iptcExtension, "LocationCreated", Form::bag},
    {"{IPTC}", "LocationShown", ns::iptcExtension, "LocationShown", Form::bag},
    {"{IPTC}", "City", ns::photoshop, "City"},
    {"{IPTC}", "Province/State", ns::photoshop, "State"},
    {"{IPTC}", "Country/PrimaryLocationName", ns::photoshop, "Country"},
    {"{IPTC}", "Country/PrimaryLocationCode", ns::iptcCore, "CountryCode"},
    {"{IPTC}", "SubLocation", ns::iptcCore, "Location"},
    {"{IPTC}", "Keywords", ns::dublinCore, "subject", Form::bag},
    {"{IPTC}", "Headline", ns::photoshop, "Headline"},
    {"{IPTC}", "By-line", ns::dublinCore, "creator", Form::seq},
    {"{IPTC}", "CopyrightNotice", ns::dublinCore, "rights", Form::langAlt},
    {"{IPTC}", "Caption/Abstract", ns::dublinCore, "description", Form::langAlt},
    {"{IPTC}", "ObjectName", ns::dublinCore, "title", Form::langAlt},
    {"{IPTC}", "StarRating", ns::xmpBasic, "Rating"},
    {"{IPTC}", "DateCreated", ns::photoshop, "DateCreated"},
    {"{IPTC}", "TimeCreated", ns::photoshop, "DateCreated"},
};

const Mapping* mapping(std::string_view dictionary, std::string_view property) {
    for (const Mapping& m : kBridge)
        if (m.dictionary == dictionary && m.property == property) return &m;
    return nullptr;
}

std::string asText(const PropertyValue& value) {
    struct Visitor {
        std::string operator()(const std::string& s) const { return s; }
        std::string operator()(std::int64_t i) const { return std::to_string(i); }
        std::string operator()(double d) const {
            char buffer[64];
            std::snprintf(buffer, sizeof buffer, "%f", d);
            return buffer;
        }
        std::string operator()(bool b) const { return b ? "True" : "False"; }
        std::string operator()(const std::vector<std::string>& v) const {
            return v.empty() ? std::string() : v.front();
        }
    };
    return std::visit(Visitor{}, value);
}

} // namespace

bool isReservedNamespace(std::string_view namespaceURI) {
    return namespaceURI == "http://www.w3.org/1999/02/22-rdf-syntax-ns#" ||
           namespaceURI == "http://www.w3.org/XML/1998/namespace" ||
           namespaceURI == "adobe:ns:meta/";
}

std::optional<std::vector<Step>> parsePath(std::string_view path) {
    std::vector<Step> steps;
    while (!path.empty()) {
        const std::size_t slash = path.find('/');
        std::string_view piece = path.substr(0, slash);
        path = slash == std::string_view::npos ? std::string_view() : path.substr(slash + 1);
        Step step;
        const std::size_t open = piece.find('[');
        step.qualifiedName = piece.substr(0, open);
        if (open != std::string_view::npos) {
            if (piece.back() != ']') return std::nullopt;
            const std::string_view digits = piece.substr(open + 1, piece.size() - open - 2);
            const auto [end, error] =
                std::from_chars(digits.data(), digits.data() + digits.size(), step.index);
            if (error != std::errc() || end != digits.data() + digits.size() || step.index == 0)
                return std::nullopt;
        }
        if (step.qualifiedName.empty() && step.index == 0) return std::nullopt;
        steps.push_back(step);
    }
    return steps;
}

std::optional<std::string_view> publicPrefix(std::string_view namespaceURI) {
    for (const Namespace& n : kNamespaces)
        if (n.uri == namespaceURI) return n.prefix;
    return std::nullopt;
}

std::optional<std::string_view> namespaceForPrefix(std::string_view prefix) {
    for (const Namespace& n : kNamespaces)
        if (n.prefix == prefix) return n.uri;
    return std::nullopt;
}

// ---- Tags ----

Tag Tag::text(std::string namespaceURI, std::string prefix, std::string name, std::string value) {
    Tag t =
        container(std::move(namespaceURI), std::move(prefix), std::move(name), TagType::string, {});
    t.text_ = std::move(value);
    return t;
}

Tag Tag::container(std::string namespaceURI, std::string prefix, std::string name, TagType type,
                   std::vector<Tag> elements) {
    Tag t;
    if (prefix.empty())
        if (const auto p = publicPrefix(namespaceURI)) prefix = std::string(*p);
    t.namespace_ = std::move(namespaceURI);
    t.prefix_ = std::move(prefix);
    t.name_ = std::move(name);
    t.type_ = type;
    t.elements_ = std::move(elements);
    return t;
}

Tag Tag::element(std::string value, std::optional<std::string> language) {
    Tag t;
    t.text_ = std::move(value);
    t.language_ = std::move(language);
    return t;
}

Tag Tag::element(TagType type, std::vector<Tag> elements) {
    Tag t;
    t.type_ = type;
    t.elements_ = std::move(elements);
    return t;
}

std::string Tag::path() const { return name_.empty() ? std::string() : prefix_ + ":" + name_; }

const Tag* Tag::find(std::string_view relativePath) const {
    const auto steps = parsePath(relativePath);
    if (!steps) return nullptr;
    return follow(elements_, this, *steps);
}

// ---- The tree ----

std::optional<std::vector<std::uint8_t>> Metadata::xmpData() const {
    const auto text = Writer(tags_).packet(tags_);
    if (!text) return std::nullopt;
    return std::vector<std::uint8_t>(text->begin(), text->end());
}

const Tag* Metadata::tag(std::string_view path) const {
    const auto steps = parsePath(path);
    if (!steps || steps->front().qualifiedName.empty()) return nullptr;
    return follow(tags_, nullptr, *steps);
}

const Tag* Metadata::tag(const Tag& parent, std::string_view path) const {
    return parent.find(path);
}

void Metadata::setTag(Tag tag) {
    canonicalize(tag.elements(), tag.type() == TagType::structure);
    const auto at = std::lower_bound(tags_.begin(), tags_.end(), tag, canonicalOrder);
    if (at != tags_.end() && !canonicalOrder(tag, *at))
        *at = std::move(tag);
    else
        tags_.insert(at, std::move(tag));
}

bool canonicalOrder(const Tag& a, const Tag& b) {
    return std::tie(a.namespaceURI(), a.name()) < std::tie(b.namespaceURI(), b.name());
}

void canonicalize(std::vector<Tag>& tags, bool sort) {
    if (sort) std::stable_sort(tags.begin(), tags.end(), canonicalOrder);
    for (Tag& t : tags)
        canonicalize(t.elements(), t.type() == TagType::structure);
}

bool Metadata::removeTag(std::string_view path) {
    const auto steps = parsePath(path);
    if (!steps || steps->front().qualifiedName.empty()) return false;
    // The list that holds the last step, and where in it.
    Tag* parent = nullptr;
    if (steps->size() > 1 || steps->back().index > 0) {
        const Step last = steps->back();
        std::vector<Step> head(steps->begin(), steps->end() - 1);
        if (last.index > 0 && !last.qualifiedName.empty()) head.push_back({last.qualifiedName, 0});
        parent = const_cast<Tag*>(follow(tags_, nullptr, head));
        if (!parent) return false;
        std::vector<Tag>& list = parent->elements();
        if (last.index > 0) {
            if (last.index > list.size()) return false;
            list.erase(list.begin() + std::ptrdiff_t(last.index - 1));
            return true;
        }
        return std::erase_if(list, [&](const Tag& t) {
                   return !t.name().empty() && t.path() == last.qualifiedName;
               }) > 0;
    }
    return std::erase_if(tags_, [&](const Tag& t) { return t.path() == path; }) > 0;
}

bool Metadata::setTag(std::string_view parentPath, Tag tag) {
    if (parentPath.empty()) {
        setTag(std::move(tag));
        return true;
    }
    const auto steps = parsePath(parentPath);
    if (!steps || steps->front().qualifiedName.empty()) return false;
    Tag* parent = const_cast<Tag*>(follow(tags_, nullptr, *steps));
    if (!parent || tag.name().empty() || parent->type() != TagType::structure) return false;
    canonicalize(tag.elements(), tag.type() == TagType::structure);
    std::vector<Tag>& members = parent->elements();
    const auto at = std::lower_bound(members.begin(), members.end(), tag, canonicalOrder);
    if (at != members.end() && !canonicalOrder(tag, *at))
        *at = std::move(tag);
    else
        members.insert(at, std::move(tag));
    return true;
}

const Tag* Metadata::tagMatchingImageProperty(std::string_view dictionary,
                                              std::string_view property) const {
    const Mapping* m = mapping(dictionary, property);
    if (!m) return nullptr;
    // The bridge matches by namespace and name; the prefix plays no part.
    for (const Tag& t : tags_)
        if (t.namespaceURI() == m->uri && t.name() == m->name) return &t;
    return nullptr;
}

bool Metadata::setValueMatchingImageProperty(std::string_view dictionary, std::string_view property,
                                             const PropertyValue& value) {
    const Mapping* m = mapping(dictionary, property);
    if (!m) return false;
    const std::string uri(m->uri), name(m->name);
    if (const auto* list = std::get_if<std::vector<std::string>>(&value)) {
        std::vector<Tag> elements;
        for (const std::string& s : *list)
            elements.push_back(Tag::element(s));
        setTag(Tag::container(uri, "", name,
                              m->form == Form::bag       ? TagType::arrayUnordered
                              : m->form == Form::langAlt ? TagType::alternateArray
                                                         : TagType::arrayOrdered,
                              std::move(elements)));
        return true;
    }
    const std::string text = asText(value);
    switch (m->form) {
    case Form::langAlt:
        setTag(Tag::container(uri, "", name, TagType::alternateText,
                              {Tag::element(text, "x-default")}));
        break;
    case Form::seq:
    case Form::bag:
        setTag(Tag::container(
            uri, "", name, m->form == Form::bag ? TagType::arrayUnordered : TagType::arrayOrdered,
            {Tag::element(text)}));
        break;
    case Form::text:
        setTag(Tag::text(uri, "", name, text));
        break;
    }
    return true;
}

} // namespace bic::xmp
