#include "platform/BitmapContext.h"

#include <cairo.h>

#include <cstring>
#include <vector>

#include "platform/BezierPath.h"

namespace qm {

std::unique_ptr<BitmapContext> BitmapContext::create(int width, int height) {
    if (width <= 0 || height <= 0) return nullptr;
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(surface);
        return nullptr;
    }
    cairo_t* cairo = cairo_create(surface);
    const cairo_matrix_t yUp{1, 0, 0, -1, 0, static_cast<double>(height)};
    cairo_set_matrix(cairo, &yUp);
    return std::unique_ptr<BitmapContext>(new BitmapContext(width, height, surface, cairo));
}

BitmapContext::BitmapContext(int width, int height, cairo_surface_t* surface, cairo_t* cairo)
    : _width(width), _height(height), _surface(surface), _cairo(cairo) {}

BitmapContext::~BitmapContext() {
    cairo_destroy(_cairo);
    cairo_surface_destroy(_surface);
}

void BitmapContext::concatTransform(const AffineTransform& t) {
    const cairo_matrix_t matrix{t.m11, t.m12, t.m21, t.m22, t.tX, t.tY};
    cairo_transform(_cairo, &matrix);
}

void BitmapContext::translate(double x, double y) { cairo_translate(_cairo, x, y); }

void BitmapContext::setSource(const Color& color) const {
    cairo_set_source_rgba(_cairo, color.r, color.g, color.b, color.a);
}

void BitmapContext::fillPath(const BezierPath& path) {
    if (path.isEmpty()) return;
    path.appendToCairo(_cairo);
    setSource(_fillColor);
    cairo_set_fill_rule(_cairo, CAIRO_FILL_RULE_WINDING);
    cairo_fill(_cairo);
}

void BitmapContext::strokePath(const BezierPath& path) {
    if (path.isEmpty()) return;
    path.appendToCairo(_cairo);
    path.applyStrokeSettings(_cairo);
    setSource(_strokeColor);
    cairo_stroke(_cairo);
}

std::shared_ptr<const Bitmap> BitmapContext::makeBitmap() const {
    cairo_surface_flush(_surface);
    const unsigned char* source = cairo_image_surface_get_data(_surface);
    const int stride = cairo_image_surface_get_stride(_surface);
    std::vector<uint8_t> rgba(static_cast<size_t>(_width) * _height * 4);
    for (int y = 0; y < _height; ++y) {
        const auto* in = reinterpret_cast<const uint32_t*>(source + static_cast<size_t>(y) * stride);
        uint8_t* out = rgba.data() + static_cast<size_t>(y) * _width * 4;
        for (int x = 0; x < _width; ++x) {
            const uint32_t pixel = in[x];
            out[4 * x + 0] = static_cast<uint8_t>(pixel >> 16);
            out[4 * x + 1] = static_cast<uint8_t>(pixel >> 8);
            out[4 * x + 2] = static_cast<uint8_t>(pixel);
            out[4 * x + 3] = static_cast<uint8_t>(pixel >> 24);
        }
    }
    return Bitmap::createWithPixels(_width, _height, std::move(rgba));
}

}  // namespace qm
