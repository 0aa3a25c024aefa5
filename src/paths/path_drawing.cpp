#include "bic/paths/path_drawing.hpp"

namespace bic {

namespace {
const std::vector<double> kAntsDash = {6.0, 6.0};

void blackThenWhite(cg::Context& context, const Path& path, double phase) {
    context.setStrokeColor(cg::Color::deviceGray(0, 1));
    stroke(context, path);
    context.setStrokeColor(cg::Color::deviceGray(1, 1));
    context.setLineDash(phase, kAntsDash);
    stroke(context, path);
}
} // namespace

void add(cg::Context& context, const Path& path) {
    context.setLineWidth(path.lineWidth);
    context.setLineCap(path.lineCap);
    context.setLineJoin(path.lineJoin);
    context.setMiterLimit(path.miterLimit);
    context.addPath(path.cgPath());
}

void stroke(cg::Context& context, const Path& path) {
    add(context, path);
    context.strokePath();
}

void fill(cg::Context& context, const Path& path) {
    add(context, path);
    context.fillPath(cg::PathFillRule::winding);
}

void selectionStroke(cg::Context& context, const Path& path, double phase) {
    context.saveGState();
    context.setShouldAntialias(false);
    blackThenWhite(context, path, phase);
    context.restoreGState();
}

void bezierSelectionStroke(cg::Context& context, const Path& path, double phase) {
    const bool antialias = context.shouldAntialias();
    context.setShouldAntialias(false);
    blackThenWhite(context, path, phase);
    context.setLineDash(0, {});
    context.setShouldAntialias(antialias);
}

} // namespace bic
