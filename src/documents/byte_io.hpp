#pragma once
// Big-endian reading and writing of the layered-document format's fields. The reader checks every
// read against the bytes that remain and reports where in the file it ran out.

#include "bic/documents/document_error.hpp"

#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace bic::documents {

class ByteReader {
public:
    /// `base` is the offset of the first byte in the file, for messages.
    explicit ByteReader(std::span<const std::uint8_t> bytes, std::uint64_t base = 0)
        : bytes_(bytes), base_(base) {}

    std::size_t remaining() const { return bytes_.size() - position_; }
    std::size_t position() const { return position_; }
    std::uint64_t offset() const { return base_ + position_; }
    bool atEnd() const { return position_ == bytes_.size(); }

    /// Throws DocumentError(truncated) unless `n` bytes remain.
    void need(std::uint64_t n, std::string_view what) const {
        if (n > remaining())
            throw DocumentError(DocumentError::Kind::truncated,
                                "the file ends inside " + std::string(what) + " (at byte " +
                                    std::to_string(offset()) + ", " + std::to_string(n) +
                                    " bytes needed, " + std::to_string(remaining()) + " left)");
    }
    std::uint8_t u8(std::string_view what) {
        need(1, what);
        return bytes_[position_++];
    }
    std::uint16_t u16(std::string_view what) { return std::uint16_t(big(2, what)); }
    std::int16_t i16(std::string_view what) { return std::int16_t(u16(what)); }
    std::uint32_t u32(std::string_view what) { return std::uint32_t(big(4, what)); }
    std::int32_t i32(std::string_view what) { return std::int32_t(u32(what)); }
    std::uint64_t u64(std::string_view what) { return big(8, what); }
    double f64(std::string_view what) {
        const std::uint64_t bits = u64(what);
        double d;
        std::memcpy(&d, &bits, 8);
        return d;
    }
    /// A length field: 8 bytes when `wide`, else 4.
    std::uint64_t length(bool wide, std::string_view what) { return wide ? u64(what) : u32(what); }
    std::string chars(std::size_t n, std::string_view what) {
        const auto b = take(n, what);
        return std::string(b.begin(), b.end());
    }
    std::span<const std::uint8_t> take(std::uint64_t n, std::string_view what) {
        need(n, what);
        const auto out = bytes_.subspan(position_, std::size_t(n));
        position_ += std::size_t(n);
        return out;
    }
    /// The next `n` bytes as a reader of their own.
    ByteReader sub(std::uint64_t n, std::string_view what) {
        const std::uint64_t at = offset();
        return ByteReader(take(n, what), at);
    }
    void skip(std::uint64_t n, std::string_view what) { take(n, what); }
    /// Skips up to `n` bytes, fewer when the data ends first (trailing padding).
    void skipPadding(std::size_t n) { position_ += std::min(n, remaining()); }
    std::span<const std::uint8_t> rest() { return take(remaining(), "the rest"); }
    /// The next bytes without consuming them (fewer when the data ends).
    std::span<const std::uint8_t> peek(std::size_t n) const {
        return bytes_.subspan(position_, std::min(n, remaining()));
    }

private:
    std::uint64_t big(int n, std::string_view what) {
        need(std::uint64_t(n), what);
        std::uint64_t v = 0;
        for (int i = 0; i < n; ++i)
            v = v << 8 | bytes_[position_ + std::size_t(i)];
        position_ += std::size_t(n);
        return v;
    }

    std::span<const std::uint8_t> bytes_;
    std::uint64_t base_ = 0;
    std::size_t position_ = 0;
};

class ByteWriter {
public:
    std::vector<std::uint8_t>& bytes() { return bytes_; }
    std::size_t size() const { return bytes_.size(); }

    void u8(std::uint8_t v) { bytes_.push_back(v); }
    void u16(std::uint16_t v) { big(v, 2); }
    void i16(std::int16_t v) { big(std::uint16_t(v), 2); }
    void u32(std::uint32_t v) { big(v, 4); }
    void i32(std::int32_t v) { big(std::uint32_t(v), 4); }
    void u64(std::uint64_t v) { big(v, 8); }
    void length(bool wide, std::uint64_t v) { wide ? u64(v) : u32(std::uint32_t(v)); }
    void chars(std::string_view s) { bytes_.insert(bytes_.end(), s.begin(), s.end()); }
    void append(std::span<const std::uint8_t> b) {
        bytes_.insert(bytes_.end(), b.begin(), b.end());
    }
    void zeros(std::size_t n) { bytes_.insert(bytes_.end(), n, 0); }
    /// Zeros up to a multiple of `alignment` counted from `from`.
    void padFrom(std::size_t from, std::size_t alignment) {
        while ((bytes_.size() - from) % alignment)
            bytes_.push_back(0);
    }

    /// Writes a length placeholder and returns where it is, for `patchLength`.
    std::size_t placeholder(bool wide) {
        const std::size_t at = bytes_.size();
        zeros(wide ? 8 : 4);
        return at;
    }
    /// Fills the placeholder at `at` with the number of bytes written after it.
    void patchLength(std::size_t at, bool wide) {
        const std::uint64_t n = bytes_.size() - at - (wide ? 8 : 4);
        const int w = wide ? 8 : 4;
        for (int i = 0; i < w; ++i)
            bytes_[at + std::size_t(i)] = std::uint8_t(n >> (8 * (w - 1 - i)));
    }

private:
    void big(std::uint64_t v, int n) {
        for (int i = n - 1; i >= 0; --i)
            bytes_.push_back(std::uint8_t(v >> (8 * i)));
    }
    std::vector<std::uint8_t> bytes_;
};

[[noreturn]] inline void corrupt(const std::string& message) {
    throw DocumentError(DocumentError::Kind::corrupt, message);
}

/// UTF-16 code units (big-endian pairs already combined) to UTF-8; unpaired surrogates become
/// U+FFFD.
std::string utf8FromUTF16(const std::vector<std::uint16_t>& units);
/// UTF-8 to UTF-16 code units; invalid sequences become U+FFFD.
std::vector<std::uint16_t> utf16FromUTF8(std::string_view text);

} // namespace bic::documents
