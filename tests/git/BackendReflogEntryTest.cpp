// Lines of reflogs, whole, odd and broken, and what they create.

#include "git/BackendReflogEntry.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "git/BackendBranchCreation.h"

namespace tessivane {
namespace {

const std::string null(40, '0');
const std::string a(40, 'a');
const std::string wide(64, 'c');
const std::string b = "ABCDEF0123456789abcdef0123456789abcdef01";
const Date when = *dateFromSeconds(1'790'000'000);

// The text with {a}, {b}, {null} and {wide} for hashes and {who} for who and when.
std::string filled(const std::string& text) {
  return fmt::format(fmt::runtime(text),
                     fmt::arg("a", a),
                     fmt::arg("b", b),
                     fmt::arg("null", null),
                     fmt::arg("wide", wide),
                     fmt::arg("who", "Ann B <ann@example.org> 1790000000 +0200"));
}

TEST(BackendReflogEntryTest, ReadsWhatGitWrites) {
  struct Row {
    std::string line = {};
    BackendReflogEntry entry = {};
  };
  for (const Row& row : {
           Row{"{a} {b} {who}\tcommit: A: b\tc\n", {a, b, when, "commit: A: b\tc"}},
           Row{"{null} {a} {who}", {null, a, when, ""}},
           Row{"{wide} {wide} {who}\t  x \r\n", {wide, wide, when, "x"}},
           Row{"{a} {b}  Ann  B   <> 1790000000 -0000\tx", {a, b, when, "x"}},
           Row{"{a} {b}  1790000000 +0000\tx", {a, b, when, "x"}},
           Row{"{a} {b} {who}\tcommit: \xff\xfe.", {a, b, when, "commit: \uFFFD\uFFFD."}},
       })
    EXPECT_EQ(BackendReflogEntry::parse(filled(row.line)), row.entry) << row.line;
}

TEST(BackendReflogEntryTest, RefusesWhatIsNoEntry) {
  for (const std::string line : {
           "",
           " ",
           "\t",
           "{a}",
           "{a} ",
           "{a} {b}",
           "{a} {b} ",
           "{a} {b} 1790000000 +0000\tfour pieces",
           "a {b} {who}\tcommit: x",
           "{a}a {b} {who}\tcommit: x",
           "{a} g{b} {who}\tcommit: x",
           "{a} 000000000000000000000000000000000000000g {who}\tcommit: x",
           " {a} {b} {who}\tcommit: x",
           "{a}  {b} {who}\tcommit: x",
           "{a} {b} A <a> 17900000x0 +0000\tx",
           "{a} {b} A <a>  +0000\tx",
           "{a} {b} A <a> 99999999999999999999 +0000\tx",
           "{a} {b} A <a> 999999999999999 +0000\tx",
           "{a}\t{b} {who}\tcommit: x",
       })
    EXPECT_EQ(BackendReflogEntry::parse(filled(line)), std::nullopt) << line;
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
  struct Row {
    std::string name = {};
    std::vector<BackendReflogPair> pairs = {};
    std::vector<std::string> keys = {};
  };
  for (const Row& row : {
           Row{"branch", {{entry(created), y}}, {"branch:y/z@1790000000"}},
           Row{"not its first entry", {{entry(created, 0, b), x}}, {}},
           Row{"cloned", {{entry("clone: from somewhere"), x}}, {}},
           Row{"first commit", {{entry("commit (initial): x"), x}, {entry(""), head}}, {}},
           Row{"renamed", {{entry(created), x}, {entry(renamed, 5, a), x}}, {}},
           Row{"another renamed",
               {{entry(created), y}, {entry(renamed, 5, a), x}},
               {"branch:y/z@1790000000"}},
           Row{"renamed while checked out", {{entry(renamed), head}, {entry(renamed), tree}}, {}},
           Row{"worktree", {{entry(""), tree}}, {"worktree:t@1790000000"}},
           Row{"worktree nowhere", {{entry(""), lost}}, {}},
           Row{"with its branch",
               {{entry(created), x}, {entry("", 10), tree}},
               {"worktree:t@1790000010"}},
           Row{"with its branch, the other way",
               {{entry(created, 10), x}, {entry(""), tree}},
               {"worktree:t@1790000000"}},
           Row{"too long after its branch",
               {{entry("", 11), tree}, {entry(created), x}},
               {"branch:x@1790000000", "worktree:t@1790000011"}},
           Row{"with another branch",
               {{entry(""), tree}, {entry(created), y}},
               {"branch:y/z@1790000000", "worktree:t@1790000000"}},
       }) {
    std::vector<std::string> keys;
    for (const auto& creation : BackendBranchCreation::detect(
             row.pairs, [](const BackendReflogFile& file) { return file.headFile; }))
      keys.push_back(creation.key());
    EXPECT_EQ(keys, row.keys) << row.name;
  }
  const auto made = BackendBranchCreation::detect(
      {{entry(""), tree}}, [](const auto&) { return std::optional<std::string>("q"); });
  ASSERT_EQ(made.size(), 1U);
  EXPECT_EQ(made[0], (BackendBranchCreation{"t", "q", "/trees/t", when}));
  EXPECT_EQ(made[0].seenKey("/r/.git"), "branched:/r/.git:worktree:/trees/t@1790000000");
}

}  // namespace
}  // namespace tessivane
