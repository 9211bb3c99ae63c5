#include "store/AMResourceMgr.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <thread>

#include "codec/QVAudioFrame2.h"
#include "foundation/QMCommon.h"
#include "platform/Dispatch.h"
#include "platform/KeyedArchiver.h"
#include "platform/Log.h"
#include "platform/NotificationCenter.h"
#include "store/SCAudioResource.h"

#include "support/TestEnvironment.h"

namespace qm {
namespace {

class ResourceMgrTest : public ::testing::Test {
protected:
    void SetUp() override {
        _defaults = UserDefaults::createWithPath(_directory + "/defaults.sqlite3");
        _observer = NotificationCenter::defaultCenter().addObserver(AMResourcesChanged, nullptr,
                                                                    [this](const Notification&) { ++_notifications; });
        MainLoop::drain();
        _notifications = 0;
    }
    void TearDown() override {
        _observer.reset();
    }

    std::shared_ptr<AMResourceMgr> manager() const { return AMResourceMgr::createWithDefaults(_defaults); }

    // A record with one stored audio frame, so that it archives and reads back.
    static std::shared_ptr<SCResource> record(const std::string& identifier) {
        auto storage = SCResourceStorage::create();
        const std::vector<int16_t> samples(32, 77);
        const auto bytes = SCResource::encodeAudioFrame(
            QVAudioFrame2::create(1, 1, 8000, 32, reinterpret_cast<const uint8_t*>(samples.data())));
        storage->appendData(bytes);
        storage->flushCacheBuffer();
        const auto audio = SCAudioResource::createWithDataStorage(
            storage, {SCAudioBlock::createWithOffset(0, bytes.size(), 0, 32)}, 8000, 1, 1, 0);
        return SCResource::createWithIdentifierAudioVideo(identifier, audio, nullptr);
    }

    static std::vector<std::string> identifiers(const std::vector<std::shared_ptr<SCResource>>& list) {
        std::vector<std::string> result;
        for (const auto& resource : list) result.push_back(resource->identifier());
        return result;
    }
    static bool cacheFileExists(const std::shared_ptr<SCResource>& resource) {
        const auto file = resource->audioResource()->storage()->cacheFile();
        return file && std::filesystem::exists(*file);
    }

    int deliveredNotifications() {
        MainLoop::drain();
        return _notifications;
    }

    test::PrivateUserDirectories _user{"resource_mgr_test"};
    const std::string _directory = _user.path();
    std::shared_ptr<UserDefaults> _defaults;
    ObserverToken _observer;
    int _notifications = 0;
};

TEST_F(ResourceMgrTest, CatalogueSurvivesARestartInEveryListInOrder) {
    {
        const auto mgr = manager();
        // A second manager finds the same storage.
        EXPECT_EQ(manager()->storage()->cacheFile(), mgr->storage()->cacheFile());
        mgr->addResource(record("U1"), AMResourceTypeUser);
        mgr->addResource(record("U2"), AMResourceTypeUser);
        mgr->addResource(record("T1"), AMResourceTypeITunes);
        mgr->addResource(record("P1"), AMResourceTypePhotos);
        mgr->addResource(record("R1"), AMResourceTypeRecording);
    }
    const auto restarted = manager();
    EXPECT_EQ(identifiers(restarted->userResource()), (std::vector<std::string>{"U1", "U2"}));
    EXPECT_EQ(identifiers(restarted->iTunesResource()), (std::vector<std::string>{"T1"}));
    EXPECT_EQ(identifiers(restarted->photosResource()), (std::vector<std::string>{"P1"}));
    EXPECT_EQ(identifiers(restarted->recordingResources()), (std::vector<std::string>{"R1"}));
    EXPECT_TRUE(restarted->findResourceWithIdentifier("U2")->audioResource()->sampleBufferWithRange(QVRange(0, 32)));
}

TEST_F(ResourceMgrTest, ChangesNotifyLaterOnTheMainQueue) {
    const auto mgr = manager();
    const auto resource = record("A");
    mgr->addResource(resource, AMResourceTypeUser);
    EXPECT_EQ(_notifications, 0);
    EXPECT_EQ(deliveredNotifications(), 1);

    // From another thread the notification still arrives on the main queue.
    std::thread([&] { mgr->removeResource(resource, AMResourceTypeUser); }).join();
    EXPECT_EQ(_notifications, 1);
    EXPECT_EQ(deliveredNotifications(), 2);
    EXPECT_TRUE(mgr->userResource().empty());
    // Removal from a list does not invalidate the record.
    EXPECT_TRUE(cacheFileExists(resource));
}

TEST_F(ResourceMgrTest, FindSearchesITunesFirstButRemoveTriesTheUserListFirst) {
    const auto mgr = manager();
    const auto user = record("SAME");
    const auto itunes = record("SAME");
    mgr->addResource(user, AMResourceTypeUser);
    mgr->addResource(itunes, AMResourceTypeITunes);
    EXPECT_EQ(mgr->findResourceWithIdentifier("SAME"), itunes);
    EXPECT_EQ(mgr->findResourceWithIdentifier("SAME", AMResourceTypeUser), user);
    EXPECT_EQ(mgr->findResourceWithIdentifier("SAME", 5), nullptr);

    EXPECT_TRUE(mgr->removeResourceWithIdentifier("SAME"));
    EXPECT_TRUE(mgr->userResource().empty());
    EXPECT_FALSE(cacheFileExists(user));
    EXPECT_TRUE(cacheFileExists(itunes));
    EXPECT_FALSE(mgr->removeResourceWithIdentifier("SAME", AMResourceTypeRecording));
    EXPECT_TRUE(mgr->removeResourceWithIdentifier("SAME"));
    EXPECT_FALSE(mgr->removeResourceWithIdentifier("SAME"));
    EXPECT_TRUE(manager()->iTunesResource().empty());
}

TEST_F(ResourceMgrTest, FindBySignatureInTheSameOrder) {
    const auto mgr = manager();
    const auto photo = SCResource::createWithIdentifierSigntureAudioVideo("P", "SIG", record("p")->audioResource(), nullptr);
    const auto recording = SCResource::createWithIdentifierSigntureAudioVideo("R", "SIG", record("r")->audioResource(), nullptr);
    mgr->addResource(recording, AMResourceTypeRecording);
    mgr->addResource(photo, AMResourceTypePhotos);
    EXPECT_EQ(mgr->findResourceWithSignture("SIG"), photo);
    EXPECT_EQ(mgr->findResourceWithSignture("SIG", AMResourceTypeRecording), recording);
    EXPECT_EQ(mgr->findResourceWithSignture("NONE"), nullptr);
}

TEST_F(ResourceMgrTest, RemovingRecordingsByPositionSkipsPositionsPastTheEnd) {
    const auto mgr = manager();
    std::vector<std::shared_ptr<SCResource>> records{record("R0"), record("R1"), record("R2")};
    for (const auto& r : records) mgr->addResource(r, AMResourceTypeRecording);
    deliveredNotifications();
    mgr->removeRecordingResourcesAtIndexes({0, 2, 10});
    EXPECT_EQ(identifiers(mgr->recordingResources()), (std::vector<std::string>{"R1"}));
    EXPECT_TRUE(cacheFileExists(records[1]));
    EXPECT_FALSE(cacheFileExists(records[2]));
    EXPECT_EQ(deliveredNotifications(), 4);
    EXPECT_EQ(identifiers(manager()->recordingResources()), (std::vector<std::string>{"R1"}));
}

TEST_F(ResourceMgrTest, RemovingUserRecordsByPositionPastTheEndIsAProgrammingError) {
    const auto mgr = manager();
    std::vector<std::shared_ptr<SCResource>> records{record("U0"), record("U1"), record("U2")};
    for (const auto& r : records) mgr->addResource(r, AMResourceTypeUser);
    EXPECT_THROW(mgr->removeUserResourceAtIndexes({0, 3}), std::out_of_range);
    EXPECT_EQ(mgr->userResource().size(), 3u);
    EXPECT_TRUE(cacheFileExists(records[0]));

    mgr->removeUserResourceAtIndexes({0, 2});
    EXPECT_EQ(identifiers(manager()->userResource()), (std::vector<std::string>{"U1"}));
}

TEST_F(ResourceMgrTest, AListFoundOnlyInTheDefaultsMovesIntoTheStorage) {
    const auto old = QMCommon::archiveRootObject(ArchivedList::createWithObjects(
        std::vector<std::shared_ptr<SCResource>>{record("OLD1"), record("OLD2")}));
    _defaults->setData(old, "AMPhotosResourceData");
    const auto mgr = manager();
    EXPECT_FALSE(_defaults->containsValueForKey("AMPhotosResourceData"));
    EXPECT_EQ(identifiers(manager()->photosResource()), (std::vector<std::string>{"OLD1", "OLD2"}));
}

TEST_F(ResourceMgrTest, DamagedOrForeignListDataReadsAsAnEmptyListAndIsOverwrittenOnTheNextSave) {
    {
        const auto mgr = manager();
        mgr->addResource(record("KEEP"), AMResourceTypeRecording);
        mgr->storage()->writeData(std::vector<uint8_t>(50, 0xEE), "AMUserResourceData");
        mgr->storage()->writeData(QMCommon::archiveRootObject(record("NOT-A-LIST")), "AMiTunesResourceData");
        mgr->saveStorageToDefault();
    }
    const auto mgr = manager();
    EXPECT_TRUE(mgr->userResource().empty());
    EXPECT_TRUE(mgr->iTunesResource().empty());
    mgr->addResource(record("NEW"), AMResourceTypeUser);
    EXPECT_EQ(identifiers(manager()->userResource()), (std::vector<std::string>{"NEW"}));
}

TEST_F(ResourceMgrTest, AStorageDefaultThatDoesNotReadIsReplacedByANewStorage) {
    const auto first = manager();
    first->addResource(record("LOST"), AMResourceTypeUser);
    const std::string oldFile = *first->storage()->cacheFile();

    LogCapture capture;
    _defaults->setData(QMCommon::archiveRootObject(SCAudioBlock::createWithOffset(1, 2, 3, 4)), "AMResMgrStorageData");
    const auto foreign = manager();
    EXPECT_EQ(capture.count("Warning: unexpected class SCAudioBlock for key root"), 1u);
    EXPECT_NE(foreign->storage()->cacheFile(), oldFile);
    EXPECT_TRUE(foreign->userResource().empty());

    std::filesystem::remove(*foreign->storage()->cacheFile());
    const auto vanished = manager();
    ASSERT_TRUE(vanished->storage()->cacheFile());
    EXPECT_TRUE(std::filesystem::exists(*vanished->storage()->cacheFile()));
}

TEST_F(ResourceMgrTest, AddsFromSeveralThreadsAreAllKept) {
    const auto mgr = manager();
    std::vector<std::shared_ptr<SCResource>> records;
    for (int i = 0; i < 12; ++i) records.push_back(record("T" + std::to_string(i)));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = t; i < 12; i += 4) mgr->addResource(records[i], AMResourceTypeUser);
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(manager()->userResource().size(), 12u);
    EXPECT_EQ(deliveredNotifications(), 12);
}

}  // namespace
}  // namespace qm
