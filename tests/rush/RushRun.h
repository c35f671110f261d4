#pragma once

// A run of Rush for tests: a table with the list, the time and the calendar that it works on.

#include <algorithm>
#include <array>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "SampleSession.h"
#include "rush/RushTable.h"

namespace tessivane {

struct RushRun {
  std::vector<AgentSession> sessions = {};
  Date now = noon;
  Calendar calendar = Calendar("UTC");
  RushTable table = {};
  RushChange change = {};  ///< of the last operation

  /// Plays words such as "b=working sync" and tells what the last operation did and left, as
  /// "change|seat|queue|history", the seat with "?" while its session is missing. What the words
  /// mean stands in `playWord`.
  std::string play(const std::string& script) {
    std::istringstream words(script);
    for (std::string word; words >> word;)
      playWord(word);
    return state();
  }

  AgentSession& operator[](const std::string& name) {
    return *std::ranges::find(sessions, name, &AgentSession::nativeID);
  }

  std::string queue() const {
    std::string names;
    for (const AgentSession* session : table.queue(sessions, now, calendar))
      names += (names.empty() ? "" : " ") + session->nativeID;
    return names;
  }

 private:
  void playWord(const std::string& word) {
    const auto mark = std::min(word.find_first_of("=:"), word.size());
    const std::string subject = word.substr(0, mark);
    const std::string object = mark < word.size() ? word.substr(mark + 1) : "";
    if (word[mark] == '=')  // "a=idle": "a" is idle
      alter(subject, object);
    else if (subject == "pass")  // seconds
      now += std::chrono::duration_cast<Date::duration>(Seconds(std::stod(object)));
    else if (subject == "hold")
      table.hold = true;
    else if (subject == "wake")
      table.wakeSnoozed();
    else
      change = operate(subject, object);
  }

  void alter(const std::string& name, const std::string& what) {
    static const std::map<std::string, SessionStatus> statuses = {
        {"asks", SessionStatus::needsYou},
        {"working", SessionStatus::working},
        {"finished", SessionStatus::yourTurn},
        {"idle", SessionStatus::idle}};
    if (what == "gone")
      std::erase_if(sessions, [&](const auto& session) { return session.nativeID == name; });
    else if (what == "new")
      sessions.push_back(sample(name));
    else if (what == "newer")
      (*this)[name].activity += std::chrono::microseconds(1);
    else if (what == "elsewhere")
      (*this)[name].projectPath = "/elsewhere";
    else if (what == "subagent")
      (*this)[name].kind = SessionKind::subagent;
    else
      (*this)[name].status = statuses.at(what);
  }

  RushChange operate(const std::string& verb, const std::string& object) {
    const RushFilter except{.projectMode = RushFilter::ProjectMode::except,
                            .projects = {"/" + object}};
    return verb == "skip"     ? table.skip(sessions, now, calendar)
           : verb == "done"   ? table.markDone(sessions, now, calendar)
           : verb == "snooze" ? table.snooze(now + std::chrono::minutes(1), sessions, now, calendar)
           : verb == "back"   ? table.back(sessions)
           : verb == "take"   ? table.take(sample(object), sessions, now, calendar)
           : verb == "except" ? table.setFilter(except, sessions, now, calendar)
                              : table.sync(sessions, now, calendar);
  }

  std::string state() const {
    static constexpr std::array kinds = {"dealt ", "none", "emptied"};
    static constexpr std::array outcomes = {"played ", "skipped ", "done ", "snoozed ", "moved "};
    std::string text = kinds.at(static_cast<std::size_t>(change.kind)) +
                       (change.session ? change.session->nativeID : "") + "|" +
                       (table.seat ? table.seat->nativeID : "") +
                       (table.isSeatMissing() ? "?" : "") + "|" + queue() + "|";
    for (const RushHistoryEntry& entry : table.history)
      text += (text.ends_with('|') ? "" : ", ") +
              std::string(outcomes.at(static_cast<std::size_t>(entry.outcome))) +
              entry.session.nativeID;
    return text;
  }
};

}  // namespace tessivane
