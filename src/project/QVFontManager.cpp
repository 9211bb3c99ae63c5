#include "platform/FontManager.h"
#include "platform/TextLayout.h"
#include "project/QVTextClip.h"

namespace qm {

QVFontManager& QVFontManager::shareFontManager() {
    static QVFontManager manager;
    return manager;
}

Font QVFontManager::defaultFont() const {
    Font font = TextLayout::defaultFont();
    font.pointSize = 13.0;
    return font;
}

std::vector<std::string> QVFontManager::supportedFonts() const {
    return FontManager::sharedFontManager().availableFontFamilies();
}

bool QVFontManager::familyHasTrait(const std::string& family, unsigned trait) const {
    if (family.empty()) return false;
    const FontManager& fonts = FontManager::sharedFontManager();
    for (const auto& member : fonts.availableMembersOfFontFamily(family)) {
        if (fonts.fontNamedHasTraits(member.fontName, trait)) return true;
    }
    return false;
}

bool QVFontManager::canBoldFontWithFamilyName(const std::string& family) const {
    return familyHasTrait(family, FontManager::boldTrait);
}

bool QVFontManager::canItalicFontWithFamilyName(const std::string& family) const {
    return familyHasTrait(family, FontManager::italicTrait);
}

std::optional<std::string> QVFontManager::selectFontNameFromFamily(const std::string& family, bool bold,
                                                                   bool italic) const {
    const FontManager& fonts = FontManager::sharedFontManager();
    for (const auto& member : fonts.availableMembersOfFontFamily(family)) {
        if (fonts.fontNamedHasTraits(member.fontName, FontManager::boldTrait) != bold) continue;
        if (fonts.fontNamedHasTraits(member.fontName, FontManager::italicTrait) != italic) continue;
        return member.fontName;
    }
    return std::nullopt;
}

}  // namespace qm
