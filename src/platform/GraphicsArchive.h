#pragma once

#include <memory>
#include <string>

#include "platform/AttributedString.h"
#include "platform/BezierPath.h"
#include "platform/KeyedArchiver.h"

namespace qm {

// A bezier path as an archivable object ("NSBezierPath"): "elements" (one byte per element kind),
// "points" (three points per element, six little-endian doubles), "lineWidth" (double),
// "lineCapStyle" and "lineJoinStyle" (integers). Element lists whose sizes disagree, or unknown
// kinds, styles or non-finite points, read as nothing.
class ArchivedBezierPath : public Archivable {
public:
    static std::shared_ptr<ArchivedBezierPath> createWithPath(BezierPath path);
    static std::shared_ptr<ArchivedBezierPath> createWithCoder(KeyedUnarchiver& coder);

    const BezierPath& path() const { return _path; }

    std::string archiveClassName() const override { return "NSBezierPath"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    BezierPath _path;
};

// The attributes of one run of text ("NSTextRun"): "location", "length" (integers); when set,
// "fontName", "familyName" (texts), "pointSize" (double), "weight", "width" (integers), "italic"
// (bool); "NSColor", "underlineStyle", "underlineColor", "strikethroughStyle",
// "strikethroughColor", "alignment".
class ArchivedTextRun : public Archivable {
public:
    static std::shared_ptr<ArchivedTextRun> createWithRun(AttributedString::Run run);
    static std::shared_ptr<ArchivedTextRun> createWithCoder(KeyedUnarchiver& coder);

    const AttributedString::Run& run() const { return _run; }

    std::string archiveClassName() const override { return "NSTextRun"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    AttributedString::Run _run;
};

// Attributed text as an archivable object ("NSAttributedString"): "NSString" (text) and
// "NSAttributes" (list of NSTextRun). Runs that do not cover the text exactly read as nothing.
class ArchivedAttributedString : public Archivable {
public:
    static std::shared_ptr<ArchivedAttributedString> createWithString(AttributedString text);
    static std::shared_ptr<ArchivedAttributedString> createWithCoder(KeyedUnarchiver& coder);

    const AttributedString& attributedString() const { return _text; }

    std::string archiveClassName() const override { return "NSAttributedString"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    AttributedString _text;
};

// Registers the three classes above with KeyedUnarchiver, once per process.
void registerGraphicsArchiveClasses();

}  // namespace qm
