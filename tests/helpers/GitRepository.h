#pragma once

// A repository made by the real git, with a configuration and a clock of its own: nothing of the
// machine's settings gets in, and every command happens at a date that the test knows. Logs carry
// that date as their modification date too. Throws when git refuses something.

#include <initializer_list>
#include <string>
#include <string_view>

#include "helpers/ManualClock.h"
#include "helpers/TempHome.h"
#include "support/Date.h"

namespace tessivane {

class GitRepository final {
 public:
  /// Makes an empty repository with the branch "main" in a directory below the home. `arguments`
  /// are further ones for "git init".
  GitRepository(const TempHome& home,
                std::string_view directory,
                std::initializer_list<std::string> arguments = {});

  /// Where the repository was made, and its common directory when that is ".git" there.
  const std::string& path() const { return path_; }
  std::string gitDir() const { return path_ + "/.git"; }

  /// Runs git there, or in another directory, and returns what it prints, trimmed. A minute passes
  /// before the command begins.
  std::string git(std::initializer_list<std::string> arguments);
  std::string gitIn(const std::string& directory, std::initializer_list<std::string> arguments);

  /// Commits without any change of files and returns the hash.
  std::string commit(const std::string& message);
  std::string commitIn(const std::string& directory, const std::string& message);

  /// When the last command happened. To the second, as git's dates are.
  Date now() const { return now_; }
  void advance(std::chrono::seconds duration) { now_ += duration; }

 private:
  std::string path_;
  Date now_ = ManualClock::defaultStart;
};

}  // namespace tessivane
