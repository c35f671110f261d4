#pragma once

// The rows of the session list as Qt's views read them. Lives on the main thread.

#include <QAbstractListModel>
#include <optional>
#include <string>
#include <vector>

#include "surfaces/SessionRow.h"

namespace tessivane {

class SessionListModel final : public QAbstractListModel {
 public:
  /// Replaces the rows. Views keep their selection by the session, not by the place.
  void setRows(std::vector<SessionRow> rows);
  const std::vector<SessionRow>& rows() const { return rows_; }
  /// The row at an index of this model; nothing for an invalid one.
  const SessionRow* row(const QModelIndex& index) const;

  int rowCount(const QModelIndex& parent = {}) const override;
  /// The title, and for those who cannot see the row all of it in words.
  QVariant data(const QModelIndex& index, int role) const override;

 private:
  void moveIndexes(const std::vector<SessionRow>& next);

  std::vector<SessionRow> rows_;
};

}  // namespace tessivane
