#include "app/Application.h"

#include "app/ActivityDumpMode.h"
#include "app/AppDelegate.h"
#include "app/DumpMode.h"
#include "app/MainLine.h"
#include "app/ProgramFiles.h"
#include "app/RushDumpMode.h"
#include "platform/MemoryUserDefaults.h"
#include "platform/linux/AsioMainQueue.h"
#include "platform/linux/GIOWorkspace.h"

namespace tessivane {

namespace {

using Mode = CommandLine::Mode;

// The dumps end the launch before there is a surface; they leave settings and other instances
// alone.
int runDumps(Mode mode) {
  AsioMainQueue mainQueue;
  MemoryUserDefaults defaults(mainQueue);
  AppDelegate::Environment environment;
  environment.mainQueue = &mainQueue;
  environment.defaults = &defaults;
  if (mode == Mode::dumpRush)
    environment.dumpRushAndExit = [] { return runRushDump(stdout, stderr); };
  environment.dumpAndExit = [] { return runDump(stdout, stderr); };
  return AppDelegate(std::move(environment)).applicationDidFinishLaunching().value_or(0);
}

int runHeadless() {
  AsioMainQueue mainQueue;
  MainLine line(mainQueue, [&mainQueue] { mainQueue.stop(); }, {});
  if (const auto status = line.exitBecauseOfOther())
    return *status;
  line.makeProgram({.workspace = gioWorkspace()});
  line.launch(line.environment());
  mainQueue.run();
  line.terminate();
  return 0;
}

}  // namespace

int runApplication(const CommandLine& line) {
  const Mode mode = line.mode;
  if (mode == Mode::activity)
    return runActivityDump(line.range, stdout, stderr);
  if (mode == Mode::dump || mode == Mode::dumpRush)
    return runDumps(mode);
  // A build without the surfaces has no such program and goes on below.
  if (mode == Mode::start && hasDisplayVariable())
    becomeProgram("tessivane-desktop", "");
  return runHeadless();
}

}  // namespace tessivane
