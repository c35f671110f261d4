#include "SampleText.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>

namespace tessivane {

namespace {

constexpr std::array<std::string_view, 24> sentences{
    "The retry loop gives up too early when the socket is half closed.",
    "I moved the parsing into its own file and kept the old entry point.\\n",
    "  if (offset + count > buffer.size()) {\\n    return std::nullopt;\\n  }\\n",
    "Let me look at how the cache is filled before changing anything.",
    "All 214 tests pass, one was skipped because there is no display.\\n\\n",
    "export async function load(path: string): Promise<Entry[]> {\\n",
    "\\t\\\"scripts\\\": { \\\"build\\\": \\\"tsc -p .\\\", \\\"test\\\": \\\"vitest run\\\" },\\n",
    "The column is nullable, so the join drops rows. That explains the missing totals.",
    "- rename `fetchAll` to `fetchPage`\\n- keep the cursor between calls\\n",
    "for row in reader:\\n    totals[row[\\\"region\\\"]] += float(row[\\\"amount\\\"])\\n",
    "Die Grö\u00dfe stimmt nicht, na\u00efve Z\u00e4hlung nach Bytes \u2014 siehe oben.\\n",
    "src/render/tree.cpp:118: warning: comparison of integers of different signs\\n",
    "The user wants the smaller change first. I will leave the layout alone.",
    "SELECT id, name FROM orders WHERE placed_at >= ?1 ORDER BY placed_at DESC;\\n",
    "   Compiling serde v1.0.219\\n   Compiling tokio v1.43.0\\n    Finished in 41.2s\\n",
    "That is a race: the timer fires between the check and the store. ",
    "diff --git a/app/main.py b/app/main.py\\n@@ -14,7 +14,9 @@ def main():\\n",
    "\u2713 builds \u2713 formats \u2717 one snapshot is out of date \\ud83d\\ude80\\n",
    "drwxr-xr-x 4 demo demo 4096 Mar 14 09:26 assets\\n-rw-r--r-- 1 demo demo 812 index.html\\n",
    "There are two callers. Both hold the lock already, so the inner one can go.",
    "C:\\\\work\\\\build> cmake --build . --config Release\\n",
    "# Notes\\n\\n1. Measure first.\\n2. Change one thing.\\n3. Measure again.\\n",
    "expected 3 but got 4 at line 27, column 9\\n",
    "We could also drop the wrapper, it only forwards its arguments. ",
};

constexpr std::string_view base64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

void appendText(std::string& target, Random& random, std::size_t bytes) {
  const std::size_t end = target.size() + bytes;
  while (target.size() < end)
    target += sentences[random.below(sentences.size())];
}

std::string sampleText(Random& random, std::size_t bytes) {
  std::string text;
  appendText(text, random, bytes);
  return text;
}

void appendBase64(std::string& target, Random& random, std::size_t bytes) {
  const std::size_t end = target.size() + bytes;
  while (target.size() < end) {
    std::size_t bits = random.below(std::size_t{1} << 60);
    for (int digit = 0; digit < 10; ++digit, bits >>= 6)
      target += base64Digits[bits & 63];
  }
}

std::int64_t milliseconds(Date date) {
  return std::chrono::floor<std::chrono::milliseconds>(date.time_since_epoch()).count();
}

}  // namespace tessivane
