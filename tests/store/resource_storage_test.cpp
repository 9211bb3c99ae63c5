#include "store/SCResourceStorage.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <numeric>

#include "platform/KeyedArchiver.h"
#include "platform/Log.h"
#include "platform/Paths.h"
#include "store/SCCacheFilePool.h"
#include "store/SCResource.h"

#include "support/TestEnvironment.h"

namespace qm {
namespace {

class ResourceStorageTest : public ::testing::Test {
protected:
    void SetUp() override {
        registerStoreArchiveClasses();
    }

    static uint64_t fileSize(const SCResourceStorage& storage) {
        struct stat info {};
        return ::stat(storage.cacheFile()->c_str(), &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
    }
    static std::vector<uint8_t> bytes(size_t count, uint8_t first = 0) {
        std::vector<uint8_t> data(count);
        std::iota(data.begin(), data.end(), first);
        return data;
    }
    static std::shared_ptr<SCResourceStorage> roundTrip(const std::shared_ptr<SCResourceStorage>& storage) {
        return std::dynamic_pointer_cast<SCResourceStorage>(
            KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(storage)));
    }

    test::PrivateUserDirectories _user{"resource_storage_test"};
    const std::string _directory = _user.path();
};

TEST_F(ResourceStorageTest, NewStorageIsAnEmptyFileNamedByUUIDUnderTheBundleResourceDirectory) {
    const auto storage = SCResourceStorage::create();
    ASSERT_TRUE(storage->cacheFile());
    const std::filesystem::path path(*storage->cacheFile());
    EXPECT_EQ(path.parent_path().string(), _directory + "/data/" + Bundle::identifier() + "/Resource");
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_NE(*SCResourceStorage::create()->cacheFile(), *storage->cacheFile());
}

TEST_F(ResourceStorageTest, AppendsStayBufferedBelow16384BytesAndGoOutInOrder) {
    const auto storage = SCResourceStorage::create();
    const auto head = bytes(16000, 1);
    storage->appendData(head);
    storage->appendData(bytes(383, 7));
    EXPECT_EQ(fileSize(*storage), 0u);
    EXPECT_TRUE(storage->readAllData().empty());

    // The 16384th byte sends buffer and data to the file, buffer first.
    storage->appendBytes("\xAB", 1);
    EXPECT_EQ(fileSize(*storage), 16384u);
    const auto all = storage->readAllData();
    ASSERT_EQ(all.size(), 16384u);
    EXPECT_TRUE(std::equal(head.begin(), head.end(), all.begin()));
    EXPECT_EQ(all.back(), 0xAB);

    // A large append goes straight out, after what was buffered.
    storage->appendData(bytes(100, 200));
    storage->appendData(bytes(20000, 0));
    EXPECT_EQ(fileSize(*storage), 16384u + 20100u);
    EXPECT_EQ(storage->readDataOfLength(2, 16384 + 99), (std::vector<uint8_t>{static_cast<uint8_t>(299), 0}));
}

TEST_F(ResourceStorageTest, PositionedReadFlushesButReadAllAndPlainReadDoNot) {
    const auto storage = SCResourceStorage::create();
    storage->appendData(bytes(10, 0));
    EXPECT_TRUE(storage->readAllData().empty());
    EXPECT_EQ(storage->readDataOfLength(4, 3), (std::vector<uint8_t>{3, 4, 5, 6}));
    EXPECT_EQ(fileSize(*storage), 10u);
    // The plain read goes on from where the positioned one stopped.
    EXPECT_EQ(storage->readDataOfLength(2), (std::vector<uint8_t>{7, 8}));
    // A short read at the end gives what there is; past the end nothing.
    EXPECT_EQ(storage->readDataOfLength(100, 8), (std::vector<uint8_t>{8, 9}));
    EXPECT_TRUE(storage->readDataOfLength(5, 50).empty());
}

TEST_F(ResourceStorageTest, KeyTableGivesSmallValuesA4096ByteRegionAndReusesRegionsInOrder) {
    const auto storage = SCResourceStorage::create();
    storage->appendData(bytes(20000));
    const uint64_t end = fileSize(*storage);

    storage->writeData(bytes(100, 1), "list");
    auto blocks = storage->blocksWithKey("list");
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_EQ(blocks[0].location(), end);
    EXPECT_EQ(fileSize(*storage), end + 4096);

    // Growing: the first region is filled, the rest goes to a new region at the end.
    const auto grown = bytes(5000, 9);
    storage->writeData(grown, "list");
    blocks = storage->blocksWithKey("list");
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(blocks[1].location(), end + 4096);
    EXPECT_EQ(blocks[1].length(), 904u);
    EXPECT_EQ(storage->readDataWithKey("list"), grown);

    // Shrinking keeps both regions, the second unused.
    storage->writeData(bytes(10, 50), "list");
    blocks = storage->blocksWithKey("list");
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(blocks[1].length(), 0u);
    EXPECT_EQ(storage->readDataWithKey("list"), bytes(10, 50));

    // Growing again within both regions moves nothing to the end.
    storage->writeData(grown, "list");
    EXPECT_EQ(storage->readDataWithKey("list"), grown);
    EXPECT_EQ(fileSize(*storage), end + 8192);
}

TEST_F(ResourceStorageTest, LargeFirstValueGetsExactCapacityAndEmptyValueReadsAsEmptyNotNothing) {
    const auto storage = SCResourceStorage::create();
    storage->writeData(bytes(6000), "big");
    ASSERT_EQ(storage->blocksWithKey("big").size(), 1u);
    EXPECT_EQ(storage->blocksWithKey("big")[0].capacity(), 6000u);
    EXPECT_EQ(fileSize(*storage), 6000u);

    storage->writeData(std::vector<uint8_t>(), "empty");
    const auto value = storage->readDataWithKey("empty");
    ASSERT_TRUE(value);
    EXPECT_TRUE(value->empty());
    EXPECT_FALSE(storage->readDataWithKey("missing"));
}

TEST_F(ResourceStorageTest, KeyWriteFlushesPendingAppendsSoOffsetsStayTrue) {
    const auto storage = SCResourceStorage::create();
    storage->appendData(bytes(300));
    storage->writeData(bytes(20, 100), "k");
    EXPECT_EQ(storage->blocksWithKey("k")[0].location(), 300u);
    EXPECT_EQ(storage->readDataOfLength(300, 0), bytes(300));
}

TEST_F(ResourceStorageTest, ArchiveRoundTripIsReadOnlyForAppendsButKeepsItsKeyTable) {
    const auto storage = SCResourceStorage::create();
    storage->appendData(bytes(50));
    storage->flushCacheBuffer();
    storage->writeData(bytes(5000, 3), "a");
    storage->writeData(bytes(7, 1), "b");

    const auto decoded = roundTrip(storage);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->cacheFile(), storage->cacheFile());
    EXPECT_FALSE(decoded->allowEdit());
    EXPECT_EQ(decoded->readDataWithKey("a"), bytes(5000, 3));
    EXPECT_EQ(decoded->readDataOfLength(50, 0), bytes(50));

    LogCapture capture;
    decoded->appendData(bytes(10));
    decoded->flushCacheBuffer();
    EXPECT_EQ(capture.count("Warning: not allow to write resource data."), 1u);
    const uint64_t size = fileSize(*decoded);
    // The key table of a decoded storage may still be rewritten.
    decoded->writeData(bytes(9000, 5), "b");
    EXPECT_EQ(decoded->readDataWithKey("b"), bytes(9000, 5));
    EXPECT_EQ(fileSize(*decoded), size + 9000 - 4096);
    EXPECT_EQ(capture.lines().size(), 1u);
}

TEST_F(ResourceStorageTest, CleanedStorageRefusesEverythingAndDeletesItsFile) {
    const auto storage = SCResourceStorage::create();
    storage->appendData(bytes(20000));
    const std::string path = *storage->cacheFile();
    storage->cleanCache();
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(storage->cacheFile());

    LogCapture capture;
    storage->appendData(bytes(4));
    EXPECT_EQ(capture.count("Error: No cache created."), 1u);
    EXPECT_TRUE(storage->readDataOfLength(4, 0).empty());
    EXPECT_EQ(capture.count("Error: No process found."), 1u);

    // Archiving a cleaned storage writes no path, so it reads back as nothing.
    const auto archive = KeyedArchiver::archivedDataWithRootObject(storage);
    EXPECT_EQ(capture.count("Warning: Process Data was clean"), 1u);
    EXPECT_EQ(KeyedUnarchiver::unarchiveObjectWithData(archive), nullptr);

    // A key write still records a region, at offset 0, and reads back as empty bytes.
    storage->writeData(bytes(10), "k");
    ASSERT_EQ(storage->blocksWithKey("k").size(), 1u);
    EXPECT_EQ(storage->blocksWithKey("k")[0].location(), 0u);
    EXPECT_EQ(storage->readDataWithKey("k"), std::vector<uint8_t>());
}

TEST_F(ResourceStorageTest, StoragesOutnumberingTheOpenFilesKeepTheirPositionsAndContents) {
    const size_t count = 3 * SCCacheFilePool::defaultCapacity;
    std::vector<std::shared_ptr<SCResourceStorage>> storages;
    for (size_t i = 0; i < count; ++i) {
        auto storage = SCResourceStorage::create();
        storage->appendData(bytes(20000, static_cast<uint8_t>(i)));
        storage->writeData(bytes(10, static_cast<uint8_t>(i + 1)), "key");
        storages.push_back(roundTrip(storage));
    }
    EXPECT_LE(SCCacheFilePool::shared().openCount(), SCCacheFilePool::defaultCapacity);
    for (size_t i = 0; i < count; ++i) {
        ASSERT_TRUE(storages[i]) << i;
        EXPECT_EQ(storages[i]->readDataOfLength(2, 100), bytes(2, static_cast<uint8_t>(i + 100))) << i;
    }
    // Each plain read goes on from that storage's own position.
    for (size_t i = 0; i < count; ++i) {
        EXPECT_EQ(storages[i]->readDataOfLength(1), bytes(1, static_cast<uint8_t>(i + 102))) << i;
        EXPECT_EQ(storages[i]->readDataWithKey("key"), bytes(10, static_cast<uint8_t>(i + 1))) << i;
    }
}

}  // namespace
}  // namespace qm
