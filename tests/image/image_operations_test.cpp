// Pixel checks of each image operation on small inputs: compositing arithmetic, colour operations,
// crop, transforms and resampling, blur, median and the photo effects.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>

#include "image/Image.h"
#include "image/ImageTestSupport.h"

using namespace qm;
using namespace qm::test;

namespace {

constexpr float kExact = 1e-6f;
// The bitmap sampler interpolates in 1/128 steps on 8-bit values.
constexpr float kByteStep = 1.5f / 255.f;

Image colorSquare(const Color& color, const Rect& rect) { return Image::imageWithColor(color).cropped(rect); }

// One pixel of a constant image, as premultiplied floats.
Pixel one(const Image& image) { return renderPixels(image, {0, 0, 1, 1}).at(0, 0); }

}  // namespace

TEST(ImageCompositingTest, SourceOverAddsTheBackgroundUnderTheForegroundsAlpha) {
    const Image fg = Image::imageWithColor(Color{0.2, 0.4, 0.6, 0.5});
    const Image bg = Image::imageWithColor(Color{1, 0, 0, 1});
    // (0.1, 0.2, 0.3, 0.5) + (1, 0, 0, 1) * 0.5
    expectPixelNear(one(sourceOver(fg, bg)), {0.6f, 0.2f, 0.3f, 1}, kExact);
    // Where only one of them has pixels, that one shows.
    const Image left = colorSquare(Color{0, 0, 1, 1}, Rect{0, 0, 2, 1});
    const Image right = colorSquare(Color{0, 1, 0, 0.25}, Rect{1, 0, 2, 1});
    const RenderedPixels pixels = renderPixels(sourceOver(right, left), {0, 0, 4, 1});
    expectPixelNear(pixels.at(0, 0), {0, 0, 1, 1}, kExact);
    expectPixelNear(pixels.at(1, 0), {0, 0.25f, 0.75f, 1}, kExact);
    expectPixelNear(pixels.at(2, 0), {0, 0.25f, 0, 0.25f}, kExact);
    expectPixelNear(pixels.at(3, 0), {0, 0, 0, 0}, kExact);
}

TEST(ImageCompositingTest, SourceOverAPictureWithColourStages) {
    // The background is a picture through colour controls and a fade; the composite is the
    // per-pixel formula over the separately rendered layers.
    const auto picture = makeBitmap(70, 50, [](int x, int row) {
        return std::array<uint8_t, 4>{uint8_t(x * 3), uint8_t(row * 5), uint8_t(120 + x - row), uint8_t(200 + (x % 2) * 55)};
    });
    ColorMatrix fade;
    fade.a = {0, 0, 0, 0.7f};
    const Image background = Image::imageWithBitmap(picture).colorControls(0.1, 1.2, 0.7).colorMatrix(fade);
    const Image foreground = colorSquare(Color{0.2, 0.9, 0.1, 0.6}, Rect{10, 5, 80, 30});
    const PixelRect all{0, 0, 90, 50};
    const RenderedPixels front = renderPixels(foreground, all);
    const RenderedPixels back = renderPixels(background, all);
    const RenderedPixels both = renderPixels(sourceOver(foreground, background), all, 32);
    for (int y = 0; y < all.height; y += 3)
        for (int x = 0; x < all.width; x += 2) {
            const Pixel f = front.at(x, y);
            const Pixel b = back.at(x, y);
            Pixel expected;
            for (size_t c = 0; c < 4; ++c) expected[c] = f[c] + b[c] * (1 - f[3]);
            expectPixelNear(both.at(x, y), expected, kExact);
        }
}

TEST(ImageCompositingTest, AFadedPictureIsEveryChannelTimesTheFade) {
    // Alone, over a colour, under a picture, cropped, and beside its own edge (the render reaches
    // past the picture): each pixel is the bitmap's times 0.35 (then composited), to float rounding.
    const auto picture = makeBitmap(37, 21, [](int x, int row) {
        return std::array<uint8_t, 4>{uint8_t(x * 6), uint8_t(row * 11), uint8_t(90 + x), uint8_t(230 + (x % 3) * 10)};
    });
    ColorMatrix fade;
    fade.a = {0, 0, 0, 0.35f};
    const Image faded = Image::imageWithBitmap(picture).colorMatrix(fade);
    const Image backdrop = Image::imageWithColor(Color{0, 0.5, 1, 1});
    const Image front = colorSquare(Color{0.2, 0.9, 0.1, 0.6}, Rect{4, 3, 20, 9});
    const PixelRect all{-3, -2, 43, 26};
    const RenderedPixels alone = renderPixels(faded, all, 16);
    const RenderedPixels over = renderPixels(sourceOver(faded, backdrop), all, 16);
    const RenderedPixels under = renderPixels(sourceOver(front, faded), all, 16);
    const RenderedPixels cropped = renderPixels(faded.cropped(Rect{5, 5, 20, 10}), all, 16);
    const RenderedPixels frontAlone = renderPixels(front, all, 16);
    for (int y = all.y; y < all.maxY(); ++y) {
        for (int x = all.x; x < all.maxX(); ++x) {
            Pixel expected{};
            if (x >= 0 && y >= 0 && x < 37 && y < 21) {
                const auto bytes = picture->pixelAt(x, 20 - y);
                for (size_t c = 0; c < 4; ++c) expected[c] = bytes[c] / 255.f * 0.35f;
            }
            expectPixelNear(alone.at(x, y), expected, 1e-6f);
            const Pixel back{0, 0.5f, 1, 1};
            Pixel overBack;
            for (size_t c = 0; c < 4; ++c) overBack[c] = expected[c] + back[c] * (1 - expected[3]);
            expectPixelNear(over.at(x, y), overBack, 1e-6f);
            const Pixel f = frontAlone.at(x, y);
            Pixel underFront;
            for (size_t c = 0; c < 4; ++c) underFront[c] = f[c] + expected[c] * (1 - f[3]);
            expectPixelNear(under.at(x, y), underFront, 1e-6f);
            const bool inCrop = x >= 5 && x < 25 && y >= 5 && y < 15;
            expectPixelNear(cropped.at(x, y), inCrop ? expected : Pixel{}, 1e-6f);
        }
    }
}

TEST(ImageCompositingTest, SourceInKeepsTheForegroundWhereTheBackgroundIs) {
    const auto mask = makeBitmap(3, 1, [](int x, int) {
        const uint8_t a = uint8_t(x * 100);
        return std::array<uint8_t, 4>{a, 0, 0, a};
    });
    const Image silhouette = sourceIn(Image::imageWithColor(Color{0, 1, 0, 0.5}), Image::imageWithBitmap(mask));
    const RenderedPixels pixels = renderPixels(silhouette, {0, 0, 3, 1});
    expectPixelNear(pixels.at(0, 0), {0, 0, 0, 0}, kExact);
    expectPixelNear(pixels.at(2, 0), {0, 0.5f * 200 / 255, 0, 0.5f * 200 / 255}, kExact);
    // With an image in front, its pixels are scaled by the background's alpha.
    const Image front = Image::imageWithBitmap(patternBitmap(3, 1));
    const RenderedPixels scaled = renderPixels(sourceIn(front, Image::imageWithBitmap(mask)), {0, 0, 3, 1});
    const Pixel original = renderPixels(front, {0, 0, 3, 1}).at(1, 0);
    for (size_t c = 0; c < 4; ++c) EXPECT_NEAR(scaled.at(1, 0)[c], original[c] * 100 / 255, kExact);
}

TEST(ImageCompositingTest, SilhouettesOfOpaquePicturesFollowTheirTurnedAndShrunkEdges) {
    // A picture without transparent pixels gives its silhouette from its rectangle alone; the same
    // picture with a transparent hole is read pixel by pixel. Away from the hole the two agree,
    // turned and scaled by more or less than half; at the hole only the second is see-through.
    const auto opaque = patternBitmap(48, 36);
    const auto holed = makeBitmap(48, 36, [](int x, int row) {
        return x == 30 && row == 10 ? std::array<uint8_t, 4>{0, 0, 0, 0} : std::array<uint8_t, 4>{90, 60, 30, 255};
    });
    const Image shade = Image::imageWithColor(Color{0.2, 0.1, 0, 0.6});
    const Rect crop{3, 2, 40, 30};
    for (const auto& [degrees, scale] : {std::pair{10.0, 0.8}, std::pair{30.0, 0.3}, std::pair{-75.0, 1.7}}) {
        AffineTransform t;
        t.translateXBy(20, 15);
        t.rotateByDegrees(degrees);
        t.scaleBy(scale);
        const Image fromRectangle = sourceIn(shade, Image::imageWithBitmap(opaque).cropped(crop).transformed(t));
        const Image fromPixels = sourceIn(shade, Image::imageWithBitmap(holed).cropped(crop).transformed(t));
        ASSERT_EQ(fromRectangle.extent(), fromPixels.extent());
        const PixelRect area = PixelRect::enclosing(fromPixels.extent()).outsetBy(2, 2);
        const RenderedPixels a = renderPixels(fromRectangle, area, 16);
        const RenderedPixels b = renderPixels(fromPixels, area, 16);
        // The hole's centre (column 30, 10 rows down from the top of 36) after the transform.
        const Point hole = t.transformPoint({30.5, 36 - 10.5});
        const double reach = 2 + 2 / scale;
        float holeAlpha = 1;
        for (int y = area.y; y < area.maxY(); ++y)
            for (int x = area.x; x < area.maxX(); ++x) {
                if (std::hypot(x + 0.5 - hole.x, y + 0.5 - hole.y) < reach) {
                    holeAlpha = std::min(holeAlpha, b.at(x, y)[3] / 0.6f);
                    continue;
                }
                for (size_t c = 0; c < 4; ++c)
                    ASSERT_NEAR(a.at(x, y)[c], b.at(x, y)[c], kByteStep) << degrees << " degrees at " << x << ", " << y;
            }
        // Shrunk to 0.3, the one-pixel hole is averaged with its neighbours and barely shows.
        if (scale > 0.5) {
            EXPECT_LT(holeAlpha, 0.8f) << degrees << " degrees";
        }
    }
}

TEST(ImageCompositingTest, OpaqueTurnedPicturesHideTheBackgroundOnlyWhereTheyCoverIt) {
    // Small tiles lie inside the turned picture, across its edges and outside it; everywhere the
    // composite is the foreground plus the background under what the foreground leaves.
    AffineTransform t;
    t.translateXBy(30, 4);
    t.rotateByDegrees(20);
    t.scaleBy(0.9);
    const Image front = Image::imageWithBitmap(patternBitmap(50, 40)).transformed(t);
    const Image back = colorSquare(Color{1, 0, 0, 1}, Rect{0, 0, 80, 70});
    const PixelRect area{0, 0, 80, 70};
    const RenderedPixels over = renderPixels(sourceOver(front, back), area, 16);
    const RenderedPixels f = renderPixels(front, area);
    int edgePixels = 0;
    for (int y = 0; y < area.height; ++y)
        for (int x = 0; x < area.width; ++x) {
            const Pixel p = f.at(x, y);
            edgePixels += p[3] > 0 && p[3] < 1;
            expectPixelNear(over.at(x, y), {p[0] + 1 - p[3], p[1], p[2], 1}, kExact);
        }
    EXPECT_GT(edgePixels, 100);
}

TEST(ImageColorTest, ColorMatrixWorksOnTheStraightColour) {
    ColorMatrix m;
    m.r = {0, 1, 0, 0};
    m.g = {1, 0, 0, 0};
    m.b = {0, 0, 0.5f, 0};
    m.bias = {0.1f, 0, 0, 0};
    // Straight (0.2, 0.4, 0.6) at alpha 0.5 becomes (0.5, 0.2, 0.3), premultiplied again.
    expectPixelNear(one(Image::imageWithColor(Color{0.2, 0.4, 0.6, 0.5}).colorMatrix(m)), {0.25f, 0.1f, 0.15f, 0.5f},
                    kExact);
    // Opacity scales everything; alpha is clamped to 0..1.
    ColorMatrix opacity;
    opacity.a = {0, 0, 0, 0.8f};
    expectPixelNear(one(Image::imageWithColor(Color{1, 0.5, 0, 1}).colorMatrix(opacity)), {0.8f, 0.4f, 0, 0.8f}, kExact);
    ColorMatrix boost;
    boost.a = {0, 0, 0, 3};
    expectPixelNear(one(Image::imageWithColor(Color{1, 0, 0, 0.5}).colorMatrix(boost)), {1, 0, 0, 1}, kExact);
}

TEST(ImageColorTest, ColorMatrixOnAPictureMatchesThePerPixelFormula) {
    const auto bitmap = makeBitmap(4, 4, [](int x, int row) {
        const uint8_t a = uint8_t(60 + 60 * x);
        return std::array<uint8_t, 4>{uint8_t(a * row / 4), uint8_t(a / 2), uint8_t(a * (3 - row) / 4), a};
    });
    ColorMatrix m;
    m.r = {0.5f, 0.2f, 0.1f, 0};
    m.g = {0, 1.1f, 0, 0};
    m.b = {0.3f, 0, 0.6f, 0};
    m.a = {0, 0, 0, 0.9f};
    m.bias = {0.05f, -0.02f, 0, 0};
    const RenderedPixels before = renderPixels(Image::imageWithBitmap(bitmap), {0, 0, 4, 4});
    const RenderedPixels after = renderPixels(Image::imageWithBitmap(bitmap).colorMatrix(m), {0, 0, 4, 4});
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) {
            const Pixel p = before.at(x, y);
            const float r = p[0] / p[3], g = p[1] / p[3], b = p[2] / p[3];
            const float a = 0.9f * p[3];
            const Pixel expected{a * (0.5f * r + 0.2f * g + 0.1f * b + 0.05f), a * (1.1f * g - 0.02f),
                                 a * (0.3f * r + 0.6f * b), a};
            expectPixelNear(after.at(x, y), expected, 1e-5f);
        }
}

TEST(ImageColorTest, ColorControlsAtNeutralValuesChangeNothing) {
    const Image picture = Image::imageWithBitmap(makeBitmap(5, 3, [](int x, int row) {
        const uint8_t a = uint8_t(255 - 40 * x);
        return std::array<uint8_t, 4>{uint8_t(a * row / 3), uint8_t(a / (x + 1)), a, a};
    }));
    const RenderedPixels before = renderPixels(picture, {0, 0, 5, 3});
    const RenderedPixels after = renderPixels(picture.colorControls(0, 1, 1), {0, 0, 5, 3});
    for (size_t i = 0; i < before.data.size(); ++i) EXPECT_NEAR(after.data[i], before.data[i], kExact);
}

TEST(ImageColorTest, ColorControlsFollowTheirDocumentedFormulas) {
    const Image grey = Image::imageWithColor(Color{0.5, 0.5, 0.5, 1});
    expectPixelNear(one(grey.colorControls(0.1, 1, 1)), {0.6f, 0.6f, 0.6f, 1}, kExact);
    const Image light = Image::imageWithColor(Color{0.75, 0.25, 0.5, 1});
    // (c - 0.5) * 2 + 0.5
    expectPixelNear(one(light.colorControls(0, 2, 1)), {1, 0, 0.5f, 1}, kExact);
    const Image red = Image::imageWithColor(Color{1, 0, 0, 1});
    expectPixelNear(one(red.colorControls(0, 1, 0)), {0.2125f, 0.2125f, 0.2125f, 1}, kExact);
    // Saturation above one pushes away from the grey: 0.2125 + 2 * (1 - 0.2125).
    expectPixelNear(one(red.colorControls(0, 1, 2)), {1.7875f, -0.2125f, -0.2125f, 1}, kExact);
    // Saturation, then brightness, then contrast: ((0.2125 + 0.1) - 0.5) * 2 + 0.5.
    expectPixelNear(one(red.colorControls(0.1, 2, 0)), {0.125f, 0.125f, 0.125f, 1}, kExact);
    // On a translucent colour the straight colour is adjusted and alpha kept.
    expectPixelNear(one(Image::imageWithColor(Color{0.5, 0.5, 0.5, 0.5}).colorControls(0.2, 1, 1)),
                    {0.35f, 0.35f, 0.35f, 0.5f}, kExact);
}

TEST(ImageColorTest, InvertTwiceIsIdentity) {
    const Image picture = Image::imageWithBitmap(makeBitmap(4, 2, [](int x, int row) {
        const uint8_t a = uint8_t(255 - 50 * x);
        return std::array<uint8_t, 4>{uint8_t(a * row), uint8_t(a / 3), uint8_t(a / 2), a};
    }));
    const RenderedPixels before = renderPixels(picture, {0, 0, 4, 2});
    const RenderedPixels twice = renderPixels(picture.colorInvert().colorInvert(), {0, 0, 4, 2});
    for (size_t i = 0; i < before.data.size(); ++i) EXPECT_NEAR(twice.data[i], before.data[i], kExact);
    expectPixelNear(one(Image::imageWithColor(Color{0.2, 0.4, 0.6, 0.5}).colorInvert()), {0.4f, 0.3f, 0.2f, 0.5f}, kExact);
}

TEST(ImageColorTest, PhotoEffectsHaveTheirLooks) {
    const Image color = Image::imageWithColor(Color{0.8, 0.4, 0.2, 1});
    for (PhotoEffect grey : {PhotoEffect::Mono, PhotoEffect::Noir, PhotoEffect::Tonal}) {
        const Pixel p = one(color.photoEffect(grey));
        EXPECT_NEAR(p[0], p[1], kExact);
        EXPECT_NEAR(p[1], p[2], kExact);
    }
    auto spread = [](const Pixel& p) { return std::max({p[0], p[1], p[2]}) - std::min({p[0], p[1], p[2]}); };
    const float original = spread(one(color));
    EXPECT_GT(spread(one(color.photoEffect(PhotoEffect::Chrome))), original);
    EXPECT_LT(spread(one(color.photoEffect(PhotoEffect::Fade))), original);
    // Noir pushes dark tones darker than Mono does.
    const Image dark = Image::imageWithColor(Color{0.2, 0.2, 0.2, 1});
    EXPECT_LT(one(dark.photoEffect(PhotoEffect::Noir))[0], one(dark.photoEffect(PhotoEffect::Mono))[0]);
    // Process cools a grey, Transfer warms it.
    const Image mid = Image::imageWithColor(Color{0.5, 0.5, 0.5, 1});
    const Pixel cool = one(mid.photoEffect(PhotoEffect::Process));
    const Pixel warm = one(mid.photoEffect(PhotoEffect::Transfer));
    EXPECT_GT(cool[2], cool[0]);
    EXPECT_GT(warm[0], warm[2]);
    // Every effect leaves transparent pixels transparent and keeps alpha.
    for (PhotoEffect effect : {PhotoEffect::Chrome, PhotoEffect::Fade, PhotoEffect::Instant, PhotoEffect::Mono,
                               PhotoEffect::Noir, PhotoEffect::Process, PhotoEffect::Tonal, PhotoEffect::Transfer}) {
        const RenderedPixels pixels =
            renderPixels(colorSquare(Color{0.3, 0.6, 0.9, 0.5}, Rect{0, 0, 1, 1}).photoEffect(effect), {0, 0, 2, 1});
        expectPixelNear(pixels.at(1, 0), {0, 0, 0, 0}, kExact);
        EXPECT_NEAR(pixels.at(0, 0)[3], 0.5f, kExact);
    }
}

TEST(ImageGeometryTest, CropKeepsThePixelsInside) {
    const auto bitmap = patternBitmap(5, 4);
    const Image picture = Image::imageWithBitmap(bitmap);
    const RenderedPixels pixels = renderPixels(picture.cropped(Rect{1, 1, 2, 2}), {0, 0, 5, 4});
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 5; ++x) {
            const bool inside = x >= 1 && x < 3 && y >= 1 && y < 3;
            const Pixel expected = inside ? byteColor(bitmap->pixelAt(x, 3 - y)) : Pixel{0, 0, 0, 0};
            expectPixelNear(pixels.at(x, y), expected, kExact);
        }
    // A fractional crop keeps partly covered pixels whole.
    const Image fractional = picture.cropped(Rect{0.5, 0.5, 2, 2});
    EXPECT_EQ(fractional.extent(), (Rect{0.5, 0.5, 2, 2}));
    const RenderedPixels partial = renderPixels(fractional, {0, 0, 5, 4});
    expectPixelNear(partial.at(2, 2), byteColor(bitmap->pixelAt(2, 1)), kExact);
    expectPixelNear(partial.at(3, 2), {0, 0, 0, 0}, kExact);
}

TEST(ImageGeometryTest, BitmapsStandWithTheirTopRowUp) {
    const auto bitmap = makeBitmap(2, 2, [](int, int row) {
        return row == 0 ? std::array<uint8_t, 4>{255, 0, 0, 255} : std::array<uint8_t, 4>{0, 0, 255, 255};
    });
    const RenderedPixels pixels = renderPixels(Image::imageWithBitmap(bitmap), {0, 0, 2, 2});
    expectPixelNear(pixels.at(0, 1), {1, 0, 0, 1}, kExact);
    expectPixelNear(pixels.at(1, 0), {0, 0, 1, 1}, kExact);
}

TEST(ImageGeometryTest, TranslationsMovePixels) {
    const auto bitmap = patternBitmap(4, 3);
    const Image picture = Image::imageWithBitmap(bitmap);
    AffineTransform whole;
    whole.translateXBy(2, -1);
    const RenderedPixels moved = renderPixels(picture.transformed(whole), {2, -1, 4, 3});
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 4; ++x) expectPixelNear(moved.at(x + 2, y - 1), byteColor(bitmap->pixelAt(x, 2 - y)), kExact);
    // Half a pixel blends neighbours, and the edges fade to transparent.
    AffineTransform half;
    half.translateXBy(0.5, 0);
    const RenderedPixels blended = renderPixels(picture.transformed(half), {0, 0, 5, 3});
    const Pixel a = byteColor(bitmap->pixelAt(0, 2));
    const Pixel b = byteColor(bitmap->pixelAt(1, 2));
    expectPixelNear(blended.at(1, 0), {(a[0] + b[0]) / 2, (a[1] + b[1]) / 2, (a[2] + b[2]) / 2, 1}, kByteStep);
    expectPixelNear(blended.at(0, 0), {a[0] / 2, a[1] / 2, a[2] / 2, 0.5f}, kByteStep);
}

TEST(ImageGeometryTest, QuarterTurnsAndNearestScalingAreExact) {
    const auto bitmap = patternBitmap(3, 2);
    const Image picture = Image::imageWithBitmap(bitmap);
    AffineTransform quarter;
    quarter.rotateByDegrees(90);
    // (x, y) goes to (-y, x).
    const RenderedPixels turned = renderPixels(picture.transformed(quarter), {-2, 0, 2, 3});
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            expectPixelNear(turned.at(-y - 1, x), byteColor(bitmap->pixelAt(x, 1 - y)), kExact);
    AffineTransform twice;
    twice.scaleBy(2);
    const RenderedPixels doubled = renderPixels(picture.transformed(twice, Interpolation::Nearest), {0, 0, 6, 4});
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 6; ++x)
            expectPixelNear(doubled.at(x, y), byteColor(bitmap->pixelAt(x / 2, 1 - y / 2)), kExact);
}

TEST(ImageGeometryTest, ChainedTransformsResampleOnce) {
    const Image picture = Image::imageWithBitmap(patternBitmap(20, 20));
    AffineTransform first;
    first.rotateByDegrees(30);
    AffineTransform second;
    second.translateXBy(3.25, 1.5);
    second.scaleBy(1.5);
    AffineTransform both = first;
    both.appendTransform(second);
    const Image chained = picture.transformed(first).transformed(second);
    const Image single = picture.transformed(both);
    // The chain keeps the extent it would have step by step, the bounding box of a bounding box.
    EXPECT_EQ(chained.extent(), second.transformRect(first.transformRect(picture.extent())));
    const PixelRect area = PixelRect::enclosing(single.extent());
    EXPECT_EQ(renderPixels(chained, area).data, renderPixels(single, area).data);
}

TEST(ImageGeometryTest, TransformOfAComputedImageInterpolatesItsPixels) {
    // A colour-controlled picture is not a bitmap, so the transform samples rendered floats.
    const Image picture = Image::imageWithBitmap(patternBitmap(6, 6)).colorControls(0.1, 1, 1);
    AffineTransform shift;
    shift.translateXBy(0.25, 0.75);
    const RenderedPixels source = renderPixels(picture, {0, 0, 6, 6});
    const RenderedPixels moved = renderPixels(picture.transformed(shift), {0, 0, 7, 7});
    // Output (3, 3) samples the input at pixel position (2.75, 2.25): three quarters of the way
    // across from column 2 to 3, a quarter of the way up from row 2 to 3.
    Pixel expected{};
    for (size_t c = 0; c < 4; ++c) {
        const float lower = 0.25f * source.at(2, 2)[c] + 0.75f * source.at(3, 2)[c];
        const float upper = 0.25f * source.at(2, 3)[c] + 0.75f * source.at(3, 3)[c];
        expected[c] = 0.75f * lower + 0.25f * upper;
    }
    expectPixelNear(moved.at(3, 3), expected, 1e-5f);
}

TEST(ImageGeometryTest, ShrinkingAveragesInsteadOfSkipping) {
    // One-pixel stripes shrunk to a quarter average to grey rather than picking stripes.
    const auto stripes = makeBitmap(64, 8, [](int x, int) {
        const uint8_t v = x % 2 ? 255 : 0;
        return std::array<uint8_t, 4>{v, v, v, 255};
    });
    AffineTransform quarter;
    quarter.scaleBy(0.25);
    const RenderedPixels small = renderPixels(Image::imageWithBitmap(stripes).transformed(quarter), {0, 0, 16, 2});
    for (int x = 2; x < 14; ++x) EXPECT_NEAR(small.at(x, 1)[0], 0.5f, 0.02f);
}

TEST(ImageGeometryTest, LanczosScaleKeepsFlatAreasAndSizes) {
    const Image flat = Image::imageWithBitmap(makeBitmap(16, 16, [](int, int) {
        return std::array<uint8_t, 4>{128, 64, 32, 255};
    }));
    const Image half = flat.lanczosScale(0.5, 1);
    EXPECT_EQ(half.extent(), (Rect{0, 0, 8, 8}));
    const RenderedPixels pixels = renderPixels(half, {0, 0, 8, 8});
    expectPixelNear(pixels.at(4, 4), {128 / 255.f, 64 / 255.f, 32 / 255.f, 1}, 1e-4f);
    const Image wide = flat.lanczosScale(2, 1.5);
    EXPECT_EQ(wide.extent(), (Rect{0, 0, 48, 32}));
    expectPixelNear(renderPixels(wide, {0, 0, 48, 32}).at(24, 16), {128 / 255.f, 64 / 255.f, 32 / 255.f, 1}, 1e-4f);
    // Enlarging keeps a step sharp: Lanczos undershoots and overshoots a little beside it.
    const Image step = Image::imageWithBitmap(makeBitmap(8, 1, [](int x, int) {
        const uint8_t v = x < 4 ? 0 : 255;
        return std::array<uint8_t, 4>{v, v, v, 255};
    }));
    const RenderedPixels enlarged = renderPixels(step.lanczosScale(4, 1), {0, 0, 32, 4});
    EXPECT_LT(enlarged.at(11, 2)[0], 0.f);
    EXPECT_GT(enlarged.at(19, 2)[0], 1.f);
}

TEST(ImageFilterTest, MedianRemovesAnIsolatedSpeck) {
    const auto speck = makeBitmap(5, 5, [](int x, int row) {
        const uint8_t v = x == 2 && row == 2 ? 255 : 40;
        return std::array<uint8_t, 4>{v, 40, v, 255};
    });
    const RenderedPixels pixels = renderPixels(Image::imageWithBitmap(speck).median(), {0, 0, 5, 5});
    expectPixelNear(pixels.at(2, 2), {40 / 255.f, 40 / 255.f, 40 / 255.f, 1}, kExact);
    // At a corner five of the nine neighbours are transparent.
    expectPixelNear(pixels.at(0, 0), {0, 0, 0, 0}, kExact);
    // Each channel takes its own median: a 3 x 3 block of values 1..9 gives 5.
    const auto ramp = makeBitmap(3, 3, [](int x, int row) {
        const uint8_t v = uint8_t(10 * (row * 3 + x + 1));
        return std::array<uint8_t, 4>{v, uint8_t(100 - v), 0, 255};
    });
    const Pixel centre = renderPixels(Image::imageWithBitmap(ramp).median(), {1, 1, 1, 1}).at(1, 1);
    EXPECT_NEAR(centre[0], 50 / 255.f, kExact);
    EXPECT_NEAR(centre[1], 50 / 255.f, kExact);
}

TEST(ImageFilterTest, GaussianBlurSpreadsAndConservesCoverage) {
    for (double radius : {1.5, 10.0}) {
        SCOPED_TRACE(radius);
        // A 20 x 20 opaque square in a transparent field.
        const Image square = colorSquare(Color{1, 1, 1, 1}, Rect{40, 40, 20, 20});
        const Image blurred = square.gaussianBlur(radius);
        const PixelRect all = PixelRect::enclosing(blurred.extent());
        const RenderedPixels pixels = renderPixels(blurred, all);
        double coverage = 0;
        for (size_t i = 3; i < pixels.data.size(); i += 4) coverage += pixels.data[i];
        EXPECT_NEAR(coverage, 400.0, 400.0 * 0.01);
        // Symmetric about the square's centre and nearly clear at the edge of the extent.
        EXPECT_NEAR(pixels.at(45, 50)[3], pixels.at(54, 50)[3], 1e-3);
        EXPECT_NEAR(pixels.at(50, 45)[3], pixels.at(50, 54)[3], 1e-3);
        EXPECT_LT(pixels.at(all.maxX() - 1, 50)[3], 0.01f);
        if (radius < 5) {
            // A small blur leaves the middle covered and each edge half covered.
            EXPECT_NEAR(pixels.at(50, 50)[3], 1.f, 1e-3);
            EXPECT_NEAR(pixels.at(39, 50)[3] + pixels.at(40, 50)[3], 1.f, 1e-3);
        }
    }
}

TEST(ImageFilterTest, LargeBlurMatchesTheExactGaussianProfile) {
    // The edge of a half plane blurred with sigma 10 follows the normal distribution's integral.
    const Image halfPlane = colorSquare(Color{1, 1, 1, 1}, Rect{0, -500, 1000, 1000});
    const RenderedPixels pixels = renderPixels(halfPlane.gaussianBlur(10), {-40, 0, 80, 1});
    for (int x = -30; x <= 30; x += 5) {
        const double expected = 0.5 * std::erfc(-(x + 0.5) / (10 * std::sqrt(2.0)));
        EXPECT_NEAR(pixels.at(x, 0)[3], expected, 0.01) << "at x = " << x;
    }
}
