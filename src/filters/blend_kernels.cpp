#include "blend_kernels.hpp"

namespace bic::blend {

namespace {

struct RGB {
    float r, g, b;
};

float lum(const RGB& c) { return 0.30f * c.r + 0.59f * c.g + 0.11f * c.b; }

// Pulls a colour into 0…1 towards its own luminosity. The scales l / (l − n) and
// (1 − l) / (x − l) have denominators above 0 whenever l lies inside 0…1; at a luminosity of 0
// or 1 (or beyond, in float documents) the colour's limit is its grey, which float rounding
// must not turn into 0 / 0.
RGB clipColor(RGB c) {
    const float l = lum(c);
    const float n = std::min({c.r, c.g, c.b}), x = std::max({c.r, c.g, c.b});
    auto scale = [&](float k) { c = {l + (c.r - l) * k, l + (c.g - l) * k, l + (c.b - l) * k}; };
    if (n < 0) scale(l > 0 ? l / (l - n) : 0.0f);
    if (x > 1) scale(l < 1 ? (1 - l) / (x - l) : 0.0f);
    return c;
}

RGB setLum(const RGB& c, float l) {
    const float d = l - lum(c);
    return clipColor({c.r + d, c.g + d, c.b + d});
}

float sat(const RGB& c) { return std::max({c.r, c.g, c.b}) - std::min({c.r, c.g, c.b}); }

// The channels ordered by three comparisons rather than a sort; equal channels may go either
// way, which gives the same colour.
RGB setSat(RGB c, float s) {
    float* lo = &c.r;
    float* mid = &c.g;
    float* hi = &c.b;
    if (*lo > *mid) std::swap(lo, mid);
    if (*mid > *hi) std::swap(mid, hi);
    if (*lo > *mid) std::swap(lo, mid);
    if (*hi > *lo) {
        *mid = (*mid - *lo) * s / (*hi - *lo);
        *hi = s;
    } else {
        *mid = *hi = 0;
    }
    *lo = 0;
    return c;
}

struct Hue {
    static RGB apply(const RGB& b, const RGB& s) { return setLum(setSat(s, sat(b)), lum(b)); }
};
struct Saturation {
    static RGB apply(const RGB& b, const RGB& s) { return setLum(setSat(b, sat(s)), lum(b)); }
};
struct Luminosity {
    static RGB apply(const RGB& b, const RGB& s) { return setLum(b, lum(s)); }
};
struct DarkerColor {
    static RGB apply(const RGB& b, const RGB& s) { return lum(s) < lum(b) ? s : b; }
};
struct LighterColor {
    static RGB apply(const RGB& b, const RGB& s) { return lum(s) > lum(b) ? s : b; }
};

// The compositing formula of separableRow, with B taking whole colours.
template <class Mode>
void nonSeparableRow(const ci::KernelRow& row) {
    const float* fg = row.samples[0];
    const float* bg = row.samples[1];
    float* out = row.out;
    for (std::int64_t i = 0; i < row.count * 4; i += 4) {
        const float as = fg[i + 3], ab = bg[i + 3], both = as * ab;
        RGB mixed{0, 0, 0};
        if (both > 0) {
            const RGB blended = Mode::apply(
                {straight(bg[i], ab), straight(bg[i + 1], ab), straight(bg[i + 2], ab)},
                {straight(fg[i], as), straight(fg[i + 1], as), straight(fg[i + 2], as)});
            mixed = {both * blended.r, both * blended.g, both * blended.b};
        }
        out[i] = fg[i] * (1 - ab) + bg[i] * (1 - as) + mixed.r;
        out[i + 1] = fg[i + 1] * (1 - ab) + bg[i + 1] * (1 - as) + mixed.g;
        out[i + 2] = fg[i + 2] * (1 - ab) + bg[i + 2] * (1 - as) + mixed.b;
        out[i + 3] = as + ab * (1 - as);
    }
}

template <SeparableMode Mode>
void separable(const ci::KernelRow& row) {
    separableRow<Mode>(row.samples[0], row.samples[1], row.out, row.count);
}

// Arguments: foreground, background, noise, opacity. A pixel shows, as in normal mode and with
// its own alpha, where the noise's red level lies below the opacity; the levels are taken at
// their centres ((v + 0.5) / 256), so opacity 0 shows nothing and opacity 1 everything.
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

} // namespace

void addBlendKernels(ci::KernelLibrary& library) {
    const std::pair<const char*, ci::RowFunction> kernels[] = {
        {"blendModeColorBurn", separable<ColorBurn>},
        {"blendModeLinearBurn", separable<LinearBurn>},
        {"blendModeDarkerColor", nonSeparableRow<DarkerColor>},
        {"blendModeColorDodge", separable<ColorDodge>},
        {"blendModeLinearDodge", separable<LinearDodge>},
        {"blendModeLighterColor", nonSeparableRow<LighterColor>},
        {"blendModeVividLight", separable<VividLight>},
        {"blendModeLinearLight", separable<LinearLight>},
        {"blendModeLinearLight8", separable<LinearLight8>},
        {"blendModeHardLight8", separable<HardLight8>},
        {"blendModePinLight", separable<PinLight>},
        {"blendModeHardMix", separable<HardMix>},
        {"blendModeSubtract", separable<Subtract>},
        {"blendModeDivide", separable<Divide>},
        {"blendModeHue", nonSeparableRow<Hue>},
        {"blendModeSaturation", nonSeparableRow<Saturation>},
        {"blendModeLuminosity", nonSeparableRow<Luminosity>},
    };
    for (const auto& [name, function] : kernels)
        library.addBlendKernel(name, function);
    library.addColorKernel("blendModeDissolve", dissolveRow);
}

} // namespace bic::blend
