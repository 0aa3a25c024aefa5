#pragma once
// A generated layered document, shared by the tool's demo and the benchmarks: a background, then
// layers in assorted blend modes over the whole canvas (soft shading with hard-edged shapes, so
// that run-length coding sees long runs and short ones), every third with a mask, and two groups
// (one isolated, one passing through) holding the last few layers.

#include "bic/documents/layered_document.hpp"

#include <cmath>
#include <cstdint>
#include <string>

namespace bic::synthetic {

namespace detail {

inline DocumentLayer shadedLayer(std::string name, std::int64_t width, std::int64_t height,
                                 int index) {
    DocumentLayer layer;
    layer.name = std::move(name);
    layer.bounds = {0, 0, std::int32_t(height), std::int32_t(width)};
    const std::int16_t ids[] = {0, 1, 2, transparencyChannel};
    for (int c = 0; c < 4; ++c) {
        SamplePlane plane(width, height, 8);
        std::uint8_t* p = plane.mutableBytes().data();
        const int phase = 37 * index + 71 * c;
        for (std::int64_t y = 0; y < height; ++y) {
            // Each row: a ramp broken by a band whose edges move from row to row.
            const std::int64_t band = (y * (index + 3) / 4 + phase) % width;
            const std::uint8_t inside = std::uint8_t(255 - (phase % 97));
            for (std::int64_t x = 0; x < width; ++x, ++p) {
                const bool inBand = x >= band && x < band + width / 5;
                *p = c == 3 ? (inBand ? 255 : std::uint8_t(96 + (index * 13) % 128))
                            : (inBand ? inside : std::uint8_t((x * 255 / width + phase) & 0xff));
            }
        }
        layer.channels.push_back({ids[c], ChannelCompression::rle, std::move(plane)});
    }
    return layer;
}

inline void addMask(DocumentLayer& layer, std::int64_t width, std::int64_t height) {
    const DocumentRect rect{std::int32_t(height / 8), std::int32_t(width / 8),
                            std::int32_t(height * 7 / 8), std::int32_t(width * 7 / 8)};
    SamplePlane plane(rect.width(), rect.height(), 8);
    std::uint8_t* p = plane.mutableBytes().data();
    for (std::int64_t y = 0; y < rect.height(); ++y)
        for (std::int64_t x = 0; x < rect.width(); ++x)
            *p++ = std::uint8_t(std::min<std::int64_t>(255, (x + y) * 255 / rect.width()));
    layer.mask = LayerMask{rect, 0, 0, std::nullopt};
    layer.channels.push_back({userMaskChannel, ChannelCompression::rle, std::move(plane)});
}

} // namespace detail

/// `layerCount` layers (at least 4) of `width` × `height`, 8-bit RGB with a transparent canvas.
inline LayeredDocument layeredDocument(std::int64_t width, std::int64_t height, int layerCount) {
    static constexpr BlendMode::Case modes[] = {
        BlendMode::normal,    BlendMode::multiply, BlendMode::screen,      BlendMode::overlay,
        BlendMode::softLight, BlendMode::darken,   BlendMode::lighten,     BlendMode::difference,
        BlendMode::colorBurn, BlendMode::hue,      BlendMode::linearLight, BlendMode::luminosity,
    };
    LayeredDocument doc;
    doc.width = width, doc.height = height;
    doc.channelCount = 4;
    doc.mergedAlphaIsTransparency = true;
    const auto layer = [&](int i) {
        DocumentLayer l = detail::shadedLayer("layer " + std::to_string(i), width, height, i);
        const BlendMode mode = modes[std::size_t(i) % std::size(modes)];
        l.blendMode = mode;
        l.blendKey = std::string(mode.psdKey());
        l.opacity = std::uint8_t(255 - (i * 29) % 120);
        if (i % 3 == 2) detail::addMask(l, width, height);
        return l;
    };
    const auto group = [&](std::string name, BlendMode mode) {
        DocumentLayer g;
        g.kind = LayerKind::group;
        g.name = std::move(name);
        g.blendMode = mode;
        g.blendKey = std::string(mode.psdKey());
        g.sectionEnd = SectionEnd{};
        return g;
    };
    DocumentLayer background = detail::shadedLayer("background", width, height, 0);
    background.channels.pop_back(); // opaque
    doc.layers.push_back(std::move(background));
    const int inGroups = 4;
    for (int i = 1; i < layerCount - inGroups; ++i)
        doc.layers.push_back(layer(i));
    DocumentLayer isolated = group("isolated group", BlendMode::normal);
    DocumentLayer passing = group("pass-through group", BlendMode::passThrough);
    for (int i = layerCount - inGroups; i < layerCount; ++i)
        (i % 2 ? isolated : passing).children.push_back(layer(i));
    doc.layers.push_back(std::move(isolated));
    doc.layers.push_back(std::move(passing));
    return doc;
}

} // namespace bic::synthetic
