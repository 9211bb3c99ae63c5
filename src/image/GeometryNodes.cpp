#include <algorithm>
#include <cmath>
#include <cstdint>

#include "image/Nodes.h"
#include "image/PixelMath.h"
#include "image/PixelRows.h"
#include "image/RenderPass.h"
#include "image/dsp/FixedPoint.h"
#include "platform/Bitmap.h"

namespace qm {

namespace {

// The indexes i in [0, count) for which lo <= a + i * d <= hi may hold, with a pixel to spare on
// each side: [first, last).
std::pair<int, int> spanWithin(double a, double d, double lo, double hi, int count) {
    if (d == 0) return a >= lo && a <= hi ? std::pair{0, count} : std::pair{0, 0};
    double t0 = (lo - a) / d;
    double t1 = (hi - a) / d;
    if (t0 > t1) std::swap(t0, t1);
    const int first = int(std::clamp(std::floor(t0) - 1, 0.0, double(count)));
    const int last = int(std::clamp(std::ceil(t1) + 2, 0.0, double(count)));
    return first < last ? std::pair{first, last} : std::pair{0, 0};
}

}  // namespace

CropNode::CropNode(const Image& input, const Rect& extent) : ImageNode(extent, {input}) {}

void CropNode::render(RenderPass& pass, const ImageTile& out) const { pass.renderInto(input(0), out); }

const Bitmap* CropNode::directBitmap(PixelRect& bounds) const {
    const Bitmap* bitmap = input(0).directBitmap(bounds);
    bounds = bounds.intersection(pixelBounds());
    return bitmap;
}

bool CropNode::isOpaqueOver(const PixelRect& rect) const {
    return pixelBounds().contains(rect) && input(0).isOpaqueOver(rect);
}

TransformNode::TransformNode(const Image& input, const AffineTransform& transform, Interpolation interpolation,
                             const Rect& extent)
    : ImageNode(extent, {input}), _transform(transform), _inverse(transform), _interpolation(interpolation) {
    _inverse.invert();
    _samples = interpolation == Interpolation::Nearest ? 1 : samplesPerAxis(_inverse);
}

int TransformNode::samplesPerAxis(const AffineTransform& inverse) {
    // How far apart, in input pixels, neighbouring output pixels land. A bilinear sample spans
    // two input pixels; beyond that 2 x 2 samples per output pixel keep most detail from aliasing
    // at a bounded cost.
    const double footprint = std::max(std::hypot(inverse.m11, inverse.m12), std::hypot(inverse.m21, inverse.m22));
    return footprint > 2 ? 2 : 1;
}

PixelRect TransformNode::regionOfInterest(size_t, const PixelRect& rect) const {
    return PixelRect::enclosing(_inverse.transformRect(rect.toRect())).outsetBy(1, 1);
}

bool TransformNode::isOpaqueOver(const PixelRect& rect) const {
    return pixelBounds().contains(rect) && input(0).isOpaqueOver(regionOfInterest(0, rect));
}

void TransformNode::render(RenderPass& pass, const ImageTile& out) const {
    const ImageNode& in = input(0);
    const AffineTransform& t = _transform;
    if (t.m11 == 1 && t.m12 == 0 && t.m21 == 0 && t.m22 == 1 && t.tX == std::round(t.tX) && t.tY == std::round(t.tY)) {
        // A move by whole pixels: the input renders straight into the output's memory.
        ImageTile moved = out;
        moved.rect.x -= int(t.tX);
        moved.rect.y -= int(t.tY);
        pass.renderInto(in, moved);
        return;
    }
    const PixelRect roi = regionOfInterest(0, out.rect);
    PixelRect bounds = in.pixelBounds();
    if (const Bitmap* bitmap = in.directBitmap(bounds)) {
        renderFromBitmap(*bitmap, bounds, out);
        return;
    }
    if (const auto* crop = dynamic_cast<const CropNode*>(&in); crop && _interpolation == Interpolation::Linear) {
        if (const auto color = crop->input(0).constantColor()) {
            renderFromColorRect(*color, crop->pixelBounds(), out);
            return;
        }
    }
    // One pixel of transparent margin around the input keeps every sample inside the view.
    const PixelRect viewRect = roi.intersection(in.pixelBounds().outsetBy(1, 1));
    if (viewRect.width < 2 || viewRect.height < 2) {
        // Nothing but the transparent margin is in reach.
        out.clear();
        return;
    }
    const TileView view = pass.view(in, viewRect);
    renderFromTile(view.tile(), out);
}

std::vector<std::pair<double, double>> TransformNode::sampleOffsets() const {
    std::vector<std::pair<double, double>> offsets;
    for (int sy = 0; sy < _samples; ++sy)
        for (int sx = 0; sx < _samples; ++sx) {
            const double ox = (sx + 0.5) / _samples - 0.5;
            const double oy = (sy + 0.5) / _samples - 0.5;
            offsets.emplace_back(_inverse.m11 * ox + _inverse.m21 * oy, _inverse.m12 * ox + _inverse.m22 * oy);
        }
    return offsets;
}

template <typename Sample>
void TransformNode::resample(const ImageTile& out, Point origin, const Sample& sample) const {
    // sample(u, v) reads the input at (u, v) counted from `origin` in pixels, pixel centres on
    // whole numbers.
    const float du = float(_inverse.m11);
    const float dv = float(_inverse.m12);
    std::vector<std::pair<float, float>> offsets;
    for (const auto& [ou, ov] : sampleOffsets()) offsets.emplace_back(float(ou), float(ov));
    const float norm = 1.f / float(offsets.size());
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        const Point p = _inverse.transformPoint({out.rect.x + 0.5, y + 0.5});
        const float u0 = float(p.x - 0.5 - origin.x);
        const float v0 = float(p.y - 0.5 - origin.y);
        float* dst = out.row(y);
        if (_samples == 1) {
            for (int i = 0; i < out.rect.width; ++i) storeFloat4(dst + 4 * i, sample(u0 + i * du, v0 + i * dv));
            continue;
        }
        for (int i = 0; i < out.rect.width; ++i) {
            const float u = u0 + i * du;
            const float v = v0 + i * dv;
            Float4 sum = splat(0.f);
            for (const auto& [ou, ov] : offsets) sum += sample(u + ou, v + ov);
            storeFloat4(dst + 4 * i, sum * norm);
        }
    }
}

void TransformNode::renderFromTile(const ConstImageTile& in, const ImageTile& out) const {
    const int lastX = in.rect.width - 1;
    const int lastY = in.rect.height - 1;
    const Point origin{double(in.rect.x), double(in.rect.y)};
    if (_interpolation == Interpolation::Nearest) {
        resample(out, origin, [&](float u, float v) {
            const int x = std::clamp(fastFloor(u + 0.5f), 0, lastX);
            const int y = std::clamp(fastFloor(v + 0.5f), 0, lastY);
            return loadFloat4(in.pixels + y * in.rowStride + 4 * x);
        });
        return;
    }
    // The view has a transparent margin, so clamping to it only guards against rounding.
    resample(out, origin, [&](float u, float v) {
        const int x0 = std::clamp(fastFloor(u), 0, lastX - 1);
        const int y0 = std::clamp(fastFloor(v), 0, lastY - 1);
        const float tx = std::clamp(u - float(x0), 0.f, 1.f);
        const float ty = std::clamp(v - float(y0), 0.f, 1.f);
        const float* p0 = in.pixels + y0 * in.rowStride + 4 * x0;
        const float* p1 = p0 + in.rowStride;
        return mix(mix(loadFloat4(p0), loadFloat4(p0 + 4), tx), mix(loadFloat4(p1), loadFloat4(p1 + 4), tx), ty);
    });
}

void TransformNode::renderFromBitmap(const Bitmap& bitmap, const PixelRect& bounds, const ImageTile& out) const {
    const std::ptrdiff_t stride = std::ptrdiff_t(bitmap.bytesPerRow());
    // Rows read the bitmap six rows ahead of where their pixels land.
    constexpr int kRowsAhead = 6;
    const std::ptrdiff_t readAhead = std::ptrdiff_t(std::lround(kRowsAhead * _inverse.m21)) * 4 -
                                     std::ptrdiff_t(std::lround(kRowsAhead * _inverse.m22)) * stride;
    const BitmapView view{bitmap.imageRow(0), stride, bounds, readAhead};
    if (_interpolation == Interpolation::Nearest) {
        resample(out, {}, [&](float u, float v) {
            return view.pixel(fastFloor(u + 0.5f), fastFloor(v + 0.5f)) * kByteToFloat;
        });
        return;
    }
    // Positions in 16.16 fixed point step along each row; each output pixel averages its samples,
    // offset by `offsets` from the pixel's centre.
    const int64_t du = fixed::position(_inverse.m11);
    const int64_t dv = fixed::position(_inverse.m12);
    std::vector<std::pair<int64_t, int64_t>> offsets;
    for (const auto& [ou, ov] : sampleOffsets()) offsets.emplace_back(fixed::position(ou), fixed::position(ov));
    const float scale = kByteToFloat / float(offsets.size());
    // Samples reach this far (in pixels) from a pixel's mapped centre; beyond it and one more
    // pixel around the bounds, a pixel is transparent.
    double reach = 1;
    for (const auto& [ou, ov] : offsets)
        reach = std::max({reach, 1 + std::fabs(fixed::pixels(ou)), 1 + std::fabs(fixed::pixels(ov))});
    ScratchLease sampleLease;
    if (_samples > 1) sampleLease = ScratchLease::acquire(size_t(out.rect.width) * 4);
    float* samples = sampleLease.data();
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        // Positions count from column 0 of the row, so a pixel's value does not depend on where its
        // tile starts.
        const Point p = _inverse.transformPoint({0.5, y + 0.5});
        const int64_t rowU = fixed::position(p.x - 0.5) + out.rect.x * du;
        const int64_t rowV = fixed::position(p.y - 0.5) + out.rect.x * dv;
        float* dst = out.row(y);
        const int width = out.rect.width;
        // Only the pixels whose samples can touch the bitmap are sampled.
        const auto [firstU, lastU] =
            spanWithin(fixed::pixels(rowU), fixed::pixels(du), bounds.x - reach, bounds.maxX() + reach, width);
        const auto [firstV, lastV] =
            spanWithin(fixed::pixels(rowV), fixed::pixels(dv), bounds.y - reach, bounds.maxY() + reach, width);
        const int first = std::max(firstU, firstV);
        const int last = std::max(first, std::min(lastU, lastV));
        std::fill(dst, dst + 4 * first, 0.f);
        std::fill(dst + 4 * last, dst + 4 * width, 0.f);
        const int64_t u = rowU + first * du;
        const int64_t v = rowV + first * dv;
        if (_samples == 1) {
            sampleBitmapRow(view, u, v, du, dv, scale, dst + 4 * first, last - first);
            continue;
        }
        // Each sample position runs along the row in turn; the first fills the output, the others
        // are added in order.
        const int count = last - first;
        float* sum = dst + 4 * first;
        for (size_t k = 0; k < offsets.size(); ++k) {
            if (k == 0) {
                sampleBitmapRow(view, u + offsets[k].first, v + offsets[k].second, du, dv, 1.f, sum, count);
                continue;
            }
            sampleBitmapRow(view, u + offsets[k].first, v + offsets[k].second, du, dv, 1.f, samples, count);
            for (int i = 0; i < 4 * count; ++i) sum[i] += samples[i];
        }
        for (int i = 0; i < 4 * count; ++i) sum[i] *= scale;
    }
}

void TransformNode::renderFromColorRect(Float4 color, const PixelRect& bounds, const ImageTile& out) const {
    // Bilinear sampling of a rectangle of whole pixels is separable: along each axis the weight
    // ramps up over the pixel before the first column and down over the one after the last.
    auto ramp = [](Float4 t, float first, float end) {
        return minFloat4(splat(1.f), maxFloat4(splat(0.f), minFloat4(t - splat(first - 1), splat(end) - t)));
    };
    const auto offsets = sampleOffsets();
    const float norm = 1.f / float(offsets.size());
    const Float4 du = splat(float(_inverse.m11)), dv = splat(float(_inverse.m12));
    const Float4 lanes{0, 1, 2, 3};
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        const Point p = _inverse.transformPoint({out.rect.x + 0.5, y + 0.5});
        float* dst = out.row(y);
        for (int i = 0; i < out.rect.width; i += 4) {
            const Float4 step = splat(float(i)) + lanes;
            Float4 coverage = splat(0.f);
            for (const auto& [ou, ov] : offsets) {
                const Float4 u = splat(float(p.x - 0.5 + ou)) + step * du;
                const Float4 v = splat(float(p.y - 0.5 + ov)) + step * dv;
                coverage +=
                    ramp(u, float(bounds.x), float(bounds.maxX())) * ramp(v, float(bounds.y), float(bounds.maxY()));
            }
            coverage *= norm;
            for (int k = 0; k < 4 && i + k < out.rect.width; ++k) storeFloat4(dst + 4 * (i + k), color * coverage[k]);
        }
    }
}

}  // namespace qm
