#include "app/desktop/DesktopApplication.h"

#include <QMessageBox>
#include <utility>

#include "app/CommandLine.h"
#include "platform/SystemClock.h"
#include "platform/linux/GIOWorkspace.h"
#include "surfaces/SessionRow.h"

namespace tessivane {

namespace {

// Whether the panel was up when the program was last used.
constexpr std::string_view panelOpenKey = "panelOpen";

}  // namespace

DesktopApplication::DesktopApplication(Desktop& desktop)
    : desktop_(desktop),
      line_(
          desktop.mainQueue(), [&desktop] { desktop.quit(); }, [this] { line_.reopen(); }) {}

int DesktopApplication::run() {
  if (const auto status = line_.exitBecauseOfOther())
    return *status;
  program_ = &line_.makeProgram({.workspace = gioWorkspace(),
                                 .pasteboard = desktop_.pasteboard(),
                                 .frontmostIsInFlow = [this] { return desktop_.isFrontmost(); }});
  panel_ = std::make_unique<SessionPanel>(SessionPanel::Environment{
      .store = &program_->store(),
      .now = systemNow,
      .menuRows = [this] { return menuRows(); },
      .closed = [this] { line_.defaults().set(panelOpenKey, false); },
  });

  // The task bar lists windows here, not programs: there is no policy to set, and presence has
  // nothing to do.
  AppDelegate::Environment environment = line_.environment();
  environment.applyAppearance = [this](AppearanceChoice choice) { desktop_.apply(choice); };
  environment.installStatusItem = [this] { installStatusItem(); };
  environment.showFloatingPanel = [this] { showPanel(); };
  line_.launch(std::move(environment));
  desktop_.run();
  line_.terminate();
  return 0;
}

void DesktopApplication::installStatusItem() {
  trayHost_ = std::make_unique<TrayHost>([this] {
    if (!StatusItem::isPossible())
      return;
    statusItem_ =
        std::make_unique<StatusItem>([this] { action(StatusItemMenu::Action::toggleWindow)(); });
    const auto& rush = program_->rush().state();
    subscriptions_.push_back(
        program_->store().sessions().subscribe([this](const auto&) { showStatus(); }));
    subscriptions_.push_back(
        rush.subscribe([this, wasOn = rush.value().isOn](const RushState& state) mutable {
          if (std::exchange(wasOn, state.isOn) != state.isOn)
            statusItem_->setRows(menuRows());
        }));
    statusItem_->setRows(menuRows());
    showStatus();
  });
  // Without a tray the panel is all there is to be seen, and has the menu.
  if (statusItem_ == nullptr)
    desktop_.mainQueue().async([this] { panel_->bringForward(); });
}

void DesktopApplication::showStatus() {
  const auto rows = sessionRows(program_->store().sessions().value(), systemNow());
  const bool attention = !rows.empty() && rows.front().status == SessionStatus::needsYou;
  statusItem_->setState(attention, summaryText(rows));
}

std::vector<MenuRow> DesktopApplication::menuRows() {
  std::vector<MenuRow> rows;
  for (const auto& entry : StatusItemMenu::entries(program_->rush().state().value().isOn)) {
    if (entry.isSeparator())
      rows.push_back(MenuRow{});
    else
      rows.push_back(MenuRow{.title = entry.title, .action = action(entry.action)});
  }
  return rows;
}

std::function<void()> DesktopApplication::action(StatusItemMenu::Action action) {
  using Action = StatusItemMenu::Action;
  switch (action) {
    case Action::toggleWindow:
      return [this] {
        if (panel_->isVisible() && !panel_->isMinimized())
          hidePanel();
        else
          showPanel();
      };
    case Action::rush:
      return [this] {
        RushController& rush = program_->rush();
        if (rush.state().value().isOn)
          rush.stop();
        else
          rush.start();
      };
    case Action::about:
      return [this] { showAbout(); };
    case Action::quit:
      return [this] { desktop_.quit(); };
    case Action::activity:
    case Action::settings:
    case Action::updates:
      // Their windows do not exist yet.
      break;
  }
  return {};
}

void DesktopApplication::showPanel() {
  panel_->bringForward();
  line_.defaults().set(panelOpenKey, true);
}

void DesktopApplication::hidePanel() {
  panel_->hide();
  line_.defaults().set(panelOpenKey, false);
}

void DesktopApplication::showAbout() {
  // Not modal: the program goes on behind it.
  auto* box = new QMessageBox(QMessageBox::NoIcon,
                              QStringLiteral("About Tessivane"),
                              QString::fromStdString(versionText()),
                              QMessageBox::Close,
                              panel_->isVisible() ? panel_.get() : nullptr);
  box->setInformativeText(QStringLiteral(
      "Tells which coding sessions on this computer need you. It only reads what the "
      "agents leave on disk, and everything stays here."));
  box->setIconPixmap(panel_->windowIcon().pixmap(64, 64));
  box->setAttribute(Qt::WA_DeleteOnClose);
  box->setModal(false);
  box->show();
}

}  // namespace tessivane
