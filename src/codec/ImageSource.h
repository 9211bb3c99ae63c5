#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/Bitmap.h"

namespace qm {

// The pictures of an image file (CGImageSource), read with FFmpeg's demuxers and image
// decoders: JPEG, PNG, BMP, TIFF (its first page), GIF with every frame, and whatever other
// still-picture format FFmpeg knows. The file's bytes are read once when the source is made;
// pictures are decoded on request. Not thread-safe: one caller at a time.
class ImageSource {
public:
    // Nothing when the file cannot be read, is not a picture file (a movie is refused), FFmpeg
    // has no decoder for its pictures, or the first picture does not decode.
    static std::shared_ptr<ImageSource> createWithURL(const std::string& path);

    ~ImageSource();
    ImageSource(const ImageSource&) = delete;
    ImageSource& operator=(const ImageSource&) = delete;

    // Number of pictures: the frames of an animation, else 1.
    size_t count() const;
    // Picture `index` as the decoder composes it (a GIF frame over the frames before it), or
    // nothing when the index is out of range or the picture does not decode. Asking for an
    // earlier frame of an animation decodes again from its first frame.
    std::shared_ptr<const Bitmap> createImageAtIndex(size_t index);

private:
    struct Impl;
    explicit ImageSource(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> _impl;
};

}  // namespace qm
