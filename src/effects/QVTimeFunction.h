#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Geometry.h"
#include "platform/KeyedArchiver.h"

namespace qm {

inline constexpr char QVTimeFunctionLinear[] = "Linear pacing";
inline constexpr char QVTimeFunctionEaseIn[] = "Ease-in pacing";
inline constexpr char QVTimeFunctionEaseOut[] = "Ease-out pacing";
inline constexpr char QVTimeFunctionEaseInEaseOut[] = "Ease-in-ease out pacing";

// A pacing curve by name: bends a linear percent into the curve's percent. The plain class is
// linear; its subclasses follow a cubic Bezier. Archived as its "name" alone.
class QVTimeFunction : public Archivable {
public:
    // A linear function named "Linear pacing".
    static std::shared_ptr<QVTimeFunction> create();
    // A linear function carrying `name` (only timeFunctionWithName picks a curve by name).
    static std::shared_ptr<QVTimeFunction> createWithName(std::string name);
    // The four names: ease-in, ease-in-ease-out, ease-out, linear.
    static const std::vector<std::string>& namesOfTimeFunction();
    // A new function of the class that belongs to `name`; nullptr for an unknown name (callers
    // then treat the percent as linear).
    static std::shared_ptr<QVTimeFunction> timeFunctionWithName(const std::string& name);
    // The cubic Bezier through `points[0..3]` at parameter `time`, in power form with
    // single-precision coefficients; P0 is added in double precision.
    static Point pointOnCubicBezier(const Point points[4], float time);
    // Registers the four classes with KeyedUnarchiver; safe to call more than once.
    static void registerArchiveClasses();

    virtual ~QVTimeFunction() = default;

    const std::string& name() const { return _name; }
    // The linear function gives its argument back; no clamping anywhere.
    virtual double redirectPercent(double percent) const;
    // timeFunctionWithName with this name: nullptr when the name is unknown.
    std::shared_ptr<QVTimeFunction> copy() const;

    std::string archiveClassName() const override { return "QVTimeFunction"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

protected:
    explicit QVTimeFunction(std::string name) : _name(std::move(name)) {}

    // The y of the Bezier through `points` at the percent narrowed to single precision.
    static double bezierPercent(const Point points[4], double percent);

private:
    std::string _name;
};

// Slow start: control points (0,0) (0.5,0) (1,0.5) (1,1).
class QVEraseInTimeFunction : public QVTimeFunction {
public:
    static std::shared_ptr<QVEraseInTimeFunction> createWithName(std::string name);
    double redirectPercent(double percent) const override;
    std::string archiveClassName() const override { return "QVEraseInTimeFunction"; }

private:
    using QVTimeFunction::QVTimeFunction;
};

// Slow end: control points (0,0) (0,0.5) (0.5,1) (1,1).
class QVEraseOutTimeFunction : public QVTimeFunction {
public:
    static std::shared_ptr<QVEraseOutTimeFunction> createWithName(std::string name);
    double redirectPercent(double percent) const override;
    std::string archiveClassName() const override { return "QVEraseOutTimeFunction"; }

private:
    using QVTimeFunction::QVTimeFunction;
};

// Slow start and end: control points (0,0) (0.5,0) (0.5,1) (1,1).
class QVEraseInOutTimeFunction : public QVTimeFunction {
public:
    static std::shared_ptr<QVEraseInOutTimeFunction> createWithName(std::string name);
    double redirectPercent(double percent) const override;
    std::string archiveClassName() const override { return "QVEraseInOutTimeFunction"; }

private:
    using QVTimeFunction::QVTimeFunction;
};

}  // namespace qm
