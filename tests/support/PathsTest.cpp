#include "support/Paths.h"

#include <cstdlib>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

TEST(PathsTest, HomeIsAbsoluteWhateverTheEnvironmentHolds) {
  for (const auto* bad : {"", "home/ann", "~"})
    EXPECT_EQ(homeDirectory(bad, "/home/account/"), "/home/account");
  for (const auto* good : {"/home/ann", "/home/ann//"})
    EXPECT_EQ(homeDirectory(good, "/home/account"), "/home/ann");
  EXPECT_EQ(homeDirectory(std::nullopt, "/home/account"), "/home/account");
  EXPECT_EQ(homeDirectory(std::nullopt, "relative"), "/");
  EXPECT_EQ(homeDirectory("//", "/home/account"), "/");
}

TEST(PathsTest, TheConfigDirectoryIsAbsolute) {
  ::setenv("XDG_CONFIG_HOME", "/etc/own/", 1);  // NOLINT(concurrency-mt-unsafe)
  EXPECT_EQ(Paths::configDirectory(), "/etc/own");
  ::setenv("XDG_CONFIG_HOME", "own", 1);  // NOLINT(concurrency-mt-unsafe)
  EXPECT_EQ(Paths::configDirectory(), joinedPath(Paths::home(), ".config"));
}

TEST(PathsTest, TakesPathsApartAndTogether) {
  EXPECT_EQ(joinedPath("/", "a"), "/a");
  EXPECT_EQ(joinedPath("/a", "b/c"), "/a/b/c");
  for (const auto* path : {"/a/b", "//a/b/", "/a/b//", "/a/./b/.", "/a/b/c/..", "/../a/b"})
    EXPECT_EQ(standardizedPath(path), "/a/b") << path;
  EXPECT_EQ(standardizedPath("/..") + standardizedPath(""), "/");
  for (const auto* path : {"/a/..b", "..b", "/..b//"})
    EXPECT_EQ(lastPathComponent(path), "..b") << path;
  EXPECT_EQ(lastPathComponent("//"), "/");
  EXPECT_EQ(lastPathComponent(""), "");
}

}  // namespace
}  // namespace tessivane
