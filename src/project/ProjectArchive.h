#pragma once

namespace qm {

// Registers the archive classes of the editing model ("QVClip" with its position, states and
// effect and transition instances, "QVMediaClip", "QVTrack", "QVProject") with KeyedUnarchiver.
// Runs once per process; call it before reading a project or clips.
void registerProjectArchiveClasses();

}  // namespace qm
