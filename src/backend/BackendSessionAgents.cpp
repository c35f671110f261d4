#include "backend/BackendSessionAgents.h"

#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "support/Text.h"

namespace tessivane {

std::optional<Agent> BackendSessionAgents::engine(const AgentSession& session) {
  constexpr std::array<std::pair<std::string_view, Agent>, 3> families = {
      {{"claude", Agent::claude}, {"codex", Agent::codex}, {"gpt", Agent::codex}}};
  if (session.agent != Agent::t3)
    return session.agent;
  // Names of models are ASCII; the rest stays as it is.
  const std::string model = loweredASCII(session.model);
  for (const auto& [name, agent] : families) {
    if (model.find(name) != std::string::npos)
      return agent;
  }
  return std::nullopt;
}

}  // namespace tessivane
