// The gradient as pixels: the two-stage image (a geometry ramp, then the mapping table), the
// vector drawing with every midpoint made an explicit location, and the pasteboard.

#include "../kernels/operation_kernels.hpp"
#include "bic/algorithms/dithering.hpp"
#include "bic/compositing/image_operations.hpp"
#include "bic/core/image_core_error.hpp"
#include "bic/filters/gradient_filters.hpp"
#include "bic/gradients/gradient_mapping.hpp"
#include "bic/graph/image_operations.hpp"
#include "bic/platform/cg/color.hpp"
#include "bic/platform/ci/builtin_filters.hpp"
#include "bic/platform/ci/filter.hpp"
#include "bic/platform/coding/formats.hpp"
#include "bic/platform/core/diagnostics.hpp"
#include "bic/platform/core/fatal.hpp"
#include "bic/platform/ns/image.hpp"
#include "bic/platform/ns/pasteboard.hpp"
#include "bic/resources/bundle.hpp"

#include <cmath>
#include <set>

namespace bic {

namespace {

constexpr double kTwoPi = 6.283185307179586;

ci::Image required(std::optional<ci::Image> image, std::string_view what) {
    if (!image) fatalError("The " + std::string(what) + " gave no image.");
    return *std::move(image);
}

std::string describe(const cg::ColorSpace& space) {
    if (space.name()) return *space.name();
    return "<unnamed colour space of " + std::to_string(space.numberOfComponents()) +
           " components>";
}

} // namespace

std::optional<ci::Image> mapped(const ci::Image& image, const ColorGradient& to) {
    return mapped(image, to.mappingData());
}

Image mapped(const Image& image, const ColorGradient& to) {
    auto result = mapped(image.ciImage, to);
    if (!result)
        throw ImageCoreError(ImageCoreError::unknownError, "the gradient-map kernel gave no image");
    return Image(*std::move(result));
}

ci::Image ColorGradient::image(GradientType of, const cg::Point& from, const cg::Point& to,
                               bool isFlipped, std::optional<int> ditherLevels) const {
    auto colored = [&](const ci::Image& ramp) { return mapped(ramp, *this).value_or(ramp); };
    ci::Image result = ci::Image::empty();
    switch (of) {
    case GradientType::linear:
    case GradientType::shaped:
        result = colored(ci::linearGradient(from, to, ci::Color::black(), ci::Color::white()));
        break;
    case GradientType::radial: {
        const double radius = double(float(std::hypot(to.x - from.x, to.y - from.y)));
        // The ramp and its colouring in one pass where the table is whole: the same pixels.
        if (mappingData().size() == 4096)
            result = kernels::radialGradientMap(from, 0.0, radius, mappingData());
        else
            result = colored(
                ci::radialGradient(from, 0.0, radius, ci::Color::black(), ci::Color::white()));
        break;
    }
    case GradientType::reflected: {
        BICReflectedGradientFilter filter;
        filter.setInputPoint0(from);
        filter.setInputPoint1(to);
        result = colored(required(filter.outputImage(), "reflected gradient filter"));
        break;
    }
    case GradientType::diamond: {
        // The ramp wants the midpoint of a side; `to` is a corner, 45° round and √2 further.
        const cg::Point v = cg::AffineTransform::rotation(0.7853981633974483)
                                .apply(cg::Point{to.x - from.x, to.y - from.y});
        const double length2 = v.x * v.x + v.y * v.y;
        const double k = std::sqrt(length2 * 0.5) / std::sqrt(length2);
        BICDiamondGradientFilter filter;
        filter.setInputPoint0(from);
        filter.setInputPoint1(cg::Point{from.x + v.x * k, from.y + v.y * k});
        result = colored(required(filter.outputImage(), "diamond gradient filter"));
        break;
    }
    case GradientType::angle: {
        // Coloured before it is scaled down and moved, in this order.
        double a = std::atan2(to.y - from.y, to.x - from.x);
        if (!isFlipped) a = -a;
        const ci::Image turned =
            required(BICAngleGradientFilter().outputImage(), "angle gradient filter")
                .transformed(cg::AffineTransform::rotation(std::fmod(a + kTwoPi, kTwoPi)));
        result = colored(turned)
                     .transformed(cg::AffineTransform::scale(0.25, 0.25))
                     .transformed(cg::AffineTransform::translation(from.x, from.y));
        break;
    }
    }
    if (!ditherLevels) return result;
    BICDitherFilter dither;
    dither.setInputImage(result);
    dither.setInputLevels(double(*ditherLevels));
    return required(dither.outputImage(), "dither filter");
}

cg::Gradient ColorGradient::drawingGradient(const cg::ColorSpace& colorSpace) const {
    std::set<double> locations{0.0, 1.0};
    for (const ColorStop& s : midpointExpanded(colorStops_))
        locations.insert(s.location);
    for (const OpacityStop& s : midpointExpanded(opacityStops_))
        locations.insert(s.location);
    cg::Gradient gradient;
    for (const double t : locations) {
        const PixelRGBA32 c = colorAtLocation(t);
        const double alpha = opacityAtLocation(t);
        // The space is given the colour's four components; a space that does not take them
        // (grey, CMYK) cannot make the colour, which then falls back to device RGB, location by
        // location.
        auto color = cg::Color::make(colorSpace, {c.red(), c.green(), c.blue(), alpha});
        if (!color) {
            diagnostic("Failed to create color in colorSpace " + describe(colorSpace));
            color = cg::Color::deviceRGB(c.red(), c.green(), c.blue(), alpha);
        }
        gradient.colors.push_back(*color);
        gradient.locations.push_back(t);
    }
    return gradient;
}

void ColorGradient::draw(const cg::Rect& in, double angle, const cg::ColorSpace& colorSpace) const {
    if (cg::Context* context = ns::GraphicsContext::current())
        context->drawLinearGradient(drawingGradient(colorSpace), in, angle);
}

const std::string& ColorGradient::colorGradientDataType() {
    static const std::string type = std::string(resources::bundleIdentifier) + ".ColorGradientType";
    return type;
}

void ColorGradient::writeToPasteboard() const {
    const auto pasteboard = ns::Pasteboard::general();
    pasteboard->clearContents();
    coding::Data data;
    try {
        data = coding::encodePropertyList(*this);
    } catch (const coding::EncodingError&) {
        throw ImageCoreError(ImageCoreError::internalInconsistency,
                             "the gradient could not be encoded for the pasteboard");
    }
    pasteboard->setData(colorGradientDataType(), std::move(data));
    const ns::Image preview({256, 256}, false, [this](const cg::Rect& rect) {
        draw(rect, 0, cg::ColorSpace::deviceRGB());
        return true;
    });
    if (auto tiff = preview.tiffRepresentation())
        pasteboard->setData(ns::pasteboard_type::tiff, std::move(*tiff));
}

bool ColorGradient::canReadFromPasteboard() {
    const auto types = ns::Pasteboard::general()->types();
    return std::find(types.begin(), types.end(), colorGradientDataType()) != types.end();
}

ColorGradient ColorGradient::readFromPasteboard() {
    const auto data = ns::Pasteboard::general()->data(colorGradientDataType());
    if (!data)
        throw ImageCoreError(ImageCoreError::unknownError, "the pasteboard holds no gradient");
    return coding::decodePropertyList<ColorGradient>(*data);
}

} // namespace bic
