#include "activity/SyntheticWork.h"

#include <algorithm>
#include <array>

namespace tessivane::synthetic_work {

namespace {

using enum Agent;

constexpr std::array<SyntheticSession, 11> allSessions = {{
    {"s1",
     "harbor-api",
     t3,
     codex,
     "Move auth middleware to session tokens",
     SessionKind::session,
     "auth-session-tokens"},
    {"s2",
     "tidepool",
     claude,
     claude,
     "Fix flaky upload retry test",
     SessionKind::session,
     "flaky-upload-retry"},
    {"s3",
     "lumen-docs",
     codex,
     codex,
     "Rewrite the getting-started guide",
     SessionKind::session,
     "getting-started"},
    {"s4",
     "orchard-ios",
     t3,
     claude,
     "Offline cache for the reading list",
     SessionKind::session,
     "offline-reading-list"},
    {"s5",
     "harbor-api",
     claude,
     claude,
     "Paginate the invoices endpoint",
     SessionKind::session,
     "paginate-invoices"},
    {"s6",
     "kiln-cli",
     codex,
     codex,
     "Add a --dry-run flag to publish",
     SessionKind::session,
     "publish-dry-run"},
    {"s7",
     "lumen-docs",
     t3,
     codex,
     "Draft release notes for 0.9",
     SessionKind::session,
     "release-notes-0.9"},
    {"s8",
     "tidepool",
     codex,
     codex,
     "Audit image sizes on the gallery page",
     SessionKind::session,
     "gallery-image-sizes"},
    {"s9",
     "orchard-ios",
     claude,
     claude,
     "Spike: widget for today's reading",
     SessionKind::session,
     "spike-reading-widget"},
    {"s10",
     "kiln-cli",
     codex,
     codex,
     "Nightly dependency check",
     SessionKind::automation,
     "nightly-dependencies"},
    {"s12", "lumen-docs", codex, codex, "Link checker", SessionKind::automation, "link-checker"},
}};

constexpr std::array<std::string_view, 5> harborFiles = {"auth/middleware.go",
                                                         "auth/session.go",
                                                         "handlers/invoices.go",
                                                         "migrations/0042_session_tokens.sql",
                                                         "auth/session_test.go"};
constexpr std::array<std::string_view, 4> lumenFiles = {
    "guides/install.md", "guides/getting-started.md", "reference/api.md", "CHANGELOG.md"};
constexpr std::array<std::string_view, 4> tidepoolFiles = {
    "src/upload.ts", "src/gallery.tsx", "test/upload.test.ts", "styles/gallery.css"};
constexpr std::array<std::string_view, 4> orchardFiles = {"Reader/ReadingList.swift",
                                                          "Reader/OfflineCache.swift",
                                                          "Widget/Timeline.swift",
                                                          "Tests/SyncTests.swift"};
constexpr std::array<std::string_view, 4> kilnFiles = {
    "cmd/publish.go", "internal/plan.go", "go.mod", ".github/workflows/ci.yml"};

constexpr std::array<SyntheticProject, 5> allProjects = {{
    {"harbor-api", 211, harborFiles},
    {"lumen-docs", 87, lumenFiles},
    {"tidepool", 342, tidepoolFiles},
    {"orchard-ios", 58, orchardFiles},
    {"kiln-cli", 129, kilnFiles},
}};
constexpr SyntheticProject noProject = {};

// Of each session in the order of its work; of each project in this order.
struct Subject {
  std::string_view project = {};
  std::string_view session = {};
  std::string_view text = {};
};

constexpr std::array<Subject, 34> allSubjects = {{
    {"harbor-api", "s1", "Add session_tokens table"},
    {"harbor-api", "s1", "Validate token expiry in middleware"},
    {"harbor-api", "s1", "Split auth middleware"},
    {"harbor-api", "s5", "Paginate invoice list query"},
    {"harbor-api", "s5", "Add index on invoices.created_at"},
    {"harbor-api", "s5", "Fix nil check in invoice handler"},
    {"harbor-api", "s1", "Add tests for token refresh"},
    {"harbor-api", "s5", "Log request ids"},
    {"harbor-api", "s1", "Remove legacy /v1/login"},
    {"lumen-docs", "s3", "Rewrite install guide"},
    {"lumen-docs", "s3", "Document environment variables"},
    {"lumen-docs", "s12", "Fix broken links in API reference"},
    {"lumen-docs", "s7", "Add release notes for 0.9"},
    {"lumen-docs", "s7", "Fix typo in changelog"},
    {"lumen-docs", "s3", "Add Homebrew instructions"},
    {"lumen-docs", "s3", "Split getting-started into steps"},
    {"tidepool", "s2", "Retry uploads with backoff"},
    {"tidepool", "s2", "Tighten flaky upload test"},
    {"tidepool", "s8", "Resize gallery thumbnails"},
    {"tidepool", "s8", "Lazy-load gallery images"},
    {"tidepool", "s8", "Drop unused gallery CSS"},
    {"tidepool", "s2", "Handle empty upload response"},
    {"orchard-ios", "s4", "Cache reading list offline"},
    {"orchard-ios", "s9", "Store reading progress"},
    {"orchard-ios", "s9", "Add widget timeline provider"},
    {"orchard-ios", "s9", "Fix dark mode contrast in reader"},
    {"orchard-ios", "s4", "Migrate list to new data store"},
    {"orchard-ios", "s4", "Add tests for offline sync"},
    {"kiln-cli", "s6", "Add --dry-run to publish"},
    {"kiln-cli", "s6", "Rename publish flags"},
    {"kiln-cli", "s6", "Print plan before publish"},
    {"kiln-cli", "s10", "Bump dependencies"},
    {"kiln-cli", "s6", "Speed up CI cache"},
    {"kiln-cli", "s6", "Guard against double publish"},
}};

constexpr std::array<std::string_view, 4> finished = {"Finished with 4 files changed",
                                                      "Tests pass. Waiting on review",
                                                      "Finished and left a summary",
                                                      "Finished with 11 files changed"};
constexpr std::array<std::string_view, 5> needsYou = {
    "Wants approval to run the database migration",
    "Asking whether to keep the legacy endpoint",
    "Wants approval to push to main",
    "Hit an error running the test suite",
    "Asking which API version to target"};
// The first ones are about what only this project has: a database and an old endpoint.
constexpr std::size_t serverQuestions = 2;
constexpr std::string_view serverProject = "harbor-api";

}  // namespace

std::span<const SyntheticSession> sessions() {
  return allSessions;
}

std::span<const SyntheticProject> projects() {
  return allProjects;
}

const SyntheticProject& project(std::string_view name) {
  const auto* found = std::ranges::find(allProjects, name, &SyntheticProject::name);
  return found == allProjects.end() ? noProject : *found;
}

std::vector<std::string_view> subjects(std::string_view project) {
  std::vector<std::string_view> result;
  for (const Subject& subject : allSubjects) {
    if (subject.project == project)
      result.push_back(subject.text);
  }
  return result;
}

std::vector<std::string_view> subjectsOf(const SyntheticSession& session) {
  std::vector<std::string_view> result;
  for (const Subject& subject : allSubjects) {
    if (subject.session == session.id)
      result.push_back(subject.text);
  }
  return result;
}

std::span<const std::string_view> finishedTexts() {
  return finished;
}

std::span<const std::string_view> needsYouTexts() {
  return needsYou;
}

std::span<const std::string_view> questionsOf(const SyntheticSession& session) {
  return std::span(needsYou).subspan(session.project == serverProject ? 0 : serverQuestions);
}

}  // namespace tessivane::synthetic_work
