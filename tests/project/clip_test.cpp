#include "project/QVClip.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "foundation/QVSampleDescription.h"
#include "foundation/QVVolumeEffect.h"
#include "project/ProjectArchive.h"
#include "project/QVTrack.h"
#include "support/ModelConsistency.h"

namespace qm {
namespace {

constexpr int64_t kMin = QVClip::minClipDuration;

class ClipTest : public ModelTest {
protected:
    // A track of the project holding clips from..to seconds, each accepted by the placement rule.
    std::shared_ptr<QVTrack> trackWith(const std::vector<std::pair<double, double>>& spans) {
        auto track = QVTrack::create();
        project->addTracksObject(track);
        for (const auto& [from, to] : spans) EXPECT_TRUE(track->addClip(clipFromTo(from, to)));
        check();
        return track;
    }
};

// A clip whose source lasts three seconds, as media clips will have.
class ThreeSecondClip : public QVClip {
public:
    static std::shared_ptr<ThreeSecondClip> create() {
        std::shared_ptr<ThreeSecondClip> clip(new ThreeSecondClip());
        clip->loadDefaultSettings();
        return clip;
    }
    int64_t sourceDuration() const override { return 3 * QVTimebase; }
};

TEST_F(ClipTest, LoneClipLastsFiveSecondsOrItsSourceAndAcceptsAnyStartFromZeroAndDurationFromMin) {
    EXPECT_EQ(ThreeSecondClip::create()->trackDuration(), 3 * QVTimebase);
    auto clip = QVClip::create();
    EXPECT_EQ(clip->trackDuration(), 5 * QVTimebase);
    EXPECT_TRUE(clip->rangeOfDurationAtTrack().isEqualRange(QVRange(kMin, QVClip::unlimitedBound - kMin)));
    clip->setTimestampOfTrack(-5);
    EXPECT_EQ(clip->timestampOfTrack(), 0);
    clip->setTimestampOfTrack(INT64_MAX);
    EXPECT_EQ(clip->timestampOfTrack(), QVClip::unlimitedBound - 1);
    clip->setTrackDuration(1);
    EXPECT_EQ(clip->trackDuration(), kMin);
}

TEST_F(ClipTest, StartAfterPrevKeepsMinOfEachClipOutsideTheOverlap) {
    auto track = trackWith({{0, 4}, {5, 7}});
    auto clip = track->lastClip();
    // prev start + min, raised so that the clip reaches min beyond prev's end.
    clip->setTimestampOfTrack(0);
    EXPECT_EQ(clip->timestampOfTrack(), sec(2.5));

    // A long clip is held only by prev's start.
    clip->setTrackDuration(sec(10));
    EXPECT_EQ(clip->rangeOfTimestampAtTrack().location(), sec(0.5));
    check();
}

TEST_F(ClipTest, StartMayNotReachTheOverlapBeforePrev) {
    auto track = trackWith({{0, 4}, {3, 8}, {9, 19}});
    auto clip = track->lastClip();
    // prev start + min is 3.5, inside prevprev: raised to prevprev's end.
    clip->setTimestampOfTrack(sec(1));
    EXPECT_EQ(clip->timestampOfTrack(), sec(4));
    check();
}

TEST_F(ClipTest, StartBeforeNextKeepsMinOfNextAndStopsShortOfNextnext) {
    auto track = trackWith({{0, 2}, {3, 8}});
    auto clip = track->firstClip();
    EXPECT_TRUE(clip->rangeOfTimestampAtTrack().isEqualRange(QVRange(0, sec(2.5))));

    // A short next: the clip's end stays min before next's end.
    auto shortNext = trackWith({{0, 4}, {5, 6.5}});
    EXPECT_TRUE(shortNext->firstClip()->rangeOfTimestampAtTrack().isEqualRange(QVRange(0, sec(2))));

    // With nextnext the largest start leaves the clip's end two units before nextnext's start.
    auto withNextnext = trackWith({{0, 4}, {5, 8}, {6, 12}});
    auto first = withNextnext->firstClip();
    first->setTimestampOfTrack(sec(100));
    EXPECT_EQ(first->trackTimeRange().end(), sec(6) - 2);
    check();

    // Also where nextnext's start is exactly in reach: the unit of distance is kept.
    auto reach = trackWith({{0, 2}, {3, 10}, {4.5, 12}})->firstClip();
    reach->setTimestampOfTrack(sec(100));
    EXPECT_EQ(reach->timestampOfTrack(), sec(2.5) - 2);
    check();
}

TEST_F(ClipTest, DurationHeldByPrevEndAndNextEndAndNextnextStart) {
    auto afterPrev = trackWith({{0, 4}, {3, 6}})->lastClip();
    afterPrev->setTrackDuration(1);
    EXPECT_EQ(afterPrev->trackDuration(), sec(1.5));

    // The clip may grow until its end reaches next end - min - 1.
    auto beforeNext = trackWith({{0, 4}, {5, 6.5}})->firstClip();
    beforeNext->setTrackDuration(sec(100));
    EXPECT_EQ(beforeNext->trackTimeRange().end(), sec(6) - 1);

    // With nextnext it may not pass nextnext's start, and keeps one unit less distance than a move.
    auto beforeNextnext = trackWith({{0, 4}, {5, 8}, {6, 12}})->firstClip();
    beforeNextnext->setTrackDuration(sec(100));
    EXPECT_EQ(beforeNextnext->trackTimeRange().end(), sec(6) - 1);
    check();
}

TEST_F(ClipTest, CutLimitsLookAtPrevStartPrevprevEndAndNextStart) {
    auto track = trackWith({{0, 4}, {3, 8}, {7, 12}, {11, 15}});
    auto clip = track->objectInClipsAtIndex(2);
    // Low: prev start + min = 3.5 raised to prevprev end 4. High: own end - min = 11.5, lowered to
    // next start - min = 10.5, although next ends much later.
    EXPECT_TRUE(clip->rangeOfTimestampForCut().isEqualRange(QVRange(sec(4), sec(6.5))));
    EXPECT_TRUE(trackWith({{2, 6}})->firstClip()->rangeOfTimestampForCut().isEqualRange(QVRange(0, sec(5.5))));
}

TEST_F(ClipTest, EmptyLegalRangeIgnoresTheSetterAndRecordsNothing) {
    auto track = trackWith({{0, 0.9}, {0.5, 1.0}});
    auto clip = track->firstClip();
    undoManager->removeAllActions();
    clip->setTrackDuration(sec(0.7));
    clip->setTimestampOfTrack(sec(0.1));
    EXPECT_EQ(clip->trackTimeRange().location(), 0);
    EXPECT_EQ(clip->trackDuration(), sec(0.9));
    EXPECT_FALSE(undoManager->canUndo());

    clip->setNotCheckValue(true);
    clip->setTimestampOfTrack(sec(0.1));
    EXPECT_EQ(clip->timestampOfTrack(), sec(0.1));
}

TEST_F(ClipTest, SettersRecordTheOldValueOnTheOwnersUndoManagerAndUndoRunsTheSetter) {
    auto clip = trackWith({{1, 3}})->firstClip();
    undoManager->removeAllActions();
    clip->setTimestampOfTrack(sec(2));
    clip->setTrackDuration(sec(4));
    clip->setMute(true);
    clip->setTrackVolume(0.5);

    undo();
    EXPECT_DOUBLE_EQ(clip->trackVolume(), QVVolumeEffect::defaultVolume());
    undo();
    EXPECT_FALSE(clip->mute());
    undo();
    EXPECT_EQ(clip->trackDuration(), sec(2));
    undo();
    EXPECT_EQ(clip->timestampOfTrack(), sec(1));
    EXPECT_FALSE(undoManager->canUndo());

    // Unchanged values record nothing.
    undoManager->removeAllActions();
    clip->setTimestampOfTrack(sec(1));
    clip->setMute(false);
    EXPECT_FALSE(undoManager->canUndo());
}

TEST_F(ClipTest, VolumeBelowToleranceIsIgnoredAndAChangeRenewsTheGain) {
    auto clip = trackWith({{0, 2}})->firstClip();
    undoManager->removeAllActions();
    auto gain = clip->volumeGain();
    clip->setTrackVolume(clip->trackVolume() + 5e-7);
    EXPECT_FALSE(undoManager->canUndo());
    EXPECT_EQ(clip->volumeGain(), gain);

    clip->setTrackVolume(0.5);
    EXPECT_NE(clip->volumeGain(), gain);
    EXPECT_DOUBLE_EQ(clip->volumeGain()->volume(), 0.5);
}

TEST_F(ClipTest, CutRemovesTheHeadKeepsTheEndAndIsOneUndoStep) {
    auto track = trackWith({{2, 6}});
    auto clip = track->firstClip();
    std::vector<std::string> changes;
    auto durationToken = clip->addObserver("trackDuration", [&](const KeyValueChange&) { changes.push_back("d"); });
    auto startToken = clip->addObserver("timestampOfTrack", [&](const KeyValueChange&) { changes.push_back("s"); });

    expectUndoRedoExact([&] { clip->cutAtTimestamp(sec(3)); });
    EXPECT_EQ(clip->timestampOfTrack(), sec(3));
    EXPECT_EQ(clip->trackTimeRange().end(), sec(6));
    ASSERT_GE(changes.size(), 2u);
    EXPECT_EQ(changes[0] + changes[1], "ds");

    // Beyond the legal end the cut stops one unit before it.
    clip->cutAtTimestamp(sec(10));
    EXPECT_EQ(clip->timestampOfTrack(), sec(5.5) - 1);
    EXPECT_EQ(clip->trackTimeRange().end(), sec(6));
    EXPECT_FALSE(clip->notCheckValue());
    check();
}

TEST_F(ClipTest, CutWithAnEmptyRangeSetsTheStartToMinusOne) {
    auto clip = trackWith({{0, 0.5}})->firstClip();
    EXPECT_EQ(clip->rangeOfTimestampForCut().length(), 0);
    clip->cutAtTimestamp(sec(0.2));
    EXPECT_EQ(clip->timestampOfTrack(), -1);
    EXPECT_EQ(clip->trackDuration(), sec(0.5) + 1);
}

TEST_F(ClipTest, SampleRangeTruncatesAtTheRequestedRate) {
    auto clip = clipFromTo(1, 1.5);
    const QVRange range = clip->sampleRangeWithSampleDescription(QVSampleDescription(44100, 2, 1, 3));
    EXPECT_TRUE(range.isEqualRange(QVRange(44100, 22050)));
    clip->setTimestampOfTrack(QVTimebase / 44100 - 1);
    EXPECT_EQ(clip->sampleRangeWithSampleDescription(QVSampleDescription(44100, 2, 1, 3)).location(), 0);
}

TEST_F(ClipTest, CopyHasItsOwnIdentityNoOwnerAndTheSettings) {
    auto clip = trackWith({{0, 2}, {1, 4}})->lastClip();
    clip->setValidate(false);
    clip->setValideteShadow(true);
    auto copy = clip->copy();
    EXPECT_NE(copy->identifier(), clip->identifier());
    EXPECT_FALSE(copy->owner());
    EXPECT_TRUE(copy->trackTimeRange().isEqualRange(clip->trackTimeRange()));
    EXPECT_FALSE(copy->validate());
    EXPECT_TRUE(copy->valideteShadow());
}

// The archive object of class `name` in an archive.
nlohmann::json archivedObject(const std::vector<uint8_t>& bytes, const std::string& name) {
    const auto archive = nlohmann::json::from_cbor(bytes);
    for (const auto& object : archive.at("$objects")) {
        if (object.is_object() && object.value("$class", "") == name) return object;
    }
    return {};
}

TEST_F(ClipTest, ArchiveWritesTheBaseKeysAndReadsThemBack) {
    registerProjectArchiveClasses();
    auto clip = trackWith({{1, 3}})->firstClip();
    clip->setMute(true);
    clip->setValidateColorControl(true);
    clip->setTrackVolume(0.3);
    const auto bytes = KeyedArchiver::archivedDataWithRootObject(clip);

    const auto stored = archivedObject(bytes, "QVClip");
    for (const char* key : {"identifier", "timestampOfTrack", "duration", "ignoreVideo", "mute", "validate",
                            "validateColorControl", "validateCrop", "valideteShadow", "volume"}) {
        EXPECT_TRUE(stored.contains(key)) << key;
    }
    EXPECT_EQ(stored.at("duration").get<int64_t>(), sec(2));

    auto read = std::dynamic_pointer_cast<QVClip>(KeyedUnarchiver::unarchiveObjectWithData(bytes));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->identifier(), clip->identifier());
    EXPECT_TRUE(read->trackTimeRange().isEqualRange(clip->trackTimeRange()));
    EXPECT_TRUE(read->mute() && read->validateColorControl());
    // The volume is stored narrowed to 32 bits.
    EXPECT_EQ(read->trackVolume(), static_cast<double>(0.3f));
}

// Writes the keys of a clip as given, to see how reading treats them.
class RawClip : public Archivable {
public:
    std::string archiveClassName() const override { return "QVClip"; }
    void encodeWithCoder(KeyedArchiver& coder) const override {
        coder.encodeString("identifier", "RAW");
        coder.encodeInt64("timestampOfTrack", -3 * QVTimebase);
        coder.encodeInt64("duration", 1);
    }
};

TEST_F(ClipTest, ReadingTakesTheDurationAsStoredAndTheStartThroughTheSetter) {
    registerProjectArchiveClasses();
    const auto bytes = KeyedArchiver::archivedDataWithRootObject(std::make_shared<RawClip>());
    auto read = std::dynamic_pointer_cast<QVClip>(KeyedUnarchiver::unarchiveObjectWithData(bytes));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->trackDuration(), 1);
    EXPECT_EQ(read->timestampOfTrack(), 0);
    // Missing keys read as zero and false: no default settings are loaded.
    EXPECT_EQ(read->trackVolume(), 0.0);
    EXPECT_FALSE(read->validate());

    // A copy is limited as a lone clip: the stored duration of one unit becomes min.
    EXPECT_EQ(read->copy()->trackDuration(), kMin);
}

TEST_F(ClipTest, ObserversHearTheKeysAndTheirDependents) {
    auto clip = QVClip::create();
    std::vector<std::string> keys;
    std::vector<ObserverToken> tokens;
    for (const char* key : {"mute", "volumeGain", "trackTimeRange", "validateCrop"}) {
        tokens.push_back(clip->addObserver(key, [&](const KeyValueChange& change) { keys.push_back(change.key); }));
    }
    clip->setMute(true);
    clip->setTrackVolume(0.1);
    clip->setTimestampOfTrack(sec(1));
    clip->setTrackDuration(sec(1));
    clip->setValidateCrop(true);
    EXPECT_EQ(keys, (std::vector<std::string>{"mute", "volumeGain", "trackTimeRange", "trackTimeRange", "validateCrop"}));
}

}  // namespace
}  // namespace qm
