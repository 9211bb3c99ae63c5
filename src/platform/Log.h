#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace qm {

// Writes one plain line, printf-style, to the current sink (stderr by default).
// The engine's texts pass "%@" arguments as "%s" with a C string.
void QMLog(const char* format, ...) __attribute__((format(printf, 1, 2)));

using LogSink = std::function<void(const std::string& line)>;

// Replaces the sink; an empty function restores stderr. Returns the previous sink.
LogSink setLogSink(LogSink sink);

// Collects every logged line while it lives, then restores the previous sink.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const;
    // Number of lines exactly equal to `line`.
    size_t count(const std::string& line) const;
    void clear();

private:
    mutable std::mutex _mutex;
    std::vector<std::string> _lines;
    LogSink _previous;
};

}  // namespace qm
