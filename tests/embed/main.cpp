#include <cstdio>

#include "image/Image.h"
#include "project/QVProject.h"

int main() {
    const qm::Image image = qm::Image::imageWithColor(qm::Color{1, 0, 0, 1});
    std::printf("%d %d\n", image.hasInfiniteExtent() ? 1 : 0, qm::QVProject::create() != nullptr ? 1 : 0);
    return 0;
}
