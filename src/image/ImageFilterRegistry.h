#pragma once

#include <map>
#include <string>
#include <vector>

#include "image/Image.h"

namespace qm {

// Numeric inputs of a named filter by key ("inputBrightness", ...); a missing key takes the
// filter's default.
using FilterParameters = std::map<std::string, double>;

// A filter that is stored by name as data (an editor's chosen effect), with the function that
// builds its operation.
struct ImageFilter {
    std::string name;
    Image (*build)(const Image& input, const FilterParameters& parameters);

    Image apply(const Image& input, const FilterParameters& parameters = {}) const {
        return build(input, parameters);
    }
};

// The filters known by name: "CIColorControls" (keys inputBrightness 0, inputContrast 1,
// inputSaturation 1), "CIColorInvert", "CIMedianFilter" and the eight "CIPhotoEffect..." looks.
class ImageFilterRegistry {
public:
    // Nothing for a name no filter has ("None" included).
    static const ImageFilter* filterWithName(const std::string& name);
    // Every name, in a fixed order.
    static std::vector<std::string> filterNames();
};

}  // namespace qm
