// bic encode / bic decode: images to stored bitmap records and back.

#include "bic/buffers/pixel_buffer_record.hpp"
#include "bic/platform/coding/formats.hpp"
#include "commands.hpp"
#include "image_files.hpp"

#include <fmt/format.h>
#include <fstream>
#include <iterator>

namespace bic::tool {

namespace {

coding::Data readBytes(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw CommandError("cannot open " + path.string());
    return coding::Data(std::istreambuf_iterator<char>(in), {});
}

void writeBytes(const std::filesystem::path& path, const coding::Data& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    if (!out) throw CommandError("cannot write " + path.string());
}

std::string planeName(std::size_t index, std::size_t count) {
    static const char* colour[] = {"red", "green", "blue", "alpha"};
    return count == 1 ? "grey" : index < 4 ? colour[index] : fmt::format("plane {}", index);
}

} // namespace

coding::Value readRecordFile(const std::filesystem::path& path) {
    const coding::Data bytes = readBytes(path);
    const auto first = std::find_if(bytes.begin(), bytes.end(), [](std::uint8_t c) {
        return c != ' ' && c != '\n' && c != '\r' && c != '\t';
    });
    if (first != bytes.end() && (*first == '{' || *first == '['))
        return coding::readJSON(
            std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    return coding::readPropertyList(bytes);
}

void writeRecordFile(const coding::Value& record, const std::filesystem::path& path,
                     const std::string& form) {
    if (form == "json") {
        const std::string text = coding::writeJSON(record, true) + "\n";
        writeBytes(path, coding::Data(text.begin(), text.end()));
    } else {
        writeBytes(path, coding::writePropertyList(
                             record, form == "xml" ? coding::PropertyListFormat::xml
                                                   : coding::PropertyListFormat::binary));
    }
}

std::string describeRecord(const coding::Value& record) {
    const auto* size = record.find("Size");
    const auto* model = record.find("Model");
    const auto* depth = record.find("Bit Depth");
    const auto* channels = record.find("Channels");
    if (!size || !model || !depth || !channels || !channels->get<coding::Array>()) return {};
    const auto s = coding::decode<IntegralSize>(*size);
    const auto bits = coding::decode<int>(*depth);
    std::string out = fmt::format("{} × {}, {}, {} bits\n", s.width, s.height,
                                  coding::decode<std::string>(*model), bits);
    const auto& planes = *channels->get<coding::Array>();
    const double raw = double(s.width) * double(s.height) * (bits / 8);
    double total = 0;
    for (std::size_t i = 0; i < planes.size(); ++i) {
        const auto* compression = planes[i].find("Compression");
        const auto* prediction = planes[i].find("Prediction");
        const auto* data = planes[i].find("Data");
        // Decoded as the record reader does, so JSON's base64 text counts as the bytes it holds.
        const double stored = data ? double(coding::decode<coding::Data>(*data).size()) : 0;
        total += stored;
        out +=
            fmt::format("  {:<6} {:<5} prediction {:<8} {:>12.0f} → {:>12.0f} bytes  {:6.1f} %\n",
                        planeName(i, planes.size()),
                        compression ? coding::decode<std::string>(*compression) : "None",
                        prediction ? coding::decode<std::string>(*prediction) : "None", raw, stored,
                        raw > 0 ? 100 * stored / raw : 0);
    }
    out +=
        fmt::format("  all planes {:.0f} → {:.0f} bytes ({:.1f} %)\n", raw * double(planes.size()),
                    total, raw > 0 ? 100 * total / (raw * double(planes.size())) : 0);
    return out;
}

Run addEncodeCommand(CLI::App& app) {
    auto* cmd =
        app.add_subcommand("encode", "Store an image (PNG, TIFF, JPEG or WebP) as a bitmap record");
    auto image = std::make_shared<std::string>();
    auto record = std::make_shared<std::string>();
    auto form = std::make_shared<std::string>("binary");
    cmd->add_option("image", *image, "PNG, TIFF, JPEG or WebP")->required();
    cmd->add_option("record", *record, "record file to write")->required();
    cmd->add_option("--form", *form, "file form of the record")
        ->check(CLI::IsMember({"binary", "xml", "json"}));
    return [cmd, image, record, form] {
        if (!cmd->parsed()) return;
        const PixelBufferType buffer = readImageFile(*image);
        coding::Value root;
        coding::Encoder encoder(root, {});
        encode(buffer, encoder);
        writeRecordFile(root, *record, *form);
        fmt::print("{}wrote {}\n", describeRecord(root), *record);
    };
}

Run addDecodeCommand(CLI::App& app) {
    auto* cmd = app.add_subcommand("decode", "Read a bitmap record back into an image file");
    auto record = std::make_shared<std::string>();
    auto image = std::make_shared<std::string>();
    cmd->add_option("record", *record, "record file (binary or XML property list, or JSON)")
        ->required();
    cmd->add_option("image", *image,
                    ".png (8 or 16 bits), .tif (any depth), .jpg or .webp (8 bits)")
        ->required();
    return [cmd, record, image] {
        if (!cmd->parsed()) return;
        std::optional<PixelBufferType> buffer;
        coding::Value root;
        try {
            root = readRecordFile(*record);
            buffer = coding::decode<PixelBufferDecoder>(root).pixelBuffer;
        } catch (const CommandError&) {
            throw;
        } catch (const std::exception& e) {
            throw CommandError(*record + ": " + e.what());
        }
        writeImageFile(*buffer, *image);
        fmt::print("{}wrote {}\n", describeRecord(root), *image);
    };
}

} // namespace bic::tool
