#pragma once

// A person at the command line of git, in one repository with its linked worktrees: what is done
// there is done by the real git, and what must come of it stands in the ledger.

#include <optional>
#include <string>
#include <vector>

#include "soak/Workshop.h"

namespace tessivane {

class Repository final {
 public:
  /// Makes it below "src" in the home, on GitHub under `slug()`, with a first commit.
  Repository(Workshop& workshop, const std::string& name);

  const std::string& root() const { return root_; }
  const std::string& slug() const { return slug_; }

  void step();
  /// Makes one more commit.
  void finish() { commit({}); }

 private:
  struct Worktree {
    std::string path;
    std::string branch;
    std::string gitDir;  ///< where git keeps its HEAD and logs
  };

  void expect(const Ledger::Event& event);
  void commit(const std::vector<std::string>& arguments);
  void commitAt(const Worktree& place,
                const std::optional<std::string>& branch,
                const std::vector<std::string>& arguments);
  void commitOnNoBranch();
  void commitOfOldDate();
  void branch(bool switchesToIt);
  void addWorktree();
  void removeWorktree();
  void tidyUp();
  Worktree& somewhere();
  bool isAllStored();

  Workshop& workshop_;
  const std::string root_;
  const std::string slug_;
  std::vector<Worktree> worktrees_;    // the main one first
  std::vector<std::string> branches_;  // in no worktree
  std::vector<Token> open_;            // not seen stored so far
};

}  // namespace tessivane
