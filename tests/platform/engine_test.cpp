#include "bic/platform/ci/context.hpp"
#include "bic/platform/ci/filter.hpp"
#include "bic/platform/ci/image_accumulator.hpp"
#include "bic/platform/ci/kernel.hpp"
#include "bic/platform/ci/processor_kernel.hpp"
#include "bic/platform/io/surface.hpp"

#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <mutex>
#include <numbers>
#include <random>

using namespace bic;
using namespace bic::ci;

namespace {

// Renders `rect` of an image into packed RGBA floats, top row first.
std::vector<float> renderFloats(const Image& image, const cg::Rect& rect,
                                Context::Options options = {}) {
    const auto w = std::int64_t(rect.width()), h = std::int64_t(rect.height());
    std::vector<float> out(std::size_t(w * h * 4), -1.0f);
    Context(options).render(image, out.data(), w * 16, rect, Format::RGBAf);
    return out;
}

std::vector<float> pixel(const std::vector<float>& px, std::size_t index) {
    return {px.begin() + 4 * index, px.begin() + 4 * index + 4};
}

Image rgba8(std::int64_t w, std::int64_t h, const std::vector<std::uint8_t>& bytes) {
    return *Image::fromBitmap(bytes.data(), w * 4, w, h, Format::RGBA8);
}

// One row of grey levels as an opaque RGBA8 image.
Image greyRow(const std::vector<std::uint8_t>& levels) {
    std::vector<std::uint8_t> bytes;
    for (auto v : levels)
        bytes.insert(bytes.end(), {v, v, v, 255});
    return rgba8(std::int64_t(levels.size()), 1, bytes);
}

void expectPixel(const std::vector<float>& px, std::size_t index, std::vector<float> expected,
                 float tolerance = 1e-6f) {
    for (int c = 0; c < 4; ++c)
        EXPECT_NEAR(px[4 * index + c], expected[c], tolerance)
            << "pixel " << index << " channel " << c;
}

} // namespace

TEST(Engine, StoredLayoutsReadAndWriteExactly) {
    const std::vector<std::uint8_t> bytes = {10, 20, 30, 40, 250, 251, 252, 253};
    const Image image = rgba8(2, 1, bytes);
    EXPECT_EQ(image.extent(), cg::Rect(0, 0, 2, 1));
    std::vector<std::uint8_t> back(8);
    Context().render(image, back.data(), 8, image.extent(), Format::RGBA8);
    EXPECT_EQ(back, bytes);
    std::vector<std::uint8_t> argb(8), bgra(8);
    Context().render(image, argb.data(), 8, image.extent(), Format::ARGB8);
    Context().render(image, bgra.data(), 8, image.extent(), Format::BGRA8);
    EXPECT_EQ(argb, (std::vector<std::uint8_t>{40, 10, 20, 30, 253, 250, 251, 252}));
    EXPECT_EQ(bgra, (std::vector<std::uint8_t>{30, 20, 10, 40, 252, 251, 250, 253}));
    std::uint16_t wide[8];
    Context().render(image, wide, 16, image.extent(), Format::RGBA16);
    EXPECT_EQ(wide[0], 10 * 257);
    EXPECT_EQ(wide[7], 253 * 257);
    std::uint8_t red[2];
    Context().render(image, red, 2, image.extent(), Format::L8);
    EXPECT_EQ(red[0], 10);
    EXPECT_EQ(red[1], 250);

    const std::uint8_t grey[2] = {0, 128};
    const auto g = renderFloats(*Image::fromBitmap(grey, 2, 2, 1, Format::L8), {0, 0, 2, 1});
    expectPixel(g, 1, {128 / 255.0f, 128 / 255.0f, 128 / 255.0f, 1});
    const float r[2] = {2.5f, -1};
    const auto rf = renderFloats(*Image::fromBitmap(r, 8, 2, 1, Format::Rf), {0, 0, 2, 1});
    expectPixel(rf, 0, {2.5f, 0, 0, 1});
    EXPECT_FALSE(Image::fromBitmap(bytes.data(), 7, 2, 1, Format::RGBA8));
    EXPECT_FALSE(Image::fromBitmap(bytes.data(), 8, 0, 1, Format::RGBA8));
}

TEST(Engine, WritesClampRoundHalfAwayAndFloatsPassThrough) {
    const Image c = Image::constant({0.5 / 255 + 0.5, 1.5, -0.2, 1});
    std::uint8_t px[4];
    Context().render(c, px, 4, {0, 0, 1, 1}, Format::RGBA8);
    EXPECT_EQ(px[0], 128); // 128.0 after scaling rounds to 128; 127.5 would round up too
    EXPECT_EQ(px[1], 255);
    EXPECT_EQ(px[2], 0);
    const Image half = Image::constant({127.5 / 255, 0, 0, 1});
    Context().render(half, px, 4, {0, 0, 1, 1}, Format::RGBA8);
    EXPECT_EQ(px[0], 128);
    const auto f = renderFloats(Image::constant({1.5, -0.25, 0, 1}), {0, 0, 1, 1});
    expectPixel(f, 0, {1.5f, -0.25f, 0, 1});
}

TEST(Engine, RowsAreStoredTopFirstAndYGrowsUp) {
    // Bottom row (y = 0) is the second memory row.
    const Image image = rgba8(1, 2, {255, 0, 0, 255, 0, 0, 255, 255});
    const auto bottom = renderFloats(image, {0, 0, 1, 1});
    expectPixel(bottom, 0, {0, 0, 1, 1});
    const auto top = renderFloats(image, {0, 1, 1, 1});
    expectPixel(top, 0, {1, 0, 0, 1});
    // Rendering at a point of a larger destination places the rectangle's lower-left corner there.
    std::vector<float> dest(3 * 3 * 4, 0.0f);
    RenderDestination d(dest.data(), 3, 3, 48, Format::RGBAf);
    Context().startTaskToRender(image, image.extent(), d, {2, 1}).waitUntilCompleted();
    // Destination memory row 0 is destination y = 2: the image's top row, at x = 2.
    EXPECT_EQ(pixel(dest, 2), (std::vector<float>{1, 0, 0, 1}));
    EXPECT_EQ(pixel(dest, 5), (std::vector<float>{0, 0, 1, 1}));
    EXPECT_EQ(pixel(dest, 8), (std::vector<float>{0, 0, 0, 0}));
}

TEST(Engine, ConstantColoursArePremultipliedAndInfinite) {
    const Image c = Image::constant({1, 0.5, 0, 0.5});
    EXPECT_TRUE(c.extent().isInfinite());
    expectPixel(renderFloats(c, {-1e6, 7, 1, 1}), 0, {0.5f, 0.25f, 0, 0.5f});
    EXPECT_TRUE(Image().extent().isNull());
    expectPixel(renderFloats(Image(), {0, 0, 1, 1}), 0, {0, 0, 0, 0});
    expectPixel(renderFloats(Image::white(), {0, 0, 1, 1}), 0, {1, 1, 1, 1});
    expectPixel(renderFloats(Image::black(), {0, 0, 1, 1}), 0, {0, 0, 0, 1});
    expectPixel(renderFloats(Image::clear(), {0, 0, 1, 1}), 0, {0, 0, 0, 0});
}

TEST(Engine, TranslationsAndTransforms) {
    const Image row = greyRow({51, 255});
    const Image moved = row.translated(1, 2);
    EXPECT_EQ(moved.extent(), cg::Rect(1, 2, 2, 1));
    const auto m = renderFloats(moved, {0, 2, 3, 1});
    expectPixel(m, 0, {0, 0, 0, 0});
    expectPixel(m, 1, {0.2f, 0.2f, 0.2f, 1});

    // Half a pixel to the right: every output pixel averages two neighbours, transparent
    // outside.
    const Image half = row.translated(0.5, 0);
    EXPECT_EQ(half.extent(), cg::Rect(0.5, 0, 2, 1));
    const auto h = renderFloats(half, {0, 0, 3, 1});
    expectPixel(h, 0, {0.1f, 0.1f, 0.1f, 0.5f});
    expectPixel(h, 1, {0.6f, 0.6f, 0.6f, 1});
    expectPixel(h, 2, {0.5f, 0.5f, 0.5f, 0.5f});

    // Nearest sampling: a centre exactly on a pixel edge takes the pixel to its right.
    const auto n = renderFloats(row.samplingNearest().translated(0.5, 0), {0, 0, 3, 1});
    expectPixel(n, 0, {0.2f, 0.2f, 0.2f, 1});
    expectPixel(n, 1, {1, 1, 1, 1});
    expectPixel(n, 2, {0, 0, 0, 0});
    const auto n2 = renderFloats(row.samplingNearest().translated(0.7, 0), {0, 0, 3, 1});
    expectPixel(n2, 0, {0, 0, 0, 0});
    expectPixel(n2, 1, {0.2f, 0.2f, 0.2f, 1});

    // A quarter turn about the origin maps pixel (x, 0) to (0, x) shifted left by one.
    const Image turned = row.transformed(cg::AffineTransform::rotation(std::numbers::pi / 2));
    const auto t = renderFloats(turned, {-1, 0, 1, 2});
    expectPixel(t, 1, {0.2f, 0.2f, 0.2f, 1}, 1e-5f); // bottom row holds y = 0
    expectPixel(t, 0, {1, 1, 1, 1}, 1e-5f);
    EXPECT_EQ(row.transformed(cg::AffineTransform::identity()), row);
}

TEST(Engine, CropAndClamp) {
    const Image row = greyRow({51, 102, 153, 204});
    const Image crop = row.cropped({1, 0, 2, 1});
    EXPECT_EQ(crop.extent(), cg::Rect(1, 0, 2, 1));
    const auto c = renderFloats(crop, {0, 0, 4, 1});
    expectPixel(c, 0, {0, 0, 0, 0});
    expectPixel(c, 1, {0.4f, 0.4f, 0.4f, 1});
    expectPixel(c, 3, {0, 0, 0, 0});
    // A rectangle covering half a pixel keeps half of it.
    expectPixel(renderFloats(row.cropped({0, 0, 0.5, 1}), {0, 0, 1, 1}), 0,
                {0.1f, 0.1f, 0.1f, 0.5f});
    EXPECT_TRUE(row.cropped({10, 10, 1, 1}).extent().isNull());
    EXPECT_EQ(row.cropped(cg::Rect::infinite()), row);

    const Image clamped = row.clamped({1, 0, 2, 1});
    EXPECT_TRUE(clamped.extent().isInfinite());
    const auto k = renderFloats(clamped, {-2, -3, 7, 1});
    expectPixel(k, 0, {0.4f, 0.4f, 0.4f, 1});
    expectPixel(k, 3, {0.4f, 0.4f, 0.4f, 1});
    expectPixel(k, 4, {0.6f, 0.6f, 0.6f, 1});
    expectPixel(k, 6, {0.6f, 0.6f, 0.6f, 1});
}

TEST(Engine, CompositingAndAlpha) {
    const Image red = Image::constant({1, 0, 0, 0.5}).cropped({0, 0, 2, 2});
    const Image blue = Image::constant({0, 0, 1, 1}).cropped({1, 0, 2, 2});
    const Image over = red.composited(blue);
    EXPECT_EQ(over.extent(), cg::Rect(0, 0, 3, 2));
    const auto o = renderFloats(over, {0, 0, 3, 1});
    expectPixel(o, 0, {0.5f, 0, 0, 0.5f});
    expectPixel(o, 1, {0.5f, 0, 0.5f, 1});
    expectPixel(o, 2, {0, 0, 1, 1});

    const auto u = renderFloats(red.unpremultiplyingAlpha(), {0, 0, 1, 1});
    expectPixel(u, 0, {1, 0, 0, 0.5f});
    const auto p = renderFloats(red.unpremultiplyingAlpha().premultiplyingAlpha(), {0, 0, 1, 1});
    expectPixel(p, 0, {0.5f, 0, 0, 0.5f});
    expectPixel(renderFloats(Image::clear().unpremultiplyingAlpha(), {0, 0, 1, 1}), 0,
                {0, 0, 0, 0});
}

TEST(Engine, ResultsDoNotDependOnTilesOrThreads) {
    std::mt19937 random(7);
    std::vector<std::uint8_t> bytes(61 * 47 * 4);
    for (auto& b : bytes)
        b = std::uint8_t(random());
    for (std::size_t i = 3; i < bytes.size(); i += 4)
        bytes[i] = std::max(bytes[i], bytes[i - 1]);
    const Image source = rgba8(61, 47, bytes).premultiplyingAlpha();
    const Image chain = *applyingFilter(
        *applyingFilter(
            source.transformed(cg::AffineTransform::rotation(0.3).translatedBy(3.25, -1.5)),
            "CIGaussianBlur", {{"inputRadius", 1.5}}),
        "CIColorMatrix", {{"inputRVector", std::vector<double>{0.5, 0.5, 0, 0}}});
    const Image wide = *applyingFilter(source, "CIGaussianBlur", {{"inputRadius", 24.0}});
    const cg::Rect area(-20, -20, 100, 90);
    for (const Image& image : {chain, wide}) {
        const auto reference = renderFloats(image, area, {512, 64, 1});
        EXPECT_EQ(renderFloats(image, area, {7, 5, 1}), reference);
        EXPECT_EQ(renderFloats(image, area, {13, 1, 0}), reference);
        EXPECT_EQ(renderFloats(image, area, {100, 90, 2}), reference);
    }
}

TEST(Engine, BadRendersAreRefusedBeforeWriting) {
    std::vector<float> out(16, 7.0f);
    RenderDestination d(out.data(), 2, 2, 32, Format::RGBAf);
    const Context context;
    EXPECT_THROW(context.startTaskToRender(Image::white(), cg::Rect::infinite(), d), RenderError);
    EXPECT_THROW(context.startTaskToRender(Image::white(), cg::Rect::null(), d), RenderError);
    EXPECT_THROW(context.startTaskToRender(Image::white(), {0, 0, 0, 5}, d), RenderError);
    EXPECT_THROW(context.startTaskToRender(Image::white(), {0, 0, 3, 1}, d), RenderError);
    EXPECT_THROW(context.startTaskToRender(Image::white(), {0, 0, 2, 2}, d, {1, 0}), RenderError);
    EXPECT_THROW(context.startTaskToRender(Image::white(), {0, 0, 1, 1}, d, {-1, 0}), RenderError);
    EXPECT_EQ(out, std::vector<float>(16, 7.0f));
    EXPECT_THROW(RenderDestination(out.data(), 2, 2, 16, Format::RGBAf), RenderError);
}

TEST(EngineDeathTest, NaNGeometryIsACallerError) {
    const double nan = std::nan("");
    EXPECT_DEATH(Image::white().transformed(cg::AffineTransform::translation(nan, 0)),
                 "non-finite");
    EXPECT_DEATH(Image::white().cropped({nan, 0, 1, 1}), "NaN");
}

TEST(Engine, IntermediatesRenderEachRegionOnce) {
    static std::atomic<int> rows{0};
    const ColorKernel counting("countingIdentity", [](const KernelRow& row) {
        ++rows;
        std::copy_n(row.samples[0], row.count * 4, row.out);
    });
    const Image base = *counting.apply({0, 0, 64, 64}, {Image::white()});
    const Image cached = base.insertingIntermediate();
    const auto first = renderFloats(cached, {0, 0, 64, 64}, {16, 16, 0});
    const int afterFirst = rows.load();
    EXPECT_EQ(afterFirst, 64) << "one cache tile holds the whole 64-row extent, rendered once";
    const auto second = renderFloats(cached, {0, 0, 64, 64}, {32, 8, 0});
    EXPECT_EQ(rows.load(), afterFirst);
    EXPECT_EQ(first, second);
    expectPixel(first, 0, {1, 1, 1, 1});
}

TEST(Engine, KernelsSeeCoordinatesArgumentsAndNeighbours) {
    const ColorKernel coordinates("coordinates", [](const KernelRow& row) {
        for (std::int64_t i = 0; i < row.count; ++i) {
            float* o = row.out + 4 * i;
            o[0] = float(row.x + i);
            o[1] = float(row.y);
            o[2] = float(row.number(0));
            o[3] = float(row.color(1).blue);
        }
    });
    const auto image = coordinates.apply({-2, 5, 3, 2}, {7.0, Color{0, 0, 0.25, 1}});
    ASSERT_TRUE(image);
    const auto px = renderFloats(*image, {-2, 5, 3, 2});
    expectPixel(px, 0, {-2, 6, 7, 0.25f}); // top-left is (−2, 6)
    expectPixel(px, 5, {0, 5, 7, 0.25f});
    EXPECT_FALSE(coordinates.apply(cg::Rect::null(), {}));

    // A general kernel reading its left neighbour, with a region of interest one pixel wider.
    const GeneralKernel leftNeighbour("leftNeighbour", [](const GeneralKernelRow& row) {
        for (std::int64_t i = 0; i < row.count; ++i)
            std::copy_n(row.samplers[0].at(row.x + i - 1, row.y), 4, row.out + 4 * i);
    });
    const Image row = greyRow({51, 102, 153});
    const auto shifted = leftNeighbour.apply(
        {0, 0, 4, 1}, [](int, const cg::Rect& r) { return r.insetBy(-1, 0); }, {row});
    const auto s = renderFloats(*shifted, {0, 0, 4, 1}, {1, 1, 1});
    expectPixel(s, 0, {0, 0, 0, 0});
    expectPixel(s, 1, {0.2f, 0.2f, 0.2f, 1});
    expectPixel(s, 3, {0.6f, 0.6f, 0.6f, 1});
}

TEST(Engine, SurfacesAsSourcesAndDestinations) {
    const auto surface =
        io::Surface::make({3, 2, io::surface_format::argb8, 4, io::Surface::alignBytesPerRow(12)});
    const std::uint32_t seed = surface->seed();
    Context().startTaskToRender(Image::constant({1, 0, 0, 1}).cropped({0, 0, 2, 2}), {0, 0, 3, 2},
                                RenderDestination(surface));
    EXPECT_NE(surface->seed(), seed);
    surface->lock(io::LockOptions::readOnly);
    const std::uint8_t* p = surface->baseAddress();
    EXPECT_EQ((std::vector<std::uint8_t>(p, p + 12)),
              (std::vector<std::uint8_t>{255, 255, 0, 0, 255, 255, 0, 0, 0, 0, 0, 0}));
    surface->unlock(io::LockOptions::readOnly);
    const auto image = Image::fromSurface(surface);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->extent(), cg::Rect(0, 0, 3, 2));
    expectPixel(renderFloats(*image, {0, 0, 3, 1}), 1, {1, 0, 0, 1});
}

namespace {

// Doubles red and reports every region it was given, for the checks below.
struct DoublingKernel : ProcessorKernel {
    mutable std::vector<cg::Rect> regions;
    mutable std::mutex mutex;
    void process(const std::vector<ProcessorInput>& inputs, const ProcessorArguments& arguments,
                 const ProcessorOutput& output) const override {
        {
            std::lock_guard lock(mutex);
            regions.push_back(output.region);
        }
        const double factor = std::get<double>(arguments.at("factor"));
        const ProcessorInput& in = inputs[0];
        EXPECT_EQ(in.format, Format::RGBAf);
        in.surface->lock(io::LockOptions::readOnly);
        output.surface->lock(io::LockOptions::readWrite);
        const auto w = std::int64_t(output.region.width()),
                   h = std::int64_t(output.region.height());
        for (std::int64_t y = 0; y < h; ++y) {
            const auto* s = reinterpret_cast<const float*>(in.surface->baseAddress() +
                                                           y * in.surface->bytesPerRow());
            auto* d = reinterpret_cast<float*>(output.surface->baseAddress() +
                                               y * output.surface->bytesPerRow());
            for (std::int64_t x = 0; x < w * 4; ++x)
                d[x] = s[x] * float(x % 4 == 0 ? factor : 1.0);
        }
        output.surface->unlock(io::LockOptions::readWrite);
        in.surface->unlock(io::LockOptions::readOnly);
    }
};

struct FailingKernel : ProcessorKernel {
    void process(const std::vector<ProcessorInput>&, const ProcessorArguments&,
                 const ProcessorOutput&) const override {
        throw std::runtime_error("kernel failed");
    }
};

} // namespace

TEST(Engine, ProcessorKernelsRunPerTileOnTheirRegions) {
    auto kernel = std::make_shared<DoublingKernel>();
    const Image source = greyRow({51, 102, 153, 204}).cropped({0, 0, 4, 1});
    const auto image = ProcessorKernel::apply(kernel, source.extent(), {source}, {{"factor", 2.0}});
    ASSERT_TRUE(image);
    const auto px = renderFloats(*image, {0, 0, 4, 1}, {2, 1, 1});
    expectPixel(px, 0, {0.4f, 0.2f, 0.2f, 1});
    expectPixel(px, 3, {1.6f, 0.8f, 0.8f, 1});
    ASSERT_EQ(kernel->regions.size(), 2u) << "one call per tile";
    EXPECT_EQ(kernel->regions[0], cg::Rect(0, 0, 2, 1));
    EXPECT_EQ(kernel->regions[1], cg::Rect(2, 0, 2, 1));
    EXPECT_FALSE(ProcessorKernel::apply(kernel, cg::Rect::infinite(), {source}, {}));

    const auto failing =
        ProcessorKernel::apply(std::make_shared<FailingKernel>(), source.extent(), {source}, {});
    std::vector<float> out(16);
    EXPECT_THROW(Context().render(*failing, out.data(), 64, {0, 0, 4, 1}, Format::RGBAf),
                 std::runtime_error);
}

TEST(Engine, AccumulatorsKeepPixelsAndUpdateDirtyRegions) {
    const auto accumulator = ImageAccumulator::make({10, 20, 4, 2}, Format::RGBA8);
    ASSERT_TRUE(accumulator);
    EXPECT_FALSE(ImageAccumulator::make(cg::Rect::infinite(), Format::RGBA8));
    EXPECT_FALSE(ImageAccumulator::make(cg::Rect::null(), Format::RGBA8));
    accumulator->setImage(Image::white());
    const Image before = accumulator->image();
    EXPECT_EQ(before.extent(), cg::Rect(10, 20, 4, 2));
    accumulator->setImage(Image::black(),
                          {11.5, 20, 1, 1}); // rounds out to x 11…13, the bottom row
    const auto after = renderFloats(accumulator->image(), {10, 20, 4, 2});
    expectPixel(after, 4, {1, 1, 1, 1}); // bottom row, x = 10
    expectPixel(after, 5, {0, 0, 0, 1});
    expectPixel(after, 6, {0, 0, 0, 1});
    expectPixel(after, 7, {1, 1, 1, 1});
    expectPixel(after, 1, {1, 1, 1, 1}); // top row untouched
    // The earlier image still shows the earlier contents.
    expectPixel(renderFloats(before, {10, 20, 4, 2}), 5, {1, 1, 1, 1});
}

TEST(Engine, ByteCopiesOfBitmapsLandWhereRenderedPixelsWould) {
    std::mt19937 random(3);
    std::vector<std::uint8_t> bytes(5 * 3 * 4);
    for (auto& b : bytes)
        b = std::uint8_t(random());
    const Image moved = rgba8(5, 3, bytes).translated(-2, 7);
    // Same layout, wholly inside the bitmap: copied as bytes.
    std::vector<std::uint8_t> copied(4 * 3 * 4, 0);
    RenderDestination d(copied.data(), 4, 3, 16, Format::RGBA8);
    Context().startTaskToRender(moved, {-1, 7, 3, 2}, d, {1, 1});
    // Another layout takes the general path; both must agree pixel for pixel.
    std::vector<std::uint8_t> general(4 * 3 * 4, 0);
    std::vector<float> floats(4 * 3 * 4, 0.0f);
    RenderDestination f(floats.data(), 4, 3, 64, Format::RGBAf);
    Context().startTaskToRender(moved, {-1, 7, 3, 2}, f, {1, 1});
    for (std::size_t i = 0; i < floats.size(); ++i)
        general[i] = std::uint8_t(std::lround(floats[i] * 255));
    EXPECT_EQ(copied, general);
    // Destination rows y = 1, 2 are memory rows 1, 0; memory row 2 (y = 0) stays untouched.
    EXPECT_EQ(std::vector<std::uint8_t>(copied.begin() + 32, copied.end()),
              std::vector<std::uint8_t>(16, 0));
    // Memory row 0, x = 1 holds image (−1, 8): source column 1 of source memory row 1.
    EXPECT_EQ(std::vector<std::uint8_t>(copied.begin() + 4, copied.begin() + 8),
              std::vector<std::uint8_t>(bytes.begin() + 24, bytes.begin() + 28));
}

TEST(Engine, ProceduralImagesAreEvaluatedWhereTransformsPlaceThem) {
    // A horizontal ramp scaled down by 4 and turned: each output pixel shows the ramp at the one
    // point its centre maps to (not a blend of the pixels around it), through pointwise
    // operations on the way.
    const auto gradient = Filter::named("CILinearGradient");
    gradient->setValue("inputPoint0", std::vector<double>{0, 0});
    gradient->setValue("inputPoint1", std::vector<double>{100, 0});
    gradient->setValue("inputColor0", Color{0, 0, 0, 1});
    gradient->setValue("inputColor1", Color{1, 1, 1, 1});
    const Image ramp = *gradient->outputImage();
    const cg::AffineTransform place = cg::AffineTransform::rotation(0.3)
                                          .concatenating(cg::AffineTransform::scale(0.25, 0.25))
                                          .concatenating(cg::AffineTransform::translation(7, 3));
    const Image inverted = *applyingFilter(ramp, "CIColorInvert");
    const Image placed = inverted.transformed(place);
    const auto px = renderFloats(placed, {0, 0, 8, 8});
    const cg::AffineTransform back = place.inverted();
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            const cg::Point p = back.apply(cg::Point{x + 0.5, y + 0.5});
            const float want = 1 - float(std::clamp(p.x / 100, 0.0, 1.0));
            EXPECT_NEAR(px[std::size_t(((7 - y) * 8 + x) * 4)], want, 1e-6) << x << "," << y;
        }
    // A bitmap is still resampled: between two pixels of 0 and 1 a half-pixel shift gives ½.
    const float two[8] = {0, 0, 0, 1, 1, 1, 1, 1};
    const Image pair = *Image::fromBitmap(two, 32, 2, 1, Format::RGBAf);
    EXPECT_NEAR(
        renderFloats(pair.transformed(cg::AffineTransform::translation(0.5, 0)), {1, 0, 1, 1})[0],
        0.5f, 1e-6f);
}
