#include <algorithm>

#include "image/Nodes.h"
#include "image/PixelMath.h"
#include "image/PixelRows.h"
#include "image/RenderPass.h"
#include "platform/Bitmap.h"

namespace qm {

namespace {

bool isOpaque(const ImageTile& tile) {
    for (int y = tile.rect.y; y < tile.rect.maxY(); ++y)
        if (!allOpaque(tile.row(y), tile.rect.width)) return false;
    return true;
}

}  // namespace

SourceOverNode::SourceOverNode(const Image& foreground, const Image& background)
    : ImageNode(foreground.extent().unionWith(background.extent()), {foreground, background}) {}

bool SourceOverNode::isOpaqueOver(const PixelRect& rect) const {
    return input(0).isOpaqueOver(rect) || input(1).isOpaqueOver(rect);
}

void SourceOverNode::render(RenderPass& pass, const ImageTile& out) const {
    // The foreground first: where it covers the whole tile the background is not rendered.
    pass.renderInto(input(0), out);
    const ImageNode& background = input(1);
    const PixelRect under = out.rect.intersection(background.pixelBounds());
    if (under.isEmpty() || input(0).isOpaqueOver(out.rect) || isOpaque(out)) return;
    if (const auto color = background.constantColor()) {
        for (int y = under.y; y < under.maxY(); ++y) compositeUnderColor(out.at(under.x, y), *color, under.width);
        return;
    }
    // A bitmap, or colour stages over one, straight from the bitmap's bytes, a short run at a time.
    const auto* colored = dynamic_cast<const ColorNode*>(&background);
    const ImageNode& source = colored ? colored->input(0) : background;
    PixelRect bitmapBounds = source.pixelBounds();
    if (const Bitmap* bitmap = source.directBitmap(bitmapBounds)) {
        const PixelRect area = under.intersection(bitmapBounds);
        // A fade is folded into the conversion.
        const std::optional<float> fade = colored ? colored->stages().uniformScale() : std::nullopt;
        const float scale = fade ? kByteToFloat * *fade : kByteToFloat;
        const bool otherStages = colored && !fade;
        constexpr int kRun = 64;
        float run[kRun * 4];
        for (int y = area.y; y < area.maxY(); ++y) {
            const uint8_t* src = bitmap->imageRow(y);
            float* dst = out.at(area.x, y);
            for (int start = 0; start < area.width; start += kRun) {
                const int count = std::min(kRun, area.width - start);
                bytesToFloatRow(src + size_t(area.x + start) * 4, run, count, scale);
                if (otherStages) colored->stages().applyRow(run, count);
                compositeUnder(dst + 4 * start, run, count);
            }
        }
        return;
    }
    const TileView back = pass.view(background, under);
    for (int y = under.y; y < under.maxY(); ++y) compositeUnder(out.at(under.x, y), back->at(under.x, y), under.width);
}

SourceInNode::SourceInNode(const Image& foreground, const Image& background)
    : ImageNode(foreground.extent().intersection(background.extent()), {foreground, background}) {}

void SourceInNode::render(RenderPass& pass, const ImageTile& out) const {
    pass.renderInto(input(1), out);
    const ImageNode& foreground = input(0);
    if (const auto color = foreground.constantColor()) {
        for (int y = out.rect.y; y < out.rect.maxY(); ++y) colorTimesAlpha(out.row(y), *color, out.rect.width);
        return;
    }
    const TileView front = pass.view(foreground, out.rect);
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) sourceTimesAlpha(out.row(y), front->row(y), out.rect.width);
}

ColorNode::ColorNode(const Image& input, ColorStages stages) : ImageNode(input.extent(), {input}), _stages(std::move(stages)) {}

void ColorNode::render(RenderPass& pass, const ImageTile& out) const {
    // A faded bitmap is converted and faded in one step.
    PixelRect shown = out.rect;
    const std::optional<float> fade = _stages.uniformScale();
    const Bitmap* bitmap = fade ? input(0).directBitmap(shown) : nullptr;
    if (bitmap && shown == out.rect) {
        bitmapIntoTile(*bitmap, out, *fade);
        return;
    }
    pass.renderInto(input(0), out);
    for (int y = out.rect.y; y < out.rect.maxY(); ++y) _stages.applyRow(out.row(y), out.rect.width);
}

}  // namespace qm
