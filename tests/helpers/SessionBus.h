#pragma once

// A session bus with a home and a keyring of its own, which is this process's session bus as long
// as it lives. The daemons are the real ones; who wants them checks `isInstalled` first. Throws
// when one of them does not start.

#include <sys/types.h>

#include <cstddef>
#include <memory>
#include <string>

#include "helpers/TempHome.h"

namespace tessivane {

class SessionBus final {
 public:
  /// Whether the packages dbus-daemon and gnome-keyring are.
  static bool isInstalled();

  /// Starts a bus on which there is no service at all.
  SessionBus();
  SessionBus(const SessionBus&) = delete;
  SessionBus& operator=(const SessionBus&) = delete;
  ~SessionBus();

  /// Starts the keyring and unlocks it by its password, which the first start determines.
  void startKeyring();
  void stopKeyring();
  /// Locks the keyring that runs.
  void lockKeyring() const;
  /// How many secrets the keyring has of a service, locked ones included.
  std::size_t secretCount(const std::string& service) const;

  /// Somebody who has a name on the bus and is of no use.
  class Impostor final {
   public:
    enum class Manner {
      mute,    ///< answers nobody
      leaves,  ///< goes from the bus on the first call
      locked,  ///< a Secret Service whose one keyring is locked
    };

    Impostor(const SessionBus& bus, const std::string& name, Manner manner = Manner::mute);
    Impostor(const Impostor&) = delete;
    Impostor& operator=(const Impostor&) = delete;
    ~Impostor();

    bool wasCalled() const;
    /// Whether one who is locked was asked for anything that a service may ask the person to unlock
    /// it for.
    bool wasPressed() const;

   private:
    struct State;
    std::shared_ptr<State> state_;
  };

 private:
  std::string address_;
  const TempHome home_;
  pid_t bus_ = 0;
  pid_t keyring_ = 0;
};

}  // namespace tessivane
