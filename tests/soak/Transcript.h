#pragma once

// A file of lines that an agent writes: appended to, torn in the middle of a line, replaced by
// another file and cut short. Never in a way in which no reader of appended bytes could notice what
// happened: see `replace` and `cutShort`.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "soak/Workshop.h"

namespace tessivane {

class Transcript final {
 public:
  /// Lines that belong together, and what tells that what they say was stored.
  struct Record {
    std::string lines = {};
    std::vector<Token> tokens = {};
    bool isKept = false;  ///< may not go when the file is rewritten
  };

  Transcript(Workshop& workshop, std::string path);

  const std::string& path() const { return path_; }
  /// Nothing may be appended yet to a file that was cut short, until that was noticed.
  bool isReady();

  /// Whole, by one write.
  void append(Record record);
  /// Half of it; the rest comes with `finish` or before the next record.
  void appendTorn(Record record);
  void finish();

  /// Puts another file in its place, with `record` at its end and all that was not stored yet.
  /// False when it did nothing: as long as a replacement was not noticed, the next could get the
  /// inode of the file before, and would look like it.
  bool replace(const Record& record);
  /// Empties it and writes anew, with `record` at its end. False when it did nothing: something was
  /// not stored yet, or too little can be left out. The file must become shorter than what was
  /// read.
  bool cutShort(const Record& record);

  /// A record with something in it that was stored, or null.
  const Record* someRecord();

 private:
  bool isStored(const Record& record);
  void write(const std::string& path, int flags, const std::string& bytes) const;
  static std::string contents(const std::vector<Record>& records);

  Workshop& workshop_;
  std::string path_;
  std::vector<Record> records_;
  std::string rest_;  // of a torn record
  std::optional<std::uint64_t> shortSize_;
};

}  // namespace tessivane
