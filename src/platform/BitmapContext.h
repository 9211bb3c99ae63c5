#pragma once

#include <memory>

#include "platform/AffineTransform.h"
#include "platform/Bitmap.h"
#include "platform/Color.h"
#include "platform/Geometry.h"

typedef struct _cairo cairo_t;
typedef struct _cairo_surface cairo_surface_t;

namespace qm {

class BezierPath;

// A drawing context over a new transparent bitmap of width x height pixels, not flipped: the origin
// is at the lower left and y grows upward (a bitmap graphics context). Drawing is done by cairo;
// makeBitmap hands the pixels over as a Bitmap (premultiplied RGBA, row 0 at the top).
class BitmapContext {
public:
    // Nothing when a side is not positive or the pixels cannot be had.
    static std::unique_ptr<BitmapContext> create(int width, int height);
    ~BitmapContext();
    BitmapContext(const BitmapContext&) = delete;
    BitmapContext& operator=(const BitmapContext&) = delete;

    int width() const { return _width; }
    int height() const { return _height; }

    void setFillColor(const Color& color) { _fillColor = color; }
    void setStrokeColor(const Color& color) { _strokeColor = color; }
    // Points drawn later go through `transform` first, then through what the context already has.
    void concatTransform(const AffineTransform& transform);
    void translate(double x, double y);

    // Fills the path with the fill colour (non-zero winding).
    void fillPath(const BezierPath& path);
    // Strokes the path with the stroke colour and the path's width, cap and join.
    void strokePath(const BezierPath& path);

    // The cairo context, with its user space set to this context's coordinates.
    cairo_t* cairo() const { return _cairo; }

    // The pixels drawn so far as a Bitmap.
    std::shared_ptr<const Bitmap> makeBitmap() const;

private:
    BitmapContext(int width, int height, cairo_surface_t* surface, cairo_t* cairo);
    void setSource(const Color& color) const;

    int _width;
    int _height;
    cairo_surface_t* _surface;
    cairo_t* _cairo;
    Color _fillColor = Color::black();
    Color _strokeColor = Color::black();
};

}  // namespace qm
