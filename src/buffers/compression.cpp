#include "bic/buffers/compression.hpp"

#include "bic/platform/core/memory.hpp"

#include <cstring>
#include <libdeflate.h>
#include <memory>

namespace bic {

std::vector<std::uint8_t> packBits(std::span<const std::uint8_t> in) {
    std::vector<std::uint8_t> out;
    out.reserve(in.size() + in.size() / 128 + 1);
    std::size_t i = 0;
    const std::size_t n = in.size();
    while (i < n) {
        std::size_t run = 1;
        while (i + run < n && run < 128 && in[i + run] == in[i])
            ++run;
        if (run >= 3) {
            out.push_back(std::uint8_t(257 - run)); // −(run − 1) as a signed byte
            out.push_back(in[i]);
            i += run;
            continue;
        }
        // A literal packet up to the next run of three.
        const std::size_t start = i;
        while (i < n && i - start < 128) {
            if (i + 2 < n && in[i] == in[i + 1] && in[i] == in[i + 2]) break;
            ++i;
        }
        out.push_back(std::uint8_t(i - start - 1));
        out.insert(out.end(), in.begin() + std::ptrdiff_t(start), in.begin() + std::ptrdiff_t(i));
    }
    return out;
}

std::size_t unpackBitsInto(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) {
    const std::uint8_t* p = in.data();
    const std::uint8_t* const end = p + in.size();
    std::uint8_t* o = out.data();
    const std::uint8_t* const limit = o + out.size();
    // Packets are short in photographs; while a whole packet's worth of room is left on both
    // sides, copies of a fixed 128 bytes (a few vector moves, no call) stand in for exact ones,
    // and later packets overwrite the excess.
    constexpr std::size_t packet = 128;
    while (end - p > std::ptrdiff_t(packet) && limit - o >= std::ptrdiff_t(packet)) {
        const auto header = std::int8_t(*p++);
        if (header >= 0) {
            const std::size_t count = std::size_t(header) + 1;
            std::memcpy(o, p, packet);
            o += count, p += count;
        } else if (header != -128) {
            const std::size_t count = std::size_t(1 - header);
            std::memset(o, *p++, packet);
            o += count;
        }
    }
    while (p < end) {
        const auto header = std::int8_t(*p++);
        if (header >= 0) {
            const std::size_t count = std::size_t(header) + 1;
            if (count > std::size_t(end - p))
                throw CompressionError("PackBits literal runs past the end of the data.");
            if (count > std::size_t(limit - o))
                throw CompressionError("PackBits data decodes to more than the row holds.");
            std::memcpy(o, p, count);
            o += count, p += count;
        } else if (header != -128) {
            const std::size_t count = std::size_t(1 - header);
            if (p == end) throw CompressionError("PackBits repeat has no byte to repeat.");
            if (count > std::size_t(limit - o))
                throw CompressionError("PackBits data decodes to more than the row holds.");
            std::memset(o, *p++, count);
            o += count;
        }
    }
    return std::size_t(o - out.data());
}

std::vector<std::uint8_t> unpackBits(std::span<const std::uint8_t> in, std::size_t capacity) {
    std::vector<std::uint8_t> out(capacity);
    out.resize(unpackBitsInto(in, out));
    return out;
}

namespace {
struct CompressorFree {
    void operator()(libdeflate_compressor* c) const { libdeflate_free_compressor(c); }
};
struct DecompressorFree {
    void operator()(libdeflate_decompressor* d) const { libdeflate_free_decompressor(d); }
};
} // namespace

std::vector<std::uint8_t> zipCompressed(std::span<const std::uint8_t> in) {
    // Coders keep large tables; one per thread serves every plane that thread codes.
    thread_local std::unique_ptr<libdeflate_compressor, CompressorFree> compressor(
        libdeflate_alloc_compressor(6));
    if (!compressor) throw CompressionError("The deflate coder could not be made.");
    // The bound is far above what photographs need; only the bytes written are kept, so the
    // scratch space is left uninitialised rather than zeroed.
    const std::size_t bound = libdeflate_zlib_compress_bound(compressor.get(), in.size());
    const std::unique_ptr<std::uint8_t[]> scratch(new std::uint8_t[bound]);
    const std::size_t size =
        libdeflate_zlib_compress(compressor.get(), in.data(), in.size(), scratch.get(), bound);
    if (size == 0) throw CompressionError("Deflate output did not fit its bound.");
    std::vector<std::uint8_t> out(scratch.get(), scratch.get() + size);
    return out;
}

std::vector<std::uint8_t> zipUncompressed(std::span<const std::uint8_t> in,
                                          std::size_t uncompressedSize) {
    thread_local std::unique_ptr<libdeflate_decompressor, DecompressorFree> decompressor(
        libdeflate_alloc_decompressor());
    if (!decompressor) throw CompressionError("The inflate coder could not be made.");
    std::vector<std::uint8_t> out = zeroedBuffer(uncompressedSize);
    std::size_t actual = 0;
    const auto result = libdeflate_zlib_decompress(decompressor.get(), in.data(), in.size(),
                                                   out.data(), out.size(), &actual);
    if (result != LIBDEFLATE_SUCCESS || actual != uncompressedSize)
        throw CompressionError("The zip data is corrupt or does not decode to the plane's size.");
    return out;
}

} // namespace bic
