#include "support/HeadlessDesktop.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace qm::test {

namespace {

std::vector<std::string> environmentWith(const std::map<std::string, std::string>& overrides) {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        if (!overrides.contains(text.substr(0, text.find('=')))) entries.push_back(text);
    }
    for (const auto& [name, value] : overrides) entries.push_back(name + "=" + value);
    return entries;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (auto& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const std::map<std::string, std::string>& environment, int keepDescriptor,
                           const std::string& outputFile) {
    std::vector<std::string> argumentTexts = arguments;
    std::vector<std::string> environmentTexts = environmentWith(environment);
    auto argv = pointersTo(argumentTexts);
    auto envp = pointersTo(environmentTexts);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const int output = outputFile.empty() ? open("/dev/null", O_WRONLY | O_CLOEXEC)
                                          : open(outputFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    // The kept descriptor becomes 3 in the child; a copy above 3 first, since dup2 onto itself
    // would leave close-on-exec set.
    const int kept = keepDescriptor >= 0 ? fcntl(keepDescriptor, F_DUPFD_CLOEXEC, 10) : -1;
    if (kept >= 0) posix_spawn_file_actions_adddup2(&actions, kept, 3);
    const int result = posix_spawnp(&_pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(output);
    if (kept >= 0) close(kept);
    if (result != 0) throw std::runtime_error("cannot start " + arguments[0]);
}

ChildProcess::~ChildProcess() {
    if (_reaped) return;
    signal(SIGTERM);
    if (waitForExit(std::chrono::seconds(5)) == -1 && !_reaped) {
        signal(SIGKILL);
        waitpid(_pid, nullptr, 0);
    }
}

int ChildProcess::waitForExit(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        int status = 0;
        const pid_t done = waitpid(_pid, &status, WNOHANG);
        if (done == _pid) {
            _reaped = true;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        if (done < 0 || std::chrono::steady_clock::now() > deadline) return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void ChildProcess::signal(int number) const {
    if (!_reaped) kill(_pid, number);
}

int runProgram(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment) {
    ChildProcess child(arguments, environment);
    return child.waitForExit(std::chrono::seconds(20));
}

PrivateDisplay::PrivateDisplay(int width, int height) {
    int channel[2];
    if (pipe2(channel, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const std::string screen = std::to_string(width) + "x" + std::to_string(height) + "x24";
    _server = std::make_unique<ChildProcess>(
        std::vector<std::string>{"Xvfb", "-displayfd", "3", "-screen", "0", screen, "-nolisten", "tcp"},
        std::map<std::string, std::string>{}, channel[1]);
    close(channel[1]);
    std::string number;
    pollfd readable{channel[0], POLLIN, 0};
    char digit = 0;
    while (poll(&readable, 1, 10000) > 0 && read(channel[0], &digit, 1) == 1 && digit != '\n') number += digit;
    close(channel[0]);
    if (number.empty()) throw std::runtime_error("Xvfb did not start");
    _name = ":" + number;
    _environment.set("DISPLAY", _name);
    int screenNumber = 0;
    _connection = xcb_connect(_name.c_str(), &screenNumber);
    if (xcb_connection_has_error(_connection)) throw std::runtime_error("cannot connect to " + _name);
    _root = xcb_setup_roots_iterator(xcb_get_setup(_connection)).data->root;
}

PrivateDisplay::~PrivateDisplay() {
    if (_connection) xcb_disconnect(_connection);
}

void PrivateDisplay::fillRectangle(int x, int y, int width, int height, uint32_t rgb) {
    const xcb_gcontext_t context = xcb_generate_id(_connection);
    const uint32_t values[] = {rgb};
    xcb_create_gc(_connection, context, _root, XCB_GC_FOREGROUND, values);
    const xcb_rectangle_t rectangle{static_cast<int16_t>(x), static_cast<int16_t>(y), static_cast<uint16_t>(width),
                                    static_cast<uint16_t>(height)};
    xcb_poly_fill_rectangle(_connection, _root, context, 1, &rectangle);
    xcb_free_gc(_connection, context);
    std::free(xcb_get_input_focus_reply(_connection, xcb_get_input_focus(_connection), nullptr));
}

void PrivateDisplay::warpPointer(int x, int y) {
    xcb_warp_pointer(_connection, XCB_NONE, _root, 0, 0, 0, 0, static_cast<int16_t>(x), static_cast<int16_t>(y));
    std::free(xcb_get_input_focus_reply(_connection, xcb_get_input_focus(_connection), nullptr));
}

void PrivateDisplay::setLeftButtonDown(bool down) {
    xcb_test_fake_input(_connection, down ? XCB_BUTTON_PRESS : XCB_BUTTON_RELEASE, 1, XCB_CURRENT_TIME, _root, 0, 0,
                        0);
    std::free(xcb_get_input_focus_reply(_connection, xcb_get_input_focus(_connection), nullptr));
}

PrivateSoundServer::PrivateSoundServer(std::optional<int> sineFrequency) {
    const std::map<std::string, std::string> environment{{"XDG_RUNTIME_DIR", _directory.path()},
                                                         {"HOME", _directory.path()}};
    _server = std::make_unique<ChildProcess>(
        std::vector<std::string>{
            "pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "-L", "module-native-protocol-unix", "-L",
            "module-null-sink sink_name=nullsink rate=48000 format=float32le", "-L", "module-always-sink"},
        environment);
    _address = "unix:" + _directory.path() + "/pulse/native";
    _clientEnvironment = {{"PULSE_SERVER", _address}, {"HOME", _directory.path()}};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (runProgram({"pactl", "info"}, _clientEnvironment) != 0) {
        if (std::chrono::steady_clock::now() > deadline) throw std::runtime_error("PulseAudio did not start");
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (runProgram({"pactl", "set-default-source", "nullsink.monitor"}, _clientEnvironment) != 0) {
        throw std::runtime_error("no monitor source");
    }
    if (sineFrequency) playTone(*sineFrequency);
    // The null sink renders in blocks of up to 2 s until a client asks for low latency; a
    // listener that always does keeps the monitor as prompt as a microphone. Its first big block
    // must pass before the server is ready.
    _listener = std::make_unique<ChildProcess>(
        std::vector<std::string>{"parec", "--latency-msec=10", "-d", "nullsink.monitor"}, _clientEnvironment);
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    _environment.set("PULSE_SERVER", _address);
}

void PrivateSoundServer::playTone(int frequency) {
    const std::string argument = "frequency=" + std::to_string(frequency);
    if (runProgram({"pactl", "load-module", "module-sine", "sink=nullsink", argument}, _clientEnvironment) != 0) {
        throw std::runtime_error("no tone");
    }
}

PrivateSoundServer::~PrivateSoundServer() = default;

}  // namespace qm::test
