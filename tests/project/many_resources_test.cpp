#include <gtest/gtest.h>

#include <sys/resource.h>

#include "foundation/QMCommon.h"
#include "foundation/QVSampleBuffer.h"
#include "platform/Dispatch.h"
#include "platform/KeyedArchiver.h"
#include "platform/UserDefaults.h"
#include "project/ProjectArchive.h"
#include "project/QVMediaClip.h"
#include "project/QVProject.h"
#include "project/QVTrack.h"
#include "store/AMResourceMgr.h"
#include "store/SCResource.h"

#include "support/SampleBytes.h"
#include "support/StoredMedia.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

constexpr int kResources = 1000;
constexpr int kTracks = 10;
constexpr int64_t kRate = 8000;
const QVSampleDescription kMono(kRate, 1, QVSampleFormatS16, 0);

// Resource i sounds at a level of its own, so the mix shows which were read.
int16_t levelOf(int index) { return static_cast<int16_t>(100 + index); }

// A process with at most 256 open files for the rest of its life, as under `ulimit -n 256`.
void limitOpenFiles() {
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, 256);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
}

// A catalogue of a thousand recordings, saved, read back by the shared manager as at start-up,
// and a project that uses each of them once, archived and read back, then mixed from end to end.
TEST(ManyResourcesTest, AProjectOverAThousandStoredResourcesMixesWithinTwoHundredAndFiftySixOpenFiles) {
    limitOpenFiles();
    const test::PrivateUserDirectories user("many_resources_test");
    registerStoreArchiveClasses();
    registerProjectArchiveClasses();

    // The catalogue as an older layout kept it in the defaults: the manager moves it into its
    // storage when it starts.
    std::vector<std::shared_ptr<SCResource>> resources;
    for (int i = 0; i < kResources; ++i) {
        test::StoredAudioPlan plan;
        plan.sampleRate = kRate;
        plan.channels = 1;
        plan.numberOfSamples = kRate / 2;
        plan.blockSamples = kRate / 2;
        plan.signal = test::constantSignal(levelOf(i) / 32767.0);
        resources.push_back(test::storedAudioResource(plan));
    }
    UserDefaults::standardUserDefaults().setData(
        QMCommon::archiveRootObject(ArchivedList::createWithObjects(resources)), "AMRecordingResourceData");
    std::vector<std::string> identifiers;
    for (const auto& resource : resources) identifiers.push_back(resource->identifier());
    resources.clear();
    ASSERT_EQ(AMResourceMgr::resourceMgr().recordingResources().size(), static_cast<size_t>(kResources));

    auto project = QVProject::create();
    for (int t = 0; t < kTracks; ++t) project->addTracksObject(QVTrack::create());
    const int perTrack = kResources / kTracks;
    for (int i = 0; i < kResources; ++i) {
        auto clip = QVMediaClip::createWithResourceIdentifier(identifiers[i]);
        ASSERT_TRUE(clip) << i;
        clip->setTimestampOfTrack((i % perTrack) * QVClip::minClipDuration);
        ASSERT_TRUE(project->tracks()[i / perTrack]->addClip(clip)) << i;
    }
    project = std::dynamic_pointer_cast<QVProject>(
        KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(project)));
    ASSERT_TRUE(project);

    const int64_t total = project->numberOfSamplesWithDescription(kMono);
    ASSERT_EQ(total, perTrack * kRate / 2);
    // Track t sounds at the level of the clip in its place; the project mixes all of them.
    const auto tracks = project->tracks();
    for (int64_t at = 0; at < total; at += 1024) {
        const QVRange block(at, 1024);
        const auto sound = project->sampleBufferWithDescription(kMono, block);
        ASSERT_TRUE(sound && sound->sampleRange().isEqualRange(block)) << at;
        const int slot = static_cast<int>(at / (kRate / 2));
        for (int t = 0; t < kTracks; ++t) {
            const auto part = tracks[t]->sampleBufferWithDescription(kMono, block);
            ASSERT_TRUE(part) << at;
            ASSERT_EQ(test::s16Values(part).front(), levelOf(t * perTrack + slot)) << at;
        }
        ASSERT_GT(test::s16Values(sound).front(), levelOf((kTracks - 1) * perTrack + slot)) << at;
    }
    EXPECT_EQ(project->sampleBufferWithDescription(kMono, QVRange(total, 1024)), nullptr);
    MainLoop::drain();
}

}  // namespace
}  // namespace qm
