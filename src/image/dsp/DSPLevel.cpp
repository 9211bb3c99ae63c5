#include "image/dsp/DSPLevel.h"

#include <cstdlib>
#include <cstring>

namespace qm {

namespace {

DSPLevel chooseLevel() {
    const char* plain = std::getenv("QUORMEDIA_PLAIN_DSP");
    if (plain && *plain && std::strcmp(plain, "0") != 0) return DSPLevel::Plain;
    return processorHasAVX2() ? DSPLevel::AVX2 : DSPLevel::Plain;
}

}  // namespace

DSPLevel dspLevel() {
    static const DSPLevel level = chooseLevel();
    return level;
}

bool processorHasAVX2() {
#if defined(__x86_64__)
    // The table is picked by a static initialiser, which may run before the runtime's own.
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
#else
    return false;
#endif
}

}  // namespace qm
