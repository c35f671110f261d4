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
#include <optional>
#include <thread>
#include <utility>

#include "support/Paths.h"

namespace tessivane {

namespace {

constexpr char hasWindow = 'w';
constexpr char hasNone = 'n';
// How long a second start waits for the first one's answer.
constexpr timeval answerTimeout{.tv_sec = 2, .tv_usec = 0};
// And for one that does not listen: it is just beginning, or comes to its end within this second.
constexpr int attempts = 100;
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

// Asks the first instance to come forward; its answer, or nothing when nobody listens.
std::optional<char> askToComeForward(const sockaddr_un& address) {
  const int socket = makeSocket();
  if (socket < 0)
    return std::nullopt;
  std::optional<char> answer;
  if (::connect(socket, generic(address), sizeof address) == 0) {
    ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &answerTimeout, sizeof answerTimeout);
    char byte = hasNone;
    // Nothing within that time, from one that hangs, is an answer too; a closed socket is none.
    const ssize_t size = ::recv(socket, &byte, 1, 0);
    if (size == 1 || (size < 0 && errno == EAGAIN))
      answer = byte;
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
  stopListening();
  if (lock_ >= 0)
    ::close(lock_);
}

void SingleInstance::stopListening() {
  listener_.reset();
}

SingleInstance::Role SingleInstance::claim(const std::string& directory) {
  makePrivateDirectory(directory);
  lock_ = ::open((directory + "/instance.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  const auto address = addressOf(directory + "/instance.sock");
  for (int attempt = 0; attempt < attempts; ++attempt) {
    if (lock_ < 0 || ::flock(lock_, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK)
      return Role::first;
    if (const auto answer = address ? askToComeForward(*address) : std::nullopt)
      return answer == hasWindow ? Role::handedOver : Role::behindOther;
    ::usleep(attemptSpacing);
  }
  return Role::behindOther;
}

}  // namespace tessivane
