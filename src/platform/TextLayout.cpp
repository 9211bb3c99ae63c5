#include "platform/TextLayout.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace qm {

namespace {

template <class T, void (*Free)(T*)>
struct Deleter {
    void operator()(T* object) const { Free(object); }
};
using LayoutPtr = std::unique_ptr<PangoLayout, Deleter<void, g_object_unref>>;
using ContextPtr = std::unique_ptr<PangoContext, Deleter<void, g_object_unref>>;

guint16 channel(double value) { return static_cast<guint16>(std::lround(std::clamp(value, 0.0, 1.0) * 65535.0)); }

PangoStretch stretchOfWidth(int width) {
    static constexpr int widths[] = {50, 63, 75, 87, 100, 113, 125, 150, 200};
    int best = 0;
    for (int i = 1; i < 9; ++i) {
        if (std::abs(widths[i] - width) < std::abs(widths[best] - width)) best = i;
    }
    return static_cast<PangoStretch>(best);
}

PangoFontDescription* descriptionOfFont(const Font& font) {
    PangoFontDescription* description = pango_font_description_new();
    pango_font_description_set_family(description, font.familyName.c_str());
    pango_font_description_set_weight(description, static_cast<PangoWeight>(font.weight));
    pango_font_description_set_style(description, font.italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
    pango_font_description_set_stretch(description, stretchOfWidth(font.width));
    pango_font_description_set_absolute_size(description, std::max(font.pointSize, 0.1) * PANGO_SCALE);
    return description;
}

void insertColor(PangoAttrList* list, const Color& color, guint start, guint end,
                 PangoAttribute* (*makeColor)(guint16, guint16, guint16), bool withAlpha) {
    PangoAttribute* attribute = makeColor(channel(color.r), channel(color.g), channel(color.b));
    attribute->start_index = start;
    attribute->end_index = end;
    pango_attr_list_insert(list, attribute);
    if (!withAlpha) return;
    PangoAttribute* alpha = pango_attr_foreground_alpha_new(std::max<guint16>(channel(color.a), 1));
    alpha->start_index = start;
    alpha->end_index = end;
    pango_attr_list_insert(list, alpha);
}

void insert(PangoAttrList* list, PangoAttribute* attribute, guint start, guint end) {
    attribute->start_index = start;
    attribute->end_index = end;
    pango_attr_list_insert(list, attribute);
}

PangoAttrList* attributeList(const AttributedString& text) {
    PangoAttrList* list = pango_attr_list_new();
    for (const auto& run : text.runs()) {
        const auto start = static_cast<guint>(run.location);
        const auto end = static_cast<guint>(run.location + run.length);
        const TextAttributes& a = run.attributes;
        PangoFontDescription* description = descriptionOfFont(a.font.value_or(TextLayout::defaultFont()));
        insert(list, pango_attr_font_desc_new(description), start, end);
        pango_font_description_free(description);
        insertColor(list, a.foregroundColor.value_or(Color::black()), start, end, pango_attr_foreground_new, true);
        if (a.underlineStyle != 0) {
            insert(list, pango_attr_underline_new(PANGO_UNDERLINE_SINGLE), start, end);
            if (a.underlineColor)
                insertColor(list, *a.underlineColor, start, end, pango_attr_underline_color_new, false);
        }
        if (a.strikethroughStyle != 0) {
            insert(list, pango_attr_strikethrough_new(TRUE), start, end);
            if (a.strikethroughColor) {
                insertColor(list, *a.strikethroughColor, start, end, pango_attr_strikethrough_color_new, false);
            }
        }
    }
    return list;
}

PangoAlignment alignmentOf(const AttributedString& text) {
    switch (text.attributesAtIndex(0).alignment.value_or(TextAlignment::Natural)) {
        case TextAlignment::Right:
            return PANGO_ALIGN_RIGHT;
        case TextAlignment::Center:
            return PANGO_ALIGN_CENTER;
        default:
            return PANGO_ALIGN_LEFT;
    }
}

// Unhinted metrics, so that a measured size holds wherever the text is drawn.
void setFontOptions(PangoContext* context) {
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    pango_cairo_context_set_font_options(context, options);
    cairo_font_options_destroy(options);
}

void fillLayout(PangoLayout* layout, const AttributedString& text) {
    pango_layout_set_text(layout, text.string().data(), static_cast<int>(text.length()));
    PangoAttrList* list = attributeList(text);
    pango_layout_set_attributes(layout, list);
    pango_attr_list_unref(list);
    if (text.attributesAtIndex(0).alignment == TextAlignment::Justified) pango_layout_set_justify(layout, TRUE);
}

}  // namespace

Font TextLayout::defaultFont() { return *Font::fontWithName("Sans", 12.0); }

Size TextLayout::sizeOfAttributedString(const AttributedString& text) {
    if (text.length() == 0) return {};
    ContextPtr context(pango_font_map_create_context(pango_cairo_font_map_get_default()));
    setFontOptions(context.get());
    LayoutPtr layout(pango_layout_new(context.get()));
    fillLayout(layout.get(), text);
    PangoRectangle logical{};
    pango_layout_get_extents(layout.get(), nullptr, &logical);
    return {static_cast<double>(logical.width) / PANGO_SCALE, static_cast<double>(logical.height) / PANGO_SCALE};
}

void TextLayout::drawInRect(BitmapContext& context, const AttributedString& text, const Rect& rect) {
    if (text.length() == 0 || rect.isEmpty()) return;
    cairo_t* cairo = context.cairo();
    cairo_save(cairo);
    cairo_rectangle(cairo, rect.minX(), rect.minY(), rect.width(), rect.height());
    cairo_clip(cairo);
    cairo_translate(cairo, rect.minX(), rect.maxY());
    cairo_scale(cairo, 1, -1);
    LayoutPtr layout(pango_cairo_create_layout(cairo));
    setFontOptions(pango_layout_get_context(layout.get()));
    pango_layout_context_changed(layout.get());
    fillLayout(layout.get(), text);
    pango_layout_set_width(layout.get(), static_cast<int>(rect.width() * PANGO_SCALE));
    pango_layout_set_wrap(layout.get(), PANGO_WRAP_WORD_CHAR);
    pango_layout_set_alignment(layout.get(), alignmentOf(text));
    cairo_move_to(cairo, 0, 0);
    pango_cairo_show_layout(cairo, layout.get());
    cairo_restore(cairo);
}

}  // namespace qm
