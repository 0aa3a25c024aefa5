#pragma once
// Byte-stream coders of channel planes: PackBits run-length coding of one row and zlib-format
// (RFC 1950) deflate of a whole buffer.

#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

namespace bic::coding {

/// A coder could not code its input: malformed or truncated data, or a size that does not match.
class CompressionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// PackBits: runs of three or more equal bytes as repeat packets, the rest as literal packets,
/// at most 128 bytes a packet.
std::vector<std::uint8_t> packBits(std::span<const std::uint8_t> bytes);
/// Decodes PackBits data; throws CompressionError for a truncated packet or more than
/// `capacity` bytes of output. The no-op header 0x80 is skipped.
std::vector<std::uint8_t> unpackBits(std::span<const std::uint8_t> bytes, std::size_t capacity);
/// The same into `out`, whose size is the capacity; returns the bytes written. On an error,
/// `out` may be partly written.
std::size_t unpackBitsInto(std::span<const std::uint8_t> bytes, std::span<std::uint8_t> out);

/// Deflate at the default level (6) in a zlib wrapper, as zlib's compress() writes it.
std::vector<std::uint8_t> zipCompressed(std::span<const std::uint8_t> bytes);
/// Inflates a zlib stream that must decode to exactly `uncompressedSize` bytes; throws
/// CompressionError otherwise.
std::vector<std::uint8_t> zipUncompressed(std::span<const std::uint8_t> bytes,
                                          std::size_t uncompressedSize);
/// The same into `out`, which it must fill exactly; `out` may be partly written on an error.
void zipUncompressInto(std::span<const std::uint8_t> bytes, std::span<std::uint8_t> out);
/// Inflates a zlib stream of unknown decoded size (at most `limit` bytes); throws
/// CompressionError for corrupt data or more output than the limit.
std::vector<std::uint8_t> zipUncompressedUpTo(std::span<const std::uint8_t> bytes,
                                              std::size_t limit = std::size_t(1) << 30);

} // namespace bic::coding
