#pragma once

// The workspace of a Linux desktop, by way of GIO: what desktop entries and their associations say.
// It reads files and starts processes; without a desktop it simply finds nothing. No operation
// waits for the application that it starts.

#include <string_view>

#include "platform/Workspace.h"

namespace tessivane {

Workspace gioWorkspace();

/// Whether a desktop entry of this name ("t3-code.desktop") is one that the application of that
/// identifier may have under Linux, where its packages do not use the identifier itself.
///
/// T3 Code, "com.t3tools.t3code": any name that begins with "t3code" once letters and digits alone
/// are left, since packagers write it in many ways ("t3code", "t3-code-nightly", "T3 Code
/// (Alpha)"), also behind the prefix that AppImage integration puts before it
/// ("appimagekit_0123abcd-").
bool isKnownDesktopEntry(std::string_view entry, std::string_view identifier);

}  // namespace tessivane
