#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "audio/QVAudioPlayer.h"

namespace qm {
namespace {

using namespace std::chrono_literals;

AudioStreamBasicDescription floatStereo() {
    return {.mSampleRate = 48000,
            .mFormatID = kAudioFormatLinearPCM,
            .mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked,
            .mBytesPerPacket = 8,
            .mFramesPerPacket = 1,
            .mBytesPerFrame = 8,
            .mChannelsPerFrame = 2,
            .mBitsPerChannel = 32};
}

// Delivers `packetsPerFill` packets of a running byte pattern (or all it is asked for when 0) and
// records what each call saw.
class RecordingDelegate : public QVAudioPlayerDelegate {
public:
    explicit RecordingDelegate(uint32_t packetsPerFill = 0) : _packetsPerFill(packetsPerFill) {}

    struct Fill {
        std::thread::id thread;
        int64_t currentPkt;
        uint32_t packetsAsked;
        uint32_t bytesPerPacket;
    };

    void QVAudioPlayerFillBuffer(QVAudioPlayer&, void* buffer, int64_t currentPkt, uint32_t* fillPktCount,
                                 uint32_t* fillBytesCount, const AudioStreamBasicDescription& format) override {
        std::lock_guard lock(mutex);
        fills.push_back({std::this_thread::get_id(), currentPkt, *fillPktCount, format.mBytesPerPacket});
        const uint32_t packets = _packetsPerFill ? std::min(_packetsPerFill, *fillPktCount) : *fillPktCount;
        std::memset(buffer, 0x11, packets * format.mBytesPerPacket);
        *fillPktCount = packets;
        *fillBytesCount = packets * format.mBytesPerPacket;
    }
    void QVAudioPlayerPlayPacketCount(QVAudioPlayer&, int64_t packetCount, int64_t totalPacketCount,
                                      const AudioStreamBasicDescription&) override {
        std::lock_guard lock(mutex);
        played.emplace_back(packetCount, totalPacketCount);
    }
    void QVAudioPlayerStopPlay(QVAudioPlayer&) override {
        std::lock_guard lock(mutex);
        stopThreads.push_back(std::this_thread::get_id());
    }

    size_t fillCount() {
        std::lock_guard lock(mutex);
        return fills.size();
    }

    std::mutex mutex;
    std::vector<Fill> fills;
    std::vector<std::pair<int64_t, int64_t>> played;
    std::vector<std::thread::id> stopThreads;

private:
    uint32_t _packetsPerFill;
};

class AudioPlayerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { setenv("SDL_AUDIODRIVER", "dummy", 1); }

    // Waits (at most five seconds) until the delegate has seen `count` fills.
    static bool waitForFills(RecordingDelegate& delegate, size_t count) {
        const auto deadline = std::chrono::steady_clock::now() + 5s;
        while (delegate.fillCount() < count) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(2ms);
        }
        return true;
    }

    std::shared_ptr<QVAudioPlayer> player = QVAudioPlayer::create();
};

TEST_F(AudioPlayerTest, RefusesFormatsItCannotPlay) {
    auto refused = [&](auto change) {
        AudioStreamBasicDescription format = floatStereo();
        change(format);
        return !player->playWithDataFormat(&format) && !player->isPlaying();
    };
    EXPECT_TRUE(refused([](auto& f) { f.mFormatID = 0x61616320; }));  // 'aac '
    EXPECT_TRUE(refused([](auto& f) { f.mFormatFlags = kAudioFormatFlagIsFloat; }));
    EXPECT_TRUE(refused([](auto& f) { f.mFormatFlags |= kAudioFormatFlagIsBigEndian; }));
    EXPECT_TRUE(refused([](auto& f) { f.mBitsPerChannel = 64, f.mBytesPerFrame = f.mBytesPerPacket = 16; }));
    EXPECT_TRUE(refused([](auto& f) {
        f.mFormatFlags = kAudioFormatFlagIsPacked;  // unsigned 8-bit
        f.mBitsPerChannel = 8, f.mBytesPerFrame = f.mBytesPerPacket = 2;
    }));
    EXPECT_TRUE(refused([](auto& f) { f.mChannelsPerFrame = 0; }));
    EXPECT_TRUE(refused([](auto& f) { f.mFramesPerPacket = 2; }));
    EXPECT_TRUE(refused([](auto& f) { f.mBytesPerFrame = 6; }));
    EXPECT_TRUE(refused([](auto& f) { f.mSampleRate = 0; }));
    EXPECT_FALSE(player->playWithDataFormat(nullptr));
}

TEST_F(AudioPlayerTest, PlaysFloatAndSignedIntegerPCM) {
    RecordingDelegate delegate;
    player->setDelegate(&delegate);
    AudioStreamBasicDescription s16 = floatStereo();
    s16.mFormatFlags = kAudioFormatFlagIsSignedInteger | kAudioFormatFlagIsPacked;
    s16.mBitsPerChannel = 16;
    s16.mBytesPerFrame = s16.mBytesPerPacket = 4;
    ASSERT_TRUE(player->playWithDataFormat(&s16));
    ASSERT_TRUE(waitForFills(delegate, 1));
    {
        std::lock_guard lock(delegate.mutex);
        EXPECT_EQ(delegate.fills[0].bytesPerPacket, 4u);
    }

    const AudioStreamBasicDescription f32 = floatStereo();
    ASSERT_TRUE(player->playWithDataFormat(&f32));
    const size_t before = delegate.fillCount();
    ASSERT_TRUE(waitForFills(delegate, before + 1));
    std::lock_guard lock(delegate.mutex);
    EXPECT_EQ(delegate.fills[before].bytesPerPacket, 8u);
    EXPECT_EQ(delegate.fills[before].currentPkt, 0) << "a new play counts from 0";
}

TEST_F(AudioPlayerTest, FillsBlocksOnItsOwnThreadCountingDeliveredPackets) {
    RecordingDelegate delegate(300);
    player->setDelegate(&delegate);
    const AudioStreamBasicDescription format = floatStereo();
    ASSERT_TRUE(player->playWithDataFormat(&format));
    ASSERT_TRUE(waitForFills(delegate, 4));
    player->stop();

    std::lock_guard lock(delegate.mutex);
    ASSERT_GE(delegate.fills.size(), 4u);
    for (size_t i = 0; i < delegate.fills.size(); ++i) {
        EXPECT_NE(delegate.fills[i].thread, std::this_thread::get_id());
        EXPECT_EQ(delegate.fills[i].packetsAsked, uint32_t(QVAudioPlayer::kBlockFrames));
        EXPECT_EQ(delegate.fills[i].currentPkt, int64_t(300 * i));
    }
    ASSERT_EQ(delegate.played.size(), delegate.fills.size());
    EXPECT_EQ(delegate.played.back(), std::make_pair(int64_t(300), int64_t(300 * delegate.fills.size())));

    const auto statistics = player->statistics();
    EXPECT_EQ(statistics.fills, int64_t(delegate.fills.size()));
    EXPECT_EQ(statistics.underruns, statistics.fills) << "every fill gave 300 of 512 packets";
}

TEST_F(AudioPlayerTest, FullFillsAreNoUnderruns) {
    RecordingDelegate delegate;
    player->setDelegate(&delegate);
    const AudioStreamBasicDescription format = floatStereo();
    ASSERT_TRUE(player->playWithDataFormat(&format));
    ASSERT_TRUE(waitForFills(delegate, 3));
    player->stop();
    EXPECT_GE(player->statistics().fills, 3);
    EXPECT_EQ(player->statistics().underruns, 0);
}

TEST_F(AudioPlayerTest, StopEndsTheFillsAndTellsTheDelegateOnce) {
    RecordingDelegate delegate;
    player->setDelegate(&delegate);
    player->stop();
    EXPECT_TRUE(delegate.stopThreads.empty()) << "nothing played yet";

    const AudioStreamBasicDescription format = floatStereo();
    ASSERT_TRUE(player->playWithDataFormat(&format));
    ASSERT_TRUE(waitForFills(delegate, 2));
    player->stop();
    const size_t fillsAtStop = delegate.fillCount();
    std::this_thread::sleep_for(60ms);
    EXPECT_EQ(delegate.fillCount(), fillsAtStop);
    player->stop();
    EXPECT_FALSE(player->isPlaying());
    ASSERT_EQ(delegate.stopThreads.size(), 1u);
    EXPECT_EQ(delegate.stopThreads[0], std::this_thread::get_id());
}

}  // namespace
}  // namespace qm
