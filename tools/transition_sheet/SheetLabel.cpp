#include "SheetLabel.h"

#include <cmath>

#include "platform/AttributedString.h"
#include "platform/BitmapContext.h"
#include "platform/TextLayout.h"

namespace qm {

namespace {

AttributedString labelText(const std::string& text, double fontSize, const uint8_t color[4]) {
    TextAttributes attributes;
    attributes.font = Font::fontWithName("DejaVu Sans", fontSize);
    attributes.foregroundColor = Color::fromRGBA8(color[0], color[1], color[2], color[3]);
    return AttributedString(text, attributes);
}

}  // namespace

int SheetLabel::lineHeight(double fontSize) {
    const uint8_t white[4] = {255, 255, 255, 255};
    return static_cast<int>(std::ceil(TextLayout::sizeOfAttributedString(labelText("Ag", fontSize, white)).height));
}

void SheetLabel::draw(std::vector<uint8_t>& rgba, int width, int height, int x, int y, const std::string& text,
                      double fontSize, const uint8_t color[4]) {
    const AttributedString label = labelText(text, fontSize, color);
    const Size size = TextLayout::sizeOfAttributedString(label);
    const int labelWidth = static_cast<int>(std::ceil(size.width)) + 1;
    const int labelHeight = static_cast<int>(std::ceil(size.height)) + 1;
    auto context = BitmapContext::create(labelWidth, labelHeight);
    if (!context) return;
    TextLayout::drawInRect(*context, label, {0, 0, static_cast<double>(labelWidth), static_cast<double>(labelHeight)});
    const auto bitmap = context->makeBitmap();
    for (int row = 0; row < labelHeight && y + row < height; ++row) {
        if (y + row < 0) continue;
        for (int column = 0; column < labelWidth && x + column < width; ++column) {
            if (x + column < 0) continue;
            const auto source = bitmap->pixelAt(column, row);
            uint8_t* target = &rgba[(static_cast<size_t>(y + row) * width + static_cast<size_t>(x + column)) * 4];
            const int cover = 255 - source[3];
            for (int k = 0; k < 4; ++k) target[k] = static_cast<uint8_t>(source[k] + (target[k] * cover + 127) / 255);
        }
    }
}

}  // namespace qm
