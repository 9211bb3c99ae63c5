// The picture of the model at a time, on clip, track and project. Everything here only assembles
// a lazy image graph; pixels arise when the caller renders it.

#include "effects/QVEffectInstance.h"
#include "effects/QVEffectState.h"
#include "effects/QVTransitionInstance.h"
#include "effects/transitions/PSTransitionBase.h"
#include "foundation/QMCommon.h"
#include "platform/Log.h"
#include "project/QVClip.h"
#include "project/QVProject.h"
#include "project/QVTrack.h"

namespace qm {

// --- Clip

Image QVClip::imageAtTimestamp(int64_t timestamp) {
    if (!trackTimeRange().containLocation(timestamp)) return Image();
    const Image source = imageAtSourceTimestamp(trackTimestampToSource(timestamp));
    if (!source) return Image();
    return effectInstance()->applyImage(source, effectState(), *effectContext(), timestamp);
}

std::shared_ptr<const Bitmap> QVClip::cgImageAtTimestamp(int64_t timestamp) {
    if (!trackTimeRange().containLocation(timestamp)) return nullptr;
    return cgImageAtSourceTimestamp(trackTimestampToSource(timestamp));
}

// --- Track

Image QVTrack::imageAtTimestamp(int64_t timestamp) const {
    const auto clips = findClipsAtTimestamp(timestamp);
    if (clips.empty()) return Image();
    if (clips.size() == 1) {
        QVClip& clip = *clips.front();
        const Image image = clip.imageAtTimestamp(timestamp);
        const auto transition = clip.transitionInstance();
        const int64_t length = transition->transitionToTileLength();
        const int64_t end = clip.trackTimeRange().end();
        if (!transition->allowTransitionToTile() || timestamp < end - length) return image;
        const double percent = static_cast<double>(length + (timestamp - end)) / static_cast<double>(length);
        const auto project = owner();
        return transition->transition()->transitionImage(image, project ? project->backgroundImage() : Image(),
                                                         percent);
    }
    if (clips.size() == 2) {
        const auto& first = clips[0];
        const auto& second = clips[1];
        if (first->timestampOfTrack() == second->timestampOfTrack()) {
            QMLog("Warning: Clip track start can not be same at the same track.");
            return first->imageAtTimestamp(timestamp);
        }
        return first->timestampOfTrack() < second->timestampOfTrack() ? transitionClip(first, second, timestamp)
                                                                      : transitionClip(second, first, timestamp);
    }
    QMLog("At the same time clip count can not over 2.");
    return Image();
}

Image QVTrack::transitionClip(const std::shared_ptr<QVClip>& earlier, const std::shared_ptr<QVClip>& later,
                              int64_t timestamp) const {
    const auto transition = earlier->transitionInstance();
    transition->setEndClip(later);
    if (!transition->validate()) {
        return earlier->videoExist() ? earlier->imageAtTimestamp(timestamp) : later->imageAtTimestamp(timestamp);
    }
    const int64_t length = transition->trackLength();
    if (length <= 0) {
        QMLog("Error transition length.");
        return later->imageAtTimestamp(timestamp);
    }
    const double percent = static_cast<double>(timestamp - transition->trackStart()) / static_cast<double>(length);
    return transition->transition()->transitionImage(earlier->imageAtTimestamp(timestamp),
                                                     later->imageAtTimestamp(timestamp), percent);
}

// --- Project

Image QVProject::imageAtTimestamp(int64_t timestamp) const { return imageAtTimestamp(timestamp, false); }

Image QVProject::currentImageForExport(bool forExport) const { return imageAtTimestamp(_currentTimestamp, forExport); }

Image QVProject::imageAtTimestamp(int64_t timestamp, bool forExport) const {
    if (timestamp > duration() + durationOfFrame()) return Image();
    Image stack;
    for (const auto& track : _tracks) {
        const Image image = track->imageAtTimestamp(timestamp);
        if (!image) continue;
        stack = stack ? sourceOver(stack, image) : image;
    }
    if (stack && forExport) stack = cropImage(stack, _enableCropped ? _cropRect : outBounds());
    const Image background = backgroundImage();
    return stack ? sourceOver(stack, background) : background;
}

Image QVProject::sourceOver(const Image& foreground, const Image& background) {
    return PSTransitionBase::sourceOverImage(foreground, background);
}

Image QVProject::cropImage(const Image& image, const Rect& rect) {
    AffineTransform shift;
    shift.translateXBy(rect.origin.x, rect.origin.y);
    return image.cropped(rect).transformed(shift);
}

Image QVProject::backgroundImage() const { return PSTransitionBase::colorImage(_backgroundColor, outBounds()); }

std::shared_ptr<const Bitmap> QVProject::thumbnail() const {
    if (!_thumbnail) _thumbnail = QMCommon::NSImageConvertFromCIImage(imageAtTimestamp(0, true));
    return _thumbnail;
}

}  // namespace qm
