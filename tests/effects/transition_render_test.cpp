#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <vector>

#include "effects/transitions/PSTransition.h"
#include "effects/transitions/PSTransitionAssets.h"
#include "effects/transitions/kernels/TransitionKernels.h"
#include "effects/transitions/kernels/support/CoarseField.h"
#include "image/PixelMath.h"
#include "image/RenderContext.h"
#include "image/TileScratch.h"
#include "platform/Bitmap.h"

using namespace qm;

namespace {

using Pixel = std::array<uint8_t, 4>;

// Rendered premultiplied RGBA8 with y up: at(x, y) is the pixel whose lower left corner is (x, y)
// relative to the region's origin.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> bytes;

    Pixel at(int x, int y) const {
        const uint8_t* p = &bytes[(size_t(height - 1 - y) * width + x) * 4];
        return {p[0], p[1], p[2], p[3]};
    }
};

Picture render(const Image& image, const Rect& region, int tileSize = 64) {
    const auto context = RenderContext::create({tileSize, 2});
    Picture picture{int(region.width()), int(region.height()), {}};
    picture.bytes.resize(size_t(picture.width) * picture.height * 4);
    context->render(image, region, PixelFormat::RGBA8Premultiplied, picture.bytes.data(), size_t(picture.width) * 4);
    return picture;
}

int maxDifference(const Picture& a, const Picture& b) {
    int most = 0;
    for (size_t i = 0; i < a.bytes.size(); ++i) most = std::max(most, std::abs(int(a.bytes[i]) - int(b.bytes[i])));
    return most;
}

// Pixels where some component differs by more than `tolerance`.
size_t countDifferent(const Picture& a, const Picture& b, int tolerance) {
    size_t count = 0;
    for (size_t i = 0; i < a.bytes.size(); i += 4) {
        for (size_t c = 0; c < 4; ++c) {
            if (std::abs(int(a.bytes[i + c]) - int(b.bytes[i + c])) > tolerance) {
                ++count;
                break;
            }
        }
    }
    return count;
}

Image sample(int index, int width, int height) {
    return Image::imageWithBitmap(PSTransitionAssets::samplePicture(index, width, height));
}

Image solid(const Color& color, const Rect& rect) {
    return Image::imageWithColor(color).cropped(rect);
}

bool isBlue(const Pixel& p) {
    return p == Pixel{0, 0, 255, 255};
}

void expectNear(const Pixel& actual, const Pixel& expected, int tolerance) {
    for (size_t c = 0; c < 4; ++c) EXPECT_NEAR(actual[c], expected[c], tolerance) << "component " << c;
}

}  // namespace

TEST(TransitionRenderTest, EveryTransitionRunsFromTheOutgoingToTheIncomingPicture) {
    const Rect region{0, 0, 64, 36};
    const Image from = sample(0, 64, 36);
    const Image to = sample(1, 64, 36);
    const Picture fromPicture = render(from, region);
    const Picture toPicture = render(to, region);
    for (const auto& name : PSTransition::supportTransitions()) {
        const auto transition = PSTransition::transitionWithName(name);
        EXPECT_LE(maxDifference(render(transition->transitionImage(from, to, 0.0), region), fromPicture), 1) << name;
        EXPECT_LE(maxDifference(render(transition->transitionImage(from, to, 1.0), region), toPicture), 1) << name;
        const Picture middle = render(transition->transitionImage(from, to, 0.5), region);
        EXPECT_GT(countDifferent(middle, fromPicture, 8), 50u) << name;
        EXPECT_GT(countDifferent(middle, toPicture, 8), 50u) << name;
    }
}

TEST(TransitionRenderTest, TilesReadEnoughOfTheirInputs) {
    // Small tiles expose any region of interest that is too small: their pixels would differ
    // from a render in one piece.
    const Rect region{0, 0, 320, 180};
    const Image from = sample(0, 320, 180);
    const Image to = sample(1, 320, 180);
    for (const auto& name : PSTransition::supportTransitions()) {
        const Image image = PSTransition::transitionWithName(name)->transitionImage(from, to, 0.37);
        EXPECT_LE(maxDifference(render(image, region, 13), render(image, region, 512)), 1) << name;
    }
}

TEST(TransitionRenderTest, PicturesReadInPlaceMatchComputedPictures) {
    // Kernels read bitmaps in place (in rows, or sampled in integer steps) and computed pictures
    // as floats; both must give the same picture up to rounding. An identity colour matrix turns
    // a bitmap into a computed picture with the same pixels.
    const Rect region{0, 0, 160, 90};
    const Image from = sample(0, 160, 90);
    const Image to = sample(1, 160, 90);
    const Image computedFrom = from.colorMatrix(ColorMatrix{});
    const Image computedTo = to.colorMatrix(ColorMatrix{});
    ASSERT_NE(computedFrom, from);
    for (const auto& name : PSTransition::supportTransitions()) {
        const auto transition = PSTransition::transitionWithName(name);
        for (double percent : {0.3, 0.62}) {
            const Picture inPlace = render(transition->transitionImage(from, to, percent), region, 48);
            const Picture computed = render(transition->transitionImage(computedFrom, computedTo, percent), region, 48);
            EXPECT_LE(maxDifference(inPlace, computed), 2) << name << " at " << percent;
        }
    }
}

TEST(TransitionRenderTest, TheTargetEntersFromTheNamedSide) {
    const int size = 400;
    const Image red = solid(Color{1, 0, 0, 1}, Rect{0, 0, double(size), double(size)});
    const Image blue = solid(Color{0, 0, 1, 1}, Rect{0, 0, double(size), double(size)});
    const int lo = 2;
    const int hi = size - 3;
    const int mid = size / 2;
    struct Case {
        const char* name;
        int enterX, enterY, leaveX, leaveY;  // a pixel the target reaches first, one it reaches last
    };
    const std::vector<Case> cases = {
        {"Push(Left)", lo, mid, hi, mid},           {"Push(Right)", hi, mid, lo, mid},
        {"Push(Top)", mid, hi, mid, lo},            {"Push(Bottom)", mid, lo, mid, hi},
        {"Move In(Left)", lo, mid, hi, mid},        {"Move In(Top)", mid, hi, mid, lo},
        {"Reveal(Left)", hi, mid, lo, mid},         {"Reveal(Bottom)", mid, hi, mid, lo},
        {"Swipe(Left)", lo, mid, hi, mid},          {"Swipe(Right)", hi, mid, lo, mid},
        {"Swipe(Top)", mid, hi, mid, lo},           {"Swipe(Bottom)", mid, lo, mid, hi},
        {"Bars Swipe(Left)", lo, mid, hi, mid},     {"Bars Swipe(Right)", hi, mid, lo, mid},
        {"Bars Swipe(Top)", mid, hi, mid, lo},      {"Bars Swipe(Bottom)", mid, lo, mid, hi},
        {"Copy Machine(Left)", lo, mid, hi, mid},   {"Copy Machine(Right)", hi, mid, lo, mid},
        {"Copy Machine(Top)", mid, hi, mid, lo},    {"Copy Machine(Bottom)", mid, lo, mid, hi},
        {"Page Curl(Left)", lo, hi, hi, lo},        {"Page Curl(Right)", hi, lo, lo, hi},
        {"Page Curl(Top)", hi, hi, lo, lo},         {"Page Curl(Bottom)", lo, lo, hi, hi},
        {"Page Curl With Shadow(Left)", lo, hi, hi, lo},
        {"Page Curl With Shadow(Bottom)", lo, lo, hi, hi},
    };
    for (const Case& c : cases) {
        const Image image = PSTransition::transitionWithName(c.name)->transitionImage(red, blue, 0.5);
        EXPECT_TRUE(isBlue(render(image, Rect{double(c.enterX), double(c.enterY), 1, 1}).at(0, 0))) << c.name;
        // The outgoing picture still shows (Reveal fades it as it goes).
        EXPECT_GT(render(image, Rect{double(c.leaveX), double(c.leaveY), 1, 1}).at(0, 0)[0], 50) << c.name;
    }
}

TEST(TransitionKernelTest, PixelArithmetic) {
    const Rect rect{0, 0, 200, 200};
    const Image red = solid(Color{1, 0, 0, 1}, rect);
    const Image blue = solid(Color{0, 0, 1, 1}, rect);
    const auto one = [&](const Image& image, int x, int y) {
        return render(image, Rect{double(x), double(y), 1, 1}).at(0, 0);
    };

    EXPECT_EQ(one(dissolveTransition(red, blue, 0.25), 7, 9), (Pixel{191, 0, 64, 255}));

    // At its threshold the flash has flooded the whole picture with its colour.
    FlashTransitionParameters flash;
    flash.center = {100, 100};
    flash.extent = rect;
    for (const auto& [x, y] : {std::pair{100, 100}, std::pair{0, 0}, std::pair{199, 3}})
        expectNear(one(flashTransition(red, blue, 0.85, flash), x, y), Pixel{255, 204, 153, 255}, 1);

    // Half way the ripple's wake holds the centre; the corners still show the outgoing picture.
    RippleTransitionParameters ripple;
    ripple.shadingImage = PSTransition::shadingImage();
    ripple.center = {100, 100};
    ripple.extent = rect;
    const Image rippled = rippleTransition(red, blue, 0.5, ripple);
    EXPECT_TRUE(isBlue(one(rippled, 100, 100)));
    EXPECT_EQ(one(rippled, 1, 1), (Pixel{255, 0, 0, 255}));

    // In the middle of the swipe's band: the cross-fade, half covered by white.
    SwipeTransitionParameters swipe;
    swipe.extent = rect;
    swipe.opacity = 0.5;
    expectNear(one(swipeTransition(red, blue, 0.5, swipe), 100, 50), Pixel{191, 128, 191, 255}, 2);

    // The copy machine's light adds its green to both pictures.
    CopyMachineTransitionParameters copy;
    copy.extent = rect;
    const Image copied = copyMachineTransition(red, blue, 0.5, copy);
    EXPECT_GT(one(copied, 99, 50)[1], 200);
    EXPECT_GT(one(copied, 101, 50)[1], 200);
    EXPECT_EQ(one(copied, 199, 50), (Pixel{255, 0, 0, 255}));

}

TEST(TransitionKernelTest, TranslucentPicturesShowTheTargetThroughThem) {
    // Wherever a half transparent outgoing picture lies over the target, the result is opaque and
    // the target shows through (at half strength, less any shadow cast on it).
    const Rect rect{0, 0, 128, 128};
    const Image red = solid(Color{1, 0, 0, 0.5}, rect);
    const Image blue = solid(Color{0, 0, 1, 1}, rect);
    BarsSwipeTransitionParameters bars;
    bars.angle = 0;
    DisintegrateWithMaskTransitionParameters disintegrate;
    disintegrate.maskImage = PSTransition::maskImage().lanczosScale(0.5, 1);
    struct Case {
        const char* name;
        Image image;
        int leastBlue;
    };
    const Case cases[] = {
        {"bars", barsSwipeTransition(red, blue, 0.3, bars), 120},
        {"accordion", accordionFoldTransition(red, blue, 0.4, AccordionFoldTransitionParameters{}), 120},
        {"disintegrate", disintegrateWithMaskTransition(red, blue, 0.5, disintegrate), 40},
    };
    for (const Case& c : cases) {
        const Picture picture = render(c.image, rect, 37);
        size_t covered = 0;
        for (int y = 0; y < picture.height; ++y) {
            for (int x = 0; x < picture.width; ++x) {
                const Pixel p = picture.at(x, y);
                ASSERT_EQ(p[3], 255) << c.name << " at " << x << ", " << y;
                if (p[0] < 100) continue;
                ++covered;
                ASSERT_GE(p[2], c.leastBlue) << c.name << " at " << x << ", " << y;
            }
        }
        EXPECT_GT(covered, size_t(picture.width * picture.height / 10)) << c.name;
        EXPECT_LT(covered, size_t(picture.width * picture.height * 9 / 10)) << c.name;
    }
}

TEST(TransitionKernelTest, CoarseFieldFourAtATimeMatchesOneAtATime) {
    // A rect whose grid is not a whole number of groups of four, off the origin.
    const PixelRect rect{-5, 3, 37, 11};
    const auto scalar = [](float cx, float cy) { return std::sqrt(std::fabs(cx)) * 0.25f + cx * cy * 0.01f; };
    const auto lanes = [](Float4 cx, float cy) { return sqrtFloat4(cx < 0.0f ? -cx : cx) * 0.25f + cx * cy * 0.01f; };
    TileScratch scratch;
    for (int shift : {1, 2, 3}) {
        kernels::CoarseField one(scratch, rect, shift);
        kernels::CoarseField four(scratch, rect, shift);
        one.fill(scalar);
        four.fill4(lanes);
        for (int y = rect.y; y < rect.maxY(); ++y) {
            std::vector<float> expected;
            const kernels::CoarseField::Row oneRow = one.row(y);
            for (int x = rect.x; x < rect.maxX(); ++x) expected.push_back(oneRow(x));
            const kernels::CoarseField::Row fourRow = four.row(y);
            for (int x = rect.x; x < rect.maxX(); ++x)
                ASSERT_EQ(fourRow(x), expected[size_t(x - rect.x)]) << "shift " << shift << " at " << x << ", " << y;
        }
    }
}

TEST(TransitionKernelTest, AccordionFoldsThePictureIntoTiltedPanels) {
    const Rect rect{0, 0, 200, 200};
    const Image red = solid(Color{1, 0, 0, 1}, rect);
    const Image blue = solid(Color{0, 0, 1, 1}, rect);
    const auto one = [&](const Image& image, int x, int y) {
        return render(image, Rect{double(x), double(y), 1, 1}).at(0, 0);
    };
    // Twenty panels 10 pixels wide; half way each is folded to 5 pixels (fold angle 60 degrees),
    // so the picture covers the left 100 pixels and the target shows to their right.
    AccordionFoldTransitionParameters fold;
    fold.numberOfFolds = 20;
    fold.foldShadowAmount = 0.4;
    const Image folded = accordionFoldTransition(red, blue, 0.5, fold);
    EXPECT_TRUE(isBlue(one(folded, 150, 100)));
    EXPECT_TRUE(isBlue(one(folded, 102, 100)));
    // Panels facing away darken by 0.4 sin 60, the others by a quarter of that.
    const int away = int(std::lround(255 * (1 - 0.4 * std::sin(M_PI / 3))));
    const int toward = int(std::lround(255 * (1 - 0.1 * std::sin(M_PI / 3))));
    expectNear(one(folded, 2, 100), Pixel{uint8_t(away), 0, 0, 255}, 1);
    expectNear(one(folded, 7, 100), Pixel{uint8_t(toward), 0, 0, 255}, 1);
    expectNear(one(folded, 92, 100), Pixel{uint8_t(away), 0, 0, 255}, 1);
    // Perspective shortens the deeper part of each panel: near the top edge a shallow column still
    // shows the picture while a deep one already shows the target.
    EXPECT_NEAR(one(folded, 0, 185)[0], away, 1);
    EXPECT_TRUE(isBlue(one(folded, 4, 185)));
    // Earlier the folded picture is wider, later narrower.
    EXPECT_EQ(one(accordionFoldTransition(red, blue, 0.25, fold), 140, 100)[2], 0);
    EXPECT_TRUE(isBlue(one(accordionFoldTransition(red, blue, 0.75, fold), 60, 100)));
}

TEST(TransitionKernelTest, DisintegrationFollowsTheMaskLevels) {
    const Rect rect{0, 0, 128, 128};
    const Image red = solid(Color{1, 0, 0, 1}, rect);
    const Image blue = solid(Color{0, 0, 1, 1}, rect);
    DisintegrateWithMaskTransitionParameters parameters;
    parameters.maskImage = PSTransition::maskImage().lanczosScale(0.5, 1);
    for (double time : {0.25, 0.5, 0.75}) {
        const Picture picture = render(disintegrateWithMaskTransition(red, blue, time, parameters), rect);
        size_t target = 0;
        for (size_t i = 0; i < picture.bytes.size(); i += 4) target += picture.bytes[i + 2] > picture.bytes[i];
        const double share = double(target) / (128.0 * 128.0);
        EXPECT_NEAR(share, time, 0.08) << time;
    }
}

TEST(TransitionKernelTest, ModOpensHolesAndPageCurlShadowsTheTarget) {
    const Rect rect{0, 0, 300, 300};
    const Image red = solid(Color{1, 0, 0, 1}, rect);
    const Image blue = solid(Color{0, 0, 1, 1}, rect);

    ModTransitionParameters mod;
    mod.center = {150, 150};
    const Picture holes = render(modTransition(red, blue, 0.5, mod), rect);
    size_t target = 0;
    for (size_t i = 0; i < holes.bytes.size(); i += 4) target += holes.bytes[i + 2] > holes.bytes[i];
    EXPECT_GT(target, holes.bytes.size() / 4 / 10);
    EXPECT_LT(target, holes.bytes.size() / 4 * 9 / 10);

    // Just in front of the roll the target lies in shadow; far from it, it does not.
    PageCurlWithShadowTransitionParameters curl;
    curl.extent = rect;
    curl.shadowExtent = rect;
    curl.angle = 0;
    curl.shadowSize = 0.6;
    curl.shadowAmount = 0.8;
    // Angle 0: the roll moves along +x. The 300 pixel page limits the radius to 300 / (2 pi), and
    // at 0.6 the roll's front (L - r) lies at x = 0.6 * (300 + pi r + 1) - r.
    const Image curled = pageCurlWithShadowTransition(red, blue, 0.6, curl);
    const double radius = 300 / (2 * 3.1415926);
    const int front = int(0.6 * (300 + 3.1415926 * radius + 1) - radius);
    const Pixel shaded = render(curled, Rect{double(front - 5), 150, 1, 1}).at(0, 0);
    EXPECT_LT(shaded[2], 200);
    EXPECT_EQ(shaded[0], 0);
    EXPECT_TRUE(isBlue(render(curled, Rect{1, 150, 1, 1}).at(0, 0)));
}

TEST(TransitionAssetsTest, SharedPicturesAndThumbnails) {
    EXPECT_EQ(PSTransition::shadingImage(), PSTransition::shadingImage());
    EXPECT_EQ(PSTransition::maskImage(), PSTransition::maskImage());
    EXPECT_EQ(PSTransition::shadingImage().extent(), (Rect{0, 0, 256, 256}));

    // The mask is grey, with its levels spread evenly over the whole range.
    const auto mask = PSTransitionAssets::maskBitmap();
    ASSERT_NE(mask, nullptr);
    double sum = 0;
    int lowest = 255, highest = 0;
    for (int y = 0; y < mask->height(); ++y) {
        for (int x = 0; x < mask->width(); ++x) {
            const auto p = mask->pixelAt(x, y);
            ASSERT_TRUE(p[0] == p[1] && p[1] == p[2] && p[3] == 255);
            sum += p[0];
            lowest = std::min<int>(lowest, p[0]);
            highest = std::max<int>(highest, p[0]);
        }
    }
    EXPECT_EQ(lowest, 0);
    EXPECT_EQ(highest, 255);
    EXPECT_NEAR(sum / (256.0 * 256.0), 127.5, 1.0);

    // The sphere is brighter towards its light (upper left) than away from it (lower right).
    const auto shading = PSTransitionAssets::shadingBitmap();
    EXPECT_GT(shading->pixelAt(80, 80)[0], shading->pixelAt(176, 176)[0] + 60);

    const auto dissolve = PSTransition::transitionWithName(PSTransitionDissolveName);
    const auto face = dissolve->face();
    ASSERT_NE(face, nullptr);
    EXPECT_EQ(face->width(), PSTransitionAssets::kFaceWidth);
    EXPECT_EQ(face->height(), PSTransitionAssets::kFaceHeight);
    EXPECT_EQ(dissolve->face(), face);
}

TEST(TransitionKernelTest, BarsAlongAnAxisMoveWholePixelsBarByBar) {
    // A 120 x 60 picture in bars 10 pixels wide with odd bars 20 pixels behind. Sliding up, at 0.5
    // even bars have travelled 0.5 * (60 + 20) = 40 pixels and odd ones 20; sliding right,
    // 0.5 * (120 + 20) = 70 and 50. Bars of the same parity, and their edges, match in any tiling.
    const Rect rect{0, 0, 120, 60};
    const Image red = solid(Color{1, 0, 0, 1}, rect);
    const Image blue = solid(Color{0, 0, 1, 1}, rect);
    BarsSwipeTransitionParameters bars;
    bars.width = 10;
    bars.barOffset = 20;
    struct Case {
        double angle;
        bool (*showsPicture)(int x, int y);
    };
    const Case cases[] = {
        // Bars stand upright; the first (x < 10) lies in an odd bar.
        {M_PI / 2, [](int x, int y) { return y >= ((x / 10) % 2 == 0 ? 20 : 40); }},
        // Bars lie flat; the first (y < 10) lies in an even bar.
        {0, [](int x, int y) { return x >= ((y / 10) % 2 == 0 ? 70 : 50); }},
    };
    for (const Case& c : cases) {
        bars.angle = c.angle;
        const Image image = barsSwipeTransition(red, blue, 0.5, bars);
        for (int tileSize : {13, 64}) {
            const Picture picture = render(image, rect, tileSize);
            for (int y = 0; y < picture.height; ++y) {
                for (int x = 0; x < picture.width; ++x) {
                    const Pixel expected = c.showsPicture(x, y) ? Pixel{255, 0, 0, 255} : Pixel{0, 0, 255, 255};
                    ASSERT_EQ(picture.at(x, y), expected) << c.angle << " tile " << tileSize << " at " << x << ", " << y;
                }
            }
        }
    }
}

TEST(TransitionKernelTest, DisintegrationReadsAMaskInPlaceAsItsComputedCopy) {
    // The mask's luminance comes straight from a bitmap's bytes, or from the float pixels of a
    // computed mask; both must give the same picture, including where the shifted shadow reaches
    // past the mask and in the translucent parts of the outgoing picture.
    const Rect rect{0, 0, 240, 150};
    const Image from = sample(0, 240, 150);
    const Image to = sample(1, 240, 150);
    ColorMatrix fade;
    fade.a = {0, 0, 0, 0.6f};
    const Image translucent = from.colorMatrix(fade);
    const Image mask = PSTransition::maskImage();
    const Image computedMask = mask.colorMatrix(ColorMatrix{});
    ASSERT_NE(computedMask, mask);
    DisintegrateWithMaskTransitionParameters inPlace;
    inPlace.maskImage = mask;
    DisintegrateWithMaskTransitionParameters computed;
    computed.maskImage = computedMask;
    for (const Image& outgoing : {from, translucent}) {
        for (double time : {0.3, 0.6}) {
            const Image image = disintegrateWithMaskTransition(outgoing, to, time, inPlace);
            for (int tileSize : {13, 64}) {
                const Picture picture = render(image, rect, tileSize);
                EXPECT_GT(countDifferent(picture, render(outgoing, rect), 8), 1000u) << time;
                EXPECT_EQ(maxDifference(picture, render(disintegrateWithMaskTransition(outgoing, to, time, computed), rect,
                                                         tileSize)),
                          0)
                    << time << " tile " << tileSize;
            }
        }
    }
}

TEST(TransitionKernelTest, AccordionReadsATranslucentBitmapInPlaceAsItsComputedCopy) {
    // The folded picture is sampled from the bitmap's bytes and, when computed, from float pixels;
    // both must agree up to the rounding of byte sampling, also where its panels are translucent
    // or clear and the opaque target has to show through them.
    const int width = 160;
    const int height = 90;
    const auto picture = PSTransitionAssets::samplePicture(0, width, height);
    std::vector<uint8_t> pixels(size_t(width) * height * 4);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const int alpha = (x / 9) % 3 == 0 ? 255 : (x / 9) % 3 == 1 ? 128 : 0;
            const uint8_t* source = picture->data() + size_t(y) * picture->bytesPerRow() + size_t(x) * 4;
            uint8_t* pixel = &pixels[(size_t(y) * width + x) * 4];
            for (int c = 0; c < 3; ++c) pixel[c] = uint8_t(source[c] * alpha / 255);
            pixel[3] = uint8_t(alpha);
        }
    }
    const Rect rect{0, 0, double(width), double(height)};
    const Image translucent = Image::imageWithBitmap(Bitmap::createWithPixels(width, height, std::move(pixels)));
    const Image computed = translucent.colorMatrix(ColorMatrix{});
    ASSERT_NE(computed, translucent);
    const Image to = sample(1, width, height);
    AccordionFoldTransitionParameters fold;
    fold.numberOfFolds = 5;
    for (double time : {0.3, 0.7}) {
        for (int tileSize : {13, 64}) {
            const Picture inPlace = render(accordionFoldTransition(translucent, to, time, fold), rect, tileSize);
            for (size_t i = 3; i < inPlace.bytes.size(); i += 4) ASSERT_EQ(inPlace.bytes[i], 255) << time << " at " << i / 4;
            EXPECT_LE(maxDifference(inPlace, render(accordionFoldTransition(computed, to, time, fold), rect, tileSize)), 2)
                << time << " tile " << tileSize;
        }
    }
}
