#include "surfaces/SystemAppearance.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariant>
#include <utility>

namespace tessivane {

namespace {

// org.freedesktop.portal.Settings; "color-scheme" is 0 for none, 1 for dark, 2 for light.
const QString service = QStringLiteral("org.freedesktop.portal.Desktop");
const QString path = QStringLiteral("/org/freedesktop/portal/desktop");
const QString interface = QStringLiteral("org.freedesktop.portal.Settings");
const QString appearanceArea = QStringLiteral("org.freedesktop.appearance");
const QString colorScheme = QStringLiteral("color-scheme");
constexpr unsigned preferDark = 1;

}  // namespace

SystemAppearance::SystemAppearance(std::function<void(bool)> changed)
    : changed_(std::move(changed)) {
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected())
    return;
  bus.connect(service,
              path,
              interface,
              QStringLiteral("SettingChanged"),
              this,
              SLOT(settingChanged(QString, QString, QDBusVariant)));
  QDBusMessage question =
      QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("Read"));
  question << appearanceArea << colorScheme;
  auto* answer = new QDBusPendingCallWatcher(bus.asyncCall(question), this);
  connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer] {
    const QDBusPendingReply<QDBusVariant> reply = *answer;
    if (!reply.isError())
      take(reply.value().variant());
    answer->deleteLater();
  });
}

void SystemAppearance::settingChanged(const QString& area,
                                      const QString& key,
                                      const QDBusVariant& value) {
  if (area == appearanceArea && key == colorScheme)
    take(value.variant());
}

void SystemAppearance::take(const QVariant& scheme) {
  // `Read` wraps the value once more than the signal does.
  const QVariant plain =
      scheme.canConvert<QDBusVariant>() ? scheme.value<QDBusVariant>().variant() : scheme;
  const bool isDark = plain.toUInt() == preferDark;
  if (std::exchange(isDark_, isDark) != isDark)
    changed_(isDark);
}

}  // namespace tessivane
