#pragma once

// A home in which agents and git are at work while the program runs, is killed, stopped, held up
// and started again; and in the end a look whether it stored exactly what happened. For one thread.

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "helpers/ProgramRun.h"
#include "soak/Agents.h"
#include "soak/FileStamps.h"
#include "soak/Repository.h"
#include "soak/Workshop.h"

struct sqlite3;

namespace tessivane {

class Soak final {
 public:
  /// Makes the home in `directory`, which is empty.
  Soak(std::string program, const std::string& directory, std::uint64_t seed);
  Soak(const Soak&) = delete;
  Soak& operator=(const Soak&) = delete;
  ~Soak();

  /// Lets everybody work for that time. New sessions begin only in a run of minutes, as the program
  /// looks for them twice a minute.
  void run(std::chrono::seconds duration);
  /// Waits until all is stored, ends the program, and says what is wrong, one sentence each.
  std::vector<std::string> conclude();
  /// What was done, a line each.
  std::vector<std::string> summary() const;

 private:
  using Clock = std::chrono::steady_clock;

  void work();
  void makeTrouble();
  void within(const std::string& directory, const std::function<void()>& task);
  void addClaude();
  void addCodex();

  void start();
  void end(int signal);
  void hold(Clock::duration duration);
  void release();
  void goOn();
  void watchOver();
  void finishWork();
  bool settles(std::chrono::seconds limit);

  const std::string program_;
  Workshop workshop_;
  FileStamps stamps_;
  std::vector<std::unique_ptr<Repository>> repositories_;
  CodexDatabase codexDatabase_;
  std::vector<std::unique_ptr<ClaudeAgent>> claudes_;
  std::vector<std::unique_ptr<CodexAgent>> codexes_;
  std::unique_ptr<T3Agent> t3_;

  std::unique_ptr<ProgramRun> run_;
  std::optional<Clock::time_point> startAgain_;  // while the program is down
  std::optional<Clock::time_point> goOn_;        // while it is stopped
  std::optional<Clock::time_point> release_;     // while its database is held
  sqlite3* lock_ = nullptr;
  Clock::duration longestEnd_ = {};
  bool addsSessions_ = false;
  std::vector<std::string> complaints_;
};

}  // namespace tessivane
