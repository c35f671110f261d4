// What a discovery pass costs, beside the work that no pass can do without. Everything is measured
// in one run, pass and bare work by turns, with the files in the page cache:
//
// - a warm pass, in which nothing has changed, beside the bare stats of the files that it must look
//   at and the bare queries;
// - a cold pass, with empty caches of its own, beside the bare reading of the same bytes, and of
//   all that the reads might cover at most.
//
// Times are the thread's processor time, system calls included. Nothing here waits, so on a quiet
// machine that is the time by the clock, and on a busy one it still is about the same. Counters are
// medians; "ratio_x" is the pass as a multiple of the bare work x. Usage: the options
// of Google Benchmark, and
//   TESSIVANE_BENCH_HOME=DIR      the full-size home in DIR, made if it isn't there
//   TESSIVANE_BENCH_SCALE=FACTOR  another size
// Without them a small home is made in a temporary directory.

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "DiscoveryHome.h"
#include "ReadRecorder.h"
#include "StatementRecorder.h"
#include "helpers/TempHome.h"
#include "platform/SystemClock.h"
#include "sessions/SessionDiscovery.h"
#include "support/Files.h"
#include "support/Paths.h"

namespace tessivane {
namespace {

// Everything that the measurements share. Lives for the whole run.
struct Scene {
  DiscoveryHome home;
  Date now;  // stands still, so that a pass does the same every time
  ReadRanges coldReads;
  std::vector<RecordedConnection> warmQueries;
  std::vector<RecordedConnection> coldQueries;
  std::vector<char> buffer;
};

SessionDiscovery::Options options(const Scene& scene, Clock now) {
  return {.home = scene.home.directory,
          .configDirectory = scene.home.configDirectory,
          .now = std::move(now),
          .report = [](std::string_view line) { fmt::print(stderr, "{}\n", line); }};
}

std::unique_ptr<SessionDiscovery> newDiscovery(const Scene& scene) {
  return std::make_unique<SessionDiscovery>(options(scene, [now = scene.now] { return now; }));
}

double processorMilliseconds() {
  timespec time{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

double millisecondsOf(FunctionRef<void()> work) {
  const double begin = processorMilliseconds();
  work();
  return processorMilliseconds() - begin;
}

double median(std::vector<double> values) {
  if (values.empty())
    return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// The bare work.

void statFiles(const Scene& scene) {
  struct stat status {};
  for (const LookedAtFile& file : scene.home.files)
    benchmark::DoNotOptimize(::stat(file.path.c_str(), &status));
}

// What a scan for new transcripts costs: two levels of directories, a stat for each transcript.
void listTranscripts(const Scene& scene) {
  const std::string projects = joinedPath(scene.home.directory, ".claude/projects");
  struct stat status {};
  for (const std::string& project : directoryEntries(projects)) {
    const std::string directory = joinedPath(projects, project);
    for (const std::string& name : directoryEntries(directory)) {
      if (name.ends_with(".jsonl"))
        benchmark::DoNotOptimize(::stat(joinedPath(directory, name).c_str(), &status));
    }
  }
}

class OpenFile final {
 public:
  explicit OpenFile(const std::string& path)
      : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (descriptor_ < 0)
      throw std::runtime_error("cannot open " + path);
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() { ::close(descriptor_); }

  void read(std::vector<char>& buffer, std::size_t length, std::int64_t offset) const {
    if (buffer.size() < length)
      buffer.resize(length);
    if (::pread(descriptor_, buffer.data(), length, offset) != static_cast<ssize_t>(length))
      throw std::runtime_error("a file has become shorter");
  }

  std::int64_t size() const {
    struct stat status {};
    ::fstat(descriptor_, &status);
    return status.st_size;
  }

 private:
  int descriptor_;
};

void readSameBytes(Scene& scene) {
  for (const auto& [path, ranges] : scene.coldReads) {
    const OpenFile file(path);
    for (const ReadRange& range : ranges)
      file.read(scene.buffer, range.length, range.offset);
  }
}

std::size_t readWindows(Scene& scene) {
  std::size_t total = 0;
  for (const LookedAtFile& looked : scene.home.files) {
    const OpenFile file(looked.path);
    const std::int64_t size = file.size();
    const auto head = std::min(looked.headBytes, static_cast<std::size_t>(size));
    const auto tail = std::min(looked.tailBytes, static_cast<std::size_t>(size));
    file.read(scene.buffer, head, 0);
    file.read(scene.buffer, tail, size - static_cast<std::int64_t>(tail));
    total += head + tail;
  }
  return total;
}

// The passes.

std::size_t countOf(const std::vector<AgentSession>& sessions, Agent agent) {
  return static_cast<std::size_t>(std::count_if(
      sessions.begin(), sessions.end(), [agent](const auto& one) { return one.agent == agent; }));
}

// A pass that lists too little would be quick.
void checkPass(const DiscoveryHome& home, const std::vector<AgentSession>& sessions) {
  const std::vector<std::size_t> expected{home.claudeSessions, home.codexSessions, home.t3Sessions};
  std::vector<std::size_t> listed;
  for (const Agent agent : allAgents)
    listed.push_back(countOf(sessions, agent));
  if (listed != expected)
    throw std::runtime_error(fmt::format(
        "the pass lists {}, not {} sessions", fmt::join(listed, "+"), fmt::join(expected, "+")));
}

void learn(Scene& scene) {
  const auto discovery = newDiscovery(scene);
  std::vector<AgentSession> sessions;
  const auto pass = [&] { sessions = discovery->sessions(scene.home.since); };
  scene.coldQueries = recordStatements([&] { scene.coldReads = recordReads(pass); });
  checkPass(scene.home, sessions);
  const ReadRanges warmReads = recordReads([&] { scene.warmQueries = recordStatements(pass); });
  checkPass(scene.home, sessions);
  if (totalLength(warmReads) > totalLength(scene.coldReads) / 10)
    throw std::runtime_error("the warm pass reads unchanged files again");
  if (runPlainly(scene.warmQueries) < scene.home.codexSessions + scene.home.t3Sessions)
    throw std::runtime_error("the bare queries give too few rows");
}

struct BareWork {
  std::string name = {};
  bool isLimit = false;  ///< the pass is told as a multiple of it
  FunctionRef<void()> work;
};

// Runs `pass` and each of the bare works by turns and sets the counters from the medians.

void measure(benchmark::State& state,
             FunctionRef<double()> pass,
             const std::vector<BareWork>& works) {
  std::vector<double> passes;
  std::vector<std::vector<double>> bare(works.size());
  for (auto unused : state) {
    (void)unused;
    for (std::size_t index = 0; index < works.size(); ++index)
      bare[index].push_back(millisecondsOf(works[index].work));
    passes.push_back(pass());
    state.SetIterationTime(passes.back() / 1000);
  }
  state.counters["median_ms"] = median(passes);
  for (std::size_t index = 0; index < works.size(); ++index) {
    const BareWork& work = works[index];
    state.counters[work.name + "_ms"] = median(bare[index]);
    if (work.isLimit)
      state.counters["ratio_" + work.name] = median(passes) / median(bare[index]);
  }
}

void benchWarmPass(benchmark::State& state, Scene& scene) {
  const auto discovery = newDiscovery(scene);
  discovery->sessions(scene.home.since);
  const auto pass = [&] {
    return millisecondsOf([&] { benchmark::DoNotOptimize(discovery->sessions(scene.home.since)); });
  };
  const auto stats = [&] { statFiles(scene); };
  const auto queries = [&] { runPlainly(scene.warmQueries); };
  const auto both = [&] {
    statFiles(scene);
    runPlainly(scene.warmQueries);
  };
  measure(state,
          pass,
          {BareWork{"stats_and_queries", true, both},
           BareWork{"stats", false, stats},
           BareWork{"queries", false, queries}});
}

// Now and then a warm pass looks for new transcripts as well.
void benchWarmPassWithScan(benchmark::State& state, Scene& scene) {
  Date now = scene.now;
  SessionDiscovery discovery(options(scene, [&now] { return now; }));
  discovery.sessions(scene.home.since);
  const auto pass = [&] {
    now += std::chrono::seconds(31);
    return millisecondsOf([&] { benchmark::DoNotOptimize(discovery.sessions(scene.home.since)); });
  };
  const auto bare = [&] {
    statFiles(scene);
    listTranscripts(scene);
    runPlainly(scene.warmQueries);
  };
  measure(state, pass, {BareWork{"stats_listing_queries", true, bare}});
}

void benchColdPass(benchmark::State& state, Scene& scene) {
  const auto pass = [&] {
    const auto discovery = newDiscovery(scene);
    return millisecondsOf([&] { benchmark::DoNotOptimize(discovery->sessions(scene.home.since)); });
  };
  const auto sameBytes = [&] { readSameBytes(scene); };
  const auto windows = [&] { benchmark::DoNotOptimize(readWindows(scene)); };
  const auto listing = [&] { listTranscripts(scene); };
  const auto queries = [&] { runPlainly(scene.coldQueries); };
  const auto all = [&] {
    readSameBytes(scene);
    listTranscripts(scene);
    runPlainly(scene.coldQueries);
  };
  measure(state,
          pass,
          {BareWork{"same_bytes", true, sameBytes},
           BareWork{"windows", true, windows},
           BareWork{"listing", false, listing},
           BareWork{"queries", false, queries},
           BareWork{"bytes_listing_queries", true, all}});
  constexpr double million = 1e6;
  state.counters["same_bytes_MB"] = static_cast<double>(totalLength(scene.coldReads)) / million;
  state.counters["windows_MB"] = static_cast<double>(readWindows(scene)) / million;
}

// NOLINTBEGIN(concurrency-mt-unsafe): no other thread is running yet.
DiscoveryHome chosenHome(const TempHome& temporary, Date now) {
  const char* directory = std::getenv("TESSIVANE_BENCH_HOME");
  const char* scale = std::getenv("TESSIVANE_BENCH_SCALE");
  DiscoveryHomeSize size;
  if (scale != nullptr)
    size = size.scaled(std::stod(scale));
  else if (directory == nullptr)
    size = size.scaled(0.02);
  return makeDiscoveryHome(directory != nullptr ? directory : temporary.path(), size, now);
}
// NOLINTEND(concurrency-mt-unsafe)

void registerBenches(Scene& scene) {
  const auto add = [&scene](const char* name, void (*bench)(benchmark::State&, Scene&)) {
    benchmark::RegisterBenchmark(name,
                                 [&scene, bench](benchmark::State& state) { bench(state, scene); })
        ->UseManualTime()
        ->Unit(benchmark::kMillisecond);
  };
  add("warm_pass", benchWarmPass);
  add("warm_pass_with_scan", benchWarmPassWithScan);
  add("cold_pass", benchColdPass);
}

int runBenches() {
  const TempHome temporary;
  Scene scene;
  scene.now = systemNow();
  scene.home = chosenHome(temporary, scene.now);
  readWindows(scene);  // into the page cache
  learn(scene);
  registerBenches(scene);
  benchmark::AddCustomContext("files to look at", std::to_string(scene.home.files.size()));
  benchmark::AddCustomContext("sessions",
                              fmt::format("{} of Claude Code, {} of Codex, {} of T3",
                                          scene.home.claudeSessions,
                                          scene.home.codexSessions,
                                          scene.home.t3Sessions));
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

}  // namespace
}  // namespace tessivane

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  try {
    return tessivane::runBenches();
  } catch (const std::exception& error) {
    fmt::print(stderr, "discovery bench: {}\n", error.what());
    return 1;
  }
}
