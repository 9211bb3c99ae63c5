#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <latch>
#include <thread>

#include "image/ImageTile.h"
#include "image/TileScratch.h"

namespace qm {
namespace {

TEST(TileScratchTest, AllocationsAreAlignedAndApart) {
    TileScratch scratch;
    auto* a = scratch.allocate<uint8_t>(3);
    auto* b = scratch.allocate<float>(1000);
    auto* c = scratch.allocate<Float4>(70000);  // more than the first chunk holds
    for (const void* p : {static_cast<const void*>(a), static_cast<const void*>(b), static_cast<const void*>(c)})
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
    std::memset(a, 1, 3);
    std::fill(b, b + 1000, 2.0f);
    std::fill(c, c + 70000, splat(3.0f));
    EXPECT_EQ(a[2], 1);
    EXPECT_EQ(b[0], 2.0f);
    EXPECT_EQ(b[999], 2.0f);
    EXPECT_EQ(c[69999][3], 3.0f);
}

TEST(TileScratchTest, ScopeGivesBackWhatWasTakenInsideIt) {
    TileScratch scratch;
    float* kept = scratch.allocate<float>(16);
    float* first = nullptr;
    for (int row = 0; row < 100; ++row) {
        TileScratch::Scope scope(scratch);
        float* buffer = scratch.allocate<float>(4096);
        if (!first) first = buffer;
        // Every row reuses the same memory, and none of it overlaps what was kept before.
        EXPECT_EQ(buffer, first);
        EXPECT_TRUE(buffer >= kept + 16 || buffer + 4096 <= kept);
    }
    // After a scope that spilled into a bigger chunk, the next allocation starts where it began.
    {
        TileScratch::Scope scope(scratch);
        scratch.allocate<float>(1 << 20);
    }
    EXPECT_EQ(scratch.allocate<float>(4096), first);
}

TEST(TileScratchTest, ThreadsRenderingAtOnceGetSeparateMemory) {
    constexpr int kFloats = 1 << 16;
    std::latch bothFilled(2);
    int mismatches[2] = {};
    auto work = [&](int index) {
        TileScratch scratch;
        float* buffer = scratch.allocate<float>(kFloats);
        std::fill(buffer, buffer + kFloats, float(index));
        bothFilled.arrive_and_wait();
        for (int i = 0; i < kFloats; ++i) mismatches[index] += buffer[i] != float(index);
    };
    std::thread one(work, 0);
    std::thread two(work, 1);
    one.join();
    two.join();
    EXPECT_EQ(mismatches[0], 0);
    EXPECT_EQ(mismatches[1], 0);
}

}  // namespace
}  // namespace qm
