#include "backend/BackendTransaction.h"

#include <utility>

namespace tessivane {

BackendTransaction::BackendTransaction(BackendEventStore& store) : db_(store.db()) {
  // A commit may fail and leave its transaction open. It is due now; the next one could not begin.
  if (db_.inTransaction())
    db_.exec("commit");
  store.makeReady();
  begun_ = db_.exec("begin immediate");
  failuresBefore_ = db_.failures();
}

BackendTransaction::~BackendTransaction() {
  // Some failures have undone the transaction by now.
  if (begun_ && db_.inTransaction())
    db_.exec("commit");
}

bool BackendTransaction::commit() {
  const bool isOpen = std::exchange(begun_, false) && db_.inTransaction();
  if (isOpen && !db_.exec("commit") && db_.inTransaction())
    db_.exec("rollback");
  return isWhole() && db_.isInPlace();
}

}  // namespace tessivane
