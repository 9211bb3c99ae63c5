#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "codec/QVTimebase.h"
#include "foundation/QMCommon.h"
#include "support/TestEnvironment.h"

using namespace qm;

namespace {

constexpr int64_t kSecond = QVTimebase;
constexpr int64_t kMillisecond = QVTimebase / 1000;

}  // namespace

TEST(QMCommonDurationTest, ZeroIsSpecialOnlyInSimpleStyle) {
    EXPECT_EQ(QMCommon::formatDurationSimpleStyle(0), "0");
    EXPECT_EQ(QMCommon::formatDuration(0), "00:00:00");
    EXPECT_EQ(QMCommon::formatDuration(0, true), "00:00:00.0");
    EXPECT_EQ(QMCommon::formatDuration(0, false, true), "0");
}

TEST(QMCommonDurationTest, EachStyleAroundTheHour) {
    const int64_t hour = 3600 * kSecond;
    EXPECT_EQ(QMCommon::formatDurationSimpleStyle(hour), "1:00:00.0");
    EXPECT_EQ(QMCommon::formatDurationSimpleStyle(hour - 1), "59:59.9");
    EXPECT_EQ(QMCommon::formatDuration(hour - 1, false, true), "59:59");
    EXPECT_EQ(QMCommon::formatDuration(hour, false, true), "1:00:00");
    EXPECT_EQ(QMCommon::formatDuration(hour + 61 * kSecond + 250 * kMillisecond, true), "01:01:01.2");
    EXPECT_EQ(QMCommon::formatDurationSimpleStyle(9 * kSecond + 999 * kMillisecond), "9.9");
}

TEST(QMCommonGeometryTest, AnglesUseTheStoredPi) {
    EXPECT_DOUBLE_EQ(QMCommon::degreeToRadian(90.0), 3.1415916 / 2);
    EXPECT_NE(QMCommon::degreeToRadian(180.0), M_PI);
    EXPECT_DOUBLE_EQ(QMCommon::valueInsertStart(10, 20, 1.5), 25);
}

TEST(QMCommonGeometryTest, SignedAngleAroundACentre) {
    const Point c{0, 0};
    EXPECT_DOUBLE_EQ(QMCommon::calcRadianFromPoint({0, 0}, {1, 0}, c), 0);
    // From the right to the top: the line through F and C is y = 0, below T, so positive.
    EXPECT_NEAR(QMCommon::calcRadianFromPoint({1, 0}, {0, 1}, c), M_PI / 2, 1e-12);
    EXPECT_NEAR(QMCommon::calcRadianFromPoint({1, 0}, {0, -1}, c), -M_PI / 2, 1e-12);
    // F straight above the centre: the sign follows F.x > T.x.
    EXPECT_NEAR(QMCommon::calcRadianFromPoint({0, 1}, {1, 0}, c), -M_PI / 2, 1e-12);
    // Nearly collinear points stay defined.
    EXPECT_FALSE(std::isnan(QMCommon::calcRadianFromPoint({1e8, 1}, {-1e8, -1}, c)));
}

TEST(QMCommonGeometryTest, RectsFromPointsAndAspectFit) {
    EXPECT_EQ(QMCommon::makeRectWithPoint({5, 1}, {2, 7}), (Rect{{2, 1}, {3, 6}}));

    // A 200x100 image in a 100x100 box is limited by width.
    EXPECT_EQ(QMCommon::adjustRect(Rect{{10, 10}, {100, 100}}, {200, 100}), (Rect{{10, 35}, {100, 50}}));
    // A 100x200 image is limited by height.
    EXPECT_EQ(QMCommon::adjustRect(Rect{{10, 10}, {100, 100}}, {100, 200}), (Rect{{35, 10}, {50, 100}}));

    // Source rect: the first branch keeps the full height and gives a non-positive y.
    EXPECT_EQ(QMCommon::adjustImageWithSize({100, 200}, Rect{{7, 7}, {100, 100}}), (Rect{{0, -50}, {100, 200}}));
    EXPECT_EQ(QMCommon::adjustImageWithSize({200, 100}, Rect{{7, 7}, {100, 100}}), (Rect{{50, 0}, {100, 100}}));
}

class SignatureTest : public ::testing::Test {
protected:
    test::TemporaryDirectory _directory{"signature_test"};

    static std::vector<uint8_t> pattern(size_t size) {
        std::vector<uint8_t> bytes(size);
        for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>((i * 131 + i / 256) & 0xff);
        return bytes;
    }

    std::string write(const std::vector<uint8_t>& bytes, const std::string& name = "file") {
        std::string path = _directory.file(name);
        std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        return path;
    }

    static std::vector<uint8_t> join(const std::vector<uint8_t>& bytes,
                                     std::initializer_list<std::pair<size_t, size_t>> blocks) {
        std::vector<uint8_t> out;
        for (auto [offset, length] : blocks) out.insert(out.end(), bytes.begin() + offset, bytes.begin() + offset + length);
        return out;
    }

    // Changes one byte and tells whether the signature moved.
    bool sensitiveAt(std::vector<uint8_t> bytes, size_t index) {
        const std::string before = QMCommon::calcSigntureWithURL(write(bytes, "a"));
        bytes[index] ^= 0x5a;
        return before != QMCommon::calcSigntureWithURL(write(bytes, "b"));
    }
};

TEST_F(SignatureTest, BlockChoiceAtEachSizeBoundary) {
    auto small = pattern(1024);
    EXPECT_EQ(QMCommon::calcSigntureWithURL(write(small)), QMCommon::md5StringWithData(small));

    auto threeBlocks = pattern(1537);
    EXPECT_EQ(QMCommon::calcSigntureWithURL(write(threeBlocks)),
              QMCommon::md5StringWithData(join(threeBlocks, {{0, 512}, {1537 / 2 - 256, 512}, {1025, 512}})));
}

TEST_F(SignatureTest, OnlySampledBytesCount) {
    auto big = pattern(100000);
    EXPECT_TRUE(sensitiveAt(big, 511));
    EXPECT_FALSE(sensitiveAt(big, 512));
    EXPECT_TRUE(sensitiveAt(big, 50000 - 256));
    EXPECT_TRUE(sensitiveAt(big, 50000 + 255));
    EXPECT_FALSE(sensitiveAt(big, 50000 + 256));
    EXPECT_FALSE(sensitiveAt(big, 100000 - 513));
    EXPECT_TRUE(sensitiveAt(big, 100000 - 512));
    EXPECT_TRUE(sensitiveAt(pattern(1024), 600));
    EXPECT_FALSE(sensitiveAt(pattern(1025), 512));
}

TEST_F(SignatureTest, MissingFileGivesEmptyText) {
    EXPECT_EQ(QMCommon::calcSigntureWithURL(_directory.file("absent")), "");
    EXPECT_EQ(QMCommon::calcSigntureWithURL(write({})), "D41D8CD98F00B204E9800998ECF8427E");
}
