#pragma once
// A grid of equally sized tiles, each labelled underneath, written as a PNG.

#include "bic/platform/ci/image.hpp"

#include <filesystem>
#include <string>
#include <vector>

namespace bic::tool {

struct Tile {
    ci::Image image; ///< rendered from (0, 0, width, height)
    std::string label;
};

/// Tiles left to right, top to bottom, `columns` a row, on white. Throws CommandError when the
/// file cannot be written.
void writeContactSheet(const std::vector<Tile>& tiles, int width, int height, int columns,
                       const std::filesystem::path& path);

} // namespace bic::tool
