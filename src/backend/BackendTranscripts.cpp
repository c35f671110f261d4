#include "backend/BackendTranscripts.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "backend/BackendEventRow.h"
#include "backend/BackendFileReader.h"
#include "backend/BackendSessionEvent.h"
#include "support/Paths.h"

namespace tessivane {

namespace {

Date dateOf(const BackendFinding& finding) {
  return std::visit([](const auto& told) { return told.date; }, finding);
}

// Claude Code 2.1 writes "HEAD" where there is no branch.
void noteBranch(const std::string& told,
                const std::string& sessionID,
                BackendTranscripts::Branches& branches) {
  if (told == "HEAD")
    branches.erase(sessionID);
  else
    branches[sessionID] = told;
}

}  // namespace

BackendTranscripts::BackendTranscripts(BackendRepositories& repositories,
                                       std::chrono::seconds backfill)
    : repositories_(repositories), backfill_(backfill) {}

// A thread of T3 Code has the transcript of the agent that it drives. Codex names its rollouts so,
// Claude Code its transcripts by an id alone.
bool BackendTranscripts::isRollout(const AgentSession& session) {
  if (session.agent != Agent::t3)
    return session.agent == Agent::codex;
  return lastPathComponent(*session.transcriptPath).starts_with("rollout-");
}

BackendTranscripts::BackendTranscript BackendTranscripts::follow(const AgentSession& session) {
  BackendTranscript transcript{.session = session};
  if (isRollout(session))
    transcript.codex.emplace();
  else
    transcript.claude.emplace();
  return transcript;
}

// A transcript that several sessions claim is that of the one with the least id, in whatever order
// they are listed.
std::set<std::string> BackendTranscripts::update(const std::vector<AgentSession>& sessions) {
  std::unordered_map<std::string, const AgentSession*> claimed;
  for (const AgentSession& session : sessions) {
    if (!session.transcriptPath)
      continue;
    const auto [place, isNew] = claimed.try_emplace(*session.transcriptPath, &session);
    if (!isNew && session.id() < place->second->id())
      place->second = &session;
  }
  std::erase_if(transcripts_,
                [&claimed](const auto& entry) { return !claimed.contains(entry.first); });
  std::set<std::string> changed;
  for (const auto& [path, session] : claimed) {
    const auto known = transcripts_.find(path);
    if (known == transcripts_.end())
      transcripts_.emplace(path, follow(*session));
    else if (known->second.session != *session)
      known->second.session = *session;
    else
      continue;
    changed.insert(path);
  }
  return changed;
}

std::set<std::string> BackendTranscripts::paths() const {
  std::set<std::string> paths;
  for (const auto& [path, transcript] : transcripts_)
    paths.insert(path);
  return paths;
}

void BackendTranscripts::scan(const std::string& path,
                              const BackendPass& pass,
                              Branches& branches) {
  const auto found = transcripts_.find(path);
  if (found == transcripts_.end())
    return;
  BackendTranscript& transcript = found->second;
  const auto failures = pass.failures();
  const auto cursor = pass.store.cursor(path);
  const Date since = pass.now - (cursor ? BackendEventStore::window : backfill_);
  const auto start = [&](const BackendFileStat& stat) -> std::uint64_t {
    if (stat.modificationDate() < since)
      return static_cast<std::uint64_t>(std::max<std::int64_t>(stat.size, 0));
    return transcript.codex ? BackendFileReader::timestampedOffset(path, since) : 0;
  };
  auto before = transcript.claude;
  std::vector<BackendFinding> findings;
  const auto take = [&findings, since](auto&& told) {
    for (auto& finding : told) {
      if (dateOf(finding) >= since)
        findings.emplace_back(std::move(finding));
    }
  };
  const auto reached =
      BackendFileReader::readAppended(path, cursor, start, [&](std::string_view lines) {
        take(transcript.codex ? transcript.codex->scan(lines, pass.now)
                              : transcript.claude->scan(lines, pass.now));
      });
  if (before)
    before_.insert_or_assign(path, Before{.scanner = *std::move(before), .reached = reached});
  if (transcript.claude && transcript.claude->branch())
    noteBranch(*transcript.claude->branch(), transcript.session.id(), branches);
  for (const BackendFinding& finding : findings)
    apply(finding, transcript.session, branches, pass);
  if (reached && reached != cursor && pass.failures() == failures)
    pass.store.setCursor(*reached, path, pass.now);
}

void BackendTranscripts::settle(BackendEventStore& store, bool stored) {
  for (auto& [path, before] : std::exchange(before_, {})) {
    const auto transcript = transcripts_.find(path);
    if (stored || transcript == transcripts_.end() || store.cursor(path) == before.reached)
      continue;
    transcript->second.claude = std::move(before.scanner);
  }
}

void BackendTranscripts::apply(const BackendFinding& finding,
                               const AgentSession& session,
                               const Branches& branches,
                               const BackendPass& pass) {
  if (const auto* pr = std::get_if<BackendPRFinding>(&finding)) {
    apply(*pr, session, branches, pass);
  } else if (const auto* edit = std::get_if<BackendEditFinding>(&finding)) {
    pass.addEdit({.key = edit->key,
                  .root = session.projectPath,
                  .sessionID = session.id(),
                  .date = edit->date,
                  .paths = edit->paths});
  }
}

void BackendTranscripts::apply(const BackendPRFinding& finding,
                               const AgentSession& session,
                               const Branches& branches,
                               const BackendPass& pass) {
  const std::string& root = session.projectPath;
  const std::string ref = std::to_string(finding.number);
  const auto slug = finding.slug ? finding.slug : repositories_.slug(root);
  // GitHub or an earlier scan was first.
  if (pass.store.hasPullRequest(finding.kind, ref, root, slug))
    return;
  ActivityEvent event = BackendSessionEvent::make(session, finding.kind, finding.date);
  if (finding.title)
    event.title = *finding.title;
  else if (finding.kind == ActivityKind::prMerged)
    event.title = pass.store.prTitle(finding.number, slug, root).value_or(event.title);
  event.id = BackendEventRow::id(event.kind, root, ref);
  event.ref = ref;
  event.detail = slug;
  const auto branch = branches.find(session.id());
  if (branch != branches.end())
    event.branch = branch->second;
  event.firstSeen = pass.firstSeen(event.date);
  pass.insert(event);
}

}  // namespace tessivane
