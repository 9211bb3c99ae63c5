#include "platform/Log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace qm {

namespace {

std::mutex& sinkMutex() {
    static std::mutex mutex;
    return mutex;
}

LogSink& currentSink() {
    static LogSink sink;
    return sink;
}

}  // namespace

void QMLog(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string line(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0) std::vsnprintf(line.data(), line.size() + 1, format, args);
    va_end(args);

    LogSink sink;
    {
        std::lock_guard<std::mutex> lock(sinkMutex());
        sink = currentSink();
    }
    if (sink) {
        sink(line);
    } else {
        std::fprintf(stderr, "%s\n", line.c_str());
    }
}

LogSink setLogSink(LogSink sink) {
    std::lock_guard<std::mutex> lock(sinkMutex());
    LogSink previous = std::move(currentSink());
    currentSink() = std::move(sink);
    return previous;
}

LogCapture::LogCapture() {
    _previous = setLogSink([this](const std::string& line) {
        std::lock_guard<std::mutex> lock(_mutex);
        _lines.push_back(line);
    });
}

LogCapture::~LogCapture() { setLogSink(std::move(_previous)); }

std::vector<std::string> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(_mutex);
    return _lines;
}

size_t LogCapture::count(const std::string& line) const {
    std::lock_guard<std::mutex> lock(_mutex);
    return static_cast<size_t>(std::count(_lines.begin(), _lines.end(), line));
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(_mutex);
    _lines.clear();
}

}  // namespace qm
