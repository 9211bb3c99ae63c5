#include "platform/AttributedString.h"

#include <algorithm>

namespace qm {

AttributedString::AttributedString(std::string string, const TextAttributes& attributes) : _string(std::move(string)) {
    if (!_string.empty()) _runs.push_back({0, _string.size(), attributes});
}

TextAttributes AttributedString::attributesAtIndex(size_t index) const {
    if (_runs.empty()) return {};
    for (const auto& run : _runs) {
        if (index < run.location + run.length) return run.attributes;
    }
    return _runs.back().attributes;
}

void AttributedString::splitAt(size_t index) {
    for (size_t i = 0; i < _runs.size(); ++i) {
        Run& run = _runs[i];
        if (index <= run.location || index >= run.location + run.length) continue;
        Run tail{index, run.location + run.length - index, run.attributes};
        run.length = index - run.location;
        _runs.insert(_runs.begin() + static_cast<std::ptrdiff_t>(i) + 1, std::move(tail));
        return;
    }
}

void AttributedString::mergeRuns() {
    std::vector<Run> merged;
    for (auto& run : _runs) {
        if (!merged.empty() && merged.back().attributes == run.attributes) {
            merged.back().length += run.length;
        } else {
            merged.push_back(std::move(run));
        }
    }
    _runs = std::move(merged);
}

void AttributedString::changeAttributes(size_t location, size_t length,
                                        const std::function<void(TextAttributes&)>& change) {
    const size_t start = std::min(location, _string.size());
    const size_t end = start + std::min(length, _string.size() - start);
    if (start == end) return;
    splitAt(start);
    splitAt(end);
    for (auto& run : _runs) {
        if (run.location >= start && run.location + run.length <= end) change(run.attributes);
    }
    mergeRuns();
}

void AttributedString::replaceString(std::string string) {
    const TextAttributes first = attributesAtIndex(0);
    _string = std::move(string);
    _runs.clear();
    if (!_string.empty()) _runs.push_back({0, _string.size(), first});
}

std::optional<AttributedString> AttributedString::createWithRuns(std::string string, std::vector<Run> runs) {
    size_t next = 0;
    for (const auto& run : runs) {
        if (run.location != next || run.length == 0 || run.length > string.size() - next) return std::nullopt;
        next += run.length;
    }
    if (next != string.size()) return std::nullopt;
    AttributedString result;
    result._string = std::move(string);
    result._runs = std::move(runs);
    result.mergeRuns();
    return result;
}

}  // namespace qm
