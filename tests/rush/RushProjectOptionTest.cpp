#include "rush/RushProjectOption.h"

#include <gtest/gtest.h>

#include "SampleSession.h"

namespace tessivane {
namespace {

AgentSession in(const std::string& path,
                int age,
                SessionKind kind = SessionKind::session,
                SessionStatus status = SessionStatus::idle) {
  AgentSession session = sample("x", status, Seconds(age));
  session.projectPath = path;
  session.kind = kind;
  return session;
}

TEST(RushProjectOption, listsTheLatestFirstAndLosesNoneThatIsSelected) {
  const std::vector<AgentSession> sessions = {
      in("/b/old", 90),
      in("/a/new", 50),
      in("/b/old", 10),
      in("", 30),
      in("/noise", 1, SessionKind::subagent, SessionStatus::yourTurn),
      in("/job/asks", 70, SessionKind::automation, SessionStatus::needsYou),
      in("/", 60),
  };
  EXPECT_EQ(RushProjectOption::list(sessions, {"/z/gone", "/a/new", "/a/gone/"}),
            (std::vector<RushProjectOption>{{"/b/old", "old"},
                                            {"", "~"},
                                            {"/a/new", "new"},
                                            {"/", "/"},
                                            {"/job/asks", "asks"},
                                            {"/a/gone/", "gone"},
                                            {"/z/gone", "gone"}}));
  EXPECT_EQ(RushProjectOption::list({}, {""}), (std::vector<RushProjectOption>{{"", "~"}}));
}

}  // namespace
}  // namespace tessivane
