#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "codec/QVDemuxerContext.h"
#include "codec/QVJPEGEncoderHW.h"
#include "store/AMResourceMgr.h"
#include "store/SCResource.h"

namespace qm {

// One file to import.
struct AMImportInfo {
    std::string url;                          // the file's path
    std::optional<std::string> identifier;    // given by a media library
    std::optional<std::string> signture;      // content signature
    std::shared_ptr<SCResource> resource;     // the record already in the store, if any
    bool _needStartSecurityAccess = false;    // a media-library file, read under scoped access
};

// What an import hands to the end of its run.
class AMResourceImportResult {
public:
    static std::shared_ptr<AMResourceImportResult> createWithResource(
        std::vector<std::shared_ptr<SCResource>> resources, std::vector<std::string> failureURLs,
        std::vector<std::string> errorDescription);

    const std::vector<std::shared_ptr<SCResource>>& importResources() const { return _importResources; }
    const std::vector<std::string>& failureUrls() const { return _failureUrls; }
    // One text per failure, in the same order.
    const std::vector<std::string>& errorDescription() const { return _errorDescription; }

private:
    AMResourceImportResult() = default;
    std::vector<std::shared_ptr<SCResource>> _importResources;
    std::vector<std::string> _failureUrls;
    std::vector<std::string> _errorDescription;
};

// What the handler receives.
struct AMTaskInfo {
    int32_t errorCode = 0;    // at the end: 0 all done, 1 some files failed, 2 cancelled
    double percent = 0.0;     // 0 to 100
    std::string msgInfo;      // file name at work
    std::string informative;
    std::shared_ptr<AMResourceImportResult> representObject;  // the result, at the end
};

// A file handed over by a media library.
class AMMediaObject {
public:
    virtual ~AMMediaObject() = default;
    virtual std::string URL() const = 0;
    virtual std::string identifier() const = 0;
};

// Brings movie, sound and picture files into the resource store. Movies and sounds are decoded
// once, in full: audio into archived frames, video into one JPEG per frame; pictures are only
// referred to. Each result is registered with the resource manager. A file whose signature (or
// media-library identifier) is already known is not decoded again.
//
// The handler runs on the main queue and the importing thread waits for it, so the main thread
// must keep its loop running while an import is under way. Phase 0 is the start (no info), phase 1
// progress (answer true to cancel), phase 2 the end with the result.
class AMResourceImportTask : public std::enable_shared_from_this<AMResourceImportTask> {
public:
    using Handler = std::function<bool(int32_t phase, const AMTaskInfo* info)>;

    static constexpr int32_t phaseStart = 0;
    static constexpr int32_t phaseProgress = 1;
    static constexpr int32_t phaseEnd = 2;

    static constexpr const char* noAccessRightsText = "No access rights";
    static constexpr const char* cannotOpenText = "DRM protected information has been detected in this file";
    static constexpr const char* noPictureText = "No picture could be read from this file";

    // A task that registers its results with `manager`, which must outlive the task's runs.
    static std::shared_ptr<AMResourceImportTask> create(AMResourceMgr& manager = AMResourceMgr::resourceMgr());

    // Each returns at once; the work runs on a background queue.
    void importURLs(const std::vector<std::string>& urls, bool ignoreVideo, Handler handler);
    void importMediaObjects(const std::vector<std::shared_ptr<AMMediaObject>>& objects, bool ignoreVideo,
                            Handler handler);
    void importInfos(std::vector<AMImportInfo> infos, Handler handler, bool ignoreVideo);

    // One file on the calling thread: the registered record, or nothing with a reason in `error`
    // (nothing and no reason for a cancel or a picture file without pictures).
    std::shared_ptr<SCResource> importInfo(const AMImportInfo& info, std::string* error, const Handler& handler,
                                           bool ignoreVideo);

    // The two decoders; each leaves its resource in the task (nothing when cancelled).
    void decodeAudio(QVDemuxerContext& context, const Handler& handler, bool sendProgress);
    void decodeVideo(QVDemuxerContext& context, const Handler& handler);

    std::shared_ptr<SCAudioResource> audioResource() const;
    std::shared_ptr<SCVideoResource> videoResource() const;

private:
    explicit AMResourceImportTask(AMResourceMgr& manager) : _manager(manager) {}

    void run(const std::vector<AMImportInfo>& infos, const Handler& handler, bool ignoreVideo);
    std::shared_ptr<SCResource> importPicture(const AMImportInfo& info, const Handler& handler);
    std::shared_ptr<SCResource> importMedia(const AMImportInfo& info, std::string* error, const Handler& handler,
                                            bool ignoreVideo);
    // Reports progress on the main queue and keeps the answer; true when the user cancels.
    bool reportProgress(const Handler& handler, double percent, const std::string& fileName);
    const QVJPEGEncoderHW& jpegEncoder();

    AMResourceMgr& _manager;
    mutable std::mutex _resourcesMutex;
    std::shared_ptr<SCAudioResource> _audioResource;
    std::shared_ptr<SCVideoResource> _videoResource;
    std::atomic<bool> _userCancel{false};
    std::once_flag _encoderOnce;
    std::shared_ptr<QVJPEGEncoderHW> _jpegEncoderHW;
};

}  // namespace qm
