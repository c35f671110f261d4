#pragma once

// Whether the desktop has a place for tray icons: a StatusNotifier host on the session bus, or the
// older kind of tray on an X11 display. Lives on the main thread.
//
// Qt looks for the former once and never again, so nothing may ask Qt for a tray icon before this
// has found a place for it.

#include <QObject>
#include <functional>

namespace tessivane {

class TrayHost final : public QObject {
  Q_OBJECT

 public:
  /// `found` is called once, as soon as there is a place; within the constructor if there is one
  /// already. A host on the bus may come up later, as at login; an X11 tray is looked for now only.
  explicit TrayHost(std::function<void()> found);

 private slots:
  void hostRegistered();

  // Not slots any more. NOLINTNEXTLINE(readability-redundant-access-specifiers)
 private:
  std::function<void()> found_;
};

}  // namespace tessivane
