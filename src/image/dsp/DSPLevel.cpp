#include "image/dsp/DSPLevel.h"

#include <cstdlib>
#include <cstring>

namespace qm {

namespace {

DSPLevel chooseLevel() {
    const char* plain = std::getenv("QUORMEDIA_PLAIN_DSP");
    if (plain && *plain && std::strcmp(plain, "0") != 0) return DSPLevel::Plain;
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) return DSPLevel::AVX2;
#endif
    return DSPLevel::Plain;
}

}  // namespace

DSPLevel dspLevel() {
    static const DSPLevel level = chooseLevel();
    return level;
}

}  // namespace qm
