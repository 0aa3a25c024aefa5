#include "bic/platform/ns/image.hpp"

#include <cmath>
#include <cstring>
#include <tiffio.h>

namespace bic::ns {

namespace {

thread_local cg::Context* currentContext = nullptr;

// A growable buffer that libtiff writes into through its client procedures.
struct MemoryFile {
    std::vector<std::uint8_t> bytes;
    std::uint64_t position = 0;

    static tmsize_t read(thandle_t, void*, tmsize_t) { return 0; }
    static tmsize_t write(thandle_t h, void* data, tmsize_t size) {
        auto& f = *static_cast<MemoryFile*>(h);
        const std::uint64_t end = f.position + std::uint64_t(size);
        if (end > f.bytes.size()) f.bytes.resize(end);
        std::memcpy(f.bytes.data() + f.position, data, std::size_t(size));
        f.position = end;
        return size;
    }
    static toff_t seek(thandle_t h, toff_t offset, int whence) {
        auto& f = *static_cast<MemoryFile*>(h);
        const std::uint64_t base =
            whence == SEEK_SET ? 0 : (whence == SEEK_CUR ? f.position : f.bytes.size());
        f.position = base + offset;
        return f.position;
    }
    static int close(thandle_t) { return 0; }
    static toff_t size(thandle_t h) { return static_cast<MemoryFile*>(h)->bytes.size(); }
    static int map(thandle_t, void**, toff_t*) { return 0; }
    static void unmap(thandle_t, void*, toff_t) {}
};

// libtiff reports problems through process-wide handlers; a failed call is all we need.
void silent(const char*, const char*, va_list) {}

std::optional<std::vector<std::uint8_t>> tiff(const std::uint8_t* rgba, std::uint32_t width,
                                              std::uint32_t height, std::size_t rowBytes) {
    TIFFSetErrorHandler(silent);
    TIFFSetWarningHandler(silent);
    MemoryFile file;
    TIFF* t =
        TIFFClientOpen("memory", "w", &file, MemoryFile::read, MemoryFile::write, MemoryFile::seek,
                       MemoryFile::close, MemoryFile::size, MemoryFile::map, MemoryFile::unmap);
    if (!t) return std::nullopt;
    const std::uint16_t extra[] = {EXTRASAMPLE_ASSOCALPHA};
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, std::uint16_t(8));
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, std::uint16_t(4));
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, extra);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
    bool ok = true;
    for (std::uint32_t y = 0; y < height && ok; ++y)
        ok = TIFFWriteScanline(t, const_cast<std::uint8_t*>(rgba + y * rowBytes), y, 0) >= 0;
    ok = ok && TIFFFlush(t);
    TIFFClose(t);
    if (!ok) return std::nullopt;
    return std::move(file.bytes);
}

} // namespace

cg::Context* GraphicsContext::current() { return currentContext; }

GraphicsContext::Scope::Scope(cg::Context& context) : previous_(currentContext) {
    currentContext = &context;
}

GraphicsContext::Scope::~Scope() { currentContext = previous_; }

std::optional<std::vector<std::uint8_t>> Image::tiffRepresentation() const {
    const double w = std::floor(size_.width), h = std::floor(size_.height);
    if (!(w >= 1 && h >= 1 && w <= 65535 && h <= 65535)) return std::nullopt;
    const auto width = std::int64_t(w), height = std::int64_t(h);
    auto context =
        cg::Context::bitmap(nullptr, width, height, 8, width * 4, cg::ColorSpace::deviceRGB(),
                            cg::bitmap::alphaPremultipliedLast);
    if (!context) return std::nullopt;
    if (flipped_) {
        context->translateBy(0, h);
        context->scaleBy(1, -1);
    }
    {
        GraphicsContext::Scope scope(*context);
        if (!handler_ || !handler_({0, 0, size_.width, size_.height})) return std::nullopt;
    }
    return tiff(context->data(), std::uint32_t(width), std::uint32_t(height),
                std::size_t(context->bytesPerRow()));
}

} // namespace bic::ns
