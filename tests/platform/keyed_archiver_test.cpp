#include "platform/KeyedArchiver.h"

#include <gtest/gtest.h>

#include <limits>
#include <mutex>
#include <random>

#include <nlohmann/json.hpp>

#include "platform/Log.h"

using nlohmann::json;

namespace qm {
namespace {

class Node : public Archivable {
public:
    static std::shared_ptr<Node> create(std::string name) {
        auto node = std::make_shared<Node>();
        node->name = std::move(name);
        return node;
    }
    static std::shared_ptr<Node> createWithCoder(KeyedUnarchiver& coder) {
        auto node = create(coder.decodeString("name"));
        node->children = coder.decodeObjectsOfClass<Node>("children");
        node->next = coder.decodeObjectOfClass<Node>("next");
        return node;
    }

    std::string archiveClassName() const override { return "TestNode"; }
    void encodeWithCoder(KeyedArchiver& coder) const override {
        coder.encodeString("name", name);
        coder.encodeObjects("children", children);
        coder.encodeObject("next", next);
    }

    std::string name;
    std::vector<std::shared_ptr<Node>> children;
    std::shared_ptr<Node> next;
};

// A base and a subclass that reads the base's keys first; a negative radius makes the circle
// nothing, as an object whose initWithCoder gives nil.
class Shape : public Archivable {
public:
    static std::shared_ptr<Shape> createWithCoder(KeyedUnarchiver& coder) {
        auto shape = std::make_shared<Shape>();
        return shape->initWithCoder(coder) ? shape : nullptr;
    }
    std::string archiveClassName() const override { return "TestShape"; }
    void encodeWithCoder(KeyedArchiver& coder) const override {
        coder.encodeString("name", name);
        coder.encodePoint("origin", origin);
    }

    std::string name;
    Point origin;

protected:
    virtual bool initWithCoder(KeyedUnarchiver& coder) {
        name = coder.decodeString("name");
        origin = coder.decodePoint("origin");
        return true;
    }
};

class Circle : public Shape {
public:
    static std::shared_ptr<Circle> createWithCoder(KeyedUnarchiver& coder) {
        auto circle = std::make_shared<Circle>();
        return circle->initWithCoder(coder) ? circle : nullptr;
    }
    std::string archiveClassName() const override { return "TestCircle"; }
    void encodeWithCoder(KeyedArchiver& coder) const override {
        Shape::encodeWithCoder(coder);
        coder.encodeDouble("radius", radius);
    }

    double radius = 0;

protected:
    bool initWithCoder(KeyedUnarchiver& coder) override {
        if (!Shape::initWithCoder(coder)) return false;
        radius = coder.decodeDouble("radius");
        return radius >= 0;
    }
};

std::shared_ptr<Circle> makeCircle(const std::string& name, double radius) {
    auto circle = std::make_shared<Circle>();
    circle->name = name;
    circle->origin = {3, 4};
    circle->radius = radius;
    return circle;
}

// Every value kind at the top level beside a graph with a shared node and a subclass.
std::vector<uint8_t> sampleArchive() {
    auto shared = Node::create("shared");
    auto first = Node::create("first");
    first->children = {shared, Node::create("leaf")};
    first->next = shared;
    KeyedArchiver archiver;
    archiver.encodeObject(KeyedArchiver::rootKey,
                          ArchivedList::createWithObjects(std::vector<std::shared_ptr<Archivable>>{
                              first, makeCircle("circle", 5), shared}));
    archiver.encodeString("text", "Grüße, $class");
    archiver.encodeData("bytes", {0, 1, 2, 255, 0});
    archiver.encodeInt64("int64", std::numeric_limits<int64_t>::min());
    archiver.encodeInteger("integer", 705600000LL * 3600 * 10);
    archiver.encodeDouble("real", 0.1 + 0.2);
    archiver.encodeFloat("narrowed", 0.88888889);
    archiver.encodeBool("flag", true);
    archiver.encodePoint("point", {-1.5, 2.25});
    archiver.encodeRect("rect", {{0.5, -7}, {640.125, 360}});
    archiver.encodeColor("color", Color{0.1, 0.2, 0.3, 0.4});
    return archiver.finishEncoding();
}

std::string errorPrefix() { return "Error: can not unarchive data: "; }

json archiveJSON(json objects, json root = json{{"$uid", 1}}) {
    return json{{"$archiver", "NSKeyedArchiver"},
                {"$version", 100000},
                {"$top", {{"root", std::move(root)}}},
                {"$objects", std::move(objects)}};
}

std::vector<uint8_t> cbor(const json& value) { return json::to_cbor(value); }

// Decodes through the instance API and checks the failure rule: a failed read logs exactly one
// error line and gives nothing; a good one logs no error line. Gives whether the read failed.
bool expectNothingOrValid(const std::vector<uint8_t>& bytes, bool mustFail) {
    LogCapture capture;
    std::shared_ptr<Archivable> root;
    bool failed = true;
    if (auto unarchiver = KeyedUnarchiver::createForReadingWithData(bytes)) {
        root = unarchiver->decodeObject(KeyedArchiver::rootKey);
        unarchiver->finishDecoding();
        failed = unarchiver->failed();
    }
    size_t errors = 0;
    for (const auto& line : capture.lines()) errors += line.rfind(errorPrefix(), 0) == 0 ? 1 : 0;
    if (failed) {
        EXPECT_EQ(capture.lines().size(), 1u);
        EXPECT_EQ(errors, 1u);
        EXPECT_EQ(root, nullptr);
    } else {
        EXPECT_FALSE(mustFail);
        EXPECT_EQ(errors, 0u);
    }
    return failed;
}

class KeyedArchiverTest : public ::testing::Test {
protected:
    void SetUp() override {
        static std::once_flag once;
        std::call_once(once, [] {
            KeyedUnarchiver::registerClass<Node>("TestNode");
            KeyedUnarchiver::registerClass<Shape>("TestShape");
            KeyedUnarchiver::registerClass<Circle>("TestCircle");
        });
    }
};

TEST_F(KeyedArchiverTest, EveryValueKindAndSharedReferencesRoundTrip) {
    const auto bytes = sampleArchive();
    const auto unarchiver = KeyedUnarchiver::createForReadingWithData(bytes);
    ASSERT_TRUE(unarchiver);
    const auto list = unarchiver->decodeObjectOfClass<ArchivedList>(KeyedArchiver::rootKey);
    ASSERT_TRUE(list);
    ASSERT_EQ(list->objects().size(), 3u);
    const auto first = std::dynamic_pointer_cast<Node>(list->objects()[0]);
    ASSERT_TRUE(first);
    ASSERT_EQ(first->children.size(), 2u);
    EXPECT_EQ(first->next->name, "shared");
    EXPECT_EQ(first->next, first->children[0]);
    EXPECT_EQ(first->next, list->objects()[2]);

    EXPECT_EQ(unarchiver->decodeString("text"), "Grüße, $class");
    EXPECT_EQ(unarchiver->decodeData("bytes"), (std::vector<uint8_t>{0, 1, 2, 255, 0}));
    EXPECT_EQ(unarchiver->decodeInt64("int64"), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(unarchiver->decodeInteger("integer"), 705600000LL * 3600 * 10);
    EXPECT_EQ(unarchiver->decodeDouble("real"), 0.1 + 0.2);
    EXPECT_TRUE(unarchiver->decodeBool("flag"));
    EXPECT_EQ(unarchiver->decodeRect("rect"), (Rect{{0.5, -7}, {640.125, 360}}));
    EXPECT_EQ(unarchiver->decodeColor("color"), (Color{0.1, 0.2, 0.3, 0.4}));
    // A float is narrowed on writing and widened on reading.
    EXPECT_EQ(unarchiver->decodeDouble("narrowed"), static_cast<double>(0.88888889f));
    EXPECT_NE(unarchiver->decodeDouble("narrowed"), 0.88888889);

    // Published layout: "$null" first, every object once with its class, references by uid.
    const json archive = json::from_cbor(bytes);
    EXPECT_EQ(archive["$objects"][0], "$null");
    size_t nodes = 0;
    for (const auto& object : archive["$objects"]) nodes += object.is_object() && object.value("$class", "") == "TestNode";
    EXPECT_EQ(nodes, 3u);
    const json& root = archive["$objects"][archive["$top"]["root"]["$uid"].get<size_t>()];
    const json& stored = archive["$objects"][root["NS.objects"][0]["$uid"].get<size_t>()];
    EXPECT_EQ(stored["$class"], "TestNode");
    EXPECT_EQ(stored["next"], stored["children"][0]);
}

TEST_F(KeyedArchiverTest, NumbersSaturateWrongTypesReadAsNothingAndEachColourIsItsOwnObject) {
    KeyedArchiver archiver;
    archiver.encodeInt64("big", std::numeric_limits<int64_t>::max());
    archiver.encodeInt64("small", std::numeric_limits<int64_t>::min());
    archiver.encodeDouble("huge", 1e300);
    archiver.encodeDouble("fraction", -2.75);
    archiver.encodeString("text", "12");
    archiver.encodePoint("point", {1, 2});
    archiver.encodeObject("none", nullptr);
    archiver.encodeInt64("$class", 99);
    // Colours go through temporary objects; a freed one's address must not pass for a shared one.
    const std::vector<Color> colors{{1, 0, 0, 1}, {0, 1, 0, 1}, {0, 0, 1, 0.5}};
    for (size_t i = 0; i < colors.size(); ++i) archiver.encodeColor("color" + std::to_string(i), colors[i]);
    const auto unarchiver = KeyedUnarchiver::createForReadingWithData(archiver.finishEncoding());
    ASSERT_TRUE(unarchiver);
    EXPECT_EQ(unarchiver->decodeInt32("big"), std::numeric_limits<int32_t>::max());
    EXPECT_EQ(unarchiver->decodeInt32("small"), std::numeric_limits<int32_t>::min());
    EXPECT_EQ(unarchiver->decodeInt64("huge"), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(unarchiver->decodeInt64("fraction"), -2);
    for (size_t i = 0; i < colors.size(); ++i) EXPECT_EQ(unarchiver->decodeColor("color" + std::to_string(i)), colors[i]);

    EXPECT_FALSE(unarchiver->containsValueForKey("none"));
    EXPECT_EQ(unarchiver->decodeInt64("text"), 0);
    EXPECT_EQ(unarchiver->decodeString("big"), "");
    EXPECT_EQ(unarchiver->decodeRect("point"), Rect{});
    EXPECT_FALSE(unarchiver->decodeColor("big"));
    // A key starting with '$' does not disturb the archive's own keys.
    EXPECT_EQ(unarchiver->decodeInt64("$class"), 99);
    EXPECT_FALSE(unarchiver->failed());
}

TEST_F(KeyedArchiverTest, SubclassReadsBaseKeysAndNothingIsDroppedFromLists) {
    auto shape = std::make_shared<Shape>();
    shape->name = "plain";
    std::vector<std::shared_ptr<Shape>> shapes{shape, makeCircle("round", 2.5), makeCircle("broken", -1)};

    KeyedArchiver archiver;
    archiver.encodeObjects("shapes", shapes);
    archiver.encodeObject("broken", shapes[2]);
    LogCapture capture;
    const auto unarchiver = KeyedUnarchiver::createForReadingWithData(archiver.finishEncoding());
    ASSERT_TRUE(unarchiver);
    const auto decoded = unarchiver->decodeObjectsOfClass<Shape>("shapes");
    ASSERT_EQ(decoded.size(), 2u);
    EXPECT_EQ(decoded[0]->name, "plain");
    const auto circle = std::dynamic_pointer_cast<Circle>(decoded[1]);
    ASSERT_TRUE(circle);
    EXPECT_EQ(circle->origin, (Point{3, 4}));
    EXPECT_EQ(circle->radius, 2.5);
    EXPECT_EQ(unarchiver->decodeObject("broken"), nullptr);
    unarchiver->finishDecoding();
    EXPECT_FALSE(unarchiver->failed());
    EXPECT_TRUE(capture.lines().empty());
}

TEST_F(KeyedArchiverTest, ClassMismatchGivesNothingAndOneWarning) {
    KeyedArchiver archiver;
    archiver.encodeObject("node", Node::create("n"));
    archiver.encodeObjects("mixed", std::vector<std::shared_ptr<Archivable>>{makeCircle("c", 1), Node::create("m")});
    const auto bytes = archiver.finishEncoding();

    LogCapture capture;
    {
        const auto unarchiver = KeyedUnarchiver::createForReadingWithData(bytes);
        ASSERT_TRUE(unarchiver);
        EXPECT_EQ(unarchiver->decodeObjectOfClass<Circle>("node"), nullptr);
        EXPECT_TRUE(unarchiver->decodeObjectOfClass<Node>("node"));
        const auto circles = unarchiver->decodeObjectsOfClass<Circle>("mixed");
        ASSERT_EQ(circles.size(), 1u);
        EXPECT_EQ(circles[0]->name, "c");
        EXPECT_TRUE(capture.lines().empty());  // held until the read is finished
    }
    EXPECT_EQ(capture.count("Warning: unexpected class TestNode for key node"), 1u);
    EXPECT_EQ(capture.count("Warning: unexpected class TestNode for key mixed"), 1u);
    EXPECT_EQ(capture.lines().size(), 2u);
}

TEST_F(KeyedArchiverTest, BuiltInListDictionaryAndStringAndTopLevelKeys) {
    auto node = Node::create("in both");
    ArchivedDictionary::Map map{{"node", node},
                                {"list", ArchivedList::createWithObjects(std::vector<std::shared_ptr<Node>>{node})},
                                {"text", ArchivedString::createWithString("hello")},
                                {"nothing", nullptr}};
    const auto decoded = std::dynamic_pointer_cast<ArchivedDictionary>(
        KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(ArchivedDictionary::createWithMap(map))));
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->map().count("nothing"), 0u);
    const auto list = std::dynamic_pointer_cast<ArchivedList>(decoded->map().at("list"));
    ASSERT_TRUE(list);
    const auto nodes = list->objectsOfClass<Node>();
    ASSERT_EQ(nodes.size(), 1u);
    EXPECT_EQ(nodes[0], decoded->map().at("node"));
    const auto text = std::dynamic_pointer_cast<ArchivedString>(decoded->map().at("text"));
    ASSERT_TRUE(text);
    EXPECT_EQ(text->string(), "hello");

    KeyedArchiver archiver;
    archiver.encodeObject("com.quormedia.archivedata", Node::create("old form"));
    const auto unarchiver = KeyedUnarchiver::createForReadingWithData(archiver.finishEncoding());
    ASSERT_TRUE(unarchiver);
    EXPECT_EQ(unarchiver->decodeObject(KeyedArchiver::rootKey), nullptr);
    EXPECT_TRUE(unarchiver->decodeObjectOfClass<Node>("com.quormedia.archivedata"));
}

TEST_F(KeyedArchiverTest, CyclesAndExcessiveDepthCannotBeArchived) {
    auto a = Node::create("a");
    auto b = Node::create("b");
    a->next = b;
    b->next = a;
    {
        LogCapture capture;
        EXPECT_TRUE(KeyedArchiver::archivedDataWithRootObject(a).empty());
        EXPECT_EQ(capture.count("Error: can not archive object: reference cycle through class TestNode"), 1u);
        EXPECT_EQ(capture.lines().size(), 1u);
    }
    b->next = nullptr;

    auto chain = Node::create("0");
    for (size_t i = 1; i < KeyedArchiver::maxObjectDepth; ++i) {
        auto head = Node::create(std::to_string(i));
        head->next = chain;
        chain = head;
    }
    const auto deepest = std::dynamic_pointer_cast<Node>(
        KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(chain)));
    ASSERT_TRUE(deepest);
    EXPECT_EQ(deepest->name, std::to_string(KeyedArchiver::maxObjectDepth - 1));

    auto tooDeep = Node::create("one more");
    tooDeep->next = chain;
    LogCapture capture;
    EXPECT_TRUE(KeyedArchiver::archivedDataWithRootObject(tooDeep).empty());
    EXPECT_EQ(capture.count("Error: can not archive object: object graph nested deeper than 256 levels"), 1u);
}

TEST_F(KeyedArchiverTest, DamagedArchivesLogOneLineAndGiveNothing) {
    json deepChain = json::array({"$null"});
    for (int i = 1; i <= 300; ++i) deepChain.push_back({{"$class", "TestNode"}, {"next", {{"$uid", i + 1}}}});
    deepChain.back().erase("next");

    const struct {
        std::vector<uint8_t> bytes;
        std::string reason;
    } cases[] = {
        {{}, "no data"},
        {{'n', 'o', 't', ' ', 'c', 'b', 'o', 'r'}, "damaged data at byte 9"},
        {cbor(json::array({1, 2})), "not a keyed archive"},
        {std::vector<uint8_t>(100000, 0x81), "data nested deeper than 64 levels"},
        {cbor(archiveJSON({"$null", {{"$class", "NoSuchClass\n"}}})), "unknown class NoSuchClass?"},
        {cbor(archiveJSON({"$null"}, {{"$uid", 7}})), "object reference 7 out of range"},
        {cbor(archiveJSON({"$null"}, {{"$uid", -1}})), "invalid object reference"},
        {cbor(archiveJSON({"$null", 42})), "object 1 is not an archived object"},
        {cbor(archiveJSON({"$null", {{"$class", "TestNode"}, {"next", {{"$uid", 2}}}},
                           {{"$class", "TestNode"}, {"next", {{"$uid", 1}}}}})),
         "reference cycle at object 1"},
        {cbor(archiveJSON({"$null", {{"$class", "TestNode"}, {"children", json::array({{{"$uid", 9}}})}}})),
         "object reference 9 out of range"},
        {cbor(archiveJSON(deepChain)), "object graph nested deeper than 256 levels"},
    };
    for (const auto& damaged : cases) {
        SCOPED_TRACE(damaged.reason);
        LogCapture capture;
        EXPECT_EQ(KeyedUnarchiver::unarchiveObjectWithData(damaged.bytes), nullptr);
        EXPECT_EQ(capture.count(errorPrefix() + damaged.reason), 1u) << ::testing::PrintToString(capture.lines());
        EXPECT_EQ(capture.lines().size(), 1u);
        expectNothingOrValid(damaged.bytes, true);
    }
}

TEST_F(KeyedArchiverTest, TruncatedOrCorruptedBytesDecodeToNothingOrToAValidGraph) {
    const auto bytes = sampleArchive();
    ASSERT_FALSE(expectNothingOrValid(bytes, false));
    for (size_t length = 0; length < bytes.size(); ++length) {
        SCOPED_TRACE(length);
        expectNothingOrValid(std::vector<uint8_t>(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)), true);
    }

    std::mt19937 random(20240611);
    std::uniform_int_distribution<size_t> position(0, bytes.size() - 1);
    std::uniform_int_distribution<int> value(0, 255);
    int failures = 0;
    const int rounds = 3000;
    for (int round = 0; round < rounds; ++round) {
        SCOPED_TRACE(round);
        auto damaged = bytes;
        for (int i = 1 + round % 4; i > 0; --i) damaged[position(random)] = static_cast<uint8_t>(value(random));
        failures += expectNothingOrValid(damaged, false) ? 1 : 0;
    }
    // Both outcomes are exercised: damage to names and values still reads, damage to structure does not.
    EXPECT_GT(failures, 0);
    EXPECT_LT(failures, rounds);
}

}  // namespace
}  // namespace qm
