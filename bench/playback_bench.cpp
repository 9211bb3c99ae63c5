// Playback of a 1920x1080 project for 30 seconds on SDL's dummy audio driver: two stored 1080p
// video clips overlapping under a Dissolve, and 8 tracks of stereo sound. The canvas is a headless
// view that renders every frame it is asked to show into BGRA memory, as the raster content layer
// does. Prints the frames shown per second and the longest gap between two, the cost of the audio
// fill per 512-sample block (target under 1 ms) with the underruns (target none), and how far the
// audio clock is from the video clock at the end.
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <vector>

#include "BenchMedia.h"
#include "BenchSupport.h"
#include "codec/QVAudioFrame2.h"
#include "codec/QVTimebase.h"
#include "effects/QVTransitionInstance.h"
#include "image/RenderContext.h"
#include "platform/Bitmap.h"
#include "platform/Dispatch.h"
#include "playback/QVPlayerViewCtrl.h"
#include "project/QVMediaClip.h"
#include "project/QVProject.h"
#include "project/QVTrack.h"
#include "store/SCAudioResource.h"
#include "store/SCResource.h"
#include "store/SCResourceStorage.h"
#include "store/SCVideoResource.h"

namespace qm {
namespace {

using bench::Clock;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kFps = 30;
constexpr int64_t kFrameDuration = QVTimebase / kFps;
constexpr int kClipFrames = 17 * kFps;
constexpr int kOverlapFrames = 3 * kFps;
// Distinct pictures per clip; the stored frames cycle through them.
constexpr int kDistinctFrames = 24;
constexpr int kAudioTracks = 8;
constexpr int64_t kSampleRate = 48000;
constexpr int64_t kAudioSeconds = 32;
constexpr double kPlaySeconds = 30;

// A stored 1080p clip of kClipFrames JPEG frames, as import leaves it.
std::shared_ptr<SCResource> storedMovie(int seed) {
    auto storage = SCResourceStorage::create();
    std::vector<std::pair<uint64_t, uint64_t>> pictures;
    uint64_t offset = 0;
    for (int k = 0; k < kDistinctFrames; ++k) {
        const auto jpeg = SCResource::encodeCGImage(bench::cameraFrame(kWidth, kHeight, k, seed, 40));
        storage->appendData(jpeg);
        pictures.emplace_back(offset, jpeg.size());
        offset += jpeg.size();
    }
    storage->flushCacheBuffer();
    std::vector<std::shared_ptr<SCVideoBlock>> blocks;
    for (int k = 0; k < kClipFrames; ++k) {
        const auto& [at, size] = pictures[k % kDistinctFrames];
        blocks.push_back(SCVideoBlock::createWithOffset(at, size, k * kFrameDuration, kFrameDuration));
    }
    return SCResource::createWithIdentifierAudioVideo(
        "playback-bench-" + std::to_string(seed), nullptr,
        SCVideoResource::createWithStorage(storage, std::move(blocks), kWidth, kHeight));
}

std::shared_ptr<QVProject> makeProject() {
    auto project = QVProject::create();
    project->setOutVideoWidth(kWidth);
    project->setOutVideoHeight(kHeight);
    project->setOutVideoFPS(kFps);

    auto first = QVMediaClip::createWithResource(storedMovie(0));
    auto second = QVMediaClip::createWithResource(storedMovie(1));
    first->clipPosition()->setBounds({0, 0, kWidth, kHeight});
    second->clipPosition()->setBounds({0, 0, kWidth, kHeight});
    first->transitionInstance()->setTransitionName("Dissolve");
    auto pictures = QVTrack::createWithProject(project);
    project->addTracksObject(pictures);
    pictures->addClip(first);
    second->setTimestampOfTrack((kClipFrames - kOverlapFrames) * kFrameDuration);
    pictures->addClip(second);

    for (int t = 0; t < kAudioTracks; ++t) {
        auto track = QVTrack::createWithProject(project);
        project->addTracksObject(track);
        auto clip = QVMediaClip::createWithResource(bench::storedSine(220.0 * (t + 1), 0.1, kSampleRate, kAudioSeconds));
        clip->setFadeIn(true);
        clip->setFadeOut(true);
        clip->setDurationOfFadeIn(QVTimebase / 2);
        clip->setDurationOfFadeOut(QVTimebase / 2);
        track->addClip(clip);
    }
    return project;
}

// A canvas without a window: each frame it is asked to show is rendered to BGRA, and the times of
// the frames shown while playing are kept.
class HeadlessCanvas : public QVPlayerViewInterface {
public:
    void reloadData() override {}
    void reloadContent(bool playing) override {
        if (_delegate) {
            _context->render(_delegate->QVPlayerViewCurrentContent(*this), {0, 0, kWidth, kHeight},
                             PixelFormat::BGRA8Premultiplied, _pixels.data(), size_t(kWidth) * 4);
        }
        if (playing) shown.push_back(Clock::now());
    }
    void reloadSelected() override {}
    bool hasSuperview() const override { return true; }
    void setDelegate(QVPlayerViewDelegate* delegate) override { _delegate = delegate; }

    std::vector<Clock::time_point> shown;

private:
    QVPlayerViewDelegate* _delegate = nullptr;
    std::shared_ptr<RenderContext> _context = RenderContext::create();
    std::vector<uint8_t> _pixels = std::vector<uint8_t>(size_t(kWidth) * kHeight * 4);
};

int run() {
    setenv("SDL_AUDIODRIVER", "dummy", 1);
    bench::PrivateUserFolders folders("playback_bench");
    std::printf("load average: %s\n", bench::loadAverage().c_str());
    const auto madeAt = Clock::now();
    const auto project = makeProject();
    std::printf("project: %.1f s of 1920x1080 with a 3 s Dissolve and %d sound tracks, made in %.1f s\n",
                double(project->duration()) / QVTimebase, kAudioTracks, bench::millisecondsSince(madeAt) / 1000.0);

    HeadlessCanvas canvas;
    auto ctrl = QVPlayerViewCtrl::create();
    ctrl->setView(&canvas);
    ctrl->setProject(project);
    // The first frame before the clock starts, as a canvas shows it before play.
    canvas.reloadContent(false);
    if (!ctrl->play()) {
        std::printf("playback did not start\n");
        return 1;
    }
    const auto startedAt = Clock::now();
    MainLoop::runUntil([] { return false; }, std::chrono::duration_cast<std::chrono::nanoseconds>(
                                                 std::chrono::duration<double>(kPlaySeconds)));
    const double played = std::chrono::duration<double>(Clock::now() - startedAt).count();
    const int64_t indexAtEnd = ctrl->indexOfSampleStart();
    const int64_t timestampAtEnd = project->currentTimestamp();
    const QVAudioPlayerStatistics audio = ctrl->audioPlayer()->statistics();
    ctrl->pause();
    MainLoop::runUntil([] { return false; }, std::chrono::milliseconds(200));
    ctrl->setView(nullptr);

    double longestGap = 0;
    for (size_t i = 1; i < canvas.shown.size(); ++i) {
        longestGap = std::max(longestGap,
                              std::chrono::duration<double, std::milli>(canvas.shown[i] - canvas.shown[i - 1]).count());
    }
    const double fillMean = audio.fills ? double(audio.totalFillTime.count()) / double(audio.fills) / 1e6 : 0;
    const double audioClock = double(indexAtEnd) / kSampleRate;
    const double videoClock = double(timestampAtEnd) / QVTimebase;
    std::printf("played %.1f s: %zu frames shown, %.1f frames per second, longest gap between two %.1f ms\n", played,
                canvas.shown.size(), double(canvas.shown.size()) / played, longestGap);
    std::printf("audio fill per %d-sample block: mean %.3f ms, longest %.3f ms (target under 1 ms), %lld fills\n",
                QVAudioPlayer::kBlockFrames, fillMean, double(audio.longestFillTime.count()) / 1e6,
                static_cast<long long>(audio.fills));
    std::printf("underruns: %lld (target none)\n", static_cast<long long>(audio.underruns));
    std::printf("audio clock %.3f s, video clock %.3f s: audio ahead by %.1f ms\n", audioClock, videoClock,
                (audioClock - videoClock) * 1000.0);
    return 0;
}

}  // namespace
}  // namespace qm

int main() { return qm::run(); }
