#include "bic/platform/coding/formats.hpp"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <optional>

namespace coding = bic::coding;
using coding::DecodingError;
using coding::Value;

namespace {

// A record that uses every container kind, like the library's stored records do.
struct Record {
    std::string name;
    std::int64_t count = 0;
    float ratio = 0;
    std::vector<std::int64_t> offsets;
    coding::Data bytes;
    std::optional<double> note;
    coding::Date when;

    void encode(coding::Encoder& e) const {
        auto k = e.keyed();
        k.encode("Name", name);
        k.encode("Count", count);
        k.encode("Ratio", ratio);
        k.encode("Offsets", offsets);
        k.encode("Bytes", bytes);
        k.encodeIfPresent("Note", note);
        k.encode("When", when);
    }
    static Record decode(const coding::Decoder& d) {
        auto k = d.keyed();
        Record r;
        r.name = k.decode<std::string>("Name");
        r.count = k.decode<std::int64_t>("Count", -1000, 1000);
        r.ratio = k.decode<float>("Ratio");
        r.offsets = k.decode<std::vector<std::int64_t>>("Offsets");
        r.bytes = k.decode<coding::Data>("Bytes");
        r.note = k.decodeIfPresent<double>("Note");
        r.when = k.decode<coding::Date>("When");
        return r;
    }
    friend bool operator==(const Record&, const Record&) = default;
};

Record sample() {
    return {"Layer 1",
            -42,
            0.1f,
            {-9223372036854775807LL - 1, 0, 9223372036854775807LL},
            {0, 1, 2, 253, 254, 255},
            std::nullopt,
            coding::Date{86400}};
}

} // namespace

TEST(Coding, RecordRoundTripsThroughEveryFileForm) {
    const Record r = sample();
    for (auto format : {coding::PropertyListFormat::xml, coding::PropertyListFormat::binary})
        EXPECT_EQ(coding::decodePropertyList<Record>(coding::encodePropertyList(r, format)), r);
    EXPECT_EQ(coding::decodeJSON<Record>(coding::encodeJSON(r)), r);
    Record withNote = r;
    withNote.note = -1.5e-300;
    EXPECT_EQ(coding::decodeJSON<Record>(coding::encodeJSON(withNote)), withNote);
    EXPECT_EQ(coding::decodePropertyList<Record>(coding::encodePropertyList(withNote)), withNote);
}

TEST(Coding, FileFormsKeepKeyOrderAndReadableFloats) {
    const std::string json = coding::encodeJSON(sample());
    EXPECT_LT(json.find("\"Name\""), json.find("\"Count\""));
    EXPECT_NE(json.find("\"Ratio\":0.1,"), std::string::npos) << json;
    EXPECT_NE(json.find("\"AAEC/f7/\""), std::string::npos) << "data travels as base64";
    const auto xml = coding::encodePropertyList(sample(), coding::PropertyListFormat::xml);
    const std::string text(xml.begin(), xml.end());
    EXPECT_NE(text.find("<integer>-42</integer>"), std::string::npos) << text;
    const auto binary = coding::encodePropertyList(sample());
    EXPECT_EQ(std::string(binary.begin(), binary.begin() + 8), "bplist00");
}

TEST(Coding, DecoderErrorsNameTheirKindAndPath) {
    Value v = coding::encode(sample());
    auto expectKind = [](const Value& value, DecodingError::Kind kind, const char* path) {
        try {
            coding::decode<Record>(value);
            ADD_FAILURE() << "decoded";
        } catch (const DecodingError& e) {
            EXPECT_EQ(e.kind(), kind) << e.what();
            std::string joined;
            for (const auto& p : e.codingPath())
                joined += (joined.empty() ? "" : ".") + p;
            EXPECT_EQ(joined, path);
        }
    };
    Value missing = v;
    missing.get<coding::Dictionary>()->erase(missing.get<coding::Dictionary>()->begin());
    expectKind(missing, DecodingError::Kind::keyNotFound, "");

    Value wrongType = v;
    (*wrongType.get<coding::Dictionary>())[1].second = Value("many");
    expectKind(wrongType, DecodingError::Kind::typeMismatch, "Count");

    Value outOfRange = v;
    (*outOfRange.get<coding::Dictionary>())[1].second = Value(std::int64_t{5000});
    expectKind(outOfRange, DecodingError::Kind::dataCorrupted, "Count");

    Value fractional = v;
    (*fractional.get<coding::Dictionary>())[3].second = Value(coding::Array{Value(1.5)});
    expectKind(fractional, DecodingError::Kind::dataCorrupted, "Offsets.Index 0");

    Value badBase64 = v;
    (*badBase64.get<coding::Dictionary>())[4].second = Value("A===");
    expectKind(badBase64, DecodingError::Kind::dataCorrupted, "Bytes");

    EXPECT_THROW(coding::decode<Record>(Value(coding::Array{})), DecodingError);
}

TEST(Coding, NarrowIntegersAndWholeRealsAreChecked) {
    EXPECT_EQ(coding::decode<std::uint8_t>(Value(255)), 255);
    EXPECT_THROW(coding::decode<std::uint8_t>(Value(256)), DecodingError);
    EXPECT_THROW(coding::decode<std::uint16_t>(Value(-1)), DecodingError);
    EXPECT_EQ(coding::decode<int>(Value(3.0)), 3); // JSON writers may spell 3 as 3.0
    EXPECT_THROW(coding::decode<float>(Value(1e300)), DecodingError);
    EXPECT_EQ(coding::decode<double>(Value(7)), 7.0);
    EXPECT_THROW(coding::decode<bool>(Value(1)), DecodingError);
}

TEST(Coding, MalformedInputIsRejectedNotCrashed) {
    const std::string garbage = "bplist00 this is not a property list";
    EXPECT_THROW(coding::readPropertyList(std::span(
                     reinterpret_cast<const std::uint8_t*>(garbage.data()), garbage.size())),
                 DecodingError);
    EXPECT_THROW(coding::readPropertyList({}), DecodingError);
    EXPECT_THROW(coding::readJSON("{\"a\": [1, 2"), DecodingError);
    EXPECT_THROW(coding::writePropertyList(Value()), coding::EncodingError);
    EXPECT_THROW(coding::writeJSON(Value(std::nan(""))), coding::EncodingError);

    // A binary list whose one string holds a NUL: refused as corrupt (the property-list library
    // keeps strings as C strings and would stop the process on it).
    std::vector<std::uint8_t> nul = {'b', 'p', 'l', 'i', 's', 't', '0', '0', 0x53, 'a', 0, 'b', 8};
    const std::uint8_t trailer[32] = {0, 0, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 1,
                                      0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 12};
    nul.insert(nul.end(), trailer, trailer + 32);
    EXPECT_THROW(coding::readPropertyList(nul), DecodingError);
    nul[10] = 'x';
    EXPECT_EQ(coding::readPropertyList(nul), Value("axb"));

    // A dictionary holding a value of a type we do not read (a UID) fails without leaking the
    // dictionary walk (the sanitizer build checks leaks).
    std::vector<std::uint8_t> uid = {'b', 'p', 'l',  'i', 's',  't', '0', '0', 0xD1,
                                     1,   2,   0x51, 'k', 0x80, 5,   8,   11,  13};
    const std::uint8_t uidTrailer[32] = {0, 0, 0, 0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 3,
                                         0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 15};
    uid.insert(uid.end(), uidTrailer, uidTrailer + 32);
    EXPECT_THROW(coding::readPropertyList(uid), DecodingError);
}

TEST(Coding, Base64MatchesTheStandardAlphabetAndPadding) {
    const std::string text = "Man is";
    const std::span bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    EXPECT_EQ(coding::base64Encode(bytes.first(1)), "TQ==");
    EXPECT_EQ(coding::base64Encode(bytes.first(2)), "TWE=");
    EXPECT_EQ(coding::base64Encode(bytes), "TWFuIGlz");
    coding::Data out;
    ASSERT_TRUE(coding::base64Decode("TWFu\nIGlz", out));
    EXPECT_EQ(std::string(out.begin(), out.end()), text);
    for (std::size_t n = 0; n <= 6; ++n) {
        ASSERT_TRUE(coding::base64Decode(coding::base64Encode(bytes.first(n)), out)) << n;
        EXPECT_EQ(std::string(out.begin(), out.end()), text.substr(0, n));
    }
    EXPECT_FALSE(coding::base64Decode("TWE", out));  // missing padding
    EXPECT_FALSE(coding::base64Decode("TW=E", out)); // data after padding
    EXPECT_FALSE(coding::base64Decode("TWF=", out)); // non-zero spare bits
    EXPECT_FALSE(coding::base64Decode("T!==", out));
}

TEST(Coding, FileReadCorruptErrorCarriesTheCocoaCode) {
    const coding::FileReadCorruptError e;
    EXPECT_EQ(e.code, 259);
    EXPECT_STREQ(e.domain, "NSCocoaErrorDomain");
}
