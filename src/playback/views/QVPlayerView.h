#pragma once

#include <QWidget>

#include "playback/QVPlayerViewInterface.h"
#include "playback/views/QVMetalLayer.h"
#include "playback/views/QVOpenGLLayer.h"

namespace qm {

// The canvas view: shows the picture its delegate gives, fitted into the view and centred on black,
// through one content layer chosen at creation.
class QVPlayerView : public QWidget,
                     public QVPlayerViewInterface,
                     private QVMetalLayerDataSource,
                     private QVOpenGLLayerDataSource {
public:
    enum class ContentLayer { Metal, OpenGL };

    explicit QVPlayerView(QWidget* parent = nullptr, ContentLayer layer = ContentLayer::Metal);

    // Exactly one of the two is set.
    QVMetalLayer* metalLayer() const { return _metalLayer; }
    QVOpenGLLayer* openGLLayer() const { return _openGLLayer; }

    // Places the content layer on the source size's fitted rectangle, then draws.
    void reloadData() override;
    void reloadContent(bool playing) override;
    // Repaints; the selection outline itself comes with canvas editing.
    void reloadSelected() override;
    bool hasSuperview() const override { return parentWidget() != nullptr; }
    void setDelegate(QVPlayerViewDelegate* delegate) override { _delegate = delegate; }
    QVPlayerViewDelegate* delegate() const { return _delegate; }

    // The largest rectangle of `source`'s aspect that fits `bounds`, centred, in whole pixels.
    static QRect fittedRect(const Size& source, const QRect& bounds);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    Image metalLayerCurrentContent(QVMetalLayer& layer) override;
    Image openGLLayerCurrentContent(QVOpenGLLayer& layer) override;
    Image currentContent();
    QWidget* layerWidget() const;

    QVPlayerViewDelegate* _delegate = nullptr;
    QVMetalLayer* _metalLayer = nullptr;
    QVOpenGLLayer* _openGLLayer = nullptr;
};

}  // namespace qm
