#include "platform/linux/SingleInstance.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <optional>
#include <thread>

#include <gtest/gtest.h>

#include "helpers/TempHome.h"
#include "platform/linux/AsioMainQueue.h"

namespace tessivane {
namespace {

using Role = SingleInstance::Role;

TEST(SingleInstance, theSecondHandsOverToTheFirst) {
  const TempHome home;
  AsioMainQueue queue;
  int reopened = 0;
  std::optional<SingleInstance> first(std::in_place, home.path("new/dir"), queue, [&] {
    ++reopened;
    queue.stop();
  });
  EXPECT_EQ(first->role(), Role::first);
  struct stat status {};
  ASSERT_EQ(::stat(home.path("new/dir").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0700U);
  EXPECT_EQ(SingleInstance(home.path("new/dir"), queue, [] {}).role(), Role::handedOver);
  queue.run();
  EXPECT_EQ(reopened, 1);
  EXPECT_EQ(SingleInstance(home.path("other"), queue, [] {}).role(), Role::first);
  first.reset();
  EXPECT_EQ(SingleInstance(home.path("new/dir"), queue, [] {}).role(), Role::first);
}

TEST(SingleInstance, theNextWaitsForOneThatIsAboutToEnd) {
  const TempHome home;
  AsioMainQueue queue;
  std::optional<SingleInstance> first(std::in_place, home.path(), queue, [] {});
  first->stopListening();
  std::thread ending([&first] {
    std::this_thread::sleep_for(std::chrono::milliseconds{50});
    first.reset();
  });
  EXPECT_EQ(SingleInstance(home.path(), queue, {}).role(), Role::first);
  ending.join();
}

TEST(SingleInstance, oneWithoutAWindowSaysSo) {
  const TempHome home;
  AsioMainQueue queue;
  const SingleInstance first(home.path(), queue, {});
  EXPECT_EQ(SingleInstance(home.path(), queue, [] {}).role(), Role::behindOther);
}

TEST(SingleInstance, oneThatWasKilledLeavesNothingInTheWay) {
  const TempHome home;
  const auto dieAsTheFirst = [&home] {
    AsioMainQueue queue;
    const SingleInstance first(home.path(), queue, [] {});
    ::_exit(first.role() == Role::first ? 7 : 1);
  };
  EXPECT_EXIT(dieAsTheFirst(), testing::ExitedWithCode(7), "");
  AsioMainQueue queue;
  const SingleInstance next(home.path(), queue, [&] { queue.stop(); });
  EXPECT_EQ(next.role(), Role::first);
  EXPECT_EQ(SingleInstance(home.path(), queue, [] {}).role(), Role::handedOver);
}

TEST(SingleInstance, aPlaceThatCannotBeClaimedStopsNobody) {
  const TempHome home;
  AsioMainQueue queue;
  home.write("file", "");
  EXPECT_EQ(SingleInstance(home.path("file/dir"), queue, [] {}).role(), Role::first);
  const std::string deep = home.path(std::string(120, 'd'));
  EXPECT_EQ(SingleInstance(deep, queue, [] {}).role(), Role::first);
}

}  // namespace
}  // namespace tessivane
