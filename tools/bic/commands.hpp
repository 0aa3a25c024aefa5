#pragma once
// The tool's commands. Each registers itself on the command line and runs when chosen.

#include "bic/pixels/pixel_formats.hpp"
#include "bic/platform/coding/value.hpp"

#include <CLI/CLI.hpp>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace bic::tool {

/// A command that failed on its input: printed as one line, exit status 1.
struct CommandError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

using Run = std::function<void()>;

Run addColorCommand(CLI::App& app);
Run addDemoCommand(CLI::App& app);
Run addEncodeCommand(CLI::App& app);
Run addDecodeCommand(CLI::App& app);
Run addBlendCommand(CLI::App& app);
Run addDitherCommand(CLI::App& app);
Run addFillCommand(CLI::App& app);
Run addDistanceCommand(CLI::App& app);
Run addOutlineCommand(CLI::App& app);
Run addHistogramCommand(CLI::App& app);
Run addGradientCommand(CLI::App& app);
Run addMetadataCommand(CLI::App& app);
Run addPsdCommand(CLI::App& app);

/// The demo's contact sheet of the pixel blend modes, written into `dir`.
void blendSection(const std::filesystem::path& dir);
/// The demo's six gradient geometries, the gradient's library entry and pasteboard preview.
void gradientSection(const std::filesystem::path& dir);
/// The demo's camera metadata: Exif written into the photo of the bitmap section, read back
/// as a panel, stored and prepared for export.
void metadataSection(const std::filesystem::path& dir);
void documentSection(const std::filesystem::path& dir);
/// The demo's dithering and histogram of the photo the bitmap section wrote into `dir`.
void algorithmSection(const std::filesystem::path& dir);

/// A record file: JSON when it starts with "{", else a binary or XML property list.
coding::Value readRecordFile(const std::filesystem::path& path);
/// `form`: "binary" (the default form), "xml" or "json".
void writeRecordFile(const coding::Value& record, const std::filesystem::path& path,
                     const std::string& form = "binary");
/// Size, model and depth, then each plane's compression, prediction and ratio, a line each.
std::string describeRecord(const coding::Value& record);

/// A colour typed as hex ("#FF8000", "ff8000") or as text ("1 0.5 0", "0.5").
std::optional<PixelRGBA32> parseColor(const std::string& text);
/// The report `bic color` prints for a colour, one fact a line.
std::string describeColor(const PixelRGBA32& color, const cg::ColorSpace& rgbSpace);

} // namespace bic::tool
