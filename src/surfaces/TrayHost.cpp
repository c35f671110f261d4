#include "surfaces/TrayHost.h"

#include <xcb/xcb.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QString>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

namespace tessivane {

namespace {

// The StatusNotifierItem protocol, as KDE made it and others took it over.
const QString watcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString watcherPath = QStringLiteral("/StatusNotifierWatcher");
const QString watcherInterface = watcherService;
// A watcher that does not answer must not hold up the start.
constexpr int answerLimit = 300;  // milliseconds

struct Free {
  void operator()(void* reply) const { std::free(reply); }  // NOLINT: what xcb gives is malloc's
};

bool hasBusHost(const QDBusConnection& bus) {
  if (!bus.interface()->isServiceRegistered(watcherService))
    return false;
  QDBusMessage question =
      QDBusMessage::createMethodCall(watcherService,
                                     watcherPath,
                                     QStringLiteral("org.freedesktop.DBus.Properties"),
                                     QStringLiteral("Get"));
  question << watcherInterface << QStringLiteral("IsStatusNotifierHostRegistered");
  const QDBusReply<QDBusVariant> reply = bus.call(question, QDBus::Block, answerLimit);
  return reply.isValid() && reply.value().variant().toBool();
}

bool hasX11Tray() {
  auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
  if (x11 == nullptr)
    return false;
  xcb_connection_t* display = x11->connection();
  // The tray of the first screen; a display with several is a rarity of the past.
  const std::string name = "_NET_SYSTEM_TRAY_S0";
  const std::unique_ptr<xcb_intern_atom_reply_t, Free> atom(xcb_intern_atom_reply(
      display,
      xcb_intern_atom(display, 1, static_cast<std::uint16_t>(name.size()), name.data()),
      nullptr));
  if (atom == nullptr || atom->atom == XCB_ATOM_NONE)
    return false;
  const std::unique_ptr<xcb_get_selection_owner_reply_t, Free> owner(xcb_get_selection_owner_reply(
      display, xcb_get_selection_owner(display, atom->atom), nullptr));
  return owner != nullptr && owner->owner != XCB_WINDOW_NONE;
}

}  // namespace

TrayHost::TrayHost(std::function<void()> found) : found_(std::move(found)) {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if ((bus.isConnected() && hasBusHost(bus)) || hasX11Tray()) {
    std::exchange(found_, nullptr)();
    return;
  }
  if (!bus.isConnected())
    return;
  bus.connect(watcherService,
              watcherPath,
              watcherInterface,
              QStringLiteral("StatusNotifierHostRegistered"),
              this,
              SLOT(hostRegistered()));
  // A watcher that comes up may have its host by the time it can be heard.
  auto* watcher =
      new QDBusServiceWatcher(watcherService, bus, QDBusServiceWatcher::WatchForRegistration, this);
  connect(watcher, &QDBusServiceWatcher::serviceRegistered, this, [this, bus] {
    if (hasBusHost(bus))
      hostRegistered();
  });
}

void TrayHost::hostRegistered() {
  if (const auto found = std::exchange(found_, nullptr))
    found();
}

}  // namespace tessivane
