#include "bic/platform/coding/compression.hpp"

#include "bic/platform/core/memory.hpp"
#include "bic/platform/core/vector_clones.hpp"

#include <algorithm>
#include <cstring>
#include <exception>
#include <libdeflate.h>
#include <memory>
#include <tbb/parallel_for.h>
#include <zlib.h>

namespace bic::coding {

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

BIC_VECTOR_CLONES std::size_t unpackBitsInto(std::span<const std::uint8_t> in,
                                             std::span<std::uint8_t> out) {
    const std::uint8_t* p = in.data();
    const std::uint8_t* const end = p + in.size();
    std::uint8_t* o = out.data();
    const std::uint8_t* const limit = o + out.size();
    // Packets are short in photographs and ramps; while a whole packet's worth of room is left
    // in the output, copies of a fixed 128 bytes (a few vector moves, no call) stand in for
    // exact ones, and later packets overwrite the excess. A literal reads 128 bytes only where
    // the input has them.
    constexpr std::size_t packet = 128;
    while (p < end && limit - o >= std::ptrdiff_t(packet)) {
        const auto header = std::int8_t(*p++);
        if (header >= 0) {
            const std::size_t count = std::size_t(header) + 1;
            if (end - p >= std::ptrdiff_t(packet)) {
                std::memcpy(o, p, packet);
            } else {
                if (count > std::size_t(end - p))
                    throw CompressionError("PackBits literal runs past the end of the data.");
                std::memcpy(o, p, count);
            }
            o += count, p += count;
        } else if (header != -128) {
            if (p == end) throw CompressionError("PackBits repeat has no byte to repeat.");
            std::memset(o, *p++, packet);
            o += 1 - header;
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

libdeflate_compressor& threadCompressor() {
    // Coders keep large tables; one per thread serves every plane that thread codes.
    thread_local std::unique_ptr<libdeflate_compressor, CompressorFree> compressor(
        libdeflate_alloc_compressor(6));
    if (!compressor) throw CompressionError("The deflate coder could not be made.");
    return *compressor;
}

enum class Wrapping { raw, zlib };

// One deflate stream of `in`, bare or in the zlib wrapping. The bound is far above what
// photographs need; only the bytes written are kept, so the scratch space is left uninitialised
// rather than zeroed.
std::vector<std::uint8_t> deflated(std::span<const std::uint8_t> in, Wrapping wrapping) {
    libdeflate_compressor& c = threadCompressor();
    const bool raw = wrapping == Wrapping::raw;
    const std::size_t bound = raw ? libdeflate_deflate_compress_bound(&c, in.size())
                                  : libdeflate_zlib_compress_bound(&c, in.size());
    const std::unique_ptr<std::uint8_t[]> scratch(new std::uint8_t[bound]);
    const std::size_t size =
        raw ? libdeflate_deflate_compress(&c, in.data(), in.size(), scratch.get(), bound)
            : libdeflate_zlib_compress(&c, in.data(), in.size(), scratch.get(), bound);
    if (size == 0) throw CompressionError("Deflate output did not fit its bound.");
    return {scratch.get(), scratch.get() + size};
}

// Turns a complete raw deflate stream into one that continues: the final block's flag is
// cleared and an empty stored block (the sync-flush marker) ends it on a byte boundary, so the
// next part can follow directly. zlib's inflate, stopping at every block boundary, tells where
// each block header starts and how many bits of the last byte are unused.
void makeContinuable(std::vector<std::uint8_t>& raw) {
    z_stream z{};
    if (inflateInit2(&z, -15) != Z_OK)
        throw CompressionError("The inflate coder could not be made.");
    z.next_in = raw.data();
    z.avail_in = unsigned(raw.size());
    std::size_t headerByte = 0;
    int headerBit = 0, unused = -1;
    std::uint8_t sink[1 << 16];
    for (;;) {
        z.next_out = sink;
        z.avail_out = sizeof sink;
        const int result = inflate(&z, Z_BLOCK);
        if (result == Z_STREAM_END) break;
        if (result != Z_OK) {
            inflateEnd(&z);
            throw CompressionError("A deflate part could not be read back.");
        }
        if (z.data_type & 128) { // at a block boundary
            const int u = z.data_type & 7;
            if (z.data_type & 64) { // after the final block: only padding is left
                unused = u;
                continue;
            }
            // The next block's header starts here.
            const std::size_t consumed = std::size_t(z.next_in - raw.data());
            headerByte = u > 0 ? consumed - 1 : consumed;
            headerBit = u > 0 ? 8 - u : 0;
        }
    }
    const bool whole = z.next_in == raw.data() + raw.size();
    inflateEnd(&z);
    if (!whole || unused < 0) throw CompressionError("A deflate part did not end as expected.");
    raw[headerByte] &= std::uint8_t(~(1u << headerBit));
    // The empty stored block: three zero header bits, zero padding to the byte, LEN 0, NLEN ~0.
    raw.back() &= std::uint8_t((1u << (8 - unused)) - 1);
    if (unused < 3) raw.push_back(0);
    raw.insert(raw.end(), {0x00, 0x00, 0xFF, 0xFF});
}

// Planes are deflated in parts of this size on separate threads; the window restarts at each
// part, which costs well under a percent of size at this length.
constexpr std::size_t kPartSize = std::size_t(8) << 20;

} // namespace

std::vector<std::uint8_t> zipCompressed(std::span<const std::uint8_t> in) {
    const std::size_t parts = std::max<std::size_t>(1, in.size() / kPartSize);
    if (parts == 1) return deflated(in, Wrapping::zlib);
    // One zlib stream made of parts deflated in parallel (as parallel gzip does): every part
    // but the last continues into the next; the checksum covers the whole plane.
    std::vector<std::vector<std::uint8_t>> coded(parts);
    std::vector<std::exception_ptr> failures(parts);
    tbb::parallel_for(std::size_t(0), parts, [&](std::size_t i) {
        const std::size_t begin = i * in.size() / parts, end = (i + 1) * in.size() / parts;
        try {
            coded[i] = deflated(in.subspan(begin, end - begin), Wrapping::raw);
            if (i + 1 < parts) makeContinuable(coded[i]);
        } catch (...) {
            failures[i] = std::current_exception();
        }
    });
    for (const auto& failure : failures)
        if (failure) std::rethrow_exception(failure);
    std::size_t total = 2 + 4;
    for (const auto& part : coded)
        total += part.size();
    std::vector<std::uint8_t> out;
    out.reserve(total);
    out.insert(out.end(), {0x78, 0x9C}); // deflate, 32 KB window, default level
    for (const auto& part : coded)
        out.insert(out.end(), part.begin(), part.end());
    const std::uint32_t adler = libdeflate_adler32(1, in.data(), in.size());
    for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(std::uint8_t(adler >> shift));
    return out;
}

namespace {
libdeflate_decompressor& decompressor() {
    thread_local std::unique_ptr<libdeflate_decompressor, DecompressorFree> d(
        libdeflate_alloc_decompressor());
    if (!d) throw CompressionError("The inflate coder could not be made.");
    return *d;
}
} // namespace

std::vector<std::uint8_t> zipUncompressedUpTo(std::span<const std::uint8_t> in, std::size_t limit) {
    // libdeflate wants the whole output at once: start at four times the input and double.
    std::size_t capacity = std::min(limit, std::max<std::size_t>(4096, in.size() * 4));
    for (;;) {
        std::vector<std::uint8_t> out(capacity);
        std::size_t actual = 0;
        const auto result = libdeflate_zlib_decompress(&decompressor(), in.data(), in.size(),
                                                       out.data(), out.size(), &actual);
        if (result == LIBDEFLATE_SUCCESS) {
            out.resize(actual);
            return out;
        }
        if (result != LIBDEFLATE_INSUFFICIENT_SPACE || capacity >= limit)
            throw CompressionError("The zip data is corrupt or decodes to more than allowed.");
        capacity = capacity > limit / 2 ? limit : capacity * 2;
    }
}

void zipUncompressInto(std::span<const std::uint8_t> in, std::span<std::uint8_t> out) {
    std::size_t actual = 0;
    const auto result = libdeflate_zlib_decompress(&decompressor(), in.data(), in.size(),
                                                   out.data(), out.size(), &actual);
    if (result != LIBDEFLATE_SUCCESS || actual != out.size())
        throw CompressionError("The zip data is corrupt or does not decode to the plane's size.");
}

std::vector<std::uint8_t> zipUncompressed(std::span<const std::uint8_t> in,
                                          std::size_t uncompressedSize) {
    std::vector<std::uint8_t> out = zeroedBuffer(uncompressedSize);
    zipUncompressInto(in, out);
    return out;
}

} // namespace bic::coding
