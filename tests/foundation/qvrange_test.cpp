#include <gtest/gtest.h>

#include "codec/QVTimebase.h"
#include "foundation/QVRange.h"

using namespace qm;

TEST(QVRangeTest, EmptyRangesHaveEndLocationMinusOneButKeepTheirEnd) {
    EXPECT_EQ(QVRange(5, 0).end(), 5);
    EXPECT_EQ(QVRange(5, 0).endLocation(), -1);
    EXPECT_TRUE(QVRange(3, -4).empty());
    EXPECT_FALSE(QVRange(0, 1).empty());
    EXPECT_EQ(QVRange(0, 1).endLocation(), 0);
}

TEST(QVRangeTest, InsetClampsLocationAndLengthAtZero) {
    EXPECT_TRUE(QVRange::inset(2, QVRange(10, 10)).isEqualRange(QVRange(12, 6)));
    EXPECT_EQ(QVRange::inset(6, QVRange(10, 10)).length(), 0);
    const QVRange widened = QVRange::inset(-3, QVRange(1, 4));
    EXPECT_EQ(widened.location(), 0);
    EXPECT_EQ(widened.length(), 10);
}

TEST(QVRangeTest, ContainmentIsInclusiveOfEndLocationAndFalseForEmpty) {
    QVRange r(10, 10);
    EXPECT_TRUE(r.containLocation(19));
    EXPECT_FALSE(r.containLocation(20));
    EXPECT_FALSE(r.containLocation(9));
    EXPECT_FALSE(QVRange(10, 0).containLocation(10));
    EXPECT_TRUE(r.containRange(QVRange(15, 5)));
    EXPECT_FALSE(r.containRange(QVRange(15, 6)));
    EXPECT_FALSE(r.containRange(QVRange(12, 0)));
    EXPECT_FALSE(QVRange(10, 0).containRange(QVRange(10, 0)));
}

TEST(QVRangeTest, IntersectionAtTheEdges) {
    EXPECT_FALSE(QVRange(0, 10).intersectsRange(QVRange(10, 5)));
    EXPECT_FALSE(QVRange(0, 10).intersectionRange(QVRange(10, 5)).has_value());
    const struct {
        QVRange a, b, expected;
    } cases[] = {
        {QVRange(0, 10), QVRange(9, 5), QVRange(9, 1)},
        {QVRange(5, 10), QVRange(0, 7), QVRange(5, 2)},
        {QVRange(20, 5), QVRange(0, 100), QVRange(20, 5)},
    };
    for (const auto& c : cases) {
        const auto both = c.a.intersectionRange(c.b);
        ASSERT_TRUE(both.has_value());
        EXPECT_TRUE(both->isEqualRange(c.expected)) << both->location() << "+" << both->length();
    }

    EXPECT_FALSE(QVRange(0, 10).intersectionRange(QVRange(3, 0)).has_value());
    EXPECT_TRUE(QVRange(5, 1).intersectsRange(QVRange(0, 10)));
}

TEST(QVRangeTest, EqualityComparesLocationAndEndLocation) {
    EXPECT_TRUE(QVRange(4, 0).isEqualRange(QVRange(4, -7)));
    EXPECT_FALSE(QVRange(4, 0).isEqualRange(QVRange(9, 0)));
    EXPECT_FALSE(QVRange(4, 3).isEqualRange(QVRange(4, 4)));
}

TEST(QVRangeTest, EndlessRangesDoNotOverflow) {
    QVRange forever(10, QMNoTimeLimited);
    EXPECT_FALSE(forever.empty());
    EXPECT_EQ(forever.end(), INT64_MIN + 9);
    EXPECT_TRUE(QVRange(0, QMNoTimeLimited).containLocation(INT64_MAX - 1));
}

TEST(QVTimebaseTest, SampleConversionMultipliesFirstAndTruncates) {
    EXPECT_EQ(QMSamplesFromTimestamp(44100, QVTimebase), 44100);
    EXPECT_EQ(QMSamplesFromTimestamp(44100, QVTimebase / 44100 - 1), 0);
    EXPECT_EQ(QMSamplesFromTimestamp(44100, -(QVTimebase / 44100) - 1), -1);
    // Ten days at 192 kHz: the product exceeds 64 bits, the result does not.
    const int64_t tenDays = QVTimebase * 864000;
    EXPECT_EQ(QMSamplesFromTimestamp(192000, tenDays), 192000LL * 864000);
    EXPECT_EQ(QMTimestampFromSamples(192000, 192000LL * 864000), tenDays);
}
