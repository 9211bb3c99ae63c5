#pragma once

#include <memory>
#include <string>

#include "project/QVProject.h"

namespace qm::cli {

// A project described by a JSON edit file:
//
//   { "output": { "width": 1280, "height": 720, "fps": 30, "sampleRate": 44100, "channels": 2,
//                 "sampleFormat": "s16", "background": [0, 0, 0] },
//     "tracks": [ { "clips": [ { "file": "a.mp4", "start": 0, "duration": 6, ... } ] } ] }
//
// Track 0 lies on top. A clip names its source by exactly one of:
//   "file"      a media file (imported into the store when it is not there yet; a relative path is
//               taken from the edit file's folder),
//   "resource"  an identifier of the store,
//   "text"      the text of a text clip (lines split by "\n"),
//   "blank"     the [r, g, b] or [r, g, b, a] of a colour clip as large as the output picture,
//   "shape"     "rectangle" or "ellipse" (with "bounds": [x, y, w, h]), "line" or "arrow" (with
//               "from" and "to": [x, y]), in canvas coordinates.
// Times are in seconds. Optional clip keys: "start", "duration", "offset" (into the source; file
// and resource clips only), "transition" (a transition name, into the next clip), "tile" (seconds
// of transition into the background at the clip's end), "fadeIn", "fadeOut" (seconds; file and
// resource clips only), "volume", "mute", "position" ([x, y, width, height] on the canvas, origin at
// the lower left, or [x, y] to keep the size; not for shapes), "rotation" (degrees), "color"
// ({"brightness", "contrast", "saturation", "opacity"}: the colour controls), "crop" ([x, y, w, h]
// of the source), "shadow" ({"offsetX", "offsetY", "blur", "color": [r, g, b, a]}), "effects"
// ({"entrance", "entranceDuration", "emphasis", "emphasisDuration", "exit", "exitDuration"}).
// Text clips also take "font" (a family such as "DejaVu Sans", or a face such as
// "DejaVuSans-Bold"), "size" (points, 16 unless given), "bold", "italic", "underline" (true or
// false), "textColor" ([r, g, b, a]), "align" ("left", "center" or "right"), "plate" (the colour
// of the rounded plate behind the text) and "plateRadius". Shapes also take "stroke" and "fill"
// (colours), "lineWidth", "radius" (rectangle corners) and "doubleArrow" (arrows).
//
// Anything wrong (the file, its JSON with line and column, a key of the wrong kind, an unknown
// transition or effect name, a clip the track cannot place) throws CommandError with one line.
std::shared_ptr<QVProject> loadEditFile(const std::string& path);

}  // namespace qm::cli
