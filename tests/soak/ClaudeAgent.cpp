#include <algorithm>
#include <filesystem>
#include <fstream>
#include <utility>

#include "soak/Agents.h"

namespace tessivane {

namespace fs = std::filesystem;

namespace {

// After that a result that nothing has troubled must be stored.
constexpr std::chrono::seconds surely{8};

constexpr std::size_t hugeLine = std::size_t{5} << 20;

}  // namespace

ClaudeAgent::ClaudeAgent(Workshop& workshop, std::string root, std::string slug)
    : workshop_(workshop),
      root_(std::move(root)),
      slug_(std::move(slug)),
      lines_{.sessionID = workshop.random.uuid(), .cwd = root_},
      transcript_(workshop,
                  workshop.path(".claude/projects/" + fs::path(root_).filename().string() + "/" +
                                lines_.sessionID + ".jsonl")) {
  transcript_.append({.lines = lines_.prompt("Do it", Workshop::now()), .isKept = true});
  workshop_.ledger.addSession(sessionID(), root_);
}

void ClaudeAgent::step(std::vector<std::unique_ptr<ClaudeAgent>>& others) {
  if (!transcript_.isReady())
    return;
  if (open_ && workshop_.random.chance(20))
    return splitCommand();
  switch (workshop_.random.below(20)) {
    case 0:
      return transcript_.append(opened(false));
    case 1:
      return transcript_.append(merged());
    case 2:
      return transcript_.append(opened(true));
    case 3:
      return transcript_.append(nothing());
    case 4:
    case 5:
      return transcript_.append(noise());
    case 6:
    case 7:
      return splitCommand();
    case 8:
      return retell(others);
    case 9:
    case 10:
      return rewrite();
    case 11:
      return spawnSubagent();
    case 12:
      return writeOften();
    case 13:
    case 14:
      ++workshop_.counts["torn lines"];
      return transcript_.appendTorn(edit());
    default:
      return transcript_.append(edit());
  }
}

void ClaudeAgent::finish() {
  transcript_.finish();
  if (transcript_.isReady())
    transcript_.append(edit());
}

Ledger::Edit ClaudeAgent::tell(const std::string& id, Date date) {
  const std::string key = "native:" + id;
  transcript_.append({.lines = lines_.edit(id, root_ + "/src/file.cpp", date), .tokens = {key}});
  return {.key = key, .root = root_, .sessionID = sessionID(), .date = date};
}

ClaudeAgent::Record ClaudeAgent::edit() {
  ++workshop_.counts["edits of Claude Code"];
  const std::string id = workshop_.name("toolu_");
  const Date date = Workshop::now();
  const Token token = workshop_.ledger.add(
      Ledger::Edit{.key = "native:" + id, .root = root_, .sessionID = sessionID(), .date = date});
  return {.lines = lines_.edit(id, root_ + "/src/file.cpp", date), .tokens = {token}};
}

Token ClaudeAgent::expect(Ledger::Event event) {
  event.root = root_;
  event.detail = slug_;
  return workshop_.ledger.add(event);
}

// By a command that goes on in the background, or at once.
ClaudeAgent::Record ClaudeAgent::opened(bool inBackground) {
  ++workshop_.counts["pull requests"];
  const std::string id = workshop_.name("toolu_");
  const std::string name = workshop_.name("Add the thing ");
  const std::int64_t number = workshop_.number();
  const std::string url = pullRequestURL(slug_, number);
  const Date date = Workshop::now();
  const Token token = expect({.kind = "prOpened", .ref = std::to_string(number), .title = name});
  if (!inBackground)
    return {.lines = lines_.command(id, "git push && gh pr create --title '" + name + "'", date) +
                     lines_.result(id, url + "\n", date),
            .tokens = {token}};
  const std::string output = workshop_.home.directory + "/outputs/" + id + ".output";
  fs::create_directories(fs::path(output).parent_path());
  std::ofstream(output) << "Creating\n" << url << "\n";
  return {.lines = lines_.command(id, "gh pr create --title \"" + name + "\" --fill", date) +
                   lines_.sentToBackground(id, output, date) +
                   lines_.notification(id, output, date),
          .tokens = {token}};
}

ClaudeAgent::Record ClaudeAgent::merged() {
  ++workshop_.counts["pull requests"];
  const std::string id = workshop_.name("toolu_");
  const std::string number = std::to_string(workshop_.number());
  const Date date = Workshop::now();
  const Token token = expect({.kind = "prMerged", .ref = number});
  return {.lines = lines_.command(id, "gh pr merge " + number + " --squash", date) +
                   lines_.result(id, "Merged.", date),
          .tokens = {token}};
}

// Commands of which nothing comes.
ClaudeAgent::Record ClaudeAgent::nothing() {
  ++workshop_.counts["commands that fail"];
  const std::string id = workshop_.name("toolu_");
  const std::string number = std::to_string(workshop_.number());
  const std::string url = pullRequestURL(slug_, workshop_.number());
  const Date date = Workshop::now();
  switch (workshop_.random.below(4)) {
    case 0:
      return {lines_.command(id, "gh pr create --fill", date) +
              lines_.failure(id, "a pull request already exists: " + url, date)};
    case 1:
      return {lines_.command(id, "gh pr create --fill --dry-run", date) +
              lines_.result(id, "Would have created it", date)};
    case 2:
      return {lines_.command(id, "gh pr merge --auto " + number, date) +
              lines_.result(id, "Will be merged", date)};
    default:
      return {lines_.command(id, "gh pr view " + number, date) + lines_.result(id, url, date)};
  }
}

ClaudeAgent::Record ClaudeAgent::noise() {
  ++workshop_.counts["other lines"];
  const Date date = Workshop::now();
  switch (workshop_.random.below(7)) {
    case 0:
      return {lines_.prompt("Please run gh pr merge 5 and use \"Edit\"", date)};
    case 1:
      return {"{\"type\":\"assistant\",\"message\":{\"content\":[{\"name\":\"Edit\"\n"};
    case 2:
      return {"\n\xFF\xFE gh pr create \n"};
    case 3: {
      const std::string copy = lines_.edit(workshop_.name("never_"), "/x", date);
      return {"{\"type\":\"api-request-blob\"," + copy.substr(1)};
    }
    case 4:
      if (workshop_.random.chance(20))
        return {lines_.answer(std::string(hugeLine, 'x') + " gh pr create", date)};
      return {lines_.answer(std::string(100'000, 'x'), date)};
    default:
      return {lines_.answer("Done.", date)};
  }
}

// Many small writes within moments.
void ClaudeAgent::writeOften() {
  for (std::size_t count = 5 + workshop_.random.below(20); count > 0; --count)
    transcript_.append(edit());
}

void ClaudeAgent::rewrite() {
  Record record = edit();
  if (workshop_.random.chance(50) && transcript_.replace(record))
    ++workshop_.counts["replaced transcripts"];
  else if (transcript_.cutShort(record))
    ++workshop_.counts["transcripts cut short"];
  else
    transcript_.append(std::move(record));
}

// First the command alone, and its result some time later.
void ClaudeAgent::splitCommand() {
  const Date date = Workshop::now();
  if (!open_) {
    open_ = OpenCommand{.id = workshop_.name("toolu_"),
                        .number = workshop_.number(),
                        .generation = workshop_.generation};
    transcript_.append(
        {.lines = lines_.command(open_->id, "gh pr create --fill", date), .isKept = true});
  } else if (open_->token.empty()) {
    ++workshop_.counts["pull requests told late"];
    open_->token = workshop_.ledger.add(Ledger::Event{.kind = "prOpened",
                                                      .root = root_,
                                                      .ref = std::to_string(open_->number),
                                                      .isCertain = false});
    open_->told = std::chrono::steady_clock::now();
    transcript_.append(
        {.lines = lines_.result(open_->id, pullRequestURL(slug_, open_->number), date),
         .isKept = true});
  }
}

// A scanner remembers a command only as long as the program runs. So its result is certain to be
// understood once it was written long enough ago without a restart since the command.
void ClaudeAgent::review() {
  if (!open_ || open_->token.empty())
    return;
  const auto calm = std::chrono::steady_clock::now() - std::max(open_->told, workshop_.calmSince);
  if (open_->generation == workshop_.generation && calm < surely)
    return;
  if (open_->generation == workshop_.generation) {
    ++workshop_.counts["pull requests told late, for certain"];
    workshop_.ledger.makeCertain(open_->token);
  }
  open_.reset();
}

// As a resumed session does: its transcript begins with lines of another one.
void ClaudeAgent::retell(std::vector<std::unique_ptr<ClaudeAgent>>& others) {
  ClaudeAgent& other = *workshop_.pick(others);
  const Record* told = other.root_ == root_ ? other.transcript_.someRecord() : nullptr;
  if (told == nullptr)
    return;
  ++workshop_.counts["lines told again"];
  transcript_.append({.lines = std::string(told->lines)});
}

void ClaudeAgent::spawnSubagent() {
  ++workshop_.counts["subagents"];
  const std::string path = transcript_.path();
  const std::string name = workshop_.name("agent-");
  const std::string folder = path.substr(0, path.rfind('.')) + "/subagents/";
  fs::create_directories(folder);
  const std::string description = workshop_.name("Look into it ");
  std::ofstream(folder + name + ".meta.json") << R"({"description":")" << description << "\"}";
  workshop_.ledger.add(
      Ledger::Event{.kind = "started", .root = root_, .ref = sessionID() + "/" + name});
  // Edits of subagents are nobody's: only the transcripts of sessions are followed.
  std::ofstream(folder + name + ".jsonl")
      << lines_.prompt("Look", Workshop::now())
      << lines_.edit(workshop_.name("never_"), root_ + "/y", Workshop::now());
}

}  // namespace tessivane
