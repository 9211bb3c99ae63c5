#pragma once

#include <any>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "image/Image.h"
#include "platform/AudioStreamBasicDescription.h"

namespace qm {

class FMAssetWriter;
class FMAssetWriterTask;

// What the export loop tells its handler, on the main queue.
inline constexpr int32_t QVMuxerTaskActionStart = 1;     // no value
inline constexpr int32_t QVMuxerTaskActionProgress = 2;  // value: done fraction, a float
inline constexpr int32_t QVMuxerTaskActionComplete = 3;  // value: 0 when the writer ran, 1 when it could not start

using FMAssetWriterTaskHandler = std::function<void(int32_t action, std::optional<double> value)>;

// Where an export takes its pictures and sound, asked on the export's thread. A function that is
// not overridden does not answer (std::nullopt).
class FMAssetWriterTaskDataSource {
public:
    virtual ~FMAssetWriterTaskDataSource() = default;

    // Length of the export in QVTimebase units.
    virtual std::optional<int64_t> FMAssetWriterTaskLength(FMAssetWriterTask& task) { return std::nullopt; }
    // The next picture, or a null Image when video is done. Sets `*timestamp` to the picture's
    // time, which moves the video clock.
    virtual std::optional<Image> FMAssetWriterTaskGetVideoImageAtTimestamp(FMAssetWriterTask& task,
                                                                           int64_t* timestamp) {
        return std::nullopt;
    }
    // The next block of interleaved PCM, described through `description`; empty when audio is done.
    virtual std::optional<std::vector<uint8_t>> FMAssetWriterTaskGetAudioFrame(
        FMAssetWriterTask& task, AudioStreamBasicDescription* description) {
        return std::nullopt;
    }
};

// The loop of one export: on a global queue it pulls pictures and sound from the data source,
// interleaves them by time into the writer (audio never ahead of the picture), reports on the main
// queue and can be cancelled. Runs once; the writer is finished afterwards.
class FMAssetWriterTask : public std::enable_shared_from_this<FMAssetWriterTask> {
public:
    static std::shared_ptr<FMAssetWriterTask> createWithAssetWrite(std::shared_ptr<FMAssetWriter> assetWriter);

    const std::shared_ptr<FMAssetWriter>& assetWriter() const { return _assetWriter; }
    const std::shared_ptr<FMAssetWriterTaskDataSource>& dataSource() const { return _dataSource; }
    void setDataSource(std::shared_ptr<FMAssetWriterTaskDataSource> dataSource) { _dataSource = std::move(dataSource); }
    const std::any& userObject() const { return _userObject; }
    void setUserObject(std::any userObject) { _userObject = std::move(userObject); }
    // Samples pulled from the data source so far.
    int64_t totalSamples() const { return _totalSamples; }
    bool cancelled() const { return _cancelled; }

    // The data source's length; 0 when it does not answer.
    int64_t lengthOfDataSource();
    // Starts the loop on the global queue and returns at once. Start comes first, Progress after
    // steps (synchronously while video runs), Complete last.
    void startAssetWriteWithBlock(FMAssetWriterTaskHandler handler);
    // Stops the loop after its current step; the file is finished as far as it got.
    void cancelAssetWrite() { _cancelled = true; }

    // Pulls the next picture and appends it at the time the source gives through `timestamp`.
    bool encodeVideoFrameAtTimestamp(int64_t* timestamp);
    // Pulls the next PCM block; `timestamp` receives the time of its first sample.
    bool encodeAudioFrameAtTimestamp(int64_t* timestamp);

private:
    explicit FMAssetWriterTask(std::shared_ptr<FMAssetWriter> assetWriter) : _assetWriter(std::move(assetWriter)) {}

    void runLoop(const FMAssetWriterTaskHandler& handler);

    std::shared_ptr<FMAssetWriter> _assetWriter;
    std::atomic<bool> _cancelled = false;
    std::shared_ptr<FMAssetWriterTaskDataSource> _dataSource;
    std::any _userObject;
    int64_t _totalSamples = 0;
};

}  // namespace qm
