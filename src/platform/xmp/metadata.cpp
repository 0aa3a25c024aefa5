// The tree, its paths, its serialisation and the property bridge. Parsing is in
// exiv2_reader.cpp.

#include "bic/platform/xmp/metadata.hpp"

#include "bic/platform/core/text.hpp"
#include "xmp_path.hpp"

#include <algorithm>
#include <charconv>
#include <map>
#include <set>
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

// Whether a path step "prefix:name" names `t`: a public prefix stands for its namespace, any
// other prefix for the tags that carry it.
bool names(std::string_view qualifiedName, const Tag& t) {
    const std::size_t colon = qualifiedName.find(':');
    if (t.name().empty() || colon == std::string_view::npos ||
        t.name() != qualifiedName.substr(colon + 1))
        return false;
    const std::string_view prefix = qualifiedName.substr(0, colon);
    if (const auto uri = namespaceForPrefix(prefix)) return t.namespaceURI() == *uri;
    return t.prefix() == prefix;
}

const Tag* member(const std::vector<Tag>& tags, std::string_view qualifiedName) {
    for (const Tag& t : tags)
        if (names(qualifiedName, t)) return &t;
    return nullptr;
}

// Names the writer can put into a packet as they are: XML's names restricted to ASCII, since the
// XML parsers in use know other letters only by tables older than today's Unicode.
bool isXMLName(std::string_view name) {
    if (name.empty()) return false;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const char c = name[i];
        const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
        const bool other = (c >= '0' && c <= '9') || c == '-' || c == '.';
        if (!letter && (i == 0 || !other)) return false;
    }
    return true;
}

// A prefix a namespace may be given: an XML name that XML itself does not reserve.
bool isUsablePrefix(std::string_view prefix) {
    if (!isXMLName(prefix) || prefix == "rdf" || prefix == "x") return false;
    auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
    return !(prefix.size() >= 3 && lower(prefix[0]) == 'x' && lower(prefix[1]) == 'm' &&
             lower(prefix[2]) == 'l');
}

// Hands out one prefix per namespace: public namespaces their own, others what they ask for
// unless it is unusable, public or taken, then that with a number ("ns" when unusable).
class PrefixTable {
public:
    const std::string& prefixFor(const std::string& uri, const std::string& wanted) {
        if (const auto it = byURI_.find(uri); it != byURI_.end()) return it->second;
        std::string prefix;
        if (const auto p = publicPrefix(uri)) {
            prefix = std::string(*p);
        } else {
            const std::string base = isUsablePrefix(wanted) ? wanted : "ns";
            prefix = base;
            for (int n = 2; !free(prefix); ++n)
                prefix = base + std::to_string(n);
        }
        taken_.insert(prefix);
        return byURI_.emplace(uri, std::move(prefix)).first->second;
    }

private:
    bool free(const std::string& prefix) const {
        return !taken_.contains(prefix) && !namespaceForPrefix(prefix);
    }
    std::map<std::string, std::string> byURI_;
    std::set<std::string> taken_;
};

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
        for (const auto& [uri, prefix] : order_) {
            const auto text = escaped(uri);
            if (!text || text->empty()) return std::nullopt;
            out += "\n    xmlns:" + prefix + "=\"" + *text + "\"";
        }
        out += ">\n" + body + "  </rdf:Description>\n </rdf:RDF>\n</x:xmpmeta>\n";
        out += "<?xpacket end=\"w\"?>";
        return out;
    }

private:
    // Each namespace gets one prefix: a public namespace its public prefix, any other its
    // tag's, renamed when it clashes. Public namespaces go first so that no other takes theirs.
    void collect(const std::vector<Tag>& tags) {
        std::vector<const Tag*> named;
        gather(tags, named);
        std::stable_partition(named.begin(), named.end(), [](const Tag* t) {
            return publicPrefix(t->namespaceURI()).has_value();
        });
        for (const Tag* t : named) {
            if (prefixes_.contains(t->namespaceURI())) continue;
            const std::string& prefix = table_.prefixFor(t->namespaceURI(), t->prefix());
            prefixes_[t->namespaceURI()] = prefix;
            order_.emplace_back(t->namespaceURI(), prefix);
        }
    }
    static void gather(const std::vector<Tag>& tags, std::vector<const Tag*>& named) {
        for (const Tag& t : tags) {
            if (!t.name().empty()) named.push_back(&t);
            gather(t.elements(), named);
        }
    }

    // XML text; nothing for text XML 1.0 cannot carry.
    static std::optional<std::string> escaped(std::string_view text) {
        if (!isXMLText(text)) return std::nullopt;
        std::string out;
        for (const char c : text) {
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
        if (!t.name().empty() && (isReservedNamespace(t.namespaceURI()) || !isXMLName(t.name())))
            return false;
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

    PrefixTable table_;
    std::map<std::string, std::string> prefixes_;
    std::vector<std::pair<std::string, std::string>> order_;
};

// ---- The property bridge ----

// How a property's value is kept. IPTC keeps dates and times apart where XMP has one date:
// `date` and `time` properties each replace their half of it.
enum class Form { text, langAlt, seq, bag, structure, date, time };

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
    {"{Exif}", "MaxApertureValue", ns::exif, "MaxApertureValue"},
    {"{Exif}", "BrightnessValue", ns::exif, "BrightnessValue"},
    {"{Exif}", "ISOSpeedRatings", ns::exif, "ISOSpeedRatings", Form::seq},
    {"{Exif}", "ExposureBiasValue", ns::exif, "ExposureBiasValue"},
    {"{Exif}", "ExposureMode", ns::exif, "ExposureMode"},
    {"{Exif}", "ExposureIndex", ns::exif, "ExposureIndex"},
    {"{Exif}", "MeteringMode", ns::exif, "MeteringMode"},
    {"{Exif}", "WhiteBalance", ns::exif, "WhiteBalance"},
    {"{Exif}", "LightSource", ns::exif, "LightSource"},
    {"{Exif}", "Flash", ns::exif, "Flash", Form::structure},
    {"{Exif}", "SceneCaptureType", ns::exif, "SceneCaptureType"},
    {"{Exif}", "SceneType", ns::exif, "SceneType"},
    {"{Exif}", "SensingMethod", ns::exif, "SensingMethod"},
    {"{Exif}", "FileSource", ns::exif, "FileSource"},
    {"{Exif}", "CustomRendered", ns::exif, "CustomRendered"},
    {"{Exif}", "GainControl", ns::exif, "GainControl"},
    {"{Exif}", "Contrast", ns::exif, "Contrast"},
    {"{Exif}", "Saturation", ns::exif, "Saturation"},
    {"{Exif}", "Sharpness", ns::exif, "Sharpness"},
    {"{Exif}", "SubjectDistance", ns::exif, "SubjectDistance"},
    {"{Exif}", "SubjectDistRange", ns::exif, "SubjectDistanceRange"},
    {"{Exif}", "SubjectArea", ns::exif, "SubjectArea", Form::seq},
    {"{Exif}", "ColorSpace", ns::exif, "ColorSpace"},
    {"{Exif}", "PixelXDimension", ns::exif, "PixelXDimension"},
    {"{Exif}", "PixelYDimension", ns::exif, "PixelYDimension"},
    {"{Exif}", "FocalPlaneXResolution", ns::exif, "FocalPlaneXResolution"},
    {"{Exif}", "FocalPlaneYResolution", ns::exif, "FocalPlaneYResolution"},
    {"{Exif}", "FocalPlaneResolutionUnit", ns::exif, "FocalPlaneResolutionUnit"},
    {"{Exif}", "ExifVersion", ns::exif, "ExifVersion"},
    {"{Exif}", "FlashPixVersion", ns::exif, "FlashpixVersion"},
    {"{Exif}", "ImageUniqueID", ns::exif, "ImageUniqueID"},
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
    {"{TIFF}", "HostComputer", ns::tiff, "HostComputer"},
    {"{TIFF}", "DateTime", ns::xmpBasic, "ModifyDate"},
    {"{TIFF}", "ImageDescription", ns::dublinCore, "description", Form::langAlt},
    {"{TIFF}", "Artist", ns::dublinCore, "creator", Form::seq},
    {"{TIFF}", "Copyright", ns::dublinCore, "rights", Form::langAlt},
    {"{TIFF}", "TransferFunction", ns::tiff, "TransferFunction", Form::seq},
    {"{TIFF}", "WhitePoint", ns::tiff, "WhitePoint", Form::seq},
    {"{TIFF}", "PrimaryChromaticities", ns::tiff, "PrimaryChromaticities", Form::seq},
    {"{TIFF}", "TileWidth", ns::tiff, "TileWidth"},
    {"{TIFF}", "TileLength", ns::tiff, "TileLength"},
    {"{GPS}", "GPSVersion", ns::exif, "GPSVersionID"},
    {"{GPS}", "Latitude", ns::exif, "GPSLatitude"},
    {"{GPS}", "Longitude", ns::exif, "GPSLongitude"},
    {"{GPS}", "LatitudeRef", ns::exif, "GPSLatitudeRef"},
    {"{GPS}", "LongitudeRef", ns::exif, "GPSLongitudeRef"},
    {"{GPS}", "Altitude", ns::exif, "GPSAltitude"},
    {"{GPS}", "AltitudeRef", ns::exif, "GPSAltitudeRef"},
    {"{GPS}", "TimeStamp", ns::exif, "GPSTimeStamp"},
    {"{GPS}", "Satellites", ns::exif, "GPSSatellites"},
    {"{GPS}", "Status", ns::exif, "GPSStatus"},
    {"{GPS}", "MeasureMode", ns::exif, "GPSMeasureMode"},
    {"{GPS}", "DOP", ns::exif, "GPSDOP"},
    {"{GPS}", "SpeedRef", ns::exif, "GPSSpeedRef"},
    {"{GPS}", "Speed", ns::exif, "GPSSpeed"},
    {"{GPS}", "TrackRef", ns::exif, "GPSTrackRef"},
    {"{GPS}", "Track", ns::exif, "GPSTrack"},
    {"{GPS}", "ImgDirectionRef", ns::exif, "GPSImgDirectionRef"},
    {"{GPS}", "ImgDirection", ns::exif, "GPSImgDirection"},
    {"{GPS}", "MapDatum", ns::exif, "GPSMapDatum"},
    {"{GPS}", "DestLatitude", ns::exif, "GPSDestLatitude"},
    {"{GPS}", "DestLongitude", ns::exif, "GPSDestLongitude"},
    {"{GPS}", "DestBearingRef", ns::exif, "GPSDestBearingRef"},
    {"{GPS}", "DestBearing", ns::exif, "GPSDestBearing"},
    {"{GPS}", "DestDistanceRef", ns::exif, "GPSDestDistanceRef"},
    {"{GPS}", "DestDistance", ns::exif, "GPSDestDistance"},
    {"{GPS}", "ProcessingMethod", ns::exif, "GPSProcessingMethod"},
    {"{GPS}", "AreaInformation", ns::exif, "GPSAreaInformation"},
    {"{GPS}", "Differental", ns::exif, "GPSDifferential"},
    {"{GPS}", "HPositioningError", ns::exif, "GPSHPositioningError"},
    {"{IPTC}", "CreatorContactInfo", ns::iptcCore, "CreatorContactInfo", Form::structure},
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
    {"{IPTC}", "By-lineTitle", ns::photoshop, "AuthorsPosition"},
    {"{IPTC}", "Credit", ns::photoshop, "Credit"},
    {"{IPTC}", "Source", ns::photoshop, "Source"},
    {"{IPTC}", "Writer/Editor", ns::photoshop, "CaptionWriter"},
    {"{IPTC}", "Category", ns::photoshop, "Category"},
    {"{IPTC}", "SupplementalCategory", ns::photoshop, "SupplementalCategories", Form::bag},
    {"{IPTC}", "Urgency", ns::photoshop, "Urgency"},
    {"{IPTC}", "OriginalTransmissionReference", ns::photoshop, "TransmissionReference"},
    {"{IPTC}", "CopyrightNotice", ns::dublinCore, "rights", Form::langAlt},
    {"{IPTC}", "RightsUsageTerms", ns::xmpRights, "UsageTerms", Form::langAlt},
    {"{IPTC}", "Caption/Abstract", ns::dublinCore, "description", Form::langAlt},
    {"{IPTC}", "ObjectName", ns::dublinCore, "title", Form::langAlt},
    {"{IPTC}", "StarRating", ns::xmpBasic, "Rating"},
    {"{IPTC}", "DateCreated", ns::photoshop, "DateCreated", Form::date},
    {"{IPTC}", "TimeCreated", ns::photoshop, "DateCreated", Form::time},
    {"{IPTC}", "DigitalCreationDate", ns::xmpBasic, "CreateDate", Form::date},
    {"{IPTC}", "DigitalCreationTime", ns::xmpBasic, "CreateDate", Form::time},
};

const Mapping* mapping(std::string_view dictionary, std::string_view property) {
    for (const Mapping& m : kBridge)
        if (m.dictionary == dictionary && m.property == property) return &m;
    return nullptr;
}

// Six decimals, as "%f" writes them in the C locale, whatever locale the process is in.
std::string sixDecimals(double d) {
    char buffer[400]; // "%f" of the largest double has 309 digits before the point
    const auto result =
        std::to_chars(buffer, buffer + sizeof buffer, d, std::chars_format::fixed, 6);
    return std::string(buffer, result.ptr);
}

std::optional<std::string> asText(const PropertyValue& value) {
    if (const auto* s = std::get_if<std::string>(&value)) return *s;
    if (const auto* i = std::get_if<std::int64_t>(&value)) return std::to_string(*i);
    if (const auto* d = std::get_if<double>(&value)) return sixDecimals(*d);
    if (const auto* b = std::get_if<bool>(&value)) return std::string(*b ? "True" : "False");
    return std::nullopt;
}

// A structure of texts in `uri`; nothing when a member cannot be written.
std::optional<Tag> structure(const std::string& uri, std::string name,
                             const PropertyStructure& members) {
    std::vector<Tag> tags;
    for (const auto& [key, text] : members) {
        if (!isXMLName(key) || !isXMLText(text)) return std::nullopt;
        tags.push_back(Tag::text(uri, "", key, text));
    }
    return name.empty()
               ? Tag::element(TagType::structure, std::move(tags))
               : Tag::container(uri, "", std::move(name), TagType::structure, std::move(tags));
}

// "2021-06-01" or IPTC's "20210601" as an XMP date; nothing for anything else.
std::optional<std::string> datePart(std::string_view s) {
    auto digits = [](std::string_view d) {
        return !d.empty() &&
               std::all_of(d.begin(), d.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    if (s.size() == 8 && digits(s))
        return std::string(s.substr(0, 4)) + "-" + std::string(s.substr(4, 2)) + "-" +
               std::string(s.substr(6, 2));
    if (s.size() == 10 && s[4] == '-' && s[7] == '-' && digits(s.substr(0, 4)) &&
        digits(s.substr(5, 2)) && digits(s.substr(8, 2)))
        return std::string(s);
    return std::nullopt;
}

// "10:20:30+02:00" or IPTC's "102030+0200" (the zone optional) as an XMP time.
std::optional<std::string> timePart(std::string_view s) {
    auto digits = [](std::string_view d) {
        return !d.empty() &&
               std::all_of(d.begin(), d.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    std::size_t zoneAt = s.find_first_of("+-Z");
    std::string_view clock = s.substr(0, zoneAt), zone;
    if (zoneAt != std::string_view::npos) zone = s.substr(zoneAt);
    std::string out;
    if (clock.size() == 6 && digits(clock))
        out = std::string(clock.substr(0, 2)) + ":" + std::string(clock.substr(2, 2)) + ":" +
              std::string(clock.substr(4, 2));
    else if (clock.size() == 8 && clock[2] == ':' && clock[5] == ':' &&
             digits(clock.substr(0, 2)) && digits(clock.substr(3, 2)) && digits(clock.substr(6)))
        out = std::string(clock);
    else
        return std::nullopt;
    if (zone == "Z" || zone.empty()) return out + std::string(zone);
    const std::string_view z = zone.substr(1);
    if (z.size() == 4 && digits(z))
        return out + zone[0] + std::string(z.substr(0, 2)) + ":" + std::string(z.substr(2));
    if (z.size() == 5 && z[2] == ':' && digits(z.substr(0, 2)) && digits(z.substr(3)))
        return out + std::string(zone);
    return std::nullopt;
}

} // namespace

bool isReservedNamespace(std::string_view namespaceURI) {
    return namespaceURI == "http://www.w3.org/1999/02/22-rdf-syntax-ns#" ||
           namespaceURI == "http://www.w3.org/XML/1998/namespace" ||
           namespaceURI == "http://www.w3.org/2000/xmlns/" || namespaceURI == "adobe:ns:meta/";
}

bool isXMLText(std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const auto c = nextCodePoint(text, at);
        if (!c || (*c < 0x20 && *c != 0x9 && *c != 0xA && *c != 0xD) ||
            (*c >= 0xFFFE && *c <= 0xFFFF))
            return false;
    }
    return true;
}

void choosePrefixes(std::vector<Tag>& tags) {
    PrefixTable table;
    // Public namespaces first, so that no other namespace keeps a public prefix.
    auto visit = [&](auto& self, std::vector<Tag>& list, bool publicOnes) -> void {
        for (Tag& t : list) {
            if (!t.name().empty() && publicPrefix(t.namespaceURI()).has_value() == publicOnes)
                t.prefix_ = table.prefixFor(t.namespaceURI(), t.prefix_);
            self(self, t.elements_, publicOnes);
        }
    };
    visit(visit, tags, true);
    visit(visit, tags, false);
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
        return std::erase_if(list, [&](const Tag& t) { return names(last.qualifiedName, t); }) > 0;
    }
    return std::erase_if(tags_, [&](const Tag& t) { return names(path, t); }) > 0;
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
    const TagType arrayType = m->form == Form::bag       ? TagType::arrayUnordered
                              : m->form == Form::langAlt ? TagType::alternateArray
                                                         : TagType::arrayOrdered;
    std::optional<Tag> tag;
    if (const auto* list = std::get_if<std::vector<std::string>>(&value)) {
        std::vector<Tag> elements;
        for (const std::string& s : *list) {
            if (!isXMLText(s)) return false;
            elements.push_back(Tag::element(s));
        }
        tag = Tag::container(uri, "", name, arrayType, std::move(elements));
    } else if (const auto* members = std::get_if<PropertyStructure>(&value)) {
        tag = structure(uri, name, *members);
    } else if (const auto* list = std::get_if<std::vector<PropertyStructure>>(&value)) {
        std::vector<Tag> elements;
        for (const PropertyStructure& s : *list) {
            auto element = structure(uri, "", s);
            if (!element) return false;
            elements.push_back(std::move(*element));
        }
        tag = Tag::container(uri, "", name,
                             m->form == Form::bag ? TagType::arrayUnordered : TagType::arrayOrdered,
                             std::move(elements));
    } else {
        std::string text = *asText(value);
        if (!isXMLText(text)) return false;
        switch (m->form) {
        case Form::langAlt:
            tag = Tag::container(uri, "", name, TagType::alternateText,
                                 {Tag::element(std::move(text), "x-default")});
            break;
        case Form::seq:
        case Form::bag:
            tag = Tag::container(uri, "", name, arrayType, {Tag::element(std::move(text))});
            break;
        case Form::date:
        case Form::time: {
            // Keep the other half of a date already there.
            const Tag* existing = tagMatchingImageProperty(dictionary, property);
            const std::string old =
                existing && existing->text() ? *existing->text() : std::string();
            const std::size_t t = old.find('T');
            std::optional<std::string> oldDate, oldTime;
            if (t != std::string::npos)
                oldDate = datePart(std::string_view(old).substr(0, t)),
                oldTime = timePart(std::string_view(old).substr(t + 1));
            else if (!(oldDate = datePart(old)))
                oldTime = timePart(old);
            if (m->form == Form::date) {
                if (const auto date = datePart(text))
                    text = *date + (oldTime ? "T" + *oldTime : std::string());
            } else if (const auto time = timePart(text)) {
                text = oldDate ? *oldDate + "T" + *time : *time;
            }
            tag = Tag::text(uri, "", name, std::move(text));
            break;
        }
        case Form::text:
        case Form::structure:
            tag = Tag::text(uri, "", name, std::move(text));
            break;
        }
    }
    if (!tag) return false;
    setTag(std::move(*tag));
    return true;
}

} // namespace bic::xmp
