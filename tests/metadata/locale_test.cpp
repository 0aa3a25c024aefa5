// Everything that turns numbers into text or text into numbers, checked with the process in a
// comma-decimal locale. ctest also runs the whole metadata suite so (see CMakeLists.txt).

#include "bic/metadata/image_metadata.hpp"
#include "bic/pixels/text_forms.hpp"
#include "bic/platform/coding/formats.hpp"
#include "bic/resources/localization.hpp"
#include "support/process_locale.hpp"

#include <clocale>
#include <cmath>
#include <gtest/gtest.h>
#include <string>

namespace bic {
namespace {

// Runs a test in the process locale `Name`, and restores the one before.
template <const char* Name>
class InLocale : public testing::Test {
protected:
    void SetUp() override {
        previous_ = std::setlocale(LC_ALL, nullptr);
        ASSERT_TRUE(testing_support::useLocale(Name))
            << "the locale " << Name << " is missing (built by the bic_test_locales target)";
        resources::setPreferredLanguage("en");
    }
    void TearDown() override {
        std::setlocale(LC_ALL, previous_.c_str());
        resources::setPreferredLanguage(std::nullopt);
    }

private:
    std::string previous_;
};

constexpr char kGerman[] = "de_DE.UTF-8", kTurkish[] = "tr_TR.UTF-8";
class CommaDecimalLocale : public InLocale<kGerman> {};
class TurkishLocale : public InLocale<kTurkish> {};

ImageMetadata packet(const std::string& body) {
    const std::string text =
        R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">)"
        R"(<rdf:Description rdf:about="" xmlns:exif="http://ns.adobe.com/exif/1.0/">)" +
        body + "</rdf:Description></rdf:RDF></x:xmpmeta>";
    return ImageMetadata::fromXMPData(std::vector<std::uint8_t>(text.begin(), text.end()))
        .value_or(ImageMetadata());
}

TEST_F(CommaDecimalLocale, GPSPositionsStillRead) {
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");
    const ImageMetadata m = packet("<exif:GPSLatitude>48,51.4512N</exif:GPSLatitude>"
                                   "<exif:GPSLongitude>2,17.4W</exif:GPSLongitude>");
    EXPECT_EQ(m.displayGPSLatitude(), "48° 51′ 27.07″ N");
    EXPECT_EQ(m.displayGPSLongitude(), "2° 17′ 24″ W");
    const auto where = m.gpsLocation();
    ASSERT_TRUE(where);
    EXPECT_DOUBLE_EQ((*where)[0], 48 + 51.4512 / 60);
    EXPECT_DOUBLE_EQ((*where)[1], -(2 + 17.4 / 60));
}

TEST_F(CommaDecimalLocale, NumbersWrittenAndReadWithAPoint) {
    // The property bridge writes "%f" as the C locale does.
    xmp::Metadata tree;
    tree.setValueMatchingImageProperty("{Exif}", "FNumber", 2.8);
    EXPECT_EQ(tree.tag("exif:FNumber")->text(), "2.800000");

    // Stored values: a float keeps its shortest decimal form, property lists read their reals.
    EXPECT_EQ(*coding::Value(0.1f).get<double>(), 0.1);
    const coding::Value reals(coding::Array{coding::Value(0.25), coding::Value(-1.5f)});
    for (const auto format : {coding::PropertyListFormat::xml, coding::PropertyListFormat::binary})
        EXPECT_EQ(coding::readPropertyList(coding::writePropertyList(reals, format)), reals);

    // The pixels' text forms.
    EXPECT_EQ(text_forms::formatFloats({0.5f, 1.0f}, 2), "0.500000 1.000000");
    EXPECT_EQ(text_forms::parseFloats("0.5 1"), (std::vector<float>{0.5f, 1.0f}));
}

TEST_F(TurkishLocale, MakersCompareWithoutTheLocalesCaseRules) {
    // The lower case of "I" is a dotless i in Turkish, which a byte cannot hold: C's tolower
    // leaves "I" as it is. Maker names are compared by ASCII rules.
    const ImageMetadata m = packet(
        R"(<tiff:Make xmlns:tiff="http://ns.adobe.com/tiff/1.0/">NIKON CORPORATION</tiff:Make>)"
        R"(<tiff:Model xmlns:tiff="http://ns.adobe.com/tiff/1.0/">NIKON D850</tiff:Model>)");
    EXPECT_EQ(m.displayCameraModel(), "Nikon D850");
}

} // namespace
} // namespace bic
