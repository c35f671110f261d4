#include "app/Program.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "app/ActivityDumpMode.h"
#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"
#include "platform/MemoryUserDefaults.h"
#include "platform/SystemClock.h"
#include "platform/linux/AsioMainQueue.h"
#include "support/Paths.h"

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

// The live queues work on threads of their own, so the test's queue runs until they have done it.
TEST(Program, showsWhatHappensInTheHomeDirectory) {
  const std::string line =
      R"({"type":"user","timestamp":")" + isoTextWithMilliseconds(systemNow()) +
      R"(","entrypoint":"cli","cwd":"/code/shed","message":{"role":"user","content":"Go"}})";
  const std::string directory = Paths::home() + "/.claude/projects/s";
  std::filesystem::create_directories(directory);
  std::ofstream(directory + "/11111111-1111-1111-1111-111111111111.jsonl") << line << "\n";
  AsioMainQueue queue;
  MemoryUserDefaults defaults(queue);
  Program program(queue, defaults, {});
  const auto limit = queue.after(Seconds{60}, [&queue] { queue.stop(); });
  const Subscription subscription = program.activity().subscribe([&queue, &program] {
    queue.async([&queue, &program] {
      if (!program.activity().events().empty())
        queue.stop();
    });
  });
  program.activity().start();
  program.store().refresh();
  queue.run();
  ASSERT_EQ(program.activity().events().size(), 1U);
  EXPECT_EQ(program.activity().events()[0].kind, ActivityKind::started);
  EXPECT_TRUE(program.comesToRest(Seconds{60}));
  std::FILE* output = std::tmpfile();
  EXPECT_EQ(runActivityDump(ActivityRange::h1, output, stderr), 0);
  EXPECT_GT(std::ftell(output), 0);
  std::fclose(output);
}

}  // namespace
}  // namespace tessivane
