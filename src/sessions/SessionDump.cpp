#include "sessions/SessionDump.h"

#include <fmt/format.h>

#include "support/Paths.h"

namespace tessivane {

std::string dumpColumn(std::string_view text) {
  std::string column(text);
  for (char& c : column) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
      c = ' ';
  }
  return column;
}

std::string_view projectName(const AgentSession& session) {
  return session.projectPath.empty() ? "~" : lastPathComponent(session.projectPath);
}

std::string dumpLine(const AgentSession& session) {
  return fmt::format("{}\t{}\t{}\t{}\t{}\t{}\t{}\n",
                     isoText(session.activity),
                     rawValue(session.agent),
                     rawValue(session.kind),
                     label(session.status),
                     dumpColumn(projectName(session)),
                     dumpColumn(session.detail),
                     dumpColumn(session.title));
}

}  // namespace tessivane
