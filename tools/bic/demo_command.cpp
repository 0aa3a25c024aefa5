#include "bic/accumulators/memory_image_accumulator.hpp"
#include "bic/buffers/pixel_buffer_record.hpp"
#include "bic/graph/async_image_cache_node.hpp"
#include "bic/pixels/color_value_formatting.hpp"
#include "bic/platform/coding/formats.hpp"
#include "commands.hpp"
#include "common/synthetic_images.hpp"
#include "image_files.hpp"

#include <filesystem>
#include <fmt/format.h>
#include <fstream>

namespace bic::tool {

namespace {

void writeFile(const std::filesystem::path& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    if (!out) throw CommandError("cannot write " + path.string());
}

// Colours: a hue sweep through every named conversion, written as a record of the pixels.
void colorSection(const std::filesystem::path& dir) {
    fmt::print("== colours ==\n");
    std::vector<PixelRGBA32> sweep;
    for (int i = 0; i < 12; ++i)
        sweep.push_back(PixelRGBA32::withHSV(i * 30.0f, 0.8f, 0.9f));
    const auto eight = ColorValueFormattingType(ColorValueFormattingType::bitLevel8).formatter();
    const auto percent = ColorValueFormattingType(ColorValueFormattingType::percent).formatter();
    for (const auto& c : sweep) {
        const auto lab = c.psdLabComponents(cg::ColorSpace::sRGB());
        fmt::print("  #{}  hue {:6.1f}  luminosity {:.3f}  red {:>3} ({:>4})  Lab {:6.2f} {:7.2f} "
                   "{:7.2f}\n",
                   c.hexValue(), c.hue().value_or(0), c.luminosity(),
                   eight->stringForObjectValue(double(c.red())).value_or("?"),
                   percent->stringForObjectValue(double(c.red())).value_or("?"), (*lab)[0],
                   (*lab)[1], (*lab)[2]);
    }
    const auto p3 = sweep[0].converted(cg::ColorSpace::sRGB(), cg::ColorSpace::displayP3(),
                                       cg::RenderingIntent::relativeColorimetric);
    fmt::print("  #{} in Display P3: {}\n", sweep[0].hexValue(), p3.stringRepresentation());
    writeFile(dir / "colors.json", coding::encodeJSON(sweep, true) + "\n");
    const auto plist = coding::encodePropertyList(sweep, coding::PropertyListFormat::xml);
    writeFile(dir / "colors.plist", std::string(plist.begin(), plist.end()));
    fmt::print("  wrote {} and {}\n", (dir / "colors.json").string(),
               (dir / "colors.plist").string());
}

std::string depthName(const PixelBufferType& b) {
    return std::visit([](const auto& x) { return std::to_string(x.bitDepth); }, b);
}

// Bitmaps: a generated photograph stored as records at every depth, read back and checked, and
// written out as images; a surface-backed copy cropped; a grey version made by model and depth.
void bitmapSection(const std::filesystem::path& dir) {
    fmt::print("== bitmaps and records ==\n");
    const PixelBufferType photo = synthetic::photoLike<PixelARGB8>(640, 480);
    writeImageFile(photo, dir / "photo.png");
    fmt::print("  generated a 640 × 480 photo-like picture: {}\n", (dir / "photo.png").string());
    const PixelBufferType grey = PixelBufferFactory::make(
        cg::ColorSpaceModel::monochrome, 8, std::get<PixelBuffer<PixelARGB8>>(photo).cgImage(),
        cg::ColorSpace::deviceGray(), "grey");
    for (const PixelBufferType& buffer :
         {photo, converted(photo, 16), converted(photo, 32), grey}) {
        coding::Value record;
        coding::Encoder encoder(record, {});
        encode(buffer, encoder);
        const bool isGrey = buffer.index() == grey.index();
        const std::string name = "photo-" + (isGrey ? std::string("grey") : depthName(buffer));
        writeRecordFile(record, dir / (name + ".plist"));
        const PixelBufferType back =
            coding::decode<PixelBufferDecoder>(readRecordFile(dir / (name + ".plist"))).pixelBuffer;
        if (!equal(back, buffer)) throw CommandError(name + ".plist did not read back equal");
        const auto image = dir / (name + (depthName(buffer) == "32" ? ".tif" : ".png"));
        writeImageFile(back, image);
        fmt::print("  {}.plist: {}  read back equal; wrote {}\n", name, describeRecord(record),
                   image.string());
    }
    const SurfacePixelBuffer<PixelARGB8> onSurface(
        std::get<PixelBuffer<PixelARGB8>>(photo).cgImage(), std::nullopt, "surface");
    const auto crop = onSurface.cropped(cg::Rect(400, 100, 200, 150));
    writeImageFile(crop, dir / "photo-crop.png");
    fmt::print("  surface copy (surface {}, {} pixels a row) cropped to {} × {}: {}\n",
               onSurface.surface()->id(), onSurface.pixelsPerRow(), crop.size().width,
               crop.size().height, (dir / "photo-crop.png").string());
    const auto packBits = std::get<PixelBuffer<PixelARGB8>>(photo).compressedChannels(
        false, ChannelDataCompressionType::rle, PredictionType::none, false);
    std::size_t packed = 0;
    for (const auto& plane : packBits)
        packed += std::visit([](const auto& p) { return p.data.size(); }, plane);
    fmt::print("  PackBits without prediction would take {} bytes for the 8-bit planes\n", packed);
}

// Tells the demo what the cache node announced.
class AnnouncedRects : public ImageConsumer {
public:
    std::vector<cg::Rect> rects;
    void invalidateInputImage(ImageProvider&, const cg::Rect& rect) override {
        rects.push_back(rect);
    }
};

std::string describe(const cg::Rect& r) {
    return fmt::format("({}, {}, {} × {})", r.minX(), r.minY(), r.width(), r.height());
}

// The image graph: a picture provider feeding a background cache node, whose output an editor
// would draw; a change to part of the picture comes back as one changed rectangle.
void graphSection(const std::filesystem::path& dir) {
    fmt::print("== image graph ==\n");
    auto& main = dispatch::MainQueue::shared();
    const cg::Rect canvas(0, 0, 640, 480);
    const auto photo = synthetic::photoLike<PixelARGB8>(640, 480);
    auto input = std::make_shared<StaticImageProvider>(Image(photo.image()));
    auto cache = AsyncImageCacheNode::make(canvas, 8, Image::Intent::image, 60);
    auto seen = std::make_shared<AnnouncedRects>();
    cache->addImageConsumer(*seen);
    cache->setInputImageProvider(input);
    auto canvasStore = makeMemoryImageAccumulator(8, canvas, false, std::string("canvas"));
    // An editor draws each announced rectangle of the node's output into its canvas.
    std::size_t drawn = 0;
    auto waitForAnnouncementOf = [&](const cg::Rect& rect) {
        const bool seenIt = main.runUntil(
            [&] {
                for (; drawn < seen->rects.size(); ++drawn) {
                    const cg::Rect r = seen->rects[drawn];
                    canvasStore->setImage(cache->outputImage(RenderContext()).ciImage, r);
                    fmt::print("  cache node rendered and announced {}\n", describe(r));
                    if (r.contains(rect)) return ++drawn, true;
                }
                return false;
            },
            std::chrono::seconds(10));
        if (!seenIt) throw CommandError("the cache node did not render within 10 s");
    };
    input->broadcastOutputImageChange(canvas);
    waitForAnnouncementOf(canvas);
    // Connecting the input also marked the canvas dirty; let a render of that pass by too.
    main.runUntil([] { return false; }, std::chrono::milliseconds(100));
    drawn = seen->rects.size();

    // A translucent square over part of the picture: the provider's image is replaced quietly
    // and only the square announced, so the node re-renders and announces just that.
    const cg::Rect patch(400, 80, 160, 160);
    const ci::Image overlay = ci::Image::constant(ci::Color{0.9, 0.2, 0.1, 0.7}).cropped(patch);
    input->setBroadcastingImageChanges(false);
    input->setImage(Image(overlay.composited(photo.image())));
    input->setBroadcastingImageChanges(true);
    input->broadcastOutputImageChange(patch);
    waitForAnnouncementOf(patch);

    const PixelBuffer<PixelARGB8> output(canvasStore->image(), canvas, "graph output");
    writeImageFile(output, dir / "graph-output.png");
    fmt::print("  canvas accumulator updated in place; wrote {}\n",
               (dir / "graph-output.png").string());
    cache.reset();
    main.drain();
}

} // namespace

Run addDemoCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("demo", "Run the main jobs on generated inputs");
    auto out = std::make_shared<std::string>("demo-out");
    cmd->add_option("--out", *out, "folder for the outputs");
    return [cmd, out] {
        if (!cmd->parsed()) return;
        const std::filesystem::path dir(*out);
        std::error_code error;
        std::filesystem::create_directories(dir, error);
        if (error) throw CommandError("cannot create " + dir.string() + ": " + error.message());
        colorSection(dir);
        bitmapSection(dir);
        graphSection(dir);
        blendSection(dir);
        algorithmSection(dir);
        gradientSection(dir);
        metadataSection(dir);
        documentSection(dir);
    };
}

} // namespace bic::tool
