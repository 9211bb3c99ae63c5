#include "playback/views/QVPlayerView.h"

#include <QPainter>
#include <cmath>

#include "platform/NotificationCenter.h"

namespace qm {

QVPlayerView::QVPlayerView(QWidget* parent, ContentLayer layer) : QWidget(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    if (layer == ContentLayer::OpenGL) {
        _openGLLayer = new QVOpenGLLayer(this);
        _openGLLayer->setDataSource(this);
    } else {
        _metalLayer = new QVMetalLayer(this);
        _metalLayer->setDataSource(this);
    }
}

QRect QVPlayerView::fittedRect(const Size& source, const QRect& bounds) {
    if (source.width <= 0 || source.height <= 0 || bounds.isEmpty()) return bounds;
    const double scale = std::min(bounds.width() / source.width, bounds.height() / source.height);
    const int width = int(std::lround(source.width * scale));
    const int height = int(std::lround(source.height * scale));
    return {bounds.x() + (bounds.width() - width) / 2, bounds.y() + (bounds.height() - height) / 2, width, height};
}

void QVPlayerView::reloadData() {
    const Size source = _delegate ? _delegate->QVPlayerViewSourceSize(*this) : Size{};
    const QRect placed = fittedRect(source, rect());
    const Rect bounds{0, 0, double(placed.width()), double(placed.height())};
    layerWidget()->setGeometry(placed);
    if (_metalLayer) {
        _metalLayer->setVideoSize(source);
        _metalLayer->setBoundsOfContent(bounds);
    } else {
        _openGLLayer->setVideoSize(source);
        _openGLLayer->setBoundsOfContent(bounds);
    }
    reloadContent(false);
}

void QVPlayerView::reloadContent(bool) {
    if (_metalLayer) {
        _metalLayer->setNeedsDisplay();
    } else {
        _openGLLayer->setNeedsDisplay();
    }
}

void QVPlayerView::reloadSelected() { update(); }

void QVPlayerView::paintEvent(QPaintEvent*) { QPainter(this).fillRect(rect(), Qt::black); }

void QVPlayerView::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    NotificationCenter::defaultCenter().post(QVPlayerViewFrameDidChangeNotification,
                                             static_cast<QVPlayerViewInterface*>(this));
}

Image QVPlayerView::metalLayerCurrentContent(QVMetalLayer&) { return currentContent(); }

Image QVPlayerView::openGLLayerCurrentContent(QVOpenGLLayer&) { return currentContent(); }

Image QVPlayerView::currentContent() { return _delegate ? _delegate->QVPlayerViewCurrentContent(*this) : Image(); }

QWidget* QVPlayerView::layerWidget() const {
    return _metalLayer ? static_cast<QWidget*>(_metalLayer) : static_cast<QWidget*>(_openGLLayer);
}

}  // namespace qm
