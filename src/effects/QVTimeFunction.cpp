#include "effects/QVTimeFunction.h"

#include <mutex>

namespace qm {

namespace {

constexpr Point kEaseIn[4] = {{0, 0}, {0.5, 0}, {1, 0.5}, {1, 1}};
constexpr Point kEaseOut[4] = {{0, 0}, {0, 0.5}, {0.5, 1}, {1, 1}};
constexpr Point kEaseInOut[4] = {{0, 0}, {0.5, 0}, {0.5, 1}, {1, 1}};

// One coordinate of the power form: a t^3 + b t^2 + c t in single precision, plus p0 in double.
double bezierCoordinate(double p0, double p1, double p2, double p3, float t) {
    const float c = 3.0f * static_cast<float>(p1 - p0);
    const float b = 3.0f * static_cast<float>(p2 - p1) - c;
    const float a = static_cast<float>(p3 - p0) - c - b;
    const float value = a * t * t * t + b * t * t + c * t;
    return static_cast<double>(value) + p0;
}

template <class T>
std::shared_ptr<Archivable> decodeWithName(KeyedUnarchiver& coder) {
    return T::createWithName(coder.decodeString("name"));
}

}  // namespace

std::shared_ptr<QVTimeFunction> QVTimeFunction::create() {
    return createWithName(QVTimeFunctionLinear);
}

std::shared_ptr<QVTimeFunction> QVTimeFunction::createWithName(std::string name) {
    return std::shared_ptr<QVTimeFunction>(new QVTimeFunction(std::move(name)));
}

const std::vector<std::string>& QVTimeFunction::namesOfTimeFunction() {
    static const std::vector<std::string> names = {QVTimeFunctionEaseIn, QVTimeFunctionEaseInEaseOut,
                                                   QVTimeFunctionEaseOut, QVTimeFunctionLinear};
    return names;
}

std::shared_ptr<QVTimeFunction> QVTimeFunction::timeFunctionWithName(const std::string& name) {
    if (name == QVTimeFunctionLinear) return createWithName(name);
    if (name == QVTimeFunctionEaseIn) return QVEraseInTimeFunction::createWithName(name);
    if (name == QVTimeFunctionEaseOut) return QVEraseOutTimeFunction::createWithName(name);
    if (name == QVTimeFunctionEaseInEaseOut) return QVEraseInOutTimeFunction::createWithName(name);
    return nullptr;
}

Point QVTimeFunction::pointOnCubicBezier(const Point points[4], float time) {
    return {bezierCoordinate(points[0].x, points[1].x, points[2].x, points[3].x, time),
            bezierCoordinate(points[0].y, points[1].y, points[2].y, points[3].y, time)};
}

void QVTimeFunction::registerArchiveClasses() {
    static std::once_flag once;
    std::call_once(once, [] {
        KeyedUnarchiver::registerClass("QVTimeFunction", decodeWithName<QVTimeFunction>);
        KeyedUnarchiver::registerClass("QVEraseInTimeFunction", decodeWithName<QVEraseInTimeFunction>);
        KeyedUnarchiver::registerClass("QVEraseOutTimeFunction", decodeWithName<QVEraseOutTimeFunction>);
        KeyedUnarchiver::registerClass("QVEraseInOutTimeFunction", decodeWithName<QVEraseInOutTimeFunction>);
    });
}

double QVTimeFunction::redirectPercent(double percent) const {
    return percent;
}

std::shared_ptr<QVTimeFunction> QVTimeFunction::copy() const {
    return timeFunctionWithName(_name);
}

void QVTimeFunction::encodeWithCoder(KeyedArchiver& coder) const {
    coder.encodeString("name", _name);
}

double QVTimeFunction::bezierPercent(const Point points[4], double percent) {
    return pointOnCubicBezier(points, static_cast<float>(percent)).y;
}

std::shared_ptr<QVEraseInTimeFunction> QVEraseInTimeFunction::createWithName(std::string name) {
    return std::shared_ptr<QVEraseInTimeFunction>(new QVEraseInTimeFunction(std::move(name)));
}

double QVEraseInTimeFunction::redirectPercent(double percent) const {
    return bezierPercent(kEaseIn, percent);
}

std::shared_ptr<QVEraseOutTimeFunction> QVEraseOutTimeFunction::createWithName(std::string name) {
    return std::shared_ptr<QVEraseOutTimeFunction>(new QVEraseOutTimeFunction(std::move(name)));
}

double QVEraseOutTimeFunction::redirectPercent(double percent) const {
    return bezierPercent(kEaseOut, percent);
}

std::shared_ptr<QVEraseInOutTimeFunction> QVEraseInOutTimeFunction::createWithName(std::string name) {
    return std::shared_ptr<QVEraseInOutTimeFunction>(new QVEraseInOutTimeFunction(std::move(name)));
}

double QVEraseInOutTimeFunction::redirectPercent(double percent) const {
    return bezierPercent(kEaseInOut, percent);
}

}  // namespace qm
