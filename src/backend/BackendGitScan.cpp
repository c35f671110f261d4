#include "backend/BackendGitScan.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "backend/BackendFileReader.h"
#include "backend/BackendSessionEvent.h"
#include "git/BackendGitLayout.h"
#include "support/Paths.h"

namespace tessivane {

namespace {

// Ceilings for logs that no person and no agent writes. What lies above costs a commit the name of
// its branch, or a creation its event.
constexpr std::size_t maxKnownBranches = 100'000;
constexpr std::size_t maxPairs = 10'000;

// The sessions in the repository's working trees.
std::vector<BackendGitSession> sessionsIn(const std::string& dir,
                                          const BackendGitScan::Sessions& sessions,
                                          ProjectRootResolver& roots) {
  std::vector<BackendGitSession> found;
  for (const AgentSession& session : sessions.list) {
    const std::string& place = workingDirectory(session);
    if (place.empty() || roots.gitCommonDir(place) != dir)
      continue;
    found.push_back({.session = session, .tree = roots.root(place)});
    const auto told = sessions.branches.find(session.id());
    if (told != sessions.branches.end())
      found.back().ownBranch = told->second;
  }
  return found;
}

void readTreesBranches(std::vector<BackendGitSession>& sessions) {
  std::unordered_map<std::string, std::optional<std::string>> known;
  for (BackendGitSession& session : sessions) {
    if (session.ownBranch)
      continue;
    const auto [place, isNew] = known.try_emplace(session.tree);
    if (const auto own = isNew ? BackendGitLayout::gitDir(session.tree) : std::nullopt)
      place->second = BackendGitLayout::currentBranch(joinedPath(*own, "HEAD"));
    session.treesBranch = place->second;
  }
}

}  // namespace

// Whether an entry may create a branch or a worktree, or tell that a log creates none. The first
// commit on a branch without a past comes from nothing too; a worktree is new with it only when the
// log begins with it ("git worktree add --orphan", git 2.42).
bool mayCreate(const BackendReflogEntry& entry,
               const BackendReflogFile& file,
               bool beginsLog,
               Date since) {
  if (file.branch && entry.isRename())
    return true;
  if (!entry.isFromNull() || entry.date < since)
    return false;
  return file.branch || (file.isLinked && (beginsLog || !BackendGitEvents::isCommit(entry)));
}

// One scan of one repository. What most scans don't need is found out when it is asked for.
struct BackendGitScan::Run {
  const std::string& dir;
  Pass pass;
  Date now;
  OnNew onNew;
  const Sessions& allSessions;
  ProjectRootResolver& roots;
  const BackendDatabase& db;
  std::uint64_t failuresBefore;
  std::optional<std::vector<BackendGitSession>> foundSessions = {};
  std::unordered_map<std::string, std::optional<std::string>> branchesOfHeads = {};
  std::vector<BackendReflogPair> pairs = {};
  std::vector<std::pair<std::string, BackendFileCursor>> cursors = {};

  // True while every statement of the scan has gone through.
  bool isWhole() const { return db.failures() == failuresBefore; }

  std::vector<BackendGitSession>& sessions() {
    if (!foundSessions)
      foundSessions = sessionsIn(dir, allSessions, roots);
    return *foundSessions;
  }

  std::optional<std::string> headBranch(const BackendReflogFile& file) {
    if (!file.headFile)
      return std::nullopt;
    const auto [place, isNew] = branchesOfHeads.try_emplace(*file.headFile);
    if (isNew)
      place->second = BackendGitLayout::currentBranch(*file.headFile);
    return place->second;
  }

  // The working tree of a repository that does not say itself where it is ("git init
  // --separate-git-dir"): a session's, if its ".git" file leads here.
  std::optional<std::string> treeOfASession() {
    for (const BackendGitSession& session : sessions()) {
      if (BackendGitLayout::gitDir(session.tree) == dir)
        return session.tree;
    }
    return std::nullopt;
  }

  // Where an event belongs that has neither a session nor a worktree of its own.
  std::optional<std::string> home(const BackendBranchCreation& creation) {
    auto tree =
        creation.branch ? BackendGitLayout::worktreeOnBranch(dir, *creation.branch) : std::nullopt;
    if (!tree)
      tree = BackendGitLayout::ownWorktree(dir);
    return tree ? tree : treeOfASession();
  }
};

BackendGitScan::BackendGitScan(BackendEventStore& store,
                               ProjectRootResolver& roots,
                               Clock clock,
                               std::chrono::seconds backfill)
    : store_(store), roots_(roots), clock_(std::move(clock)), backfill_(backfill) {}

bool BackendGitScan::scan(const std::string& dir,
                          Pass pass,
                          const Sessions& sessions,
                          OnNew onNew) {
  Run run{.dir = dir,
          .pass = pass,
          .now = clock_(),
          .onNew = onNew,
          .allSessions = sessions,
          .roots = roots_,
          .db = store_.db(),
          .failuresBefore = store_.db().failures()};
  auto files = BackendGitLayout::reflogFiles(dir);
  // Branches first: they tell where the commits in the logs of HEADs were made.
  std::stable_partition(
      files.begin(), files.end(), [](const auto& file) { return file.branch.has_value(); });
  for (const BackendReflogFile& file : files)
    readLog(run, file);
  tellCreations(run);
  if (run.isWhole()) {
    for (const auto& [path, cursor] : run.cursors)
      store_.setCursor(cursor, path, run.now);
  }
  return run.isWhole();
}

void BackendGitScan::readLog(Run& run, const BackendReflogFile& file) {
  // While git moves a worktree, its name cannot be read. What happened in it waits until it can.
  if (file.isLinked && !file.worktree)
    return;
  const auto cursor = store_.cursor(file.path);
  bool beginsLog = !cursor;
  const Date since = run.now - (cursor ? BackendEventStore::window : backfill_);
  const auto start = [since](const FileStamp& stamp) -> std::uint64_t {
    return stamp.modificationDate() < since ? static_cast<std::uint64_t>(stamp.size) : 0;
  };
  const auto visit = [&](const BackendReflogEntry& entry) {
    const bool mayMatter = mayCreate(
        entry, file, std::exchange(beginsLog, false), run.now - BackendEventStore::window);
    if (mayMatter && run.pairs.size() < maxPairs)
      run.pairs.push_back({.entry = entry, .file = file});
    if (entry.date < since || !BackendGitEvents::isCommit(entry))
      return;
    if (file.branch)
      noteBranch(entry.newHash, *file.branch);
    else
      tellCommit(run, file, entry);
  };
  const auto reached =
      BackendFileReader::readAppended(file.path, cursor, start, [&visit](std::string_view lines) {
        BackendReflogEntry::visit(lines, visit);
      });
  if (reached && reached != cursor)
    run.cursors.emplace_back(file.path, *reached);
}

void BackendGitScan::noteBranch(const std::string& hash, const std::string& branch) {
  if (branchBySHA_.size() >= maxKnownBranches)
    branchBySHA_.clear();
  branchBySHA_.insert_or_assign(hash, branch);
}

void BackendGitScan::tellCommit(Run& run,
                                const BackendReflogFile& file,
                                const BackendReflogEntry& entry) {
  const std::string seenKey = "commit:" + entry.newHash;
  if (store_.isSeen(seenKey))
    return;
  const auto branch = branchBySHA_.find(entry.newHash);
  const BackendGitCommit commit{
      .hash = entry.newHash,
      .date = entry.date,
      .message = entry.message,
      .tree = file.worktree ? file.worktree : run.treeOfASession(),
      .branch = branch != branchBySHA_.end() ? branch->second : run.headBranch(file)};
  const auto* session = BackendGitEvents::sessionOf(commit, run.sessions());
  tell(run, seenKey, BackendGitEvents::event(commit, session));
}

void BackendGitScan::tellCreations(Run& run) {
  const auto creations = BackendBranchCreation::detect(
      run.pairs, [&run](const BackendReflogFile& file) { return run.headBranch(file); });
  bool branchesAreKnown = false;
  for (const BackendBranchCreation& creation : creations) {
    const std::string seenKey = creation.seenKey(run.dir);
    if (store_.isSeen(seenKey))
      continue;
    if (!std::exchange(branchesAreKnown, true))
      readTreesBranches(run.sessions());
    const auto* session = BackendGitEvents::sessionOf(creation, run.sessions());
    tell(run, seenKey, BackendGitEvents::event(creation, session, run.home(creation)));
  }
}

// The event is stored before its key, as what has its key stored is not looked at again. After a
// failure nothing is stored, for the next scan to find all of it new. An event that belongs nowhere
// is dropped.
void BackendGitScan::tell(Run& run,
                          const std::string& seenKey,
                          std::optional<ActivityEvent> event) {
  if (!event || !run.isWhole())
    return;
  if (run.pass == Pass::live)
    event->firstSeen = BackendSessionEvent::firstSeen(event->date, run.now);
  const bool isNew = store_.insert(*event);
  if (!run.isWhole())
    return;
  store_.markSeen(seenKey, event->date);
  if (isNew)
    run.onNew(*event);
}

}  // namespace tessivane
