// The checks of the fuzz programs on a small corpus: what git writes, with bytes changed, cut out,
// doubled and put elsewhere.

#include <random>

#include <gtest/gtest.h>

#include "fuzz/GitChecks.h"
#include "helpers/ChangedText.h"

namespace tessivane {
namespace {

TEST(GitCorpusTest, HoldsForAnyBytes) {
  const std::string null(40, '0');
  const std::string hash(64, 'a');
  const std::string who = " Ann B <ann@example.org> 1790000000 +0200";
  const std::string reflog = null + " " + hash.substr(24) + who + "\tbranch: Created from HEAD\n" +
                             hash + " " + hash + who + "\tcommit (amend): \u00e4: b\n" + null +
                             " " + null + who + "\n" + null + " " + hash + who +
                             "\tBranch: renamed refs/heads/a to refs/heads/b\n";
  const std::string config =
      "[core]\n\tbare = false\n\tworktree = \"../a b\" ; c\n[remote \"origin\"]\n"
      "\turl = git@github.com:Owner/Repo.git\n\turl = https://github.com/o/r\n";
  const unsigned seed = 20261005;
  std::mt19937 random(seed);
  constexpr std::string_view inserts("\0\t\n \"\\=[\xff\xf0", 10);
  // A violated check prints what it is and aborts.
  for (int i = 0; i < 5000; ++i) {
    fuzz::checkReflog(changedText(reflog, inserts, random));
    fuzz::checkGitConfig(changedText(config, inserts, random));
  }
  EXPECT_EQ(BackendReflogEntry::parseAll(reflog).size(), 4U);
}

}  // namespace
}  // namespace tessivane
