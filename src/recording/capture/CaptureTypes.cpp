#include "recording/capture/CaptureTypes.h"

namespace qm {

const char* captureMediaTypeName(CaptureMediaType type) { return type == CaptureMediaType::audio ? "soun" : "vide"; }

}  // namespace qm
