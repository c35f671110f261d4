#include "DiscoveryHome.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "DiscoveryDatabases.h"
#include "SampleRollout.h"
#include "SampleText.h"
#include "SampleTranscript.h"

namespace tessivane {

namespace fs = std::filesystem;

namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;

// What a provider may read of one file: first the small window, then, if that did not answer, the
// large one.
constexpr std::size_t headWindow = 128'000;
constexpr std::size_t tailWindow = 256'000;
constexpr std::size_t rolloutWindow = 128'000;
constexpr std::size_t largeWindow = 8'000'000;

constexpr std::size_t smallest = 200'000;
constexpr std::size_t largest = 4'000'000;
constexpr std::size_t hugeSize = 200'000'000;
constexpr std::size_t hugeContents = 2'000'000;  // the rest is a hole in the middle
constexpr std::size_t oldContents = 40'000;

constexpr hours reusableFor{3};

constexpr std::string_view markerName = ".made-by-make_home";

enum class Role { terminal, desktop, archivedDesktop, script, t3 };

struct TranscriptFile {
  std::string path = {};
  Role role = Role::terminal;
  TranscriptPlan plan = {};
  std::size_t sizeWithHole = 0;  // 0 for a file without one
};

struct MetadataFile {
  std::uint64_t seed = 0;
  std::string path = {};
  std::string transcriptID = {};
  std::string cwd = {};
  Date activity = {};
  bool archived = false;
};

struct RolloutFile {
  RolloutPlan plan = {};
  CodexThreadPlan thread = {};
};

void require(bool condition, const std::string& what) {
  if (!condition)
    throw std::runtime_error("discovery home: " + what);
}

std::string slug(std::string path) {
  for (char& character : path) {
    if (std::isalnum(static_cast<unsigned char>(character)) == 0)
      character = '-';
  }
  return path;
}

// What is to be written, worked out before anything is.
class HomePlan final {
 public:
  HomePlan(std::string directory, const DiscoveryHomeSize& size, Date made)
      : directory_(std::move(directory)), size_(size), made_(made), random_(size.seed) {
    planProjects();
    planTranscripts();
    planMetadata();
    planCodex();
    planT3();
  }

  DiscoveryHome described() const;
  void write() const;

 private:
  void planProjects();
  void planTranscripts();
  TranscriptFile plannedTranscript(Role role, bool isRecent);
  void vary(TranscriptPlan& plan, std::size_t index);
  void planMetadata();
  void addMetadata(std::string transcriptID, std::string cwd, Date activity, bool archived);
  void planCodex();
  void addThread(std::size_t index, Date last, CodexThreadPlan thread, std::size_t bytes);
  void planT3();

  void writeTranscript(const TranscriptFile& file) const;
  void writeMetadata(const MetadataFile& file) const;
  void writeRollout(const RolloutFile& file) const;

  std::string cwd() { return cwds_[random_.below(cwds_.size())]; }
  std::string configDirectory() const { return directory_ + "/.config"; }
  Date recently(std::size_t index);
  Date longAgo();

  std::string directory_;
  DiscoveryHomeSize size_;
  Date made_;
  Random random_;
  std::vector<std::string> repositories_;
  std::vector<std::string> cwds_;
  std::vector<TranscriptFile> recent_;
  std::vector<TranscriptFile> old_;
  std::vector<MetadataFile> metadata_;
  std::vector<RolloutFile> rollouts_;
  std::vector<T3ThreadPlan> t3Threads_;
  std::size_t claudeSessions_ = 0;
  std::size_t codexSessions_ = 0;
};

// One of ten is at work right now, the others spread over the last twenty hours.
Date HomePlan::recently(std::size_t index) {
  const std::size_t age = index % 10 == 9 ? random_.below(110) : random_.below(20 * 3'600);
  return made_ - seconds(age);
}

// From three days on: outside of any window, whenever midnight is.
Date HomePlan::longAgo() {
  return made_ - hours(72) - minutes(random_.below(90 * 24 * 60));
}

void HomePlan::planProjects() {
  for (std::size_t index = 0; index < size_.projects; ++index) {
    const std::string root =
        fmt::format("{}/src/group.{}/project-{}", directory_, index % 7, index);
    // A quarter of the folders is under no version control.
    if (index % 4 != 3)
      repositories_.push_back(root);
    cwds_.push_back(root);
    if (index % 3 == 0)
      cwds_.push_back(root + "/packages/core");
  }
}

TranscriptFile HomePlan::plannedTranscript(Role role, bool isRecent) {
  TranscriptFile file;
  file.role = role;
  TranscriptPlan& plan = file.plan;
  plan.seed = size_.seed + recent_.size() * 2 + old_.size() * 2'000'003;
  plan.sessionID = random_.uuid();
  plan.cwd = cwd();
  plan.last = isRecent ? recently(recent_.size()) : longAgo();
  plan.first = plan.last - minutes(1 + random_.below(600));
  const std::size_t size = random_.size(smallest, largest);
  plan.bytes = isRecent ? size : oldContents;
  file.sizeWithHole = isRecent ? 0 : size;
  plan.current = isRecent;
  file.path =
      fmt::format("{}/.claude/projects/{}/{}.jsonl", directory_, slug(plan.cwd), plan.sessionID);
  return file;
}

// The kinds of transcripts that cost different things to read.
void HomePlan::vary(TranscriptPlan& plan, std::size_t index) {
  constexpr std::array endings{TranscriptEnding::answered,
                               TranscriptEnding::answered,
                               TranscriptEnding::answered,
                               TranscriptEnding::toolCalled,
                               TranscriptEnding::toolResult,
                               TranscriptEnding::interrupted};
  plan.ending = endings[random_.below(endings.size())];
  // One in seven comes from an older client: no title ends the search for one.
  plan.current = index % 7 != 3;
  if (index % 101 == 57)
    plan.ending = TranscriptEnding::picture;
  plan.pictureFirst = index % 101 == 58;
}

void HomePlan::planTranscripts() {
  constexpr std::array<std::pair<Role, std::string_view>, 5> kinds{{
      {Role::terminal, "cli"},
      {Role::desktop, "claude-desktop"},
      {Role::archivedDesktop, "claude-desktop"},
      {Role::script, "sdk-cli"},
      {Role::t3, "sdk-ts"},
  }};
  // Of twenty transcripts so many are of each kind.
  constexpr std::array<std::size_t, 5> shares{12, 3, 1, 2, 2};
  for (std::size_t index = 0; index < size_.recentTranscripts; ++index) {
    std::size_t kind = 0;
    for (std::size_t place = index * 7 % 20; place >= shares[kind]; ++kind)
      place -= shares[kind];
    const bool isHuge = index < size_.hugeTranscripts;
    if (isHuge)
      kind = 0;
    TranscriptFile file = plannedTranscript(kinds[kind].first, true);
    file.plan.entrypoint = kinds[kind].second;
    if (isHuge) {
      file.sizeWithHole = hugeSize;
      file.plan.bytes = hugeContents;
    } else if (kind == 0) {
      vary(file.plan, index);
    }
    claudeSessions_ += file.role == Role::terminal || file.role == Role::desktop ? 1 : 0;
    recent_.push_back(std::move(file));
  }
  for (std::size_t index = size_.recentTranscripts; index < size_.transcripts; ++index)
    old_.push_back(plannedTranscript(Role::terminal, false));
}

void HomePlan::addMetadata(std::string transcriptID,
                           std::string cwd,
                           Date activity,
                           bool archived) {
  MetadataFile file;
  file.seed = size_.seed + metadata_.size();
  file.path = fmt::format("{}/Claude/claude-code-sessions/account/organisation-{}/local_{}.json",
                          configDirectory(),
                          metadata_.size() % 2,
                          random_.uuid());
  file.transcriptID = std::move(transcriptID);
  file.cwd = std::move(cwd);
  file.activity = activity;
  file.archived = archived;
  metadata_.push_back(std::move(file));
}

void HomePlan::planMetadata() {
  for (const TranscriptFile& file : recent_) {
    if (file.role == Role::desktop || file.role == Role::archivedDesktop)
      addMetadata(
          file.plan.sessionID, file.plan.cwd, file.plan.last, file.role == Role::archivedDesktop);
  }
  for (std::size_t index = 0; index < std::min(old_.size(), metadata_.size() / 4); ++index)
    addMetadata(old_[index].plan.sessionID, old_[index].plan.cwd, old_[index].plan.last, false);
  // A few sessions whose transcripts are on another machine, the rest long over.
  for (std::size_t index = 0; index < size_.metadataFiles / 50; ++index) {
    addMetadata(random_.uuid(), cwd(), recently(index), false);
    ++claudeSessions_;
  }
  while (metadata_.size() < size_.metadataFiles)
    addMetadata(random_.uuid(), cwd(), longAgo(), metadata_.size() % 3 == 0);
}

void HomePlan::addThread(std::size_t index, Date last, CodexThreadPlan thread, std::size_t bytes) {
  using Ending = RolloutEnding;
  constexpr std::array endings{Ending::complete,
                               Ending::complete,
                               Ending::open,
                               Ending::complete,
                               Ending::complete,
                               Ending::aborted,
                               Ending::open};
  RolloutFile file;
  file.plan.seed = size_.seed + index * 2 + 1;
  file.plan.threadID = random_.uuid();
  file.plan.originator = thread.originator;
  file.plan.cwd = cwd();
  file.plan.last = last;
  file.plan.first = last - minutes(1 + random_.below(400));
  file.plan.bytes = bytes;
  file.plan.ending = endings[index % endings.size()];
  thread.id = file.plan.threadID;
  thread.cwd = file.plan.cwd;
  thread.created = file.plan.first;
  thread.updated = last;
  thread.title = sampleText(random_, random_.size(20, 3'000));
  thread.rolloutPath = fmt::format("{}/.codex/sessions/2026/03/{:02}/rollout-{}-{}.jsonl",
                                   directory_,
                                   1 + index % 28,
                                   index,
                                   thread.id);
  file.thread = std::move(thread);
  rollouts_.push_back(std::move(file));
}

void HomePlan::planCodex() {
  for (std::size_t index = 0; index < size_.codexThreads; ++index) {
    CodexThreadPlan thread;
    if (index % 5 == 0)
      thread.originator = "t3code_desktop";
    else
      ++codexSessions_;
    if (index % 5 == 1)
      thread.source = "exec";
    addThread(index, recently(index), std::move(thread), random_.size(100'000, 2'000'000));
  }
  // Threads that no pass lists.
  for (std::size_t index = 0; index < size_.codexThreads / 5; ++index) {
    CodexThreadPlan thread;
    thread.archived = index % 3 == 0;
    if (index % 3 == 1)
      thread.threadSource = "guardian_review";
    const Date last = index % 3 == 2 ? longAgo() : recently(index);
    addThread(size_.codexThreads + index, last, std::move(thread), oldContents);
  }
}

void HomePlan::planT3() {
  std::vector<std::pair<std::string, std::string>> driven;  // driver, native id
  for (const RolloutFile& file : rollouts_) {
    if (file.thread.originator == "t3code_desktop")
      driven.emplace_back("codex", file.thread.id);
  }
  for (const TranscriptFile& file : recent_) {
    if (file.role == Role::t3)
      driven.emplace_back("claudeAgent", file.plan.sessionID);
  }
  require(driven.size() <= size_.t3Threads, "too few T3 threads for their native sessions");
  while (driven.size() < size_.t3Threads)
    driven.emplace_back("claudeAgent", random_.uuid());
  for (std::size_t index = 0; index < driven.size() + driven.size() / 10; ++index) {
    T3ThreadPlan thread;
    thread.index = index;
    thread.isOld = index >= driven.size();
    thread.driver = driven[index % driven.size()].first;
    thread.nativeID = thread.isOld ? random_.uuid() : driven[index].second;
    thread.cwd = cwd();
    thread.updated = thread.isOld ? longAgo() : recently(index);
    thread.created = thread.updated - minutes(1 + random_.below(3'000));
    t3Threads_.push_back(std::move(thread));
  }
}

DiscoveryHome HomePlan::described() const {
  DiscoveryHome home;
  home.directory = directory_;
  home.configDirectory = configDirectory();
  home.since = made_ - hours(21);
  for (const MetadataFile& file : metadata_)
    home.files.push_back({file.path, largeWindow, 0});
  for (const TranscriptFile& file : recent_) {
    if (file.role == Role::archivedDesktop)
      continue;
    LookedAtFile looked{file.path, 0, 0};
    if (file.role != Role::desktop)
      looked.headBytes = file.plan.pictureFirst ? largeWindow : headWindow;
    if (file.role == Role::desktop || file.role == Role::terminal)
      looked.tailBytes = file.plan.ending == TranscriptEnding::picture ? largeWindow : tailWindow;
    home.files.push_back(std::move(looked));
  }
  for (std::size_t index = 0; index < size_.codexThreads; ++index)
    home.files.push_back({rollouts_[index].thread.rolloutPath, 0, rolloutWindow});
  home.claudeSessions = claudeSessions_;
  home.codexSessions = codexSessions_;
  home.t3Sessions = size_.t3Threads;
  return home;
}

void setModified(const std::string& path, Date modified) {
  const auto sinceEpoch = modified.time_since_epoch();
  const auto whole = std::chrono::floor<seconds>(sinceEpoch);
  const timespec time{whole.count(), std::chrono::nanoseconds(sinceEpoch - whole).count()};
  const std::array<timespec, 2> times{time, time};
  require(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0) == 0, "cannot date " + path);
}

void writeAt(int descriptor, std::string_view bytes, std::size_t offset, const std::string& path) {
  while (!bytes.empty()) {
    const ssize_t count =
        ::pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    require(count > 0, "cannot write " + path);
    bytes.remove_prefix(static_cast<std::size_t>(count));
    offset += static_cast<std::size_t>(count);
  }
}

// Writes `bytes` as a file. Where `size` is more, a hole in the middle, between lines, makes up for
// it.
void writeFile(const std::string& path, std::string_view bytes, std::size_t size, Date modified) {
  fs::create_directories(fs::path(path).parent_path());
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  require(descriptor >= 0, "cannot create " + path);
  std::size_t firstPart = bytes.size();
  if (size > bytes.size()) {
    firstPart = bytes.find('\n', bytes.size() / 2) + 1;
    // The line feed keeps the hole from becoming the beginning of the next line.
    const std::string rest = "\n" + std::string(bytes.substr(firstPart));
    writeAt(descriptor, rest, size - rest.size(), path);
  }
  writeAt(descriptor, bytes.substr(0, firstPart), 0, path);
  require(::close(descriptor) == 0, "cannot write " + path);
  setModified(path, modified);
}

void writeWhole(const std::string& path, std::string_view bytes, Date modified) {
  writeFile(path, bytes, 0, modified);
}

void HomePlan::writeTranscript(const TranscriptFile& file) const {
  writeFile(file.path, sampleTranscript(file.plan), file.sizeWithHole, file.plan.last);
}

void HomePlan::writeMetadata(const MetadataFile& file) const {
  Random random(file.seed);
  const std::string id = fs::path(file.path).stem().string();
  std::string text = fmt::format(
      R"({{"sessionId":"{}","cliSessionId":"{}","cwd":"{}","originCwd":"{}","createdAt":{},)"
      R"("lastActivityAt":{},"model":"claude-opus-4-9","isArchived":{},)"
      R"("title":"Look into {}","permissionMode":"default","notes":")",
      id,
      file.transcriptID,
      file.cwd,
      file.cwd,
      milliseconds(file.activity - hours(2)),
      milliseconds(file.activity),
      file.archived,
      id.substr(id.size() - 6));
  appendText(text, random, 1'500);
  writeWhole(file.path, text + "\"}", file.activity);
}

void HomePlan::writeRollout(const RolloutFile& file) const {
  writeWhole(file.thread.rolloutPath, sampleRollout(file.plan), file.plan.last);
}

void HomePlan::write() const {
  for (const std::string& repository : repositories_)
    fs::create_directories(repository + "/.git");
  for (const std::string& cwd : cwds_)
    fs::create_directories(cwd);
  for (const auto* files : {&recent_, &old_}) {
    for (const TranscriptFile& file : *files)
      writeTranscript(file);
  }
  for (const MetadataFile& file : metadata_)
    writeMetadata(file);
  std::vector<CodexThreadPlan> threads;
  for (const RolloutFile& file : rollouts_) {
    writeRollout(file);
    threads.push_back(file.thread);
  }
  writeCodexDatabase(directory_, threads);
  writeT3Database(directory_, t3Threads_, size_.seed);
}

std::string markerText(const DiscoveryHomeSize& size) {
  return fmt::format("layout 1: {} {} {} {} {} {} {} {}\nmade ",
                     size.projects,
                     size.transcripts,
                     size.recentTranscripts,
                     size.hugeTranscripts,
                     size.metadataFiles,
                     size.codexThreads,
                     size.t3Threads,
                     size.seed);
}

// When the home of that size in `directory` was made; nothing when there is none that can be used.
std::optional<Date> madeAt(const std::string& marker, const DiscoveryHomeSize& size, Date now) {
  std::ifstream file(marker, std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  const std::string expected = markerText(size);
  if (!text.starts_with(expected))
    return std::nullopt;
  const auto made = msDate(std::string_view(text).substr(expected.size()));
  if (!made || *made > now || now - *made > reusableFor)
    return std::nullopt;
  return made;
}

}  // namespace

DiscoveryHomeSize DiscoveryHomeSize::scaled(double factor) const {
  DiscoveryHomeSize scaled = *this;
  const auto scale = [factor](std::size_t& count, std::size_t least) {
    count = std::max(least, static_cast<std::size_t>(static_cast<double>(count) * factor));
  };
  scale(scaled.projects, 4);
  scale(scaled.transcripts, 60);
  scale(scaled.recentTranscripts, 20);
  scale(scaled.hugeTranscripts, 1);
  scale(scaled.metadataFiles, 50);
  scale(scaled.codexThreads, 10);
  scale(scaled.t3Threads, 10);
  return scaled;
}

DiscoveryHome makeDiscoveryHome(const std::string& directory,
                                const DiscoveryHomeSize& size,
                                Date now) {
  fs::create_directories(directory);
  const std::string home = fs::canonical(directory).string();
  const std::string marker = home + "/" + std::string(markerName);
  if (const auto made = madeAt(marker, size, now))
    return HomePlan(home, size, *made).described();
  require(fs::exists(marker) || fs::is_empty(home), home + " holds something else");
  // Written first without a date: a home left unfinished is not used, but may be replaced.
  for (const auto& entry : fs::directory_iterator(home)) {
    if (entry.path() != marker)
      fs::remove_all(entry.path());
  }
  std::ofstream(marker, std::ios::binary) << "unfinished\n";
  // Whole milliseconds, as the marker keeps them: a home used again is described as it was.
  const Date made = std::chrono::floor<std::chrono::milliseconds>(now);
  const HomePlan plan(home, size, made);
  plan.write();
  std::ofstream(marker, std::ios::binary) << markerText(size) << milliseconds(made);
  return plan.described();
}

}  // namespace tessivane
