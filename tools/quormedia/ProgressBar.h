#pragma once

#include <chrono>
#include <string>

namespace qm::cli {

// One line on the terminal that redraws itself: a bar, the percent, a label and, once some work is
// done, the time left. Only the owner's thread draws; finish() ends the line.
class ProgressBar {
public:
    explicit ProgressBar(bool showTimeLeft = false);
    ~ProgressBar();
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    // `percent` from 0 to 100; values outside (or not a number) are drawn at the nearest end.
    void update(double percent, const std::string& label);
    // Draws 100 % when `done`, then ends the line; later updates start a new one.
    void finish(bool done);

private:
    using Clock = std::chrono::steady_clock;

    bool _showTimeLeft;
    bool _open = false;
    double _percent = 0;
    Clock::time_point _start = Clock::now();
    Clock::time_point _lastDraw{};
};

}  // namespace qm::cli
