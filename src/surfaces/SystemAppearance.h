#pragma once

// Whether the desktop as a whole is set to dark, as its settings portal tells. Lives on the main
// thread. Never waits for the bus: until an answer is there, and where there is none, it is light.

#include <QDBusVariant>
#include <QObject>
#include <QString>
#include <functional>

namespace tessivane {

class SystemAppearance final : public QObject {
  Q_OBJECT

 public:
  /// `changed` is told at every change.
  explicit SystemAppearance(std::function<void(bool isDark)> changed);

  bool isDark() const { return isDark_; }

 private slots:
  void settingChanged(const QString& area, const QString& key, const QDBusVariant& value);

  // Not slots any more. NOLINTNEXTLINE(readability-redundant-access-specifiers)
 private:
  void take(const QVariant& scheme);

  std::function<void(bool)> changed_;
  bool isDark_ = false;
};

}  // namespace tessivane
