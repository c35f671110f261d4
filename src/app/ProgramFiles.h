#pragma once

// The program's own executables, which lie in one folder: "tessivane" without any trace of a
// desktop, so that listing sessions and serving stay light, and "tessivane-desktop" with the
// surfaces. For the main thread, before there is any other.

#include <string>

namespace tessivane {

/// Whether this person seems to sit before a display, by DISPLAY, WAYLAND_DISPLAY or
/// QT_QPA_PLATFORM.
bool hasDisplayVariable();

/// Replaces this process by the executable of that name beside its own, with one argument unless it
/// is empty. Returns only if that cannot be done.
void becomeProgram(const std::string& name, const std::string& argument);

}  // namespace tessivane
