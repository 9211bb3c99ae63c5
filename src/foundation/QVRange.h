#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qm {

// A half-open stretch [location, location + length) of timestamps or sample positions.
// Immutable; a length below 1 is empty. Sums wrap instead of overflowing, so a range that
// runs "for ever" (length QMNoTimeLimited) is still a valid value.
class QVRange {
public:
    constexpr QVRange() = default;
    constexpr QVRange(int64_t location, int64_t length) : _location(location), _length(length) {}

    // (0, 0).
    static constexpr QVRange emptyRange() { return QVRange(); }
    // Location moved by `inset` and length shrunk by twice it; both raised to 0 if negative.
    static QVRange inset(int64_t inset, const QVRange& range);

    constexpr int64_t location() const { return _location; }
    constexpr int64_t length() const { return _length; }

    constexpr bool empty() const { return _length < 1; }
    // First position after the range, also for an empty range.
    int64_t end() const;
    // Last position inside the range; -1 for any empty range.
    int64_t endLocation() const;

    bool containRange(const QVRange& other) const;
    bool containLocation(int64_t value) const;
    bool intersectsRange(const QVRange& other) const;
    // Nothing when either range is empty or they do not meet; never an empty range.
    std::optional<QVRange> intersectionRange(const QVRange& other) const;
    // Equal location and equal endLocation: two empty ranges at one location are equal.
    bool isEqualRange(const QVRange& other) const;

    std::string description() const;

private:
    int64_t _location = 0;
    int64_t _length = 0;
};

}  // namespace qm
