#pragma once

#include "platform/AttributedString.h"
#include "platform/BitmapContext.h"
#include "platform/Geometry.h"

namespace qm {

// Lays out and draws attributed text with Pango on cairo. Fonts are found through fontconfig;
// a family that is not installed is substituted by fontconfig's nearest face, so text is always
// drawn with some face. Text without a font uses defaultFont (12 points of the "Sans" alias);
// text without a colour is black. Font sizes are in the units of the drawing context.
class TextLayout {
public:
    static Font defaultFont();

    // The size the text takes laid out without a width limit (NSAttributedString size): the width
    // of the widest line and the height of all lines.
    static Size sizeOfAttributedString(const AttributedString& text);
    // Draws the text into `rect` of a context whose y grows upward: the first line at the top of
    // the rect, lines wrapped at its width, aligned by the first character's paragraph style.
    static void drawInRect(BitmapContext& context, const AttributedString& text, const Rect& rect);
};

}  // namespace qm
