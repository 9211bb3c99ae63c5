// Rendering speed of the image engine at 1920x1080, in milliseconds per frame (wall clock, all
// render threads): the clip chain of a project frame (crop, rotate 10 degrees and scale 0.8, a
// shadow blurred with radius 10, colour controls, opacity 0.8, over a background), and its parts.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "image/Image.h"
#include "image/RenderContext.h"
#include "platform/AffineTransform.h"
#include "platform/Bitmap.h"

namespace qm {
namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
const Rect kFrame{0, 0, kWidth, kHeight};

// A picture with detail everywhere: colour gradients crossed by a fine checker pattern.
std::shared_ptr<const Bitmap> picture(int seed) {
    std::vector<uint8_t> rgba(size_t(kWidth) * kHeight * 4);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            uint8_t* p = &rgba[(size_t(y) * kWidth + x) * 4];
            const bool check = ((x / 8) + (y / 8) + seed) % 2 == 0;
            p[0] = uint8_t((x * 255) / kWidth);
            p[1] = uint8_t((y * 255) / kHeight);
            p[2] = check ? 200 : 40;
            p[3] = 255;
        }
    return Bitmap::createWithPixels(kWidth, kHeight, std::move(rgba));
}

const std::shared_ptr<const Bitmap>& clipPicture() {
    static const auto bitmap = picture(0);
    return bitmap;
}

const std::shared_ptr<const Bitmap>& backgroundPicture() {
    static const auto bitmap = picture(1);
    return bitmap;
}

// Rotation by `degrees` about `c`, applied after `t`.
AffineTransform rotatedAbout(AffineTransform t, double degrees, Point c) {
    AffineTransform r;
    r.translateXBy(c.x, c.y);
    r.rotateByDegrees(degrees);
    r.translateXBy(-c.x, -c.y);
    t.appendTransform(r);
    return t;
}

// The picture placed as a clip is: cropped, moved into `bounds` (0.8 of the frame) and turned.
Image movedClip() {
    const Rect crop{100, 50, 1720, 980};
    const Rect bounds{192, 108, kWidth * 0.8, kHeight * 0.8};
    AffineTransform place;
    place.translateXBy(bounds.minX(), bounds.minY());
    place.scaleXBy(bounds.width() / crop.width(), bounds.height() / crop.height());
    place.translateXBy(-crop.minX(), -crop.minY());
    return Image::imageWithBitmap(clipPicture())
        .cropped(crop)
        .transformed(rotatedAbout(place, 10, bounds.center()));
}

// The clip chain of a frame, as the clip's state applies it.
Image clipChain(const Image& background) {
    const Rect bounds{192, 108, kWidth * 0.8, kHeight * 0.8};
    const Image moved = movedClip();
    AffineTransform offset;
    offset.translateXBy(12, -12);
    const Image shadow = sourceIn(Image::imageWithColor(Color{0, 0, 0, 0.6}), moved)
                             .transformed(offset)
                             .gaussianBlur(10)
                             .transformed(rotatedAbout({}, 10, bounds.center()));
    ColorMatrix opacity;
    opacity.a = {0, 0, 0, 0.8f};
    const Image clip = sourceOver(moved, shadow).colorControls(0.05, 1.1, 1.2).colorMatrix(opacity);
    return sourceOver(clip, background);
}

Image colorBackground() { return Image::imageWithColor(Color{0.1, 0.2, 0.3, 1}).cropped(kFrame); }

// The benchmark's argument is the number of render threads.
std::shared_ptr<RenderContext> contextFor(const benchmark::State& state) {
    RenderContext::Options options;
    options.threadCount = int(state.range(0));
    return RenderContext::create(options);
}

void renderRGBA(benchmark::State& state, const Image& image) {
    const auto context = contextFor(state);
    std::vector<uint8_t> out(size_t(kWidth) * kHeight * 4);
    for (auto _ : state) {
        context->render(image, kFrame, PixelFormat::RGBA8Premultiplied, out.data(), kWidth * 4);
        benchmark::DoNotOptimize(out.data());
    }
}

void renderYUV(benchmark::State& state, const Image& image) {
    const auto context = contextFor(state);
    std::vector<uint8_t> y(size_t(kWidth) * kHeight), u(y.size() / 4), v(y.size() / 4);
    const YUVPlanes planes{y.data(), kWidth, u.data(), kWidth / 2, v.data(), kWidth / 2};
    for (auto _ : state) {
        context->renderYUV420(image, kFrame, planes);
        benchmark::DoNotOptimize(y.data());
    }
}

void ClipChainOverColor(benchmark::State& state) { renderRGBA(state, clipChain(colorBackground())); }
void ClipChainOverPicture(benchmark::State& state) {
    renderRGBA(state, clipChain(Image::imageWithBitmap(backgroundPicture())));
}
void ClipChainOverPictureYUV(benchmark::State& state) {
    renderYUV(state, clipChain(Image::imageWithBitmap(backgroundPicture())));
}
void PictureOnly(benchmark::State& state) { renderRGBA(state, Image::imageWithBitmap(clipPicture())); }
void MovedClipOnly(benchmark::State& state) { renderRGBA(state, sourceOver(movedClip(), colorBackground())); }
void BlurRadius10(benchmark::State& state) {
    renderRGBA(state, Image::imageWithBitmap(clipPicture()).gaussianBlur(10).cropped(kFrame));
}
void ColorControlsOnly(benchmark::State& state) {
    renderRGBA(state, Image::imageWithBitmap(clipPicture()).colorControls(0.05, 1.1, 1.2));
}

}  // namespace

BENCHMARK(ClipChainOverColor)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ClipChainOverPicture)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ClipChainOverPictureYUV)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(PictureOnly)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(MovedClipOnly)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BlurRadius10)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ColorControlsOnly)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace qm

BENCHMARK_MAIN();
