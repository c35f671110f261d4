#include "rush/RushFilter.h"

#include <gtest/gtest.h>

#include "SampleSession.h"

namespace tessivane {
namespace {

using Window = RushFilter::Window;
using ProjectMode = RushFilter::ProjectMode;

TEST(RushFilter, letsThroughWhatIsRecentEnough) {
  struct Row {
    Window window;
    const char* zone;
    const char* now;
    const char* earliest;
  };
  for (const Row& row : std::initializer_list<Row>{
           {Window::hour, "UTC", "2026-10-05T00:30:00Z", "2026-10-04T23:30:00Z"},
           {Window::fourHours, "UTC", "2026-10-05T00:30:00Z", "2026-10-04T20:30:00Z"},
           {Window::today, "UTC", "2026-10-05T00:00:00Z", "2026-10-05T00:00:00Z"},
           {Window::today, "UTC", "2026-10-05T23:59:59.999Z", "2026-10-05T00:00:00Z"},
           {Window::today, "Asia/Tokyo", "2026-10-05T14:59:59Z", "2026-10-04T15:00:00Z"},
           // The clocks were put forward in the morning; another day had no midnight.
           {Window::today, "America/New_York", "2026-03-08T16:00:00Z", "2026-03-08T05:00:00Z"},
           {Window::today, "America/Sao_Paulo", "2018-11-04T12:00:00Z", "2018-11-04T03:00:00Z"},
       }) {
    const RushFilter filter{.window = row.window};
    const auto matches = [&, now = *isoDate(row.now)](Date activity) {
      AgentSession session = sample("a");
      session.activity = activity;
      return filter.matches(session, now, Calendar(row.zone));
    };
    const Date earliest = *isoDate(row.earliest);
    EXPECT_TRUE(matches(earliest)) << row.now << " " << row.zone;
    EXPECT_FALSE(matches(earliest - std::chrono::microseconds(1))) << row.now << " " << row.zone;
    EXPECT_TRUE(matches(*isoDate(row.now) + std::chrono::hours(1)));
    EXPECT_TRUE(
        (RushFilter{.window = Window::all}).matches(AgentSession{}, earliest, Calendar("")));
  }
}

TEST(RushFilter, letsThroughWhomThePersonWants) {
  const AgentSession request = sample("a");
  const AgentSession turn = sample("b", SessionStatus::yourTurn);
  struct Row {
    RushFilter filter;
    bool passesRequest = false;
    bool passesTurn = false;
  };
  for (const Row& row : std::initializer_list<Row>{
           {{}, true, true},
           {{.needsYouOnly = true}, true, false},
           {{.hiddenAgents = {"codex", "t3", "Claude"}}, true, true},
           {{.hiddenAgents = {"claude"}}, false, false},
           {{.projectMode = ProjectMode::all, .projects = {"/a"}}, true, true},
           {{.projectMode = ProjectMode::only, .projects = {"/a"}}, true, false},
           {{.projectMode = ProjectMode::only}, false, false},
           {{.projectMode = ProjectMode::except, .projects = {"/a"}}, false, true},
           {{.projectMode = ProjectMode::except}, true, true},
       }) {
    const std::string filter = *row.filter.encoded();
    EXPECT_EQ(row.filter.matches(request, noon, Calendar("UTC")), row.passesRequest) << filter;
    EXPECT_EQ(row.filter.matches(turn, noon, Calendar("UTC")), row.passesTurn) << filter;
    EXPECT_EQ(RushFilter::decoded(filter), row.filter);
  }
}

TEST(RushFilter, isStoredAsJSON) {
  const RushFilter filter{.window = Window::all,
                          .projectMode = ProjectMode::except,
                          .projects = {"/ü", "/a \"b\""},
                          .hiddenAgents = {"t3"},
                          .needsYouOnly = true};
  const std::string text = R"({"hiddenAgents":["t3"],"needsYouOnly":true,"projectMode":"except",)"
                           R"("projects":["/a \"b\"","/ü"],"window":"all"})";
  EXPECT_EQ(filter.encoded(), text);
  EXPECT_EQ(RushFilter::decoded(text), filter);
  EXPECT_EQ(RushFilter{}.encoded(),
            R"({"hiddenAgents":[],"needsYouOnly":false,"projectMode":"all",)"
            R"("projects":[],"window":"fourHours"})");
  for (const Window window : RushFilter::windows)
    EXPECT_EQ(RushFilter::decoded(*RushFilter{.window = window}.encoded())->window, window);
  EXPECT_EQ((RushFilter{.projects = {"/\xff"}}).encoded(), std::nullopt);

  // Each row breaks one thing in the stored text.
  for (const auto& [part, replacement] : std::initializer_list<std::pair<const char*, const char*>>{
           {R"("needsYouOnly":true,)", ""},
           {R"("hiddenAgents":["t3"],)", ""},
           {R"("projectMode":"except",)", ""},
           {R"(,"window":"all")", ""},
           {R"("projects":)", R"("Projects":)"},
           {R"("all")", R"("All")"},
           {R"("all")", "3"},
           {R"("except")", "null"},
           {"true", "1"},
           {R"(["t3"])", R"("t3")"},
           {R"(["t3"])", R"(["t3",1])"},
           {R"("/ü")", "null"},
           {R"("/ü")", "\"/\xff\""},
           {"}", ""},
           {text.c_str(), "[]"},
       }) {
    std::string broken = text;
    broken.replace(broken.find(part), std::string_view(part).size(), replacement);
    EXPECT_EQ(RushFilter::decoded(broken), std::nullopt) << broken;
  }
  // One that a later program wrote is of use.
  EXPECT_EQ(RushFilter::decoded(R"({"later":[1],)" + text.substr(1)), filter);
}

}  // namespace
}  // namespace tessivane
