// Camera, lens, exposure and position values, and the short texts an information panel shows
// for them.

#include "bic/metadata/image_metadata.hpp"
#include "bic/platform/coding/formats.hpp"
#include "bic/platform/core/fatal.hpp"
#include "bic/resources/bundle.hpp"
#include "bic/resources/localization.hpp"
#include "metadata_values.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>

namespace bic {

using namespace metadata_values;

namespace {

constexpr std::string_view kExif = "{Exif}", kAux = "{ExifAux}", kTIFF = "{TIFF}", kGPS = "{GPS}";
constexpr std::string_view kF = "\U0001D453\u2215"; // mathematical italic f, division slash

// ASCII letters lower-cased, whatever the process locale; other bytes, UTF-8 included, stay.
std::string lower(std::string text) {
    for (char& c : text)
        if (c >= 'A' && c <= 'Z') c = char(c - 'A' + 'a');
    return text;
}

bool isASCIILetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

std::string normalizedMaker(const std::string& maker) {
    static const std::map<std::string, std::string, std::less<>> table{
        {"fujifilm", "Fujifilm"},
        {"leica", "Leica"},
        {"leica camera ag", "Leica"},
        {"nikon", "Nikon"},
        {"nikon corporation", "Nikon"},
        {"olympus", "Olympus"},
        {"olympus corporation", "Olympus"},
        {"olympus imaging corp.", "Olympus"},
        {"pentax", "Pentax"},
        {"pentax corporation", "Pentax"},
        {"samsung", "Samsung"},
        {"sigma", "Sigma"},
        {"sony", "Sony"},
    };
    const auto it = table.find(lower(maker));
    return it == table.end() ? maker : it->second;
}

// Maker text as stored → model text as stored → display name, read once from the resources.
using ModelNames = std::map<std::string, std::map<std::string, std::string>>;
const ModelNames& modelNames() {
    static const ModelNames names = [] {
        const auto data = resources::resourceData("MakerStrings.plist");
        if (!data) fatalError("The library's MakerStrings resource is missing.");
        coding::Value plist;
        try {
            plist = coding::readPropertyList(
                std::span(reinterpret_cast<const std::uint8_t*>(data->data()), data->size()));
        } catch (const std::exception& e) {
            fatalError(std::string("The library's MakerStrings resource cannot be read: ") +
                       e.what());
        }
        ModelNames names;
        const auto* makers = plist.get<coding::Dictionary>();
        if (!makers) fatalError("The library's MakerStrings resource is no dictionary.");
        for (const auto& [maker, models] : *makers) {
            const auto* table = models.get<coding::Dictionary>();
            if (!table) fatalError("The library's MakerStrings resource is malformed.");
            for (const auto& [model, name] : *table)
                if (const auto* text = name.get<std::string>()) names[maker][model] = *text;
        }
        return names;
    }();
    return names;
}

bool isZoom(const ImageMetadata::LensSpecification& s) {
    return s.minFocalLength != s.maxFocalLength;
}

std::optional<int> truncated(std::optional<double> v) {
    if (!v || !std::isfinite(*v) || std::abs(*v) > 1e9) return std::nullopt;
    return int(std::trunc(*v));
}

std::optional<bool> flag(const xmp::Tag* tag) {
    const auto text = cleanText(tag);
    if (!text) return std::nullopt;
    const std::string l = lower(*text);
    if (l == "true") return true;
    if (l == "false") return false;
    return std::nullopt;
}

std::string digitsOnly(std::string_view text) {
    std::string out;
    for (char c : text)
        if (c >= '0' && c <= '9') out += c;
    return out;
}

// "48,51.4512N" → degrees, decimal minutes and the direction letter.
struct Coordinate {
    long long degrees;
    double minutes;
    char direction;
};

std::optional<Coordinate> coordinate(const std::string& text) {
    const std::size_t comma = text.find(',');
    if (comma == std::string::npos || text.find(',', comma + 1) != std::string::npos)
        return std::nullopt;
    const auto degrees = integer(std::string_view(text).substr(0, comma));
    std::string_view minutes = std::string_view(text).substr(comma + 1);
    if (!degrees || minutes.size() < 2 || !isASCIILetter(minutes.back())) return std::nullopt;
    const char direction = minutes.back();
    minutes.remove_suffix(1);
    // Plain decimal digits with a point, whatever the process locale says a number looks like.
    double value = 0;
    const auto [end, error] = std::from_chars(minutes.data(), minutes.data() + minutes.size(),
                                              value, std::chars_format::fixed);
    if (error != std::errc() || end != minutes.data() + minutes.size() || !std::isfinite(value) ||
        minutes[0] < '0' || minutes[0] > '9')
        return std::nullopt;
    return Coordinate{*degrees, value, direction};
}

std::optional<std::string> displayCoordinate(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    const auto c = coordinate(*text);
    if (!c) return std::nullopt;
    const double whole = std::floor(c->minutes);
    const double seconds = (c->minutes - whole) * 100 * 0.6;
    std::string direction;
    switch (c->direction) {
    case 'N':
        direction = resources::localizedString("Localizable", "<North abbr>");
        break;
    case 'S':
        direction = resources::localizedString("Localizable", "<South abbr>");
        break;
    case 'E':
        direction = resources::localizedString("Localizable", "<East abbr>");
        break;
    case 'W':
        direction = resources::localizedString("Localizable", "<West abbr>");
        break;
    default:
        break;
    }
    return std::to_string(c->degrees) + "° " + formatted(whole, {}) + "′ " +
           formatted(seconds, {.maximumFractionDigits = 2}) + "″ " + direction;
}

std::optional<double> decimalDegrees(const std::optional<std::string>& text) {
    if (!text) return std::nullopt;
    const auto c = coordinate(*text);
    if (!c) return std::nullopt;
    const double value = std::abs(double(c->degrees)) + c->minutes / 60;
    return c->direction == 'S' || c->direction == 'W' || c->degrees < 0 ? -value : value;
}

// Exposure and flash compensation: one fraction digit, always signed.
std::optional<std::string> signedStops(std::optional<double> v) {
    if (!v) return std::nullopt;
    return formatted(*v, {.minimumFractionDigits = 1,
                          .maximumFractionDigits = 1,
                          .positivePrefix = "+",
                          .negativePrefix = "-"});
}

} // namespace

// ---- Camera and lens ----

std::optional<std::string> ImageMetadata::cameraMaker() const {
    return cleanText(raw_.tagMatchingImageProperty(kTIFF, "Make"));
}
std::optional<std::string> ImageMetadata::cameraModel() const {
    return cleanText(raw_.tagMatchingImageProperty(kTIFF, "Model"));
}
std::optional<std::string> ImageMetadata::cameraOwner() const {
    return cleanText(raw_.tag("aux:OwnerName"));
}
std::optional<std::string> ImageMetadata::lensMaker() const {
    return cleanText(raw_.tagMatchingImageProperty(kExif, "LensMake"));
}
std::optional<std::string> ImageMetadata::lensModel() const {
    if (auto model = cleanText(raw_.tagMatchingImageProperty(kExif, "LensModel"))) return model;
    return cleanText(raw_.tagMatchingImageProperty(kAux, "LensModel"));
}

std::optional<ImageMetadata::LensSpecification> ImageMetadata::lensSpecification() const {
    // Both forms list minimum and maximum focal length, then the apertures at each.
    auto fromParts =
        [](const std::array<std::optional<double>, 4>& p) -> std::optional<LensSpecification> {
        for (const auto& v : p)
            if (!v) return std::nullopt;
        return LensSpecification{*p[0], *p[2], *p[1], *p[3]};
    };
    if (const xmp::Tag* list = raw_.tagMatchingImageProperty(kExif, "LensSpecification");
        list && list->elements().size() >= 4) {
        const auto& e = list->elements();
        if (auto s =
                fromParts({rational(&e[0]), rational(&e[1]), rational(&e[2]), rational(&e[3])}))
            return s;
    }
    const auto info = cleanText(raw_.tagMatchingImageProperty(kAux, "LensInfo"));
    if (!info) return std::nullopt;
    std::vector<std::string_view> parts;
    std::string_view rest = *info;
    for (;;) {
        const std::size_t space = rest.find(' ');
        parts.push_back(rest.substr(0, space));
        if (space == std::string_view::npos) break;
        rest.remove_prefix(space + 1);
    }
    if (parts.size() != 4) return std::nullopt;
    return fromParts(
        {rational(parts[0]), rational(parts[1]), rational(parts[2]), rational(parts[3])});
}

std::optional<bool> ImageMetadata::is35mmSensor() const {
    const auto focal = focalLength(), equivalent = focalLengthIn35mmFilm();
    if (!focal || !equivalent) return std::nullopt;
    return *focal == *equivalent;
}

std::optional<bool> ImageMetadata::isZoomLens() const {
    const auto s = lensSpecification();
    if (!s) return std::nullopt;
    return isZoom(*s);
}

bool ImageMetadata::hasCameraInfo() const {
    // A tag counts only when its reader makes a value of it: a blank make or an exposure
    // program of "abc" is no camera information.
    const auto iso = isoValues();
    return cameraMaker() || cameraModel() || cameraOwner() || lensMaker() || lensModel() ||
           focalLength() || focalLengthIn35mmFilm() || digitalZoomRatio() || exposureProgram() ||
           exposureTime() || shutterSpeedValue() || fNumber() || apertureValue() ||
           (iso && !iso->empty()) || exposureCompensation() || meteringMode() ||
           autoWhiteBalance() || lightSource() || flashMode() || flashCompensation();
}

std::optional<std::string> ImageMetadata::displayCameraModel() const {
    const auto maker = cameraMaker();
    std::optional<std::string> model = cameraModel();
    if (model && maker) {
        const auto& names = modelNames();
        if (const auto m = names.find(*maker); m != names.end())
            if (const auto n = m->second.find(*model); n != m->second.end()) model = n->second;
    }
    std::string text = model.value_or("");
    if (const auto owner = cameraOwner())
        text = model ? localizedFormat("%@ of %@", {*model, *owner})
                     : localizedFormat("of %@", {*owner});
    if (maker) {
        const std::string normal = normalizedMaker(*maker);
        const std::size_t at = lower(text).find(lower(normal));
        if (at != std::string::npos && !normal.empty())
            text.replace(at, normal.size(), normal); // fixes the maker's capitals
        else if (!text.empty())
            text = normal + " " + text;
    }
    if (text.empty()) return std::nullopt;
    return text;
}

std::optional<std::string> ImageMetadata::displayLensModel() const {
    std::string text = lensModel().value_or("");
    if (const auto maker = lensMaker()) {
        const std::string normal = normalizedMaker(*maker);
        if (lower(text).find(lower(normal)) == std::string::npos && !text.empty())
            text = normal + " " + text;
    }
    if (text.empty()) return std::nullopt;
    return text;
}

std::optional<std::string> ImageMetadata::displayLensSpecification() const {
    const auto s = lensSpecification();
    if (!s) return std::nullopt;
    const NumberFormat focal{.maximumFractionDigits = 2};
    NumberFormat focalMM = focal;
    focalMM.suffix = "mm";
    std::string text =
        s->minFocalLength == s->maxFocalLength
            ? formatted(s->minFocalLength, focalMM)
            : formatted(s->minFocalLength, focal) + "-" + formatted(s->maxFocalLength, focalMM);
    const NumberFormat aperture{.maximumFractionDigits = 2, .grouping = false, .localized = false};
    text += " " + std::string(kF) + formatted(s->minFocalLengthAperture, aperture);
    if (s->maxFocalLengthAperture != s->minFocalLengthAperture)
        text += "-" + formatted(s->maxFocalLengthAperture, aperture);
    return text;
}

std::optional<std::string> ImageMetadata::displayLensInfo() const {
    std::string text = displayLensModel().value_or("");
    const auto spec = lensSpecification();
    if (const auto specText = displayLensSpecification();
        specText && digitsOnly(text).find(digitsOnly(*specText)) == std::string::npos)
        text += (text.empty() ? "" : " ") + *specText;
    const auto focal = focalLength();
    bool afterFocalLength = false;
    auto separator = [&] { return text.empty() ? "" : afterFocalLength ? " " : "\n"; };
    if (focal &&
        ((spec && (isZoom(*spec) || spec->minFocalLength != *focal)) || (!spec && *focal != 0))) {
        text += separator() + formatted(*focal, {.maximumFractionDigits = 1, .suffix = "mm"});
        afterFocalLength = true;
    }
    if (const auto equivalent = focalLengthIn35mmFilm();
        focal && equivalent && *focal != *equivalent)
        text +=
            separator() +
            localizedFormat("(like %@ for 35mm film)",
                            {formatted(*equivalent, {.maximumFractionDigits = 1, .suffix = "mm"})});
    if (const auto zoom = digitalZoomRatio(); zoom && *zoom != 1 && *zoom != 0)
        text += separator() +
                localizedFormat("⨉ %@ digitally", {formatted(*zoom, {.minimumFractionDigits = 1,
                                                                     .maximumFractionDigits = 1})});
    if (text.empty()) return std::nullopt;
    return text;
}

std::string ImageMetadata::cameraIcon() const {
    if (const auto maker = cameraMaker()) {
        const std::string name = normalizedMaker(*maker);
        if (resources::resourceData("MakerIcons/" + name + ".svg")) return name;
    }
    return "Generic";
}

// ---- Exposure ----

std::optional<double> ImageMetadata::focalLength() const {
    return rational(raw_.tagMatchingImageProperty(kExif, "FocalLength"));
}
std::optional<double> ImageMetadata::focalLengthIn35mmFilm() const {
    return rational(raw_.tagMatchingImageProperty(kExif, "FocalLenIn35mmFilm"));
}
std::optional<double> ImageMetadata::digitalZoomRatio() const {
    return rational(raw_.tagMatchingImageProperty(kExif, "DigitalZoomRatio"));
}
std::optional<double> ImageMetadata::exposureTime() const {
    return rational(raw_.tagMatchingImageProperty(kExif, "ExposureTime"));
}
std::optional<double> ImageMetadata::shutterSpeedValue() const {
    return rational(raw_.tagMatchingImageProperty(kExif, "ShutterSpeedValue"));
}
std::optional<double> ImageMetadata::fNumber() const {
    return rational(raw_.tagMatchingImageProperty(kExif, "FNumber"));
}
std::optional<double> ImageMetadata::apertureValue() const {
    return rational(raw_.tagMatchingImageProperty(kExif, "ApertureValue"));
}
std::optional<double> ImageMetadata::exposureCompensation() const {
    return rational(raw_.tagMatchingImageProperty(kExif, "ExposureBiasValue"));
}
std::optional<double> ImageMetadata::flashCompensation() const {
    return rational(raw_.tagMatchingImageProperty(kAux, "FlashCompensation"));
}

std::optional<ImageMetadata::ExposureProgram> ImageMetadata::exposureProgram() const {
    const auto text = cleanText(raw_.tagMatchingImageProperty(kExif, "ExposureProgram"));
    const auto code = text ? integer(*text) : std::nullopt;
    if (!code || *code < 0 || *code > 9) return std::nullopt;
    return ExposureProgram(*code);
}

std::optional<std::vector<double>> ImageMetadata::isoValues() const {
    const xmp::Tag* list = raw_.tagMatchingImageProperty(kExif, "ISOSpeedRatings");
    if (!list) return std::nullopt;
    std::vector<double> values;
    for (const xmp::Tag& e : list->elements())
        if (const auto v = rational(&e)) values.push_back(*v);
    return values;
}

std::optional<bool> ImageMetadata::autoWhiteBalance() const {
    const auto code = truncated(rational(raw_.tagMatchingImageProperty(kExif, "WhiteBalance")));
    if (!code) return std::nullopt;
    return *code == 0;
}

std::optional<ImageMetadata::LightSource> ImageMetadata::lightSource() const {
    const auto code = truncated(rational(raw_.tagMatchingImageProperty(kExif, "LightSource")));
    if (!code || !((*code >= 0 && *code <= 4) || (*code >= 9 && *code <= 24) || *code == 255))
        return std::nullopt;
    return LightSource(*code);
}

std::optional<ImageMetadata::MeteringMode> ImageMetadata::meteringMode() const {
    const auto code = truncated(rational(raw_.tagMatchingImageProperty(kExif, "MeteringMode")));
    if (!code || !((*code >= 0 && *code <= 6) || *code == 255)) return std::nullopt;
    return MeteringMode(*code);
}

std::optional<ImageMetadata::FlashMode> ImageMetadata::flashMode() const {
    const xmp::Tag* flash = raw_.tag("exif:Flash");
    const auto code = flash ? truncated(rational(flash->find("exif:Mode"))) : std::nullopt;
    if (!code || *code < 0 || *code >= 4) return std::nullopt;
    return FlashMode(*code);
}

std::optional<bool> ImageMetadata::flashDidFire() const {
    const xmp::Tag* flash = raw_.tag("exif:Flash");
    return flash ? flag(flash->find("exif:Fired")) : std::nullopt;
}

std::optional<bool> ImageMetadata::flashRedEyeMode() const {
    const xmp::Tag* flash = raw_.tag("exif:Flash");
    return flash ? flag(flash->find("exif:RedEyeMode")) : std::nullopt;
}

std::optional<std::string> ImageMetadata::displayShutterSpeed() const {
    std::optional<double> t = exposureTime();
    if (!t)
        if (const auto v = shutterSpeedValue()) t = std::pow(2.0, -*v);
    if (!t) return std::nullopt;
    NumberFormat format{.maximumFractionDigits = 1, .suffix = "s"};
    if (*t < 1) {
        format.grouping = false;
        return "1/" + formatted(1 / *t, format);
    }
    return formatted(*t, format);
}

std::optional<std::string> ImageMetadata::displayAperture() const {
    std::optional<double> n = fNumber();
    if (!n)
        if (const auto av = apertureValue()) n = std::pow(1.4142135623730951, *av);
    if (!n) return std::nullopt;
    return std::string(kF) + formatted(*n, {.maximumFractionDigits = 1});
}

std::optional<std::string> ImageMetadata::displayISO() const {
    const auto values = isoValues();
    if (!values || values->empty()) return std::nullopt;
    return formatted(values->front(), {});
}

std::optional<std::string> ImageMetadata::displayExposureCompensation() const {
    return signedStops(exposureCompensation());
}

std::optional<std::string> ImageMetadata::displayFlashCompensation() const {
    return signedStops(flashCompensation());
}

// ---- Position ----

std::optional<std::string> ImageMetadata::gpsLatitude() const {
    return cleanText(raw_.tagMatchingImageProperty(kGPS, "Latitude"));
}
std::optional<std::string> ImageMetadata::gpsLongitude() const {
    return cleanText(raw_.tagMatchingImageProperty(kGPS, "Longitude"));
}
std::optional<std::string> ImageMetadata::displayGPSLatitude() const {
    return displayCoordinate(gpsLatitude());
}
std::optional<std::string> ImageMetadata::displayGPSLongitude() const {
    return displayCoordinate(gpsLongitude());
}

std::optional<double> ImageMetadata::gpsAltitude() const {
    const auto altitude = rational(raw_.tagMatchingImageProperty(kGPS, "Altitude"));
    if (!altitude) return std::nullopt;
    const auto reference = truncated(rational(raw_.tagMatchingImageProperty(kGPS, "AltitudeRef")));
    return reference == 1 ? -*altitude : *altitude;
}

std::optional<std::string> ImageMetadata::displayGPSAltitude() const {
    const auto altitude = rational(raw_.tagMatchingImageProperty(kGPS, "Altitude"));
    if (!altitude) return std::nullopt;
    return formatted(*altitude, {.maximumFractionDigits = 2, .suffix = "m"});
}

std::optional<double> ImageMetadata::gpsPositioningError() const {
    return rational(raw_.tagMatchingImageProperty(kGPS, "HPositioningError"));
}

std::optional<std::array<double, 2>> ImageMetadata::gpsLocation() const {
    const auto latitude = decimalDegrees(gpsLatitude()), longitude = decimalDegrees(gpsLongitude());
    if (!latitude || !longitude) return std::nullopt;
    return std::array<double, 2>{*latitude, *longitude};
}

} // namespace bic
