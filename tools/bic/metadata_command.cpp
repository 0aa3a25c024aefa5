// bic metadata: a photo's metadata as an information panel, as JSON, or as its XMP; and the
// demo's camera metadata written into the generated photo.

#include "bic/metadata/image_metadata.hpp"
#include "bic/platform/coding/formats.hpp"
#include "commands.hpp"

#include <ctime>
#include <exiv2/exiv2.hpp>
#include <fmt/format.h>
#include <fstream>
#include <iterator>

namespace bic::tool {

namespace {

std::string isoDate(const ImageMetadata::Date& date) {
    using namespace std::chrono;
    const auto seconds = floor<std::chrono::seconds>(date);
    const std::time_t t = system_clock::to_time_t(seconds);
    std::tm utc{};
    gmtime_r(&t, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    const auto micro = (date - seconds).count();
    return micro ? fmt::format("{}.{:06}Z", text, micro) : std::string(text) + "Z";
}

std::string joined(const std::vector<std::string>& parts, std::string_view separator) {
    std::string out;
    for (const std::string& p : parts)
        out += (out.empty() ? "" : std::string(separator)) + p;
    return out;
}

std::string place(const ImageMetadata::ImageLocation& l) {
    std::vector<std::string> parts;
    for (const auto& p : {l.sublocation, l.city, l.stateProvince, l.country, l.worldRegion})
        if (p) parts.push_back(*p);
    if (l.isoCountryCode) parts.push_back("(" + *l.isoCountryCode + ")");
    return joined(parts, ", ");
}

std::optional<std::string> flashText(const ImageMetadata& m) {
    const auto fired = m.flashDidFire();
    if (!fired) return std::nullopt;
    std::string text = *fired ? "fired" : "did not fire";
    if (const auto c = m.displayFlashCompensation()) text += ", " + *c;
    if (m.flashRedEyeMode() == true) text += ", red-eye reduction";
    return text;
}

// One (label, raw value, display text) row of the panel; raw values go to JSON only.
struct Row {
    std::string label;
    coding::Value raw;
    std::optional<std::string> shown;
};

std::vector<Row> rows(const ImageMetadata& m) {
    std::vector<Row> out;
    auto text = [&](std::string label, const std::optional<std::string>& v) {
        if (v) out.push_back({std::move(label), *v, *v});
    };
    auto list = [&](std::string label, const std::optional<std::vector<std::string>>& v,
                    std::string_view separator) {
        if (!v || v->empty()) return;
        coding::Array raw(v->begin(), v->end());
        out.push_back({std::move(label), raw, joined(*v, separator)});
    };
    auto number = [&](std::string label, const std::optional<double>& raw,
                      const std::optional<std::string>& shown) {
        if (raw || shown)
            out.push_back({std::move(label), raw ? coding::Value(*raw) : coding::Value(), shown});
    };
    list("Title", m.titles(), " / ");
    text("Headline", m.headline());
    text("Description", m.description());
    list("Keywords", m.subject(), ", ");
    if (const auto r = m.starRating()) out.push_back({"Rating", *r, fmt::format("{}", *r)});
    list("Authors", m.authors(), ", ");
    text("Author", m.displayAuthor());
    list("People shown", m.depictedPersons(), ", ");
    if (const auto d = m.dateTimeOriginal()) out.push_back({"Captured", isoDate(*d), isoDate(*d)});
    if (const auto l = m.locationCreated())
        out.push_back({"Location created", place(*l), place(*l)});
    if (const auto l = m.locationShown()) out.push_back({"Location shown", place(*l), place(*l)});
    text("Camera", m.displayCameraModel());
    text("Lens", m.displayLensInfo());
    number("Shutter speed", m.exposureTime(), m.displayShutterSpeed());
    number("Aperture", m.fNumber(), m.displayAperture());
    if (const auto iso = m.isoValues(); iso && !iso->empty())
        out.push_back({"ISO", iso->front(), m.displayISO()});
    number("Exposure compensation", m.exposureCompensation(), m.displayExposureCompensation());
    text("Flash", flashText(m));
    if (m.gpsLatitude() && m.gpsLongitude()) {
        const auto location = m.gpsLocation();
        coding::Value raw = location ? coding::Value(coding::Array{(*location)[0], (*location)[1]})
                                     : coding::Value(*m.gpsLatitude() + " " + *m.gpsLongitude());
        out.push_back(
            {"GPS position", raw,
             m.displayGPSLatitude().value_or("-") + "  " + m.displayGPSLongitude().value_or("-")});
    }
    number("Altitude", m.gpsAltitude(), m.displayGPSAltitude());
    text("Copyright", m.copyright());
    text("Comment", m.userComment());
    text("Instructions", m.instructions());
    return out;
}

ImageMetadata read(const std::filesystem::path& path) {
    if (auto m = ImageMetadata::fromImageFile(path)) return *m;
    // Not an image Exiv2 knows: perhaps a bare XMP packet.
    std::ifstream file(path, std::ios::binary);
    if (!file) throw CommandError("cannot read " + path.string());
    const std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
    if (auto m = ImageMetadata::fromXMPData(bytes)) return *m;
    throw CommandError(path.string() + " holds no metadata that can be read");
}

// The camera of a generated photo: Exif as a camera writes it, put into the file by Exiv2.
void writeCameraExif(const std::filesystem::path& photo) {
    auto image = Exiv2::ImageFactory::open(photo.string());
    Exiv2::ExifData exif;
    exif["Exif.Image.Make"] = "NIKON CORPORATION";
    exif["Exif.Image.Model"] = "NIKON D850";
    exif["Exif.Photo.DateTimeOriginal"] = "2021:06:01 10:20:30";
    exif["Exif.Photo.OffsetTimeOriginal"] = "+02:00";
    exif["Exif.Photo.ExposureTime"] = Exiv2::URational(1, 250);
    exif["Exif.Photo.FNumber"] = Exiv2::URational(28, 10);
    exif["Exif.Photo.ISOSpeedRatings"] = std::uint16_t(400);
    exif["Exif.Photo.ExposureBiasValue"] = Exiv2::Rational(-2, 3);
    exif["Exif.Photo.Flash"] = std::uint16_t(0x19); // fired, auto mode
    exif["Exif.Photo.FocalLength"] = Exiv2::URational(35, 1);
    exif["Exif.Photo.FocalLengthIn35mmFilm"] = std::uint16_t(35);
    exif["Exif.Photo.LensMake"] = "NIKON";
    exif["Exif.Photo.LensModel"] = "NIKKOR Z 24-70mm f/4 S";
    Exiv2::URationalValue spec;
    spec.read("24/1 70/1 4/1 4/1");
    exif.add(Exiv2::ExifKey("Exif.Photo.LensSpecification"), &spec);
    exif["Exif.GPSInfo.GPSLatitudeRef"] = "N";
    Exiv2::URationalValue latitude, longitude;
    latitude.read("48/1 51/1 2707/100");
    longitude.read("2/1 17/1 4000/100");
    exif.add(Exiv2::ExifKey("Exif.GPSInfo.GPSLatitude"), &latitude);
    exif["Exif.GPSInfo.GPSLongitudeRef"] = "E";
    exif.add(Exiv2::ExifKey("Exif.GPSInfo.GPSLongitude"), &longitude);
    exif["Exif.GPSInfo.GPSAltitudeRef"] = std::uint8_t(0);
    exif["Exif.GPSInfo.GPSAltitude"] = Exiv2::URational(355, 10);
    image->setExifData(exif);
    Exiv2::XmpData xmp;
    xmp["Xmp.dc.subject"] = "Paris";
    xmp["Xmp.xmp.Rating"] = "4";
    xmp["Xmp.dc.creator"] = "Demo Photographer";
    image->setXmpData(xmp);
    image->writeMetadata();
}

} // namespace

std::string panelText(const ImageMetadata& metadata) {
    std::string out;
    for (const Row& row : rows(metadata)) {
        if (!row.shown) continue;
        // Continuation lines of multi-line texts line up under the first.
        std::string shown = *row.shown;
        for (std::size_t at = shown.find('\n'); at != std::string::npos;
             at = shown.find('\n', at + 24))
            shown.replace(at, 1, "\n" + std::string(23, ' '));
        out += fmt::format("{:<22} {}\n", row.label + ":", shown);
    }
    return out;
}

Run addMetadataCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("metadata", "Show a photo's metadata");
    auto in = std::make_shared<std::string>();
    auto json = std::make_shared<bool>(false), xmp = std::make_shared<bool>(false);
    cmd->add_option("file", *in, "a photo (JPEG, TIFF, PNG, raw) or an XMP file")->required();
    auto* jsonFlag = cmd->add_flag("--json", *json, "raw values and display texts as JSON");
    cmd->add_flag("--xmp", *xmp, "the XMP packet")->excludes(jsonFlag);
    return [cmd, in, json, xmp] {
        if (!cmd->parsed()) return;
        const ImageMetadata m = read(*in);
        if (*xmp) {
            const auto data = m.xmpData();
            if (!data) throw CommandError("the metadata cannot be written as XMP");
            fmt::print("{}\n", std::string(data->begin(), data->end()));
        } else if (*json) {
            coding::Dictionary raw, shown;
            for (Row& row : rows(m)) {
                if (!row.raw.isNull()) raw.emplace_back(row.label, std::move(row.raw));
                if (row.shown) shown.emplace_back(row.label, *row.shown);
            }
            fmt::print("{}\n", coding::writeJSON(coding::Dictionary{{"values", std::move(raw)},
                                                                    {"display", std::move(shown)}},
                                                 true));
        } else {
            const std::string panel = panelText(m);
            fmt::print("{}", panel.empty() ? "no metadata\n" : panel);
        }
    };
}

void metadataSection(const std::filesystem::path& dir) {
    fmt::print("== metadata ==\n");
    const auto photo = dir / "photo.png";
    writeCameraExif(photo);
    auto m = ImageMetadata::fromImageFile(photo);
    if (!m) throw CommandError("cannot read the metadata back from " + photo.string());
    fmt::print("  the photo's Exif, read back as XMP and shown as a panel:\n");
    const std::string panel = panelText(*m);
    std::size_t start = 0;
    for (std::size_t end = panel.find('\n'); end != std::string::npos;
         start = end + 1, end = panel.find('\n', start))
        fmt::print("    {}\n", panel.substr(start, end - start));

    const auto stored = dir / "metadata.plist";
    const auto bytes = coding::encodePropertyList(*m);
    std::ofstream(stored, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    const bool same = coding::decodePropertyList<ImageMetadata>(bytes) == *m;
    ImageMetadata exported = *m;
    exported.prepareForExport(300, "public.tiff");
    fmt::print("  stored form (zip-compressed XMP) {}: {}; prepared for a 300 ppi TIFF: "
               "resolution {}, compression {}\n",
               same ? "read back equal" : "CHANGED", stored.string(),
               exported.rawMetadata().tag("tiff:XResolution")->text().value_or("?"),
               exported.rawMetadata().tag("tiff:Compression")->text().value_or("?"));
}

} // namespace bic::tool
