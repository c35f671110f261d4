#include "backend/BackendGHCommand.h"

#include <chrono>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessivane {
namespace {

using testing::ElementsAreArray;

constexpr auto opened = ActivityKind::prOpened;
constexpr auto merged = ActivityKind::prMerged;

struct CommandRow {
  const char* command = "";
  std::optional<BackendGHCommand> expected = {};
};

TEST(BackendGHCommandTest, ReadsWhatACommandPromises) {
  const std::vector<CommandRow> rows = {
      // Where the command stands.
      {"gh pr create", BackendGHCommand{.kind = opened}},
      {"cd /p && gh  pr\tcreate -t x", BackendGHCommand{.kind = opened, .title = "x"}},
      {"(gh pr merge 3 )", BackendGHCommand{.kind = merged, .number = 3}},
      {"/bin/bash -lc gh pr merge 3", BackendGHCommand{.kind = merged, .number = 3}},
      {"git push\ngh pr create", BackendGHCommand{.kind = opened}},
      {"gh pr merge 1; gh pr create", BackendGHCommand{.kind = merged, .number = 1}},
      {"hugh pr create", std::nullopt},
      {"\"gh pr create\"", std::nullopt},
      {"gh pr created", std::nullopt},
      {"gh pr view 3", std::nullopt},
      {"", std::nullopt},
      // Titles.
      {"gh pr create --title=\"A \\\"good\\\"\n one\"",
       BackendGHCommand{.title = "A \"good\" one"}},
      {"gh pr create --title 'It\"s' -t b", BackendGHCommand{.title = "It\"s"}},
      {"gh pr create -t \"$(cat t)\"", BackendGHCommand{}},
      {"gh pr create -t ' $x'", BackendGHCommand{}},
      {"gh pr create -t '  '", BackendGHCommand{}},
      {"gh pr create -t \"never ends", BackendGHCommand{}},
      {"gh pr create -t \"ends in a backslash\\", BackendGHCommand{}},
      {"gh pr create -t \"never ends -t 'but this does'",
       BackendGHCommand{.title = "but this does"}},
      // Repositories.
      {"gh pr create -R https://github.com/Me/Shed.git", BackendGHCommand{.slug = "me/shed"}},
      {"gh pr create --repo='Me/Shed'", BackendGHCommand{.slug = "me/shed"}},
      {"gh pr create --repo shed", BackendGHCommand{}},
      // What is merged.
      {"gh pr merge", BackendGHCommand{.kind = merged}},
      {"gh pr merge --squash '#12' --delete-branch",
       BackendGHCommand{.kind = merged, .number = 12}},
      {"gh pr merge --repo Me/Shed.git 12",
       BackendGHCommand{.kind = merged, .number = 12, .slug = "me/shed"}},
      {"gh pr merge --body 5 -t \"6 of 7\" 12", BackendGHCommand{.kind = merged, .number = 12}},
      {"gh pr merge -R a/b https://github.com/Me/Shed/pull/9",
       BackendGHCommand{.kind = merged, .number = 9, .slug = "me/shed"}},
      {"gh pr merge windows", BackendGHCommand{.kind = merged}},
      {"gh pr merge 12x", BackendGHCommand{.kind = merged}},
      {"gh pr merge 99999999999999999999", BackendGHCommand{.kind = merged}},
      {"gh pr merge '' 12", BackendGHCommand{.kind = merged}},
      {"gh pr merge & echo 12", BackendGHCommand{.kind = merged}},
      {"gh pr merge -t", BackendGHCommand{.kind = merged}},
      // Nothing is merged yet.
      {"gh pr merge --auto 12", std::nullopt},
      {"gh pr merge 12 --disable-auto", std::nullopt},
      {"gh pr merge 12 && echo --auto", BackendGHCommand{.kind = merged, .number = 12}},
      {"gh pr merge 12 --body --auto", BackendGHCommand{.kind = merged, .number = 12}},
  };
  for (const CommandRow& row : rows)
    EXPECT_TRUE(BackendGHCommand::parse(row.command) == row.expected) << row.command;
}

TEST(BackendGHCommandTest, CutsTitlesByCharacters) {
  std::string umlauts;
  for (int i = 0; i < 201; ++i)
    umlauts += "u\xCC\x88";  // u and its dots are two code points
  const auto command = BackendGHCommand::parse("gh pr create -t '" + umlauts + "'");
  EXPECT_EQ(command->title, umlauts.substr(0, 600));
}

TEST(BackendGHCommandTest, SplitsWordsAsAShellDoes) {
  struct Row {
    const char* text = "";
    std::vector<std::string> words = {};
  };
  const std::vector<Row> rows = {
      {"", {}},
      {" \t\n ", {}},
      {"a  b\\ c", {"a", "b c"}},
      {"'a \\' \"b \\\" c\"d", {"a \\", "b \" cd"}},
      {"'' \"\"x", {"", "x"}},
      {"\"it's\" 'say \"so\"'", {"it's", "say \"so\""}},
      {"open 'quote  here", {"open", "quote  here"}},
      {"ends with \\", {"ends", "with"}},
      {"wide\u3000blank\u00A0and\u2028line", {"wide", "blank", "and", "line"}},
      {"\xFF\xFE \xE3\x80", {"\xFF\xFE", "\xE3\x80"}},
  };
  for (const Row& row : rows) {
    EXPECT_THAT(BackendGHCommand::shellWords(row.text), ElementsAreArray(row.words)) << row.text;
  }
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
  const BackendGHCommand::GitOperation noted{.number = 8,
                                             .url = "https://github.com/me/barn/pull/8"};
  const BackendGHCommand::GitOperation bare{.number = 8};
  struct Row {
    BackendGHCommand command = {};
    std::string output = {};
    BackendGHCommand::GitOperation gitOperation = {};
    std::optional<BackendPRFinding> expected = {};
  };
  const auto pr = [](ActivityKind kind, std::int64_t number, const char* slug = nullptr) {
    return BackendPRFinding{.kind = kind,
                            .number = number,
                            .slug = slug ? std::optional<std::string>(slug) : std::nullopt};
  };
  const std::vector<Row> rows = {
      {{.kind = opened}, url, noted, pr(opened, 7, "me/shed")},
      {{.kind = opened}, "", noted, pr(opened, 8, "me/barn")},
      {{.kind = opened}, "", bare, std::nullopt},
      {{.kind = opened, .slug = "a/b"}, "", nothing, std::nullopt},
      {{.kind = merged, .number = 5}, "", nothing, pr(merged, 5)},
      {{.kind = merged, .number = 5}, url, noted, pr(merged, 5, "me/shed")},
      {{.kind = merged, .number = 5, .slug = "a/b"}, url, noted, pr(merged, 5, "a/b")},
      {{.kind = merged}, url, noted, pr(merged, 7, "me/shed")},
      {{.kind = merged}, "", noted, pr(merged, 8, "me/barn")},
      {{.kind = merged}, "", bare, pr(merged, 8)},
      {{.kind = merged, .slug = "a/b"}, "Merged.", nothing, std::nullopt},
  };
  for (const Row& row : rows) {
    EXPECT_TRUE(row.command.finding(row.output, row.gitOperation, distantPast) == row.expected)
        << &row - rows.data();
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
