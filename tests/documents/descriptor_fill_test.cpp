#include "bic/documents/descriptor.hpp"
#include "bic/documents/fill_content.hpp"
#include "bic/documents/layered_document.hpp"
#include "bic/documents/vector_mask.hpp"
#include "document_test_support.hpp"

#include <gtest/gtest.h>

namespace bic {
namespace {

using test_support::BigEndian;

// Versioned descriptor bytes of class `classId` with `count` items that `items` appends.
template <class F>
std::vector<std::uint8_t> descriptor(const std::string& classId, std::uint32_t count, F items) {
    BigEndian b;
    b.u32(16).unicode("").id(classId).u32(count);
    items(b);
    return b.bytes;
}

void rgb(BigEndian& b, double r, double g, double bl) {
    b.unicode("").id("RGBC").u32(3);
    b.id("Rd  ").chars("doub").f64(r).id("Grn ").chars("doub").f64(g);
    b.id("Bl  ").chars("doub").f64(bl);
}

TEST(Descriptor, ReadsEveryValueKindFillsUse) {
    const auto bytes = descriptor("null", 8, [](BigEndian& b) {
        b.id("Dthr").chars("bool").u8(1);
        b.id("Angl").chars("UntF").chars("#Ang").f64(-45);
        b.id("Type").chars("enum").id("GrdT").id("Rdl ");
        b.id("Nm  ").chars("TEXT").unicode("Sun");
        b.id("Lctn").chars("long").u32(std::uint32_t(-7));
        b.id("Ref ").chars("obj ").u32(2).chars("Enmr").unicode("").id("Lyr ").id("Ordn").id(
            "Trgt");
        b.chars("indx").u32(3);
        b.id("Clrs").chars("VlLs").u32(2).chars("doub").f64(0.5).chars("Objc");
        rgb(b, 1, 2, 3);
        b.id("someLongerKey").chars("tdta").u32(2).u8(7).u8(8);
    });
    const Descriptor d = parseVersionedDescriptor(bytes);
    EXPECT_EQ(d.classId, "null");
    ASSERT_EQ(d.items.size(), 8u);
    EXPECT_EQ(d.boolean("Dthr"), true);
    EXPECT_EQ(d.number("Angl"), -45);
    EXPECT_EQ(std::get<UnitFloat>(d.find("Angl")->value).unit, "#Ang");
    EXPECT_EQ(d.enumerated("Type"), "Rdl ");
    EXPECT_EQ(std::get<std::string>(d.find("Nm  ")->value), "Sun");
    EXPECT_EQ(d.number("Lctn"), -7);
    const auto* list = d.list("Clrs");
    ASSERT_TRUE(list);
    ASSERT_EQ(list->size(), 2u);
    EXPECT_EQ(std::get<double>((*list)[0].value), 0.5);
    EXPECT_EQ(std::get<Descriptor>((*list)[1].value).number("Bl  "), 3);
    EXPECT_EQ(std::get<std::vector<std::uint8_t>>(d.find("someLongerKey")->value),
              (std::vector<std::uint8_t>{7, 8}));
    EXPECT_FALSE(d.find("none"));
    EXPECT_FALSE(d.number("Type"));
}

TEST(Descriptor, RefusesDamagedBytesWithoutAllocatingForThem) {
    using Kind = DocumentError::Kind;
    const auto kindOf = [](const std::vector<std::uint8_t>& bytes) {
        try {
            parseVersionedDescriptor(bytes);
        } catch (const DocumentError& e) {
            return e.kind();
        }
        return Kind::io; // not thrown
    };
    EXPECT_EQ(kindOf(descriptor("null", 1, [](BigEndian& b) { b.id("Key ").chars("what"); })),
              Kind::corrupt);
    // Four billion items announced in a few bytes.
    EXPECT_EQ(kindOf(descriptor("null", 0xFFFFFFFF, [](BigEndian&) {})), Kind::truncated);
    EXPECT_EQ(kindOf(descriptor("null", 1,
                                [](BigEndian& b) { b.id("List").chars("VlLs").u32(0x7FFFFFFF); })),
              Kind::truncated);
    // Objects nested beyond any real file's depth.
    BigEndian deep;
    deep.u32(16);
    for (int i = 0; i < 100; ++i)
        deep.unicode("").id("Objc").u32(1).id("Next").chars("Objc");
    EXPECT_EQ(kindOf(deep.bytes), Kind::corrupt);
    EXPECT_EQ(kindOf({0, 0, 0, 15}), Kind::corrupt);
}

TEST(FillContent, SolidColoursInEveryModelTheFormatUses) {
    const auto fill = readSolidColorFill(descriptor("null", 1, [](BigEndian& b) {
        b.id("Clr ").chars("Objc");
        rgb(b, 255, 51, 0);
    }));
    ASSERT_TRUE(fill);
    EXPECT_EQ(fill->color, PixelRGBA32(1, 0.2f, 0, 1));
    BigEndian grey;
    grey.unicode("").id("Grsc").u32(1).id("Gry ").chars("doub").f64(25);
    EXPECT_EQ(colorFromDescriptor(parseVersionedDescriptor([&] {
                  BigEndian b;
                  b.u32(16).append(grey.bytes);
                  return b.bytes;
              }())),
              PixelRGBA32(0.75f, 0.75f, 0.75f, 1));
    BigEndian hsb;
    hsb.u32(16).unicode("").id("HSBC").u32(3);
    hsb.id("H   ").chars("UntF").chars("#Ang").f64(120).id("Strt").chars("doub").f64(100);
    hsb.id("Brgh").chars("doub").f64(50);
    EXPECT_EQ(colorFromDescriptor(parseVersionedDescriptor(hsb.bytes)), PixelRGBA32(0, 0.5f, 0, 1));
    BigEndian lab;
    lab.u32(16).unicode("").id("LbCl").u32(0);
    EXPECT_FALSE(colorFromDescriptor(parseVersionedDescriptor(lab.bytes)));
}

void colorStop(BigEndian& b, double red, std::uint32_t location, std::uint32_t midpoint) {
    b.chars("Objc").unicode("").id("Clrt").u32(4).id("Clr ").chars("Objc");
    rgb(b, red, 0, 0);
    b.id("Type").chars("enum").id("Clry").id("UsrS");
    b.id("Lctn").chars("long").u32(location).id("Mdpn").chars("long").u32(midpoint);
}

void opacityStop(BigEndian& b, double opacity, std::uint32_t location, std::uint32_t midpoint) {
    b.chars("Objc").unicode("").id("TrnS").u32(3);
    b.id("Opct").chars("UntF").chars("#Prc").f64(opacity);
    b.id("Lctn").chars("long").u32(location).id("Mdpn").chars("long").u32(midpoint);
}

TEST(FillContent, GradientStopsMapOntoTheGradientModelExactly) {
    const auto bytes = descriptor("null", 8, [](BigEndian& b) {
        b.id("Dthr").chars("bool").u8(1);
        b.id("Rvrs").chars("bool").u8(1);
        b.id("Angl").chars("UntF").chars("#Ang").f64(45);
        b.id("Type").chars("enum").id("GrdT").id("Dmnd");
        b.id("Algn").chars("bool").u8(0);
        b.id("Scl ").chars("UntF").chars("#Prc").f64(150);
        b.id("Ofst").chars("Objc").unicode("").id("Pnt ").u32(2);
        b.id("Hrzn").chars("UntF").chars("#Prc").f64(10).id("Vrtc").chars("UntF").chars("#Prc").f64(
            -20);
        b.id("Grad").chars("Objc").unicode("Gradient").id("Grdn").u32(5);
        b.id("Nm  ").chars("TEXT").unicode("Custom");
        b.id("GrdF").chars("enum").id("GrdF").id("CstS");
        b.id("Intr").chars("doub").f64(2048);
        b.id("Clrs").chars("VlLs").u32(3);
        colorStop(b, 0, 0, 50);
        colorStop(b, 255, 4096, 25); // listed out of order: sorted by location
        colorStop(b, 51, 1024, 75);
        b.id("Trns").chars("VlLs").u32(2);
        opacityStop(b, 100, 0, 50);
        opacityStop(b, 30, 4096, 60);
    });
    const auto fill = readGradientFill(bytes);
    ASSERT_TRUE(fill);
    EXPECT_EQ(fill->type, GradientType::diamond);
    EXPECT_EQ(fill->angle, 45);
    EXPECT_EQ(fill->scale, 1.5);
    EXPECT_TRUE(fill->reverse);
    EXPECT_TRUE(fill->dither);
    EXPECT_FALSE(fill->alignWithLayer);
    EXPECT_EQ(fill->offsetX, 0.1);
    EXPECT_EQ(fill->offsetY, -0.2);
    EXPECT_EQ(fill->name, "Custom");
    EXPECT_EQ(fill->smoothness, 0.5);
    ASSERT_TRUE(fill->gradient);
    const auto& colors = fill->gradient->colorStops();
    ASSERT_EQ(colors.size(), 3u);
    EXPECT_EQ(colors[0], ColorStop({0, 0, 0, 1}, 0, 0.5));
    EXPECT_EQ(colors[1], ColorStop({0.2f, 0, 0, 1}, 0.25, 0.75));
    EXPECT_EQ(colors[2], ColorStop({1, 0, 0, 1}, 1, 0.25));
    const auto& opacities = fill->gradient->opacityStops();
    ASSERT_EQ(opacities.size(), 2u);
    EXPECT_EQ(opacities[1], OpacityStop(0.3, 1, 0.6));
    // The midpoint places the even mix: at 0.25 + 0.75 × 0.25 the colour is half-way.
    EXPECT_FLOAT_EQ(fill->gradient->colorAtLocation(0.25 + 0.75 * 0.25).redComponent, 0.6f);
}

void overlayEffect(BigEndian& b, bool enabled, const char* mode, double red, double opacity) {
    b.unicode("").id("SoFi").u32(4).id("enab").chars("bool").u8(enabled ? 1 : 0);
    b.id("Md  ").chars("enum").id("BlnM").id(mode).id("Clr ").chars("Objc");
    rgb(b, red, 0, 0);
    b.id("Opct").chars("UntF").chars("#Prc").f64(opacity);
}

// An "lfx2" block: the effects version, then the descriptor.
template <class F>
std::vector<std::uint8_t> effectsBlock(std::uint32_t count, F items) {
    BigEndian b;
    b.u32(0).append(descriptor("null", count, items));
    return b.bytes;
}

TEST(FillContent, ColourOverlaysAreReadAndOtherEffectsListed) {
    // The list form, top first, with a disabled entry and a drop shadow that is on.
    const auto listed = readLayerEffects(effectsBlock(3, [](BigEndian& b) {
        b.id("masterFXSwitch").chars("bool").u8(1);
        b.id("solidFillMulti").chars("VlLs").u32(3).chars("Objc");
        overlayEffect(b, true, "Mltp", 255, 40);
        b.chars("Objc");
        overlayEffect(b, false, "Nrml", 0, 100);
        b.chars("Objc");
        overlayEffect(b, true, "linearLight", 51, 100);
        b.id("DrSh").chars("Objc").unicode("").id("DrSh").u32(1).id("enab").chars("bool").u8(1);
    }));
    ASSERT_EQ(listed.colorOverlays.size(), 2u);
    EXPECT_EQ(listed.colorOverlays[0],
              (ColorOverlayEffect{{0.2f, 0, 0, 1}, BlendMode::linearLight, 1}))
        << "bottom first";
    EXPECT_EQ(listed.colorOverlays[1],
              (ColorOverlayEffect{{1, 0, 0, 1}, BlendMode::multiply, 0.4}));
    EXPECT_EQ(listed.unrendered, std::vector<std::string>{"DrSh"});
    // The single-object form; everything off when the master switch is.
    const auto single = readLayerEffects(effectsBlock(1, [](BigEndian& b) {
        b.id("SoFi").chars("Objc");
        overlayEffect(b, true, "blendDivide", 255, 100);
    }));
    ASSERT_EQ(single.colorOverlays.size(), 1u);
    EXPECT_EQ(single.colorOverlays[0].mode, BlendMode::divide);
    const auto off = readLayerEffects(effectsBlock(2, [](BigEndian& b) {
        b.id("masterFXSwitch").chars("bool").u8(0);
        b.id("SoFi").chars("Objc");
        overlayEffect(b, true, "Nrml", 255, 100);
    }));
    EXPECT_TRUE(off.colorOverlays.empty());
    EXPECT_THROW(readLayerEffects(std::vector<std::uint8_t>{0, 0}), DocumentError);
    // Both spellings of every mode the effects use, and nothing for an unknown one.
    EXPECT_EQ(blendModeFromDescriptor("CBrn"), BlendMode::colorBurn);
    EXPECT_EQ(blendModeFromDescriptor("colorBurn"), BlendMode::colorBurn);
    EXPECT_EQ(blendModeFromDescriptor("H   "), BlendMode::hue);
    EXPECT_EQ(blendModeFromDescriptor("blendSubtraction"), BlendMode::subtract);
    EXPECT_FALSE(blendModeFromDescriptor("passThrough"));
}

TEST(FillContent, PatternsAreReadRawAndPackBitsAndOverlaysFindThem) {
    // 3 × 2, each channel its own ramp; two records, PackBits and raw, read alike.
    const std::vector<std::vector<std::uint8_t>> planes = {
        {0, 1, 2, 3, 4, 5}, {10, 11, 12, 13, 14, 15}, {200, 200, 200, 200, 201, 202}};
    auto bytes = test_support::patternBlock("id-1", 3, 2, planes, true);
    const auto raw = test_support::patternBlock("id-2", 3, 2, planes, false);
    bytes.insert(bytes.end(), raw.begin(), raw.end());
    const auto patterns = readPatterns(bytes);
    ASSERT_EQ(patterns.size(), 2u);
    for (const Pattern& p : patterns) {
        EXPECT_EQ(p.width, 3);
        EXPECT_EQ(p.height, 2);
        EXPECT_EQ(p.name, "P");
        ASSERT_EQ(p.colors.size(), 3u);
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_TRUE(
                std::equal(planes[c].begin(), planes[c].end(), p.colors[c].bytes().begin()));
    }
    EXPECT_EQ(patterns[1].id, "id-2");
    // A record cut short is an error, not a pattern of garbage.
    const auto cut = std::vector<std::uint8_t>(raw.begin(), raw.end() - 8);
    EXPECT_THROW(readPatterns(cut), DocumentError);
    // A pattern claiming 60,000² samples from one byte a channel is refused before allocating.
    EXPECT_THROW(
        readPatterns(test_support::patternBlock("huge", 60000, 60000, {{1}, {1}, {1}}, false)),
        DocumentError);

    const auto effects = readLayerEffects(effectsBlock(1, [](BigEndian& b) {
        b.id("patternFill").chars("Objc").unicode("").id("patternFill").u32(5);
        b.id("enab").chars("bool").u8(1).id("Md  ").chars("enum").id("BlnM").id("Scrn");
        b.id("Opct").chars("UntF").chars("#Prc").f64(80);
        b.id("Ptrn").chars("Objc").unicode("").id("Ptrn").u32(1);
        b.id("Idnt").chars("TEXT").unicode("id-2");
        b.id("phase").chars("Objc").unicode("").id("Pnt ").u32(2);
        b.id("Hrzn").chars("doub").f64(3).id("Vrtc").chars("doub").f64(-1);
    }));
    ASSERT_EQ(effects.patternOverlays.size(), 1u);
    EXPECT_EQ(effects.patternOverlays[0],
              (PatternOverlayEffect{"id-2", BlendMode::screen, 0.8, 1, 3, -1}));
    EXPECT_TRUE(effects.unrendered.empty());
}

TEST(FillContent, NoiseGradientsAndUnknownGeometriesHaveNoStops) {
    const auto noise = readGradientFill(descriptor("null", 2, [](BigEndian& b) {
        b.id("Type").chars("enum").id("GrdT").id("Lnr ");
        b.id("Grad").chars("Objc").unicode("").id("Grdn").u32(1);
        b.id("GrdF").chars("enum").id("GrdF").id("ClNs");
    }));
    ASSERT_TRUE(noise);
    EXPECT_FALSE(noise->gradient);
    EXPECT_FALSE(readGradientFill(descriptor(
        "null", 1, [](BigEndian& b) { b.id("Type").chars("enum").id("GrdT").id("Spir"); })));
}

TEST(FillContent, SmoothGradientsHoldTheirPeaksAndStayWithinEachSegment) {
    // Grey 0.2 → 1 → 0.6 → 0 with an opacity dip: the middle stops are a peak and a slope.
    const auto grey = [](float v) { return PixelRGBA32(v, v, v, 1); };
    const ColorGradient g =
        *ColorGradient::make({{grey(0.2f), 0}, {grey(1), 0.4}, {grey(0.6f), 0.7}, {grey(0), 1}},
                             {{1, 0}, {0.5, 0.5}, {1, 1}});
    const ColorGradient straight = smoothedGradient(g, 0);
    const ColorGradient smooth = smoothedGradient(g, 1);
    const ColorGradient half = smoothedGradient(g, 0.5);
    EXPECT_EQ(straight.colorStops(), g.colorStops()) << "smoothness 0 is the midpoint rule";
    double previous = 0;
    for (int k = 0; k <= 1000; ++k) {
        const double t = k / 1000.0;
        const double v = smooth.colorAtLocation(t).red(), line = g.colorAtLocation(t).red();
        SCOPED_TRACE(t);
        // Within each segment's two values: no overshoot past the peak or below the end.
        const double low = t <= 0.4 ? 0.2 : t <= 0.7 ? 0.6 : 0, high = t <= 0.7 ? 1 : 0.6;
        EXPECT_TRUE(v >= low - 1e-6 && v <= high + 1e-6) << v;
        // Rising up to the peak and falling after it, as the stops do.
        const double step = v - previous;
        EXPECT_TRUE(k == 0 || (t <= 0.4 ? step >= -1e-6 : step <= 1e-6)) << step;
        previous = v;
        EXPECT_NEAR(half.colorAtLocation(t).red(), (v + line) / 2, 1e-3);
        EXPECT_TRUE(smooth.opacityAtLocation(t) >= 0.5 - 1e-6 && smooth.opacityAtLocation(t) <= 1);
    }
    // The stops keep their values; beside the peak the curve is flatter than the straight line
    // (the peak's slope is that between its neighbours), and the slope stop is crossed smoothly.
    for (const double t : {0.0, 0.4, 0.7, 1.0})
        EXPECT_NEAR(smooth.colorAtLocation(t).red(), g.colorAtLocation(t).red(), 1e-6);
    EXPECT_GT(smooth.colorAtLocation(0.45).red(), g.colorAtLocation(0.45).red() + 0.01);
    EXPECT_GT(smooth.colorAtLocation(0.35).red(), g.colorAtLocation(0.35).red() + 0.01);
    const double before = smooth.colorAtLocation(0.69).red() - smooth.colorAtLocation(0.68).red();
    const double after = smooth.colorAtLocation(0.72).red() - smooth.colorAtLocation(0.71).red();
    // The slope there is the line's between its neighbours: (0 − 1) / (1 − 0.4) a unit.
    EXPECT_NEAR(before / 0.01, -1 / 0.6, 0.25);
    EXPECT_NEAR(after / 0.01, -1 / 0.6, 0.25);
    EXPECT_NEAR(smooth.opacityAtLocation(0.5), 0.5, 1e-6);
}

} // namespace
} // namespace bic

namespace bic {

namespace {

// One 26-byte path record: a selector, then big-endian values.
void record(std::vector<std::uint8_t>& out, std::uint16_t selector,
            std::initializer_list<std::int32_t> values) {
    out.push_back(std::uint8_t(selector >> 8)), out.push_back(std::uint8_t(selector));
    std::size_t used = 2;
    for (const std::int32_t v : values) {
        for (int shift = 24; shift >= 0; shift -= 8)
            out.push_back(std::uint8_t(std::uint32_t(v) >> shift));
        used += 4;
    }
    out.resize(out.size() + 26 - used, 0);
}

// A knot whose three points are all at (x, y), fractions of the document.
void corner(std::vector<std::uint8_t>& out, double x, double y) {
    const auto fx = std::int32_t(x * (1 << 24)), fy = std::int32_t(y * (1 << 24));
    record(out, 1, {fy, fx, fy, fx, fy, fx});
}

} // namespace

TEST(VectorMask, ReadsSubpathsInDocumentPixelsAndRefusesBrokenRecords) {
    std::vector<std::uint8_t> bytes = {0, 0, 0, 3, 0, 0, 0, 1}; // version 3, inverted
    record(bytes, 6, {});                                       // fill rule
    record(bytes, 8, {1 << 16});                                // starts filled
    record(bytes, 0, {4 << 16});                                // a closed subpath of 4 knots
    corner(bytes, 0.25, 0.5), corner(bytes, 0.75, 0.5), corner(bytes, 0.75, 1.0);
    corner(bytes, 0.25, 1.0);
    const auto mask = readVectorMask(bytes, 200, 100);
    ASSERT_TRUE(mask);
    EXPECT_TRUE(mask->inverted);
    EXPECT_FALSE(mask->disabled);
    EXPECT_TRUE(mask->startsFilled);
    EXPECT_EQ(mask->outline.cgPath().boundingBox(), cg::Rect(50, 50, 100, 50));

    // Fewer knots than the subpath announced, a knot before any subpath, another version.
    EXPECT_FALSE(readVectorMask(std::span(bytes).first(bytes.size() - 26), 200, 100));
    std::vector<std::uint8_t> stray = {0, 0, 0, 3, 0, 0, 0, 0};
    corner(stray, 0.5, 0.5);
    EXPECT_FALSE(readVectorMask(stray, 200, 100));
    bytes[3] = 2;
    EXPECT_FALSE(readVectorMask(bytes, 200, 100));
}

} // namespace bic
