#include "project/ProjectArchive.h"

#include <mutex>

#include "effects/QVClipStates.h"
#include "effects/QVEffectInstance.h"
#include "platform/GraphicsArchive.h"
#include "platform/KeyedArchiver.h"
#include "project/QVClip.h"
#include "project/QVMediaClip.h"
#include "project/QVProject.h"
#include "project/QVShapeClip.h"
#include "project/QVTextClip.h"
#include "project/QVTrack.h"

namespace qm {

void registerProjectArchiveClasses() {
    static std::once_flag once;
    std::call_once(once, [] {
        KeyedUnarchiver::registerClass<QVClip>("QVClip");
        KeyedUnarchiver::registerClass<QVMediaClip>("QVMediaClip");
        KeyedUnarchiver::registerClass<QVBlankClip>("QVBlankClip");
        KeyedUnarchiver::registerClass<QVTextClip>("QVTextClip");
        KeyedUnarchiver::registerClass<QVShapeClip>("QVShapeClip");
        KeyedUnarchiver::registerClass<QVRectShapeClip>("QVRectShapeClip");
        KeyedUnarchiver::registerClass<QVEllipseShapeClip>("QVEllipseShapeClip");
        KeyedUnarchiver::registerClass<QVLineShapeClip>("QVLineShapeClip");
        KeyedUnarchiver::registerClass<QVArrowShapeClip>("QVArrowShapeClip");
        KeyedUnarchiver::registerClass<QVClipPosition>("QVClipPosition");
        KeyedUnarchiver::registerClass<QVColorState>("QVColorState");
        KeyedUnarchiver::registerClass<QVShadowState>("QVShadowState");
        KeyedUnarchiver::registerClass<QVCropState>("QVCropState");
        KeyedUnarchiver::registerClass<QVTrack>("QVTrack");
        KeyedUnarchiver::registerClass<QVProject>("QVProject");
        QVEffectInstance::registerArchiveClasses();
        registerGraphicsArchiveClasses();
    });
}

}  // namespace qm
