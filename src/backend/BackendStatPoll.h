#pragma once

// Notices by stat calls that followed files have changed, for changes that no file event tells of.
// On the activity queue, owned by the activity store.

#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/Files.h"

namespace tessivane {

/// By which a changed file is known.
using BackendFileSignature = FileStamp;

class BackendStatPoll final {
 public:
  /// Follows these files and no others. One that is new here counts as changed from what it is now
  /// on, one that does not exist from when it does.
  void follow(const std::set<std::string>& paths);

  /// Takes the file as it is for known: it is about to be read for another reason.
  void note(const std::string& path);

  /// The files that have changed since the last call, by one stat for each that is followed.
  std::vector<std::string> changed();

 private:
  std::unordered_map<std::string, std::optional<BackendFileSignature>> lastStats_;
};

}  // namespace tessivane
