#include <gtest/gtest.h>

#include <cmath>

#include "image/RenderContext.h"
#include "platform/FontManager.h"
#include "platform/TextLayout.h"
#include "project/QVProject.h"
#include "project/QVTextClip.h"
#include "project/QVTrack.h"

namespace qm {
namespace {

// DejaVu Sans per em: advances of H e l o, line height (ascent + descent), and the gap between
// the ascent and the top of a capital.
constexpr double helloAdvance = 0.752 + 0.615 + 0.278 + 0.278 + 0.612;
constexpr double lineHeight = 1.164;
constexpr double capGap = 0.199;

int expectedSide(double measured) { return 2 * static_cast<int>(std::ceil((measured + 33) * 0.5)); }

std::shared_ptr<QVTextClip> dejaVuClip(const std::string& text, double size) {
    TextAttributes attributes = QVTextClip::defaultAttributes();
    attributes.font = Font::fontWithName("DejaVuSans", size);
    return QVTextClip::createWithAttributeString(AttributedString(text, attributes));
}

// Rows (top first) holding a pixel whose red is above 200: white text on the dark plate.
std::pair<int, int> whiteRows(const Bitmap& bitmap) {
    int top = -1, bottom = -1;
    for (int y = 0; y < bitmap.height(); ++y) {
        for (int x = 0; x < bitmap.width(); ++x) {
            if (bitmap.pixelAt(x, y)[0] <= 200) continue;
            if (top < 0) top = y;
            bottom = y;
        }
    }
    return {top, bottom};
}

class OwnedClipTest : public ::testing::Test {
protected:
    // Puts the clip on a track of the project, so its edits are recorded.
    void own(const std::shared_ptr<QVClip>& clip) {
        project->addClip(clip);
        project->undoManager()->removeAllActions();
    }
    void undo() { project->undoManager()->undo(); }

    std::shared_ptr<QVProject> project = QVProject::create();
};

using BlankClipTest = OwnedClipTest;
using TextClipTest = OwnedClipTest;

TEST_F(BlankClipTest, FillsTheProjectsOutputSize) {
    auto clip = QVBlankClip::create();
    EXPECT_EQ(clip->title(), "Blank");
    EXPECT_EQ(clip->color(), Color::black());
    EXPECT_EQ(clip->sourceSize(), Size{});
    EXPECT_FALSE(clip->outputCgImage());
    clip->resetCacheImage();
    own(clip);
    for (const auto& [width, height] : {std::pair{160, 120}, {640, 360}}) {
        project->setOutVideoWidth(width);
        project->setOutVideoHeight(height);
        clip->setColor(Color{1, 0, 0, 0.5});
        const auto picture = clip->cgImageAtSourceTimestamp(12345);
        ASSERT_TRUE(picture);
        EXPECT_EQ(picture->width(), width);
        EXPECT_EQ(picture->height(), height);
        for (const auto& [x, y] : {std::pair{0, 0}, {width - 1, height - 1}, {width / 2, height / 3}}) {
            const auto pixel = picture->pixelAt(x, y);
            EXPECT_NEAR(pixel[0], 128, 1);
            EXPECT_EQ(pixel[1], 0);
            EXPECT_NEAR(pixel[3], 128, 1);
        }
        EXPECT_EQ(clip->thumbnail(), picture);
    }
}

TEST_F(BlankClipTest, ColourIsUndoableAndCopied) {
    auto clip = QVBlankClip::createWithColor(Color{0, 0, 1, 1});
    own(clip);
    const auto blue = clip->outputCgImage();
    clip->setColor(Color{0, 1, 0, 1});
    EXPECT_NE(clip->outputCgImage(), blue);
    EXPECT_EQ(clip->outputCgImage()->pixelAt(3, 3), (std::array<uint8_t, 4>{0, 255, 0, 255}));
    undo();
    EXPECT_EQ(clip->color(), (Color{0, 0, 1, 1}));
    EXPECT_EQ(clip->outputCgImage()->pixelAt(3, 3), (std::array<uint8_t, 4>{0, 0, 255, 255}));
    const auto copy = std::dynamic_pointer_cast<QVBlankClip>(clip->copy());
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->color(), (Color{0, 0, 1, 1}));
    EXPECT_NE(copy->identifier(), clip->identifier());
}

TEST(TextClipRulesTest, FontSizeFromHeightKeepsItsStep) {
    EXPECT_EQ(QVTextClip::sizeFromHeight(19.9), 8.0);
    EXPECT_EQ(QVTextClip::sizeFromHeight(20.0), 8.0);
    EXPECT_EQ(QVTextClip::sizeFromHeight(60.0), 48.0);
    EXPECT_EQ(QVTextClip::sizeFromHeight(120.0), 108.0);
    EXPECT_EQ(QVTextClip::sizeFromHeight(120.1), 100.0);
}

TEST(TextClipRulesTest, DefaultsAndTitle) {
    auto clip = QVTextClip::create();
    EXPECT_EQ(clip->text(), " ");
    EXPECT_EQ(clip->fontFamily(), "Helvetica");
    EXPECT_EQ(clip->fontName(), "Helvetica");
    EXPECT_EQ(clip->fontSize(), 16.0);
    EXPECT_EQ(clip->fontColor(), Color::white());
    EXPECT_EQ(clip->backgroundColor(), (Color{0, 0, 0, 0.5}));
    EXPECT_EQ(clip->backgroundRoundRadius(), 4.0);
    EXPECT_FALSE(clip->canBold());
    EXPECT_EQ(QVTextClip::createWithString("one\ntwo\nthree")->title(), "one two three");
    EXPECT_EQ(QVTextClip::createWithString("")->text(), " ");
    EXPECT_FALSE(QVTextClip::createWithAttributeString(std::nullopt));
    EXPECT_EQ(dejaVuClip("Hello", 20)->fontFamily(), "DejaVu Sans");
}

TEST(TextClipRulesTest, SizeIsTheMeasuredTextPlusMarginRoundedToEven) {
    for (const double size : {12.0, 20.0, 40.0, 80.0}) {
        const Size box = dejaVuClip("Hello", size)->size();
        EXPECT_NEAR(box.width, expectedSide(size * helloAdvance), 2.0) << size;
        EXPECT_NEAR(box.height, expectedSide(size * lineHeight), 2.0) << size;
        EXPECT_EQ(std::fmod(box.width, 2.0), 0.0);
        EXPECT_EQ(std::fmod(box.height, 2.0), 0.0);
    }
    const Size two = dejaVuClip("Hello\nHello", 20)->size();
    EXPECT_NEAR(two.height, expectedSide(2 * 20 * lineHeight), 2.0);
}

TEST(TextClipRulesTest, PictureIsThePlateWithTheTextInsideTheMargin) {
    for (const double size : {20.0, 48.0}) {
        auto clip = dejaVuClip("HHH", size);
        const auto picture = clip->outputCgImage();
        ASSERT_TRUE(picture);
        EXPECT_EQ(picture->width(), clip->size().width);
        EXPECT_EQ(picture->height(), clip->size().height);
        EXPECT_EQ(clip->cgImageAtSourceTimestamp(0), picture);
        // The rounded corner leaves the very corner clear; the margin shows the half-black plate.
        EXPECT_LT(picture->pixelAt(0, 0)[3], 64);
        EXPECT_EQ(picture->pixelAt(picture->width() / 2, 4), (std::array<uint8_t, 4>{0, 0, 0, 128}));
        const auto [top, bottom] = whiteRows(*picture);
        // Upright: the capitals start a cap gap below the top margin and end on the baseline.
        EXPECT_NEAR(top, 16 + capGap * size, 2.0) << size;
        EXPECT_NEAR(bottom, 16 + 0.928 * size, 2.0) << size;
    }
}

TEST_F(TextClipTest, TextEditsAreUndoableAndDropThePicture) {
    auto clip = dejaVuClip("Hello", 20);
    own(clip);
    const auto before = clip->outputCgImage();
    clip->setText("");
    EXPECT_EQ(clip->text(), " ");
    EXPECT_NE(clip->outputCgImage(), before);
    EXPECT_EQ(clip->fontName(), "DejaVuSans");
    undo();
    EXPECT_EQ(clip->text(), "Hello");
    EXPECT_EQ(clip->outputCgImage()->width(), before->width());
}

TEST_F(TextClipTest, BoldAndItalicFollowTheFamilysMembers) {
    auto clip = QVTextClip::create();
    own(clip);
    clip->setBold(true);
    EXPECT_FALSE(clip->bold());
    EXPECT_FALSE(project->undoManager()->canUndo());

    clip->setFontFamily("DejaVu Sans");
    EXPECT_EQ(clip->fontName(), "DejaVuSans");
    EXPECT_TRUE(clip->canBold());
    EXPECT_TRUE(clip->canItalic());
    clip->setBold(true);
    clip->setItalic(true);
    EXPECT_EQ(clip->fontName(), "DejaVuSans-BoldOblique");
    EXPECT_TRUE(clip->bold());
    EXPECT_EQ(clip->fontSize(), 16.0);
    clip->setFontSize(30);
    EXPECT_EQ(clip->fontName(), "DejaVuSans-BoldOblique");
    EXPECT_EQ(clip->fontSize(), 30.0);

    // A family without a bold italic member changes the family but not the font.
    clip->setFontFamily("DejaVu Math TeX Gyre");
    EXPECT_EQ(clip->fontFamily(), "DejaVu Math TeX Gyre");
    EXPECT_EQ(clip->fontName(), "DejaVuSans-BoldOblique");
    EXPECT_FALSE(clip->canBold());
    undo();
    EXPECT_EQ(clip->fontFamily(), "DejaVu Sans");
    undo();
    EXPECT_EQ(clip->fontSize(), 16.0);
    undo();
    EXPECT_EQ(clip->fontName(), "DejaVuSans-Bold");
    undo();
    undo();
    EXPECT_EQ(clip->fontFamily(), "Helvetica");
    EXPECT_EQ(clip->fontName(), "Helvetica");
}

TEST_F(TextClipTest, FontColourKeepsItsOpacityAndThePlatesChanges) {
    auto clip = dejaVuClip("Hi", 20);
    own(clip);
    clip->setFontOpacity(0.3);
    EXPECT_EQ(clip->fontOpacity(), 1.0);
    clip->setFontColor(Color{1, 0, 0, 0.2});
    EXPECT_EQ(clip->fontColor(), (Color{1, 0, 0, 1}));
    clip->setFontColor(std::nullopt);
    EXPECT_EQ(clip->fontColor(), Color::white());
    undo();
    EXPECT_EQ(clip->fontColor(), (Color{1, 0, 0, 1}));
    clip->setBackgroundOpacity(0.3);
    EXPECT_DOUBLE_EQ(clip->backgroundOpacity(), 0.3);
    EXPECT_NEAR(clip->outputCgImage()->pixelAt(clip->outputCgImage()->width() / 2, 4)[3], 0.3 * 255, 1.0);
    clip->setBackgroundRoundRadius(12);
    undo();
    EXPECT_EQ(clip->backgroundRoundRadius(), 4.0);
    undo();
    EXPECT_DOUBLE_EQ(clip->backgroundOpacity(), 0.5);
}

TEST_F(TextClipTest, UnderlineAndStrikethroughColoursNeedTheirStyle) {
    auto clip = dejaVuClip("Hi", 20);
    own(clip);
    EXPECT_EQ(clip->underlineColor(), Color::black());
    clip->setUnderlineColor(Color{1, 0, 0, 1});
    EXPECT_FALSE(project->undoManager()->canUndo());
    EXPECT_EQ(clip->underlineColor(), Color::black());
    clip->setUnderline(true);
    clip->setUnderlineColor(Color{1, 0, 0, 1});
    EXPECT_TRUE(clip->underline());
    EXPECT_EQ(clip->underlineColor(), (Color{1, 0, 0, 1}));
    clip->setStrideThroughColor(Color{0, 1, 0, 1});
    EXPECT_EQ(clip->strideThroughColor(), Color::black());
    clip->setStrideThrough(true);
    clip->setStrideThroughColor(Color{0, 1, 0, 1});
    EXPECT_EQ(clip->strideThroughColor(), (Color{0, 1, 0, 1}));
    undo();
    undo();
    EXPECT_FALSE(clip->strideThrough());
    undo();
    EXPECT_EQ(clip->underlineColor(), Color::black());
    EXPECT_TRUE(clip->underline());
}

TEST(TextClipRulesTest, CopyCarriesTheTextAndThePlate) {
    auto clip = dejaVuClip("Copy me", 20);
    clip->setUnderline(true);
    clip->setBackgroundColor(Color{0, 0, 1, 0.25});
    clip->setBackgroundRoundRadius(9);
    clip->setFontFamily("DejaVu Serif");
    auto copy = std::dynamic_pointer_cast<QVTextClip>(clip->copy());
    ASSERT_TRUE(copy);
    EXPECT_NE(copy->identifier(), clip->identifier());
    EXPECT_EQ(copy->textStorage(), clip->textStorage());
    EXPECT_EQ(copy->backgroundColor(), clip->backgroundColor());
    EXPECT_EQ(copy->backgroundRoundRadius(), 9.0);
    EXPECT_EQ(copy->fontFamily(), "DejaVu Serif");
}

// The text clip in a composed frame: a 320 x 240 canvas over green, the clip's lower left corner
// at (40, 30).
TEST_F(TextClipTest, LandsUprightWhereItsPositionSaysInAComposedFrame) {
    project->setOutVideoWidth(320);
    project->setOutVideoHeight(240);
    project->setBackgroundColor(Color{0, 1, 0, 1});
    auto clip = dejaVuClip("T", 40);
    clip->setFontColor(Color{1, 0, 0, 1});
    clip->setBackgroundColor(Color::clear());
    clip->clipPosition()->setLocation({40, 30});
    project->addClip(clip);
    const Size box = clip->size();
    const auto frame = RenderContext::create()->createBitmap(project->imageAtTimestamp(0), {0, 0, 320, 240});
    ASSERT_TRUE(frame);
    int top = 240, bottom = -1, left = 320, right = -1;
    for (int y = 0; y < 240; ++y) {
        for (int x = 0; x < 320; ++x) {
            const auto p = frame->pixelAt(x, y);
            if (p[0] < 200 || p[1] > 60) continue;
            top = std::min(top, y);
            bottom = std::max(bottom, y);
            left = std::min(left, x);
            right = std::max(right, x);
        }
    }
    ASSERT_GE(bottom, 0);
    // The clip spans canvas y 30 .. 30 + H, which is rows 240 - 30 - H .. 210 from the top.
    const double boxTop = 240 - 30 - box.height;
    EXPECT_NEAR(top, boxTop + 16 + capGap * 40, 2.0);
    EXPECT_NEAR(bottom, boxTop + 16 + 0.928 * 40, 2.0);
    EXPECT_GE(left, 40 + 16 - 1);
    EXPECT_LE(right, 40 + box.width - 16);
    // Upright: the bar of the T, near the top, is wider than its stem.
    const auto redIn = [&](int y) {
        int count = 0;
        for (int x = 0; x < 320; ++x) count += frame->pixelAt(x, y)[0] > 200 && frame->pixelAt(x, y)[1] < 60;
        return count;
    };
    EXPECT_GT(redIn(top + 1), 3 * redIn(bottom - 1));
}

}  // namespace
}  // namespace qm
