#include "foundation/QMCommon.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <locale>
#include <sstream>

#include "codec/QVTimebase.h"
#include "platform/FileHandle.h"
#include "platform/KeyedArchiver.h"
#include "platform/Md5.h"

namespace qm {

QMCommon& QMCommon::shareCommon() {
    static QMCommon common;
    return common;
}

int64_t QMCommon::unitsPerSecond() { return QVTimebase; }

int64_t QMCommon::convertTimestampFromCMTime(int64_t value, int32_t timescale) {
    if (timescale == 0) return 0;
    return QMMultiplyDivide(QVTimebase, value, static_cast<int64_t>(timescale));
}

std::string QMCommon::formatDuration(int64_t timestamp) { return formatDuration(timestamp, false, false); }

std::string QMCommon::formatDuration(int64_t timestamp, bool displayMillSec) {
    return formatDuration(timestamp, displayMillSec, false);
}

std::string QMCommon::formatDurationSimpleStyle(int64_t timestamp) {
    return formatDuration(timestamp, true, true);
}

std::string QMCommon::formatDuration(int64_t timestamp, bool displayMillSec, bool simpleStyle) {
    if (timestamp == 0 && simpleStyle) return "0";
    const long long seconds = timestamp / QVTimebase;
    const long long hours = seconds / 3600;
    const long long minutes = (seconds / 60) % 60;
    const long long secs = seconds % 60;
    const long long milliseconds = (timestamp / (QVTimebase / 1000)) % 1000;
    const long long tenths = milliseconds / 100;

    char text[96];
    if (!displayMillSec) {
        if (!simpleStyle) {
            std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld", hours, minutes, secs);
        } else if (seconds >= 3600) {
            std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", hours, minutes, secs);
        } else {
            std::snprintf(text, sizeof text, "%lld:%02lld", minutes, secs);
        }
    } else if (!simpleStyle) {
        std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld.%01lld", hours, minutes, secs, tenths);
    } else if (seconds >= 3600) {
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld.%01lld", hours, minutes, secs, tenths);
    } else if (minutes > 0) {
        std::snprintf(text, sizeof text, "%lld:%02lld.%01lld", minutes, secs, tenths);
    } else {
        std::snprintf(text, sizeof text, "%lld.%01lld", secs, tenths);
    }
    return text;
}

std::string QMCommon::stringFromDate(std::chrono::system_clock::time_point date) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm local{};
    localtime_r(&seconds, &local);
    std::ostringstream out;
    try {
        out.imbue(std::locale(""));
    } catch (const std::runtime_error&) {
        out.imbue(std::locale::classic());
    }
    out << std::put_time(&local, "%x %X");
    return out.str();
}

double QMCommon::degreeFromRadian(double radian) { return radian * 180.0 / PI(); }

double QMCommon::degreeToRadian(double degree) { return degree * PI() / 180.0; }

double QMCommon::valueInsertStart(double start, double end, double percent) {
    return start + (end - start) * percent;
}

double QMCommon::distanceFromPoint(Point from, Point to) { return std::hypot(to.x - from.x, to.y - from.y); }

double QMCommon::distanceWithPoint(Point point, Point endPoint) { return distanceFromPoint(point, endPoint); }

double QMCommon::calcRadianFromPoint(Point from, Point to, Point center) {
    const double a = distanceFromPoint(from, center);
    const double b = distanceFromPoint(to, center);
    const double d = distanceFromPoint(from, to);
    if (a < expression() || b < expression() || d < expression()) return 0;
    // Rounding can push the cosine a hair past +-1; keep acos defined.
    const double cosine = std::clamp((b * b + a * a - d * d) / (2 * a * b), -1.0, 1.0);
    const double angle = std::acos(cosine);
    if (std::fabs(from.x - center.x) < expression()) {
        return from.x > to.x ? angle : -angle;
    }
    const double y = (to.x - from.x) * ((center.y - from.y) / (center.x - from.x)) + from.y;
    return y < to.y ? angle : -angle;
}

Rect QMCommon::makeRectWithPoint(Point point1, Point point2) {
    return Rect{{std::min(point1.x, point2.x), std::min(point1.y, point2.y)},
                {std::fabs(point1.x - point2.x), std::fabs(point1.y - point2.y)}};
}

Rect QMCommon::adjustRect(Rect rect, Size imageSize) {
    const Size& r = rect.size;
    if (r.height * imageSize.width <= r.width * imageSize.height) {
        const double width = r.height * imageSize.width / imageSize.height;
        return Rect{{(r.width - width) * 0.5 + rect.origin.x, rect.origin.y}, {width, r.height}};
    }
    const double height = r.width * imageSize.height / imageSize.width;
    return Rect{{rect.origin.x, (r.height - height) * 0.5 + rect.origin.y}, {r.width, height}};
}

Rect QMCommon::adjustImageWithSize(Size imageSize, Rect dest) {
    const Size& d = dest.size;
    if (d.height * imageSize.width <= d.width * imageSize.height) {
        const double y = (d.height * imageSize.width / d.width - imageSize.height) * 0.5;
        return Rect{{0, y}, {imageSize.width, imageSize.height}};
    }
    const double width = d.width * imageSize.height / d.height;
    return Rect{{(imageSize.width - width) * 0.5, 0}, {width, imageSize.height}};
}

AffineTransform QMCommon::transformRotate(double degree, Point center) {
    AffineTransform transform;
    transform.translateXBy(center.x, center.y);
    transform.rotateByDegrees(degree);
    transform.translateXBy(-center.x, -center.y);
    return transform;
}

std::string QMCommon::md5StringWithData(const std::vector<uint8_t>& data) {
    return md5Hex(data.data(), data.size());
}

std::string QMCommon::md5StringWithString(const std::string& text) {
    return md5Hex(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

std::string QMCommon::calcSigntureWithURL(const std::string& path) {
    constexpr int64_t kWholeFileLimit = 1024;
    constexpr int64_t kBlock = 512;
    constexpr int64_t kHeadAndTailLimit = 1536;

    auto file = FileHandle::fileHandleForReadingAtPath(path);
    if (!file) return {};
    const int64_t size = static_cast<int64_t>(file->seekToEndOfFile());
    Md5 digest;
    auto digestBlock = [&](int64_t offset, int64_t length) {
        const std::vector<uint8_t> block = file->readAt(static_cast<uint64_t>(offset), static_cast<size_t>(length));
        digest.update(block.data(), block.size());
    };
    if (size <= kWholeFileLimit) {
        digestBlock(0, size);
    } else {
        digestBlock(0, kBlock);
        if (size > kHeadAndTailLimit) digestBlock(size / 2 - kBlock / 2, kBlock);
        digestBlock(size - kBlock, kBlock);
    }
    return digest.finish();
}

std::vector<uint8_t> QMCommon::archiveRootObject(const std::shared_ptr<Archivable>& object) {
    return KeyedArchiver::archivedDataWithRootObject(object);
}

std::shared_ptr<Archivable> QMCommon::unarchiveObjectWithData(const std::vector<uint8_t>& data) {
    return KeyedUnarchiver::unarchiveObjectWithData(data);
}

}  // namespace qm
