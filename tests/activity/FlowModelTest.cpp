#include "activity/FlowModel.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SampleEvents.h"

namespace tessivane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using enum ActivityKind;

const std::set<ActivityKind> everyKind(allActivityKinds.begin(), allActivityKinds.end());
constexpr std::chrono::seconds bin{10};  // of fifteen minutes

FlowInput inputOf(const std::vector<ActivityEvent>& events) {
  return {.events = events,
          .projects = {"/a", "/b"},
          .kinds = everyKind,
          .range = ActivityRange::m15,
          .end = sampleNoon,
          .now = sampleNoon};
}

double sum(const std::vector<double>& values) {
  return std::accumulate(values.begin(), values.end(), 0.0);
}

std::string ids(const std::vector<FlowEvent>& events) {
  std::string text;
  for (const FlowEvent& each : events)
    text += (text.empty() ? "" : " ") + each.event->id;
  return text;
}

TEST(FlowModel, sortsEventsByWhatTheyAreAndWeighsThem) {
  const std::vector<ActivityEvent> events = {
      sampleEvent("late", sampleNoon + std::chrono::microseconds(1)),
      sampleEvent("merged", sampleNoon, prMerged),
      sampleEvent("now", sampleNoon),
      sampleEvent("waits", sampleNoon - bin, needsYou),
      sampleEvent("elsewhere", sampleNoon - bin, commit, "/unknown"),
      sampleEvent("opened", sampleNoon - bin, prOpened, "/b"),
      sampleEvent("done", sampleNoon - 2 * bin, finished, "/b"),
      sampleEvent("started", sampleNoon, started),
      sampleEvent("branched", sampleNoon, branched),
      sampleEvent("old", sampleNoon - std::chrono::hours(40)),
  };
  FlowInput input = inputOf(events);
  FlowModel model = FlowModel::make(input);
  EXPECT_EQ(ids(model.commits), "old now");
  EXPECT_EQ(ids(model.pullRequests), "opened merged");
  EXPECT_EQ(ids(model.attention), "done waits");
  EXPECT_EQ(model.binWidth, Seconds(10));
  ASSERT_THAT(model.raw, testing::Each(testing::SizeIs(117)));
  const auto noonBin = static_cast<std::size_t>(
      static_cast<std::int64_t>(secondsSince1970(sampleNoon)) / 10 - model.firstBin);
  EXPECT_EQ(model.raw[0][noonBin], 1.5);
  EXPECT_EQ(model.raw[0][noonBin - 1], 0.5);
  EXPECT_EQ(model.raw[1][noonBin - 1], 0.5);
  EXPECT_EQ(sum(model.raw[0]), 2.0);
  EXPECT_EQ(sum(model.raw[1]), 1.0);

  input.kinds = {commit};
  model = FlowModel::make(input);
  EXPECT_THAT(model.attention, IsEmpty());
  EXPECT_EQ(sum(model.raw[0]), 1.0);
}

TEST(FlowModel, standsUntilTheNextChunk) {
  for (const ActivityRange range : allActivityRanges) {
    const auto step = std::chrono::duration_cast<std::chrono::seconds>(span(range) / 90 * 12);
    // The chunk that begins at or before noon; and one before 1970, where bins count downward.
    for (const Date start : {std::chrono::floor<std::chrono::minutes>(sampleNoon) -
                                 sampleNoon.time_since_epoch() % step,
                             Date{} - step}) {
      const std::int64_t chunk = FlowModel::chunk(start, range);
      EXPECT_EQ(FlowModel::chunk(start + step - std::chrono::microseconds(1), range), chunk);
      EXPECT_EQ(FlowModel::chunk(start - std::chrono::microseconds(1), range), chunk - 1);

      // At any end within it, the window and the reach of the smoothing have bins.
      FlowInput input{.projects = {"/a"}, .range = range, .end = start};
      const FlowModel model = FlowModel::make(input);
      const double width = model.binWidth.count();
      EXPECT_LE(static_cast<double>(model.firstBin + 5) * width,
                secondsSince1970(start) - span(range).count());
      EXPECT_GE((static_cast<double>(model.firstBin + 117) - 0.5) * width,
                secondsSince1970(start + step));
      EXPECT_EQ(model.firstBin + 116, (chunk + 1) * 12);
    }
  }
}

TEST(FlowModel, smoothingMakesABellOfACommit) {
  // A lone commit rises to 1 above the floor.
  const std::vector<ActivityEvent> one = {sampleEvent("c", sampleNoon - 30 * bin)};
  const FlowModel lone = FlowModel::make(inputOf(one));
  EXPECT_DOUBLE_EQ(*std::ranges::max_element(lone.smoothed[0]), 1.08);
  EXPECT_NEAR(sum(lone.smoothed[0]) - 117 * 0.08, std::sqrt(std::acos(-1) * 5.78), 0.01);
}

TEST(FlowModel, aBandNeverClosesAndTheScaleStaysReadable) {
  FlowInput input = inputOf({});
  const FlowModel idle = FlowModel::make(input);
  EXPECT_THAT(idle.smoothed, testing::Each(testing::Each(0.08)));
  EXPECT_EQ(idle.peak(Date::min(), Date::max()), 2.5);
  input.projects.clear();
  const FlowModel empty = FlowModel::make(input);
  EXPECT_THAT(empty.totals, testing::Each(0.0));
  EXPECT_EQ(empty.peak(Date::min(), Date::max()), 2.5);

  // Noon is the first instant of a bin.
  const std::vector<ActivityEvent> busy(4, sampleEvent("c", sampleNoon));
  const FlowModel model = FlowModel::make(inputOf(busy));
  EXPECT_DOUBLE_EQ(model.peak(sampleNoon, sampleNoon + bin), 4.16);
  EXPECT_LT(model.peak(sampleNoon - bin, sampleNoon + bin / 2), 4) << "the middle is the end";
  EXPECT_LT(model.peak(sampleNoon + bin / 2, sampleNoon + bin), 4);
  EXPECT_EQ(model.peak(sampleNoon + bin, sampleNoon), 2.5);
}

TEST(FlowModel, theStackIsSymmetricAboutTheMiddleAndHasNoHoles) {
  for (unsigned seed = 1; seed <= 50; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    const auto events = sampleEvents(random, 300);
    FlowInput input = inputOf(events);
    input.projects = {"/a", "/b", "", "/a", "/none"};
    input.range = pick(allActivityRanges, random);
    const FlowModel model = FlowModel::make(input);
    const auto scale = static_cast<double>(random.below(100));
    const auto middle = static_cast<double>(random.below(800));
    const FlowStack stack = model.stack(scale, middle);
    for (std::size_t i = 0; i < model.totals.size(); ++i) {
      EXPECT_NEAR(middle - stack.top.front()[i], stack.bottom.back()[i] - middle, 1e-9);
      for (std::size_t project = 0; project < model.projects.size(); ++project) {
        EXPECT_NEAR(stack.bottom[project][i] - stack.top[project][i],
                    scale * model.smoothed[project][i],
                    1e-9);
        EXPECT_TRUE(project == 0 || stack.top[project][i] == stack.bottom[project - 1][i]);
      }
    }
  }
}

TEST(FlowModel, aBandLiesBetweenTheMiddlesOfTwoBins) {
  const std::vector<ActivityEvent> events = {sampleEvent("c", sampleNoon)};
  const FlowModel model = FlowModel::make(inputOf(events));
  const FlowStack stack = model.stack(10, 100);
  const auto heightAt = [&](Date date) {
    const FlowBand band = model.band(0, date, stack);
    return band.bottom - band.top;
  };
  const Date middle = sampleNoon + bin / 2;
  EXPECT_NEAR(heightAt(middle), 10.8, 1e-9);
  EXPECT_NEAR(heightAt(middle - bin), 10 * (0.08 + std::exp(-1 / 5.78)), 1e-9);
  EXPECT_NEAR(heightAt(middle - bin / 2), (heightAt(middle) + heightAt(middle - bin)) / 2, 1e-9);
  for (const Date far : {Date::min(), distantPast, Date::max()})
    EXPECT_NEAR(heightAt(far), 0.8, 1e-9);

  EXPECT_EQ(model.band(2, middle, stack), FlowBand{});
  EXPECT_EQ(model.band(0, middle, FlowStack{}), FlowBand{});
  EXPECT_EQ(model.band(0, middle, FlowStack{.top = {{1}}, .bottom = {{2}}}), FlowBand{});
  EXPECT_EQ(FlowModel{}.band(0, middle, stack), FlowBand{});
}

TEST(FlowModel, strangeSizesStayBounded) {
  const std::vector<ActivityEvent> events(1000, sampleEvent("c", sampleNoon));
  const FlowModel model = FlowModel::make(inputOf(events));
  const double infinite = std::numeric_limits<double>::infinity();
  const auto isFinite = testing::Truly([](double y) { return std::isfinite(y); });
  for (const double strange : {0.0, -1.0, 1e300, -1e300, infinite, -infinite, std::nan("")}) {
    for (const FlowStack& stack : {model.stack(strange, 100), model.stack(10, strange)}) {
      EXPECT_THAT(stack.top, testing::Each(testing::Each(isFinite)));
      EXPECT_THAT(stack.bottom, testing::Each(testing::Each(isFinite)));
      EXPECT_THAT(stack.bottom[0], testing::Pointwise(testing::Ge(), stack.top[0]));
    }
  }
  for (const Date end : {Date::min(), distantPast, Date::max()}) {
    for (const ActivityRange range : allActivityRanges) {
      FlowInput input = inputOf(events);
      input.range = range;
      input.end = end;
      const FlowModel far = FlowModel::make(input);
      EXPECT_EQ(far.totals.size(), 117U);
      EXPECT_EQ(sum(far.raw[0]), 0);
      EXPECT_EQ(far.peak(end, end), 2.5);
      EXPECT_THAT(far.activity(end), IsEmpty());
    }
  }
}

TEST(FlowModel, tellsWhoCommittedAroundATime) {
  const std::vector<ActivityEvent> events = {
      sampleEvent("1", sampleNoon - 3 * bin),
      sampleEvent("2", sampleNoon - bin),
      sampleEvent("3", sampleNoon, commit, "/b"),
      sampleEvent("4", sampleNoon + bin, commit, "/b"),
      sampleEvent("5", sampleNoon, prMerged),
  };
  FlowInput input = inputOf(events);
  input.now = Date::max();
  const FlowModel model = FlowModel::make(input);
  EXPECT_THAT(model.activity(sampleNoon),
              ElementsAre(FlowActivity{"/b", 2}, FlowActivity{"/a", 1}));
  EXPECT_THAT(model.activity(sampleNoon - 4 * bin), ElementsAre(FlowActivity{"/a", 1}));
  EXPECT_THAT(model.activity(sampleNoon + 9 * bin), IsEmpty());
}

// Whatever the ends move to within their validity, a fresh count says the same.
TEST(FlowModel, countsOfCommitsHoldAsLongAsTheySay) {
  for (unsigned seed = 1; seed <= 100; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    const auto events = sampleEvents(random, 60);
    FlowInput input = inputOf(events);
    input.now = random.chance(50) ? Date::max() : sampleNoon;
    const FlowModel model = FlowModel::make(input);
    const auto someDate = [&] {
      return sampleNoon + bin - std::chrono::seconds(random.below(620));
    };
    const Date start = someDate();
    const Date end = someDate();
    const CommitCounts counts = model.commitCountsWithValidity(start, end);

    std::map<std::string, std::size_t> plain;
    for (const ActivityEvent& event : events) {
      if (event.kind == commit && event.date > start && event.date <= end &&
          event.date <= input.now && (event.projectRoot == "/a" || event.projectRoot == "/b"))
        ++plain[event.projectRoot];
    }
    EXPECT_EQ(counts.counts, plain);
    EXPECT_TRUE(counts.startValid.contains(start));
    EXPECT_TRUE(counts.endValid.contains(end));
    for (int i = 0; i < 50; ++i) {
      const Date otherStart = someDate();
      const Date otherEnd = someDate();
      if (counts.startValid.contains(otherStart) && counts.endValid.contains(otherEnd)) {
        EXPECT_EQ(model.commitCountsWithValidity(otherStart, otherEnd), counts);
      }
    }
  }
}

TEST(FlowModel, theKeyDiffersWhereTheModelWould) {
  const std::vector<ActivityEvent> events = {
      sampleEvent("1", sampleNoon - bin), sampleEvent("2", sampleNoon + std::chrono::seconds(1))};
  const FlowInput input = inputOf(events);
  const FlowModel::Key key = FlowModel::key(input);
  EXPECT_EQ(key.upTo, 1U);
  const auto keyWith = [&](auto change) {
    FlowInput other = input;
    change(other);
    return FlowModel::key(other);
  };
  EXPECT_EQ(keyWith([](auto& other) { other.end = other.now += std::chrono::milliseconds(999); }),
            key);
  EXPECT_NE(keyWith([](auto& other) { other.now += std::chrono::seconds(1); }), key);
  EXPECT_NE(keyWith([](auto& other) { other.end += std::chrono::seconds(120); }), key);
  EXPECT_NE(keyWith([](auto& other) { other.projects.pop_back(); }), key);
  EXPECT_NE(keyWith([](auto& other) { other.kinds.erase(commit); }), key);
  EXPECT_NE(keyWith([](auto& other) { other.range = ActivityRange::h6; }), key);
  EXPECT_NE(keyWith([](auto& other) { other.events = other.events.first(1); }), key);
  const auto copy = events;
  EXPECT_NE(keyWith([&](auto& other) { other.events = copy; }), key) << "they lie elsewhere";
}

}  // namespace
}  // namespace tessivane
