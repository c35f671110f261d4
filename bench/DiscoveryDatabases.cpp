#include "DiscoveryDatabases.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>

#include <fmt/format.h>

#include "SampleText.h"
#include "helpers/CodexDatabase.h"
#include "helpers/T3Database.h"

namespace tessivane {

namespace {

// Writes what T3 Code keeps of one thread.
class T3ThreadWriter final {
 public:
  T3ThreadWriter(const T3Database& database, const T3ThreadPlan& plan, Random& random)
      : database_(database),
        plan_(plan),
        random_(random),
        thread_(fmt::format("thread-{}-{}", plan.index, random.hex(12))),
        providerThread_("provider-" + thread_),
        isRunning_(plan.index % 10 == 9 && !plan.isOld) {}

  void write() {
    thread();
    const std::size_t runs = 1 + random_.below(6);
    for (std::size_t ordinal = 1; ordinal <= runs; ++ordinal)
      run(ordinal, static_cast<double>(ordinal) / static_cast<double>(runs), ordinal == runs);
    if (plan_.index % 20 == 19 && !plan_.isOld)
      database_.insert("v2_runtime_requests",
                       {{"runtime_request_id", "request-" + thread_},
                        {"thread_id", thread_},
                        {"kind", "command"},
                        {"status", "pending"},
                        {"created_at", time(1)}});
  }

 private:
  std::string time(double part) const {
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(
        Seconds(plan_.updated - plan_.created) * part);
    return isoTextWithMilliseconds(plan_.created + passed);
  }

  std::string text(std::size_t low, std::size_t high) {
    return sampleText(random_, random_.size(low, high));
  }

  void thread() {
    json payload{{"id", thread_},
                 {"modelSelection", {{"instanceId", plan_.driver}, {"model", "gpt-5.6"}}},
                 {"worktreePath", plan_.cwd},
                 {"lineage", {{"parentThreadId", nullptr}, {"relationshipToParent", nullptr}}},
                 {"settledAt", nullptr},
                 {"settledOverride", nullptr},
                 {"pullRequests", {{{"title", text(100, 2'000)}}}}};
    if (plan_.index % 20 == 1)
      payload["settledAt"] = time(1);
    json row{{"thread_id", thread_},
             {"project_id", "project"},
             {"title", "Thread " + thread_},
             {"default_provider", plan_.driver},
             {"active_provider_thread_id", providerThread_},
             {"created_at", time(0)},
             {"updated_at", time(1)},
             {"payload_json", payload}};
    if (plan_.isOld && plan_.index % 2 == 0)
      row["archived_at"] = time(1);
    database_.insert("v2_threads", row);
    database_.insert(
        "v2_provider_threads",
        {{"provider_thread_id", providerThread_},
         {"thread_id", thread_},
         {"provider", plan_.driver},
         {"status", "idle"},
         {"updated_at", time(1)},
         {"driver", plan_.driver},
         {"payload_json",
          {{"driver", plan_.driver},
           {"nativeThreadRef", {{"driver", plan_.driver}, {"nativeId", plan_.nativeID}}}}}});
  }

  void run(std::size_t ordinal, double part, bool isLast) {
    const std::string id = fmt::format("run-{}-{}", thread_, ordinal);
    const bool isOpen = isRunning_ && isLast;
    json row{{"run_id", id},
             {"thread_id", thread_},
             {"ordinal", ordinal},
             {"provider", plan_.driver},
             {"provider_thread_id", providerThread_},
             {"status", isOpen ? "running" : "completed"},
             {"requested_at", time(part * 0.9)},
             {"payload_json", {{"id", id}, {"ordinal", ordinal}}}};
    if (!isOpen)
      row["completed_at"] = time(part);
    database_.insert("v2_runs", row);
    database_.insert("v2_run_attempts",
                     {{"attempt_id", "attempt-" + id},
                      {"thread_id", thread_},
                      {"run_id", id},
                      {"attempt_ordinal", 1},
                      {"provider_thread_id", providerThread_},
                      {"status", isOpen ? "running" : "completed"},
                      {"payload_json", {{"nativeThreadId", plan_.nativeID}}}});
    message(id, "user", part * 0.9);
    for (std::size_t item = 0; item < 4 + random_.below(16); ++item)
      turnItem(id, item, part);
    message(id, "assistant", part);
  }

  void message(const std::string& run, const std::string& role, double part) {
    const std::string words = text(60, 6'000);
    database_.insert("v2_messages",
                     {{"message_id", fmt::format("message-{}-{}", run, role)},
                      {"thread_id", thread_},
                      {"run_id", run},
                      {"role", role},
                      {"streaming", 0},
                      {"created_at", time(part)},
                      {"updated_at", time(part)},
                      {"payload_json", {{"role", role}, {"text", words}}}});
  }

  void turnItem(const std::string& run, std::size_t ordinal, double part) {
    database_.insert("v2_turn_items",
                     {{"turn_item_id", fmt::format("item-{}-{}", run, ordinal)},
                      {"thread_id", thread_},
                      {"run_id", run},
                      {"ordinal", ordinal},
                      {"type", "command_execution"},
                      {"status", "completed"},
                      {"updated_at", time(part)},
                      {"payload_json", {{"output", text(100, 5'000)}}}});
  }

  const T3Database& database_;
  const T3ThreadPlan& plan_;
  Random& random_;
  std::string thread_;
  std::string providerThread_;
  bool isRunning_;
};

}  // namespace

void writeCodexDatabase(const std::string& home, const std::vector<CodexThreadPlan>& threads) {
  CodexDatabase database(home + "/.codex/state_5.sqlite");
  database.execute("begin");
  for (const CodexThreadPlan& plan : threads) {
    CodexThread row{.id = plan.id,
                    .rolloutPath = plan.rolloutPath,
                    .recency = std::max(plan.created, plan.updated - std::chrono::minutes(5)),
                    .title = plan.title,
                    .cwd = plan.cwd,
                    .source = plan.source,
                    .threadSource = plan.threadSource,
                    .originator = plan.originator,
                    .updated = plan.updated,
                    .created = plan.created,
                    .archived = plan.archived};
    database.insert(row);
  }
  database.execute("commit");
}

void writeT3Database(const std::string& home,
                     const std::vector<T3ThreadPlan>& threads,
                     std::uint64_t seed) {
  const std::string directory = home + "/.t3/userdata";
  std::filesystem::create_directories(directory);
  Random random(seed);
  std::ofstream(directory + "/environment-id", std::ios::binary) << random.uuid() << '\n';
  T3Database database(directory + "/statev2.sqlite", T3Generation::orchestration);
  database.execute("begin");
  for (const T3ThreadPlan& plan : threads)
    T3ThreadWriter(database, plan, random).write();
  database.execute("commit");
  database.close();
}

}  // namespace tessivane
