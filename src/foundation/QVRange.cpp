#include "foundation/QVRange.h"

#include <algorithm>
#include <cstdio>

namespace qm {

namespace {

int64_t wrappingAdd(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

}  // namespace

QVRange QVRange::inset(int64_t inset, const QVRange& range) {
    int64_t location = std::max<int64_t>(0, wrappingAdd(range.location(), inset));
    int64_t length = std::max<int64_t>(0, wrappingAdd(range.length(), -2 * inset));
    return QVRange(location, length);
}

int64_t QVRange::end() const { return wrappingAdd(_location, _length); }

int64_t QVRange::endLocation() const {
    if (empty()) return -1;
    return wrappingAdd(end(), -1);
}

bool QVRange::containRange(const QVRange& other) const {
    if (empty() || other.empty()) return false;
    return _location <= other._location && other.endLocation() <= endLocation();
}

bool QVRange::containLocation(int64_t value) const {
    if (empty()) return false;
    return _location <= value && value <= endLocation();
}

bool QVRange::intersectsRange(const QVRange& other) const {
    if (empty() || other.empty()) return false;
    return containLocation(other._location) || containLocation(other.endLocation()) ||
           other.containLocation(_location) || other.containLocation(endLocation());
}

std::optional<QVRange> QVRange::intersectionRange(const QVRange& other) const {
    if (empty() || other.empty()) return std::nullopt;
    if (containRange(other)) return other;
    if (other.containRange(*this)) return *this;
    if (containLocation(other._location)) {
        return QVRange(other._location, endLocation() + 1 - other._location);
    }
    if (containLocation(other.endLocation())) {
        return QVRange(_location, other.endLocation() + 1 - _location);
    }
    return std::nullopt;
}

bool QVRange::isEqualRange(const QVRange& other) const {
    return _location == other._location && endLocation() == other.endLocation();
}

std::string QVRange::description() const {
    char text[64];
    std::snprintf(text, sizeof text, "(%lld, %lld)", static_cast<long long>(_location),
                  static_cast<long long>(_length));
    return text;
}

}  // namespace qm
