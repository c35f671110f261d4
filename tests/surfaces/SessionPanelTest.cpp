#include "surfaces/SessionPanel.h"

#include <QAction>
#include <QApplication>
#include <QKeyEvent>
#include <QPushButton>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using testing::UnorderedElementsAre;

class SessionPanelTest : public testing::Test {
 protected:
  static AgentSession session(const char* id, SessionStatus status) {
    return {.agent = Agent::claude,
            .nativeID = id,
            .title = id,
            .cwd = "/home/demo/shed",
            .status = status,
            .sourceIDs = {std::string("claude:") + id}};
  }

  SessionStore::Environment environment() {
    SessionStore::Environment made;
    made.mainQueue = &main_;
    made.refreshQueue = &refresh_;
    made.now = clock_.clock();
    made.calendar = [] { return Calendar("UTC"); };
    made.discover = [this](Date) { return found_; };
    made.problems = [this] { return problems_; };
    made.workspace.handlesURL = [](const std::string&) { return true; };
    const auto note = [this](const char* what) {
      return [this, what](const std::string& text) {
        log_.push_back(what + text);
        return true;
      };
    };
    made.workspace.openURL = note("open ");
    made.pasteboard.setText = note("copy ");
    return made;
  }

  void publish(SessionStore::Sessions sessions) {
    found_ = std::move(sessions);
    store_.refresh();
    while (refresh_.runPending() + main_.runPending() > 0) {
    }
  }

  std::vector<std::string> shownTexts() {
    std::vector<std::string> texts;
    for (const auto* label : panel_.findChildren<QLabel*>()) {
      if (label->isVisible() && !label->text().isEmpty())
        texts.push_back(label->text().toStdString());
    }
    return texts;
  }
  QPushButton* button(const char* text) {
    for (auto* found : panel_.findChildren<QPushButton*>()) {
      if (found->text() == QLatin1String(text))
        return found;
    }
    ADD_FAILURE() << "no button " << text;
    return nullptr;
  }
  QListView* list() { return panel_.findChild<QListView*>(); }
  std::string currentTitle() { return list()->currentIndex().data().toString().toStdString(); }
  void press(int key) {
    QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier);
    QApplication::sendEvent(list(), &event);
  }

  ManualClock clock_;
  ManualQueue main_{clock_};
  ManualQueue refresh_{clock_};
  SessionStore::Sessions found_;
  SessionStore::Problems problems_;
  std::vector<std::string> log_;
  SessionStore store_{environment()};
  int closed_ = 0;
  SessionPanel panel_{SessionPanel::Environment{
      .store = &store_,
      .now = clock_.clock(),
      .menuRows = [] { return std::vector<MenuRow>(); },
      .closed = [this] { ++closed_; },
  }};
};

TEST_F(SessionPanelTest, IsASurfaceOfTheStoreWhileItIsShown) {
  publish({session("a", SessionStatus::idle)});
  EXPECT_EQ(store_.openSurfaces(), 0U);
  panel_.bringForward();
  panel_.bringForward();
  EXPECT_EQ(store_.openSurfaces(), 1U);
  EXPECT_EQ(list()->model()->rowCount(), 1);

  panel_.hide();
  EXPECT_EQ(store_.openSurfaces(), 0U);
  publish({});
  EXPECT_EQ(list()->model()->rowCount(), 1) << "nothing is drawn for nobody";
  panel_.bringForward();
  EXPECT_EQ(list()->model()->rowCount(), 0);
  EXPECT_EQ(closed_, 0);
  panel_.close();
  EXPECT_EQ(closed_, 1);
  EXPECT_EQ(store_.openSurfaces(), 0U);
}

TEST_F(SessionPanelTest, SelectionStaysWithItsSession) {
  panel_.bringForward();
  publish({session("a", SessionStatus::yourTurn), session("b", SessionStatus::idle)});
  list()->setCurrentIndex(list()->model()->index(1, 0));
  ASSERT_EQ(currentTitle(), "b");

  publish({session("b", SessionStatus::needsYou), session("a", SessionStatus::yourTurn)});
  EXPECT_EQ(currentTitle(), "b");
  EXPECT_EQ(list()->currentIndex().row(), 0);
  EXPECT_TRUE(button("Open")->isEnabled());

  publish({session("a", SessionStatus::yourTurn)});
  EXPECT_FALSE(button("Open")->isEnabled()) << "what was selected has gone";
  press(Qt::Key_Return);
  EXPECT_TRUE(log_.empty());
}

TEST_F(SessionPanelTest, OpensAndCopiesWhatIsSelected) {
  AgentSession linked = session("linked", SessionStatus::needsYou);
  linked.openURL = "claude://linked";
  panel_.bringForward();
  publish({linked, session("terminal", SessionStatus::idle)});
  EXPECT_FALSE(button("Open")->isEnabled());
  press(Qt::Key_Return);
  EXPECT_TRUE(log_.empty()) << "nothing is selected";

  list()->setCurrentIndex(list()->model()->index(0, 0));
  press(Qt::Key_Enter);
  list()->setCurrentIndex(list()->model()->index(1, 0));
  emit list()->doubleClicked(list()->currentIndex());
  button("Copy Resume Command")->click();
  EXPECT_THAT(log_, ElementsAre("open claude://linked", StartsWith("copy "), StartsWith("copy ")));
}

TEST_F(SessionPanelTest, TellsProblemsToastsAndEmptiness) {
  panel_.bringForward();
  EXPECT_THAT(shownTexts(), testing::Contains(HasSubstr("Looking for sessions")));
  problems_ = {{Agent::codex, "database is locked <b>"}};
  publish({});
  EXPECT_THAT(
      shownTexts(),
      testing::IsSupersetOf({"No sessions today or yesterday", "Codex: database is locked <b>"}));

  problems_ = {};
  publish({session("a", SessionStatus::needsYou)});
  store_.showToast("Copied");
  EXPECT_THAT(shownTexts(), UnorderedElementsAre("Sessions", "1 needs you", "Copied"));
  main_.advance(2s);
  EXPECT_THAT(shownTexts(), UnorderedElementsAre("Sessions", "1 needs you"));
}

TEST(MenuRow, GreysOutWhatCannotBeChosenAndMayBeFilledAnewByItsAction) {
  QMenu menu;
  int chosen = 0;
  std::vector<MenuRow> rows;
  rows = {{"Do",
           [&] {
             ++chosen;
             fillMenu(menu, rows);
           }},
          {},
          {"Not yet", nullptr}};
  fillMenu(menu, rows);
  ASSERT_EQ(menu.actions().size(), 3);
  EXPECT_TRUE(menu.actions()[1]->isSeparator());
  EXPECT_FALSE(menu.actions()[2]->isEnabled());
  menu.actions()[0]->trigger();
  QApplication::processEvents();
  EXPECT_EQ(chosen, 1);
  EXPECT_EQ(menu.actions().size(), 3);
}

}  // namespace
}  // namespace tessivane
