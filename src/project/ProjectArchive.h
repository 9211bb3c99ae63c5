#pragma once

namespace qm {

// Registers the archive classes of the editing model ("QVClip" with its position and states,
// "QVMediaClip", "QVTrack", "QVProject") with KeyedUnarchiver. Runs once per process; call it before reading a
// project or clips.
void registerProjectArchiveClasses();

}  // namespace qm
