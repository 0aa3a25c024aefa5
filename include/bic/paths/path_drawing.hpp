#pragma once
// Drawing a Path into a drawing context with the path's own stroke settings.

#include "bic/paths/path.hpp"
#include "bic/platform/draw/context.hpp"

namespace bic {

/// Sets the context's line width, cap, join and miter limit from the path, then adds it.
void add(cg::Context& context, const Path& path);
/// As add, then strokes.
void stroke(cg::Context& context, const Path& path);
/// As add, then fills with the non-zero winding rule.
void fill(cg::Context& context, const Path& path);
/// The marching-ants outline: without anti-aliasing, a black stroke and over it a white one
/// dashed 6 on, 6 off starting at `phase`; the graphics state is restored afterwards.
void selectionStroke(cg::Context& context, const Path& path, double phase);
/// The same as drawn by a Bézier path object into the current context: anti-aliasing is
/// switched off and back to what it was, the dash is reset to none afterwards, and the rest of
/// the state (colours, line settings) is left as the strokes set it.
void bezierSelectionStroke(cg::Context& context, const Path& path, double phase);

} // namespace bic
