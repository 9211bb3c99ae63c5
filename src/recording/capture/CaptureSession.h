#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "recording/capture/CaptureInput.h"
#include "recording/capture/CaptureOutput.h"

namespace qm {

// Session presets: the picture quality a session aims for.
inline constexpr const char* AVCaptureSessionPresetHigh = "AVCaptureSessionPresetHigh";
inline constexpr const char* AVCaptureSessionPresetMedium = "AVCaptureSessionPresetMedium";
inline constexpr const char* AVCaptureSessionPresetLow = "AVCaptureSessionPresetLow";

// Joins inputs to data outputs, one of each medium, and runs the captures between them. Changes
// made between beginConfiguration and commitConfiguration take effect together: a session asked
// to run while it is being configured starts at the commit.
class CaptureSession {
public:
    static std::shared_ptr<CaptureSession> create();
    ~CaptureSession();
    CaptureSession(const CaptureSession&) = delete;
    CaptureSession& operator=(const CaptureSession&) = delete;

    void beginConfiguration();
    void commitConfiguration();
    const std::string& sessionPreset() const { return _sessionPreset; }
    void setSessionPreset(const std::string& preset) { _sessionPreset = preset; }

    // False for an input already added or a second input of a medium.
    bool canAddInput(const std::shared_ptr<CaptureInput>& input) const;
    void addInput(const std::shared_ptr<CaptureInput>& input);
    // False for an output already added or a second output of a medium.
    bool canAddOutput(const std::shared_ptr<CaptureOutput>& output) const;
    // Connects the output to the input of its medium, if there is one.
    void addOutput(const std::shared_ptr<CaptureOutput>& output);

    // Starts every connected output. A capture that cannot start is logged and left out.
    void startRunning();
    // Stops every capture and waits for their threads; buffers already queued are still delivered.
    void stopRunning();
    bool isRunning() const;

private:
    CaptureSession() = default;
    void startCaptures();

    mutable std::mutex _mutex;
    std::string _sessionPreset = AVCaptureSessionPresetHigh;
    std::vector<std::shared_ptr<CaptureInput>> _inputs;
    std::vector<std::shared_ptr<CaptureOutput>> _outputs;
    std::vector<std::unique_ptr<CaptureStream>> _streams;
    int _configurationDepth = 0;
    bool _running = false;
};

}  // namespace qm
