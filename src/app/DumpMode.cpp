#include "app/DumpMode.h"

#include <chrono>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "platform/SystemClock.h"
#include "sessions/SessionDiscovery.h"
#include "sessions/SessionDump.h"
#include "support/Calendar.h"
#include "support/Paths.h"

namespace tessivane {

namespace {

void write(std::FILE* file, std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), file);
}

}  // namespace

int runDump(std::FILE* output, std::FILE* errors) {
  using SteadyClock = std::chrono::steady_clock;
  using Milliseconds = std::chrono::duration<double, std::milli>;
  SessionDiscovery discovery(
      {.home = Paths::home(),
       .configDirectory = Paths::configDirectory(),
       .now = systemNow,
       .report = [errors](std::string_view line) { write(errors, std::string(line) + "\n"); }});
  const auto pass = [&discovery] {
    return discovery.sessions(windowStart(systemNow(), Calendar::current()));
  };
  const auto begin = SteadyClock::now();
  pass();
  const auto middle = SteadyClock::now();
  const auto sessions = pass();
  const auto end = SteadyClock::now();
  write(errors,
        fmt::format("cold {:.0f} ms, warm {:.0f} ms\n",
                    Milliseconds(middle - begin).count(),
                    Milliseconds(end - middle).count()));
  for (const AgentSession& session : sessions)
    write(output, dumpLine(session));
  return std::fflush(output) == 0 && std::ferror(output) == 0 ? 0 : 1;
}

}  // namespace tessivane
