#include <gtest/gtest.h>

#include <QApplication>
#include <QEventLoop>
#include <QImage>
#include <QTimer>
#include <QWidget>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>
#include <vector>

#include "codec/QVTimebase.h"
#include "image/RenderContext.h"
#include "platform/Dispatch.h"
#include "playback/QVPlayerViewCtrl.h"
#include "playback/views/QVMetalLayer.h"
#include "playback/views/QVOpenGLLayer.h"
#include "playback/views/QVPlayerView.h"
#include "playback/views/QtMainQueue.h"
#include "project/QVMediaClip.h"
#include "project/QVProject.h"
#include "project/QVTrack.h"

#include "support/ModelConsistency.h"
#include "support/StoredMedia.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

using namespace std::chrono_literals;

// One application for the whole run, without a display.
void ensureApplication() {
    static int argc = 1;
    static char name[] = "content_layers_test";
    static char* argv[] = {name, nullptr};
    // Never destroyed: Qt's own objects may outlive the test's statics.
    static QApplication* application = [] {
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
        setenv("SDL_AUDIODRIVER", "dummy", 1);
        return new QApplication(argc, argv);
    }();
    (void)application;
}

// Runs Qt's event loop until `done` or the timeout; gives `done`'s last answer.
bool runQtUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout = 10s) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        QEventLoop loop;
        QTimer::singleShot(5, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

// The widget's pixels as premultiplied BGRA bytes, row by row from the top.
std::vector<uint8_t> grabbed(QWidget& widget) {
    const QImage image = widget.grab().toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
    std::vector<uint8_t> bytes;
    for (int y = 0; y < image.height(); ++y) {
        const uint8_t* row = image.constScanLine(y);
        bytes.insert(bytes.end(), row, row + image.width() * 4);
    }
    return bytes;
}

// `image` rendered over (0, 0, width, height) as premultiplied BGRA, as an opaque widget shows it:
// over black, so the premultiplied colour stays and alpha becomes 255.
std::vector<uint8_t> rendered(const Image& image, int width, int height) {
    std::vector<uint8_t> bytes(size_t(width) * height * 4);
    RenderContext::create()->render(image, {0, 0, double(width), double(height)}, PixelFormat::BGRA8Premultiplied,
                                    bytes.data(), size_t(width) * 4);
    for (size_t i = 3; i < bytes.size(); i += 4) bytes[i] = 255;
    return bytes;
}

std::vector<uint8_t> solidBGRA(int width, int height, uint8_t b, uint8_t g, uint8_t r) {
    std::vector<uint8_t> bytes;
    for (int i = 0; i < width * height; ++i) bytes.insert(bytes.end(), {b, g, r, 255});
    return bytes;
}

// Counts the requests and answers with a picture the test sets.
class PictureSource : public QVMetalLayerDataSource {
public:
    Image metalLayerCurrentContent(QVMetalLayer&) override {
        ++requests;
        return picture;
    }
    Image picture;
    int requests = 0;
};

class ContentLayersTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ensureApplication(); }
};

TEST_F(ContentLayersTest, VideoTransformScalesVideoSizeOntoTheContentBounds) {
    QVMetalLayer layer;
    EXPECT_EQ(layer.videoSize(), (Size{800, 600}));
    layer.setVideoSize({200, 100});
    layer.setBoundsOfContent({10, 20, 400, 50});
    AffineTransform transform = layer.videoTransform();
    EXPECT_DOUBLE_EQ(transform.m11, 2.0);
    EXPECT_DOUBLE_EQ(transform.m22, 0.5);
    EXPECT_EQ(transform.m12, 0.0);
    EXPECT_EQ(transform.tX, 0.0) << "the origin of the bounds does not move the picture";

    layer.setVideoSize({0, 100});
    transform = layer.videoTransform();
    EXPECT_EQ(transform.m11, 1.0) << "no video width keeps the x scale";
    EXPECT_DOUBLE_EQ(transform.m22, 0.5);
    layer.setVideoSize({200, 0});
    EXPECT_EQ(layer.videoTransform().m22, 1.0);
}

TEST_F(ContentLayersTest, OpenGLSourceRectIsTheVideoSize) {
    QVOpenGLLayer layer;
    EXPECT_EQ(layer.sourceRect(), (Rect{0, 0, 800, 600}));
    layer.setVideoSize({1920, 1080});
    layer.setBoundsOfContent({5, 5, 640, 360});
    EXPECT_EQ(layer.sourceRect(), (Rect{0, 0, 1920, 1080}));
    EXPECT_EQ(layer.boundsOfContent(), (Rect{5, 5, 640, 360}));
}

TEST_F(ContentLayersTest, MissingContentShowsBlack) {
    QVMetalLayer layer;
    layer.resize(40, 30);
    layer.setNeedsDisplay();
    EXPECT_EQ(grabbed(layer), solidBGRA(40, 30, 0, 0, 0)) << "without a data source";

    PictureSource source;
    layer.setDataSource(&source);
    layer.setNeedsDisplay();
    EXPECT_EQ(source.requests, 1);
    EXPECT_EQ(grabbed(layer), solidBGRA(40, 30, 0, 0, 0)) << "with a data source giving nothing";
}

TEST_F(ContentLayersTest, EverySetNeedsDisplayRendersAtOnce) {
    QVMetalLayer layer;
    layer.resize(20, 10);
    layer.setVideoSize({20, 10});
    layer.setBoundsOfContent({0, 0, 20, 10});
    PictureSource source;
    layer.setDataSource(&source);

    source.picture = Image::imageWithColor({1, 0, 0, 1});
    layer.setNeedsDisplay();
    source.picture = Image::imageWithColor({0, 0, 1, 1});
    layer.setNeedsDisplay();
    EXPECT_EQ(source.requests, 2) << "no coalescing";
    EXPECT_EQ(grabbed(layer), solidBGRA(20, 10, 255, 0, 0)) << "the latest picture is the one shown";
}

TEST_F(ContentLayersTest, PictureIsScaledFromVideoSizeToTheBounds) {
    QVMetalLayer layer;
    layer.resize(80, 60);
    layer.setVideoSize({40, 30});
    layer.setBoundsOfContent({0, 0, 80, 60});
    PictureSource source;
    // Red on the left half of a 40 x 30 picture, blue on the right.
    source.picture = sourceOver(Image::imageWithColor({1, 0, 0, 1}).cropped({0, 0, 20, 30}),
                                Image::imageWithColor({0, 0, 1, 1}).cropped({0, 0, 40, 30}));
    layer.setDataSource(&source);
    layer.setNeedsDisplay();

    const auto pixels = grabbed(layer);
    auto at = [&](int x, int y) {
        const uint8_t* p = &pixels[(size_t(y) * 80 + x) * 4];
        return std::vector<int>{p[2], p[1], p[0], p[3]};
    };
    EXPECT_EQ(at(10, 30), (std::vector<int>{255, 0, 0, 255}));
    EXPECT_EQ(at(36, 5), (std::vector<int>{255, 0, 0, 255})) << "the red half now reaches x = 40";
    EXPECT_EQ(at(44, 50), (std::vector<int>{0, 0, 255, 255}));
    EXPECT_EQ(at(76, 30), (std::vector<int>{0, 0, 255, 255}));
}

// A project of stored frames under a controller, shown by a canvas view inside a window.
class PlayerViewTest : public ModelTest {
protected:
    static constexpr int64_t kFrame = QVTimebase / 10;

    static void SetUpTestSuite() { ensureApplication(); }

    void SetUp() override {
        project->setOutVideoWidth(160);
        project->setOutVideoHeight(120);
        project->setBackgroundColor(Color{0, 0.5, 0, 1});
        auto movie = QVMediaClip::createWithResource(test::storedVideoResource(10, kFrame));
        movie->clipPosition()->setBounds({20, 10, 120, 90});
        movie->setTrackDuration(sec(1));
        auto track = QVTrack::createWithProject(project);
        project->addTracksObject(track);
        ASSERT_TRUE(track->addClip(movie));

        window.resize(160, 120);
        view->resize(160, 120);
        // Shown, so that a resize reaches the view at once.
        window.show();
        ctrl->setView(view);
        ctrl->setProject(project);
    }

    void TearDown() override {
        ctrl->pause();
        MainLoop::runUntil([] { return false; }, 150ms);
        ctrl->setView(nullptr);
        ModelTest::TearDown();
    }

    test::PrivateUserDirectories directories{"content_layers_test"};
    QWidget window;
    QVPlayerView* view = new QVPlayerView(&window);
    std::shared_ptr<QVPlayerViewCtrl> ctrl = QVPlayerViewCtrl::create();
};

TEST_F(PlayerViewTest, ShowsTheProjectsComposedFrameAtTheTimestamp) {
    EXPECT_TRUE(view->hasSuperview());
    EXPECT_EQ(view->metalLayer()->geometry(), QRect(0, 0, 160, 120));
    for (double seconds : {0.25, 0.75}) {
        project->setCurrentTimestamp(sec(seconds));
        EXPECT_EQ(grabbed(*view), rendered(project->currentImageForExport(false), 160, 120)) << seconds << " s";
    }
    const auto first = rendered(project->imageAtTimestamp(sec(0.25)), 160, 120);
    EXPECT_NE(grabbed(*view), first) << "another frame at another time";
}

TEST_F(PlayerViewTest, ALargerViewShowsTheFrameScaledToFit) {
    // 320 x 200 fits a 4:3 picture as 267 x 200, centred.
    view->resize(320, 200);
    const QRect placed = view->metalLayer()->geometry();
    EXPECT_EQ(placed, QRect(26, 0, 267, 200));
    project->setCurrentTimestamp(sec(0.5));
    const Image scaled = project->currentImageForExport(false).transformed(view->metalLayer()->videoTransform());
    EXPECT_EQ(grabbed(*view->metalLayer()), rendered(scaled, 267, 200));
    EXPECT_DOUBLE_EQ(view->metalLayer()->videoTransform().m11, 267.0 / 160);
}

TEST_F(PlayerViewTest, NoPictureShowsBlack) {
    project->setCurrentTimestamp(sec(5));
    EXPECT_EQ(grabbed(*view), solidBGRA(160, 120, 0, 0, 0)) << "after the end of the project";
    ctrl->setProject(nullptr);
    view->reloadContent(false);
    EXPECT_EQ(grabbed(*view), solidBGRA(160, 120, 0, 0, 0)) << "without a project";
}

TEST_F(PlayerViewTest, QtLoopDrainsTheMainQueueAndPlaysToTheEnd) {
    QtMainQueue pump;
    std::atomic<bool> ran{false};
    std::thread([&] { DispatchQueue::main().async([&] { ran = true; }); }).join();
    EXPECT_TRUE(runQtUntil([&] { return ran.load(); }));

    ASSERT_TRUE(ctrl->play());
    EXPECT_TRUE(runQtUntil([&] { return ctrl->state() == 0; }));
    EXPECT_GE(project->currentTimestamp(), project->duration());
    EXPECT_EQ(grabbed(*view), rendered(project->currentImageForExport(false), 160, 120));
}

}  // namespace
}  // namespace qm
