#pragma once

// How the files of a directory were left by those whose files they are. Whatever is different later
// was done by somebody else. Looks at names and dates only: opening a database would disturb locks.

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace tessivane {

class FileStamps final {
 public:
  /// Takes over how everything in a directory is now.
  void adopt(const std::string& directory);

  /// What is new, gone or different in a directory since then, one sentence each.
  std::vector<std::string> differences(const std::string& directory) const;

 private:
  // Mode, inode, size and modification time.
  using Stamp = std::tuple<std::uint64_t, std::uint64_t, std::int64_t, std::int64_t, std::int64_t>;
  using Stamps = std::map<std::string, Stamp>;

  static Stamps taken(const std::string& directory);

  Stamps stamps_;
};

}  // namespace tessivane
