#pragma once

namespace qm {

// Which implementation of the pixel rows runs: the plain C++ reference, or the AVX2 versions of
// x86/. Every table of rows takes its entries by this one choice.
enum class DSPLevel { Plain, AVX2 };

// Chosen once, on the first call: AVX2 where the processor has it, unless the environment variable
// QUORMEDIA_PLAIN_DSP is set to anything but "" or "0", which forces the plain rows everywhere.
DSPLevel dspLevel();

// True when this is an x86-64 processor with AVX2, whatever the environment asks for.
bool processorHasAVX2();

}  // namespace qm
