#include "sessions/SessionDump.h"

#include <fmt/format.h>

namespace tessivane {

std::string dumpColumn(std::string_view text) {
  std::string column(text);
  for (char& c : column) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
      c = ' ';
  }
  return column;
}

std::string dumpLine(const AgentSession& session) {
  return fmt::format("{}\t{}\t{}\t{}\t{}\t{}\t{}\n",
                     isoText(session.activity),
                     rawValue(session.agent),
                     rawValue(session.kind),
                     label(session.status),
                     dumpColumn(projectName(session.projectPath)),
                     dumpColumn(session.detail),
                     dumpColumn(session.title));
}

}  // namespace tessivane
