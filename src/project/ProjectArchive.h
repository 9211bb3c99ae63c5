#pragma once

namespace qm {

// Registers the archive classes of the editing model ("QVClip" with its position, states and
// effect and transition instances, "QVMediaClip", the blank, text and shape clips with the paths
// and attributed text they hold, "QVTrack", "QVProject") with KeyedUnarchiver.
// Runs once per process; call it before reading a project or clips.
void registerProjectArchiveClasses();

}  // namespace qm
