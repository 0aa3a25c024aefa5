#include "bic/platform/xmp/metadata.hpp"
#include "support/process_locale.hpp"

#include <algorithm>
#include <exiv2/exiv2.hpp>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <tuple>
#include <unistd.h>

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

// A packet around the body of one rdf:Description that declares `namespaces` itself.
std::vector<std::uint8_t> described(std::string_view namespaces, std::string_view body) {
    return bytes(
        R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">)"
        R"(<rdf:Description rdf:about="" )" +
        std::string(namespaces) + ">" + std::string(body) +
        "</rdf:Description></rdf:RDF></x:xmpmeta>");
}

TEST(XMP, NamespacesDeclaredInsideStructuresAreResolved) {
    // A phone's gain-map directory, its items' namespace declared on the item alone.
    const auto m = Metadata::fromXMPData(described(
        R"(xmlns:Container="http://ns.google.com/photos/1.0/container/")",
        R"(<Container:Directory><rdf:Seq><rdf:li rdf:parseType="Resource">)"
        R"(<Container:Item xmlns:Item="http://ns.google.com/photos/1.0/container/item/")"
        R"( Item:Mime="image/jpeg" Item:Semantic="Primary"/></rdf:li>)"
        R"(<rdf:li rdf:parseType="Resource"><Container:Item rdf:parseType="Resource">)"
        R"(<I2:Length xmlns:I2="http://ns.google.com/photos/1.0/container/item/">52666</I2:Length>)"
        R"(</Container:Item></rdf:li></rdf:Seq></Container:Directory>)"));
    ASSERT_TRUE(m);
    const Tag* mime = m->tag("Container:Directory[1]/Container:Item/Item:Mime");
    ASSERT_TRUE(mime);
    EXPECT_EQ(mime->text(), "image/jpeg");
    EXPECT_EQ(mime->namespaceURI(), "http://ns.google.com/photos/1.0/container/item/");
    // One namespace, one prefix: the second spelling of it takes the first's.
    EXPECT_EQ(m->tag("Container:Directory[2]/Container:Item/Item:Length")->text(), "52666");
    const auto again = Metadata::fromXMPData(*m->xmpData());
    ASSERT_TRUE(again);
    EXPECT_EQ(*again, *m);
}

TEST(XMP, AMemberThatCannotBePlacedIsLeftOutNotThePacket) {
    // "p" means two namespaces in this packet, so a member written "p:Member" cannot be told;
    // everything else is read.
    const auto m = Metadata::fromXMPData(bytes(
        R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">)"
        R"(<rdf:Description rdf:about="" xmlns:p="http://example.com/one/" xmlns:s="http://example.com/s/">)"
        R"(<p:Kept>1</p:Kept><s:S rdf:parseType="Resource"><p:Member>?</p:Member><s:Known>2</s:Known></s:S>)"
        R"(</rdf:Description><rdf:Description rdf:about="" xmlns:p="http://example.com/two/">)"
        R"(<p:Also>3</p:Also></rdf:Description></rdf:RDF></x:xmpmeta>)"));
    ASSERT_TRUE(m);
    EXPECT_EQ(m->tag("s:S/s:Known")->text(), "2");
    EXPECT_EQ(m->tag("s:S")->elements().size(), 1u);
    std::vector<std::pair<std::string, std::string>> top;
    for (const Tag& t : m->tags())
        top.emplace_back(t.namespaceURI(), t.text().value_or("struct"));
    EXPECT_EQ(top,
              (std::vector<std::pair<std::string, std::string>>{{"http://example.com/one/", "1"},
                                                                {"http://example.com/s/", "struct"},
                                                                {"http://example.com/two/", "3"}}));
}

TEST(XMP, ReadingKeepsEmptyItemsAndExactNamespaces) {
    const auto m = Metadata::fromXMPData(described(
        R"(xmlns:dc="http://purl.org/dc/elements/1.1/" xmlns:my="http://example.com/my")",
        R"(<dc:creator><rdf:Seq><rdf:li>Ann</rdf:li><rdf:li></rdf:li><rdf:li>Bob</rdf:li></rdf:Seq></dc:creator>)"
        R"(<dc:subject><rdf:Bag><rdf:li/><rdf:li>sea</rdf:li><rdf:li></rdf:li ></rdf:Bag></dc:subject>)"
        R"(<my:Thing>x</my:Thing>)"));
    ASSERT_TRUE(m);
    auto texts = [&](std::string_view path) {
        std::vector<std::string> out;
        const Tag* array = m->tag(path);
        for (const Tag& e : array ? array->elements() : std::vector<Tag>{})
            out.push_back(e.text().value_or("?"));
        return out;
    };
    EXPECT_EQ(texts("dc:creator"), (std::vector<std::string>{"Ann", "", "Bob"}));
    EXPECT_EQ(texts("dc:subject"), (std::vector<std::string>{"", "sea", ""}));
    EXPECT_EQ(m->tag("dc:subject")->type(), TagType::arrayUnordered);
    EXPECT_EQ(m->tag("my:Thing")->namespaceURI(), "http://example.com/my"); // no "/" added
    // And so does reading our own packet.
    const auto again = Metadata::fromXMPData(*m->xmpData());
    ASSERT_TRUE(again);
    EXPECT_EQ(*again, *m);
}

TEST(XMP, APublicPrefixBoundToAnotherNamespaceIsThatNamespace) {
    const auto m = Metadata::fromXMPData(bytes(
        R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">)"
        R"(<rdf:Description rdf:about="" xmlns:tiff="http://example.com/mytiff/"><tiff:Make>Fake</tiff:Make>)"
        R"(</rdf:Description><rdf:Description rdf:about="" xmlns:tiff="http://ns.adobe.com/tiff/1.0/">)"
        R"(<tiff:Model>Real</tiff:Model></rdf:Description></rdf:RDF></x:xmpmeta>)"));
    ASSERT_TRUE(m);
    // Keyed by namespace: the public "tiff" is the TIFF namespace, whatever the packet says.
    EXPECT_FALSE(m->tag("tiff:Make"));
    EXPECT_FALSE(m->tagMatchingImageProperty("{TIFF}", "Make"));
    EXPECT_EQ(m->tagMatchingImageProperty("{TIFF}", "Model")->text(), "Real");
    const auto other = std::find_if(m->tags().begin(), m->tags().end(), [](const Tag& t) {
        return t.namespaceURI() == "http://example.com/mytiff/";
    });
    ASSERT_NE(other, m->tags().end());
    EXPECT_EQ(other->text(), "Fake");
    EXPECT_NE(other->prefix(), "tiff");
    EXPECT_EQ(m->tag(other->path()), &*other); // its own path finds it

    // On output the prefix is chosen again; the packet reads back the same.
    const auto packet = m->xmpData();
    ASSERT_TRUE(packet);
    const std::string text(packet->begin(), packet->end());
    EXPECT_NE(text.find(R"(xmlns:tiff="http://ns.adobe.com/tiff/1.0/")"), std::string::npos);
    EXPECT_EQ(text.find(R"(xmlns:tiff="http://example.com/mytiff/")"), std::string::npos);
    EXPECT_EQ(Metadata::fromXMPData(*packet), m);

    // A tree built with a clashing prefix is written unambiguously too.
    Metadata built;
    built.setTag(Tag::text("http://example.com/mytiff/", "tiff", "Make", "Fake"));
    built.setTag(Tag::text(std::string(ns::tiff), "", "Model", "Real"));
    const auto read = Metadata::fromXMPData(*built.xmpData());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->tag("tiff:Model")->text(), "Real");
    EXPECT_FALSE(read->tag("tiff:Make"));
}

TEST(XMP, OnlyWhatXMLCarriesIsWritten) {
    for (const std::string& bad :
         {std::string("a\uFFFE"), std::string("a\uFFFF"), std::string("\xC3"),
          std::string("\xC0\xAF"), std::string("\xED\xB0\x80"), std::string("nul\0", 4),
          std::string("\x1B[0m")}) {
        EXPECT_FALSE(isXMLText(bad)) << bad;
        Metadata m;
        m.setTag(Tag::text(std::string(ns::dublinCore), "", "format", bad));
        EXPECT_FALSE(m.xmpData()) << bad;
        Metadata language;
        language.setTag(Tag::container(std::string(ns::dublinCore), "", "title",
                                       TagType::alternateText, {Tag::element("x", bad)}));
        EXPECT_FALSE(language.xmpData()) << bad;
        EXPECT_FALSE(m.setValueMatchingImageProperty("{IPTC}", "Headline", bad));
        EXPECT_FALSE(m.setValueMatchingImageProperty("{IPTC}", "Keywords",
                                                     std::vector<std::string>{"ok", bad}));
        EXPECT_FALSE(m.tag("photoshop:Headline") || m.tag("dc:subject"));
    }
    // Names and namespaces must be XML's too.
    for (const auto& [uri, name] : {std::pair{"http://example.com/a/", "1st"},
                                    {"http://example.com/a/", "a b"},
                                    {"http://example.com/a/", "a:b"},
                                    {"", "Empty"},
                                    {"http://www.w3.org/2000/xmlns/", "x"}}) {
        Metadata m;
        m.setTag(Tag::text(uri, "p", name, "v"));
        EXPECT_FALSE(m.xmpData()) << uri << " " << name;
    }
    // Prefixes that XML reserves are replaced on output.
    Metadata reserved;
    reserved.setTag(Tag::text("http://example.com/a/", "xmlns", "A", "1"));
    reserved.setTag(Tag::text("http://example.com/b/", "xml", "B", "2"));
    reserved.setTag(Tag::text("http://example.com/c/", "bad prefix", "C", "3"));
    const auto read = Metadata::fromXMPData(*reserved.xmpData());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->tags().size(), 3u);
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

TEST(XMP, ThePropertyBridgeCoversPanelAndExportProperties) {
    const std::tuple<const char*, const char*, const char*> pairs[] = {
        {"{IPTC}", "Credit", "photoshop:Credit"},
        {"{IPTC}", "Source", "photoshop:Source"},
        {"{IPTC}", "Writer/Editor", "photoshop:CaptionWriter"},
        {"{Exif}", "ExposureMode", "exif:ExposureMode"},
        {"{Exif}", "SceneCaptureType", "exif:SceneCaptureType"},
        {"{Exif}", "ColorSpace", "exif:ColorSpace"},
        {"{TIFF}", "HostComputer", "tiff:HostComputer"},
        {"{GPS}", "GPSVersion", "exif:GPSVersionID"},
        {"{GPS}", "TimeStamp", "exif:GPSTimeStamp"},
    };
    for (const auto& [dictionary, property, path] : pairs) {
        Metadata m;
        EXPECT_TRUE(m.setValueMatchingImageProperty(dictionary, property, std::string("1")))
            << property;
        ASSERT_TRUE(m.tag(path)) << path;
        EXPECT_EQ(m.tag(path)->text(), "1");
        EXPECT_EQ(m.tagMatchingImageProperty(dictionary, property), m.tag(path));
    }

    // IPTC keeps date and time apart, XMP in one date: each half keeps the other.
    Metadata digital;
    digital.setValueMatchingImageProperty("{IPTC}", "DigitalCreationDate", std::string("20210601"));
    EXPECT_EQ(digital.tag("xmp:CreateDate")->text(), "2021-06-01");
    digital.setValueMatchingImageProperty("{IPTC}", "DigitalCreationTime",
                                          std::string("102030+0200"));
    EXPECT_EQ(digital.tag("xmp:CreateDate")->text(), "2021-06-01T10:20:30+02:00");
    digital.setValueMatchingImageProperty("{IPTC}", "DigitalCreationDate",
                                          std::string("2022-01-02"));
    EXPECT_EQ(digital.tag("xmp:CreateDate")->text(), "2022-01-02T10:20:30+02:00");
    Metadata created;
    created.setValueMatchingImageProperty("{IPTC}", "TimeCreated", std::string("08:00:00Z"));
    created.setValueMatchingImageProperty("{IPTC}", "DateCreated", std::string("20200229"));
    EXPECT_EQ(created.tag("photoshop:DateCreated")->text(), "2020-02-29T08:00:00Z");
}

TEST(XMP, ThePropertyBridgeWritesStructuresAndListsOfThem) {
    // In the property's namespace.
    Metadata flash;
    EXPECT_TRUE(flash.setValueMatchingImageProperty(
        "{Exif}", "Flash", PropertyStructure{{"Fired", "True"}, {"Mode", "3"}}));
    EXPECT_EQ(flash.tag("exif:Flash")->type(), TagType::structure);
    EXPECT_EQ(flash.tag("exif:Flash/exif:Mode")->text(), "3");
    EXPECT_TRUE(flash.setValueMatchingImageProperty(
        "{IPTC}", "LocationShown", std::vector<PropertyStructure>{{{"City", "Rome"}}, {}}));
    EXPECT_EQ(flash.tag("Iptc4xmpExt:LocationShown")->type(), TagType::arrayUnordered);
    EXPECT_EQ(flash.tag("Iptc4xmpExt:LocationShown[1]/Iptc4xmpExt:City")->text(), "Rome");
    EXPECT_EQ(flash.tag("Iptc4xmpExt:LocationShown[2]")->type(), TagType::structure);
}

// A file name of this process's own: the suite also runs a second time, concurrently, in
// another locale.
std::filesystem::path scratchPath(const std::string& name) {
    return std::filesystem::temp_directory_path() / (std::to_string(::getpid()) + "-" + name);
}

TEST(XMP, PhotoFilesBringTheirExifAsXMP) {
    const auto path = scratchPath("bic-xmp-photo.jpg");
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

// A JPEG written by Exiv2 with `exif` and, when given, `packet` as its XMP segment (put in by
// hand, since Exiv2 refuses to write a packet it cannot parse).
std::optional<Metadata> photo(const Exiv2::ExifData& exif, const std::string& packet = "") {
    const auto path = scratchPath("bic-xmp-merge.jpg");
    {
        auto image = Exiv2::ImageFactory::create(Exiv2::ImageType::jpeg, path.string());
        image->setExifData(exif);
        image->writeMetadata();
    }
    if (!packet.empty()) {
        std::ifstream in(path, std::ios::binary);
        std::string jpeg{std::istreambuf_iterator<char>(in), {}};
        in.close();
        const std::string payload = std::string("http://ns.adobe.com/xap/1.0/", 29) + packet;
        const std::size_t length = payload.size() + 2;
        const std::string segment =
            std::string("\xFF\xE1") + char(length >> 8) + char(length & 0xFF) + payload;
        jpeg.insert(2, segment); // after the start-of-image marker
        std::ofstream(path, std::ios::binary) << jpeg;
    }
    auto m = Metadata::fromImageFile(path);
    std::filesystem::remove(path);
    return m;
}

Exiv2::ExifData position(const char* latitude) {
    Exiv2::ExifData exif;
    exif["Exif.Image.Make"] = "Canon";
    exif["Exif.GPSInfo.GPSLatitudeRef"] = "N";
    Exiv2::URationalValue value;
    value.read(latitude);
    exif.add(Exiv2::ExifKey("Exif.GPSInfo.GPSLatitude"), &value);
    return exif;
}

// The text at `path` of a photo's metadata; nothing when either is missing.
std::optional<std::string> text(const std::optional<Metadata>& m, std::string_view path) {
    const Tag* t = m ? m->tag(path) : nullptr;
    return t ? t->text() : std::nullopt;
}

TEST(XMP, PhotoFilesMergeExifUnderTheXMP) {
    // Seconds of 0/0 are no seconds.
    EXPECT_EQ(text(photo(position("48/1 5332358/100000 0/0")), "exif:GPSLatitude"),
              "48,53.3235800N");

    // A conversion that fails neither adds nor removes: the XMP's position stays. Nor does an
    // Exif value ever replace the XMP's.
    const auto packet = described(R"(xmlns:exif="http://ns.adobe.com/exif/1.0/")",
                                  "<exif:GPSLatitude>10,30.5N</exif:GPSLatitude>");
    const std::string xmp(packet.begin(), packet.end());
    const auto broken = photo(position("48/0 53/1 0/1"), xmp);
    EXPECT_EQ(text(broken, "exif:GPSLatitude"), "10,30.5N");
    EXPECT_EQ(text(broken, "tiff:Make"), "Canon");
    EXPECT_EQ(text(photo(position("48/1 30/1 0/1"), xmp), "exif:GPSLatitude"), "10,30.5N");

    // An XMP date of the day alone takes the time of Exif's date of the same day.
    Exiv2::ExifData dated = position("48/1 30/1 0/1");
    dated["Exif.Photo.DateTimeOriginal"] = "2004:06:21 23:37:53";
    auto day = [&](std::string_view date) {
        const auto packet =
            described(R"(xmlns:photoshop="http://ns.adobe.com/photoshop/1.0/")",
                      "<photoshop:DateCreated>" + std::string(date) + "</photoshop:DateCreated>");
        return text(photo(dated, std::string(packet.begin(), packet.end())),
                    "photoshop:DateCreated");
    };
    EXPECT_EQ(day("2004-06-21"), "2004-06-21T23:37:53");
    EXPECT_EQ(day("2004-06-22"), "2004-06-22");
    EXPECT_EQ(day("2004-06-21T12:00:00"), "2004-06-21T12:00:00");

    // XMP that does not parse, or that Exiv2 reads in a way that could not be placed before,
    // costs at most the XMP, never the Exif.
    const auto garbled = photo(position("48/1 30/1 0/1"), "<x:xmpmeta><rdf:RDF><unclosed>");
    EXPECT_EQ(text(garbled, "tiff:Make"), "Canon");
    EXPECT_EQ(text(garbled, "exif:GPSLatitude"), "48,30.0000000N");
    const auto foreign =
        described(R"(xmlns:tiff="http://example.com/mytiff/")", "<tiff:Make>Fake</tiff:Make>");
    const auto clashing =
        photo(position("48/1 30/1 0/1"), std::string(foreign.begin(), foreign.end()));
    EXPECT_EQ(text(clashing, "tiff:Make"), "Canon");
    ASSERT_TRUE(clashing);
    const auto fake =
        std::find_if(clashing->tags().begin(), clashing->tags().end(),
                     [](const Tag& t) { return t.namespaceURI() == "http://example.com/mytiff/"; });
    ASSERT_NE(fake, clashing->tags().end());
    EXPECT_EQ(fake->text(), "Fake");
}

} // namespace
} // namespace bic::xmp
