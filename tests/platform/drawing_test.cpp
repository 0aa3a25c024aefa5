#include "bic/platform/draw/context.hpp"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <numbers>

using namespace bic;
using namespace bic::cg;

namespace {

struct Layout {
    const char* name;
    int bpc;
    ColorSpace space;
    BitmapInfo info;
    int bytes;
};

std::vector<Layout> layouts() {
    return {{"ARGB8", 8, ColorSpace::deviceRGB(), bitmap::alphaPremultipliedFirst, 4},
            {"RGBA8", 8, ColorSpace::deviceRGB(), bitmap::alphaPremultipliedLast, 4},
            {"RGBA16", 16, ColorSpace::deviceRGB(),
             bitmap::alphaPremultipliedLast | bitmap::byteOrder16Little, 8},
            {"RGBAf", 32, ColorSpace::deviceRGB(),
             bitmap::alphaPremultipliedLast | bitmap::floatComponents | bitmap::byteOrder32Little,
             16},
            {"L8", 8, ColorSpace::deviceGray(), bitmap::alphaNone, 1},
            {"L16", 16, ColorSpace::deviceGray(), bitmap::alphaNone | bitmap::byteOrder16Little, 2},
            {"Lf", 32, ColorSpace::deviceGray(),
             bitmap::alphaNone | bitmap::floatComponents | bitmap::byteOrder32Little, 4}};
}

std::unique_ptr<Context> grey8(std::int64_t w, std::int64_t h) {
    return Context::bitmap(nullptr, w, h, 8, w, ColorSpace::deviceGray(), bitmap::alphaNone);
}

// Value of the grey pixel at device (x, y), y counted from the bottom.
int at(Context& c, std::int64_t x, std::int64_t y) {
    return c.data()[(c.height() - 1 - y) * c.bytesPerRow() + x];
}

double coverage(Context& c) {
    double total = 0;
    for (std::int64_t i = 0; i < c.height() * c.bytesPerRow(); ++i)
        total += c.data()[i] / 255.0;
    return total;
}

} // namespace

TEST(Drawing, RectangleFillsArePixelExactInEveryLayout) {
    for (const auto& l : layouts()) {
        auto c = Context::bitmap(nullptr, 4, 3, l.bpc, 4 * l.bytes, l.space, l.info);
        ASSERT_TRUE(c) << l.name;
        c->setFillColor(Color::deviceRGB(0.2, 0.4, 0.6));
        c->fill({1, 1, 2, 1}); // device row y = 1 is memory row 1
        const ci::Format f = c->format();
        for (std::int64_t row = 0; row < 3; ++row)
            for (std::int64_t x = 0; x < 4; ++x) {
                const std::uint8_t* p = c->data() + row * c->bytesPerRow() + x * l.bytes;
                const bool inside = row == 1 && (x == 1 || x == 2);
                float v[4] = {0, 0, 0, 0};
                switch (f) {
                case ci::Format::ARGB8:
                    v[0] = p[1], v[1] = p[2], v[2] = p[3], v[3] = p[0];
                    break;
                case ci::Format::RGBA8:
                    v[0] = p[0], v[1] = p[1], v[2] = p[2], v[3] = p[3];
                    break;
                case ci::Format::RGBA16: {
                    std::uint16_t s[4];
                    std::memcpy(s, p, 8);
                    for (int k = 0; k < 4; ++k)
                        v[k] = s[k];
                    break;
                }
                case ci::Format::RGBAf:
                    std::memcpy(v, p, 16);
                    break;
                case ci::Format::L8:
                    v[0] = p[0];
                    break;
                case ci::Format::L16: {
                    std::uint16_t s;
                    std::memcpy(&s, p, 2);
                    v[0] = s;
                    break;
                }
                case ci::Format::Lf:
                    std::memcpy(v, p, 4);
                    break;
                default:
                    FAIL();
                }
                if (!inside) {
                    EXPECT_EQ(v[0], 0) << l.name << " " << x << "," << row;
                    continue;
                }
                switch (f) {
                case ci::Format::ARGB8:
                case ci::Format::RGBA8:
                    EXPECT_EQ(v[0], 51) << l.name;
                    EXPECT_EQ(v[1], 102) << l.name;
                    EXPECT_EQ(v[2], 153) << l.name;
                    EXPECT_EQ(v[3], 255) << l.name;
                    break;
                case ci::Format::RGBA16:
                    EXPECT_EQ(v[2], 39321) << l.name;
                    break;
                case ci::Format::RGBAf:
                    EXPECT_NEAR(v[1], 0.4f, 1e-6f) << l.name;
                    break;
                case ci::Format::L8:
                    EXPECT_EQ(v[0], 92) << l.name;
                    break; // 0.3·0.2 + 0.59·0.4 + 0.11·0.6 = 0.362
                case ci::Format::L16:
                    EXPECT_EQ(v[0], 23724) << l.name;
                    break;
                case ci::Format::Lf:
                    EXPECT_NEAR(v[0], 0.362f, 1e-6f) << l.name;
                    break;
                default:
                    break;
                }
            }
    }
}

TEST(Drawing, RefusesLayoutsAndRowsItCannotHold) {
    EXPECT_FALSE(Context::bitmap(nullptr, 4, 4, 8, 15, ColorSpace::deviceRGB(),
                                 bitmap::alphaPremultipliedFirst));
    EXPECT_FALSE(Context::bitmap(nullptr, 4, 4, 8, 16, ColorSpace::deviceRGB(), bitmap::alphaLast));
    EXPECT_FALSE(Context::bitmap(nullptr, 0, 4, 8, 16, ColorSpace::deviceRGB(),
                                 bitmap::alphaPremultipliedFirst));
    EXPECT_FALSE(Context::bitmap(nullptr, 4, 4, 16, 8, ColorSpace::deviceGray(),
                                 bitmap::alphaNone)); // big-endian 16
    EXPECT_FALSE(Context::bitmap(nullptr, 4, 4, 8, 16, ColorSpace::psdLab(), bitmap::alphaNone));
}

TEST(Drawing, AntialiasedCircleCoversItsArea) {
    auto c = grey8(64, 64);
    c->setFillColor(Color::deviceGray(1));
    c->beginPath();
    c->addPath(Path::ellipse({12, 12, 40, 40}));
    c->fillPath();
    const double area = std::numbers::pi * 20 * 20;
    EXPECT_NEAR(coverage(*c), area, area * 0.005);
    bool partial = false;
    for (std::int64_t i = 0; i < 64 * 64; ++i)
        partial |= c->data()[i] != 0 && c->data()[i] != 255;
    EXPECT_TRUE(partial);

    auto hard = grey8(64, 64);
    hard->setShouldAntialias(false);
    hard->setFillColor(Color::deviceGray(1));
    hard->beginPath();
    hard->addPath(Path::ellipse({12, 12, 40, 40}));
    hard->fillPath();
    for (std::int64_t i = 0; i < 64 * 64; ++i)
        ASSERT_TRUE(hard->data()[i] == 0 || hard->data()[i] == 255);
    EXPECT_NEAR(coverage(*hard), area, area * 0.03);
}

TEST(Drawing, FillRules) {
    Path rings;
    rings.addRect({0, 0, 10, 10});
    rings.addRect({3, 3, 4, 4}); // same direction: winding fills it, even-odd leaves a hole
    for (auto rule : {PathFillRule::winding, PathFillRule::evenOdd}) {
        auto c = grey8(10, 10);
        c->setFillColor(Color::deviceGray(1));
        c->addPath(rings);
        c->fillPath(rule);
        EXPECT_EQ(at(*c, 5, 5), rule == PathFillRule::winding ? 255 : 0);
        EXPECT_EQ(at(*c, 1, 1), 255);
    }
}

TEST(Drawing, DashesAndCapsAreMeasuredAlongTheLine) {
    auto c = grey8(60, 4);
    c->setShouldAntialias(false);
    c->setStrokeColor(Color::deviceGray(1));
    c->setLineWidth(2);
    c->setLineDash(0, {6, 6});
    Path line;
    line.moveTo({0, 2});
    line.addLineTo({60, 2});
    c->addPath(line);
    c->strokePath();
    std::vector<int> runs;
    int value = at(*c, 0, 2), length = 0;
    for (int x = 0; x < 60; ++x) {
        if (at(*c, x, 2) == value) {
            ++length;
        } else {
            runs.push_back(length);
            value = at(*c, x, 2);
            length = 1;
        }
    }
    runs.push_back(length);
    EXPECT_EQ(at(*c, 0, 2), 255);
    EXPECT_EQ(runs, std::vector<int>(10, 6));
    EXPECT_EQ(at(*c, 0, 0), 0) << "a 2-wide line centred on y = 2 covers rows 1 and 2";
    EXPECT_EQ(at(*c, 0, 1), 255);

    // A square cap reaches half the width beyond the end point; a butt cap does not.
    for (auto cap : {LineCap::butt, LineCap::square}) {
        auto s = grey8(20, 6);
        s->setShouldAntialias(false);
        s->setStrokeColor(Color::deviceGray(1));
        s->setLineWidth(4);
        s->setLineCap(cap);
        Path seg;
        seg.moveTo({5, 3});
        seg.addLineTo({15, 3});
        s->addPath(seg);
        s->strokePath();
        EXPECT_EQ(at(*s, 16, 3), cap == LineCap::square ? 255 : 0);
        EXPECT_EQ(at(*s, 14, 3), 255);
    }
}

TEST(Drawing, TransformsClipsAndState) {
    auto c = grey8(10, 10);
    c->setFillColor(Color::deviceGray(1));
    c->saveGState();
    c->translateBy(5, 5);
    c->scaleBy(2, 2);
    c->fill({0, 0, 1, 1}); // device (5, 5)…(7, 7)
    c->restoreGState();
    EXPECT_EQ(at(*c, 5, 5), 255);
    EXPECT_EQ(at(*c, 6, 6), 255);
    EXPECT_EQ(at(*c, 7, 7), 0);
    EXPECT_TRUE(c->ctm().isIdentity());

    c->saveGState();
    c->clip({0, 0, 2, 10});
    c->fill({0, 0, 10, 1});
    c->restoreGState();
    EXPECT_EQ(at(*c, 1, 0), 255);
    EXPECT_EQ(at(*c, 2, 0), 0);

    c->rotateBy(std::numbers::pi / 2); // (x, y) → (−y, x)
    c->fill({0, -1, 1, 1});            // device (0…1, 0…1)
    EXPECT_EQ(at(*c, 0, 0), 255);

    Path nan;
    nan.moveTo({std::nan(""), 0});
    nan.addLineTo({5, 5});
    nan.addLineTo({0, 5});
    const double before = coverage(*c);
    c->addPath(nan);
    c->fillPath();
    EXPECT_EQ(coverage(*c), before);
}

TEST(Drawing, ImagesCopyWithExactConversions) {
    auto bytes = std::make_shared<const std::vector<std::uint8_t>>(
        std::vector<std::uint8_t>{255, 1, 128, 77});
    const auto image = Image::make(1, 1, 8, 32, 4, ColorSpace::deviceRGB(),
                                   bitmap::alphaPremultipliedFirst, bytes);
    ASSERT_TRUE(image);
    auto wide = Context::bitmap(nullptr, 2, 1, 16, 16, ColorSpace::deviceRGB(),
                                bitmap::alphaPremultipliedLast | bitmap::byteOrder16Little);
    wide->setBlendMode(BlendMode::copy);
    wide->draw(*image, {1, 0, 1, 1});
    std::uint16_t px[8];
    std::memcpy(px, wide->data(), 16);
    EXPECT_EQ(px[3], 0) << "outside the image rectangle nothing changes";
    EXPECT_EQ(px[4], 257);
    EXPECT_EQ(px[5], 128 * 257);
    EXPECT_EQ(px[6], 77 * 257);
    EXPECT_EQ(px[7], 65535);

    const std::vector<float> f = {1.2f, -0.1f, 127.5f / 255, 1};
    auto floats = std::make_shared<const std::vector<std::uint8_t>>(
        reinterpret_cast<const std::uint8_t*>(f.data()),
        reinterpret_cast<const std::uint8_t*>(f.data()) + 16);
    const auto fimage = Image::make(1, 1, 32, 128, 16, ColorSpace::deviceRGB(),
                                    bitmap::alphaPremultipliedLast | bitmap::floatComponents |
                                        bitmap::byteOrder32Little,
                                    floats);
    auto narrow = Context::bitmap(nullptr, 1, 1, 8, 4, ColorSpace::deviceRGB(),
                                  bitmap::alphaPremultipliedLast);
    narrow->setBlendMode(BlendMode::copy);
    narrow->draw(*fimage, {0, 0, 1, 1});
    EXPECT_EQ(std::vector<std::uint8_t>(narrow->data(), narrow->data() + 4),
              (std::vector<std::uint8_t>{255, 0, 128, 255}));

    // Grey into colour, colour into grey.
    auto g = std::make_shared<const std::vector<std::uint8_t>>(std::vector<std::uint8_t>{200});
    const auto greyImage =
        Image::make(1, 1, 8, 8, 1, ColorSpace::deviceGray(), bitmap::alphaNone, g);
    narrow->draw(*greyImage, {0, 0, 1, 1});
    EXPECT_EQ(std::vector<std::uint8_t>(narrow->data(), narrow->data() + 4),
              (std::vector<std::uint8_t>{200, 200, 200, 255}));
    auto gc = grey8(1, 1);
    gc->draw(*image, {0, 0, 1, 1});
    EXPECT_EQ(gc->data()[0], 84); // 0.3·1 + 0.59·128 + 0.11·77 = 84.3

    const auto snapshot = wide->makeImage();
    ASSERT_TRUE(snapshot);
    EXPECT_EQ(snapshot->format(), ci::Format::RGBA16);
    EXPECT_FALSE(Image::make(2, 2, 8, 32, 8, ColorSpace::deviceRGB(),
                             bitmap::alphaPremultipliedFirst, bytes));
}

TEST(Drawing, SourceOverAndGradients) {
    auto c = Context::bitmap(nullptr, 10, 1, 8, 40, ColorSpace::deviceRGB(),
                             bitmap::alphaPremultipliedLast);
    c->setFillColor(Color::deviceRGB(0, 0, 1));
    c->fill({0, 0, 10, 1});
    c->setFillColor(Color::deviceRGB(1, 0, 0, 0.5));
    c->fill({0, 0, 1, 1});
    EXPECT_EQ(std::vector<std::uint8_t>(c->data(), c->data() + 4),
              (std::vector<std::uint8_t>{128, 0, 128, 255}));

    c->drawLinearGradient({{Color::deviceGray(0), Color::deviceGray(1)}, {0, 1}}, {0, 0}, {10, 0});
    EXPECT_EQ(c->data()[0], 13);      // centre 0.5 → t = 0.05
    EXPECT_EQ(c->data()[4 * 9], 242); // centre 9.5 → t = 0.95
    EXPECT_EQ(c->data()[4 * 9 + 3], 255);

    auto part = Context::bitmap(nullptr, 10, 1, 8, 40, ColorSpace::deviceRGB(),
                                bitmap::alphaPremultipliedLast);
    part->drawLinearGradient({{Color::deviceGray(1), Color::deviceGray(1)}, {0, 1}}, {2, 0}, {8, 0},
                             false, false);
    EXPECT_EQ(part->data()[4 * 1 + 3], 0);
    EXPECT_EQ(part->data()[4 * 2 + 3], 255);
    EXPECT_EQ(part->data()[4 * 8 + 3], 0);
}

TEST(Drawing, LargeFillsJoinTheirBandsWithoutSeams) {
    // Large fills are rasterised in bands of 256 rows counted from the top of the area drawn. A
    // tiny square far above the circle moves that area's top, and so every band edge, relative
    // to the circle; with seamless bands the circle's pixels cannot change.
    auto plain = grey8(1100, 1100);
    auto shifted = grey8(1100, 1100);
    for (auto* c : {plain.get(), shifted.get()})
        c->setFillColor(Color::deviceGray(1));
    plain->addPath(Path::ellipse({50, 20, 1000, 1000}));
    plain->fillPath();
    Path both = Path::ellipse({50, 20, 1000, 1000});
    both.addRect({0, 1097, 1, 1});
    shifted->addPath(both);
    shifted->fillPath();
    for (std::int64_t y = 0; y < 1090; ++y)
        for (std::int64_t x = 0; x < 1100; ++x)
            ASSERT_EQ(at(*plain, x, y), at(*shifted, x, y)) << x << "," << y;
    const double area = std::numbers::pi * 500 * 500;
    EXPECT_NEAR(coverage(*plain), area, area * 0.005);
}

TEST(Drawing, GradientsAcrossRectanglesAtAnAngle) {
    const Gradient blackToWhite{{Color::deviceGray(0), Color::deviceGray(1)}, {0, 1}};
    auto up = grey8(4, 10);
    up->drawLinearGradient(blackToWhite, Rect(0, 0, 4, 10), 90); // bottom to top
    EXPECT_EQ(at(*up, 0, 0), 13);                                // centre 0.5 of 10
    EXPECT_EQ(at(*up, 3, 9), 242);
    auto diagonal = grey8(10, 10);
    diagonal->drawLinearGradient(blackToWhite, Rect(2, 2, 6, 6), 45);
    EXPECT_EQ(at(*diagonal, 1, 1), 0) << "clipped to the rectangle";
    EXPECT_LT(at(*diagonal, 2, 2), 30);
    EXPECT_GT(at(*diagonal, 7, 7), 225);
    EXPECT_EQ(at(*diagonal, 2, 7), at(*diagonal, 7, 2)) << "the other diagonal is one level";
    EXPECT_TRUE(diagonal->ctm().isIdentity());
}
