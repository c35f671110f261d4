#include "support/JSONLines.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace tessivane {

namespace {

// The first read of a window. Most answers lie within it; each further read doubles what is there.
constexpr std::size_t firstChunk = 16 * 1024;

constexpr std::size_t keptRoom = 1 << 20;

std::size_t nextChunk(std::size_t filled, std::size_t left) {
  return std::min(left, std::max(firstChunk, filled));
}

}  // namespace

char* LineBuffer::room(std::size_t size) {
  if (size > size_ || (size_ > keptRoom && size <= keptRoom)) {
    bytes_ = std::make_unique_for_overwrite<char[]>(size);
    size_ = size;
  }
  std::memset(bytes_.get() + size - JSONReader::padding, 0, JSONReader::padding);
  return bytes_.get();
}

TailLines::TailLines(const std::string& path, std::size_t maxBytes, LineBuffer& buffer)
    : file_(RegularFile::open(path)) {
  if (!file_ || file_->stamp().size <= 0) {
    ended_ = true;
    return;
  }
  window_ = std::min(maxBytes, static_cast<std::size_t>(file_->stamp().size));
  start_ = file_->stamp().size - static_cast<std::int64_t>(window_);
  bytes_ = buffer.room(window_ + JSONReader::padding);
  filledFrom_ = searchedFrom_ = lineEnd_ = window_;
}

std::optional<PaddedLine> TailLines::next() {
  while (!ended_) {
    const auto piece = nextPiece();
    if (piece && !piece->text.empty())
      return piece;
  }
  return std::nullopt;
}

// The bytes between the line feed before `lineEnd_` and it, reading on where there is none yet.
std::optional<PaddedLine> TailLines::nextPiece() {
  for (;;) {
    const void* feed = ::memrchr(bytes_ + filledFrom_, '\n', searchedFrom_ - filledFrom_);
    if (feed != nullptr) {
      const auto at = static_cast<std::size_t>(static_cast<const char*>(feed) - bytes_);
      const PaddedLine line{{bytes_ + at + 1, lineEnd_ - at - 1}};
      lineEnd_ = searchedFrom_ = at;
      return line;
    }
    searchedFrom_ = filledFrom_;
    if (filledFrom_ == 0) {
      ended_ = true;
      if (start_ != 0)
        return std::nullopt;
      return PaddedLine{{bytes_, lineEnd_}};
    }
    if (!readMore())
      return std::nullopt;
  }
}

bool TailLines::readMore() {
  const std::size_t count = nextChunk(window_ - filledFrom_, filledFrom_);
  const std::size_t from = filledFrom_ - count;
  const auto got = file_->read(bytes_ + from, count, start_ + static_cast<std::int64_t>(from));
  if (got != count) {
    // Cut short since it was opened: what lies further back may be other lines by now.
    ended_ = true;
    return false;
  }
  filledFrom_ = from;
  return true;
}

HeadLines::HeadLines(const std::string& path, std::size_t maxBytes, LineBuffer& buffer)
    : file_(RegularFile::open(path)) {
  if (!file_ || file_->stamp().size <= 0) {
    ended_ = true;
    return;
  }
  window_ = std::min(maxBytes, static_cast<std::size_t>(file_->stamp().size));
  bytes_ = buffer.room(window_ + JSONReader::padding);
}

std::optional<PaddedLine> HeadLines::next() {
  while (!ended_) {
    const auto piece = nextPiece();
    if (piece && !piece->text.empty())
      return piece;
  }
  return std::nullopt;
}

std::optional<PaddedLine> HeadLines::nextPiece() {
  for (;;) {
    const void* feed = std::memchr(bytes_ + searchedTo_, '\n', filledTo_ - searchedTo_);
    if (feed != nullptr) {
      const auto at = static_cast<std::size_t>(static_cast<const char*>(feed) - bytes_);
      const PaddedLine line{{bytes_ + lineBegin_, at - lineBegin_}};
      lineBegin_ = searchedTo_ = at + 1;
      return line;
    }
    searchedTo_ = filledTo_;
    if (filledTo_ == window_) {
      ended_ = true;
      return PaddedLine{{bytes_ + lineBegin_, filledTo_ - lineBegin_}};
    }
    if (!readMore())
      return std::nullopt;
  }
}

bool HeadLines::readMore() {
  const std::size_t count = nextChunk(filledTo_, window_ - filledTo_);
  const auto got = file_->read(bytes_ + filledTo_, count, static_cast<std::int64_t>(filledTo_));
  if (got != count) {
    ended_ = true;
    return false;
  }
  filledTo_ += count;
  return true;
}

}  // namespace tessivane
