#include "Commands.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "CommandError.h"
#include "OutputFile.h"
#include "ProjectInput.h"
#include "Store.h"
#include "codec/MediaLibraryLog.h"
#include "codec/QVTimebase.h"
#include "foundation/QMCommon.h"
#include "image/RenderContext.h"
#include "store/AMResourceMgr.h"

namespace qm::cli {

void quietenMediaLibraries() { routeMediaLibraryLogToQMLog(); }

int runImport(const std::vector<std::string>& args) {
    if (args.empty()) throw CommandError("import needs at least one FILE", kExitBadInput);
    const ImportOutcome outcome = importFiles(args);
    for (const auto& path : outcome.duplicates) std::printf("already in the store: %s\n", path.c_str());
    for (const auto& [path, resource] : outcome.resources) {
        std::printf("%s\n", describeResource(*resource).c_str());
    }
    for (const auto& failure : outcome.failures) std::fprintf(stderr, "quormedia: %s\n", failure.c_str());
    return outcome.failures.empty() ? 0 : kExitFailure;
}

int runResources(const std::vector<std::string>& args) {
    if (!args.empty()) throw CommandError("resources takes no arguments", kExitBadInput);
    auto& manager = AMResourceMgr::resourceMgr();
    for (const auto& list : {manager.userResource(), manager.recordingResources()}) {
        for (const auto& resource : list) std::printf("%s\n", describeResource(*resource).c_str());
    }
    return 0;
}

int runFrame(const std::vector<std::string>& args) {
    std::string edit, out, atText;
    std::optional<double> at;
    for (size_t i = 0; i < args.size(); ++i) {
        if ((args[i] == "--at" || args[i] == "-o") && i + 1 >= args.size()) {
            throw CommandError(args[i] + " needs a value", kExitBadInput);
        }
        if (args[i] == "--at") {
            char* end = nullptr;
            const double seconds = std::strtod(args[++i].c_str(), &end);
            if (end == args[i].c_str() || *end != '\0' || !(seconds >= 0) || !std::isfinite(seconds)) {
                throw CommandError("--at expects seconds from 0 on, not \"" + args[i] + "\"", kExitBadInput);
            }
            at = seconds;
            atText = args[i];
        } else if (args[i] == "-o") {
            out = args[++i];
        } else if (edit.empty()) {
            edit = args[i];
        } else {
            throw CommandError("unexpected argument \"" + args[i] + "\"", kExitBadInput);
        }
    }
    if (edit.empty() || !at || out.empty())
        throw CommandError("frame needs EDIT.json|PROJECT --at SECONDS -o OUT.png", kExitBadInput);
    requireWritableFolder(out);

    const auto project = openProjectArgument(edit);
    const auto timestamp = static_cast<int64_t>(std::llround(*at * static_cast<double>(QVTimebase)));
    const Image image = project->imageAtTimestamp(timestamp, true);
    if (!image) {
        throw CommandError("--at " + atText + " lies past the end of the project (" +
                               QMCommon::formatDuration(project->duration(), true) + ")",
                           kExitBadInput);
    }
    const auto picture = RenderContext::create()->createBitmap(image, project->outBounds());
    const auto png = QMCommon::saveImageToData(picture, "public.png");
    if (!png) throw CommandError("the picture could not be made", kExitFailure);
    writeFileAtomically(out, *png);
    std::printf("%s: %dx%d at %s\n", out.c_str(), picture->width(), picture->height(),
                QMCommon::formatDuration(timestamp, true).c_str());
    return 0;
}

}  // namespace qm::cli
