#pragma once
// Shared by the layered-document tests: the folder of real documents, a big-endian byte
// builder for hand-made files, a generated document model, and a comparison of documents as
// the writer promises them equal.

#include "bic/documents/layered_document.hpp"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace bic::test_support {

/// The folder of real documents; tests that need it skip when it is missing.
std::filesystem::path psdFolder();
/// Every .psd and .psb below the folder except malformed/, sorted.
std::vector<std::filesystem::path> validDocuments();
std::vector<std::uint8_t> fileBytes(const std::filesystem::path& path);

struct BigEndian {
    std::vector<std::uint8_t> bytes;
    BigEndian& u8(std::uint8_t v) { return bytes.push_back(v), *this; }
    BigEndian& u16(std::uint16_t v) { return u8(std::uint8_t(v >> 8)).u8(std::uint8_t(v)); }
    BigEndian& u32(std::uint32_t v) { return u16(std::uint16_t(v >> 16)).u16(std::uint16_t(v)); }
    BigEndian& u64(std::uint64_t v) { return u32(std::uint32_t(v >> 32)).u32(std::uint32_t(v)); }
    BigEndian& f64(double d);
    BigEndian& chars(std::string_view s) {
        for (const char c : s)
            bytes.push_back(std::uint8_t(c));
        return *this;
    }
    BigEndian& append(const std::vector<std::uint8_t>& b) {
        bytes.insert(bytes.end(), b.begin(), b.end());
        return *this;
    }
    /// A descriptor key or class: a length of 0 and four characters, or the length and text.
    BigEndian& id(std::string_view s) {
        s.size() == 4 ? u32(0) : u32(std::uint32_t(s.size()));
        return chars(s);
    }
    /// A Unicode string: its length in UTF-16 units, then the units (ASCII only here).
    BigEndian& unicode(std::string_view s) {
        u32(std::uint32_t(s.size()));
        for (const char c : s)
            u16(std::uint16_t(c));
        return *this;
    }
};

/// A "Patt" block's bytes with one RGB pattern of three 8-bit `planes` (each width × height),
/// its channels PackBits-coded when `packBits`, else raw.
std::vector<std::uint8_t> patternBlock(const std::string& id, std::uint16_t width,
                                       std::uint16_t height,
                                       const std::vector<std::vector<std::uint8_t>>& planes,
                                       bool packBits);

/// The 26-byte header.
BigEndian header(std::uint16_t version, std::uint16_t channels, std::uint32_t height,
                 std::uint32_t width, std::uint16_t depth, std::uint16_t mode);

/// A plane of pseudo-random samples (floats on 0…1) from `seed`.
SamplePlane randomPlane(std::int64_t width, std::int64_t height, int bitDepth, unsigned seed);

/// A 7 × 5 document with a background, a translucent layer with a mask that pokes out of the
/// canvas, and a pass-through group holding a hidden, clipped multiply layer with a non-ASCII
/// name and half fill; composite planes random.
LayeredDocument sampleDocument(int bitDepth, DocumentColorMode mode = DocumentColorMode::rgb);

/// What `differences` compares: everything a write and read keep, or only the layers' picture
/// (tree, names, geometry, pixels, blending, masks), which two saves of one document share even
/// when their resources, flags, tagged blocks and the rounding of their composites differ.
enum class Compare { everything, picture };

/// The first difference between two documents (empty when equal). Channel compressions are not
/// compared (the writer chooses its own), nor is the merged-data flag of the version resource;
/// tagged blocks are compared up to trailing zero padding, and the blocks the writer rewrites
/// by the fields they are read into.
std::string differences(const LayeredDocument& a, const LayeredDocument& b,
                        Compare what = Compare::everything);

} // namespace bic::test_support
