#include "app/MainLine.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "support/Paths.h"

namespace tessivane {

namespace {

// Well within the second that a person, or the system at shutdown, gives a program to end.
constexpr Seconds restLimit{0.5};

}  // namespace

std::string programDirectory() {
  return joinedPath(Paths::configDirectory(), "Tessivane");
}

MainLine::MainLine(TaskQueue& mainQueue, std::function<void()> quit, std::function<void()> reopen)
    : mainQueue_(mainQueue),
      quit_(std::move(quit)),
      instance_(programDirectory(), mainQueue, std::move(reopen)),
      defaults_(FileUserDefaults::standardPath(), mainQueue, [](const std::string& sentence) {
        std::fprintf(stderr, "Tessivane: %s\n", sentence.c_str());
      }) {}

MainLine::~MainLine() = default;

std::optional<int> MainLine::exitBecauseOfOther() const {
  switch (instance_.role()) {
    case SingleInstance::Role::first:
      return std::nullopt;
    case SingleInstance::Role::handedOver:
      return 0;
    case SingleInstance::Role::behindOther:
      std::fputs("Tessivane: already running without a window; end that one first\n", stderr);
      return 1;
  }
  return std::nullopt;
}

Program& MainLine::makeProgram(const Program::Shell& shell) {
  program_ = std::make_unique<Program>(mainQueue_, defaults_, shell);
  return *program_;
}

AppDelegate::Environment MainLine::environment() {
  AppDelegate::Environment made;
  made.mainQueue = &mainQueue_;
  made.defaults = &defaults_;
  made.environmentVariable = [](const char* name) -> std::optional<std::string> {
    const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nothing here sets it
    if (value == nullptr)
      return std::nullopt;
    return value;
  };
  made.quitOnTerminationSignals = [this] {
    signals_ =
        std::make_unique<TerminationSignals>(mainQueue_, [this](int /*signal*/) { quit_(); });
  };
  SessionStore& store = program_->store();
  made.storeIsScheduled = [&store] { return store.isScheduled(); };
  made.refreshStore = [&store] { store.refresh(); };
  made.scheduleStore = [&store] { store.schedule(); };
  made.stopRush = [this] { program_->rush().stop(); };
  return made;
}

void MainLine::launch(AppDelegate::Environment environment) {
  delegate_ = std::make_unique<AppDelegate>(std::move(environment));
  delegate_->applicationDidFinishLaunching();
  program_->activity().start();
}

void MainLine::terminate() {
  instance_.stopListening();
  delegate_->applicationWillTerminate();
  if (program_->comesToRest(restLimit))
    return;
  std::fflush(nullptr);
  std::_Exit(0);
}

}  // namespace tessivane
