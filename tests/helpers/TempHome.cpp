#include "helpers/TempHome.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include <fmt/ranges.h>

namespace tessivane {

namespace fs = std::filesystem;

namespace {

void require(bool condition, const std::string& what) {
  if (!condition)
    throw std::runtime_error("TempHome: " + what);
}

void writeFile(const std::string& path, std::string_view contents, std::ios::openmode mode) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream file(path, std::ios::binary | mode);
  file.write(contents.data(), static_cast<std::streamsize>(contents.size()));
  require(file.good(), "cannot write " + path);
}

std::string described(const fs::directory_entry& entry) {
  struct stat status {};
  require(::lstat(entry.path().c_str(), &status) == 0, "cannot stat " + entry.path().string());
  std::ostringstream text;
  text << entry.path().string() << ' ' << status.st_mode << ' ' << status.st_size << ' '
       << status.st_mtim.tv_sec << '.' << status.st_mtim.tv_nsec << ' ' << status.st_ino << '\n';
  if (entry.is_symlink()) {
    text << fs::read_symlink(entry.path()).string() << '\n';
  } else if (S_ISREG(status.st_mode)) {
    text << std::ifstream(entry.path(), std::ios::binary).rdbuf() << '\n';
  }
  return text.str();
}

}  // namespace

TempHome::TempHome() {
  std::string pattern = (fs::temp_directory_path() / "tessivane-test-XXXXXX").string();
  require(::mkdtemp(pattern.data()) != nullptr, "cannot make a directory");
  path_ = fs::canonical(pattern).string();
}

TempHome::~TempHome() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string TempHome::path(std::string_view relative) const {
  return path_ + "/" + std::string(relative);
}

std::string TempHome::write(std::string_view relative, std::string_view contents) const {
  writeFile(path(relative), contents, std::ios::trunc);
  return path(relative);
}

std::string TempHome::write(std::string_view relative,
                            std::string_view contents,
                            Date modified) const {
  write(relative, contents);
  setModified(relative, modified);
  return path(relative);
}

void TempHome::append(std::string_view relative, std::string_view contents) const {
  writeFile(path(relative), contents, std::ios::app);
}

std::string TempHome::makeDirectory(std::string_view relative) const {
  fs::create_directories(path(relative));
  return path(relative);
}

void TempHome::setModified(std::string_view relative, Date modified) const {
  const auto sinceEpoch = modified.time_since_epoch();
  const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
  const timespec time{seconds.count(), std::chrono::nanoseconds(sinceEpoch - seconds).count()};
  // Both dates: the system reports a change of the one alone as a write.
  const std::array<timespec, 2> times{time, time};
  require(::utimensat(AT_FDCWD, path(relative).c_str(), times.data(), 0) == 0,
          "cannot date " + path(relative));
}

std::string TempHome::listing() const {
  std::vector<std::string> entries;
  for (const auto& entry : fs::recursive_directory_iterator(path_))
    entries.push_back(described(entry));
  std::ranges::sort(entries);
  return fmt::format("{}", fmt::join(entries, ""));
}

}  // namespace tessivane
