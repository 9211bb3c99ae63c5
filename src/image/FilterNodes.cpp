#include <algorithm>
#include <cmath>
#include <vector>

#include "image/Nodes.h"
#include "image/PixelMath.h"
#include "image/PixelRows.h"
#include "image/RenderPass.h"

namespace qm {

namespace {

std::vector<float> gaussianWeights(double sigma, int reach) {
    std::vector<float> weights(size_t(2 * reach + 1));
    double sum = 0;
    for (int t = -reach; t <= reach; ++t) sum += weights[size_t(t + reach)] = float(std::exp(-0.5 * t * t / (sigma * sigma)));
    for (float& w : weights) w = float(w / sum);
    return weights;
}

// The blurred picture at reduced size: low-resolution pixel (i, j) stands for the block of
// factor x factor pixels starting at (i * factor, j * factor).
struct ReducedBlur final : PreparedData {
    PixelRect rect;  // in low-resolution pixels
    ScratchLease pixels;
};

}  // namespace

namespace {

// Blurs from a standard deviation of 3 pixels up run at reduced size, halving while the reduced
// deviation stays at 1.5 pixels or more.
int reductionFor(double sigma) {
    int factor = 1;
    while (sigma / (factor * 2) >= 1.5) factor *= 2;
    return factor;
}

Image reducedSource(const Image& source, int factor) {
    if (factor == 1) return source;
    AffineTransform shrink;
    shrink.scaleBy(1.0 / factor);
    return source.transformed(shrink);
}

Rect blurExtent(const Image& source, double sigma) {
    if (source.hasInfiniteExtent()) return Image::infiniteExtent();
    return source.extent().insetBy(-3 * sigma, -3 * sigma).intersection(Image::infiniteExtent());
}

// The reduced pixels from which bilinear enlargement by `factor` fills `rect`, grown by `reach`.
PixelRect reducedNeed(const PixelRect& rect, int factor, int reach) {
    // Output pixel x samples reduced position (x + 0.5) / factor - 0.5.
    const int x0 = int(std::floor((rect.x + 0.5) / factor - 0.5));
    const int y0 = int(std::floor((rect.y + 0.5) / factor - 0.5));
    const int x1 = int(std::floor((rect.maxX() - 0.5) / factor - 0.5)) + 2;
    const int y1 = int(std::floor((rect.maxY() - 0.5) / factor - 0.5)) + 2;
    return PixelRect{x0, y0, x1 - x0, y1 - y0}.outsetBy(reach, reach);
}

}  // namespace

GaussianBlurNode::GaussianBlurNode(const Image& source, double sigma, std::optional<Rect> extent)
    : ImageNode(extent ? *extent : blurExtent(source, sigma), {reducedSource(source, reductionFor(sigma))}),
      _source(source),
      _sigma(sigma),
      _factor(reductionFor(sigma)),
      _sigmaUsed(sigma) {
    if (_factor > 1) {
        // Shrinking (n x n bilinear samples per reduced pixel) and enlarging (bilinear) each blur
        // a little; the Gaussian at reduced size gets the variance that is left.
        const double k = _factor;
        const double n = TransformNode::samplesPerAxis(AffineTransform{k, 0, 0, k, 0, 0});
        const double shrinkVariance = k * k * (n * n - 1) / (12 * n * n) + 1.0 / 6;
        const double enlargeVariance = k * k / 6;
        _sigmaUsed = std::sqrt(std::max(sigma * sigma - shrinkVariance - enlargeVariance, 0.25 * k * k)) / k;
    }
    _reach = std::max(1, int(std::ceil(3 * _sigmaUsed)));
}

PixelRect GaussianBlurNode::regionOfInterest(size_t, const PixelRect& rect) const {
    if (_factor == 1) return rect.outsetBy(_reach, _reach);
    return reducedNeed(rect, _factor, _reach);
}

std::unique_ptr<PreparedData> GaussianBlurNode::prepare(RenderPass& pass, const PixelRect& region) const {
    auto data = std::make_unique<ReducedBlur>();
    const PixelRect low = reducedNeed(region, _factor, _reach);
    data->rect = low;
    const std::ptrdiff_t stride = std::ptrdiff_t(low.width) * 4;
    const TileView reduced = pass.view(input(0), low);

    // Across, then up; outside `low` counts as transparent.
    const std::vector<float> weights = gaussianWeights(_sigmaUsed, _reach);
    ScratchLease acrossLease = ScratchLease::acquire(size_t(low.area()) * 4);
    float* across = acrossLease.data();
    pass.parallelFor(size_t(low.height), [&](size_t j) {
        ScratchLease padded = ScratchLease::acquire(size_t(low.width + 2 * _reach) * 4);
        float* row = padded.data();
        std::fill(row, row + 4 * _reach, 0.f);
        std::copy(reduced->row(low.y + int(j)), reduced->row(low.y + int(j)) + stride, row + 4 * _reach);
        std::fill(row + 4 * (_reach + low.width), row + 4 * (2 * _reach + low.width), 0.f);
        convolveRow(row, across + j * stride, low.width, weights.data(), int(weights.size()));
    });
    const std::vector<float> zeros(size_t(stride), 0.f);
    data->pixels = ScratchLease::acquire(size_t(low.area()) * 4);
    pass.parallelFor(size_t(low.height), [&](size_t j) {
        std::vector<const float*> rowsIn(weights.size());
        for (size_t t = 0; t < weights.size(); ++t) {
            const std::ptrdiff_t src = std::ptrdiff_t(j) + std::ptrdiff_t(t) - _reach;
            rowsIn[t] = src < 0 || src >= low.height ? zeros.data() : across + src * stride;
        }
        convolveRows(rowsIn.data(), data->pixels.data() + j * stride, int(stride), weights.data(), int(weights.size()));
    });
    return data;
}

void GaussianBlurNode::render(RenderPass& pass, const ImageTile& out) const {
    if (_factor == 1) {
        renderDirect(pass, out);
        return;
    }
    if (const PreparedData* data = pass.prepared(*this)) renderFromReduced(*data, out);
    else out.clear();
}

void GaussianBlurNode::renderDirect(RenderPass& pass, const ImageTile& out) const {
    const PixelRect need = out.rect.outsetBy(_reach, _reach);
    const TileView view = pass.view(input(0), need);
    const std::vector<float> weights = gaussianWeights(_sigmaUsed, _reach);
    // Across into `across` (the tile's width, the view's height), then up into `out`.
    const std::ptrdiff_t stride = std::ptrdiff_t(out.rect.width) * 4;
    ScratchLease lease = ScratchLease::acquire(size_t(need.height) * size_t(stride));
    float* across = lease.data();
    for (int j = 0; j < need.height; ++j)
        convolveRow(view->at(need.x, need.y + j), across + j * stride, out.rect.width, weights.data(), int(weights.size()));
    std::vector<const float*> rowsIn(weights.size());
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        for (size_t t = 0; t < weights.size(); ++t) rowsIn[t] = across + (y - out.rect.y + std::ptrdiff_t(t)) * stride;
        convolveRows(rowsIn.data(), out.row(y), int(stride), weights.data(), int(weights.size()));
    }
}

void GaussianBlurNode::renderFromReduced(const PreparedData& prepared, const ImageTile& out) const {
    const auto& data = static_cast<const ReducedBlur&>(prepared);
    const ConstImageTile low(data.rect, data.pixels.data(), std::ptrdiff_t(data.rect.width) * 4);
    const float step = 1.f / float(_factor);
    // Each output row blends two reduced rows into `blended`, then enlarges that across.
    const int first = fastFloor((out.rect.x + 0.5f) * step - 0.5f);
    const int count = fastFloor((out.rect.maxX() - 0.5f) * step - 0.5f) + 2 - first;
    const bool columnsInside = first >= low.rect.x && first + count <= low.rect.maxX();
    ScratchLease lease = ScratchLease::acquire(size_t(count) * 4);
    float* blended = lease.data();
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        const float v = (y + 0.5f) * step - 0.5f;
        const int j0 = fastFloor(v);
        const float ty = v - float(j0);
        if (columnsInside && j0 >= low.rect.y && j0 + 1 < low.rect.maxY()) {
            mixRows(low.at(first, j0), low.at(first, j0 + 1), ty, blended, 4 * count);
        } else {
            for (int i = 0; i < count; ++i)
                storeFloat4(blended + 4 * i, mix(low.pixel(first + i, j0), low.pixel(first + i, j0 + 1), ty));
        }
        enlargeRow(blended, first, _factor, out.rect.x, out.row(y), out.rect.width);
    }
}

MedianNode::MedianNode(const Image& input) : ImageNode(input.extent(), {input}) {}

PixelRect MedianNode::regionOfInterest(size_t, const PixelRect& rect) const { return rect.outsetBy(1, 1); }

void MedianNode::render(RenderPass& pass, const ImageTile& out) const {
    const TileView view = pass.view(input(0), out.rect.outsetBy(1, 1));
    auto sort2 = [](Float4& a, Float4& b) {
        const Float4 lo = minFloat4(a, b);
        b = maxFloat4(a, b);
        a = lo;
    };
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) {
        float* dst = out.row(y);
        for (int x = out.rect.x; x < out.rect.maxX(); ++x) {
            Float4 p[9];
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) p[(dy + 1) * 3 + dx + 1] = loadFloat4(view->at(x + dx, y + dy));
            // Median of nine, channel by channel (a 19-exchange network).
            sort2(p[1], p[2]); sort2(p[4], p[5]); sort2(p[7], p[8]);
            sort2(p[0], p[1]); sort2(p[3], p[4]); sort2(p[6], p[7]);
            sort2(p[1], p[2]); sort2(p[4], p[5]); sort2(p[7], p[8]);
            sort2(p[0], p[3]); sort2(p[5], p[8]); sort2(p[4], p[7]);
            sort2(p[3], p[6]); sort2(p[1], p[4]); sort2(p[2], p[5]);
            sort2(p[4], p[7]); sort2(p[4], p[2]); sort2(p[6], p[4]);
            sort2(p[4], p[2]);
            storeFloat4(dst + 4 * (x - out.rect.x), p[4]);
        }
    }
}

namespace {

constexpr int kLanczosLobes = 3;

double lanczos(double x) {
    x = std::fabs(x);
    if (x < 1e-9) return 1;
    if (x >= kLanczosLobes) return 0;
    const double px = M_PI * x;
    return kLanczosLobes * std::sin(px) * std::sin(px / kLanczosLobes) / (px * px);
}

// Taps of a Lanczos resampling along one axis: output pixel o reads input pixels
// first[o] .. first[o] + count - 1 with weights[o * count + t].
struct LanczosTaps {
    std::vector<int> first;
    std::vector<float> weights;
    int count = 0;
};

// Support in input pixels on each side of a sample.
double lanczosSupport(double scale) { return kLanczosLobes / std::min(scale, 1.0); }

LanczosTaps lanczosTaps(int outStart, int outCount, double scale) {
    LanczosTaps taps;
    const double support = lanczosSupport(scale);
    const double stretch = std::min(scale, 1.0);
    taps.count = int(std::ceil(2 * support)) + 1;
    taps.first.resize(size_t(outCount));
    taps.weights.resize(size_t(outCount) * size_t(taps.count));
    for (int o = 0; o < outCount; ++o) {
        const double centre = (outStart + o + 0.5) / scale - 0.5;
        const int first = int(std::floor(centre - support)) + 1;
        taps.first[size_t(o)] = first;
        double sum = 0;
        float* w = &taps.weights[size_t(o) * size_t(taps.count)];
        for (int t = 0; t < taps.count; ++t) sum += w[t] = float(lanczos((first + t - centre) * stretch));
        if (sum != 0)
            for (int t = 0; t < taps.count; ++t) w[t] = float(w[t] / sum);
    }
    return taps;
}

Rect scaledExtent(const Rect& r, double sx, double sy) {
    if (Image::isInfinite(r)) return Image::infiniteExtent();
    return Rect{r.minX() * sx, r.minY() * sy, r.width() * sx, r.height() * sy}.intersection(Image::infiniteExtent());
}

}  // namespace

LanczosScaleNode::LanczosScaleNode(const Image& input, double scaleX, double scaleY)
    : ImageNode(scaledExtent(input.extent(), scaleX, scaleY), {input}), _scaleX(scaleX), _scaleY(scaleY) {}

PixelRect LanczosScaleNode::regionOfInterest(size_t, const PixelRect& rect) const {
    // The taps of the first and last output pixel on each axis bound what the tile reads.
    const LanczosTaps firstX = lanczosTaps(rect.x, 1, _scaleX);
    const LanczosTaps lastX = lanczosTaps(rect.maxX() - 1, 1, _scaleX);
    const LanczosTaps firstY = lanczosTaps(rect.y, 1, _scaleY);
    const LanczosTaps lastY = lanczosTaps(rect.maxY() - 1, 1, _scaleY);
    const int x0 = firstX.first[0];
    const int y0 = firstY.first[0];
    return {x0, y0, lastX.first[0] + lastX.count - x0, lastY.first[0] + lastY.count - y0};
}

void LanczosScaleNode::render(RenderPass& pass, const ImageTile& out) const {
    const LanczosTaps across = lanczosTaps(out.rect.x, out.rect.width, _scaleX);
    const LanczosTaps up = lanczosTaps(out.rect.y, out.rect.height, _scaleY);
    const int x0 = across.first.front();
    const int y0 = up.first.front();
    const PixelRect need{x0, y0, across.first.back() + across.count - x0, up.first.back() + up.count - y0};
    const TileView view = pass.view(input(0), need);
    // Across into `mid` (the tile's width, the needed height), then up into `out`.
    const std::ptrdiff_t stride = std::ptrdiff_t(out.rect.width) * 4;
    ScratchLease lease = ScratchLease::acquire(size_t(need.height) * size_t(stride));
    float* mid = lease.data();
    for (int j = 0; j < need.height; ++j) {
        const float* src = view->row(need.y + j);
        float* dst = mid + j * stride;
        for (int o = 0; o < out.rect.width; ++o) {
            const float* w = &across.weights[size_t(o) * size_t(across.count)];
            const float* p = src + std::ptrdiff_t(across.first[size_t(o)] - need.x) * 4;
            Float4 sum = splat(0.f);
            for (int t = 0; t < across.count; ++t) sum += loadFloat4(p + 4 * t) * w[t];
            storeFloat4(dst + 4 * o, sum);
        }
    }
    for (int o = 0; o < out.rect.height; ++o) {
        const float* w = &up.weights[size_t(o) * size_t(up.count)];
        float* dst = out.row(out.rect.y + o);
        std::fill(dst, dst + stride, 0.f);
        for (int t = 0; t < up.count; ++t) {
            const float* src = mid + std::ptrdiff_t(up.first[size_t(o)] - need.y + t) * stride;
            for (std::ptrdiff_t i = 0; i < stride; ++i) dst[i] += w[t] * src[i];
        }
    }
}

}  // namespace qm
