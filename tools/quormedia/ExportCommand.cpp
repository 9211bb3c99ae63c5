#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "CommandError.h"
#include "Commands.h"
#include "OutputFile.h"
#include "ProgressBar.h"
#include "ProjectInput.h"
#include "export/FMAssetWriter.h"
#include "export/FMAssetWriterTask.h"
#include "foundation/QMCommon.h"
#include "foundation/QVRange.h"
#include "foundation/QVSampleBuffer.h"
#include "foundation/QVSampleDescription.h"
#include "platform/Dispatch.h"
#include "platform/Log.h"

namespace qm::cli {

namespace {

// Samples per audio block handed to the writer.
constexpr int64_t kAudioBlock = 1024;

std::string_view fileTypeForPath(const std::string& path) {
    const std::string extension = std::filesystem::path(path).extension().string();
    if (extension == ".mp4") return AVFileTypeMPEG4;
    if (extension == ".mov") return AVFileTypeQuickTimeMovie;
    if (extension == ".m4a") return AVFileTypeAppleM4A;
    if (extension == ".mp3") return AVFileTypeMPEGLayer3;
    if (extension == ".wav") return AVFileTypeWAVE;
    throw CommandError(path + ": the name must end in .mp4, .mov, .m4a, .mp3 or .wav", kExitBadInput);
}

// The packed PCM layout the writer is handed, from the project's sound settings.
AudioStreamBasicDescription streamDescription(const QVSampleDescription& description) {
    AudioStreamBasicDescription asbd;
    asbd.mSampleRate = static_cast<double>(description.sampleRate());
    asbd.mFormatID = kAudioFormatLinearPCM;
    asbd.mFormatFlags =
        kAudioFormatFlagIsPacked |
        (description.sampleFormat() == QVSampleFormatFLT ? kAudioFormatFlagIsFloat : kAudioFormatFlagIsSignedInteger);
    asbd.mChannelsPerFrame = static_cast<uint32_t>(description.channels());
    asbd.mBitsPerChannel = static_cast<uint32_t>(description.bytesPerChannel() * 8);
    asbd.mBytesPerFrame = static_cast<uint32_t>(description.bytesPerSample());
    asbd.mFramesPerPacket = 1;
    asbd.mBytesPerPacket = asbd.mBytesPerFrame;
    return asbd;
}

// The project's frames at its frame rate and its sound in blocks, to the end of the project.
class ProjectExportSource : public FMAssetWriterTaskDataSource {
public:
    explicit ProjectExportSource(std::shared_ptr<QVProject> project)
        : _project(std::move(project)),
          _sound(_project->outSampleRate(), _project->outChannelCount(), _project->outSampleFormat(), 0),
          _description(streamDescription(_sound)) {}

    const AudioStreamBasicDescription& description() const { return _description; }

    std::optional<int64_t> FMAssetWriterTaskLength(FMAssetWriterTask&) override { return _project->duration(); }

    std::optional<Image> FMAssetWriterTaskGetVideoImageAtTimestamp(FMAssetWriterTask&, int64_t* timestamp) override {
        const int64_t t = _frame * _project->durationOfFrame();
        if (t >= _project->duration()) return Image();
        ++_frame;
        *timestamp = t;
        return _project->imageAtTimestamp(t, true);
    }

    std::optional<std::vector<uint8_t>> FMAssetWriterTaskGetAudioFrame(
        FMAssetWriterTask&, AudioStreamBasicDescription* description) override {
        const int64_t total = _project->numberOfSamplesWithDescription(_sound);
        if (_sample >= total) return std::vector<uint8_t>();
        const QVRange range(_sample, std::min(kAudioBlock, total - _sample));
        const auto buffer = _project->sampleBufferWithDescription(_sound, range);
        if (!buffer) return std::vector<uint8_t>();
        _sample = range.end();
        *description = _description;
        return buffer->data();
    }

private:
    std::shared_ptr<QVProject> _project;
    QVSampleDescription _sound;
    AudioStreamBasicDescription _description;
    int64_t _frame = 0;
    int64_t _sample = 0;
};

}  // namespace

int runExport(const std::vector<std::string>& args) {
    if (args.size() != 2) throw CommandError("export needs EDIT.json|PROJECT OUT", kExitBadInput);
    const std::string& out = args[1];
    const std::string_view fileType = fileTypeForPath(out);
    requireWritableFolder(out);
    const auto project = openProjectArgument(args[0]);
    if (project->duration() <= 0) throw CommandError(args[0] + ": the project is empty", kExitBadInput);

    // The movie is written beside OUT and renamed into place only once it is whole.
    const std::string partial = partialPathFor(out);
    auto writer = FMAssetWriter::createWithFileType(fileType, partial);
    auto source = std::make_shared<ProjectExportSource>(project);
    writer->addVideoStreamWithWidth(project->outVideoWidth(), project->outVideoHeight(), project->outVideoFPS());
    writer->addAudioStreamWithAudioStreamDescription(source->description());
    auto task = FMAssetWriterTask::createWithAssetWrite(writer);
    task->setDataSource(source);

    bool finished = false;
    std::optional<double> completion;
    ProgressBar bar(true);
    // What the engine logs meanwhile is shown after the progress bar.
    LogCapture logged;
    task->startAssetWriteWithBlock([&](int32_t action, std::optional<double> value) {
        if (action == QVMuxerTaskActionProgress && value) bar.update(*value * 100.0, "exporting");
        if (action == QVMuxerTaskActionComplete) {
            completion = value;
            finished = true;
        }
    });
    MainLoop::runUntil([&] { return finished; }, std::chrono::hours(24 * 365));
    bar.finish(completion == 0.0);

    std::error_code error;
    const bool written = std::filesystem::exists(partial, error) && std::filesystem::file_size(partial, error) > 0;
    const auto lines = logged.lines();
    if (completion != 0.0 || !written || writer->failed()) {
        std::filesystem::remove(partial, error);
        throw CommandError("the export to " + out + " failed" + (lines.empty() ? std::string() : ": " + lines.front()),
                           kExitFailure);
    }
    for (const auto& line : lines) std::fprintf(stderr, "%s\n", line.c_str());
    std::filesystem::rename(partial, out, error);
    if (error) throw CommandError("cannot write " + out + ": " + error.message(), kExitFailure);
    std::printf("%s: %lldx%lld, %s\n", out.c_str(), static_cast<long long>(project->outVideoWidth()),
                static_cast<long long>(project->outVideoHeight()),
                QMCommon::formatDuration(project->duration(), true).c_str());
    return 0;
}

}  // namespace qm::cli
