#include <filesystem>

#include "soak/Agents.h"

namespace tessivane {

namespace {

std::string databasePath(const Workshop& workshop) {
  const std::string directory = workshop.path(".t3/userdata");
  std::filesystem::create_directories(directory);
  return directory + "/statev2.sqlite";
}

}  // namespace

T3Agent::T3Agent(Workshop& workshop, const std::vector<std::string>& roots)
    : workshop_(workshop), database_(databasePath(workshop), T3Generation::orchestration) {
  const std::string date = isoTextWithMilliseconds(Workshop::now());
  for (const std::string& root : roots) {
    const Thread thread{.id = workshop.name("t3-"), .root = root};
    database_.insert("projection_projects",
                     {{"project_id", "project-" + thread.id},
                      {"workspace_root", root},
                      {"created_at", date},
                      {"updated_at", date}});
    database_.insert("v2_threads",
                     {{"thread_id", thread.id},
                      {"project_id", "project-" + thread.id},
                      {"title", "Do it"},
                      {"created_at", date},
                      {"updated_at", date}});
    workshop.ledger.addSession("t3:" + thread.id, root);
    threads_.push_back(thread);
  }
}

void T3Agent::insertItem(const Thread& thread,
                         const std::string& item,
                         const std::string& status,
                         Date date,
                         const std::optional<std::string>& native) {
  json payload = {{"fileName", thread.root + "/src/file.ts"}};
  if (native)
    payload["nativeItemRef"] = {{"nativeId", *native}};
  database_.insert("v2_turn_items",
                   {{"turn_item_id", item},
                    {"thread_id", thread.id},
                    {"ordinal", ++ordinal_},
                    {"type", "file_change"},
                    {"status", status},
                    {"updated_at", isoTextWithMilliseconds(date)},
                    {"payload_json", payload}});
}

void T3Agent::step(const std::vector<std::unique_ptr<ClaudeAgent>>& others) {
  const Date date = Workshop::now();
  const Thread& thread = workshop_.pick(threads_);
  const std::string sessionID = "t3:" + thread.id;
  if (!running_.empty() && workshop_.random.chance(40)) {
    const auto [item, owner] = running_.back();
    running_.pop_back();
    database_.execute("update v2_turn_items set status = 'completed', updated_at = '" +
                      isoTextWithMilliseconds(date) + "' where turn_item_id = '" + item + "'");
    workshop_.ledger.add(Ledger::Edit{
        .key = "t3:" + item, .root = owner.root, .sessionID = "t3:" + owner.id, .date = date});
    return;
  }
  const std::string item = workshop_.name("item-");
  switch (workshop_.random.below(4)) {
    case 0:
      insertItem(thread, item, "running", date, std::nullopt);
      running_.emplace_back(item, thread);
      return;
    case 1: {
      // T3 Code and the agent that it drives tell of the same edit.
      ClaudeAgent& other = *others[workshop_.random.below(others.size())];
      if (!other.isReady())
        return;
      ++workshop_.counts["edits told by T3 Code and Claude Code"];
      const std::string native = workshop_.name("toolu_");
      const Ledger::Edit edit{
          .key = "native:" + native, .root = thread.root, .sessionID = sessionID, .date = date};
      workshop_.ledger.add(edit);
      workshop_.ledger.addTwin(other.tell(native, date));
      insertItem(thread, item, "completed", date, native);
      return;
    }
    default:
      ++workshop_.counts["edits of T3 Code"];
      insertItem(thread, item, "completed", date, std::nullopt);
      workshop_.ledger.add(Ledger::Edit{
          .key = "t3:" + item, .root = thread.root, .sessionID = sessionID, .date = date});
  }
}

}  // namespace tessivane
