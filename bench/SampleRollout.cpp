#include "SampleRollout.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string_view>

#include <fmt/format.h>

#include "SampleText.h"

namespace tessivane {

namespace {

constexpr std::size_t endingBytes = 3'000;

class RolloutWriter final {
 public:
  explicit RolloutWriter(const RolloutPlan& plan) : plan_(plan), random_(plan.seed) {
    out_.reserve(plan.bytes + plan.bytes / 8);
  }

  std::string written() {
    opening();
    while (!full()) {
      beginTurn();
      // A turn left open is a long one: its beginning lies far outside of any tail window.
      const std::size_t steps =
          plan_.ending == RolloutEnding::open ? out_.max_size() : random_.size(2, 30);
      for (std::size_t step = 0; step < steps && !full(); ++step)
        toolStep();
      if (!full())
        endTurn("task_complete");
    }
    ending();
    return std::move(out_);
  }

 private:
  bool full() const { return out_.size() + endingBytes >= plan_.bytes; }

  template <typename... Arguments>
  void add(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    fmt::format_to(std::back_inserter(out_), format, std::forward<Arguments>(arguments)...);
  }

  std::string time() const {
    const double part =
        std::min(1.0, static_cast<double>(out_.size()) / static_cast<double>(plan_.bytes));
    const auto passed = std::chrono::duration_cast<std::chrono::microseconds>(
        Seconds(plan_.last - plan_.first) * part);
    return isoTextWithMilliseconds(atEnd_ ? plan_.last : plan_.first + passed);
  }

  void beginLine(std::string_view type) {
    add(R"({{"timestamp":"{}","ordinal":{},"type":"{}","payload":{{)", time(), ordinal_++, type);
  }

  void endLine() { out_ += "}}\n"; }

  void beginEvent(std::string_view type) {
    beginLine("event_msg");
    add(R"("type":"{}",)", type);
  }

  void opening() {
    beginLine("session_meta");
    add(R"("session_id":"{0}","id":"{0}","timestamp":"{1}","cwd":"{2}","originator":"{3}",)"
        R"("cli_version":"0.169.0","source":"cli","base_instructions":{{"text":")",
        plan_.threadID,
        isoTextWithMilliseconds(plan_.first),
        plan_.cwd,
        plan_.originator);
    appendText(out_, random_, 20'000);
    add(R"("}},"history_mode":"paginated","git":{{"commit_hash":"{}","branch":"main"}})",
        random_.hex(40));
    endLine();
    message("developer", 15'000);
  }

  void beginTurn() {
    turn_ = random_.uuid();
    beginEvent("task_started");
    add(R"("turn_id":"{}","started_at":{},"model_context_window":258400,)"
        R"("collaboration_mode_kind":"default")",
        turn_,
        milliseconds(plan_.first) / 1000);
    endLine();
    beginLine("turn_context");
    add(R"("turn_id":"{}","cwd":"{}","approval_policy":"on-request","notes":")", turn_, plan_.cwd);
    appendText(out_, random_, 9'000);
    out_ += '"';
    endLine();
    message("user", random_.size(60, 2'000));
    item(R"("type":"UserMessage")", random_.size(60, 2'000));
  }

  void toolStep() {
    if (random_.chance(40)) {
      beginLine("response_item");
      out_ += R"("type":"reasoning","summary":[],"encrypted_content":")";
      appendBase64(out_, random_, random_.size(600, 4'000));
      out_ += '"';
      endLine();
    }
    if (random_.chance(30)) {
      item(R"("type":"AgentMessage","phase":"commentary")", random_.size(80, 900));
      message("assistant", random_.size(80, 900));
    }
    call();
    item(R"("type":"CommandExecution","status":"completed","exit_code":0)",
         random_.size(200, 8'000));
    usage();
  }

  void call() {
    const std::string id = "call_" + random_.hex(24);
    beginLine("response_item");
    add(R"("type":"function_call","name":"exec_command","call_id":"{}","arguments":")", id);
    appendText(out_, random_, random_.size(60, 1'500));
    out_ += '"';
    endLine();
    beginLine("response_item");
    add(R"("type":"function_call_output","call_id":"{}","output":")", id);
    appendText(out_, random_, random_.size(200, 8'000));
    out_ += '"';
    endLine();
  }

  void message(std::string_view role, std::size_t bytes) {
    beginLine("response_item");
    add(R"("type":"message","role":"{}","content":[{{"type":"input_text","text":")", role);
    appendText(out_, random_, bytes);
    out_ += R"("}])";
    endLine();
  }

  void item(std::string_view head, std::size_t bytes) {
    beginEvent("item_completed");
    add(R"("thread_id":"{}","turn_id":"{}","item":{{{},"id":"{}","content":[{{"text":")",
        plan_.threadID,
        turn_,
        head,
        random_.uuid());
    appendText(out_, random_, bytes);
    out_ += R"("}]},"started_at_ms":0,"completed_at_ms":0)";
    endLine();
  }

  void usage() {
    beginEvent("token_count");
    out_ += R"("info":{"total_token_usage":{)";
    for (const char* field : {"input_tokens", "cached_input_tokens", "output_tokens"})
      add(R"("{}":{},)", field, random_.below(500'000));
    out_ += R"("total_tokens":0},"model_context_window":258400},"rate_limits":null)";
    endLine();
  }

  void endTurn(std::string_view type) {
    beginEvent(type);
    add(R"("turn_id":"{}","last_agent_message":")", turn_);
    appendText(out_, random_, random_.size(80, 2'000));
    add(R"(","completed_at":{},"duration_ms":{})",
        milliseconds(plan_.last) / 1000,
        random_.below(900'000));
    endLine();
  }

  void ending() {
    atEnd_ = true;
    if (turn_.empty())
      beginTurn();
    if (plan_.ending == RolloutEnding::open)
      call();
    else
      endTurn(plan_.ending == RolloutEnding::aborted ? "turn_aborted" : "task_complete");
  }

  const RolloutPlan& plan_;
  Random random_;
  std::string turn_;
  std::string out_;
  std::size_t ordinal_ = 0;
  bool atEnd_ = false;
};

}  // namespace

std::string sampleRollout(const RolloutPlan& plan) {
  return RolloutWriter(plan).written();
}

}  // namespace tessivane
