#pragma once
// Conversion between stored pixel layouts and the working format (premultiplied RGBA floats).
//
// Reading: 8-bit v → v/255, 16-bit v → v/65535, floats as they are; grey reads as (g, g, g, 1)
// and a red-only layout as (r, 0, 0, 1). Writing integer layouts clamps to 0…1, scales and
// rounds half away from zero (NaN writes 0); float layouts store values unchanged; one-channel
// layouts store the red component.

#include "bic/platform/io/format.hpp"

#include <cstdint>

namespace bic::io {

void readRow(Format format, const std::uint8_t* src, float* out, std::int64_t count);
void writeRow(Format format, const float* in, std::uint8_t* dst, std::int64_t count);

} // namespace bic::io
