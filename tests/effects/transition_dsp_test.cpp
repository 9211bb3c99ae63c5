// Every entry of the transitions' DSP table gives the same bytes built for AVX2 as its plain
// reference, on random pictures (bytes and floats, opaque and not) and random parameters.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <deque>
#include <optional>
#include <random>
#include <vector>

#include "effects/transitions/kernels/dsp/TransitionDSP.h"
#include "image/TileScratch.h"
#include "image/dsp/FixedPoint.h"

using namespace qm;
using namespace qm::kernels;

namespace {

constexpr int kRounds = 150;

bool processorHasAVX2() {
#if defined(__x86_64__)
    return __builtin_cpu_supports("avx2");
#else
    return false;
#endif
}

// Random numbers, rects and premultiplied pictures, which it keeps for as long as it lives.
class Random {
public:
    explicit Random(uint32_t seed) : _engine(seed) {}

    float real(float low, float high) { return std::uniform_real_distribution<float>(low, high)(_engine); }
    int integer(int low, int high) { return std::uniform_int_distribution<int>(low, high)(_engine); }
    bool chance(double p) { return std::bernoulli_distribution(p)(_engine); }

    // A rect of 1 to `most` pixels a side with its origin within `spread` of `around`.
    PixelRect rect(Point around, int spread, int most) {
        return {int(around.x) + integer(-spread, spread), int(around.y) + integer(-spread, spread), integer(1, most),
                integer(1, most)};
    }

    // `area` cut down at random to where an input has pixels (sometimes nowhere).
    PixelRect clipped(const PixelRect& area) {
        if (area.isEmpty() || chance(0.5)) return area;
        const int left = integer(0, area.width / 2);
        const int bottom = integer(0, area.height / 2);
        return {area.x + left, area.y + bottom, integer(0, area.width - left), integer(0, area.height - bottom)};
    }

    // A picture over `rect`: bytes read in place (rows running down in memory, as in a bitmap) or
    // floats, opaque or not. Over an empty rect it has no pixels, as the renderer gives it.
    ConstImageTile picture(const PixelRect& rect) {
        if (rect.isEmpty()) return ConstImageTile::withBytes(rect, nullptr, 0);
        const bool opaque = chance(0.5);
        const size_t count = size_t(rect.width) * size_t(rect.height);
        if (chance(0.6)) {
            std::vector<uint8_t>& bytes = _bytes.emplace_back(4 * count);
            for (size_t i = 0; i < count; ++i) {
                const int alpha = opaque ? 255 : integer(0, 255);
                for (int c = 0; c < 3; ++c) bytes[4 * i + size_t(c)] = uint8_t(integer(0, alpha));
                bytes[4 * i + 3] = uint8_t(alpha);
            }
            const std::ptrdiff_t stride = 4 * std::ptrdiff_t(rect.width);
            const uint8_t* bottomRow = bytes.data() + size_t(rect.height - 1) * size_t(stride);
            return ConstImageTile::withBytes(rect, bottomRow, -stride);
        }
        std::vector<float>& floats = _floats.emplace_back(4 * count);
        for (size_t i = 0; i < count; ++i) {
            const float alpha = opaque ? 1.0f : real(0.0f, 1.0f);
            for (int c = 0; c < 3; ++c) floats[4 * i + size_t(c)] = real(0.0f, alpha);
            floats[4 * i + 3] = alpha;
        }
        return ConstImageTile(rect, floats.data(), 4 * std::ptrdiff_t(rect.width));
    }

    // A picture over the part of `region` (image space) that an input has pixels in.
    ConstImageTile pictureOver(const Rect& region) { return picture(clipped(PixelRect::enclosing(region))); }

    Color color() { return Color{real(0, 1), real(0, 1), real(0, 1), real(0.2f, 1)}; }

    // A time, now and then at or beyond the ends.
    float time() { return chance(0.1) ? float(integer(0, 1)) : real(0.01f, 0.99f); }

private:
    std::mt19937 _engine;
    std::deque<std::vector<uint8_t>> _bytes;
    std::deque<std::vector<float>> _floats;
};

// A float buffer for the plain and the AVX2 result each, filled alike beforehand.
struct Outputs {
    std::vector<float> plain;
    std::vector<float> avx2;

    explicit Outputs(size_t floats) : plain(floats, -7.0f), avx2(floats, -7.0f) {}
    bool same() const { return std::memcmp(plain.data(), avx2.data(), plain.size() * sizeof(float)) == 0; }
    bool anyPixel() const {
        for (float v : plain)
            if (v != -7.0f && v != 0.0f) return true;
        return false;
    }
};

class TransitionDSPTest : public testing::Test {
protected:
    void SetUp() override {
        if (!processorHasAVX2() || !transitionDSP(DSPLevel::AVX2)) GTEST_SKIP() << "no AVX2 on this processor";
    }

    // Renders a tile over `rect` with each table through `render(table, out, scratch)`; true when
    // both give the same bytes. Counts the rounds whose output had pixels in `drawn`.
    template <class Render>
    bool sameTiles(const PixelRect& rect, Render&& render) {
        Outputs outputs(4 * size_t(rect.width) * size_t(rect.height));
        const std::ptrdiff_t stride = 4 * std::ptrdiff_t(rect.width);
        TileScratch scratch;
        render(*transitionDSP(DSPLevel::Plain), ImageTile{rect, outputs.plain.data(), stride}, scratch);
        render(*transitionDSP(DSPLevel::AVX2), ImageTile{rect, outputs.avx2.data(), stride}, scratch);
        drawn += outputs.anyPixel() ? 1 : 0;
        return outputs.same();
    }

    Random random{20240601};
    int drawn = 0;
};

TEST_F(TransitionDSPTest, FlashTiles) {
    for (int round = 0; round < kRounds; ++round) {
        FlashTransitionParameters parameters;
        parameters.center = {random.real(-50, 350), random.real(-50, 350)};
        parameters.color = random.color();
        parameters.striationContrast = random.real(0.5f, 3);
        parameters.fadeThreshold = random.real(0.2f, 0.95f);
        const FlashContext context(parameters, random.time());
        const PixelRect rect = random.rect({150, 150}, 150, 70);
        const std::array<ConstImageTile, 2> in{random.picture(random.clipped(rect)),
                                               random.picture(random.clipped(rect))};
        ASSERT_TRUE(sameTiles(rect,
                              [&](const TransitionDSP& dsp, const ImageTile& out, TileScratch& scratch) {
                                  if (context.fading)
                                      dsp.flashFade(context, out, in);
                                  else
                                      dsp.flash(context, out, in, scratch);
                              }))
            << "round " << round;
    }
    EXPECT_GT(drawn, kRounds / 2);
}

TEST_F(TransitionDSPTest, ModTiles) {
    for (int round = 0; round < kRounds; ++round) {
        ModTransitionParameters parameters;
        parameters.center = {random.real(-50, 350), random.real(-50, 350)};
        parameters.angle = random.real(-4, 4);
        parameters.radius = random.real(5, 200);
        parameters.compression = random.real(10, 500);
        const ModContext context(parameters, random.time());
        const PixelRect rect = random.rect({150, 150}, 150, 70);
        const std::array<ConstImageTile, 2> in{random.picture(random.clipped(rect)),
                                               random.picture(random.clipped(rect))};
        ASSERT_TRUE(sameTiles(rect, [&](const TransitionDSP& dsp, const ImageTile& out,
                                        TileScratch& scratch) { dsp.mod(context, out, in, scratch); }))
            << "round " << round;
    }
    EXPECT_GT(drawn, kRounds / 2);
}

TEST_F(TransitionDSPTest, RippleWaveRows) {
    int compared = 0;
    for (int round = 0; round < kRounds; ++round) {
        RippleTransitionParameters parameters;
        parameters.center = {random.real(0, 300), random.real(0, 300)};
        parameters.width = random.real(10, 200);
        parameters.scale = random.real(-80, 80);
        const RippleContext context(parameters, random.real(0.05f, 0.95f));
        const PixelRect rect = random.rect({150, 150}, 150, 70);
        const Rect region = context.regionOfInterest(0, rect.toRect());
        const ConstImageTile from = random.pictureOver(region);
        const ConstImageTile to = random.pictureOver(region);
        const ConstImageTile shadingTile = random.picture({0, 0, 64, 64});
        std::optional<SphereShading> shading;
        if (random.chance(0.7)) shading.emplace(shadingTile, Rect{0, 0, 64, 64});
        const int y = random.integer(rect.y, rect.maxY() - 1);
        const int begin = random.integer(rect.x, rect.maxX() - 1);
        const int end = random.integer(begin + 1, rect.maxX());
        Outputs outputs(4 * size_t(end - begin));
        const SphereShading* light = shading ? &*shading : nullptr;
        transitionDSP(DSPLevel::Plain)->rippleWave(context, light, from, to, y, begin, end, outputs.plain.data());
        transitionDSP(DSPLevel::AVX2)->rippleWave(context, light, from, to, y, begin, end, outputs.avx2.data());
        ASSERT_TRUE(outputs.same()) << "round " << round;
        compared += outputs.anyPixel() ? 1 : 0;
    }
    EXPECT_GT(compared, kRounds / 2);
}

TEST_F(TransitionDSPTest, PageCurlTiles) {
    for (int round = 0; round < kRounds; ++round) {
        const Rect page{random.real(-20, 20), random.real(-20, 20), random.real(50, 300), random.real(50, 300)};
        const float t = random.time();
        const double angle = random.chance(0.5) ? random.integer(-2, 2) * 1.5707963 : random.real(-4, 4);
        const double radius = random.real(5, 120);
        const PixelRect rect = random.rect({150, 150}, 150, 70);
        const auto inputs = [&](auto& context) {
            std::vector<ConstImageTile> in;
            for (size_t i = 0; i < 3; ++i) in.push_back(random.pictureOver(context.regionOfInterest(i, rect.toRect())));
            return in;
        };
        if (random.chance(0.5)) {
            PageCurlTransitionParameters parameters;
            parameters.extent = page;
            parameters.angle = angle;
            parameters.radius = radius;
            const PageCurlContext context(parameters, t);
            const std::vector<ConstImageTile> in = inputs(context);
            const ConstImageTile shadingTile = random.picture({0, 0, 64, 64});
            TileScratch profileScratch;
            std::optional<ShadingProfile> profile;
            if (random.chance(0.7))
                profile.emplace(SphereShading(shadingTile, Rect{0, 0, 64, 64}), context.g.dx, context.g.dy,
                                profileScratch);
            ASSERT_TRUE(sameTiles(rect,
                                  [&](const TransitionDSP& dsp, const ImageTile& out, TileScratch& scratch) {
                                      dsp.pageCurl(context, profile ? &*profile : nullptr, out, in, scratch);
                                  }))
                << "round " << round;
        } else {
            PageCurlWithShadowTransitionParameters parameters;
            parameters.extent = page;
            parameters.angle = angle;
            parameters.radius = radius;
            parameters.shadowSize = random.real(0.1f, 1.5f);
            parameters.shadowExtent = random.chance(0.5) ? page : page.insetBy(page.width() / 4, page.height() / 4);
            const PageCurlWithShadowContext context(parameters, t);
            const std::vector<ConstImageTile> in = inputs(context);
            ASSERT_TRUE(
                sameTiles(rect, [&](const TransitionDSP& dsp, const ImageTile& out,
                                    TileScratch& scratch) { dsp.pageCurlWithShadow(context, out, in, scratch); }))
                << "round " << round;
        }
    }
    EXPECT_GT(drawn, kRounds / 2);
}

TEST_F(TransitionDSPTest, DisintegrateTiles) {
    for (int round = 0; round < kRounds; ++round) {
        DisintegrateWithMaskTransitionParameters parameters;
        parameters.shadowRadius = random.real(0.2f, 20);
        parameters.shadowOffset = {random.real(-15, 15), random.real(-15, 15)};
        const DisintegrateContext context(parameters, random.time());
        const PixelRect rect = random.rect({150, 150}, 150, 70);
        std::vector<ConstImageTile> in;
        for (size_t i = 0; i < 3; ++i) in.push_back(random.pictureOver(context.regionOfInterest(i, rect.toRect())));
        ASSERT_TRUE(sameTiles(rect, [&](const TransitionDSP& dsp, const ImageTile& out,
                                        TileScratch& scratch) { dsp.disintegrate(context, out, in, scratch); }))
            << "round " << round;
    }
    EXPECT_GT(drawn, kRounds / 2);
}

TEST_F(TransitionDSPTest, FoldBytePanels) {
    int compared = 0;
    for (int round = 0; round < kRounds; ++round) {
        // A byte picture and columns that read it anywhere, some beyond its edges.
        const PixelRect area = random.rect({100, 100}, 50, 120);
        ConstImageTile from = random.picture(area);
        while (!from.isBytes()) from = random.picture(area);
        Fold fold;
        fold.middle = float(area.y) + random.real(0, float(area.height));
        const int start = random.integer(-20, 20);
        const int end = start + random.integer(1, 600);
        std::vector<Column> columns(size_t(end - start));
        std::vector<float> scales(columns.size() + 8, 1.0f);
        for (size_t i = 0; i < columns.size(); ++i) {
            Column& c = columns[i];
            c.sourceX = float(area.x) + random.real(-3, float(area.width) + 3);
            const float u = c.sourceX - 0.5f;
            c.x0 = int(std::floor(u));
            c.tx = u - float(c.x0);
            c.wx = fixed::weight(c.tx);
            c.inside = c.x0 >= area.x && c.x0 + 1 < area.maxX();
            c.inverseScale = scales[i] = random.real(1, 1.6f);
            const float light = random.real(0.5f, 1);
            c.light = Float4{light, light, light, 1.0f};
        }
        const float fromMiddle = random.real(-0.7f, 0.7f) * float(area.height);
        const PanelRun run{&fold, columns.data() - start, scales.data() - start, fromMiddle, start, end};
        Outputs outputs(4 * columns.size());
        ClearSpan plainClear{end, start - 1};
        ClearSpan avx2Clear = plainClear;
        transitionDSP(DSPLevel::Plain)->foldBytePanels(run, from, outputs.plain.data(), plainClear);
        transitionDSP(DSPLevel::AVX2)->foldBytePanels(run, from, outputs.avx2.data(), avx2Clear);
        ASSERT_TRUE(outputs.same()) << "round " << round;
        ASSERT_EQ(plainClear.first, avx2Clear.first) << "round " << round;
        ASSERT_EQ(plainClear.last, avx2Clear.last) << "round " << round;
        compared += outputs.anyPixel() ? 1 : 0;
    }
    EXPECT_GT(compared, kRounds / 2);
}

}  // namespace
