#include "effects/QVEffectTemplateMgr.h"

#include <array>

#include "codec/QVTimebase.h"

namespace qm {

namespace {

enum class Builder { None, Fade, Zoom, Fly };

// One row of the entrance and exit catalogue: both names map to the same builder.
struct Recipe {
    const char* entrance;
    const char* exit;
    Builder builder;
    int32_t direction;
    bool fade;
    bool zoom;
};

constexpr std::array<Recipe, 20> kRecipes = {{
    {QVNoneEffect, QVNoneEffect, Builder::None, 0, false, false},
    {"Fade In", "Fade Out", Builder::Fade, 0, false, false},
    {"Zoom In", "Zoom Out", Builder::Zoom, 0, false, false},
    {"Fade&Zoom In", "Fade&Zoom Out", Builder::Fade, 0, false, true},
    {"Fly in from left", "Fly out from left", Builder::Fly, 0, false, false},
    {"Fly in from top", "Fly out from top", Builder::Fly, 1, false, false},
    {"Fly in from right", "Fly out from right", Builder::Fly, 2, false, false},
    {"Fly in from bottom", "Fly out from bottom", Builder::Fly, 3, false, false},
    {"Fly&Fade in from left", "Fly&Fade out from left", Builder::Fly, 0, true, false},
    {"Fly&Fade in from top", "Fly&Fade out from top", Builder::Fly, 1, true, false},
    {"Fly&Fade in from right", "Fly&Fade out from right", Builder::Fly, 2, true, false},
    {"Fly&Fade in from bottom", "Fly&Fade out from bottom", Builder::Fly, 3, true, false},
    {"Fly&Zoom in from left", "Fly&Zoom out from left", Builder::Fly, 0, false, true},
    {"Fly&Zoom in from top", "Fly&Zoom out from top", Builder::Fly, 1, false, true},
    {"Fly&Zoom in from right", "Fly&Zoom out from right", Builder::Fly, 2, false, true},
    {"Fly&Zoom in from bottom", "Fly&Zoom out from bottom", Builder::Fly, 3, false, true},
    {"Fly&Fade&Zoom in from left", "Fly&Fade&Zoom out from left", Builder::Fly, 0, true, true},
    {"Fly&Fade&Zoom in from top", "Fly&Fade&Zoom out from top", Builder::Fly, 1, true, true},
    {"Fly&Fade&Zoom in from right", "Fly&Fade&Zoom out from right", Builder::Fly, 2, true, true},
    {"Fly&Fade&Zoom in from bottom", "Fly&Fade&Zoom out from bottom", Builder::Fly, 3, true, true},
}};

constexpr char kFlashing[] = "Flashing";
constexpr char kShaking[] = "Shaking";
constexpr char kPanZoom[] = "Pan&Zoom";

constexpr int64_t kFlashPeriod = QVTimebase / 5;
constexpr int64_t kShakePeriod = QVTimebase / 5;
constexpr int64_t kPanZoomPeriod = QVTimebase / 2;

// The row whose entrance (or exit) name is `name`, or nullptr.
const Recipe* recipeNamed(const std::string& name, const char* Recipe::*column) {
    for (const Recipe& recipe : kRecipes) {
        if (name == recipe.*column) return &recipe;
    }
    return nullptr;
}

// The state a row's builder makes from `rest`; `rest` itself for no row or "None".
std::shared_ptr<QVEffectState> build(const QVEffectTemplateMgr& templates, const Recipe* recipe,
                                     const std::shared_ptr<QVEffectState>& rest, const QVEffectContext* context) {
    if (!recipe) return rest;
    switch (recipe->builder) {
        case Builder::Fade:
            return templates.fadeState(rest, context, recipe->zoom);
        case Builder::Zoom:
            return templates.zoomState(rest, context);
        case Builder::Fly:
            return templates.flyState(rest, context, recipe->direction, recipe->fade, recipe->zoom);
        case Builder::None:
            break;
    }
    return rest;
}

// What a null context stands for: zero canvas size, zero bounds.
const QVEffectContext& contextOrZero(const QVEffectContext* context) {
    static const std::shared_ptr<QVEffectContext> zero = QVEffectContext::createWithConvasSize(Size{}, Rect{});
    return context ? *context : *zero;
}

// The fade part: opacity 0 on the copy. A state without a colour facet gets a neutral one, and so
// does the resting state it was copied from.
void hide(QVEffectState& copy, QVEffectState& rest) {
    if (!copy.colorState()) {
        copy.setColorState(QVColorState::create());
        rest.setColorState(QVColorState::create());
    }
    copy.colorState()->setOpacity(0);
}

// The zoom part: the copy shrinks to half a point, moved by half the resting size towards the
// centre it has at its present location.
void shrink(QVEffectState& copy, const QVEffectState& rest) {
    const auto& motion = copy.motionState();
    if (!motion) return;
    motion->setWidth(0.5);
    motion->setHeight(0.5);
    motion->setPositionX(motion->positionX() + 0.5 * rest.motionState()->width());
    motion->setPositionY(motion->positionY() + 0.5 * rest.motionState()->height());
}

// The swing between `rest` and `away` at `curTimestamp`: away from rest in even periods, back in
// odd ones.
std::shared_ptr<QVEffectState> swing(const std::shared_ptr<QVEffectState>& rest,
                                     const std::shared_ptr<QVEffectState>& away, const QVEffectContext& context,
                                     int64_t curTimestamp, int64_t period) {
    const int64_t n = curTimestamp / period;
    const int64_t m = curTimestamp % period;
    const double percent = static_cast<double>(m) / static_cast<double>(period);
    if (n % 2 == 0) return away->calcEffectStateSince(rest, context, percent);
    return rest->calcEffectStateSince(away, context, percent);
}

// An emphasis rests at its ends and outside them.
bool outsideEmphasis(int64_t curTimestamp, int64_t duration) { return curTimestamp <= 0 || curTimestamp >= duration; }

}  // namespace

QVEffectTemplateMgr& QVEffectTemplateMgr::shareEffectTemplateMgr() {
    static QVEffectTemplateMgr manager;
    return manager;
}

const std::vector<std::string>& QVEffectTemplateMgr::supportedEntranceEffects() const {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const Recipe& recipe : kRecipes) list.emplace_back(recipe.entrance);
        return list;
    }();
    return names;
}

const std::vector<std::string>& QVEffectTemplateMgr::supportedExitEffects() const {
    static const std::vector<std::string> names = [] {
        std::vector<std::string> list;
        for (const Recipe& recipe : kRecipes) list.emplace_back(recipe.exit);
        return list;
    }();
    return names;
}

const std::vector<std::string>& QVEffectTemplateMgr::supportedEnhanceEffects() const {
    static const std::vector<std::string> names = {QVNoneEffect, kFlashing, kShaking, kPanZoom};
    return names;
}

std::shared_ptr<QVEffectState> QVEffectTemplateMgr::makeEntranceBeginStateWithName(
    const std::string& name, const std::shared_ptr<QVEffectState>& endState, const QVEffectContext* context) const {
    return build(*this, recipeNamed(name, &Recipe::entrance), endState, context);
}

std::shared_ptr<QVEffectState> QVEffectTemplateMgr::makeExitStateWithName(
    const std::string& name, const std::shared_ptr<QVEffectState>& startState, const QVEffectContext* context) const {
    return build(*this, recipeNamed(name, &Recipe::exit), startState, context);
}

std::shared_ptr<QVEffectState> QVEffectTemplateMgr::makeEnhanceStateWithName(
    const std::string& name, const std::shared_ptr<QVEffectState>& startState, const QVEffectContext* context,
    int64_t curTimestamp, int64_t duration) const {
    if (name == kFlashing) return flashState(startState, context, curTimestamp, duration);
    if (name == kShaking) return shakeState(startState, context, curTimestamp, duration);
    if (name == kPanZoom) return panZoomState(startState, context, curTimestamp, duration);
    return startState;
}

std::shared_ptr<QVEffectState> QVEffectTemplateMgr::flyState(const std::shared_ptr<QVEffectState>& state,
                                                             const QVEffectContext* context, int32_t direction,
                                                             bool fade, bool zoom) const {
    if (!state) return nullptr;
    const QVEffectContext& place = contextOrZero(context);
    auto copy = state->copy();
    if (const auto& motion = copy->motionState()) {
        const Point location = motion->location();
        switch (direction) {
            case 0:
                motion->setLocation({-place.bounds().size.width, location.y});
                break;
            case 1:
                motion->setLocation({location.x, place.canvasSize().height});
                break;
            case 2:
                motion->setLocation({place.canvasSize().width, location.y});
                break;
            default:
                motion->setLocation({location.x, -place.bounds().size.height});
                break;
        }
    }
    if (fade) hide(*copy, *state);
    if (zoom) shrink(*copy, *state);
    return copy;
}

std::shared_ptr<QVEffectState> QVEffectTemplateMgr::fadeState(const std::shared_ptr<QVEffectState>& state,
                                                              const QVEffectContext*, bool zoom) const {
    if (!state) return nullptr;
    auto copy = state->copy();
    hide(*copy, *state);
    if (zoom) shrink(*copy, *state);
    return copy;
}

std::shared_ptr<QVEffectState> QVEffectTemplateMgr::zoomState(const std::shared_ptr<QVEffectState>& state,
                                                              const QVEffectContext*) const {
    if (!state) return nullptr;
    auto copy = state->copy();
    shrink(*copy, *state);
    return copy;
}

std::shared_ptr<QVEffectState> QVEffectTemplateMgr::flashState(const std::shared_ptr<QVEffectState>& state,
                                                               const QVEffectContext* context, int64_t curTimestamp,
                                                               int64_t duration) const {
    if (!state || outsideEmphasis(curTimestamp, duration)) return state;
    auto copy = state->copy();
    hide(*copy, *state);
    return swing(state, copy, contextOrZero(context), curTimestamp, kFlashPeriod);
}

std::shared_ptr<QVEffectState> QVEffectTemplateMgr::shakeState(const std::shared_ptr<QVEffectState>& state,
                                                               const QVEffectContext* context, int64_t curTimestamp,
                                                               int64_t duration) const {
    if (!state || outsideEmphasis(curTimestamp, duration)) return state;
    auto copy = state->copy();
    if (const auto& motion = copy->motionState()) motion->setPositionX(motion->positionX() + 32.0);
    return swing(state, copy, contextOrZero(context), curTimestamp, kShakePeriod);
}

std::shared_ptr<QVEffectState> QVEffectTemplateMgr::panZoomState(const std::shared_ptr<QVEffectState>& state,
                                                                 const QVEffectContext* context, int64_t curTimestamp,
                                                                 int64_t duration) const {
    if (!state || outsideEmphasis(curTimestamp, duration)) return state;
    auto copy = state->copy();
    if (const auto& motion = copy->motionState()) {
        motion->setPositionX(motion->positionX() + 16.0);
        motion->setPositionY(motion->positionY() + 16.0);
        motion->setWidth(motion->width() * 1.05);
        motion->setHeight(motion->height() * 1.05);
    }
    return swing(state, copy, contextOrZero(context), curTimestamp, kPanZoomPeriod);
}

}  // namespace qm
