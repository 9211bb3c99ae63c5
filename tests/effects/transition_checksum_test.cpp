// Checksums of every transition of the catalogue, rendered to bytes, so that a rewrite of the
// kernels or of the image engine under them cannot change a single byte unnoticed.
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "effects/transitions/PSTransition.h"
#include "platform/AffineTransform.h"
#include "support/PixelChecksum.h"

using namespace qm;
using namespace qm::test;

namespace {

struct Recorded {
    const char* name;
    double percent;
    uint64_t bitmaps;   // both pictures bitmaps, which kernels read in place
    uint64_t computed;  // both pictures computed, which kernels read as float tiles
};

// Every transition at 0.13, 0.5 and 0.87 (0.7 for those done before 0.87), a few also at their ends.
const Recorded kRecorded[] = {
    {"Fade", 0, 0x8fcd0082ec6ca147, 0x67e10188aae044be},
    {"Fade", 0.13, 0xd195f140ae4aec01, 0x0f5550bbd79b093f},
    {"Fade", 0.5, 0xea294880cf70c715, 0xaed526a17039450c},
    {"Fade", 0.87, 0x02d1d0b82e6b75b1, 0xf0cd177e9c829e59},
    {"Fade", 1, 0x7d57505fce90b5dd, 0x9affbf295fd8bff5},
    {"Push(Left)", 0.13, 0x89527cc06edfb785, 0x91e4180e37da8ec3},
    {"Push(Left)", 0.5, 0xeac8d327a1e78fc3, 0x50846684101a7a4c},
    {"Push(Left)", 0.87, 0xa3628de2cb18e6f5, 0xc7575cf530e9a66c},
    {"Push(Right)", 0.13, 0xc461123677946e08, 0x3a6ad2602f52451f},
    {"Push(Right)", 0.5, 0x762ed1012716297c, 0xb1107c55ca6ed5ce},
    {"Push(Right)", 0.87, 0xe9f33fd10526f3be, 0xd06995e844cba0d6},
    {"Push(Top)", 0.13, 0x20c77fb1befdf82d, 0xb79ab08b02351c53},
    {"Push(Top)", 0.5, 0x1e7849110ebe2ee2, 0x0e83eafa0da66f9a},
    {"Push(Top)", 0.87, 0x314dac79b2917614, 0x8572ed85de4b9cb8},
    {"Push(Bottom)", 0.13, 0x01c43b650da02344, 0xb5309222eda94a47},
    {"Push(Bottom)", 0.5, 0xad9d4ac66b461ed0, 0x83917e38b0d7cd55},
    {"Push(Bottom)", 0.87, 0x443bc7014b0baaf6, 0x3d52c098e43c29a6},
    {"Move In(Left)", 0.13, 0xa52cefcc74fee0a0, 0x1fd109e9a6f470ff},
    {"Move In(Left)", 0.5, 0x5bfd6dc8ff5a92c2, 0x6a222e0482800a07},
    {"Move In(Left)", 0.87, 0x1f4294f0d8202fd7, 0x1e9d199114d75528},
    {"Move In(Right)", 0.13, 0x136bde5a8dfef8df, 0xaa5627035f31d8ab},
    {"Move In(Right)", 0.5, 0x22d66865a7580660, 0xed404f47bc3f0d37},
    {"Move In(Right)", 0.87, 0xa0de362ec57638bb, 0xe4b18a6e0e9c8566},
    {"Move In(Top)", 0.13, 0xd8a35ecfb8bde1a9, 0xd56a45c035f2bf42},
    {"Move In(Top)", 0.5, 0x116994de6e0116db, 0x5a4a06fbd0aad08e},
    {"Move In(Top)", 0.87, 0x01ceb2043a23745c, 0xf4331f0a07737a26},
    {"Move In(Bottom)", 0.13, 0x3fce8edf07b2f0bf, 0xaf5aded7d656d6c3},
    {"Move In(Bottom)", 0.5, 0xe428e9efb72b5657, 0xf4e460e1aef9f099},
    {"Move In(Bottom)", 0.87, 0xea62d4384015b40c, 0x3578233def68aab9},
    {"Reveal(Left)", 0.13, 0xc6ff7ad8c73a7835, 0x10b53dd248c8a349},
    {"Reveal(Left)", 0.5, 0x7304ff9f8d404446, 0xea2a57b0736b08b7},
    {"Reveal(Left)", 0.87, 0xef4eed29384a066b, 0x75a8273cc1d0fff7},
    {"Reveal(Right)", 0.13, 0xb611f650252138ea, 0xf5e88296c8cfdef2},
    {"Reveal(Right)", 0.5, 0x8e964632ab36ff5d, 0xda2dc978cd8d1a81},
    {"Reveal(Right)", 0.87, 0xbc7bfdab4c63e952, 0x5c15d29bd861cd34},
    {"Reveal(Top)", 0.13, 0xbfca8d021af2a420, 0xb9186ec43479994b},
    {"Reveal(Top)", 0.5, 0x762941b529eca062, 0x9dd848132e9f9883},
    {"Reveal(Top)", 0.87, 0x0e516726eb444378, 0x3310fcbac9cfa3f4},
    {"Reveal(Bottom)", 0.13, 0x1af61304a27416f4, 0xe8af777679c23713},
    {"Reveal(Bottom)", 0.5, 0xb66c45df880214d2, 0x591a0ec83f31c0c0},
    {"Reveal(Bottom)", 0.87, 0x16ddc8cf30e1785e, 0xf010a5a7d0bd1942},
    {"Accordion Fold", 0, 0x8fcd0082ec6ca147, 0x67e10188aae044be},
    {"Accordion Fold", 0.13, 0xbf02b5ea4f47b6d2, 0xcf96276fb36487a4},
    {"Accordion Fold", 0.5, 0x3bc03c88e3a7a321, 0x4340ae14b61a8ed9},
    {"Accordion Fold", 0.87, 0x158a2cc92ecf1198, 0x2b327e15f6d33838},
    {"Accordion Fold", 1, 0x7d57505fce90b5dd, 0x9affbf295fd8bff5},
    {"Bars Swipe(Left)", 0.13, 0xa86ad101321cbba5, 0xa5b1ceae255307bb},
    {"Bars Swipe(Left)", 0.5, 0x1a36ce09c34c1169, 0x27cbee769fbb97cf},
    {"Bars Swipe(Left)", 0.87, 0x79584369001573f0, 0xb48d29387cc6acea},
    {"Bars Swipe(Right)", 0.13, 0x4985e5fd97f1dfea, 0xf6e90cc1ce9cda01},
    {"Bars Swipe(Right)", 0.5, 0x311b08210d23c789, 0xdbe7fa0f32d0e0f2},
    {"Bars Swipe(Right)", 0.87, 0x389979c1bf6b878d, 0xaf6e965a86b1a364},
    {"Bars Swipe(Top)", 0.13, 0x0486af1948c9d564, 0xc4e74238c2dd36bb},
    {"Bars Swipe(Top)", 0.5, 0xf9ca75bea11e0902, 0x1fd9bb66470c3cfc},
    {"Bars Swipe(Top)", 0.87, 0xaf7bf59fafbdc4d2, 0x6c74d3cc3a8de389},
    {"Bars Swipe(Bottom)", 0.13, 0x2e94205f0fa99aa5, 0xbaa426fe7f564d19},
    {"Bars Swipe(Bottom)", 0.5, 0xe3ca1475dc9cf5bb, 0x08383981342d3b5e},
    {"Bars Swipe(Bottom)", 0.87, 0x2ed5b9110c8274df, 0x3539803b3bcd27bd},
    {"Copy Machine(Left)", 0.13, 0x1b7d3e7b0911161d, 0xdc768d642df50960},
    {"Copy Machine(Left)", 0.5, 0x0d0e2415be04d9b8, 0xfa70857c3f929f49},
    {"Copy Machine(Left)", 0.87, 0xb6da637c72547487, 0xaeacebd6d74b313c},
    {"Copy Machine(Right)", 0.13, 0x3b20a030dc45ce51, 0xfb991299af4e2c3e},
    {"Copy Machine(Right)", 0.5, 0x85e7cae4edd0c8f3, 0x331ca2c6327a9889},
    {"Copy Machine(Right)", 0.87, 0x11d071e52ac935c8, 0xbd096cfd35791109},
    {"Copy Machine(Top)", 0.13, 0x592eceac79d9e9b7, 0x57bfcbecb0b96802},
    {"Copy Machine(Top)", 0.5, 0x7bb56e74bd9fc31e, 0x11016306444088a8},
    {"Copy Machine(Top)", 0.87, 0x9ea1204058e361ad, 0xd0c7e40ae17fbe42},
    {"Copy Machine(Bottom)", 0.13, 0x07c7ceb6559e9ae8, 0x8dd5cbd98f908571},
    {"Copy Machine(Bottom)", 0.5, 0x709d763d15f1c452, 0x970ea6abd83f6b78},
    {"Copy Machine(Bottom)", 0.87, 0xc5447733e9378de5, 0xe7e41a821df70076},
    {"Mod", 0.13, 0x66c8ee81f8af7a88, 0xa2fb36b56d5908fc},
    {"Mod", 0.5, 0x02f21103a07a930d, 0xe5cfbb230db93cfb},
    {"Mod", 0.7, 0x495940e644e35294, 0xc0e09805d0d7c6ca},
    {"Flash", 0.13, 0x50e36e0e41c0f519, 0x7e4578b3c1a66fdf},
    {"Flash", 0.5, 0x36116b484dfb2410, 0x7d1afea6c5f62c54},
    {"Flash", 0.87, 0x4af891173d4b5522, 0xd5780019a8660553},
    {"Dissolve", 0, 0x8fcd0082ec6ca147, 0x67e10188aae044be},
    {"Dissolve", 0.13, 0x5e0afce84ef01a55, 0x7dec5f76ec9a1c56},
    {"Dissolve", 0.5, 0x2afefc897a4e5a8f, 0x99b3446f0efc387a},
    {"Dissolve", 0.87, 0x131f8b0b6170cd6d, 0x91ab36a3a83b043a},
    {"Dissolve", 1, 0x7d57505fce90b5dd, 0x9affbf295fd8bff5},
    {"Page Curl(Left)", 0.13, 0x53506f0f79491910, 0xf76d27ed1a6bceb3},
    {"Page Curl(Left)", 0.5, 0x2d02491818d7edd5, 0x567cc9f8743ccfd0},
    {"Page Curl(Left)", 0.7, 0x4b9bbc68d975c3da, 0x6ac8f3a26f486534},
    {"Page Curl(Right)", 0.13, 0xecf386a5cdc574b1, 0x09eedaf421b4cdf2},
    {"Page Curl(Right)", 0.5, 0x108779fbf36a3674, 0xc70cd4e6ad91330f},
    {"Page Curl(Right)", 0.7, 0xe87ba524638b1b4a, 0xdf2c27187dd4f607},
    {"Page Curl(Top)", 0.13, 0x911caabc85c86e4c, 0x4a5d4254bd8f8f91},
    {"Page Curl(Top)", 0.5, 0xe98b420e4a7899b2, 0x0229d7640003f1dd},
    {"Page Curl(Top)", 0.7, 0x68b5f9f60ae135b7, 0x7af471534ec40401},
    {"Page Curl(Bottom)", 0.13, 0xcb87c096314414ce, 0x1a4b852911ba5aa9},
    {"Page Curl(Bottom)", 0.5, 0x45dac6d2c2803663, 0x0c7771b267a6e9dc},
    {"Page Curl(Bottom)", 0.7, 0xe8525b3a7c5dc927, 0x2405dee2558d4fdb},
    {"Page Curl With Shadow(Left)", 0, 0x8fcd0082ec6ca147, 0x67e10188aae044be},
    {"Page Curl With Shadow(Left)", 0.13, 0xa4926024ab8833a8, 0x83d3eca0cc52605a},
    {"Page Curl With Shadow(Left)", 0.5, 0x86ee6ae533a7d0a5, 0x01559ebde1432288},
    {"Page Curl With Shadow(Left)", 0.7, 0x52f06bb42529e05d, 0x57eb8588a8334ba7},
    {"Page Curl With Shadow(Left)", 1, 0x7d57505fce90b5dd, 0x9affbf295fd8bff5},
    {"Page Curl With Shadow(Right)", 0.13, 0xfd4e61bc0a56dbc3, 0x0d553e3b40f14ae4},
    {"Page Curl With Shadow(Right)", 0.5, 0xe579fa700e90ad56, 0x35bb559763f8e30e},
    {"Page Curl With Shadow(Right)", 0.7, 0x265f657589464060, 0x6d07f38ee0c722e5},
    {"Page Curl With Shadow(Top)", 0.13, 0x1b04342f7b3ad829, 0x5cc36419d6782bee},
    {"Page Curl With Shadow(Top)", 0.5, 0x1cd7febdb7874781, 0xf742e548f5122d41},
    {"Page Curl With Shadow(Top)", 0.7, 0x42d941b506f15137, 0x4dcec3aa76ebc6de},
    {"Page Curl With Shadow(Bottom)", 0.13, 0x14d5039eaf0397a5, 0x97c5cfc4b559083e},
    {"Page Curl With Shadow(Bottom)", 0.5, 0xe9f3ca7c6fba6d30, 0xfc9a637b8b4b275c},
    {"Page Curl With Shadow(Bottom)", 0.7, 0xdd56336fe55f5a70, 0x18222829cc7c3b50},
    {"Ripple", 0, 0x8fcd0082ec6ca147, 0x67e10188aae044be},
    {"Ripple", 0.13, 0x1ab8ec1f3e7bb58a, 0x0d1b0816cdbc349e},
    {"Ripple", 0.5, 0x8e58f3784d2f63cb, 0xc050895143712b91},
    {"Ripple", 0.87, 0x05197caaac0bd08e, 0x3e3fcd0db215d4bf},
    {"Ripple", 1, 0x7d57505fce90b5dd, 0x9affbf295fd8bff5},
    {"Swipe(Left)", 0.13, 0x4a200b171065a776, 0xdfddb10ded60be22},
    {"Swipe(Left)", 0.5, 0xc09375b1b38be178, 0x47ce9f399f337723},
    {"Swipe(Left)", 0.87, 0xb3ea68892d679de3, 0x3d89557f1313ac29},
    {"Swipe(Right)", 0.13, 0xb2ec09194b6c8d1c, 0x3b285b69e217babf},
    {"Swipe(Right)", 0.5, 0x524410e61c642d49, 0x8f7e93186ccd8832},
    {"Swipe(Right)", 0.87, 0xf593205aaa2a808c, 0x9a9aee3bb0dd773d},
    {"Swipe(Top)", 0.13, 0xdd9adba63b8587a0, 0xb8a50e7feaf61717},
    {"Swipe(Top)", 0.5, 0x40b06e6b6a3cd9a1, 0xbb177162de07bb5c},
    {"Swipe(Top)", 0.87, 0x3c5fcd960631dff5, 0xa3b100daa2a08ac9},
    {"Swipe(Bottom)", 0.13, 0xb763401e1165cf38, 0x463cb2901cfe6986},
    {"Swipe(Bottom)", 0.5, 0x078000c58db89592, 0x902e00d9ee7bef4a},
    {"Swipe(Bottom)", 0.87, 0x9b331a60e818800f, 0x71686db891c7de0d},
    {"Disintegrate With Mask", 0.13, 0x3f6e5956a6ce86b5, 0x148a9cada34bfa50},
    {"Disintegrate With Mask", 0.5, 0x268c1d22b3fd7898, 0x4d5daa966bc2de42},
    {"Disintegrate With Mask", 0.87, 0xbef17fa8268ca714, 0x4040b2e0b2f34fd5},
};

// The outgoing picture has clear, translucent and opaque bands and the incoming one is opaque; as
// computed pictures the roles swap and the incoming one is moved off the origin. Neither size is a
// multiple of the tile size.
struct Inputs {
    Image from;
    Image to;
};

Inputs bitmapInputs() {
    return {Image::imageWithBitmap(checksumPicture(301, 203, true)),
            Image::imageWithBitmap(checksumPicture(293, 211, false))};
}

Inputs computedInputs() {
    const Inputs bitmaps = bitmapInputs();
    AffineTransform offset;
    offset.translateXBy(6, -4);
    return {bitmaps.to.colorControls(0.04, 1.1, 0.9),
            bitmaps.from.colorControls(-0.03, 0.95, 1.2).transformed(offset)};
}

// The region rendered: both pictures with a margin around them.
const Rect kRegion{-5, -7, 313, 222};

// Transforms of computed pictures step their sample positions from each tile's first column in
// single precision, so where Push, Move In and Reveal move one by a fraction of a pixel a byte may
// round differently in another tiling. Those renders hold for the first test's tiles only.
bool movesComputedPictures(const std::string& name) {
    return name.starts_with("Push") || name.starts_with("Move In") || name.starts_with("Reveal");
}

void expectRecordedBytes(const RenderContext& context, bool anyTiles) {
    const Inputs bitmaps = bitmapInputs();
    const Inputs computed = computedInputs();
    for (const Recorded& r : kRecorded) {
        const auto transition = PSTransition::transitionWithName(r.name);
        ASSERT_EQ(transition->name(), r.name);
        std::ostringstream at;
        at << r.name << " at " << r.percent;
        const Image fromBitmaps = transition->transitionImage(bitmaps.from, bitmaps.to, r.percent);
        expectChecksum(renderChecksum(context, fromBitmaps, kRegion), r.bitmaps, at.str() + " from bitmaps");
        if (anyTiles && movesComputedPictures(r.name)) continue;
        const Image fromComputed = transition->transitionImage(computed.from, computed.to, r.percent);
        expectChecksum(renderChecksum(context, fromComputed, kRegion), r.computed, at.str() + " from computed pictures");
    }
}

}  // namespace

TEST(TransitionChecksumTest, EveryTransitionOfTheCatalogueIsRecorded) {
    std::set<std::string> recorded;
    for (const Recorded& r : kRecorded) recorded.insert(r.name);
    for (const auto& name : PSTransition::supportTransitions()) EXPECT_EQ(recorded.count(name), 1u) << name;
    EXPECT_EQ(recorded.size(), PSTransition::supportTransitions().size());
}

TEST(TransitionChecksumTest, EveryTransitionRendersItsRecordedBytes) {
    expectRecordedBytes(*RenderContext::create({64, 2}), false);
}

TEST(TransitionChecksumTest, TheBytesDoNotDependOnTilesOrThreads) {
    for (const RenderContext::Options options : {RenderContext::Options{16, 1}, RenderContext::Options{38, 3},
                                                  RenderContext::Options{200, 2}, RenderContext::Options{512, 4}})
        expectRecordedBytes(*RenderContext::create(options), true);
}
