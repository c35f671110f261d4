#pragma once

// A home directory of its own for one test, under the system's temporary directory, gone with the
// value. Paths given to it are relative to the home.

#include <string>
#include <string_view>

#include "support/Date.h"

namespace tessivane {

class TempHome final {
 public:
  TempHome();
  TempHome(const TempHome&) = delete;
  TempHome& operator=(const TempHome&) = delete;
  ~TempHome();

  /// The home itself, absolute and without links.
  const std::string& path() const { return path_; }
  /// The absolute path of `relative`.
  std::string path(std::string_view relative) const;

  /// Writes the whole file, making its directories, and returns its absolute path.
  std::string write(std::string_view relative, std::string_view contents) const;
  /// The same with a modification date.
  std::string write(std::string_view relative, std::string_view contents, Date modified) const;
  void append(std::string_view relative, std::string_view contents) const;
  std::string makeDirectory(std::string_view relative) const;
  void setModified(std::string_view relative, Date modified) const;

  /// Every file, link and directory below the home with its kind, size, mode, modification date and
  /// contents, in order: two equal listings mean that nothing was touched.
  std::string listing() const;

 private:
  std::string path_;
};

}  // namespace tessivane
