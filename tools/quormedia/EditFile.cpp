#include "EditFile.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "CommandError.h"
#include "Store.h"
#include "codec/QVTimebase.h"
#include "effects/QVEffectInstance.h"
#include "effects/QVEffectTemplateMgr.h"
#include "effects/QVTransitionInstance.h"
#include "foundation/QVSampleDescription.h"
#include "platform/FontManager.h"
#include "project/QVMediaClip.h"
#include "project/QVShapeClip.h"
#include "project/QVTextClip.h"
#include "project/QVTrack.h"
#include "store/AMResourceMgr.h"

namespace qm::cli {

namespace {

using Json = nlohmann::json;

[[noreturn]] void fail(const std::string& where, const std::string& what) {
    throw CommandError(where + ": " + what, kExitBadInput);
}

// "line L, column C" of byte `offset` in `text`.
std::string lineAndColumn(const std::string& text, size_t offset) {
    offset = std::min(offset, text.size());
    size_t line = 1, column = 1;
    for (size_t i = 0; i < offset; ++i) {
        if (text[i] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    return "line " + std::to_string(line) + ", column " + std::to_string(column);
}

// A JSON value and where it stands, for messages.
struct Node {
    const Json& value;
    std::string where;

    bool has(const char* key) const { return value.is_object() && value.contains(key); }
    Node operator[](const char* key) const { return {value.at(key), where + "." + key}; }

    double number() const {
        if (!value.is_number()) fail(where, "expected a number");
        return value.get<double>();
    }
    double numberOr(const char* key, double fallback) const { return has(key) ? (*this)[key].number() : fallback; }
    int64_t seconds(const char* key, double fallback) const {
        const double s = numberOr(key, fallback);
        if (!(s >= 0) || s > 1e7) fail(where + "." + key, "expected seconds from 0 on");
        return static_cast<int64_t>(s * static_cast<double>(QVTimebase) + 0.5);
    }
    std::string text() const {
        if (!value.is_string()) fail(where, "expected a text");
        return value.get<std::string>();
    }
    bool flag() const {
        if (!value.is_boolean()) fail(where, "expected true or false");
        return value.get<bool>();
    }
    std::vector<double> numbers(size_t count) const {
        if (!value.is_array() || value.size() != count) fail(where, "expected " + std::to_string(count) + " numbers");
        std::vector<double> result;
        for (size_t i = 0; i < count; ++i)
            result.push_back(Node{value[i], where + "[" + std::to_string(i) + "]"}.number());
        return result;
    }
    Rect rect() const {
        const auto v = numbers(4);
        return {v[0], v[1], v[2], v[3]};
    }
    Point point() const {
        const auto v = numbers(2);
        return {v[0], v[1]};
    }
    Color color() const {
        if (!value.is_array() || (value.size() != 3 && value.size() != 4))
            fail(where, "expected [r, g, b] or [r, g, b, a]");
        const auto v = numbers(value.size());
        for (double c : v) {
            if (c < 0 || c > 1) fail(where, "colour parts go from 0 to 1");
        }
        return {v[0], v[1], v[2], v.size() == 4 ? v[3] : 1.0};
    }
};

void requireName(const Node& node, const std::string& name, const std::vector<std::string>& names, const char* kind) {
    if (std::find(names.begin(), names.end(), name) == names.end()) {
        fail(node.where, std::string("unknown ") + kind + " \"" + name + "\"");
    }
}

int32_t sampleFormatNamed(const Node& node) {
    const std::string name = node.text();
    if (name == "s16") return QVSampleFormatS16;
    if (name == "s32") return QVSampleFormatS32;
    if (name == "float") return QVSampleFormatFLT;
    fail(node.where, "unknown sample format \"" + name + "\" (s16, s32 or float)");
}

void applyOutput(const Node& output, QVProject& project) {
    const auto positive = [&](const char* key, double fallback, double most) {
        const double v = output.numberOr(key, fallback);
        if (!(v >= 1) || v > most) fail(output.where + "." + key, "out of range");
        return v;
    };
    project.setOutVideoWidth(static_cast<int64_t>(positive("width", 1280, 8192)));
    project.setOutVideoHeight(static_cast<int64_t>(positive("height", 720, 8192)));
    project.setOutVideoFPS(positive("fps", 30, 240));
    project.setOutSampleRate(static_cast<int64_t>(positive("sampleRate", 44100, 192000)));
    project.setOutChannelCount(static_cast<int64_t>(positive("channels", 2, 2)));
    if (output.has("sampleFormat")) project.setOutSampleFormat(sampleFormatNamed(output["sampleFormat"]));
    if (output.has("background")) project.setBackgroundColor(output["background"].color());
}

void applyEffects(const Node& effects, QVEffectInstance& instance) {
    const auto& templates = QVEffectTemplateMgr::shareEffectTemplateMgr();
    const auto phase = [&](const char* nameKey, const char* durationKey, const std::vector<std::string>& names,
                           auto setName, auto setDuration) {
        if (effects.has(nameKey)) {
            const std::string name = effects[nameKey].text();
            requireName(effects[nameKey], name, names, "effect");
            (instance.*setName)(name);
        }
        if (effects.has(durationKey)) (instance.*setDuration)(effects.seconds(durationKey, 0));
    };
    phase("entrance", "entranceDuration", templates.supportedEntranceEffects(), &QVEffectInstance::setEntranceName,
          &QVEffectInstance::setDurationEntranceEffect);
    phase("emphasis", "emphasisDuration", templates.supportedEnhanceEffects(), &QVEffectInstance::setEnhanceName,
          &QVEffectInstance::setDurationEnhanceEffect);
    phase("exit", "exitDuration", templates.supportedExitEffects(), &QVEffectInstance::setExitName,
          &QVEffectInstance::setDurationExitEffect);
}

void applyLook(const Node& clipNode, QVClip& clip) {
    if (clipNode.has("position")) {
        const Node position = clipNode["position"];
        if (dynamic_cast<QVShapeClip*>(&clip)) fail(position.where, "a shape takes its place from its own keys");
        if (position.value.is_array() && position.value.size() == 2) {
            clip.clipPosition()->setLocation(position.point());
        } else {
            clip.clipPosition()->setBounds(position.rect());
        }
    }
    if (clipNode.has("rotation")) clip.clipPosition()->setRotateAngle(clipNode["rotation"].number());
    if (clipNode.has("color")) {
        const Node color = clipNode["color"];
        clip.setValidateColorControl(true);
        const auto state = clip.colorState();
        state->setBrightness(color.numberOr("brightness", 0));
        state->setContrast(color.numberOr("contrast", 1));
        state->setSaturation(color.numberOr("saturation", 1));
        state->setOpacity(color.numberOr("opacity", 1));
    }
    if (clipNode.has("crop")) {
        clip.setValidateCrop(true);
        clip.cropState()->setCropRect(clipNode["crop"].rect());
    }
    if (clipNode.has("shadow")) {
        const Node shadow = clipNode["shadow"];
        clip.setValideteShadow(true);
        const auto state = clip.shadowState();
        state->setShadowOffsetX(shadow.numberOr("offsetX", 0));
        state->setShadowOffsetY(shadow.numberOr("offsetY", 0));
        state->setBlurRadius(shadow.numberOr("blur", 0));
        if (shadow.has("color")) state->setShadowColor(shadow["color"].color());
    }
}

// The path a clip's "file" names, taken from the edit file's folder when relative.
std::string filePath(const Node& node, const std::filesystem::path& folder) {
    std::filesystem::path file = node["file"].text();
    return (file.is_relative() ? folder / file : file).string();
}

// Every file the clips name, each once, brought into the store in one import.
ImportOutcome importNamedFiles(const Json& tracks, const std::filesystem::path& folder) {
    std::vector<std::string> paths;
    for (const auto& track : tracks) {
        if (!track.is_object() || !track.contains("clips") || !track["clips"].is_array()) continue;
        for (const auto& clip : track["clips"]) {
            if (!clip.is_object() || !clip.contains("file") || !clip["file"].is_string()) continue;
            const std::string path = filePath({clip, ""}, folder);
            if (std::find(paths.begin(), paths.end(), path) == paths.end()) paths.push_back(path);
        }
    }
    ImportOutcome outcome = importFiles(paths);
    if (!outcome.failures.empty()) throw CommandError(outcome.failures.front(), kExitFailure);
    return outcome;
}

std::shared_ptr<QVMediaClip> makeMediaClip(const Node& node, const std::filesystem::path& folder,
                                           const ImportOutcome& imported) {
    std::shared_ptr<SCResource> resource;
    if (node.has("resource")) {
        const std::string identifier = node["resource"].text();
        resource = AMResourceMgr::resourceMgr().findResourceWithIdentifier(identifier);
        if (!resource) fail(node.where + ".resource", "no resource \"" + identifier + "\" in the store");
    } else {
        resource = imported.resources.at(filePath(node, folder));
    }
    auto clip = QVMediaClip::createWithResource(resource);
    clip->setTimestampOfResource(node.seconds("offset", 0));
    return clip;
}

TextAlignment alignmentNamed(const Node& node) {
    const std::string name = node.text();
    if (name == "left") return TextAlignment::Left;
    if (name == "center") return TextAlignment::Center;
    if (name == "right") return TextAlignment::Right;
    fail(node.where, "unknown alignment \"" + name + "\" (left, center or right)");
}

// The face of "font" (a family or a face name) with the "bold" and "italic" flags, at "size".
Font textFont(const Node& node) {
    const double size = node.numberOr("size", QVTextClip::defaultFont().pointSize);
    if (!(size > 0) || size > 2000) fail(node.where + ".size", "out of range");
    const bool bold = node.has("bold") && node["bold"].flag();
    const bool italic = node.has("italic") && node["italic"].flag();
    const std::string name = node.has("font") ? node["font"].text() : QVTextClip::defaultFont().fontName;
    if (name.empty()) fail(node.where + ".font", "expected a font name");
    const auto member = QVFontManager::shareFontManager().selectFontNameFromFamily(name, bold, italic);
    Font font = *Font::fontWithName(member.value_or(name), size);
    if (member) return font;
    const auto& fonts = FontManager::sharedFontManager();
    if (bold) font = fonts.convertFontToHaveTrait(font, FontManager::boldTrait);
    if (italic) font = fonts.convertFontToHaveTrait(font, FontManager::italicTrait);
    return font;
}

std::shared_ptr<QVTextClip> makeTextClip(const Node& node) {
    TextAttributes style = QVTextClip::defaultAttributes();
    style.font = textFont(node);
    if (node.has("textColor")) style.foregroundColor = node["textColor"].color();
    if (node.has("align")) style.alignment = alignmentNamed(node["align"]);
    if (node.has("underline")) style.underlineStyle = node["underline"].flag() ? 1 : 0;
    auto clip = QVTextClip::createWithAttributeString(AttributedString(node["text"].text(), style));
    if (node.has("plate")) clip->setBackgroundColor(node["plate"].color());
    if (node.has("plateRadius")) clip->setBackgroundRoundRadius(node["plateRadius"].number());
    return clip;
}

std::shared_ptr<QVShapeClip> makeShapeClip(const Node& node) {
    const std::string kind = node["shape"].text();
    std::shared_ptr<QVShapeClip> clip;
    const auto need = [&](const char* key) {
        if (!node.has(key)) fail(node.where, "a " + kind + " needs \"" + key + "\"");
        return node[key];
    };
    if (kind == "rectangle") {
        const double radius = node.numberOr("radius", 0);
        clip = QVRectShapeClip::shapeClipWithRect(need("bounds").rect(), radius, radius);
    } else if (kind == "ellipse") {
        clip = QVEllipseShapeClip::shapeClipWithEllipseInRect(need("bounds").rect());
    } else if (kind == "line") {
        clip = QVLineShapeClip::shapeClipWithLineStartPoint(need("from").point(), need("to").point());
    } else if (kind == "arrow") {
        clip = QVArrowShapeClip::shapeClipWithArrawStartPoint(need("from").point(), need("to").point());
        if (node.has("doubleArrow")) clip->setDoubleArrow(node["doubleArrow"].flag());
    } else {
        fail(node.where + ".shape", "unknown shape \"" + kind + "\" (rectangle, ellipse, line or arrow)");
    }
    if (node.has("lineWidth")) clip->setLineWidth(node["lineWidth"].number());
    if (node.has("stroke")) clip->setStrokeColor(node["stroke"].color());
    if (node.has("fill")) clip->setFillColor(node["fill"].color());
    return clip;
}

std::shared_ptr<QVClip> makeSourceClip(const Node& node, const std::filesystem::path& folder,
                                       const ImportOutcome& imported) {
    if (!node.value.is_object()) fail(node.where, "expected an object");
    int kinds = 0;
    for (const char* key : {"file", "resource", "text", "blank", "shape"}) kinds += node.has(key) ? 1 : 0;
    if (kinds != 1) fail(node.where, "a clip needs one of \"file\", \"resource\", \"text\", \"blank\" or \"shape\"");
    if (node.has("text")) return makeTextClip(node);
    if (node.has("blank")) return QVBlankClip::createWithColor(node["blank"].color());
    if (node.has("shape")) return makeShapeClip(node);
    return makeMediaClip(node, folder, imported);
}

void applyFades(const Node& node, QVClip& clip) {
    auto* media = dynamic_cast<QVMediaClip*>(&clip);
    for (const char* key : {"offset", "fadeIn", "fadeOut"}) {
        if (!media && node.has(key)) fail(node.where + "." + key, "only a clip of a file or resource has this");
    }
    if (!media) return;
    if (node.has("fadeIn")) {
        media->setFadeIn(true);
        media->setDurationOfFadeIn(node.seconds("fadeIn", 0));
    }
    if (node.has("fadeOut")) {
        media->setFadeOut(true);
        media->setDurationOfFadeOut(node.seconds("fadeOut", 0));
    }
}

std::shared_ptr<QVClip> makeClip(const Node& node, const std::filesystem::path& folder, const ImportOutcome& imported) {
    auto clip = makeSourceClip(node, folder, imported);
    if (node.has("duration")) clip->setTrackDuration(node.seconds("duration", 0));
    clip->setTimestampOfTrack(node.seconds("start", 0));
    if (node.has("transition")) {
        const std::string name = node["transition"].text();
        requireName(node["transition"], name, PSTransition::supportTransitions(), "transition");
        clip->transitionInstance()->setTransitionName(name);
    }
    if (node.has("tile")) {
        clip->transitionInstance()->setAllowTransitionToTile(true);
        clip->transitionInstance()->setTransitionToTileLength(node.seconds("tile", 0));
    }
    applyFades(node, *clip);
    if (node.has("volume")) clip->setTrackVolume(node["volume"].number());
    if (node.has("mute")) clip->setMute(node["mute"].flag());
    if (node.has("effects")) applyEffects(node["effects"], *clip->effectInstance());
    return clip;
}

}  // namespace

std::shared_ptr<QVProject> loadEditFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw CommandError(path + ": cannot open the edit file", kExitBadInput);
    std::stringstream buffer;
    buffer << in.rdbuf();
    const std::string text = buffer.str();
    Json root;
    try {
        root = Json::parse(text);
    } catch (const Json::parse_error& error) {
        throw CommandError(path + ": malformed JSON at " + lineAndColumn(text, error.byte > 0 ? error.byte - 1 : 0),
                           kExitBadInput);
    }
    const Node top{root, path};
    if (!root.is_object()) fail(path, "expected an object with \"tracks\"");
    if (!top.has("tracks") || !root["tracks"].is_array()) fail(path, "expected a list \"tracks\"");

    auto project = QVProject::create();
    if (top.has("output")) applyOutput(top["output"], *project);
    const auto folder = std::filesystem::path(path).parent_path();
    const Node tracks = top["tracks"];
    const ImportOutcome imported = importNamedFiles(tracks.value, folder);
    for (size_t t = 0; t < tracks.value.size(); ++t) {
        const Node trackNode{tracks.value[t], tracks.where + "[" + std::to_string(t) + "]"};
        if (!trackNode.has("clips") || !trackNode.value["clips"].is_array())
            fail(trackNode.where, "expected \"clips\"");
        auto track = QVTrack::createWithProject(project);
        project->addTracksObject(track);
        const Node clips = trackNode["clips"];
        for (size_t c = 0; c < clips.value.size(); ++c) {
            const Node clipNode{clips.value[c], clips.where + "[" + std::to_string(c) + "]"};
            const auto clip = makeClip(clipNode, folder, imported);
            if (!track->addClip(clip)) {
                fail(clipNode.where, "the clip overlaps a clip it may not (at most two clips at any time)");
            }
            applyLook(clipNode, *clip);
        }
    }
    return project;
}

}  // namespace qm::cli
