#include "support/Observers.h"

#include <memory>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessivane {
namespace {

using testing::ElementsAre;

class ObserversTest : public testing::Test {
 protected:
  Subscription note(const std::string& name) {
    return observers_->subscribe(
        [this, name](int number) { diary_.push_back(name + std::to_string(number)); });
  }

  std::optional<Observers<int>> observers_{std::in_place};
  std::vector<std::string> diary_;
};

TEST_F(ObserversTest, TellsInOrderUntilTheSubscriptionGoes) {
  const Subscription first = note("a");
  {
    const Subscription second = note("b");
    observers_->notify(1);
  }
  Subscription third = note("c");
  Subscription moved = std::move(third);
  observers_->notify(2);
  moved = note("d");
  observers_->notify(3);
  moved.end();
  observers_->notify(4);
  EXPECT_THAT(diary_, ElementsAre("a1", "b1", "a2", "c2", "a3", "d3", "a4"));
}

TEST_F(ObserversTest, AnObserverMayEndAnySubscription) {
  // The closure uses what it captured after its own end: that must still be there.
  Subscription self;
  Subscription later;
  const auto captured = std::make_shared<std::string>("self");
  self = observers_->subscribe([&, captured](int) {
    self.end();
    later.end();
    diary_.push_back(*captured);
    observers_->notify(7);
  });
  later = note("later");
  const Subscription last = note("last");
  observers_->notify(1);
  EXPECT_THAT(diary_, ElementsAre("self", "last7", "last1"));
  EXPECT_EQ(captured.use_count(), 1) << "the ended observer is kept";
}

TEST_F(ObserversTest, AnObserverMaySubscribeAndNotify) {
  std::vector<Subscription> more;
  const Subscription grower = observers_->subscribe([&](int number) {
    if (number > 1)
      return;
    // Grows the list many times over while it is gone through.
    for (int i = 0; i < 100; ++i)
      more.push_back(note("more"));
    observers_->notify(2);
  });
  observers_->notify(1);
  EXPECT_EQ(diary_, std::vector<std::string>(100, "more2"));
}

TEST_F(ObserversTest, AnObserverMayDestroyTheSubject) {
  Subscription before = note("before");
  const Subscription destroyer = observers_->subscribe([this](int) { observers_.reset(); });
  const Subscription after = note("after");
  observers_->notify(1);
  EXPECT_THAT(diary_, ElementsAre("before1"));
  before.end();
}

TEST(ObservableTest, TellsOfRealChangesOnlyBeforeOrAfter) {
  Observable<int> after(1);
  Observable<int, Announcement::beforeChange> before(1);
  std::vector<std::string> diary;
  const auto note = [&diary](const auto& observable) {
    return observable.subscribe([&](const int& value) {
      diary.push_back(std::to_string(observable.value()) + " told " + std::to_string(value));
    });
  };
  const Subscription first = note(after);
  const Subscription second = note(before);

  EXPECT_TRUE(after.set(2) && before.set(2));
  EXPECT_FALSE(after.set(2) || before.set(2));
  EXPECT_THAT(diary, ElementsAre("2 told 2", "1 told 2"));
  EXPECT_EQ(before.value(), 2);
}

}  // namespace
}  // namespace tessivane
