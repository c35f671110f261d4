#include "backend/BackendFileReader.h"

#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "helpers/TempHome.h"

namespace tessivane {
namespace {

namespace fs = std::filesystem;
using Cursor = std::optional<BackendFileCursor>;

constexpr std::size_t maxLine = BackendFileReader::maxLine;

class BackendFileReaderTest : public testing::Test {
 protected:
  /// One reading. Without a cursor it begins at `initial`, and at 0 in a file that took the place
  /// of the first. What is handed over is kept in `read_`.
  Cursor read(const Cursor& cursor, std::uint64_t initial = 0) {
    bool asked = false;
    return BackendFileReader::readAppended(
        path_,
        cursor,
        [&](const BackendFileStat& /*stat*/) -> std::uint64_t {
          if (std::exchange(asked, true))
            return 0;
          beforeOpening_();
          return initial;
        },
        [&](std::string_view lines) {
          EXPECT_TRUE(lines.ends_with('\n'));
          read_ += lines;
          afterChunk_();
        });
  }
  /// What one reading hands over.
  std::string text(const Cursor& cursor, std::uint64_t initial = 0) {
    read_.clear();
    read(cursor, initial);
    return read_;
  }
  std::uint64_t inode() const { return fileStamp(path_)->inode; }

  TempHome home_;
  std::string path_ = home_.path("t.jsonl");
  std::string read_;
  std::function<void()> beforeOpening_ = [] {};  // after the file was looked at
  std::function<void()> afterChunk_ = [] {};
};

TEST_F(BackendFileReaderTest, BeginsWhereTheCursorStands) {
  home_.write("t.jsonl", "one\ntwo\nthree\nfo", *isoDate("2026-10-05T12:00:00.25Z"));
  const auto at = [this](std::uint64_t offset) {
    return BackendFileCursor{.inode = inode(), .offset = offset, .mtime = 1};
  };
  const std::string all = "one\ntwo\nthree\n";
  EXPECT_EQ(text(std::nullopt), all);
  EXPECT_EQ(text(std::nullopt, 4), "two\nthree\n");
  EXPECT_EQ(text(std::nullopt, 1000), "");
  EXPECT_EQ(text(at(8)), "three\n");
  EXPECT_EQ(text(at(14)), "");
  EXPECT_EQ(text(at(16)), "");
  EXPECT_EQ(text(at(17)), all) << "cut short since";
  EXPECT_EQ(text(at(~std::uint64_t{0})), all);
  EXPECT_EQ(text(at(5)), "three\n") << "a line is never handed over in part";
  EXPECT_EQ(text(BackendFileCursor{.inode = inode() + 1, .offset = 8}), all) << "another file";

  const auto reached = read(std::nullopt);
  EXPECT_EQ(reached, (BackendFileCursor{inode(), 14, 1791201600.25}));
  home_.append("t.jsonl", "ur\nfive");
  EXPECT_EQ(text(reached), "four\n");
  // Nothing to read, but the time of the last change is still told.
  home_.setModified("t.jsonl", *isoDate("2026-10-05T13:00:00Z"));
  EXPECT_EQ(read(at(23)), (BackendFileCursor{inode(), 23, 1791205200}));
}

TEST_F(BackendFileReaderTest, PassesOverLinesThatAreTooLong) {
  for (const std::size_t length : {maxLine - 1, maxLine, maxLine + 1, 3 * maxLine + 5}) {
    // Behind a short line, so that reads and lines do not begin together.
    const std::string line(length - 1, 'x');
    home_.write("t.jsonl", "a\n" + line + "\nb\nc");
    const std::string expected = length <= maxLine ? "a\n" + line + "\nb\n" : "a\nb\n";
    EXPECT_TRUE(text(std::nullopt) == expected) << length;
    EXPECT_EQ(read(std::nullopt)->offset, length + 4) << length;
    // Also when its end comes later, and then the end of the next line.
    home_.write("t.jsonl", "a\n" + line);
    read_.clear();
    auto cursor = read(std::nullopt);
    home_.append("t.jsonl", "\nb");
    cursor = read(cursor);
    home_.append("t.jsonl", "\n");
    read(cursor);
    EXPECT_TRUE(read_ == expected) << length;
  }
}

TEST_F(BackendFileReaderTest, EndsWhenTheFileShrinks) {
  const std::string line = std::string(100'000, 'x') + "\n";
  for (int i = 0; i < 30; ++i)
    home_.append("t.jsonl", line);
  afterChunk_ = [this] { fs::resize_file(path_, 150'000); };
  const auto cursor = read(std::nullopt);
  ASSERT_TRUE(cursor);
  EXPECT_EQ(cursor->offset, read_.size());
  EXPECT_LT(read_.size(), 30 * line.size());
  afterChunk_ = [] {};
  EXPECT_EQ(text(cursor), line);
}

TEST_F(BackendFileReaderTest, EndsWhenTheFileGrowsFasterThanItIsRead) {
  home_.write("t.jsonl", "first\n");
  afterChunk_ = [this] { home_.append("t.jsonl", "more\nand more\n"); };
  const auto cursor = read(std::nullopt);
  EXPECT_EQ(read_, "first\n");
  EXPECT_EQ(text(cursor), "more\nand more\n");
}

TEST_F(BackendFileReaderTest, TakesTheFileThatItOpened) {
  const auto replace = [this](const char* contents) {
    return [this, contents] { fs::rename(home_.write("new", contents), path_); };
  };
  const auto cut = [this] { fs::resize_file(path_, 4); };
  const auto remove = [this] { fs::remove(path_); };
  const auto makeFIFO = [&] {
    remove();
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
  };
  const auto makeDirectory = [&] {
    remove();
    home_.makeDirectory("t.jsonl");
  };
  struct Row {
    const char* what = "";
    std::function<void()> change = {};
    bool isRead = true;
    std::string expected = {};
  };
  for (const Row& row : {Row{"longer", replace("new\nlonger file\n"), true, "new\nlonger file\n"},
                         Row{"shorter", replace("s\n"), true, "s\n"},
                         Row{"cut", cut},
                         Row{"gone", remove, false},
                         Row{"FIFO", makeFIFO, false},
                         Row{"directory", makeDirectory, false}}) {
    home_.write("t.jsonl", "one\ntwo\n");
    beforeOpening_ = row.change;
    EXPECT_EQ(read(std::nullopt, 4).has_value(), row.isRead) << row.what;
    EXPECT_EQ(std::exchange(read_, {}), row.expected) << row.what;
    fs::remove(path_);
  }
}

TEST_F(BackendFileReaderTest, FindsTheFirstLineSinceADate) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE(fmt::format("seed {}", seed));
  std::mt19937 random(seed);
  const Date start = *isoDate("2026-10-05T12:00:00Z");
  for (int round = 0; round < 60; ++round) {
    const int lines = static_cast<int>(random() % 40);
    std::string text;
    std::map<Date, std::size_t> firstOf;
    for (int i = 0; i < lines; ++i) {
      // Some longer than what is read at a time, dates that occur twice.
      const std::size_t length = random() % 8 == 0 ? random() % 100'000 : random() % 300;
      const Date date = start + std::chrono::seconds(i / 2);
      firstOf.try_emplace(date, text.size());
      text += fmt::format("{{\"timestamp\":\"{}\",\"x\":\"{}\"}}\n",
                          isoTextWithMilliseconds(date),
                          std::string(length, 'x'));
    }
    home_.write("t.jsonl", text);
    for (int second = -1; second < 22; ++second) {
      const Date since = start + std::chrono::seconds(second);
      const auto first = firstOf.lower_bound(since);
      ASSERT_EQ(BackendFileReader::timestampedOffset(path_, since),
                first == firstOf.end() ? text.size() : first->second)
          << "round " << round << ", second " << second;
    }
  }
}

TEST_F(BackendFileReaderTest, ReadsTooMuchRatherThanTooLittleWhereDatesAreMissing) {
  const Date since = *isoDate("2026-10-05T12:00:00Z");
  const std::string old = "{\"timestamp\":\"2026-10-05T11:00:00.000Z\"}\n";
  const std::string recent = "{\"timestamp\":\"2026-10-05T12:00:00.000Z\"}\n";
  const std::string none = "{\"x\":1}\n{\"timestamp\":\"" + std::string(80, '0') + "\n";
  EXPECT_EQ(BackendFileReader::timestampedOffset(home_.path("missing"), since), 0U);
  struct Row {
    std::string text = {};
    std::uint64_t latest = 0;
  };
  const std::vector<Row> rows = {
      {"", 0},
      {none, 0},
      {none + recent, none.size()},
      {old + none + recent, old.size() + none.size()},
      {old + old, 2 * old.size()},
      // A line that is longer than what is searched for an end, or that has none.
      {old + std::string(3 * maxLine, '\0') + "\n" + recent, old.size() + 3 * maxLine + 1},
      {old + old.substr(0, 40) + std::string(2 * maxLine, 'x') + "\n" + recent,
       2 * old.size() + 2 * maxLine},
      {old + std::string(3 * maxLine, 'x'), old.size() + 3 * maxLine},
  };
  for (const Row& row : rows) {
    home_.write("t.jsonl", row.text);
    const auto offset = BackendFileReader::timestampedOffset(path_, since);
    EXPECT_LE(offset, row.latest) << &row - rows.data();
  }
  // 100 GB without a line.
  fs::resize_file(home_.write("t.jsonl", ""), 100'000'000'000);
  EXPECT_EQ(BackendFileReader::timestampedOffset(path_, since), 0U);
}

}  // namespace
}  // namespace tessivane
