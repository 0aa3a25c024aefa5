#pragma once
// A document's descriptive metadata: an XMP tree with typed readers for what an
// image-information panel shows, camera and exposure values with their display strings, a few
// edits, the stored form and the preparation for export.
//
// Readers never throw and never cache: each reads the tree. Text is "clean" (trimmed of Unicode
// white space and line breaks, empty meaning absent); numbers are read from "N" or "N/D" texts
// (a zero denominator, more parts or a non-integer part meaning absent). Nothing depends on the
// process locale.

#include "bic/platform/coding/coder.hpp"
#include "bic/platform/xmp/metadata.hpp"

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace bic {

class ImageMetadata {
public:
    using Date = std::chrono::sys_time<std::chrono::microseconds>;

    struct ContactInfo {
        std::optional<std::string> city = {}, country = {}, address = {}, postalCode = {},
                                   stateProvince = {}, email = {}, phone = {}, webURL = {};
        friend bool operator==(const ContactInfo&, const ContactInfo&) = default;
    };

    struct ImageLocation {
        std::optional<std::string> sublocation = {}, city = {}, stateProvince = {}, country = {},
                                   isoCountryCode = {}, worldRegion = {};
        bool isEmpty() const {
            return !sublocation && !city && !stateProvince && !country && !isoCountryCode &&
                   !worldRegion;
        }
        friend bool operator==(const ImageLocation&, const ImageLocation&) = default;
    };

    /// The editing operations' errors, in their order.
    class ImageMetadataError : public std::exception {
    public:
        enum Code : int {
            errorCreatingMutableCopy = 0,
            errorCreatingXMPData = 1,
            errorSettingTagFromProperty = 2,
            paramterError = 3,
            unknownError = 4,
        };
        explicit ImageMetadataError(Code code) : code_(code) {}
        Code code() const { return code_; }
        const char* what() const noexcept override;

    private:
        Code code_;
    };

    enum class ExposureProgram : int {
        undefined = 0,
        manual = 1,
        program = 2,
        aperturePriority = 3,
        shutterPriority = 4,
        creative = 5,
        action = 6,
        portrait = 7,
        landscape = 8,
        bulb = 9,
    };
    enum class MeteringMode : int {
        unknown = 0,
        average = 1,
        centerWeighted = 2,
        spot = 3,
        multiSpot = 4,
        multiSegment = 5,
        partial = 6,
        other = 255,
    };
    enum class LightSource : int {
        unknown = 0,
        daylight = 1,
        fluorescent = 2,
        tungsten = 3,
        flash = 4,
        fineWeather = 9,
        cloudy = 10,
        shade = 11,
        daylightFluorescent = 12,
        dayWhiteFluorescent = 13,
        coolWhiteFluorescent = 14,
        whiteFluorescent = 15,
        warmWhiteFluorescent = 16,
        standardLightA = 17,
        standardLightB = 18,
        standardLightC = 19,
        D55 = 20,
        D65 = 21,
        D75 = 22,
        D50 = 23,
        isoStudioTungsten = 24,
        other = 255,
    };
    /// `automatic` is the platform's `auto`, a keyword in C++.
    enum class FlashMode : int {
        unknown = 0,
        compulsory = 1,
        compulsoryFlashSupression = 2,
        automatic = 3
    };

    struct LensSpecification {
        double minFocalLength = 0, minFocalLengthAperture = 0, maxFocalLength = 0,
               maxFocalLengthAperture = 0;
        friend bool operator==(const LensSpecification&, const LensSpecification&) = default;
    };

    /// How the stored form keeps the XMP bytes.
    enum class Compression { none, zip };

    // ---- Construction ----

    /// An empty tree.
    ImageMetadata() = default;
    /// A detached copy of `tree` (serialised and parsed again); nothing when either fails.
    static std::optional<ImageMetadata> make(const xmp::Metadata& tree);
    /// Parsed from an XMP packet; nothing when it does not parse.
    static std::optional<ImageMetadata> fromXMPData(std::span<const std::uint8_t> data);
    /// From a photo or image file: its XMP, then what its Exif and IPTC (converted into XMP) add
    /// without replacing anything the XMP says; nothing when the file cannot be read.
    static std::optional<ImageMetadata> fromImageFile(const std::filesystem::path& path);

    const xmp::Metadata& rawMetadata() const { return raw_; }

    // ---- Tags ----

    const std::vector<xmp::Tag>& tags() const { return raw_.tags(); }
    /// The top-level tags, then for each its elements followed, recursively, by theirs.
    std::vector<const xmp::Tag*> allTags() const;
    std::optional<std::vector<std::uint8_t>> xmpData() const { return raw_.xmpData(); }
    const xmp::Tag* imageMetadataTag(std::string_view matchingProperty,
                                     std::string_view inDictionary) const;

    // ---- Descriptions ----

    std::optional<std::vector<std::string>> titles() const;
    std::optional<std::string> headline() const;
    /// All elements joined by newlines; empty when none is left, nothing without the tag.
    std::optional<std::string> description() const;
    /// The keywords.
    std::optional<std::vector<std::string>> subject() const;
    /// −1 (rejected) to 5.
    std::optional<int> starRating() const;
    std::optional<std::vector<std::string>> authors() const;
    std::optional<ContactInfo> contactInfo() const;
    /// The authors, one a line, then the creator's postal address in the mailing style of its
    /// country (US, Canada, Australia, UK, Germany, France, Japan; elsewhere street, postal code
    /// and city, state or province, country) and e-mail, phone and web address.
    std::optional<std::string> displayAuthor() const;
    std::optional<std::vector<std::string>> depictedPersons() const;
    /// The capture time: a text without a zone takes exif:OffsetTimeOriginal, else the zone of
    /// exif:DateTimeOriginal when that states the same wall-clock time, else the zone the machine
    /// is in now.
    std::optional<Date> dateTimeOriginal() const;
    std::optional<std::string> dateTimeOffsetOriginal() const;
    /// The IPTC Extension location created (the first of a list, or one structure on its own),
    /// else the legacy single-location fields.
    std::optional<ImageLocation> locationCreated() const;
    std::optional<ImageLocation> locationShown() const;
    std::optional<std::string> userComment() const;
    std::optional<std::string> copyright() const;
    std::optional<std::string> instructions() const;

    // ---- Camera and lens ----

    std::optional<std::string> cameraMaker() const;
    std::optional<std::string> cameraModel() const;
    std::optional<std::string> cameraOwner() const;
    std::optional<std::string> lensMaker() const;
    std::optional<std::string> lensModel() const;
    std::optional<LensSpecification> lensSpecification() const;
    std::optional<bool> is35mmSensor() const;
    std::optional<bool> isZoomLens() const;
    /// Whether any camera, lens or exposure reader gives a value.
    bool hasCameraInfo() const;
    /// "Nikon D850", "Nikon D850 of Ann", …
    std::optional<std::string> displayCameraModel() const;
    std::optional<std::string> displayLensModel() const;
    /// "24-70mm 𝑓∕2.8", "50mm 𝑓∕1.8".
    std::optional<std::string> displayLensSpecification() const;
    /// Lens name, focal and aperture range, focal length, 35 mm equivalent and digital zoom.
    std::optional<std::string> displayLensInfo() const;
    /// The name of a picture of the maker in the library's maker icons ("Nikon", …), "Generic"
    /// for makers without one; the picture itself (SVG) is
    /// resources::resourceData("MakerIcons/<name>.svg").
    std::string cameraIcon() const;

    // ---- Exposure ----

    std::optional<double> focalLength() const;
    std::optional<double> focalLengthIn35mmFilm() const;
    std::optional<double> digitalZoomRatio() const;
    std::optional<double> exposureTime() const;
    std::optional<double> shutterSpeedValue() const;
    std::optional<double> fNumber() const;
    std::optional<double> apertureValue() const;
    std::optional<double> exposureCompensation() const;
    std::optional<double> flashCompensation() const;
    std::optional<ExposureProgram> exposureProgram() const;
    std::optional<std::vector<double>> isoValues() const;
    std::optional<bool> autoWhiteBalance() const;
    std::optional<LightSource> lightSource() const;
    std::optional<MeteringMode> meteringMode() const;
    std::optional<FlashMode> flashMode() const;
    std::optional<bool> flashDidFire() const;
    std::optional<bool> flashRedEyeMode() const;
    /// "1/250s", "2s", "1.5s".
    std::optional<std::string> displayShutterSpeed() const;
    /// "𝑓∕2.8".
    std::optional<std::string> displayAperture() const;
    std::optional<std::string> displayISO() const;
    /// "+0.0", "-0.7".
    std::optional<std::string> displayExposureCompensation() const;
    std::optional<std::string> displayFlashCompensation() const;

    // ---- Position ----

    /// The XMP coordinate texts ("48,51.4512N").
    std::optional<std::string> gpsLatitude() const;
    std::optional<std::string> gpsLongitude() const;
    /// "48° 51′ 27.07″ N".
    std::optional<std::string> displayGPSLatitude() const;
    std::optional<std::string> displayGPSLongitude() const;
    /// Signed by exif:GPSAltitudeRef (1 is below sea level).
    std::optional<double> gpsAltitude() const;
    std::optional<std::string> displayGPSAltitude() const;
    std::optional<double> gpsPositioningError() const;
    /// Decimal degrees (latitude, longitude), north and east positive.
    std::optional<std::array<double, 2>> gpsLocation() const;

    // ---- Editing (throw ImageMetadataError; a failed edit leaves the tree as it was) ----

    /// Sets the tag the platform keeps `matchingProperty` of `inDictionary` in; a structure or a
    /// list of structures becomes one in the property's namespace. Throws
    /// errorSettingTagFromProperty for a pair that is not mapped and for a value XMP cannot
    /// carry (see xmp::isXMLText), leaving the tree as it was.
    void set(const xmp::PropertyValue& value, std::string_view matchingProperty,
             std::string_view inDictionary);
    void remove(const xmp::Tag& tag);
    /// Removes every GPS tag and every location (IPTC Extension and legacy).
    void removeLocationData();

    // ---- Stored form and export ----

    /// {"XMP": {"Compression": "Zip", "Data": zlib data}}; plain XMP without "Compression" when
    /// compressing fails. Throws ImageMetadataError::errorCreatingXMPData when the tree cannot
    /// be serialised.
    void encode(coding::Encoder& encoder) const;
    /// Decompression errors pass through (coding::CompressionError); XMP that does not parse throws
    /// FileReadCorruptError (259).
    static ImageMetadata decode(const coding::Decoder& decoder);

    /// The application name and version that exports record as their software; empty (the
    /// default) records none.
    static void setSoftwareNameAndVersion(std::string text);
    /// Readies the TIFF tags for a file of `fileType` (a type identifier such as "public.tiff")
    /// at `resolution` pixels per unit: drops those describing the document, records the
    /// resolution, and for TIFF the compression. The resolution must be finite and fit a TIFF
    /// rational in hundredths (0 to 42949672.95); anything else is a fatal stop.
    void prepareForExport(double resolution, std::string_view fileType);

    /// Equal XMP serialisations (two trees that cannot be serialised are equal).
    friend bool operator==(const ImageMetadata& a, const ImageMetadata& b);

private:
    explicit ImageMetadata(xmp::Metadata raw) : raw_(std::move(raw)) {}
    xmp::Metadata raw_;
};

/// Objects that carry metadata.
class ImageMetadataOwner {
public:
    virtual ~ImageMetadataOwner() = default;
    virtual const ImageMetadata& imageMetadata() const = 0;
    virtual void setImageMetadata(ImageMetadata metadata) = 0;
};

} // namespace bic
