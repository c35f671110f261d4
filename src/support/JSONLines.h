#pragma once

// The lines of a bounded window at the end or the beginning of a file, read only as far as they are
// asked for: a caller that finds what it wants in the first few lines costs one small read. The
// file may grow, shrink or go away meanwhile; then the lines end early.
//
// Lines come without their line feed, empty ones are left out, and each has the slack behind it
// that `JSONReader` needs. They live in the `LineBuffer` and are good until it is used again.
// For one thread at a time.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "support/Files.h"
#include "support/JSON.h"

namespace tessivane {

/// Memory for one window at a time, kept between windows so that reading thousands of files does
/// not allocate thousands of times. A large window's memory is given back by the next small one.
class LineBuffer final {
 public:
  /// Room for `size` bytes, the last `JSONReader::padding` of which are zero. Contents are gone.
  char* room(std::size_t size);

 private:
  std::unique_ptr<char[]> bytes_;
  std::size_t size_ = 0;
};

/// The lines of the last `maxBytes` of a file, the last line first. When the window begins inside
/// the file, its first line is most likely the end of one cut in two and is left out.
class TailLines final {
 public:
  TailLines(const std::string& path, std::size_t maxBytes, LineBuffer& buffer);

  /// The next line towards the beginning; nothing when there is none left or reading failed.
  std::optional<PaddedLine> next();

  /// How many bytes have been read from the file.
  std::size_t bytesRead() const { return window_ - filledFrom_; }

  /// True when the window is the whole file, so that a larger one would show nothing more.
  bool coversFile() const { return start_ == 0; }

 private:
  std::optional<PaddedLine> nextPiece();
  bool readMore();

  std::optional<RegularFile> file_;
  std::int64_t start_ = 0;  // offset of the window in the file
  std::size_t window_ = 0;  // its length
  char* bytes_ = nullptr;   // the window's place; [filledFrom_, window_) is read
  std::size_t filledFrom_ = 0;
  std::size_t searchedFrom_ = 0;  // no line feed in [searchedFrom_, lineEnd_)
  std::size_t lineEnd_ = 0;       // end of the lines not yet given
  bool ended_ = false;
};

/// The lines of the first `maxBytes` of a file, in order. The last one may be cut by the window's
/// end; as a cut line is no whole JSON object, `JSONReader` refuses it.
class HeadLines final {
 public:
  HeadLines(const std::string& path, std::size_t maxBytes, LineBuffer& buffer);

  std::optional<PaddedLine> next();
  std::size_t bytesRead() const { return filledTo_; }

  /// True when the window is the whole file, so that a larger one would show nothing more.
  bool coversFile() const { return !file_ || std::cmp_equal(window_, file_->stamp().size); }

 private:
  std::optional<PaddedLine> nextPiece();
  bool readMore();

  std::optional<RegularFile> file_;
  std::size_t window_ = 0;
  char* bytes_ = nullptr;
  std::size_t filledTo_ = 0;
  std::size_t searchedTo_ = 0;
  std::size_t lineBegin_ = 0;
  bool ended_ = false;
};

/// The two windows under the names that the providers use for them.
inline TailLines tailJSONLines(const std::string& path, std::size_t maxBytes, LineBuffer& buffer) {
  return TailLines(path, maxBytes, buffer);
}
inline HeadLines headJSONLines(const std::string& path, std::size_t maxBytes, LineBuffer& buffer) {
  return HeadLines(path, maxBytes, buffer);
}

}  // namespace tessivane
