#include "store/SCCacheFilePool.h"

#include <gtest/gtest.h>

#include <fstream>

#include "support/TestEnvironment.h"

namespace qm {
namespace {

class CacheFilePoolTest : public ::testing::Test {
protected:
    std::string file(const std::string& name, const std::string& text) const {
        const std::string path = _directory.file(name);
        std::ofstream(path) << text;
        return path;
    }

    static std::string textAt(FileHandle& handle) {
        const auto bytes = handle.readAt(0, 100);
        return std::string(bytes.begin(), bytes.end());
    }

    test::TemporaryDirectory _directory{"cache_file_pool_test"};
};

TEST_F(CacheFilePoolTest, KeepsTheMostRecentlyUsedFilesOpenAndReopensTheOthers) {
    SCCacheFilePool pool(2);
    const std::string a = file("a", "alpha"), b = file("b", "beta"), c = file("c", "gamma");
    ASSERT_TRUE(pool.fileAtPath(a));
    ASSERT_TRUE(pool.fileAtPath(b));
    pool.fileAtPath(a);
    const auto third = pool.fileAtPath(c);
    EXPECT_EQ(pool.openCount(), 2u);
    EXPECT_TRUE(pool.isOpen(a));
    EXPECT_FALSE(pool.isOpen(b));
    EXPECT_EQ(pool.fileAtPath(a), pool.fileAtPath(a));

    const auto reopened = pool.fileAtPath(b);
    ASSERT_TRUE(reopened);
    EXPECT_EQ(textAt(*reopened), "beta");
    EXPECT_FALSE(pool.isOpen(c));
    // A handle in use when its file leaves the pool stays usable.
    EXPECT_EQ(textAt(*third), "gamma");
    EXPECT_GE(third->fileDescriptor(), 0);
}

TEST_F(CacheFilePoolTest, OpensOnlyFilesThatExistUnlessToldToCreateThem) {
    SCCacheFilePool pool(4);
    const std::string missing = _directory.file("missing");
    EXPECT_EQ(pool.fileAtPath(missing), nullptr);
    EXPECT_EQ(pool.openCount(), 0u);
    const auto made = pool.fileAtPath(missing, true);
    ASSERT_TRUE(made);
    EXPECT_TRUE(made->writeAt(0, {'o', 'k'}));
    pool.closeFileAtPath(missing);
    EXPECT_FALSE(pool.isOpen(missing));
    EXPECT_EQ(textAt(*pool.fileAtPath(missing)), "ok");
}

}  // namespace
}  // namespace qm
