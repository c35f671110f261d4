#include "support/Files.h"

#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "helpers/TempHome.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

TEST(FilesTest, WhatIsNoRegularFileGivesNothingAndIsNotTouched) {
  const TempHome home;
  home.makeDirectory("directory");
  ASSERT_EQ(::mkfifo(home.path("fifo").c_str(), 0600), 0);
  ASSERT_EQ(::mknod(home.path("socket").c_str(), S_IFSOCK | 0600, 0), 0);
  fs::create_symlink("missing", home.path("dangling"));
  fs::create_symlink("loop", home.path("loop"));
  // Whoever waits at the other end of a FIFO must not even see it opened.
  const int watch = ::inotify_init1(IN_NONBLOCK);
  ASSERT_GE(::inotify_add_watch(watch, home.path("fifo").c_str(), IN_OPEN), 0);
  const std::string before = home.listing();
  for (const auto* name : {"directory", "fifo", "socket", "dangling", "loop", "fifo/below"}) {
    const std::string path = home.path(name);
    EXPECT_EQ(fileExists(path), fs::exists(fs::symlink_status(path)) && !fs::is_symlink(path));
    EXPECT_EQ(fileStamp(path), std::nullopt) << name;
    EXPECT_EQ(modificationDate(path), std::nullopt) << name;
    EXPECT_FALSE(RegularFile::open(path)) << name;
    EXPECT_EQ(readWholeFile(path, 100), std::nullopt) << name;
    EXPECT_TRUE(directoryEntries(path).empty()) << name;
  }
  EXPECT_EQ(home.listing(), before);
  std::string event(256, '\0');
  EXPECT_EQ(::read(watch, event.data(), event.size()), -1) << "the FIFO was opened";
  ::close(watch);
}

TEST(FilesTest, AStampChangesWithTheFile) {
  const TempHome home;
  const Date date = Date{} - 1500ms;  // before 1970, and not on a second
  const std::string path = home.write("file", "0123456789", date);
  fs::create_symlink("file", home.path("link"));
  const auto stamp = fileStamp(path);
  EXPECT_EQ(fileStamp(home.path("link")), stamp);
  EXPECT_EQ(modificationDate(path), date);
  home.setModified("file", date + 1us);
  EXPECT_NE(fileStamp(path), stamp);
  home.setModified("file", date);
  EXPECT_EQ(fileStamp(path), stamp);
  home.write("file", "0123456789x", date);
  EXPECT_NE(fileStamp(path), stamp);
  home.write("other", "0123456789", date);
  fs::rename(home.path("other"), path);
  EXPECT_NE(fileStamp(path), stamp);
}

TEST(FilesTest, ReadsWithinItsLimits) {
  const TempHome home;
  const std::string contents("01234\0\n89", 9);
  const std::string path = home.write("file", contents);
  EXPECT_EQ(readWholeFile(path, 9), contents);
  EXPECT_EQ(readWholeFile(path, 8), std::nullopt);
  const std::size_t descriptors = directoryEntries("/proc/self/fd").size();
  {
    auto file = RegularFile::open(path);
    auto other = RegularFile::open(home.write("empty", ""));
    *other = std::move(*file);
    EXPECT_EQ(other->stamp(), fileStamp(path));
    std::string bytes(9, '.');
    EXPECT_EQ(other->read(bytes.data(), 4, 3), 4U);
    EXPECT_EQ(bytes, contents.substr(3, 4) + ".....");
    EXPECT_EQ(other->read(bytes.data(), 9, 7), 2U);
    EXPECT_EQ(other->read(bytes.data(), 9, -1), std::nullopt);
  }
  EXPECT_EQ(directoryEntries("/proc/self/fd").size(), descriptors);
  EXPECT_EQ(directoryEntries(fs::path(home.write("d/..\xFF", "")).parent_path()).at(0), "..\xFF");
}

}  // namespace
}  // namespace tessivane
