#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace qm {

// Draws upper-case labels in a 5 x 7 pixel font into RGBA8 memory (row 0 at the top). Lower-case
// letters are drawn as capitals; characters without a glyph leave a gap.
class LabelFont {
public:
    static constexpr int kGlyphWidth = 5;
    static constexpr int kGlyphHeight = 7;

    // Width in pixels of `text` at `scale` (one blank column between glyphs).
    static int textWidth(std::string_view text, int scale);
    // Draws `text` with its top left corner at (x, y), clipped to the picture.
    static void draw(std::vector<uint8_t>& rgba, int width, int height, int x, int y, std::string_view text, int scale,
                     const uint8_t color[4]);
};

}  // namespace qm
