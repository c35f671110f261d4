#include "soak/Transcript.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace tessivane {

namespace fs = std::filesystem;

Transcript::Transcript(Workshop& workshop, std::string path)
    : workshop_(workshop), path_(std::move(path)) {
  fs::create_directories(fs::path(path_).parent_path());
}

bool Transcript::isReady() {
  if (shortSize_ && workshop_.witness.offset(path_) == shortSize_)
    shortSize_.reset();
  return !shortSize_;
}

bool Transcript::isStored(const Record& record) {
  return std::ranges::all_of(record.tokens,
                             [this](const Token& token) { return workshop_.witness.sees(token); });
}

void Transcript::write(const std::string& path, int flags, const std::string& bytes) const {
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, 0600);
  const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
  ::close(descriptor);
  if (written != static_cast<ssize_t>(bytes.size()))
    throw std::runtime_error("cannot write " + path);
}

void Transcript::append(Record record) {
  finish();
  write(path_, O_APPEND, record.lines);
  records_.push_back(std::move(record));
}

void Transcript::appendTorn(Record record) {
  finish();
  const std::size_t cut = 1 + workshop_.random.below(record.lines.size() - 1);
  write(path_, O_APPEND, record.lines.substr(0, cut));
  rest_ = record.lines.substr(cut);
  records_.push_back(std::move(record));
}

void Transcript::finish() {
  if (!rest_.empty())
    write(path_, O_APPEND, std::exchange(rest_, {}));
}

std::string Transcript::contents(const std::vector<Record>& records) {
  std::string bytes;
  for (const Record& record : records)
    bytes += record.lines;
  return bytes;
}

bool Transcript::replace(const Record& record) {
  if (!workshop_.witness.offset(path_))
    return false;
  finish();
  std::erase_if(records_, [this](const Record& old) {
    return !old.isKept && isStored(old) && workshop_.random.chance(50);
  });
  records_.push_back(record);
  write(path_ + ".new", O_TRUNC, contents(records_));
  fs::rename(path_ + ".new", path_);
  return true;
}

bool Transcript::cutShort(const Record& record) {
  const auto offset = workshop_.witness.offset(path_);
  std::vector<Record> left;
  std::ranges::copy_if(records_, std::back_inserter(left), [this](const Record& old) {
    return old.isKept || !isStored(old);
  });
  left.push_back(record);
  const std::string bytes = contents(left);
  if (!offset || !rest_.empty() || bytes.size() >= *offset)
    return false;
  records_ = std::move(left);
  shortSize_ = bytes.size();
  write(path_, O_TRUNC, bytes);
  return true;
}

const Transcript::Record* Transcript::someRecord() {
  if (records_.empty())
    return nullptr;
  const Record& record = workshop_.pick(records_);
  return record.tokens.empty() || !isStored(record) ? nullptr : &record;
}

}  // namespace tessivane
