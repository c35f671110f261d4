#include "git/BackendBranchCreation.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <tuple>
#include <unordered_set>

#include "support/Paths.h"

namespace tessivane {

namespace {

// How far apart the two entries of "git worktree add -b" may be dated.
constexpr std::chrono::seconds togetherness{10};

std::string atSeconds(std::string text, Date date) {
  const auto age = date.time_since_epoch();
  text += '@';
  text += std::to_string(std::chrono::duration_cast<std::chrono::seconds>(age).count());
  return text;
}

bool madeTogether(const BackendBranchCreation& branch, const BackendBranchCreation& worktree) {
  return worktree.branch == branch.branch && branch.date - worktree.date <= togetherness &&
         worktree.date - branch.date <= togetherness;
}

}  // namespace

std::vector<BackendBranchCreation> BackendBranchCreation::detect(
    const std::vector<BackendReflogPair>& pairs, BranchOf branchOf) {
  std::unordered_set<std::string_view> renamed;
  for (const auto& [entry, file] : pairs) {
    if (entry.isRename())
      renamed.insert(file.path);
  }
  std::vector<BackendBranchCreation> branches;
  std::vector<BackendBranchCreation> creations;
  for (const auto& [entry, file] : pairs) {
    if (!entry.isFromNull())
      continue;
    if (file.branch) {
      if (entry.message.starts_with("branch: Created from") && !renamed.contains(file.path))
        branches.push_back({.name = *file.branch, .branch = file.branch, .date = entry.date});
    } else if (file.isLinked && file.worktree && !entry.isRename()) {
      creations.push_back({.name = std::string(lastPathComponent(*file.worktree)),
                           .branch = branchOf(file),
                           .worktree = file.worktree,
                           .date = entry.date});
    }
  }
  std::erase_if(branches, [&creations](const BackendBranchCreation& made) {
    return std::ranges::any_of(
        creations, [&made](const auto& creation) { return madeTogether(made, creation); });
  });
  std::ranges::move(branches, std::back_inserter(creations));
  std::ranges::sort(creations, [](const auto& a, const auto& b) {
    return a.date != b.date ? a.date < b.date : a.key() < b.key();
  });
  return creations;
}

std::string BackendBranchCreation::key() const {
  return atSeconds((worktree ? "worktree:" : "branch:") + name, date);
}

std::string BackendBranchCreation::seenKey(std::string_view commonDir) const {
  std::string text = "branched:";
  text += commonDir;
  text += worktree ? ":worktree:" + *worktree : ":branch:" + name;
  return atSeconds(std::move(text), date);
}

}  // namespace tessivane
