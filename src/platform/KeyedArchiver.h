#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/Color.h"
#include "platform/Geometry.h"

namespace qm {

class KeyedArchiver;
class KeyedUnarchiver;

// A reference type that can be written into a keyed archive. Reading is done by a factory
// registered under the same class name (see KeyedUnarchiver::registerClass).
class Archivable {
public:
    virtual ~Archivable() = default;
    // The name stored in the archive; a factory must be registered under it for reading.
    virtual std::string archiveClassName() const = 0;
    // Writes this object's values; a subclass calls its base's encodeWithCoder first.
    virtual void encodeWithCoder(KeyedArchiver& coder) const = 0;
};

// Writes an object graph as a keyed archive: binary CBOR of the map
//   {"$archiver": "NSKeyedArchiver", "$version": 100000,
//    "$top": {key: value, ...}, "$objects": ["$null", {"$class": "Name", key: value, ...}, ...]}
// Objects are stored once each in "$objects" and referred to as {"$uid": n}; an object reached
// twice is written once, so shared references survive. Values written at the top level (outside
// any encodeWithCoder) go into "$top". Keys starting with '$' are stored with one more '$'.
//
// Value forms: integers and doubles as CBOR numbers (a float is narrowed to 32 bits), bool,
// text, bytes, points/sizes/rects as arrays of 2/2/4 doubles, colours as "NSColor" objects,
// object lists as arrays of references (a null element is stored as uid 0).
//
// An object graph with a cycle, or nested more than maxObjectDepth deep, cannot be archived: the
// first such object logs one line and finishEncoding gives empty bytes. Not thread-safe; use one
// archiver per archive.
class KeyedArchiver {
public:
    // The top-level key under which archivedDataWithRootObject stores its object.
    static constexpr const char* rootKey = "root";
    static constexpr size_t maxObjectDepth = 256;

    KeyedArchiver();
    ~KeyedArchiver();
    KeyedArchiver(const KeyedArchiver&) = delete;
    KeyedArchiver& operator=(const KeyedArchiver&) = delete;

    // The archive of `object` under rootKey; empty bytes if the graph cannot be archived.
    static std::vector<uint8_t> archivedDataWithRootObject(const std::shared_ptr<Archivable>& object);

    // A null object writes nothing, so the key reads back as absent.
    void encodeObject(const std::string& key, const std::shared_ptr<Archivable>& object);
    void encodeObjects(const std::string& key, const std::vector<std::shared_ptr<Archivable>>& objects);
    template <class T>
    void encodeObjects(const std::string& key, const std::vector<std::shared_ptr<T>>& objects) {
        static_assert(std::is_base_of_v<Archivable, T>);
        encodeObjects(key, std::vector<std::shared_ptr<Archivable>>(objects.begin(), objects.end()));
    }
    void encodeString(const std::string& key, const std::string& value);
    void encodeData(const std::string& key, const std::vector<uint8_t>& bytes);
    void encodeInt64(const std::string& key, int64_t value);
    void encodeInteger(const std::string& key, int64_t value);
    void encodeInt32(const std::string& key, int32_t value);
    void encodeDouble(const std::string& key, double value);
    // Narrowed to a 32-bit float (beyond its range to an infinity): precision is lost.
    void encodeFloat(const std::string& key, double value);
    void encodeBool(const std::string& key, bool value);
    void encodePoint(const std::string& key, const Point& point);
    void encodeSize(const std::string& key, const Size& size);
    void encodeRect(const std::string& key, const Rect& rect);
    // No colour writes nothing.
    void encodeColor(const std::string& key, const std::optional<Color>& color);

    // True once an object could not be archived; finishEncoding then gives empty bytes.
    bool failed() const;
    // The archive of everything encoded; empty bytes after a failure. Ends the archiver: the
    // encoded tree moves into the bytes, so call it once, last.
    std::vector<uint8_t> finishEncoding();

private:
    struct Impl;
    std::unique_ptr<Impl> _impl;
};

// Reads a keyed archive written by KeyedArchiver. Classes are made by factories registered by
// name; a factory plays the part of initWithCoder: it reads its values from the coder and gives
// the object, or nullptr when the object is nothing (that is not a failure).
//
// Registration is explicit, so it works from a static library: each family offers a function that
// registers its classes once and is called before its archives are read, e.g.
//
//   void registerProjectArchiveClasses() {
//       static std::once_flag once;
//       std::call_once(once, [] {
//           KeyedUnarchiver::registerClass<QVTrack>("QVTrack");  // uses QVTrack::createWithCoder
//       });
//   }
//
// Subclass chains: a subclass's createWithCoder makes the object and lets the base read its keys
// first (typically a protected `bool initWithCoder(KeyedUnarchiver&)` that the subclass overrides
// and that calls the base's version before reading its own keys).
//
// Damaged input (bad CBOR, wrong layout, unknown class, reference out of range, reference cycle,
// nesting too deep) makes the whole read fail: exactly one line "Error: can not unarchive data:
// <reason>" is logged, every later decode gives nothing, and the result is nothing. Nothing is
// thrown. Values of the wrong type under a key read as missing: zero, false, empty or nullptr.
// Numbers convert among integer, double, float and bool (out-of-range values saturate).
//
// An instance is not thread-safe; the class registry is.
class KeyedUnarchiver {
public:
    using Factory = std::function<std::shared_ptr<Archivable>(KeyedUnarchiver&)>;

    static constexpr size_t maxObjectDepth = KeyedArchiver::maxObjectDepth;
    // Deepest CBOR nesting accepted; our own archives nest about five deep.
    static constexpr size_t maxDataDepth = 64;

    // Registers (or replaces) the factory for a class name. Thread-safe.
    static void registerClass(const std::string& name, Factory factory);
    // Registers T::createWithCoder(KeyedUnarchiver&) under `name`.
    template <class T>
    static void registerClass(const std::string& name) {
        registerClass(name, [](KeyedUnarchiver& coder) -> std::shared_ptr<Archivable> {
            return T::createWithCoder(coder);
        });
    }

    // Parses the archive container; nullptr (and one logged line) when it is damaged.
    static std::shared_ptr<KeyedUnarchiver> createForReadingWithData(const std::vector<uint8_t>& data);
    // The object under rootKey, or nullptr when there is none or the read failed.
    static std::shared_ptr<Archivable> unarchiveObjectWithData(const std::vector<uint8_t>& data);

    ~KeyedUnarchiver();
    KeyedUnarchiver(const KeyedUnarchiver&) = delete;
    KeyedUnarchiver& operator=(const KeyedUnarchiver&) = delete;

    bool containsValueForKey(const std::string& key) const;
    // The object under `key`; every reference to one stored object gives the same shared_ptr.
    std::shared_ptr<Archivable> decodeObject(const std::string& key);
    // As decodeObject, but an object of another class gives nullptr and one warning line (logged
    // by finishDecoding, and only if the read did not fail).
    template <class T>
    std::shared_ptr<T> decodeObjectOfClass(const std::string& key) {
        return castObject<T>(key, decodeObject(key));
    }
    // The list under `key`; elements that decode to nothing are left out.
    std::vector<std::shared_ptr<Archivable>> decodeObjects(const std::string& key);
    // As decodeObjects, leaving out (with one warning each) elements of another class.
    template <class T>
    std::vector<std::shared_ptr<T>> decodeObjectsOfClass(const std::string& key) {
        std::vector<std::shared_ptr<T>> result;
        for (const auto& object : decodeObjects(key)) {
            if (auto typed = castObject<T>(key, object)) result.push_back(std::move(typed));
        }
        return result;
    }
    std::string decodeString(const std::string& key) const;
    std::vector<uint8_t> decodeData(const std::string& key) const;
    int64_t decodeInt64(const std::string& key) const;
    int64_t decodeInteger(const std::string& key) const;
    int32_t decodeInt32(const std::string& key) const;
    double decodeDouble(const std::string& key) const;
    float decodeFloat(const std::string& key) const;
    bool decodeBool(const std::string& key) const;
    Point decodePoint(const std::string& key) const;
    Size decodeSize(const std::string& key) const;
    Rect decodeRect(const std::string& key) const;
    std::optional<Color> decodeColor(const std::string& key);

    // True once the archive was found damaged.
    bool failed() const;
    // Logs the pending class warnings if the read did not fail. Also run by the destructor.
    void finishDecoding();

private:
    friend class ArchivedDictionary;
    struct Impl;

    explicit KeyedUnarchiver(std::unique_ptr<Impl> impl);

    template <class T>
    std::shared_ptr<T> castObject(const std::string& key, const std::shared_ptr<Archivable>& object) {
        static_assert(std::is_base_of_v<Archivable, T>);
        if (!object) return nullptr;
        auto typed = std::dynamic_pointer_cast<T>(object);
        if (!typed) noteClassMismatch(key, *object);
        return typed;
    }
    void noteClassMismatch(const std::string& key, const Archivable& object);
    // Elements that decode to nothing are kept as nullptr when `keepNothing` is set.
    std::vector<std::shared_ptr<Archivable>> decodeObjectList(const std::string& key, bool keepNothing);

    std::unique_ptr<Impl> _impl;
};

// A list of objects as one archivable object ("NSArray"), for lists at the root of an archive.
class ArchivedList : public Archivable {
public:
    static std::shared_ptr<ArchivedList> createWithObjects(std::vector<std::shared_ptr<Archivable>> objects);
    template <class T>
    static std::shared_ptr<ArchivedList> createWithObjects(const std::vector<std::shared_ptr<T>>& objects) {
        static_assert(std::is_base_of_v<Archivable, T>);
        return createWithObjects(std::vector<std::shared_ptr<Archivable>>(objects.begin(), objects.end()));
    }
    static std::shared_ptr<ArchivedList> createWithCoder(KeyedUnarchiver& coder);

    const std::vector<std::shared_ptr<Archivable>>& objects() const { return _objects; }
    // The elements that are of class T, in order.
    template <class T>
    std::vector<std::shared_ptr<T>> objectsOfClass() const {
        std::vector<std::shared_ptr<T>> result;
        for (const auto& object : _objects) {
            if (auto typed = std::dynamic_pointer_cast<T>(object)) result.push_back(std::move(typed));
        }
        return result;
    }

    std::string archiveClassName() const override { return "NSArray"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    std::vector<std::shared_ptr<Archivable>> _objects;
};

// A text as an archivable object ("NSString"), for lists of texts and dictionary keys.
class ArchivedString : public Archivable {
public:
    static std::shared_ptr<ArchivedString> createWithString(std::string string);
    static std::shared_ptr<ArchivedString> createWithCoder(KeyedUnarchiver& coder);

    const std::string& string() const { return _string; }

    std::string archiveClassName() const override { return "NSString"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    std::string _string;
};

// A map from text to object ("NSDictionary"), stored as the parallel lists "NS.keys" and
// "NS.objects". On reading, entries whose key is not a text or whose object is nothing are left
// out, and lists of different lengths make the dictionary nothing.
class ArchivedDictionary : public Archivable {
public:
    using Map = std::map<std::string, std::shared_ptr<Archivable>>;

    static std::shared_ptr<ArchivedDictionary> createWithMap(Map map);
    static std::shared_ptr<ArchivedDictionary> createWithCoder(KeyedUnarchiver& coder);

    const Map& map() const { return _map; }

    std::string archiveClassName() const override { return "NSDictionary"; }
    void encodeWithCoder(KeyedArchiver& coder) const override;

private:
    Map _map;
};

}  // namespace qm
