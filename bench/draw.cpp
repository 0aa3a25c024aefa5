// Filling a 1,000-vertex star into a 4096² ARGB8 context, against cairo filling the same polygon
// into its own ARGB32 image surface.

#include "bic/platform/draw/context.hpp"

#include <benchmark/benchmark.h>
#include <cairo.h>
#include <cmath>
#include <numbers>
#include <vector>

namespace {

constexpr int kSize = 4096;

std::vector<bic::cg::Point> star() {
    std::vector<bic::cg::Point> points;
    for (int i = 0; i < 1000; ++i) {
        const double angle = 2 * std::numbers::pi * i / 1000;
        const double radius = i % 2 ? 900 : 2000;
        points.push_back({2048 + radius * std::cos(angle), 2048 + radius * std::sin(angle)});
    }
    return points;
}

void Ours(benchmark::State& state) {
    auto context = bic::cg::Context::bitmap(nullptr, kSize, kSize, 8, kSize * 4,
                                            bic::cg::ColorSpace::deviceRGB(),
                                            bic::cg::bitmap::alphaPremultipliedFirst);
    bic::cg::Path path;
    const auto points = star();
    path.moveTo(points[0]);
    for (std::size_t i = 1; i < points.size(); ++i)
        path.addLineTo(points[i]);
    path.closeSubpath();
    context->setFillColor(bic::cg::Color::deviceRGB(0.9, 0.3, 0.1));
    for (auto _ : state) {
        context->addPath(path);
        context->fillPath();
        benchmark::DoNotOptimize(context->data());
    }
}
BENCHMARK(Ours)->Name("star_fill_4096_argb8")->Unit(benchmark::kMillisecond)->UseRealTime();

void Cairo(benchmark::State& state) {
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kSize, kSize);
    cairo_t* cr = cairo_create(surface);
    const auto points = star();
    cairo_set_source_rgb(cr, 0.9, 0.3, 0.1);
    for (auto _ : state) {
        cairo_move_to(cr, points[0].x, kSize - points[0].y);
        for (std::size_t i = 1; i < points.size(); ++i)
            cairo_line_to(cr, points[i].x, kSize - points[i].y);
        cairo_close_path(cr);
        cairo_fill(cr);
        cairo_surface_flush(surface);
        benchmark::DoNotOptimize(cairo_image_surface_get_data(surface));
    }
    cairo_destroy(cr);
    cairo_surface_destroy(surface);
}
BENCHMARK(Cairo)
    ->Name("star_fill_4096_argb8/peer:cairo")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace
