// What reading and scanning transcripts costs beside a bare pass over the same bytes that finds the
// ends of lines, by turns with it, with a warm page cache. The counter "speed" is the quotient of
// the medians, as a part of the bare pass's speed; the limit is 0.5. Allocations are counted in the
// work alone. A rollout of 1 GB is entered near its end within 5 ms.

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "backend/BackendClaudeScanner.h"
#include "backend/BackendCodexScanner.h"
#include "backend/BackendFileReader.h"
#include "bench/SampleRollout.h"
#include "bench/SampleTranscript.h"
#include "helpers/TempHome.h"
#include "support/ByteSearch.h"

namespace {

std::atomic<std::size_t> allocations{0};

}  // namespace

// Not inlined, where the compiler would find memory of `new` freed by `free`.
[[gnu::noinline]] void* operator new(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* memory = std::malloc(size))  // NOLINT(cppcoreguidelines-no-malloc)
    return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);  // NOLINT(cppcoreguidelines-no-malloc)
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);  // NOLINT(cppcoreguidelines-no-malloc)
}

namespace tessivane {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t sampleSize = std::size_t{96} << 20;

// The same as the scanners look for, to leave out what is of interest.
const NeedleSet& interesting() {
  static const NeedleSet needles{"gh pr ",
                                 "\"name\":\"Edit\"",
                                 "\"name\":\"Write\"",
                                 "\"name\":\"MultiEdit\"",
                                 "\"FileChange\""};
  return needles;
}

std::string withoutInteresting(const std::string& text) {
  std::string kept;
  kept.reserve(text.size());
  for (std::size_t begin = 0; begin < text.size();) {
    const auto end = std::min(text.find('\n', begin), text.size() - 1) + 1;
    const std::string_view line = std::string_view(text).substr(begin, end - begin);
    if (!interesting().occursIn(line))
      kept += line;
    begin = end;
  }
  return kept;
}

// Reads the file and steps from line feed to line feed.
std::size_t barePass(const std::string& path) {
  static std::vector<char> block(std::size_t{256} << 10);
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::size_t lines = 0;
  for (;;) {
    const ssize_t count = ::read(file, block.data(), block.size());
    if (count <= 0)
      break;
    const char* const end = block.data() + count;
    for (const char* at = block.data(); at < end; ++lines) {
      const void* feed = std::memchr(at, '\n', static_cast<std::size_t>(end - at));
      if (feed == nullptr)
        break;
      at = static_cast<const char*>(feed) + 1;
    }
  }
  ::close(file);
  return lines;
}

template <typename Scanner>
std::size_t scanPass(const std::string& path) {
  Scanner scanner;
  std::size_t findings = 0;
  BackendFileReader::readAppended(
      path,
      std::nullopt,
      [](const BackendFileStat& /*stat*/) { return std::uint64_t{0}; },
      [&](std::string_view lines) { findings += scanner.scan(lines, distantPast).size(); });
  return findings;
}

double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

template <typename Scanner>
void compare(benchmark::State& state, const std::string& sample) {
  const TempHome home;
  const std::string text = withoutInteresting(sample);
  const std::string path = home.write("sample.jsonl", text);
  const auto lines = static_cast<std::size_t>(std::ranges::count(text, '\n'));
  std::vector<double> worked;
  std::vector<double> bare;
  std::size_t allocated = 0;
  for (auto _ : state) {
    const auto allocatedBefore = allocations.load();
    const auto begin = Clock::now();
    const std::size_t findings = scanPass<Scanner>(path);
    const auto middle = Clock::now();
    allocated = allocations.load() - allocatedBefore;
    const std::size_t counted = barePass(path);
    const auto end = Clock::now();
    if (findings != 0 || counted != lines)
      state.SkipWithError("the passes saw something else");
    if (allocated > lines / 20)
      state.SkipWithError("a pass allocates for its lines");
    state.SetIterationTime(Seconds(middle - begin).count());
    worked.push_back(Seconds(middle - begin).count());
    bare.push_back(Seconds(end - middle).count());
  }
  const double gigabytes = static_cast<double>(text.size()) / 1e9;
  state.counters["GB_per_s"] = gigabytes / median(worked);
  state.counters["bare_GB_per_s"] = gigabytes / median(bare);
  state.counters["speed"] = median(bare) / median(worked);
  state.counters["lines"] = static_cast<double>(lines);
  state.counters["allocations"] = static_cast<double>(allocated);
}

void BM_claude_transcript(benchmark::State& state) {
  compare<BackendClaudeScanner>(state,
                                sampleTranscript({.seed = 1,
                                                  .sessionID = "s",
                                                  .cwd = "/p",
                                                  .first = *isoDate("2026-10-05T12:00:00Z"),
                                                  .last = *isoDate("2026-10-06T12:00:00Z"),
                                                  .bytes = sampleSize}));
}

void BM_codex_rollout(benchmark::State& state) {
  compare<BackendCodexScanner>(state,
                               sampleRollout({.seed = 1,
                                              .threadID = "t",
                                              .cwd = "/p",
                                              .first = *isoDate("2026-10-05T12:00:00Z"),
                                              .last = *isoDate("2026-10-06T12:00:00Z"),
                                              .bytes = sampleSize}));
}

// A file of 1 GiB in lines of 64 KiB, one a second; all but their beginnings is a hole.
std::string makeLargeRollout(const TempHome& home, Date first, std::int64_t lines) {
  constexpr std::int64_t lineSize = 65536;
  std::string path = home.write("rollout.jsonl", "");
  const int file = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
  for (std::int64_t i = 0; i < lines; ++i) {
    const std::string head = fmt::format("{{\"timestamp\":\"{}\",\"type\":\"event_msg\"",
                                         isoTextWithMilliseconds(first + std::chrono::seconds(i)));
    const bool written = ::pwrite(file, head.data(), head.size(), i * lineSize) > 0 &&
                         ::pwrite(file, "\n", 1, (i + 1) * lineSize - 1) == 1;
    if (!written)
      std::abort();
  }
  ::close(file);
  return path;
}

void BM_enter_rollout_of_1_GB(benchmark::State& state) {
  constexpr std::int64_t lines = 16384;
  constexpr std::int64_t recent = 16;
  const Date first = *isoDate("2026-10-05T12:00:00Z");
  const Date since = first + std::chrono::seconds(lines - recent);
  const TempHome home;
  const std::string path = makeLargeRollout(home, first, lines);
  const BackendCodexScanner scanner;
  for (auto _ : state) {
    std::int64_t bytes = 0;
    BackendFileReader::readAppended(
        path,
        std::nullopt,
        [&](const BackendFileStat& /*stat*/) {
          return BackendFileReader::timestampedOffset(path, since);
        },
        [&](std::string_view chunk) {
          bytes += static_cast<std::int64_t>(chunk.size());
          benchmark::DoNotOptimize(scanner.scan(chunk, since));
        });
    if (bytes != recent * 65536)
      state.SkipWithError("entered at another line");
  }
}

BENCHMARK(BM_claude_transcript)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_codex_rollout)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_enter_rollout_of_1_GB)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tessivane
