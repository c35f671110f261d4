#pragma once

// Those who work in the home: sessions of Claude Code and of Codex, the server of T3 Code. Each
// step writes what the real client would write, and into the ledger what must come of it.

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "helpers/AgentLines.h"
#include "helpers/CodexDatabase.h"
#include "helpers/T3Database.h"
#include "soak/Transcript.h"
#include "soak/Workshop.h"

namespace tessivane {

class ClaudeAgent final {
 public:
  /// Begins a session in the repository at `root`, which is on GitHub as `slug`.
  ClaudeAgent(Workshop& workshop, std::string root, std::string slug);

  /// Does one of the many things that such a session does. `others` are all there are.
  void step(std::vector<std::unique_ptr<ClaudeAgent>>& others);
  /// Finds out what has become certain. As often as may be.
  void review();
  /// Ends what is half done, and makes one more edit.
  void finish();

  /// Makes an edit under an id of somebody else's choice, and tells where it would be counted. The
  /// session must be ready, see `Transcript`.
  Ledger::Edit tell(const std::string& id, Date date);
  bool isReady() { return transcript_.isReady(); }

  std::string sessionID() const { return "claude:" + lines_.sessionID; }

 private:
  using Record = Transcript::Record;

  /// A pull request whose command stands in the transcript without its result.
  struct OpenCommand {
    std::string id;
    std::int64_t number;
    int generation;
    std::chrono::steady_clock::time_point told = {};  ///< when the result was written
    Token token = {};
  };

  Record edit();
  Token expect(Ledger::Event event);
  Record opened(bool inBackground);
  Record merged();
  Record nothing();
  Record noise();
  void writeOften();
  void rewrite();
  void splitCommand();
  void retell(std::vector<std::unique_ptr<ClaudeAgent>>& others);
  void spawnSubagent();

  Workshop& workshop_;
  const std::string root_;
  const std::string slug_;
  const ClaudeLines lines_;
  Transcript transcript_;
  std::optional<OpenCommand> open_;
};

class CodexAgent final {
 public:
  /// Begins a thread. The database outlives the agent.
  CodexAgent(Workshop& workshop, CodexDatabase& database, std::string root, std::string slug);

  void step();
  /// Ends what is half done, and makes one more edit.
  void finish();

 private:
  using Record = Transcript::Record;

  Record edit();
  Record command();

  Workshop& workshop_;
  CodexDatabase& database_;
  const std::string root_;
  const std::string slug_;
  const CodexLines lines_;
  Transcript transcript_;
};

/// All threads of one server.
class T3Agent final {
 public:
  T3Agent(Workshop& workshop, const std::vector<std::string>& roots);

  void step(const std::vector<std::unique_ptr<ClaudeAgent>>& others);

 private:
  struct Thread {
    std::string id;
    std::string root;
  };
  void insertItem(const Thread& thread,
                  const std::string& item,
                  const std::string& status,
                  Date date,
                  const std::optional<std::string>& native);

  Workshop& workshop_;
  T3Database database_;
  std::vector<Thread> threads_;
  std::vector<std::pair<std::string, Thread>> running_;  // items that are not completed yet
  int ordinal_ = 0;
};

}  // namespace tessivane
