#include "blend_kernels.hpp"

namespace bic::blend {

namespace {

struct RGB {
    float r, g, b;
};

inline float lum(const RGB& c) { return 0.30f * c.r + 0.59f * c.g + 0.11f * c.b; }
inline float min3(const RGB& c) { return std::min(std::min(c.r, c.g), c.b); }
inline float max3(const RGB& c) { return std::max(std::max(c.r, c.g), c.b); }

// The helpers choose between computed values instead of branching, so that a chunk of pixels
// runs as vector code; quotients computed for an arm that is not chosen are never used.

// Pulls a colour into 0…1 towards its own luminosity. The scales l / (l − n) and
// (1 − l) / (x − l) have denominators above 0 whenever l lies inside 0…1; at a luminosity of 0
// or 1 (or beyond, in float documents) the colour's limit is its grey, which float rounding
// must not turn into 0 / 0.
inline RGB clipColor(RGB c) {
    const float l = lum(c);
    const float n = min3(c), x = max3(c);
    auto towards = [&](float k) {
        return RGB{l + (c.r - l) * k, l + (c.g - l) * k, l + (c.b - l) * k};
    };
    auto choose = [](bool pick, const RGB& a, const RGB& b) {
        return RGB{pick ? a.r : b.r, pick ? a.g : b.g, pick ? a.b : b.b};
    };
    c = choose(n < 0, towards(l > 0 ? l / (l - n) : 0.0f), c);
    return choose(x > 1, towards(l < 1 ? (1 - l) / (x - l) : 0.0f), c);
}

inline RGB setLum(const RGB& c, float l) {
    const float d = l - lum(c);
    return clipColor({c.r + d, c.g + d, c.b + d});
}

inline float sat(const RGB& c) { return max3(c) - min3(c); }

// The colour's smallest channel becomes 0, its largest s and the middle one in proportion;
// a grey becomes black. Each channel is (c − min) / (max − min) · s, so the largest reads
// exactly s and ties need no ordering.
inline RGB setSat(const RGB& c, float s) {
    const float lo = min3(c), spread = max3(c) - lo;
    auto channel = [&](float v) { return spread > 0 ? (v - lo) / spread * s : 0.0f; };
    return {channel(c.r), channel(c.g), channel(c.b)};
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
    static RGB apply(const RGB& b, const RGB& s) {
        const bool darker = lum(s) < lum(b);
        return {darker ? s.r : b.r, darker ? s.g : b.g, darker ? s.b : b.b};
    }
};
struct LighterColor {
    static RGB apply(const RGB& b, const RGB& s) {
        const bool lighter = lum(s) > lum(b);
        return {lighter ? s.r : b.r, lighter ? s.g : b.g, lighter ? s.b : b.b};
    }
};

// The compositing formula of separableRow, with B taking whole colours.
template <class Mode>
void nonSeparableRow(const ci::KernelRow& row) {
    compositeRow(row.samples[0], row.samples[1], row.out, row.count,
                 [](const ChannelPlanes& b, const ChannelPlanes& s, ChannelPlanes& m, int n) {
                     for (int j = 0; j < n; ++j) {
                         const RGB blended =
                             Mode::apply({b.r[j], b.g[j], b.b[j]}, {s.r[j], s.g[j], s.b[j]});
                         m.r[j] = blended.r;
                         m.g[j] = blended.g;
                         m.b[j] = blended.b;
                     }
                 });
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
