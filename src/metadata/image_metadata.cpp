// The model: construction, tags, descriptive readers, editing, the stored form and export.
// Camera and exposure values are in camera_values.cpp.

#include "bic/metadata/image_metadata.hpp"

#include "bic/platform/coding/compression.hpp"
#include "bic/platform/core/fatal.hpp"
#include "metadata_values.hpp"
#include "postal_address.hpp"

#include <cmath>
#include <cstdint>
#include <ctime>
#include <limits>
#include <mutex>
#include <numeric>
#include <set>

namespace bic {

using namespace metadata_values;

namespace {

constexpr std::string_view kIPTC = "{IPTC}", kExif = "{Exif}";

std::optional<std::string> joinedElements(const xmp::Tag* tag) {
    if (!tag) return std::nullopt;
    std::string out;
    for (const std::string& s : cleanElements(*tag))
        out += (out.empty() ? "" : "\n") + s;
    return out;
}

std::optional<std::vector<std::string>> nonEmpty(std::vector<std::string> v) {
    if (v.empty()) return std::nullopt;
    return v;
}

// ---- ISO 8601 internet date-time ----

bool digits(std::string_view s, std::size_t at, std::size_t count, int& value) {
    if (at + count > s.size()) return false;
    value = 0;
    for (std::size_t i = at; i < at + count; ++i) {
        if (s[i] < '0' || s[i] > '9') return false;
        value = value * 10 + (s[i] - '0');
    }
    return true;
}

// YYYY-MM-DDTHH:MM:SS, an optional fraction, and Z, ±HH, ±HHMM or ±HH:MM.
std::optional<ImageMetadata::Date> parseInternetDate(std::string_view s) {
    using namespace std::chrono;
    int y, mo, d, h, mi, se;
    if (!digits(s, 0, 4, y) || s.size() < 19 || s[4] != '-' || !digits(s, 5, 2, mo) ||
        s[7] != '-' || !digits(s, 8, 2, d) || (s[10] != 'T' && s[10] != 't') ||
        !digits(s, 11, 2, h) || s[13] != ':' || !digits(s, 14, 2, mi) || s[16] != ':' ||
        !digits(s, 17, 2, se))
        return std::nullopt;
    std::size_t at = 19;
    microseconds fraction{0};
    if (at < s.size() && s[at] == '.') {
        std::size_t end = ++at;
        long long scale = 100000;
        while (end < s.size() && s[end] >= '0' && s[end] <= '9') {
            fraction += microseconds((s[end] - '0') * scale);
            scale /= 10;
            ++end;
        }
        if (end == at) return std::nullopt;
        at = end;
    }
    minutes offset{0};
    if (at < s.size() && (s[at] == 'Z' || s[at] == 'z')) {
        ++at;
    } else if (at < s.size() && (s[at] == '+' || s[at] == '-')) {
        int oh = 0, om = 0;
        const bool negative = s[at] == '-';
        if (!digits(s, at + 1, 2, oh)) return std::nullopt;
        at += 3;
        if (at < s.size() && s[at] == ':') ++at;
        if (at < s.size()) {
            if (!digits(s, at, 2, om)) return std::nullopt;
            at += 2;
        }
        if (oh > 23 || om > 59) return std::nullopt;
        offset = minutes(negative ? -(oh * 60 + om) : oh * 60 + om);
    } else {
        return std::nullopt;
    }
    if (at != s.size()) return std::nullopt;
    const year_month_day date{year(y), month(unsigned(mo)), day(unsigned(d))};
    if (!date.ok() || h > 23 || mi > 59 || se > 60) return std::nullopt;
    return sys_days(date) + hours(h) + minutes(mi) + seconds(se) + fraction - offset;
}

// Whether a date text ends in a zone: "Z", or a sign and two digits, optionally followed by
// two more (with or without a colon).
bool hasZone(std::string_view s) {
    if (!s.empty() && s.back() == 'Z') return true;
    auto digit = [&](std::size_t fromEnd) {
        return fromEnd <= s.size() && s[s.size() - fromEnd] >= '0' && s[s.size() - fromEnd] <= '9';
    };
    auto sign = [&](std::size_t fromEnd) {
        return fromEnd <= s.size() &&
               (s[s.size() - fromEnd] == '+' || s[s.size() - fromEnd] == '-');
    };
    if (!digit(1) || !digit(2)) return false;
    if (sign(3)) return true;                                                          // +HH
    if (digit(3) && digit(4)) return sign(5);                                          // +HHMM
    return s.size() >= 6 && s[s.size() - 3] == ':' && digit(4) && digit(5) && sign(6); // +HH:MM
}

// The zone at the end of a date text ("+01:00", "Z"); nothing without one.
std::optional<std::string> zoneOf(std::string_view s) {
    if (!hasZone(s)) return std::nullopt;
    if (s.back() == 'Z') return "Z";
    const std::size_t sign = s.find_last_of("+-");
    return std::string(s.substr(sign));
}

// The date and time of day of a date text to the second ("2010-12-12T12:41:35"), which is what
// two statements of the same moment share however each writes fractions and zones.
std::string_view wallClock(std::string_view s) { return s.substr(0, 19); }

// The machine's zone offset now, as "+HHMM".
std::string currentZoneOffset() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    const long total = local.tm_gmtoff / 60;
    const long magnitude = std::labs(total) % (24 * 60);
    char text[32];
    std::snprintf(text, sizeof text, "%c%02ld%02ld", total < 0 ? '-' : '+', magnitude / 60,
                  magnitude % 60);
    return text;
}

constexpr std::string_view kLocationFields[] = {"Sublocation", "City",        "ProvinceState",
                                                "CountryName", "CountryCode", "WorldRegion"};

// The first location of a list, or the one location written as a structure on its own; null
// when there is none to read, as for a structure with none of a location's fields.
const xmp::Tag* firstLocation(const xmp::Tag* tag) {
    if (!tag || tag->type() == xmp::TagType::string) return nullptr;
    if (tag->type() != xmp::TagType::structure)
        return tag->elements().empty() ? nullptr : &tag->elements().front();
    for (const std::string_view field : kLocationFields)
        if (tag->find("Iptc4xmpExt:" + std::string(field))) return tag;
    return nullptr;
}

std::optional<ImageMetadata::ImageLocation> location(const xmp::Tag& structure) {
    ImageMetadata::ImageLocation l;
    auto field = [&](std::string_view name) {
        return cleanText(structure.find("Iptc4xmpExt:" + std::string(name)));
    };
    l.sublocation = field("Sublocation");
    l.city = field("City");
    l.stateProvince = field("ProvinceState");
    l.country = field("CountryName");
    l.isoCountryCode = field("CountryCode");
    l.worldRegion = field("WorldRegion");
    if (l.isEmpty()) return std::nullopt;
    return l;
}

// The host application's name and version, set once at start-up.
struct Software {
    std::mutex mutex;
    std::string text;
};
Software& software() {
    static Software s;
    return s;
}

// The nested container of the stored form.
struct XMPPayload {
    std::optional<ImageMetadata::Compression> compression;
    coding::Data data;

    void encode(coding::Encoder& encoder) const {
        auto k = encoder.keyed();
        if (compression)
            k.encode("Compression",
                     std::string(*compression == ImageMetadata::Compression::zip ? "Zip" : "None"));
        k.encode("Data", data);
    }
    static XMPPayload decode(const coding::Decoder& decoder) {
        const auto k = decoder.keyed();
        XMPPayload p;
        if (const auto text = k.decodeIfPresent<std::string>("Compression")) {
            if (*text == "Zip")
                p.compression = ImageMetadata::Compression::zip;
            else if (*text == "None")
                p.compression = ImageMetadata::Compression::none;
            else
                throw coding::DecodingError(coding::DecodingError::Kind::dataCorrupted,
                                            k.codingPath(),
                                            "Unknown compression \"" + *text + "\".");
        }
        p.data = k.decode<coding::Data>("Data");
        return p;
    }
};

} // namespace

const char* ImageMetadata::ImageMetadataError::what() const noexcept {
    static constexpr const char* names[] = {"errorCreatingMutableCopy", "errorCreatingXMPData",
                                            "errorSettingTagFromProperty", "paramterError",
                                            "unknownError"};
    return names[code_];
}

// ---- Construction and tags ----

std::optional<ImageMetadata> ImageMetadata::make(const xmp::Metadata& tree) {
    const auto data = tree.xmpData();
    if (!data) return std::nullopt;
    return fromXMPData(*data);
}

std::optional<ImageMetadata> ImageMetadata::fromXMPData(std::span<const std::uint8_t> data) {
    auto tree = xmp::Metadata::fromXMPData(data);
    if (!tree) return std::nullopt;
    return ImageMetadata(std::move(*tree));
}

std::optional<ImageMetadata> ImageMetadata::fromImageFile(const std::filesystem::path& path) {
    auto tree = xmp::Metadata::fromImageFile(path);
    if (!tree) return std::nullopt;
    return ImageMetadata(std::move(*tree));
}

std::vector<const xmp::Tag*> ImageMetadata::allTags() const {
    std::vector<const xmp::Tag*> out;
    auto descend = [&](auto& self, const xmp::Tag& t) -> void {
        for (const xmp::Tag& e : t.elements())
            out.push_back(&e);
        for (const xmp::Tag& e : t.elements())
            self(self, e);
    };
    for (const xmp::Tag& t : tags())
        out.push_back(&t);
    for (const xmp::Tag& t : tags())
        descend(descend, t);
    return out;
}

const xmp::Tag* ImageMetadata::imageMetadataTag(std::string_view matchingProperty,
                                                std::string_view inDictionary) const {
    return raw_.tagMatchingImageProperty(inDictionary, matchingProperty);
}

bool operator==(const ImageMetadata& a, const ImageMetadata& b) {
    return a.xmpData() == b.xmpData();
}

// ---- Descriptions ----

std::optional<std::vector<std::string>> ImageMetadata::titles() const {
    const xmp::Tag* t = raw_.tag("dc:title");
    return t ? nonEmpty(cleanElements(*t)) : std::nullopt;
}

std::optional<std::string> ImageMetadata::headline() const {
    return cleanText(raw_.tag("photoshop:Headline"));
}

std::optional<std::string> ImageMetadata::description() const {
    return joinedElements(raw_.tag("dc:description"));
}

std::optional<std::vector<std::string>> ImageMetadata::subject() const {
    const xmp::Tag* t = raw_.tag("dc:subject");
    if (!t) return std::nullopt;
    return cleanElements(*t);
}

std::optional<int> ImageMetadata::starRating() const {
    const auto v = rational(raw_.tag("xmp:Rating"));
    if (!v) return std::nullopt;
    const double truncated = std::trunc(*v);
    if (truncated < -1 || truncated > 5) return std::nullopt;
    return int(truncated);
}

std::optional<std::vector<std::string>> ImageMetadata::authors() const {
    const xmp::Tag* t = raw_.tag("dc:creator");
    return t ? nonEmpty(cleanElements(*t)) : std::nullopt;
}

std::optional<ImageMetadata::ContactInfo> ImageMetadata::contactInfo() const {
    const xmp::Tag* s = raw_.tag("Iptc4xmpCore:CreatorContactInfo");
    if (!s) return std::nullopt;
    auto field = [&](std::string_view key) {
        return cleanText(raw_.tag(*s, "Iptc4xmpCore:" + std::string(key)));
    };
    return ContactInfo{field("CiAdrCity"),  field("CiAdrCtry"),   field("CiAdrExtadr"),
                       field("CiAdrPcode"), field("CiAdrRegion"), field("CiEmailWork"),
                       field("CiTelWork"),  field("CiUrlWork")};
}

std::optional<std::string> ImageMetadata::displayAuthor() const {
    std::vector<std::string> lines;
    if (const auto a = authors())
        for (const std::string& name : *a)
            lines.push_back(name);
    if (const auto c = contactInfo()) {
        for (std::string& line : mailingLines({.street = c->address,
                                 .city = c->city,
                                 .state = c->stateProvince,
                                 .postalCode = c->postalCode,
                                 .country = c->country}))
            lines.push_back(std::move(line));
        for (const std::optional<std::string>& part : {c->email, c->phone, c->webURL})
            if (part) lines.push_back(*part);
    }
    if (lines.empty()) return std::nullopt;
    std::string out;
    for (const std::string& line : lines)
        out += (out.empty() ? "" : "\n") + line;
    return out;
}

std::optional<std::vector<std::string>> ImageMetadata::depictedPersons() const {
    std::vector<std::string> persons;
    std::set<std::string> seen;
    for (const xmp::Tag* t : allTags())
        if (t->path().find("Iptc4xmpExt:PersonInImage") != std::string::npos)
            for (std::string& name : cleanElements(*t))
                if (seen.insert(name).second) persons.push_back(std::move(name));
    return nonEmpty(std::move(persons));
}

std::optional<ImageMetadata::Date> ImageMetadata::dateTimeOriginal() const {
    auto text = cleanText(raw_.tagMatchingImageProperty(kExif, "DateTimeOriginal"));
    if (!text) return std::nullopt;
    if (!hasZone(*text)) {
        std::optional<std::string> zone = dateTimeOffsetOriginal();
        // Exif's date has no zone; the XMP's statement of the same moment may have one.
        if (const auto xmpDate = cleanText(raw_.tag("exif:DateTimeOriginal"));
            !zone && xmpDate && wallClock(*xmpDate) == wallClock(*text))
            zone = zoneOf(*xmpDate);
        *text += zone.value_or(currentZoneOffset());
    }
    return parseInternetDate(*text);
}

std::optional<std::string> ImageMetadata::dateTimeOffsetOriginal() const {
    return cleanText(raw_.tag("exif:OffsetTimeOriginal"));
}

std::optional<ImageMetadata::ImageLocation> ImageMetadata::locationCreated() const {
    if (const xmp::Tag* first =
            firstLocation(raw_.tagMatchingImageProperty(kIPTC, "LocationCreated")))
        return location(*first);
    ImageLocation legacy;
    legacy.sublocation = cleanText(raw_.tag("Iptc4xmpCore:Location"));
    legacy.city = cleanText(raw_.tag("photoshop:City"));
    legacy.stateProvince = cleanText(raw_.tag("photoshop:State"));
    legacy.country = cleanText(raw_.tag("photoshop:Country"));
    legacy.isoCountryCode = cleanText(raw_.tag("Iptc4xmpCore:CountryCode"));
    if (legacy.isEmpty()) return std::nullopt;
    return legacy;
}

std::optional<ImageMetadata::ImageLocation> ImageMetadata::locationShown() const {
    const xmp::Tag* first = firstLocation(raw_.tagMatchingImageProperty(kIPTC, "LocationShown"));
    return first ? location(*first) : std::nullopt;
}

std::optional<std::string> ImageMetadata::userComment() const {
    return joinedElements(raw_.tagMatchingImageProperty(kExif, "UserComment"));
}

std::optional<std::string> ImageMetadata::copyright() const {
    return joinedElements(raw_.tag("dc:rights"));
}

std::optional<std::string> ImageMetadata::instructions() const {
    return cleanText(raw_.tagMatchingImageProperty(kIPTC, "SpecialInstructions"));
}

// ---- Editing ----

void ImageMetadata::set(const xmp::PropertyValue& value, std::string_view matchingProperty,
                        std::string_view inDictionary) {
    // A refused set changes nothing, so the tree needs no copy to stay as it was.
    if (!raw_.setValueMatchingImageProperty(inDictionary, matchingProperty, value))
        throw ImageMetadataError(ImageMetadataError::errorSettingTagFromProperty);
}

void ImageMetadata::remove(const xmp::Tag& tag) {
    if (tag.prefix().empty() || tag.name().empty())
        throw ImageMetadataError(ImageMetadataError::paramterError);
    if (!raw_.removeTag(tag.path())) throw ImageMetadataError(ImageMetadataError::unknownError);
}

void ImageMetadata::removeLocationData() {
    // Each removal lands at once, so the ones before a failure stay done.
    std::vector<xmp::Tag> gps;
    for (const xmp::Tag& t : tags())
        if (t.name().starts_with("GPS")) gps.push_back(t);
    for (const xmp::Tag& t : gps)
        remove(t);
    for (const std::string_view path :
         {"Iptc4xmpExt:LocationCreated", "Iptc4xmpExt:LocationShown", "Iptc4xmpCore:Location",
          "photoshop:City", "photoshop:State", "photoshop:Country", "Iptc4xmpCore:CountryCode"})
        if (const xmp::Tag* t = raw_.tag(path)) {
            const xmp::Tag found = *t;
            remove(found);
        }
}

// ---- Stored form and export ----

void ImageMetadata::encode(coding::Encoder& encoder) const {
    const auto xmp = xmpData();
    if (!xmp) throw ImageMetadataError(ImageMetadataError::errorCreatingXMPData);
    XMPPayload payload;
    try {
        payload.data = coding::zipCompressed(*xmp);
        payload.compression = Compression::zip;
    } catch (const std::exception&) {
        payload.data = *xmp;
    }
    encoder.keyed().encode("XMP", payload);
}

ImageMetadata ImageMetadata::decode(const coding::Decoder& decoder) {
    XMPPayload payload = decoder.keyed().decode<XMPPayload>("XMP");
    if (payload.compression == Compression::zip)
        payload.data = coding::zipUncompressedUpTo(payload.data);
    auto parsed = fromXMPData(payload.data);
    if (!parsed) throw coding::FileReadCorruptError();
    return std::move(*parsed);
}

void ImageMetadata::setSoftwareNameAndVersion(std::string text) {
    std::lock_guard lock(software().mutex);
    software().text = std::move(text);
}

void ImageMetadata::prepareForExport(double resolution, std::string_view fileType) {
    for (const std::string_view name :
         {"Compression", "PhotometricInterpretation", "Orientation", "XResolution", "YResolution",
          "ResolutionUnit", "Software", "TransferFunction", "WhitePoint", "PrimaryChromaticities",
          "TileWidth", "TileLength"})
        raw_.removeTag("tiff:" + std::string(name));
    // Hundredths of a unit, reduced: 72 → 72/1, 72.5 → 145/2. TIFF keeps the resolution as a
    // rational of two unsigned 32-bit integers.
    precondition(std::isfinite(resolution) && resolution * 100 > -1 &&
                     resolution * 100 < double(std::numeric_limits<std::uint32_t>::max()) + 1,
                 "The export resolution must be a finite number of pixels per unit from 0 to "
                 "42949672.95.");
    const auto n = static_cast<long long>(resolution * 100);
    const long long g = n == 0 ? 100 : std::gcd(n, 100LL);
    const std::string rational = std::to_string(n / g) + "/" + std::to_string(100 / g);
    auto setText = [&](std::string name, std::string value) {
        raw_.setTag(
            xmp::Tag::text(std::string(xmp::ns::tiff), "tiff", std::move(name), std::move(value)));
    };
    setText("XResolution", rational);
    setText("YResolution", rational);
    setText("ResolutionUnit", "1");
    if (fileType == "public.tiff") setText("Compression", "5");
    std::string name;
    {
        std::lock_guard lock(software().mutex);
        name = software().text;
    }
    if (!name.empty()) raw_.setValueMatchingImageProperty("{TIFF}", "Software", name);
}

} // namespace bic
