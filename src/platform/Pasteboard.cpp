#include "platform/Pasteboard.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "platform/Paths.h"

namespace qm {

namespace {

constexpr const char* kTypesFile = "types";
constexpr const char* kDataPrefix = "data.";

std::optional<std::string> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Writes a sibling file and renames it over `path`.
bool replaceFile(const std::string& path, const char* bytes, size_t length) {
    const std::string temporary = path + "." + std::to_string(getpid()) + ".tmp";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        if (!out) return false;
        out.write(bytes, static_cast<std::streamsize>(length));
        if (!out.flush()) {
            std::remove(temporary.c_str());
            return false;
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        return false;
    }
    return true;
}

bool isDeclaredIn(const std::vector<std::string>& declared, const std::string& type) {
    return std::find(declared.begin(), declared.end(), type) != declared.end();
}

}  // namespace

Pasteboard& Pasteboard::generalPasteboard() {
    static Pasteboard general("general");
    return general;
}

Pasteboard::Pasteboard(std::string name) : _name(std::move(name)) {}

std::string Pasteboard::directory() const {
    const std::string runtime = Paths::runtimeDir();
    if (runtime.empty()) return {};
    return runtime + "/" + Bundle::identifier() + ".pasteboard/" + _name;
}

std::string Pasteboard::dataPath(const std::string& type) const {
    std::string escaped;
    for (unsigned char c : type) {
        if (std::isalnum(c) || c == '.' || c == '_' || c == '-') {
            escaped += static_cast<char>(c);
        } else {
            char hex[4];
            std::snprintf(hex, sizeof hex, "%%%02X", c);
            escaped += hex;
        }
    }
    return directory() + "/" + kDataPrefix + escaped;
}

bool Pasteboard::declareTypes(const std::vector<std::string>& types) {
    const std::string folder = directory();
    if (folder.empty() || !Paths::createDirectories(folder)) return false;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        if (entry.path().filename().string().rfind(kDataPrefix, 0) == 0) std::filesystem::remove(entry.path(), error);
    }
    std::string list;
    for (const auto& type : types) {
        if (type.empty() || type.find('\n') != std::string::npos) continue;
        list += type + "\n";
    }
    return replaceFile(folder + "/" + kTypesFile, list.data(), list.size());
}

std::vector<std::string> Pasteboard::types() const {
    const std::string folder = directory();
    if (folder.empty()) return {};
    std::vector<std::string> declared;
    const auto contents = readFile(folder + "/" + kTypesFile);
    if (!contents) return declared;
    std::istringstream lines(*contents);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) declared.push_back(line);
    }
    return declared;
}

bool Pasteboard::setData(const std::vector<uint8_t>& bytes, const std::string& type) {
    if (!isDeclaredIn(types(), type)) return false;
    return replaceFile(dataPath(type), reinterpret_cast<const char*>(bytes.data()), bytes.size());
}

std::optional<std::vector<uint8_t>> Pasteboard::dataForType(const std::string& type) const {
    if (!isDeclaredIn(types(), type)) return std::nullopt;
    const auto contents = readFile(dataPath(type));
    if (!contents) return std::nullopt;
    return std::vector<uint8_t>(contents->begin(), contents->end());
}

std::optional<std::string> Pasteboard::availableTypeFromArray(const std::vector<std::string>& types) const {
    const auto declared = this->types();
    for (const auto& type : types) {
        if (isDeclaredIn(declared, type)) return type;
    }
    return std::nullopt;
}

}  // namespace qm
