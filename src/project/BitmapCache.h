#pragma once

#include <atomic>
#include <memory>

#include "platform/Bitmap.h"

namespace qm {

// The picture a drawn clip renders once and keeps until a change drops it. Filled by whichever
// thread asks first, without a lock: two that race both draw, and one picture is kept.
class BitmapCache {
public:
    // The kept picture, or the one `draw` makes now (which is kept).
    template <class Draw>
    std::shared_ptr<const Bitmap> bitmap(Draw draw) {
        if (auto cached = _bitmap.load()) return cached;
        auto drawn = draw();
        _bitmap.store(drawn);
        return drawn;
    }
    void reset() { _bitmap.store(nullptr); }

private:
    std::atomic<std::shared_ptr<const Bitmap>> _bitmap;
};

}  // namespace qm
