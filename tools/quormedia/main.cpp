// quormedia: the engine's command-line host.
//
//   quormedia import FILE...                      bring movies, sounds and pictures into the store
//   quormedia resources                           list the store's catalogue
//   quormedia frame EDIT.json|PROJECT --at SECONDS -o OUT.png
//                                                 write the project's picture at a time
//   quormedia export EDIT.json|PROJECT OUT        export the project to a movie or sound file
//   quormedia save EDIT.json PROJECT              save the edit file's project as a project file
//   quormedia play EDIT.json|PROJECT              play the project in a window, with sound
//   quormedia record --screen|--camera|--audio [--rect X,Y,W,H] [--seconds N]
//                                                 record the display, a camera or the microphone
//
// The store lives under $XDG_DATA_HOME, the settings under $XDG_CONFIG_HOME. Exit codes: 0 done,
// 1 the work failed, 2 bad input.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "CommandError.h"
#include "Commands.h"
#include "platform/Log.h"

namespace {

constexpr const char* kUsage =
    "usage: quormedia import FILE...\n"
    "       quormedia resources\n"
    "       quormedia frame EDIT.json|PROJECT --at SECONDS -o OUT.png\n"
    "       quormedia export EDIT.json|PROJECT OUT\n"
    "       quormedia save EDIT.json PROJECT\n"
    "       quormedia play EDIT.json|PROJECT\n"
    "       quormedia record --screen|--camera|--audio [--rect X,Y,W,H] [--seconds N] [--software-camera]\n";

}  // namespace

int main(int argc, char** argv) {
    using namespace qm::cli;
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "-h" || args[0] == "--help") {
        std::fputs(kUsage, args.empty() ? stderr : stdout);
        return args.empty() ? kExitBadInput : 0;
    }
    quietenMediaLibraries();
    const std::vector<std::string> rest(args.begin() + 1, args.end());
    try {
        if (args[0] == "import") return runImport(rest);
        if (args[0] == "resources") return runResources(rest);
        if (args[0] == "frame") return runFrame(rest);
        if (args[0] == "export") return runExport(rest);
        if (args[0] == "save") return runSave(rest);
        if (args[0] == "play") return runPlay(rest);
        if (args[0] == "record") return runRecord(rest);
        throw CommandError("unknown command \"" + args[0] + "\"\n" + kUsage, kExitBadInput);
    } catch (const CommandError& error) {
        std::fprintf(stderr, "quormedia: %s\n", error.what());
        return error.exitCode();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quormedia: %s\n", error.what());
        return kExitFailure;
    }
}
