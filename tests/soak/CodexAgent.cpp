#include <utility>

#include <fmt/format.h>

#include "soak/Agents.h"

namespace tessivane {

CodexAgent::CodexAgent(Workshop& workshop,
                       CodexDatabase& database,
                       std::string root,
                       std::string slug)
    : workshop_(workshop),
      database_(database),
      root_(std::move(root)),
      slug_(std::move(slug)),
      lines_{.threadID = workshop.name("thread-"), .cwd = root_},
      transcript_(
          workshop,
          workshop.path(".codex/sessions/2026/10/05/rollout-" + lines_.threadID + ".jsonl")) {
  const Date date = Workshop::now();
  transcript_.append({.lines = lines_.opening(date) + lines_.turnBegins(date), .isKept = true});
  database_.insert({.id = lines_.threadID,
                    .rolloutPath = transcript_.path(),
                    .recency = date,
                    .title = "Do it",
                    .cwd = root_,
                    .threadSource = "user",
                    .originator = "codex-tui"});
  workshop_.ledger.addSession("codex:" + lines_.threadID, root_);
}

void CodexAgent::step() {
  if (!transcript_.isReady())
    return;
  switch (workshop_.random.below(12)) {
    case 0:
    case 1:
      return transcript_.append(command());
    case 2:
      return transcript_.append(
          {.lines = lines_.turnEnds(Workshop::now()) + lines_.turnBegins(Workshop::now())});
    case 3:
      return transcript_.appendTorn(edit());
    case 4: {
      Record record = edit();
      if (transcript_.replace(record))
        ++workshop_.counts["replaced rollouts"];
      else
        transcript_.append(std::move(record));
      return;
    }
    case 5:
      return database_.execute(fmt::format(
          "update threads set title = '{}', updated_at_ms = updated_at_ms + 1 where id = '{}'",
          workshop_.name("Do it "),
          lines_.threadID));
    default:
      return transcript_.append(edit());
  }
}

void CodexAgent::finish() {
  transcript_.finish();
  if (transcript_.isReady())
    transcript_.append(edit());
}

CodexAgent::Record CodexAgent::edit() {
  ++workshop_.counts["edits of Codex"];
  const std::string id = workshop_.name("call_");
  const Date date = Workshop::now();
  std::vector<std::string> paths;
  for (std::size_t count = 1 + workshop_.random.below(4); count > 0; --count)
    paths.push_back(root_ + "/src/" + std::to_string(count));
  const Token token = workshop_.ledger.add(Ledger::Edit{.key = "native:" + id,
                                                        .root = root_,
                                                        .sessionID = "codex:" + lines_.threadID,
                                                        .date = date,
                                                        .files = std::ssize(paths)});
  return {.lines = lines_.edit(id, paths, date), .tokens = {token}};
}

CodexAgent::Record CodexAgent::command() {
  const Date date = Workshop::now();
  const std::int64_t number = workshop_.number();
  const std::string url = pullRequestURL(slug_, number);
  if (workshop_.random.chance(30))
    return {.lines = lines_.command("gh pr create --fill", url, 1, date)};
  ++workshop_.counts["pull requests"];
  const bool isMerge = workshop_.random.chance(50);
  const Token token = workshop_.ledger.add(Ledger::Event{.kind = isMerge ? "prMerged" : "prOpened",
                                                         .root = root_,
                                                         .ref = std::to_string(number),
                                                         .detail = slug_});
  const std::string command =
      isMerge ? "gh pr merge " + std::to_string(number) : std::string("gh pr create --fill");
  return {.lines = lines_.command(command, url, 0, date), .tokens = {token}};
}

}  // namespace tessivane
