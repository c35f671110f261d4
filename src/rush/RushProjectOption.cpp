#include "rush/RushProjectOption.h"

#include <algorithm>
#include <string_view>
#include <unordered_set>

namespace tessivane {

namespace {

RushProjectOption option(const std::string& path) {
  return {.path = path, .name = std::string(projectName(path))};
}

}  // namespace

std::vector<RushProjectOption> RushProjectOption::list(std::span<const AgentSession> sessions,
                                                       const std::set<std::string>& selected) {
  std::vector<const AgentSession*> relevant;
  for (const AgentSession& session : sessions) {
    if (!session.isNoise())
      relevant.push_back(&session);
  }
  std::ranges::stable_sort(relevant, std::ranges::greater{}, &AgentSession::activity);

  std::vector<RushProjectOption> options;
  std::unordered_set<std::string_view> seen;
  for (const AgentSession* session : relevant) {
    if (seen.insert(session->projectPath).second)
      options.push_back(option(session->projectPath));
  }
  for (const std::string& path : selected) {
    if (!seen.contains(path))
      options.push_back(option(path));
  }
  return options;
}

}  // namespace tessivane
