#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/AttributedString.h"
#include "platform/Color.h"
#include "platform/Font.h"
#include "project/BitmapCache.h"
#include "project/QVClip.h"

namespace qm {

// A plain colour field as large as the project's output picture. The colour is undoable; the
// rendered picture is kept until the colour changes.
//
// Observable keys, besides QVClip's: "color", "outputImage" (follows "color").
class QVBlankClip : public QVClip {
public:
    // Black.
    static std::shared_ptr<QVBlankClip> create();
    static std::shared_ptr<QVBlankClip> createWithColor(const std::optional<Color>& color);
    // The base keys, then "color".
    static std::shared_ptr<QVBlankClip> createWithCoder(KeyedUnarchiver& coder);

    std::shared_ptr<QVClip> copy() const override;

    const std::optional<Color>& color() const { return _color; }
    // Undoable; drops the picture.
    void setColor(const std::optional<Color>& color);

    // The colour over (0, 0, sourceSize); null for no colour or an empty size.
    Image outputImage() const;
    // outputImage rendered once and kept.
    std::shared_ptr<const Bitmap> outputCgImage();

    // The project's output size, reached through the owner track; zero without one.
    Size sourceSize() const override;
    // "Blank".
    std::string title() const override;
    void resetCacheImage() override;
    // outputImage, whatever the time.
    Image imageAtSourceTimestamp(int64_t timestamp) override;
    std::shared_ptr<const Bitmap> cgImageAtSourceTimestamp(int64_t timestamp) override;
    // outputCgImage at its own size.
    std::shared_ptr<const Bitmap> thumbnail() override;

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVBlankClip"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    QVBlankClip() = default;
    bool initWithCoder(KeyedUnarchiver& coder) override;
    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override;

private:
    std::optional<Color> _color = Color::black();
    BitmapCache _cacheImage;
};

// A block of styled text on a rounded plate. One style holds for the whole text: every style
// setter changes the attribute over the whole text, and reads take the attribute of the first
// character. The text is never empty: an empty text becomes a single blank. Style setters are
// undoable and drop the rendered picture.
//
// Observable keys, besides QVClip's: "text", "font", "fontName", "fontSize", "fontFamily", "bold",
// "italic", "canBold", "canItalic", "fontColor", "fontOpacity", "underline", "underlineColor",
// "strideThrough", "strideThroughColor", "backgroundColor", "backgroundOpacity",
// "backgroundRoundRadius", "outputImage", with the dependencies of the text clip.
class QVTextClip : public QVClip {
public:
    // "Helvetica" at 16 (fontconfig draws it with its substitute).
    static Font defaultFont();
    // defaultFont, white, a new paragraph style.
    static TextAttributes defaultAttributes();
    // A font size for a text height: 8 below 20, height - 12 up to 120, 100 above.
    static double sizeFromHeight(double height);

    // The text " ".
    static std::shared_ptr<QVTextClip> create();
    static std::shared_ptr<QVTextClip> createWithString(const std::string& text);
    // Nothing for no text. The family is that of the text's first font.
    static std::shared_ptr<QVTextClip> createWithAttributeString(const std::optional<AttributedString>& text);
    // The base keys, then "_textStorage", "_backgroundRoundRadius", "_backgroundColor",
    // "_fontFamily".
    static std::shared_ptr<QVTextClip> createWithCoder(KeyedUnarchiver& coder);

    std::shared_ptr<QVClip> copy() const override;

    const AttributedString& textStorage() const { return _textStorage; }

    const std::string& text() const { return _textStorage.string(); }
    void setText(const std::string& text);

    // The font of the first character, else defaultFont.
    Font font() const;
    // Ignored for no font.
    void setFont(const std::optional<Font>& font);
    std::string fontName() const { return font().fontName; }
    double fontSize() const { return font().pointSize; }
    void setFontName(const std::string& name);
    void setFontSize(double size);
    const std::string& fontFamily() const { return _fontFamily; }
    // Picks the family's member with the present bold and italic traits; with none, the font
    // stays as it is.
    void setFontFamily(const std::string& family);
    bool bold() const;
    bool italic() const;
    // Ignored unless the family has such a member.
    void setBold(bool bold);
    void setItalic(bool italic);
    bool canBold() const;
    bool canItalic() const;

    // The colour of the first character, else white.
    Color fontColor() const;
    // No colour means opaque white. The new colour keeps the present opacity.
    void setFontColor(const std::optional<Color>& color);
    double fontOpacity() const { return fontColor().a; }
    // Goes through setFontColor, so the visible opacity stays as it was.
    void setFontOpacity(double opacity);

    bool underline() const;
    void setUnderline(bool underline);
    // Black while the underline is off or has no colour.
    Color underlineColor() const;
    // Ignored while the underline is off.
    void setUnderlineColor(const std::optional<Color>& color);
    bool strideThrough() const;
    void setStrideThrough(bool strideThrough);
    Color strideThroughColor() const;
    void setStrideThroughColor(const std::optional<Color>& color);

    const std::optional<Color>& backgroundColor() const { return _backgroundColor; }
    void setBackgroundColor(const std::optional<Color>& color);
    double backgroundOpacity() const { return _backgroundColor ? _backgroundColor->a : 0.0; }
    void setBackgroundOpacity(double opacity);
    double backgroundRoundRadius() const { return _backgroundRoundRadius; }
    void setBackgroundRoundRadius(double radius);

    // The measured text plus a margin of 16 on each side and 1, rounded up to even sides.
    Size size() const;
    // The plate with the text drawn into it inset by 16; null when the bitmap cannot be made.
    std::shared_ptr<const Bitmap> createTextImage() const;
    // createTextImage, kept until a change.
    std::shared_ptr<const Bitmap> outputCgImage();
    Image outputImage();

    Size sourceSize() const override { return size(); }
    // The text with line breaks as blanks.
    std::string title() const override;
    void resetCacheImage() override;
    Image imageAtSourceTimestamp(int64_t timestamp) override;
    std::shared_ptr<const Bitmap> cgImageAtSourceTimestamp(int64_t timestamp) override;
    std::shared_ptr<const Bitmap> thumbnail() override;

    std::any valueForKey(const std::string& key) const override;
    std::string archiveClassName() const override { return "QVTextClip"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    QVTextClip() = default;
    bool initWithCoder(KeyedUnarchiver& coder) override;
    std::vector<std::string> keyPathsForValuesAffectingValueForKey(const std::string& key) const override;

private:
    // Records `restore` for undo, changes the storage under `key`, drops the picture.
    void changeStorage(const char* key, const std::function<void(AttributedString&)>& change);
    void restoreStorage(const AttributedString& storage);
    // Stores the family alone, recording the old one for undo.
    void storeFontFamily(const std::string& family);

    std::string _fontFamily;
    AttributedString _textStorage;
    std::optional<Color> _backgroundColor = Color::colorWithWhite(0, 0.5);
    double _backgroundRoundRadius = 4.0;
    BitmapCache _cacheImage;
};

// Questions about font families that text clips ask. One shared instance.
class QVFontManager {
public:
    static QVFontManager& shareFontManager();

    // The system's default face ("Sans") at 13.
    Font defaultFont() const;
    std::string defaultFamily() const { return "Helvetica"; }
    double defaultFontSize() const { return 75.0; }
    std::vector<std::string> supportedFonts() const;
    // True when a member of the family is bold; false for an empty or unknown name.
    bool canBoldFontWithFamilyName(const std::string& family) const;
    bool canItalicFontWithFamilyName(const std::string& family) const;
    // The first member whose bold and italic traits both match the flags exactly.
    std::optional<std::string> selectFontNameFromFamily(const std::string& family, bool bold, bool italic) const;

private:
    QVFontManager() = default;
    bool familyHasTrait(const std::string& family, unsigned trait) const;
};

}  // namespace qm
