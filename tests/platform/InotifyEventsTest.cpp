// The live file events, against real directories.

#include "platform/linux/InotifyEvents.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "helpers/Event.h"
#include "helpers/TempHome.h"
#include "platform/ToldChanges.h"
#include "platform/linux/InotifyTree.h"
#include "platform/linux/SerialQueue.h"

namespace tessivane {
namespace {

namespace fs = std::filesystem;

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Paths = std::set<std::string>;

// A file that is open for writing.
class OpenFile final {
 public:
  explicit OpenFile(const std::string& path, int flags = O_WRONLY | O_APPEND)
      : descriptor_(::open(path.c_str(), flags | O_CLOEXEC)) {}
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() { ::close(descriptor_); }
  void write() const { ASSERT_EQ(::pwrite(descriptor_, "x", 1, 0), 1); }

 private:
  int descriptor_;
};

class InotifyEventsTest : public testing::Test {
 protected:
  void watch(const std::vector<std::string>& roots, Seconds latency = {}) {
    std::vector<std::string> paths = roots;
    for (std::string& path : paths)
      path = home_.path(path);
    handle_ = events_.watch(paths, latency, queue_, told_.handler());
    ASSERT_NE(handle_, nullptr);
  }

  // Everything told of what was done so far, relative to the home. `root` is one that is watched:
  // the kernel tells things in order.
  Paths told(const std::string& root = "root") {
    const std::string last = home_.write(root + "/last" + std::to_string(++lasts_), "");
    EXPECT_TRUE(told_.waitForPath(last));
    Paths relative;
    for (const std::string& path : told_.take()) {
      EXPECT_TRUE(path.starts_with(home_.path() + "/")) << path;
      // Making it and writing it may have come as two calls.
      if (path.find("/last") == std::string::npos)
        relative.insert(path.substr(home_.path().size() + 1));
    }
    return relative;
  }

  void move(const std::string& from, const std::string& to) {
    fs::rename(home_.path(from), home_.path(to));
  }
  void remove(const std::string& path) { fs::remove_all(home_.path(path)); }
  void link(const std::string& target, const std::string& path) {
    fs::create_directory_symlink(home_.path(target), home_.path(path));
  }

  TempHome home_;
  std::vector<std::string> problems_;
  FileEvents events_ =
      inotifyEvents([this](const std::string& sentence) { problems_.push_back(sentence); });
  ToldChanges told_;
  SerialQueue queue_{"test"};
  std::shared_ptr<void> handle_;
  int lasts_ = 0;
};

TEST_F(InotifyEventsTest, TellsEachKindOfChange) {
  home_.write("root/file", "text");
  home_.write("root/sub/deep/file", "text");
  home_.write("outside/file", "text");
  home_.write("outside/tree/a/b", "text");
  const OpenFile open(home_.path("root/file"));
  watch({"root"});

  const struct {
    const char* what;
    std::function<void()> act;
    Paths expected;
  } cases[] = {
      {"a write to a file that stays open", [&] { open.write(); }, {"root/file"}},
      {"a write further down",
       [&] { home_.append("root/sub/deep/file", "x"); },
       {"root/sub/deep/file"}},
      {"a cut", [&] { fs::resize_file(home_.path("root/file"), 0); }, {"root/file"}},
      {"a new file", [&] { home_.write("root/sub/new", ""); }, {"root/sub/new"}},
      {"a new name", [&] { move("root/sub/new", "root/named"); }, {"root/sub/new", "root/named"}},
      {"a file put over another", [&] { move("outside/file", "root/named"); }, {"root/named"}},
      {"a removed file", [&] { remove("root/named"); }, {"root/named"}},
      {"directories made at once with what is in them",
       [&] { home_.write("root/x/y/z", ""); },
       {"root/x", "root/x/y", "root/x/y/z"}},
      {"a write in such a directory", [&] { home_.append("root/x/y/z", "x"); }, {"root/x/y/z"}},
      {"a tree that is moved in",
       [&] { move("outside/tree", "root/tree"); },
       {"root/tree", "root/tree/a", "root/tree/a/b"}},
      {"a moved tree, told where it is now",
       [&] {
         move("root/tree", "root/sub/tree");
         home_.append("root/sub/tree/a/b", "x");
       },
       {"root/tree", "root/sub/tree", "root/sub/tree/a", "root/sub/tree/a/b"}},
      {"a tree that is moved out, and nothing of it afterwards",
       [&] {
         move("root/sub/tree", "outside/tree");
         home_.append("outside/tree/a/b", "x");
       },
       {"root/sub/tree"}},
      {"another directory of that name",
       [&] {
         home_.makeDirectory("root/sub/tree");
         home_.write("root/sub/tree/c", "");
       },
       {"root/sub/tree", "root/sub/tree/c"}},
      {"an empty directory that another replaces",
       [&] {
         home_.makeDirectory("root/empty");
         move("outside/tree", "root/empty");
         home_.append("root/empty/a/b", "x");
       },
       {"root/empty", "root/empty/a", "root/empty/a/b"}},
      {"a removed directory", [&] { remove("root/x"); }, {"root/x", "root/x/y", "root/x/y/z"}},
      {"names of any bytes",
       [&] {
         home_.write("root/new\nline/\xFF\xFE", "");
         home_.write("root/" + std::string(255, 'n'), "");
       },
       {"root/new\nline", "root/new\nline/\xFF\xFE", "root/" + std::string(255, 'n')}},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.what);
    one.act();
    EXPECT_EQ(told(), one.expected);
  }
  EXPECT_THAT(problems_, IsEmpty());
}

TEST_F(InotifyEventsTest, TellsNothingOfReadingNorOfWhatIsElsewhere) {
  home_.write("root/file", "text");
  home_.write("root/gone", "text");
  home_.write("outside/file", "text");
  home_.write("rooted/file", "text");
  link("outside", "root/link");
  const OpenFile open(home_.path("root/gone"));
  watch({"root"});
  remove("root/gone");
  told();

  std::ifstream(home_.path("root/file")).get();
  for (const auto& entry : fs::recursive_directory_iterator(home_.path("root")))
    static_cast<void>(entry.status());
  ::chmod(home_.path("root/file").c_str(), 0600);
  home_.setModified("root/file", Date{});
  open.write();
  home_.append("outside/file", "x");
  home_.append("rooted/file", "x");
  home_.write("beside", "");
  EXPECT_THAT(told(), IsEmpty());

  // A link that comes later is a thing of its own too.
  link("outside", "root/later");
  home_.append("outside/file", "x");
  EXPECT_THAT(told(), ElementsAre("root/later"));
}

TEST_F(InotifyEventsTest, MissesNothingOfAFastWriter) {
  home_.makeDirectory("root");
  watch({"root"});
  Paths expected;
  for (int i = 0; i < 60; ++i) {
    const std::string directory = "root/" + std::to_string(i) + "/below/";
    // Before, while and after the directories are listed.
    for (int file = 0; file < 25; ++file) {
      const std::string name = directory + std::to_string(file);
      home_.write(name, "");
      expected.insert(name);
    }
  }
  const Paths paths = told();
  EXPECT_TRUE(std::ranges::includes(paths, expected));
}

TEST_F(InotifyEventsTest, FindsARootThatComesAndGoes) {
  home_.makeDirectory("far/a");
  home_.write("away/b/root/sub/file", "");
  watch({"far/a/b/root", "other"});

  home_.makeDirectory("far/a/beside");
  home_.makeDirectory("other");
  EXPECT_THAT(told("other"), ElementsAre("other"));
  move("away/b", "far/a/b");
  EXPECT_THAT(told("far/a/b/root"),
              ElementsAre("far/a/b/root", "far/a/b/root/sub", "far/a/b/root/sub/file"));
  home_.append("far/a/b/root/sub/file", "x");
  EXPECT_THAT(told("far/a/b/root"), ElementsAre("far/a/b/root/sub/file"));

  // Gone with what it was in; what is done there is nobody's business then.
  move("far/a", "far/gone");
  EXPECT_TRUE(told_.waitForPath(home_.path("far/a/b/root")));
  home_.append("far/gone/b/root/sub/file", "x");
  EXPECT_THAT(told("other"), ElementsAre("far/a/b/root"));

  home_.write("far/a/b/root/sub/second", "");
  EXPECT_THAT(told("far/a/b/root"), Contains("far/a/b/root/sub/second"));
  remove("far/a/b/root");
  EXPECT_THAT(told("other"), Contains("far/a/b/root"));
  home_.write("far/a/b/root/third", "");
  EXPECT_THAT(told("far/a/b/root"),
              AllOf(Contains("far/a/b/root"), Contains("far/a/b/root/third")));

  // A directory stays as it is for those who are in it, whatever its name becomes.
  const OpenFile held(home_.path("far/a/b/root"), O_RDONLY | O_DIRECTORY);
  remove("far/a");
  home_.write("far/a/b/root/fourth", "");
  EXPECT_THAT(told("far/a/b/root"), Contains("far/a/b/root/fourth"));
  home_.append("far/a/b/root/fourth", "x");
  EXPECT_THAT(told("far/a/b/root"), ElementsAre("far/a/b/root/fourth"));
}

TEST_F(InotifyEventsTest, FollowsTheLinksThatLeadToARoot) {
  home_.write("one/file", "");
  home_.write("two/file", "");
  link("one", "root");
  watch({"root", "one/sub", "one"});

  // Each path under which it was asked for.
  home_.write("one/sub/file", "");
  const Paths under = told("one");
  EXPECT_THAT(under, AllOf(Contains("root/sub/file"), Contains("one/sub/file")));
  home_.append("one/file", "x");
  EXPECT_THAT(told("one"), AllOf(Contains("root/file"), Contains("one/file")));

  remove("root");
  link("two", "root");
  EXPECT_TRUE(told_.waitForPath(home_.path("root/file")));
  told();
  home_.append("two/file", "x");
  EXPECT_THAT(told(), ElementsAre("root/file"));
  home_.append("one/file", "x");
  EXPECT_THAT(told("one"), ElementsAre("one/file"));
}

TEST_F(InotifyEventsTest, GathersWhatComesWithinTheLatency) {
  constexpr Seconds latency{0.5};
  home_.makeDirectory("root");
  watch({"root"}, latency);
  // Once more where the machine stood still in between.
  for (int attempt = 0;; ++attempt) {
    const std::size_t before = told_.calls().size();
    const auto start = std::chrono::steady_clock::now();
    for (const char* name : {"root/b", "root/a", "root/b"})
      home_.write(name, "x");
    const Seconds took = std::chrono::steady_clock::now() - start;
    ASSERT_TRUE(told_.waitForPath(home_.path("root/a")));
    if (took > latency / 2 && attempt < 20) {
      told();
      continue;
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, latency);
    const auto calls = told_.calls();
    ASSERT_EQ(calls.size(), before + 1);
    EXPECT_THAT(calls.back(), UnorderedElementsAre(home_.path("root/a"), home_.path("root/b")));
    return;
  }
}

// A queue that holds up whoever posts until it is opened.
class GatedQueue final : public TaskQueue {
 public:
  void async(Task task) override {
    reached_.happened();
    EXPECT_TRUE(opened_.wait());
    queue_.async(std::move(task));
  }
  TaskHandle after(Seconds delay, Task task) override {
    return queue_.after(delay, std::move(task));
  }
  TaskHandle every(Seconds interval, Seconds tolerance, Task task) override {
    return queue_.every(interval, tolerance, std::move(task));
  }
  [[nodiscard]] bool isReached() { return reached_.wait(); }
  void open() { opened_.happened(); }

 private:
  Event reached_;
  Event opened_;
  SerialQueue queue_{"gated"};
};

TEST_F(InotifyEventsTest, AsksForARescanWhenEventsAreLost) {
  home_.write("root/a", "");
  home_.write("root/b", "");
  home_.makeDirectory("root/moved");
  GatedQueue queue;
  handle_ = events_.watch({home_.path("root")}, Seconds{0}, queue, told_.handler());
  home_.append("root/a", "x");
  ASSERT_TRUE(queue.isReached());

  // In turn, as the kernel makes one event of two that are the same.
  int room = 0;
  std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> room;
  ASSERT_GT(room, 0);
  const OpenFile a(home_.path("root/a"));
  const OpenFile b(home_.path("root/b"));
  for (int i = 0; i < room; i += 2) {
    a.write();
    b.write();
  }
  home_.makeDirectory("root/unheard");
  move("root/moved", "moved");
  queue.open();
  EXPECT_TRUE(told_.waitForRescan());
  told();

  home_.write("root/unheard/file", "");
  home_.write("moved/file", "");
  EXPECT_THAT(told(), ElementsAre("root/unheard/file"));
  handle_ = nullptr;
}

TEST(FileChangesTest, AreBounded) {
  FileChanges changes;
  for (std::size_t i = 0; i < FileChanges::maxPaths; ++i)
    changes.add(std::to_string(i));
  FileChanges same = changes;
  same.add(FileChanges(changes));
  EXPECT_FALSE(same.rescan);
  EXPECT_EQ(same.paths, changes.paths);
  FileChanges later;
  later.add("one more");
  changes.add(std::move(later));
  changes.add("and more");
  EXPECT_TRUE(changes.rescan);
  EXPECT_THAT(changes.paths, IsEmpty());
}

TEST_F(InotifyEventsTest, IsSilentOnceReleased) {
  home_.makeDirectory("root");
  int calls = 0;
  for (int i = 0; i < 50; ++i) {
    // The queue is held up, so that the call is on its way or about to be.
    Event held;
    queue_.async([&] { EXPECT_TRUE(held.wait()); });
    handle_ = events_.watch(
        {home_.path("root")}, Seconds{0}, queue_, [&](const auto&, bool) { ++calls; });
    home_.write("root/file", "");
    if (i % 2 == 0)
      std::this_thread::yield();
    handle_ = nullptr;
    held.happened();
    Event drained;
    queue_.async([&] { drained.happened(); });
    ASSERT_TRUE(drained.wait());
  }
  EXPECT_EQ(calls, 0);
}

TEST_F(InotifyEventsTest, MayBeReleasedAmongChanges) {
  home_.makeDirectory("root");
  std::atomic<bool> done = false;
  std::thread writer([&] {
    for (int i = 0; !done; i = (i + 1) % 100)
      home_.write("root/" + std::to_string(i % 7) + "/" + std::to_string(i), "");
  });
  for (int i = 0; i < 20; ++i) {
    // On the test's thread, while calls may go on.
    Event called;
    auto handle = events_.watch(
        {home_.path("root")}, Seconds{0}, queue_, [&](const auto&, bool) { called.happened(); });
    EXPECT_TRUE(called.wait());
    handle = nullptr;
    // From within its own call.
    Event released;
    queue_.async([&] {
      handle = events_.watch({home_.path("root")}, Seconds{0}, queue_, [&](const auto&, bool) {
        EXPECT_NE(handle, nullptr);
        handle = nullptr;
        queue_.async([&] { released.happened(); });
      });
    });
    EXPECT_TRUE(released.wait());
  }
  done = true;
  writer.join();
}

}  // namespace
}  // namespace tessivane
