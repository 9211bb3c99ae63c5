#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "support/TestEnvironment.h"

struct xcb_connection_t;

namespace qm::test {

// A program started for a test, with extra environment variables, and stopped by its pid when the
// object goes (SIGTERM, then SIGKILL if it lingers).
class ChildProcess {
public:
    // `keepDescriptor`, when not -1, stays open in the child as descriptor 3. Standard output and
    // error go to `outputFile`, or nowhere when it is empty. Throws when the program cannot start.
    ChildProcess(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment = {},
                 int keepDescriptor = -1, const std::string& outputFile = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // Waits for the exit; the exit status, or -1 when it did not end in time or died of a signal.
    int waitForExit(std::chrono::milliseconds timeout);
    // Sends a signal to the child.
    void signal(int number) const;

private:
    pid_t _pid = -1;
    bool _reaped = false;
};

// Runs a program to its end; its exit status, or -1.
int runProgram(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment = {});

// An Xvfb server on a free private display, 24-bit, without TCP; DISPLAY points at it while the
// object lives. Throws when the server does not come up.
class PrivateDisplay {
public:
    PrivateDisplay(int width, int height);
    ~PrivateDisplay();
    PrivateDisplay(const PrivateDisplay&) = delete;
    PrivateDisplay& operator=(const PrivateDisplay&) = delete;

    const std::string& name() const { return _name; }
    // Fills a rectangle of the root window with 0xRRGGBB and waits until the server has done it.
    void fillRectangle(int x, int y, int width, int height, uint32_t rgb);
    // Moves the pointer to (x, y) of the screen.
    void warpPointer(int x, int y);
    // Presses or releases the left mouse button where the pointer is, through XTEST.
    void setLeftButtonDown(bool down);

private:
    std::unique_ptr<ChildProcess> _server;
    std::string _name;
    xcb_connection_t* _connection = nullptr;
    uint32_t _root = 0;
    ScopedEnvironment _environment;
};

// A PulseAudio daemon in the foreground on a private socket with a null sink (48 kHz float stereo)
// whose monitor is the default source, silent until a tone plays into it; PULSE_SERVER points at
// it while the object lives. Throws when the server does not come up.
class PrivateSoundServer {
public:
    // With a frequency, a sine tone of it plays from the start.
    explicit PrivateSoundServer(std::optional<int> sineFrequency);
    // Starts a sine tone; returns when the server has loaded it.
    void playTone(int frequency);
    ~PrivateSoundServer();
    PrivateSoundServer(const PrivateSoundServer&) = delete;
    PrivateSoundServer& operator=(const PrivateSoundServer&) = delete;

private:
    TemporaryDirectory _directory{"quormedia-pulse"};
    std::unique_ptr<ChildProcess> _server;
    std::unique_ptr<ChildProcess> _listener;
    std::string _address;
    std::map<std::string, std::string> _clientEnvironment;
    ScopedEnvironment _environment;
};

}  // namespace qm::test
