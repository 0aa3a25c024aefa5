#pragma once
// The editable gradient: a list of colour stops and an independent list of opacity stops, each
// stop with a location on 0…1 and a midpoint that places the even mix of it and the stop before.
//
// Sampling follows the midpoint rule: between stops A and B the gradient is piecewise linear
// with the half-way mix of A and B at A + (B − A) × B.midPoint instead of half-way.

#include "bic/pixels/pixel_formats.hpp"
#include "bic/platform/cg/color_space.hpp"
#include "bic/platform/ci/image.hpp"
#include "bic/platform/coding/coder.hpp"
#include "bic/platform/draw/context.hpp"

#include <array>
#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bic {

/// What both kinds of stop offer: a read-write `location` (0 = start, 1 = end) and `midPoint`
/// (where between the previous stop and this one the even mix lies, as a fraction of that
/// segment; 0.5 is a straight transition; the first stop's is carried but never used).
template <class S>
concept GradientStop = std::equality_comparable<S> && coding::SelfEncodable<S> &&
    coding::SelfDecodable<S> && requires(S s) {
    { s.location } -> std::convertible_to<double>;
    { s.midPoint } -> std::convertible_to<double>;
};

struct ColorStop {
    PixelRGBA32 color{0, 0, 0, 1};
    double location = 0;
    double midPoint = 0.5;

    /// Opaque black at 0, midpoint ½.
    ColorStop() = default;
    /// Stored as given, without clamping.
    ColorStop(PixelRGBA32 color, double location, double midPoint = 0.5)
        : color(color), location(location), midPoint(midPoint) {}
    friend bool operator==(const ColorStop&, const ColorStop&) = default;

    /// "Color" (three or four floats), "Location", and "Midpoint" unless it is ½.
    void encode(coding::Encoder& encoder) const;
    /// Location must lie in 0…1 and a midpoint in 0.05…0.95; values outside are refused as
    /// corrupted data (DecodingError), like every range-checked value of the library's keyed
    /// forms, so that a pasted gradient is exactly the one that was copied or none at all.
    static ColorStop decode(const coding::Decoder& decoder);
};

struct OpacityStop {
    double opacity = 1;
    double location = 0;
    double midPoint = 0.5;

    /// Opaque at 0, midpoint ½.
    OpacityStop() = default;
    /// Stored as given, without clamping.
    OpacityStop(double opacity, double location, double midPoint = 0.5)
        : opacity(opacity), location(location), midPoint(midPoint) {}
    friend bool operator==(const OpacityStop&, const OpacityStop&) = default;

    /// "Opacity", "Location", and "Midpoint" unless it is ½.
    void encode(coding::Encoder& encoder) const;
    /// Opacity and location must lie in 0…1, a midpoint in 0.05…0.95 (refused otherwise).
    static OpacityStop decode(const coding::Decoder& decoder);
};

static_assert(GradientStop<ColorStop> && GradientStop<OpacityStop>);

/// The geometric kind of a gradient fill. Its keyed form is the raw value text.
class GradientType {
public:
    enum Case : int { linear = 0, radial = 1, angle = 2, reflected = 3, diamond = 4, shaped = 5 };

    constexpr GradientType(Case c) : case_(c) {}
    static const std::array<GradientType, 6>& allCases();

    /// 0…5 back to the case; nothing for any other tag.
    static std::optional<GradientType> fromTag(int tag);
    static std::optional<GradientType> fromRawValue(std::string_view rawValue);

    int tag() const { return case_; }
    /// "Linear", "Radial", "Angle", "Reflected", "Diamond", "Shaped".
    std::string_view rawValue() const;
    /// The display name in the user's language ("Shaped by Content" in English for `shaped`).
    std::string localizedName() const;

    void encode(coding::Encoder& encoder) const;
    /// Throws FileReadCorruptError (259) for text that is no raw value.
    static GradientType decode(const coding::Decoder& decoder);

    constexpr operator Case() const { return case_; }

private:
    Case case_;
};

class ColorGradient {
public:
    /// Black to white, opaque.
    ColorGradient();
    /// Nothing when either list has fewer than two stops; otherwise each list stable-sorted by
    /// location.
    static std::optional<ColorGradient> make(std::vector<ColorStop> colorStops,
                                             std::vector<OpacityStop> opacityStops);

    /// Presets, made once on first use; callers may replace them (one thread at a time).
    static ColorGradient& blackToWhite();
    static ColorGradient& blackToTransparent();
    static ColorGradient& whiteToTransparent();

    const std::optional<std::string>& title() const { return title_; }
    void setTitle(std::optional<std::string> title) { title_ = std::move(title); }
    /// In ascending location after construction, adding and reversing; a location change alone
    /// does not re-order, and the property-list reader keeps the stored order.
    const std::vector<ColorStop>& colorStops() const { return colorStops_; }
    const std::vector<OpacityStop>& opacityStops() const { return opacityStops_; }

    // Editing. Every change clears the mapping table. An index at or past the end is ignored.

    /// Replaces every stop at exactly the new stop's location, then re-sorts.
    void addColorStop(const ColorStop& stop);
    void addOpacityStop(const OpacityStop& stop);
    /// Only when the list keeps at least two stops.
    void removeColorStop(std::size_t atIndex);
    void removeOpacityStop(std::size_t atIndex);
    /// Red, green and blue of `to`; the stop's alpha becomes 1.
    void changeColorOfStop(std::size_t atIndex, const PixelRGBA32& to);
    /// As given, no clamping.
    void changeOpacityOfStop(std::size_t atIndex, double to);
    /// Clamped to 0…1; the list is not re-sorted (add the stop again to re-order).
    void changeLocationOfColorStop(std::size_t adIndex, double to);
    void changeLocationOfOpacityStop(std::size_t adIndex, double to);
    /// Clamped to 0.05…0.95.
    void changeMidpointOfColorStop(std::size_t adIndex, double to);
    void changeMidpointOfOpacityStop(std::size_t adIndex, double to);
    /// Mirrors the gradient: afterwards sample(t) equals the former sample(1 − t).
    void reverse();
    /// Matches every colour stop from one space into an RGB space (alpha becomes 1). Throws
    /// ImageCoreError::parameterError when `to` is not RGB and unknownError when a colour cannot
    /// be made or matched; the gradient is then unchanged. Opacity stops are not touched.
    void convertColorSpace(const cg::ColorSpace& from, const cg::ColorSpace& to,
                           cg::RenderingIntent intent);

    // Sampling by the midpoint rule. Before the first stop: the first stop's value; at or past
    // the last: the last stop's stored value (for colour, its own alpha); elsewhere alpha is 1.
    PixelRGBA32 colorAtLocation(double location) const;
    double opacityAtLocation(double location) const;

    /// The 256-entry mapping table (4096 bytes, native order): entry i holds red, green, blue
    /// of colorAtLocation(i / 255) and opacityAtLocation(i / 255) as 32-bit floats. Computed on
    /// first use and kept until the gradient changes; copies share it until either is edited.
    /// Like the rest of the gradient, not to be used from two threads at once.
    const std::vector<std::uint8_t>& mappingData() const;

    /// {"Color Stops": [{"Color": text, "Location", "Mid Point"}…], "Opacity Stops":
    /// [{"Opacity", "Location", "Mid Point"}…]}; the title is not written.
    coding::Value plistRepresentation() const;
    /// Nothing for a dictionary that is empty, lacks a key, has a value of the wrong kind or an
    /// unreadable colour text, or yields fewer than two stops in a list. Values are taken as
    /// stored: no clamping, no sorting.
    static std::optional<ColorGradient> fromPlistRepresentation(const coding::Value& plist);

    /// "Color Stops" and "Opacity Stops", both always written.
    void encode(coding::Encoder& encoder) const;
    /// A missing list gives the opaque black-to-white default for it; a list of fewer than two
    /// stops is refused as corrupted data.
    static ColorGradient decode(const coding::Decoder& decoder);

    /// Stops element by element, then titles; the mapping table takes no part.
    friend bool operator==(const ColorGradient& a, const ColorGradient& b);

    // ---- Rendering (gradient_rendering.cpp) ----

    /// The gradient as an unbounded image: a grey ramp of the geometry (0 at `from`, 1 at `to`)
    /// coloured through the mapping table, then dithered to `ditherLevels` levels when given.
    /// Linear and shaped ramps run along from→to; radial is centred on `from` with `to` on the
    /// rim; reflected mirrors the linear ramp about `from`; diamond has `from` as centre and
    /// `to` as a corner. The angle ramp turns about `from`, starting in the direction of `to`
    /// when `isFlipped`, and of `to` mirrored in the horizontal through `from` otherwise. `from`
    /// must differ from `to`.
    ci::Image image(GradientType of, const cg::Point& from, const cg::Point& to, bool isFlipped,
                    std::optional<int> ditherLevels) const;
    /// Draws the gradient over `in` into the current drawing context (ns::GraphicsContext) at
    /// `angle` degrees; nothing without one.
    void draw(const cg::Rect& in, double angle, const cg::ColorSpace& colorSpace) const;
    /// What draw hands to the drawing layer: every expanded stop location of both lists and 0
    /// and 1, once each, ascending, with the colour and opacity there in `colorSpace` (device
    /// RGB, after printing "Failed to create color in colorSpace …", when that is no RGB space).
    /// Plain interpolation between these locations reproduces the midpoint rule.
    cg::Gradient drawingGradient(const cg::ColorSpace& colorSpace) const;

    /// "<library bundle identifier>.ColorGradientType"
    static const std::string& colorGradientDataType();
    /// Replaces the general pasteboard's contents with the keyed form (a binary property list)
    /// and a 256 × 256 TIFF preview. Throws ImageCoreError::internalInconsistency when the
    /// gradient cannot be encoded.
    void writeToPasteboard() const;
    static bool canReadFromPasteboard();
    /// Throws ImageCoreError::unknownError without gradient data, DecodingError (or
    /// FileReadCorruptError) for data that is no gradient.
    static ColorGradient readFromPasteboard();

private:
    ColorGradient(std::vector<ColorStop> colorStops, std::vector<OpacityStop> opacityStops)
        : colorStops_(std::move(colorStops)), opacityStops_(std::move(opacityStops)) {}
    void changed() { mapping_.reset(); }
    // Changes one stop, when the index is in range, and drops the table.
    template <class Stop, class F>
    void edit(std::vector<Stop>& stops, std::size_t index, F&& change) {
        if (index >= stops.size()) return;
        change(stops[index]);
        changed();
    }

    std::optional<std::string> title_;
    // The table, immutable once made: a copy shares it, an edit drops this gradient's share.
    mutable std::shared_ptr<const std::vector<std::uint8_t>> mapping_;
    std::vector<ColorStop> colorStops_;
    std::vector<OpacityStop> opacityStops_;
};

/// The stops with a synthetic stop inserted before every stop whose midpoint is not exactly ½,
/// at A + (B − A) × B.midPoint (clamped to 0…1) with the half-way value of A and B (colour
/// alpha 1) and midpoint ½. The stops must be in ascending order.
std::vector<ColorStop> midpointExpanded(const std::vector<ColorStop>& stops);
std::vector<OpacityStop> midpointExpanded(const std::vector<OpacityStop>& stops);

} // namespace bic
