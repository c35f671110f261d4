#include "activity/SyntheticHistory.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <map>
#include <optional>
#include <string>
#include <utility>

namespace tessivane {

namespace {

constexpr std::chrono::hours historySpan{6};
// A branch comes this long before its session, and must still lie in the span.
constexpr std::chrono::seconds branchLead{180};
// The last session starts early enough to get something done.
constexpr Seconds startsSpan{5.1 * 3600};
// In slots; beyond 1, so that sessions also start close together.
constexpr double startSpread = 1.6;

constexpr double branchedShare = 0.55;
constexpr double worktreeShare = 0.6;
constexpr double burstShare = 0.25;
constexpr double amendShare = 0.5;
constexpr int mostAmends = 2;
constexpr double editShare = 0.6;
constexpr double questionShare = 0.4;
constexpr double proposalShare = 0.7;
constexpr double mergedShare = 0.75;

struct Proposal {
  const SyntheticSession* session = nullptr;
  std::string_view title = {};
  Date opened = distantPast;
  std::optional<Date> merged = {};
};

class History final {
 public:
  History(SyntheticMaker& maker, Date now) : maker_(maker), now_(now) {}

  SyntheticBatch make();

 private:
  // A session under way.
  struct Course {
    const SyntheticSession& session;
    Date at = distantPast;                        // how far it has come
    std::vector<std::string_view> subjects = {};  // of the commits ahead, the last one first
    std::optional<Date> proposalEnds = {};        // while it has a pull request open
  };

  std::vector<const SyntheticSession*> drawnOrder();
  void doTask(const SyntheticSession& session, Date start);
  void doJob(const SyntheticSession& session);
  void begin(const SyntheticSession& session, Date start);
  std::string_view workOn(Course& course);
  void commitAfter(Course& course, Seconds gap);
  void propose(Course& course, std::string_view subject);
  void number();
  void add(ActivityEvent event);

  Date after(Date date, double seconds) const {
    return date + std::chrono::round<std::chrono::microseconds>(Seconds(seconds));
  }
  // Between the two, in seconds.
  double minutes(double least, double most) {
    return 60 * (least + (most - least) * maker_.draw());
  }
  bool chance(double share) { return maker_.draw() < share; }

  SyntheticMaker& maker_;
  Date now_;
  std::vector<ActivityEvent> events_;
  std::map<std::string, EditBucket> edits_;
  std::vector<Proposal> proposals_;
};

SyntheticBatch History::make() {
  const auto order = drawnOrder();
  const Date first = now_ - historySpan + branchLead;
  const double slot = startsSpan.count() / static_cast<double>(order.size());
  for (std::size_t place = 0; place < order.size(); ++place)
    doTask(*order[place],
           after(first, slot * (static_cast<double>(place) + startSpread * maker_.draw())));
  for (const SyntheticSession& session : synthetic_work::sessions()) {
    if (session.kind == SessionKind::automation)
      doJob(session);
  }
  number();

  SyntheticBatch batch{.events = std::move(events_)};
  for (auto& [id, bucket] : edits_)
    batch.edits.push_back(std::move(bucket));
  std::ranges::stable_sort(batch.events, {}, &ActivityEvent::date);
  std::ranges::stable_sort(batch.edits, {}, &EditBucket::start);
  return batch;
}

std::vector<const SyntheticSession*> History::drawnOrder() {
  std::vector<const SyntheticSession*> left;
  for (const SyntheticSession& session : synthetic_work::sessions()) {
    if (session.kind == SessionKind::session)
      left.push_back(&session);
  }
  std::vector<const SyntheticSession*> order;
  while (!left.empty()) {
    const auto drawn = left.begin() + static_cast<std::ptrdiff_t>(maker_.below(left.size()));
    order.push_back(*drawn);
    left.erase(drawn);
  }
  return order;
}

void History::doTask(const SyntheticSession& session, Date start) {
  begin(session, start);
  Course course{.session = session,
                .at = after(start, minutes(1, 3)),  // it reads before it writes
                .subjects = synthetic_work::subjectsOf(session)};
  std::ranges::reverse(course.subjects);
  while (!course.subjects.empty() && course.at < now_) {
    const std::string_view newest = workOn(course);
    if (!course.subjects.empty() && chance(questionShare)) {
      course.at = after(course.at, minutes(0.5, 3));
      add(maker_.event(ActivityKind::needsYou,
                       session,
                       maker_.pick(synthetic_work::questionsOf(session)),
                       course.at));
      course.at = after(course.at, minutes(2, 18));
      continue;
    }
    propose(course, newest);
    course.at = after(course.at, minutes(0.3, 1.5));
    add(maker_.event(
        ActivityKind::finished, session, maker_.pick(synthetic_work::finishedTexts()), course.at));
    course.at = after(course.at, minutes(4, 25));
  }
}

void History::doJob(const SyntheticSession& session) {
  const double latest = std::chrono::duration<double>(historySpan - std::chrono::hours(1)).count();
  Date start = after(now_ - historySpan, latest * maker_.draw());
  start = std::chrono::ceil<std::chrono::hours>(start);
  begin(session, start);
  Course course{.session = session,
                .at = start + std::chrono::minutes(1),
                .subjects = synthetic_work::subjectsOf(session)};
  for (; !course.subjects.empty(); course.subjects.pop_back())
    commitAfter(course, Seconds(minutes(1, 4)));
  course.at = after(course.at, minutes(0.3, 1.5));
  add(maker_.event(ActivityKind::finished, session, "Finished and left a summary", course.at));
}

void History::begin(const SyntheticSession& session, Date start) {
  if (session.kind == SessionKind::session && chance(branchedShare))
    add(maker_.branched(session, chance(worktreeShare), start - branchLead));
  add(maker_.event(ActivityKind::started, session, session.title, start));
}

// A turn; gives what its last commit says.
std::string_view History::workOn(Course& course) {
  const std::size_t turn = std::min(1 + maker_.below(3), course.subjects.size());
  std::string_view newest;
  for (std::size_t done = 0; done < turn; ++done) {
    const bool burst = done > 0 && chance(burstShare);
    const double gap = burst ? minutes(0.2, 1.6) : minutes(4, 16);
    newest = course.subjects.back();
    commitAfter(course, Seconds(gap));
    // Tests fail, a file was forgotten: the same commit again.
    for (int amended = 0; amended < mostAmends && chance(amendShare); ++amended)
      commitAfter(course, Seconds(minutes(0.4, 3.4)));
    course.subjects.pop_back();
  }
  return newest;
}

void History::commitAfter(Course& course, Seconds gap) {
  const Date due = after(course.at, gap.count());
  for (Date minute = course.at; minute < std::min(due, now_); minute += std::chrono::minutes(1)) {
    if (!chance(editShare))
      continue;
    EditBucket bucket = maker_.edit(course.session, minute);
    edits_.insert_or_assign(bucket.id(), std::move(bucket));
  }
  course.at = due;
  add(maker_.commit(course.session, course.subjects.back(), due));
}

// One at a time: while it waits for its merge, further commits belong to it. It is called what its
// newest commit is, and the last one, with the work done, what the session is.
void History::propose(Course& course, std::string_view subject) {
  if (course.proposalEnds > course.at || !chance(proposalShare))
    return;
  const Date opened = after(course.at, minutes(0.3, 2));
  const Date merged = after(opened, minutes(8, 55));
  const bool merges = chance(mergedShare);
  course.at = opened;
  course.proposalEnds = merges ? merged : Date::max();
  if (opened > now_)
    return;
  proposals_.push_back(
      Proposal{.session = &course.session,
               .title = course.subjects.empty() ? course.session.title : subject,
               .opened = opened,
               .merged = merges && merged <= now_ ? std::optional(merged) : std::nullopt});
}

// Numbers go by the time of opening, across the sessions of a project.
void History::number() {
  std::ranges::stable_sort(proposals_, {}, &Proposal::opened);
  std::vector<std::pair<std::size_t, Date>> merges;
  std::size_t waiting = maker_.openCount();
  for (const Proposal& proposal : proposals_) {
    add(maker_.openPullRequest(*proposal.session, proposal.title, proposal.opened));
    if (proposal.merged)
      add(maker_.mergePullRequest(waiting, *proposal.merged));
    else
      ++waiting;
  }
}

// What has not happened yet is left out.
void History::add(ActivityEvent event) {
  if (event.date <= now_)
    events_.push_back(std::move(event));
}

}  // namespace

SyntheticBatch syntheticHistory(SyntheticMaker& maker, Date now) {
  return History(maker, now).make();
}

}  // namespace tessivane
