#include <gtest/gtest.h>

#include <QApplication>
#include <QImage>
#include <cstdlib>
#include <memory>
#include <stdexcept>

#include "playback/views/QVOpenGLLayer.h"
#include "playback/views/QVPlayerView.h"
#include "support/HeadlessDesktop.h"

namespace qm {
namespace {

class Picture : public QVOpenGLLayerDataSource {
public:
    Image openGLLayerCurrentContent(QVOpenGLLayer&) override { return picture; }
    Image picture;
};

// QOpenGLWidget has no context on the offscreen platform, so these run on an Xvfb display with
// Mesa's software renderer.
class OpenGLLayerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        try {
            server = std::make_unique<test::PrivateDisplay>(640, 480);
        } catch (const std::runtime_error&) {
            return;
        }
        setenv("QT_QPA_PLATFORM", "xcb", 1);
        application = std::make_unique<QApplication>(argc, argv);
    }
    static void TearDownTestSuite() {
        application.reset();
        server.reset();
    }

    void SetUp() override {
        if (!application) GTEST_SKIP() << "Xvfb did not start, so no OpenGL context is to be had";
        layer = std::make_unique<QVOpenGLLayer>();
        layer->resize(80, 60);
        layer->setVideoSize({40, 30});
        layer->setDataSource(&picture);
        layer->show();
    }

    // The colour at (x, y) from the top left of the drawn frame.
    std::vector<int> pixel(int x, int y) {
        const QImage frame = layer->grabFramebuffer().convertToFormat(QImage::Format_RGBA8888);
        const uchar* p = frame.constScanLine(y) + x * 4;
        return {p[0], p[1], p[2], p[3]};
    }

    static inline int argc = 1;
    static inline char name[] = "opengl_layer_test";
    static inline char* argv[] = {name, nullptr};
    static inline std::unique_ptr<test::PrivateDisplay> server;
    static inline std::unique_ptr<QApplication> application;

    Picture picture;
    std::unique_ptr<QVOpenGLLayer> layer;
};

TEST_F(OpenGLLayerTest, NoPictureShowsTheClearedBlack) {
    ASSERT_TRUE(layer->context() != nullptr);
    EXPECT_EQ(pixel(0, 0), (std::vector<int>{0, 0, 0, 255}));
    EXPECT_EQ(pixel(79, 59), (std::vector<int>{0, 0, 0, 255}));
}

TEST_F(OpenGLLayerTest, SourceRectFillsTheWidgetTopUp) {
    // Quarters of a 40 x 30 picture (origin at the lower left): red and green on top, blue and
    // white below.
    auto quarter = [](const Color& color, double x, double y) {
        return Image::imageWithColor(color).cropped({x, y, 20, 15});
    };
    picture.picture = sourceOver(sourceOver(quarter({1, 0, 0, 1}, 0, 15), quarter({0, 1, 0, 1}, 20, 15)),
                                 sourceOver(quarter({0, 0, 1, 1}, 0, 0), quarter({1, 1, 1, 1}, 20, 0)));
    EXPECT_EQ(pixel(10, 10), (std::vector<int>{255, 0, 0, 255}));
    EXPECT_EQ(pixel(70, 10), (std::vector<int>{0, 255, 0, 255}));
    EXPECT_EQ(pixel(10, 50), (std::vector<int>{0, 0, 255, 255}));
    EXPECT_EQ(pixel(70, 50), (std::vector<int>{255, 255, 255, 255}));
}

TEST_F(OpenGLLayerTest, PremultipliedPictureBlendsOverBlack) {
    // Half-transparent red: premultiplied (0.5, 0, 0, 0.5) adds 128 of red to the black, where
    // blending by source alpha would give 64.
    picture.picture = Image::imageWithColor({1, 0, 0, 0.5});
    const auto p = pixel(40, 30);
    EXPECT_NEAR(p[0], 128, 1);
    EXPECT_EQ(p[1], 0);
    EXPECT_EQ(p[2], 0);
}

// A delegate with a 40 x 30 source of one colour.
class GreenSource : public QVPlayerViewDelegate {
public:
    Size QVPlayerViewSourceSize(QVPlayerViewInterface&) override { return {40, 30}; }
    Image QVPlayerViewCurrentContent(QVPlayerViewInterface&) override {
        return Image::imageWithColor({0, 1, 0, 1}).cropped({0, 0, 40, 30});
    }
};

TEST_F(OpenGLLayerTest, CanvasViewShowsItsPictureThroughTheOpenGLLayer) {
    QWidget window;
    window.resize(160, 60);
    auto* view = new QVPlayerView(&window, QVPlayerView::ContentLayer::OpenGL);
    view->resize(160, 60);
    ASSERT_EQ(view->metalLayer(), nullptr);
    GreenSource source;
    view->setDelegate(&source);
    window.show();
    view->reloadData();

    QVOpenGLLayer* viewLayer = view->openGLLayer();
    // A 4:3 picture in a 160 x 60 view: 80 x 60, centred.
    EXPECT_EQ(viewLayer->geometry(), QRect(40, 0, 80, 60));
    EXPECT_EQ(viewLayer->sourceRect(), (Rect{0, 0, 40, 30}));
    const QImage frame = viewLayer->grabFramebuffer().convertToFormat(QImage::Format_RGBA8888);
    ASSERT_EQ(frame.size(), QSize(80, 60));
    const uchar* p = frame.constScanLine(30) + 40 * 4;
    EXPECT_EQ((std::vector<int>{p[0], p[1], p[2], p[3]}), (std::vector<int>{0, 255, 0, 255}));
}

}  // namespace
}  // namespace qm
