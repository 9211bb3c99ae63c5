#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <tuple>
#include <vector>

#include "effects/transitions/PSTransition.h"
#include "effects/transitions/kernels/PageCurlGeometry.h"
#include "effects/transitions/kernels/support/Runs.h"
#include "effects/transitions/kernels/support/SphereShading.h"
#include "image/RenderContext.h"
#include "image/TileScratch.h"

using namespace qm;
using namespace qm::kernels;

namespace {

// Runs as (start, end, kind), in the order given.
using Runs = std::vector<std::tuple<int, int, int>>;

template <class Split, class Kind>
Runs collect(Split&& split, int width, Kind&& kind) {
    Runs runs;
    split(width, kind, [&](int start, int end, int runKind) { runs.emplace_back(start, end, runKind); });
    return runs;
}

}  // namespace

TEST(KernelGeometryTest, OrderedRunsMatchRunsFoundPixelByPixel) {
    const auto ordered = [](int width, auto& kind, auto each) { forEachOrderedRun(width, kind, each); };
    const auto plain = [](int width, auto& kind, auto each) { forEachRun(width, kind, each); };
    for (int width : {1, 2, 7, 128, 1000}) {
        // Thresholds on a falling line, a rising step and one kind throughout.
        const auto falling = [&](int i) { return i < width / 3 ? 2 : i < width / 2 ? 1 : 0; };
        const auto rising = [&](int i) { return i >= width - 1 ? 3 : 0; };
        const auto constant = [](int) { return 5; };
        EXPECT_EQ(collect(ordered, width, falling), collect(plain, width, falling)) << width;
        EXPECT_EQ(collect(ordered, width, rising), collect(plain, width, rising)) << width;
        EXPECT_EQ(collect(ordered, width, constant), collect(plain, width, constant)) << width;
    }
}

TEST(KernelGeometryTest, MirrorRunsAgreeWithEveryPixelsOwnTest) {
    // The curl's top part is split into runs from the line its mirror images lie on; each pixel
    // must land where its own test puts it, also where the line grazes an edge of the page
    // (whole-degree angles and the diagonals that transpose the page).
    const double pi = std::numbers::pi;
    for (const Rect page : {Rect{0, 0, 1920, 1080}, Rect{-7, 3, 333, 187}}) {
        for (double angle : {-0.25 * pi, 0.75 * pi, 0.25 * pi, -0.75 * pi, 0.0, 0.5 * pi, pi, 0.3, -2.0}) {
            for (float t : {0.2f, 0.5f, 0.8f}) {
                const CurlGeometry g = makeGeometry(t, page, angle, 100);
                for (int y = int(page.minY()) - 3; y < int(page.maxY()) + 3; y += 7) {
                    const float cy = float(y) + 0.5f;
                    const int x0 = int(page.minX()) - 5;
                    const int x1 = int(page.maxX()) + 5;
                    int next = x0;
                    forEachMirrorRun(g, cy, x0, x1, [&](int from, int to, bool onPage) {
                        ASSERT_EQ(from, next);
                        ASSERT_LT(from, to);
                        next = to;
                        for (int x = from; x < to; ++x) {
                            const Point p = g.mirror(float(x) + 0.5f, cy);
                            ASSERT_EQ(g.onPage(float(p.x), float(p.y)), onPage)
                                << "pixel " << x << ", " << y << " at angle " << angle << ", time " << t;
                        }
                    });
                    ASSERT_EQ(next, x1);
                }
            }
        }
    }
}

TEST(KernelGeometryTest, ShadingProfileFollowsTheSphereItIsTakenFrom) {
    const Image shadingImage = PSTransition::shadingImage();
    const Rect extent = shadingImage.extent();
    const int width = int(extent.width());
    const int height = int(extent.height());
    std::vector<float> pixels(size_t(width) * size_t(height) * 4);
    RenderContext::create()->renderFloat(shadingImage, extent, pixels.data(), size_t(width) * 4);
    const ConstImageTile tile(PixelRect::enclosing(extent), pixels.data(), std::ptrdiff_t(width) * 4);
    const SphereShading sphere(tile, extent);
    TileScratch scratch;
    for (const auto& [dx, dy] : {std::pair{0.70710677f, -0.70710677f}, std::pair{1.0f, 0.0f}, std::pair{-0.6f, 0.8f}}) {
        const ShadingProfile profile(sphere, dx, dy, scratch);
        for (float s = -1.0f; s <= 1.0f; s += 0.0137f) {
            const Float4 expected = sphere.light(s * dx, s * dy);
            const Float4 actual = profile.light(s);
            for (int c = 0; c < 4; ++c) EXPECT_NEAR(actual[c], expected[c], 0.3f / 255.0f) << "s " << s << " lane " << c;
        }
    }
}
