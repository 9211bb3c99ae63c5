#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>

#include "platform/AudioStreamBasicDescription.h"

namespace qm {

class QVAudioPlayer;

// The source of the sound an output plays. Every call comes on the output's own thread.
class QVAudioPlayerDelegate {
public:
    virtual ~QVAudioPlayerDelegate() = default;

    // Writes up to *fillPktCount packets of `format` into `fillBuffer` and sets *fillPktCount and
    // *fillBytesCount to what it wrote. `currentPkt` counts the packets delivered since play began.
    // What is left unwritten plays as silence.
    virtual void QVAudioPlayerFillBuffer(QVAudioPlayer& player, void* fillBuffer, int64_t currentPkt,
                                         uint32_t* fillPktCount, uint32_t* fillBytesCount,
                                         const AudioStreamBasicDescription& format) {
        *fillPktCount = 0;
        *fillBytesCount = 0;
    }
    // After each fill: the packets it gave and all packets given since play began.
    virtual void QVAudioPlayerPlayPacketCount(QVAudioPlayer& player, int64_t packetCount, int64_t totalPacketCount,
                                              const AudioStreamBasicDescription& format) {}
    // After stop, on the thread that called it.
    virtual void QVAudioPlayerStopPlay(QVAudioPlayer& player) {}
};

// What the output has done since play began.
struct QVAudioPlayerStatistics {
    int64_t fills = 0;
    // Fills that delivered fewer bytes than the device asked for.
    int64_t underruns = 0;
    std::chrono::nanoseconds totalFillTime{0};
    std::chrono::nanoseconds longestFillTime{0};
};

// A sound output on SDL2. The device pulls blocks of kBlockFrames frames from the delegate on its
// own thread. Where no sound card can be opened the output falls back on SDL's dummy driver, which
// consumes blocks in real time.
class QVAudioPlayer {
public:
    static constexpr int kBlockFrames = 512;

    static std::shared_ptr<QVAudioPlayer> create();
    ~QVAudioPlayer();
    QVAudioPlayer(const QVAudioPlayer&) = delete;
    QVAudioPlayer& operator=(const QVAudioPlayer&) = delete;

    // Not owned; it must outlive playback. Set it while stopped.
    void setDelegate(QVAudioPlayerDelegate* delegate) { _delegate = delegate; }
    QVAudioPlayerDelegate* delegate() const { return _delegate; }

    // Starts pulling sound of `format` (stopping what played before). False, with nothing
    // started, for anything but packed linear PCM of 32-bit float or 16- or 32-bit signed integers
    // in native byte order with 1 to 8 channels, or when no device opens.
    bool playWithDataFormat(const AudioStreamBasicDescription* format);
    // Stops the device; no fill runs once this returns. Tells the delegate when something played.
    void stop();
    bool isPlaying() const { return _device != 0; }

    QVAudioPlayerStatistics statistics() const;

private:
    QVAudioPlayer() = default;

    static void deviceCallback(void* userData, uint8_t* stream, int length);
    void fill(uint8_t* stream, int length);

    QVAudioPlayerDelegate* _delegate = nullptr;
    uint32_t _device = 0;
    AudioStreamBasicDescription _format;
    int64_t _currentPkt = 0;

    mutable std::mutex _statisticsMutex;
    QVAudioPlayerStatistics _statistics;
};

}  // namespace qm
