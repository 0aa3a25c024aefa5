#include "bic/gradients/color_gradient.hpp"
#include "bic/platform/cg/color.hpp"
#include "bic/platform/coding/formats.hpp"
#include "bic/resources/localization.hpp"
#include "support/expect_error.hpp"

#include <cstring>
#include <gtest/gtest.h>
#include <random>

namespace bic {
namespace {

using test_support::expectCode;

ColorGradient blackWhite(double secondMidpoint) {
    return *ColorGradient::make({{{0, 0, 0, 1}, 0}, {{1, 1, 1, 1}, 1, secondMidpoint}},
                                {{1, 0}, {1, 1}});
}

void expectGrey(const PixelRGBA32& c, float grey, float alpha = 1) {
    EXPECT_FLOAT_EQ(c.red(), grey);
    EXPECT_FLOAT_EQ(c.green(), grey);
    EXPECT_FLOAT_EQ(c.blue(), grey);
    EXPECT_FLOAT_EQ(c.alpha(), alpha);
}

// The midpoint rule read directly off the stops: within A…B the value runs linearly from A to
// the half-way mix at A + (B − A) × B.midPoint, then linearly on to B.
template <class Value>
Value reference(const std::vector<double>& locations, const std::vector<double>& midpoints,
                const std::vector<Value>& values, double t) {
    if (t <= locations.front()) return values.front();
    if (t >= locations.back()) return values.back();
    std::size_t b = 1;
    while (locations[b] <= t)
        ++b;
    const double a0 = locations[b - 1], b0 = locations[b];
    const double m = a0 + (b0 - a0) * midpoints[b];
    const Value half = (values[b - 1] + values[b]) / 2;
    if (t < m) return values[b - 1] + (half - values[b - 1]) * ((t - a0) / (m - a0));
    return half + (values[b] - half) * ((t - m) / (b0 - m));
}

struct RandomGradient {
    ColorGradient gradient;
    std::vector<double> colorLocations, colorMidpoints, reds, opacityLocations, opacityMidpoints,
        opacities;
};

RandomGradient randomGradient(std::mt19937& random) {
    std::uniform_real_distribution<double> unit(0, 1), mid(0.05, 0.95);
    auto locations = [&](std::size_t n) {
        std::vector<double> v;
        for (std::size_t i = 0; i < n; ++i)
            v.push_back(unit(random));
        std::sort(v.begin(), v.end());
        return v;
    };
    RandomGradient r;
    r.colorLocations = locations(2 + random() % 4);
    r.opacityLocations = locations(2 + random() % 4);
    std::vector<ColorStop> colors;
    for (double l : r.colorLocations) {
        const float red = float(unit(random));
        // Midpoints of exactly ½ take the plain path; keep some.
        const double m = random() % 3 == 0 ? 0.5 : mid(random);
        colors.push_back({{red, 0.25f, 0.75f, 1}, l, m});
        r.reds.push_back(red);
        r.colorMidpoints.push_back(m);
    }
    std::vector<OpacityStop> opacities;
    for (double l : r.opacityLocations) {
        const double o = unit(random), m = random() % 3 == 0 ? 0.5 : mid(random);
        opacities.push_back({o, l, m});
        r.opacities.push_back(o);
        r.opacityMidpoints.push_back(m);
    }
    r.gradient = *ColorGradient::make(colors, opacities);
    return r;
}

TEST(ColorGradient, MidpointRuleAtTheStatedPointsAndStops) {
    const ColorGradient g = blackWhite(0.25);
    expectGrey(g.colorAtLocation(0.25), 0.5f);
    expectGrey(g.colorAtLocation(0.125), 0.25f);
    expectGrey(g.colorAtLocation(0.625), 0.75f);

    // At a stop with a later stop beyond it alpha is 1; at or past the last stop, and before
    // the first, the stop's own colour comes back with its own alpha.
    const ColorGradient translucent = *ColorGradient::make(
        {{{0.2f, 0.2f, 0.2f, 0.3f}, 0.2}, {{0.6f, 0.6f, 0.6f, 0.4f}, 0.5}, {{1, 1, 1, 0.5f}, 0.8}},
        {{0.25, 0.1}, {0.75, 0.9}});
    expectGrey(translucent.colorAtLocation(0.5), 0.6f, 1);
    expectGrey(translucent.colorAtLocation(0.8), 1, 0.5f);
    expectGrey(translucent.colorAtLocation(2), 1, 0.5f);
    expectGrey(translucent.colorAtLocation(0.1), 0.2f, 0.3f);
    EXPECT_DOUBLE_EQ(translucent.opacityAtLocation(0), 0.25);
    EXPECT_DOUBLE_EQ(translucent.opacityAtLocation(0.5), 0.5);
    EXPECT_DOUBLE_EQ(translucent.opacityAtLocation(1), 0.75);

    // Exactly ½ inserts nothing; the smallest step away inserts the synthetic stop.
    EXPECT_EQ(midpointExpanded(blackWhite(0.5).colorStops()).size(), 2u);
    const auto expanded = midpointExpanded(blackWhite(0.5000001).colorStops());
    ASSERT_EQ(expanded.size(), 3u);
    EXPECT_DOUBLE_EQ(expanded[1].location, 0.5000001);
    expectGrey(expanded[1].color, 0.5f);
}

TEST(ColorGradient, SamplingMatchesAPiecewiseLinearModelOnRandomGradients) {
    std::mt19937 random(7);
    std::uniform_real_distribution<double> unit(-0.1, 1.1);
    for (int n = 0; n < 300; ++n) {
        const RandomGradient r = randomGradient(random);
        for (int k = 0; k < 40; ++k) {
            const double t = unit(random);
            EXPECT_NEAR(r.gradient.colorAtLocation(t).red(),
                        reference(r.colorLocations, r.colorMidpoints, r.reds, t), 2e-6)
                << "gradient " << n << " at " << t;
            EXPECT_NEAR(r.gradient.opacityAtLocation(t),
                        reference(r.opacityLocations, r.opacityMidpoints, r.opacities, t), 1e-9);
        }
    }
}

TEST(ColorGradient, ReversalIsAMirror) {
    ColorGradient g = blackWhite(0.25);
    g.reverse();
    ASSERT_EQ(g.colorStops().size(), 2u);
    expectGrey(g.colorStops()[0].color, 1);
    EXPECT_EQ(g.colorStops()[0].location, 0);
    expectGrey(g.colorStops()[1].color, 0);
    EXPECT_EQ(g.colorStops()[1].location, 1);
    EXPECT_DOUBLE_EQ(g.colorStops()[1].midPoint, 0.75);

    std::mt19937 random(11);
    std::uniform_real_distribution<double> unit(0, 1);
    for (int n = 0; n < 200; ++n) {
        const RandomGradient r = randomGradient(random);
        ColorGradient reversed = r.gradient;
        reversed.reverse();
        for (int k = 0; k < 20; ++k) {
            const double t = unit(random);
            EXPECT_NEAR(reversed.colorAtLocation(t).red(), r.gradient.colorAtLocation(1 - t).red(),
                        1e-5);
            EXPECT_NEAR(reversed.opacityAtLocation(t), r.gradient.opacityAtLocation(1 - t), 1e-9);
        }
    }
}

TEST(ColorGradient, EditingClampsReplacesAndNeverShortensBelowTwo) {
    ColorGradient g;
    g.addColorStop({{1, 0, 0, 1}, 0.5});
    g.addColorStop({{0, 1, 0, 1}, 0.5}); // same location: replaces the red one
    ASSERT_EQ(g.colorStops().size(), 3u);
    EXPECT_EQ(g.colorStops()[1].color, PixelRGBA32(0, 1, 0, 1));
    g.addColorStop({{0, 0, 1, 1}, 0}); // replaces black at 0, sorted first
    EXPECT_EQ(g.colorStops()[0].color, PixelRGBA32(0, 0, 1, 1));

    g.removeColorStop(7); // past the end
    EXPECT_EQ(g.colorStops().size(), 3u);
    g.removeColorStop(1);
    g.removeColorStop(0); // two left: kept
    EXPECT_EQ(g.colorStops().size(), 2u);
    g.removeOpacityStop(0);
    EXPECT_EQ(g.opacityStops().size(), 2u);

    g.changeMidpointOfColorStop(1, 0);
    EXPECT_EQ(g.colorStops()[1].midPoint, 0.05);
    g.changeMidpointOfOpacityStop(1, 1);
    EXPECT_EQ(g.opacityStops()[1].midPoint, 0.95);
    g.changeLocationOfOpacityStop(0, 1.5);
    EXPECT_EQ(g.opacityStops()[0].location, 1); // not re-sorted
    g.changeLocationOfColorStop(1, -2);
    EXPECT_EQ(g.colorStops()[1].location, 0);
    g.changeColorOfStop(0, {0.3f, 0.4f, 0.5f, 0.2f});
    EXPECT_EQ(g.colorStops()[0].color, PixelRGBA32(0.3f, 0.4f, 0.5f, 1));
    g.changeOpacityOfStop(1, 7); // not clamped
    EXPECT_EQ(g.opacityStops()[1].opacity, 7);

    const ColorGradient before = g;
    g.changeColorOfStop(2, {1, 1, 1, 1});
    g.changeOpacityOfStop(9, 0);
    g.changeLocationOfColorStop(2, 0.5);
    g.changeMidpointOfOpacityStop(2, 0.5);
    EXPECT_EQ(g, before);

    EXPECT_FALSE(ColorGradient::make({{}}, {{}, {}}));
    EXPECT_FALSE(ColorGradient::make({{}, {}}, {{}}));
    const auto sorted = ColorGradient::make({{{1, 1, 1, 1}, 0.9}, {{0, 0, 0, 1}, 0.1}}, {{}, {}});
    EXPECT_EQ(sorted->colorStops()[0].location, 0.1);
}

TEST(ColorGradient, ColourConversionIsAllOrNothing) {
    ColorGradient g =
        *ColorGradient::make({{{1, 0, 0, 0.5f}, 0}, {{0, 0.5f, 1, 1}, 1}}, {{0.5, 0}, {1, 1}});
    const ColorGradient original = g;
    expectCode(
        [&] {
            g.convertColorSpace(cg::ColorSpace::sRGB(), cg::ColorSpace::deviceGray(),
                                cg::RenderingIntent::defaultIntent);
        },
        ImageCoreError::parameterError);
    // Four components are no grey colour: nothing can be made, nothing changes.
    expectCode(
        [&] {
            g.convertColorSpace(cg::ColorSpace::deviceGray(), cg::ColorSpace::sRGB(),
                                cg::RenderingIntent::defaultIntent);
        },
        ImageCoreError::unknownError);
    EXPECT_EQ(g, original);

    g.convertColorSpace(cg::ColorSpace::sRGB(), cg::ColorSpace::displayP3(),
                        cg::RenderingIntent::perceptual);
    for (std::size_t i = 0; i < 2; ++i) {
        const PixelRGBA32& c = original.colorStops()[i].color;
        const auto expected =
            cg::Color::make(cg::ColorSpace::sRGB(), {c.red(), c.green(), c.blue(), c.alpha()})
                ->matched(cg::ColorSpace::displayP3(), cg::RenderingIntent::perceptual)
                ->components();
        const PixelRGBA32& d = g.colorStops()[i].color;
        EXPECT_FLOAT_EQ(d.red(), float(expected[0]));
        EXPECT_FLOAT_EQ(d.green(), float(expected[1]));
        EXPECT_FLOAT_EQ(d.blue(), float(expected[2]));
        EXPECT_EQ(d.alpha(), 1);
        EXPECT_EQ(g.colorStops()[i].location, original.colorStops()[i].location);
    }
    EXPECT_NE(g.colorStops()[0].color.red(), 1); // P3 red of sRGB red is less saturated
    EXPECT_EQ(g.opacityStops(), original.opacityStops());
}

TEST(ColorGradient, PropertyListForm) {
    ColorGradient g = *ColorGradient::make({{{0, 0, 0, 1}, 0}, {{1, 0.5f, 0, 0.5f}, 1, 0.3}},
                                           {{1, 0}, {0.25, 1, 0.7}});
    g.setTitle("Sunset");
    const coding::Value plist = g.plistRepresentation();
    const auto& colors = *plist.find("Color Stops")->get<coding::Array>();
    EXPECT_EQ(*colors[0].find("Color")->get<std::string>(), "0.000000 0.000000 0.000000");
    EXPECT_EQ(*colors[1].find("Color")->get<std::string>(), "1.000000 0.500000 0.000000 0.500000");
    EXPECT_EQ(*colors[0].find("Mid Point")->get<double>(), 0.5); // written even when ½
    const auto& opacities = *plist.find("Opacity Stops")->get<coding::Array>();
    EXPECT_EQ(*opacities[1].find("Mid Point")->get<double>(), 0.7);

    // Through an XML property list and back: equal but for the title, which is not kept.
    const auto read = ColorGradient::fromPlistRepresentation(coding::readPropertyList(
        coding::writePropertyList(plist, coding::PropertyListFormat::xml)));
    ASSERT_TRUE(read);
    EXPECT_FALSE(read->title());
    g.setTitle(std::nullopt);
    EXPECT_EQ(*read, g);

    auto withColor = [](std::string text) {
        coding::Dictionary stop{{"Color", text}, {"Location", std::int64_t(0)}, {"Mid Point", 0.5}};
        coding::Dictionary last{{"Color", "1"}, {"Location", std::int64_t(1)}, {"Mid Point", 0.5}};
        coding::Dictionary opacity{{"Opacity", 1.0}, {"Location", 0.0}, {"Mid Point", 0.5}};
        return coding::Value(
            coding::Dictionary{{"Color Stops", coding::Array{stop, last}},
                               {"Opacity Stops", coding::Array{opacity, opacity}}});
    };
    const auto grey = ColorGradient::fromPlistRepresentation(withColor("0.5"));
    ASSERT_TRUE(grey); // integer locations read as numbers
    EXPECT_EQ(grey->colorStops()[0].color, PixelRGBA32(0.5f, 0.5f, 0.5f, 1));
    EXPECT_FALSE(ColorGradient::fromPlistRepresentation(withColor("1 2")));
    EXPECT_FALSE(ColorGradient::fromPlistRepresentation(withColor("0.1 x 0.3")));

    coding::Value oneStop = plist;
    coding::Dictionary& d = *oneStop.get<coding::Dictionary>();
    d[0].second.get<coding::Array>()->pop_back();
    EXPECT_FALSE(ColorGradient::fromPlistRepresentation(oneStop));
    coding::Value noMidpoint = plist;
    auto& firstStop = *(*noMidpoint.get<coding::Dictionary>())[0]
                           .second.get<coding::Array>()
                           ->at(0)
                           .get<coding::Dictionary>();
    firstStop.pop_back();
    EXPECT_FALSE(ColorGradient::fromPlistRepresentation(noMidpoint));
    EXPECT_FALSE(ColorGradient::fromPlistRepresentation(coding::Dictionary{}));
    EXPECT_FALSE(ColorGradient::fromPlistRepresentation(
        coding::Dictionary{{"Color Stops", coding::Array{1.0, 2.0}}}));
}

TEST(ColorGradient, KeyedForm) {
    ColorGradient g = *ColorGradient::make({{{0, 0, 0, 1}, 0}, {{1, 0.5f, 0, 0.5f}, 1, 0.3}},
                                           {{1, 0}, {0.25, 1, 0.7}});
    g.setTitle("Dropped");
    const coding::Value tree = coding::encode(g);
    const auto& colors = *tree.find("Color Stops")->get<coding::Array>();
    EXPECT_EQ(colors[0].find("Midpoint"), nullptr); // ½ is not written
    EXPECT_EQ(*colors[1].find("Midpoint")->get<double>(), 0.3);
    const auto back = coding::decodePropertyList<ColorGradient>(coding::writePropertyList(tree));
    g.setTitle(std::nullopt);
    EXPECT_EQ(back, g);

    // A missing list is the opaque default for it.
    coding::Value noOpacity = tree;
    noOpacity.get<coding::Dictionary>()->pop_back();
    const auto decoded = coding::decode<ColorGradient>(noOpacity);
    EXPECT_EQ(decoded.opacityStops(), ColorGradient().opacityStops());
    EXPECT_EQ(decoded.colorStops(), g.colorStops());

    auto expectCorrupted = [](const coding::Value& v) {
        try {
            coding::decode<ColorGradient>(v);
            ADD_FAILURE() << "decoded";
        } catch (const coding::DecodingError& e) {
            EXPECT_EQ(e.kind(), coding::DecodingError::Kind::dataCorrupted);
        }
    };
    coding::Value outOfRange = tree;
    (*(*outOfRange.get<coding::Dictionary>())[0]
          .second.get<coding::Array>()
          ->at(1)
          .get<coding::Dictionary>())[1]
        .second = 1.5;
    expectCorrupted(outOfRange);
    coding::Value badMidpoint = tree;
    (*(*badMidpoint.get<coding::Dictionary>())[0]
          .second.get<coding::Array>()
          ->at(1)
          .get<coding::Dictionary>())[2]
        .second = 0.01;
    expectCorrupted(badMidpoint);
    coding::Value single = tree;
    (*single.get<coding::Dictionary>())[1].second.get<coding::Array>()->pop_back();
    expectCorrupted(single);
}

TEST(ColorGradient, MappingTableFollowsEveryEdit) {
    ColorGradient g =
        *ColorGradient::make({{{1, 0, 0, 1}, 0}, {{0, 0, 1, 1}, 1, 0.25}}, {{0.2, 0}, {0.9, 1}});
    const std::vector<std::uint8_t> table = g.mappingData();
    ASSERT_EQ(table.size(), 4096u);
    auto entry = [](const std::vector<std::uint8_t>& t, int i) {
        std::array<float, 4> e;
        std::memcpy(e.data(), t.data() + 16 * i, 16);
        return e;
    };
    EXPECT_EQ(entry(table, 0), (std::array<float, 4>{1, 0, 0, 0.2f}));
    EXPECT_EQ(entry(table, 255), (std::array<float, 4>{0, 0, 1, 0.9f}));
    const PixelRGBA32 mid = g.colorAtLocation(100 / 255.0);
    EXPECT_EQ(entry(table, 100), (std::array<float, 4>{mid.red(), mid.green(), mid.blue(),
                                                       float(g.opacityAtLocation(100 / 255.0))}));

    // A copy edited afterwards gets a table of its own; the original keeps its.
    ColorGradient copy = g;
    copy.changeOpacityOfStop(0, 1);
    EXPECT_EQ(entry(copy.mappingData(), 0)[3], 1);
    EXPECT_EQ(entry(g.mappingData(), 0)[3], 0.2f);
    g.reverse();
    EXPECT_EQ(entry(g.mappingData(), 0), (std::array<float, 4>{0, 0, 1, 0.9f}));
}

TEST(ColorGradient, TypesAndPresets) {
    for (const GradientType t : GradientType::allCases()) {
        EXPECT_EQ(GradientType::fromTag(t.tag()), t);
        EXPECT_EQ(GradientType::fromRawValue(t.rawValue()), t);
        EXPECT_EQ(coding::decode<GradientType>(coding::encode(t)), t);
    }
    EXPECT_FALSE(GradientType::fromTag(6));
    EXPECT_FALSE(GradientType::fromTag(-1));
    EXPECT_EQ(GradientType(GradientType::shaped).rawValue(), "Shaped");
    EXPECT_EQ(GradientType(GradientType::diamond).tag(), 4);
    EXPECT_THROW(coding::decode<GradientType>(coding::Value("Conical")),
                 coding::FileReadCorruptError);
    resources::setPreferredLanguage("en");
    EXPECT_EQ(GradientType(GradientType::shaped).localizedName(), "Shaped by Content");
    resources::setPreferredLanguage("de");
    EXPECT_EQ(GradientType(GradientType::angle).localizedName(), "Winkel");
    resources::setPreferredLanguage(std::nullopt);

    EXPECT_EQ(ColorGradient(), ColorGradient::blackToWhite());
    EXPECT_EQ(ColorGradient::blackToTransparent().colorAtLocation(1), PixelRGBA32(0, 0, 0, 1));
    EXPECT_EQ(ColorGradient::blackToTransparent().opacityAtLocation(0.5), 0.5);
    EXPECT_EQ(ColorGradient::whiteToTransparent().colorAtLocation(0.3), PixelRGBA32(1, 1, 1, 1));
    EXPECT_EQ(ColorGradient::whiteToTransparent().opacityAtLocation(1), 0);
}

} // namespace
} // namespace bic
