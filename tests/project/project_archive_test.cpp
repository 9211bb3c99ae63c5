#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <fstream>
#include <iterator>
#include <random>

#include "effects/QVEffectInstance.h"
#include "effects/QVTimeFunction.h"
#include "effects/QVTransitionInstance.h"
#include "foundation/QMCommon.h"
#include "platform/Log.h"
#include "platform/Pasteboard.h"
#include "project/ProjectArchive.h"
#include "project/ProjectFile.h"
#include "project/QVMediaClip.h"
#include "project/QVProject.h"
#include "project/QVShapeClip.h"
#include "project/QVTextClip.h"
#include "project/QVTrack.h"
#include "store/AMResourceMgr.h"

#include "support/ModelConsistency.h"
#include "support/StoredMedia.h"
#include "support/TestEnvironment.h"

namespace qm {
namespace {

const test::PrivateUserDirectories& processUserDirectories() {
    static const test::PrivateUserDirectories directories("project_archive_test");
    return directories;
}

std::vector<uint8_t> readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

int64_t sec(double seconds) { return static_cast<int64_t>(std::llround(seconds * QVTimebase)); }

template <class Clip>
std::shared_ptr<Clip> placed(std::shared_ptr<Clip> clip, double from, double to) {
    clip->setTrackDuration(sec(to - from));
    clip->setTimestampOfTrack(sec(from));
    return clip;
}

// A project holding every kind of clip, with states, effects and transitions set.
class ProjectArchiveTest : public ::testing::Test {
protected:
    void SetUp() override {
        processUserDirectories();
        registerProjectArchiveClasses();
    }

    std::shared_ptr<QVProject> richProject() {
        auto project = QVProject::create();
        project->setName("Every kind");
        project->setOutVideoWidth(1280);
        project->setOutVideoHeight(720);
        project->setOutVideoFPS(29.97);
        project->setCropRect({10, 20, 640, 360});
        project->setEnableCropped(true);
        project->setBackgroundColor(Color{0.1, 0.2, 0.3, 1});

        auto resource = test::storedVideoResource(10, QVTimebase / 10, 64, 48);
        AMResourceMgr::resourceMgr().addResource(resource, AMResourceTypeUser);
        media = placed(QVMediaClip::createWithResource(resource), 0, 1);
        media->setFadeIn(true);

        TextAttributes style = QVTextClip::defaultAttributes();
        style.font = Font::fontWithName("DejaVuSerif-Bold", 36);
        AttributedString styled("Title\nsecond line", style);
        styled.changeAttributes(6, 6, [](TextAttributes& a) { a.foregroundColor = Color{1, 0.5, 0, 0.75}; });
        text = placed(QVTextClip::createWithAttributeString(styled), 0.8, 3);
        text->setUnderline(true);
        text->setBackgroundRoundRadius(7.3);
        text->setValidateColorControl(true);
        text->colorState()->setBrightness(0.25);
        text->setValidateCrop(true);
        text->cropState()->setCropRect({1, 2, 30, 40});
        text->setValidateCrop(false);
        text->setValideteShadow(true);
        text->shadowState()->setBlurRadius(3.5);
        text->effectInstance()->setEntranceName("Fade In");
        text->effectInstance()->setEntranceTimeFunction(QVTimeFunction::createWithName(QVTimeFunctionEaseIn));
        text->transitionInstance()->setTransitionName("Fade");
        text->clipPosition()->setRotateAngle(30);
        text->setTrackVolume(0.3);

        blank = placed(QVBlankClip::createWithColor(Color{0, 0.5, 1, 1}), 0, 4);
        rect = placed(QVRectShapeClip::shapeClipWithRect({100, 80, 200, 120}, 9, 11), 0, 2);
        rect->setLineWidth(3.3);
        rect->setFillColor(Color{0, 1, 0, 0.5});
        auto ellipse = placed(QVEllipseShapeClip::shapeClipWithEllipseInRect({5, 6, 70, 40}), 1.7, 4);
        auto line = placed(QVLineShapeClip::shapeClipWithLineStartPoint({10, 10}, {300, 200}), 0, 2);
        arrow = placed(QVArrowShapeClip::shapeClipWithArrawStartPoint({40, 300}, {400, 20}), 1.6, 5);
        arrow->setDoubleArrow(true);
        arrow->setOpacity(0.6);
        BezierPath free;
        free.moveToPoint({0, 0});
        free.curveToPoint({50, 50}, {10, 40}, {40, 10});
        free.closePath();
        auto shape = placed(QVShapeClip::shapeClipWithPath(free), 0, 6);

        project->addClips({media, text, blank, rect, ellipse, line, arrow, shape});
        project->setSelection({text, arrow});
        project->setCurrentTimestamp(0);
        return project;
    }

    std::shared_ptr<QVMediaClip> media;
    std::shared_ptr<QVTextClip> text;
    std::shared_ptr<QVBlankClip> blank;
    std::shared_ptr<QVRectShapeClip> rect;
    std::shared_ptr<QVArrowShapeClip> arrow;
    test::TemporaryDirectory directory;
};

template <class Clip>
std::vector<std::shared_ptr<Clip>> clipsOf(const QVProject& project) {
    std::vector<std::shared_ptr<Clip>> found;
    for (const auto& track : project.tracks()) {
        for (const auto& clip : track->clips()) {
            if (auto typed = std::dynamic_pointer_cast<Clip>(clip)) found.push_back(typed);
        }
    }
    return found;
}

TEST_F(ProjectArchiveTest, EveryClipKindSurvivesSaveOpenAndSaveAgainByteForByte) {
    const auto project = richProject();
    const std::string first = directory.file("first.qmproj");
    const std::string second = directory.file("second.qmproj");
    ASSERT_EQ(ProjectFile::save(project, first), std::nullopt);
    const auto opened = ProjectFile::open(first);
    ASSERT_TRUE(opened.project) << opened.error;
    ASSERT_EQ(ProjectFile::save(opened.project, second), std::nullopt);
    EXPECT_EQ(readFile(first), readFile(second));
    EXPECT_FALSE(std::ifstream(ProjectFile::temporaryPath(first)).good());

    const QVProject& read = *opened.project;
    EXPECT_TRUE(isConsistent(read));
    EXPECT_EQ(clipsOf<QVClip>(read).size(), 8u);
    EXPECT_EQ(clipsOf<QVShapeClip>(read).size(), 5u);
    EXPECT_EQ(clipsOf<QVRectShapeClip>(read).size(), 2u);
    ASSERT_EQ(clipsOf<QVTextClip>(read).size(), 1u);
    const auto readText = clipsOf<QVTextClip>(read).front();
    EXPECT_EQ(readText->textStorage(), text->textStorage());
    EXPECT_EQ(readText->fontName(), "DejaVuSerif-Bold");
    EXPECT_EQ(readText->fontFamily(), "DejaVu Serif");
    EXPECT_TRUE(readText->underline());
    EXPECT_EQ(readText->effectInstance()->entranceName(), "Fade In");
    EXPECT_EQ(readText->transitionInstance()->transitionName(), "Fade");
    EXPECT_EQ(readText->clipPosition()->rotateAngle(), 30);
    EXPECT_EQ(readText->outputCgImage()->width(), text->outputCgImage()->width());
    const auto readRect = clipsOf<QVRectShapeClip>(read);
    const auto sameRect =
        std::find_if(readRect.begin(), readRect.end(), [](const auto& clip) { return clip->shapeType() == 0; });
    ASSERT_NE(sameRect, readRect.end());
    EXPECT_EQ((*sameRect)->bounds(), (Rect{100, 80, 200, 120}));
    EXPECT_EQ((*sameRect)->clipPosition()->bounds(), (Rect{100, 80, 200, 120}));
    EXPECT_EQ((*sameRect)->xRadius(), 9);
    const auto readArrow = clipsOf<QVArrowShapeClip>(read).front();
    EXPECT_TRUE(readArrow->doubleArrow());
    EXPECT_EQ(readArrow->endPoint(), (Point{400, 20}));
    EXPECT_EQ(clipsOf<QVBlankClip>(read).front()->color(), (Color{0, 0.5, 1, 1}));
    EXPECT_EQ(clipsOf<QVMediaClip>(read).front()->resource(), media->resource());
    // The selection is the same objects as the tracks' clips.
    const auto selection = read.selection();
    ASSERT_EQ(selection.size(), 2u);
    EXPECT_EQ(selection[0], readText);
    EXPECT_EQ(selection[1], readArrow);
    EXPECT_FALSE(read.undoManager()->canUndo());
    EXPECT_FALSE(read.edited());
}

TEST_F(ProjectArchiveTest, ReadingNarrowsFloatsKeepsStoredStatesAndSetsNoDefaults) {
    const auto project = richProject();
    const auto read = ProjectFile::openData(QMCommon::archiveRootObject(project), "memory").project;
    ASSERT_TRUE(read);
    const auto readText = clipsOf<QVTextClip>(*read).front();
    EXPECT_EQ(readText->backgroundRoundRadius(), static_cast<double>(static_cast<float>(7.3)));
    EXPECT_NE(readText->backgroundRoundRadius(), 7.3);
    EXPECT_EQ(readText->trackVolume(), static_cast<double>(static_cast<float>(0.3)));
    const auto readArrow = clipsOf<QVArrowShapeClip>(*read).front();
    EXPECT_EQ(readArrow->opacity(), static_cast<double>(static_cast<float>(0.6)));
    const auto readRect = clipsOf<QVRectShapeClip>(*read);
    EXPECT_EQ(readRect.front()->lineWidth(), static_cast<double>(static_cast<float>(3.3)));
    // The crop state was stored with its flag off; turning the flag on brings it back.
    EXPECT_FALSE(readText->cropState());
    readText->setValidateCrop(true);
    EXPECT_EQ(readText->cropState()->cropRect(), (Rect{1, 2, 30, 40}));
    EXPECT_EQ(readText->shadowState()->blurRadius(), 3.5);
    EXPECT_EQ(readText->colorState()->brightness(), 0.25);

    class Bare : public Archivable {
    public:
        explicit Bare(std::string name) : _name(std::move(name)) {}
        std::string archiveClassName() const override { return _name; }
        void encodeWithCoder(KeyedArchiver&) const override {}

    private:
        std::string _name;
    };
    const auto bareBlank = std::dynamic_pointer_cast<QVBlankClip>(
        QMCommon::unarchiveObjectWithData(QMCommon::archiveRootObject(std::make_shared<Bare>("QVBlankClip"))));
    ASSERT_TRUE(bareBlank);
    EXPECT_FALSE(bareBlank->color());
    EXPECT_EQ(bareBlank->trackVolume(), 0.0);
    EXPECT_EQ(bareBlank->trackDuration(), 0);
    const auto bareText = std::dynamic_pointer_cast<QVTextClip>(
        QMCommon::unarchiveObjectWithData(QMCommon::archiveRootObject(std::make_shared<Bare>("QVTextClip"))));
    ASSERT_TRUE(bareText);
    EXPECT_FALSE(bareText->backgroundColor());
    EXPECT_EQ(bareText->backgroundRoundRadius(), 0.0);
    EXPECT_EQ(bareText->fontFamily(), "");
    const auto bareLine = std::dynamic_pointer_cast<QVLineShapeClip>(
        QMCommon::unarchiveObjectWithData(QMCommon::archiveRootObject(std::make_shared<Bare>("QVLineShapeClip"))));
    ASSERT_TRUE(bareLine);
    EXPECT_FALSE(bareLine->strokeColor());
    EXPECT_EQ(bareLine->lineWidth(), 0.0);

    // A shape stored without its position: the position follows the shape's bounds.
    class RectOnly : public Archivable {
    public:
        std::string archiveClassName() const override { return "QVRectShapeClip"; }
        void encodeWithCoder(KeyedArchiver& coder) const override { coder.encodeRect("_rect", {7, 8, 90, 60}); }
    };
    const auto rectOnly = std::dynamic_pointer_cast<QVRectShapeClip>(
        QMCommon::unarchiveObjectWithData(QMCommon::archiveRootObject(std::make_shared<RectOnly>())));
    ASSERT_TRUE(rectOnly);
    EXPECT_EQ(rectOnly->clipPosition()->bounds(), (Rect{7, 8, 90, 60}));
}

TEST_F(ProjectArchiveTest, ClipsWhoseResourceIsGoneAreDroppedWithTheirSelection) {
    auto project = QVProject::create();
    auto resource = test::storedVideoResource(4, QVTimebase / 10, 32, 24);
    auto orphan = QVMediaClip::createWithResource(resource);
    auto title = QVTextClip::createWithString("stays");
    project->addClips({orphan, placed(title, 2, 4)});
    project->setSelection({orphan, title});
    project->tracks().front()->setLocked(true);
    LogCapture log;
    const auto read = ProjectFile::openData(QMCommon::archiveRootObject(project), "memory").project;
    ASSERT_TRUE(read);
    EXPECT_EQ(log.count("Can not find resource with identifier " + resource->identifier()), 1u);
    ASSERT_EQ(clipsOf<QVClip>(*read).size(), 1u);
    EXPECT_EQ(read->selection(), std::vector<std::shared_ptr<QVClip>>{clipsOf<QVClip>(*read).front()});
    EXPECT_FALSE(read->tracks().front()->locked());
}

TEST_F(ProjectArchiveTest, ClipsOfEveryKindRoundTripThroughThePasteboard) {
    const auto project = richProject();
    project->setSelection({text, blank, rect, arrow});
    project->copySelectedClips();
    const auto types = Pasteboard::generalPasteboard().types();
    EXPECT_EQ(types, std::vector<std::string>{"com.quorvia.clipsdata"});

    auto target = QVProject::create();
    target->setCurrentTimestamp(sec(10));
    target->pasteClips();
    const auto pasted = target->selection();
    ASSERT_EQ(pasted.size(), 4u);
    const auto pastedText = std::dynamic_pointer_cast<QVTextClip>(pasted[0]);
    ASSERT_TRUE(pastedText);
    EXPECT_EQ(pastedText->textStorage(), text->textStorage());
    EXPECT_NE(pastedText->identifier(), text->identifier());
    EXPECT_EQ(std::dynamic_pointer_cast<QVBlankClip>(pasted[1])->color(), blank->color());
    const auto pastedRect = std::dynamic_pointer_cast<QVRectShapeClip>(pasted[2]);
    ASSERT_TRUE(pastedRect);
    EXPECT_EQ(pastedRect->bounds(), rect->bounds());
    const auto pastedArrow = std::dynamic_pointer_cast<QVArrowShapeClip>(pasted[3]);
    ASSERT_TRUE(pastedArrow);
    EXPECT_EQ(pastedArrow->startPoint(), arrow->startPoint());
    for (const auto& clip : pasted) EXPECT_EQ(clip->timestampOfTrack(), sec(10));
    EXPECT_TRUE(isConsistent(*target));
}

// Counts the file calls of a save and fails the one numbered `failAt`: a write fails after
// writing half of its bytes, as on a full disk.
class FailingFileSystem : public ProjectFileSystem {
public:
    explicit FailingFileSystem(int failAt) : _failAt(failAt) {}
    int calls() const { return _calls; }

    int openFile(const std::string& path, int flags, mode_t mode) override {
        if (fails()) return refuse(EACCES);
        return ProjectFileSystem::openFile(path, flags, mode);
    }
    ssize_t writeFile(int fd, const void* bytes, size_t size) override {
        if (!fails()) return ProjectFileSystem::writeFile(fd, bytes, size);
        ProjectFileSystem::writeFile(fd, bytes, size / 2);
        return refuse(ENOSPC);
    }
    int syncFile(int fd) override { return fails() ? refuse(EIO) : ProjectFileSystem::syncFile(fd); }
    int closeFile(int fd) override {
        const int result = ProjectFileSystem::closeFile(fd);
        return fails() ? refuse(EIO) : result;
    }
    int renameFile(const std::string& from, const std::string& to) override {
        return fails() ? refuse(EXDEV) : ProjectFileSystem::renameFile(from, to);
    }

private:
    bool fails() { return _calls++ == _failAt; }
    static int refuse(int error) {
        errno = error;
        return -1;
    }

    int _failAt;
    int _calls = 0;
};

TEST_F(ProjectArchiveTest, ASaveThatFailsAtAnyStepLeavesTheLastSavedProject) {
    const std::string path = directory.file("project.qmproj");
    auto old = QVProject::create();
    old->setName("Last good");
    old->addClip(QVBlankClip::create());
    ASSERT_EQ(ProjectFile::save(old, path), std::nullopt);
    const auto oldBytes = readFile(path);

    // Enough clips for several write calls.
    auto big = QVProject::create();
    std::vector<std::shared_ptr<QVClip>> clips;
    for (int i = 0; i < 400; ++i)
        clips.push_back(placed(QVRectShapeClip::shapeClipWithRect({1.0 * i, 2, 30, 40}), i, i + 1));
    big->addClips(clips);
    const size_t size = QMCommon::archiveRootObject(big).size();
    ASSERT_GT(size, 3 * ProjectFile::writeChunkSize);
    // open, the writes, flush, close, rename.
    const int steps = 4 + static_cast<int>((size + ProjectFile::writeChunkSize - 1) / ProjectFile::writeChunkSize);

    for (int failAt = 0; failAt < steps; ++failAt) {
        FailingFileSystem failing(failAt);
        const auto error = ProjectFile::save(big, path, failing);
        ASSERT_TRUE(error) << failAt;
        EXPECT_NE(error->find(path), std::string::npos) << *error;
        EXPECT_EQ(readFile(path), oldBytes) << failAt;
        EXPECT_FALSE(std::ifstream(ProjectFile::temporaryPath(path)).good()) << failAt;
        const auto reopened = ProjectFile::open(path);
        ASSERT_TRUE(reopened.project) << reopened.error;
        EXPECT_EQ(reopened.project->name(), "Last good");
    }
    FailingFileSystem none(steps);
    EXPECT_EQ(ProjectFile::save(big, path, none), std::nullopt);
    EXPECT_EQ(none.calls(), steps);
    EXPECT_EQ(clipsOf<QVClip>(*ProjectFile::open(path).project).size(), 400u);
}

TEST_F(ProjectArchiveTest, UnreadableFilesGiveMessagesNamingThem) {
    const std::string missing = directory.file("missing.qmproj");
    EXPECT_EQ(ProjectFile::open(missing).error, "Can not open project " + missing + ": No such file or directory");
    const std::string empty = directory.file("empty.qmproj");
    writeFile(empty, {});
    EXPECT_EQ(ProjectFile::open(empty).error, "Can not open project " + empty + ": the file is empty");
    const auto bytes = QMCommon::archiveRootObject(richProject());
    const std::string truncated = directory.file("truncated.qmproj");
    writeFile(truncated, std::vector<uint8_t>(bytes.begin(), bytes.begin() + static_cast<long>(bytes.size() / 2)));
    LogCapture log;
    const auto damaged = ProjectFile::open(truncated);
    EXPECT_FALSE(damaged.project);
    EXPECT_EQ(damaged.error, "Can not open project " + truncated + ": the file is damaged or is not a project");
    const std::string other = directory.file("other.qmproj");
    writeFile(other, QMCommon::archiveRootObject(QVTextClip::createWithString("not a project")));
    EXPECT_EQ(ProjectFile::open(other).error, "Can not open project " + other + ": the file holds no project");
}

// Truncations, flipped bytes and pieces of the project spliced into itself.
TEST_F(ProjectArchiveTest, DamagedProjectsOpenWithoutACrash) {
    const auto bytes = QMCommon::archiveRootObject(richProject());
    std::mt19937 random(15);
    const auto below = [&random](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(random); };
    LogCapture log;
    int opened = 0;
    for (int i = 0; i < 5000; ++i) {
        std::vector<uint8_t> damaged = bytes;
        switch (i % 3) {
            case 0:
                damaged.resize(below(bytes.size()));
                break;
            case 1:
                for (size_t n = 1 + below(8); n > 0; --n)
                    damaged[below(damaged.size())] ^= static_cast<uint8_t>(1 + below(255));
                break;
            default: {
                const size_t from = below(bytes.size());
                const size_t length = 1 + below(std::min<size_t>(256, bytes.size() - from));
                const size_t to = below(bytes.size());
                damaged.erase(damaged.begin() + static_cast<long>(to),
                              damaged.begin() + static_cast<long>(std::min(damaged.size(), to + below(64))));
                damaged.insert(damaged.begin() + static_cast<long>(std::min(to, damaged.size())),
                               bytes.begin() + static_cast<long>(from),
                               bytes.begin() + static_cast<long>(from + length));
            }
        }
        const auto result = ProjectFile::openData(damaged, "damaged");
        if (!result.project) {
            EXPECT_FALSE(result.error.empty());
            continue;
        }
        ++opened;
        QMCommon::archiveRootObject(result.project);
    }
    // Flipped bytes inside values leave many projects readable; truncations leave none.
    EXPECT_GT(opened, 0);
    EXPECT_LT(opened, 5000);
}

}  // namespace
}  // namespace qm
