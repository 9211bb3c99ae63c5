#include "platform/UUID.h"

#include <sys/random.h>

#include <cerrno>
#include <cstdlib>

namespace qm {

namespace {

constexpr bool isHyphenPosition(size_t i) { return i == 8 || i == 13 || i == 18 || i == 23; }

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

}  // namespace

// getrandom blocks only until the kernel's pool is first seeded; it cannot otherwise fail for
// 16 bytes, so a failure means a broken system.
UUID UUID::create() {
    Bytes bytes{};
    size_t filled = 0;
    while (filled < bytes.size()) {
        const ssize_t count = getrandom(bytes.data() + filled, bytes.size() - filled, 0);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) std::abort();
        filled += static_cast<size_t>(count);
    }
    bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0f) | 0x40);
    bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3f) | 0x80);
    return UUID(bytes);
}

std::optional<UUID> UUID::createWithUUIDString(const std::string& text) {
    if (text.size() != 36) return std::nullopt;
    Bytes bytes{};
    size_t digit = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (isHyphenPosition(i)) {
            if (text[i] != '-') return std::nullopt;
            continue;
        }
        const int value = hexValue(text[i]);
        if (value < 0) return std::nullopt;
        bytes[digit / 2] = static_cast<uint8_t>(bytes[digit / 2] | (digit % 2 == 0 ? value << 4 : value));
        ++digit;
    }
    return UUID(bytes);
}

std::string UUID::UUIDString() const {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(36);
    for (size_t i = 0; i < _bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
        text += kDigits[_bytes[i] >> 4];
        text += kDigits[_bytes[i] & 0x0f];
    }
    return text;
}

}  // namespace qm
