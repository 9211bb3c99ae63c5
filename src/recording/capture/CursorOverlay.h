#pragma once

#include <cstdint>
#include <vector>

#include "codec/PixelBuffer.h"

namespace qm {

// The pointer's picture as the display server gives it: premultiplied ARGB in native 32-bit
// words, with the hot spot that sits at the pointer position.
struct CursorImage {
    int32_t width = 0;
    int32_t height = 0;
    int32_t xhot = 0;
    int32_t yhot = 0;
    std::vector<uint32_t> pixels;
};

// Draws the pointer and button presses into captured 'BGRA' pictures.
class CursorOverlay {
public:
    // The ring drawn around the pointer while a button is down.
    static constexpr int kClickRingRadius = 14;
    static constexpr int kClickRingWidth = 3;
    static constexpr uint32_t kClickRingColor = 0xFFFFD21F;  // opaque ARGB amber

    // Blends the cursor over `picture` with its hot spot at (x, y), in the picture's pixels.
    static void drawCursor(PixelBuffer& picture, const CursorImage& cursor, int x, int y);
    // Draws the click ring centred at (x, y).
    static void drawClickRing(PixelBuffer& picture, int x, int y);
};

}  // namespace qm
