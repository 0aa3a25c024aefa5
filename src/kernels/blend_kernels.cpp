#include "blend_kernels.hpp"

namespace bic::blend {

// A pixel shows, as in normal mode and with its own alpha, where the noise's red level lies below
// the opacity; the levels are taken at their centres ((v + 0.5) / 256), so opacity 0 shows
// nothing and opacity 1 everything.
void dissolveRow(const ci::KernelRow& row) {
    const float* fg = row.samples[0];
    const float* bg = row.samples[1];
    const float* noise = row.samples[2];
    const float opacity = float(row.number(0));
    for (std::int64_t i = 0; i < row.count * 4; i += 4) {
        const float threshold = (noise[i] * 255 + 0.5f) / 256;
        const float as = threshold < opacity ? fg[i + 3] : 0.0f;
        for (int c = 0; c < 3; ++c)
            row.out[i + c] = (as > 0 ? fg[i + c] : 0.0f) + bg[i + c] * (1 - as);
        row.out[i + 3] = as + bg[i + 3] * (1 - as);
    }
}

} // namespace bic::blend
