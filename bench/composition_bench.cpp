// Frames of a 1920x1080 project composed and rendered as playback and export make them: two stored
// 1080p video clips overlapping under a Dissolve on the lower track, and on the top track a
// picture with a drop shadow that flies and fades in. Each frame is timed in three parts: the
// JPEG decode of the stored frames, the composition of the project's image graph, and its
// rendering to BGRA. Pass 1 runs on fresh resources and a fresh project (cold), pass 2 over the
// same times again (warm). Then single frames at random times of the Dissolve, as scrubbing asks
// for them, each with both stored frames read and decoded anew. Targets: 30 frames per second warm, 16 ms for one cold
// frame.
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "BenchMedia.h"
#include "BenchSupport.h"
#include "codec/BitmapCodec.h"
#include "codec/QVTimebase.h"
#include "effects/QVEffectInstance.h"
#include "effects/QVTransitionInstance.h"
#include "image/RenderContext.h"
#include "project/QVMediaClip.h"
#include "project/QVProject.h"
#include "project/QVTrack.h"
#include "store/SCImageResource.h"
#include "store/SCResource.h"
#include "store/SCResourceStorage.h"
#include "store/SCVideoResource.h"

namespace qm {
namespace {

using bench::Clock;
using bench::millisecondsSince;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kFps = 30;
constexpr int64_t kFrameDuration = QVTimebase / kFps;
constexpr int kClipFrames = 90;
// The second clip starts this many frames before the first one ends.
constexpr int kOverlapFrames = 30;
constexpr int kPassFrames = 90;
constexpr int kRandomFrames = 20;
constexpr double kWarmTargetFps = 30;
constexpr double kColdTargetMs = 16;

// The frames of a stored clip as JPEG blocks in one storage, as import leaves them.
struct StoredFrames {
    std::shared_ptr<SCResourceStorage> storage;
    std::vector<std::shared_ptr<SCVideoBlock>> blocks;
    uint64_t bytes;
};

StoredFrames storeFrames(int seed) {
    StoredFrames stored{SCResourceStorage::create(), {}, 0};
    uint64_t offset = 0;
    for (int k = 0; k < kClipFrames; ++k) {
        const auto jpeg = SCResource::encodeCGImage(bench::cameraFrame(kWidth, kHeight, k, seed, 9));
        stored.storage->appendData(jpeg);
        stored.blocks.push_back(
            SCVideoBlock::createWithOffset(offset, jpeg.size(), k * kFrameDuration, kFrameDuration));
        offset += jpeg.size();
    }
    stored.storage->flushCacheBuffer();
    stored.bytes = offset;
    return stored;
}

// A 640x360 picture with a soft edge, as a PNG file.
std::string writeOverlayPicture(const std::string& directory) {
    constexpr int w = 640;
    constexpr int h = 360;
    std::vector<uint8_t> rgba(static_cast<size_t>(w) * h * 4);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            uint8_t* p = &rgba[(static_cast<size_t>(y) * w + x) * 4];
            p[0] = static_cast<uint8_t>(40 + x / 4);
            p[1] = static_cast<uint8_t>(80 + y / 3);
            p[2] = 200;
            p[3] = 255;
        }
    }
    const std::string path = directory + "/overlay.png";
    const auto png = BitmapCodec::PNGRepresentation(*Bitmap::createWithOpaquePixels(w, h, std::move(rgba)));
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(png.data()), png.size());
    return path;
}

// Fresh resources over the stored frames: nothing decoded yet.
struct Sources {
    std::shared_ptr<SCResource> first;
    std::shared_ptr<SCResource> second;
    std::shared_ptr<SCResource> picture;
};

Sources freshSources(const StoredFrames& a, const StoredFrames& b, const std::string& picturePath) {
    return {SCResource::createWithIdentifierAudioVideo(
                "bench-a", nullptr, SCVideoResource::createWithStorage(a.storage, a.blocks, kWidth, kHeight)),
            SCResource::createWithIdentifierAudioVideo(
                "bench-b", nullptr, SCVideoResource::createWithStorage(b.storage, b.blocks, kWidth, kHeight)),
            SCResource::createWithImage(SCImageResource::createWithURL(picturePath))};
}

std::shared_ptr<QVProject> makeProject(const Sources& sources) {
    auto project = QVProject::create();
    project->setOutVideoWidth(kWidth);
    project->setOutVideoHeight(kHeight);
    project->setOutVideoFPS(kFps);

    auto first = QVMediaClip::createWithResource(sources.first);
    auto second = QVMediaClip::createWithResource(sources.second);
    first->clipPosition()->setBounds({0, 0, kWidth, kHeight});
    second->clipPosition()->setBounds({0, 0, kWidth, kHeight});
    first->transitionInstance()->setTransitionName("Dissolve");
    auto lower = QVTrack::createWithProject(project);
    project->addTracksObject(lower);
    lower->addClip(first);
    second->setTimestampOfTrack((kClipFrames - kOverlapFrames) * kFrameDuration);
    lower->addClip(second);

    auto overlay = QVMediaClip::createWithResource(sources.picture);
    overlay->setTrackDuration(lower->duration());
    overlay->clipPosition()->setBounds({1200, 620, 640, 360});
    overlay->setValideteShadow(true);
    overlay->shadowState()->setShadowOffsetX(12);
    overlay->shadowState()->setShadowOffsetY(-12);
    overlay->shadowState()->setBlurRadius(8);
    overlay->effectInstance()->setEntranceName("Fly&Fade in from left");
    auto upper = QVTrack::createWithProject(project);
    project->insertObjectInTracksAtIndex(upper, 0);
    upper->addClip(overlay);
    return project;
}

// The parts of one frame, in ms. The frame's time is read + compose + render; renderDecoded is
// a second render of the same graph, with its frames decoded already.
struct FrameTime {
    double read = 0;
    double compose = 0;
    double render = 0;
    double renderDecoded = 0;
    double total() const { return read + compose + render; }
};

class FrameMaker {
public:
    explicit FrameMaker(std::shared_ptr<QVProject> project)
        : _project(std::move(project)),
          _context(RenderContext::create()),
          _pixels(static_cast<size_t>(kWidth) * kHeight * 4) {}

    // Reads the stored frames the picture at `timestamp` shows (the clips' own readers would do
    // it inside the composition otherwise), composes, and renders, which decodes the frames.
    FrameTime make(int64_t timestamp) {
        FrameTime time;
        auto start = Clock::now();
        for (const auto& track : _project->tracks()) {
            for (const auto& clip : track->findClipsAtTimestamp(timestamp)) {
                clip->imageAtSourceTimestamp(clip->trackTimestampToSource(timestamp));
            }
        }
        time.read = millisecondsSince(start);
        start = Clock::now();
        const Image image = _project->imageAtTimestamp(timestamp, true);
        time.compose = millisecondsSince(start);
        start = Clock::now();
        render(image);
        time.render = millisecondsSince(start);
        start = Clock::now();
        render(image);
        time.renderDecoded = millisecondsSince(start);
        return time;
    }

private:
    void render(const Image& image) {
        _context->render(image, {0, 0, kWidth, kHeight}, PixelFormat::BGRA8Premultiplied, _pixels.data(),
                         static_cast<size_t>(kWidth) * 4);
    }

    std::shared_ptr<QVProject> _project;
    std::shared_ptr<RenderContext> _context;
    std::vector<uint8_t> _pixels;
};

// Where a frame's time goes: reading the stored bytes and composing the graph, decoding the
// frames (the render's extra time over a render of frames already decoded), and rendering.
void printRow(const char* label, const std::vector<FrameTime>& frames) {
    FrameTime sum;
    for (const auto& f : frames) {
        sum.read += f.read;
        sum.compose += f.compose;
        sum.render += f.render;
        sum.renderDecoded += f.renderDecoded;
    }
    const double n = static_cast<double>(frames.size());
    std::printf("  %-16s %5.1f fps %6.2f ms/frame: read %4.2f, compose %4.2f, JPEG decode %5.2f, render %5.2f\n", label,
                1000.0 * n / sum.total(), sum.total() / n, sum.read / n, sum.compose / n,
                (sum.render - sum.renderDecoded) / n, sum.renderDecoded / n);
}

}  // namespace
}  // namespace qm

int main() {
    using namespace qm;
    bench::PrivateUserFolders directory("composition_bench");
    std::printf(
        "composition of %dx%d frames: two stored 1080p clips under Dissolve, a picture with shadow and "
        "entrance\n",
        kWidth, kHeight);
    const auto start = Clock::now();
    const StoredFrames a = storeFrames(0);
    const StoredFrames b = storeFrames(1);
    const std::string picture = writeOverlayPicture(directory.path());
    std::printf("  stored 2 x %d frames in %.1f s, %.0f kB per frame\n", kClipFrames, millisecondsSince(start) / 1000,
                static_cast<double>(a.bytes + b.bytes) / (2.0 * kClipFrames * 1000));
    std::printf("  load average before: %s\n", bench::loadAverage().c_str());

    // The frames from 1 s before the overlap to its end: the entrance, clip A alone, the Dissolve.
    std::vector<int64_t> times;
    const int firstFrame = kClipFrames - kOverlapFrames - (kPassFrames - kOverlapFrames);
    for (int k = 0; k < kPassFrames; ++k) times.push_back((firstFrame + k) * kFrameDuration + kFrameDuration / 2);

    const Sources sources = freshSources(a, b, picture);
    FrameMaker maker(makeProject(sources));
    std::vector<FrameTime> cold;
    std::vector<FrameTime> warm;
    for (const int64_t t : times) cold.push_back(maker.make(t));
    for (const int64_t t : times) warm.push_back(maker.make(t));
    printRow("pass 1 (cold)", cold);
    printRow("pass 2 (warm)", warm);

    // Scrubbing: jumps to random frames of the Dissolve, never the frame shown before, so both
    // stored frames are read and decoded anew.
    std::mt19937 random(42);
    std::vector<FrameTime> single;
    const int overlapStart = kClipFrames - kOverlapFrames;
    int shown = -1;
    while (static_cast<int>(single.size()) < kRandomFrames) {
        const int frame = overlapStart + static_cast<int>(random() % kOverlapFrames);
        if (frame == shown) continue;
        shown = frame;
        single.push_back(maker.make(frame * kFrameDuration + kFrameDuration / 3));
    }
    printRow("scrub (Dissolve)", single);
    std::vector<double> totals;
    for (const auto& f : single) totals.push_back(f.total());
    std::sort(totals.begin(), totals.end());
    std::printf("  one cold frame in the Dissolve: median %.2f ms, worst %.2f ms of %d\n", totals[totals.size() / 2],
                totals.back(), kRandomFrames);

    double warmTotal = 0;
    for (const auto& f : warm) warmTotal += f.total();
    const double warmFps = 1000.0 * static_cast<double>(warm.size()) / warmTotal;
    std::printf("  target: %.0f fps warm %s, %.0f ms cold %s\n", kWarmTargetFps,
                warmFps >= kWarmTargetFps ? "met" : "MISSED", kColdTargetMs,
                totals[totals.size() / 2] <= kColdTargetMs ? "met" : "MISSED");
    return 0;
}
