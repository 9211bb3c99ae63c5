#include "platform/FontManager.h"

#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <set>
#include <tuple>

namespace qm {

namespace {

struct ListedFace {
    std::string family;
    FontManager::Member member;
};

std::string patternString(FcPattern* pattern, const char* object) {
    FcChar8* value = nullptr;
    if (FcPatternGetString(pattern, object, 0, &value) != FcResultMatch || !value) return {};
    return reinterpret_cast<const char*>(value);
}

int patternInteger(FcPattern* pattern, const char* object, int fallback) {
    int value = fallback;
    FcPatternGetInteger(pattern, object, 0, &value);
    return value;
}

// Every installed face, listed once per process: the font set does not change while we run.
const std::vector<ListedFace>& installedFaces() {
    static std::once_flag once;
    static std::vector<ListedFace> faces;
    std::call_once(once, [] {
        FcInit();
        std::unique_ptr<FcPattern, decltype(&FcPatternDestroy)> pattern(FcPatternCreate(), &FcPatternDestroy);
        std::unique_ptr<FcObjectSet, decltype(&FcObjectSetDestroy)> objects(
            FcObjectSetBuild(FC_FAMILY, FC_STYLE, FC_POSTSCRIPT_NAME, FC_WEIGHT, FC_SLANT, FC_WIDTH, nullptr),
            &FcObjectSetDestroy);
        FcFontSet* set = FcFontList(nullptr, pattern.get(), objects.get());
        if (!set) return;
        for (int i = 0; i < set->nfont; ++i) {
            FcPattern* font = set->fonts[i];
            ListedFace face;
            face.family = patternString(font, FC_FAMILY);
            face.member.fontName = patternString(font, FC_POSTSCRIPT_NAME);
            face.member.styleName = patternString(font, FC_STYLE);
            face.member.weight = FcWeightToOpenType(patternInteger(font, FC_WEIGHT, FC_WEIGHT_REGULAR));
            face.member.italic = patternInteger(font, FC_SLANT, FC_SLANT_ROMAN) != FC_SLANT_ROMAN;
            face.member.width = patternInteger(font, FC_WIDTH, FC_WIDTH_NORMAL);
            if (face.family.empty() || face.member.fontName.empty()) continue;
            faces.push_back(std::move(face));
        }
        FcFontSetDestroy(set);
        std::sort(faces.begin(), faces.end(), [](const ListedFace& a, const ListedFace& b) {
            const auto key = [](const ListedFace& f) {
                return std::make_tuple(f.family, f.member.width != FC_WIDTH_NORMAL, f.member.width,
                                       std::abs(f.member.weight - 400), f.member.weight, f.member.italic,
                                       f.member.fontName);
            };
            return key(a) < key(b);
        });
    });
    return faces;
}

const ListedFace* faceNamed(const std::string& fontName) {
    for (const auto& face : installedFaces()) {
        if (face.member.fontName == fontName) return &face;
    }
    return nullptr;
}

}  // namespace

#ifdef __SANITIZE_ADDRESS__
// fontconfig keeps its parsed configuration for the life of the process; the leak checker is told
// so, for every program that draws text.
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig.so\n"; }
extern "C" const char* __lsan_default_options() { return "print_suppressions=0"; }
#endif

unsigned FontManager::Member::traits() const { return (italic ? italicTrait : 0u) | (weight >= 600 ? boldTrait : 0u); }

std::optional<Font> Font::fontWithName(const std::string& name, double size) {
    if (name.empty()) return std::nullopt;
    Font font;
    font.fontName = name;
    font.familyName = name;
    font.pointSize = size;
    if (const ListedFace* face = faceNamed(name)) {
        font.familyName = face->family;
        font.weight = face->member.weight;
        font.italic = face->member.italic;
        font.width = face->member.width;
    }
    return font;
}

FontManager& FontManager::sharedFontManager() {
    static FontManager manager;
    return manager;
}

std::vector<std::string> FontManager::availableFontFamilies() const {
    std::set<std::string> families;
    for (const auto& face : installedFaces()) families.insert(face.family);
    return {families.begin(), families.end()};
}

std::vector<FontManager::Member> FontManager::availableMembersOfFontFamily(const std::string& family) const {
    std::vector<Member> members;
    for (const auto& face : installedFaces()) {
        if (face.family == family) members.push_back(face.member);
    }
    return members;
}

std::optional<FontManager::Member> FontManager::memberNamed(const std::string& fontName) const {
    if (const ListedFace* face = faceNamed(fontName)) return face->member;
    return std::nullopt;
}

std::optional<std::string> FontManager::familyOfFontNamed(const std::string& fontName) const {
    if (const ListedFace* face = faceNamed(fontName)) return face->family;
    return std::nullopt;
}

unsigned FontManager::traitsOfFont(const Font& font) const {
    return (font.italic ? italicTrait : 0u) | (font.bold() ? boldTrait : 0u);
}

bool FontManager::fontNamedHasTraits(const std::string& fontName, unsigned traits) const {
    const auto member = memberNamed(fontName);
    return member && (member->traits() & traits) == traits;
}

Font FontManager::convertFontToHaveTrait(const Font& font, unsigned trait) const {
    return convertFont(font, traitsOfFont(font) | trait);
}

Font FontManager::convertFontToNotHaveTrait(const Font& font, unsigned trait) const {
    return convertFont(font, traitsOfFont(font) & ~trait);
}

Font FontManager::convertFont(const Font& font, unsigned wantedTraits) const {
    for (const auto& member : availableMembersOfFontFamily(font.familyName)) {
        if (member.traits() != wantedTraits || member.width != font.width) continue;
        return *Font::fontWithName(member.fontName, font.pointSize);
    }
    return font;
}

}  // namespace qm
