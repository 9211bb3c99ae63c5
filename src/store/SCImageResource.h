#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "codec/ImageSource.h"
#include "image/Image.h"
#include "platform/Bitmap.h"
#include "platform/Dispatch.h"
#include "platform/FileBookmark.h"
#include "platform/KeyedArchiver.h"

namespace qm {

// A picture file, referred to and not copied into the store. All its pictures (every frame of a
// GIF) are decoded at the first request for any of them and kept for the object's life. Every
// access to the source and the pictures runs on the resource's serial queue, so any thread may
// ask.
//
// Archived as "SCImageResource" with only "urlSecurityData", a FileBookmark of the file made
// when first archived. Reading logs "Failed to access image(<path>)" and gives nothing when the
// bookmark does not resolve to a readable file.
class SCImageResource : public Archivable {
public:
    // Lower-case extensions of picture files: jpg, jpeg, png, gif, bmp, tif, tiff, icns.
    static const std::vector<std::string>& supportImageTypes();

    // The file is opened only when first needed.
    static std::shared_ptr<SCImageResource> createWithURL(std::string path);
    static std::shared_ptr<SCImageResource> createWithCoder(KeyedUnarchiver& coder);

    const std::string& url() const { return _url; }
    // The last path component without its extension.
    std::string name() const;

    // Pictures in the file; 0 when it cannot be opened or has no decoder (icns, for one).
    int64_t numberOfImages();
    // Picture `index`; nothing out of range or when that picture failed to decode.
    std::shared_ptr<const Bitmap> cgImageAtIndex(int64_t index);
    // The same picture as an image for composition; a null image where cgImageAtIndex gives
    // nothing. imageAtIndex is the same operation.
    Image ciImageAtIndex(int64_t index);
    Image imageAtIndex(int64_t index) { return ciImageAtIndex(index); }
    // Size of picture 0; 0 without one.
    int64_t width();
    int64_t height();
    // Picture 0 placed by its source rectangle for a 400 by 300 canvas; made once.
    std::shared_ptr<const Bitmap> thumbnail();

    std::string archiveClassName() const override { return "SCImageResource"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    SCImageResource() = default;
    // On _imgQueue.
    void openSource();
    void createCache();

    std::string _url;
    mutable std::optional<FileBookmark> _urlSecurityData;
    std::shared_ptr<ImageSource> _sourceImage;
    std::optional<std::vector<std::shared_ptr<const Bitmap>>> _cacheImageList;
    // One entry per picture, a null image where the picture failed.
    std::vector<Image> _cacheCIImageList;
    std::shared_ptr<DispatchQueue> _imgQueue = DispatchQueue::createSerial();
    std::shared_ptr<const Bitmap> _thumbnail;
};

}  // namespace qm
