// Rendering into memory: the 8-bit layouts (premultiplied and straight, RGBA and BGRA), YUV 4:2:0
// of known colours, bitmaps, and the named-filter registry.
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "image/ImageFilterRegistry.h"
#include "image/ImageTestSupport.h"
#include "image/RenderContext.h"

using namespace qm;
using namespace qm::test;

namespace {

std::vector<uint8_t> render8(const Image& image, const Rect& region, PixelFormat format) {
    const PixelRect r = PixelRect::enclosing(region);
    std::vector<uint8_t> bytes(size_t(r.area()) * 4, 0xEE);
    RenderContext::create()->render(image, region, format, bytes.data(), size_t(r.width) * 4);
    return bytes;
}

struct YUV {
    std::vector<uint8_t> y, u, v;
};

YUV renderYUV(const Image& image, int width, int height) {
    const int cw = (width + 1) / 2;
    const int ch = (height + 1) / 2;
    YUV out{std::vector<uint8_t>(size_t(width * height)), std::vector<uint8_t>(size_t(cw * ch)),
            std::vector<uint8_t>(size_t(cw * ch))};
    RenderContext::Options options;
    options.tileSize = 16;
    RenderContext::create(options)->renderYUV420(
        image, Rect{0, 0, double(width), double(height)},
        {out.y.data(), size_t(width), out.u.data(), size_t(cw), out.v.data(), size_t(cw)});
    return out;
}

}  // namespace

TEST(RenderContextTest, EightBitLayouts) {
    // Premultiplied (0.25, 0.5, 0, 0.5): straight (0.5, 1, 0).
    const Image color = Image::imageWithColor(Color{0.5, 1, 0, 0.5});
    const Rect one{0, 0, 1, 1};
    EXPECT_EQ(render8(color, one, PixelFormat::RGBA8Premultiplied), (std::vector<uint8_t>{64, 128, 0, 128}));
    EXPECT_EQ(render8(color, one, PixelFormat::RGBA8), (std::vector<uint8_t>{128, 255, 0, 128}));
    EXPECT_EQ(render8(color, one, PixelFormat::BGRA8Premultiplied), (std::vector<uint8_t>{0, 128, 64, 128}));
    EXPECT_EQ(render8(color, one, PixelFormat::BGRA8), (std::vector<uint8_t>{0, 255, 128, 128}));
    // Out-of-range values are clamped; transparent stays zero in the straight layouts.
    const Image bright = Image::imageWithColor(Color{0.9, 0.1, 0.5, 1}).colorControls(0.5, 1, 1);
    EXPECT_EQ(render8(bright, one, PixelFormat::RGBA8), (std::vector<uint8_t>{255, 153, 255, 255}));
    EXPECT_EQ(render8(Image::emptyImage(), one, PixelFormat::BGRA8), (std::vector<uint8_t>{0, 0, 0, 0}));
    EXPECT_EQ(render8(Image(), one, PixelFormat::RGBA8Premultiplied), (std::vector<uint8_t>{0, 0, 0, 0}));
}

TEST(RenderContextTest, RowsRunFromTheTopOfTheRegion) {
    const auto bitmap = patternBitmap(37, 23);
    const Image picture = Image::imageWithBitmap(bitmap);
    // A region offset from the picture: memory row 0 is image row 19, the region's top.
    const std::vector<uint8_t> bytes = render8(picture, Rect{5, 2, 20, 18}, PixelFormat::RGBA8Premultiplied);
    for (int row = 0; row < 18; ++row)
        for (int x = 0; x < 20; ++x) {
            const auto expected = bitmap->pixelAt(x + 5, 23 - 1 - (19 - row));
            for (int c = 0; c < 4; ++c) ASSERT_EQ(bytes[size_t((row * 20 + x) * 4 + c)], expected[size_t(c)]);
        }
    // A bitmap made from an image matches the original, byte for byte.
    const auto copy = RenderContext::create()->createBitmap(picture, picture.extent());
    ASSERT_NE(copy, nullptr);
    ASSERT_EQ(copy->width(), 37);
    ASSERT_EQ(copy->height(), 23);
    for (int y = 0; y < 23; ++y)
        for (int x = 0; x < 37; ++x) ASSERT_EQ(copy->pixelAt(x, y), bitmap->pixelAt(x, y));
    EXPECT_EQ(RenderContext::create()->createBitmap(Image::imageWithColor(Color::white()), Image::infiniteExtent()),
              nullptr);
    EXPECT_EQ(RenderContext::create()->createBitmap(picture, Rect{}), nullptr);
}

TEST(RenderContextTest, YUVOfKnownColours) {
    struct Case {
        Color color;
        uint8_t y, u, v;
    };
    // BT.709, limited range.
    const Case cases[] = {
        {Color{1, 1, 1, 1}, 235, 128, 128}, {Color{0, 0, 0, 1}, 16, 128, 128},   {Color{1, 0, 0, 1}, 63, 102, 240},
        {Color{0, 1, 0, 1}, 173, 42, 26},   {Color{0, 0, 1, 1}, 32, 240, 118},   {Color{0, 0, 0, 0}, 16, 128, 128},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.color.description());
        const YUV yuv = renderYUV(Image::imageWithColor(c.color), 4, 2);
        for (uint8_t y : yuv.y) EXPECT_EQ(y, c.y);
        for (uint8_t u : yuv.u) EXPECT_EQ(u, c.u);
        for (uint8_t v : yuv.v) EXPECT_EQ(v, c.v);
    }
}

TEST(RenderContextTest, YUVChromaAveragesEachBlockAndHandlesOddSizes) {
    // Left column white, the rest black, in a 3 x 3 frame split over 16-pixel tiles.
    const Image picture =
        sourceOver(Image::imageWithColor(Color::white()).cropped(Rect{0, 0, 1, 3}),
                   Image::imageWithColor(Color::black()).cropped(Rect{0, 0, 3, 3}));
    const YUV yuv = renderYUV(picture, 3, 3);
    EXPECT_EQ(yuv.y, (std::vector<uint8_t>{235, 16, 16, 235, 16, 16, 235, 16, 16}));
    // Chroma of grey is neutral whatever the mix.
    for (uint8_t u : yuv.u) EXPECT_EQ(u, 128);
    for (uint8_t v : yuv.v) EXPECT_EQ(v, 128);
    // A red and blue pair averages to purple in its block.
    const Image pair = sourceOver(Image::imageWithColor(Color{1, 0, 0, 1}).cropped(Rect{0, 0, 1, 2}),
                                  Image::imageWithColor(Color{0, 0, 1, 1}).cropped(Rect{0, 0, 2, 2}));
    const YUV purple = renderYUV(pair, 2, 2);
    EXPECT_EQ(purple.u[0], 171);
    EXPECT_EQ(purple.v[0], 179);
}

TEST(ImageFilterRegistryTest, NamesStoredAsDataBuildTheirOperations) {
    EXPECT_EQ(ImageFilterRegistry::filterNames(),
              (std::vector<std::string>{"CIColorControls", "CIColorInvert", "CIMedianFilter", "CIPhotoEffectChrome",
                                        "CIPhotoEffectFade", "CIPhotoEffectMono", "CIPhotoEffectNoir",
                                        "CIPhotoEffectTonal", "CIPhotoEffectInstant", "CIPhotoEffectProcess",
                                        "CIPhotoEffectTransfer"}));
    EXPECT_EQ(ImageFilterRegistry::filterWithName("None"), nullptr);
    EXPECT_EQ(ImageFilterRegistry::filterWithName(""), nullptr);
    EXPECT_EQ(ImageFilterRegistry::filterWithName("CIPhotoEffectnoir"), nullptr);

    const Image color = Image::imageWithColor(Color{0.7, 0.3, 0.2, 1});
    const Pixel viaName =
        renderPixels(ImageFilterRegistry::filterWithName("CIColorControls")
                         ->apply(color, {{"inputBrightness", 0.1}, {"inputContrast", 1.2}, {"inputSaturation", 0.5}}),
                     {0, 0, 1, 1})
            .at(0, 0);
    expectPixelNear(viaName, renderPixels(color.colorControls(0.1, 1.2, 0.5), {0, 0, 1, 1}).at(0, 0), 1e-6f);
    // Missing keys take the filter's defaults: neutral colour controls.
    expectPixelNear(renderPixels(ImageFilterRegistry::filterWithName("CIColorControls")->apply(color), {0, 0, 1, 1}).at(0, 0),
                    renderPixels(color, {0, 0, 1, 1}).at(0, 0), 1e-6f);
    expectPixelNear(
        renderPixels(ImageFilterRegistry::filterWithName("CIPhotoEffectNoir")->apply(color), {0, 0, 1, 1}).at(0, 0),
        renderPixels(color.photoEffect(PhotoEffect::Noir), {0, 0, 1, 1}).at(0, 0), 1e-6f);
    for (const std::string& name : ImageFilterRegistry::filterNames()) {
        EXPECT_FALSE(ImageFilterRegistry::filterWithName(name)->apply(color).isNull()) << name;
        EXPECT_TRUE(ImageFilterRegistry::filterWithName(name)->apply(Image()).isNull()) << name;
    }
}
