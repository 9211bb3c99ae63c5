#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Color.h"
#include "platform/Font.h"

namespace qm {

enum class TextAlignment { Left = 0, Right = 1, Center = 2, Justified = 3, Natural = 4 };

// The style of a stretch of text (the attributes of an attributed string). A missing value means
// the attribute is not set; drawing then uses its default (the layout's default font, black).
struct TextAttributes {
    std::optional<Font> font;
    std::optional<Color> foregroundColor;
    int underlineStyle = 0;
    std::optional<Color> underlineColor;
    int strikethroughStyle = 0;
    std::optional<Color> strikethroughColor;
    // The paragraph style; the alignment of the first character holds for the whole text.
    std::optional<TextAlignment> alignment;

    friend bool operator==(const TextAttributes&, const TextAttributes&) = default;
};

// Text with runs of attributes (NSAttributedString). Indexes and lengths count UTF-8 bytes. Runs
// cover the whole text without gaps; neighbouring runs with equal attributes are merged. A plain
// value.
class AttributedString {
public:
    struct Run {
        size_t location = 0;
        size_t length = 0;
        TextAttributes attributes;

        friend bool operator==(const Run&, const Run&) = default;
    };

    AttributedString() = default;
    AttributedString(std::string string, const TextAttributes& attributes);

    const std::string& string() const { return _string; }
    size_t length() const { return _string.size(); }
    const std::vector<Run>& runs() const { return _runs; }

    // The attributes at `index`; those of the last character past the end; none for empty text.
    TextAttributes attributesAtIndex(size_t index) const;
    // Changes the attributes over [location, location + length) (clipped to the text) by `change`.
    void changeAttributes(size_t location, size_t length, const std::function<void(TextAttributes&)>& change);
    // Replaces the whole text; it takes the attributes of its first character.
    void replaceString(std::string string);

    // Builds a string from stored runs. Runs that leave gaps, overlap or pass the end are refused
    // (nothing results), so damaged input gives no half-styled text.
    static std::optional<AttributedString> createWithRuns(std::string string, std::vector<Run> runs);

    friend bool operator==(const AttributedString&, const AttributedString&) = default;

private:
    // Splits the run that holds `index` so that a run starts there.
    void splitAt(size_t index);
    void mergeRuns();

    std::string _string;
    std::vector<Run> _runs;
};

}  // namespace qm
