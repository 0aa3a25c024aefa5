#pragma once
// Synthetic pixels: a seamless plasma cloud texture, and two endless noise images that are the
// same on every run.

#include "bic/buffers/pixel_buffer.hpp"

#include <optional>

namespace bic {

struct Renderer {
    /// A grey cloud texture by diamond-square midpoint displacement on an N × N grid, N = 2^k + 1
    /// the smallest such size (k ≥ 1) covering the larger side of `size`. Opposite borders are
    /// equal, so the texture tiles with period N − 1. Values go through P's float red accessor
    /// (integer formats clamp and round at every step); `bitDepth` is carried for callers that
    /// choose P from it. Nothing when the size is below 1 or the grid cannot be made.
    template <RGBAPixel P>
    static std::optional<PixelBuffer<P>> clouds(const cg::Size& size, int bitDepth);
};

struct RandomNoiseGenerator {
    /// Uniform noise: every byte of a 512 × 512 ARGB8 tile drawn uniformly from 0…255 by an ARC4
    /// source seeded with 16 zero bytes, tiled over the whole plane. Made once.
    static const ci::Image& uniform();
    /// The same with bytes drawn from a Gaussian over 0…255 (mean 127.5, deviation 42.5).
    static const ci::Image& gaussian();
};

extern template std::optional<PixelBuffer<PixelARGB8>> Renderer::clouds<PixelARGB8>(const cg::Size&,
                                                                                    int);
extern template std::optional<PixelBuffer<PixelRGBA16>>
Renderer::clouds<PixelRGBA16>(const cg::Size&, int);
extern template std::optional<PixelBuffer<PixelRGBA32>>
Renderer::clouds<PixelRGBA32>(const cg::Size&, int);

} // namespace bic
