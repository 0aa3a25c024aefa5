#include "bic/metadata/image_metadata.hpp"
#include "bic/platform/coding/compression.hpp"
#include "bic/platform/coding/formats.hpp"
#include "bic/resources/localization.hpp"

#include <cmath>
#include <cstdlib>
#include <gtest/gtest.h>

namespace bic {
namespace {

using namespace std::chrono;
using Error = ImageMetadata::ImageMetadataError;

// Metadata from the body of an rdf:Description carrying every namespace the readers use.
ImageMetadata metadata(std::string_view body) {
    const std::string packet =
        R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">)"
        R"(<rdf:Description rdf:about="" xmlns:dc="http://purl.org/dc/elements/1.1/")"
        R"( xmlns:Iptc4xmpCore="http://iptc.org/std/Iptc4xmpCore/1.0/xmlns/")"
        R"( xmlns:Iptc4xmpExt="http://iptc.org/std/Iptc4xmpExt/2008-02-29/")"
        R"( xmlns:exif="http://ns.adobe.com/exif/1.0/" xmlns:aux="http://ns.adobe.com/exif/1.0/aux/")"
        R"( xmlns:exifEX="http://cipa.jp/exif/1.0/" xmlns:tiff="http://ns.adobe.com/tiff/1.0/")"
        R"( xmlns:photoshop="http://ns.adobe.com/photoshop/1.0/" xmlns:xmp="http://ns.adobe.com/xap/1.0/">)" +
        std::string(body) + "</rdf:Description></rdf:RDF></x:xmpmeta>";
    auto m = ImageMetadata::fromXMPData(std::vector<std::uint8_t>(packet.begin(), packet.end()));
    if (!m) ADD_FAILURE() << "unparsable test packet: " << body;
    return m.value_or(ImageMetadata());
}

std::string simple(std::string_view path, std::string_view value) {
    return "<" + std::string(path) + ">" + std::string(value) + "</" + std::string(path) + ">";
}

class ImageMetadataTest : public testing::Test {
protected:
    void SetUp() override { resources::setPreferredLanguage("en"); }
    void TearDown() override { resources::setPreferredLanguage(std::nullopt); }
};

TEST_F(ImageMetadataTest, Descriptions) {
    const ImageMetadata m = metadata(
        R"(<dc:title><rdf:Alt><rdf:li xml:lang="x-default">  Dawn </rdf:li></rdf:Alt></dc:title>)"
        R"(<dc:description><rdf:Alt><rdf:li xml:lang="x-default">One</rdf:li><rdf:li xml:lang="de">Zwei</rdf:li></rdf:Alt></dc:description>)"
        R"(<dc:rights><rdf:Alt><rdf:li xml:lang="x-default"> </rdf:li></rdf:Alt></dc:rights>)"
        R"(<dc:subject><rdf:Bag><rdf:li>sea</rdf:li><rdf:li> </rdf:li><rdf:li>sky</rdf:li></rdf:Bag></dc:subject>)"
        R"(<dc:creator><rdf:Seq><rdf:li>Ann Lee</rdf:li></rdf:Seq></dc:creator>)"
        R"(<photoshop:Headline>
 Storm </photoshop:Headline><photoshop:Instructions>Crop tight</photoshop:Instructions>)"
        R"(<Iptc4xmpCore:CreatorContactInfo rdf:parseType="Resource"><Iptc4xmpCore:CiAdrExtadr>1 Rue X</Iptc4xmpCore:CiAdrExtadr>)"
        R"(<Iptc4xmpCore:CiAdrCity>Paris</Iptc4xmpCore:CiAdrCity><Iptc4xmpCore:CiAdrPcode>75001</Iptc4xmpCore:CiAdrPcode>)"
        R"(<Iptc4xmpCore:CiAdrCtry>France</Iptc4xmpCore:CiAdrCtry><Iptc4xmpCore:CiEmailWork>ann@example.com</Iptc4xmpCore:CiEmailWork>)"
        R"(</Iptc4xmpCore:CreatorContactInfo>)"
        R"(<Iptc4xmpExt:PersonInImage><rdf:Bag><rdf:li>Bo</rdf:li><rdf:li>Cy</rdf:li><rdf:li>Bo</rdf:li></rdf:Bag></Iptc4xmpExt:PersonInImage>)"
        R"(<exif:UserComment><rdf:Alt><rdf:li xml:lang="x-default">Shot at dawn</rdf:li></rdf:Alt></exif:UserComment>)");
    EXPECT_EQ(m.titles(), (std::vector<std::string>{"Dawn"}));
    EXPECT_EQ(m.headline(), "Storm");
    EXPECT_EQ(m.description(), "One\nZwei");
    EXPECT_EQ(m.copyright(), ""); // the tag is there, its only text blank
    EXPECT_EQ(m.subject(), (std::vector<std::string>{"sea", "sky"}));
    EXPECT_EQ(m.authors(), (std::vector<std::string>{"Ann Lee"}));
    EXPECT_EQ(m.instructions(), "Crop tight");
    EXPECT_EQ(m.userComment(), "Shot at dawn");
    EXPECT_EQ(m.depictedPersons(), (std::vector<std::string>{"Bo", "Cy"}));
    const auto contact = m.contactInfo();
    ASSERT_TRUE(contact);
    EXPECT_EQ(contact->city, "Paris");
    EXPECT_EQ(contact->email, "ann@example.com");
    EXPECT_FALSE(contact->phone);
    EXPECT_EQ(m.displayAuthor(), "Ann Lee\n1 Rue X\n75001 Paris\nFrance\nann@example.com");

    const ImageMetadata blank = metadata(
        R"(<dc:title><rdf:Alt><rdf:li xml:lang="x-default">   </rdf:li></rdf:Alt></dc:title>)");
    EXPECT_FALSE(blank.titles());
    EXPECT_FALSE(blank.description());
    EXPECT_FALSE(blank.displayAuthor());
    EXPECT_FALSE(blank.depictedPersons());
}

TEST_F(ImageMetadataTest, CleanTextTrimsUnicodeSpacesAndLineBreaks) {
    // An ideographic space alone is no title; no-break spaces, U+2028 and U+0085 (NEL) trim.
    EXPECT_FALSE(metadata("<dc:title><rdf:Alt><rdf:li xml:lang=\"x-default\">\u3000</rdf:li>"
                          "</rdf:Alt></dc:title>")
                     .titles());
    const ImageMetadata m =
        metadata(simple("photoshop:Headline", "\u00A0Storm\u2028") +
                 simple("photoshop:Instructions", "\u0085Crop\u3000tight\u2029") +
                 simple("tiff:Make", "\u2003"));
    EXPECT_EQ(m.headline(), "Storm");
    EXPECT_EQ(m.instructions(), "Crop\u3000tight");
    EXPECT_FALSE(m.cameraMaker());
}

TEST_F(ImageMetadataTest, AuthorAddressesInTheirCountrysMailingStyle) {
    auto author = [](std::string_view street, std::string_view city, std::string_view region,
                     std::string_view code, std::string_view country) {
        std::string body = R"(<Iptc4xmpCore:CreatorContactInfo rdf:parseType="Resource">)";
        for (const auto& [key, value] : {std::pair{"CiAdrExtadr", street},
                                         {"CiAdrCity", city},
                                         {"CiAdrRegion", region},
                                         {"CiAdrPcode", code},
                                         {"CiAdrCtry", country}})
            if (!value.empty()) body += simple(std::string("Iptc4xmpCore:") + key, value);
        return metadata(body + "</Iptc4xmpCore:CreatorContactInfo>").displayAuthor();
    };
    EXPECT_EQ(author("1 Infinite Loop", "Cupertino", "CA", "95014", "United States"),
              "1 Infinite Loop\nCupertino CA 95014\nUnited States");
    EXPECT_EQ(author("24 Sussex Drive", "Ottawa", "ON", "K1M 1M4", "CA"),
              "24 Sussex Drive\nOttawa ON K1M 1M4\nCA");
    EXPECT_EQ(author("10 Downing Street", "London", "Greater London", "SW1A 2AA", "UK"),
              "10 Downing Street\nLondon\nGreater London\nSW1A 2AA\nUK");
    EXPECT_EQ(author("Platz der Republik 1", "Berlin", "Berlin", "11011", "Deutschland"),
              "Platz der Republik 1\n11011 Berlin\nDeutschland");
    EXPECT_EQ(
        author("55 Rue du Faubourg Saint-Honoré", "Paris", "Île-de-France", "75008", "FRANCE"),
        "55 Rue du Faubourg Saint-Honoré\n75008 Paris\nFRANCE");
    EXPECT_EQ(author("千代田1-1", "千代田区", "東京都", "100-8111", "日本"),
              "〒100-8111\n東京都千代田区\n千代田1-1\n日本");
    EXPECT_EQ(author("1-1 Chiyoda", "Chiyoda-ku", "Tokyo", "100-8111", "Japan"),
              "〒100-8111\nTokyo Chiyoda-ku\n1-1 Chiyoda\nJapan");
    // Other countries, and none: street, postal code and city, region, country.
    EXPECT_EQ(author("Via del Corso 1", "Roma", "RM", "00186", "Italia"),
              "Via del Corso 1\n00186 Roma\nRM\nItalia");
    EXPECT_EQ(author("", "Springfield", "IL", "", ""), "Springfield\nIL");
}

TEST_F(ImageMetadataTest, RatingsAndNumbers) {
    const std::pair<std::string_view, std::optional<int>> cases[] = {{"5", 5},
                                                                     {"-1", -1},
                                                                     {"6", std::nullopt},
                                                                     {"7/2", 3},
                                                                     {"3.7", std::nullopt},
                                                                     {"1/0", std::nullopt},
                                                                     {"1/2/3", std::nullopt},
                                                                     {"+4", 4},
                                                                     {"-7/2", std::nullopt},
                                                                     {"", std::nullopt}};
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(metadata(simple("xmp:Rating", text)).starRating(), expected) << text;
}

TEST_F(ImageMetadataTest, CaptureDates) {
    auto date = [](std::string_view text, std::string_view offset = "") {
        std::string body = simple("photoshop:DateCreated", text);
        if (!offset.empty()) body += simple("exif:OffsetTimeOriginal", offset);
        return metadata(body).dateTimeOriginal();
    };
    const auto utc = sys_days(2021y / 6 / 1) + 8h + 20min + 30s;
    EXPECT_EQ(date("2021-06-01T10:20:30", "+02:00"), utc);
    EXPECT_EQ(date("2021-06-01T08:20:30Z", "+02:00"), utc); // a zone of its own wins
    EXPECT_EQ(date("2021-06-01T10:20:30.250+02:00"), utc + 250ms);
    EXPECT_EQ(date("2021-06-01T10:20:30+0200"), utc);
    EXPECT_FALSE(date("2021-06-01"));
    EXPECT_FALSE(date("2021-13-01T10:20:30Z"));
    EXPECT_FALSE(date("yesterday"));
    // Without any zone the machine's zone of today applies.
    const char* previous = std::getenv("TZ");
    const std::string saved = previous ? previous : "";
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(date("2021-06-01T08:20:30"), utc);
    if (previous)
        setenv("TZ", saved.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
    EXPECT_EQ(metadata(simple("exif:OffsetTimeOriginal", " -05:00 ")).dateTimeOffsetOriginal(),
              "-05:00");
}

TEST_F(ImageMetadataTest, CaptureZoneFromTheXMPsStatementOfTheSameMoment) {
    // The date the bridge reads came from Exif without a zone; the XMP's exif:DateTimeOriginal
    // states the same wall-clock time with one.
    const char* previous = std::getenv("TZ");
    const std::string saved = previous ? previous : "";
    setenv("TZ", "UTC", 1);
    tzset();
    auto date = [](std::string_view bridged, std::string_view xmp, std::string_view offset = "") {
        std::string body =
            simple("photoshop:DateCreated", bridged) + simple("exif:DateTimeOriginal", xmp);
        if (!offset.empty()) body += simple("exif:OffsetTimeOriginal", offset);
        return metadata(body).dateTimeOriginal();
    };
    const auto noon = sys_days(2010y / 12 / 12) + 12h + 41min + 35s;
    EXPECT_EQ(date("2010-12-12T12:41:35.00", "2010-12-12T12:41:35.00+01:00"), noon - 1h);
    EXPECT_EQ(date("2010-12-12T12:41:35", "2010-12-12T12:41:35-0230"), noon + 2h + 30min);
    EXPECT_EQ(date("2010-12-12T12:41:35", "2010-12-12T12:41:35Z"), noon);
    // Another moment, or no zone, says nothing about this one; an Exif offset comes first.
    EXPECT_EQ(date("2010-12-12T12:41:35", "2010-12-12T12:41:36+01:00"), noon); // machine: UTC
    EXPECT_EQ(date("2010-12-12T12:41:35", "2010-12-12T12:41:35"), noon);
    EXPECT_EQ(date("2010-12-12T12:41:35", "2010-12-12T12:41:35+01:00", "+03:00"), noon - 3h);
    if (previous)
        setenv("TZ", saved.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
}

TEST_F(ImageMetadataTest, Locations) {
    const std::string created =
        R"(<Iptc4xmpExt:LocationCreated><rdf:Bag><rdf:li rdf:parseType="Resource">)"
        R"(<Iptc4xmpExt:City>Rome</Iptc4xmpExt:City><Iptc4xmpExt:CountryCode>IT</Iptc4xmpExt:CountryCode>)"
        R"(</rdf:li></rdf:Bag></Iptc4xmpExt:LocationCreated>)";
    const auto rome = metadata(created + simple("photoshop:City", "Elsewhere")).locationCreated();
    ASSERT_TRUE(rome);
    EXPECT_EQ(rome->city, "Rome");
    EXPECT_EQ(rome->isoCountryCode, "IT");
    EXPECT_FALSE(rome->worldRegion);

    // A blank structure is no location, and the legacy fields are not consulted.
    const std::string blank =
        R"(<Iptc4xmpExt:LocationCreated><rdf:Bag><rdf:li rdf:parseType="Resource">)"
        R"(<Iptc4xmpExt:City> </Iptc4xmpExt:City></rdf:li></rdf:Bag></Iptc4xmpExt:LocationCreated>)";
    EXPECT_FALSE(metadata(blank + simple("photoshop:City", "Paris")).locationCreated());
    const auto legacy = metadata(simple("photoshop:City", "Paris")).locationCreated();
    ASSERT_TRUE(legacy);
    EXPECT_EQ(*legacy, (ImageMetadata::ImageLocation{.city = "Paris"}));
    EXPECT_FALSE(metadata(simple("photoshop:City", "Paris")).locationShown());

    // One location written as a structure on its own, not in a list.
    const std::string single =
        R"(<Iptc4xmpExt:LocationCreated rdf:parseType="Resource">)"
        R"(<Iptc4xmpExt:City>Oslo</Iptc4xmpExt:City><Iptc4xmpExt:WorldRegion>Europe</Iptc4xmpExt:WorldRegion>)"
        R"(</Iptc4xmpExt:LocationCreated>)";
    EXPECT_EQ(metadata(single + simple("photoshop:City", "Elsewhere")).locationCreated(),
              (ImageMetadata::ImageLocation{.city = "Oslo", .worldRegion = "Europe"}));
    EXPECT_EQ(metadata("<Iptc4xmpExt:LocationShown rdf:parseType=\"Resource\">" +
                       simple("Iptc4xmpExt:CountryName", "Norway") + "</Iptc4xmpExt:LocationShown>")
                  .locationShown(),
              (ImageMetadata::ImageLocation{.country = "Norway"}));
    // A structure with none of a location's fields leaves the legacy fields to speak.
    const std::string other = R"(<Iptc4xmpExt:LocationCreated rdf:parseType="Resource">)" +
                              simple("Iptc4xmpExt:LocationId", "x") +
                              "</Iptc4xmpExt:LocationCreated>";
    EXPECT_EQ(metadata(other + simple("photoshop:City", "Paris")).locationCreated(),
              (ImageMetadata::ImageLocation{.city = "Paris"}));

    ImageMetadata::ImageLocation l;
    EXPECT_TRUE(l.isEmpty());
    l.worldRegion = "Europe";
    EXPECT_FALSE(l.isEmpty());
}

TEST_F(ImageMetadataTest, EqualityAndEditing) {
    const std::string body = simple("tiff:Make", "Canon") + simple("exif:GPSLatitude", "1,2N") +
                             simple("exif:GPSAltitude", "3") + simple("photoshop:City", "Oslo") +
                             simple("photoshop:Headline", "Kept");
    EXPECT_EQ(metadata(body), metadata(body));
    ImageMetadata m = metadata(body);
    EXPECT_NE(m, ImageMetadata());

    m.set(std::int64_t(3), "Orientation", "{TIFF}");
    EXPECT_EQ(m.imageMetadataTag("Orientation", "{TIFF}")->text(), "3");
    const ImageMetadata before = m;
    try {
        m.set(std::string("x"), "Nonsense", "{TIFF}");
        ADD_FAILURE();
    } catch (const Error& e) {
        EXPECT_EQ(e.code(), Error::errorSettingTagFromProperty);
    }
    EXPECT_EQ(m, before);
    try {
        m.remove(xmp::Tag::element("no prefix"));
        ADD_FAILURE();
    } catch (const Error& e) {
        EXPECT_EQ(e.code(), Error::paramterError);
    }
    try {
        m.remove(xmp::Tag::text(std::string(xmp::ns::tiff), "tiff", "Model", "x"));
        ADD_FAILURE();
    } catch (const Error& e) {
        EXPECT_EQ(e.code(), Error::unknownError);
    }

    m.removeLocationData();
    std::vector<std::string> left;
    for (const xmp::Tag& t : m.tags())
        left.push_back(t.path());
    EXPECT_EQ(left,
              (std::vector<std::string>{"photoshop:Headline", "tiff:Make", "tiff:Orientation"}));
}

TEST_F(ImageMetadataTest, SetWritesStructuresAndListsOfThem) {
    ImageMetadata m;
    m.set(xmp::PropertyStructure{{"CiAdrCity", "Paris"}, {"CiEmailWork", "ann@example.com"}},
          "CreatorContactInfo", "{IPTC}");
    m.set(std::vector<xmp::PropertyStructure>{{{"City", "Rome"}, {"CountryCode", "IT"}},
                                              {{"City", "Oslo"}}},
          "LocationCreated", "{IPTC}");
    m.set(xmp::PropertyStructure{{"CountryName", "Norway"}}, "LocationShown", "{IPTC}");
    const ImageMetadata read = coding::decode<ImageMetadata>(coding::encode(m));
    EXPECT_EQ(read.contactInfo(),
              (ImageMetadata::ContactInfo{.city = "Paris", .email = "ann@example.com"}));
    EXPECT_EQ(read.locationCreated(),
              (ImageMetadata::ImageLocation{.city = "Rome", .isoCountryCode = "IT"}));
    EXPECT_EQ(read.rawMetadata().tag("Iptc4xmpExt:LocationCreated")->type(),
              xmp::TagType::arrayUnordered);
    EXPECT_EQ(read.rawMetadata().tag("Iptc4xmpExt:LocationCreated[2]/Iptc4xmpExt:City")->text(),
              "Oslo");
    EXPECT_EQ(read.locationShown(), (ImageMetadata::ImageLocation{.country = "Norway"}));

    // A member name XML cannot carry refuses the whole value.
    const ImageMetadata before = m;
    EXPECT_THROW(m.set(xmp::PropertyStructure{{"Ci Adr", "x"}}, "CreatorContactInfo", "{IPTC}"),
                 Error);
    EXPECT_EQ(m, before);
}

TEST_F(ImageMetadataTest, CodedEnumerationsAndFlash) {
    using EP = ImageMetadata::ExposureProgram;
    EXPECT_EQ(metadata(simple("exif:ExposureProgram", "3")).exposureProgram(),
              EP::aperturePriority);
    EXPECT_EQ(metadata(simple("exif:ExposureProgram", "+2")).exposureProgram(), EP::program);
    EXPECT_FALSE(metadata(simple("exif:ExposureProgram", "10")).exposureProgram());
    EXPECT_FALSE(metadata(simple("exif:ExposureProgram", "P")).exposureProgram());
    EXPECT_FALSE(metadata(simple("exif:LightSource", "5")).lightSource());
    EXPECT_EQ(metadata(simple("exif:LightSource", "255")).lightSource(),
              ImageMetadata::LightSource::other);
    EXPECT_EQ(metadata(simple("exif:MeteringMode", "5")).meteringMode(),
              ImageMetadata::MeteringMode::multiSegment);
    EXPECT_EQ(metadata(simple("exif:WhiteBalance", "0")).autoWhiteBalance(), true);
    EXPECT_EQ(metadata(simple("exif:WhiteBalance", "1")).autoWhiteBalance(), false);

    auto flash = [](std::string_view mode, std::string_view fired) {
        return metadata(R"(<exif:Flash rdf:parseType="Resource">)" + simple("exif:Mode", mode) +
                        simple("exif:Fired", fired) + simple("exif:RedEyeMode", "False") +
                        "</exif:Flash>");
    };
    EXPECT_EQ(flash("3", "True").flashMode(), ImageMetadata::FlashMode::automatic);
    EXPECT_EQ(flash("3", "True").flashDidFire(), true);
    EXPECT_EQ(flash("3", "true").flashRedEyeMode(), false);
    EXPECT_FALSE(flash("4", "yes").flashMode());
    EXPECT_FALSE(flash("4", "yes").flashDidFire());
    EXPECT_TRUE(flash("1", "False").hasCameraInfo());
    EXPECT_FALSE(metadata(simple("photoshop:City", "Oslo")).hasCameraInfo());
}

TEST_F(ImageMetadataTest, CameraInfoNeedsAValueNotJustATag) {
    for (const std::string& body :
         {simple("tiff:Make", "  "), simple("exif:ExposureProgram", "abc"),
          simple("exif:LightSource", "5"), simple("exif:FNumber", "x/y"),
          simple("exif:MeteringMode", "7"), simple("exif:FocalLength", "1/0"),
          simple("aux:Lens", ""), simple("exif:WhiteBalance", "auto"),
          std::string("<exif:ISOSpeedRatings><rdf:Seq><rdf:li>fast</rdf:li></rdf:Seq>"
                      "</exif:ISOSpeedRatings>"),
          R"(<exif:Flash rdf:parseType="Resource">)" + simple("exif:Mode", "4") +
              simple("exif:Fired", "True") + "</exif:Flash>",
          simple("tiff:Make", "  ") + simple("exif:LightSource", "5")})
        EXPECT_FALSE(metadata(body).hasCameraInfo()) << body;
    for (const std::string& body :
         {simple("tiff:Make", "Canon"), simple("aux:OwnerName", "Ann"),
          simple("exif:LightSource", "255"), simple("exif:FNumber", "28/10"),
          simple("aux:Lens", "Kit zoom"), simple("exif:WhiteBalance", "1"),
          std::string("<exif:ISOSpeedRatings><rdf:Seq><rdf:li>100</rdf:li></rdf:Seq>"
                      "</exif:ISOSpeedRatings>")})
        EXPECT_TRUE(metadata(body).hasCameraInfo()) << body;
}

TEST_F(ImageMetadataTest, CameraAndLensNames) {
    auto camera = [](std::string_view maker, std::string_view model, std::string_view owner = "") {
        std::string body = simple("tiff:Make", maker);
        if (!model.empty()) body += simple("tiff:Model", model);
        if (!owner.empty()) body += simple("aux:OwnerName", owner);
        return metadata(body);
    };
    EXPECT_EQ(camera("NIKON CORPORATION", "NIKON D850").displayCameraModel(), "Nikon D850");
    EXPECT_EQ(camera("NIKON CORPORATION", "D850").displayCameraModel(), "Nikon D850");
    EXPECT_EQ(camera("NIKON CORPORATION", "NIKON D850", "Ann").displayCameraModel(),
              "Nikon D850 of Ann");
    EXPECT_EQ(camera("NIKON CORPORATION", "", "Ann").displayCameraModel(), "Nikon of Ann");
    EXPECT_EQ(camera("Canon", "Canon EOS R5").displayCameraModel(), "Canon EOS R5");
    EXPECT_EQ(camera("SONY", "ILCE-7M3").displayCameraModel(), "Sony α7 III"); // model table
    EXPECT_FALSE(camera("Canon", "").displayCameraModel());
    EXPECT_EQ(camera("NIKON CORPORATION", "D850").cameraIcon(), "Nikon");
    EXPECT_EQ(camera("Obscura Works", "One").cameraIcon(), "Generic");
    resources::setPreferredLanguage("de");
    EXPECT_EQ(camera("NIKON CORPORATION", "D850", "Ann").displayCameraModel(),
              "Nikon D850 von Ann");
    resources::setPreferredLanguage("en");

    const ImageMetadata lens = metadata(
        simple("exifEX:LensMake", "SIGMA") + simple("exifEX:LensModel", "24-70mm F2.8 DG") +
        R"(<exifEX:LensSpecification><rdf:Seq><rdf:li>24/1</rdf:li><rdf:li>70/1</rdf:li>)"
        R"(<rdf:li>28/10</rdf:li><rdf:li>28/10</rdf:li></rdf:Seq></exifEX:LensSpecification>)" +
        simple("exif:FocalLength", "35/1") + simple("exif:FocalLenIn35mmFilm", "52") +
        simple("exif:DigitalZoomRatio", "2"));
    EXPECT_EQ(lens.displayLensModel(), "Sigma 24-70mm F2.8 DG");
    EXPECT_EQ(lens.lensSpecification(), (ImageMetadata::LensSpecification{24, 2.8, 70, 2.8}));
    EXPECT_EQ(lens.isZoomLens(), true);
    EXPECT_EQ(lens.is35mmSensor(), false);
    EXPECT_EQ(lens.displayLensSpecification(), "24-70mm 𝑓∕2.8");
    // The range's digits are already in the lens name, so the range is left out.
    EXPECT_EQ(lens.displayLensInfo(),
              "Sigma 24-70mm F2.8 DG\n35mm (like 52mm for 35mm film) ⨉ 2.0 digitally");

    const ImageMetadata kit =
        metadata(simple("aux:LensInfo", "18/1 55/1 35/10 56/10") + simple("aux:Lens", "Kit zoom"));
    EXPECT_EQ(kit.lensModel(), "Kit zoom");
    EXPECT_EQ(kit.displayLensSpecification(), "18-55mm 𝑓∕3.5-5.6");
    EXPECT_EQ(kit.displayLensInfo(), "Kit zoom 18-55mm 𝑓∕3.5-5.6");
    EXPECT_EQ(metadata(simple("aux:LensInfo", "50/1 50/1 18/10 18/10")).displayLensSpecification(),
              "50mm 𝑓∕1.8");
    EXPECT_FALSE(metadata(simple("aux:LensInfo", "50/1 50/1 18/0 18/10")).lensSpecification());
    EXPECT_FALSE(metadata(simple("aux:LensInfo", "50/1 50/1 18/10")).lensSpecification());

    EXPECT_EQ(metadata(simple("exif:FocalLength", "50") + simple("exif:FocalLenIn35mmFilm", "50"))
                  .is35mmSensor(),
              true);
    EXPECT_FALSE(metadata(simple("exif:FocalLength", "50")).is35mmSensor());
}

TEST_F(ImageMetadataTest, ExposureAndPositionTexts) {
    auto one = [](std::string_view path, std::string_view value) {
        return metadata(simple(path, value));
    };
    EXPECT_EQ(one("exif:ExposureTime", "1/250").displayShutterSpeed(), "1/250s");
    EXPECT_EQ(one("exif:ExposureTime", "2").displayShutterSpeed(), "2s");
    EXPECT_EQ(one("exif:ExposureTime", "3/2").displayShutterSpeed(), "1.5s");
    EXPECT_EQ(one("exif:ExposureTime", "1/4000").displayShutterSpeed(), "1/4000s");
    EXPECT_EQ(one("exif:ShutterSpeedValue", "8").displayShutterSpeed(), "1/256s");
    EXPECT_EQ(one("exif:FNumber", "28/10").displayAperture(), "𝑓∕2.8");
    EXPECT_EQ(one("exif:FNumber", "8").displayAperture(), "𝑓∕8");
    EXPECT_EQ(one("exif:ApertureValue", "5").displayAperture(), "𝑓∕5.7");
    EXPECT_EQ(one("exif:ExposureBiasValue", "0").displayExposureCompensation(), "+0.0");
    EXPECT_EQ(one("exif:ExposureBiasValue", "-2/3").displayExposureCompensation(), "-0.7");
    EXPECT_EQ(one("aux:FlashCompensation", "1/3").displayFlashCompensation(), "+0.3");
    EXPECT_EQ(
        metadata(
            R"(<exif:ISOSpeedRatings><rdf:Seq><rdf:li>x</rdf:li><rdf:li>12800</rdf:li></rdf:Seq></exif:ISOSpeedRatings>)")
            .displayISO(),
        "12,800");
    EXPECT_EQ(one("exif:GPSLatitude", "48,51.4512N").displayGPSLatitude(), "48° 51′ 27.07″ N");
    EXPECT_EQ(one("exif:GPSLongitude", "2,17.4W").displayGPSLongitude(), "2° 17′ 24″ W");
    EXPECT_EQ(one("exif:GPSLatitude", "48,51.4512X").displayGPSLatitude(), "48° 51′ 27.07″ ");
    EXPECT_FALSE(one("exif:GPSLatitude", "48 51.4512N").displayGPSLatitude());
    EXPECT_FALSE(one("exif:GPSLatitude", "48,51.4512").displayGPSLatitude());
    EXPECT_EQ(one("exif:GPSAltitude", "35/2").displayGPSAltitude(), "17.5m");
    EXPECT_EQ(metadata(simple("exif:GPSAltitude", "10") + simple("exif:GPSAltitudeRef", "1"))
                  .gpsAltitude(),
              -10);
    const auto where =
        metadata(simple("exif:GPSLatitude", "48,30N") + simple("exif:GPSLongitude", "2,15W"))
            .gpsLocation();
    ASSERT_TRUE(where);
    EXPECT_DOUBLE_EQ((*where)[0], 48.5);
    EXPECT_DOUBLE_EQ((*where)[1], -2.25);

    resources::setPreferredLanguage("de");
    EXPECT_EQ(one("exif:ExposureBiasValue", "-2/3").displayExposureCompensation(), "-0,7");
    EXPECT_EQ(one("exif:GPSLongitude", "2,17.4E").displayGPSLongitude(), "2° 17′ 24″ O");
    resources::setPreferredLanguage("en");
}

TEST_F(ImageMetadataTest, StoredForm) {
    const ImageMetadata m =
        metadata(simple("photoshop:Headline", "Stored") + simple("tiff:Make", "Canon"));
    const coding::Value tree = coding::encode(m);
    const coding::Value* xmp = tree.find("XMP");
    ASSERT_TRUE(xmp);
    EXPECT_EQ(*xmp->find("Compression")->get<std::string>(), "Zip");
    EXPECT_EQ(coding::decodePropertyList<ImageMetadata>(coding::writePropertyList(tree)), m);

    // Plain XMP without a compression key reads too.
    const auto plain = *m.xmpData();
    const coding::Value uncompressed(
        coding::Dictionary{{"XMP", coding::Dictionary{{"Data", coding::Data(plain)}}}});
    EXPECT_EQ(coding::decode<ImageMetadata>(uncompressed), m);

    const coding::Value corrupt(coding::Dictionary{
        {"XMP", coding::Dictionary{{"Compression", "Zip"}, {"Data", coding::Data{1, 2, 3}}}}});
    EXPECT_THROW(coding::decode<ImageMetadata>(corrupt), coding::CompressionError);
    const std::string junk = "not xmp at all";
    const coding::Value unparsable(coding::Dictionary{
        {"XMP", coding::Dictionary{{"Data", coding::Data(junk.begin(), junk.end())}}}});
    EXPECT_THROW(coding::decode<ImageMetadata>(unparsable), coding::FileReadCorruptError);
    EXPECT_THROW(coding::decode<ImageMetadata>(coding::Value(
                     coding::Dictionary{{"XMP", coding::Dictionary{{"Compression", "Zip"}}}})),
                 coding::DecodingError);
}

TEST_F(ImageMetadataTest, ValuesXMPCannotCarryAreRefusedNotStored) {
    // A non-character, bytes that are not UTF-8, a surrogate, a control character: each would
    // give a stored form that no longer loads, so setting them fails and changes nothing.
    ImageMetadata m = metadata(simple("photoshop:Headline", "Kept"));
    const ImageMetadata before = m;
    for (const std::string& bad : {std::string("a\uFFFF"), std::string("\xFF\xFE"),
                                   std::string("\xED\xA0\x80"), std::string("bell\x07")}) {
        try {
            m.set(bad, "Headline", "{IPTC}");
            ADD_FAILURE() << "set " << bad;
        } catch (const Error& e) {
            EXPECT_EQ(e.code(), Error::errorSettingTagFromProperty);
        }
        EXPECT_EQ(m, before);
    }
    // What XML carries goes through: tabs, line breaks, characters beyond the BMP.
    m.set(std::string("\tA\r\nB \U0010FFFD \U0001D453"), "Headline", "{IPTC}");
    const ImageMetadata stored = coding::decode<ImageMetadata>(coding::encode(m));
    EXPECT_EQ(stored, m);
    EXPECT_EQ(stored.rawMetadata().tag("photoshop:Headline")->text(),
              "\tA\r\nB \U0010FFFD \U0001D453");

    // A tree that holds such a text anyway cannot be encoded.
    xmp::Metadata tree;
    tree.setTag(xmp::Tag::text(std::string(xmp::ns::photoshop), "", "Headline", "a\uFFFF"));
    EXPECT_FALSE(tree.xmpData());
}

TEST_F(ImageMetadataTest, ExportPreparation) {
    const std::string body = simple("tiff:Orientation", "6") + simple("tiff:Software", "Old") +
                             simple("tiff:Compression", "1") + simple("tiff:Make", "Canon");
    ImageMetadata png = metadata(body);
    png.prepareForExport(72, "public.png");
    EXPECT_EQ(png.rawMetadata().tag("tiff:XResolution")->text(), "72/1");
    EXPECT_EQ(png.rawMetadata().tag("tiff:YResolution")->text(), "72/1");
    EXPECT_EQ(png.rawMetadata().tag("tiff:ResolutionUnit")->text(), "1");
    EXPECT_FALSE(png.rawMetadata().tag("tiff:Compression"));
    EXPECT_FALSE(png.rawMetadata().tag("tiff:Orientation"));
    EXPECT_FALSE(png.rawMetadata().tag("tiff:Software"));
    EXPECT_EQ(png.cameraMaker(), "Canon");

    ImageMetadata tiff = metadata(body);
    ImageMetadata::setSoftwareNameAndVersion("Painter 3.1");
    tiff.prepareForExport(72.5, "public.tiff");
    ImageMetadata::setSoftwareNameAndVersion("");
    EXPECT_EQ(tiff.rawMetadata().tag("tiff:XResolution")->text(), "145/2");
    EXPECT_EQ(tiff.rawMetadata().tag("tiff:Compression")->text(), "5");
    EXPECT_EQ(tiff.rawMetadata().tag("xmp:CreatorTool")->text(), "Painter 3.1");

    // A resolution a TIFF rational cannot hold is a caller's mistake.
    ImageMetadata any;
    for (const double bad : {std::nan(""), HUGE_VAL, -HUGE_VAL, 1e30, 42949673.0, -1.0})
        EXPECT_DEATH(any.prepareForExport(bad, "public.tiff"),
                     "Fatal error: The export resolution must be a finite number")
            << bad;
    any.prepareForExport(42949672.5, "public.tiff");
    EXPECT_EQ(any.rawMetadata().tag("tiff:XResolution")->text(), "85899345/2");

    ImageMetadata tiny;
    tiny.prepareForExport(0.004, "public.png");
    EXPECT_EQ(tiny.rawMetadata().tag("tiff:XResolution")->text(), "0/1");
    tiny.prepareForExport(300, "public.png");
    EXPECT_EQ(tiny.rawMetadata().tag("tiff:YResolution")->text(), "300/1");
}

} // namespace
} // namespace bic
