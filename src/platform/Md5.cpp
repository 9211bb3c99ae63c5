#include "platform/Md5.h"

#include <openssl/evp.h>

#include <cstdlib>

namespace qm {

std::string md5Hex(const uint8_t* data, size_t length) {
    Md5 md5;
    md5.update(data, length);
    return md5.finish();
}

// OpenSSL fails here only when it cannot allocate; there is no digest to give then.
Md5::Md5() : _context(EVP_MD_CTX_new()) {
    if (!_context || EVP_DigestInit_ex(_context, EVP_md5(), nullptr) != 1) std::abort();
}

Md5::~Md5() { EVP_MD_CTX_free(_context); }

void Md5::update(const uint8_t* data, size_t length) {
    if (length > 0) EVP_DigestUpdate(_context, data, length);
}

std::string Md5::finish() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    EVP_DigestFinal_ex(_context, digest, &size);
    EVP_DigestInit_ex(_context, EVP_md5(), nullptr);
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (unsigned int i = 0; i < size; ++i) {
        text += kDigits[digest[i] >> 4];
        text += kDigits[digest[i] & 0x0f];
    }
    return text;
}

}  // namespace qm
