#include "recording/capture/CaptureSession.h"

#include <algorithm>

#include "platform/Log.h"

namespace qm {

std::shared_ptr<CaptureSession> CaptureSession::create() {
    return std::shared_ptr<CaptureSession>(new CaptureSession());
}

CaptureSession::~CaptureSession() { stopRunning(); }

void CaptureSession::beginConfiguration() {
    std::lock_guard lock(_mutex);
    ++_configurationDepth;
}

void CaptureSession::commitConfiguration() {
    std::lock_guard lock(_mutex);
    if (_configurationDepth == 0) return;
    if (--_configurationDepth == 0 && _running && _streams.empty()) startCaptures();
}

bool CaptureSession::canAddInput(const std::shared_ptr<CaptureInput>& input) const {
    std::lock_guard lock(_mutex);
    return input && std::none_of(_inputs.begin(), _inputs.end(), [&](const auto& added) {
               return added == input || added->mediaType() == input->mediaType();
           });
}

void CaptureSession::addInput(const std::shared_ptr<CaptureInput>& input) {
    if (!canAddInput(input)) return;
    std::lock_guard lock(_mutex);
    _inputs.push_back(input);
    for (const auto& output : _outputs) {
        if (output->mediaType() == input->mediaType()) {
            output->setConnection(std::make_shared<CaptureConnection>(input->mediaType(), input));
        }
    }
}

bool CaptureSession::canAddOutput(const std::shared_ptr<CaptureOutput>& output) const {
    std::lock_guard lock(_mutex);
    return output && std::none_of(_outputs.begin(), _outputs.end(), [&](const auto& added) {
               return added == output || added->mediaType() == output->mediaType();
           });
}

void CaptureSession::addOutput(const std::shared_ptr<CaptureOutput>& output) {
    if (!canAddOutput(output)) return;
    std::lock_guard lock(_mutex);
    _outputs.push_back(output);
    for (const auto& input : _inputs) {
        if (input->mediaType() == output->mediaType()) {
            output->setConnection(std::make_shared<CaptureConnection>(input->mediaType(), input));
        }
    }
}

void CaptureSession::startRunning() {
    std::lock_guard lock(_mutex);
    if (_running) return;
    _running = true;
    if (_configurationDepth == 0) startCaptures();
}

void CaptureSession::startCaptures() {
    for (const auto& output : _outputs) {
        CaptureError error;
        if (auto stream = output->start(&error)) {
            _streams.push_back(std::move(stream));
        } else if (!error.description.empty()) {
            QMLog("Capture of %s did not start: %s", captureMediaTypeName(output->mediaType()),
                  error.description.c_str());
        }
    }
}

void CaptureSession::stopRunning() {
    std::vector<std::unique_ptr<CaptureStream>> streams;
    {
        std::lock_guard lock(_mutex);
        _running = false;
        streams.swap(_streams);
    }
}

bool CaptureSession::isRunning() const {
    std::lock_guard lock(_mutex);
    return _running;
}

}  // namespace qm
