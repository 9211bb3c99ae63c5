#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/rational.h>
}

namespace qm::test {

// Small media files written at test time with FFmpeg's libraries, for tests of import and decoding.
//
// Pictures: video frame i is filled with frameColour(i), except a black block in the top-left corner
// (width/4 x height/4 stored pixels, at least 1x1) that shows the stored orientation. Sample the centre
// of a decoded frame to classify it with nearestFrameIndex().
// Sound: channel c is a sine of channelFrequency(layout, c) Hz with amplitude kSineAmplitude (full scale 1.0).

struct RGB {
    uint8_t r, g, b;
};

struct VideoTrackSpec {
    int width = 64, height = 48;
    int frameCount = 10;
    // Nominal rate: the stream's avg_frame_rate / r_frame_rate, and the frame spacing when
    // ptsMicroseconds is empty.
    AVRational frameRate{25, 1};
    // If not empty: explicit presentation time of each frame (variable rate); size == frameCount,
    // strictly increasing, not negative. The encoder works in the coarsest time base that holds all
    // of them exactly; the container may round them to its own time base (Matroska: milliseconds).
    std::vector<int64_t> ptsMicroseconds;
    // Encoder name: "libx264", "mpeg4", "mjpeg", "png", ... Sizes with an odd side are stored at that
    // size (4:4:4 or RGB pixels where the encoder takes them).
    std::string codec = "libx264";
    // Above 0: the encoder is told to use this many B-frames and to use them always, so the stream
    // really is reordered (libx264, mpeg4).
    int maxBFrames = 0;
    // Clockwise rotation a player applies for display, as phones tag it ("rotate=90"): stored as a
    // display matrix for which av_display_rotation_get() gives -rotationDegrees modulo 360
    // (MP4 / MOV; 90 reads back as -90, 270 as 90).
    int rotationDegrees = 0;
    AVRational sampleAspect{1, 1};
};

struct AudioTrackSpec {
    // Encoder name: "aac", "pcm_s16le", "pcm_f32le", "flac", "libmp3lame", ...
    std::string codec = "aac";
    int sampleRate = 48000;
    // AAC keeps only its standard layouts (mono, stereo, AV_CH_LAYOUT_5POINT1_BACK, ...); any other,
    // such as AV_CH_LAYOUT_5POINT1, is stored with a PCE and reads back as a layout of unknown order.
    uint64_t channelLayout = AV_CH_LAYOUT_STEREO;
    double seconds = 1.0;
};

struct MediaFileSpec {
    std::optional<VideoTrackSpec> video;
    std::optional<AudioTrackSpec> audio;
    // If not empty: JPEG or PNG bytes stored as an attached picture (cover art), e.g. in .mp3 or .m4a.
    std::vector<uint8_t> coverArtJPEGorPNG;
};

// Writes the file; the container follows the extension (.mp4 .mov .mkv .m4a .mp3 .wav .flac ...).
// Returns an empty string on success, else a readable error (and no file is left behind).
std::string writeMediaFile(const std::string& path, const MediaFileSpec& recipe);

// An animated GIF that loops forever: frameCount frames painted as the video frames above, each shown
// for delayCentiseconds. Same error convention as writeMediaFile.
std::string writeAnimatedGif(const std::string& path, int width, int height, int frameCount,
                             int delayCentiseconds);

// Number of distinct frame colours; frameColour(i) repeats with this period.
constexpr int kFrameColourPeriod = 125;

// The colour of video frame i: each channel is one of 40, 84, 128, 172, 216, and every channel differs
// by at least 44 from frame i-1 and i+1, so neighbours stay apart after lossy coding.
RGB frameColour(int index);

// The frame index in [0, min(frameCount, kFrameColourPeriod)) whose colour is nearest to `decoded`.
int nearestFrameIndex(RGB decoded, int frameCount);

constexpr double kSineAmplitude = 0.5;
constexpr double kLowFrequencyHz = 55.0;
// The frequency of channel c's sine: 220 * (c + 1) Hz, or kLowFrequencyHz for the LFE channel (lossy
// encoders keep only the lowest frequencies there).
double channelFrequency(uint64_t channelLayout, int channel);

// A baseline JPEG of one solid colour, for cover art.
std::vector<uint8_t> solidJPEG(int width, int height, RGB colour);

}  // namespace qm::test
