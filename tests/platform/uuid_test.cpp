#include "platform/UUID.h"

#include <gtest/gtest.h>

#include <set>

namespace qm {
namespace {

TEST(UUID, RandomVersionFourInUpperCase) {
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const std::string text = UUID::create().UUIDString();
        ASSERT_EQ(text.size(), 36u);
        for (size_t c = 0; c < text.size(); ++c) {
            if (c == 8 || c == 13 || c == 18 || c == 23) {
                EXPECT_EQ(text[c], '-') << text;
            } else {
                EXPECT_TRUE((text[c] >= '0' && text[c] <= '9') || (text[c] >= 'A' && text[c] <= 'F')) << text;
            }
        }
        EXPECT_EQ(text[14], '4') << text;
        EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
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
    EXPECT_EQ(lower->bytes()[15], 0x4d);
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
