#include "backend/BackendGHCommand.h"

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

constexpr auto opened = ActivityKind::prOpened;
constexpr auto merged = ActivityKind::prMerged;

using Slug = std::optional<std::string>;

BackendGHCommand create(std::optional<std::string> title = {}, Slug slug = {}) {
  return {.kind = opened, .slug = std::move(slug), .title = std::move(title)};
}
BackendGHCommand merge(std::optional<std::int64_t> number = {}, Slug slug = {}) {
  return {.kind = merged, .number = number, .slug = std::move(slug)};
}

TEST(BackendGHCommandTest, ReadsWhatACommandPromises) {
  struct Row {
    const char* command = "";
    std::optional<BackendGHCommand> expected = {};
  };
  const std::vector<Row> rows = {
      // Where the command stands.
      {"gh pr create", create()},
      {"cd /p && gh  pr\tcreate -t x", create("x")},
      {"(gh pr merge 3 )", merge(3)},
      {"/bin/bash -lc gh pr merge 3", merge(3)},
      {"git push\ngh pr create", create()},
      {"gh pr merge 1; gh pr create", merge(1)},
      {"hugh pr create"},
      {"\"gh pr create\""},
      {"gh pr created"},
      {"gh pr view 3"},
      {""},
      // Titles.
      {"gh pr create --title=\"A \\\"good\\\"\n one\"", create("A \"good\" one")},
      {"gh pr create --title 'It\"s' -t b", create("It\"s")},
      {"gh pr create -t \"$(cat t)\"", create()},
      {"gh pr create -t ' $x'", create()},
      {"gh pr create -t '  '", create()},
      {"gh pr create -t \"never ends", create()},
      {"gh pr create -t \"ends in a backslash\\", create()},
      {"gh pr create -t \"never ends -t 'but this does'", create("but this does")},
      // Repositories.
      {"gh pr create -R https://github.com/Me/Shed.git", create({}, "me/shed")},
      {"gh pr create --repo='Me/Shed'", create({}, "me/shed")},
      {"gh pr create --repo shed", create()},
      // What is merged.
      {"gh pr merge", merge()},
      {"gh pr merge --squash '#12' --delete-branch", merge(12)},
      {"gh pr merge --repo Me/Shed.git 12", merge(12, "me/shed")},
      {"gh pr merge --body 5 -t \"6 of 7\" 12", merge(12)},
      {"gh pr merge -R a/b https://github.com/Me/Shed/pull/9", merge(9, "me/shed")},
      {"gh pr merge windows", merge()},
      {"gh pr merge 12x", merge()},
      {"gh pr merge 99999999999999999999", merge()},
      {"gh pr merge '' 12", merge()},
      {"gh pr merge & echo 12", merge()},
      {"gh pr merge -t", merge()},
      // Words, as a shell splits them.
      {"gh pr merge -b b\\ c 12", merge(12)},
      {"gh pr merge -b 'a \\' 12", merge(12)},
      {"gh pr merge -b \"b \\\" c\"d 12", merge(12)},
      {"gh pr merge -b \"it's\" 12", merge(12)},
      {"gh pr merge -b '' 12", merge(12)},
      {"gh pr merge -b\u3000wide\u00A0\u202812", merge(12)},
      {"gh pr merge -b \xFF\xFE\xE3\x80 12", merge(12)},
      {"gh pr merge 12 \\", merge(12)},
      {"gh pr merge 'open 12", merge()},
      {"gh pr merge 1'2'", merge(12)},
      // Nothing is merged yet.
      {"gh pr merge --auto 12"},
      {"gh pr merge 12 --disable-auto"},
      {"gh pr merge 12 && echo --auto", merge(12)},
      {"gh pr merge 12 --body --auto", merge(12)},
  };
  for (const Row& row : rows)
    EXPECT_TRUE(BackendGHCommand::parse(row.command) == row.expected) << row.command;
}

TEST(BackendGHCommandTest, CutsTitlesByCharacters) {
  std::string umlauts;
  for (int i = 0; i < 201; ++i)
    umlauts += "u\xCC\x88";  // u and its dots are two code points
  const auto command = BackendGHCommand::parse("gh pr create -t '" + umlauts + "'");
  EXPECT_EQ(command->title, umlauts.substr(0, 600));
}

TEST(BackendGHCommandTest, FindsTheLastPullRequestNamed) {
  const std::string url = "https://github.com/";
  EXPECT_EQ(BackendGHCommand::lastPullURL("see " + url + "a/b/pull/1, " + url + "C/d.e/pull/22."),
            (BackendGHCommand::PullURL{.slug = "c/d.e", .number = 22}));
  for (const std::string& none :
       {url + "a/b/issues/1",
        url + "a/pull/1",
        url + "a/b/pull/",
        std::string("https://githubXcom/a/b/pull/1"),
        // The last one counts, also when its number is none.
        url + "a/b/pull/1 https://github.com/a/b/pull/99999999999999999999",
        url + "a/b/pull/\u0661"})
    EXPECT_EQ(BackendGHCommand::lastPullURL(none), std::nullopt) << none;
}

TEST(BackendGHCommandTest, TellsWhatCameOfIt) {
  const std::string url = "https://github.com/Me/Shed/pull/7\n";
  const BackendGHCommand::GitOperation nothing;
  const BackendGHCommand::GitOperation noted{8, "https://github.com/me/barn/pull/8"};
  const BackendGHCommand::GitOperation bare{.number = 8};
  struct Row {
    BackendGHCommand command = {};
    std::string output = {};
    BackendGHCommand::GitOperation gitOperation = {};
    std::int64_t number = 0;  // none: nothing came of it
    Slug slug = {};
  };
  const std::vector<Row> rows = {
      {create("A title"), url, noted, 7, "me/shed"},
      {create(), "", noted, 8, "me/barn"},
      {create(), "", bare},
      {create({}, "a/b"), "", nothing},
      {merge(5), "", nothing, 5},
      {merge(5), url, noted, 5, "me/shed"},
      {merge(5, "a/b"), url, noted, 5, "a/b"},
      {merge(), url, noted, 7, "me/shed"},
      {merge(), "", noted, 8, "me/barn"},
      {merge(), "", bare, 8},
      {merge({}, "a/b"), "Merged.", nothing},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(&row - rows.data());
    const auto finding = row.command.finding(row.output, row.gitOperation, distantPast);
    ASSERT_EQ(finding.has_value(), row.number != 0);
    const BackendPRFinding expected{.kind = row.command.kind,
                                    .number = row.number,
                                    .slug = row.slug,
                                    .title = row.command.title};
    EXPECT_TRUE(!finding || *finding == expected);
  }
}

// Each of these takes some milliseconds when the time grows with the length, minutes or the stack
// when it grows with its square.
TEST(BackendGHCommandTest, GetsThroughAMegabyteOfAnything) {
  const auto repeated = [](const std::string& piece) {
    std::string text;
    while (text.size() < 1'000'000)
      text += piece;
    return text;
  };
  const auto begin = std::chrono::steady_clock::now();
  for (const char* filling :
       {" ", "\"", "-R a b ", "-t=\\\"", "\\", "\x01\x1b\x7f", "https://github.com/a/b/pull/"}) {
    const std::string text = repeated(filling);
    BackendGHCommand::parse("gh pr create -t \"" + text);
    BackendGHCommand::lastPullURL(text);
  }
  BackendGHCommand::parse("gh pr merge \"" + repeated(" \\"));
  std::string words = repeated("-R a ");
  words += repeated("b ");
  EXPECT_EQ(BackendGHCommand::parse("gh pr merge " + words + "12")->number, std::nullopt);
  // They take about one without optimisation; this leaves room for a sanitizer.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(40));
}

}  // namespace
}  // namespace tessivane
