#include "store/SCThumbnailCanvas.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace qm {

namespace {

int pixelCount(double length) { return std::max(1, static_cast<int>(std::lround(length))); }

// Pixels of `picture` in columns [x0, x1) and rows [y0, y1) (rows counted from the top).
std::shared_ptr<const Bitmap> crop(const Bitmap& picture, int x0, int x1, int y0, int y1) {
    const size_t rowBytes = static_cast<size_t>(x1 - x0) * 4;
    std::vector<uint8_t> pixels(rowBytes * (y1 - y0));
    for (int y = y0; y < y1; ++y) {
        std::memcpy(pixels.data() + (y - y0) * rowBytes, picture.data() + y * picture.bytesPerRow() + x0 * 4, rowBytes);
    }
    return Bitmap::createWithPixels(x1 - x0, y1 - y0, std::move(pixels));
}

// The note of the music picture, in a 400 by 300 frame with y down: is the point inside?
bool insideNote(double x, double y) {
    if (x < 120.0 || x > 285.0 || y < 55.0 || y > 245.0) return false;
    // Head: an ellipse tilted by -25 degrees.
    const double angle = -25.0 * M_PI / 180.0;
    const double hx = x - 170.0, hy = y - 210.0;
    const double u = hx * std::cos(angle) + hy * std::sin(angle);
    const double v = -hx * std::sin(angle) + hy * std::cos(angle);
    if ((u * u) / (40.0 * 40.0) + (v * v) / (27.0 * 27.0) <= 1.0) return true;
    // Stem.
    if (x >= 198.0 && x <= 210.0 && y >= 70.0 && y <= 200.0) return true;
    // Flag: a band around a quadratic curve leaving the top of the stem.
    for (int i = 0; i <= 48; ++i) {
        const double t = i / 48.0;
        const double cx = (1 - t) * (1 - t) * 204.0 + 2 * (1 - t) * t * 268.0 + t * t * 252.0;
        const double cy = (1 - t) * (1 - t) * 76.0 + 2 * (1 - t) * t * 112.0 + t * t * 176.0;
        const double width = 11.0 * (1.0 - 0.6 * t);
        if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= width * width) return true;
    }
    return false;
}

}  // namespace

std::shared_ptr<const Bitmap> SCThumbnailCanvas::drawPicture(Size canvasSize,
                                                             const std::shared_ptr<const Bitmap>& picture,
                                                             const Rect& dest, const Rect& from) {
    const int width = pixelCount(canvasSize.width);
    const int height = pixelCount(canvasSize.height);
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4, 0);
    const auto canvas = [&] { return Bitmap::createWithPixels(width, height, std::move(pixels)); };
    if (!picture || dest.isEmpty() || from.isEmpty()) return canvas();

    const double scaleX = dest.width() / from.width();
    const double scaleY = dest.height() / from.height();
    const Rect source = from.intersection(Rect{0, 0, static_cast<double>(picture->width()),
                                               static_cast<double>(picture->height())});
    const Rect mapped{dest.minX() + (source.minX() - from.minX()) * scaleX,
                      dest.minY() + (source.minY() - from.minY()) * scaleY, source.width() * scaleX,
                      source.height() * scaleY};
    const Rect visible = mapped.intersection(Rect{0, 0, static_cast<double>(width), static_cast<double>(height)});
    const int dx0 = static_cast<int>(std::lround(visible.minX())), dx1 = static_cast<int>(std::lround(visible.maxX()));
    const int dy0 = static_cast<int>(std::lround(visible.minY())), dy1 = static_cast<int>(std::lround(visible.maxY()));
    if (source.isEmpty() || visible.isEmpty() || dx1 <= dx0 || dy1 <= dy0) return canvas();

    // The source pixels behind the visible part, rows counted from the top.
    const int pictureHeight = picture->height();
    const auto clampX = [&](double v) { return std::clamp(static_cast<int>(v), 0, picture->width()); };
    const auto clampY = [&](double v) { return std::clamp(static_cast<int>(v), 0, pictureHeight); };
    const int cx0 = clampX(std::floor(from.minX() + (visible.minX() - dest.minX()) / scaleX));
    const int cx1 = clampX(std::ceil(from.minX() + (visible.maxX() - dest.minX()) / scaleX));
    const int cy0 = clampY(std::floor(pictureHeight - (from.minY() + (visible.maxY() - dest.minY()) / scaleY)));
    const int cy1 = clampY(std::ceil(pictureHeight - (from.minY() + (visible.minY() - dest.minY()) / scaleY)));
    if (cx1 <= cx0 || cy1 <= cy0) return canvas();
    const auto part = crop(*picture, cx0, cx1, cy0, cy1)->scaledToSize(dx1 - dx0, dy1 - dy0);
    if (!part) return canvas();

    const int top = height - dy1;
    const size_t rowBytes = static_cast<size_t>(dx1 - dx0) * 4;
    for (int y = 0; y < dy1 - dy0; ++y) {
        std::memcpy(pixels.data() + (static_cast<size_t>(top + y) * width + dx0) * 4,
                    part->data() + y * part->bytesPerRow(), rowBytes);
    }
    return canvas();
}

std::shared_ptr<const Bitmap> SCThumbnailCanvas::musicPicture(Size canvasSize) {
    const int width = pixelCount(canvasSize.width);
    const int height = pixelCount(canvasSize.height);
    const double toFrameX = 400.0 / width, toFrameY = 300.0 / height;
    constexpr int kSamples = 4;
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * 4);
    for (int y = 0; y < height; ++y) {
        const double t = static_cast<double>(y) / height;
        const double ground[3] = {70 + 50 * t, 60 + 10 * t, 150 + 30 * t};
        for (int x = 0; x < width; ++x) {
            int covered = 0;
            for (int sy = 0; sy < kSamples; ++sy) {
                for (int sx = 0; sx < kSamples; ++sx) {
                    covered += insideNote((x + (sx + 0.5) / kSamples) * toFrameX, (y + (sy + 0.5) / kSamples) * toFrameY);
                }
            }
            const double ink = static_cast<double>(covered) / (kSamples * kSamples);
            uint8_t* pixel = pixels.data() + (static_cast<size_t>(y) * width + x) * 4;
            for (int c = 0; c < 3; ++c) pixel[c] = static_cast<uint8_t>(std::lround(ground[c] + (255 - ground[c]) * ink));
            pixel[3] = 255;
        }
    }
    return Bitmap::createWithPixels(width, height, std::move(pixels));
}

}  // namespace qm
