#include "Store.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>

#include "ProgressBar.h"
#include "codec/QVTimebase.h"
#include "foundation/QMCommon.h"
#include "platform/Dispatch.h"
#include "store/AMResourceImportTask.h"
#include "store/AMResourceMgr.h"
#include "store/SCAudioResource.h"
#include "store/SCImageResource.h"
#include "store/SCVideoResource.h"

namespace qm::cli {

namespace {

std::string kindOf(const SCResource& resource) {
    if (resource.videoExist()) return resource.audioExist() ? "movie" : "video";
    if (resource.audioExist()) return "sound";
    if (resource.imageExist()) return "picture";
    return "empty";
}

}  // namespace

ImportOutcome importFiles(const std::vector<std::string>& paths) {
    ImportOutcome outcome;
    auto& manager = AMResourceMgr::resourceMgr();
    std::vector<std::string> fresh;
    for (const auto& path : paths) {
        std::error_code error;
        if (!std::filesystem::is_regular_file(path, error)) {
            outcome.failures.push_back(path + ": no such file");
            continue;
        }
        const std::string signture = QMCommon::calcSigntureWithURL(path);
        if (auto known = signture.empty() ? nullptr : manager.findResourceWithSignture(signture)) {
            outcome.resources[path] = known;
            outcome.duplicates.push_back(path);
        } else {
            fresh.push_back(path);
        }
    }
    if (fresh.empty()) return outcome;

    ProgressBar bar;
    bool finished = false;
    std::shared_ptr<AMResourceImportResult> result;
    auto task = AMResourceImportTask::create(manager);
    task->importURLs(fresh, false, [&](int32_t phase, const AMTaskInfo* info) {
        if (phase == AMResourceImportTask::phaseProgress && info) {
            bar.update(info->percent, std::filesystem::path(info->msgInfo).filename().string());
        } else if (phase == AMResourceImportTask::phaseEnd) {
            if (info) result = info->representObject;
            finished = true;
        }
        return false;
    });
    MainLoop::runUntil([&] { return finished; }, std::chrono::hours(24 * 365));
    bar.finish(result && result->failureUrls().empty());

    if (!result) {
        for (const auto& path : fresh) outcome.failures.push_back(path + ": the import did not finish");
        return outcome;
    }
    const auto& failed = result->failureUrls();
    for (size_t i = 0; i < failed.size(); ++i) {
        const auto& reasons = result->errorDescription();
        outcome.failures.push_back(failed[i] + ": " + (i < reasons.size() ? reasons[i] : "could not be imported"));
    }
    // The records come back in the order of the files that did not fail.
    size_t next = 0;
    for (const auto& path : fresh) {
        if (std::find(failed.begin(), failed.end(), path) != failed.end()) continue;
        if (next < result->importResources().size()) outcome.resources[path] = result->importResources()[next++];
    }
    return outcome;
}

std::string describeResource(SCResource& resource) {
    int64_t duration = 0;
    std::string size = "-";
    if (const auto& video = resource.videoResource()) {
        duration = video->duration();
        size = std::to_string(video->width()) + "x" + std::to_string(video->height());
    } else if (const auto& image = resource.imageResource()) {
        size = std::to_string(image->width()) + "x" + std::to_string(image->height());
    }
    if (const auto& audio = resource.audioResource()) duration = std::max(duration, audio->duration());
    const std::string length = resource.imageExist() ? "-" : QMCommon::formatDuration(duration, true);
    char line[512];
    std::snprintf(line, sizeof line, "%s  %-7s  %12s  %9s  %s", resource.identifier().c_str(), kindOf(resource).c_str(),
                  length.c_str(), size.c_str(), resource.humanReadableName().c_str());
    return line;
}

}  // namespace qm::cli
