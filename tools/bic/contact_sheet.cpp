#include "contact_sheet.hpp"

#include "bic/platform/ci/context.hpp"
#include "commands.hpp"

#include <cairo.h>
#include <memory>

namespace bic::tool {

void writeContactSheet(const std::vector<Tile>& tiles, int width, int height, int columns,
                       const std::filesystem::path& path) {
    constexpr int label = 24;
    const int rows = (int(tiles.size()) + columns - 1) / columns;
    std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> sheet(
        cairo_image_surface_create(CAIRO_FORMAT_ARGB32, columns * width, rows * (height + label)),
        cairo_surface_destroy);
    std::unique_ptr<cairo_t, decltype(&cairo_destroy)> cr(cairo_create(sheet.get()), cairo_destroy);
    cairo_set_source_rgb(cr.get(), 1, 1, 1);
    cairo_paint(cr.get());
    cairo_surface_flush(sheet.get());
    // cairo's ARGB32 is premultiplied 32-bit words, blue first in memory on this machine.
    auto* data = cairo_image_surface_get_data(sheet.get());
    const int stride = cairo_image_surface_get_stride(sheet.get());
    for (std::size_t i = 0; i < tiles.size(); ++i) {
        const int x = int(i) % columns * width, y = int(i) / columns * (height + label);
        ci::Context::shared()->render(tiles[i].image, data + y * stride + x * 4, stride,
                                      cg::Rect(0, 0, width, height), ci::Format::BGRA8);
    }
    cairo_surface_mark_dirty(sheet.get());
    cairo_select_font_face(cr.get(), "DejaVu Sans Mono", CAIRO_FONT_SLANT_NORMAL,
                           CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(cr.get(), 15);
    cairo_set_source_rgb(cr.get(), 0.1, 0.1, 0.1);
    for (std::size_t i = 0; i < tiles.size(); ++i) {
        const int x = int(i) % columns * width, y = int(i) / columns * (height + label) + height;
        cairo_move_to(cr.get(), x + 6, y + 17);
        cairo_show_text(cr.get(), tiles[i].label.c_str());
    }
    if (cairo_surface_write_to_png(sheet.get(), path.c_str()) != CAIRO_STATUS_SUCCESS)
        throw CommandError("cannot write " + path.string());
}

} // namespace bic::tool
