// The program for a desktop. It is started by "tessivane", which leaves it its own place as a
// process; without a usable display it hands that place back.

#include <unistd.h>

#include <cstdio>
#include <exception>

#include "app/ProgramFiles.h"
#include "app/desktop/DesktopApplication.h"
#include "surfaces/Desktop.h"

int main(int argc, char** argv) {
  using namespace tessivane;
  try {
    if (!Desktop::isUsable()) {
      std::fputs("Tessivane: the display cannot be used, keeping watch without a window\n", stderr);
      becomeProgram("tessivane", "--headless");
      return 1;
    }
    Desktop desktop(argc, argv);
    return DesktopApplication(desktop).run();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tessivane: %s\n", error.what());
    return 1;
  }
}
