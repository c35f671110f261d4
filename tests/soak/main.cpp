// Works for some time in a home of its own while the real program runs there and has a hard time,
// and compares in the end what the program stored with what was done: each event once, none
// missing, none more; and that no file of the tools was touched. When a session waits or has
// finished depends on when it is looked at, so these two kinds of event are only checked for sense.
//
// Usage: soak PROGRAM SECONDS [SEED]     exit status 0 when all is well

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "soak/Soak.h"

namespace {

namespace fs = std::filesystem;

constexpr std::size_t mostLines = 40;

std::string newDirectory() {
  std::string pattern = (fs::temp_directory_path() / "tessivane-soak-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr)
    throw std::runtime_error("cannot make " + pattern);
  return fs::canonical(pattern).string();
}

bool soak(const std::string& program, std::chrono::seconds duration, std::uint64_t seed) {
  const std::string directory = newDirectory();
  fmt::print("Seed {}, in {}\n", seed, directory);
  std::fflush(stdout);
  std::vector<std::string> complaints;
  {
    tessivane::Soak soak(program, directory, seed);
    soak.run(duration);
    complaints = soak.conclude();
    for (const std::string& line : soak.summary())
      fmt::print("{}\n", line);
  }
  if (complaints.empty()) {
    fs::remove_all(directory);
    return true;
  }
  fmt::print("{} things are wrong (seed {}, see {}):\n", complaints.size(), seed, directory);
  for (std::size_t index = 0; index < std::min(complaints.size(), mostLines); ++index)
    fmt::print("  {}\n", complaints[index]);
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && argc != 4) {
    fmt::print(stderr, "Usage: soak PROGRAM SECONDS [SEED]\n");
    return 2;
  }
  try {
    const std::uint64_t seed = argc == 4 ? std::stoull(argv[3]) : std::random_device()();
    return soak(argv[1], std::chrono::seconds(std::stoi(argv[2])), seed) ? 0 : 1;
  } catch (const std::exception& error) {
    fmt::print(stderr, "soak: {}\n", error.what());
    return 1;
  }
}
