#include "surfaces/SessionRow.h"

#include <gtest/gtest.h>

namespace tessivane {
namespace {

using namespace std::chrono_literals;

constexpr Date now{1'700'000'000s};

TEST(SessionRow, AgesInTheLargestWholeUnit) {
  struct Row {
    std::chrono::seconds age = 0s;
    const char* text = "";
  };
  for (const Row& row : {Row{-3h, "now"},
                         Row{59s, "now"},
                         Row{60s, "1m"},
                         Row{59min + 59s, "59m"},
                         Row{1h, "1h"},
                         Row{24h - 1s, "23h"},
                         Row{47h, "1d"}})
    EXPECT_EQ(ageText(now - row.age, now), row.text) << row.age.count();
  EXPECT_FALSE(ageText(distantPast, now).empty());
}

TEST(SessionRow, ShowsOneLineTextsAndNoNoise) {
  AgentSession shown;
  shown.agent = Agent::codex;
  shown.nativeID = "1";
  shown.title = " two\nlines\t";
  shown.projectPath = "/home/demo/shed";
  shown.status = SessionStatus::working;
  shown.detail = "Working";
  shown.activity = now - 5min;
  AgentSession noise = shown;
  noise.kind = SessionKind::subagent;
  AgentSession asking = noise;
  asking.nativeID = "2";
  asking.status = SessionStatus::needsYou;

  const auto rows = sessionRows({shown, noise, asking}, now);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0],
            (SessionRow{.id = "codex:1",
                        .title = "two lines",
                        .project = "shed",
                        .detail = "",  // the status says it
                        .agent = "Codex",
                        .age = "5m",
                        .status = SessionStatus::working}));
  EXPECT_EQ(rows[1].detail, "Working");
  EXPECT_EQ(summaryText(rows), "1 needs you, 1 working");
  EXPECT_EQ(summaryText({rows[1], rows[1]}), "2 need you");
  EXPECT_EQ(summaryText({}), "");
}

}  // namespace
}  // namespace tessivane
