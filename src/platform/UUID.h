#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>

namespace qm {

// A 128-bit universally unique identifier (NSUUID), a plain value.
class UUID {
public:
    using Bytes = std::array<uint8_t, 16>;

    // A random (version 4, RFC 4122 variant) identifier.
    static UUID create();
    // Reads "XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX" in either case; nothing for any other text.
    static std::optional<UUID> createWithUUIDString(const std::string& text);

    explicit UUID(const Bytes& bytes) : _bytes(bytes) {}

    // 36 characters, upper-case hex with hyphens after the 8th, 12th, 16th and 20th digits.
    std::string UUIDString() const;
    const Bytes& bytes() const { return _bytes; }

    friend bool operator==(const UUID&, const UUID&) = default;
    friend auto operator<=>(const UUID&, const UUID&) = default;

private:
    Bytes _bytes;
};

}  // namespace qm
