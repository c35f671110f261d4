// Lines of reflogs, whole, odd and broken, and what they create.

#include "git/BackendReflogEntry.h"

#include <gtest/gtest.h>

#include "git/BackendBranchCreation.h"

namespace tessivane {
namespace {

const std::string null(40, '0');
const std::string a(40, 'a');
const std::string wide(64, 'c');
const std::string b = "ABCDEF0123456789abcdef0123456789abcdef01";
const Date when = *dateFromSeconds(1'790'000'000);

const std::string who = " Ann B <ann@example.org> 1790000000 +0200";

TEST(BackendReflogEntryTest, ReadsWhatGitWrites) {
  using Entry = BackendReflogEntry;
  const std::pair<std::string, Entry> rows[] = {
      {a + " " + b + who + "\tcommit: A: b\tc\n", {a, b, when, "commit: A: b\tc"}},
      {null + " " + a + who, {null, a, when, ""}},
      {wide + " " + wide + who + "\t  x \r\n", {wide, wide, when, "x"}},
      {a + " " + b + "  Ann  B   <> 1790000000 -0000\tx", {a, b, when, "x"}},
      {a + " " + b + "  1790000000 +0000\tx", {a, b, when, "x"}},
      {a + " " + b + who + "\tcommit: \xff\xfe.", {a, b, when, "commit: \uFFFD\uFFFD."}}};
  for (const auto& [line, entry] : rows)
    EXPECT_EQ(BackendReflogEntry::parse(line), entry) << line;
}

TEST(BackendReflogEntryTest, RefusesWhatIsNoEntry) {
  const std::string rest = who + "\tcommit: x";
  const std::string both = a + " " + b;
  const std::string lines[] = {"",
                               " ",
                               "\t",
                               a,
                               a + " ",
                               both,
                               both + " ",
                               both + " 1790000000 +0000\tfour pieces",
                               "a " + b + rest,
                               a + "a " + b + rest,
                               a + " g" + b + rest,
                               a + " 000000000000000000000000000000000000000g" + rest,
                               " " + both + rest,
                               a + "  " + b + rest,
                               both + " A <a> 17900000x0 +0000\tx",
                               both + " A <a>  +0000\tx",
                               both + " A <a> 99999999999999999999 +0000\tx",
                               both + " A <a> 999999999999999 +0000\tx",
                               a + "\t" + b + rest};
  for (const std::string& line : lines)
    EXPECT_EQ(BackendReflogEntry::parse(line), std::nullopt) << line;
}

TEST(BackendBranchCreationTest, TellsNewBranchesAndWorktreesFromTheRest) {
  const BackendReflogFile head{.path = "/r/.git/logs/HEAD", .worktree = "/r", .headFile = "h"};
  const BackendReflogFile x{.path = "/x", .worktree = "/r", .branch = "x"};
  const BackendReflogFile y{.path = "/y", .worktree = "/r", .branch = "y/z"};
  const BackendReflogFile tree{
      .path = "/t", .worktree = "/trees/t", .headFile = "x", .isLinked = true};
  const BackendReflogFile lost{.path = "/l", .headFile = "x", .isLinked = true};
  const auto entry =
      [](const std::string& message, int seconds = 0, const std::string& old = null) {
        return BackendReflogEntry{old, a, when + std::chrono::seconds(seconds), message};
      };
  const std::string created = "branch: Created from main";
  const std::string renamed = "Branch: renamed refs/heads/w to refs/heads/x";
  const std::string y0 = "branch:y/z@1790000000";
  const std::string t0 = "worktree:t@1790000000";
  using Pairs = std::vector<BackendReflogPair>;
  const std::tuple<std::string, Pairs, std::vector<std::string>> rows[] = {
      {"branch", {{entry(created), y}}, {y0}},
      {"not its first entry", {{entry(created, 0, b), x}}, {}},
      {"cloned", {{entry("clone: from somewhere"), x}}, {}},
      {"first commit", {{entry("commit (initial): x"), x}, {entry(""), head}}, {}},
      {"renamed", {{entry(created), x}, {entry(renamed, 5, a), x}}, {}},
      {"another renamed", {{entry(created), y}, {entry(renamed, 5, a), x}}, {y0}},
      {"renamed while checked out", {{entry(renamed), head}, {entry(renamed), tree}}, {}},
      {"worktree", {{entry(""), tree}}, {t0}},
      {"worktree nowhere", {{entry(""), lost}}, {}},
      {"with its branch", {{entry(created), x}, {entry("", 10), tree}}, {"worktree:t@1790000010"}},
      {"with its branch, the other way", {{entry(created, 10), x}, {entry(""), tree}}, {t0}},
      {"too long after its branch",
       {{entry("", 11), tree}, {entry(created), x}},
       {"branch:x@1790000000", "worktree:t@1790000011"}},
      {"with another branch", {{entry(""), tree}, {entry(created), y}}, {y0, t0}}};
  for (const auto& [name, pairs, expected] : rows) {
    std::vector<std::string> keys;
    for (const auto& creation : BackendBranchCreation::detect(
             pairs, [](const BackendReflogFile& file) { return file.headFile; }))
      keys.push_back(creation.key());
    EXPECT_EQ(keys, expected) << name;
  }
  const auto made = BackendBranchCreation::detect(
      {{entry(""), tree}}, [](const auto&) { return std::optional<std::string>("q"); });
  ASSERT_EQ(made.size(), 1U);
  EXPECT_EQ(made[0], (BackendBranchCreation{"t", "q", "/trees/t", when}));
  EXPECT_EQ(made[0].seenKey("/r/.git"), "branched:/r/.git:worktree:/trees/t@1790000000");
}

}  // namespace
}  // namespace tessivane
