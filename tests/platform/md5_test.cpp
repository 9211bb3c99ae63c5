#include "platform/Md5.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qm {
namespace {

std::string md5Of(const std::string& text) {
    return md5Hex(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

TEST(Md5, KnownVectors) {
    EXPECT_EQ(md5Of(""), "D41D8CD98F00B204E9800998ECF8427E");
    EXPECT_EQ(md5Of("abc"), "900150983CD24FB0D6963F7D28E17F72");
    EXPECT_EQ(md5Of(std::string("\0\0\0", 3)), "693E9AF84D3DFCC71E640E005BDC5E2E");
}

TEST(Md5, BlocksInOrderGiveTheDigestOfTheWhole) {
    std::vector<uint8_t> data(1 << 20);
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 31 + (i >> 9));
    const std::string whole = md5Hex(data.data(), data.size());

    Md5 digest;
    size_t offset = 0;
    for (size_t block : {0u, 1u, 63u, 65u, 100000u}) {
        digest.update(data.data() + offset, block);
        offset += block;
    }
    digest.update(data.data() + offset, data.size() - offset);
    EXPECT_EQ(digest.finish(), whole);

    // finish starts a new digest.
    EXPECT_EQ(digest.finish(), "D41D8CD98F00B204E9800998ECF8427E");
}

}  // namespace
}  // namespace qm
