#include "surfaces/SessionListModel.h"

#include <QString>
#include <algorithm>
#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace tessivane {

namespace {

QString inWords(const SessionRow& row) {
  return QString::fromStdString(row.title + ", " + std::string(label(row.status)) + ", " +
                                row.project + ", " + row.detail + ", " + row.agent + ", " +
                                row.age);
}

}  // namespace

void SessionListModel::setRows(std::vector<SessionRow> rows) {
  if (rows == rows_)
    return;
  const bool samePlaces =
      std::ranges::equal(rows, rows_, {}, &SessionRow::id, &SessionRow::id) && !rows.empty();
  if (samePlaces) {
    rows_ = std::move(rows);
    emit dataChanged(index(0), index(rowCount() - 1));
    return;
  }
  emit layoutAboutToBeChanged();
  moveIndexes(rows);
  rows_ = std::move(rows);
  emit layoutChanged();
}

void SessionListModel::moveIndexes(const std::vector<SessionRow>& next) {
  std::unordered_map<std::string_view, int> places;
  for (std::size_t place = 0; place < next.size(); ++place)
    places.emplace(next[place].id, static_cast<int>(place));
  for (const QModelIndex& old : persistentIndexList()) {
    const SessionRow* before = row(old);
    const auto found = before == nullptr ? places.end() : places.find(before->id);
    changePersistentIndex(old,
                          found == places.end() ? QModelIndex() : createIndex(found->second, 0));
  }
}

const SessionRow* SessionListModel::row(const QModelIndex& index) const {
  const auto place = static_cast<std::size_t>(index.row());
  return index.isValid() && place < rows_.size() ? &rows_[place] : nullptr;
}

int SessionListModel::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant SessionListModel::data(const QModelIndex& index, int role) const {
  const SessionRow* found = row(index);
  if (found == nullptr)
    return {};
  if (role == Qt::DisplayRole)
    return QString::fromStdString(found->title);
  if (role == Qt::AccessibleTextRole)
    return inWords(*found);
  return {};
}

}  // namespace tessivane
