#include "bic/core/image_core_error.hpp"
#include "bic/pixels/color_management.hpp"
#include "bic/pixels/pixel_formats.hpp"
#include "bic/platform/ns/pasteboard.hpp"

namespace bic {

namespace color_management {

namespace {

std::optional<cg::Color> rgbColor(const cg::ColorSpace& space, const RGBA& c) {
    if (space.model() != cg::ColorSpaceModel::rgb) return std::nullopt;
    return cg::Color::make(space, {c[0], c[1], c[2], c[3]});
}

std::optional<Triple> matchedTriple(const cg::ColorSpace& rgbSpace, const RGBA& rgba,
                                    const cg::ColorSpace& target) {
    const auto color = rgbColor(rgbSpace, rgba);
    if (!color) return std::nullopt;
    const auto m = color->matched(target);
    if (!m) return std::nullopt;
    const auto& c = m->components();
    return Triple{c[0], c[1], c[2]};
}

std::optional<RGBA> fromTriple(const cg::ColorSpace& source, const Triple& t,
                               const cg::ColorSpace& rgbSpace) {
    const auto color = cg::Color::make(source, {t[0], t[1], t[2], 1.0});
    if (!color) return std::nullopt;
    return rgbFromColor(*color, rgbSpace);
}

} // namespace

std::optional<Triple> labFromRGB(const cg::ColorSpace& rgbSpace, const RGBA& rgba) {
    return matchedTriple(rgbSpace, rgba, cg::ColorSpace::psdLab());
}

std::optional<RGBA> rgbFromLab(const cg::ColorSpace& rgbSpace, const Triple& lab) {
    return fromTriple(cg::ColorSpace::psdLab(), lab, rgbSpace);
}

std::optional<Triple> xyzFromRGB(const cg::ColorSpace& rgbSpace, const RGBA& rgba) {
    return matchedTriple(rgbSpace, rgba, cg::ColorSpace::genericXYZ());
}

std::optional<RGBA> rgbFromXYZ(const cg::ColorSpace& rgbSpace, const Triple& xyz) {
    return fromTriple(cg::ColorSpace::genericXYZ(), xyz, rgbSpace);
}

RGBA convert(const RGBA& rgba, const cg::ColorSpace& from, const cg::ColorSpace& to,
             cg::RenderingIntent intent) {
    if (from.model() != cg::ColorSpaceModel::rgb || to.model() != cg::ColorSpaceModel::rgb)
        throw ImageCoreError(ImageCoreError::parameterError);
    const auto color = cg::Color::make(from, {rgba[0], rgba[1], rgba[2], rgba[3]});
    if (!color)
        throw ImageCoreError(ImageCoreError::unknownError,
                             "the components do not make a colour of the source space");
    const auto matched = color->matched(to, intent);
    if (!matched)
        throw ImageCoreError(ImageCoreError::unknownError,
                             "the colour could not be matched to the target colour space");
    const auto& c = matched->components();
    if (c.size() != 4) throw ImageCoreError(ImageCoreError::parameterError);
    return {float(c[0]), float(c[1]), float(c[2]), float(c[3])};
}

std::optional<RGBA> rgbFromColor(const cg::Color& color, const cg::ColorSpace& space) {
    if (space.model() != cg::ColorSpaceModel::rgb) return std::nullopt;
    const auto m = color.matched(space);
    if (!m) return std::nullopt;
    const auto& c = m->components();
    return RGBA{float(c[0]), float(c[1]), float(c[2]), float(c[3])};
}

} // namespace color_management

bool PixelRGBA32::canReadFromPasteboard(const ns::Pasteboard& pasteboard) {
    return ns::readColor(pasteboard).has_value();
}

bool PixelRGBA32::canReadFromPasteboard() {
    return canReadFromPasteboard(*ns::Pasteboard::general());
}

std::optional<PixelRGBA32> PixelRGBA32::readFromPasteboard(const cg::ColorSpace& colorSpace,
                                                           const ns::Pasteboard& pasteboard) {
    const auto color = ns::readColor(pasteboard);
    if (!color) return std::nullopt;
    return fromNSColor(*color, colorSpace);
}

std::optional<PixelRGBA32> PixelRGBA32::readFromPasteboard(const cg::ColorSpace& colorSpace) {
    return readFromPasteboard(colorSpace, *ns::Pasteboard::general());
}

} // namespace bic
