// Checksums of every image operation, of the paths each takes for bitmaps, computed pictures and
// colours, and of every output format, so that a rewrite of the image engine cannot change a single
// rendered byte unnoticed.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "image/ImageFilterRegistry.h"
#include "platform/AffineTransform.h"
#include "support/PixelChecksum.h"

using namespace qm;
using namespace qm::test;

namespace {

// Recorded checksums of the cases below, by name.
const std::map<std::string, uint64_t> kRecorded = {
    {"bitmap", 0x38580e67ac275bf7}, {"opaque bitmap", 0x88a16d0e867ac6b9},
    {"color", 0xc1885604401ee54a}, {"cropped", 0x66cb8d690550eb30},
    {"cropped color", 0xf28d33a1b652a3da}, {"moved by whole pixels", 0xc170f13dfe3ebda9},
    {"transforms folded", 0xc722aec610716d57}, {"blur turned", 0x5ec4a7a6c1322809},
    {"lanczos shrunk", 0x5b9ff9709cdf2571}, {"lanczos enlarged", 0x102d095f8708c846},
    {"lanczos computed", 0xc7fddd862d9945ba}, {"colorControls", 0xe4822f2dfeec406f},
    {"colorControls of a color", 0x0a6dece100b9e662}, {"colorControls then fade", 0x070b371ea0ec9cea},
    {"colorMatrix general", 0x9d1f4229316561f4}, {"colorMatrix linear", 0x10f057e14ee26284},
    {"colorMatrix fade", 0xd2aff76b62a2b024}, {"colorMatrix fade of a crop", 0x2e35e398847c673f},
    {"colorInvert", 0xefee17bc093173e9}, {"gaussianBlur 1.5", 0xbfb3424fa5d4d4c6},
    {"gaussianBlur 3.5", 0xd7a0e3f79090800f}, {"gaussianBlur 9", 0x18a48a77dcfca589},
    {"gaussianBlur 5 computed", 0x37e14073d888d5d3}, {"median", 0xd351bc034e60e86d},
    {"median computed", 0x470d245c70b3964a}, {"over opaque bitmap", 0x0745dd2cc7d38a3a},
    {"over opaque computed", 0x9a52621e74f88533}, {"over opaque turned", 0xfb384744529a3eb0},
    {"over color", 0xa529a867d6e377e5}, {"over bitmap", 0xcbacbf2af3ecba40},
    {"over faded bitmap", 0x645a7c845efd3ff4}, {"over colorControls bitmap", 0xf2958c943828e8d7},
    {"over cropped bitmap", 0xd4138191114299fd}, {"over turned bitmap", 0xb242b1980730fb6b},
    {"in bitmap", 0x60e51c1e6af718fc}, {"in opaque bitmap", 0xfbcc174033167c4d},
    {"in turned opaque crop", 0x92edd68d90f54a18}, {"in turned bitmap", 0x9b3ba541f4508cd1},
    {"in computed", 0x52e34497cec42025}, {"rotated", 0x0f9e31abfc82c9f5},
    {"rotated computed", 0xde656ec3fb9c5d7c}, {"rotated color", 0x35077b936fdcd71d},
    {"rotated nearest", 0x7fa460ff9d9ffb05}, {"rotated nearest computed", 0xd80491ccee907949},
    {"rotated nearest color", 0x9f8ad4763866b65a}, {"shrunk", 0x5d50c6c574f90a4c},
    {"shrunk computed", 0xf0d4b4cbed73ee9c}, {"shrunk color", 0x0c0780d53fbe0134},
    {"shrunk nearest", 0xd005a796366652af}, {"shrunk nearest computed", 0x5a84579149c4c0b4},
    {"shrunk nearest color", 0xe385a5e34ae2eac5}, {"enlarged", 0x61c3fca96ec9ea4c},
    {"enlarged computed", 0x5a0fae3ac4558107}, {"enlarged color", 0x378dc8f1d47dafd5},
    {"enlarged nearest", 0x42f7f24f363f9edd}, {"enlarged nearest computed", 0xb2a62d565d8ba849},
    {"enlarged nearest color", 0xa0921e02b75396fa}, {"photoEffect Chrome", 0x1872f6ccfe994f6b},
    {"photoEffect Fade", 0xa13dbe378d23fe37}, {"photoEffect Instant", 0x15ef2f340cfa9fde},
    {"photoEffect Mono", 0x7bf91f77aed5620b}, {"photoEffect Noir", 0xa87421addad75132},
    {"photoEffect Process", 0xf782f4499f03dc63}, {"photoEffect Tonal", 0xa5c87999b384d4fe},
    {"photoEffect Transfer", 0x52ec8f3d40a2688b}, {"filter CIColorControls", 0xdfb96677811e037d},
    {"filter CIColorInvert", 0x22f97d9e7470eea9}, {"filter CIMedianFilter", 0xcaa82e302c334d05},
    {"filter CIPhotoEffectChrome", 0x666347f8084f9811}, {"filter CIPhotoEffectFade", 0x7b5fbffc4b51372f},
    {"filter CIPhotoEffectMono", 0xc07dc06a3a6f8a8e}, {"filter CIPhotoEffectNoir", 0xc19dfe363e640e78},
    {"filter CIPhotoEffectTonal", 0x364a09bd0d5ed49f}, {"filter CIPhotoEffectInstant", 0xdb83960e921a86e1},
    {"filter CIPhotoEffectProcess", 0x72b0c0ac1da9c0bc}, {"filter CIPhotoEffectTransfer", 0xe79ef86622ccffba},
};

// Recorded checksums of one picture in every output format.
const std::map<std::string, uint64_t> kRecordedOutputs = {
    {"RGBA8 premultiplied", 0x4cc4ee8bdf7b18dc},
    {"RGBA8", 0xef50c8d43937ca2a},
    {"BGRA8 premultiplied", 0x4e461d32d139b808},
    {"BGRA8", 0x18a265b44ca74622},
    {"YUV 4:2:0", 0x28f16176e0c5091d},
};

// The recorded checksum of `name`, or 0 (failing the check) when there is none.
uint64_t recorded(const std::map<std::string, uint64_t>& table, const std::string& name) {
    const auto found = table.find(name);
    return found == table.end() ? 0 : found->second;
}

struct Case {
    std::string name;
    Image image;
    // Transforms sampling a computed picture or a colour, and nearest sampling, step their
    // positions from each tile's first column in single precision, so a byte may round differently
    // in another tiling. Those renders hold for the first test's tiles only.
    bool tileBound = false;
};

AffineTransform transform(double degrees, double scale, double tx, double ty) {
    AffineTransform t;
    t.translateXBy(tx, ty);
    t.rotateByDegrees(degrees);
    t.scaleBy(scale);
    return t;
}

// A picture with clear, translucent and opaque bands; its size is not a multiple of the tile size.
Image picture() { return Image::imageWithBitmap(checksumPicture(301, 203, true)); }

std::vector<Case> cases() {
    const Image translucent = picture();
    const Image opaque = Image::imageWithBitmap(checksumPicture(257, 190, false));
    const Image computed = translucent.colorControls(0.05, 1.2, 0.8);
    const Image color = Image::imageWithColor(Color{0.3, 0.6, 0.9, 0.7});
    const Image colorRect = color.cropped(Rect{20.5, 10.25, 150, 120});
    const AffineTransform turn = transform(23, 0.9, 40, -20);
    ColorMatrix fade;
    fade.a = {0, 0, 0, 0.45f};
    // Colour read from alpha and alpha above one: the general per-pixel path.
    ColorMatrix mixing;
    mixing.r = {0.2f, 0.5f, 0.1f, 0.3f};
    mixing.a = {0.1f, 0, 0, 1.4f};
    mixing.bias = {0, 0.05f, -0.1f, 0};
    // Colour only from colour, alpha scaled: linear on premultiplied pixels.
    ColorMatrix swap;
    swap.r = {0, 1, 0, 0};
    swap.g = {0, 0, 1, 0};
    swap.b = {1, 0, 0, 0};
    swap.a = {0, 0, 0, 0.8f};
    swap.bias = {0.1f, 0, 0.05f, 0};

    std::vector<Case> all = {
        {"bitmap", translucent},
        {"opaque bitmap", opaque},
        {"color", color},
        {"cropped", translucent.cropped(Rect{17.5, 9.25, 200.5, 150})},
        {"cropped color", colorRect},
        {"moved by whole pixels", computed.transformed(transform(0, 1, 7, -3))},
        {"transforms folded", translucent.transformed(turn).transformed(transform(-40, 0.6, 5.5, 3))},
        {"blur turned", translucent.gaussianBlur(2).transformed(turn)},
        {"lanczos shrunk", translucent.lanczosScale(0.45, 1.3)},
        {"lanczos enlarged", translucent.cropped(Rect{50, 40, 120, 80}).lanczosScale(1.6, 0.8)},
        {"lanczos computed", computed.lanczosScale(0.7, 1)},
        {"colorControls", translucent.colorControls(0.08, 1.3, 0.7)},
        {"colorControls of a color", color.colorControls(0.08, 1.3, 0.7)},
        {"colorControls then fade", translucent.colorControls(-0.1, 0.8, 1.4).colorMatrix(fade)},
        {"colorMatrix general", translucent.colorMatrix(mixing)},
        {"colorMatrix linear", translucent.colorMatrix(swap)},
        {"colorMatrix fade", translucent.colorMatrix(fade)},
        {"colorMatrix fade of a crop", translucent.cropped(Rect{30, 20, 200, 150}).colorMatrix(fade)},
        {"colorInvert", translucent.colorInvert()},
        {"gaussianBlur 1.5", translucent.gaussianBlur(1.5)},
        {"gaussianBlur 3.5", translucent.gaussianBlur(3.5)},
        {"gaussianBlur 9", translucent.gaussianBlur(9)},
        {"gaussianBlur 5 computed", computed.gaussianBlur(5)},
        {"median", translucent.median()},
        {"median computed", computed.median()},
        // Each path of the background under a translucent foreground, and opaque foregrounds.
        {"over opaque bitmap", sourceOver(opaque, translucent)},
        {"over opaque computed", sourceOver(opaque.colorControls(0.1, 1, 1), translucent)},
        {"over opaque turned", sourceOver(opaque.transformed(turn), translucent)},
        {"over color", sourceOver(translucent, color)},
        {"over bitmap", sourceOver(translucent, opaque)},
        {"over faded bitmap", sourceOver(translucent, opaque.colorMatrix(fade))},
        {"over colorControls bitmap", sourceOver(translucent, opaque.colorControls(0.1, 1.2, 0.5))},
        {"over cropped bitmap", sourceOver(translucent, opaque.cropped(Rect{25, 15, 180, 140}))},
        {"over turned bitmap", sourceOver(translucent, opaque.transformed(turn))},
        {"in bitmap", sourceIn(color, translucent)},
        {"in opaque bitmap", sourceIn(color, opaque)},
        {"in turned opaque crop", sourceIn(color, opaque.cropped(Rect{10, 10, 200, 150}).transformed(turn)), true},
        {"in turned bitmap", sourceIn(color, translucent.transformed(turn))},
        {"in computed", sourceIn(translucent, opaque.colorControls(0.1, 1, 1).transformed(turn)), true},
    };
    // Rotated, shrunk below half and enlarged: bitmaps sampled in place, computed pictures, and
    // rectangles of colour.
    const std::pair<const char*, AffineTransform> transforms[] = {
        {"rotated", turn}, {"shrunk", transform(0, 0.37, 3.5, 2.25)}, {"enlarged", transform(-8, 1.7, -30, -15)}};
    for (const auto& [name, t] : transforms) {
        for (const auto& [suffix, interpolation] :
             {std::pair{"", Interpolation::Linear}, std::pair{" nearest", Interpolation::Nearest}}) {
            const bool nearest = interpolation == Interpolation::Nearest;
            all.push_back({std::string(name) + suffix, translucent.transformed(t, interpolation), nearest});
            all.push_back({std::string(name) + suffix + " computed", computed.transformed(t, interpolation), true});
            all.push_back({std::string(name) + suffix + " color", colorRect.transformed(t, interpolation), true});
        }
    }
    const std::pair<const char*, PhotoEffect> effects[] = {
        {"Chrome", PhotoEffect::Chrome}, {"Fade", PhotoEffect::Fade},       {"Instant", PhotoEffect::Instant},
        {"Mono", PhotoEffect::Mono},     {"Noir", PhotoEffect::Noir},       {"Process", PhotoEffect::Process},
        {"Tonal", PhotoEffect::Tonal},   {"Transfer", PhotoEffect::Transfer}};
    for (const auto& [name, effect] : effects)
        all.push_back({std::string("photoEffect ") + name, translucent.photoEffect(effect)});
    const FilterParameters parameters{{"inputBrightness", -0.1}, {"inputContrast", 1.4}, {"inputSaturation", 1.8}};
    for (const auto& name : ImageFilterRegistry::filterNames())
        all.push_back({"filter " + name, ImageFilterRegistry::filterWithName(name)->apply(opaque, parameters)});
    return all;
}

// Infinite pictures are rendered over the region of the first picture with a margin.
Rect regionOf(const Image& image) {
    return image.hasInfiniteExtent() ? Rect{-5, -4, 311, 213} : image.extent();
}

void expectRecordedBytes(const RenderContext& context, bool anyTiles) {
    std::set<std::string> names;
    for (const Case& c : cases()) {
        ASSERT_TRUE(names.insert(c.name).second) << c.name;
        if (anyTiles && c.tileBound) continue;
        expectChecksum(renderChecksum(context, c.image, regionOf(c.image)), recorded(kRecorded, c.name), c.name);
    }
    EXPECT_EQ(names.size(), kRecorded.size());
}

}  // namespace

TEST(ImageChecksumTest, EveryOperationRendersItsRecordedBytes) {
    expectRecordedBytes(*RenderContext::create({64, 2}), false);
}

TEST(ImageChecksumTest, TheBytesDoNotDependOnTilesOrThreads) {
    for (const RenderContext::Options options : {RenderContext::Options{16, 1}, RenderContext::Options{38, 3},
                                                  RenderContext::Options{200, 2}, RenderContext::Options{512, 4}})
        expectRecordedBytes(*RenderContext::create(options), true);
}

TEST(ImageChecksumTest, EveryOutputFormatWritesItsRecordedBytes) {
    // Values beyond 0..1 to clamp, translucent and clear pixels, and odd sizes for the chroma.
    const Image image = picture().colorControls(0.1, 1.6, 1.3);
    const Rect region{-3, -2, 305, 207};
    const std::pair<const char*, PixelFormat> formats[] = {{"RGBA8 premultiplied", PixelFormat::RGBA8Premultiplied},
                                                           {"RGBA8", PixelFormat::RGBA8},
                                                           {"BGRA8 premultiplied", PixelFormat::BGRA8Premultiplied},
                                                           {"BGRA8", PixelFormat::BGRA8}};
    for (int tileSize : {64, 38}) {
        const auto context = RenderContext::create({tileSize, 2});
        for (const auto& [name, format] : formats)
            expectChecksum(renderChecksum(*context, image, region, format), recorded(kRecordedOutputs, name), name);
        std::vector<uint8_t> y(305 * 207), u(153 * 104), v(153 * 104);
        context->renderYUV420(image, region, YUVPlanes{y.data(), 305, u.data(), 153, v.data(), 153});
        expectChecksum(fnv1a64(v, fnv1a64(u, fnv1a64(y))), recorded(kRecordedOutputs, "YUV 4:2:0"), "YUV 4:2:0");
    }
}
