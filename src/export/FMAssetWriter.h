#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "codec/MediaSampleBuffer.h"
#include "codec/PixelBuffer.h"
#include "image/Image.h"
#include "platform/AudioStreamBasicDescription.h"

namespace qm {

class DispatchQueue;
class MovieAudioInput;
class MovieVideoInput;
class MovieWriter;
class MovieWriterInput;
class PixelBufferPool;
class RenderContext;

// File types, by their type identifiers.
inline constexpr std::string_view AVFileTypeMPEG4 = "public.mpeg-4";
inline constexpr std::string_view AVFileTypeQuickTimeMovie = "com.apple.quicktime-movie";
inline constexpr std::string_view AVFileTypeAppleM4A = "com.apple.m4a-audio";
inline constexpr std::string_view AVFileTypeMPEGLayer3 = "public.mp3";
inline constexpr std::string_view AVFileTypeWAVE = "com.microsoft.waveform-audio";

// Audio formats, as four-character codes.
inline constexpr uint32_t kAudioFormatMPEG4AAC = 0x61616320;     // 'aac '
inline constexpr uint32_t kAudioFormatMPEG4AAC_HE = 0x61616368;  // 'aach'
inline constexpr uint32_t kAudioFormatMPEGLayer3 = 0x2E6D7033;   // '.mp3'
inline constexpr uint32_t kAudioFormatAppleIMA4 = 0x696D6134;    // 'ima4'

// Video codec names.
inline constexpr std::string_view AVVideoCodecTypeH264 = "avc1";

// Turns composed pictures and PCM blocks into a movie or sound file, strictly: every append is
// ready-or-fail. Set up the streams, startWriter, append from one thread, finishWriter once.
//
// The audio format follows the file type (audioFormatForFileType). Video goes as H.264 at
// videoBitrate with one key frame a second; audio as AAC (MPEG-4, QuickTime, M4A), MP3, IMA ADPCM
// (WAVE) or 16-bit PCM (WAVE with kAudioFormatLinearPCM).
class FMAssetWriter {
public:
    static std::shared_ptr<FMAssetWriter> createWithFileType(std::string_view fileType, const std::string& outPath);
    ~FMAssetWriter();
    FMAssetWriter(const FMAssetWriter&) = delete;
    FMAssetWriter& operator=(const FMAssetWriter&) = delete;

    // 'aac ' for MPEG-4, M4A and QuickTime, '.mp3' for MP3, 'ima4' for WAVE, 'lpcm' for any other.
    static uint32_t audioFormatForFileType(std::string_view fileType);
    // True for QuickTime and MPEG-4 only.
    static bool allowVideoStreamForFileType(std::string_view fileType);

    // Stores the picture size, rate and codec when the file type allows video. Returns false
    // always, also when the stream was added.
    bool addVideoStreamWithWidth(int64_t width, int64_t height, double frameRate, std::string_view codec);
    bool addVideoStreamWithWidth(int64_t width, int64_t height, std::string_view codec);
    bool addVideoStreamWithWidth(int64_t width, int64_t height, double frameRate);
    bool addVideoStreamWithWidth(int64_t width, int64_t height);
    void addAudioStreamWithAudioStreamDescription(const AudioStreamBasicDescription& description);

    // width * height * 6 bits per second.
    int64_t videoBitrate() const;
    // Offered to callers; no encoder setting uses it.
    static constexpr int64_t audioBitrate() { return 160000; }

    // Whether the settings make a file of this type.
    bool checkConfig() const;
    // Replaces any file at the output path and opens the streams; false, with a log line for
    // everything but a bad configuration, when that fails.
    bool startWriter();
    // Drains and closes the file; blocks until done. Must not be called from the write queue.
    bool finishWriter();

    // Renders the picture into a pooled buffer and appends it at `timestamp` (QVTimebase units).
    bool appendCIImage(const Image& image, int64_t timestamp);
    bool appendPixelBuffer(std::shared_ptr<PixelBuffer> pixelBuffer, CMTime presentTime);
    // Interleaved PCM frames, mono or stereo, stamped at the audio clock; the clock moves only
    // when the append succeeds.
    bool appendPCMData(std::vector<uint8_t> data, const AudioStreamBasicDescription& description);
    bool appendAudioCMSampleBuffer(std::shared_ptr<const MediaSampleBuffer> sampleBuffer);

    const std::string& fileType() const { return _fileType; }
    const std::string& outURL() const { return _outURL; }
    const std::string& videoCodec() const { return _videoCodec; }
    uint32_t formatID() const { return _formatID; }
    // Replaces the format chosen from the file type (e.g. kAudioFormatLinearPCM for WAVE).
    void setFormatID(uint32_t formatID) { _formatID = formatID; }
    const AudioStreamBasicDescription& audioStreamBasicDescription() const { return _audioStreamBasicDescription; }
    bool audioValidate() const { return _audioValidate; }
    bool videoValidate() const { return _videoValidate; }
    int64_t width() const { return _width; }
    int64_t height() const { return _height; }
    double frameRate() const { return _frameRate; }
    // Samples appended so far: the audio clock.
    int64_t totalSampleInput() const { return _totalSampleInput; }
    // True once the writer could not take an append (no buffer, an input not ready, an encoder
    // or file error) or could not finish: the file then misses what was handed over. Refusals of
    // the caller's own data (an unsupported channel count) do not count. The export task goes on
    // without a medium whose append failed and does not look at the finish; a host asks here.
    bool failed() const { return _failed; }

    // Waits up to 11 times 0.1 s for the input to become ready; false if it stays busy.
    static bool waitWriteInputReady(const MovieWriterInput& input);

private:
    FMAssetWriter(std::string_view fileType, const std::string& outPath);

    DispatchQueue& writeQueue();
    const RenderContext& context();
    bool setupVideoStream();
    bool setupAudioStream();
    bool createPixelBufferPool();
    bool rendCIImage(const Image& image, PixelBuffer& pixelBuffer);
    void logWriterError(const char* format);

    std::string _fileType;
    std::string _outURL;
    std::string _videoCodec;
    uint32_t _formatID = 0;
    AudioStreamBasicDescription _audioStreamBasicDescription;
    std::shared_ptr<DispatchQueue> _writeQueue;
    std::shared_ptr<RenderContext> _context;
    bool _audioValidate = false;
    bool _videoValidate = false;
    int64_t _width = 0;
    int64_t _height = 0;
    std::shared_ptr<MovieWriter> _assetWriter;
    std::shared_ptr<MovieVideoInput> _videoWriterInput;
    std::shared_ptr<MovieAudioInput> _audioWriterInput;
    std::shared_ptr<PixelBufferPool> _pixelBufferPool;
    int64_t _totalSampleInput = 0;
    double _frameRate = 30.0;
    std::atomic<bool> _failed = false;
};

}  // namespace qm
