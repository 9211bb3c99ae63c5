#pragma once

#include <QImage>
#include <QWidget>
#include <memory>

#include "image/Image.h"
#include "image/RenderContext.h"
#include "platform/AffineTransform.h"
#include "platform/Geometry.h"

namespace qm {

class QVMetalLayer;

class QVMetalLayerDataSource {
public:
    virtual ~QVMetalLayerDataSource() = default;
    // The picture to show; a null image when there is none.
    virtual Image metalLayerCurrentContent(QVMetalLayer& layer) { return {}; }
};

// The primary content layer: renders a picture, scaled from videoSize to boundsOfContent, into the
// widget's backing store on the calling thread. Each setNeedsDisplay renders at once; nothing is
// coalesced. A missing picture shows black.
class QVMetalLayer : public QWidget {
public:
    explicit QVMetalLayer(QWidget* parent = nullptr);

    // The renderer, made on first use.
    const std::shared_ptr<RenderContext>& context();

    // The data source's picture; null without a data source.
    Image content();
    QVMetalLayerDataSource* dataSource() const { return _dataSource; }
    // Not owned.
    void setDataSource(QVMetalLayerDataSource* dataSource) { _dataSource = dataSource; }
    Size videoSize() const { return _videoSize; }
    void setVideoSize(const Size& size) { _videoSize = size; }
    Rect boundsOfContent() const { return _boundsOfContent; }
    void setBoundsOfContent(const Rect& bounds) { _boundsOfContent = bounds; }

    // Scales videoSize to the size of boundsOfContent; an axis with no video size keeps scale 1.
    AffineTransform videoTransform() const;
    // renderContent, now.
    void setNeedsDisplay();
    // Renders the content over the widget's bounds and presents it.
    void renderContent();

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    std::shared_ptr<RenderContext> _context;
    QVMetalLayerDataSource* _dataSource = nullptr;
    Size _videoSize{800, 600};
    Rect _boundsOfContent;
    // The last rendered picture, what paintEvent presents.
    QImage _drawable;
};

}  // namespace qm
