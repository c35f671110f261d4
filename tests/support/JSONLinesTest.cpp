#include "support/JSONLines.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <sstream>
#include <vector>

#include <gtest/gtest.h>

#include "helpers/TempHome.h"

namespace tessivane {
namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

Texts expectedHead(const std::string& contents, std::size_t maxBytes) {
  Texts lines;
  std::istringstream window(contents.substr(0, maxBytes));
  for (std::string line; std::getline(window, line);) {
    if (!line.empty())
      lines.push_back(line);
  }
  return lines;
}

Texts expectedTail(const std::string& contents, std::size_t maxBytes) {
  std::size_t begin = 0;
  if (contents.size() > maxBytes)
    begin = std::min(contents.find('\n', contents.size() - maxBytes), contents.size());
  Texts lines = expectedHead(contents.substr(begin), maxBytes);
  std::reverse(lines.begin(), lines.end());
  return lines;
}

// Every line that is left, with a look at the slack behind each: it must be there.
template <typename Lines>
Texts allOf(Lines&& lines) {
  Texts result;
  while (const auto line = lines.next()) {
    const char* end = line->text.data() + line->text.size();
    EXPECT_EQ(std::count(end, end + JSONReader::padding, '\x01'), 0);
    result.emplace_back(line->text);
  }
  return result;
}

std::string randomContents(std::mt19937& random) {
  std::string contents;
  const bool isSmall = random() % 2 == 0;
  for (auto i = random() % (isSmall ? 8 : 40); i > 0; --i) {
    const auto length = !isSmall && random() % 20 == 0 ? random() % 150'000 : random() % 20;
    contents.append(length, static_cast<char>('a' + i % 26));
    contents += random() % 4 == 0 ? "\r\n" : random() % 4 == 0 ? "\n\n\n" : "\n";
  }
  return random() % 2 == 0 ? contents + "last" : contents;
}

TEST(JSONLinesTest, AgreesWithReadingTheWholeWindow) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const TempHome home;
  LineBuffer buffer;
  for (int i = 0; i < 150; ++i) {
    const std::string contents = randomContents(random);
    const std::string path = home.write("file", contents);
    std::vector<std::size_t> windows = {0, 1, contents.size(), std::string::npos};
    for (std::size_t n = 2; n < (contents.size() < 100 ? contents.size() : 7); ++n)
      windows.push_back(contents.size() < 100 ? n : random() % contents.size());
    for (const std::size_t window : windows) {
      SCOPED_TRACE(contents + " " + std::to_string(window));
      ASSERT_EQ(allOf(tailJSONLines(path, window, buffer)), expectedTail(contents, window));
      ASSERT_EQ(allOf(headJSONLines(path, window, buffer)), expectedHead(contents, window));
    }
  }
}

TEST(JSONLinesTest, ReadsNoMoreThanIsAskedFor) {
  const TempHome home;
  const std::string line(3'000'000, 'y');
  const std::string path = home.write("file", "first\n" + line + "\nlast");
  LineBuffer buffer;
  EXPECT_EQ(allOf(TailLines(path, 4'000'000, buffer)), (Texts{"last", line, "first"}));
  EXPECT_EQ(allOf(TailLines(path, 3'000'000, buffer)), Texts{"last"});
  LineBuffer other;
  TailLines tail(path, 4'000'000, buffer);
  HeadLines head(path, 4'000'000, other);
  EXPECT_EQ(tail.bytesRead() + head.bytesRead(), 0U);
  EXPECT_TRUE(tail.next() && head.next());
  EXPECT_LE(std::max(tail.bytesRead(), head.bytesRead()), 64U * 1024);
  EXPECT_TRUE(tail.next() && head.next());
  EXPECT_GE(std::min(tail.bytesRead(), head.bytesRead()), line.size());
}

TEST(JSONLinesTest, EndsEarlyWhenTheFileChangesMeanwhile) {
  const TempHome home;
  const std::string path = home.path("file");
  const std::string first(100'000, 'a');
  LineBuffer buffer;
  const std::pair<std::uintmax_t, Texts> rows[] = {
      {0, {}}, {50'000, {}}, {100'003, {}}, {300'000, {"last", first}}};
  for (const auto& [size, expected] : rows) {
    TailLines tail(home.write("file", first + "\nlast"), 1 << 20, buffer);
    fs::resize_file(path, size);
    EXPECT_EQ(allOf(tail), expected);
  }
  TailLines tail(home.write("file", first + "\nlast"), 1 << 20, buffer);
  EXPECT_TRUE(tail.next());
  fs::resize_file(path, 0);
  EXPECT_FALSE(tail.next() || tail.next());
  HeadLines head(home.write("file", first), 1 << 20, buffer);
  fs::resize_file(path, 50'000);
  EXPECT_FALSE(head.next() || head.next());

  ASSERT_EQ(::mkfifo(home.path("fifo").c_str(), 0600), 0);
  for (const auto& name : {home.path("fifo"), home.write("empty", ""), home.path("none")})
    EXPECT_FALSE(TailLines(name, 100, buffer).next() || HeadLines(name, 100, buffer).next());
}

}  // namespace
}  // namespace tessivane
