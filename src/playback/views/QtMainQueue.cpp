#include "playback/views/QtMainQueue.h"

#include <QCoreApplication>
#include <QMetaObject>

#include "platform/Dispatch.h"

namespace qm {

QtMainQueue::QtMainQueue() {
    // The first drain makes the calling (GUI) thread the engine's main thread.
    MainLoop::drain();
    MainLoop::setWakeUpHandler([] {
        if (QCoreApplication* application = QCoreApplication::instance()) {
            QMetaObject::invokeMethod(
                application, [] { MainLoop::drain(); }, Qt::QueuedConnection);
        }
    });
}

QtMainQueue::~QtMainQueue() { MainLoop::setWakeUpHandler({}); }

}  // namespace qm
