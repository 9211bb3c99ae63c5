#include "image/ImageTile.h"

#include <algorithm>
#include <cmath>

#include "image/Image.h"

namespace qm {

namespace {

constexpr long long kLimitMin = -(1LL << 29);
constexpr long long kLimitMax = 1LL << 29;

long long clampToLimit(double v) {
    if (std::isnan(v)) return 0;
    return static_cast<long long>(std::clamp(v, double(kLimitMin), double(kLimitMax)));
}

}  // namespace

PixelRect PixelRect::intersection(const PixelRect& r) const {
    const int x0 = std::max(x, r.x);
    const int y0 = std::max(y, r.y);
    const int x1 = std::min(maxX(), r.maxX());
    const int y1 = std::min(maxY(), r.maxY());
    if (x1 <= x0 || y1 <= y0) return {};
    return {x0, y0, x1 - x0, y1 - y0};
}

PixelRect PixelRect::unionWith(const PixelRect& r) const {
    if (r.isEmpty()) return isEmpty() ? PixelRect{} : *this;
    if (isEmpty()) return r;
    const int x0 = std::min(x, r.x);
    const int y0 = std::min(y, r.y);
    return {x0, y0, std::max(maxX(), r.maxX()) - x0, std::max(maxY(), r.maxY()) - y0};
}

PixelRect PixelRect::outsetBy(int dx, int dy) const {
    if (isEmpty()) return {};
    const long long x0 = std::max(kLimitMin, (long long)x - dx);
    const long long y0 = std::max(kLimitMin, (long long)y - dy);
    const long long x1 = std::min(kLimitMax, (long long)maxX() + dx);
    const long long y1 = std::min(kLimitMax, (long long)maxY() + dy);
    if (x1 <= x0 || y1 <= y0) return {};
    return {int(x0), int(y0), int(x1 - x0), int(y1 - y0)};
}

PixelRect PixelRect::enclosing(const Rect& r) {
    if (r.isEmpty()) return {};
    // A hair of tolerance keeps edges that sit on whole numbers up to rounding from growing a pixel.
    constexpr double kTolerance = 1e-7;
    const long long x0 = clampToLimit(std::floor(r.minX() + kTolerance));
    const long long y0 = clampToLimit(std::floor(r.minY() + kTolerance));
    const long long x1 = clampToLimit(std::ceil(r.maxX() - kTolerance));
    const long long y1 = clampToLimit(std::ceil(r.maxY() - kTolerance));
    if (x1 <= x0 || y1 <= y0) return {};
    return {int(x0), int(y0), int(x1 - x0), int(y1 - y0)};
}

void ImageTile::fill(Float4 value) const {
    for (int y = rect.y; y < rect.maxY(); ++y) {
        float* p = row(y);
        for (int i = 0; i < rect.width; ++i) storeFloat4(p + 4 * i, value);
    }
}

}  // namespace qm
