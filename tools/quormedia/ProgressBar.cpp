#include "ProgressBar.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace qm::cli {

namespace {

constexpr int kBarWidth = 30;

std::string clock(double seconds) {
    const long total = std::lround(std::max(0.0, seconds));
    char text[32];
    std::snprintf(text, sizeof text, "%ld:%02ld", total / 60, total % 60);
    return text;
}

}  // namespace

ProgressBar::ProgressBar(bool showTimeLeft) : _showTimeLeft(showTimeLeft) {}

ProgressBar::~ProgressBar() {
    if (_open) std::fputc('\n', stderr);
}

void ProgressBar::update(double percent, const std::string& label) {
    if (!_open) _start = Clock::now();
    _open = true;
    _percent = std::isnan(percent) ? 0.0 : std::clamp(percent, 0.0, 100.0);
    // A terminal redraw costs more than most steps: at most 20 a second.
    const auto now = Clock::now();
    if (now - _lastDraw < std::chrono::milliseconds(50) && _percent < 100.0) return;
    _lastDraw = now;
    const int filled = static_cast<int>(_percent / 100.0 * kBarWidth);
    std::string bar(static_cast<size_t>(filled), '#');
    bar.append(static_cast<size_t>(kBarWidth - filled), '.');
    std::string tail = label;
    if (_showTimeLeft && _percent >= 1.0 && _percent < 100.0) {
        const double elapsed = std::chrono::duration<double>(now - _start).count();
        tail += "  " + clock(elapsed * (100.0 - _percent) / _percent) + " left";
    }
    std::fprintf(stderr, "\r[%s] %3d%%  %-48.48s", bar.c_str(), static_cast<int>(_percent), tail.c_str());
    std::fflush(stderr);
}

void ProgressBar::finish(bool done) {
    if (!_open) return;
    if (done) {
        _lastDraw = {};
        update(100.0, "done");
    }
    std::fputc('\n', stderr);
    _open = false;
}

}  // namespace qm::cli
