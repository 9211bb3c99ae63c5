#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace qm {

// Draws a line of text into RGBA8 memory (row 0 at the top) with the engine's text layout.
class SheetLabel {
public:
    // Height in pixels of one line at `fontSize`.
    static int lineHeight(double fontSize);
    // Draws `text` in DejaVu Sans (or fontconfig's substitute) at `fontSize` with its top left
    // corner at (x, y), over what is there, clipped to the picture.
    static void draw(std::vector<uint8_t>& rgba, int width, int height, int x, int y, const std::string& text,
                     double fontSize, const uint8_t color[4]);
};

}  // namespace qm
