#include "bic/platform/xmp/metadata.hpp"

#include <exiv2/exiv2.hpp>
#include <filesystem>
#include <gtest/gtest.h>

namespace bic::xmp {
namespace {

std::vector<std::uint8_t> bytes(std::string_view text) { return {text.begin(), text.end()}; }

constexpr std::string_view kPacket = R"(<x:xmpmeta xmlns:x="adobe:ns:meta/">
<rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">
<rdf:Description rdf:about="" xmlns:dc="http://purl.org/dc/elements/1.1/"
  xmlns:Iptc4xmpCore="http://iptc.org/std/Iptc4xmpCore/1.0/xmlns/"
  xmlns:Iptc4xmpExt="http://iptc.org/std/Iptc4xmpExt/2008-02-29/"
  xmlns:exif="http://ns.adobe.com/exif/1.0/" xmlns:xmp="http://ns.adobe.com/xap/1.0/"
  xmlns:my="http://example.com/my/">
 <dc:title><rdf:Alt><rdf:li xml:lang="de">Hallo</rdf:li><rdf:li xml:lang="x-default">Hello &amp; &lt;more&gt;</rdf:li></rdf:Alt></dc:title>
 <dc:subject><rdf:Bag><rdf:li>b</rdf:li><rdf:li>a</rdf:li></rdf:Bag></dc:subject>
 <xmp:Rating>5</xmp:Rating>
 <my:Thing>x</my:Thing>
 <Iptc4xmpCore:CreatorContactInfo rdf:parseType="Resource">
  <Iptc4xmpCore:CiAdrCity>Paris</Iptc4xmpCore:CiAdrCity>
 </Iptc4xmpCore:CreatorContactInfo>
 <Iptc4xmpExt:LocationCreated><rdf:Bag>
  <rdf:li rdf:parseType="Resource"><Iptc4xmpExt:City>Rome</Iptc4xmpExt:City></rdf:li>
  <rdf:li rdf:parseType="Resource"><Iptc4xmpExt:City>Oslo</Iptc4xmpExt:City></rdf:li>
 </rdf:Bag></Iptc4xmpExt:LocationCreated>
 <exif:Flash rdf:parseType="Resource"><exif:Fired>True</exif:Fired><exif:Mode>3</exif:Mode></exif:Flash>
 <exif:ISOSpeedRatings><rdf:Seq><rdf:li>100</rdf:li><rdf:li>200</rdf:li></rdf:Seq></exif:ISOSpeedRatings>
</rdf:Description></rdf:RDF></x:xmpmeta>)";

TEST(XMP, ParsesEveryKindOfTagIntoATree) {
    const auto m = Metadata::fromXMPData(bytes(kPacket));
    ASSERT_TRUE(m);
    std::vector<std::string> paths;
    for (const Tag& t : m->tags())
        paths.push_back(t.path());
    EXPECT_EQ(paths.size(), 8u);

    const Tag* title = m->tag("dc:title");
    ASSERT_TRUE(title);
    EXPECT_EQ(title->type(), TagType::alternateText);
    ASSERT_EQ(title->elements().size(), 2u); // x-default first
    EXPECT_EQ(title->elements()[0].language(), "x-default");
    EXPECT_EQ(title->elements()[0].text(), "Hello & <more>");
    EXPECT_EQ(title->elements()[1].text(), "Hallo");

    const Tag* subject = m->tag("dc:subject");
    EXPECT_EQ(subject->type(), TagType::arrayUnordered);
    EXPECT_EQ(subject->elements()[0].text(), "b");
    EXPECT_EQ(m->tag("exif:ISOSpeedRatings")->type(), TagType::arrayOrdered);
    EXPECT_EQ(m->tag("xmp:Rating")->text(), "5");
    EXPECT_EQ(m->tag("my:Thing")->namespaceURI(), "http://example.com/my/");

    const Tag* contact = m->tag("Iptc4xmpCore:CreatorContactInfo");
    ASSERT_TRUE(contact);
    EXPECT_EQ(contact->type(), TagType::structure);
    EXPECT_EQ(m->tag(*contact, "Iptc4xmpCore:CiAdrCity")->text(), "Paris");
    EXPECT_EQ(m->tag("exif:Flash/exif:Mode")->text(), "3");
    EXPECT_EQ(m->tag("Iptc4xmpExt:LocationCreated[2]/Iptc4xmpExt:City")->text(), "Oslo");
    EXPECT_EQ(m->tag("Iptc4xmpExt:LocationCreated")->elements()[0].type(), TagType::structure);
    EXPECT_FALSE(m->tag("Iptc4xmpExt:LocationCreated[3]"));
    EXPECT_FALSE(m->tag("exif:Flash/exif:Missing"));
    EXPECT_FALSE(m->tag("dc:title[0]"));
    EXPECT_FALSE(m->tag("[1]"));
}

TEST(XMP, SerialisationIsStableAndReadsBack) {
    const auto m = Metadata::fromXMPData(bytes(kPacket));
    const auto packet = m->xmpData();
    ASSERT_TRUE(packet);
    const auto again = Metadata::fromXMPData(*packet);
    ASSERT_TRUE(again);
    EXPECT_EQ(*again, *m);
    EXPECT_EQ(again->xmpData(), packet);

    // The empty tree writes an empty description and reads back empty.
    const auto empty = Metadata::fromXMPData(*Metadata().xmpData());
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->tags().empty());

    // A prefix another namespace already holds gets a number; both read back.
    Metadata clash;
    clash.setTag(Tag::text("http://example.com/a/", "p", "One", "1"));
    clash.setTag(Tag::text("http://example.com/b/", "p", "Two", "2"));
    const auto read = Metadata::fromXMPData(*clash.xmpData());
    ASSERT_TRUE(read);
    ASSERT_EQ(read->tags().size(), 2u);
    EXPECT_EQ(read->tags()[1].namespaceURI(), "http://example.com/b/");
    EXPECT_EQ(read->tags()[1].text(), "2");

    Metadata control;
    control.setTag(Tag::text(std::string(ns::dublinCore), "", "format", "a\x01z"));
    EXPECT_FALSE(control.xmpData());
}

TEST(XMP, MalformedPacketsGiveNothing) {
    EXPECT_FALSE(Metadata::fromXMPData(bytes("")));
    EXPECT_FALSE(Metadata::fromXMPData(bytes("<x:xmpmeta garbage")));
    EXPECT_FALSE(Metadata::fromXMPData(bytes("<rdf:RDF><unclosed></rdf:RDF>")));
}

TEST(XMP, EditingAndThePropertyBridge) {
    Metadata m;
    EXPECT_TRUE(m.setValueMatchingImageProperty("{Exif}", "FNumber", std::int64_t(3)));
    EXPECT_EQ(m.tag("exif:FNumber")->text(), "3");
    m.setValueMatchingImageProperty("{Exif}", "FNumber", 0.004);
    EXPECT_EQ(m.tag("exif:FNumber")->text(), "0.004000");
    EXPECT_EQ(m.tags().size(), 1u); // replaced, not added
    m.setValueMatchingImageProperty("{Exif}", "Flash", true);
    EXPECT_EQ(m.tag("exif:Flash")->text(), "True");
    m.setValueMatchingImageProperty("{Exif}", "ISOSpeedRatings",
                                    std::vector<std::string>{"100", "400"});
    EXPECT_EQ(m.tag("exif:ISOSpeedRatings")->type(), TagType::arrayOrdered);
    EXPECT_EQ(m.tag("exif:ISOSpeedRatings[2]")->text(), "400");
    m.setValueMatchingImageProperty("{TIFF}", "Software", std::string("Painter 2"));
    EXPECT_EQ(m.tag("xmp:CreatorTool")->text(), "Painter 2"); // where the bridge keeps it
    EXPECT_FALSE(m.tag("tiff:Software"));
    m.setValueMatchingImageProperty("{IPTC}", "Caption/Abstract", std::string("A view"));
    EXPECT_EQ(m.tag("dc:description")->type(), TagType::alternateText);
    EXPECT_FALSE(m.setValueMatchingImageProperty("{Exif}", "NoSuchThing", std::string("x")));
    EXPECT_FALSE(m.tagMatchingImageProperty("{Exif}", "NoSuchThing"));

    // Lookup by namespace and name: a tag under an unusual prefix is still found.
    m.setTag(Tag::text(std::string(ns::exif), "ex", "ExposureTime", "1/250"));
    ASSERT_TRUE(m.tagMatchingImageProperty("{Exif}", "ExposureTime"));
    EXPECT_EQ(m.tagMatchingImageProperty("{Exif}", "ExposureTime")->text(), "1/250");

    // Inside structures and arrays.
    m.setTag(Tag::container(std::string(ns::exif), "", "Flash", TagType::structure,
                            {Tag::text(std::string(ns::exif), "", "Mode", "3")}));
    EXPECT_TRUE(m.setTag("exif:Flash", Tag::text(std::string(ns::exif), "", "Fired", "True")));
    EXPECT_EQ(m.tag("exif:Flash/exif:Fired")->text(), "True");
    EXPECT_EQ(m.tag("exif:Flash")->elements()[0].name(), "Fired"); // canonical order
    EXPECT_FALSE(m.setTag("exif:FNumber", Tag::text(std::string(ns::exif), "", "X", "1")));
    EXPECT_FALSE(m.setTag("exif:Missing", Tag::text(std::string(ns::exif), "", "X", "1")));
    EXPECT_TRUE(m.removeTag("exif:Flash/exif:Mode"));
    EXPECT_FALSE(m.tag("exif:Flash/exif:Mode"));
    EXPECT_TRUE(m.removeTag("exif:ISOSpeedRatings[1]"));
    EXPECT_EQ(m.tag("exif:ISOSpeedRatings[1]")->text(), "400");
    EXPECT_FALSE(m.removeTag("exif:ISOSpeedRatings[2]"));

    EXPECT_TRUE(m.removeTag("exif:FNumber"));
    EXPECT_FALSE(m.removeTag("exif:FNumber"));
    EXPECT_FALSE(m.tagMatchingImageProperty("{Exif}", "FNumber"));
    const Metadata copy = m;
    m.removeTag("xmp:CreatorTool");
    EXPECT_TRUE(copy.tag("xmp:CreatorTool")); // copies are independent
}

TEST(XMP, PhotoFilesBringTheirExifAsXMP) {
    const auto path = std::filesystem::temp_directory_path() / "bic-xmp-photo.jpg";
    {
        // A blank JPEG with a camera's Exif, written by Exiv2 itself.
        auto image = Exiv2::ImageFactory::create(Exiv2::ImageType::jpeg, path.string());
        Exiv2::ExifData exif;
        exif["Exif.Image.Make"] = "NIKON CORPORATION";
        exif["Exif.Image.Model"] = "NIKON D850";
        exif["Exif.Image.Software"] = "Firmware 1.1";
        exif["Exif.Photo.FNumber"] = Exiv2::Rational(28, 10);
        exif["Exif.Photo.ExposureTime"] = Exiv2::Rational(1, 250);
        exif["Exif.Photo.ISOSpeedRatings"] = std::uint16_t(200);
        exif["Exif.Photo.FocalLengthIn35mmFilm"] = std::uint16_t(50);
        exif["Exif.Photo.LensModel"] = "24-70mm f/2.8";
        Exiv2::URationalValue spec;
        spec.read("24/1 70/1 28/10 28/10");
        exif.add(Exiv2::ExifKey("Exif.Photo.LensSpecification"), &spec);
        exif["Exif.GPSInfo.GPSLatitudeRef"] = "N";
        Exiv2::URationalValue latitude;
        latitude.read("48/1 51/1 2707/100");
        exif.add(Exiv2::ExifKey("Exif.GPSInfo.GPSLatitude"), &latitude);
        image->setExifData(exif);
        image->writeMetadata();
    }
    const auto m = Metadata::fromImageFile(path);
    std::filesystem::remove(path);
    ASSERT_TRUE(m);
    EXPECT_EQ(m->tagMatchingImageProperty("{TIFF}", "Make")->text(), "NIKON CORPORATION");
    EXPECT_EQ(m->tagMatchingImageProperty("{Exif}", "FNumber")->text(), "28/10");
    EXPECT_EQ(m->tagMatchingImageProperty("{Exif}", "ExposureTime")->text(), "1/250");
    EXPECT_EQ(m->tagMatchingImageProperty("{Exif}", "ISOSpeedRatings")->elements()[0].text(),
              "200");
    EXPECT_EQ(m->tagMatchingImageProperty("{Exif}", "FocalLenIn35mmFilm")->text(), "50");
    EXPECT_EQ(m->tagMatchingImageProperty("{Exif}", "LensModel")->text(), "24-70mm f/2.8");
    EXPECT_EQ(m->tagMatchingImageProperty("{Exif}", "LensSpecification")->elements()[2].text(),
              "28/10");
    EXPECT_EQ(m->tagMatchingImageProperty("{TIFF}", "Software")->text(), "Firmware 1.1");
    const auto latitude = m->tagMatchingImageProperty("{GPS}", "Latitude")->text();
    ASSERT_TRUE(latitude);
    EXPECT_EQ(latitude->back(), 'N');
    EXPECT_EQ(latitude->substr(0, 6), "48,51.");

    EXPECT_FALSE(Metadata::fromImageFile("/no/such/file.jpg"));
}

} // namespace
} // namespace bic::xmp
