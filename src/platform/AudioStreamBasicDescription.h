#pragma once

#include <cstdint>

namespace qm {

// The layout of one audio stream as a capture device reports it, with the field names of the
// desktop audio framework so that capture code can fill it as it reads a device's format.
struct AudioStreamBasicDescription {
    double mSampleRate = 0;
    uint32_t mFormatID = 0;
    uint32_t mFormatFlags = 0;
    uint32_t mBytesPerPacket = 0;
    uint32_t mFramesPerPacket = 0;
    uint32_t mBytesPerFrame = 0;
    uint32_t mChannelsPerFrame = 0;
    uint32_t mBitsPerChannel = 0;
};

// mFormatID of linear PCM.
inline constexpr uint32_t kAudioFormatLinearPCM = 0x6C70636D;  // 'lpcm'

// Bits of mFormatFlags.
inline constexpr uint32_t kAudioFormatFlagIsFloat = 1u << 0;
inline constexpr uint32_t kAudioFormatFlagIsBigEndian = 1u << 1;
inline constexpr uint32_t kAudioFormatFlagIsSignedInteger = 1u << 2;
inline constexpr uint32_t kAudioFormatFlagIsPacked = 1u << 3;

// Packed, interleaved linear PCM of float or signed integer samples, one frame per packet.
constexpr AudioStreamBasicDescription linearPCMDescription(double sampleRate, uint32_t channels, uint32_t bits,
                                                           bool isFloat) {
    AudioStreamBasicDescription description;
    description.mSampleRate = sampleRate;
    description.mFormatID = kAudioFormatLinearPCM;
    description.mFormatFlags =
        kAudioFormatFlagIsPacked | (isFloat ? kAudioFormatFlagIsFloat : kAudioFormatFlagIsSignedInteger);
    description.mChannelsPerFrame = channels;
    description.mBitsPerChannel = bits;
    description.mBytesPerFrame = channels * bits / 8;
    description.mFramesPerPacket = 1;
    description.mBytesPerPacket = description.mBytesPerFrame;
    return description;
}

}  // namespace qm
