// Reads arbitrary metadata. The first byte picks the form: the input as an XMP packet, as the
// stored keyed form (a property list or JSON), or an XMP packet built from the input out of the
// properties the readers look at, which reaches the value rules far more often than random
// text does. Whatever the input, readers answer without throwing, the stored form fails only
// with its documented errors, a tree that parses reads back equal from its own packet, and a
// value the property bridge accepts, whatever its bytes, gives a stored form that loads.

#include "bic/metadata/image_metadata.hpp"
#include "bic/platform/coding/compression.hpp"
#include "bic/platform/coding/formats.hpp"
#include "fuzz_input.hpp"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

using namespace bic;

namespace {

// Input, with short texts taken from it.
struct Input : fuzzing::Input {
    std::string text(std::size_t most) {
        const std::size_t n = std::min<std::size_t>(byte() % (most + 1), bytes.size());
        std::string out(bytes.begin(), bytes.begin() + std::ptrdiff_t(n));
        bytes = bytes.subspan(n);
        for (char& c : out)
            if (c == '<' || c == '&') c = '?'; // keep the packet well-formed
        return out;
    }
    // Bytes as they come, for the property bridge.
    std::string raw(std::size_t most) {
        const std::size_t n = std::min<std::size_t>(byte() % (most + 1), bytes.size());
        std::string out(bytes.begin(), bytes.begin() + std::ptrdiff_t(n));
        bytes = bytes.subspan(n);
        return out;
    }
};

std::string packet(Input& in) {
    static const char* simple[] = {"xmp:Rating",
                                   "photoshop:Headline",
                                   "photoshop:DateCreated",
                                   "exif:OffsetTimeOriginal",
                                   "exif:ExposureTime",
                                   "exif:ShutterSpeedValue",
                                   "exif:FNumber",
                                   "exif:ApertureValue",
                                   "exif:ExposureBiasValue",
                                   "exif:ExposureProgram",
                                   "exif:LightSource",
                                   "exif:MeteringMode",
                                   "exif:WhiteBalance",
                                   "exif:FocalLength",
                                   "exif:FocalLenIn35mmFilm",
                                   "exif:DigitalZoomRatio",
                                   "exif:GPSLatitude",
                                   "exif:GPSLongitude",
                                   "exif:GPSAltitude",
                                   "exif:GPSAltitudeRef",
                                   "tiff:Make",
                                   "tiff:Model",
                                   "aux:OwnerName",
                                   "aux:LensInfo",
                                   "aux:Lens",
                                   "aux:FlashCompensation",
                                   "exifEX:LensMake",
                                   "exifEX:LensModel",
                                   "photoshop:City",
                                   "Iptc4xmpCore:CountryCode"};
    static const char* lists[] = {"dc:title",
                                  "dc:description",
                                  "dc:subject",
                                  "dc:creator",
                                  "dc:rights",
                                  "exif:ISOSpeedRatings",
                                  "exif:UserComment",
                                  "exifEX:LensSpecification",
                                  "Iptc4xmpExt:PersonInImage"};
    static const char* structures[] = {"exif:Flash", "Iptc4xmpCore:CreatorContactInfo"};
    static const char* members[] = {"exif:Mode", "exif:Fired", "exif:RedEyeMode",
                                    "Iptc4xmpCore:CiAdrCity", "Iptc4xmpCore:CiEmailWork"};
    static const char* kinds[] = {"rdf:Alt", "rdf:Bag", "rdf:Seq"};
    std::string body;
    for (int n = in.byte() % 12; n > 0; --n) {
        const std::uint8_t pick = in.byte();
        if (pick % 3 == 0) {
            const std::string name = simple[in.byte() % std::size(simple)];
            body += "<" + name + ">" + in.text(24) + "</" + name + ">";
        } else if (pick % 3 == 1) {
            const std::string name = lists[in.byte() % std::size(lists)];
            const std::string kind = kinds[in.byte() % 3];
            body += "<" + name + "><" + kind + ">";
            for (int k = in.byte() % 5; k > 0; --k)
                body += kind == "rdf:Alt"
                            ? "<rdf:li xml:lang=\"x-default\">" + in.text(16) + "</rdf:li>"
                        : in.byte() % 4 == 0 ? std::string("<rdf:li/>") // an empty item
                                             : "<rdf:li>" + in.text(16) + "</rdf:li>";
            body += "</" + kind + "></" + name + ">";
        } else {
            const std::string name = structures[in.byte() % std::size(structures)];
            body += "<" + name + " rdf:parseType=\"Resource\">";
            for (int k = in.byte() % 4; k > 0; --k) {
                const std::string member = members[in.byte() % std::size(members)];
                body += "<" + member + ">" + in.text(12) + "</" + member + ">";
            }
            // A member whose namespace is declared on itself alone.
            if (in.byte() % 3 == 0)
                body +=
                    R"(<ext:Note xmlns:ext="http://example.com/ext">)" + in.text(8) + "</ext:Note>";
            body += "</" + name + ">";
        }
    }
    return R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">)"
           R"(<rdf:Description rdf:about="" xmlns:dc="http://purl.org/dc/elements/1.1/")"
           R"( xmlns:Iptc4xmpCore="http://iptc.org/std/Iptc4xmpCore/1.0/xmlns/")"
           R"( xmlns:Iptc4xmpExt="http://iptc.org/std/Iptc4xmpExt/2008-02-29/")"
           R"( xmlns:exif="http://ns.adobe.com/exif/1.0/" xmlns:aux="http://ns.adobe.com/exif/1.0/aux/")"
           R"( xmlns:exifEX="http://cipa.jp/exif/1.0/" xmlns:tiff="http://ns.adobe.com/tiff/1.0/")"
           R"( xmlns:photoshop="http://ns.adobe.com/photoshop/1.0/" xmlns:xmp="http://ns.adobe.com/xap/1.0/">)" +
           body + "</rdf:Description></rdf:RDF></x:xmpmeta>";
}

// Every reader, for the sanitizers to watch.
void readAll(const ImageMetadata& m) {
    (void)m.titles(), (void)m.headline(), (void)m.description(), (void)m.subject();
    (void)m.starRating(), (void)m.authors(), (void)m.contactInfo(), (void)m.displayAuthor();
    (void)m.depictedPersons(), (void)m.dateTimeOriginal(), (void)m.locationCreated();
    (void)m.locationShown(), (void)m.userComment(), (void)m.copyright(), (void)m.instructions();
    (void)m.displayCameraModel(), (void)m.displayLensInfo(), (void)m.cameraIcon();
    (void)m.is35mmSensor(), (void)m.hasCameraInfo(), (void)m.exposureProgram();
    (void)m.lightSource(), (void)m.meteringMode(), (void)m.flashMode(), (void)m.flashDidFire();
    (void)m.autoWhiteBalance(), (void)m.displayShutterSpeed(), (void)m.displayAperture();
    (void)m.displayISO(), (void)m.displayExposureCompensation(), (void)m.displayFlashCompensation();
    (void)m.displayGPSLatitude(), (void)m.displayGPSLongitude(), (void)m.displayGPSAltitude();
    (void)m.gpsLocation(), (void)m.gpsPositioningError(), (void)m.allTags();
}

void roundTrip(const ImageMetadata& m) {
    const auto data = m.xmpData();
    if (!data) return; // texts XML cannot carry
    const auto again = ImageMetadata::fromXMPData(*data);
    if (!again || !(*again == m)) {
        // Show both packets: what was written, and what reading it gave.
        const auto readBack = again ? again->xmpData() : std::nullopt;
        std::fprintf(stderr, "written:\n%.*s\nread back:\n%.*s\n", int(data->size()),
                     reinterpret_cast<const char*>(data->data()),
                     readBack ? int(readBack->size()) : 0,
                     readBack ? reinterpret_cast<const char*>(readBack->data()) : "");
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input in{{std::span(data, size)}};
    switch (in.byte() % 3) {
    case 0:
        if (const auto m = ImageMetadata::fromXMPData(in.bytes)) {
            readAll(*m);
            roundTrip(*m);
        }
        break;
    case 1:
        try {
            const coding::Value tree =
                !in.bytes.empty() && in.bytes[0] == '{'
                    ? coding::readJSON(std::string(in.bytes.begin(), in.bytes.end()))
                    : coding::readPropertyList(in.bytes);
            readAll(coding::decode<ImageMetadata>(tree));
        } catch (const coding::DecodingError&) {
        } catch (const coding::FileReadCorruptError&) {
        } catch (const coding::CompressionError&) {
        }
        break;
    default: {
        const std::string text = packet(in);
        const auto m = ImageMetadata::fromXMPData(
            std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
        if (!m) break;
        readAll(*m);
        roundTrip(*m);
        ImageMetadata edited = *m;
        try {
            edited.removeLocationData();
        } catch (const ImageMetadata::ImageMetadataError&) {
        }
        edited.prepareForExport(double(in.byte()) * 1.5,
                                in.byte() % 2 ? "public.tiff" : "public.png");
        roundTrip(edited);
        try {
            edited.set(in.raw(12), in.byte() % 2 ? "Headline" : "Keywords", "{IPTC}");
        } catch (const ImageMetadata::ImageMetadataError&) {
            break; // refused: nothing to store
        }
        if (!(coding::decode<ImageMetadata>(coding::encode(edited)) == edited)) std::abort();
        break;
    }
    }
    return 0;
}
