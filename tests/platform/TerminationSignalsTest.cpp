#include "platform/linux/TerminationSignals.h"

#include <unistd.h>

#include <csignal>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/AsioMainQueue.h"

namespace tessivane {
namespace {

TEST(TerminationSignalsTest, BecomeTasksOfTheQueue) {
  const std::vector<int> expected = {SIGTERM, SIGINT, SIGHUP, SIGTERM};
  AsioMainQueue queue;
  std::vector<int> told;
  const TerminationSignals signals(queue, [&](int signal) {
    told.push_back(signal);
    if (told.size() == expected.size())
      queue.stop();
    else
      ::kill(::getpid(), expected[told.size()]);
  });
  const TaskHandle bound = queue.after(std::chrono::minutes{1}, [&] { queue.stop(); });
  ::kill(::getpid(), expected.front());
  queue.run();
  EXPECT_EQ(told, expected);
}

TEST(TerminationSignalsTest, EndTheProcessAgainOnceNobodyListens) {
  const auto raiseUnheard = [](int signal) {
    AsioMainQueue queue;
    {
      const TerminationSignals signals(queue, [](int) {});
    }
    ::raise(signal);
  };
  for (const int signal : {SIGTERM, SIGINT, SIGHUP})
    EXPECT_EXIT(raiseUnheard(signal), testing::KilledBySignal(signal), "");
}

}  // namespace
}  // namespace tessivane
