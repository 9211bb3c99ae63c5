#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/AffineTransform.h"
#include "platform/Geometry.h"

namespace qm {

class Archivable;
class Bitmap;
class Image;
class RenderContext;
enum class PixelFormat;

// Stateless helpers shared by the whole engine: time text, angles and geometry, file signatures,
// digests and the archive entry points.
class QMCommon {
public:
    static QMCommon& shareCommon();

    // Tolerance of every test of a double for change or zero.
    static constexpr double expression() { return 1e-06; }
    // Deliberately not M_PI: stored angles were converted with this value.
    static constexpr double PI() { return 3.1415916; }

    static int64_t unitsPerSecond();
    // value / timescale seconds as a timestamp, integer division after a 128-bit multiply.
    static int64_t convertTimestampFromCMTime(int64_t value, int32_t timescale);

    static std::string formatDuration(int64_t timestamp);
    static std::string formatDuration(int64_t timestamp, bool displayMillSec);
    static std::string formatDurationSimpleStyle(int64_t timestamp);
    static std::string formatDuration(int64_t timestamp, bool displayMillSec, bool simpleStyle);
    // Short date and medium time in the user's locale.
    static std::string stringFromDate(std::chrono::system_clock::time_point date);

    static double degreeFromRadian(double radian);
    static double degreeToRadian(double degree);
    // start + (end - start) * percent, unclamped.
    static double valueInsertStart(double start, double end, double percent);
    static double distanceFromPoint(Point from, Point to);
    static double distanceWithPoint(Point point, Point endPoint);
    // Signed angle at `center` from `from` to `to`; 0 when two of the points coincide.
    static double calcRadianFromPoint(Point from, Point to, Point center);
    static Rect makeRectWithPoint(Point point1, Point point2);
    // The rect of an image of `imageSize` fitted, centred, into `rect`.
    static Rect adjustRect(Rect rect, Size imageSize);
    // The part of an image of `imageSize` to draw into `dest`, in image coordinates.
    static Rect adjustImageWithSize(Size imageSize, Rect dest);
    // Rotation by `degree` about `center`.
    static AffineTransform transformRotate(double degree, Point center);

    // 32 upper-case hexadecimal digits.
    static std::string md5StringWithData(const std::vector<uint8_t>& data);
    static std::string md5StringWithString(const std::string& text);
    // Identifies a media file by digesting its head, middle and tail blocks. Empty text when
    // the file cannot be read.
    static std::string calcSigntureWithURL(const std::string& path);

    // This build has no Metal device and no dark appearance.
    static bool metalSupported() { return false; }
    static bool darkMode() { return false; }

    // Images (QMCommonImage.cpp). CGImage and NSImage are both Bitmap here.
    //
    // The process-wide render context, made on first use and shared by every thread.
    static const RenderContext& shareContext();
    // A copy of 8-bit pixel memory (`format`, rows from the top, `bytesPerRow` apart) as a Bitmap
    // of the same size, with no colour matching. Nothing for no memory or a size that is not
    // positive.
    static std::shared_ptr<const Bitmap> convertFromCVPixelBuffer(const uint8_t* data, int width, int height,
                                                                  size_t bytesPerRow, PixelFormat format);
    // The image rendered over its extent. Nothing for a null image or an empty or infinite extent.
    static std::shared_ptr<const Bitmap> CGImageConvertFromCIImage(const Image& image);
    static std::shared_ptr<const Bitmap> NSImageConvertFromCIImage(const Image& image);
    // The picture encoded as "public.png" or "public.jpeg" (at the default quality,
    // defaultJPEGQuality()). Nothing for no picture or another type.
    static std::optional<std::vector<uint8_t>> saveImageToData(const std::shared_ptr<const Bitmap>& image,
                                                               const std::string& type);
    static constexpr int defaultJPEGQuality() { return 85; }

    static std::vector<uint8_t> archiveRootObject(const std::shared_ptr<Archivable>& object);
    static std::shared_ptr<Archivable> unarchiveObjectWithData(const std::vector<uint8_t>& data);
};

}  // namespace qm
