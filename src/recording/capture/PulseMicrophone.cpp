#include "recording/capture/PulseMicrophone.h"

#include <pulse/pulseaudio.h>
#include <pulse/simple.h>

#include <atomic>
#include <thread>

#include "recording/capture/CaptureClock.h"

namespace qm {

namespace {

// A blocking connection to the sound server for questions about its sources.
class PulseQuery {
public:
    PulseQuery() : _loop(pa_mainloop_new()) {
        _context = pa_context_new(pa_mainloop_get_api(_loop), "quormedia");
        if (!_context || pa_context_connect(_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return;
        for (;;) {
            const pa_context_state_t state = pa_context_get_state(_context);
            if (state == PA_CONTEXT_READY) {
                _ready = true;
                return;
            }
            if (!PA_CONTEXT_IS_GOOD(state) || pa_mainloop_iterate(_loop, 1, nullptr) < 0) return;
        }
    }

    ~PulseQuery() {
        if (_context) {
            pa_context_disconnect(_context);
            pa_context_unref(_context);
        }
        pa_mainloop_free(_loop);
    }

    bool ready() const { return _ready; }

    std::string defaultSourceName() {
        std::string name;
        wait(pa_context_get_server_info(
            _context,
            [](pa_context*, const pa_server_info* info, void* result) {
                if (info && info->default_source_name) *static_cast<std::string*>(result) = info->default_source_name;
            },
            &name));
        return name;
    }

    std::optional<std::pair<pa_sample_spec, std::string>> sourceInfo(const std::string& name) {
        std::optional<std::pair<pa_sample_spec, std::string>> found;
        wait(pa_context_get_source_info_by_name(
            _context, name.c_str(),
            [](pa_context*, const pa_source_info* info, int eol, void* result) {
                if (eol || !info) return;
                *static_cast<decltype(found)*>(result) = std::make_pair(info->sample_spec, info->description);
            },
            &found));
        return found;
    }

private:
    void wait(pa_operation* operation) {
        if (!operation) return;
        while (pa_operation_get_state(operation) == PA_OPERATION_RUNNING) {
            if (pa_mainloop_iterate(_loop, 1, nullptr) < 0) break;
        }
        pa_operation_unref(operation);
    }

    pa_mainloop* _loop;
    pa_context* _context = nullptr;
    bool _ready = false;
};

std::optional<AudioStreamBasicDescription> descriptionOfSampleSpec(const pa_sample_spec& sampleSpec) {
    switch (sampleSpec.format) {
        case PA_SAMPLE_FLOAT32LE:
            return linearPCMDescription(sampleSpec.rate, sampleSpec.channels, 32, true);
        case PA_SAMPLE_S16LE:
            return linearPCMDescription(sampleSpec.rate, sampleSpec.channels, 16, false);
        case PA_SAMPLE_S32LE:
            return linearPCMDescription(sampleSpec.rate, sampleSpec.channels, 32, false);
        default:
            return std::nullopt;
    }
}

std::optional<pa_sample_spec> sampleSpecOfDescription(const AudioStreamBasicDescription& description) {
    pa_sample_spec sampleSpec{};
    sampleSpec.rate = static_cast<uint32_t>(description.mSampleRate);
    sampleSpec.channels = static_cast<uint8_t>(description.mChannelsPerFrame);
    if (description.mFormatFlags & kAudioFormatFlagIsFloat && description.mBitsPerChannel == 32) {
        sampleSpec.format = PA_SAMPLE_FLOAT32LE;
    } else if (description.mBitsPerChannel == 16) {
        sampleSpec.format = PA_SAMPLE_S16LE;
    } else if (description.mBitsPerChannel == 32) {
        sampleSpec.format = PA_SAMPLE_S32LE;
    } else {
        return std::nullopt;
    }
    return pa_sample_spec_valid(&sampleSpec) ? std::optional(sampleSpec) : std::nullopt;
}

// Reads a source on its own thread and stamps every block with the capture clock at the time its
// first frame was taken: the read's end, less the data still in the server, less the block.
class PulseCaptureStream : public CaptureStream {
public:
    PulseCaptureStream(pa_simple* connection, AudioStreamBasicDescription description,
                       std::shared_ptr<const AudioFormatDescription> format, CaptureAudioHandler handler)
        : _connection(connection), _description(description), _format(std::move(format)), _handler(std::move(handler)) {
        _thread = std::thread([this] { run(); });
    }

    ~PulseCaptureStream() override {
        _stopping = true;
        _thread.join();
        pa_simple_free(_connection);
    }

private:
    void run() {
        const size_t bytes = static_cast<size_t>(PulseMicrophone::kFramesPerBuffer) * _description.mBytesPerFrame;
        const double blockSeconds = static_cast<double>(PulseMicrophone::kFramesPerBuffer) / _description.mSampleRate;
        const auto rate = static_cast<int32_t>(_description.mSampleRate);
        while (!_stopping) {
            std::vector<uint8_t> data(bytes);
            int error = 0;
            if (pa_simple_read(_connection, data.data(), bytes, &error) < 0) return;
            const CMTime end = captureClockNow();
            const pa_usec_t latency = pa_simple_get_latency(_connection, &error);
            const CMTime start = captureTimeOffsetBySeconds(end, -blockSeconds - static_cast<double>(latency) / 1e6);
            auto buffer =
                MediaSampleBuffer::create(_format, PulseMicrophone::kFramesPerBuffer, CMTime::make(1, rate), start);
            if (buffer && buffer->setDataBuffer(std::move(data))) _handler(std::move(buffer));
        }
    }

    pa_simple* _connection;
    AudioStreamBasicDescription _description;
    std::shared_ptr<const AudioFormatDescription> _format;
    CaptureAudioHandler _handler;
    std::atomic<bool> _stopping{false};
    std::thread _thread;
};

}  // namespace

bool PulseMicrophone::serverAnswers() { return PulseQuery().ready(); }

std::shared_ptr<PulseMicrophone> PulseMicrophone::createDefault() {
    PulseQuery query;
    if (!query.ready()) return nullptr;
    const std::string name = query.defaultSourceName();
    auto info = name.empty() ? std::nullopt : query.sourceInfo(name);
    if (!info) return nullptr;
    const uint32_t channels = info->first.channels;
    std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats{
        CaptureDeviceFormat::createAudio(linearPCMDescription(48000.0, channels, 32, true)),
        CaptureDeviceFormat::createAudio(linearPCMDescription(48000.0, channels, 16, false)),
    };
    auto own = descriptionOfSampleSpec(info->first);
    if (own && own->mSampleRate != 48000.0) formats.push_back(CaptureDeviceFormat::createAudio(*own));
    return std::shared_ptr<PulseMicrophone>(new PulseMicrophone(name, info->second, std::move(formats)));
}

std::unique_ptr<CaptureStream> PulseMicrophone::startAudio(const std::optional<CaptureAudioSettings>& settings,
                                                           CaptureAudioHandler handler, CaptureError* error) {
    AudioStreamBasicDescription description = activeFormat()->streamDescription();
    if (settings) {
        description = linearPCMDescription(settings->sampleRate, settings->numberOfChannels, settings->bitDepth,
                                           settings->isFloat);
    }
    const auto sampleSpec = sampleSpecOfDescription(description);
    const uint32_t tag =
        description.mChannelsPerFrame == 1 ? kAudioChannelLayoutTag_Mono : kAudioChannelLayoutTag_Stereo;
    auto format = AudioFormatDescription::create(description, tag);
    if (!sampleSpec || !format) {
        if (error) error->description = "The microphone cannot deliver the asked format.";
        return nullptr;
    }
    pa_buffer_attr attributes{};
    attributes.maxlength = static_cast<uint32_t>(-1);
    attributes.fragsize = static_cast<uint32_t>(kFramesPerBuffer * description.mBytesPerFrame);
    int code = 0;
    pa_simple* connection = pa_simple_new(nullptr, "quormedia", PA_STREAM_RECORD, uniqueID().c_str(), "record",
                                          &*sampleSpec, nullptr, &attributes, &code);
    if (!connection) {
        if (error) error->description = std::string("The sound server refused the recording: ") + pa_strerror(code);
        return nullptr;
    }
    return std::make_unique<PulseCaptureStream>(connection, description, std::move(format), std::move(handler));
}

}  // namespace qm
