// Layered documents: reading and compositing (a) the 164-layer grey blend-mode document of the
// test files and (b) a generated 4096 × 4096, 24-layer RGB document with masks and two groups,
// written by the library. Peers in the same run: ImageMagick reading and flattening the same file
// (a process of its own, as users run it), and libdeflate inflating as many bytes as the
// document's channels hold into one buffer it reuses (the floor for reading them). Reads are
// timed as an editor repeats them, in memory the process holds already, and into fresh memory
// as the first document a process opens. Composite speed is reported in
// megapixel-layers per second.

#include "bic/documents/document_composition.hpp"
#include "bic/platform/core/memory.hpp"
#include "common/synthetic_document.hpp"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <libdeflate.h>
#include <stdexcept>

using namespace bic;

namespace {

constexpr std::int64_t side = 4096;
constexpr int generatedLayers = 24;

struct Subject {
    std::filesystem::path path;
    std::vector<std::uint8_t> bytes;
    LayeredDocument document;
    std::int64_t pixelLayers = 0;
    std::size_t channelBytes = 0;
};

std::vector<std::uint8_t> readAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void measure(Subject& s) {
    s.document = LayeredDocument::read(s.bytes);
    s.document.walk([&](std::size_t, int, const DocumentLayer& layer) {
        if (layer.isGroup()) return;
        s.pixelLayers += s.document.width * s.document.height;
        for (const auto& c : layer.channels)
            s.channelBytes += c.plane.bytes().size();
    });
}

const Subject& generated() {
    static const Subject subject = [] {
        Subject s;
        LayeredDocument doc = synthetic::layeredDocument(side, side, generatedLayers);
        DocumentWriteOptions options;
        options.composite = DocumentComposition(doc).renderForFile();
        options.compositeIsRealMergedData = true;
        s.path = std::filesystem::temp_directory_path() / "bic-bench-generated.psd";
        doc.write(s.path, options);
        s.bytes = readAll(s.path);
        measure(s);
        return s;
    }();
    return subject;
}

const Subject& greyModes() {
    static const Subject subject = [] {
        Subject s;
        s.path = std::filesystem::path(BIC_TEST_PSD) / "blend/gray-blend-modes.psd";
        s.bytes = readAll(s.path);
        if (s.bytes.empty()) throw std::runtime_error("missing " + s.path.string());
        measure(s);
        return s;
    }();
    return subject;
}

void Read(benchmark::State& state, const Subject& (*subject)()) {
    const Subject& s = subject();
    for (auto _ : state) {
        LayeredDocument doc = LayeredDocument::read(s.bytes);
        benchmark::DoNotOptimize(&doc);
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(s.bytes.size()));
}

// The same read with every plane's memory fresh from the system, as for the first document a
// process opens: the kernel clears each page before the decoder writes it.
void ReadIntoFreshMemory(benchmark::State& state, const Subject& (*subject)()) {
    const Subject& s = subject();
    for (auto _ : state) {
        state.PauseTiming();
        releaseRecycledMemory();
        state.ResumeTiming();
        LayeredDocument doc = LayeredDocument::read(s.bytes);
        benchmark::DoNotOptimize(&doc);
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t(s.bytes.size()));
}

// The floor: inflating as many bytes as the channels hold, deflated at the default level.
void InflateFloor(benchmark::State& state, const Subject& (*subject)()) {
    const Subject& s = subject();
    std::vector<std::uint8_t> raw;
    raw.reserve(s.channelBytes);
    s.document.walk([&](std::size_t, int, const DocumentLayer& layer) {
        for (const auto& c : layer.channels)
            raw.insert(raw.end(), c.plane.bytes().begin(), c.plane.bytes().end());
    });
    libdeflate_compressor* compressor = libdeflate_alloc_compressor(6);
    std::vector<std::uint8_t> packed(libdeflate_zlib_compress_bound(compressor, raw.size()));
    packed.resize(
        libdeflate_zlib_compress(compressor, raw.data(), raw.size(), packed.data(), packed.size()));
    libdeflate_free_compressor(compressor);
    libdeflate_decompressor* decompressor = libdeflate_alloc_decompressor();
    std::vector<std::uint8_t> out(raw.size());
    for (auto _ : state) {
        std::size_t got = 0;
        if (libdeflate_zlib_decompress(decompressor, packed.data(), packed.size(), out.data(),
                                       out.size(), &got) != LIBDEFLATE_SUCCESS)
            state.SkipWithError("inflate failed");
        benchmark::DoNotOptimize(out.data());
    }
    libdeflate_free_decompressor(decompressor);
}

void Composite(benchmark::State& state, const Subject& (*subject)()) {
    const Subject& s = subject();
    for (auto _ : state) {
        const auto planes = DocumentComposition(s.document).render();
        benchmark::DoNotOptimize(planes.data());
    }
    state.counters["Mpx-layers/s"] = benchmark::Counter(
        double(s.pixelLayers) / 1e6, benchmark::Counter::kIsIterationInvariantRate);
}

void OpenAndComposite(benchmark::State& state, const Subject& (*subject)()) {
    const Subject& s = subject();
    for (auto _ : state) {
        const LayeredDocument doc = LayeredDocument::read(s.path);
        const auto planes = DocumentComposition(doc).render();
        benchmark::DoNotOptimize(planes.data());
    }
}

void ImageMagickFlatten(benchmark::State& state, const Subject& (*subject)()) {
    const Subject& s = subject();
    const char* convert = "/usr/bin/convert";
    if (!std::filesystem::exists(convert)) {
        state.SkipWithError("ImageMagick is not installed");
        return;
    }
    // Debian's resource policy caps ImageMagick at 128 megapixels and 256 MiB, which refuses
    // the generated document; a policy of its own (read from MAGICK_CONFIGURE_PATH) lifts it.
    const auto policyFolder = std::filesystem::temp_directory_path() / "bic-bench-magick";
    std::filesystem::create_directories(policyFolder);
    std::ofstream(policyFolder / "policy.xml")
        << "<policymap>\n"
           "  <policy domain=\"resource\" name=\"memory\" value=\"16GiB\"/>\n"
           "  <policy domain=\"resource\" name=\"map\" value=\"16GiB\"/>\n"
           "  <policy domain=\"resource\" name=\"width\" value=\"64KP\"/>\n"
           "  <policy domain=\"resource\" name=\"height\" value=\"64KP\"/>\n"
           "  <policy domain=\"resource\" name=\"area\" value=\"4GP\"/>\n"
           "  <policy domain=\"resource\" name=\"disk\" value=\"32GiB\"/>\n"
           "</policymap>\n";
    // Flattened into the null sink: the read and the flatten, no encoding.
    const std::string command = "MAGICK_CONFIGURE_PATH='" + policyFolder.string() + "' " +
                                std::string(convert) + " '" + s.path.string() +
                                "' -flatten null: 2>/dev/null";
    for (auto _ : state)
        if (std::system(command.c_str()) != 0) state.SkipWithError("convert failed");
}

} // namespace

BENCHMARK_CAPTURE(Read, generated, generated)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ReadIntoFreshMemory, generated, generated)
    ->Name("Read/generated/fresh memory")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(InflateFloor, generated, generated)
    ->Name("Read/generated/peer:inflate floor")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Composite, generated, generated)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK_CAPTURE(OpenAndComposite, generated, generated)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2);
BENCHMARK_CAPTURE(ImageMagickFlatten, generated, generated)
    ->Name("OpenAndComposite/generated/peer:ImageMagick")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

BENCHMARK_CAPTURE(Read, greyModes, greyModes)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(InflateFloor, greyModes, greyModes)
    ->Name("Read/greyModes/peer:inflate floor")
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Composite, greyModes, greyModes)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(OpenAndComposite, greyModes, greyModes)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(ImageMagickFlatten, greyModes, greyModes)
    ->Name("OpenAndComposite/greyModes/peer:ImageMagick")
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
