// Every entry of the AVX2 pixel table against the plain one on the same random rows: the bytes
// they write must be the same, for any length, alignment and value.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "image/PixelMath.h"
#include "image/dsp/DSPLevel.h"
#include "image/dsp/PixelDSP.h"

using namespace qm;

namespace {

// Empty, one pixel, around the vector widths, and long.
constexpr int kLengths[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 33, 64, 129, 300};
// Rows start this many floats (or pixels) past an aligned allocation.
constexpr int kOffsets[] = {0, 1, 3};

std::string where(int count, int offset) {
    return "count " + std::to_string(count) + ", offset " + std::to_string(offset);
}

class PixelDSPTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!avx2PixelDSP()) GTEST_SKIP() << "the processor has no AVX2";
    }

    // Runs `run` with the plain table and with the AVX2 one, and compares what each returns.
    template <typename Run>
    void expectSameBytes(const Run& run, const std::string& what) {
        const auto expected = run(plainPixelDSP());
        const auto actual = run(*avx2PixelDSP());
        ASSERT_EQ(expected.size(), actual.size()) << what;
        for (size_t i = 0; i < expected.size(); ++i)
            ASSERT_EQ(std::memcmp(&expected[i], &actual[i], sizeof expected[i]), 0)
                << what << ": element " << i << " is " << +actual[i] << ", plain gives " << +expected[i];
    }

    // Mostly 0..1 with a margin, one in six an extreme: NaN, infinities, signed zeros, tiny and
    // huge values. NaN is the processor's default NaN, the one arithmetic makes, so that a NaN
    // result has one bit pattern whichever operand it came from.
    float value() {
        static const float extremes[] = {-std::numeric_limits<float>::quiet_NaN(),
                                         std::numeric_limits<float>::infinity(),
                                         -std::numeric_limits<float>::infinity(),
                                         0.f,
                                         -0.f,
                                         1.f,
                                         -1.f,
                                         2.5f,
                                         1e-41f,
                                         1e30f,
                                         -1e30f};
        if (std::uniform_int_distribution<int>(0, 5)(random) == 0)
            return extremes[std::uniform_int_distribution<size_t>(0, std::size(extremes) - 1)(random)];
        return std::uniform_real_distribution<float>(-0.25f, 1.25f)(random);
    }
    // `offset` zeros, then `count` values.
    std::vector<float> floats(int count, int offset) {
        std::vector<float> row(size_t(offset + count));
        for (int i = 0; i < count; ++i) row[size_t(offset + i)] = value();
        return row;
    }
    Float4 pixel() { return Float4{value(), value(), value(), value()}; }
    // Random bytes, about one in eight 0 and one in eight 255.
    std::vector<uint8_t> bytes(size_t count) {
        std::vector<uint8_t> row(count);
        for (uint8_t& b : row) b = uint8_t(std::clamp(between(-40, 295), 0, 255));
        return row;
    }
    int between(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(random); }

    std::mt19937 random{20240611};
};

TEST_F(PixelDSPTest, CompositeAndAlphaRows) {
    for (int count : kLengths)
        for (int offset : kOffsets) {
            const std::vector<float> front = floats(4 * count, offset), back = floats(4 * count, offset);
            const Float4 color = pixel();
            const std::array<Float4, 4> columns{pixel(), pixel(), pixel(), pixel()};
            const std::string at = where(count, offset);
            auto changed = [&](auto write) {
                return [&, write](const PixelDSP& dsp) {
                    std::vector<float> out = front;
                    write(dsp, out.data() + offset);
                    return out;
                };
            };
            const float* b = back.data() + offset;
            expectSameBytes(changed([&](const PixelDSP& dsp, float* f) { dsp.compositeUnder(f, b, count); }),
                            "compositeUnder, " + at);
            expectSameBytes(changed([&](const PixelDSP& dsp, float* f) { dsp.compositeUnderColor(f, color, count); }),
                            "compositeUnderColor, " + at);
            expectSameBytes(changed([&](const PixelDSP& dsp, float* f) { dsp.colorTimesAlpha(f, color, count); }),
                            "colorTimesAlpha, " + at);
            expectSameBytes(changed([&](const PixelDSP& dsp, float* f) { dsp.sourceTimesAlpha(f, b, count); }),
                            "sourceTimesAlpha, " + at);
            expectSameBytes(changed([&](const PixelDSP& dsp, float* f) { dsp.linearColor(f, count, columns); }),
                            "linearColor, " + at);
        }
}

TEST_F(PixelDSPTest, OpaqueRowsAreFoundAlike) {
    // Rows opaque but for at most one alpha below 1, NaN or negative zero, anywhere.
    const float notOpaque[] = {0.999f, -std::numeric_limits<float>::quiet_NaN(), -0.f, -5.f};
    for (int count : kLengths)
        for (int offset : kOffsets)
            for (int trial = 0; trial < 6; ++trial) {
                std::vector<float> row = floats(4 * count, offset);
                for (int i = 0; i < count; ++i) row[size_t(offset + 4 * i + 3)] = trial % 2 ? 1.f : 1.5f;
                if (count > 0 && trial > 1) row[size_t(offset + 4 * between(0, count - 1) + 3)] = notOpaque[trial - 2];
                expectSameBytes(
                    [&](const PixelDSP& dsp) { return std::vector<int>{dsp.allOpaque(row.data() + offset, count)}; },
                    "allOpaque, trial " + std::to_string(trial) + ", " + where(count, offset));
            }
}

TEST_F(PixelDSPTest, ElementRows) {
    for (int count : kLengths)
        for (int offset : kOffsets) {
            const std::string at = where(count, offset);
            const std::vector<uint8_t> source = bytes(size_t(4 * (count + offset)));
            const std::vector<float> a = floats(4 * count, offset), b = floats(4 * count, offset);
            for (const float factor : {kByteToFloat, 0.4f * kByteToFloat, value(), value()}) {
                expectSameBytes(
                    [&](const PixelDSP& dsp) {
                        std::vector<float> out(size_t(4 * (count + offset)));
                        dsp.bytesToFloatRow(source.data() + 4 * offset, out.data() + offset, count, factor);
                        return out;
                    },
                    "bytesToFloatRow, " + at);
                expectSameBytes(
                    [&](const PixelDSP& dsp) {
                        std::vector<float> out = a;
                        dsp.scaleRow(out.data() + offset, 4 * count, factor);
                        return out;
                    },
                    "scaleRow, " + at);
                expectSameBytes(
                    [&](const PixelDSP& dsp) {
                        std::vector<float> out(a.size());
                        dsp.mixRows(a.data() + offset, b.data() + offset, factor, out.data() + offset, 4 * count);
                        return out;
                    },
                    "mixRows, " + at);
                expectSameBytes(
                    [&](const PixelDSP& dsp) {
                        std::vector<float> inPlace = a;
                        dsp.mixRows(inPlace.data() + offset, b.data() + offset, factor, inPlace.data() + offset,
                                    4 * count);
                        return inPlace;
                    },
                    "mixRows in place, " + at);
            }
        }
}

TEST_F(PixelDSPTest, ConvolutionRows) {
    for (int count : kLengths)
        for (int offset : kOffsets)
            for (int taps : {1, 2, 5, 21}) {
                const std::string at = where(count, offset) + ", taps " + std::to_string(taps);
                const std::vector<float> weights = floats(taps, 0);
                const std::vector<float> src = floats(4 * (count + taps - 1), offset);
                expectSameBytes(
                    [&](const PixelDSP& dsp) {
                        std::vector<float> out(size_t(4 * (count + offset)));
                        dsp.convolveRow(src.data() + offset, out.data() + offset, count, weights.data(), taps);
                        return out;
                    },
                    "convolveRow, " + at);
                // Rows of their own, and one row read twice.
                std::vector<std::vector<float>> rows;
                for (int t = 0; t < taps; ++t) rows.push_back(floats(4 * count, offset));
                std::vector<const float*> rowStarts;
                for (const auto& row : rows) rowStarts.push_back(row.data() + offset);
                rowStarts.back() = rowStarts.front();
                expectSameBytes(
                    [&](const PixelDSP& dsp) {
                        std::vector<float> out(size_t(4 * (count + offset)));
                        dsp.convolveRows(rowStarts.data(), out.data() + offset, 4 * count, weights.data(), taps);
                        return out;
                    },
                    "convolveRows, " + at);
            }
}

TEST_F(PixelDSPTest, EnlargedRows) {
    // Rows starting on and between group boundaries, left of zero; factors beyond the grouped
    // ones too.
    for (int factor : {2, 4, 8, 16, 64, 128})
        for (int x : {-factor - 1, -3, 0, 1, 5, 3 * factor, 1001})
            for (int count : kLengths) {
                const int first = fastFloor((float(x) + 0.5f) / float(factor) - 0.5f);
                const std::vector<float> source = floats(4 * (count / factor + 8), 0);
                expectSameBytes(
                    [&](const PixelDSP& dsp) {
                        std::vector<float> out(size_t(4 * count));
                        dsp.enlargeRow(source.data(), first, factor, x, out.data(), count);
                        return out;
                    },
                    "enlargeRow, factor " + std::to_string(factor) + ", x " + std::to_string(x) + ", count " +
                        std::to_string(count));
            }
}

TEST_F(PixelDSPTest, OutputRows) {
    for (int count : kLengths)
        for (int offset : kOffsets) {
            const std::string at = where(count, offset);
            const std::vector<float> upper = floats(4 * count, offset), lower = floats(4 * count, offset);
            expectSameBytes(
                [&](const PixelDSP& dsp) {
                    std::vector<uint8_t> out(size_t(4 * (count + offset)));
                    dsp.premultipliedToBytes(upper.data() + offset, out.data() + 4 * offset, count);
                    return out;
                },
                "premultipliedToBytes, " + at);
            expectSameBytes(
                [&](const PixelDSP& dsp) {
                    std::vector<uint8_t> out(size_t(4 * (count + offset)));
                    dsp.premultipliedToBGRABytes(upper.data() + offset, out.data() + 4 * offset, count);
                    return out;
                },
                "premultipliedToBGRABytes, " + at);
            // A pair of rows, a pair without its second Y row, and a last single row.
            for (int shape = 0; shape < 3; ++shape)
                expectSameBytes(
                    [&](const PixelDSP& dsp) {
                        const size_t chroma = size_t((count + 1) / 2);
                        std::vector<uint8_t> out(2 * size_t(count) + 2 * chroma, 7);
                        uint8_t* y0 = out.data();
                        uint8_t* y1 = shape == 0 ? y0 + count : nullptr;
                        const float* second = shape == 2 ? upper.data() + offset : lower.data() + offset;
                        dsp.yuvRows(upper.data() + offset, second, count, y0, y1, y0 + 2 * count,
                                    y0 + 2 * count + chroma);
                        return out;
                    },
                    "yuvRows, shape " + std::to_string(shape) + ", " + at);
        }
}

// A bitmap of random bytes and views of it with rows going down in memory (as bitmaps lie) or up.
struct RandomBitmap {
    static constexpr int kWidth = 67, kHeight = 41;
    std::vector<uint8_t> pixels;

    BitmapView view(PixelRect bounds, bool rowsGoDown) const {
        const std::ptrdiff_t stride = 4 * kWidth;
        const uint8_t* bottom = rowsGoDown ? pixels.data() + (kHeight - 1) * stride : pixels.data();
        return BitmapView{bottom, rowsGoDown ? stride : -stride, bounds, 3 * stride};
    }
};

TEST_F(PixelDSPTest, FourBilinearSamples) {
    const RandomBitmap bitmap{bytes(4 * RandomBitmap::kWidth * RandomBitmap::kHeight)};
    const int extremes[] = {0, 1, 64, 127, 128};
    for (bool rowsGoDown : {true, false})
        for (int trial = 0; trial < 400; ++trial) {
            const BitmapView view = bitmap.view({0, 0, RandomBitmap::kWidth, RandomBitmap::kHeight}, rowsGoDown);
            Int4 offsets, wx, wy;
            for (int k = 0; k < 4; ++k) {
                offsets[k] = int(view.at(between(0, RandomBitmap::kWidth - 2), between(0, RandomBitmap::kHeight - 2)) -
                                 view.rowZero);
                wx[k] = trial % 3 ? between(0, 128) : extremes[between(0, 4)];
                wy[k] = trial % 3 ? between(0, 128) : extremes[between(0, 4)];
            }
            const float scale = trial % 2 ? kByteToFloat : value();
            expectSameBytes(
                [&](const PixelDSP& dsp) {
                    std::vector<float> out(16);
                    dsp.bilinearBytes4(view.rowZero, -view.stride, offsets, wx, wy, scale, out.data());
                    return out;
                },
                "bilinearBytes4, trial " + std::to_string(trial));
        }
}

TEST_F(PixelDSPTest, BitmapRows) {
    const RandomBitmap bitmap{bytes(4 * RandomBitmap::kWidth * RandomBitmap::kHeight)};
    constexpr int64_t kOne = 65536;
    // The whole bitmap, a crop, bounds one pixel thin (no whole square inside) and two by two.
    const PixelRect boundsCases[] = {{0, 0, RandomBitmap::kWidth, RandomBitmap::kHeight},
                                     {10, 8, 30, 20},
                                     {5, 5, 1, 20},
                                     {5, 5, 20, 1},
                                     {3, 4, 2, 2}};
    // Whole pixel steps (the shifted rows), near them, backwards, down, turned and scaled, and
    // steps so long that a row leaves the bitmap at once.
    const std::pair<int64_t, int64_t> steps[] = {{kOne, 0},
                                                 {kOne, 1},
                                                 {-kOne, 0},
                                                 {0, kOne},
                                                 {61147, 23571},
                                                 {-20000, 90000},
                                                 {2 * kOne, -kOne},
                                                 {kOne / 3, 7},
                                                 {int64_t(1) << 30, 0},
                                                 {kOne, int64_t(1) << 29}};
    for (const PixelRect& bounds : boundsCases)
        for (bool rowsGoDown : {true, false})
            for (const auto& [du, dv] : steps)
                for (int trial = 0; trial < 24; ++trial) {
                    const BitmapView view = bitmap.view(bounds, rowsGoDown);
                    // Starts anywhere from beyond the left and lower edges to beyond the right and
                    // upper ones, at any fraction of a pixel.
                    const int64_t u = int64_t(between(-12, RandomBitmap::kWidth + 4)) * kOne + between(0, kOne - 1);
                    const int64_t v = int64_t(between(-3, RandomBitmap::kHeight + 2)) * kOne + between(0, kOne - 1);
                    const int count = kLengths[trial % std::size(kLengths)] + (trial > 16 ? 60 : 0);
                    const float scale = trial % 2 ? kByteToFloat : 1.f;
                    expectSameBytes(
                        [&](const PixelDSP& dsp) {
                            std::vector<float> out(size_t(4 * count));
                            dsp.sampleBitmapRow(view, u, v, du, dv, scale, out.data(), count);
                            return out;
                        },
                        "sampleBitmapRow from (" + std::to_string(u) + ", " + std::to_string(v) + ") by (" +
                            std::to_string(du) + ", " + std::to_string(dv) + "), count " + std::to_string(count) +
                            ", bounds " + std::to_string(bounds.width) + " x " + std::to_string(bounds.height));
                }
}

TEST(PixelDSPChoiceTest, RendersUseTheTableForTheChosenLevel) {
    const PixelDSP* expected = dspLevel() == DSPLevel::AVX2 ? avx2PixelDSP() : &plainPixelDSP();
    ASSERT_NE(expected, nullptr);
    EXPECT_EQ(std::memcmp(&pixelDSP(), expected, sizeof(PixelDSP)), 0);
    EXPECT_EQ(avx2PixelDSP() != nullptr, processorHasAVX2());
}

TEST(PixelDSPChoiceTest, ThePlainTableFillsEveryEntry) {
    // Every member is a function pointer; none may be left out.
    const PixelDSP& plain = plainPixelDSP();
    using Entry = void (*)();
    static_assert(sizeof(PixelDSP) % sizeof(Entry) == 0);
    Entry entries[sizeof(PixelDSP) / sizeof(Entry)];
    std::memcpy(entries, &plain, sizeof plain);
    for (size_t i = 0; i < std::size(entries); ++i) EXPECT_NE(entries[i], nullptr) << "entry " << i;
}

}  // namespace
