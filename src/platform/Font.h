#pragma once

#include <optional>
#include <string>

namespace qm {

// A font face at a size (NSFont): the member's unique name (its PostScript name when fontconfig
// knows the face), its family, and the traits that pick the face when it is drawn. A name that no
// installed face carries keeps the name as family, and drawing lets fontconfig substitute.
struct Font {
    std::string fontName;
    std::string familyName;
    double pointSize = 12.0;
    // OpenType weight: 400 regular, 700 bold.
    int weight = 400;
    bool italic = false;
    // fontconfig width: 100 normal, 75 condensed.
    int width = 100;

    // The installed face named `name` at `size`, or, when none is installed under that name, a
    // font of family `name` with regular traits. Nothing for an empty name.
    static std::optional<Font> fontWithName(const std::string& name, double size);

    bool bold() const { return weight >= 600; }

    friend bool operator==(const Font&, const Font&) = default;
};

}  // namespace qm
