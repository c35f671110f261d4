#include "platform/linux/FileUserDefaults.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "helpers/Event.h"
#include "helpers/TempHome.h"
#include "platform/linux/AsioMainQueue.h"
#include "support/Files.h"

namespace tessivane {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::string contents(const std::string& path) {
  return readWholeFile(path, 100'000'000).value_or("(none)");
}

// Runs `body` in a process of its own, which succeeds when nothing in it has failed.
pid_t inChild(const std::function<void()>& body) {
  const pid_t process = ::fork();
  if (process == 0) {
    body();
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
  }
  return process;
}

bool succeeds(pid_t process) {
  int status = -1;
  return ::waitpid(process, &status, 0) == process && status == 0;
}

class FileUserDefaultsTest : public testing::Test {
 protected:
  std::unique_ptr<FileUserDefaults> open() {
    return std::make_unique<FileUserDefaults>(
        path_, queue_, [this](const std::string& sentence) { said_.push_back(sentence); });
  }
  void write(std::string_view text) const { home_.write("config/Tessivane/defaults.json", text); }

  TempHome home_;
  std::string directory_ = home_.path("config/Tessivane");
  std::string path_ = directory_ + "/defaults.json";
  // Run by the tests that want to be told. It takes tasks from any thread.
  AsioMainQueue queue_;
  std::vector<std::string> said_;
};

TEST_F(FileUserDefaultsTest, KeepsEverythingExactly) {
  const std::vector<std::pair<std::string, DefaultsValue>> values = {
      {"panelOpen", true},
      {"third", 1.0 / 3},
      {"huge", 1.7e308},
      {"tiny", 5e-324},
      {"count", 9'007'199'254'740'991.0},
      {"date", 812'345'678.123456},
      {"text", "line\nquote \" \\ \u00e9 \U0001F44D"},
      {"", "empty key"},
      {"data", DefaultsData{std::string("\0\x01\xFE{\"a\":1}", 10)}},
      {"no data", DefaultsData{}},
      {"array", DefaultsArray{1, DefaultsArray{}, DefaultsDictionary{}, DefaultsData{"x"}}},
      // Keys that could be mistaken for the mark of data.
      {"$data", "text"},
      {"marks", DefaultsDictionary{{"$data", "AAAA"}, {"$$data", 1}, {"$", 2}}},
      {"mark", DefaultsDictionary{{"$data", "AAAA"}}},
  };
  {
    const auto defaults = open();
    for (const auto& [key, value] : values)
      defaults->set(key, value);
    defaults->set("gone", 1);
    defaults->remove("gone");
  }
  const auto defaults = open();
  for (const auto& [key, value] : values)
    EXPECT_EQ(defaults->value(key), value) << key;
  EXPECT_EQ(defaults->value("gone"), std::nullopt);
  EXPECT_THAT(said_, IsEmpty());
}

TEST_F(FileUserDefaultsTest, IsPrivateAndLeavesNothingBehind) {
  // As a crash in the middle of saving leaves it, and a mask that would let others read.
  home_.write("config/Tessivane/defaults.json.tmp", "{\"half\": ");
  const mode_t mask = ::umask(0);
  open()->set("key", "value");
  ::umask(mask);
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  EXPECT_THAT(directoryEntries(directory_),
              UnorderedElementsAre("defaults.json", "defaults.json.lock"));
}

TEST_F(FileUserDefaultsTest, UnderstandsWhatPeopleWrite) {
  write(
      R"({"on": true, "n": 5, "nothing": null, "list": [1, null], "odd": {"$data": 7},
                  "map": {"a": null}, "deep": )" +
      std::string(5'000, '[') + std::string(5'000, ']') + "}");
  const auto defaults = open();
  EXPECT_EQ(defaults->boolean("on"), true);
  EXPECT_EQ(defaults->number("n"), 5);
  for (const char* key : {"nothing", "list", "odd", "map", "deep"})
    EXPECT_EQ(defaults->value(key), std::nullopt) << key;
  EXPECT_THAT(said_, IsEmpty());
}

TEST_F(FileUserDefaultsTest, KeepsASpoiledFileAside) {
  const std::string spoiled[] = {
      "",
      "\n",
      R"({"rushHold": tr)",
      R"({"rushHold": true)",
      R"({"rushHold": true}})",
      R"([{"rushHold": true}])",
      "null",
      "rushHold = true",
      R"({"rushHold": true, "x": 1e999})",
      "{\"rushHold\": true, \"x\": \"\xFF\"}",
      std::string(4'096, '\0'),
      std::string(100'000, '['),
      R"({"rushHold": true, "x": ")" + std::string(std::size_t{17} << 20, 'x') + "\"}"};
  int number = 0;
  for (const std::string& text : spoiled) {
    SCOPED_TRACE(text.substr(0, 30));
    said_.clear();
    write(text);
    {
      const auto defaults = open();
      EXPECT_EQ(defaults->boolean("rushHold"), std::nullopt);
      defaults->set("rushHold", false);
      defaults->set("key", 1);
    }
    const std::string aside = path_ + ".unreadable-" + std::to_string(++number);
    EXPECT_TRUE(contents(aside) == text);
    EXPECT_THAT(said_, ElementsAre(HasSubstr(aside)));
    EXPECT_EQ(open()->boolean("rushHold"), false);
  }
}

TEST_F(FileUserDefaultsTest, KeepsWhatIsNoFileAside) {
  const std::function<void()> obstacles[] = {
      [&] { fs::create_directories(path_); },
      [&] { ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0); },
      [&] { fs::create_symlink(path_, path_); },
  };
  fs::create_directories(directory_);
  for (const auto& make : obstacles) {
    said_.clear();
    fs::remove_all(path_);
    make();
    open()->set("key", 1);
    EXPECT_EQ(open()->number("key"), 1);
    EXPECT_EQ(said_.size(), 1U);
  }
}

// Each way in which the disk can refuse. In a process of its own, whose rights and limits it
// changes.
TEST_F(FileUserDefaultsTest, ValuesThatCannotBeSavedLastForThisRun) {
  const std::pair<std::string, std::function<void()>> refusals[] = {
      {"a full disk",
       [] {
         ::signal(SIGXFSZ, SIG_IGN);
         const rlimit limit{.rlim_cur = 10, .rlim_max = RLIM_INFINITY};
         ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
       }},
      {"a read-only directory",
       [&] {
         ASSERT_EQ(::chmod(directory_.c_str(), 0555), 0);
         // Nobody's rights: root would not be refused.
         ASSERT_TRUE(::geteuid() != 0 || ::seteuid(65'534) == 0);
       }},
      {"a write-protected file", [&] { ASSERT_EQ(::chmod(path_.c_str(), 0444), 0); }}};
  ASSERT_EQ(::chmod(home_.path().c_str(), 0755), 0);
  for (const auto& [what, refuse] : refusals) {
    SCOPED_TRACE(what);
    fs::remove_all(directory_);
    write(R"({"kept": 1, "removed": 1})");
    const std::string before = contents(path_);
    EXPECT_TRUE(succeeds(inChild([&, refuse = refuse] {
      refuse();
      const auto defaults = open();
      defaults->set("new", "value");
      defaults->remove("removed");
      defaults->set("new", "newer");
      EXPECT_EQ(defaults->text("new"), "newer");
      EXPECT_EQ(defaults->number("removed"), std::nullopt);
      EXPECT_EQ(defaults->number("kept"), 1);
      EXPECT_THAT(said_, ElementsAre(HasSubstr("could not be saved")));
    })));
    EXPECT_EQ(contents(path_), before);
    EXPECT_FALSE(fs::exists(path_ + ".tmp"));
  }
}

TEST_F(FileUserDefaultsTest, SavesWhatItCouldNotOnceItCan) {
  // A file stands where the directory should be.
  home_.write("config/Tessivane", "");
  {
    const auto defaults = open();
    defaults->set("early", 1);
    fs::remove(directory_);
    defaults->set("late", 2);
  }
  const auto defaults = open();
  EXPECT_EQ(defaults->number("early"), 1);
  EXPECT_EQ(defaults->number("late"), 2);
  EXPECT_EQ(said_.size(), 1U);
}

TEST_F(FileUserDefaultsTest, TwoProcessesLoseNothing) {
  constexpr int writes = 60;
  const auto writeKeys = [&](const std::string& prefix) {
    const auto defaults = open();
    for (int i = 0; i < writes; ++i) {
      defaults->set(prefix + std::to_string(i), i);
      defaults->set(prefix, i);
      if (i % 10 == 9)
        defaults->remove(prefix + std::to_string(i));
    }
    EXPECT_THAT(said_, IsEmpty());
  };
  const pid_t first = inChild([&] { writeKeys("a"); });
  const pid_t second = inChild([&] { writeKeys("b"); });
  EXPECT_TRUE(succeeds(first));
  EXPECT_TRUE(succeeds(second));
  const auto defaults = open();
  for (const std::string prefix : {"a", "b"}) {
    EXPECT_EQ(defaults->number(prefix), writes - 1);
    for (int i = 0; i < writes; ++i) {
      const auto expected = i % 10 == 9 ? std::nullopt : std::optional<double>(i);
      EXPECT_EQ(defaults->number(prefix + std::to_string(i)), expected) << prefix << i;
    }
  }
}

TEST_F(FileUserDefaultsTest, TellsOfWhatOthersChange) {
  const auto defaults = open();
  // To the watch, a second object is a second process.
  const auto other = open();
  struct Step {
    std::string what;
    std::function<void()> change;
    std::optional<double> expected;
  };
  const std::vector<Step> steps = {
      {"saved by another process", [&] { other->set("n", 1); }, 1},
      {"written in place", [&] { write(R"({"n":2})"); }, 2},
      {"moved away", [&] { fs::rename(path_, path_ + ".old"); }, std::nullopt},
      {"moved back", [&] { fs::rename(path_ + ".old", path_); }, 2},
      {"removed", [&] { fs::remove(path_); }, std::nullopt},
      {"set after the directory has gone",
       [&] { fs::remove_all(directory_), defaults->set("n", 3); },
       3},
      {"saved by another process in the new directory", [&] { other->set("n", 4); }, 4}};
  std::size_t done = 0;
  const Subscription subscription = defaults->subscribe([&] {
    EXPECT_EQ(defaults->number("n"), steps[done].expected) << steps[done].what;
    if (++done == steps.size())
      queue_.stop();
    else
      steps[done].change();
  });
  const TaskHandle bound = queue_.after(std::chrono::minutes{1}, [&] { queue_.stop(); });
  steps.front().change();
  queue_.run();
  EXPECT_EQ(done, steps.size()) << "not told: " << steps[std::min(done, steps.size() - 1)].what;
}

TEST_F(FileUserDefaultsTest, AFileSpoiledMeanwhileChangesNothing) {
  Event reported;
  {
    FileUserDefaults defaults(path_, queue_, [&](const std::string&) { reported.happened(); });
    defaults.set("early", 1);
    write("{\"early\": 2,");
    ASSERT_TRUE(reported.wait());
    EXPECT_EQ(defaults.number("early"), 1);
    EXPECT_EQ(contents(path_), "{\"early\": 2,") << "somebody may be editing it";
    defaults.set("late", 3);
  }
  EXPECT_EQ(contents(path_ + ".unreadable-1"), "{\"early\": 2,");
  const auto defaults = open();
  EXPECT_EQ(defaults->number("early"), 1);
  EXPECT_EQ(defaults->number("late"), 3);
}

}  // namespace
}  // namespace tessivane
