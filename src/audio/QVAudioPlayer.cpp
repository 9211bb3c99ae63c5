#include "audio/QVAudioPlayer.h"

#include <SDL.h>

#include <cstring>
#include <string>

#include "platform/Log.h"

namespace qm {
namespace {

std::mutex gDriverMutex;
bool gDriverReady = false;

// Starts SDL's audio once per process, on the dummy driver when no other one starts.
bool startAudioDriver() {
    if (gDriverReady) return true;
    if (SDL_InitSubSystem(SDL_INIT_AUDIO) == 0) {
        gDriverReady = true;
    } else {
        QMLog("QVAudioPlayer: no sound driver (%s), using the dummy driver.", SDL_GetError());
        gDriverReady = SDL_AudioInit("dummy") == 0;
    }
    return gDriverReady;
}

// A device that could not open on a real driver is retried once on the dummy driver.
bool switchToDummyDriver() {
    const char* current = SDL_GetCurrentAudioDriver();
    if (current && std::string(current) == "dummy") return false;
    QMLog("QVAudioPlayer: no sound device (%s), using the dummy driver.", SDL_GetError());
    SDL_AudioQuit();
    return SDL_AudioInit("dummy") == 0;
}

// The SDL sample format of `format`, or 0 when the output cannot play it.
SDL_AudioFormat sdlFormatOf(const AudioStreamBasicDescription& format) {
    const uint32_t flags = format.mFormatFlags;
    const bool packed = flags & kAudioFormatFlagIsPacked;
    const bool bigEndian = flags & kAudioFormatFlagIsBigEndian;
    const bool nativeOrder = bigEndian == (SDL_BYTEORDER == SDL_BIG_ENDIAN);
    if (format.mFormatID != kAudioFormatLinearPCM || !packed || !nativeOrder) return 0;
    if (format.mSampleRate < 1 || format.mSampleRate > 384000) return 0;
    if (format.mChannelsPerFrame < 1 || format.mChannelsPerFrame > 8 || format.mFramesPerPacket != 1) return 0;
    if (format.mBytesPerFrame != format.mChannelsPerFrame * format.mBitsPerChannel / 8) return 0;
    if (format.mBytesPerPacket != format.mBytesPerFrame) return 0;
    if (flags & kAudioFormatFlagIsFloat) return format.mBitsPerChannel == 32 ? AUDIO_F32SYS : 0;
    if (!(flags & kAudioFormatFlagIsSignedInteger)) return 0;
    if (format.mBitsPerChannel == 16) return AUDIO_S16SYS;
    if (format.mBitsPerChannel == 32) return AUDIO_S32SYS;
    return 0;
}

}  // namespace

std::shared_ptr<QVAudioPlayer> QVAudioPlayer::create() { return std::shared_ptr<QVAudioPlayer>(new QVAudioPlayer()); }

QVAudioPlayer::~QVAudioPlayer() {
    if (_device != 0) SDL_CloseAudioDevice(_device);
}

bool QVAudioPlayer::playWithDataFormat(const AudioStreamBasicDescription* format) {
    stop();
    if (!format) return false;
    const SDL_AudioFormat sdlFormat = sdlFormatOf(*format);
    if (sdlFormat == 0) return false;

    SDL_AudioSpec desired{};
    desired.freq = static_cast<int>(format->mSampleRate);
    desired.format = sdlFormat;
    desired.channels = static_cast<Uint8>(format->mChannelsPerFrame);
    desired.samples = kBlockFrames;
    desired.callback = &QVAudioPlayer::deviceCallback;
    desired.userdata = this;

    _format = *format;
    _currentPkt = 0;
    {
        std::lock_guard lock(_statisticsMutex);
        _statistics = {};
    }
    std::lock_guard driverLock(gDriverMutex);
    if (!startAudioDriver()) return false;
    SDL_AudioSpec obtained{};
    _device = SDL_OpenAudioDevice(nullptr, 0, &desired, &obtained, 0);
    if (_device == 0 && switchToDummyDriver()) _device = SDL_OpenAudioDevice(nullptr, 0, &desired, &obtained, 0);
    if (_device == 0) {
        QMLog("QVAudioPlayer: %s", SDL_GetError());
        return false;
    }
    SDL_PauseAudioDevice(_device, 0);
    return true;
}

void QVAudioPlayer::stop() {
    if (_device == 0) return;
    SDL_CloseAudioDevice(_device);
    _device = 0;
    if (_delegate) _delegate->QVAudioPlayerStopPlay(*this);
}

QVAudioPlayerStatistics QVAudioPlayer::statistics() const {
    std::lock_guard lock(_statisticsMutex);
    return _statistics;
}

void QVAudioPlayer::deviceCallback(void* userData, uint8_t* stream, int length) {
    static_cast<QVAudioPlayer*>(userData)->fill(stream, length);
}

void QVAudioPlayer::fill(uint8_t* stream, int length) {
    const auto started = std::chrono::steady_clock::now();
    const uint32_t bytesAsked = static_cast<uint32_t>(length);
    uint32_t packets = bytesAsked / _format.mBytesPerPacket;
    uint32_t bytes = 0;
    if (_delegate) {
        _delegate->QVAudioPlayerFillBuffer(*this, stream, _currentPkt, &packets, &bytes, _format);
    } else {
        packets = 0;
    }
    if (bytes > bytesAsked) bytes = bytesAsked;
    std::memset(stream + bytes, 0, bytesAsked - bytes);
    _currentPkt += packets;
    if (_delegate) _delegate->QVAudioPlayerPlayPacketCount(*this, packets, _currentPkt, _format);

    const auto elapsed =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - started);
    std::lock_guard lock(_statisticsMutex);
    ++_statistics.fills;
    if (bytes < bytesAsked) ++_statistics.underruns;
    _statistics.totalFillTime += elapsed;
    if (elapsed > _statistics.longestFillTime) _statistics.longestFillTime = elapsed;
}

}  // namespace qm
