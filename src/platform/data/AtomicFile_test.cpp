#include "platform/data/AtomicFile.h"

#include "base/AsideFile.h"
#include "platform/data/FileAttributes.h"
#include "support/TemporaryDirectory.h"

#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace platform::data {
namespace {

namespace fs = std::filesystem;

std::size_t entriesIn(const fs::path& folder) {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

TEST(AtomicFile, ReplacesTheTargetOfALinkKeepingItsMode) {
    const support::TemporaryDirectory folder;
    const std::string path = folder.write("real/a.txt", "old");
    fs::permissions(path, fs::perms(0600));
    fs::create_symlink(path, folder / "link.txt");
    ASSERT_TRUE(writeFileAtomically(folder / "link.txt", std::string_view("n\0ew", 4)));
    EXPECT_EQ(support::readFile(path), std::string("n\0ew", 4));
    EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));
    EXPECT_TRUE(fs::is_symlink(folder / "link.txt"));
    EXPECT_EQ(entriesIn(folder / "real"), 1u);
}

TEST(AtomicFile, AFailureKeepsTheOldContentsAndLeavesNothingBehind) {
    const support::TemporaryDirectory folder;
    fs::create_directory(folder / "taken");
    EXPECT_FALSE(writeFileAtomically(folder / "taken", "text"));
    const auto missing = writeFileAtomically(folder / "no/such/folder/a.txt", "text");
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().domain, base::posixErrorDomain);
    EXPECT_NE(missing.error().localizedDescription.find("no/such/folder/a.txt"), std::string::npos);
    EXPECT_FALSE(writeFileAtomically("/dev/full/x", "text"));
    EXPECT_EQ(entriesIn(folder.path()), 1u);
}

TEST(AtomicFile, WhatAKilledWriterLeftIsRemovedAndNothingElse) {
    const support::TemporaryDirectory folder;
    const base::Result<base::AsideFile> living = base::AsideFile::create(folder.path().string(), "cannot write");
    ASSERT_TRUE(living);
    const std::string left = folder.write("sub/.velm-1-1.tmp", "half a file");
    const std::string young = folder.write("sub/.velm-1-2.tmp", "just made");
    const std::string locked = folder.write("sub/.velm-1-3.tmp", "written by somebody else");
    const std::string other = folder.write("sub/.velm-1-4.txt", "somebody's own");
    const int writer = open(locked.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(writer, LOCK_EX | LOCK_NB), 0);
    for (const std::string& path : {left, locked, other})
        fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(48));
    ASSERT_TRUE(writeFileAtomically(folder / "sub/a.txt", "whole"));
    close(writer);
    EXPECT_FALSE(fs::exists(left));
    EXPECT_TRUE(fs::exists(young) && fs::exists(locked) && fs::exists(other) && fs::exists(living->path()));
}

TEST(AtomicFile, ReadersNeverMeetHalfAFile) {
    const support::TemporaryDirectory folder;
    const std::string path = folder / "a.bin";
    const std::string ones(100'000, '1');
    const std::string twos(100'000, '2');
    ASSERT_TRUE(writeFileAtomically(path, ones));
    std::thread writer([&] {
        for (int round = 0; round < 20; ++round) {
            EXPECT_TRUE(writeFileAtomically(path, round % 2 ? ones : twos));
        }
    });
    for (int round = 0; round < 100; ++round) {
        const auto content = readFileBytes(path);
        ASSERT_TRUE(content);
        ASSERT_TRUE(*content == ones || *content == twos);
    }
    writer.join();
}

TEST(AtomicFile, ReadsAndReplacesOnlyRegularFiles) {
    const support::TemporaryDirectory folder;
    const std::string path = folder.write("a.txt", "12345");
    EXPECT_EQ(readFile(path)->asText(), "12345");
    EXPECT_EQ(readFile(folder.write("empty", ""))->size(), 0u);
    EXPECT_TRUE(readFile(path, 5));
    EXPECT_EQ(readFile(path, 4).error().code, EFBIG);
    EXPECT_EQ(readFile(folder / "missing").error().code, ENOENT);
    EXPECT_EQ(readFile(folder.path().string()).error().code, EISDIR);
    // A pipe without a writer would block its reader for ever.
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(readFile(folder / "pipe").error().code, EINVAL);
    EXPECT_EQ(writeFileAtomically(folder / "pipe", "x").error().code, EINVAL);
    EXPECT_TRUE(fs::is_fifo(folder / "pipe"));
    EXPECT_EQ(readFile("/dev/zero").error().code, EINVAL);
    EXPECT_FALSE(readFile("/proc/self/status")->empty()) << "a file that gives no size is read to its end";
}

TEST(FileAttributes, TellDatesSizeAndGeneration) {
    const support::TemporaryDirectory folder;
    const base::URL url = base::URL::fileURLWithPath(folder.write("a.txt", "12345"));
    EXPECT_EQ(fileSize(url), 5u);
    const auto firstGeneration = generationIdentifier(url);
    const base::Date before1970{std::chrono::milliseconds(-1'500)};
    ASSERT_TRUE(setDateModified(url, before1970));
    EXPECT_EQ(dateModified(url), before1970);
    EXPECT_NE(generationIdentifier(url), firstGeneration);

    const base::URL missing = base::URL::fileURLWithPath(folder / "missing");
    EXPECT_FALSE(fileSize(missing) || dateModified(missing) || dateCreated(missing) || generationIdentifier(missing));
    EXPECT_FALSE(setDateModified(missing, before1970));
}

} // namespace
} // namespace platform::data
