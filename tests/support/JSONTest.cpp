#include "support/JSON.h"

#include <cmath>
#include <sstream>

#include <gtest/gtest.h>

#include "helpers/JSONL.h"

namespace tessivane {
namespace {

using namespace std::string_literals;

JSONReader reader;  // one for all tests: no line may harm a later one

// Everything below a value, as another library would hold it.
json rebuilt(JSONValue& value) {
  json object = json::object();
  json array = json::array();
  const auto addField = [&](std::string_view key, JSONValue& field) {
    object[JSONText{key}.decoded()] = rebuilt(field);
  };
  if (value.visitFields(addField))
    return object;
  if (value.visitElements([&](JSONValue& element) { array.push_back(rebuilt(element)); }))
    return array;
  if (const auto text = value.text())
    return text->decoded();
  if (const auto number = value.number())
    return *number;
  const auto flag = value.boolean();
  return flag ? json(*flag) : json();
}

// The fields of `line` that `wanted` has too, or all; nothing when the line is refused.
std::optional<json> read(std::string_view line, const json* wanted = nullptr) {
  json result = json::object();
  const bool whole = reader.visit(line, [&](std::string_view key, JSONValue& value) {
    const std::string name = JSONText{key}.decoded();
    if (wanted == nullptr || wanted->contains(name))
      result[name] = rebuilt(value);
  });
  return whole ? std::optional(result) : std::nullopt;
}

bool isWhole(std::string_view line) {
  return reader.visit(line, [](std::string_view, JSONValue&) {});
}

const json entry =
    json::parse(R"({"flag\\\"{": true, "message": {"content": [{"text": "a \"q\" \\ é😀 }]"},
    {"x": -1.5}, []], "usage": {"n": null, "o": {}}, "ü \n": false}, "last": [[1, 2], [[3]], {"\\": {}}]})");

TEST(JSONTest, FieldsThatAreNotVisitedDoNotDisturbOthers) {
  for (unsigned mask = 0; mask < 8; ++mask) {
    json wanted = entry;
    for (const auto& [name, bit] : {std::pair("flag\\\"{", 1U), {"last", 2U}, {"message", 4U}}) {
      if ((mask & bit) == 0)
        wanted.erase(name);
    }
    for (const int indent : {-1, 0, 3})
      EXPECT_EQ(read(entry.dump(indent, ' ', indent == 0) + "\r", &wanted), wanted);
  }
  std::string keys;
  EXPECT_TRUE(reader.visit(R"({"a":1,"a":{},"b\u0041":[],"a":2})",
                           [&](auto key, JSONValue&) { keys += std::string(key) + " "; }));
  EXPECT_EQ(keys, "a a b\\u0041 a ");
}

TEST(JSONTest, RefusesALineCutAnywhere) {
  const std::string line = entry.dump();
  for (std::size_t cut = 0; cut < line.size(); ++cut) {
    EXPECT_FALSE(isWhole(line.substr(0, cut))) << cut;
    // In place, with bytes behind it that would complete it.
    for (const auto* next : {"\n{}", "}", "}}}}", "]}]}]}", ",\"a\":1}", "\"}", "1}"}) {
      const std::string buffer = line.substr(0, cut) + next + std::string(JSONReader::padding, ' ');
      const PaddedLine padded{std::string_view(buffer).substr(0, cut)};
      EXPECT_FALSE(reader.visitPadded(padded, [](auto, JSONValue& value) { rebuilt(value); }))
          << cut << next;
    }
  }
}

TEST(JSONTest, TakesOneWholeObjectOnly) {
  for (const auto* line : {"{}", " \t{ } \r", R"({"a":"x" , "b" : [ ] })"})
    EXPECT_TRUE(isWhole(std::string(70, '\0') + line) && read(line)) << line;
  std::istringstream refused(
      "| |[1]|1|null|\"x\"|nonsense|{}{}|{} {}|{}x|{}]|{}}|{,}|{\"a\":1,}|{\"a\" 1}|{\"a\"}|{1:2}|"
      "{'a':1}|{\"a\":1 \"b\":2}|{\"a\":\"x\" y}|{\"a\":1}\n{\"b\":2}|{\"a\":\"x\ny\"}|"
      "{\"a\":\"\x01\"}|\0|{}\0|{\"a\":\"\0\"}"s);
  for (std::string line; std::getline(refused, line, '|');)
    EXPECT_FALSE(isWhole(line) || read(line)) << line;
  // Nonsense further down is noticed by whoever looks there.
  for (const auto& inner : {"[1}"s, "{\"b\":1]"s, "[1 2]"s, "{\"x\"}"s, "[1,]"s, "{\"x\":1,}"s})
    EXPECT_FALSE(read("{\"a\":" + inner + "}")) << inner;
}

TEST(JSONTest, PassesOverNestingOfAnyDepth) {
  for (const bool isArray : {true, false}) {
    std::string line = "{\"deep\":";
    for (int i = 0; i < 100'000; ++i)
      line += isArray ? "[" : "{\"k\":";
    EXPECT_FALSE(isWhole(line));
    line += "1" + std::string(100'000, isArray ? ']' : '}');
    EXPECT_FALSE(isWhole(line));
    const json after = {{"after", 1}};
    EXPECT_EQ(read(line + ",\"after\":1}", &after), after);
  }
}

TEST(JSONTest, NumbersOutOfRangeAreNothing) {
  const auto number = [](const std::string& token) {
    const json fields = read("{\"n\":" + token + ",\"after\":7}").value();
    EXPECT_EQ(fields.at("after"), 7);
    return fields.at("n");
  };
  for (const auto& token :
       {"1E+5"s, "9007199254740993"s, "-9223372036854775809"s, "1"s + std::string(40, '0')})
    EXPECT_EQ(number(token), std::stod(token));
  for (const auto& token : {"1e999"s, "-1e999"s, "01"s, "1."s, "-"s, "1x"s, "NaN"s})
    EXPECT_EQ(number(token), nullptr) << token;
  EXPECT_TRUE(std::signbit(number("-0").get<double>()));
}

TEST(JSONTest, TextIsDecodedWhateverItsEscapes) {
  const std::pair<std::string, std::string> rows[] = {
      {R"(\"\\\/\b\f\n\r\t)", "\"\\/\b\f\n\r\t"},
      {R"(\u0041\u00e9\u20AC\uD83D\ude00\u0000)", "Aé€😀\0"s},
      {R"(a\ud83d)", "a\uFFFD"},
      {R"(\ud83dx\ude00y)", "\uFFFDx\uFFFDy"},
      {R"(\ude00\ud83d\ud83d\ude00)", "\uFFFD\uFFFD😀"},
      {R"(\ud83d\u0041\ud83d\n)", "\uFFFDA\uFFFD\n"},
      {R"(\ud83d\u12)", "\uFFFD\uFFFD12"},
      {R"(\u00g1\x41\é)", "\uFFFD00g1\uFFFD41\uFFFDé"}};
  for (const auto& [escaped, expected] : rows) {
    EXPECT_EQ(read("{\"t\": \"" + escaped + "\" \t}"), json({{"t", expected}}));
    const JSONText text{escaped};
    EXPECT_TRUE(text.is(expected) && !text.is(expected + "x") && !text.is(escaped));
  }
  EXPECT_EQ(JSONText{"a\\"}.decoded(), "a\uFFFD");
}

TEST(JSONTest, RepairsIllFormedTextAndGoesOn) {
  const std::string bad = "{\"k\xFF\":\"\xE2\x82 \xC0\",\"n\":2}";
  const json expected = {{"k\uFFFD", "\uFFFD \uFFFD"}, {"n", 2}};
  EXPECT_EQ(read(std::string(3, '\0') + bad), expected);
  EXPECT_FALSE(read(bad.substr(0, bad.size() - 1)));
  // A line so large that the reader gives its memory back afterwards.
  const json large = {{"large", std::string(3 << 20, 'x')}, {"n", 1}};
  EXPECT_EQ(read(large.dump()), large);
  EXPECT_EQ(read(bad), expected);
}

}  // namespace
}  // namespace tessivane
