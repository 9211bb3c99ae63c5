#include "export/FMAssetWriterTask.h"

#include "codec/QVTimebase.h"
#include "export/FMAssetWriter.h"
#include "platform/Dispatch.h"

namespace qm {

std::shared_ptr<FMAssetWriterTask> FMAssetWriterTask::createWithAssetWrite(std::shared_ptr<FMAssetWriter> assetWriter) {
    return std::shared_ptr<FMAssetWriterTask>(new FMAssetWriterTask(std::move(assetWriter)));
}

int64_t FMAssetWriterTask::lengthOfDataSource() {
    if (!_dataSource) return 0;
    return _dataSource->FMAssetWriterTaskLength(*this).value_or(0);
}

void FMAssetWriterTask::startAssetWriteWithBlock(FMAssetWriterTaskHandler handler) {
    DispatchQueue::global(DispatchQueue::Priority::Default)
        .async([self = shared_from_this(), handler = std::move(handler)] { self->runLoop(handler); });
}

bool FMAssetWriterTask::encodeVideoFrameAtTimestamp(int64_t* timestamp) {
    if (!_dataSource) return false;
    const std::optional<Image> image = _dataSource->FMAssetWriterTaskGetVideoImageAtTimestamp(*this, timestamp);
    if (!image || image->isNull()) return false;
    return _assetWriter->appendCIImage(*image, *timestamp);
}

bool FMAssetWriterTask::encodeAudioFrameAtTimestamp(int64_t* timestamp) {
    if (!_dataSource) return false;
    AudioStreamBasicDescription description;
    std::optional<std::vector<uint8_t>> bytes = _dataSource->FMAssetWriterTaskGetAudioFrame(*this, &description);
    if (!bytes || bytes->empty()) return false;
    // A block whose rate or frame size is unusable leaves the clocks alone; the writer refuses it.
    if (description.mSampleRate > 0 && description.mBytesPerFrame > 0) {
        *timestamp = static_cast<int64_t>(static_cast<double>(_totalSamples) * static_cast<double>(QVTimebase) /
                                          description.mSampleRate);
        _totalSamples += static_cast<int64_t>(bytes->size() / description.mBytesPerFrame);
    }
    return _assetWriter->appendPCMData(std::move(*bytes), description);
}

void FMAssetWriterTask::runLoop(const FMAssetWriterTaskHandler& handler) {
    auto post = [handler](int32_t action, std::optional<double> value) {
        DispatchQueue::main().async([handler, action, value] {
            if (handler) handler(action, value);
        });
    };
    post(QVMuxerTaskActionStart, std::nullopt);
    _cancelled = false;
    if (!_assetWriter->startWriter()) {
        post(QVMuxerTaskActionComplete, 1);
        return;
    }
    const auto length = static_cast<float>(lengthOfDataSource());
    bool videoDone = !_assetWriter->videoValidate();
    bool audioDone = !_assetWriter->audioValidate();
    _totalSamples = 0;
    int64_t videoTime = 0;
    int64_t audioTime = 0;
    while (!_cancelled && !(videoDone && audioDone)) {
        if (!audioDone && (videoDone || audioTime < videoTime)) {
            audioDone = !encodeAudioFrameAtTimestamp(&audioTime);
            if (videoDone) post(QVMuxerTaskActionProgress, static_cast<float>(audioTime) / length);
        } else {
            videoDone = !encodeVideoFrameAtTimestamp(&videoTime);
            const double progress = static_cast<float>(videoTime) / length;
            DispatchQueue::main().sync([&] {
                if (handler) handler(QVMuxerTaskActionProgress, progress);
            });
        }
    }
    _assetWriter->finishWriter();
    post(QVMuxerTaskActionComplete, 0);
}

}  // namespace qm
