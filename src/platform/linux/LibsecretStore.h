#pragma once

// The keyring behind the Secret Service of the session bus (GNOME Keyring, KWallet, KeePassXC), by
// way of libsecret. Where there is none, there are no secrets: nothing is ever written to a file of
// our own.

#include "platform/SecretStore.h"
#include "support/Date.h"

namespace tessivane {

/// A store whose operations each take at most `limit`. One that does not get done in time has
/// failed, although the service may still carry it out.
///
/// A locked keyring stays as it is: the person is never asked to unlock it, and nothing in it is
/// replaced or removed.
SecretStore libsecretStore(Seconds limit = Seconds(1.5));

}  // namespace tessivane
