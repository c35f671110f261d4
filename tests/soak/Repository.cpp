#include "soak/Repository.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <fmt/format.h>

#include "helpers/Command.h"

namespace tessivane {

namespace fs = std::filesystem;

namespace {

// When the first entry of a log was written, in seconds since 1970.
std::string firstDate(const std::string& log) {
  std::ifstream file(log);
  std::string line;
  std::getline(file, line);
  const auto mail = line.find("> ");
  if (mail == std::string::npos)
    throw std::runtime_error("no entry in " + log);
  const auto date = mail + 2;
  return line.substr(date, line.find(' ', date) - date);
}

}  // namespace

Repository::Repository(Workshop& workshop, const std::string& name)
    : workshop_(workshop), root_(workshop.path("src/" + name)), slug_("acme/" + name) {
  fs::create_directories(root_);
  gitOutput(root_, {"init", "--quiet", "--initial-branch=main"});
  gitOutput(root_, {"remote", "add", "origin", "git@github.com:Acme/" + name + ".git"});
  worktrees_.push_back({.path = root_, .branch = "main", .gitDir = root_ + "/.git"});
  commit({});
}

Repository::Worktree& Repository::somewhere() {
  return workshop_.random.chance(50) ? worktrees_.front() : workshop_.pick(worktrees_);
}

bool Repository::isAllStored() {
  std::erase_if(open_, [this](const Token& token) { return workshop_.witness.sees(token); });
  return open_.empty();
}

void Repository::step() {
  switch (workshop_.random.below(15)) {
    case 0:
      return branch(false);
    case 1:
      return branch(true);
    case 2:
      return addWorktree();
    case 3:
      return removeWorktree();
    case 4:
      return tidyUp();
    case 5:
      return commitOfOldDate();
    case 6:
      return commitOnNoBranch();
    case 7:
    case 8:
      return commit({"--amend"});
    default:
      return commit({});
  }
}

void Repository::expect(const Ledger::Event& event) {
  open_.push_back(workshop_.ledger.add(event));
}

void Repository::commit(const std::vector<std::string>& arguments) {
  const Worktree& place = somewhere();
  commitAt(place, place.branch, arguments);
}

void Repository::commitAt(const Worktree& place,
                          const std::optional<std::string>& branch,
                          const std::vector<std::string>& arguments) {
  ++workshop_.counts["commits"];
  const std::string title = workshop_.name("Mend the thing ");
  std::vector<std::string> command = {"commit", "--quiet", "--allow-empty", "-m", title};
  command.insert(command.end(), arguments.begin(), arguments.end());
  gitOutput(place.path, command);
  expect({.kind = "commit",
          .root = place.path,
          .ref = gitOutput(place.path, {"rev-parse", "HEAD"}),
          .title = title,
          .branch = branch});
}

// Which no log of a branch tells.
void Repository::commitOnNoBranch() {
  const Worktree& place = somewhere();
  gitOutput(place.path, {"checkout", "--quiet", "--detach"});
  commitAt(place, std::nullopt, {});
  gitOutput(place.path, {"checkout", "--quiet", place.branch});
}

// A log that was read before counts two days back, and nothing counts that is older.
void Repository::commitOfOldDate() {
  const Worktree& place = somewhere();
  const bool isTooOld = workshop_.random.chance(50);
  if (!isTooOld && !workshop_.witness.offset(place.gitDir + "/logs/HEAD"))
    return;
  ++workshop_.counts["commits of an old date"];
  const std::string title = workshop_.name("Mend the old thing ");
  const Date date = Workshop::now() - std::chrono::hours(isTooOld ? 60 : 20);
  gitOutput(place.path,
            {"commit", "--quiet", "--allow-empty", "-m", title},
            {"GIT_COMMITTER_DATE=" + isoText(date)});
  if (!isTooOld)
    expect({.kind = "commit",
            .root = place.path,
            .ref = gitOutput(place.path, {"rev-parse", "HEAD"}),
            .title = title});
}

void Repository::branch(bool switchesToIt) {
  ++workshop_.counts["branches"];
  const std::string name = workshop_.name("feature/b");
  if (switchesToIt) {
    gitOutput(root_, {"checkout", "--quiet", "-b", name});
    branches_.push_back(worktrees_.front().branch);
    worktrees_.front().branch = name;
  } else {
    gitOutput(root_, {"branch", name});
    branches_.push_back(name);
  }
  const std::string date = firstDate(root_ + "/.git/logs/refs/heads/" + name);
  expect({.kind = "branched", .root = root_, .ref = "branch:" + name + "@" + date, .title = name});
}

// Git writes the log of the branch and then that of the worktree. Whoever looks in between sees a
// new branch first.
void Repository::addWorktree() {
  ++workshop_.counts["worktrees"];
  const std::string name = workshop_.name("tree");
  const std::string branch = "work/" + name;
  const std::string path = root_ + "-" + name;
  gitOutput(root_, {"worktree", "add", "--quiet", "-b", branch, path});
  const std::string title = fs::path(path).filename().string();
  const std::string gitDir = root_ + "/.git/worktrees/" + title;
  worktrees_.push_back({.path = path, .branch = branch, .gitDir = gitDir});
  expect({.kind = "branched",
          .root = path,
          .ref = "worktree:" + title + "@" + firstDate(gitDir + "/logs/HEAD"),
          .title = title,
          .detail = "worktree"});
  const std::string date = firstDate(root_ + "/.git/logs/refs/heads/" + branch);
  for (const std::string& root : {path, root_}) {
    workshop_.ledger.add(Ledger::Event{.kind = "branched",
                                       .root = root,
                                       .ref = fmt::format("branch:{}@{}", branch, date),
                                       .isCertain = false});
  }
}

// A worktree takes its log with it.
void Repository::removeWorktree() {
  if (worktrees_.size() < 2 || !isAllStored())
    return;
  ++workshop_.counts["removed worktrees"];
  gitOutput(root_, {"worktree", "remove", "--force", worktrees_.back().path});
  branches_.push_back(worktrees_.back().branch);
  worktrees_.pop_back();
}

// What changes logs without telling of anything new. What they told must be stored by then.
void Repository::tidyUp() {
  if (!isAllStored())
    return;
  ++workshop_.counts["tidying up in repositories"];
  switch (workshop_.random.below(5)) {
    case 0:
      gitOutput(root_, {"reflog", "expire", "--expire=now", "--all"});
      return;
    case 1:
      gitOutput(root_, {"gc", "--quiet"});
      return;
    case 2:
      gitOutput(root_, {"reset", "--quiet", "--hard", "HEAD"});
      return;
    default:
      break;
  }
  if (branches_.empty() || branches_.back() == "main")
    return;
  if (workshop_.random.chance(50)) {
    gitOutput(root_, {"branch", "-m", branches_.back(), branches_.back() + "-renamed"});
    branches_.back() += "-renamed";
  } else {
    gitOutput(root_, {"branch", "-D", branches_.back()});
    branches_.pop_back();
  }
}

}  // namespace tessivane
