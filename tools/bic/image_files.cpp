#include "image_files.hpp"

#include "commands.hpp"

namespace bic::tool {

namespace {

struct Settings {
    bool toSRGB = false;
    bool asStored = false;
    int quality = 90;
    bool lossless = false;
};

Settings& settings() {
    static Settings s;
    return s;
}

files::WriteOptions writeOptions(std::optional<std::vector<std::uint8_t>> profile) {
    files::WriteOptions options;
    options.quality = settings().quality;
    options.lossless = settings().lossless;
    options.iccProfile = std::move(profile);
    return options;
}

// The library's error as the tool's one line, naming the file unless the message does.
template <class F>
auto naming(const std::filesystem::path& path, F&& call) {
    try {
        return call();
    } catch (const files::ImageFileError& e) {
        if (e.kind() == files::ImageFileError::Kind::io) throw CommandError(e.what());
        throw CommandError(path.string() + ": " + e.what());
    }
}

} // namespace

void addImageFileOptions(CLI::App& app) {
    Settings& s = settings();
    app.add_flag("--to-srgb", s.toSRGB, "match images read to sRGB from their embedded profiles");
    app.add_flag("--as-stored", s.asStored,
                 "keep images read as stored instead of turning them by their orientation");
    app.add_option("--quality", s.quality, "JPEG and lossy WebP output quality, 1…100 (90)")
        ->check(CLI::Range(1, 100));
    app.add_flag("--lossless", s.lossless, "write WebP output lossless");
    // The options may follow the command's own: commands hand what they do not know up here.
    app.fallthrough();
}

files::ImageFile readImage(const std::filesystem::path& path) {
    files::ReadOptions options;
    options.applyOrientation = !settings().asStored;
    options.convertToSRGB = settings().toSRGB;
    return naming(path, [&] { return files::readImageFile(path, options); });
}

PixelBufferType readImageFile(const std::filesystem::path& path) { return readImage(path).buffer; }

void writeImageFile(const PixelBufferType& buffer, const std::filesystem::path& path,
                    std::optional<std::vector<std::uint8_t>> profile) {
    naming(path,
           [&] { return files::writeImageFile(buffer, path, writeOptions(std::move(profile))); });
}

void writeImageFile(const files::StraightImage& image, const std::filesystem::path& path,
                    std::optional<std::vector<std::uint8_t>> profile) {
    naming(path,
           [&] { return files::writeImageFile(image, path, writeOptions(std::move(profile))); });
}

void writeStraightPNG(std::int64_t width, std::int64_t height, int depth,
                      std::vector<std::uint8_t> samples, const std::filesystem::path& path) {
    files::WriteOptions options = writeOptions(std::nullopt);
    options.format = files::ImageFileFormat::png;
    naming(path, [&] {
        return files::writeImageFile(
            files::StraightImage{width, height, 4, depth, std::move(samples)}, path, options);
    });
}

} // namespace bic::tool
