#include "store/AMResourceMgr.h"

#include <stdexcept>

#include "foundation/QMCommon.h"
#include "platform/NotificationCenter.h"
#include "store/SCRecordingRecovery.h"

namespace qm {

namespace {

const char* storageKeyOfType(int32_t type) {
    switch (type) {
        case AMResourceTypeITunes: return "AMiTunesResourceData";
        case AMResourceTypePhotos: return "AMPhotosResourceData";
        case AMResourceTypeUser: return "AMUserResourceData";
        default: return "AMRecordingResourceData";
    }
}

using ResourceList = std::vector<std::shared_ptr<SCResource>>;

}  // namespace

AMResourceMgr& AMResourceMgr::resourceMgr() {
    // The standard defaults live for the process; the manager does not own them.
    static const std::shared_ptr<AMResourceMgr> shared =
        createWithDefaults(std::shared_ptr<UserDefaults>(std::shared_ptr<void>(), &UserDefaults::standardUserDefaults()));
    return *shared;
}

std::shared_ptr<AMResourceMgr> AMResourceMgr::createWithDefaults(std::shared_ptr<UserDefaults> defaults) {
    return std::shared_ptr<AMResourceMgr>(new AMResourceMgr(std::move(defaults)));
}

AMResourceMgr::AMResourceMgr(std::shared_ptr<UserDefaults> defaults) : _defaults(std::move(defaults)) {
    registerStoreArchiveClasses();
    _resMgrStorage = readStorageFromDefault();
    if (!_resMgrStorage) {
        _resMgrStorage = SCResourceStorage::create();
        saveStorageToDefault();
    }
    _usrResources = loadResourceWithKey(storageKeyOfType(AMResourceTypeUser));
    _iTunesResources = loadResourceWithKey(storageKeyOfType(AMResourceTypeITunes));
    _photosResources = loadResourceWithKey(storageKeyOfType(AMResourceTypePhotos));
    _recordingResources = loadResourceWithKey(storageKeyOfType(AMResourceTypeRecording));
    SCRecordingRecovery::recoverOrphanedRecordings(
        SCResourceStorage::pathOfResourceStoragePath(),
        [this](std::shared_ptr<SCResource> resource) { addResource(resource, AMResourceTypeRecording); });
}

std::shared_ptr<SCResourceStorage> AMResourceMgr::storage() const {
    std::lock_guard<std::recursive_mutex> lock(_mutex);
    return _resMgrStorage;
}

ResourceList* AMResourceMgr::listOfType(int32_t type) {
    switch (type) {
        case AMResourceTypeITunes: return &_iTunesResources;
        case AMResourceTypePhotos: return &_photosResources;
        case AMResourceTypeUser: return &_usrResources;
        case AMResourceTypeRecording: return &_recordingResources;
        default: return nullptr;
    }
}

const ResourceList* AMResourceMgr::listOfType(int32_t type) const {
    return const_cast<AMResourceMgr*>(this)->listOfType(type);
}

ResourceList AMResourceMgr::iTunesResource() const {
    std::lock_guard<std::recursive_mutex> lock(_mutex);
    return _iTunesResources;
}

ResourceList AMResourceMgr::photosResource() const {
    std::lock_guard<std::recursive_mutex> lock(_mutex);
    return _photosResources;
}

ResourceList AMResourceMgr::userResource() const {
    std::lock_guard<std::recursive_mutex> lock(_mutex);
    return _usrResources;
}

ResourceList AMResourceMgr::recordingResources() const {
    std::lock_guard<std::recursive_mutex> lock(_mutex);
    return _recordingResources;
}

// MARK: - Persistence

std::shared_ptr<SCResourceStorage> AMResourceMgr::readStorageFromDefault() const {
    const auto data = _defaults->dataForKey(storageDefaultsKey);
    if (!data || data->empty()) return nullptr;
    const auto coder = KeyedUnarchiver::createForReadingWithData(*data);
    if (!coder) return nullptr;
    auto storage = coder->decodeObjectOfClass<SCResourceStorage>(KeyedArchiver::rootKey);
    coder->finishDecoding();
    return coder->failed() ? nullptr : storage;
}

void AMResourceMgr::saveStorageToDefault() {
    std::lock_guard<std::recursive_mutex> lock(_mutex);
    const std::vector<uint8_t> archive = QMCommon::archiveRootObject(_resMgrStorage);
    if (archive.empty()) return;
    _defaults->setData(archive, storageDefaultsKey);
    _defaults->synchronize();
}

ResourceList AMResourceMgr::loadResourceWithKey(const std::string& key) {
    std::lock_guard<std::recursive_mutex> lock(_mutex);
    auto data = _resMgrStorage->readDataWithKey(key);
    if (!data || data->empty()) {
        // Older layouts kept each list directly in the defaults: move it into the storage.
        const auto old = _defaults->dataForKey(key);
        if (old && !old->empty()) {
            _resMgrStorage->writeData(*old, key);
            _defaults->removeObjectForKey(key);
            saveStorageToDefault();
            data = old;
        }
    }
    if (!data || data->empty()) return {};
    const auto list = std::dynamic_pointer_cast<ArchivedList>(QMCommon::unarchiveObjectWithData(*data));
    return list ? list->objectsOfClass<SCResource>() : ResourceList();
}

void AMResourceMgr::saveList(int32_t type) {
    const ResourceList* list = listOfType(type);
    if (!list) return;
    const std::vector<uint8_t> archive = QMCommon::archiveRootObject(ArchivedList::createWithObjects(*list));
    if (!archive.empty()) _resMgrStorage->writeData(archive, storageKeyOfType(type));
}

void AMResourceMgr::saveUserResToDefaults() {
    std::lock_guard<std::recursive_mutex> lock(_mutex);
    saveList(AMResourceTypeUser);
}

void AMResourceMgr::saveiTunesResToDefaults() {
    std::lock_guard<std::recursive_mutex> lock(_mutex);
    saveList(AMResourceTypeITunes);
}

void AMResourceMgr::savePhotosResToDefaults() {
    std::lock_guard<std::recursive_mutex> lock(_mutex);
    saveList(AMResourceTypePhotos);
}

void AMResourceMgr::saveRecordingResToDefaults() {
    std::lock_guard<std::recursive_mutex> lock(_mutex);
    saveList(AMResourceTypeRecording);
}

void AMResourceMgr::saveToDefaults() {
    std::lock_guard<std::recursive_mutex> lock(_mutex);
    saveUserResToDefaults();
    saveiTunesResToDefaults();
    savePhotosResToDefaults();
    saveRecordingResToDefaults();
    saveStorageToDefault();
}

void AMResourceMgr::notifyResourceChanged() const {
    NotificationCenter::defaultCenter().postOnMainQueue(AMResourcesChanged);
}

// MARK: - Changes

void AMResourceMgr::addResource(const std::shared_ptr<SCResource>& resource, int32_t type) {
    {
        std::lock_guard<std::recursive_mutex> lock(_mutex);
        ResourceList* list = listOfType(type);
        if (list && resource) {
            list->push_back(resource);
            saveList(type);
        }
        saveStorageToDefault();
    }
    notifyResourceChanged();
}

void AMResourceMgr::removeResource(const std::shared_ptr<SCResource>& resource, int32_t type) {
    {
        std::lock_guard<std::recursive_mutex> lock(_mutex);
        ResourceList* list = listOfType(type);
        if (!list) return;
        std::erase(*list, resource);
        saveList(type);
        saveStorageToDefault();
    }
    notifyResourceChanged();
}

std::shared_ptr<SCResource> AMResourceMgr::findResourceWithIdentifier(const std::string& identifier,
                                                                      int32_t type) const {
    ResourceList list;
    {
        std::lock_guard<std::recursive_mutex> lock(_mutex);
        if (const ResourceList* found = listOfType(type)) list = *found;
    }
    for (const auto& resource : list) {
        if (resource->identifier() == identifier) return resource;
    }
    return nullptr;
}

std::shared_ptr<SCResource> AMResourceMgr::findResourceWithSignture(const std::string& signture, int32_t type) const {
    ResourceList list;
    {
        std::lock_guard<std::recursive_mutex> lock(_mutex);
        if (const ResourceList* found = listOfType(type)) list = *found;
    }
    for (const auto& resource : list) {
        if (resource->signture() == signture) return resource;
    }
    return nullptr;
}

std::shared_ptr<SCResource> AMResourceMgr::findResourceWithIdentifier(const std::string& identifier) const {
    for (const int32_t type : {AMResourceTypeITunes, AMResourceTypeUser, AMResourceTypePhotos, AMResourceTypeRecording}) {
        if (auto found = findResourceWithIdentifier(identifier, type)) return found;
    }
    return nullptr;
}

std::shared_ptr<SCResource> AMResourceMgr::findResourceWithSignture(const std::string& signture) const {
    for (const int32_t type : {AMResourceTypeITunes, AMResourceTypeUser, AMResourceTypePhotos, AMResourceTypeRecording}) {
        if (auto found = findResourceWithSignture(signture, type)) return found;
    }
    return nullptr;
}

bool AMResourceMgr::removeResourceWithIdentifier(const std::string& identifier, int32_t type) {
    const auto found = findResourceWithIdentifier(identifier, type);
    if (!found) return false;
    removeResource(found, type);
    found->invalidateResource();
    return true;
}

bool AMResourceMgr::removeResourceWithIdentifier(const std::string& identifier) {
    for (const int32_t type : {AMResourceTypeUser, AMResourceTypeITunes, AMResourceTypePhotos, AMResourceTypeRecording}) {
        if (removeResourceWithIdentifier(identifier, type)) return true;
    }
    return false;
}

void AMResourceMgr::removeRecordingResourcesAtIndexes(const std::set<size_t>& indexes) {
    {
        std::lock_guard<std::recursive_mutex> lock(_mutex);
        // From the last position down, so that earlier positions stay valid.
        for (auto index = indexes.rbegin(); index != indexes.rend(); ++index) {
            if (*index >= _recordingResources.size()) continue;
            _recordingResources[*index]->invalidateResource();
            _recordingResources.erase(_recordingResources.begin() + static_cast<std::ptrdiff_t>(*index));
        }
        saveRecordingResToDefaults();
        saveStorageToDefault();
    }
    notifyResourceChanged();
}

void AMResourceMgr::removeUserResourceAtIndexes(const std::set<size_t>& indexes) {
    {
        std::lock_guard<std::recursive_mutex> lock(_mutex);
        if (!indexes.empty() && *indexes.rbegin() >= _usrResources.size()) {
            throw std::out_of_range("index beyond the user resources");
        }
        ResourceList removed;
        for (auto index = indexes.rbegin(); index != indexes.rend(); ++index) {
            removed.push_back(_usrResources[*index]);
            _usrResources.erase(_usrResources.begin() + static_cast<std::ptrdiff_t>(*index));
        }
        for (const auto& resource : removed) resource->invalidateResource();
        saveUserResToDefaults();
        saveStorageToDefault();
    }
    notifyResourceChanged();
}

}  // namespace qm
