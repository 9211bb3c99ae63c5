#include "project/QVTextClip.h"

#include <cmath>

#include "platform/BezierPath.h"
#include "platform/BitmapContext.h"
#include "platform/FontManager.h"
#include "platform/GraphicsArchive.h"
#include "platform/TextLayout.h"

namespace qm {

namespace {

constexpr double textMargin = 16.0;

AttributedString nonEmpty(AttributedString text) {
    if (text.length() == 0) text = AttributedString(" ", QVTextClip::defaultAttributes());
    return text;
}

}  // namespace

Font QVTextClip::defaultFont() { return *Font::fontWithName("Helvetica", 16.0); }

TextAttributes QVTextClip::defaultAttributes() {
    TextAttributes attributes;
    attributes.font = defaultFont();
    attributes.foregroundColor = Color::white();
    attributes.alignment = TextAlignment::Natural;
    return attributes;
}

double QVTextClip::sizeFromHeight(double height) {
    if (height < 20.0) return 8.0;
    if (height <= 120.0) return height - 12.0;
    return 100.0;
}

std::shared_ptr<QVTextClip> QVTextClip::create() { return createWithString(" "); }

std::shared_ptr<QVTextClip> QVTextClip::createWithString(const std::string& text) {
    return createWithAttributeString(AttributedString(text, defaultAttributes()));
}

std::shared_ptr<QVTextClip> QVTextClip::createWithAttributeString(const std::optional<AttributedString>& text) {
    if (!text) return nullptr;
    std::shared_ptr<QVTextClip> clip(new QVTextClip());
    clip->loadDefaultSettings();
    clip->_textStorage = nonEmpty(*text);
    clip->_fontFamily = clip->font().familyName;
    return clip;
}

std::shared_ptr<QVTextClip> QVTextClip::createWithCoder(KeyedUnarchiver& coder) {
    std::shared_ptr<QVTextClip> clip(new QVTextClip());
    if (!clip->initWithCoder(coder)) return nullptr;
    return clip;
}

bool QVTextClip::initWithCoder(KeyedUnarchiver& coder) {
    if (!QVClip::initWithCoder(coder)) return false;
    const auto storage = coder.decodeObjectOfClass<ArchivedAttributedString>("_textStorage");
    _textStorage = storage ? storage->attributedString() : AttributedString();
    _backgroundRoundRadius = coder.decodeFloat("_backgroundRoundRadius");
    _backgroundColor = coder.decodeColor("_backgroundColor");
    _fontFamily = coder.decodeString("_fontFamily");
    return true;
}

void QVTextClip::encodeWithCoder(KeyedArchiver& coder) const {
    QVClip::encodeWithCoder(coder);
    coder.encodeObject("_textStorage", ArchivedAttributedString::createWithString(_textStorage));
    coder.encodeColor("_backgroundColor", _backgroundColor);
    coder.encodeFloat("_backgroundRoundRadius", _backgroundRoundRadius);
    coder.encodeString("_fontFamily", _fontFamily);
}

std::shared_ptr<QVClip> QVTextClip::copy() const {
    std::shared_ptr<QVTextClip> clip(new QVTextClip());
    clip->loadDefaultSettings();
    copyPropertiesTo(*clip);
    clip->_textStorage = _textStorage;
    clip->_backgroundColor = _backgroundColor;
    clip->_backgroundRoundRadius = _backgroundRoundRadius;
    clip->_fontFamily = _fontFamily;
    return clip;
}

// --- Storage edits.

void QVTextClip::changeStorage(const char* key, const std::function<void(AttributedString&)>& change) {
    const AttributedString old = _textStorage;
    registerUndo([old](QVClip& clip) { static_cast<QVTextClip&>(clip).restoreStorage(old); });
    willChangeValueForKey(key);
    change(_textStorage);
    resetCacheImage();
    didChangeValueForKey(key);
}

void QVTextClip::restoreStorage(const AttributedString& storage) {
    changeStorage("textStorage", [&storage](AttributedString& text) { text = storage; });
}

void QVTextClip::setText(const std::string& text) {
    changeStorage("text", [&text](AttributedString& storage) { storage.replaceString(text.empty() ? " " : text); });
}

Font QVTextClip::font() const { return _textStorage.attributesAtIndex(0).font.value_or(defaultFont()); }

void QVTextClip::setFont(const std::optional<Font>& font) {
    if (!font || _textStorage.length() == 0) return;
    changeStorage("font", [&font](AttributedString& storage) {
        storage.changeAttributes(0, storage.length(), [&font](TextAttributes& a) { a.font = font; });
    });
}

void QVTextClip::setFontName(const std::string& name) { setFont(Font::fontWithName(name, fontSize())); }

void QVTextClip::setFontSize(double size) { setFont(Font::fontWithName(fontName(), size)); }

void QVTextClip::storeFontFamily(const std::string& family) {
    const std::string old = _fontFamily;
    registerUndo([old](QVClip& clip) { static_cast<QVTextClip&>(clip).storeFontFamily(old); });
    willChangeValueForKey("fontFamily");
    _fontFamily = family;
    didChangeValueForKey("fontFamily");
}

void QVTextClip::setFontFamily(const std::string& family) {
    if (family == _fontFamily) return;
    const UndoRef undo = undoManager();
    undo.beginUndoGrouping();
    storeFontFamily(family);
    if (const auto name = QVFontManager::shareFontManager().selectFontNameFromFamily(family, bold(), italic())) {
        setFontName(*name);
    }
    undo.endUndoGrouping();
}

bool QVTextClip::bold() const { return FontManager::sharedFontManager().traitsOfFont(font()) & FontManager::boldTrait; }

bool QVTextClip::italic() const {
    return FontManager::sharedFontManager().traitsOfFont(font()) & FontManager::italicTrait;
}

void QVTextClip::setBold(bool bold) {
    if (!canBold()) return;
    const FontManager& fonts = FontManager::sharedFontManager();
    setFont(bold ? fonts.convertFontToHaveTrait(font(), FontManager::boldTrait)
                 : fonts.convertFontToNotHaveTrait(font(), FontManager::boldTrait));
}

void QVTextClip::setItalic(bool italic) {
    if (!canItalic()) return;
    const FontManager& fonts = FontManager::sharedFontManager();
    setFont(italic ? fonts.convertFontToHaveTrait(font(), FontManager::italicTrait)
                   : fonts.convertFontToNotHaveTrait(font(), FontManager::italicTrait));
}

bool QVTextClip::canBold() const { return QVFontManager::shareFontManager().canBoldFontWithFamilyName(_fontFamily); }

bool QVTextClip::canItalic() const {
    return QVFontManager::shareFontManager().canItalicFontWithFamilyName(_fontFamily);
}

Color QVTextClip::fontColor() const {
    return _textStorage.attributesAtIndex(0).foregroundColor.value_or(Color::white());
}

void QVTextClip::setFontColor(const std::optional<Color>& color) {
    const Color wanted = color.value_or(Color::colorWithWhite(1.0, 1.0));
    const double alpha = fontColor().a;
    if (_textStorage.length() == 0) return;
    const Color applied = wanted.colorWithAlphaComponent(alpha);
    changeStorage("fontColor", [&applied](AttributedString& storage) {
        storage.changeAttributes(0, storage.length(), [&applied](TextAttributes& a) { a.foregroundColor = applied; });
    });
}

void QVTextClip::setFontOpacity(double opacity) { setFontColor(fontColor().colorWithAlphaComponent(opacity)); }

bool QVTextClip::underline() const { return _textStorage.attributesAtIndex(0).underlineStyle != 0; }

void QVTextClip::setUnderline(bool underline) {
    if (_textStorage.length() == 0) return;
    changeStorage("underline", [underline](AttributedString& storage) {
        storage.changeAttributes(0, storage.length(), [underline](TextAttributes& a) { a.underlineStyle = underline; });
    });
}

Color QVTextClip::underlineColor() const {
    const TextAttributes attributes = _textStorage.attributesAtIndex(0);
    if (attributes.underlineStyle == 0) return Color::black();
    return attributes.underlineColor.value_or(Color::black());
}

void QVTextClip::setUnderlineColor(const std::optional<Color>& color) {
    if (_textStorage.length() == 0 || !underline()) return;
    changeStorage("underlineColor", [&color](AttributedString& storage) {
        storage.changeAttributes(0, storage.length(), [&color](TextAttributes& a) { a.underlineColor = color; });
    });
}

bool QVTextClip::strideThrough() const { return _textStorage.attributesAtIndex(0).strikethroughStyle != 0; }

void QVTextClip::setStrideThrough(bool strideThrough) {
    if (_textStorage.length() == 0) return;
    changeStorage("strideThrough", [strideThrough](AttributedString& storage) {
        storage.changeAttributes(0, storage.length(),
                                 [strideThrough](TextAttributes& a) { a.strikethroughStyle = strideThrough; });
    });
}

Color QVTextClip::strideThroughColor() const {
    const TextAttributes attributes = _textStorage.attributesAtIndex(0);
    if (attributes.strikethroughStyle == 0) return Color::black();
    return attributes.strikethroughColor.value_or(Color::black());
}

void QVTextClip::setStrideThroughColor(const std::optional<Color>& color) {
    if (_textStorage.length() == 0 || !strideThrough()) return;
    changeStorage("strideThroughColor", [&color](AttributedString& storage) {
        storage.changeAttributes(0, storage.length(), [&color](TextAttributes& a) { a.strikethroughColor = color; });
    });
}

// --- The plate.

void QVTextClip::setBackgroundColor(const std::optional<Color>& color) {
    const auto old = _backgroundColor;
    registerUndo([old](QVClip& clip) { static_cast<QVTextClip&>(clip).setBackgroundColor(old); });
    willChangeValueForKey("backgroundColor");
    _backgroundColor = color;
    resetCacheImage();
    didChangeValueForKey("backgroundColor");
}

void QVTextClip::setBackgroundOpacity(double opacity) {
    setBackgroundColor(_backgroundColor.value_or(Color::black()).colorWithAlphaComponent(opacity));
}

void QVTextClip::setBackgroundRoundRadius(double radius) {
    const double old = _backgroundRoundRadius;
    registerUndo([old](QVClip& clip) { static_cast<QVTextClip&>(clip).setBackgroundRoundRadius(old); });
    willChangeValueForKey("backgroundRoundRadius");
    _backgroundRoundRadius = radius;
    resetCacheImage();
    didChangeValueForKey("backgroundRoundRadius");
}

// --- The picture.

Size QVTextClip::size() const {
    const Size measured = TextLayout::sizeOfAttributedString(_textStorage);
    return {2.0 * std::ceil((measured.width + 33.0) * 0.5), 2.0 * std::ceil((measured.height + 33.0) * 0.5)};
}

std::shared_ptr<const Bitmap> QVTextClip::createTextImage() const {
    const Size box = size();
    const auto width = static_cast<unsigned>(box.width);
    const auto height = static_cast<unsigned>(box.height);
    auto context = BitmapContext::create(static_cast<int>(width), static_cast<int>(height));
    if (!context) return nullptr;
    const Rect plate{0, 0, static_cast<double>(width), static_cast<double>(height)};
    if (_backgroundColor) {
        context->setFillColor(*_backgroundColor);
        context->fillPath(BezierPath::bezierPathWithRoundedRect(plate, _backgroundRoundRadius, _backgroundRoundRadius));
    }
    TextLayout::drawInRect(*context, _textStorage, plate.insetBy(textMargin, textMargin));
    return context->makeBitmap();
}

std::shared_ptr<const Bitmap> QVTextClip::outputCgImage() {
    return _cacheImage.bitmap([this] { return createTextImage(); });
}

Image QVTextClip::outputImage() { return Image::imageWithBitmap(outputCgImage()); }

std::string QVTextClip::title() const {
    std::string title = text();
    for (char& c : title) {
        if (c == '\n') c = ' ';
    }
    return title;
}

void QVTextClip::resetCacheImage() { _cacheImage.reset(); }

Image QVTextClip::imageAtSourceTimestamp(int64_t) { return outputImage(); }

std::shared_ptr<const Bitmap> QVTextClip::cgImageAtSourceTimestamp(int64_t) { return outputCgImage(); }

std::shared_ptr<const Bitmap> QVTextClip::thumbnail() { return outputCgImage(); }

// --- Observation.

std::any QVTextClip::valueForKey(const std::string& key) const {
    if (key == "text") return text();
    if (key == "font") return font();
    if (key == "fontName") return fontName();
    if (key == "fontSize") return fontSize();
    if (key == "fontFamily") return _fontFamily;
    if (key == "bold") return bold();
    if (key == "italic") return italic();
    if (key == "canBold") return canBold();
    if (key == "canItalic") return canItalic();
    if (key == "fontColor") return fontColor();
    if (key == "fontOpacity") return fontOpacity();
    if (key == "underline") return underline();
    if (key == "underlineColor") return underlineColor();
    if (key == "strideThrough") return strideThrough();
    if (key == "strideThroughColor") return strideThroughColor();
    if (key == "backgroundColor") return _backgroundColor;
    if (key == "backgroundOpacity") return backgroundOpacity();
    if (key == "backgroundRoundRadius") return _backgroundRoundRadius;
    return QVClip::valueForKey(key);
}

std::vector<std::string> QVTextClip::keyPathsForValuesAffectingValueForKey(const std::string& key) const {
    auto keys = QVClip::keyPathsForValuesAffectingValueForKey(key);
    const auto add = [&keys](std::initializer_list<const char*> more) {
        keys.insert(keys.end(), more.begin(), more.end());
    };
    if (key == "outputImage") {
        add({"font", "fontSize", "fontColor", "fontOpacity", "text", "backgroundColor", "backgroundRoundRadius",
             "backgroundOpacity", "underline", "underlineColor", "strideThrough", "strideThroughColor"});
    } else if (key == "font") {
        add({"fontSize", "bold", "italic", "textStorage"});
    } else if (key == "fontSize" || key == "bold" || key == "italic" || key == "fontName") {
        add({"font"});
    } else if (key == "fontFamily") {
        add({"font"});
    } else if (key == "fontOpacity") {
        add({"fontColor"});
    } else if (key == "backgroundOpacity") {
        add({"backgroundColor"});
    } else if (key == "canBold" || key == "canItalic") {
        add({"fontFamily"});
    } else if (key == "text" || key == "fontColor" || key == "underline" || key == "underlineColor" ||
               key == "strideThrough" || key == "strideThroughColor") {
        add({"textStorage"});
    }
    return keys;
}

}  // namespace qm
