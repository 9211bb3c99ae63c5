#include "platform/GraphicsArchive.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>

namespace qm {

namespace {

void appendDouble(std::vector<uint8_t>& bytes, double value) {
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    for (int i = 0; i < 8; ++i) bytes.push_back(static_cast<uint8_t>(bits >> (8 * i)));
}

double readDouble(const uint8_t* bytes) {
    uint64_t bits = 0;
    for (int i = 0; i < 8; ++i) bits |= static_cast<uint64_t>(bytes[i]) << (8 * i);
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

constexpr size_t bytesPerElement = 6 * sizeof(double);

}  // namespace

std::shared_ptr<ArchivedBezierPath> ArchivedBezierPath::createWithPath(BezierPath path) {
    auto archived = std::make_shared<ArchivedBezierPath>();
    archived->_path = std::move(path);
    return archived;
}

void ArchivedBezierPath::encodeWithCoder(KeyedArchiver& coder) const {
    std::vector<uint8_t> kinds;
    std::vector<uint8_t> points;
    for (const auto& element : _path.elements()) {
        kinds.push_back(static_cast<uint8_t>(element.kind));
        for (const auto& point : element.points) {
            appendDouble(points, point.x);
            appendDouble(points, point.y);
        }
    }
    coder.encodeData("elements", kinds);
    coder.encodeData("points", points);
    coder.encodeDouble("lineWidth", _path.lineWidth());
    coder.encodeInteger("lineCapStyle", static_cast<int64_t>(_path.lineCapStyle()));
    coder.encodeInteger("lineJoinStyle", static_cast<int64_t>(_path.lineJoinStyle()));
}

std::shared_ptr<ArchivedBezierPath> ArchivedBezierPath::createWithCoder(KeyedUnarchiver& coder) {
    const auto kinds = coder.decodeData("elements");
    const auto points = coder.decodeData("points");
    const int64_t cap = coder.decodeInteger("lineCapStyle");
    const int64_t join = coder.decodeInteger("lineJoinStyle");
    if (points.size() != kinds.size() * bytesPerElement || cap < 0 || cap > 2 || join < 0 || join > 2) return nullptr;
    BezierPath path;
    for (size_t i = 0; i < kinds.size(); ++i) {
        const uint8_t* p = points.data() + i * bytesPerElement;
        Point ps[3];
        for (int k = 0; k < 3; ++k) {
            ps[k] = {readDouble(p + 16 * k), readDouble(p + 16 * k + 8)};
            if (!std::isfinite(ps[k].x) || !std::isfinite(ps[k].y)) return nullptr;
        }
        switch (static_cast<BezierPath::Element::Kind>(kinds[i])) {
            case BezierPath::Element::Kind::MoveTo:
                path.moveToPoint(ps[0]);
                break;
            case BezierPath::Element::Kind::LineTo:
                path.lineToPoint(ps[0]);
                break;
            case BezierPath::Element::Kind::CurveTo:
                path.curveToPoint(ps[0], ps[1], ps[2]);
                break;
            case BezierPath::Element::Kind::ClosePath:
                path.closePath();
                break;
            default:
                return nullptr;
        }
    }
    path.setLineWidth(coder.decodeDouble("lineWidth"));
    path.setLineCapStyle(static_cast<BezierPath::LineCapStyle>(cap));
    path.setLineJoinStyle(static_cast<BezierPath::LineJoinStyle>(join));
    return createWithPath(std::move(path));
}

std::shared_ptr<ArchivedTextRun> ArchivedTextRun::createWithRun(AttributedString::Run run) {
    auto archived = std::make_shared<ArchivedTextRun>();
    archived->_run = std::move(run);
    return archived;
}

void ArchivedTextRun::encodeWithCoder(KeyedArchiver& coder) const {
    const TextAttributes& a = _run.attributes;
    coder.encodeInteger("location", static_cast<int64_t>(_run.location));
    coder.encodeInteger("length", static_cast<int64_t>(_run.length));
    if (a.font) {
        coder.encodeString("fontName", a.font->fontName);
        coder.encodeString("familyName", a.font->familyName);
        coder.encodeDouble("pointSize", a.font->pointSize);
        coder.encodeInteger("weight", a.font->weight);
        coder.encodeBool("italic", a.font->italic);
        coder.encodeInteger("width", a.font->width);
    }
    coder.encodeColor("NSColor", a.foregroundColor);
    coder.encodeInteger("underlineStyle", a.underlineStyle);
    coder.encodeColor("underlineColor", a.underlineColor);
    coder.encodeInteger("strikethroughStyle", a.strikethroughStyle);
    coder.encodeColor("strikethroughColor", a.strikethroughColor);
    if (a.alignment) coder.encodeInteger("alignment", static_cast<int64_t>(*a.alignment));
}

std::shared_ptr<ArchivedTextRun> ArchivedTextRun::createWithCoder(KeyedUnarchiver& coder) {
    const int64_t location = coder.decodeInteger("location");
    const int64_t length = coder.decodeInteger("length");
    if (location < 0 || length < 0) return nullptr;
    AttributedString::Run run{static_cast<size_t>(location), static_cast<size_t>(length), {}};
    TextAttributes& a = run.attributes;
    if (coder.containsValueForKey("fontName")) {
        Font font;
        font.fontName = coder.decodeString("fontName");
        font.familyName = coder.decodeString("familyName");
        font.pointSize = coder.decodeDouble("pointSize");
        font.weight = static_cast<int>(std::clamp<int64_t>(coder.decodeInteger("weight"), 1, 1000));
        font.italic = coder.decodeBool("italic");
        font.width = static_cast<int>(std::clamp<int64_t>(coder.decodeInteger("width"), 1, 1000));
        a.font = font;
    }
    a.foregroundColor = coder.decodeColor("NSColor");
    a.underlineStyle = coder.decodeInteger("underlineStyle") != 0 ? 1 : 0;
    a.underlineColor = coder.decodeColor("underlineColor");
    a.strikethroughStyle = coder.decodeInteger("strikethroughStyle") != 0 ? 1 : 0;
    a.strikethroughColor = coder.decodeColor("strikethroughColor");
    if (coder.containsValueForKey("alignment")) {
        const int64_t alignment = coder.decodeInteger("alignment");
        if (alignment < 0 || alignment > 4) return nullptr;
        a.alignment = static_cast<TextAlignment>(alignment);
    }
    return createWithRun(std::move(run));
}

std::shared_ptr<ArchivedAttributedString> ArchivedAttributedString::createWithString(AttributedString text) {
    auto archived = std::make_shared<ArchivedAttributedString>();
    archived->_text = std::move(text);
    return archived;
}

void ArchivedAttributedString::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeString("NSString", _text.string());
    std::vector<std::shared_ptr<ArchivedTextRun>> runs;
    for (const auto& run : _text.runs()) runs.push_back(ArchivedTextRun::createWithRun(run));
    coder.encodeObjects("NSAttributes", runs);
}

std::shared_ptr<ArchivedAttributedString> ArchivedAttributedString::createWithCoder(KeyedUnarchiver& coder) {
    std::string string = coder.decodeString("NSString");
    std::vector<AttributedString::Run> runs;
    for (const auto& run : coder.decodeObjectsOfClass<ArchivedTextRun>("NSAttributes")) runs.push_back(run->run());
    auto text = AttributedString::createWithRuns(std::move(string), std::move(runs));
    if (!text) return nullptr;
    return createWithString(std::move(*text));
}

void registerGraphicsArchiveClasses() {
    static std::once_flag once;
    std::call_once(once, [] {
        KeyedUnarchiver::registerClass<ArchivedBezierPath>("NSBezierPath");
        KeyedUnarchiver::registerClass<ArchivedTextRun>("NSTextRun");
        KeyedUnarchiver::registerClass<ArchivedAttributedString>("NSAttributedString");
    });
}

}  // namespace qm
