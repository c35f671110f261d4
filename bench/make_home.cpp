// Makes the home that the discovery bench runs on, for a closer look at a pass or at the program.
// Usage: make_home DIR [SCALE]     SCALE multiplies the number of files; 1 is the full size

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <string>

#include <fmt/format.h>

#include "DiscoveryHome.h"
#include "platform/SystemClock.h"

namespace {

struct Usage {
  std::size_t files = 0;
  double apparent = 0;
  double allocated = 0;
};

// In units of a million bytes.
Usage usage(const std::string& directory) {
  Usage total;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
    struct stat status {};
    if (!entry.is_regular_file() || ::stat(entry.path().c_str(), &status) != 0)
      continue;
    ++total.files;
    total.apparent += static_cast<double>(status.st_size) / 1e6;
    total.allocated += static_cast<double>(status.st_blocks) * 512 / 1e6;
  }
  return total;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) {
    fmt::print(stderr, "Usage: make_home DIR [SCALE]\n");
    return 2;
  }
  try {
    const double scale = argc == 3 ? std::stod(argv[2]) : 1;
    auto size = tessivane::DiscoveryHomeSize();
    if (scale != 1)
      size = size.scaled(scale);
    const auto begin = std::chrono::steady_clock::now();
    const auto home = tessivane::makeDiscoveryHome(argv[1], size, tessivane::systemNow());
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    const Usage total = usage(home.directory);
    fmt::print("{}: {} files of {:.0f} MB, {:.0f} MB on the disk, in {:.1f} s\n",
               home.directory,
               total.files,
               total.apparent,
               total.allocated,
               taken.count());
    fmt::print("A pass lists {} sessions of Claude Code, {} of Codex, {} of T3 Code\n",
               home.claudeSessions,
               home.codexSessions,
               home.t3Sessions);
  } catch (const std::exception& error) {
    fmt::print(stderr, "make_home: {}\n", error.what());
    return 1;
  }
  return 0;
}
