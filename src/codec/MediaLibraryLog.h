#pragma once

namespace qm {

// Sends the media libraries' own messages of warning level and above to QMLog, one line each,
// and drops the rest, so that a terminal shows only the host's lines. Safe to call more than once.
void routeMediaLibraryLogToQMLog();

}  // namespace qm
