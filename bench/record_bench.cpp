// Records 10 s of a changing 1920x1080 display at 30 fps with sound under a private Xvfb and
// PulseAudio, and runs ffmpeg's x11grab with MJPEG on the same display for comparison.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "BenchSupport.h"
#include "codec/QVJPEGEncoderHW.h"
#include "codec/QVTimebase.h"
#include "platform/Dispatch.h"
#include "platform/Log.h"
#include "recording/SCRecordTask.h"
#include "recording/capture/X11ScreenGrabber.h"
#include "store/SCAudioResource.h"
#include "store/SCVideoResource.h"

extern char** environ;

namespace {

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr double kSeconds = 10;
constexpr int kFrameRate = 30;

double cpuSeconds(const rusage& usage) {
    return usage.ru_utime.tv_sec + usage.ru_utime.tv_usec / 1e6 + usage.ru_stime.tv_sec + usage.ru_stime.tv_usec / 1e6;
}

double processCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return cpuSeconds(usage);
}

double threadCpuSeconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return now.tv_sec + now.tv_nsec / 1e9;
}

// A program started by this benchmark and ended by its pid.
class Child {
public:
    // Standard error goes to `errorFile`.
    Child(std::vector<std::string> arguments, const std::map<std::string, std::string>& environment,
          int keepDescriptor = -1, const std::string& errorFile = "/dev/null") {
        std::vector<std::string> variables;
        for (char** entry = environ; *entry; ++entry) {
            const std::string text = *entry;
            if (!environment.contains(text.substr(0, text.find('=')))) variables.push_back(text);
        }
        for (const auto& [name, value] : environment) variables.push_back(name + "=" + value);
        std::vector<char*> argv, envp;
        for (auto& text : arguments) argv.push_back(text.data());
        for (auto& text : variables) envp.push_back(text.data());
        argv.push_back(nullptr);
        envp.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0600);
        const int kept = keepDescriptor >= 0 ? fcntl(keepDescriptor, F_DUPFD_CLOEXEC, 10) : -1;
        if (kept >= 0) posix_spawn_file_actions_adddup2(&actions, kept, 3);
        const int failed = posix_spawnp(&_pid, argv[0], &actions, nullptr, argv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        if (kept >= 0) close(kept);
        if (failed) throw std::runtime_error("cannot start " + arguments[0]);
    }
    ~Child() {
        if (_done) return;
        kill(_pid, SIGTERM);
        waitpid(_pid, nullptr, 0);
    }
    // Waits for the end; the CPU seconds it used, or a negative number when it failed.
    double finish() {
        int status = 0;
        rusage usage{};
        wait4(_pid, &status, 0, &usage);
        _done = true;
        return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? cpuSeconds(usage) : -1;
    }

private:
    pid_t _pid = -1;
    bool _done = false;
};

int runToEnd(std::vector<std::string> arguments, const std::map<std::string, std::string>& environment) {
    return Child(std::move(arguments), environment).finish() < 0 ? 1 : 0;
}

// Xvfb on a free display; DISPLAY names it.
std::unique_ptr<Child> startDisplay(std::string* name) {
    int channel[2];
    if (pipe2(channel, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const std::string screen = std::to_string(kWidth) + "x" + std::to_string(kHeight) + "x24";
    auto server = std::make_unique<Child>(
        std::vector<std::string>{"Xvfb", "-displayfd", "3", "-screen", "0", screen, "-nolisten", "tcp"},
        std::map<std::string, std::string>{}, channel[1]);
    close(channel[1]);
    std::string number;
    pollfd readable{channel[0], POLLIN, 0};
    char digit = 0;
    while (poll(&readable, 1, 10000) > 0 && read(channel[0], &digit, 1) == 1 && digit != '\n') number += digit;
    close(channel[0]);
    if (number.empty()) throw std::runtime_error("Xvfb did not start");
    *name = ":" + number;
    setenv("DISPLAY", name->c_str(), 1);
    return server;
}

// PulseAudio with a 440 Hz tone into a null sink whose monitor is the default source, and a
// low-latency listener that keeps the monitor as prompt as a microphone.
std::vector<std::unique_ptr<Child>> startSound(const std::string& directory) {
    std::filesystem::create_directories(directory);
    std::vector<std::unique_ptr<Child>> children;
    children.push_back(std::make_unique<Child>(
        std::vector<std::string>{
            "pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "-L", "module-native-protocol-unix", "-L",
            "module-null-sink sink_name=nullsink rate=48000 format=float32le", "-L", "module-always-sink"},
        std::map<std::string, std::string>{{"XDG_RUNTIME_DIR", directory}, {"HOME", directory}}));
    const std::string address = "unix:" + directory + "/pulse/native";
    const std::map<std::string, std::string> client{{"PULSE_SERVER", address}, {"HOME", directory}};
    for (int attempt = 0; runToEnd({"pactl", "info"}, client) != 0; ++attempt) {
        if (attempt == 150) throw std::runtime_error("PulseAudio did not start");
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    runToEnd({"pactl", "load-module", "module-sine", "sink=nullsink", "frequency=440"}, client);
    runToEnd({"pactl", "set-default-source", "nullsink.monitor"}, client);
    children.push_back(std::make_unique<Child>(
        std::vector<std::string>{"parec", "--latency-msec=10", "-d", "nullsink.monitor"}, client));
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    setenv("PULSE_SERVER", address.c_str(), 1);
    return children;
}

// Keeps the display changing: a band of colour sweeps across it 60 times a second.
class DisplayAnimator {
public:
    explicit DisplayAnimator(const std::string& display) {
        _connection = xcb_connect(display.c_str(), nullptr);
        _root = xcb_setup_roots_iterator(xcb_get_setup(_connection)).data->root;
        _context = xcb_generate_id(_connection);
        xcb_create_gc(_connection, _context, _root, 0, nullptr);
        _thread = std::thread([this] { run(); });
    }
    ~DisplayAnimator() {
        _stop = true;
        _thread.join();
        xcb_free_gc(_connection, _context);
        xcb_disconnect(_connection);
    }
    double cpuSeconds() const { return _cpuSeconds; }

private:
    void run() {
        const double start = threadCpuSeconds();
        for (uint32_t step = 0; !_stop; ++step) {
            const uint32_t colour = (step * 0x010305u) & 0xFFFFFFu;
            xcb_change_gc(_connection, _context, XCB_GC_FOREGROUND, &colour);
            const xcb_rectangle_t band{static_cast<int16_t>((step * 16) % kWidth), 0, 160, kHeight};
            xcb_poly_fill_rectangle(_connection, _root, _context, 1, &band);
            std::free(xcb_get_input_focus_reply(_connection, xcb_get_input_focus(_connection), nullptr));
            std::this_thread::sleep_for(std::chrono::microseconds(16667));
            _cpuSeconds = threadCpuSeconds() - start;
        }
    }

    xcb_connection_t* _connection;
    xcb_window_t _root = 0;
    xcb_gcontext_t _context = 0;
    std::atomic<bool> _stop{false};
    std::atomic<double> _cpuSeconds{0};
    std::thread _thread;
};

class Observer : public qm::SCRecordTaskDelegate {
public:
    void SCRecordTaskStart(qm::SCRecordTask&) override { started = true; }
    void SCRecordTaskCompleteWithResource(qm::SCRecordTask&, std::shared_ptr<qm::SCResource> result) override {
        resource = std::move(result);
        completed = true;
    }
    bool started = false;
    bool completed = false;
    std::shared_ptr<qm::SCResource> resource;
};

// CPU seconds per frame of grabbing the whole display and of encoding it as the writer does.
void measureGrabAndEncode(const std::string& display) {
    auto grabber = qm::X11ScreenGrabber::create(display, std::nullopt, nullptr);
    auto picture = qm::createPixelBufferWithType(kWidth, kHeight, qm::kCVPixelFormatType_32BGRA);
    const auto encoder = qm::QVJPEGEncoderHW::create();
    constexpr int frames = 60;
    double grab = 0, encode = 0;
    for (int i = 0; i < frames; ++i) {
        const double before = threadCpuSeconds();
        grabber->grab(*picture);
        const double grabbed = threadCpuSeconds();
        encoder->encodeImageBuffer(*picture);
        encode += threadCpuSeconds() - grabbed;
        grab += grabbed - before;
    }
    std::printf("  CPU per frame: grab %.2f ms, JPEG encode %.2f ms\n", grab / frames * 1000, encode / frames * 1000);
}

}  // namespace

int main() {
    qm::bench::PrivateUserFolders folders("record_bench");
    std::printf("record: %gs of a changing %dx%d display at %d fps with sound, under Xvfb\n", kSeconds, kWidth, kHeight,
                kFrameRate);
    std::string display;
    auto server = startDisplay(&display);
    auto sound = startSound(folders.file("pulse"));
    DisplayAnimator animator(display);
    qm::setLogSink([](const std::string&) {});
    measureGrabAndEncode(display);

    auto observer = std::make_shared<Observer>();
    auto task = qm::SCRecordTask::createWithRecordType(qm::SCRecordTypeScreen, observer);
    task->configureTask();
    if (!task->isSessionRunning() || !task->startRecord()) {
        std::printf("  the recording did not start\n");
        return 1;
    }
    qm::MainLoop::runUntil([&] { return observer->started; }, std::chrono::seconds(30));
    const double cpuBefore = processCpuSeconds();
    const double animatorBefore = animator.cpuSeconds();
    qm::MainLoop::runUntil([] { return false; }, std::chrono::milliseconds(static_cast<int>(kSeconds * 1000)));
    task->stopRecord();
    qm::MainLoop::runUntil([&] { return observer->completed; }, std::chrono::seconds(60));
    const double ours = processCpuSeconds() - cpuBefore - (animator.cpuSeconds() - animatorBefore);
    if (!observer->resource || !observer->resource->videoResource() || !observer->resource->audioResource()) {
        std::printf("  the recording failed\n");
        return 1;
    }
    const auto& video = *observer->resource->videoResource();
    const auto& audio = *observer->resource->audioResource();
    const double videoStart = static_cast<double>(video.blocks().front()->timestamp()) / qm::QVTimebase;
    const double videoSeconds = static_cast<double>(video.duration()) / qm::QVTimebase;
    const double audioSeconds = static_cast<double>(audio.duration()) / qm::QVTimebase;
    const long expected = std::lround((videoSeconds - videoStart) * kFrameRate);
    std::printf("  frames captured %ld of %ld expected (%ld dropped)\n", static_cast<long>(video.numberOfFrames()),
                expected, std::max(0L, expected - static_cast<long>(video.numberOfFrames())));
    std::printf("  CPU per frame, whole recording (grab, cursor, encode, sound, store): %.2f ms\n",
                ours / video.numberOfFrames() * 1000);
    std::printf("  picture-to-sound offset at the end: %.1f ms (one frame is %.1f ms)\n",
                (audioSeconds - videoSeconds) * 1000, 1000.0 / kFrameRate);

    // Variable frame rate drops a frame that would share its time with the one before, which
    // ffmpeg's MJPEG encoder refuses; 4:2:0 is what our encoder writes.
    const std::string ffmpegLog = folders.file("ffmpeg.log");
    const std::vector<std::string> ffmpegArguments{"ffmpeg",
                                                   "-nostdin",
                                                   "-f",
                                                   "x11grab",
                                                   "-framerate",
                                                   std::to_string(kFrameRate),
                                                   "-video_size",
                                                   std::to_string(kWidth) + "x" + std::to_string(kHeight),
                                                   "-i",
                                                   display,
                                                   "-t",
                                                   std::to_string(static_cast<int>(kSeconds)),
                                                   "-c:v",
                                                   "mjpeg",
                                                   "-pix_fmt",
                                                   "yuvj420p",
                                                   "-fps_mode",
                                                   "vfr",
                                                   "-f",
                                                   "null",
                                                   "-"};
    const double ffmpeg = Child(ffmpegArguments, {}, -1, ffmpegLog).finish();
    std::printf("  load average: %s\n", qm::bench::loadAverage().c_str());
    if (ffmpeg < 0) {
        // The reason stands on the line before ffmpeg's closing "Conversion failed!".
        std::ifstream log(ffmpegLog);
        std::string reason;
        for (std::string line, previous; std::getline(log, line); previous = line) {
            if (line.rfind("Conversion failed!", 0) == 0) reason = previous;
        }
        std::printf("  ffmpeg x11grab failed: %s\n", reason.c_str());
        return 1;
    }
    std::printf("  CPU for %gs: ours %.2f s, ffmpeg x11grab + mjpeg %.2f s, ours / ffmpeg %.2f\n", kSeconds, ours,
                ffmpeg, ours / ffmpeg);
    return 0;
}
