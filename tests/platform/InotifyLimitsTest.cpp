// What becomes of file events where the system lets a user watch no more.

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "helpers/TempHome.h"
#include "platform/ToldChanges.h"
#include "platform/linux/InotifyEvents.h"
#include "platform/linux/SerialQueue.h"

namespace tessivane {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// Runs `body` in a process whose user may have no more than `limit` of something. False when the
// system lets nobody do that.
bool runWithLimit(const std::string& name, int limit, const std::function<void()>& body) {
  constexpr int impossible = 77;
  const pid_t process = ::fork();
  if (process == 0) {
    if (::unshare(CLONE_NEWUSER) != 0 ||
        !(std::ofstream("/proc/sys/user/" + name) << limit << std::flush))
      std::_Exit(impossible);
    body();
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  EXPECT_EQ(::waitpid(process, &status, 0), process);
  EXPECT_TRUE(status == 0 || status == impossible << 8) << status;
  return status == 0;
}

TEST(InotifyLimitsTest, WatchesWhatItMay) {
  const TempHome home;
  for (int i = 0; i < 40; ++i)
    home.makeDirectory("root/" + std::to_string(i));
  const bool isPossible = runWithLimit("max_inotify_watches", 20, [&] {
    std::vector<std::string> problems;
    const FileEvents events =
        inotifyEvents([&](const std::string& sentence) { problems.push_back(sentence); });
    SerialQueue queue("test");
    ToldChanges told;
    // Twice: what was said is not repeated.
    for (int i = 0; i < 2; ++i) {
      const auto handle = events.watch({home.path("root")}, Seconds{0}, queue, told.handler());
      ASSERT_NE(handle, nullptr);
      EXPECT_TRUE(told.waitForPath(home.write("root/file" + std::to_string(i), "")));
      home.makeDirectory("root/new" + std::to_string(i));
      EXPECT_TRUE(told.waitForPath(home.path("root/new" + std::to_string(i))));
    }
    EXPECT_THAT(problems, ElementsAre(HasSubstr("fs.inotify.max_user_watches")));
  });
  if (!isPossible)
    GTEST_SKIP() << "needs a user namespace of its own";
}

TEST(InotifyLimitsTest, GivesBackTheWatchesOfWhatLeaves) {
  const TempHome home;
  home.makeDirectory("root");
  const bool isPossible = runWithLimit("max_inotify_watches", 20, [&] {
    std::vector<std::string> problems;
    const FileEvents events =
        inotifyEvents([&](const std::string& sentence) { problems.push_back(sentence); });
    SerialQueue queue("test");
    ToldChanges told;
    const auto handle = events.watch({home.path("root")}, Seconds{0}, queue, told.handler());
    for (int i = 0; i < 40; ++i) {
      const std::string name = std::to_string(i);
      EXPECT_TRUE(told.waitForPath(home.write("root/" + name + "/file", "")));
      fs::rename(home.path("root/" + name), home.path(name));
    }
    EXPECT_TRUE(told.waitForPath(home.write("root/last", "")));
    EXPECT_THAT(problems, IsEmpty());
  });
  if (!isPossible)
    GTEST_SKIP() << "needs a user namespace of its own";
}

TEST(InotifyLimitsTest, SaysThatNothingCanBeWatched) {
  const TempHome home;
  const bool isPossible = runWithLimit("max_inotify_instances", 0, [&] {
    std::vector<std::string> problems;
    const FileEvents events =
        inotifyEvents([&](const std::string& sentence) { problems.push_back(sentence); });
    SerialQueue queue("test");
    for (int i = 0; i < 2; ++i)
      EXPECT_EQ(events.watch({home.path()}, Seconds{0}, queue, [](const auto&, bool) {}), nullptr);
    EXPECT_THAT(problems, ElementsAre(HasSubstr("fs.inotify.max_user_instances")));
  });
  if (!isPossible)
    GTEST_SKIP() << "needs a user namespace of its own";
}

}  // namespace
}  // namespace tessivane
