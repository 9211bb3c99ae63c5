#include "effects/QVEffectState.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "image/RenderContext.h"
#include "platform/Bitmap.h"

namespace qm {
namespace {

std::shared_ptr<QVClipPosition> positionAt(const Rect& bounds, double angle = 0) {
    auto position = QVClipPosition::createWithSize(bounds.size);
    position->setLocation(bounds.origin);
    position->setRotateAngle(angle);
    return position;
}

// An opaque picture of `width` x `height` in one colour.
Image solid(int width, int height, std::array<uint8_t, 4> rgba) {
    std::vector<uint8_t> pixels;
    for (int i = 0; i < width * height; ++i) pixels.insert(pixels.end(), rgba.begin(), rgba.end());
    return Image::imageWithBitmap(Bitmap::createWithPixels(width, height, std::move(pixels)));
}

// Renders `region` once and reads premultiplied RGBA8 pixels by image coordinates.
class Rendered {
public:
    Rendered(const Image& image, const Rect& region) : _region(region) {
        _pixels.resize(static_cast<size_t>(region.size.width * region.size.height * 4));
        RenderContext::create()->render(image, region, PixelFormat::RGBA8Premultiplied, _pixels.data(),
                                        static_cast<size_t>(region.size.width * 4));
    }
    // The pixel whose lower left corner is (x, y).
    std::array<int, 4> at(int x, int y) const {
        const int column = x - static_cast<int>(_region.origin.x);
        const int row = static_cast<int>(_region.maxY()) - 1 - y;
        const size_t offset = (static_cast<size_t>(row) * static_cast<size_t>(_region.size.width) + column) * 4;
        return {_pixels[offset], _pixels[offset + 1], _pixels[offset + 2], _pixels[offset + 3]};
    }

private:
    Rect _region;
    std::vector<uint8_t> _pixels;
};

TEST(EffectStateTest, InterpolationFollowsTheFourFacetCases) {
    auto context = QVEffectContext::createWithConvasSize({640, 480}, {10, 20, 100, 50});
    auto start = QVEffectState::create();
    auto target = QVEffectState::create();

    // Both present: interpolated between them.
    start->setMotionState(positionAt({0, 0, 100, 100}));
    target->setMotionState(positionAt({100, 0, 200, 100}));
    // Only the target: from the context's neutral facet (a crop of the clip's bounds).
    target->setCropState(QVCropState::createWithRect({30, 40, 300, 150}));
    // Only the start: the start's own object, at every percent.
    start->setColorState(QVColorState::createWithBrightness(0.5, 1, 1, 0.5));
    // Neither: the shadow stays null.

    for (double percent : {0.0, 0.5, 1.0}) {
        auto state = target->calcEffectStateSince(start, *context, percent);
        EXPECT_EQ(state->colorState(), start->colorState());
        EXPECT_FALSE(state->shadowState());
        EXPECT_NE(state->motionState(), target->motionState());
    }
    auto middle = target->calcEffectStateSince(start, *context, 0.5);
    EXPECT_EQ(middle->motionState()->bounds(), (Rect{50, 0, 150, 100}));
    EXPECT_EQ(middle->cropState()->cropRect(), (Rect{20, 30, 200, 100}));
    EXPECT_EQ(target->calcEffectStateSince(start, *context, 0)->cropState()->cropRect(), context->bounds());
    EXPECT_EQ(target->calcEffectStateSince(start, *context, 1)->motionState()->bounds(),
              target->motionState()->bounds());
    // Nothing outside 0..1 is clamped.
    EXPECT_EQ(target->calcEffectStateSince(start, *context, 2)->motionState()->bounds(), (Rect{200, 0, 300, 100}));
    // Neither state was changed.
    EXPECT_EQ(start->motionState()->bounds(), (Rect{0, 0, 100, 100}));
    EXPECT_FALSE(start->cropState());

    // A target colour from no start begins at the neutral colour; a missing start state counts as
    // empty.
    target->setColorState(QVColorState::createWithBrightness(0, 1, 1, 0));
    auto fromNothing = target->calcEffectStateSince(nullptr, *context, 0.5);
    EXPECT_DOUBLE_EQ(fromNothing->colorState()->opacity(), 0.5);
    EXPECT_EQ(fromNothing->motionState()->bounds(), (Rect{50, 0, 100, 50}));
}

TEST(EffectStateTest, ContextKeepsItsNeutralStates) {
    auto context = QVEffectContext::createWithConvasSize({640, 480}, {1, 2, 3, 4});
    EXPECT_EQ(context->defaultMotionState(), context->defaultMotionState());
    EXPECT_EQ(context->defaultMotionState()->bounds(), (Rect{0, 0, 0, 0}));
    EXPECT_EQ(context->defaultCropState()->cropRect(), (Rect{1, 2, 3, 4}));
    EXPECT_TRUE(context->defaultColorState()->defaultOpacity());
    EXPECT_EQ(context->defaultShadowState()->blurRadius(), 0);
}

TEST(EffectStateTest, CopyIsDeep) {
    auto state = QVEffectState::create();
    state->setMotionState(positionAt({1, 2, 3, 4}, 30));
    state->setShadowState(QVShadowState::createWithOffset({1, 1}, Color::white(), 2));
    auto copy = state->copy();
    EXPECT_NE(copy->motionState(), state->motionState());
    EXPECT_EQ(copy->motionState()->bounds(), (Rect{1, 2, 3, 4}));
    EXPECT_EQ(copy->motionState()->rotateAngle(), 30);
    EXPECT_NE(copy->shadowState(), state->shadowState());
    EXPECT_EQ(copy->shadowState()->shadow(), state->shadowState()->shadow());
    EXPECT_FALSE(copy->colorState());
    EXPECT_FALSE(copy->cropState());
}

TEST(EffectStateTest, CropComesBeforeTheMove) {
    // Left half red, right half blue.
    std::vector<uint8_t> pixels;
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 8; ++x) {
            const std::array<uint8_t, 4> rgba = x < 4 ? std::array<uint8_t, 4>{255, 0, 0, 255}
                                                      : std::array<uint8_t, 4>{0, 0, 255, 255};
            pixels.insert(pixels.end(), rgba.begin(), rgba.end());
        }
    }
    const Image image = Image::imageWithBitmap(Bitmap::createWithPixels(8, 4, std::move(pixels)));

    auto state = QVEffectState::create();
    state->setCropState(QVCropState::createWithRect({4, 0, 4, 4}));
    state->setMotionState(positionAt({20, 10, 8, 8}));
    const Image result = state->applyState(image);
    EXPECT_EQ(result.extent(), (Rect{20, 10, 8, 8}));
    // The blue half alone fills the bounds, scaled up.
    const Rendered rendered(result, {20, 10, 8, 8});
    EXPECT_EQ(rendered.at(21, 11), (std::array<int, 4>{0, 0, 255, 255}));
    EXPECT_EQ(rendered.at(26, 16), (std::array<int, 4>{0, 0, 255, 255}));

    EXPECT_TRUE(state->applyState(Image()).isNull());
}

TEST(EffectStateTest, ColourFacetAdjustsClipAndShadow) {
    const Image image = solid(4, 4, {128, 128, 128, 255});
    auto state = QVEffectState::create();
    state->setMotionState(positionAt({0, 0, 4, 4}));
    state->setShadowState(QVShadowState::createWithOffset({8, 0}, Color::black(), 0));
    const Rect region{0, 0, 12, 4};

    const Rendered plain(state->applyState(image), region);
    EXPECT_EQ(plain.at(1, 1), (std::array<int, 4>{128, 128, 128, 255}));
    EXPECT_EQ(plain.at(9, 1), (std::array<int, 4>{0, 0, 0, 255}));
    EXPECT_EQ(plain.at(5, 1)[3], 0);

    state->setColorState(QVColorState::createWithBrightness(0.2, 1, 1, 0.5));
    const Rendered adjusted(state->applyState(image), region);
    // Both run after the shadow is laid in: brightness lifts clip and shadow by 0.2, then opacity
    // halves both (premultiplied values).
    const auto clip = adjusted.at(1, 1);
    EXPECT_NEAR(clip[3], 128, 1);
    EXPECT_NEAR(clip[0], std::lround((128.0 / 255 + 0.2) * 0.5 * 255), 2);
    const auto shadow = adjusted.at(9, 1);
    EXPECT_NEAR(shadow[3], 128, 1);
    EXPECT_NEAR(shadow[0], std::lround(0.2 * 0.5 * 255), 2);

    // A neutral colour facet changes nothing.
    state->setColorState(QVColorState::create());
    const Rendered neutral(state->applyState(image), region);
    EXPECT_EQ(neutral.at(1, 1), plain.at(1, 1));
    EXPECT_EQ(neutral.at(9, 1), plain.at(9, 1));
}

TEST(EffectStateTest, ShadowOfARotatedClipTurnsTwice) {
    // A wide red picture on wide bounds, turned a quarter: the clip stands upright, 8 wide and 16
    // high about the centre (8, 4). Its silhouette is turned once more, so the blue shadow lies
    // flat again, upside down over the original bounds.
    const Image image = solid(16, 8, {255, 0, 0, 255});
    auto state = QVEffectState::create();
    state->setMotionState(positionAt({0, 0, 16, 8}, 90));
    state->setShadowState(QVShadowState::createWithOffset({0, 0}, Color{0, 0, 1, 1}, 0));
    const Rendered rendered(state->applyState(image), {-4, -8, 24, 24});

    const std::array<int, 4> red{255, 0, 0, 255};
    const std::array<int, 4> blue{0, 0, 255, 255};
    // The upright clip.
    EXPECT_EQ(rendered.at(7, 10), red);
    EXPECT_EQ(rendered.at(7, -3), red);
    EXPECT_EQ(rendered.at(7, 3), red);
    // The flat shadow beside it; turned only once it would hide under the clip.
    EXPECT_EQ(rendered.at(1, 3), blue);
    EXPECT_EQ(rendered.at(14, 3), blue);
    EXPECT_EQ(rendered.at(1, 10)[3], 0);
}

}  // namespace
}  // namespace qm
