#include "image/ImageFilterRegistry.h"

#include <array>

namespace qm {

namespace {

double parameter(const FilterParameters& parameters, const char* key, double fallback) {
    const auto it = parameters.find(key);
    return it == parameters.end() ? fallback : it->second;
}

template <PhotoEffect effect>
Image photo(const Image& input, const FilterParameters&) {
    return input.photoEffect(effect);
}

const std::array<ImageFilter, 11> kFilters{{
    {"CIColorControls",
     [](const Image& input, const FilterParameters& p) {
         return input.colorControls(parameter(p, "inputBrightness", 0), parameter(p, "inputContrast", 1),
                                    parameter(p, "inputSaturation", 1));
     }},
    {"CIColorInvert", [](const Image& input, const FilterParameters&) { return input.colorInvert(); }},
    {"CIMedianFilter", [](const Image& input, const FilterParameters&) { return input.median(); }},
    {"CIPhotoEffectChrome", photo<PhotoEffect::Chrome>},
    {"CIPhotoEffectFade", photo<PhotoEffect::Fade>},
    {"CIPhotoEffectMono", photo<PhotoEffect::Mono>},
    {"CIPhotoEffectNoir", photo<PhotoEffect::Noir>},
    {"CIPhotoEffectTonal", photo<PhotoEffect::Tonal>},
    {"CIPhotoEffectInstant", photo<PhotoEffect::Instant>},
    {"CIPhotoEffectProcess", photo<PhotoEffect::Process>},
    {"CIPhotoEffectTransfer", photo<PhotoEffect::Transfer>},
}};

}  // namespace

const ImageFilter* ImageFilterRegistry::filterWithName(const std::string& name) {
    for (const ImageFilter& filter : kFilters)
        if (filter.name == name) return &filter;
    return nullptr;
}

std::vector<std::string> ImageFilterRegistry::filterNames() {
    std::vector<std::string> names;
    for (const ImageFilter& filter : kFilters) names.push_back(filter.name);
    return names;
}

}  // namespace qm
