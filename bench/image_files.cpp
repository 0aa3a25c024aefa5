// Image files: a 24-megapixel (6000 × 4000) photo-like picture decoded from and encoded to JPEG
// (quality 90, 4:2:0) and PNG (deflate level 6, libpng's adaptive row filters), against libvips
// reading and writing the same bytes with the same settings in the same run. Both sit on the same
// libjpeg-turbo and libpng, so the ratio measures what each adds around them: copies, colour
// conversions, alpha. Ours decodes into a premultiplied ARGB8 buffer and encodes from it;
// libvips decodes into its own RGB image (sequential access, its fastest path) and encodes from
// an RGB image in memory, at its default thread count.
//
// Target: every ratio at most 1.2.

#include "bic/files/image_file.hpp"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#if BIC_HAVE_VIPS
#include <vips/vips.h>
#endif

namespace {

using namespace bic;

constexpr std::int64_t kWidth = 6000, kHeight = 4000;
constexpr int kQuality = 90;
constexpr int kCompression = 6;

// Straight RGB rows, top first: soft gradients and shapes with a little sensor-like noise, so
// that both codecs meet the detail of a photo rather than flat colour or pure noise.
const std::vector<std::uint8_t>& photoRGB() {
    static const std::vector<std::uint8_t> rgb = [] {
        std::vector<std::uint8_t> out(std::size_t(kWidth * kHeight * 3));
        std::mt19937 random(7);
        for (std::int64_t y = 0; y < kHeight; ++y)
            for (std::int64_t x = 0; x < kWidth; ++x) {
                const double u = double(x) / kWidth, v = double(y) / kHeight;
                const double ring = 0.5 + 0.5 * std::sin(40 * std::hypot(u - 0.4, v - 0.6));
                const double base[3] = {200 * u + 40 * ring, 160 * v + 60 * (1 - ring),
                                        120 + 100 * std::sin(6 * u + 3 * v)};
                std::uint8_t* p = &out[std::size_t((y * kWidth + x) * 3)];
                for (int c = 0; c < 3; ++c)
                    p[c] = std::uint8_t(std::clamp(base[c] + double(random() % 9) - 4, 0.0, 255.0));
            }
        return out;
    }();
    return rgb;
}

files::StraightImage photo() {
    files::StraightImage image{kWidth, kHeight, 4, 8, {}};
    const auto& rgb = photoRGB();
    image.samples.resize(std::size_t(kWidth * kHeight * 4));
    for (std::size_t i = 0, n = std::size_t(kWidth * kHeight); i < n; ++i) {
        image.samples[4 * i] = rgb[3 * i];
        image.samples[4 * i + 1] = rgb[3 * i + 1];
        image.samples[4 * i + 2] = rgb[3 * i + 2];
        image.samples[4 * i + 3] = 255;
    }
    return image;
}

files::WriteOptions settings(files::ImageFileFormat format) {
    files::WriteOptions options;
    options.format = format;
    options.quality = kQuality;
    options.compressionLevel = kCompression;
    return options;
}

// The file both sides read, written once.
const std::vector<std::uint8_t>& fileBytes(files::ImageFileFormat format) {
    static std::vector<std::uint8_t> written[4];
    auto& bytes = written[int(format)];
    if (bytes.empty()) bytes = files::encodeImageFile(photo(), settings(format));
    return bytes;
}

void counters(benchmark::State& state, const std::string& label) {
    state.counters["Mpx/s"] = benchmark::Counter(
        double(kWidth * kHeight) / 1e6 * double(state.iterations()), benchmark::Counter::kIsRate);
    state.SetLabel(label);
}

void Decode(benchmark::State& state, files::ImageFileFormat format) {
    const auto& bytes = fileBytes(format);
    for (auto _ : state) {
        const files::ImageFile file = files::readImageFile(bytes);
        benchmark::DoNotOptimize(&file);
    }
    counters(state, std::to_string(bytes.size() / 1024) + " KB file");
}

void Encode(benchmark::State& state, files::ImageFileFormat format) {
    const PixelBufferType buffer = files::readImageFile(fileBytes(format)).buffer;
    std::size_t size = 0;
    for (auto _ : state) {
        const auto bytes = files::encodeImageFile(buffer, settings(format));
        size = bytes.size();
        benchmark::DoNotOptimize(bytes.data());
    }
    counters(state, std::to_string(size / 1024) + " KB file");
}

#if BIC_HAVE_VIPS
void startVips() {
    static const bool started = [] {
        vips_init("bench");
        vips_cache_set_max(0);
        return true;
    }();
    (void)started;
}

void VipsDecode(benchmark::State& state, files::ImageFileFormat format) {
    startVips();
    const auto& bytes = fileBytes(format);
    for (auto _ : state) {
        VipsImage* image = vips_image_new_from_buffer(bytes.data(), bytes.size(), "", "access",
                                                      VIPS_ACCESS_SEQUENTIAL, nullptr);
        std::size_t size = 0;
        void* pixels = image ? vips_image_write_to_memory(image, &size) : nullptr;
        if (!pixels) state.SkipWithError(vips_error_buffer());
        benchmark::DoNotOptimize(pixels);
        g_free(pixels);
        if (image) g_object_unref(image);
    }
    counters(state, std::string("libvips ") + vips_version_string());
}

void VipsEncode(benchmark::State& state, files::ImageFileFormat format) {
    startVips();
    const auto& rgb = photoRGB();
    for (auto _ : state) {
        VipsImage* image = vips_image_new_from_memory(rgb.data(), rgb.size(), int(kWidth),
                                                      int(kHeight), 3, VIPS_FORMAT_UCHAR);
        void* out = nullptr;
        std::size_t size = 0;
        const int failed =
            format == files::ImageFileFormat::jpeg
                ? vips_jpegsave_buffer(image, &out, &size, "Q", kQuality, "subsample_mode",
                                       VIPS_FOREIGN_SUBSAMPLE_ON, nullptr)
                : vips_pngsave_buffer(image, &out, &size, "compression", kCompression, "filter",
                                      VIPS_FOREIGN_PNG_FILTER_ALL, nullptr);
        if (failed) state.SkipWithError(vips_error_buffer());
        benchmark::DoNotOptimize(out);
        g_free(out);
        g_object_unref(image);
    }
    counters(state, std::string("libvips ") + vips_version_string());
}
#endif

const bool registered = [] {
    for (const auto format : {files::ImageFileFormat::jpeg, files::ImageFileFormat::png}) {
        const std::string kind = format == files::ImageFileFormat::jpeg ? "jpeg" : "png";
        for (const bool decode : {true, false}) {
            const std::string name = (decode ? "decode_24mp_" : "encode_24mp_") + kind;
            benchmark::RegisterBenchmark(
                name.c_str(),
                [=](benchmark::State& s) { decode ? Decode(s, format) : Encode(s, format); })
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
#if BIC_HAVE_VIPS
            benchmark::RegisterBenchmark((name + "/peer:libvips").c_str(),
                                         [=](benchmark::State& s) {
                                             decode ? VipsDecode(s, format) : VipsEncode(s, format);
                                         })
                ->Unit(benchmark::kMillisecond)
                ->UseRealTime();
#endif
        }
    }
    return true;
}();

} // namespace
