#include "playback/views/QVMetalLayer.h"

#include <QPainter>

#include "effects/transitions/PSTransitionBase.h"
#include "platform/Color.h"

namespace qm {

QVMetalLayer::QVMetalLayer(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);
    _boundsOfContent = {0, 0, double(width()), double(height())};
}

const std::shared_ptr<RenderContext>& QVMetalLayer::context() {
    if (!_context) _context = RenderContext::create();
    return _context;
}

Image QVMetalLayer::content() { return _dataSource ? _dataSource->metalLayerCurrentContent(*this) : Image(); }

AffineTransform QVMetalLayer::videoTransform() const {
    const double scaleX = _videoSize.width > 0 ? _boundsOfContent.size.width / _videoSize.width : 1.0;
    const double scaleY = _videoSize.height > 0 ? _boundsOfContent.size.height / _videoSize.height : 1.0;
    AffineTransform transform;
    transform.scaleXBy(scaleX, scaleY);
    return transform;
}

void QVMetalLayer::setNeedsDisplay() { renderContent(); }

void QVMetalLayer::renderContent() {
    const QSize size = this->size();
    if (size.isEmpty()) return;
    Image image = content();
    image = image.isNull() ? Image::imageWithColor(Color::black())
                           : PSTransitionBase::transformImage(image, videoTransform());
    if (_drawable.size() != size) _drawable = QImage(size, QImage::Format_ARGB32_Premultiplied);
    static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN, "ARGB32 is B, G, R, A in memory");
    context()->render(image, {0, 0, double(size.width()), double(size.height())}, PixelFormat::BGRA8Premultiplied,
                      _drawable.bits(), size_t(_drawable.bytesPerLine()));
    repaint();
}

void QVMetalLayer::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    if (_drawable.isNull()) {
        painter.fillRect(rect(), Qt::black);
        return;
    }
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(0, 0, _drawable);
}

}  // namespace qm
