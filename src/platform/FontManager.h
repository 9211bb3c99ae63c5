#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/Font.h"

namespace qm {

// Installed font families and their members, as fontconfig lists them (NSFontManager). Trait
// masks are those of the desktop font manager: italic 1, bold 2.
class FontManager {
public:
    static constexpr unsigned italicTrait = 1;
    static constexpr unsigned boldTrait = 2;

    struct Member {
        std::string fontName;
        std::string styleName;
        int weight = 400;
        bool italic = false;
        int width = 100;

        unsigned traits() const;
    };

    static FontManager& sharedFontManager();

    // Family names, sorted, each once.
    std::vector<std::string> availableFontFamilies() const;
    // The faces of a family: normal width first, then from regular weight outwards, upright before
    // italic, then by name. Empty for an unknown family.
    std::vector<Member> availableMembersOfFontFamily(const std::string& family) const;
    // The installed face of this unique name.
    std::optional<Member> memberNamed(const std::string& fontName) const;
    // The family of the installed face of this unique name.
    std::optional<std::string> familyOfFontNamed(const std::string& fontName) const;

    unsigned traitsOfFont(const Font& font) const;
    // True when the face named `fontName` has every trait of `traits`.
    bool fontNamedHasTraits(const std::string& fontName, unsigned traits) const;
    // The member of the font's family that has `trait` and otherwise the font's traits, at the
    // font's size; the font itself when the family has none.
    Font convertFontToHaveTrait(const Font& font, unsigned trait) const;
    Font convertFontToNotHaveTrait(const Font& font, unsigned trait) const;

private:
    FontManager() = default;
    Font convertFont(const Font& font, unsigned wantedTraits) const;
};

}  // namespace qm
