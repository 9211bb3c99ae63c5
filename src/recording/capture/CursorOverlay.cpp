#include "recording/capture/CursorOverlay.h"

#include <algorithm>

namespace qm {

namespace {

// Source-over of a premultiplied ARGB pixel onto an opaque B G R A pixel.
void blendOver(uint8_t* bgra, uint32_t argb) {
    const uint32_t alpha = argb >> 24;
    if (alpha == 0) return;
    const uint32_t inverse = 255 - alpha;
    const uint8_t source[3] = {static_cast<uint8_t>(argb), static_cast<uint8_t>(argb >> 8),
                               static_cast<uint8_t>(argb >> 16)};
    for (int c = 0; c < 3; ++c) bgra[c] = static_cast<uint8_t>(source[c] + (bgra[c] * inverse + 127) / 255);
    bgra[3] = 255;
}

}  // namespace

void CursorOverlay::drawCursor(PixelBuffer& picture, const CursorImage& cursor, int x, int y) {
    const int left = x - cursor.xhot;
    const int top = y - cursor.yhot;
    const int firstRow = std::max(0, -top);
    const int lastRow = std::min(cursor.height, picture.height() - top);
    const int firstColumn = std::max(0, -left);
    const int lastColumn = std::min(cursor.width, picture.width() - left);
    if (firstRow >= lastRow || firstColumn >= lastColumn) return;
    uint8_t* base = picture.mutablePlane(0);
    const size_t stride = picture.bytesPerRow(0);
    for (int row = firstRow; row < lastRow; ++row) {
        uint8_t* line = base + static_cast<size_t>(top + row) * stride;
        const uint32_t* source = cursor.pixels.data() + static_cast<size_t>(row) * cursor.width;
        for (int column = firstColumn; column < lastColumn; ++column) {
            blendOver(line + static_cast<size_t>(left + column) * 4, source[column]);
        }
    }
}

void CursorOverlay::drawClickRing(PixelBuffer& picture, int x, int y) {
    const int outer = kClickRingRadius;
    const int inner = kClickRingRadius - kClickRingWidth;
    uint8_t* base = picture.mutablePlane(0);
    const size_t stride = picture.bytesPerRow(0);
    for (int row = std::max(0, y - outer); row <= std::min(picture.height() - 1, y + outer); ++row) {
        for (int column = std::max(0, x - outer); column <= std::min(picture.width() - 1, x + outer); ++column) {
            const int distanceSquared = (column - x) * (column - x) + (row - y) * (row - y);
            if (distanceSquared > outer * outer || distanceSquared < inner * inner) continue;
            blendOver(base + static_cast<size_t>(row) * stride + static_cast<size_t>(column) * 4, kClickRingColor);
        }
    }
}

}  // namespace qm
