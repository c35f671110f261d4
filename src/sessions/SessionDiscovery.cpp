#include "sessions/SessionDiscovery.h"

#include <iterator>
#include <optional>
#include <utility>

#include "support/Paths.h"

namespace tessivane {

namespace {

std::set<std::string> ownersOf(const AgentSession& session,
                               const SessionDiscovery::Owners& owners) {
  std::set<std::string> threads;
  const auto add = [&](const std::string& key) {
    const auto found = owners.find(key);
    if (found != owners.end())
      threads.insert(found->second.begin(), found->second.end());
  };
  for (const std::string& key : session.sourceIDs)
    add(key);
  add(session.id());
  return threads;
}

bool startedByT3(const AgentSession& session) {
  return session.launcher == "T3 Code" || session.launcher == "t3code_desktop";
}

void showAsT3(AgentSession& session) {
  session.nativeID = session.id();
  session.model = std::string(shortName(session.agent)) + " / " + session.model;
  session.detail += " · T3 origin; thread mapping unavailable";
  session.openURL.reset();
  session.agent = Agent::t3;
}

// The transcript of each thread's most recently active native session.
class ClaimedTranscripts final {
 public:
  void claim(const std::string& thread, const AgentSession& session) {
    if (!session.transcriptPath)
      return;
    const auto [entry, isNew] =
        claimed_.try_emplace(thread, session.activity, *session.transcriptPath);
    if (!isNew && entry->second.first < session.activity) {
      entry->second = {session.activity, *session.transcriptPath};
    }
  }

  const std::string* transcript(const std::string& thread) const {
    const auto entry = claimed_.find(thread);
    return entry == claimed_.end() ? nullptr : &entry->second.second;
  }

 private:
  std::unordered_map<std::string, std::pair<Date, std::string>> claimed_;
};

}  // namespace

SessionDiscovery::SessionDiscovery(Options options)
    : report_(std::move(options.report)),
      roots_(options.home),
      t3_({joinedPath(options.home, ".t3/userdata/statev2.sqlite"),
           joinedPath(options.home, ".t3/userdata/state.sqlite")},
          options.now),
      claude_({.sessions = {joinedPath(options.home,
                                       "Library/Application Support/Claude/claude-code-sessions"),
                            joinedPath(options.configDirectory, "Claude/claude-code-sessions")},
               .projects = joinedPath(options.home, ".claude/projects")},
              options.now),
      codex_(joinedPath(options.home, ".codex"), std::nullopt, options.now) {}

std::vector<AgentSession> SessionDiscovery::sessions(Date since) {
  const MutexLock guard(lock_);
  // T3 Code first: its pass tells which native sessions its threads drive.
  auto t3 = t3_.sessions(since, roots_);
  if (t3_.diagnostic() && report_)
    report_("Tessivane: " + *t3_.diagnostic());
  auto native = claude_.sessions(since, roots_);
  auto codex = codex_.sessions(since, roots_);
  std::move(codex.begin(), codex.end(), std::back_inserter(native));
  return reconcile(std::move(native), std::move(t3), t3_.owners());
}

std::map<Agent, std::string> SessionDiscovery::problems() {
  const MutexLock guard(lock_);
  std::map<Agent, std::string> problems;
  if (codex_.lastError())
    problems[Agent::codex] = *codex_.lastError();
  if (t3_.diagnostic())
    problems[Agent::t3] = *t3_.diagnostic();
  return problems;
}

std::vector<AgentSession> SessionDiscovery::reconcile(std::vector<AgentSession> native,
                                                      std::vector<AgentSession> t3,
                                                      const Owners& owners) {
  std::vector<AgentSession> result;
  result.reserve(native.size() + t3.size());
  ClaimedTranscripts claimed;
  for (AgentSession& session : native) {
    const auto threads = ownersOf(session, owners);
    if (threads.size() == 1) {
      claimed.claim(*threads.begin(), session);
      continue;
    }
    if (threads.size() > 1) {
      session.detail += " · T3 ownership uncertain: multiple thread mappings";
    } else if (startedByT3(session)) {
      showAsT3(session);
    }
    result.push_back(std::move(session));
  }
  for (AgentSession& session : t3) {
    const std::string* transcript = claimed.transcript(session.nativeID);
    if (!session.transcriptPath && transcript != nullptr)
      session.transcriptPath = *transcript;
    result.push_back(std::move(session));
  }
  return result;
}

}  // namespace tessivane
