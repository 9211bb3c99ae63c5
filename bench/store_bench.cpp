// Resource store against FFmpeg, on the same generated 1920x1080 video:
//  - a random frame read from the store with its one-frame cache cold (one seek, one JPEG
//    decode) beside FFmpeg seeking to and decoding the same frame of the video encoded as H.264
//    (libx264 veryfast, 2-second GOPs) and converting it to RGBA, and the ratio;
//  - sequential reads of stored audio in 1024-sample blocks.
// Both files are written first, so both are in the operating system's file cache.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswscale/swscale.h>
}

#include "BenchSupport.h"
#include "codec/QVAudioFrame2.h"
#include "codec/QVTimebase.h"
#include "store/SCAudioResource.h"
#include "store/SCResource.h"
#include "store/SCVideoResource.h"

namespace qm {
namespace {

using bench::Clock;
using bench::millisecondsSince;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr int kFps = 30;
constexpr int kFrames = 8 * kFps;
constexpr int kGop = 2 * kFps;
constexpr int kReads = 60;

// A screen-like picture: gradients, a fine pattern and a moving box.
std::vector<uint8_t> framePixels(int k) {
    std::vector<uint8_t> rgba(static_cast<size_t>(kWidth) * kHeight * 4);
    for (int y = 0; y < kHeight; ++y) {
        uint8_t* row = rgba.data() + static_cast<size_t>(y) * kWidth * 4;
        for (int x = 0; x < kWidth; ++x) {
            const bool box = std::abs(x - (200 + k * 6)) < 150 && std::abs(y - (300 + k * 2)) < 100;
            row[x * 4 + 0] = box ? 240 : static_cast<uint8_t>((x / 8 + k) & 255);
            row[x * 4 + 1] = box ? 200 : static_cast<uint8_t>((y / 4 + 2 * k) & 255);
            row[x * 4 + 2] = box ? 40 : static_cast<uint8_t>(((x ^ y) >> 3) * 3 & 255);
            row[x * 4 + 3] = 255;
        }
    }
    return rgba;
}

struct Fixture {
    std::shared_ptr<SCResourceStorage> storage;
    std::vector<std::shared_ptr<SCVideoBlock>> blocks;
    std::string movie;
};

bool writeH264(const std::string& path, const std::vector<std::vector<uint8_t>>& frames) {
    AVFormatContext* output = nullptr;
    if (avformat_alloc_output_context2(&output, nullptr, "mp4", path.c_str()) < 0) return false;
    const AVCodec* codec = avcodec_find_encoder_by_name("libx264");
    AVCodecContext* encoder = codec ? avcodec_alloc_context3(codec) : nullptr;
    AVStream* stream = avformat_new_stream(output, nullptr);
    if (!encoder || !stream) return false;
    encoder->width = kWidth;
    encoder->height = kHeight;
    encoder->pix_fmt = AV_PIX_FMT_YUV420P;
    encoder->time_base = AVRational{1, kFps};
    encoder->framerate = AVRational{kFps, 1};
    encoder->gop_size = kGop;
    encoder->keyint_min = kGop;
    if (output->oformat->flags & AVFMT_GLOBALHEADER) encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    av_opt_set(encoder->priv_data, "preset", "veryfast", 0);
    av_opt_set(encoder->priv_data, "x264-params", "scenecut=0", 0);
    if (avcodec_open2(encoder, codec, nullptr) < 0) return false;
    avcodec_parameters_from_context(stream->codecpar, encoder);
    stream->time_base = encoder->time_base;
    if (avio_open(&output->pb, path.c_str(), AVIO_FLAG_WRITE) < 0 || avformat_write_header(output, nullptr) < 0) {
        return false;
    }
    SwsContext* toYUV = sws_getContext(kWidth, kHeight, AV_PIX_FMT_RGBA, kWidth, kHeight, AV_PIX_FMT_YUV420P,
                                       SWS_BILINEAR, nullptr, nullptr, nullptr);
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();
    const auto drain = [&] {
        while (avcodec_receive_packet(encoder, packet) >= 0) {
            av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
            packet->stream_index = stream->index;
            av_interleaved_write_frame(output, packet);
        }
    };
    for (size_t k = 0; k < frames.size(); ++k) {
        frame->format = AV_PIX_FMT_YUV420P;
        frame->width = kWidth;
        frame->height = kHeight;
        av_frame_get_buffer(frame, 0);
        const uint8_t* source[1] = {frames[k].data()};
        const int stride[1] = {kWidth * 4};
        sws_scale(toYUV, source, stride, 0, kHeight, frame->data, frame->linesize);
        frame->pts = static_cast<int64_t>(k);
        avcodec_send_frame(encoder, frame);
        av_frame_unref(frame);
        drain();
    }
    avcodec_send_frame(encoder, nullptr);
    drain();
    av_write_trailer(output);
    av_packet_free(&packet);
    av_frame_free(&frame);
    sws_freeContext(toYUV);
    avcodec_free_context(&encoder);
    avio_closep(&output->pb);
    avformat_free_context(output);
    return true;
}

// Seeks to and decodes frames of the movie, as a player that jumps around would.
class FFmpegReader {
public:
    FFmpegReader(const std::string& path, int threads) {
        avformat_open_input(&_format, path.c_str(), nullptr, nullptr);
        avformat_find_stream_info(_format, nullptr);
        const AVCodec* codec = nullptr;
        _stream = av_find_best_stream(_format, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
        _decoder = avcodec_alloc_context3(codec);
        avcodec_parameters_to_context(_decoder, _format->streams[_stream]->codecpar);
        _decoder->thread_count = threads;
        avcodec_open2(_decoder, codec, nullptr);
        _frame = av_frame_alloc();
        _packet = av_packet_alloc();
        _toRGBA = sws_getContext(kWidth, kHeight, AV_PIX_FMT_YUV420P, kWidth, kHeight, AV_PIX_FMT_RGBA, SWS_BILINEAR,
                                 nullptr, nullptr, nullptr);
        _rgba.resize(static_cast<size_t>(kWidth) * kHeight * 4);
    }
    ~FFmpegReader() {
        sws_freeContext(_toRGBA);
        av_packet_free(&_packet);
        av_frame_free(&_frame);
        avcodec_free_context(&_decoder);
        avformat_close_input(&_format);
    }

    // Frame k as RGBA; false if it was not reached.
    bool readFrame(int k) {
        const AVRational timeBase = _format->streams[_stream]->time_base;
        const int64_t target = av_rescale_q(k, AVRational{1, kFps}, timeBase);
        av_seek_frame(_format, _stream, target, AVSEEK_FLAG_BACKWARD);
        avcodec_flush_buffers(_decoder);
        bool sentEnd = false;
        for (;;) {
            const int received = avcodec_receive_frame(_decoder, _frame);
            if (received >= 0) {
                if (_frame->best_effort_timestamp >= target) {
                    const int stride[1] = {kWidth * 4};
                    uint8_t* planes[1] = {_rgba.data()};
                    sws_scale(_toRGBA, _frame->data, _frame->linesize, 0, kHeight, planes, stride);
                    av_frame_unref(_frame);
                    return true;
                }
                av_frame_unref(_frame);
                continue;
            }
            if (received != AVERROR(EAGAIN) || sentEnd) return false;
            if (av_read_frame(_format, _packet) < 0) {
                avcodec_send_packet(_decoder, nullptr);
                sentEnd = true;
                continue;
            }
            if (_packet->stream_index == _stream) avcodec_send_packet(_decoder, _packet);
            av_packet_unref(_packet);
        }
    }
    const std::vector<uint8_t>& rgba() const { return _rgba; }

private:
    AVFormatContext* _format = nullptr;
    AVCodecContext* _decoder = nullptr;
    AVFrame* _frame = nullptr;
    AVPacket* _packet = nullptr;
    SwsContext* _toRGBA = nullptr;
    int _stream = -1;
    std::vector<uint8_t> _rgba;
};

double meanAbsoluteDifference(const Bitmap& stored, const std::vector<uint8_t>& rgba) {
    double sum = 0;
    size_t count = 0;
    for (int y = 0; y < kHeight; y += 7) {
        for (int x = 0; x < kWidth; x += 5) {
            const auto a = stored.pixelAt(x, y);
            for (int c = 0; c < 3; ++c) sum += std::abs(int(a[c]) - int(rgba[(static_cast<size_t>(y) * kWidth + x) * 4 + c]));
            count += 3;
        }
    }
    return sum / count;
}

void videoBenchmark(const std::string& directory) {
    std::printf("Generating %d frames of %dx%d and storing them as JPEG (quality %d)...\n", kFrames, kWidth, kHeight,
                SCResource::defaultJPEGQuality);
    std::vector<std::vector<uint8_t>> frames;
    auto storage = SCResourceStorage::create();
    std::vector<std::shared_ptr<SCVideoBlock>> blocks;
    uint64_t offset = 0;
    const int64_t frameDuration = QVTimebase / kFps;
    auto start = Clock::now();
    for (int k = 0; k < kFrames; ++k) {
        frames.push_back(framePixels(k));
        const auto jpeg = SCResource::encodeCGImage(Bitmap::createWithPixels(kWidth, kHeight, frames.back()));
        storage->appendData(jpeg);
        blocks.push_back(SCVideoBlock::createWithOffset(offset, jpeg.size(), k * frameDuration, frameDuration));
        offset += jpeg.size();
    }
    storage->flushCacheBuffer();
    std::printf("  stored %.1f MB in %.1f s\n", offset / 1e6, millisecondsSince(start) / 1000);

    const std::string movie = directory + "/same.mp4";
    start = Clock::now();
    if (!writeH264(movie, frames)) {
        std::printf("  libx264 encoding failed\n");
        return;
    }
    std::printf("  H.264 (libx264 veryfast, GOP %d frames) %.1f MB in %.1f s\n", kGop,
                std::filesystem::file_size(movie) / 1e6, millisecondsSince(start) / 1000);

    std::mt19937 random(1234);
    std::vector<int> picks;
    while (static_cast<int>(picks.size()) < kReads) {
        const int k = static_cast<int>(random() % kFrames);
        if (picks.empty() || picks.back() != k) picks.push_back(k);
    }

    const auto video = SCVideoResource::createWithStorage(storage, blocks, kWidth, kHeight);
    start = Clock::now();
    for (const int k : picks) {
        if (!video->cgImageAtTimestamp(k * frameDuration + frameDuration / 2)) std::printf("  store read failed\n");
    }
    const double store = millisecondsSince(start) / kReads;

    double ffmpeg[2] = {0, 0};
    const int threads[2] = {1, 0};
    double difference = 0;
    for (int variant = 0; variant < 2; ++variant) {
        FFmpegReader reader(movie, threads[variant]);
        start = Clock::now();
        for (const int k : picks) {
            if (!reader.readFrame(k)) std::printf("  FFmpeg read failed\n");
        }
        ffmpeg[variant] = millisecondsSince(start) / kReads;
        if (variant == 0) difference = meanAbsoluteDifference(*video->cgImageAtTimestamp(picks.back() * frameDuration), reader.rgba());
    }

    std::printf("\nRandom frame of a 1920x1080 video, %d reads (mean per read):\n", kReads);
    std::printf("  store (one seek + TurboJPEG decode to RGBA)       %8.2f ms\n", store);
    std::printf("  FFmpeg H.264 seek + decode + RGBA, 1 thread       %8.2f ms   ratio %.1fx\n", ffmpeg[0],
                ffmpeg[0] / store);
    std::printf("  FFmpeg H.264 seek + decode + RGBA, auto threads   %8.2f ms   ratio %.1fx\n", ffmpeg[1],
                ffmpeg[1] / store);
    std::printf("  (same frame check: mean absolute RGB difference %.1f of 255)\n", difference);
    storage->cleanCache();
}

void audioBenchmark() {
    constexpr int64_t kRate = 48000;
    constexpr int kSeconds = 120;
    std::printf("\nSequential stored audio, 48 kHz stereo S16, %d s, read in 1024-sample blocks:\n", kSeconds);
    for (const int frameSize : {1024, 1152}) {
        auto storage = SCResourceStorage::create();
        std::vector<std::shared_ptr<SCAudioBlock>> blocks;
        uint64_t offset = 0;
        int64_t index = 0;
        std::vector<int16_t> samples(static_cast<size_t>(frameSize) * 2);
        while (index < kRate * kSeconds) {
            for (int i = 0; i < frameSize; ++i) {
                samples[i * 2] = samples[i * 2 + 1] =
                    static_cast<int16_t>(10000 * std::sin(2 * M_PI * 440.0 * static_cast<double>(index + i) / kRate));
            }
            const auto bytes = SCResource::encodeAudioFrame(QVAudioFrame2::create(
                QVSampleFormatS16, 2, kRate, frameSize, reinterpret_cast<const uint8_t*>(samples.data())));
            storage->appendData(bytes);
            blocks.push_back(SCAudioBlock::createWithOffset(offset, bytes.size(), index, frameSize));
            offset += bytes.size();
            index += frameSize;
        }
        storage->flushCacheBuffer();
        const auto audio = SCAudioResource::createWithDataStorage(storage, blocks, kRate, 2, QVSampleFormatS16, 0);
        const int64_t total = audio->sampleRange().length();
        const auto start = Clock::now();
        int64_t read = 0;
        for (int64_t at = 0; at < total; at += 1024) {
            const auto buffer = audio->sampleBufferWithRange(QVRange(at, 1024));
            if (!buffer) {
                std::printf("  read failed at %lld\n", static_cast<long long>(at));
                break;
            }
            read += buffer->sampleRange().length();
        }
        const double seconds = millisecondsSince(start) / 1000;
        std::printf("  stored frames of %4d samples: %6.1f M samples/s (%5.0fx real time, %6.1f MB/s PCM), "
                    "%.2f us per read\n",
                    frameSize, read / seconds / 1e6, read / seconds / kRate, read * 4 / seconds / 1e6,
                    seconds * 1e6 / ((total + 1023) / 1024));
        storage->cleanCache();
    }
}

}  // namespace
}  // namespace qm

int main() {
    // Cache files go to a private directory, never into the user's application support.
    std::string directory = std::filesystem::temp_directory_path().string() + "/store_bench-XXXXXX";
    if (!mkdtemp(directory.data())) return 1;
    setenv("XDG_DATA_HOME", directory.c_str(), 1);
    av_log_set_level(AV_LOG_ERROR);
    qm::videoBenchmark(directory);
    qm::audioBenchmark();
    std::filesystem::remove_all(directory);
    return 0;
}
