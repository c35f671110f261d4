#include "platform/linux/SingleInstance.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>
#include <utility>

namespace tessivane {

namespace {

constexpr char hasWindow = 'w';
constexpr char hasNone = 'n';
// How long a second start waits for the first one's answer.
constexpr timeval answerTimeout{.tv_sec = 2, .tv_usec = 0};
constexpr int connectAttempts = 50;
constexpr useconds_t attemptSpacing = 10'000;

std::optional<sockaddr_un> addressOf(const std::string& path) {
  sockaddr_un address{};
  if (path.size() >= sizeof address.sun_path)
    return std::nullopt;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

const sockaddr* generic(const sockaddr_un& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

int makeSocket() {
  return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

// Asks the first instance to come forward; its answer, or nothing.
std::optional<char> askToComeForward(const sockaddr_un& address) {
  const int socket = makeSocket();
  if (socket < 0)
    return std::nullopt;
  std::optional<char> answer;
  // The first instance may hold its lock for a moment before it listens.
  for (int attempt = 0; attempt < connectAttempts; ++attempt) {
    if (::connect(socket, generic(address), sizeof address) == 0) {
      ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &answerTimeout, sizeof answerTimeout);
      char byte = 0;
      if (::recv(socket, &byte, 1, 0) == 1)
        answer = byte;
      break;
    }
    ::usleep(attemptSpacing);
  }
  ::close(socket);
  return answer;
}

}  // namespace

// Accepts calls until it goes. The bytes it sends are all there is of a protocol: a caller says
// what it wants by calling.
struct SingleInstance::Listener {
  Listener(int listening, std::string socketPath, TaskQueue& queue, std::function<void()> reopen)
      : socket(listening),
        path(std::move(socketPath)),
        stop(::eventfd(0, EFD_CLOEXEC)),
        thread([this, &queue, reopen = std::move(reopen)] { accept(queue, reopen); }) {}
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  ~Listener() {
    const eventfd_t one = 1;
    ::eventfd_write(stop, one);
    thread.join();
    ::unlink(path.c_str());
    ::close(socket);
    ::close(stop);
  }

  void accept(TaskQueue& queue, const std::function<void()>& reopen) const {
    for (;;) {
      std::array<pollfd, 2> waiting = {pollfd{socket, POLLIN, 0}, pollfd{stop, POLLIN, 0}};
      if (::poll(waiting.data(), waiting.size(), -1) < 0)
        continue;
      if (waiting[1].revents != 0)
        return;
      const int caller = ::accept4(socket, nullptr, nullptr, SOCK_CLOEXEC);
      if (caller < 0)
        continue;
      const char answer = reopen ? hasWindow : hasNone;
      ::send(caller, &answer, 1, MSG_NOSIGNAL);
      ::close(caller);
      if (reopen)
        queue.async(reopen);
    }
  }

  int socket;
  std::string path;
  int stop;
  std::thread thread;
};

SingleInstance::SingleInstance(const std::string& directory,
                               TaskQueue& queue,
                               std::function<void()> reopen) {
  role_ = claim(directory);
  const std::string path = directory + "/instance.sock";
  const auto address = addressOf(path);
  if (role_ != Role::first || lock_ < 0 || !address)
    return;
  // Whoever held the lock before has gone, and left this behind if it was killed.
  ::unlink(path.c_str());
  const int socket = makeSocket();
  if (socket < 0)
    return;
  if (::bind(socket, generic(*address), sizeof *address) != 0 || ::listen(socket, 4) != 0) {
    ::close(socket);
    return;
  }
  listener_ = std::make_unique<Listener>(socket, path, queue, std::move(reopen));
}

SingleInstance::~SingleInstance() {
  listener_.reset();
  if (lock_ >= 0)
    ::close(lock_);
}

SingleInstance::Role SingleInstance::claim(const std::string& directory) {
  std::error_code failure;
  std::filesystem::create_directories(directory, failure);
  lock_ = ::open((directory + "/instance.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (lock_ < 0 || ::flock(lock_, LOCK_EX | LOCK_NB) == 0)
    return Role::first;
  if (errno != EWOULDBLOCK)
    return Role::first;
  const auto address = addressOf(directory + "/instance.sock");
  const auto answer = address ? askToComeForward(*address) : std::nullopt;
  return answer == hasWindow ? Role::handedOver : Role::behindOther;
}

}  // namespace tessivane
