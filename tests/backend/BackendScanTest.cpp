// Reader, cursors and scanners together: a transcript tells the same in whatever pieces it comes,
// and the checks of the fuzz programs on a small corpus.

#include <algorithm>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "SampleLines.h"
#include "StoreFixture.h"
#include "backend/BackendClaudeScanner.h"
#include "backend/BackendCodexScanner.h"
#include "backend/BackendFileReader.h"
#include "fuzz/ScanChecks.h"
#include "helpers/ChangedText.h"

namespace tessivane {
namespace {

/// A transcript that grows line by line, and what it tells.
class SampleTranscript final {
 public:
  struct Told {
    std::size_t begin = 0;  // offset of the first line that it takes
    std::size_t end = 0;    // and of the last
    BackendFinding finding = {};
  };

  SampleTranscript(const TempHome& home, std::mt19937& random) : home_(home), random_(random) {}

  void grow() {
    switch (below(9)) {
      case 0:
        return addEdit(below(10) == 0 ? 700'000 : below(2000));
      case 1:
        return addCommand();
      case 2:
      case 3:
        return open_.empty() ? addCommand() : addResult();
      case 4:
        return addDirt();
      case 5:
        return addChange(below(2000));
      case 6:
        return addRunCommand();
      default:
        addFilling();
    }
  }

  const std::string& text() const { return text_; }
  const std::vector<Told>& told() const { return told_; }

 private:
  struct Open {
    std::string id = {};
    std::int64_t number = 0;
    std::size_t begin = 0;
    bool inBackground = false;
  };

  std::size_t below(std::size_t limit) { return random_() % limit; }
  std::string newID() { return fmt::format("id{}", ++ids_); }

  std::size_t add(const std::string& line) {
    const std::size_t begin = text_.size();
    text_ += line + "\n";
    return begin;
  }

  void addEdit(std::size_t length) {
    const std::string id = newID();
    json line = claude::toolUse(
        id, "Write", {{"content", std::string(length, 'x')}, {"file_path", "/p/" + id}});
    const auto at = add(line.dump());
    told_.push_back({at, at, BackendEditFinding{"native:" + id, {"/p/" + id}, noon}});
  }

  // Rarely longer than any line that is looked at.
  void addFilling() {
    const std::string filling(below(60) == 0 ? 4U << 20U : below(3000), 'x');
    add(filling.size() < 3000 ? claude::message("user", filling).dump()
                              : claude::edit("long", filling).dump());
  }

  void addCommand() {
    const std::string id = newID();
    const auto number = static_cast<std::int64_t>(ids_);
    const auto at = add(claude::bash(id, fmt::format("gh pr merge {}", number)).dump());
    open_.push_back({.id = id, .number = number, .begin = at});
  }

  void addResult() {
    const auto at = below(open_.size());
    Open& command = open_[at];
    const std::string path = home_.path(command.id + ".output");
    if (!command.inBackground && below(2) == 0) {
      add(claude::sentToBackground(command.id, path).dump());
      command.inBackground = true;
      return;
    }
    const auto end = add((command.inBackground ? claude::notified(command.id, path)
                                               : claude::result(command.id, "merged"))
                             .dump());
    told_.push_back(
        {command.begin,
         end,
         BackendPRFinding{.kind = ActivityKind::prMerged, .number = command.number, .date = noon}});
    open_.erase(open_.begin() + static_cast<std::ptrdiff_t>(at));
  }

  void addDirt() {
    const json edit = claude::edit(newID(), "/p/dirt");
    switch (below(4)) {
      case 0:
        add(edit.dump().substr(0, below(edit.dump().size())));
        break;
      case 1:
        add(std::string(below(9), '\0'));
        break;
      case 2:
        add("{\"type\":\"api-request-blob\"," + edit.dump().substr(1));
        break;
      default:
        add(json{{"type", "progress"}, {"data", edit}}.dump());
    }
  }

  // Of the other client; each scanner passes over the other one's lines.
  void addChange(std::size_t length) {
    const std::string id = newID();
    const auto at =
        add(codex::change(id, {{"/p/" + id, {{"content", std::string(length, 'x')}}}}).dump());
    told_.push_back({at, at, BackendEditFinding{"native:" + id, {"/p/" + id}, noon}});
  }

  void addRunCommand() {
    const auto number = static_cast<std::int64_t>(++ids_);
    const auto at = add(codex::command(fmt::format("gh pr merge {}", number), "").dump());
    told_.push_back(
        {at, at, BackendPRFinding{.kind = ActivityKind::prMerged, .number = number, .date = noon}});
  }

  const TempHome& home_;
  std::mt19937& random_;
  std::string text_;
  std::vector<Told> told_;
  std::vector<Open> open_;
  std::size_t ids_ = 0;
};

class BackendScanTest : public StoreTest {
 protected:
  /// One pass of both scanners from the stored cursor on.
  void pass() {
    const auto cursor = BackendFileReader::readAppended(
        path_,
        store().cursor(path_),
        [](const BackendFileStat& /*stat*/) { return std::uint64_t{0}; },
        [this](std::string_view lines) {
          for (const auto& findings :
               {claude_.scan(lines, distantPast), codex_.scan(lines, distantPast)})
            findings_.insert(findings_.end(), findings.begin(), findings.end());
        });
    if (cursor)
      store().setCursor(*cursor, path_, noon);
  }

  /// As after the program's end: only what is stored remains.
  void restart() {
    claude_ = BackendClaudeScanner();
    close();
    const auto cursor = store().cursor(path_);
    restarts_.push_back(cursor ? cursor->offset : 0);
  }

  /// A command whose result comes after a restart tells nothing; all else is told.
  std::vector<BackendFinding> expected(const SampleTranscript& sample) const {
    std::vector<BackendFinding> findings;
    for (const auto& told : sample.told()) {
      const bool isLost = std::ranges::any_of(restarts_, [&told](std::uint64_t offset) {
        return told.begin < offset && offset <= told.end;
      });
      if (!isLost)
        findings.push_back(told.finding);
    }
    return findings;
  }

  TempHome files_;
  std::string path_ = files_.path("t.jsonl");
  BackendClaudeScanner claude_;
  BackendCodexScanner codex_;
  std::vector<BackendFinding> findings_;
  std::vector<std::uint64_t> restarts_;
};

// The two scanners' findings of one chunk come one after the other, so they are compared in order
// of their numbers.
std::vector<std::string> sorted(const std::vector<BackendFinding>& findings) {
  std::vector<std::string> texts;
  for (const BackendFinding& finding : findings) {
    if (const auto* edit = std::get_if<BackendEditFinding>(&finding))
      texts.push_back(fmt::format("{} {} {}", edit->key, edit->paths.front(), isoText(edit->date)));
    else if (const auto* pr = std::get_if<BackendPRFinding>(&finding))
      texts.push_back(fmt::format("{} {}", pr->number, isoText(pr->date)));
  }
  std::ranges::sort(texts);
  return texts;
}

TEST_F(BackendScanTest, TellsTheSameInWhateverPiecesALogComes) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE(fmt::format("seed {}", seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(fmt::format("round {}", round));
    SampleTranscript sample(files_, random);
    for (int i = 0; i < 60; ++i)
      sample.grow();
    const std::string& text = sample.text();
    files_.write("t.jsonl", "");
    store().setCursor({}, path_, noon);
    claude_ = BackendClaudeScanner();
    findings_.clear();
    restarts_.clear();
    for (std::size_t written = 0; written < text.size();) {
      const std::size_t most = random() % 4 == 0 ? 50 : text.size() / 8 + 1;
      const std::string piece = text.substr(written, random() % most + 1);
      files_.append("t.jsonl", piece);
      written += piece.size();
      if (random() % 8 == 0)
        restart();
      if (random() % 3 != 0)
        pass();
    }
    pass();
    ASSERT_EQ(sorted(findings_), sorted(expected(sample)));
    ASSERT_EQ(store().cursor(path_)->offset, text.size());
  }
}

TEST_F(BackendScanTest, HoldsForAnyBytes) {
  std::mt19937 random(20261005);
  constexpr std::string_view inserts = "\n\"\\{}[]:,' \t$#-<\xff\xf0";
  const std::string pull = "https://github.com/Me/Shed/pull/7";
  const std::string command = "--title \"A \\\"b\\\"\" -R=Me/Shed.git '#7' -b x " + pull;
  const std::string lines = jsonLines({claude::bash("t1", "gh pr create -t 'x'"),
                                       claude::result("t1", {{{"text", pull}}}),
                                       claude::bash("t2", "gh pr merge 7"),
                                       claude::sentToBackground("t2", "/nowhere/x.output"),
                                       claude::notified("t2", ""),
                                       claude::edit("t3", "/p/\u00FC"),
                                       codex::command("gh pr create -t 'x'", pull),
                                       codex::change("c1", {{"/p/a", nullptr}})});
  // A violated check prints what it is and aborts.
  for (int i = 0; i < 2000; ++i) {
    fuzz::checkGHCommand(changedText(command, inserts, random));
    fuzz::checkTranscript(changedText(lines, inserts, random));
  }
  EXPECT_EQ(BackendClaudeScanner().scan(lines, noon).size(), 3U);
  EXPECT_EQ(BackendCodexScanner().scan(lines, noon).size(), 2U);
}

}  // namespace
}  // namespace tessivane
