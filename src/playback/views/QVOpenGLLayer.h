#pragma once

#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <QOpenGLWidget>
#include <memory>

#include "image/Image.h"
#include "image/RenderContext.h"
#include "platform/Geometry.h"

namespace qm {

class QVOpenGLLayer;

class QVOpenGLLayerDataSource {
public:
    virtual ~QVOpenGLLayerDataSource() = default;
    // The picture to show; a null image when there is none.
    virtual Image openGLLayerCurrentContent(QVOpenGLLayer& layer) { return {}; }
};

// The OpenGL content layer: at each paint it renders sourceRect of the picture, uploads it into a
// texture and draws that over the whole widget with premultiplied blending, on a black clear.
// setNeedsDisplay schedules a paint.
class QVOpenGLLayer : public QOpenGLWidget, protected QOpenGLFunctions {
public:
    explicit QVOpenGLLayer(QWidget* parent = nullptr);
    ~QVOpenGLLayer() override;

    // The renderer, made at the first paint with a picture.
    const std::shared_ptr<RenderContext>& context();

    // The data source's picture; null without a data source.
    Image content();
    QVOpenGLLayerDataSource* dataSource() const { return _dataSource; }
    // Not owned.
    void setDataSource(QVOpenGLLayerDataSource* dataSource) { _dataSource = dataSource; }
    Size videoSize() const { return _videoSize; }
    void setVideoSize(const Size& size) { _videoSize = size; }
    Rect boundsOfContent() const { return _boundsOfContent; }
    void setBoundsOfContent(const Rect& bounds) { _boundsOfContent = bounds; }

    // (0, 0, videoSize): the part of the picture that fills the widget.
    Rect sourceRect() const { return {{0, 0}, _videoSize}; }
    void setNeedsDisplay() { update(); }

protected:
    void initializeGL() override;
    void paintGL() override;

private:
    // Renders sourceRect of `image` into the texture; false when there is nothing to draw.
    bool uploadFrame(const Image& image);
    void releaseGL();

    std::shared_ptr<RenderContext> _context;
    QVOpenGLLayerDataSource* _dataSource = nullptr;
    Size _videoSize{800, 600};
    Rect _boundsOfContent;
    std::unique_ptr<QOpenGLShaderProgram> _program;
    GLuint _texture = 0;
};

}  // namespace qm
