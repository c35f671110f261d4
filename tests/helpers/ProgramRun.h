#pragma once

// A run of the real program, or of another that stays: started, signalled and waited for. For one
// thread.

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "support/Date.h"

namespace tessivane {

class ProgramRun final {
 public:
  struct Options {
    std::vector<std::string> command = {};  ///< the program's path, and its arguments
    /// "NAME=value", of other names than what is handed on: PATH, LANG and what sanitizers are
    /// told. What tells of a desktop, of GitHub or of git is not.
    std::vector<std::string> environment = {};
    std::string log = {};  ///< the file that takes what it prints, at its end
  };

  /// Starts it. Throws when it cannot be started.
  explicit ProgramRun(const Options& options);
  ProgramRun(const ProgramRun&) = delete;
  ProgramRun& operator=(const ProgramRun&) = delete;
  /// Kills what still runs.
  ~ProgramRun();

  pid_t process() const { return process_; }
  bool isRunning() { return !wait(Seconds(0)); }
  /// True once it has come to where it handles that signal itself.
  bool catches(int number) const;
  void signal(int number) const;

  /// The status as `waitpid` gives it; nothing when it still runs after that time.
  std::optional<int> wait(Seconds limit);

 private:
  pid_t process_ = -1;
  int descriptor_ = -1;  // readable once the process has ended
  std::optional<int> status_;
};

/// A home directory for a run of the program, with the program's own directories beside it: what it
/// writes is never among what it watches. Relative to `directory`, which exists.
struct ProgramHome {
  explicit ProgramHome(std::string path) : directory(std::move(path)) {}

  std::string directory;

  std::string home() const { return directory + "/home"; }
  std::string database() const { return directory + "/data/Tessivane/activity.sqlite"; }
  std::string log() const { return directory + "/log"; }
  /// The program without a window.
  ProgramRun::Options headless(const std::string& program) const;
};

}  // namespace tessivane
