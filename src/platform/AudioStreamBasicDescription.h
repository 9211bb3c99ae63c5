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

// Bits of mFormatFlags.
inline constexpr uint32_t kAudioFormatFlagIsFloat = 1u << 0;
inline constexpr uint32_t kAudioFormatFlagIsBigEndian = 1u << 1;
inline constexpr uint32_t kAudioFormatFlagIsSignedInteger = 1u << 2;
inline constexpr uint32_t kAudioFormatFlagIsPacked = 1u << 3;

}  // namespace qm
