// The checks of the fuzz programs on a small corpus: what git writes, with bytes changed, cut out,
// doubled and put elsewhere.

#include <random>

#include <gtest/gtest.h>

#include "fuzz/GitChecks.h"

namespace tessivane {
namespace {

std::string changed(std::string text, std::mt19937& random) {
  const auto below = [&random](std::size_t limit) { return random() % (limit + 1); };
  for (auto changes = 1 + below(3); changes > 0; --changes) {
    const auto at = below(text.size());
    switch (below(3)) {
      case 0:
        text.insert(at, 1, "\0\t\n \"\\=[\xff\xf0"[below(9)]);
        break;
      case 1:
        text.erase(at, below(12));
        break;
      case 2:
        text.insert(at, text.substr(below(text.size()), below(60)));
        break;
      default:
        if (at < text.size())
          text[at] = static_cast<char>(below(255));
    }
  }
  return text;
}

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
  // A violated check prints what it is and aborts.
  for (int i = 0; i < 5000; ++i) {
    fuzz::checkReflog(changed(reflog, random));
    fuzz::checkGitConfig(changed(config, random));
  }
  EXPECT_EQ(BackendReflogEntry::parseAll(reflog).size(), 4U);
}

}  // namespace
}  // namespace tessivane
