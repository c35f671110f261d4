#pragma once

// Learns which statements a piece of work runs on which databases, so that a bench can run just
// these with nothing around them. For one thread; the work must open its connections itself.

#include <cstddef>
#include <string>
#include <vector>

#include "support/FunctionRef.h"

namespace tessivane {

/// One connection: how it was opened, and what ran on it, parameters filled in.
struct RecordedConnection {
  std::string uri = {};
  std::vector<std::string> statements = {};
};

std::vector<RecordedConnection> recordStatements(FunctionRef<void()> work);

/// Opens, prepares and steps through it all again, looking at no row. Returns the number of rows.
/// Throws std::runtime_error when SQLite refuses anything.
std::size_t runPlainly(const std::vector<RecordedConnection>& connections);

}  // namespace tessivane
