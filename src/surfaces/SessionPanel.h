#pragma once

// The floating panel: the live session list in a small window that stays above others. A thin
// reader of the store. Lives on the main thread; whoever makes it keeps store and closures alive
// for longer.

#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QPushButton>
#include <QToolButton>
#include <QWidget>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sessions/SessionStore.h"
#include "support/Observers.h"
#include "surfaces/MenuRow.h"
#include "surfaces/SessionListModel.h"

namespace tessivane {

class SessionPanel final : public QWidget {
 public:
  struct Environment {
    SessionStore* store = nullptr;
    Clock now = {};
    /// The rows of its menu, asked for each time that it opens.
    std::function<std::vector<MenuRow>()> menuRows = {};
    /// The person has closed the panel.
    std::function<void()> closed = [] {};
  };

  explicit SessionPanel(Environment environment);
  ~SessionPanel() override = default;

  /// Shows the panel in front, with the keyboard in the list.
  void bringForward();

 protected:
  void showEvent(QShowEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  void changeEvent(QEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  QWidget* makeHeader();
  QWidget* makeFooter();
  void makeList();
  void makeLabels();

  void watchStore();
  void showSessions();
  void showProblems();
  void showToast();
  void placeToast();
  void applyColors();
  void selectionChanged();
  std::optional<AgentSession> selectedSession() const;
  void openSelected();
  void copySelected();

  const Environment environment_;
  SessionListModel model_;
  bool isSurface_ = false;  // counted by the store

  // Owned by the window that they are in.
  QLabel* summary_ = nullptr;
  QLabel* problems_ = nullptr;
  QLabel* emptyText_ = nullptr;
  QLabel* toast_ = nullptr;
  QListView* list_ = nullptr;
  QToolButton* menuButton_ = nullptr;
  QMenu* menu_ = nullptr;
  QPushButton* openButton_ = nullptr;
  QPushButton* copyButton_ = nullptr;

  std::vector<Subscription> subscriptions_;
};

}  // namespace tessivane
