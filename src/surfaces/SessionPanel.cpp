#include "surfaces/SessionPanel.h"

#include <QCloseEvent>
#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QKeyEvent>
#include <QShortcut>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "surfaces/Palettes.h"
#include "surfaces/ProgramIcon.h"
#include "surfaces/SessionDelegate.h"

namespace tessivane {

namespace {

constexpr QSize standardSize(440, 600);
constexpr QSize leastSize(300, 240);
constexpr int margin = 14;
constexpr int toastBottom = 64;

// Notices are short. What a broken source has to say beyond this is in the program's output.
constexpr qsizetype longestProblem = 300;

QLabel* plainLabel(QWidget* parent) {
  auto* made = new QLabel(parent);
  // Names and messages come from files of others.
  made->setTextFormat(Qt::PlainText);
  return made;
}

QString problemText(const SessionStore::Problems& problems) {
  QStringList lines;
  for (const auto& [agent, problem] : problems) {
    const auto name = displayName(agent);
    QString text = QString::fromStdString(problem);
    if (text.size() > longestProblem)
      text = text.left(longestProblem) + QChar(u'\u2026');
    lines << QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size())) +
                 QStringLiteral(": ") + text;
  }
  return lines.join(QChar(u'\n'));
}

}  // namespace

SessionPanel::SessionPanel(Environment environment) : environment_(std::move(environment)) {
  setWindowTitle(QStringLiteral("Tessivane"));
  setWindowIcon(programIcon(false));
  setWindowFlags(Qt::Window | Qt::WindowStaysOnTopHint);
  setMinimumSize(leastSize);
  resize(standardSize);

  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(0);
  makeList();
  makeLabels();
  column->addWidget(makeHeader());
  column->addWidget(problems_);
  column->addWidget(list_, 1);
  column->addWidget(makeFooter());

  auto* copy = new QShortcut(QKeySequence::Copy, this);
  connect(copy, &QShortcut::activated, this, [this] { copySelected(); });

  applyColors();
  watchStore();
}

QWidget* SessionPanel::makeHeader() {
  auto* header = new QWidget(this);
  auto* row = new QHBoxLayout(header);
  row->setContentsMargins(margin, 10, margin - 6, 10);
  auto* name = plainLabel(header);
  name->setText(QStringLiteral("Sessions"));
  QFont bold = name->font();
  bold.setWeight(QFont::Bold);
  name->setFont(bold);
  summary_ = plainLabel(header);
  menuButton_ = new QToolButton(header);
  menuButton_->setAutoRaise(true);
  menuButton_->setPopupMode(QToolButton::InstantPopup);
  menuButton_->setAccessibleName(QStringLiteral("Menu"));
  menuButton_->setToolTip(QStringLiteral("Menu"));
  menuButton_->setStyleSheet(QStringLiteral("QToolButton::menu-indicator { image: none; }"));
  menu_ = new QMenu(menuButton_);
  menuButton_->setMenu(menu_);
  connect(menu_, &QMenu::aboutToShow, this, [this] { fillMenu(*menu_, environment_.menuRows()); });
  fillMenu(*menu_, environment_.menuRows());
  row->addWidget(name);
  row->addSpacing(8);
  row->addWidget(summary_, 1);
  row->addWidget(menuButton_);
  return header;
}

void SessionPanel::makeList() {
  list_ = new QListView(this);
  list_->setModel(&model_);
  list_->setItemDelegate(new SessionDelegate(list_));
  list_->setUniformItemSizes(true);
  list_->setFrameShape(QFrame::NoFrame);
  list_->setMouseTracking(true);
  list_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  list_->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
  list_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  list_->setAccessibleName(QStringLiteral("Sessions"));
  list_->installEventFilter(this);
  // Not `activated`, which some desktops send at a single click.
  connect(list_, &QListView::doubleClicked, this, [this] { openSelected(); });
  connect(list_->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
    selectionChanged();
  });
  // The current session can go from the list without another one taking its place.
  connect(&model_, &QAbstractItemModel::layoutChanged, this, [this] { selectionChanged(); });
}

void SessionPanel::makeLabels() {
  problems_ = plainLabel(this);
  problems_->setWordWrap(true);
  problems_->setContentsMargins(margin, 8, margin, 8);
  problems_->setAutoFillBackground(true);
  problems_->setTextInteractionFlags(Qt::TextSelectableByMouse);

  emptyText_ = plainLabel(list_);
  emptyText_->setAlignment(Qt::AlignCenter);
  emptyText_->setWordWrap(true);

  toast_ = plainLabel(this);
  toast_->setStyleSheet(
      QStringLiteral("background: rgba(20, 21, 24, 225); color: white;"
                     "border-radius: 9px; padding: 7px 14px;"));
  toast_->hide();
}

QWidget* SessionPanel::makeFooter() {
  auto* footer = new QWidget(this);
  auto* row = new QHBoxLayout(footer);
  row->setContentsMargins(margin, 8, margin, 10);
  openButton_ = new QPushButton(QStringLiteral("Open"), footer);
  copyButton_ = new QPushButton(QStringLiteral("Copy Resume Command"), footer);
  connect(openButton_, &QPushButton::clicked, this, [this] { openSelected(); });
  connect(copyButton_, &QPushButton::clicked, this, [this] { copySelected(); });
  for (QPushButton* button : {openButton_, copyButton_}) {
    button->setMinimumWidth(button->sizeHint().width() + 2 * margin);
    row->addWidget(button);
  }
  row->addStretch(1);
  selectionChanged();
  return footer;
}

void SessionPanel::bringForward() {
  setWindowState(windowState() & ~Qt::WindowMinimized);
  show();
  raise();
  activateWindow();
  list_->setFocus();
}

void SessionPanel::watchStore() {
  const SessionStore& store = *environment_.store;
  subscriptions_.push_back(store.sessions().subscribe([this](const auto&) { showSessions(); }));
  subscriptions_.push_back(store.minuteTick().subscribe([this](int) { showSessions(); }));
  subscriptions_.push_back(store.hasLoaded().subscribe([this](bool) { showSessions(); }));
  subscriptions_.push_back(
      store.sourceProblems().subscribe([this](const auto&) { showProblems(); }));
  subscriptions_.push_back(store.toast().subscribe([this](const auto&) { showToast(); }));
  showSessions();
  showProblems();
  showToast();
}

void SessionPanel::showSessions() {
  // Nobody sees a hidden panel; it catches up when it is shown.
  if (!isSurface_)
    return;
  const SessionStore& store = *environment_.store;
  model_.setRows(sessionRows(store.sessions().value(), environment_.now()));
  summary_->setText(QString::fromStdString(summaryText(model_.rows())));
  emptyText_->setText(store.hasLoaded().value()
                          ? QStringLiteral("No sessions today or yesterday")
                          : QStringLiteral("Looking for sessions") + QChar(u'\u2026'));
  emptyText_->setVisible(model_.rows().empty());
}

void SessionPanel::showProblems() {
  const SessionStore::Problems& problems = environment_.store->sourceProblems().value();
  problems_->setText(problemText(problems));
  problems_->setVisible(!problems.empty());
}

void SessionPanel::showToast() {
  const auto& text = environment_.store->toast().value();
  toast_->setVisible(text.has_value());
  if (!text)
    return;
  toast_->setText(QString::fromStdString(*text));
  placeToast();
}

void SessionPanel::placeToast() {
  toast_->adjustSize();
  toast_->move((width() - toast_->width()) / 2, height() - toast_->height() - toastBottom);
  toast_->raise();
}

void SessionPanel::applyColors() {
  QPalette secondary = palette();
  secondary.setColor(QPalette::WindowText, secondaryText(palette()));
  summary_->setPalette(secondary);
  emptyText_->setPalette(secondary);
  QPalette notice = palette();
  notice.setColor(QPalette::Window, noticeGround(palette()));
  notice.setColor(QPalette::WindowText, noticeText(palette()));
  problems_->setPalette(notice);
  menuButton_->setIcon(menuIcon(secondaryText(palette())));
}

std::optional<AgentSession> SessionPanel::selectedSession() const {
  // Not the current index, which the keyboard's focus sets without showing it.
  const QModelIndexList selected = list_->selectionModel()->selectedIndexes();
  const SessionRow* row = selected.empty() ? nullptr : model_.row(selected.front());
  if (row == nullptr)
    return std::nullopt;
  // Rows are older than the store by a moment at most; the session may have gone.
  const auto& sessions = environment_.store->sessions().value();
  const auto found = std::ranges::find_if(
      sessions, [row](const AgentSession& session) { return session.id() == row->id; });
  if (found == sessions.end())
    return std::nullopt;
  return *found;
}

void SessionPanel::selectionChanged() {
  const auto session = selectedSession();
  openButton_->setEnabled(session.has_value());
  copyButton_->setEnabled(session && session->resumeCommand());
}

void SessionPanel::openSelected() {
  if (const auto session = selectedSession())
    environment_.store->open(*session, true);
}

void SessionPanel::copySelected() {
  if (const auto session = selectedSession())
    environment_.store->copyResumeCommand(*session);
}

void SessionPanel::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  if (std::exchange(isSurface_, true))
    return;
  showSessions();
  environment_.store->surfaceOpened();
}

void SessionPanel::hideEvent(QHideEvent* event) {
  QWidget::hideEvent(event);
  if (std::exchange(isSurface_, false))
    environment_.store->surfaceClosed();
}

void SessionPanel::closeEvent(QCloseEvent* event) {
  QWidget::closeEvent(event);
  environment_.closed();
}

void SessionPanel::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange && menuButton_ != nullptr)
    applyColors();
}

void SessionPanel::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  placeToast();
}

bool SessionPanel::eventFilter(QObject* watched, QEvent* event) {
  if (watched == list_ && event->type() == QEvent::Resize)
    emptyText_->setGeometry(list_->rect().adjusted(margin, 0, -margin, 0));
  if (watched == list_ && event->type() == QEvent::KeyPress) {
    const int key = static_cast<QKeyEvent*>(event)->key();
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
      openSelected();
      return true;
    }
  }
  return QWidget::eventFilter(watched, event);
}

}  // namespace tessivane
