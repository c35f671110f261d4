#include "activity/SyntheticMaker.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace tessivane {

namespace {

constexpr std::size_t hashDigits = 16;
constexpr std::size_t mostFiles = 7;

std::string rootOf(const SyntheticSession& session) {
  return "/synthetic/" + std::string(session.project);
}

}  // namespace

SyntheticMaker::SyntheticMaker(std::uint32_t seed) : rng_(seed) {
  for (const SyntheticProject& project : synthetic_work::projects())
    prNumbers_[project.name] = project.lastPullRequest;
}

std::string_view SyntheticMaker::pick(std::span<const std::string_view> texts) {
  return texts[below(texts.size())];
}

ActivityEvent SyntheticMaker::withRef(ActivityKind kind,
                                      const SyntheticSession& session,
                                      std::string ref,
                                      std::string_view title,
                                      Date at) const {
  std::string id = std::string(rawValue(kind)) + ":" + rootOf(session) + ":" + ref;
  return ActivityEvent{.id = std::move(id),
                       .kind = kind,
                       .date = at,
                       .projectRoot = rootOf(session),
                       .projectName = std::string(session.project),
                       .sessionID = std::string(session.id),
                       .sessionTitle = std::string(session.title),
                       .owner = session.owner,
                       .engine = session.engine,
                       .ref = std::move(ref),
                       .title = std::string(title),
                       .firstSeen = at};
}

ActivityEvent SyntheticMaker::event(ActivityKind kind,
                                    const SyntheticSession& session,
                                    std::string_view title,
                                    Date at) {
  const std::string ref = std::string(session.id) + "-" + std::to_string(++count_);
  ActivityEvent made = withRef(kind, session, ref, title, at);
  made.ref.reset();
  return made;
}

ActivityEvent SyntheticMaker::commit(const SyntheticSession& session,
                                     std::string_view subject,
                                     Date at) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string hash;
  while (hash.size() < hashDigits)
    hash += digits[below(digits.size())];
  ActivityEvent made = withRef(ActivityKind::commit, session, hash, subject, at);
  made.branch = session.branch;
  return made;
}

ActivityEvent SyntheticMaker::branched(const SyntheticSession& session,
                                       bool withWorktree,
                                       Date at) {
  std::string name(session.branch);
  if (withWorktree)
    name = std::string(session.project) + "-" + name;
  ActivityEvent made = event(ActivityKind::branched, session, name, at);
  made.detail = withWorktree ? "worktree" : "branch";
  made.branch = session.branch;
  return made;
}

ActivityEvent SyntheticMaker::openPullRequest(const SyntheticSession& session,
                                              std::string_view title,
                                              Date at) {
  const std::int64_t number = ++prNumbers_[session.project];
  openPRs_.push_back(
      PullRequest{.session = &session, .number = number, .title = std::string(title)});
  ActivityEvent made = withRef(ActivityKind::prOpened, session, std::to_string(number), title, at);
  made.branch = session.branch;
  return made;
}

ActivityEvent SyntheticMaker::mergePullRequest(std::size_t place, Date at) {
  const PullRequest merged = std::move(openPRs_.at(place));
  openPRs_.erase(openPRs_.begin() + static_cast<std::ptrdiff_t>(place));
  ActivityEvent made = withRef(
      ActivityKind::prMerged, *merged.session, std::to_string(merged.number), merged.title, at);
  made.branch = merged.session->branch;
  return made;
}

EditBucket SyntheticMaker::edit(const SyntheticSession& session, Date at) {
  EditBucket bucket{.projectRoot = rootOf(session),
                    .projectName = std::string(session.project),
                    .sessionID = std::string(session.id),
                    .start = std::chrono::floor<std::chrono::minutes>(at)};
  EditBucket& known = editBuckets_.try_emplace(bucket.id(), std::move(bucket)).first->second;

  const std::size_t files = below(mostFiles) + 1;
  const auto all = synthetic_work::project(session.project).files;
  std::vector<std::string_view> left(all.begin(), all.end());
  for (std::size_t named = 0; named < files && !left.empty(); ++named) {
    const auto drawn = left.begin() + static_cast<std::ptrdiff_t>(below(left.size()));
    if (std::ranges::find(known.paths, *drawn) == known.paths.end())
      known.paths.emplace_back(*drawn);
    left.erase(drawn);
  }
  known.files = std::max({known.files,
                          static_cast<std::int64_t>(files),
                          static_cast<std::int64_t>(known.paths.size())});
  return known;
}

void SyntheticMaker::forgetEdits(Date now) {
  const Date minute = std::chrono::floor<std::chrono::minutes>(now);
  std::erase_if(editBuckets_, [minute](const auto& entry) { return entry.second.start < minute; });
}

}  // namespace tessivane
