// transition_sheet: writes a contact sheet PNG of every transition at 25, 50 and 75 percent, from the
// warm sample picture to the cool one, for a person to look at.
//
//   transition_sheet [--cell=WIDTH] [--frame=WIDTH] [--only=TEXT] [output.png]
//
// Each picture is rendered at the frame size (16:9, default 1280 wide; the transitions' widths and
// radii are in pixels, so this is the size they are judged at) and reduced to the cell size (default
// 192 wide). --only keeps the transitions whose name contains TEXT (case-sensitive). The default
// output is transition_sheet.png.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "SheetLabel.h"
#include "codec/BitmapCodec.h"
#include "effects/transitions/PSTransition.h"
#include "effects/transitions/PSTransitionAssets.h"
#include "image/RenderContext.h"
#include "platform/Bitmap.h"

using namespace qm;

namespace {

constexpr double kPercents[] = {0.25, 0.5, 0.75};
constexpr int kColumns = 3;
constexpr int kGap = 6;
constexpr int kRowGap = 10;
constexpr int kMargin = 12;
constexpr double kLabelFontSize = 14.0;
constexpr uint8_t kBackground[4] = {36, 36, 40, 255};
constexpr uint8_t kText[4] = {235, 235, 235, 255};

struct Options {
    int cellWidth = 192;
    int frameWidth = 1280;
    std::string only;
    std::string output = "transition_sheet.png";
};

bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.rfind("--cell=", 0) == 0) {
            options.cellWidth = std::atoi(argument.c_str() + 7);
            if (options.cellWidth < 32 || options.cellWidth > 1920) return false;
        } else if (argument.rfind("--frame=", 0) == 0) {
            options.frameWidth = std::atoi(argument.c_str() + 8);
            if (options.frameWidth < 32 || options.frameWidth > 3840) return false;
        } else if (argument.rfind("--only=", 0) == 0) {
            options.only = argument.substr(7);
        } else if (argument.rfind("--", 0) == 0) {
            return false;
        } else {
            options.output = argument;
        }
    }
    return true;
}

// Copies premultiplied `cell` over the background into the sheet at (x, y).
void place(std::vector<uint8_t>& sheet, int sheetWidth, const Bitmap& cell, int x, int y) {
    for (int row = 0; row < cell.height(); ++row) {
        for (int column = 0; column < cell.width(); ++column) {
            const uint8_t* source = cell.data() + size_t(row) * cell.bytesPerRow() + size_t(column) * 4;
            uint8_t* target = &sheet[(size_t(y + row) * sheetWidth + size_t(x + column)) * 4];
            const int cover = 255 - source[3];
            for (int k = 0; k < 3; ++k) target[k] = uint8_t(source[k] + (kBackground[k] * cover + 127) / 255);
            target[3] = 255;
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr,
                     "usage: transition_sheet [--cell=WIDTH (32-1920)] [--frame=WIDTH (32-3840)] [--only=TEXT] "
                     "[output.png]\n");
        return 2;
    }
    std::vector<std::string> names;
    for (const auto& name : PSTransition::supportTransitions()) {
        if (name.find(options.only) != std::string::npos) names.push_back(name);
    }
    if (names.empty()) {
        std::fprintf(stderr, "transition_sheet: no transition name contains \"%s\"\n", options.only.c_str());
        return 1;
    }

    const int labelHeight = SheetLabel::lineHeight(kLabelFontSize) + 4;
    const int cellWidth = options.cellWidth;
    const int cellHeight = cellWidth * 9 / 16;
    const int panels = names.size() > 12 ? 2 : 1;
    const int rowsPerPanel = int((names.size() + panels - 1) / panels);
    const int panelWidth = kColumns * cellWidth + (kColumns - 1) * kGap;
    const int blockHeight = labelHeight + cellHeight + kRowGap;
    const int sheetWidth = 2 * kMargin + panels * panelWidth + (panels - 1) * 3 * kMargin;
    const int sheetHeight = 2 * kMargin + labelHeight + rowsPerPanel * blockHeight;

    std::vector<uint8_t> sheet(size_t(sheetWidth) * sheetHeight * 4);
    for (size_t i = 0; i < sheet.size(); i += 4) std::memcpy(&sheet[i], kBackground, 4);

    const int frameWidth = options.frameWidth;
    const int frameHeight = frameWidth * 9 / 16;
    const Image from = Image::imageWithBitmap(PSTransitionAssets::samplePicture(0, frameWidth, frameHeight));
    const Image to = Image::imageWithBitmap(PSTransitionAssets::samplePicture(1, frameWidth, frameHeight));
    const Rect region{0, 0, double(frameWidth), double(frameHeight)};
    const auto context = RenderContext::create();

    for (int panel = 0; panel < panels; ++panel) {
        const int panelX = kMargin + panel * (panelWidth + 3 * kMargin);
        for (int column = 0; column < kColumns; ++column) {
            char header[16];
            std::snprintf(header, sizeof header, "%.2f", kPercents[column]);
            SheetLabel::draw(sheet, sheetWidth, sheetHeight, panelX + column * (cellWidth + kGap), kMargin, header,
                             kLabelFontSize, kText);
        }
    }
    for (size_t index = 0; index < names.size(); ++index) {
        const int panel = int(index) / rowsPerPanel;
        const int row = int(index) % rowsPerPanel;
        const int x = kMargin + panel * (panelWidth + 3 * kMargin);
        const int y = kMargin + labelHeight + row * blockHeight;
        SheetLabel::draw(sheet, sheetWidth, sheetHeight, x, y, names[index], kLabelFontSize, kText);
        const auto transition = PSTransition::transitionWithName(names[index]);
        for (int column = 0; column < kColumns; ++column) {
            const Image picture = transition->transitionImage(from, to, kPercents[column]);
            const auto frame = context->createBitmap(picture, region);
            const auto cell = frame ? frame->scaledToSize(cellWidth, cellHeight) : nullptr;
            if (!cell) {
                std::fprintf(stderr, "transition_sheet: %s gave no picture\n", names[index].c_str());
                return 1;
            }
            place(sheet, sheetWidth, *cell, x + column * (cellWidth + kGap), y + labelHeight);
        }
    }

    const auto bitmap = Bitmap::createWithPixels(sheetWidth, sheetHeight, std::move(sheet));
    const std::vector<uint8_t> png = bitmap ? BitmapCodec::PNGRepresentation(*bitmap) : std::vector<uint8_t>{};
    FILE* file = png.empty() ? nullptr : std::fopen(options.output.c_str(), "wb");
    bool written = file && std::fwrite(png.data(), 1, png.size(), file) == png.size();
    if (file && std::fclose(file) != 0) written = false;
    if (!written) {
        std::fprintf(stderr, "transition_sheet: cannot write %s\n", options.output.c_str());
        return 1;
    }
    std::printf("%s: %zu transitions, %d x %d\n", options.output.c_str(), names.size(), sheetWidth, sheetHeight);
    return 0;
}
