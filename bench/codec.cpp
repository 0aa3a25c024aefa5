// Stored records against PNG: a 4096 × 4096 photo-like buffer encoded to its record and decoded
// back, with libpng writing and reading the same pixels at its default settings in the same run,
// and a plain memcpy of the pixels for scale. Sizes are reported as the "bytes" counter.

#include "bic/buffers/pixel_buffer_record.hpp"
#include "bic/platform/coding/compression.hpp"
#include "common/synthetic_images.hpp"

#include <benchmark/benchmark.h>
#include <cstring>
#include <png.h>
#include <stdexcept>

using namespace bic;

namespace {

constexpr std::int64_t side = 4096;

template <Pixel P>
const PixelBuffer<P>& photo() {
    static const PixelBuffer<P> buffer = synthetic::photoLike<P>(side, side);
    return buffer;
}

coding::Value recordOf(const PixelBufferType& buffer) {
    coding::Value root;
    coding::Encoder encoder(root, {});
    encode(buffer, encoder);
    return root;
}

std::size_t storedBytes(const coding::Value& record) {
    std::size_t total = 0;
    for (const auto& plane : *record.find("Channels")->get<coding::Array>())
        total += plane.find("Data")->get<coding::Data>()->size();
    return total;
}

template <Pixel P>
void EncodeRecord(benchmark::State& state) {
    const PixelBufferType buffer = photo<P>();
    std::size_t bytes = 0;
    for (auto _ : state) {
        const coding::Value record = recordOf(buffer);
        bytes = storedBytes(record);
        benchmark::DoNotOptimize(bytes);
    }
    state.counters["bytes"] = double(bytes);
    state.SetBytesProcessed(state.iterations() * side * side * std::int64_t(sizeof(P)));
}

template <Pixel P>
void DecodeRecord(benchmark::State& state) {
    const coding::Value record = recordOf(PixelBufferType(photo<P>()));
    for (auto _ : state) {
        const auto decoded = coding::decode<PixelBufferDecoder>(record);
        benchmark::DoNotOptimize(&decoded);
    }
    state.SetBytesProcessed(state.iterations() * side * side * std::int64_t(sizeof(P)));
}

template <Pixel P>
void Memcpy(benchmark::State& state) {
    const auto& buffer = photo<P>();
    const std::size_t size = std::size_t(buffer.bytesPerRow() * side);
    std::vector<std::uint8_t> to(size);
    buffer.withUnsafeBuffer([&](std::span<const P> from) {
        for (auto _ : state) {
            std::memcpy(to.data(), from.data(), size);
            benchmark::ClobberMemory();
        }
    });
    state.SetBytesProcessed(state.iterations() * std::int64_t(size));
}

// ---- libpng, reading and writing memory ----

// PNG holds straight colour, big-endian: the rows libpng is given are prepared once, untimed.
template <Pixel P>
std::vector<std::uint8_t> straightRows() {
    using T = typename P::ComponentType;
    const auto& buffer = photo<P>();
    std::vector<std::uint8_t> rows(std::size_t(side * side) * sizeof(P));
    T* out = reinterpret_cast<T*>(rows.data());
    buffer.withUnsafeBuffer([&](std::span<const P> pixels) {
        for (std::int64_t y = 0; y < side; ++y)
            for (std::int64_t x = 0; x < side; ++x, out += 4) {
                const P& p = pixels[std::size_t(y * buffer.pixelsPerRow() + x)];
                const float a = p.alpha(), k = a > 0 ? 1 / a : 0;
                const P s = P::withRGBA(p.red() * k, p.green() * k, p.blue() * k, a);
                out[0] = s.redComponent, out[1] = s.greenComponent, out[2] = s.blueComponent,
                out[3] = s.alphaComponent;
            }
    });
    return rows;
}

[[noreturn]] void pngError(png_structp, png_const_charp message) {
    throw std::runtime_error(message);
}

std::vector<std::uint8_t> writePNG(const std::vector<std::uint8_t>& rows, int depth) {
    std::vector<std::uint8_t> out;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, pngError, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(
        png, &out,
        [](png_structp p, png_bytep data, png_size_t n) {
            auto* v = static_cast<std::vector<std::uint8_t>*>(png_get_io_ptr(p));
            v->insert(v->end(), data, data + n);
        },
        nullptr);
    png_set_IHDR(png, info, side, side, depth, PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (depth == 16) png_set_swap(png);
    const std::size_t rowBytes = std::size_t(side) * 4 * std::size_t(depth / 8);
    for (std::int64_t y = 0; y < side; ++y)
        png_write_row(png, rows.data() + std::size_t(y) * rowBytes);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return out;
}

std::vector<std::uint8_t> readPNG(const std::vector<std::uint8_t>& file) {
    struct Reader {
        const std::vector<std::uint8_t>* file;
        std::size_t at = 0;
    } reader{&file};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, pngError, nullptr);
    png_infop info = png_create_info_struct(png);
    png_set_read_fn(png, &reader, [](png_structp p, png_bytep data, png_size_t n) {
        auto* r = static_cast<Reader*>(png_get_io_ptr(p));
        if (r->at + n > r->file->size()) png_error(p, "read past the end");
        std::memcpy(data, r->file->data() + r->at, n);
        r->at += n;
    });
    png_read_info(png, info);
    if (png_get_bit_depth(png, info) == 16) png_set_swap(png);
    png_read_update_info(png, info);
    const std::size_t rowBytes = png_get_rowbytes(png, info);
    std::vector<std::uint8_t> pixels(rowBytes * side);
    for (std::int64_t y = 0; y < side; ++y)
        png_read_row(png, pixels.data() + std::size_t(y) * rowBytes, nullptr);
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);
    return pixels;
}

template <Pixel P>
void PngEncode(benchmark::State& state) {
    const auto rows = straightRows<P>();
    std::size_t bytes = 0;
    for (auto _ : state)
        bytes = writePNG(rows, P::bitDepth).size();
    state.counters["bytes"] = double(bytes);
    state.SetBytesProcessed(state.iterations() * side * side * std::int64_t(sizeof(P)));
}

template <Pixel P>
void PngDecode(benchmark::State& state) {
    const auto file = writePNG(straightRows<P>(), P::bitDepth);
    for (auto _ : state) {
        const auto pixels = readPNG(file);
        benchmark::DoNotOptimize(pixels.data());
    }
    state.SetBytesProcessed(state.iterations() * side * side * std::int64_t(sizeof(P)));
}

// ---- PackBits ----

void PackBitsDecode(benchmark::State& state) {
    const auto planes = photo<PixelARGB8>().compressedChannels(
        false, ChannelDataCompressionType::rle, PredictionType::none, false);
    const auto& red = std::get<ChannelData<std::uint8_t>>(planes[0]);
    for (auto _ : state) {
        state.PauseTiming();
        auto plane = red;
        state.ResumeTiming();
        plane.decompress(side, side);
        benchmark::DoNotOptimize(plane.data.data());
    }
    state.counters["bytes"] = double(red.data.size());
    state.SetBytesProcessed(state.iterations() * side * side);
}

void Deflate8BitPlane(benchmark::State& state) {
    const auto planes = photo<PixelARGB8>().compressedChannels(
        false, ChannelDataCompressionType::none, PredictionType::sub, false);
    const auto& red = std::get<ChannelData<std::uint8_t>>(planes[0]);
    for (auto _ : state)
        benchmark::DoNotOptimize(coding::zipCompressed(red.data).data());
    state.SetBytesProcessed(state.iterations() * side * side);
}

#define CODEC_BENCH(fn, name)                                                                      \
    BENCHMARK(fn)->Name(name)->Unit(benchmark::kMillisecond)->UseRealTime()
// Decoders run at least five times each, ours and the peer alike: a single run of a large
// decode mostly measures the first touch of fresh pages, which an editor that opens documents
// repeatedly pays once.
#define DECODE_BENCH(fn, name) CODEC_BENCH(fn, name)->MinTime(2.0)

CODEC_BENCH(EncodeRecord<PixelARGB8>, "encode_record_rgba8");
CODEC_BENCH(PngEncode<PixelARGB8>, "encode_record_rgba8/peer:libpng")->Iterations(1);
CODEC_BENCH(Memcpy<PixelARGB8>, "encode_record_rgba8/peer:memcpy");
DECODE_BENCH(DecodeRecord<PixelARGB8>, "decode_record_rgba8");
DECODE_BENCH(PngDecode<PixelARGB8>, "decode_record_rgba8/peer:libpng");
CODEC_BENCH(Memcpy<PixelARGB8>, "decode_record_rgba8/peer:memcpy");

CODEC_BENCH(EncodeRecord<PixelRGBA16>, "encode_record_rgba16");
CODEC_BENCH(PngEncode<PixelRGBA16>, "encode_record_rgba16/peer:libpng")->Iterations(1);
CODEC_BENCH(Memcpy<PixelRGBA16>, "encode_record_rgba16/peer:memcpy");
DECODE_BENCH(DecodeRecord<PixelRGBA16>, "decode_record_rgba16");
DECODE_BENCH(PngDecode<PixelRGBA16>, "decode_record_rgba16/peer:libpng");
CODEC_BENCH(Memcpy<PixelRGBA16>, "decode_record_rgba16/peer:memcpy");

CODEC_BENCH(EncodeRecord<PixelRGBA32>, "encode_record_rgbaf");
CODEC_BENCH(Memcpy<PixelRGBA32>, "encode_record_rgbaf/peer:memcpy");
DECODE_BENCH(DecodeRecord<PixelRGBA32>, "decode_record_rgbaf");
CODEC_BENCH(Memcpy<PixelRGBA32>, "decode_record_rgbaf/peer:memcpy");

CODEC_BENCH(PackBitsDecode, "packbits_decode_plane8");
CODEC_BENCH(Deflate8BitPlane, "deflate_plane8_level6");

} // namespace
