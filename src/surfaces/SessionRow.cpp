#include "surfaces/SessionRow.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <utility>

#include <fmt/format.h>

#include "support/Text.h"

namespace tessivane {

std::string ageText(Date date, Date now) {
  using std::chrono::duration_cast;
  using std::chrono::minutes;
  const auto age = duration_cast<minutes>(now - date).count();
  constexpr auto hour = 60;
  constexpr auto day = 24 * hour;
  if (age < 1)
    return "now";
  if (age < hour)
    return fmt::format("{}m", age);
  if (age < day)
    return fmt::format("{}h", age / hour);
  return fmt::format("{}d", age / day);
}

std::vector<SessionRow> sessionRows(const std::vector<AgentSession>& sessions, Date now) {
  std::vector<SessionRow> rows;
  rows.reserve(sessions.size());
  for (const AgentSession& session : sessions) {
    if (session.isNoise())
      continue;
    std::string detail = collapsedWhitespace(session.detail);
    // Said by the status already.
    if (detail == label(session.status))
      detail.clear();
    rows.push_back(SessionRow{.id = session.id(),
                              .title = collapsedWhitespace(session.title),
                              .project = collapsedWhitespace(projectName(session.projectPath)),
                              .detail = std::move(detail),
                              .agent = std::string(shortName(session.agent)),
                              .age = ageText(session.activity, now),
                              .status = session.status});
  }
  return rows;
}

std::string summaryText(const std::vector<SessionRow>& rows) {
  struct Part {
    SessionStatus status = SessionStatus::idle;
    std::string_view one = {};
    std::string_view many = {};
  };
  constexpr std::array parts = {
      Part{SessionStatus::needsYou, "needs you", "need you"},
      Part{SessionStatus::working, "working", "working"},
      Part{SessionStatus::yourTurn, "your turn", "your turn"},
  };
  std::string summary;
  for (const Part& part : parts) {
    const auto count = std::ranges::count(rows, part.status, &SessionRow::status);
    if (count == 0)
      continue;
    if (!summary.empty())
      summary += ", ";
    summary += fmt::format("{} {}", count, count == 1 ? part.one : part.many);
  }
  return summary;
}

}  // namespace tessivane
