#include "platform/UUID.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace qm {
namespace {

TEST(UUID, RandomVersionFourInUpperCase) {
    const std::regex form("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const std::string text = UUID::create().UUIDString();
        EXPECT_TRUE(std::regex_match(text, form)) << text;
        seen.insert(text);
    }
    EXPECT_EQ(seen.size(), 1000u);
}

TEST(UUID, ParsesItsTextInEitherCase) {
    const auto original = UUID::create();
    const auto parsed = UUID::createWithUUIDString(original.UUIDString());
    ASSERT_TRUE(parsed);
    EXPECT_EQ(*parsed, original);

    const auto lower = UUID::createWithUUIDString("0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d");
    ASSERT_TRUE(lower);
    EXPECT_EQ(lower->UUIDString(), "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D");
    EXPECT_LT(*UUID::createWithUUIDString("00000000-0000-0000-0000-000000000001"),
              *UUID::createWithUUIDString("00000000-0000-0000-0000-000000000002"));
}

TEST(UUID, RejectsMalformedText) {
    for (const char* text : {"", "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4", "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4DD",
                             "0A1B2C3D4E5F-4A6B-8C7D-9E0F1A2B3C4D0", "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4G"}) {
        EXPECT_FALSE(UUID::createWithUUIDString(text)) << text;
    }
}

}  // namespace
}  // namespace qm
