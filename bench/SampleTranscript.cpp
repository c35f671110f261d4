#include "SampleTranscript.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <iterator>
#include <string_view>

#include <fmt/format.h>

#include "SampleText.h"

namespace tessivane {

namespace {

// What the closing lines of a transcript may take.
constexpr std::size_t endingBytes = 6'000;

constexpr std::array<std::string_view, 8> tools{
    "Bash", "Read", "Edit", "Bash", "Grep", "Read", "Write", "Glob"};

class TranscriptWriter final {
 public:
  explicit TranscriptWriter(const TranscriptPlan& plan)
      : plan_(plan), random_(plan.seed), title_(makeTitle()), mode_(makeMode()) {
    out_.reserve(plan.bytes + plan.bytes / 8);
  }

  std::string written() {
    opening();
    while (!full())
      turn();
    ending();
    return std::move(out_);
  }

 private:
  bool full() const { return out_.size() + endingBytes >= plan_.bytes; }

  std::string makeTitle() { return fmt::format("Rework the {} export", random_.hex(6)); }

  std::string makeMode() {
    constexpr std::array<std::string_view, 5> modes{
        "default", "acceptEdits", "auto", "plan", "bypassPermissions"};
    return std::string(modes[random_.below(modes.size())]);
  }

  template <typename... Arguments>
  void add(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    fmt::format_to(std::back_inserter(out_), format, std::forward<Arguments>(arguments)...);
  }

  // The clock of the transcript runs with its size. Lines stand a little out of order.
  std::string time() {
    using std::chrono::milliseconds;
    const double part =
        std::min(1.0, static_cast<double>(out_.size()) / static_cast<double>(plan_.bytes));
    const auto passed = std::chrono::duration_cast<std::chrono::microseconds>(
        Seconds(plan_.last - plan_.first) * part);
    const Date date = plan_.first + passed - milliseconds(random_.below(120));
    return isoTextWithMilliseconds(atEnd_ ? plan_.last : std::clamp(date, plan_.first, plan_.last));
  }

  // A conversation line: older clients put what is common to all lines in front.
  void beginLine() {
    add(R"({{"parentUuid":"{}","isSidechain":false,)", parent_);
    if (!plan_.current)
      add(R"("userType":"external","entrypoint":"{}","cwd":"{}","sessionId":"{}",)"
          R"("version":"2.0.76","gitBranch":"main",)",
          plan_.entrypoint,
          plan_.cwd,
          plan_.sessionID);
  }

  void endLine() {
    parent_ = random_.uuid();
    add(R"(,"uuid":"{}","timestamp":"{}")", parent_, time());
    if (plan_.current)
      add(R"(,"session_id":"{0}","userType":"external","entrypoint":"{1}","cwd":"{2}",)"
          R"("sessionId":"{0}","version":"2.1.330","gitBranch":"main")",
          plan_.sessionID,
          plan_.entrypoint,
          plan_.cwd);
    out_ += "}\n";
  }

  void opening() {
    if (plan_.current)
      metadata();
    prompt();
    if (!plan_.current)
      return;
    for (const std::size_t bytes : {1'200U, 600U, 1'200U, 5'500U, 13'000U, 7'500U})
      attachment("session_context", bytes);
    shapeOfRequest(random_.size(42'000, 90'000));
    attachment("prompt_snapshot", random_.size(62'000, 74'000));
  }

  void turn() {
    prompt();
    const std::size_t steps = random_.size(2, 24);
    for (std::size_t step = 0; step < steps && !full(); ++step)
      toolStep();
    answer("text");
    if (plan_.current) {
      beginLine();
      add(R"("type":"system","subtype":"turn_duration","durationMs":{},"messageCount":{})",
          random_.below(900'000),
          random_.below(80));
      endLine();
      metadata();
    }
  }

  void toolStep() {
    request();
    if (random_.chance(35))
      answer("thinking");
    if (random_.chance(40))
      answer("text");
    const std::string_view tool = tools[random_.below(tools.size())];
    const std::string call = toolCall(tool);
    if (plan_.current && random_.chance(15))
      metadata();
    toolResult(tool, call);
  }

  void ending() {
    atEnd_ = true;
    switch (plan_.ending) {
      case TranscriptEnding::answered:
        answer("text");
        break;
      case TranscriptEnding::toolCalled:
        toolCall("Bash");
        break;
      case TranscriptEnding::toolResult:
        toolResult("Bash", toolCall("Bash"));
        break;
      case TranscriptEnding::interrupted:
        toolCall("Bash");
        userText(R"([{"type":"text","text":"[Request interrupted by user for tool use]"}])");
        break;
      case TranscriptEnding::picture:
        pictureResult(toolCall("Read"));
        break;
    }
    if (plan_.current)
      metadata();
  }

  // What the client says again and again about the session as a whole.
  void metadata() {
    const std::string_view id = plan_.sessionID;
    add(R"({{"type":"last-prompt","lastPrompt":"Go on with the next one","leafUuid":"{}",)"
        R"("sessionId":"{}"}})"
        "\n",
        random_.uuid(),
        id);
    add(R"({{"type":"ai-title","aiTitle":"{}","sessionId":"{}"}})"
        "\n",
        title_,
        id);
    add(R"({{"type":"mode","mode":"normal","sessionId":"{}"}})"
        "\n",
        id);
    add(R"({{"type":"permission-mode","permissionMode":"{}","sessionId":"{}"}})"
        "\n",
        mode_,
        id);
    add(R"({{"type":"file-history-snapshot","messageId":"{0}","snapshot":{{"messageId":"{0}",)"
        R"("trackedFileBackups":{{}},"timestamp":"{1}"}},"isSnapshotUpdate":false}})"
        "\n",
        random_.uuid(),
        isoTextWithMilliseconds(plan_.first));
  }

  void prompt() {
    beginLine();
    add(R"("promptId":"{}","type":"user","message":{{"role":"user","content":)", random_.uuid());
    if (plan_.pictureFirst && !prompted_) {
      picture(random_.size(140'000, 400'000));
    } else {
      out_ += '"';
      appendText(out_, random_, random_.size(20, 1'500));
      out_ += '"';
    }
    prompted_ = true;
    add(R"(}},"permissionMode":"{}","origin":{{"kind":"human"}},"promptSource":"typed")", mode_);
    endLine();
  }

  void picture(std::size_t bytes) {
    out_ += R"([{"type":"image","source":{"type":"base64","media_type":"image/png","data":")";
    appendBase64(out_, random_, bytes);
    out_ += R"("}},{"type":"text","text":"Make it look like this."}])";
  }

  void userText(std::string_view content) {
    beginLine();
    add(R"("promptId":"{}","type":"user","message":{{"role":"user","content":{}}})",
        random_.uuid(),
        content);
    endLine();
  }

  void attachment(std::string_view type, std::size_t bytes) {
    beginLine();
    add(R"("attachment":{{"type":"{}","systemPrompt":[")", type);
    appendText(out_, random_, bytes);
    out_ += R"("]},"type":"attachment")";
    endLine();
  }

  void shapeOfRequest(std::size_t bytes) {
    add(R"({{"type":"api-request-shape","sessionId":"{}","shapeHash":"{}","timestamp":"{}",)"
        R"("version":"2.1.330","shape":{{"system":[],"tools":[)",
        plan_.sessionID,
        random_.hex(64),
        time());
    for (const std::string_view tool : tools) {
      add(R"({{"name":"{}","description":")", tool);
      appendText(out_, random_, bytes / tools.size());
      out_ += R"(","input_schema":{"type":"object"}},)";
    }
    out_.back() = ']';
    out_ += "}}\n";
  }

  void request() {
    if (!plan_.current)
      return;
    add(R"({{"type":"api-request","sessionId":"{}","id":"{}","timestamp":"{}",)"
        R"("version":"2.1.330","querySource":"repl_main_thread","shapeHash":"{}","tail":["{}"],)"
        R"("note":")",
        plan_.sessionID,
        random_.uuid(),
        time(),
        random_.hex(64),
        random_.hex(64));
    appendText(out_, random_, 700);
    out_ += "\"}\n";
  }

  // One block of an answer; each has a line of its own.
  void beginAnswer() {
    beginLine();
    add(R"("message":{{"id":"msg_{}","type":"message","role":"assistant",)"
        R"("model":"claude-opus-4-9","content":[)",
        random_.hex(20));
  }

  void endAnswer(std::string_view stopReason) {
    add(R"(],"stop_reason":"{}","stop_sequence":null,"usage":{{"input_tokens":{},)"
        R"("cache_creation_input_tokens":{},"cache_read_input_tokens":{},"output_tokens":{},)"
        R"("server_tool_use":{{"web_search_requests":0,"web_fetch_requests":0}},)"
        R"("service_tier":"standard","cache_creation":{{"ephemeral_1h_input_tokens":0,)"
        R"("ephemeral_5m_input_tokens":0}},"inference_geo":"","iterations":[],)"
        R"("speed":"standard"}}}},"apiBlockIndex":0,"requestId":"req_{}","type":"assistant")",
        stopReason,
        random_.below(90),
        random_.below(9'000),
        random_.below(180'000),
        random_.below(4'000),
        random_.hex(24));
    endLine();
  }

  void answer(std::string_view type) {
    beginAnswer();
    add(R"({{"type":"{0}","{0}":")", type);
    appendText(out_, random_, random_.size(80, 3'000));
    if (type == "thinking") {
      out_ += R"(","signature":")";
      appendBase64(out_, random_, random_.size(300, 2'000));
    }
    out_ += "\"}";
    endAnswer("end_turn");
  }

  std::string toolCall(std::string_view tool) {
    std::string call = "toolu_" + random_.hex(24);
    beginAnswer();
    add(R"({{"type":"tool_use","id":"{}","name":"{}","input":{{"description":")", call, tool);
    appendText(out_, random_, random_.size(40, tool == "Write" || tool == "Edit" ? 8'000 : 400));
    out_ += "\"}}";
    endAnswer("tool_use");
    return call;
  }

  void toolResult(std::string_view tool, std::string_view call) {
    const std::string text = sampleText(random_, random_.size(60, tool == "Grep" ? 6'000 : 24'000));
    beginLine();
    add(R"("promptId":"{}","type":"user","message":{{"role":"user","content":[)"
        R"({{"tool_use_id":"{}","type":"tool_result","content":"{}","is_error":false}}]}})",
        random_.uuid(),
        call,
        text);
    // The client keeps a second copy for its own screens. It stands behind the time.
    if (tool == "Bash")
      add(R"(,"toolUseResult":{{"stdout":"{}","stderr":"","interrupted":false}})", text);
    else
      add(R"(,"toolUseResult":{{"type":"text","file":{{"filePath":"{}/a.cpp","content":"{}"}}}})",
          plan_.cwd,
          text);
    endLine();
  }

  void pictureResult(std::string_view call) {
    beginLine();
    add(R"("promptId":"{}","type":"user","message":{{"role":"user","content":[)"
        R"({{"tool_use_id":"{}","type":"tool_result","content":)",
        random_.uuid(),
        call);
    picture(random_.size(280'000, 700'000));
    out_ += "}]}";
    endLine();
  }

  const TranscriptPlan& plan_;
  Random random_;
  std::string title_;
  std::string mode_;
  std::string parent_ = random_.uuid();
  std::string out_;
  bool prompted_ = false;
  bool atEnd_ = false;
};

}  // namespace

std::string sampleTranscript(const TranscriptPlan& plan) {
  return TranscriptWriter(plan).written();
}

}  // namespace tessivane
