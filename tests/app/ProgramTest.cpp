#include "app/Program.h"

#include <gtest/gtest.h>

#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"
#include "platform/MemoryUserDefaults.h"

namespace tessivane {
namespace {

TEST(Program, showsInventedWorkOnlyToThoseWhoAskForIt) {
  for (const bool asked : {false, true}) {
    ManualClock clock;
    ManualQueue queue(clock);
    MemoryUserDefaults defaults(queue);
    defaults.set("activity.synthetic", asked);
    Program program(queue, defaults, {});
    program.activity().start();
    queue.advance(Seconds{1});
    EXPECT_EQ(!program.activity().events().empty(), asked);
  }
}

}  // namespace
}  // namespace tessivane
