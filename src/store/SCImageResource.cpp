#include "store/SCImageResource.h"

#include <filesystem>

#include "foundation/QMCommon.h"
#include "platform/Log.h"
#include "store/SCResource.h"
#include "store/SCThumbnailCanvas.h"

namespace qm {

const std::vector<std::string>& SCImageResource::supportImageTypes() {
    static const std::vector<std::string> types{"jpg", "jpeg", "png", "gif", "bmp", "tif", "tiff", "icns"};
    return types;
}

std::shared_ptr<SCImageResource> SCImageResource::createWithURL(std::string path) {
    std::shared_ptr<SCImageResource> resource(new SCImageResource());
    resource->_url = std::move(path);
    return resource;
}

std::shared_ptr<SCImageResource> SCImageResource::createWithCoder(KeyedUnarchiver& coder) {
    const std::vector<uint8_t> data = coder.decodeData("urlSecurityData");
    const auto bookmark = data.empty() ? std::nullopt : FileBookmark::createWithData(data);
    const auto path = bookmark ? bookmark->resolve() : std::nullopt;
    if (!path) {
        QMLog("Failed to access image(%s)", bookmark ? bookmark->path().c_str() : "(null)");
        return nullptr;
    }
    auto resource = createWithURL(*path);
    resource->_urlSecurityData = bookmark;
    return resource;
}

void SCImageResource::encodeWithCoder(KeyedArchiver& coder) const {
    _imgQueue->sync([&] {
        if (!_urlSecurityData) _urlSecurityData = FileBookmark::bookmarkWithPath(_url);
        if (_urlSecurityData) coder.encodeData("urlSecurityData", _urlSecurityData->data());
    });
}

std::string SCImageResource::name() const { return std::filesystem::path(_url).stem().string(); }

void SCImageResource::openSource() {
    if (!_sourceImage) _sourceImage = ImageSource::createWithURL(_url);
}

void SCImageResource::createCache() {
    if (_cacheImageList) return;
    openSource();
    std::vector<std::shared_ptr<const Bitmap>> pictures;
    const size_t count = _sourceImage ? _sourceImage->count() : 0;
    for (size_t index = 0; index < count; ++index) {
        pictures.push_back(_sourceImage->createImageAtIndex(index));
        _cacheCIImageList.push_back(Image::imageWithBitmap(pictures.back()));
    }
    _cacheImageList = std::move(pictures);
}

int64_t SCImageResource::numberOfImages() {
    int64_t count = 0;
    _imgQueue->sync([&] {
        openSource();
        count = _sourceImage ? static_cast<int64_t>(_sourceImage->count()) : 0;
    });
    return count;
}

std::shared_ptr<const Bitmap> SCImageResource::cgImageAtIndex(int64_t index) {
    if (index < 0 || index >= numberOfImages()) return nullptr;
    std::shared_ptr<const Bitmap> picture;
    _imgQueue->sync([&] {
        createCache();
        if (static_cast<size_t>(index) < _cacheImageList->size()) picture = (*_cacheImageList)[index];
    });
    return picture;
}

Image SCImageResource::ciImageAtIndex(int64_t index) {
    if (index < 0 || index >= numberOfImages()) return Image();
    Image image;
    _imgQueue->sync([&] {
        createCache();
        if (static_cast<size_t>(index) < _cacheCIImageList.size()) image = _cacheCIImageList[index];
    });
    return image;
}

int64_t SCImageResource::width() {
    const auto picture = cgImageAtIndex(0);
    return picture ? picture->width() : 0;
}

int64_t SCImageResource::height() {
    const auto picture = cgImageAtIndex(0);
    return picture ? picture->height() : 0;
}

std::shared_ptr<const Bitmap> SCImageResource::thumbnail() {
    std::shared_ptr<const Bitmap> poster;
    _imgQueue->sync([&] {
        if (!_thumbnail) {
            const Size size = SCResource::thumbnailSize();
            const auto picture = cgImageAtIndex(0);
            const Size pictureSize = picture ? Size{static_cast<double>(picture->width()),
                                                    static_cast<double>(picture->height())}
                                             : Size{};
            _thumbnail = SCThumbnailCanvas::drawPicture(size, picture,
                                                        QMCommon::adjustImageWithSize(pictureSize, Rect{{0, 0}, size}),
                                                        Rect{{0, 0}, pictureSize});
        }
        poster = _thumbnail;
    });
    return poster;
}

}  // namespace qm
