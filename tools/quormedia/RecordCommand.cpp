// quormedia record: records the screen, a camera or the microphone into the store.
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <thread>

#include "CommandError.h"
#include "Commands.h"
#include "Store.h"
#include "codec/QVTimebase.h"
#include "foundation/QMCommon.h"
#include "platform/Dispatch.h"
#include "recording/SCRecordTask.h"
#include "store/AMResourceMgr.h"

namespace qm::cli {

namespace {

std::atomic<bool> stopRequested{false};

void requestStop(int) { stopRequested = true; }

struct RecordOptions {
    int32_t type = -1;
    Rect rect;
    std::optional<double> seconds;
    bool softwareCamera = false;
};

double parseNumber(const std::string& text, const std::string& option) {
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || *end != '\0' || !std::isfinite(value)) {
        throw CommandError(option + " expects a number, not \"" + text + "\"", kExitBadInput);
    }
    return value;
}

Rect parseRect(const std::string& text) {
    double values[4];
    size_t start = 0;
    for (int i = 0; i < 4; ++i) {
        const size_t comma = text.find(',', start);
        if ((i < 3) == (comma == std::string::npos)) {
            throw CommandError("--rect expects X,Y,W,H, not \"" + text + "\"", kExitBadInput);
        }
        values[i] = parseNumber(text.substr(start, comma - start), "--rect");
        start = comma + 1;
    }
    if (values[0] < 0 || values[1] < 0 || values[2] < 2 || values[3] < 2) {
        throw CommandError("--rect needs a position from 0 and a size of at least 2x2", kExitBadInput);
    }
    return Rect{{values[0], values[1]}, {values[2], values[3]}};
}

RecordOptions parseOptions(const std::vector<std::string>& args) {
    RecordOptions options;
    auto setType = [&](int32_t type) {
        if (options.type != -1) throw CommandError("record takes one of --screen, --camera, --audio", kExitBadInput);
        options.type = type;
    };
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if ((arg == "--rect" || arg == "--seconds") && i + 1 >= args.size()) {
            throw CommandError(arg + " needs a value", kExitBadInput);
        }
        if (arg == "--screen") {
            setType(SCRecordTypeScreen);
        } else if (arg == "--camera") {
            setType(SCRecordTypeCamera);
        } else if (arg == "--audio") {
            setType(SCRecordTypeAudio);
        } else if (arg == "--software-camera") {
            options.softwareCamera = true;
        } else if (arg == "--rect") {
            options.rect = parseRect(args[++i]);
        } else if (arg == "--seconds") {
            options.seconds = parseNumber(args[++i], "--seconds");
            if (*options.seconds <= 0) throw CommandError("--seconds must be more than 0", kExitBadInput);
        } else {
            throw CommandError("record does not know \"" + arg + "\"", kExitBadInput);
        }
    }
    if (options.type == -1) throw CommandError("record needs --screen, --camera or --audio", kExitBadInput);
    if (options.type != SCRecordTypeScreen && options.rect.width() > 0) {
        throw CommandError("--rect is for --screen only", kExitBadInput);
    }
    return options;
}

// Runs an authorization check and waits on the main loop for its answer.
bool ask(const std::function<void(std::function<void(bool)>)>& check) {
    std::optional<bool> answer;
    check([&](bool granted) { answer = granted; });
    MainLoop::runUntil([&] { return answer.has_value(); }, std::chrono::seconds(30));
    return answer.value_or(false);
}

void checkPermissions(const RecordOptions& options) {
    if (options.type == SCRecordTypeScreen &&
        !ask([](auto handler) { SCRecordTask::checkDisplayAuthorizationStatusWithCompleteHandler(handler); })) {
        throw CommandError("cannot capture the display (is DISPLAY set to a running X server?)", kExitFailure);
    }
    if (options.type == SCRecordTypeCamera &&
        !ask([](auto handler) { SCRecordTask::checkAuthorizationStatusForType(CaptureMediaType::video, handler); })) {
        throw CommandError("no camera: no /dev/video* device can be opened", kExitFailure);
    }
    if (!ask([](auto handler) { SCRecordTask::checkAuthorizationStatusForType(CaptureMediaType::audio, handler); })) {
        throw CommandError("no microphone: the PulseAudio server does not answer", kExitFailure);
    }
}

// Prints the elapsed time and keeps the result.
class RecordProgress : public SCRecordTaskDelegate {
public:
    void SCRecordTaskStart(SCRecordTask&) override { started = true; }
    void SCRecordTaskRecordDuration(SCRecordTask&, int64_t duration) override {
        std::fprintf(stderr, "\rrecording %s", QMCommon::formatDuration(duration, true).c_str());
        std::fflush(stderr);
    }
    void SCRecordTaskCompleteWithResource(SCRecordTask&, std::shared_ptr<SCResource> result) override {
        std::fputc('\n', stderr);
        resource = std::move(result);
        completed = true;
    }

    bool started = false;
    bool completed = false;
    std::shared_ptr<SCResource> resource;
};

void installStopHandlers() {
    struct sigaction action {};
    action.sa_handler = requestStop;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

}  // namespace

int runRecord(const std::vector<std::string>& args) {
    const RecordOptions options = parseOptions(args);
    CaptureDevice::setSoftwareCameraAllowed(options.softwareCamera);
    installStopHandlers();
    checkPermissions(options);
    // The store starts before recording, so that what an earlier killed recording left is
    // recovered now and not mistaken for this one.
    auto& manager = AMResourceMgr::resourceMgr();

    auto progress = std::make_shared<RecordProgress>();
    auto task = SCRecordTask::createWithRecordType(options.type, progress);
    task->setRecordRect(options.rect);
    task->configureTask();
    if (!task->isSessionRunning()) {
        const auto error = task->error();
        const auto reason = error && error->userInfo.contains(SCRecordTask::inputErrorKey)
                                ? error->userInfo.at(SCRecordTask::inputErrorKey)
                                : std::string("the capture session did not start");
        throw CommandError("cannot record: " + reason, kExitFailure);
    }
    // startRecord waits for the first buffers; a device that never gives one would hold it for
    // ever, so it runs aside and the wait here stays interruptible.
    std::thread([task] { task->startRecord(); }).detach();
    constexpr auto forever = std::chrono::hours(24 * 365);
    MainLoop::runUntil([&] { return progress->started || stopRequested; }, std::chrono::seconds(30));
    if (!progress->started) {
        throw CommandError(stopRequested ? "stopped before recording began" : "the devices give no data", kExitFailure);
    }
    const auto begin = std::chrono::steady_clock::now();
    MainLoop::runUntil(
        [&] {
            const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
            return stopRequested || progress->completed || (options.seconds && elapsed >= *options.seconds);
        },
        forever);
    task->stopRecord();
    MainLoop::runUntil([&] { return progress->completed; }, forever);
    if (!progress->resource) throw CommandError("the recording failed", kExitFailure);
    manager.addResource(progress->resource, AMResourceTypeRecording);
    std::printf("%s\n", progress->resource->identifier().c_str());
    return 0;
}

}  // namespace qm::cli
