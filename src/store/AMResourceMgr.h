#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/UserDefaults.h"
#include "store/SCResource.h"
#include "store/SCResourceStorage.h"

namespace qm {

// The lists of the catalogue, by where their records came from.
enum AMResourceType : int32_t {
    AMResourceTypeITunes = 0,
    AMResourceTypePhotos = 1,
    AMResourceTypeUser = 2,
    AMResourceTypeRecording = 3,
};

// Posted, on the main queue and with no object, after every change of a list.
inline constexpr const char* AMResourcesChanged = "com.quorvia.resourcechanged";

// The process-wide catalogue of resource records, in four lists. Each list is kept as the keyed
// archive of its records under its key ("AMUserResourceData", "AMiTunesResourceData",
// "AMPhotosResourceData", "AMRecordingResourceData") in one SCResourceStorage, and that storage
// (its path and key table) is kept in the user defaults under "AMResMgrStorageData". Every change
// is written at once. Lists are loaded when the manager is made; damaged or foreign data under a
// key reads as an empty list. Then recordings that a dead process left unfinished are recovered
// into the recording list (see SCRecordingRecovery).
//
// Callable from any thread (import adds from its background thread); the lists are guarded by a
// lock, and the notification always arrives later, on the main queue.
class AMResourceMgr {
public:
    static constexpr const char* storageDefaultsKey = "AMResMgrStorageData";

    // The shared manager on the standard user defaults, made at the first call.
    static AMResourceMgr& resourceMgr();
    // A manager on explicit defaults (a second one on the same defaults sees the same catalogue).
    static std::shared_ptr<AMResourceMgr> createWithDefaults(std::shared_ptr<UserDefaults> defaults);

    AMResourceMgr(const AMResourceMgr&) = delete;
    AMResourceMgr& operator=(const AMResourceMgr&) = delete;

    // Copies of the lists.
    std::vector<std::shared_ptr<SCResource>> iTunesResource() const;
    std::vector<std::shared_ptr<SCResource>> photosResource() const;
    std::vector<std::shared_ptr<SCResource>> userResource() const;
    std::vector<std::shared_ptr<SCResource>> recordingResources() const;

    // Appends to the list of `type` (no duplicate test) and saves it. A type outside 0 to 3
    // adds nothing; the storage is saved and the notification posted all the same.
    void addResource(const std::shared_ptr<SCResource>& resource, int32_t type);
    // Takes every occurrence of the record out of the list and saves it; the record is not
    // invalidated. A type outside 0 to 3 does nothing at all.
    void removeResource(const std::shared_ptr<SCResource>& resource, int32_t type);

    // The first record of the list with this identifier (or signature); nothing for another type.
    std::shared_ptr<SCResource> findResourceWithIdentifier(const std::string& identifier, int32_t type) const;
    std::shared_ptr<SCResource> findResourceWithSignture(const std::string& signture, int32_t type) const;
    // Search the lists in the order iTunes, user, photos, recording.
    std::shared_ptr<SCResource> findResourceWithIdentifier(const std::string& identifier) const;
    std::shared_ptr<SCResource> findResourceWithSignture(const std::string& signture) const;

    // Removes the first record with this identifier from the list and invalidates it (its cache
    // files are deleted); true if one was found.
    bool removeResourceWithIdentifier(const std::string& identifier, int32_t type);
    // Tries the lists in the order user, iTunes, photos, recording, and stops at the first success.
    bool removeResourceWithIdentifier(const std::string& identifier);
    // Invalidates and removes the records at these positions; positions past the end are skipped.
    void removeRecordingResourcesAtIndexes(const std::set<size_t>& indexes);
    // Invalidates and removes the records at these positions. A position past the end is a
    // programming error: std::out_of_range is thrown and nothing is changed.
    void removeUserResourceAtIndexes(const std::set<size_t>& indexes);

    // Saves the four lists, then the storage.
    void saveToDefaults();
    void saveUserResToDefaults();
    void saveiTunesResToDefaults();
    void savePhotosResToDefaults();
    void saveRecordingResToDefaults();
    // Archives the storage object into the defaults.
    void saveStorageToDefault();
    // The storage archived in the defaults; nothing when there is none or it does not read
    // (its cache file is gone).
    std::shared_ptr<SCResourceStorage> readStorageFromDefault() const;
    // The records under `key`: from the storage, else moved there from the defaults (where an
    // older layout kept them); empty when there are none or they do not read as a list.
    std::vector<std::shared_ptr<SCResource>> loadResourceWithKey(const std::string& key);

    // The storage holding the lists.
    std::shared_ptr<SCResourceStorage> storage() const;

private:
    explicit AMResourceMgr(std::shared_ptr<UserDefaults> defaults);

    // The list of a type in 0 to 3, else nothing.
    std::vector<std::shared_ptr<SCResource>>* listOfType(int32_t type);
    const std::vector<std::shared_ptr<SCResource>>* listOfType(int32_t type) const;
    void saveList(int32_t type);
    void notifyResourceChanged() const;

    std::shared_ptr<UserDefaults> _defaults;
    mutable std::recursive_mutex _mutex;
    std::shared_ptr<SCResourceStorage> _resMgrStorage;
    std::vector<std::shared_ptr<SCResource>> _iTunesResources;
    std::vector<std::shared_ptr<SCResource>> _photosResources;
    std::vector<std::shared_ptr<SCResource>> _usrResources;
    std::vector<std::shared_ptr<SCResource>> _recordingResources;
};

}  // namespace qm
