#include "platform/FileHandle.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <thread>

#include "support/TestEnvironment.h"

namespace qm {
namespace {

std::vector<uint8_t> bytesOf(const std::string& text) { return std::vector<uint8_t>(text.begin(), text.end()); }

std::string textOf(const std::vector<uint8_t>& bytes) { return std::string(bytes.begin(), bytes.end()); }

class FileHandleTest : public ::testing::Test {
protected:
    std::string path(const std::string& name) const { return _temporary.file(name); }

    void writeFile(const std::string& name, const std::string& contents) const {
        std::ofstream(path(name), std::ios::binary) << contents;
    }

    test::TemporaryDirectory _temporary{"file_handle_test"};
    const std::string _directory = _temporary.path();
};

TEST_F(FileHandleTest, OpeningNeedsAnExistingFileUnlessAskedToCreate) {
    EXPECT_EQ(FileHandle::fileHandleForReadingAtPath(path("missing")), nullptr);
    EXPECT_EQ(FileHandle::fileHandleForUpdatingAtPath(path("missing")), nullptr);
    EXPECT_FALSE(std::filesystem::exists(path("missing")));
    EXPECT_EQ(FileHandle::fileHandleForReadingAtPath(_directory), nullptr);

    const auto created = FileHandle::fileHandleForUpdatingAtPath(path("new"), true);
    ASSERT_TRUE(created);
    EXPECT_TRUE(std::filesystem::exists(path("new")));
    EXPECT_EQ(created->seekToEndOfFile(), 0u);

    // Opening an existing file for writing keeps its contents.
    writeFile("kept", "contents");
    ASSERT_TRUE(FileHandle::fileHandleForWritingAtPath(path("kept"), true));
    EXPECT_EQ(std::filesystem::file_size(path("kept")), 8u);
}

TEST_F(FileHandleTest, SequentialReadsAndWritesMoveThePosition) {
    const auto file = FileHandle::fileHandleForUpdatingAtPath(path("data"), true);
    ASSERT_TRUE(file);
    EXPECT_TRUE(file->writeData(bytesOf("hello ")));
    EXPECT_TRUE(file->writeData(bytesOf("world")));
    EXPECT_EQ(file->offsetInFile(), 11u);

    EXPECT_TRUE(file->seekToFileOffset(6));
    EXPECT_EQ(textOf(file->readDataOfLength(3)), "wor");
    // A read past the end gives what there is, then nothing.
    EXPECT_EQ(textOf(file->readDataOfLength(100)), "ld");
    EXPECT_TRUE(file->readDataOfLength(10).empty());

    // Writing over the middle replaces bytes in place.
    EXPECT_TRUE(file->seekToFileOffset(0));
    EXPECT_TRUE(file->writeData(bytesOf("HE")));
    EXPECT_EQ(textOf(file->readAt(0, 100)), "HEllo world");

    // Positioned reads and writes leave the position alone.
    EXPECT_TRUE(file->writeAt(13, bytesOf("XY")));
    EXPECT_EQ(textOf(file->readAt(10, 5)), std::string("d\0\0XY", 5));
    EXPECT_EQ(textOf(file->readDataOfLength(2)), "ll");
}

TEST_F(FileHandleTest, TruncateCutsOrExtendsWithZerosAndMovesThePosition) {
    const auto file = FileHandle::fileHandleForUpdatingAtPath(path("data"), true);
    ASSERT_TRUE(file);
    ASSERT_TRUE(file->writeData(bytesOf("0123456789")));

    EXPECT_TRUE(file->truncateFileAtOffset(4));
    EXPECT_EQ(file->offsetInFile(), 4u);

    EXPECT_TRUE(file->truncateFileAtOffset(4096));
    EXPECT_EQ(file->offsetInFile(), 4096u);
    const auto all = file->readAt(0, 10000);
    ASSERT_EQ(all.size(), 4096u);
    EXPECT_EQ(textOf({all.begin(), all.begin() + 4}), "0123");
    EXPECT_TRUE(std::all_of(all.begin() + 4, all.end(), [](uint8_t b) { return b == 0; }));

    // Appending after the extension lands at its end.
    EXPECT_TRUE(file->writeData(bytesOf("tail")));
    EXPECT_EQ(file->seekToEndOfFile(), 4100u);
}

TEST_F(FileHandleTest, ConcurrentPositionedWritesAndReads) {
    const auto file = FileHandle::fileHandleForUpdatingAtPath(path("data"), true);
    ASSERT_TRUE(file);
    constexpr size_t kBlock = 4096;
    constexpr int kThreads = 4;
    constexpr int kBlocksPerThread = 32;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&file, t] {
            for (int i = 0; i < kBlocksPerThread; ++i) {
                const int block = i * kThreads + t;
                const std::vector<uint8_t> data(kBlock, static_cast<uint8_t>(block));
                EXPECT_TRUE(file->writeAt(static_cast<uint64_t>(block) * kBlock, data));
            }
        });
    }
    for (auto& thread : threads) thread.join();
    for (int block = 0; block < kThreads * kBlocksPerThread; ++block) {
        const auto data = file->readAt(static_cast<uint64_t>(block) * kBlock, kBlock);
        ASSERT_EQ(data.size(), kBlock);
        EXPECT_EQ(std::count(data.begin(), data.end(), static_cast<uint8_t>(block)), static_cast<long>(kBlock)) << block;
    }
}

TEST_F(FileHandleTest, LargeReadsComeBackWhole) {
    std::vector<uint8_t> pattern(3 * (1 << 20) + 123);
    for (size_t i = 0; i < pattern.size(); ++i) pattern[i] = static_cast<uint8_t>(i * 7 + i / 251);
    const auto writer = FileHandle::fileHandleForWritingAtPath(path("big"), true);
    ASSERT_TRUE(writer);
    ASSERT_TRUE(writer->writeData(pattern));
    writer->closeFile();

    const auto reader = FileHandle::fileHandleForReadingAtPath(path("big"));
    ASSERT_TRUE(reader);
    EXPECT_EQ(reader->readDataToEndOfFile(), pattern);
    EXPECT_EQ(reader->readAt(1 << 20, pattern.size()), std::vector<uint8_t>(pattern.begin() + (1 << 20), pattern.end()));
}

TEST_F(FileHandleTest, WrongDirectionAndClosedHandlesFail) {
    writeFile("data", "contents");
    const auto reader = FileHandle::fileHandleForReadingAtPath(path("data"));
    ASSERT_TRUE(reader);
    EXPECT_FALSE(reader->writeData(bytesOf("x")));
    EXPECT_FALSE(reader->truncateFileAtOffset(0));

    EXPECT_TRUE(FileHandle::fileHandleForWritingAtPath(path("data"))->readDataToEndOfFile().empty());

    reader->closeFile();
    EXPECT_TRUE(reader->readAt(0, 4).empty());
    EXPECT_FALSE(reader->seekToFileOffset(0));
    reader->closeFile();

    EXPECT_EQ(textOf(FileHandle::fileHandleForReadingAtPath(path("data"))->readDataToEndOfFile()), "contents");
}

}  // namespace
}  // namespace qm
