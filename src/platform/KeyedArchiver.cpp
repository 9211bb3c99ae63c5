#include "platform/KeyedArchiver.h"

#include <cfloat>
#include <cmath>
#include <limits>
#include <mutex>
#include <unordered_map>

#include <nlohmann/json.hpp>

#include "platform/Log.h"

namespace qm {

using nlohmann::json;

namespace {

constexpr const char* kClassKey = "$class";
constexpr const char* kUIDKey = "$uid";
constexpr const char* kTopKey = "$top";
constexpr const char* kObjectsKey = "$objects";

// Keys beginning with '$' get one more, so they never meet "$class".
std::string storedKey(const std::string& key) {
    return !key.empty() && key[0] == '$' ? "$" + key : key;
}

json uidReference(uint64_t uid) { return json{{kUIDKey, uid}}; }

bool isReference(const json& value) {
    return value.is_object() && value.size() == 1 && value.contains(kUIDKey);
}

// Text from an archive made fit for one log line: printable ASCII, at most 64 characters.
std::string printable(const std::string& text) {
    std::string result;
    for (char c : text.substr(0, 64)) result += (c >= 0x20 && c < 0x7f) ? c : '?';
    return text.size() > 64 ? result + "..." : result;
}

std::optional<double> asDouble(const json& value) {
    switch (value.type()) {
        case json::value_t::number_integer: return static_cast<double>(value.get<int64_t>());
        case json::value_t::number_unsigned: return static_cast<double>(value.get<uint64_t>());
        case json::value_t::number_float: return value.get<double>();
        case json::value_t::boolean: return value.get<bool>() ? 1.0 : 0.0;
        default: return std::nullopt;
    }
}

int64_t saturatingInt64(double value) {
    if (std::isnan(value)) return 0;
    if (value >= 9223372036854775808.0) return std::numeric_limits<int64_t>::max();
    if (value < -9223372036854775808.0) return std::numeric_limits<int64_t>::min();
    return static_cast<int64_t>(value);
}

std::optional<int64_t> asInt64(const json& value) {
    switch (value.type()) {
        case json::value_t::number_integer: return value.get<int64_t>();
        case json::value_t::number_unsigned: {
            const uint64_t u = value.get<uint64_t>();
            const auto max = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
            return static_cast<int64_t>(u > max ? max : u);
        }
        case json::value_t::number_float: return saturatingInt64(value.get<double>());
        case json::value_t::boolean: return value.get<bool>() ? 1 : 0;
        default: return std::nullopt;
    }
}

float narrowToFloat(double value) {
    if (value > FLT_MAX) return std::numeric_limits<float>::infinity();
    if (value < -FLT_MAX) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(value);
}

// Forwards CBOR parsing events to the DOM builder and stops past maxDataDepth levels, so the
// recursive reader never runs deep.
class DepthLimitedSax {
public:
    explicit DepthLimitedSax(json& result) : _dom(result, false) {}

    bool null() { return _dom.null(); }
    bool boolean(bool value) { return _dom.boolean(value); }
    bool number_integer(json::number_integer_t value) { return _dom.number_integer(value); }
    bool number_unsigned(json::number_unsigned_t value) { return _dom.number_unsigned(value); }
    bool number_float(json::number_float_t value, const json::string_t& text) {
        return _dom.number_float(value, text);
    }
    bool string(json::string_t& value) { return _dom.string(value); }
    bool binary(json::binary_t& value) { return _dom.binary(value); }
    bool start_object(std::size_t count) { return enter() && _dom.start_object(count); }
    bool key(json::string_t& value) { return _dom.key(value); }
    bool end_object() {
        --_depth;
        return _dom.end_object();
    }
    bool start_array(std::size_t count) { return enter() && _dom.start_array(count); }
    bool end_array() {
        --_depth;
        return _dom.end_array();
    }
    template <class Exception>
    bool parse_error(std::size_t position, const std::string& token, const Exception& error) {
        _reason = "damaged data at byte " + std::to_string(position);
        return _dom.parse_error(position, token, error);
    }

    const std::string& reason() const { return _reason; }

private:
    bool enter() {
        if (++_depth <= KeyedUnarchiver::maxDataDepth) return true;
        _reason = "data nested deeper than " + std::to_string(KeyedUnarchiver::maxDataDepth) + " levels";
        return false;
    }

    nlohmann::detail::json_sax_dom_parser<json> _dom;
    size_t _depth = 0;
    std::string _reason;
};

// The reason the bytes are not a keyed archive, or empty when `archive` holds one.
std::string parseArchive(const std::vector<uint8_t>& data, json& archive) {
    if (data.empty()) return "no data";
    DepthLimitedSax sax(archive);
    try {
        if (!json::sax_parse(data.begin(), data.end(), &sax, json::input_format_t::cbor, true)) {
            return sax.reason().empty() ? std::string("damaged data") : sax.reason();
        }
    } catch (const json::exception&) {
        return "damaged data";
    }
    const auto top = archive.is_object() ? archive.find(kTopKey) : archive.end();
    const auto objects = archive.is_object() ? archive.find(kObjectsKey) : archive.end();
    if (top == archive.end() || !top->is_object() || objects == archive.end() || !objects->is_array()) {
        return "not a keyed archive";
    }
    return {};
}

// A colour stored as an object, as an "NSColor" in the published format.
class ArchivedColor : public Archivable {
public:
    explicit ArchivedColor(const Color& color) : _color(color) {}

    static std::shared_ptr<ArchivedColor> createWithCoder(KeyedUnarchiver& coder) {
        return std::make_shared<ArchivedColor>(Color{coder.decodeDouble("red"), coder.decodeDouble("green"),
                                                     coder.decodeDouble("blue"), coder.decodeDouble("alpha")});
    }

    const Color& color() const { return _color; }

    std::string archiveClassName() const override { return "NSColor"; }
    void encodeWithCoder(KeyedArchiver& coder) const override {
        coder.encodeDouble("red", _color.r);
        coder.encodeDouble("green", _color.g);
        coder.encodeDouble("blue", _color.b);
        coder.encodeDouble("alpha", _color.a);
    }

private:
    Color _color;
};

struct ClassRegistry {
    ClassRegistry() {
        factories["NSArray"] = [](KeyedUnarchiver& c) { return ArchivedList::createWithCoder(c); };
        factories["NSString"] = [](KeyedUnarchiver& c) { return ArchivedString::createWithCoder(c); };
        factories["NSDictionary"] = [](KeyedUnarchiver& c) { return ArchivedDictionary::createWithCoder(c); };
        factories["NSColor"] = [](KeyedUnarchiver& c) { return ArchivedColor::createWithCoder(c); };
    }

    std::mutex mutex;
    std::unordered_map<std::string, KeyedUnarchiver::Factory> factories;
};

ClassRegistry& classRegistry() {
    static ClassRegistry registry;
    return registry;
}

KeyedUnarchiver::Factory factoryForClass(const std::string& name) {
    ClassRegistry& registry = classRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    const auto found = registry.factories.find(name);
    return found == registry.factories.end() ? KeyedUnarchiver::Factory() : found->second;
}

}  // namespace

// MARK: - KeyedArchiver

struct KeyedArchiver::Impl {
    json objects = json::array({"$null"});
    // frames[0] is "$top"; the last frame is the object being written.
    std::vector<json> frames{json::object()};
    std::unordered_map<const Archivable*, uint64_t> uids;
    std::vector<bool> inProgress{false};
    // Keeps every written object alive, so no address is reused for another object meanwhile.
    std::vector<std::shared_ptr<const Archivable>> retained;
    bool failed = false;

    void fail(const std::string& reason) {
        if (failed) return;
        failed = true;
        QMLog("Error: can not archive object: %s", reason.c_str());
    }

    void setValue(const std::string& key, json value) {
        if (!failed) frames.back()[storedKey(key)] = std::move(value);
    }

    json referenceTo(const std::shared_ptr<Archivable>& object, KeyedArchiver& coder) {
        if (!object || failed) return uidReference(0);
        const auto found = uids.find(object.get());
        if (found != uids.end()) {
            if (inProgress[found->second]) fail("reference cycle through class " + object->archiveClassName());
            return uidReference(found->second);
        }
        if (frames.size() > maxObjectDepth) {
            fail("object graph nested deeper than " + std::to_string(maxObjectDepth) + " levels");
            return uidReference(0);
        }
        const uint64_t uid = objects.size();
        objects.push_back(nullptr);
        uids.emplace(object.get(), uid);
        inProgress.push_back(true);
        retained.push_back(object);
        json frame = json::object();
        frame[kClassKey] = object->archiveClassName();
        frames.push_back(std::move(frame));
        object->encodeWithCoder(coder);
        objects[uid] = std::move(frames.back());
        frames.pop_back();
        inProgress[uid] = false;
        return uidReference(uid);
    }
};

KeyedArchiver::KeyedArchiver() : _impl(std::make_unique<Impl>()) {}

KeyedArchiver::~KeyedArchiver() = default;

std::vector<uint8_t> KeyedArchiver::archivedDataWithRootObject(const std::shared_ptr<Archivable>& object) {
    KeyedArchiver archiver;
    archiver.encodeObject(rootKey, object);
    return archiver.finishEncoding();
}

void KeyedArchiver::encodeObject(const std::string& key, const std::shared_ptr<Archivable>& object) {
    if (object) _impl->setValue(key, _impl->referenceTo(object, *this));
}

void KeyedArchiver::encodeObjects(const std::string& key, const std::vector<std::shared_ptr<Archivable>>& objects) {
    json list = json::array();
    for (const auto& object : objects) list.push_back(_impl->referenceTo(object, *this));
    _impl->setValue(key, std::move(list));
}

void KeyedArchiver::encodeString(const std::string& key, const std::string& value) { _impl->setValue(key, value); }

void KeyedArchiver::encodeData(const std::string& key, const std::vector<uint8_t>& bytes) {
    _impl->setValue(key, json::binary(bytes));
}

void KeyedArchiver::encodeInt64(const std::string& key, int64_t value) { _impl->setValue(key, value); }

void KeyedArchiver::encodeInteger(const std::string& key, int64_t value) { _impl->setValue(key, value); }

void KeyedArchiver::encodeInt32(const std::string& key, int32_t value) { _impl->setValue(key, value); }

void KeyedArchiver::encodeDouble(const std::string& key, double value) { _impl->setValue(key, value); }

// A double that a float holds exactly is written by the CBOR writer in 32 bits.
void KeyedArchiver::encodeFloat(const std::string& key, double value) {
    _impl->setValue(key, static_cast<double>(narrowToFloat(value)));
}

void KeyedArchiver::encodeBool(const std::string& key, bool value) { _impl->setValue(key, value); }

void KeyedArchiver::encodePoint(const std::string& key, const Point& point) {
    _impl->setValue(key, json::array({point.x, point.y}));
}

void KeyedArchiver::encodeSize(const std::string& key, const Size& size) {
    _impl->setValue(key, json::array({size.width, size.height}));
}

void KeyedArchiver::encodeRect(const std::string& key, const Rect& rect) {
    _impl->setValue(key, json::array({rect.origin.x, rect.origin.y, rect.size.width, rect.size.height}));
}

void KeyedArchiver::encodeColor(const std::string& key, const std::optional<Color>& color) {
    if (color) encodeObject(key, std::make_shared<ArchivedColor>(*color));
}

bool KeyedArchiver::failed() const { return _impl->failed; }

std::vector<uint8_t> KeyedArchiver::finishEncoding() {
    if (_impl->failed) return {};
    json archive = json::object();
    archive["$archiver"] = "NSKeyedArchiver";
    archive["$version"] = 100000;
    archive[kTopKey] = std::move(_impl->frames.front());
    archive[kObjectsKey] = std::move(_impl->objects);
    return json::to_cbor(archive);
}

// MARK: - KeyedUnarchiver

struct KeyedUnarchiver::Impl {
    enum class State : uint8_t { unread, reading, read };

    explicit Impl(json parsed)
        : archive(std::move(parsed)),
          objects(&archive[kObjectsKey]),
          frames{&archive[kTopKey]},
          states(objects->size(), State::unread),
          decoded(objects->size()) {}

    json archive;
    const json* objects;
    std::vector<const json*> frames;
    std::vector<State> states;
    std::vector<std::shared_ptr<Archivable>> decoded;
    std::vector<std::string> warnings;
    bool failed = false;

    void fail(const std::string& reason) {
        if (failed) return;
        failed = true;
        warnings.clear();
        QMLog("Error: can not unarchive data: %s", reason.c_str());
    }

    const json* valueForKey(const std::string& key) const {
        if (failed) return nullptr;
        const json& frame = *frames.back();
        const auto found = frame.find(storedKey(key));
        return found == frame.end() ? nullptr : &*found;
    }

    std::optional<double> numberForKey(const std::string& key) const {
        const json* value = valueForKey(key);
        return value ? asDouble(*value) : std::nullopt;
    }

    std::optional<int64_t> integerForKey(const std::string& key) const {
        const json* value = valueForKey(key);
        return value ? asInt64(*value) : std::nullopt;
    }

    // `count` numbers, or nothing when the value is not an array of exactly that many numbers.
    std::vector<double> doublesForKey(const std::string& key, size_t count) const {
        const json* value = valueForKey(key);
        if (!value || !value->is_array() || value->size() != count) return {};
        std::vector<double> numbers;
        for (const json& element : *value) {
            const auto number = asDouble(element);
            if (!number) return {};
            numbers.push_back(*number);
        }
        return numbers;
    }

    std::shared_ptr<Archivable> decodeReference(const json& reference, KeyedUnarchiver& coder) {
        const json& uid = reference[kUIDKey];
        if (!uid.is_number_unsigned() && !(uid.is_number_integer() && uid.get<int64_t>() >= 0)) {
            fail("invalid object reference");
            return nullptr;
        }
        return decodeObjectWithUID(uid.get<uint64_t>(), coder);
    }

    std::shared_ptr<Archivable> decodeObjectWithUID(uint64_t uid, KeyedUnarchiver& coder) {
        if (failed || uid == 0) return nullptr;
        if (uid >= objects->size()) {
            fail("object reference " + std::to_string(uid) + " out of range");
            return nullptr;
        }
        if (states[uid] == State::read) return decoded[uid];
        if (states[uid] == State::reading) {
            fail("reference cycle at object " + std::to_string(uid));
            return nullptr;
        }
        if (frames.size() > maxObjectDepth) {
            fail("object graph nested deeper than " + std::to_string(maxObjectDepth) + " levels");
            return nullptr;
        }
        const json& entry = (*objects)[uid];
        const auto className = entry.is_object() ? entry.find(kClassKey) : entry.end();
        if (!entry.is_object() || className == entry.end() || !className->is_string()) {
            fail("object " + std::to_string(uid) + " is not an archived object");
            return nullptr;
        }
        const Factory factory = factoryForClass(className->get<std::string>());
        if (!factory) {
            fail("unknown class " + printable(className->get<std::string>()));
            return nullptr;
        }
        states[uid] = State::reading;
        frames.push_back(&entry);
        std::shared_ptr<Archivable> object = factory(coder);
        frames.pop_back();
        states[uid] = State::read;
        decoded[uid] = failed ? nullptr : std::move(object);
        return decoded[uid];
    }
};

KeyedUnarchiver::KeyedUnarchiver(std::unique_ptr<Impl> impl) : _impl(std::move(impl)) {}

KeyedUnarchiver::~KeyedUnarchiver() { finishDecoding(); }

void KeyedUnarchiver::registerClass(const std::string& name, Factory factory) {
    ClassRegistry& registry = classRegistry();
    std::lock_guard<std::mutex> lock(registry.mutex);
    registry.factories[name] = std::move(factory);
}

std::shared_ptr<KeyedUnarchiver> KeyedUnarchiver::createForReadingWithData(const std::vector<uint8_t>& data) {
    json archive;
    const std::string reason = parseArchive(data, archive);
    if (!reason.empty()) {
        QMLog("Error: can not unarchive data: %s", reason.c_str());
        return nullptr;
    }
    return std::shared_ptr<KeyedUnarchiver>(new KeyedUnarchiver(std::make_unique<Impl>(std::move(archive))));
}

std::shared_ptr<Archivable> KeyedUnarchiver::unarchiveObjectWithData(const std::vector<uint8_t>& data) {
    const auto unarchiver = createForReadingWithData(data);
    if (!unarchiver) return nullptr;
    auto root = unarchiver->decodeObject(KeyedArchiver::rootKey);
    unarchiver->finishDecoding();
    return unarchiver->failed() ? nullptr : root;
}

bool KeyedUnarchiver::containsValueForKey(const std::string& key) const { return _impl->valueForKey(key); }

std::shared_ptr<Archivable> KeyedUnarchiver::decodeObject(const std::string& key) {
    const json* value = _impl->valueForKey(key);
    if (!value || !isReference(*value)) return nullptr;
    return _impl->decodeReference(*value, *this);
}

std::vector<std::shared_ptr<Archivable>> KeyedUnarchiver::decodeObjects(const std::string& key) {
    return decodeObjectList(key, false);
}

std::vector<std::shared_ptr<Archivable>> KeyedUnarchiver::decodeObjectList(const std::string& key, bool keepNothing) {
    const json* value = _impl->valueForKey(key);
    if (!value || !value->is_array()) return {};
    for (const json& element : *value) {
        if (!isReference(element)) return {};
    }
    std::vector<std::shared_ptr<Archivable>> objects;
    for (const json& element : *value) {
        auto object = _impl->decodeReference(element, *this);
        if (_impl->failed) return {};
        if (object || keepNothing) objects.push_back(std::move(object));
    }
    return objects;
}

std::string KeyedUnarchiver::decodeString(const std::string& key) const {
    const json* value = _impl->valueForKey(key);
    return value && value->is_string() ? value->get<std::string>() : std::string();
}

std::vector<uint8_t> KeyedUnarchiver::decodeData(const std::string& key) const {
    const json* value = _impl->valueForKey(key);
    if (!value || !value->is_binary()) return {};
    const json::binary_t& bytes = value->get_binary();
    return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

int64_t KeyedUnarchiver::decodeInt64(const std::string& key) const { return _impl->integerForKey(key).value_or(0); }

int64_t KeyedUnarchiver::decodeInteger(const std::string& key) const { return decodeInt64(key); }

int32_t KeyedUnarchiver::decodeInt32(const std::string& key) const {
    const int64_t value = decodeInt64(key);
    if (value > std::numeric_limits<int32_t>::max()) return std::numeric_limits<int32_t>::max();
    if (value < std::numeric_limits<int32_t>::min()) return std::numeric_limits<int32_t>::min();
    return static_cast<int32_t>(value);
}

double KeyedUnarchiver::decodeDouble(const std::string& key) const { return _impl->numberForKey(key).value_or(0.0); }

float KeyedUnarchiver::decodeFloat(const std::string& key) const { return narrowToFloat(decodeDouble(key)); }

bool KeyedUnarchiver::decodeBool(const std::string& key) const {
    const auto number = _impl->numberForKey(key);
    return number && *number != 0;
}

Point KeyedUnarchiver::decodePoint(const std::string& key) const {
    const auto v = _impl->doublesForKey(key, 2);
    return v.empty() ? Point{} : Point{v[0], v[1]};
}

Size KeyedUnarchiver::decodeSize(const std::string& key) const {
    const auto v = _impl->doublesForKey(key, 2);
    return v.empty() ? Size{} : Size{v[0], v[1]};
}

Rect KeyedUnarchiver::decodeRect(const std::string& key) const {
    const auto v = _impl->doublesForKey(key, 4);
    return v.empty() ? Rect{} : Rect{{v[0], v[1]}, {v[2], v[3]}};
}

std::optional<Color> KeyedUnarchiver::decodeColor(const std::string& key) {
    const auto color = castObject<ArchivedColor>(key, decodeObject(key));
    return color ? std::optional<Color>(color->color()) : std::nullopt;
}

bool KeyedUnarchiver::failed() const { return _impl->failed; }

void KeyedUnarchiver::finishDecoding() {
    if (!_impl->failed) {
        for (const std::string& warning : _impl->warnings) QMLog("%s", warning.c_str());
    }
    _impl->warnings.clear();
}

void KeyedUnarchiver::noteClassMismatch(const std::string& key, const Archivable& object) {
    _impl->warnings.push_back("Warning: unexpected class " + printable(object.archiveClassName()) + " for key " + key);
}

// MARK: - Built-in classes

std::shared_ptr<ArchivedList> ArchivedList::createWithObjects(std::vector<std::shared_ptr<Archivable>> objects) {
    auto list = std::make_shared<ArchivedList>();
    list->_objects = std::move(objects);
    return list;
}

std::shared_ptr<ArchivedList> ArchivedList::createWithCoder(KeyedUnarchiver& coder) {
    return createWithObjects(coder.decodeObjects("NS.objects"));
}

void ArchivedList::encodeWithCoder(KeyedArchiver& coder) const { coder.encodeObjects("NS.objects", _objects); }

std::shared_ptr<ArchivedString> ArchivedString::createWithString(std::string string) {
    auto archived = std::make_shared<ArchivedString>();
    archived->_string = std::move(string);
    return archived;
}

std::shared_ptr<ArchivedString> ArchivedString::createWithCoder(KeyedUnarchiver& coder) {
    return createWithString(coder.decodeString("NS.string"));
}

void ArchivedString::encodeWithCoder(KeyedArchiver& coder) const { coder.encodeString("NS.string", _string); }

std::shared_ptr<ArchivedDictionary> ArchivedDictionary::createWithMap(Map map) {
    auto dictionary = std::make_shared<ArchivedDictionary>();
    dictionary->_map = std::move(map);
    return dictionary;
}

std::shared_ptr<ArchivedDictionary> ArchivedDictionary::createWithCoder(KeyedUnarchiver& coder) {
    const auto keys = coder.decodeObjectList("NS.keys", true);
    const auto objects = coder.decodeObjectList("NS.objects", true);
    if (keys.size() != objects.size()) return nullptr;
    Map map;
    for (size_t i = 0; i < keys.size(); ++i) {
        const auto key = std::dynamic_pointer_cast<ArchivedString>(keys[i]);
        if (key && objects[i]) map[key->string()] = objects[i];
    }
    return createWithMap(std::move(map));
}

void ArchivedDictionary::encodeWithCoder(KeyedArchiver& coder) const {
    std::vector<std::shared_ptr<Archivable>> keys;
    std::vector<std::shared_ptr<Archivable>> objects;
    for (const auto& [key, object] : _map) {
        keys.push_back(ArchivedString::createWithString(key));
        objects.push_back(object);
    }
    coder.encodeObjects("NS.keys", keys);
    coder.encodeObjects("NS.objects", objects);
}

}  // namespace qm
