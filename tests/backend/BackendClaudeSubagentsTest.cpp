#include "backend/BackendClaudeSubagents.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "StoreFixture.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

class BackendClaudeSubagentsTest : public testing::Test {
 protected:
  void agent(const std::string& name, const std::string& text, Date modified = noon - 60s) {
    home_.write("p/x/subagents/" + name, text, modified);
  }
  // As it looks a minute after the last file came.
  std::vector<ActivityEvent> look(Date folderDate = noon - 60s) {
    home_.setModified("p/x/subagents", folderDate);
    auto events = reader_.events({session_}, noon);
    std::ranges::sort(events, {}, &ActivityEvent::id);
    return events;
  }

  TempHome home_;
  AgentSession session_{.agent = Agent::claude,
                        .nativeID = "1",
                        .title = "Garden",
                        .projectPath = "/p",
                        .transcriptPath = home_.path("p/x.jsonl")};
  BackendClaudeSubagents reader_;
};

TEST_F(BackendClaudeSubagentsTest, FindsStartAndTitle) {
  struct Row {
    std::string name = {};
    std::string text = {};
    std::optional<std::string> meta = {};
    Date start = noon - 60s;  // the file's own date
    std::string title = "Subagent";
  };
  const std::string stamp = R"("timestamp":"2026-10-05T11:58:30.500Z")";
  const std::string other = R"("toolUse":{"timestamp":"2026-10-05T10:00:00Z"})";
  const std::string filling = "\"text\":\"" + std::string(300'000, 'x') + "\"";
  const std::string described = R"({"agentType":"Explore","description":"Look"})";
  const std::string undescribed = R"({"agentType":"Explore","description":""})";
  const std::string oddly = R"({"description":7,"agentType":"Plan"})";
  const std::string late = R"({"timestamp":"2026-10-05T12:00:01Z"})";
  const Date stamped = noon - 89s - 500ms;
  const std::vector<Row> rows = {
      {"agent-a", "{" + stamp + "}\n{}", described, stamped, "Look"},
      {"agent-b", "{" + other + "," + stamp + "}\n", undescribed, stamped, "Explore"},
      {"agent-c", "{}\n{" + stamp + "}", oddly, stamped, "Plan"},
      {"agent-d", "{" + filling + "," + stamp + "}", R"({"description":"cut off)"},
      {"agent-e", "{" + stamp + "," + filling + "}", "[]", stamped},
      {"agent-f", R"({"timestamp":"soon"})", ""},
      {"agent-g"},
      {"agent-h", std::string(5000, '\0') + "\xff{" + stamp, std::nullopt, stamped},
      {"agent-i", late, std::nullopt, noon}};
  for (const Row& row : rows) {
    agent(row.name + ".jsonl", row.text);
    if (row.meta)
      agent(row.name + ".meta.json", *row.meta);
  }
  const auto events = look();
  ASSERT_EQ(events.size(), rows.size());
  for (std::size_t i = 0; i < rows.size(); ++i) {
    SCOPED_TRACE(rows[i].name);
    EXPECT_EQ(events[i],
              (ActivityEvent{.id = "started:/p:claude:1/" + rows[i].name,
                             .kind = ActivityKind::started,
                             .date = rows[i].start,
                             .projectRoot = "/p",
                             .projectName = "p",
                             .sessionID = "claude:1",
                             .sessionTitle = "Garden",
                             .owner = Agent::claude,
                             .engine = Agent::claude,
                             .ref = "claude:1/" + rows[i].name,
                             .title = rows[i].title,
                             .detail = "subagent",
                             .firstSeen = noon}));
  }
}

TEST_F(BackendClaudeSubagentsTest, LooksOnlyWhereSomethingCameOrWent) {
  EXPECT_TRUE(reader_.events({session_}, noon).empty());  // no folder
  agent("agent-a.jsonl", "");
  agent("other-b.jsonl", "");
  EXPECT_EQ(look().size(), 1U);
  // Some file systems tell of a name that came by the folder's size too, so this one only changes.
  fs::rename(home_.path("p/x/subagents/other-b.jsonl"), home_.path("p/x/subagents/agent-b.jsonl"));
  EXPECT_TRUE(look().empty());  // the folder's date says that nothing came
  EXPECT_EQ(look(noon - 59s).size(), 1U);
  // Within a tick of the file clock another may come unseen, so the folder is listed again.
  EXPECT_TRUE(look(noon).empty());
  agent("agent-c.jsonl", "");
  EXPECT_EQ(look(noon).size(), 1U);
}

TEST_F(BackendClaudeSubagentsTest, LooksAgainWhereItCouldNotLook) {
  agent("agent-a.jsonl", "");
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit none{.rlim_cur = 0, .rlim_max = limit.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &none);
  const auto events = look();
  ::setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(look().size(), 1U);
}

TEST_F(BackendClaudeSubagentsTest, PassesOverWhatIsNoFreshAgentFile) {
  agent("agent-old.jsonl", "", noon - 48h - 1s);
  agent("agent-begun-long-ago.jsonl", R"({"timestamp":"2026-10-03T11:59:59Z"})");
  agent("agent-a.json", "");
  agent("other.jsonl", "");
  home_.makeDirectory("p/x/subagents/agent-directory.jsonl");
  ASSERT_EQ(::mkfifo(home_.path("p/x/subagents/agent-fifo.jsonl").c_str(), 0600), 0);
  EXPECT_TRUE(look().empty());
  agent("agent-good.jsonl", "");
  for (const std::string path : {"", "x", "p/x", "p/x.json"}) {
    session_.transcriptPath = home_.path(path);
    EXPECT_TRUE(look(noon - 50s).empty());
  }
  session_.transcriptPath = home_.path("p/x.jsonl");
  session_.agent = Agent::codex;
  EXPECT_TRUE(look(noon - 50s).empty());
  session_.agent = Agent::claude;
  EXPECT_EQ(look(noon - 50s).size(), 1U);
}

}  // namespace
}  // namespace tessivane
