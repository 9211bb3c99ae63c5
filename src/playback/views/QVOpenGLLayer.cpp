#include "playback/views/QVOpenGLLayer.h"

#include <QMatrix4x4>
#include <cmath>
#include <vector>

namespace qm {
namespace {

constexpr const char* kVertexShader = R"(
attribute vec2 position;
attribute vec2 texCoord;
uniform mat4 projection;
varying vec2 v_texCoord;
void main() {
    v_texCoord = texCoord;
    gl_Position = projection * vec4(position, 0.0, 1.0);
})";

constexpr const char* kFragmentShader = R"(
varying highp vec2 v_texCoord;
uniform sampler2D frame;
void main() {
    gl_FragColor = texture2D(frame, v_texCoord);
})";

}  // namespace

QVOpenGLLayer::QVOpenGLLayer(QWidget* parent) : QOpenGLWidget(parent) {
    _boundsOfContent = {0, 0, double(width()), double(height())};
}

QVOpenGLLayer::~QVOpenGLLayer() { releaseGL(); }

const std::shared_ptr<RenderContext>& QVOpenGLLayer::context() {
    if (!_context) _context = RenderContext::create();
    return _context;
}

Image QVOpenGLLayer::content() { return _dataSource ? _dataSource->openGLLayerCurrentContent(*this) : Image(); }

void QVOpenGLLayer::initializeGL() {
    initializeOpenGLFunctions();
    glClearColor(0, 0, 0, 1);
    _program = std::make_unique<QOpenGLShaderProgram>();
    _program->addShaderFromSourceCode(QOpenGLShader::Vertex, kVertexShader);
    _program->addShaderFromSourceCode(QOpenGLShader::Fragment, kFragmentShader);
    _program->link();
    glGenTextures(1, &_texture);
    glBindTexture(GL_TEXTURE_2D, _texture);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
}

void QVOpenGLLayer::releaseGL() {
    if (!_program) return;
    makeCurrent();
    glDeleteTextures(1, &_texture);
    _texture = 0;
    _program.reset();
    doneCurrent();
}

void QVOpenGLLayer::paintGL() {
    const int backingWidth = int(width() * devicePixelRatioF());
    const int backingHeight = int(height() * devicePixelRatioF());
    glViewport(0, 0, backingWidth, backingHeight);
    QMatrix4x4 projection;
    projection.ortho(0, float(backingWidth), 0, float(backingHeight), -1, 1);

    glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    glEnable(GL_BLEND);
    glClear(GL_COLOR_BUFFER_BIT);
    glDisable(GL_DEPTH_TEST);

    const Image image = content();
    if (image.isNull() || !_program || !uploadFrame(image)) return;

    const float w = float(backingWidth);
    const float h = float(backingHeight);
    // The texture's first row is the top of the picture.
    const GLfloat positions[] = {0, 0, w, 0, 0, h, w, h};
    const GLfloat texCoords[] = {0, 1, 1, 1, 0, 0, 1, 0};
    _program->bind();
    _program->setUniformValue("projection", projection);
    _program->setUniformValue("frame", 0);
    _program->enableAttributeArray("position");
    _program->enableAttributeArray("texCoord");
    _program->setAttributeArray("position", GL_FLOAT, positions, 2);
    _program->setAttributeArray("texCoord", GL_FLOAT, texCoords, 2);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, _texture);
    glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
    _program->disableAttributeArray("position");
    _program->disableAttributeArray("texCoord");
    _program->release();
}

bool QVOpenGLLayer::uploadFrame(const Image& image) {
    const Rect source = sourceRect();
    const int frameWidth = int(std::ceil(source.size.width));
    const int frameHeight = int(std::ceil(source.size.height));
    if (frameWidth <= 0 || frameHeight <= 0) return false;
    std::vector<uint8_t> pixels(size_t(frameWidth) * size_t(frameHeight) * 4);
    context()->render(image, source, PixelFormat::RGBA8Premultiplied, pixels.data(), size_t(frameWidth) * 4);
    glBindTexture(GL_TEXTURE_2D, _texture);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, frameWidth, frameHeight, 0, GL_RGBA, GL_UNSIGNED_BYTE, pixels.data());
    return true;
}

}  // namespace qm
