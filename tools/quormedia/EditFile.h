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
// Track 0 lies on top. A clip names its source by "file" (imported into the store when it is not
// there yet; a relative path is taken from the edit file's folder) or by "resource" (an identifier
// of the store). Times are in seconds. Optional clip keys: "start", "duration", "offset" (into
// the source), "transition" (a transition name, into the next clip), "tile" (seconds of
// transition into the background at the clip's end), "fadeIn", "fadeOut" (seconds), "volume",
// "mute", "position" ([x, y, width, height] on the canvas, origin at the lower left), "rotation"
// (degrees), "color" ({"brightness", "contrast", "saturation", "opacity"}), "crop" ([x, y, w, h]
// of the source), "shadow" ({"offsetX", "offsetY", "blur", "color": [r, g, b, a]}), "effects"
// ({"entrance", "entranceDuration", "emphasis", "emphasisDuration", "exit", "exitDuration"}).
//
// Anything wrong (the file, its JSON with line and column, a key of the wrong kind, an unknown
// transition or effect name, a clip the track cannot place) throws CommandError with one line.
std::shared_ptr<QVProject> loadEditFile(const std::string& path);

}  // namespace qm::cli
