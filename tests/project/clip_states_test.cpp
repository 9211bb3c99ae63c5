#include "effects/QVClipStates.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "effects/QVEffectState.h"
#include "project/ProjectArchive.h"
#include "project/QVClip.h"
#include "project/QVTrack.h"
#include "support/ModelConsistency.h"

namespace qm {
namespace {

class ClipStatesTest : public ModelTest {
protected:
    // A clip lying alone on a track of the project, so that it has an undo manager.
    std::shared_ptr<QVClip> clipOnTrack() {
        auto track = QVTrack::create();
        project->addTracksObject(track);
        EXPECT_TRUE(track->addClip(clipFromTo(0, 2)));
        undoManager->removeAllActions();
        return track->firstClip();
    }
};

// A clip with a picture of a given size.
class SizedClip : public QVClip {
public:
    static std::shared_ptr<SizedClip> create() {
        std::shared_ptr<SizedClip> clip(new SizedClip());
        clip->loadDefaultSettings();
        return clip;
    }
    Size sourceSize() const override { return {320, 240}; }
};

TEST_F(ClipStatesTest, PositionSettersNormaliseAngleAndSize) {
    auto position = QVClipPosition::createWithSize({10, 20});
    // Negative angles are raised by whole turns; large positive ones are kept.
    for (const auto& [set, stored] : {std::pair{-90.0, 270.0}, {450.0, 450.0}, {-720.0, 0.0}}) {
        position->setRotateAngle(set);
        EXPECT_EQ(position->rotateAngle(), stored) << set;
    }

    position->setSize({-5, 7});
    EXPECT_EQ(position->size(), (Size{0, 7}));
    position->setBounds({1, 2, 3, 4});
    position->setPositionX(5);
    position->setHeight(-1);
    EXPECT_EQ(position->bounds(), (Rect{5, 2, 3, 0}));
}

TEST_F(ClipStatesTest, PositionEditsUndoThroughTheClipsProject) {
    auto clip = clipOnTrack();
    auto position = clip->clipPosition();
    position->setLocation({10, 20});
    position->setSize({100, 50});
    position->setRotateAngle(30);
    // Within the tolerance: nothing stored, nothing recorded.
    position->setRotateAngle(30 + 1e-7);
    EXPECT_EQ(position->rotateAngle(), 30);

    undoManager->undo();
    EXPECT_EQ(position->rotateAngle(), 0);
    undoManager->undo();
    EXPECT_EQ(position->size(), (Size{0, 0}));
    undoManager->undo();
    EXPECT_EQ(position->location(), (Point{0, 0}));
    EXPECT_FALSE(undoManager->canUndo());
    undoManager->redo();
    EXPECT_EQ(position->location(), (Point{10, 20}));
}

TEST_F(ClipStatesTest, TransformsApplyTheirStepsInOrder) {
    // Rotation first, then scale, then translation.
    const auto placed = QVClipPosition::makeTranformWithPosition({10, 20}, 2, 3, 90);
    const Point p = placed.transformPoint({1, 0});
    EXPECT_NEAR(p.x, 10, 1e-9);
    EXPECT_NEAR(p.y, 23, 1e-9);

    auto position = QVClipPosition::createWithSize({40, 20});
    position->setLocation({100, 50});
    const auto transform = position->tranformWithSourceBounds({0, 0, 4, 2});
    EXPECT_EQ(transform.transformPoint({0, 0}), (Point{100, 50}));
    EXPECT_EQ(transform.transformPoint({4, 2}), (Point{140, 70}));
}

TEST_F(ClipStatesTest, InterpolationRunsFromStartToThis) {
    auto start = QVClipPosition::createWithSize({100, 100});
    start->setLocation({0, 10});
    start->setRotateAngle(350);
    auto end = QVClipPosition::createWithSize({200, 50});
    end->setLocation({40, 30});
    end->setRotateAngle(10);

    auto middle = end->calcPositionWithStart(*start, 0.5);
    EXPECT_EQ(middle->bounds(), (Rect{20, 20, 150, 75}));
    // The long way round.
    EXPECT_DOUBLE_EQ(middle->rotateAngle(), 180);

    auto color = QVColorState::createWithBrightness(0.4, 2, 0, 0);
    auto halfColor = color->calcColorStateWithStart(nullptr, 0.5);
    EXPECT_DOUBLE_EQ(halfColor->opacity(), 0.5);
    EXPECT_DOUBLE_EQ(halfColor->contrast(), 1.5);

    auto shadow = QVShadowState::createWithOffset({10, -4}, Color{1, 1, 1, 0}, 8);
    auto halfShadow = shadow->calcShadowStateWithStart(nullptr, 0.5);
    EXPECT_DOUBLE_EQ(halfShadow->shadowOffsetY(), -2);
    EXPECT_EQ(halfShadow->shadowColor(), (Color{0.5, 0.5, 0.5, 0.5}));

    // A crop has no default start: a missing start reads as zeros.
    auto crop = QVCropState::createWithRect({10, 20, 30, 40});
    EXPECT_EQ(crop->calcCropStateWithStart(nullptr, 0.5)->cropRect(), (Rect{5, 10, 15, 20}));
    auto fromCrop = QVCropState::create();
    EXPECT_EQ(crop->calcCropStateWithStart(fromCrop, 0)->cropRect(), (Rect{0, 0, 800, 600}));
}

TEST_F(ClipStatesTest, NeutralTestsUseTheTolerance) {
    auto color = QVColorState::defaultColorState();
    color->setContrast(1.0000001);
    EXPECT_TRUE(color->defaultColorContorls());
    color->setContrast(1);
    color->setBrightness(-0.001);
    EXPECT_FALSE(color->defaultColorContorls());
    color->setOpacity(0.999);
    EXPECT_FALSE(color->defaultOpacity());
}

TEST_F(ClipStatesTest, ObserversHearDerivedKeys) {
    auto clip = QVClip::create();
    auto position = clip->clipPosition();
    std::vector<std::string> keys;
    std::vector<Rect> newBounds;
    std::vector<ObserverToken> tokens;
    tokens.push_back(clip->addObserver("bounds", [&](const KeyValueChange& change) {
        keys.push_back("clip.bounds");
        newBounds.push_back(std::any_cast<Rect>(change.newValue));
    }));
    for (const char* key : {"positionX", "height"}) {
        tokens.push_back(position->addObserver(key, [&](const KeyValueChange& change) { keys.push_back(change.key); }));
    }
    position->setLocation({5, 6});
    position->setSize({7, 8});
    EXPECT_EQ(keys, (std::vector<std::string>{"clip.bounds", "positionX", "clip.bounds", "height"}));
    EXPECT_EQ(newBounds, (std::vector<Rect>{{5, 6, 0, 0}, {5, 6, 7, 8}}));

    auto crop = QVCropState::create();
    auto color = QVColorState::create();
    std::vector<std::string> stateKeys;
    for (const char* key : {"cropRect", "y"}) {
        tokens.push_back(
            crop->addObserver(key, [&](const KeyValueChange& change) { stateKeys.push_back(change.key); }));
    }
    tokens.push_back(color->addObserver("defaultOpacity", [&](const KeyValueChange& change) {
        stateKeys.push_back(std::any_cast<bool>(change.newValue) ? "opaque" : "translucent");
    }));
    crop->setWidth(5);
    crop->setCropRect({1, 2, 3, 4});
    color->setOpacity(0.5);
    color->setBrightness(0.5);
    // Parts and rect depend on each other, so a change of one part reaches the other parts too.
    EXPECT_EQ(stateKeys, (std::vector<std::string>{"cropRect", "y", "cropRect", "y", "translucent"}));
}

TEST_F(ClipStatesTest, StatesExistOnlyWhileTheirFlagIsOn) {
    auto clip = clipOnTrack();
    EXPECT_FALSE(clip->colorState());
    clip->setValidateColorControl(true);
    clip->setValideteShadow(true);
    clip->setValidateCrop(true);
    auto color = clip->colorState();
    ASSERT_TRUE(color);
    EXPECT_EQ(color->undoManager().manager(), undoManager);
    EXPECT_EQ(clip->cropState()->cropRect(), (Rect{0, 0, 800, 600}));

    // The state survives the flag going off and on again; its setters record nothing.
    color->setOpacity(0.25);
    clip->setValidateColorControl(false);
    EXPECT_FALSE(clip->colorState());
    clip->setValidateColorControl(true);
    EXPECT_EQ(clip->colorState(), color);
    EXPECT_FALSE(undoManager->canUndo());

    // Made without an owner: no manager, and none later.
    auto lone = QVClip::create();
    lone->setValidateCrop(true);
    auto crop = lone->cropState();
    EXPECT_FALSE(crop->undoManager());
    clip->owner()->addClip(lone);
    EXPECT_FALSE(crop->undoManager());
}

TEST_F(ClipStatesTest, CopyTakesPositionAndTheStatesInForce) {
    auto clip = clipOnTrack();
    clip->clipPosition()->setLocation({1, 2});
    clip->clipPosition()->setRotateAngle(45);
    clip->setValidateColorControl(true);
    clip->colorState()->setSaturation(0.3);
    clip->setValidateCrop(true);
    clip->cropState()->setCropRect({5, 5, 50, 50});
    clip->setValidateCrop(false);

    auto copy = clip->copy();
    auto position = copy->clipPosition();
    EXPECT_EQ(position->owner(), copy);
    EXPECT_EQ(position->rotateAngle(), 45);
    ASSERT_TRUE(copy->colorState());
    EXPECT_EQ(copy->colorState()->saturation(), 0.3);

    // The crop state was off, so it is not copied: turning it on gives a default one.
    copy->setValidateCrop(true);
    EXPECT_EQ(copy->cropState()->cropRect(), (Rect{0, 0, 800, 600}));

    // Moving the copy leaves the original where it is.
    position->setLocation({9, 9});
    EXPECT_EQ(clip->clipPosition()->location(), (Point{1, 2}));
}

// The archive object of class `name` in an archive.
nlohmann::json archivedObject(const std::vector<uint8_t>& bytes, const std::string& name) {
    const auto archive = nlohmann::json::from_cbor(bytes);
    for (const auto& object : archive.at("$objects")) {
        if (object.is_object() && object.value("$class", "") == name) return object;
    }
    return {};
}

TEST_F(ClipStatesTest, ArchiveKeepsPositionAndStoredStates) {
    registerProjectArchiveClasses();
    auto clip = clipOnTrack();
    clip->clipPosition()->setBounds({10, 20, 300, 200});
    clip->setValidateColorControl(true);
    clip->colorState()->setOpacity(0.7);
    clip->setValideteShadow(true);
    clip->shadowState()->setBlurRadius(6);
    clip->setValidateCrop(true);
    clip->cropState()->setCropRect({1, 2, 3, 4});
    clip->setValidateCrop(false);

    const auto bytes = KeyedArchiver::archivedDataWithRootObject(clip);
    for (const char* key : {"position", "colorState", "cropState", "shadowState"}) {
        EXPECT_TRUE(archivedObject(bytes, "QVClip").contains(key)) << key;
    }

    auto read = std::dynamic_pointer_cast<QVClip>(KeyedUnarchiver::unarchiveObjectWithData(bytes));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->clipPosition()->owner(), read);
    EXPECT_EQ(read->bounds(), (Rect{10, 20, 300, 200}));
    ASSERT_TRUE(read->colorState() && read->shadowState());
    EXPECT_EQ(read->colorState()->opacity(), static_cast<double>(0.7f));
    EXPECT_EQ(read->shadowState()->blurRadius(), 6);
    // Stored with the flag off: kept, and back once the flag is on.
    EXPECT_FALSE(read->cropState());
    read->setValidateCrop(true);
    ASSERT_TRUE(read->cropState());
    EXPECT_EQ(read->cropState()->cropRect(), (Rect{1, 2, 3, 4}));

    // A clip that never had a position stores one, at its source size.
    EXPECT_EQ(SizedClip::create()->bounds(), (Rect{0, 0, 320, 240}));
    const auto fresh = archivedObject(KeyedArchiver::archivedDataWithRootObject(SizedClip::create()), "QVClipPosition");
    EXPECT_EQ(fresh.at("size"), (nlohmann::json{320.0, 240.0}));
}

TEST_F(ClipStatesTest, EffectStateHoldsTheLiveStatesInForce) {
    auto clip = clipOnTrack();
    clip->setValidateColorControl(true);
    clip->setValidateCrop(true);
    auto crop = clip->cropState();
    clip->setValidateCrop(false);

    auto state = clip->effectState();
    EXPECT_EQ(state->motionState(), clip->clipPosition());
    EXPECT_EQ(state->colorState(), clip->colorState());
    EXPECT_FALSE(state->cropState());

    project->setOutVideoWidth(1280);
    project->setOutVideoHeight(720);
    auto context = clip->effectContext();
    EXPECT_EQ(context->canvasSize(), (Size{1280, 720}));
    EXPECT_EQ(clip->effectContext(), context);
    clip->clipPosition()->setWidth(50);
    EXPECT_EQ(clip->effectContext()->bounds().size.width, 50);

    // Without a project the canvas is zero.
    EXPECT_EQ(QVClip::create()->effectContext()->canvasSize(), (Size{0, 0}));
}

}  // namespace
}  // namespace qm
