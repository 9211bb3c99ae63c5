#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

struct evp_md_ctx_st;

namespace qm {

// The MD5 digest of `length` bytes as 32 upper-case hex digits.
std::string md5Hex(const uint8_t* data, size_t length);

// An MD5 digest over several blocks, fed in order.
class Md5 {
public:
    Md5();
    ~Md5();
    Md5(const Md5&) = delete;
    Md5& operator=(const Md5&) = delete;

    void update(const uint8_t* data, size_t length);
    // The digest of everything fed since construction or the last finish, as 32 upper-case hex
    // digits; the next update starts a new digest.
    std::string finish();

private:
    evp_md_ctx_st* _context;
};

}  // namespace qm
