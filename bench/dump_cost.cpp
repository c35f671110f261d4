// What one run of `tessivane --dump` costs as a process: time by the clock, processor time and peak
// memory.
// Usage: dump_cost PROGRAM HOME [RUNS]
//
// A program of its own, and a small one, because of how Linux counts: the peak that it tells of a
// child includes what the parent held at the moment of the start.

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct Run {
  double milliseconds = 0;           // by the clock
  double processorMilliseconds = 0;  // tells more on a busy machine
  double mebibytes = 0;
  bool succeeded = false;
};

double millisecondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Standard error, with the program's own times, is shown for the last run only.
Run run(const char* program, const std::string& home, bool isLast) {
  std::string homeVariable = "HOME=" + home;
  std::string command = program;
  std::string argument = "--dump";
  const std::array<char*, 3> arguments{command.data(), argument.data(), nullptr};
  const std::array<char*, 2> environment{homeVariable.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  if (!isLast)
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);

  Run result;
  pid_t child = 0;
  const auto begin = std::chrono::steady_clock::now();
  const int failure =
      posix_spawn(&child, program, &actions, nullptr, arguments.data(), environment.data());
  posix_spawn_file_actions_destroy(&actions);
  if (failure != 0)
    return result;
  int status = 0;
  rusage usage{};
  if (wait4(child, &status, 0, &usage) != child)
    return result;
  const auto end = std::chrono::steady_clock::now();
  result.milliseconds = std::chrono::duration<double, std::milli>(end - begin).count();
  result.processorMilliseconds = millisecondsOf(usage.ru_utime) + millisecondsOf(usage.ru_stime);
  result.mebibytes = static_cast<double>(usage.ru_maxrss) / 1024;  // told in KiB
  result.succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc == 4 ? std::atoi(argv[3]) : 11;
  if (argc < 3 || argc > 4 || runs < 1) {
    std::fprintf(stderr, "Usage: dump_cost PROGRAM HOME [RUNS]\n");
    return 2;
  }
  std::vector<double> times;
  std::vector<double> processorTimes;
  double peak = 0;
  for (int index = 0; index < runs; ++index) {
    const Run one = run(argv[1], argv[2], index == runs - 1);
    if (!one.succeeded) {
      std::fprintf(stderr, "dump_cost: %s --dump failed\n", argv[1]);
      return 1;
    }
    times.push_back(one.milliseconds);
    processorTimes.push_back(one.processorMilliseconds);
    peak = std::max(peak, one.mebibytes);
  }
  const auto [shortest, longest] = std::minmax_element(times.begin(), times.end());
  std::printf(
      "%d runs: median %.1f ms by the clock (%.1f to %.1f), %.1f ms of processor time; "
      "peak memory %.1f MiB at most\n",
      runs,
      median(times),
      *shortest,
      *longest,
      median(processorTimes),
      peak);
  return 0;
}
