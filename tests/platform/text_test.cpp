#include "bic/platform/core/text.hpp"

#include <gtest/gtest.h>
#include <string>

namespace bic {
namespace {

// UTF-8 of one code point.
std::string utf8(char32_t c) {
    std::string out;
    if (c < 0x80) {
        out += char(c);
    } else if (c < 0x800) {
        out += char(0xC0 | c >> 6), out += char(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += char(0xE0 | c >> 12), out += char(0x80 | (c >> 6 & 0x3F)),
            out += char(0x80 | (c & 0x3F));
    } else {
        out += char(0xF0 | c >> 18), out += char(0x80 | (c >> 12 & 0x3F)),
            out += char(0x80 | (c >> 6 & 0x3F)), out += char(0x80 | (c & 0x3F));
    }
    return out;
}

TEST(Text, TrimsEveryUnicodeSpaceAndLineBreakAtBothEnds) {
    // Unicode's White_Space property, all 25 of them.
    const char32_t spaces[] = {0x09,   0x0A,   0x0B,   0x0C,   0x0D,   0x20,   0x85,
                               0xA0,   0x1680, 0x2000, 0x2001, 0x2002, 0x2003, 0x2004,
                               0x2005, 0x2006, 0x2007, 0x2008, 0x2009, 0x200A, 0x2028,
                               0x2029, 0x202F, 0x205F, 0x3000};
    for (const char32_t c : spaces) {
        EXPECT_TRUE(isUnicodeWhitespace(c)) << std::hex << unsigned(c);
        const std::string s = utf8(c);
        EXPECT_EQ(trimmingWhitespace(s + s + "Dawn" + s), "Dawn") << std::hex << unsigned(c);
        EXPECT_EQ(trimmingWhitespace(s), "") << std::hex << unsigned(c);
    }
    // Spaces inside stay; so do look-alikes that are not white space: zero width space, word
    // joiner, byte order mark, Mongolian vowel separator (no longer a space since Unicode 6.3).
    EXPECT_EQ(trimmingWhitespace(utf8(0x3000) + "Tokyo" + utf8(0x3000) + "Tower" + utf8(0x3000)),
              "Tokyo" + utf8(0x3000) + "Tower");
    for (const char32_t c : {0x200B, 0x2060, 0xFEFF, 0x180E}) {
        EXPECT_FALSE(isUnicodeWhitespace(c)) << std::hex << unsigned(c);
        EXPECT_EQ(trimmingWhitespace(utf8(c)), utf8(c)) << std::hex << unsigned(c);
    }
    // A multi-byte character ending in a byte that, alone, would look like U+0085's tail.
    EXPECT_EQ(trimmingWhitespace(" " + utf8(0x0105)), utf8(0x0105));
    EXPECT_EQ(trimmingWhitespace(""), "");
}

TEST(Text, BytesThatAreNotUTF8AreNeitherSpaceNorCut) {
    // A lone continuation byte after a space, a truncated no-break space, Latin-1's no-break
    // space (0xA0) and its next-line (0x85) on their own.
    EXPECT_EQ(trimmingWhitespace(" \x85"), "\x85");
    EXPECT_EQ(trimmingWhitespace("a\xC2"), "a\xC2");
    EXPECT_EQ(trimmingWhitespace("\xA0x\xA0"), "\xA0x\xA0");
    EXPECT_EQ(trimmingWhitespace("\xE3\x80 "), "\xE3\x80"); // U+3000 cut short
}

TEST(Text, RecognisesWellFormedUTF8) {
    EXPECT_TRUE(isWellFormedUTF8(""));
    EXPECT_TRUE(isWellFormedUTF8("plain ASCII"));
    EXPECT_TRUE(isWellFormedUTF8(utf8(0x7FF) + utf8(0xFFFF) + utf8(0x10FFFF) + utf8(0x1D453)));
    for (const std::string& bad :
         {std::string("\x80"), std::string("\xC0\xAF"), // overlong '/'
          std::string("\xE0\x80\xAF"), std::string("\xED\xA0\x80"), std::string("\xF4\x90\x80\x80"),
          std::string("\xF8\x88\x80\x80"), std::string("\xE2\x82"), std::string("ok\xFF")})
        EXPECT_FALSE(isWellFormedUTF8(bad)) << bad;

    std::size_t at = 1;
    const std::string text = "a" + utf8(0x20AC) + "\x80";
    EXPECT_EQ(nextCodePoint(text, at), char32_t(0x20AC));
    EXPECT_EQ(at, 4u);
    EXPECT_FALSE(nextCodePoint(text, at)); // the stray byte: nothing, and `at` stays
    EXPECT_EQ(at, 4u);
}

} // namespace
} // namespace bic
