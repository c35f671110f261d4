#include "app/RushDumpMode.h"

#include <fmt/format.h>

#include "platform/SystemClock.h"
#include "rush/RushController.h"
#include "sessions/SessionDiscovery.h"
#include "sessions/SessionDump.h"
#include "support/Calendar.h"
#include "support/Paths.h"

namespace tessivane {

std::string rushDumpLine(const AgentSession& session) {
  return fmt::format("{}\t{}\t{}\t{}\t{}\t{}\n",
                     isoText(session.activity),
                     rawValue(session.agent),
                     label(session.status),
                     dumpColumn(projectName(session.projectPath)),
                     dumpColumn(session.detail),
                     dumpColumn(session.title));
}

int runRushDump(std::FILE* output, std::FILE* errors) {
  SessionDiscovery discovery({.home = Paths::home(),
                              .configDirectory = Paths::configDirectory(),
                              .now = systemNow,
                              .report = [errors](std::string_view line) {
                                std::fprintf(
                                    errors, "%.*s\n", static_cast<int>(line.size()), line.data());
                              }});
  const Date now = systemNow();
  const Calendar calendar = Calendar::current();
  const auto sessions = discovery.sessions(windowStart(now, calendar));
  const RushTable table = RushController::freshTable(now);
  for (const AgentSession* session : table.queue(sessions, now, calendar))
    std::fputs(rushDumpLine(*session).c_str(), output);
  return std::fflush(output) == 0 && std::ferror(output) == 0 ? 0 : 1;
}

}  // namespace tessivane
