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

/// Lines that belong together, though others may stand between them, and what they tell.
struct Exchange {
  std::vector<std::string> lines = {};
  std::optional<BackendFinding> finding = {};
};

// Of either client: each scanner passes over the other one's lines. There is no file `output`.
Exchange exchange(std::int64_t number, const std::string& output, std::mt19937& random) {
  const auto below = [&random](std::size_t limit) { return random() % limit; };
  const std::string id = fmt::format("id{}", number);
  const std::string path = "/p/" + id;
  const std::string gh = fmt::format("gh pr merge {}", number);
  const std::string filling(below(10) == 0 ? 700'000 : below(2000), 'x');
  const json write = claude::toolUse(id, "Write", {{"content", filling}, {"file_path", path}});
  const std::string text = write.dump();
  const std::string command = claude::bash(id, gh).dump();
  const BackendEditFinding edited{"native:" + id, {path}, noon};
  const BackendPRFinding merged{.kind = ActivityKind::prMerged, .number = number, .date = noon};
  switch (below(9)) {
    case 0:
      return {{text}, edited};
    case 1:
      return {{codex::change(id, {{path, {{"content", filling}}}}).dump()}, edited};
    case 2:
      return {{codex::command(gh, "").dump()}, merged};
    case 3:
      return {{command, claude::result(id, "merged").dump()}, merged};
    case 4: {
      const std::string sent = claude::sentToBackground(id, output).dump();
      return {{command, sent, claude::notified(id, output).dump()}, merged};
    }
    case 5:  // dirt, and copies of messages
      return {{text.substr(0, below(text.size())),
               std::string(below(9), '\0'),
               "{\"type\":\"api-request-blob\"," + text.substr(1),
               json{{"type", "progress"}, {"data", write}}.dump()}};
    case 6:
      if (below(20) == 0)  // longer than any line that is looked at
        return {{claude::edit("long", std::string(4U << 20U, 'x')).dump()}};
      [[fallthrough]];
    default:
      return {{claude::message("user", filling).dump()}};
  }
}

/// Exchanges in one another's midst. The last ones may have no end yet.
struct SampleTranscript {
  struct Told {
    std::size_t begin = 0;  // offset of the first line that it takes
    std::size_t end = 0;    // and of the last
    BackendFinding finding = {};
  };
  std::string text = {};
  std::vector<Told> told = {};
};

SampleTranscript sampleTranscript(const std::string& output, std::mt19937& random) {
  struct Open {
    Exchange exchange = {};
    std::size_t begin = 0;
    std::size_t said = 0;
  };
  SampleTranscript sample;
  std::vector<Open> open;
  for (int line = 1; line <= 60; ++line) {
    if (open.empty() || random() % 2 == 0)
      open.push_back({.exchange = exchange(line, output, random)});
    const auto place = open.begin() + static_cast<std::ptrdiff_t>(random() % open.size());
    const std::size_t offset = sample.text.size();
    place->begin = place->said == 0 ? offset : place->begin;
    sample.text += place->exchange.lines[place->said++] + "\n";
    if (place->said < place->exchange.lines.size())
      continue;
    if (place->exchange.finding)
      sample.told.push_back({place->begin, offset, *place->exchange.finding});
    open.erase(place);
  }
  return sample;
}

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

  /// As after the program's end: only what is stored remains. A command whose result comes after it
  /// tells nothing; all else is told.
  void restart(SampleTranscript& sample) {
    claude_ = BackendClaudeScanner();
    close();
    const auto reached = store().cursor(path_)->offset;
    std::erase_if(sample.told, [reached](const auto& told) {
      return told.begin < reached && reached <= told.end;
    });
  }

  TempHome files_;
  std::string path_ = files_.path("t.jsonl");
  BackendClaudeScanner claude_;
  BackendCodexScanner codex_;
  std::vector<BackendFinding> findings_;
};

TEST_F(BackendScanTest, TellsTheSameInWhateverPiecesALogComes) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE(fmt::format("seed {}", seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(fmt::format("round {}", round));
    SampleTranscript sample = sampleTranscript(files_.path("x.output"), random);
    const std::string& text = sample.text;
    files_.write("t.jsonl", "");
    store().setCursor({}, path_, noon);
    claude_ = BackendClaudeScanner();
    findings_.clear();
    for (std::size_t written = 0; written < text.size();) {
      const std::size_t most = random() % 4 == 0 ? 50 : text.size() / 8 + 1;
      const std::string piece = text.substr(written, random() % most + 1);
      files_.append("t.jsonl", piece);
      written += piece.size();
      if (random() % 8 == 0)
        restart(sample);
      if (random() % 3 != 0)
        pass();
    }
    pass();
    std::vector<BackendFinding> expected;
    for (const auto& told : sample.told)
      expected.push_back(told.finding);
    ASSERT_EQ(sorted(findings_), sorted(expected));
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
