#include "platform/Pasteboard.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>

#include "platform/Paths.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

using Bytes = std::vector<uint8_t>;

// Private user directories for each test, so the user's pasteboard is never touched.
class PasteboardTest : public ::testing::Test {
protected:
    test::PrivateUserDirectories _user{"quormedia-pasteboard-test"};
    Pasteboard _pasteboard{"test"};
};

TEST_F(PasteboardTest, DeclaredTypesCarryTheirBytesAndDeclaringAgainClearsThem) {
    ASSERT_TRUE(_pasteboard.declareTypes({"a", "text/plain"}));
    EXPECT_EQ(_pasteboard.types(), (std::vector<std::string>{"a", "text/plain"}));
    // Declared without data.
    EXPECT_FALSE(_pasteboard.dataForType("a"));
    EXPECT_FALSE(_pasteboard.setData({1}, "b"));

    EXPECT_TRUE(_pasteboard.setData({1, 2, 0, 3}, "a"));
    EXPECT_TRUE(_pasteboard.setData({}, "text/plain"));
    EXPECT_EQ(_pasteboard.dataForType("a"), (Bytes{1, 2, 0, 3}));
    EXPECT_EQ(_pasteboard.dataForType("text/plain"), Bytes{});

    ASSERT_TRUE(_pasteboard.declareTypes({"b", "a"}));
    EXPECT_FALSE(_pasteboard.dataForType("a"));
    // The caller's order of preference wins.
    EXPECT_EQ(_pasteboard.availableTypeFromArray({"c", "a", "b"}), "a");
    EXPECT_EQ(_pasteboard.availableTypeFromArray({"c"}), std::nullopt);
}

TEST_F(PasteboardTest, ContentsAreSharedByNameAndLiveUnderTheRuntimeDirectory) {
    ASSERT_TRUE(_pasteboard.declareTypes({"x/y z"}));
    ASSERT_TRUE(_pasteboard.setData({7, 7}, "x/y z"));
    Pasteboard same("test");
    EXPECT_EQ(same.dataForType("x/y z"), (Bytes{7, 7}));
    Pasteboard other("other");
    EXPECT_FALSE(other.dataForType("x/y z"));
    EXPECT_TRUE(Pasteboard::generalPasteboard().types().empty());

    size_t files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(Paths::runtimeDir())) {
        if (entry.is_regular_file()) ++files;
    }
    EXPECT_EQ(files, 2u);

    // Another runtime directory is another user's session: nothing there.
    test::ScopedEnvironment elsewhere;
    elsewhere.set("XDG_RUNTIME_DIR", _user.file("elsewhere"));
    EXPECT_FALSE(same.dataForType("x/y z"));
}

}  // namespace
}  // namespace qm
