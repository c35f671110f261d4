#include "platform/linux/Inotify.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include <asio/error_code.hpp>

namespace tessivane {

namespace {

constexpr std::size_t readSize = 16 * 1024;
// A kernel queue of the usual length fits, whatever the names.
constexpr int readsAtATime = 512;

}  // namespace

Inotify::Inotify(asio::io_context& context) : descriptor_(context) {
  reopen();
}

void Inotify::reopen() {
  asio::error_code ignored;
  descriptor_.close(ignored);
  const int descriptor = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  error_ = descriptor < 0 ? errno : 0;
  if (descriptor < 0)
    return;
  asio::error_code refused;
  descriptor_.assign(descriptor, refused);
  if (!refused)
    return;
  error_ = refused.value();
  ::close(descriptor);
}

int Inotify::add(const std::string& path, std::uint32_t mask) {
  return ::inotify_add_watch(descriptor_.native_handle(), path.c_str(), mask | IN_MASK_ADD);
}

void Inotify::remove(int watch) {
  ::inotify_rm_watch(descriptor_.native_handle(), watch);
}

void Inotify::read(FunctionRef<void(const Event&)> take) {
  std::array<char, readSize> buffer{};
  for (int reads = 0; reads < readsAtATime; ++reads) {
    const ssize_t size = ::read(descriptor_.native_handle(), buffer.data(), buffer.size());
    if (size <= 0)
      return;
    std::string_view bytes(buffer.data(), static_cast<std::size_t>(size));
    while (bytes.size() >= sizeof(inotify_event)) {
      inotify_event event{};
      std::memcpy(&event, bytes.data(), sizeof(event));
      bytes.remove_prefix(sizeof(event));
      // The kernel pads the name with NUL bytes.
      const std::string_view padded = bytes.substr(0, event.len);
      bytes.remove_prefix(padded.size());
      take({event.wd, event.mask, padded.substr(0, padded.find('\0'))});
    }
  }
}

void Inotify::wait(std::function<void()> readable) {
  if (error_ != 0)
    return;
  descriptor_.async_wait(asio::posix::descriptor_base::wait_read,
                         [readable = std::move(readable)](asio::error_code error) {
                           if (!error)
                             readable();
                         });
}

}  // namespace tessivane
