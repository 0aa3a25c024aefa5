// Real photos: every one reads, and the values that merging Exif, IPTC and XMP used to lose are
// there. The photos live outside the repository (BIC_TEST_PHOTOS).

#include "bic/metadata/image_metadata.hpp"
#include "bic/platform/coding/formats.hpp"
#include "bic/resources/localization.hpp"

#include <filesystem>
#include <gtest/gtest.h>

namespace bic {
namespace {

using namespace std::chrono;

class PhotoFiles : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::is_directory(folder())) GTEST_SKIP() << "no photos at " << folder();
        resources::setPreferredLanguage("en");
    }
    void TearDown() override { resources::setPreferredLanguage(std::nullopt); }

    static std::filesystem::path folder() { return BIC_TEST_PHOTOS; }
    static ImageMetadata read(const char* name) {
        auto m = ImageMetadata::fromImageFile(folder() / name);
        if (!m) ADD_FAILURE() << name << " did not read";
        return m.value_or(ImageMetadata());
    }
};

TEST_F(PhotoFiles, EveryPhotoReadsStoresAndReadsBack) {
    int photos = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder())) {
        ++photos;
        const auto name = entry.path().filename().string();
        const auto m = ImageMetadata::fromImageFile(entry.path());
        ASSERT_TRUE(m) << name;
        const auto xmp = m->xmpData();
        ASSERT_TRUE(xmp) << name;
        const auto again = ImageMetadata::fromXMPData(*xmp);
        ASSERT_TRUE(again) << name;
        EXPECT_EQ(*again, *m) << name;
        EXPECT_EQ(coding::decodePropertyList<ImageMetadata>(coding::encodePropertyList(*m)), *m)
            << name;
    }
    EXPECT_GE(photos, 30);
}

TEST_F(PhotoFiles, XMPWithNamespacesDeclaredInsideStructuresReads) {
    // A phone's gain-map directory: the item members' namespace is only used inside the
    // structure. The photo's Exif and GPS come along.
    const ImageMetadata m = read("Google.jpg");
    EXPECT_EQ(m.displayCameraModel(), "Google Pixel 8 Pro");
    EXPECT_TRUE(m.gpsLocation());
    const xmp::Tag* length =
        m.rawMetadata().tag("Container:Directory[2]/Container:Item/Item:Length");
    ASSERT_TRUE(length);
    EXPECT_EQ(length->text(), "52666");
    EXPECT_EQ(length->namespaceURI(), "http://ns.google.com/photos/1.0/container/item/");
}

TEST_F(PhotoFiles, ExifAndIPTCNeverReplaceTheXMP) {
    // Exif seconds of 0/0 made the conversion drop the XMP's position.
    const ImageMetadata nikon = read("Nikon D5000.jpg");
    EXPECT_EQ(nikon.gpsLatitude(), "48,53.323582N");
    EXPECT_EQ(nikon.gpsLongitude(), "21,2.595070E");

    // IPTC's By-line is cut at 32 bytes and its caption is another text: the XMP's stay.
    const ImageMetadata reagan = read("Reagan.jpg");
    EXPECT_EQ(reagan.authors(), (std::vector<std::string>{"Photographerís Mate 3rd Class (A"}));
    const auto description = reagan.description().value_or("");
    EXPECT_TRUE(description.starts_with("040621-N-6536T-062\nUSS Ronald Reagan (CVN 76)"))
        << description;
    EXPECT_TRUE(description.ends_with("Elizabeth Thompson. (RELEASE)")) << description;
    // Its XMP dates the capture by the day alone; Exif's time of that day completes it.
    EXPECT_EQ(reagan.rawMetadata().tag("photoshop:DateCreated")->text(), "2004-06-21T23:37:53.06");

    // A sidecar: the Exif and IPTC Exiv2 derives from it must not flatten its alternatives.
    const ImageMetadata sidecar = read("BlueSquare.xmp");
    EXPECT_EQ(sidecar.titles(), (std::vector<std::string>{"Blue Square Test File - .jpg",
                                                          "Blue Square Test File - .jpg",
                                                          "Blaues Quadrat Test Datei - .jpg"}));
}

TEST_F(PhotoFiles, TheXMPsTimeZoneDatesTheCapture) {
    // Exif says 12:41:35 without a zone; the XMP says 12:41:35+01:00.
    EXPECT_EQ(read("Canon EOS 7D.jpg").dateTimeOriginal(),
              sys_days(2010y / 12 / 12) + 11h + 41min + 35s);
}

} // namespace
} // namespace bic
