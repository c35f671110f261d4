#include "surfaces/Desktop.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QApplication>
#include <QClipboard>
#include <QStyleFactory>
#include <array>
#include <cstdlib>
#include <string>

#include "surfaces/Palettes.h"
#include "surfaces/ProgramIcon.h"
#include "surfaces/QtMainQueue.h"
#include "surfaces/SystemAppearance.h"

namespace tessivane {

namespace {

// A display that does not answer by then is none; the child ends by itself.
constexpr unsigned displayLimit = 5;  // seconds

// In the child: ends with status 0 if there is a display. What Qt complains of is left unsaid, as
// the parent says it in its own words.
[[noreturn]] void tryDisplay() {
  ::alarm(displayLimit);
  const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  ::dup2(nowhere, STDERR_FILENO);
  std::array<char, 10> name = {"tessivane"};
  std::array<char*, 2> arguments = {name.data(), nullptr};
  int count = 1;
  const QGuiApplication application(count, arguments.data());
  ::_exit(0);
}

}  // namespace

struct Desktop::Parts {
  Parts(int& argc, char** argv) : application(argc, argv) {}

  void showAppearance() const {
    const bool isDark =
        choice == AppearanceChoice::dark || (choice == AppearanceChoice::system && system.isDark());
    QApplication::setPalette(isDark ? darkPalette() : lightPalette());
  }

  QApplication application;
  QtMainQueue mainQueue;
  AppearanceChoice choice = AppearanceChoice::system;
  SystemAppearance system{[this](bool /*isDark*/) { showAppearance(); }};
  bool isOver = false;
};

bool Desktop::isUsable() {
  const pid_t child = ::fork();
  if (child == 0)
    tryDisplay();
  int status = -1;
  return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
         WEXITSTATUS(status) == 0;
}

Desktop::Desktop(int& argc, char** argv) : parts_(std::make_unique<Parts>(argc, argv)) {
  QApplication::setApplicationName(QStringLiteral("Tessivane"));
  QApplication::setDesktopFileName(QStringLiteral("tessivane"));
  QApplication::setWindowIcon(programIcon(false));
  // The one style that takes its colours from the palette throughout.
  QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
  // The program lives on in the tray.
  QApplication::setQuitOnLastWindowClosed(false);
}

Desktop::~Desktop() = default;

TaskQueue& Desktop::mainQueue() {
  return parts_->mainQueue;
}

Pasteboard Desktop::pasteboard() const {
  return {.setText = [](const std::string& text) {
    QGuiApplication::clipboard()->setText(QString::fromStdString(text));
    return true;
  }};
}

void Desktop::apply(AppearanceChoice choice) {
  parts_->choice = choice;
  parts_->showAppearance();
}

bool Desktop::isFrontmost() const {
  return QGuiApplication::focusWindow() != nullptr;
}

void Desktop::run() {
  if (!parts_->isOver)
    QApplication::exec();
}

void Desktop::quit() {
  parts_->isOver = true;
  // Not `quit`, which would first close the windows, as if the person did.
  QCoreApplication::exit(0);
}

}  // namespace tessivane
