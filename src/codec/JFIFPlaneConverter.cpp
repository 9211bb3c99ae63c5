#include "codec/JFIFPlaneConverter.h"

#include <algorithm>
#include <cmath>

extern "C" {
#include <libavutil/pixfmt.h>
}

#include "codec/PixelScaler.h"

namespace qm {

namespace {

constexpr int kShift = 16;
constexpr double kOne = 1 << kShift;

struct LumaWeights {
    double red;
    double blue;
};

LumaWeights weightsOf(int colorSpace) {
    switch (colorSpace) {
    case AVCOL_SPC_BT709: return {0.2126, 0.0722};
    case AVCOL_SPC_FCC: return {0.30, 0.11};
    case AVCOL_SPC_SMPTE240M: return {0.212, 0.087};
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL: return {0.2627, 0.0593};
    default: return {0.299, 0.114};
    }
}

// Fixed-point coefficients of the map from source codes to JFIF codes.
struct Coefficients {
    int32_t lumaTable[256];
    int32_t lumaFromBlue, lumaFromRed;
    int32_t blueFromBlue, blueFromRed, redFromBlue, redFromRed;
};

Coefficients coefficientsFor(LumaWeights source, bool fullRange) {
    const double lumaOffset = fullRange ? 0.0 : 16.0;
    const double lumaScale = fullRange ? 255.0 : 219.0;
    const double chromaScale = fullRange ? 255.0 : 224.0;
    // Normalised source (y, cb, cr) to RGB, then RGB to BT.601 (y', cb', cr').
    auto toJFIF = [&](double y, double cb, double cr, double out[3]) {
        const double r = y + 2.0 * (1.0 - source.red) * cr;
        const double b = y + 2.0 * (1.0 - source.blue) * cb;
        const double g = (y - source.red * r - source.blue * b) / (1.0 - source.red - source.blue);
        const double luma = 0.299 * r + 0.587 * g + 0.114 * b;
        out[0] = luma;
        out[1] = (b - luma) / 1.772;
        out[2] = (r - luma) / 1.402;
    };
    double fromBlue[3], fromRed[3];
    toJFIF(0.0, 1.0, 0.0, fromBlue);
    toJFIF(0.0, 0.0, 1.0, fromRed);
    const double perChromaCode = 255.0 / chromaScale * kOne;
    Coefficients c;
    for (int code = 0; code < 256; ++code) {
        c.lumaTable[code] = static_cast<int32_t>(std::lround((code - lumaOffset) * 255.0 / lumaScale * kOne));
    }
    c.lumaFromBlue = static_cast<int32_t>(std::lround(fromBlue[0] * perChromaCode));
    c.lumaFromRed = static_cast<int32_t>(std::lround(fromRed[0] * perChromaCode));
    c.blueFromBlue = static_cast<int32_t>(std::lround(fromBlue[1] * perChromaCode));
    c.blueFromRed = static_cast<int32_t>(std::lround(fromRed[1] * perChromaCode));
    c.redFromBlue = static_cast<int32_t>(std::lround(fromBlue[2] * perChromaCode));
    c.redFromRed = static_cast<int32_t>(std::lround(fromRed[2] * perChromaCode));
    return c;
}

inline uint8_t toCode(int32_t fixed) {
    return static_cast<uint8_t>(std::clamp((fixed + (1 << (kShift - 1))) >> kShift, 0, 255));
}

}  // namespace

bool JFIFPlaneConverter::accepts(int pixelFormat) {
    return pixelFormat == AV_PIX_FMT_YUV420P || pixelFormat == AV_PIX_FMT_YUVJ420P;
}

JFIFPlaneConverter::Planes JFIFPlaneConverter::convert(const PixelBuffer& source) {
    const int space = PixelScaler::effectiveColorSpace(source);
    const bool fullRange = PixelScaler::isFullRange(source);
    const LumaWeights weights = weightsOf(space);
    if (fullRange && weights.red == 0.299 && weights.blue == 0.114) {
        return {{source.plane(0), source.plane(1), source.plane(2)},
                {static_cast<int>(source.bytesPerRow(0)), static_cast<int>(source.bytesPerRow(1)),
                 static_cast<int>(source.bytesPerRow(2))}};
    }
    const Coefficients c = coefficientsFor(weights, fullRange);
    const int width = source.width();
    const int height = source.height();
    const int chromaWidth = (width + 1) / 2;
    const int chromaHeight = (height + 1) / 2;
    // TurboJPEG reads 4:2:0 luma in whole 2x2 blocks: odd sizes get a copied last column and row.
    const int lumaWidth = chromaWidth * 2;
    _luma.resize(static_cast<size_t>(lumaWidth) * chromaHeight * 2);
    _blue.resize(static_cast<size_t>(chromaWidth) * chromaHeight);
    _red.resize(_blue.size());
    _lumaTerm.resize(chromaWidth);
    int32_t* lumaTerm = _lumaTerm.data();
    for (int row = 0; row < chromaHeight; ++row) {
        const uint8_t* blueIn = source.plane(1) + row * source.bytesPerRow(1);
        const uint8_t* redIn = source.plane(2) + row * source.bytesPerRow(2);
        uint8_t* blueOut = _blue.data() + static_cast<size_t>(row) * chromaWidth;
        uint8_t* redOut = _red.data() + static_cast<size_t>(row) * chromaWidth;
        for (int x = 0; x < chromaWidth; ++x) {
            const int32_t cb = blueIn[x] - 128;
            const int32_t cr = redIn[x] - 128;
            lumaTerm[x] = c.lumaFromBlue * cb + c.lumaFromRed * cr;
            blueOut[x] = toCode((128 << kShift) + c.blueFromBlue * cb + c.blueFromRed * cr);
            redOut[x] = toCode((128 << kShift) + c.redFromBlue * cb + c.redFromRed * cr);
        }
        for (int line = row * 2; line < row * 2 + 2; ++line) {
            const uint8_t* in = source.plane(0) + std::min(line, height - 1) * source.bytesPerRow(0);
            uint8_t* out = _luma.data() + static_cast<size_t>(line) * lumaWidth;
            for (int x = 0; x < width; ++x) out[x] = toCode(c.lumaTable[in[x]] + lumaTerm[x >> 1]);
            if (lumaWidth > width) out[width] = out[width - 1];
        }
    }
    return {{_luma.data(), _blue.data(), _red.data()}, {lumaWidth, chromaWidth, chromaWidth}};
}

}  // namespace qm
