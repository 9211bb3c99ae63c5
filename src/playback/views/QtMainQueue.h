#pragma once

namespace qm {

// While it lives, Qt's event loop drains the engine's main queue: every task posted to it wakes
// the Qt loop, which runs the queue on the GUI thread. Make it on the GUI thread after the
// QApplication, and let it go before the application does.
class QtMainQueue {
public:
    QtMainQueue();
    ~QtMainQueue();
    QtMainQueue(const QtMainQueue&) = delete;
    QtMainQueue& operator=(const QtMainQueue&) = delete;
};

}  // namespace qm
