#pragma once

#include <memory>

namespace qm {

class Bitmap;

// The pictures the transition catalogue carries, drawn by code: the shading sphere, the
// disintegration mask and the two sample pictures its thumbnails show.
class PSTransitionAssets {
public:
    // Side of the square shading and mask pictures.
    static constexpr int kAssetSize = 256;
    // Size of a transition thumbnail, and of the pictures it is drawn from before reduction.
    static constexpr int kFaceWidth = 128;
    static constexpr int kFaceHeight = 72;
    static constexpr int kFaceRenderWidth = 960;
    static constexpr int kFaceRenderHeight = 540;

    // A grey sphere filling its square, lit from the upper left with a soft highlight; outside the
    // sphere each pixel repeats the rim below it. Made once, shared.
    static std::shared_ptr<const Bitmap> shadingBitmap();
    // Opaque grey clouds whose levels are spread evenly over 0..1, so a disintegration driven by
    // it uncovers the same area in every equal step of time. Made once, shared.
    static std::shared_ptr<const Bitmap> maskBitmap();
    // One of two opaque sample pictures (index 0: a warm landscape at sunset, 1: a cool tiled
    // pattern with a ring), drawn at any size.
    static std::shared_ptr<const Bitmap> samplePicture(int index, int width, int height);
};

}  // namespace qm
