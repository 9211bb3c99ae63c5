#pragma once

#include <array>
#include <optional>
#include <vector>

#include "image/Image.h"
#include "image/ImageTile.h"

namespace qm {

// A chain of per-pixel colour operations that work on the straight (unpremultiplied) colour, run
// as one pass: unpremultiply, each stage in turn, clamp alpha to 0..1, premultiply. Adjacent
// matrices are multiplied together when the chain is built, so colour controls followed by an
// opacity matrix cost one matrix.
class ColorStages {
public:
    // out = m[0] * r + m[1] * g + m[2] * b + m[3] * a + m[4]   (each m[i] a column of 4 lanes)
    static ColorStages matrix(const std::array<Float4, 5>& columns);
    static ColorStages matrix(const ColorMatrix& matrix);
    // CIColorControls as one matrix (see Image::colorControls).
    static ColorStages colorControls(float brightness, float contrast, float saturation);
    // For r, g and b, each clamped to 0..1 first: out = c[0] + x * (c[1] + x * (c[2] + x * c[3])),
    // lane by lane. Alpha is kept.
    static ColorStages curve(const std::array<Float4, 4>& coefficients);
    // The look of CIPhotoEffect<Name> (see ColorStages.cpp for each one).
    static ColorStages photoEffect(PhotoEffect effect);

    // These stages followed by `next`.
    ColorStages then(const ColorStages& next) const;

    // One premultiplied pixel through the chain.
    Float4 apply(Float4 premultiplied) const;
    // `count` premultiplied pixels in place.
    void applyRow(float* pixels, int count) const;
    // A transparent pixel stays transparent (no stage writes alpha from a constant).
    bool keepsTransparent() const { return _keepsTransparent; }
    // The factor, when the chain multiplies every channel of a premultiplied pixel by one number
    // (a fade).
    std::optional<float> uniformScale() const { return _uniformScale; }

private:
    struct Stage {
        bool isMatrix = true;
        std::array<Float4, 5> v;
    };

    explicit ColorStages(std::vector<Stage> stages);

    std::vector<Stage> _stages;
    bool _keepsTransparent = true;
    // A single matrix whose alpha is alpha times a factor in 0..1 and whose colour ignores alpha
    // is linear on premultiplied pixels: out = l[0] * r + l[1] * g + l[2] * b + l[3] * a.
    bool _linear = false;
    std::array<Float4, 4> _premultipliedColumns{};
    std::optional<float> _uniformScale;
};

}  // namespace qm
